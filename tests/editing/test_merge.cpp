// Node merging against a brute-force earliest-in-B reference; every search path gives the same
// map; argument ladders; connectivity forms and edge-collapsing modes.
#include "editing/editing_private.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <meshutil/editing.h>
#include <random>
#include <vector>

using namespace qx7;
using namespace qx7::meshutil;

namespace
{

dense1D<unsigned> make(const std::vector<unsigned>& v)
{
    return dense1D<unsigned>(v.size(), v.data());
}

std::vector<unsigned> as_vector(const dense1D<unsigned>& v)
{
    return std::vector<unsigned>(v.begin(), v.end());
}

std::vector<unsigned> distinct(const std::vector<unsigned>& in)
{
    std::vector<unsigned> out;
    for (unsigned v : in)
        if (v != undefined_index && std::find(out.begin(), out.end(), v) == out.end())
            out.push_back(v);
    return out;
}

/// Each node of A goes to the first node of B (before a itself, if a is in B) lying in the closed
/// box of half side tol and within distance tol; then chains are followed to their end.
std::vector<unsigned> reference_merge(const dense2D<double>& pos, const std::vector<unsigned>& n1,
                                      const std::vector<unsigned>& n2, double tol, int& count)
{
    const unsigned D = unsigned(pos.rows());
    const std::vector<unsigned> A = distinct(n1), B = distinct(n2);
    std::vector<unsigned> map(pos.cols());
    for (unsigned i = 0; i < map.size(); ++i)
        map[i] = i;
    count = 0;
    for (unsigned a : A)
        for (unsigned b : B)
        {
            if (b == a) break;
            bool inside = true;
            double s = 0;
            for (unsigned i = 0; i < D; ++i)
            {
                inside = inside && pos(i, a) >= pos(i, b) - tol && !(pos(i, a) > pos(i, b) + tol);
                s += (pos(i, a) - pos(i, b)) * (pos(i, a) - pos(i, b));
            }
            if (inside && !(std::sqrt(s) > tol))
            {
                map[a] = b;
                ++count;
                break;
            }
        }
    for (unsigned& m : map)
        while (map[m] != m)
            m = map[m];
    return map;
}

/// Points on a coarse lattice with small jitter, some exactly equal, some special values.
dense2D<double> clustered(unsigned rows, unsigned n, std::mt19937& gen, bool specials)
{
    dense2D<double> pos(rows, n);
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i < rows; ++i)
        {
            double x = double(gen() % 4) * 0.5;
            if (gen() % 3 == 0) x += double(gen() % 5) * 0.1;
            if (specials)
            {
                const unsigned s = gen() % 16;
                if (s == 0) x = std::nan("");
                if (s == 1) x = -0.0;
                if (s == 2) x = 0.0;
                if (s == 3) x = INFINITY;
                if (s == 4) x = -INFINITY;
            }
            pos(i, j) = x;
        }
    // Exact copies of earlier columns.
    for (unsigned j = 1; j < n; j += 3)
        for (unsigned i = 0; i < rows; ++i)
            pos(i, j) = pos(i, gen() % j);
    return pos;
}

std::vector<unsigned> random_list(unsigned n, std::mt19937& gen)
{
    std::vector<unsigned> list;
    for (unsigned k = 0, m = gen() % (n + 5); k < m; ++k)
        list.push_back(gen() % 11 == 0 ? undefined_index : gen() % n);
    return list;
}

} // namespace

