// Node detector: tree shape against one-by-one insertion, queries against brute force and
// against a literal recursive search.
#include "editing/editing_private.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <meshutil/editing.h>
#include <meshutil/node_detector.h>
#include <random>
#include <vector>

using namespace qx7;
using namespace qx7::meshutil;

namespace
{

/// Random coordinates on a coarse lattice (many exact ties and duplicates) or uniform.
dense2D<double> random_points(unsigned rows, unsigned n, unsigned seed, bool lattice)
{
    std::mt19937 gen(seed);
    dense2D<double> pos(rows, n);
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i < rows; ++i)
            pos(i, j) = lattice ? double(gen() % 5) * 0.25 : double(gen()) / 4294967296.0;
    return pos;
}

/// Reference tree: the list shuffled by an independent mask-and-reject pass, then inserted one
/// node at a time by descent.
template <unsigned D>
std::vector<unsigned> reference_tree(const dense2D<double>& pos, std::vector<unsigned> list,
                                     std::vector<unsigned> T = {})
{
    std::mt19937 gen(1);
    for (std::size_t i = 1; i < list.size(); ++i)
    {
        unsigned mask = 1;
        while (mask < i)
            mask = 2 * mask + 1;
        unsigned r;
        do
            r = unsigned(gen()) & mask;
        while (r > i);
        std::swap(list[i], list[r]);
    }
    for (unsigned idx : list)
    {
        if (idx >= pos.cols()) continue;
        const unsigned k = unsigned(T.size() / 3);
        T.insert(T.end(), {idx, undefined_index, undefined_index});
        if (k == 0) continue;
        unsigned t = 0, axis = 0;
        for (;;)
        {
            const unsigned slot = pos(axis, idx) >= pos(axis, T[3 * t]) ? 2 : 1;
            if (T[3 * t + slot] == undefined_index)
            {
                T[3 * t + slot] = k;
                break;
            }
            t = T[3 * t + slot];
            axis = (axis + 1) % D;
        }
    }
    return T;
}

template <unsigned D>
std::vector<unsigned> table_of(const meshutil::detail::kd_tree<D>& tree)
{
    std::vector<unsigned> T;
    for (unsigned k = 0; k < tree.size(); ++k)
        for (unsigned i = 0; i < 3; ++i)
            T.push_back(tree.nodes(i, k));
    return T;
}

/// The nearest search written literally as a recursion over a reference table.
template <unsigned D>
struct literal_search
{
    const dense2D<double>& pos;
    const std::vector<unsigned>& T;
    const double* P;
    unsigned exclude;
    double r;
    unsigned best;

    void visit(unsigned k, unsigned axis)
    {
        const double* q = pos.col(T[3 * k]);
        bool inside = true;
        for (unsigned i = 0; i < D; ++i)
            inside = inside && q[i] >= P[i] - r && !(q[i] > P[i] + r);
        if (inside && T[3 * k] != exclude)
        {
            double s = 0;
            for (unsigned i = 0; i < D; ++i)
                s += (q[i] - P[i]) * (q[i] - P[i]);
            if (std::sqrt(s) < r)
            {
                r = std::sqrt(s);
                best = T[3 * k];
            }
        }
        if (q[axis] < P[axis] + r && T[3 * k + 2] != undefined_index)
            visit(T[3 * k + 2], (axis + 1) % D);
        if (q[axis] > P[axis] - r && T[3 * k + 1] != undefined_index)
            visit(T[3 * k + 1], (axis + 1) % D);
    }

    unsigned run()
    {
        if (T.empty()) return undefined_index;
        double best2 = 1.7976931348623157e308;
        best = undefined_index;
        for (unsigned k = 0, axis = 0; k != undefined_index; axis = (axis + 1) % D)
        {
            const double* q = pos.col(T[3 * k]);
            double s = 0;
            for (unsigned i = 0; i < D; ++i)
                s += (q[i] - P[i]) * (q[i] - P[i]);
            if (s < best2 && T[3 * k] != exclude)
            {
                best2 = s;
                best = T[3 * k];
            }
            k = P[axis] >= q[axis] ? T[3 * k + 2] : T[3 * k + 1];
        }
        r = std::sqrt(best2);
        if (!(r > 0)) return best;
        visit(0, 0);
        return best;
    }
};

