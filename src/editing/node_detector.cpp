// The node detector's point k-d tree: top-down build, insertion, nearest and box searches.
#include "editing/editing_private.h"

#include <cfloat>
#include <meshutil/node_detector.h>

namespace qx7::meshutil
{

namespace detail
{

namespace
{

/// Trees smaller than this stay in cache and are walked quickly: they get no cell index.
constexpr std::size_t min_indexed = 4096;

/// Per tree node cell and pre-order rank for the cell index, filled by the top-down build;
/// shaped: the grid could be sized.
struct index_scratch
{
    unsigned* preorder;
    unsigned* cell;
    bool shaped;
};

/// A node being placed by the top-down build: its coordinates (gathered once) and its tree node.
template <unsigned D>
struct build_item
{
    double c[D];
    unsigned rank;
};

/// Inserts one node by descent from the root; false when the table cannot grow.
template <unsigned D>
bool insert_one(kd_tree<D>& tree, unsigned index) noexcept
{
    const unsigned k = tree.size();
    const unsigned record[3] = {index, undefined_index, undefined_index};
    if (!append_column(tree.nodes, record, 3)) return false;
    if (k == 0) return true;
    const double* p = tree.pos->col(index);
    unsigned* T = tree.nodes.data();
    const std::size_t ld = tree.nodes.ld();
    unsigned t = 0, axis = 0;
    for (;;)
    {
        unsigned* node = T + std::size_t(t) * ld;
        const double* q = tree.pos->col(node[0]);
        unsigned& child = p[axis] >= q[axis] ? node[2] : node[1];
        if (child == undefined_index)
        {
            child = k;
            return true;
        }
        t = child;
        axis = axis + 1 == D ? 0 : axis + 1;
    }
}

/// Builds an empty tree from the filtered, shuffled list in one partition pass per level: the
/// first node of a range is the root of its subtree, the others are split stably into those
/// below it on the axis and those greater or equal (exactly where one-by-one insertion in list
/// order puts them). With a cell index to build (index not null), the coordinates gathered for
/// the partition also size its grid and give each node's cell, and the final position of a node
/// in the arrangement is its pre-order rank: the index is then filled without reading pos again.
/// false when the scratch cannot be had (nothing changed).
template <unsigned D>
bool build_top_down(kd_tree<D>& tree, const unsigned* list, std::size_t m,
                    index_scratch* index) noexcept
{
    using item = build_item<D>;
    dense1D<item> a, b;
    if (!a.resize(m) || !b.resize(m) || !tree.nodes.resize(3, m))
    {
        tree.nodes.clear();
        return false;
    }
    const std::size_t ld = tree.nodes.ld();
    unsigned* T = tree.nodes.data();
    for (std::size_t k = 0; k < m; ++k)
    {
        const double* p = tree.pos->col(list[k]);
        for (unsigned i = 0; i < D; ++i)
            a[k].c[i] = p[i];
        a[k].rank = unsigned(k);
        unsigned* t = T + k * ld;
        t[0] = list[k];
        t[1] = t[2] = undefined_index;
    }
    unsigned* preorder = nullptr;
    if (index)
    {
        kd_cells_bounds box;
        for (std::size_t k = 0; k < m; ++k)
            box.add<D>(a[k].c);
        index->shaped = kd_cells_shape(tree.cells, box, unsigned(m));
        if (index->shaped)
        {
            for (std::size_t k = 0; k < m; ++k)
                index->cell[k] = unsigned(kd_cells_cell(tree.cells, a[k].c));
            preorder = index->preorder;
            preorder[0] = 0;
        }
    }
    struct task
    {
        unsigned lo, hi, axis, in_b;
    };
    small_stack<task> stack;
    if (m > 1) stack.push(task{0, unsigned(m), 0, 0});
    while (!stack.empty())
    {
        const task w = stack.pop();
        item* src = w.in_b ? b.data() : a.data();
        item* dst = w.in_b ? a.data() : b.data();
        const item root = src[w.lo];
        const double split = root.c[w.axis];
        unsigned less = 0;
        for (unsigned k = w.lo + 1; k < w.hi; ++k)
            less += !(src[k].c[w.axis] >= split);
        unsigned lo_out = w.lo + 1, ge_out = w.lo + 1 + less;
        for (unsigned k = w.lo + 1; k < w.hi; ++k)
        {
            if (src[k].c[w.axis] >= split)
                dst[ge_out++] = src[k];
            else
                dst[lo_out++] = src[k];
        }
        unsigned* t = T + std::size_t(root.rank) * ld;
        const unsigned mid = w.lo + 1 + less, next = w.axis + 1 == D ? 0 : w.axis + 1;
        if (less) t[1] = dst[w.lo + 1].rank;
        if (mid < w.hi) t[2] = dst[mid].rank;
        if (preorder)
        {
            // Each range's first node is its subtree's root, at its final position.
            if (less) preorder[dst[w.lo + 1].rank] = w.lo + 1;
            if (mid < w.hi) preorder[dst[mid].rank] = mid;
        }
        // Ranges of one node are leaves already; a failed push is impossible below the inline
        // size and the heap part only grows with the depth.
        if ((w.hi - mid > 1 && !stack.push(task{mid, w.hi, next, !w.in_b})) ||
            (less > 1 && !stack.push(task{w.lo + 1, mid, next, !w.in_b})))
        {
            tree.nodes.clear();
            return false;
        }
    }
    return true;
}

} // namespace

template <unsigned D>
unsigned kd_insert(kd_tree<D>& tree, const unsigned* list, std::size_t n) noexcept
{
    if (n == 0) return 0;
    dense1D<unsigned> work(n, list);
    if (work.size() != n) return 0;
    shuffle_fixed_seed(work.data(), n);
    const std::size_t cols = tree.pos->empty() ? 0 : tree.pos->cols();
    std::size_t m = 0;
    for (std::size_t k = 0; k < n; ++k)
        if (work[k] < cols) work[m++] = work[k];
    if (m == 0) return 0;
    if (tree.size() == 0 && m < undefined_index)
    {
        dense1D<unsigned> preorder, cell;
        index_scratch scratch{nullptr, nullptr, false};
        if (tree.indexed && m >= min_indexed && preorder.resize(m) && cell.resize(m))
            scratch = index_scratch{preorder.data(), cell.data(), false};
        if (build_top_down(tree, work.data(), m, scratch.cell ? &scratch : nullptr))
        {
            if (scratch.shaped) kd_cells_fill(tree, cell.data(), preorder.data());
            return unsigned(m);
        }
    }
    unsigned added = 0;
    for (std::size_t k = 0; k < m; ++k)
        added += insert_one(tree, work[k]);
    // The index is rebuilt once the nodes it misses reach an eighth of those it holds; until
    // then the tree answers alone.
    const unsigned total = tree.size(), covered = tree.cells.covered;
    if (tree.indexed && added && total >= min_indexed &&
        std::size_t(total - covered) * 8 >= covered)
        kd_cells_build(tree, nullptr);
    return added;
}

template <unsigned D>
unsigned kd_closest(const kd_tree<D>& tree, const double* P, unsigned exclude) noexcept
{
    unsigned found;
    if (tree.indexed && kd_cells_closest(tree, P, exclude, found)) return found;
    return kd_closest_walk(tree, P, exclude);
}

template <unsigned D>
unsigned kd_closest_walk(const kd_tree<D>& tree, const double* P, unsigned exclude) noexcept
{
    if (tree.size() == 0) return undefined_index;
    const unsigned* T = tree.nodes.data();
    const std::size_t ld = tree.nodes.ld();
    const dense2D<double>& pos = *tree.pos;
    // Descent as insertion would go: a first candidate and radius.
    unsigned best = undefined_index;
    double best2 = DBL_MAX;
    for (unsigned k = 0, axis = 0;;)
    {
        const unsigned* t = T + std::size_t(k) * ld;
        const double* q = pos.col(t[0]);
        const double d2 = kd_dist2<D>(q, P);
        if (d2 < best2 && t[0] != exclude)
        {
            best2 = d2;
            best = t[0];
        }
        const unsigned child = P[axis] >= q[axis] ? t[2] : t[1];
        if (child == undefined_index) break;
        k = child;
        axis = axis + 1 == D ? 0 : axis + 1;
    }
    double r = std::sqrt(best2);
    if (!(r > 0.0)) return best;
    // Bounded search: the greater-or-equal side first, the less side afterwards with the radius
    // that side left (a pending less child keeps its node's coordinate for that test).
    struct pending
    {
        double q;
        unsigned child, axis;
    };
    small_stack<pending, 256> stack;
    unsigned k = 0, axis = 0;
    for (;;)
    {
        const unsigned* t = T + std::size_t(k) * ld;
        const double* q = pos.col(t[0]);
        bool inside = true;
        for (unsigned i = 0; i < D; ++i)
            inside = inside && q[i] >= P[i] - r && !(q[i] > P[i] + r);
        if (inside && t[0] != exclude)
        {
            const double d = std::sqrt(kd_dist2<D>(q, P));
            if (d < r)
            {
                r = d;
                best = t[0];
            }
        }
        const unsigned next = axis + 1 == D ? 0 : axis + 1;
        if (t[1] != undefined_index && !stack.push(pending{q[axis], t[1], axis})) return best;
        if (t[2] != undefined_index && q[axis] < P[axis] + r)
        {
            k = t[2];
            axis = next;
            continue;
        }
        bool found = false;
        while (!stack.empty())
        {
            const pending e = stack.pop();
            if (e.q > P[e.axis] - r)
            {
                k = e.child;
                axis = e.axis + 1 == D ? 0 : e.axis + 1;
                found = true;
                break;
            }
        }
        if (!found) return best;
    }
}

template unsigned kd_insert<2>(kd_tree<2>&, const unsigned*, std::size_t) noexcept;
template unsigned kd_insert<3>(kd_tree<3>&, const unsigned*, std::size_t) noexcept;
template unsigned kd_closest<2>(const kd_tree<2>&, const double*, unsigned) noexcept;
template unsigned kd_closest<3>(const kd_tree<3>&, const double*, unsigned) noexcept;
template unsigned kd_closest_walk<2>(const kd_tree<2>&, const double*, unsigned) noexcept;
template unsigned kd_closest_walk<3>(const kd_tree<3>&, const double*, unsigned) noexcept;

} // namespace detail

// ------------------------------------------------------------------------------------ class

node_detector::node_detector(const dense2D<double>& pos) noexcept
{
    reinit(pos);
}

node_detector::node_detector(const dense2D<double>& pos, const dense1D<unsigned>& nodes) noexcept
{
    reinit(pos, nodes);
}

node_detector::node_detector(const dense2D<double>& pos, const dense2D<unsigned>& connectM) noexcept
{
    reinit(pos, connectM);
}

node_detector::node_detector(const dense2D<double>& pos, const dense2D<unsigned>* connectM1,
                             const dense2D<unsigned>* connectM2) noexcept
{
    reinit(pos, connectM1, connectM2);
}

node_detector::node_detector(const node_detector& other) noexcept
{
    *this = other;
}

node_detector& node_detector::operator=(const node_detector& other) noexcept
{
    if ((other.m_tree2 && other.m_tree2 == m_tree2) || (other.m_tree3 && other.m_tree3 == m_tree3))
        return *this;
    clear();
    auto copy_tree = [](auto* src, auto*& dst)
    {
        using tree = std::remove_pointer_t<std::remove_reference_t<decltype(dst)>>;
        if (!src) return;
        tree* t = new (std::nothrow) tree;
        if (!t) return;
        t->pos = src->pos;
        if (!t->nodes.copy(src->nodes))
        {
            delete t;
            return;
        }
        t->indexed = src->indexed;
        t->cells.off = src->cells.off;
        if (src->cells.covered)
        {
            // Without memory for the index the copy is answered by its tree alone.
            t->cells = src->cells;
            if (!t->cells.start.copy(src->cells.start) || !t->cells.entry.copy(src->cells.entry))
                t->cells.covered = 0;
        }
        dst = t;
    };
    copy_tree(other.m_tree2, m_tree2);
    copy_tree(other.m_tree3, m_tree3);
    return *this;
}

node_detector::~node_detector()
{
    clear();
}

void node_detector::clear() noexcept
{
    delete m_tree2;
    delete m_tree3;
    m_tree2 = nullptr;
    m_tree3 = nullptr;
}

unsigned node_detector::size() const noexcept
{
    return m_tree2 ? m_tree2->size() : m_tree3 ? m_tree3->size() : 0u;
}

template <unsigned D>
int node_detector::rebuild(const dense2D<double>& pos, const unsigned* list, std::size_t n) noexcept
{
    clear();
    auto* tree = new (std::nothrow) detail::kd_tree<D>;
    if (!tree) return -199;
    tree->pos = &pos;
    tree->indexed = true;
    if (!tree->nodes.reserve(3, n))
    {
        delete tree;
        return -199;
    }
    if constexpr (D == 2)
        m_tree2 = tree;
    else
        m_tree3 = tree;
    detail::kd_insert(*tree, list, n);
    return 0;
}

int node_detector::reinit(const dense2D<double>& pos) noexcept
{
    clear();
    if (pos.rows() != 2 && pos.rows() != 3) return -1;
    const std::size_t n = pos.cols();
    dense1D<unsigned> list;
    if (!list.resize(n)) return -199;
    for (std::size_t j = 0; j < n; ++j)
        list[j] = unsigned(j);
    return pos.rows() == 2 ? rebuild<2>(pos, list.data(), n) : rebuild<3>(pos, list.data(), n);
}

int node_detector::reinit(const dense2D<double>& pos, const dense1D<unsigned>& nodes) noexcept
{
    if (pos.rows() != 2 && pos.rows() != 3) return -1;
    if (!check_IDs(nodes, unsigned(pos.cols()))) return -2;
    return pos.rows() == 2 ? rebuild<2>(pos, nodes.data(), nodes.size())
                           : rebuild<3>(pos, nodes.data(), nodes.size());
}

int node_detector::reinit(const dense2D<double>& pos, const dense2D<unsigned>& connectM) noexcept
{
    dense1D<unsigned> list;
    unique_indices(list, connectM);
    return reinit(pos, list);
}

int node_detector::reinit(const dense2D<double>& pos, const dense2D<unsigned>* connectM1,
                          const dense2D<unsigned>* connectM2) noexcept
{
    dense1D<unsigned> list;
    const int code = unique_indices(list, connectM1, connectM2);
    if (code != 0) return code;
    return reinit(pos, list);
}

unsigned node_detector::insert(const dense1D<unsigned>& nodes) noexcept
{
    if (m_tree2) return detail::kd_insert(*m_tree2, nodes.data(), nodes.size());
    if (m_tree3) return detail::kd_insert(*m_tree3, nodes.data(), nodes.size());
    return 0;
}

unsigned node_detector::insert(const dense2D<unsigned>& connectM) noexcept
{
    if (!m_tree2 && !m_tree3) return 0;
    dense1D<unsigned> list;
    if (unique_indices(list, connectM) != 0) return 0;
    return insert(list);
}

unsigned node_detector::find_closest(const vector_fixed<double, 2>& P) const noexcept
{
    if (m_tree2) return detail::kd_closest(*m_tree2, P.data(), undefined_index);
    if (m_tree3)
    {
        const double P3[3] = {P[0], P[1], 0.0};
        return detail::kd_closest(*m_tree3, P3, undefined_index);
    }
    return undefined_index;
}

unsigned node_detector::find_closest(const vector_fixed<double, 3>& P) const noexcept
{
    if (m_tree2) return detail::kd_closest(*m_tree2, P.data(), undefined_index);
    if (m_tree3) return detail::kd_closest(*m_tree3, P.data(), undefined_index);
    return undefined_index;
}

unsigned node_detector::find_closest(unsigned node) const noexcept
{
    if (m_tree2)
    {
        if (node >= m_tree2->pos->cols()) return undefined_index;
        return detail::kd_closest(*m_tree2, m_tree2->pos->col(node), node);
    }
    if (m_tree3)
    {
        if (node >= m_tree3->pos->cols()) return undefined_index;
        return detail::kd_closest(*m_tree3, m_tree3->pos->col(node), node);
    }
    return undefined_index;
}

void node_detector::find_in_box(const vector_fixed<double, 2>& Pmin,
                                const vector_fixed<double, 2>& Pmax,
                                dense1D<unsigned>& nodes) const noexcept
{
    auto append = [&nodes](unsigned i) { return nodes.push_back(i); };
    if (m_tree2 && !detail::kd_cells_box(*m_tree2, Pmin.data(), Pmax.data(), nodes))
        detail::kd_box(*m_tree2, Pmin.data(), Pmax.data(), append);
    if (m_tree3)
    {
        const double lo[3] = {Pmin[0], Pmin[1], 0.0}, hi[3] = {Pmax[0], Pmax[1], 0.0};
        if (!detail::kd_cells_box(*m_tree3, lo, hi, nodes))
            detail::kd_box(*m_tree3, lo, hi, append);
    }
}

void node_detector::find_in_box(const vector_fixed<double, 3>& Pmin,
                                const vector_fixed<double, 3>& Pmax,
                                dense1D<unsigned>& nodes) const noexcept
{
    auto append = [&nodes](unsigned i) { return nodes.push_back(i); };
    if (m_tree2)
    {
        const double lo[2] = {Pmin[0], Pmin[1]}, hi[2] = {Pmax[0], Pmax[1]};
        if (!detail::kd_cells_box(*m_tree2, lo, hi, nodes))
            detail::kd_box(*m_tree2, lo, hi, append);
    }
    if (m_tree3 && !detail::kd_cells_box(*m_tree3, Pmin.data(), Pmax.data(), nodes))
        detail::kd_box(*m_tree3, Pmin.data(), Pmax.data(), append);
}

} // namespace qx7::meshutil