TEST(merge, node_lists_match_brute_force_earliest_in_b_rule)
{
    std::mt19937 gen(3);
    for (unsigned trial = 0; trial < 300; ++trial)
    {
        const unsigned rows = 2 + trial % 2, n = 1 + gen() % 40;
        const dense2D<double> pos = clustered(rows, n, gen, trial % 5 == 0);
        const double tol = std::vector<double>{0.0, 0.05, 0.1, 0.35, 0.6, 2.0}[gen() % 6];
        const std::vector<unsigned> n1 = random_list(n, gen);
        const std::vector<unsigned> n2 = trial % 3 == 0 ? n1 : random_list(n, gen);
        SCOPED_TRACE(testing::Message() << "trial " << trial << " tol " << tol);
        // A NaN coordinate in the tree hides what lies below it on its less side: the brute
        // force no longer applies, and the tree's own result is the reference.
        bool nan_in_a = false;
        for (unsigned a : distinct(n1))
            for (unsigned i = 0; i < rows; ++i)
                nan_in_a = nan_in_a || std::isnan(pos(i, a));
        int expect_count;
        std::vector<unsigned> expect = reference_merge(pos, n1, n2, tol, expect_count);
        dense1D<unsigned> map;
        const int count = merge(pos, make(n1), make(n2), map, tol);
        if (n1.empty() || n2.empty())
        {
            EXPECT_EQ(count, 0);
            EXPECT_TRUE(map.empty());
            continue;
        }
        if (nan_in_a)
        {
            dense1D<unsigned> tree;
            const dense1D<unsigned> A = make(distinct(n1)), B = make(distinct(n2));
            expect_count = meshutil::detail::merge_nodes(pos, A, B, tree, tol,
                                                         meshutil::detail::merge_search::tree);
            expect = as_vector(tree);
        }
        ASSERT_EQ(count, expect_count);
        ASSERT_EQ(as_vector(map), expect);
        // Every search path finds the same pairs, so the same map.
        for (auto how : {meshutil::detail::merge_search::tree, meshutil::detail::merge_search::grid,
                         meshutil::detail::merge_search::exact_hash})
        {
            if (how == meshutil::detail::merge_search::exact_hash && tol != 0.0) continue;
            const dense1D<unsigned> A = make(distinct(n1)), B = n1 == n2 ? A : make(distinct(n2));
            dense1D<unsigned> other;
            ASSERT_EQ(meshutil::detail::merge_nodes(pos, A, B, other, tol, how), expect_count);
            ASSERT_EQ(as_vector(other), expect);
        }
    }
}

TEST(merge, known_cases)
{
    // 0 --0.6-- 1 --0.6-- 2, tol 1: 1 into 0, 2 into 1 and then, resolved, into 0.
    dense2D<double> line(2, 3, 0.0);
    line(0, 1) = 0.6;
    line(0, 2) = 1.2;
    dense1D<unsigned> map;
    EXPECT_EQ(merge(line, make({0, 1, 2}), map, 1.0), 2);
    EXPECT_EQ(as_vector(map), (std::vector<unsigned>{0, 0, 0}));
    // In the order (2, 1, 0): 1 into 2, 0 into 1, then into 2.
    EXPECT_EQ(merge(line, make({2, 1, 0}), map, 1.0), 2);
    EXPECT_EQ(as_vector(map), (std::vector<unsigned>{2, 2, 2}));
    // Coincident nodes listed as (5, 3): 3 merges into 5; the others map to themselves.
    dense2D<double> pos(3, 6, 0.0);
    for (unsigned j = 0; j < 6; ++j)
        pos(0, j) = j;
    pos(0, 3) = 5.0;
    EXPECT_EQ(merge(pos, make({5, 3}), map, 0.0), 1);
    EXPECT_EQ(as_vector(map), (std::vector<unsigned>{0, 1, 2, 5, 4, 5}));
    // The all-nodes form snaps coordinates to the survivor.
    dense2D<double> snap(2, 3, 0.0);
    snap(0, 1) = 1e-7;
    snap(0, 2) = 1.0;
    EXPECT_EQ(merge(snap, 1e-6), 1);
    EXPECT_EQ(snap(0, 1), 0.0);
    EXPECT_EQ(snap(0, 2), 1.0);
}