template <unsigned D>
void literal_box(const dense2D<double>& pos, const std::vector<unsigned>& T, unsigned k,
                 unsigned axis, const double* lo, const double* hi, std::vector<unsigned>& out)
{
    const double* q = pos.col(T[3 * k]);
    const bool ge = q[axis] >= lo[axis], le = !(q[axis] > hi[axis]);
    bool inside = ge && le;
    for (unsigned i = 0; i < D; ++i)
        inside = inside && q[i] >= lo[i] && !(q[i] > hi[i]);
    if (inside) out.push_back(T[3 * k]);
    if (ge && T[3 * k + 1] != undefined_index)
        literal_box<D>(pos, T, T[3 * k + 1], (axis + 1) % D, lo, hi, out);
    if (le && T[3 * k + 2] != undefined_index)
        literal_box<D>(pos, T, T[3 * k + 2], (axis + 1) % D, lo, hi, out);
}

template <unsigned D>
double distance(const dense2D<double>& pos, unsigned j, const double* P)
{
    double s = 0;
    for (unsigned i = 0; i < D; ++i)
        s += (pos(i, j) - P[i]) * (pos(i, j) - P[i]);
    return std::sqrt(s);
}

template <unsigned D>
void check_against_references(unsigned n, unsigned seed, bool lattice)
{
    SCOPED_TRACE(testing::Message() << "D=" << D << " n=" << n << " lattice=" << lattice);
    const dense2D<double> pos = random_points(D, n, seed, lattice);
    // A list with duplicates and an index beyond the matrix, which insertion skips.
    std::vector<unsigned> list;
    for (unsigned j = 0; j < n; ++j)
        list.push_back(j);
    for (unsigned j = 0; j < n; j += 7)
        list.push_back(j);
    list.push_back(n + 3);
    dense1D<unsigned> nodes(list.size(), list.data());

    meshutil::detail::kd_tree<D> tree;
    tree.pos = &pos;
    ASSERT_EQ(meshutil::detail::kd_insert(tree, nodes.data(), nodes.size()), list.size() - 1);
    const std::vector<unsigned> T = reference_tree<D>(pos, list);
    ASSERT_EQ(table_of(tree), T);

    std::mt19937 gen(seed + 1);
    for (unsigned q = 0; q < 200; ++q)
    {
        double P[D];
        for (unsigned i = 0; i < D; ++i)
            P[i] = lattice ? double(gen() % 9) * 0.125 - 0.25 : double(gen()) / 4294967296.0;
        // Nearest: same node as the literal search, at the brute-force minimum distance.
        literal_search<D> ref{pos, T, P, undefined_index, 0, 0};
        const unsigned got = meshutil::detail::kd_closest(tree, P, undefined_index);
        ASSERT_EQ(got, ref.run());
        double dmin = INFINITY;
        for (unsigned j = 0; j < n; ++j)
            dmin = std::min(dmin, distance<D>(pos, j, P));
        ASSERT_EQ(distance<D>(pos, got, P), dmin);
        // Node form: every tree node of the same mesh index is skipped.
        const unsigned self = gen() % n;
        literal_search<D> ref_self{pos, T, pos.col(self), self, 0, 0};
        const unsigned other = meshutil::detail::kd_closest(tree, pos.col(self), self);
        ASSERT_EQ(other, ref_self.run());
        ASSERT_NE(other, self);
        // Box: same pre-order as the literal walk, same multiset as brute force.
        double lo[D], hi[D];
        for (unsigned i = 0; i < D; ++i)
        {
            const double h = (q % 4 == 0) ? 0.0 : double(gen() % 4) * 0.125;
            lo[i] = P[i] - h;
            hi[i] = P[i] + h;
        }
        std::vector<unsigned> box, ref_box, brute;
        meshutil::detail::kd_box(tree, lo, hi,
                                 [&](unsigned j)
                                 {
                                     box.push_back(j);
                                     return true;
                                 });
        literal_box<D>(pos, T, 0, 0, lo, hi, ref_box);
        ASSERT_EQ(box, ref_box);
        for (unsigned idx : list)
        {
            if (idx >= n) continue;
            bool inside = true;
            for (unsigned i = 0; i < D; ++i)
                inside = inside && pos(i, idx) >= lo[i] && pos(i, idx) <= hi[i];
            if (inside) brute.push_back(idx);
        }
        std::sort(box.begin(), box.end());
        std::sort(brute.begin(), brute.end());
        ASSERT_EQ(box, brute);
    }
}

} // namespace

