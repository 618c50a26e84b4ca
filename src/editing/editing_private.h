// Kernels shared by the node detector and the editing functions (never installed): the fixed-seed
// shuffle, the point k-d tree (build, insertion, nearest and box searches), distinct-index
// gathering.
#pragma once

#include "model/model_private.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <meshutil/containers.h>
#include <meshutil/editing.h>
#include <meshutil/elements.h>
#include <random>

namespace qx7::meshutil::detail
{

// ------------------------------------------------------------------------------------ shuffle

/// Fisher-Yates pass driven by a fresh std::mt19937 seeded with 1: for i = 1 .. n-1, with mask the
/// smallest 2^k - 1 >= i, draws r = next() & mask until r <= i and swaps list[i] and list[r].
inline void shuffle_fixed_seed(unsigned* list, std::size_t n) noexcept
{
    if (n < 2) return;
    std::mt19937 gen(1u);
    std::uint32_t mask = 0;
    for (std::size_t i = 1; i < n; ++i)
    {
        while (mask < i)
            mask = (mask << 1) | 1u;
        std::uint32_t r;
        do
            r = static_cast<std::uint32_t>(gen()) & mask;
        while (r > i);
        std::swap(list[i], list[r]);
    }
}

// ------------------------------------------------------------------------------------ stack

/// LIFO stack of trivially copyable entries: a fixed inline block, then heap storage.
/// push() returns false when memory cannot be had.
template <class T, std::size_t N = 128>
class small_stack
{
public:
    bool push(const T& v) noexcept
    {
        if (m_size < N)
        {
            m_inline[m_size++] = v;
            return true;
        }
        if (!m_heap.push_back(v)) return false;
        ++m_size;
        return true;
    }
    bool empty() const noexcept { return m_size == 0; }
    T pop() noexcept
    {
        --m_size;
        if (m_size < N) return m_inline[m_size];
        T v = m_heap[m_size - N];
        m_heap.resize(m_size - N);
        return v;
    }

private:
    T m_inline[N];
    std::size_t m_size = 0;
    dense1D<T> m_heap;
};

// ------------------------------------------------------------------------------------ k-d tree

/// Point k-d tree over columns of a caller's coordinate matrix (read through the pointer, never
/// copied). nodes: 3 rows per tree node in insertion order: mesh index, child with a smaller
/// coordinate on the splitting axis, child with a greater or equal one (~0u when missing).
/// Tree node 0 is the root; the axis of a node is its depth modulo D.
template <unsigned D>
struct kd_tree;

/// Squared distance between q and P, summed over the axes in order: the one formula every search
/// uses, so that equal distances compare equal whichever search computed them.
template <unsigned D>
inline double kd_dist2(const double* q, const double* P) noexcept
{
    double d2 = 0.0;
    for (unsigned i = 0; i < D; ++i)
        d2 += (q[i] - P[i]) * (q[i] - P[i]);
    return d2;
}

/// A cell index over the nodes of a k-d tree, kept beside the tree by the node detector so that
/// most queries are settled without walking the tree. It holds node numbers only (the coordinates
/// are still read through the tree's pointer): a uniform grid over the bounding box of the
/// inserted nodes, about two nodes per cell, each tree node listed in its cell as (mesh index,
/// pre-order rank in the tree).
///
/// A query it settles gets the answer the tree walk gives, bit for bit:
/// - box search: every node inside a closed box is visited by the walk when no inserted node has a
///   NaN coordinate, so the hits are the nodes passing the same per-coordinate test, reported in
///   the walk's pre-order;
/// - nearest search: when exactly one mesh index attains the smallest distance, computed as the
///   walk computes it, and that node is clear of the walk's box and pruning tests by a margin
///   well above their rounding, the walk must meet it and keep it.
/// Everything else (ties, nodes on the search sphere's axes, non-finite input, far or crowded
/// queries) is left to the tree.
template <unsigned D>
struct kd_cells
{
    unsigned covered = 0;    ///< tree nodes indexed; the index serves only when all are
    bool off = false;        ///< never index this tree (a non-finite or huge coordinate)
    double lo[D] = {};       ///< grid origin
    double inv[D] = {};      ///< cells per unit length (0 on a flat axis)
    double side[D] = {};     ///< cell side
    int cnt[D] = {};         ///< cells per axis
    double slack = 0.0;      ///< bound on how far rounding may put a node outside its cell
    dense1D<unsigned> start; ///< first entry of each cell (cells + 1)
    dense1D<unsigned> entry; ///< 2 per tree node, by cell: mesh index, pre-order rank

