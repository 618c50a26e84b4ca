// The node detector's cell index: built beside the k-d tree, it settles most nearest and box
// queries with a few independent memory reads instead of a walk down a deep tree, and leaves
// every case it cannot prove identical to the walk to the tree.
#include "editing/editing_private.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

namespace qx7::meshutil::detail
{

namespace
{

/// Coordinates beyond this magnitude (or non-finite) switch the index off: squared differences
/// must stay finite and the rounding bounds below must hold.
constexpr double coord_limit = 1e150;
/// Smallest nearest distance the index decides (squares of smaller differences may underflow).
constexpr double min_distance = 1e-140;
/// Nodes per cell the grid is sized for: with about two, the nearest node of a point is almost
/// always inside the 27 cells around it.
constexpr double nodes_per_cell = 2.0;
/// Work limits past which the walk is cheaper: rings of cells and nodes a nearest query examines,
/// cells and hits of a box query.
constexpr int max_ring = 3;
constexpr std::size_t max_examined = 1024;
constexpr std::size_t max_box_cells = 512;
constexpr std::size_t max_box_hits = 256;

/// Pre-order ranks (node, less side, greater-or-equal side) of all tree nodes; false on memory.
template <unsigned D>
bool walk_preorder(const kd_tree<D>& tree, unsigned* rank) noexcept
{
    const unsigned* T = tree.nodes.data();
    const std::size_t ld = tree.nodes.ld();
    small_stack<unsigned> stack;
    unsigned k = 0, next = 0;
    for (;;)
    {
        rank[k] = next++;
        const unsigned* t = T + std::size_t(k) * ld;
        if (t[1] != undefined_index)
        {
            if (t[2] != undefined_index && !stack.push(t[2])) return false;
            k = t[1];
        }
        else if (t[2] != undefined_index)
            k = t[2];
        else
        {
            if (stack.empty()) return true;
            k = stack.pop();
        }
    }
}

/// Cell of coordinate x on an axis, clamped to the grid.
template <unsigned D>
int clamped_cell(const kd_cells<D>& c, unsigned axis, double x) noexcept
{
    const double f = (x - c.lo[axis]) * c.inv[axis];
    if (!(f >= 1.0)) return 0;
    if (f >= double(c.cnt[axis])) return c.cnt[axis] - 1;
    return int(f);
}

template <unsigned D>
std::size_t cell_id(const kd_cells<D>& c, const double* q) noexcept
{
    std::size_t id = 0;
    for (unsigned i = D; i-- > 0;)
        id = id * std::size_t(c.cnt[i]) + std::size_t(clamped_cell(c, i, q[i]));
    return id;
}

/// First cell of the row (y, z) at x = 0.
template <unsigned D>
std::size_t row_id(const kd_cells<D>& c, int y, int z) noexcept
{
    if constexpr (D == 2)
        return std::size_t(y) * std::size_t(c.cnt[0]);
    else
        return (std::size_t(z) * std::size_t(c.cnt[1]) + std::size_t(y)) * std::size_t(c.cnt[0]);
}

template <unsigned D>
void release(kd_cells<D>& c) noexcept
{
    c.covered = 0;
    c.start.clear_hard();
    c.entry.clear_hard();
}

} // namespace

template <unsigned D>
void kd_cells_bounds::add(const double* q) noexcept
{
    for (unsigned i = 0; i < D; ++i)
    {
        finite = finite && std::fabs(q[i]) <= coord_limit;
        lo[i] = std::min(lo[i], q[i]);
        hi[i] = std::max(hi[i], q[i]);
    }
}

template <unsigned D>
bool kd_cells_shape(kd_cells<D>& c, const kd_cells_bounds& box, unsigned n) noexcept
{
    release(c);
    if (!box.finite) c.off = true;
    if (c.off || n == 0) return false;
    const double* lo = box.lo;
    const double* hi = box.hi;
    // Cubic cells, about nodes_per_cell nodes each on well-spread input. An axis thinner than
    // one cell (a flat or nearly flat cloud) gets a single layer and the side is recomputed over
    // the others, so the cell count stays near its aim whatever the box's proportions.
    double maxabs = 0.0, maxext = 0.0;
    for (unsigned i = 0; i < D; ++i)
    {
        maxabs = std::max(maxabs, std::max(std::fabs(lo[i]), std::fabs(hi[i])));
        maxext = std::max(maxext, hi[i] - lo[i]);
    }
    if (!(maxext > 0.0)) return false; // all nodes at one point: the walk stops at once
    bool layered[D] = {};
    const double wanted = std::max(1.0, double(n) / nodes_per_cell);
    double s = 0.0;
    for (bool again = true; again;)
    {
        double volume = 1.0;
        unsigned active = 0;
        for (unsigned i = 0; i < D; ++i)
            if (!layered[i] && hi[i] - lo[i] > 0.0)
            {
                volume *= hi[i] - lo[i];
                ++active;
            }
        if (active == 0) return false;
        s = std::pow(volume / wanted, 1.0 / active);
        if (!(s > 0.0)) return false;
        again = false;
        for (unsigned i = 0; i < D; ++i)
            if (!layered[i] && hi[i] - lo[i] < s) layered[i] = again = true;
    }
    double total = 1.0;
    for (unsigned i = 0; i < D; ++i)
    {
        const double ext = hi[i] - lo[i];
        c.lo[i] = lo[i];
        if (ext > 0.0 && !layered[i])
        {
            c.cnt[i] = int(std::min(ext / s, double(1 << 20))) + 1;
            c.inv[i] = double(c.cnt[i]) / ext;
            c.side[i] = ext / double(c.cnt[i]);
        }
        else
        {
            c.cnt[i] = 1;
            c.inv[i] = 0.0;
            c.side[i] = 0.0;
        }
        total *= double(c.cnt[i]);
    }
    if (total > 8.0 * double(n) + 64.0) return false;
    // Rounding may put a node (or a cell face) a few ulps of these magnitudes off its cell.
    c.slack = 1e-12 * (maxabs + 3.0 * maxext);
    if (!c.start.resize(std::size_t(total) + 1) || !c.entry.resize(2 * std::size_t(n)))
    {
        release(c);
        return false;
    }
    return true;
}

template <unsigned D>
std::size_t kd_cells_cell(const kd_cells<D>& c, const double* q) noexcept
{
    return cell_id(c, q);
}

template <unsigned D>
void kd_cells_fill(kd_tree<D>& tree, const unsigned* cell, const unsigned* preorder) noexcept
{
    kd_cells<D>& c = tree.cells;
    const unsigned n = tree.size();
    const unsigned* T = tree.nodes.data();
    const std::size_t ld = tree.nodes.ld();
    const std::size_t cells = c.start.size() - 1;
    unsigned* S = c.start.data();
    std::fill(S, S + cells + 1, 0u);
    for (unsigned k = 0; k < n; ++k)
        ++S[cell[k] + 1];
    for (std::size_t id = 0; id < cells; ++id)
        S[id + 1] += S[id];
    unsigned* E = c.entry.data();
    for (unsigned k = 0; k < n; ++k)
    {
        const unsigned at = S[cell[k]]++;
        E[2 * std::size_t(at)] = T[std::size_t(k) * ld];
        E[2 * std::size_t(at) + 1] = preorder[k];
    }
    for (std::size_t id = cells; id > 0; --id)
        S[id] = S[id - 1];
    S[0] = 0;
    c.covered = n;
}

template <unsigned D>
void kd_cells_build(kd_tree<D>& tree, const unsigned* preorder) noexcept
{
    kd_cells<D>& c = tree.cells;
    const unsigned n = tree.size();
    const unsigned* T = tree.nodes.data();
    const std::size_t ld = tree.nodes.ld();
    const dense2D<double>& pos = *tree.pos;
    kd_cells_bounds box;
    for (unsigned k = 0; k < n && !c.off; ++k)
        box.add<D>(pos.col(T[std::size_t(k) * ld]));
    if (!kd_cells_shape(c, box, n)) return;
    dense1D<unsigned> walk, cell;
    if (!cell.resize(n) || (!preorder && (!walk.resize(n) || !walk_preorder(tree, walk.data()))))
    {
        release(c);
        return;
    }
    for (unsigned k = 0; k < n; ++k)
        cell[k] = unsigned(cell_id(c, pos.col(T[std::size_t(k) * ld])));
    kd_cells_fill(tree, cell.data(), preorder ? preorder : walk.data());
}

template <unsigned D>
bool kd_cells_closest(const kd_tree<D>& tree, const double* P, unsigned exclude,
                      unsigned& out) noexcept
{
    const kd_cells<D>& c = tree.cells;
    if (!c.ready(tree.size())) return false;
    int pc[3] = {0, 0, 0};
    for (unsigned i = 0; i < D; ++i)
    {
        if (!(std::fabs(P[i]) <= coord_limit)) return false;
        const double f = std::floor((P[i] - c.lo[i]) * c.inv[i]);
        if (f < -2.0 || f > double(c.cnt[i]) + 1.0) return false;
        pc[i] = int(f);
    }
    const dense2D<double>& pos = *tree.pos;
    const unsigned* S = c.start.data();
    const unsigned* E = c.entry.data();
    double best = HUGE_VAL;
    unsigned node = undefined_index;
    bool tie = false;
    std::size_t examined = 0;
    // Entries [e0, e1) hold the nodes of consecutive cells of one row.
    auto scan = [&](unsigned e0, unsigned e1)
    {
        examined += e1 - e0;
        for (unsigned e = e0; e < e1; ++e)
        {
            const unsigned m = E[2 * std::size_t(e)];
            if (m == exclude) continue;
            const double d = std::sqrt(kd_dist2<D>(pos.col(m), P));
            if (d < best)
            {
                best = d;
                node = m;
                tie = false;
            }
            else if (d == best && m != node)
                tie = true;
        }
    };
    for (int k = 0;; ++k)
    {
        // The shell of cells at Chebyshev distance k from P's cell, clipped to the grid, row by
        // row along x: a row inside the shell contributes its two end cells only.
        int a[3] = {0, 0, 0}, b[3] = {0, 0, 0};
        bool empty = false;
        for (unsigned i = 0; i < D; ++i)
        {
            a[i] = std::max(pc[i] - k, 0);
            b[i] = std::min(pc[i] + k, c.cnt[i] - 1);
            empty = empty || a[i] > b[i];
        }
        if (!empty)
        {
            for (int z = a[2]; z <= b[2]; ++z)
                for (int y = a[1]; y <= b[1]; ++y)
                {
                    const std::size_t row = row_id(c, y, z);
                    const bool face =
                        std::abs(y - pc[1]) == k || (D == 3 && std::abs(z - pc[2]) == k);
                    if (face)
                        scan(S[row + a[0]], S[row + b[0] + 1]);
                    else
                    {
                        if (pc[0] - k >= 0 && pc[0] - k < c.cnt[0])
                            scan(S[row + pc[0] - k], S[row + pc[0] - k + 1]);
                        if (k > 0 && pc[0] + k >= 0 && pc[0] + k < c.cnt[0])
                            scan(S[row + pc[0] + k], S[row + pc[0] + k + 1]);
                    }
                }
            if (examined > max_examined) return false;
        }
        // Every node outside the block of rings 0..k is farther than the nearest block face.
        double lb = HUGE_VAL;
        for (unsigned i = 0; i < D; ++i)
        {
            if (pc[i] - k > 0) lb = std::min(lb, P[i] - (c.lo[i] + double(pc[i] - k) * c.side[i]));
            if (pc[i] + k < c.cnt[i] - 1)
                lb = std::min(lb, c.lo[i] + double(pc[i] + k + 1) * c.side[i] - P[i]);
        }
        if (lb == HUGE_VAL) break; // the block covers the whole grid
        if (node != undefined_index && (lb - c.slack) * (1.0 - 1e-15) > best) break;
        if (k == max_ring) return false;
    }
    // Ties go to the walk's visiting order, and so do nodes whose offset from P on some axis is
    // within rounding of the distance itself (the walk's box and pruning tests may then fail).
    if (node == undefined_index || tie || !(best >= min_distance)) return false;
    const double* q = pos.col(node);
    for (unsigned i = 0; i < D; ++i)
    {
        const double margin = 1e-13 * (std::fabs(P[i]) + std::fabs(q[i]) + best);
        if (!(std::fabs(q[i] - P[i]) + margin < best)) return false;
    }
    out = node;
    return true;
}

template <unsigned D>
bool kd_cells_box(const kd_tree<D>& tree, const double* lo, const double* hi,
                  dense1D<unsigned>& nodes) noexcept
{
    const kd_cells<D>& c = tree.cells;
    if (!c.ready(tree.size())) return false;
    int a[3] = {0, 0, 0}, b[3] = {0, 0, 0};
    std::size_t ncells = 1;
    for (unsigned i = 0; i < D; ++i)
    {
        if (std::isnan(lo[i]) || std::isnan(hi[i])) return false;
        if (lo[i] > hi[i]) return true; // nothing inside; the walk finds nothing either
        // The slack covers the rounding of the nodes' cells.
        a[i] = clamped_cell(c, i, lo[i] - c.slack);
        b[i] = clamped_cell(c, i, hi[i] + c.slack);
        ncells *= std::size_t(b[i] - a[i] + 1);
    }
    if (ncells > max_box_cells) return false;
    const dense2D<double>& pos = *tree.pos;
    const unsigned* S = c.start.data();
    const unsigned* E = c.entry.data();
    struct hit
    {
        unsigned rank, node;
    };
    hit found[max_box_hits];
    std::size_t h = 0;
    for (int z = a[2]; z <= b[2]; ++z)
        for (int y = a[1]; y <= b[1]; ++y)
        {
            const std::size_t row = row_id(c, y, z);
            for (unsigned e = S[row + a[0]], e1 = S[row + b[0] + 1]; e < e1; ++e)
            {
                const unsigned m = E[2 * std::size_t(e)];
                const double* q = pos.col(m);
                bool inside = true;
                for (unsigned i = 0; i < D; ++i)
                    inside = inside && q[i] >= lo[i] && !(q[i] > hi[i]);
                if (!inside) continue;
                if (h == max_box_hits) return false;
                found[h++] = hit{E[2 * std::size_t(e) + 1], m};
            }
        }
    // The walk reports in pre-order.
    for (std::size_t i = 1; i < h; ++i)
    {
        const hit v = found[i];
        std::size_t j = i;
        for (; j > 0 && found[j - 1].rank > v.rank; --j)
            found[j] = found[j - 1];
        found[j] = v;
    }
    for (std::size_t i = 0; i < h; ++i)
        if (!nodes.push_back(found[i].node)) break;
    return true;
}

template void kd_cells_bounds::add<2>(const double*) noexcept;
template void kd_cells_bounds::add<3>(const double*) noexcept;
template bool kd_cells_shape<2>(kd_cells<2>&, const kd_cells_bounds&, unsigned) noexcept;
template bool kd_cells_shape<3>(kd_cells<3>&, const kd_cells_bounds&, unsigned) noexcept;
template std::size_t kd_cells_cell<2>(const kd_cells<2>&, const double*) noexcept;
template std::size_t kd_cells_cell<3>(const kd_cells<3>&, const double*) noexcept;
template void kd_cells_fill<2>(kd_tree<2>&, const unsigned*, const unsigned*) noexcept;
template void kd_cells_fill<3>(kd_tree<3>&, const unsigned*, const unsigned*) noexcept;
template void kd_cells_build<2>(kd_tree<2>&, const unsigned*) noexcept;
template void kd_cells_build<3>(kd_tree<3>&, const unsigned*) noexcept;
template bool kd_cells_closest<2>(const kd_tree<2>&, const double*, unsigned, unsigned&) noexcept;
template bool kd_cells_closest<3>(const kd_tree<3>&, const double*, unsigned, unsigned&) noexcept;
template bool kd_cells_box<2>(const kd_tree<2>&, const double*, const double*,
                              dense1D<unsigned>&) noexcept;
template bool kd_cells_box<3>(const kd_tree<3>&, const double*, const double*,
                              dense1D<unsigned>&) noexcept;

} // namespace qx7::meshutil::detail
