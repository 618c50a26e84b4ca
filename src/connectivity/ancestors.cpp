// Node-to-element connectivity: one element per node, and every element of every node.
#include <cstring>
#include <meshutil/connectivity.h>

namespace qx7::meshutil
{

int get_ancestors(const dense2D<unsigned>& connectM, dense1D<unsigned>& ancestors) noexcept
{
    if (connectM.empty()) return 0;
    if (ancestors.empty() && !ancestors.resize(std::size_t(max_ID(connectM)) + 1, undefined_index))
        return -199;
    const std::size_t rows = connectM.rows(), size = ancestors.size();
    unsigned* a = ancestors.data();
    for (std::size_t j = 0, n = connectM.cols(); j < n; ++j)
    {
        const unsigned* p = connectM.col(j);
        for (std::size_t i = 0; i < rows; ++i)
            if (p[i] != undefined_index && p[i] < size) a[p[i]] = static_cast<unsigned>(j);
    }
    return 0;
}

int get_connected_elements(const dense2D<unsigned>& connectM, dense1D<unsigned>& first,
                           dense1D<unsigned>& elements) noexcept
{
    first.clear();
    elements.clear();
    if (connectM.empty())
    {
        if (!first.resize(1, 0u)) return -199;
        return 0;
    }
    // Transposition by counting: count per node, prefix sums, then place the elements in order.
    const std::size_t m = max_ID(connectM), rows = connectM.rows(), n = connectM.cols();
    if (!first.resize(m + 4, 0u))
    {
        first.clear();
        elements.clear_hard();
        return -199;
    }
    first = 0u;
    unsigned* f = first.data();
    for (std::size_t j = 0; j < n; ++j)
    {
        const unsigned* p = connectM.col(j);
        for (std::size_t i = 0; i < rows; ++i)
            if (p[i] != undefined_index) ++f[std::size_t(p[i]) + 1];
    }
    for (std::size_t x = 1; x <= m + 1; ++x)
        f[x] += f[x - 1];
    if (!elements.resize(f[m + 1]))
    {
        first.clear();
        elements.clear_hard();
        return -199;
    }
    unsigned* el = elements.data();
    for (std::size_t j = 0; j < n; ++j)
    {
        const unsigned* p = connectM.col(j);
        for (std::size_t i = 0; i < rows; ++i)
            if (p[i] != undefined_index) el[f[p[i]]++] = static_cast<unsigned>(j);
    }
    // The cursors ended at the start of the next node: shift back by one place.
    std::memmove(f + 1, f, (m + 1) * sizeof(unsigned));
    f[0] = 0;
    first.resize(m + 2);
    return 0;
}

} // namespace qx7::meshutil