TEST(merge, argument_ladders)
{
    dense2D<double> pos(3, 4, 0.0), empty, bad(4, 4, 0.0);
    dense1D<unsigned> map(2, 7u), ok = make({0, 1}), out_of_range = make({0, 4});
    struct row
    {
        int code, expect;
    };
    const row list_rows[] = {
        {merge(empty, ok, ok, map, 0.0), 0},
        {merge(bad, ok, ok, map, 0.0), -1},
        {merge(pos, out_of_range, ok, map, -1.0), -2},
        {merge(pos, ok, out_of_range, map, -1.0), -3},
        {merge(pos, ok, ok, map, -1.0), -4},
        {merge(pos, ok, ok, map, std::nan("")), -4},
        {merge(pos, ok, dense1D<unsigned>(), map, 0.0), 0},
    };
    for (const row& r : list_rows)
        EXPECT_EQ(r.code, r.expect);
    EXPECT_TRUE(map.empty());
    EXPECT_EQ(merge(bad, map, 0.0), -1);
    EXPECT_EQ(merge(pos, map, -1.0), -3);
    dense2D<unsigned> conn(2, 1, 0u),
        range[2] = {dense2D<unsigned>(2, 1, 0u), dense2D<unsigned>(2, 1, 1u)};
    conn(1, 0) = 9;
    const row conn_rows[] = {
        {merge(empty, conn, map, -1.0, 9), 0},
        {merge(pos, range, range, map, -1.0, 9), 0},
        {merge(bad, conn, map, -1.0, 9), -1},
        {merge(pos, range + 1, range, map, -1.0, 9), -3},
        {merge(pos, conn, map, -1.0, 9), -2},
        {merge(pos, range, range + 2, map, -1.0, 9), -5},
        {merge(pos, range, range + 2, map, 0.0, 3), -6},
    };
    for (const row& r : conn_rows)
        EXPECT_EQ(r.code, r.expect);
    EXPECT_TRUE(map.empty());
}

TEST(merge, connectivity_forms_renumber_and_leave_unused_nodes)
{
    // Two triangles sharing the edge 1-2 through duplicated nodes 3 = 1 and 4 = 2; node 5 (equal
    // to node 0) is used by no element and stays itself.
    //   2=4
    //   |  \  .
    //   0--1=3      (5 at 0)
    dense2D<double> pos(2, 6, 0.0);
    const double xy[12] = {0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0};
    std::copy(xy, xy + 12, pos.data());
    dense2D<unsigned> t1(3, 1), t2(3, 1);
    const unsigned e1[3] = {0, 1, 2}, e2[3] = {3, 4, 1};
    std::copy(e1, e1 + 3, t1.data());
    std::copy(e2, e2 + 3, t2.data());
    dense1D<unsigned> map;
    EXPECT_EQ(merge(pos, t1, t2, map, 1e-9, 0), 2);
    EXPECT_EQ(as_vector(map), (std::vector<unsigned>{0, 1, 2, 1, 2, 5}));
    EXPECT_EQ(std::vector<unsigned>(t2.data(), t2.data() + 3), (std::vector<unsigned>{1, 2, 1}));
    EXPECT_EQ(std::vector<unsigned>(t1.data(), t1.data() + 3), (std::vector<unsigned>{0, 1, 2}));
    // Nothing to merge: unchanged, count 0.
    dense2D<unsigned> t3 = dense2D<unsigned>(3, 1, 0u);
    t3(1, 0) = 1, t3(2, 0) = 2;
    EXPECT_EQ(merge(pos, t3), 0);
    EXPECT_EQ(t3(2, 0), 2u);
}