TEST(node_detector, mt19937_reference_outputs)
{
    std::mt19937 seeded(1);
    EXPECT_EQ(seeded(), 1791095845u);
    std::mt19937 standard;
    std::mt19937::result_type v = 0;
    for (int i = 0; i < 10000; ++i)
        v = standard();
    EXPECT_EQ(v, 4123659995u);
}

TEST(node_detector, tree_and_queries_match_references)
{
    for (bool lattice : {false, true})
        for (unsigned n : {1u, 2u, 17u, 300u, 2000u})
        {
            check_against_references<2>(n, 11 + n, lattice);
            check_against_references<3>(n, 29 + n, lattice);
        }
}

TEST(node_detector, insertion_into_a_built_tree_matches_one_by_one_insertion)
{
    // A second insert descends the existing tree, shuffling its own list afresh.
    const dense2D<double> pos = random_points(3, 500, 5, true);
    std::vector<unsigned> first, second;
    for (unsigned j = 0; j < 500; ++j)
        (j < 200 ? first : second).push_back(j);
    meshutil::detail::kd_tree<3> tree;
    tree.pos = &pos;
    meshutil::detail::kd_insert(tree, first.data(), first.size());
    meshutil::detail::kd_insert(tree, second.data(), second.size());
    EXPECT_EQ(table_of(tree), reference_tree<3>(pos, second, reference_tree<3>(pos, first)));
}

TEST(node_detector, reinit_checks_and_lifecycle)
{
    dense2D<double> pos = random_points(3, 50, 3, false);
    dense2D<double> bad1(1, 5, 0.0), bad4(4, 5, 0.0);
    node_detector nd;
    EXPECT_EQ(nd.find_closest(vector_fixed<double, 3>(0.0, 0.0, 0.0)), 4294967295u);
    EXPECT_EQ(nd.find_closest(0u), undefined_index);
    EXPECT_EQ(nd.insert(dense1D<unsigned>(3, 0u)), 0u);
    EXPECT_EQ(nd.reinit(pos), 0);
    EXPECT_EQ(nd.size(), 50u);
    // Node-list and connectivity forms keep the tree on a failed check; reinit(pos) empties.
    dense1D<unsigned> nodes(2, 0u);
    nodes[1] = 50;
    EXPECT_EQ(nd.reinit(bad4, nodes), -1);
    EXPECT_EQ(nd.reinit(pos, nodes), -2);
    EXPECT_EQ(nd.size(), 50u);
    dense2D<unsigned> conn[2];
    EXPECT_EQ(nd.reinit(pos, conn + 1, conn), -3);
    EXPECT_EQ(nd.size(), 50u);
    EXPECT_EQ(nd.reinit(bad1), -1);
    EXPECT_EQ(nd.size(), 0u);
    // Appended columns become insertable.
    dense2D<double> grow = random_points(2, 4, 9, false);
    dense1D<unsigned> list(6);
    for (unsigned j = 0; j < 6; ++j)
        list[j] = j;
    EXPECT_EQ(nd.reinit(grow, dense1D<unsigned>(1, 0u)), 0);
    EXPECT_EQ(nd.insert(list), 4u);
    grow.resize(2, 6, 0.5);
    EXPECT_EQ(nd.insert(list), 6u);
    EXPECT_EQ(nd.size(), 11u);
    // Only the node itself inserted: the node form finds nothing.
    node_detector single(grow, dense1D<unsigned>(1, 2u));
    EXPECT_EQ(single.find_closest(2u), undefined_index);
    EXPECT_EQ(single.find_closest(6u), undefined_index);
    EXPECT_EQ(single.find_closest(0u), 2u);
    // Connectivity forms gather distinct nodes; copies are deep and independent.
    dense2D<unsigned> tri(3, 2);
    const unsigned t[6] = {0, 1, 2, 2, 1, 3};
    std::copy(t, t + 6, tri.data());
    node_detector from_conn(grow, tri);
    EXPECT_EQ(from_conn.size(), 4u);
    node_detector copy(from_conn);
    copy = copy;
    EXPECT_EQ(copy.insert(tri), 4u);
    EXPECT_EQ(copy.size(), 8u);
    EXPECT_EQ(from_conn.size(), 4u);
    copy = node_detector();
    EXPECT_EQ(copy.size(), 0u);
}

