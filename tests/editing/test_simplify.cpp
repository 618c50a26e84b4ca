// Degenerated elements and unused nodes: known cases, ladders, and the merge pipeline leaving no
// unused node.
#include <algorithm>
#include <gtest/gtest.h>
#include <meshutil/editing.h>
#include <random>
#include <vector>

using namespace qx7;
using namespace qx7::meshutil;

namespace
{
std::vector<unsigned> as_vector(const dense1D<unsigned>& v)
{
    return std::vector<unsigned>(v.begin(), v.end());
}
std::vector<unsigned> entries(const dense2D<unsigned>& M)
{
    std::vector<unsigned> out;
    for (std::size_t j = 0; j < M.cols(); ++j)
        for (std::size_t i = 0; i < M.rows(); ++i)
            out.push_back(M(i, j));
    return out;
}
dense2D<unsigned> matrix(std::size_t rows, const std::vector<unsigned>& v)
{
    dense2D<unsigned> M(rows, v.size() / rows);
    std::copy(v.begin(), v.end(), M.data());
    return M;
}
} // namespace

TEST(remove_degenerated, repeated_nodes_and_undefined_rows)
{
    const unsigned U = undefined_index;
    // Face-mix columns: a triangle (one ~0u), a quadrangle with a repeated node, a quadrangle.
    // Solid-mix columns: a tetrahedron (four ~0u), a hexahedron.
    for (bool strict : {false, true})
    {
        dense2D<unsigned> faces = matrix(4, {0, 1, 2, U, 3, 4, 3, 5, 6, 7, 8, 9});
        dense1D<unsigned> map;
        EXPECT_EQ(remove_degenerated(faces, map, strict), 1);
        EXPECT_EQ(entries(faces), (std::vector<unsigned>{0, 1, 2, U, 6, 7, 8, 9}));
        EXPECT_EQ(as_vector(map), (std::vector<unsigned>{0, U, 1}));
        dense2D<unsigned> solids = matrix(8, {0, 1, 2, 3, U, U, U, U, 0, 1, 2, 3, 4, 5, 6, 7});
        EXPECT_EQ(remove_degenerated(solids, strict), strict ? 1 : 0);
        EXPECT_EQ(solids.cols(), strict ? 1u : 2u);
        EXPECT_EQ(solids(7, 0), strict ? 7u : U);
    }
    dense2D<unsigned> none(0, 3);
    dense1D<unsigned> map;
    EXPECT_EQ(remove_degenerated(none, map, true), 0);
    EXPECT_EQ(as_vector(map), (std::vector<unsigned>{0, 1, 2}));
}

TEST(simplify, known_cases_and_ladder)
{
    const unsigned U = undefined_index;
    for (unsigned keep : {0u, 4u})
    {
        dense2D<double> pos(2, 10);
        for (unsigned j = 0; j < 10; ++j)
            pos(0, j) = pos(1, j) = j;
        dense2D<unsigned> M = matrix(3, {2, 5, 7, 7, U, 2});
        dense1D<unsigned> map;
        EXPECT_EQ(simplify(pos, M, map, keep), keep ? 4 : 7);
        if (keep == 0)
        {
            EXPECT_EQ(as_vector(map), (std::vector<unsigned>{U, U, 0, U, U, 1, U, 2, U, U}));
            EXPECT_EQ(entries(M), (std::vector<unsigned>{0, 1, 2, 2, U, 0}));
        }
        else
        {
            EXPECT_EQ(as_vector(map), (std::vector<unsigned>{0, 1, 2, 3, U, 4, U, 5, U, U}));
            EXPECT_EQ(entries(M), (std::vector<unsigned>{2, 4, 5, 5, U, 2}));
        }
        for (unsigned j = 0; j < pos.cols(); ++j)
            EXPECT_EQ(map[unsigned(pos(0, j))], j);
    }
    dense2D<double> pos(3, 4, 1.0);
    dense2D<unsigned> all = matrix(2, {0, 1, 2, 3}), bad = matrix(2, {0, 4}), empty;
    dense1D<unsigned> map;
    EXPECT_EQ(simplify(pos, all, map, 0), 0);
    EXPECT_EQ(as_vector(map), (std::vector<unsigned>{0, 1, 2, 3}));
    EXPECT_EQ(simplify(pos, all, map, 4), 0);
    EXPECT_TRUE(map.empty());
    EXPECT_EQ(simplify(pos, bad, map, 0), -2);
    dense2D<unsigned> range[2] = {empty, matrix(1, {9})};
    EXPECT_EQ(simplify(pos, range, range + 2, map, 0), -2);
    EXPECT_EQ(simplify(pos, range + 1, range, map, 0), -3);
    EXPECT_EQ(simplify(pos, range, range, map, 0), 0);
    EXPECT_EQ(pos.cols(), 4u);
    // Two connectivities: both renumbered.
    dense2D<unsigned> a = matrix(2, {3, 1}), b = matrix(1, {3});
    EXPECT_EQ(simplify(pos, a, b, 0), 2);
    EXPECT_EQ(entries(a), (std::vector<unsigned>{1, 0}));
    EXPECT_EQ(entries(b), (std::vector<unsigned>{1}));
}

TEST(simplify, merge_then_cleanup_leaves_no_unused_node)
{
    // A triangle soup of a random grid surface: three nodes per triangle, merged, cleaned.
    std::mt19937 gen(9);
    for (unsigned trial = 0; trial < 10; ++trial)
    {
        const unsigned m = 3 + gen() % 6, nt = 2 * m * m;
        dense2D<double> pos(3, 3 * nt);
        dense2D<unsigned> tri(3, nt);
        unsigned k = 0;
        auto corner = [&](unsigned x, unsigned y)
        {
            pos(0, k) = x;
            pos(1, k) = y;
            pos(2, k) = (x * y) % 3;
            return k++;
        };
        for (unsigned y = 0, t = 0; y < m; ++y)
            for (unsigned x = 0; x < m; ++x)
            {
                // Some triangles collapse onto an edge once merged.
                const unsigned x1 = gen() % 9 == 0 ? x : x + 1;
                tri(0, t) = corner(x, y), tri(1, t) = corner(x1, y), tri(2, t++) = corner(x, y + 1);
                tri(0, t) = corner(x + 1, y), tri(1, t) = corner(x + 1, y + 1);
                tri(2, t++) = corner(x, y + 1);
            }
        ASSERT_GE(merge(pos, tri, 1e-9, 0), 0);
        ASSERT_GE(remove_degenerated(tri, false), 0);
        ASSERT_GE(simplify(pos, tri, 0u), 0);
        std::vector<unsigned> used(pos.cols(), 0);
        for (unsigned v : entries(tri))
            used[v] = 1;
        EXPECT_EQ(std::count(used.begin(), used.end(), 0), 0);
        EXPECT_LE(pos.cols(), (m + 1) * (m + 1));
        // Survivors are distinct points.
        for (unsigned i = 0; i < pos.cols(); ++i)
            for (unsigned j = i + 1; j < pos.cols(); ++j)
                ASSERT_FALSE(pos(0, i) == pos(0, j) && pos(1, i) == pos(1, j));
    }
}