    bool ready(unsigned tree_size) const noexcept
    {
        return !off && covered && covered == tree_size;
    }
};

/// Point k-d tree over columns of a caller's coordinate matrix (read through the pointer, never
/// copied). nodes: 3 rows per tree node in insertion order: mesh index, child with a smaller
/// coordinate on the splitting axis, child with a greater or equal one (~0u when missing).
/// Tree node 0 is the root; the axis of a node is its depth modulo D. indexed: keep a cell index
/// beside the tree (the node detector's trees; merging builds plain trees).
template <unsigned D>
struct kd_tree
{
    const dense2D<double>* pos = nullptr;
    dense2D<unsigned> nodes;
    bool indexed = false;
    kd_cells<D> cells;

    unsigned size() const noexcept { return nodes.empty() ? 0u : unsigned(nodes.cols()); }
};

/// Bounding box of the nodes a cell index will list, and whether all their coordinates suit one.
struct kd_cells_bounds
{
    double lo[3] = {HUGE_VAL, HUGE_VAL, HUGE_VAL};
    double hi[3] = {-HUGE_VAL, -HUGE_VAL, -HUGE_VAL};
    bool finite = true;

    template <unsigned D>
    void add(const double* q) noexcept;
};

/// Sizes the grid of c for n nodes in box and reserves its tables (c lists nothing yet). false
/// when no index fits (non-finite or huge coordinates switch it off for good, as does memory for
/// this build).
template <unsigned D>
bool kd_cells_shape(kd_cells<D>& c, const kd_cells_bounds& box, unsigned n) noexcept;

/// Cell of a point in c's grid (clamped to the grid).
template <unsigned D>
std::size_t kd_cells_cell(const kd_cells<D>& c, const double* q) noexcept;

/// Lists every tree node in the shaped index: cell[k] and preorder[k] are tree node k's cell and
/// pre-order rank.
template <unsigned D>
void kd_cells_fill(kd_tree<D>& tree, const unsigned* cell, const unsigned* preorder) noexcept;

/// (Re)builds tree.cells over all tree nodes; preorder gives each tree node's pre-order rank
/// (nullptr: computed by a walk). Leaves the index unusable when memory or the coordinates do
/// not allow one; the tree alone then answers.
template <unsigned D>
void kd_cells_build(kd_tree<D>& tree, const unsigned* preorder) noexcept;

/// Nearest node through the cell index, as kd_closest defines it. true when settled (result in
/// out); false when the tree must decide.
template <unsigned D>
bool kd_cells_closest(const kd_tree<D>& tree, const double* P, unsigned exclude,
                      unsigned& out) noexcept;

/// Box search through the cell index: appends the hits to nodes in the tree's pre-order (stopping
/// at the first that cannot be stored) and returns true, or returns false without touching
/// nodes when the tree must decide.
template <unsigned D>
bool kd_cells_box(const kd_tree<D>& tree, const double* lo, const double* hi,
                  dense1D<unsigned>& nodes) noexcept;

/// Nearest inserted node by the tree walk alone (kd_closest without the cell index).
template <unsigned D>
unsigned kd_closest_walk(const kd_tree<D>& tree, const double* P, unsigned exclude) noexcept;

/// Inserts the listed nodes in the fixed-seed shuffled order of the list (indices not below
/// pos->cols() are skipped); returns the number inserted. An empty tree is built top-down in one
/// pass per level (the result is the same tree as one-by-one insertion); a non-empty tree gets
/// one descent per node.
template <unsigned D>
unsigned kd_insert(kd_tree<D>& tree, const unsigned* list, std::size_t n) noexcept;

/// Nearest inserted node to P other than mesh node `exclude` (~0u: none); ~0u when none.
template <unsigned D>
unsigned kd_closest(const kd_tree<D>& tree, const double* P, unsigned exclude) noexcept;

/// Calls hit(mesh index) for every tree node in the closed box [lo, hi], in pre-order (node, less
/// side, greater-or-equal side). hit returns false to stop the search. Returns false when the
/// walk could not get memory for its stack (the results so far have been reported).
template <unsigned D, class F>
bool kd_box(const kd_tree<D>& tree, const double* lo, const double* hi, F&& hit) noexcept
{
    const unsigned nbr = tree.size();
    if (nbr == 0) return true;
    const unsigned* T = tree.nodes.data();
    const std::size_t ld = tree.nodes.ld();
    const dense2D<double>& pos = *tree.pos;
    struct entry
    {
        unsigned node, axis;
    };
    small_stack<entry> stack;
    unsigned k = 0, axis = 0;
    for (;;)
    {
        const unsigned* t = T + std::size_t(k) * ld;
        const double* q = pos.col(t[0]);
        const bool ge = q[axis] >= lo[axis];
        const bool le = !(q[axis] > hi[axis]);
        if (ge && le)
        {
            bool inside = true;
            for (unsigned i = 0; i < D; ++i)
                inside = inside && q[i] >= lo[i] && !(q[i] > hi[i]);
            if (inside && !hit(t[0])) return true;
        }
        const unsigned next_axis = axis + 1 == D ? 0 : axis + 1;
        const unsigned less = ge ? t[1] : undefined_index;
        const unsigned more = le ? t[2] : undefined_index;
        if (less != undefined_index)
        {
            if (more != undefined_index && !stack.push(entry{more, next_axis})) return false;
            k = less;
            axis = next_axis;
        }
        else if (more != undefined_index)
        {
            k = more;
            axis = next_axis;
        }
        else
        {
            if (stack.empty()) return true;
            const entry e = stack.pop();
            k = e.node;
            axis = e.axis;
        }
    }
}

// ------------------------------------------------------------------------------------ indices

/// Calls f(ptr, rows) for each column of each matrix of [first, last).
struct matrix_runs
{
    const dense2D<unsigned>* first;
    const dense2D<unsigned>* last;
    template <class F>
    void operator()(F&& f) const noexcept
    {
        for (const dense2D<unsigned>* m = first; m != last; ++m)
        {
            if (m->empty()) continue;
            const std::size_t rows = m->rows();
            for (std::size_t j = 0, n = m->cols(); j < n; ++j)
                f(m->col(j), rows);
        }
    }
};

/// Distinct-value gathering over a range of connectivities (no exclusion).
int unique_of_range(dense1D<unsigned>& out, const dense2D<unsigned>* first,
                    const dense2D<unsigned>* last) noexcept;

// ------------------------------------------------------------------------------------ merging

/// How merge_nodes finds the pairs within the tolerance; every choice gives the same map. When a
/// node of A has a NaN coordinate every choice takes the tree, whose shape then decides which
/// pairs are found.
enum class merge_search
{
    automatic,  ///< exact hash for tol = 0, grid for a small tol when it stays cheap, else tree
    tree,       ///< k-d tree over A and a closed-box search per node of B
    exact_hash, ///< coordinate hash (tol = 0 only)
    grid,       ///< grid following the points' density (finite coordinates only; else the tree)
    grid_only   ///< the grid, or -2 (map empty) where grid falls back to the tree
};

/// The node-list merge on checked input: A and B distinct valid node lists (B may share A's
/// storage), pos with 2 or 3 rows, tol >= 0. map becomes pos.cols() resolved survivors (each node
/// of A merged into the earliest node of B within tol). Returns the count, -2 (grid_only) or -199
/// (map empty).
int merge_nodes(const dense2D<double>& pos, const dense1D<unsigned>& A, const dense1D<unsigned>& B,
                dense1D<unsigned>& map, double tol, merge_search how) noexcept;

/// 3-D rotation matrix (column-major 3 x 3) from a rotation vector; series below an angle of 0.1.
void rotation_matrix(const double* rot, double* R) noexcept;

} // namespace qx7::meshutil::detail