TEST(merge, edge_collapse_modes_give_resolved_maps)
{
    // A strip of quadrangles whose middle edge is short; mode 0 merges all close pairs, modes 1
    // and 2 only pairs sharing an element. Nodes 6 and 7 coincide with 0 and 1 but share no
    // element with them.
    std::mt19937 gen(5);
    for (unsigned trial = 0; trial < 50; ++trial)
    {
        const unsigned n = 30;
        dense2D<double> pos(3, n);
        for (unsigned j = 0; j < n; ++j)
            for (unsigned i = 0; i < 3; ++i)
                pos(i, j) = double(gen() % 6) * 0.01;
        dense2D<unsigned> quads(4, 20);
        for (unsigned j = 0; j < 20; ++j)
            for (unsigned i = 0; i < 4; ++i)
                quads(i, j) = gen() % 7 == 0 ? undefined_index : gen() % n;
        for (unsigned mode : {1u, 2u})
        {
            dense2D<unsigned> copy;
            copy.copy(quads);
            dense1D<unsigned> map;
            const int count = merge(pos, copy, map, 0.015, mode);
            ASSERT_GE(count, 0);
            ASSERT_EQ(map.size(), n);
            unsigned merged = 0;
            for (unsigned x = 0; x < n; ++x)
            {
                ASSERT_EQ(map[map[x]], map[x]);
                merged += map[x] != x;
            }
            EXPECT_EQ(unsigned(count), merged);
            for (unsigned j = 0; j < 20; ++j)
                for (unsigned i = 0; i < 4; ++i)
                {
                    const unsigned v = quads(i, j);
                    ASSERT_EQ(copy(i, j), v == undefined_index ? v : map[v]);
                }
        }
    }
    // Mode 1 only merges within an element: two coincident nodes in different edges stay.
    dense2D<double> pos(2, 4, 0.0);
    pos(0, 1) = 1.0;
    pos(0, 3) = 1.0;
    dense2D<unsigned> edges(2, 2);
    edges(0, 0) = 0, edges(1, 0) = 1, edges(0, 1) = 2, edges(1, 1) = 3;
    dense2D<unsigned> same;
    same.copy(edges);
    EXPECT_EQ(merge(pos, same, 0.0, 1), 0);
    EXPECT_EQ(merge(pos, edges, 0.0, 0), 2);
}

TEST(merge, grid_and_hash_paths_agree_with_the_tree_on_larger_sets)
{
    // Pairs at distances around tol (jitter of a few ulps to 2 tol), signed zeros, copies, and
    // nodes of B outside the box of A or with infinite coordinates.
    std::mt19937 gen(17);
    for (unsigned trial = 0; trial < 12; ++trial)
    {
        const unsigned rows = 2 + trial % 2, n = 6000;
        const double tol = trial % 4 == 0 ? 0.0 : 1e-3;
        dense2D<double> pos(rows, n);
        for (unsigned j = 0; j < n; ++j)
            for (unsigned i = 0, src = j > 1 ? gen() % j : 0; i < rows; ++i)
            {
                if (j % 2 && j > 1)
                {
                    const double shift = std::vector<double>{
                        0.0, tol, -tol, 0.5 * tol, 2 * tol, std::nextafter(tol, 1.0)}[gen() % 6];
                    pos(i, j) = pos(i, src) + (gen() % rows == i ? shift : 0.0);
                }
                else
                    pos(i, j) = double(gen() % 1000) * 1e-3 - 0.5;
                if (gen() % 50 == 0) pos(i, j) = gen() % 2 ? 0.0 : -0.0;
            }
        pos(0, n - 1) = INFINITY;
        pos(1, n - 2) = 1e6;
        std::vector<unsigned> a, b;
        for (unsigned j = 0; j < n - 2; ++j)
            a.push_back(gen() % (n - 2));
        for (unsigned j = 0; j < n; ++j)
            b.push_back(gen() % n);
        const dense1D<unsigned> A = make(distinct(a)), B = make(distinct(b));
        for (bool same : {true, false})
        {
            const dense1D<unsigned>& BB = same ? A : B;
            dense1D<unsigned> tree, other;
            const int count = meshutil::detail::merge_nodes(pos, A, BB, tree, tol,
                                                            meshutil::detail::merge_search::tree);
            ASSERT_GT(count, 0);
            for (auto how :
                 {meshutil::detail::merge_search::grid, meshutil::detail::merge_search::automatic})
            {
                ASSERT_EQ(meshutil::detail::merge_nodes(pos, A, BB, other, tol, how), count);
                ASSERT_EQ(as_vector(other), as_vector(tree));
            }
        }
    }
}