TEST(node_detector, dimension_adaptation_and_box_edges)
{
    // 3-D detector: nodes 0 and 2 at z = 0, node 1 above node 0, node 3 coincident with node 0.
    dense2D<double> pos(3, 4, 0.0);
    pos(2, 1) = 1.0;
    pos(0, 2) = 1.0;
    node_detector nd(pos);
    dense1D<unsigned> found;
    nd.find_in_box(vector_fixed<double, 2>(-1.0, -1.0), vector_fixed<double, 2>(2.0, 2.0), found);
    std::vector<unsigned> hits(found.begin(), found.end());
    std::sort(hits.begin(), hits.end());
    EXPECT_EQ(hits, (std::vector<unsigned>{0, 2, 3}));
    // Degenerate and inclusive boxes; results append.
    nd.find_in_box(vector_fixed<double, 3>(1.0, 0.0, 0.0), vector_fixed<double, 3>(1.0, 0.0, 0.0),
                   found);
    EXPECT_EQ(found.size(), 4u);
    EXPECT_EQ(found[3], 2u);
    nd.find_in_box(vector_fixed<double, 3>(1.0, 0.0, 0.0), vector_fixed<double, 3>(0.0, 1.0, 1.0),
                   found);
    EXPECT_EQ(found.size(), 4u);
    // Two detectors over one list agree on the tie between the coincident nodes 0 and 3.
    node_detector again(pos);
    const unsigned a = nd.find_closest(vector_fixed<double, 2>(0.0, 0.0));
    EXPECT_TRUE(a == 0u || a == 3u);
    EXPECT_EQ(again.find_closest(vector_fixed<double, 3>(0.0, 0.0, 0.0)), a);
    EXPECT_EQ(nd.find_closest(0u), 3u);
    EXPECT_EQ(nd.find_closest(3u), 0u);
    // 2-D detector: a 3-D query drops z.
    dense2D<double> flat(2, 2, 0.0);
    flat(0, 1) = 1.0;
    node_detector nd2(flat);
    EXPECT_EQ(nd2.find_closest(vector_fixed<double, 3>(0.9, 0.0, 100.0)), 1u);
}

TEST(node_detector, sorted_and_coincident_inputs_stay_searchable)
{
    // A structured grid numbered in order, and 3000 coincident nodes (a chain of equal points).
    dense2D<double> grid(3, 27000);
    for (unsigned j = 0; j < 27000; ++j)
    {
        grid(0, j) = j % 30;
        grid(1, j) = (j / 30) % 30;
        grid(2, j) = j / 900;
    }
    node_detector nd(grid);
    EXPECT_EQ(nd.find_closest(vector_fixed<double, 3>(4.1, 7.2, 20.9)), 4u + 7 * 30 + 21 * 900);
    dense2D<double> same(2, 3000, 0.5);
    node_detector chain(same);
    dense1D<unsigned> found;
    chain.find_in_box(vector_fixed<double, 2>(0.5, 0.5), vector_fixed<double, 2>(0.5, 0.5), found);
    EXPECT_EQ(found.size(), 3000u);
    EXPECT_NE(chain.find_closest(7u), undefined_index);
}

