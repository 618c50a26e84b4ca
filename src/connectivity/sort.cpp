// Sorting of element columns by their number of defined nodes.
#include <cstring>
#include <meshutil/connectivity.h>

namespace qx7::meshutil
{

namespace
{
/// Number of entries of a column that are not ~0u.
inline unsigned defined_count(const unsigned* p, std::size_t rows) noexcept
{
    unsigned k = 0;
    for (std::size_t i = 0; i < rows; ++i)
        k += p[i] != undefined_index;
    return k;
}
} // namespace

int sort_elfes(dense2D<unsigned>& connectM, dense1D<unsigned>& order,
               dense1D<unsigned>& first) noexcept
{
    order.clear();
    first.clear();
    const std::size_t rows = connectM.rows(), cols = connectM.cols();
    if (!order.resize(cols) || !first.resize(rows + 2, 0u))
    {
        order.clear();
        first.clear();
        return -199;
    }
    first = 0u;
    unsigned* f = first.data();
    unsigned* o = order.data();
    // Counting sort on the defined-node count: count, prefix sums, stable placement.
    for (std::size_t j = 0; j < cols; ++j)
        ++f[defined_count(connectM.col(j), rows) + 1];
    for (std::size_t k = 1; k < rows + 2; ++k)
        f[k] += f[k - 1];
    for (std::size_t j = 0; j < cols; ++j)
        o[f[defined_count(connectM.col(j), rows)]++] = static_cast<unsigned>(j);
    std::memmove(f + 1, f, (rows + 1) * sizeof(unsigned));
    f[0] = 0;

    bool identity = true;
    for (std::size_t j = 0; j < cols && identity; ++j)
        identity = o[j] == j;
    if (identity || rows == 0) return 0;

    dense2D<unsigned> old;
    if (!old.copy(connectM))
    {
        order.clear();
        first.clear();
        return -199;
    }
    for (std::size_t j = 0; j < cols; ++j)
        std::memcpy(connectM.col(j), old.col(o[j]), rows * sizeof(unsigned));
    return 0;
}

} // namespace qx7::meshutil