namespace
{

/// n samples with small jitter on a torus (radii 3 and 1, shape 0), a sphere (shape 1) or a
/// helix (shape 2), in 3-D or, for rows 2, their projection on the plane; then every third node
/// is a copy of an earlier one, exact or moved along one axis by 0, +-tol, the next double above
/// tol or 2 tol; some coordinates are signed zeros.
dense2D<double> surface(unsigned rows, unsigned shape, unsigned n, double tol, std::mt19937& gen)
{
    const double pi = 3.14159265358979323846;
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    dense2D<double> pos(rows, n);
    for (unsigned j = 0; j < n; ++j)
    {
        const double u = 2 * pi * unit(gen), v = 2 * pi * unit(gen);
        double p[3];
        if (shape == 0)
            p[0] = (3 + std::cos(v)) * std::cos(u), p[1] = (3 + std::cos(v)) * std::sin(u),
            p[2] = std::sin(v);
        else if (shape == 1)
            p[0] = std::cos(u) * std::sin(v / 2), p[1] = std::sin(u) * std::sin(v / 2),
            p[2] = std::cos(v / 2);
        else
            p[0] = std::cos(4 * u), p[1] = std::sin(4 * u), p[2] = u;
        for (unsigned i = 0; i < rows; ++i)
            pos(i, j) = gen() % 97 == 0 ? (gen() % 2 ? 0.0 : -0.0) : p[i];
    }
    const double shifts[] = {0.0, 0.0, tol, -tol, std::nextafter(tol, 1.0), 2 * tol};
    for (unsigned j = 3; j < n; j += 3)
    {
        const unsigned src = gen() % j, axis = gen() % rows;
        const double shift = shifts[gen() % 6];
        for (unsigned i = 0; i < rows; ++i)
            pos(i, j) = pos(i, src) + (i == axis ? shift : 0.0);
    }
    return pos;
}

} // namespace

TEST(merge, grid_follows_surfaces_and_curves_with_the_map_of_the_tree)
{
    // Surfaces and curves leave most cells of a grid sized for a filled box empty: the grid
    // refines its cells there. Sizes from a few nodes (plain cells) to tens of thousands; the
    // tolerances from 0 to about the node spacing (where cells cannot get finer than tol).
    using meshutil::detail::merge_nodes;
    using meshutil::detail::merge_search;
    std::mt19937 gen(29);
    // The last three sets pass the size where the grid samples the nodes to size its cells.
    for (unsigned trial = 0; trial < 39; ++trial)
    {
        const unsigned rows = trial % 6 == 5 ? 2 : 3, shape = trial % 3;
        const unsigned n =
            trial >= 36 ? 40000 : std::vector<unsigned>{40, 700, 3000, 8000}[trial / 3 % 4];
        const double spacing = (shape == 0 ? 10.0 : 3.5) / std::sqrt(double(n));
        const double tol =
            std::vector<double>{0.0, 1e-3 * spacing, 0.3 * spacing}[trial >= 36 ? 1 : trial / 12];
        SCOPED_TRACE(testing::Message() << "trial " << trial << " n " << n << " tol " << tol);
        const dense2D<double> pos = surface(rows, shape, n, tol, gen);
        // A: all nodes backwards; B: a random half in random order.
        std::vector<unsigned> all(n), part;
        std::vector<bool> taken(n);
        for (unsigned j = 0; j < n; ++j)
        {
            all[j] = n - 1 - j;
            const unsigned k = gen() % n;
            if (!taken[k]) part.push_back(k);
            taken[k] = true;
        }
        const dense1D<unsigned> A = make(all), B = make(part);
        for (bool same : {true, false})
        {
            const dense1D<unsigned>& BB = same ? A : B;
            dense1D<unsigned> tree, other;
            const int count = merge_nodes(pos, A, BB, tree, tol, merge_search::tree);
            ASSERT_GT(count, 0);
            if (n <= 700)
            {
                int expect_count;
                const std::vector<unsigned> expect =
                    reference_merge(pos, all, as_vector(BB), tol, expect_count);
                ASSERT_EQ(count, expect_count);
                ASSERT_EQ(as_vector(tree), expect);
            }
            for (auto how :
                 {merge_search::grid_only, merge_search::automatic, merge_search::exact_hash})
            {
                if (how == merge_search::exact_hash && tol != 0.0) continue;
                const int c = merge_nodes(pos, A, BB, other, tol, how);
                // The grid takes every set here but the crowded largest tolerance on the helix.
                if (how == merge_search::grid_only && c == -2 && tol > 1e-3 * spacing) continue;
                ASSERT_EQ(c, count) << int(how);
                ASSERT_EQ(as_vector(other), as_vector(tree)) << int(how);
            }
        }
    }
}