namespace
{

enum class cloud
{
    uniform,
    lattice, // exact ties everywhere
    flat,    // 3-D nodes on the plane z = 0.5
    shell,   // a sphere's surface: most cells empty
    far      // uniform, with a few far outliers stretching the grid
};

dense2D<double> cloud_points(unsigned rows, unsigned n, unsigned seed, cloud kind)
{
    dense2D<double> pos = random_points(rows, n, seed, kind == cloud::lattice);
    for (unsigned j = 0; j < n; ++j)
    {
        double* p = pos.col(j);
        if (kind == cloud::flat && rows == 3) p[2] = 0.5;
        if (kind == cloud::shell)
        {
            double s = 0;
            for (unsigned i = 0; i < rows; ++i)
                s += (p[i] - 0.5) * (p[i] - 0.5);
            for (unsigned i = 0; i < rows; ++i)
                p[i] = 0.5 + (p[i] - 0.5) / std::sqrt(s);
        }
        if (kind == cloud::far && j % 1000 == 1) p[0] = 1e6;
    }
    return pos;
}

/// The cell index against the literal walk over the same tree: every query it settles has the
/// walk's answer (nearest node, node form, box hits in pre-order), whatever the input's shape.
/// Returns the share of the nearest queries inside the cloud's box (off the nodes) it settled.
template <unsigned D>
double check_cells_against_walk(unsigned n, unsigned seed, cloud kind)
{
    const dense2D<double> pos = cloud_points(D, n, seed, kind);
    std::vector<unsigned> list;
    for (unsigned j = 0; j < n; ++j)
        list.push_back(j);
    for (unsigned j = 0; j < n; j += 11)
        list.push_back(j); // duplicates: two tree nodes of one mesh index
    meshutil::detail::kd_tree<D> tree;
    tree.pos = &pos;
    tree.indexed = true;
    meshutil::detail::kd_insert(tree, list.data(), list.size());
    // Whatever kd_insert chose, rebuild through the tree walk's pre-order: both must agree.
    const std::vector<unsigned> entries(tree.cells.entry.begin(), tree.cells.entry.end());
    meshutil::detail::kd_cells_build(tree, nullptr);
    if (!entries.empty())
    {
        EXPECT_EQ(entries, std::vector<unsigned>(tree.cells.entry.begin(), tree.cells.entry.end()));
    }
    EXPECT_TRUE(tree.cells.ready(tree.size()));
    const std::vector<unsigned> T = table_of(tree);

    std::mt19937 gen(seed + 7);
    auto coord = [&](unsigned i)
    {
        const double u = double(gen()) / 4294967296.0 * 1.2 - 0.1; // some queries outside
        if (kind == cloud::lattice) return double(gen() % 9) * 0.125 - 0.25;
        return (kind == cloud::flat && i == 2 && gen() % 2) ? 0.5 : u;
    };
    unsigned settled = 0, eligible = 0, queries = 400;
    for (unsigned q = 0; q < queries; ++q)
    {
        double P[D];
        for (unsigned i = 0; i < D; ++i)
            P[i] = coord(i);
        if (q % 10 == 0) // on a node
        {
            const double* node = pos.col(gen() % n);
            std::copy(node, node + D, P);
        }
        bool inside = q % 10 != 0; // off the nodes, inside the cloud's box
        for (unsigned i = 0; i < D; ++i)
            inside = inside && P[i] > 0.0 && P[i] < 1.0;
        eligible += inside;
        unsigned got;
        if (meshutil::detail::kd_cells_closest(tree, P, undefined_index, got))
        {
            settled += inside;
            literal_search<D> ref{pos, T, P, undefined_index, 0, 0};
            EXPECT_EQ(got, ref.run()) << "query " << q;
        }
        const unsigned self = gen() % n;
        if (meshutil::detail::kd_cells_closest(tree, pos.col(self), self, got))
        {
            literal_search<D> ref{pos, T, pos.col(self), self, 0, 0};
            EXPECT_EQ(got, ref.run()) << "node " << self;
        }
        double lo[D], hi[D];
        for (unsigned i = 0; i < D; ++i)
        {
            const double h = double(gen() % 4) * 0.02;
            lo[i] = P[i] - h;
            hi[i] = P[i] + h;
        }
        dense1D<unsigned> box(1, 12345u); // results are appended
        if (meshutil::detail::kd_cells_box(tree, lo, hi, box))
        {
            std::vector<unsigned> ref_box{12345u};
            literal_box<D>(pos, T, 0, 0, lo, hi, ref_box);
            EXPECT_EQ(std::vector<unsigned>(box.begin(), box.end()), ref_box) << "box " << q;
        }
        else
            EXPECT_EQ(box.size(), 1u);
    }
    return double(settled) / eligible;
}

} // namespace

TEST(node_detector, cell_index_answers_as_the_tree_walk)
{
    for (cloud kind : {cloud::uniform, cloud::lattice, cloud::flat, cloud::shell, cloud::far})
    {
        SCOPED_TRACE(int(kind));
        const double share2 = check_cells_against_walk<2>(3000, 3, kind);
        const double share3 = check_cells_against_walk<3>(5000, 4, kind);
        if (kind == cloud::uniform)
        {
            // The index must really serve well-spread input, or it is only overhead.
            EXPECT_GT(share2, 0.95);
            EXPECT_GT(share3, 0.95);
        }
    }
}

