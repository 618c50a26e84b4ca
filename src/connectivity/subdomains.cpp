// Connected parts of a mesh through its neighbour matrix, and the reordering by parts.
#include <cstdint>
#include <cstring>
#include <meshutil/connectivity.h>

namespace qx7::meshutil
{

int get_subdomains(const dense2D<unsigned>& neighbors, dense1D<unsigned>& order,
                   dense1D<unsigned>& first) noexcept
{
    order.clear();
    first.clear();
    const std::size_t n = neighbors.cols(), rows = neighbors.rows();
    dense1D<std::uint64_t> visited;
    if (!visited.resize((n + 63) / 64, 0) || !order.resize(n) || !first.push_back(0u))
    {
        order.clear();
        first.clear();
        return -199;
    }
    std::uint64_t* bits = visited.data();
    auto mark = [bits](std::size_t e)
    {
        const std::uint64_t bit = std::uint64_t(1) << (e & 63);
        const bool was = bits[e >> 6] & bit;
        bits[e >> 6] |= bit;
        return !was;
    };
    // Breadth first with order itself as the queue: an element is marked when it is queued,
    // which lists it where a queue of unmarked elements would first have dropped it.
    unsigned* o = order.data();
    std::size_t count = 0;
    for (std::size_t seed = 0; seed < n; ++seed)
    {
        if (!mark(seed)) continue;
        o[count++] = static_cast<unsigned>(seed);
        for (std::size_t head = count - 1; head < count; ++head)
        {
            const unsigned* nb = rows ? neighbors.col(o[head]) : nullptr;
            for (std::size_t i = 0; i < rows; ++i)
                if (nb[i] < n && mark(nb[i])) o[count++] = nb[i];
        }
        if (!first.push_back(static_cast<unsigned>(count)))
        {
            order.clear();
            first.clear();
            return -199;
        }
    }
    return 0;
}

namespace
{
/// Replaces the columns of M by its columns in the sequence of order; false on memory failure.
bool gather_columns(dense2D<unsigned>& M, const unsigned* order) noexcept
{
    const std::size_t rows = M.rows();
    if (rows == 0 || M.cols() == 0) return true;
    dense2D<unsigned> old;
    if (!old.copy(M)) return false;
    for (std::size_t j = 0, n = M.cols(); j < n; ++j)
        std::memcpy(M.col(j), old.col(order[j]), rows * sizeof(unsigned));
    return true;
}
} // namespace

int get_subdomains(dense2D<unsigned>& connectM, dense2D<unsigned>& neighbors,
                   dense1D<unsigned>& first) noexcept
{
    const std::size_t n = connectM.cols();
    if (neighbors.cols() != n) return -2;
    dense1D<unsigned> order, renumber;
    const int rc = get_subdomains(neighbors, order, first);
    if (rc != 0) return rc;
    bool ok = gather_columns(connectM, order.data()) && gather_columns(neighbors, order.data()) &&
              renumber.resize(n);
    if (ok)
    {
        for (std::size_t i = 0; i < n; ++i)
            renumber[order[i]] = static_cast<unsigned>(i);
        change_indices(neighbors, renumber);
        return 0;
    }
    connectM.clear();
    neighbors.clear();
    first.clear();
    return -199;
}

} // namespace qx7::meshutil
