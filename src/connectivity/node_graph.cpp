// Node-to-node graph of a mesh, by two passes of a marker array over the node-to-element lists.
#include <cstdint>
#include <meshutil/connectivity.h>

namespace qx7::meshutil
{

namespace
{
/// One pass over the nodes: for node i, every defined node of every element around i that is not
/// i and not met before for i is given to visit(j); after node i, end_node(i) is called. The
/// marker holds, for each node, the last node i that met it, so it is never cleared within a pass.
template <class Visit, class EndNode>
void walk_graph(const dense2D<unsigned>& connectM, const unsigned* first_ne, const unsigned* elems,
                std::size_t n, unsigned* marker, Visit&& visit, EndNode&& end_node) noexcept
{
    const std::size_t rows = connectM.rows();
    for (std::size_t i = 0; i < n; ++i)
    {
        const unsigned node = static_cast<unsigned>(i);
        marker[i] = node;
        for (unsigned q = first_ne[i]; q < first_ne[i + 1]; ++q)
        {
            const unsigned* p = connectM.col(elems[q]);
            for (std::size_t r = 0; r < rows; ++r)
            {
                const unsigned j = p[r];
                if (j == undefined_index || marker[j] == node) continue;
                marker[j] = node;
                visit(j);
            }
        }
        end_node(i);
    }
}
} // namespace

int get_node_graph(const dense2D<unsigned>& connectM, dense1D<unsigned>& first,
                   dense1D<unsigned>& graph) noexcept
{
    dense1D<unsigned> first_ne, elems;
    const int rc = get_connected_elements(connectM, first_ne, elems);
    if (rc < 0) return rc;
    first.clear();
    graph.clear();
    if (connectM.empty()) return first.resize(1, 0u) ? 0 : -199;

    const std::size_t n = first_ne.size() - 1;
    dense1D<unsigned> marker;
    if (!first.resize(n + 1) || !marker.resize(n, undefined_index))
    {
        first.clear_hard();
        return -199;
    }
    unsigned* f = first.data();
    f[0] = 0;
    std::uint64_t c = 0;
    walk_graph(
        connectM, first_ne.data(), elems.data(), n, marker.data(), [&c](unsigned) { ++c; },
        [&c, f](std::size_t i) { f[i + 1] = static_cast<unsigned>(c); });
    // The offsets are unsigned: a graph of 2^32 entries or more cannot be described.
    if (c > std::uint64_t(~0u) || !graph.resize(std::size_t(c)))
    {
        first.clear_hard();
        graph.clear_hard();
        return -199;
    }
    marker = undefined_index;
    unsigned* g = graph.data();
    walk_graph(
        connectM, first_ne.data(), elems.data(), n, marker.data(), [&g](unsigned j) { *g++ = j; },
        [](std::size_t) {});
    return 0;
}

} // namespace qx7::meshutil