TEST(node_detector, cell_index_leaves_non_finite_input_to_the_tree)
{
    dense2D<double> pos = random_points(3, 5000, 8, false);
    pos(1, 77) = NAN;
    node_detector nd(pos);
    // A NaN node hides the less side of its subtree from box searches: the walk's answer, kept.
    meshutil::detail::kd_tree<3> tree;
    tree.pos = &pos;
    tree.indexed = true;
    std::vector<unsigned> list(5000);
    for (unsigned j = 0; j < 5000; ++j)
        list[j] = j;
    meshutil::detail::kd_insert(tree, list.data(), list.size());
    EXPECT_FALSE(tree.cells.ready(tree.size()));
    const std::vector<unsigned> T = table_of(tree);
    const double lo[3] = {0.2, 0.2, 0.2}, hi[3] = {0.6, 0.6, 0.6};
    std::vector<unsigned> ref;
    literal_box<3>(pos, T, 0, 0, lo, hi, ref);
    dense1D<unsigned> got;
    nd.find_in_box(vector_fixed<double, 3>(0.2, 0.2, 0.2), vector_fixed<double, 3>(0.6, 0.6, 0.6),
                   got);
    EXPECT_EQ(std::vector<unsigned>(got.begin(), got.end()), ref);
    // A NaN query and a NaN box go to the tree on an indexed detector as well.
    dense2D<double> fine = random_points(3, 5000, 9, false);
    node_detector good(fine);
    meshutil::detail::kd_tree<3> plain;
    plain.pos = &fine;
    meshutil::detail::kd_insert(plain, list.data(), list.size());
    const double P[3] = {0.5, NAN, 0.5};
    EXPECT_EQ(good.find_closest(vector_fixed<double, 3>(P[0], P[1], P[2])),
              meshutil::detail::kd_closest_walk(plain, P, undefined_index));
    dense1D<unsigned> none;
    good.find_in_box(vector_fixed<double, 3>(0.0, NAN, 0.0), vector_fixed<double, 3>(1.0, 1.0, 1.0),
                     none);
    EXPECT_EQ(none.size(), 0u);
}

TEST(node_detector, indexed_detector_matches_brute_force_and_survives_growth_and_copies)
{
    // Past the indexing threshold, through the public interface: nearest at the brute-force
    // distance, box hits as brute force; then grown by small inserts and copied.
    dense2D<double> pos = random_points(3, 20000, 12, false);
    dense1D<unsigned> first(12000);
    for (unsigned j = 0; j < 12000; ++j)
        first[j] = j;
    node_detector nd(pos, first);
    std::mt19937 gen(3);
    auto check = [&](const node_detector& d, unsigned inserted)
    {
        for (unsigned q = 0; q < 100; ++q)
        {
            const double P[3] = {double(gen()) / 4294967296.0, double(gen()) / 4294967296.0,
                                 double(gen()) / 4294967296.0};
            const unsigned got = d.find_closest(vector_fixed<double, 3>(P[0], P[1], P[2]));
            double dmin = INFINITY;
            for (unsigned j = 0; j < inserted; ++j)
                dmin = std::min(dmin, distance<3>(pos, j, P));
            ASSERT_LT(got, inserted);
            ASSERT_EQ(distance<3>(pos, got, P), dmin);
            dense1D<unsigned> box;
            d.find_in_box(vector_fixed<double, 3>(P[0] - 0.05, P[1] - 0.05, P[2] - 0.05),
                          vector_fixed<double, 3>(P[0] + 0.05, P[1] + 0.05, P[2] + 0.05), box);
            unsigned brute = 0;
            for (unsigned j = 0; j < inserted; ++j)
                brute += std::fabs(pos(0, j) - P[0]) <= 0.05 &&
                         std::fabs(pos(1, j) - P[1]) <= 0.05 && std::fabs(pos(2, j) - P[2]) <= 0.05;
            ASSERT_EQ(box.size(), brute);
        }
    };
    check(nd, 12000);
    for (unsigned j = 12000; j < 20000; j += 500)
    {
        dense1D<unsigned> more(500);
        for (unsigned k = 0; k < 500; ++k)
            more[k] = j + k;
        ASSERT_EQ(nd.insert(more), 500u);
        check(nd, j + 500);
    }
    node_detector copy(nd);
    nd.clear();
    check(copy, 20000);
}
