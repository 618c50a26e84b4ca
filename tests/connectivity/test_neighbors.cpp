// Element boundaries and the neighbour matrix.
#include "connectivity/common.h"
#include "connectivity/connectivity_private.h"
#include "connectivity/grid_meshes.h"
#include "connectivity/random_meshes.h"

#include <algorithm>

namespace cd = qx7::meshutil::detail;

// Two triangles (see common.h), then a third one on their common edge: without the flag a
// boundary shared by three elements links nobody; with it the lowest element is linked with the
// others and its slot ends with the last one.
TEST(get_neighbors, shared_and_nonmanifold_edges)
{
    dense2D<unsigned> N;
    ASSERT_EQ(get_neighbors(two_triangles(), EL_TRIA3, false, N), 0);
    EXPECT_EQ(columns(N), (records{{1, U, U}, {U, U, 0}}));
    ASSERT_EQ(get_neighbors(two_triangles(), EL_FACE_MIX, false, N), 0); // 3 rows: triangles
    EXPECT_EQ(columns(N), (records{{1, U, U}, {U, U, 0}}));

    const dense2D<unsigned> M = matrix(3, {{0, 1, 2}, {2, 1, 3}, {1, 2, 4}});
    ASSERT_EQ(get_neighbors(M, EL_TRIA3, false, N), 0);
    EXPECT_EQ(columns(N), (records{{U, U, U}, {U, U, U}, {U, U, U}}));
    ASSERT_EQ(get_neighbors(M, EL_TRIA3, true, N), 0);
    EXPECT_EQ(columns(N), (records{{2, U, U}, {U, U, 0}, {U, U, 0}}));
}

// get_neighbors and get_element_boundaries check their arguments alike; a failed get_neighbors
// leaves its output empty, a failed get_element_boundaries leaves it as it was.
TEST(get_neighbors, argument_checks_and_row_counts)
{
    const dense2D<unsigned> tria = matrix(3, {{0, 1, 2}});
    const struct
    {
        dense2D<unsigned> M;
        element_type type;
        int expected;
    } items[] = {
        {dense2D<unsigned>(3, 0), EL_TRIA3, 0},
        {tria, EL_QUAD4, -1},
        {tria, EL_TETRA4, -1},
        {tria, EL_NODE, -1},
        {dense2D<unsigned>(7, 1, 0u), EL_SOLID_MIX, -1},
        {dense2D<unsigned>(6, 1, 0u), EL_TRIA6, -2},
        {matrix(2, {{0, 1}}), EL_EDGE_MIX, -2},
    };
    for (const auto& it : items)
    {
        dense2D<unsigned> N(2, 2, 5u), untouched(3, 1, 1u);
        EXPECT_EQ(get_neighbors(it.M, it.type, false, N), it.expected) << it.type;
        EXPECT_TRUE(N.empty());
        EXPECT_EQ(get_element_boundaries(it.M, it.type, untouched), it.expected) << it.type;
        EXPECT_EQ(untouched.cols(), 1u);
    }

    const unsigned expected_rows[] = {2, 3, 4, 4, 4, 5, 5, 6, 6}; // in linear_types order
    for (std::size_t t = 0; t < 9; ++t)
    {
        dense2D<unsigned> M(nbr_nodes(linear_types[t]), 1, 0u), N;
        for (unsigned i = 0; i < M.rows(); ++i)
            M(i, 0) = i;
        ASSERT_EQ(get_neighbors(M, linear_types[t], false, N), 0);
        EXPECT_EQ(N.rows(), expected_rows[t]) << linear_types[t];
    }
}

TEST(get_element_boundaries, records_follow_the_local_tables)
{
    struct item
    {
        dense2D<unsigned> M;
        element_type type;
        records expected;
    } items[] = {
        {matrix(3, {{5, 6, 7}}), EL_TRIA3, {{6, 7}, {7, 5}, {5, 6}}},
        {matrix(2, {{3, 9}}), EL_EDGE2, {{9}, {3}}},
        {matrix(4, {{10, 11, 12, 13}}),
         EL_TETRA4,
         {{11, 12, 13}, {12, 10, 13}, {11, 13, 10}, {12, 11, 10}}},
        {matrix(8, {{0, 1, 2, 3, 4, U, U, U}}),
         EL_SOLID_MIX,
         {{0, 4, 1, U}, {1, 4, 2, U}, {2, 4, 3, U}, {3, 4, 0, U}, {0, 1, 2, 3}}},
    };
    for (const item& it : items)
    {
        dense2D<unsigned> B;
        ASSERT_EQ(get_element_boundaries(it.M, it.type, B), 0);
        EXPECT_EQ(columns(B), it.expected) << it.type;
    }

    // Appended after the existing columns, growing by doubling from 4 columns.
    dense2D<unsigned> B;
    ASSERT_EQ(get_element_boundaries(items[0].M, EL_TRIA3, B), 0);
    EXPECT_EQ(B.capacity_cols(), 4u);
    ASSERT_EQ(get_element_boundaries(items[0].M, EL_FACE_MIX, B), 0);
    EXPECT_EQ(columns(B), (records{{6, 7}, {7, 5}, {5, 6}, {6, 7}, {7, 5}, {5, 6}}));
    EXPECT_EQ(B.capacity_cols(), 8u);
    EXPECT_EQ(get_element_boundaries(items[2].M, EL_TETRA4, B), -2); // 2-row output
    EXPECT_EQ(B.cols(), 6u);
}

TEST(canonical_keys, equal_exactly_for_the_same_cycle)
{
    // Every pair of 4-lists over a small alphabet, repeats included, against brute force.
    records lists;
    for (unsigned code = 0; code < 256; ++code)
        lists.push_back({code & 3, (code >> 2) & 3, (code >> 4) & 3, code >> 6});
    for (const auto& x : lists)
        for (const auto& y : lists)
            ASSERT_EQ(cd::make_key(x.data(), 4) == cd::make_key(y.data(), 4), gm::same_cycle(x, y));
    const unsigned tri[3] = {7, 3, 5}, quad[4] = {7, 3, 5, U};
    EXPECT_FALSE(cd::make_key(tri, 3) == cd::make_key(quad, 4));
}

// Random meshes of every accepted type, with shared and non-manifold boundaries and degenerate
// columns, and structured grids, against the brute-force matching, both flags; the result must
// not change when the nodes are renumbered.
TEST(get_neighbors, matches_brute_force)
{
    std::mt19937 gen(2024);
    std::vector<std::pair<element_type, dense2D<unsigned>>> meshes = {
        {EL_TETRA4, gm::tetra_cube(3, 4, 2)},
        {EL_HEXA8, gm::hexa_grid(4, 3, 2)},
        {EL_TRIA3, gm::torus_triangles(5, 4)}};
    for (element_type type : linear_types)
        for (int trial = 0; trial < 12; ++trial)
        {
            const unsigned pool = 8 + gen() % (type == EL_EDGE2 || type == EL_TRIA3 ? 4 : 12);
            meshes.push_back({type, gm::random_mesh(type, 1 + gen() % 60, pool, gen)});
        }
    for (const auto& [type, M] : meshes)
    {
        for (bool flag : {false, true})
        {
            dense2D<unsigned> N;
            ASSERT_EQ(get_neighbors(M, type, flag, N), 0);
            dense2D<unsigned> ref = gm::brute_neighbors(M, type, cd::neighbor_rows(type), flag);
            ASSERT_EQ(columns(N), columns(ref)) << type << " " << M.cols();

            // A shuffled, sparse renumbering of the nodes gives the same matrix.
            std::vector<unsigned> renum(max_ID(M) + 1);
            for (unsigned i = 0; i < renum.size(); ++i)
                renum[i] = 1000000 + 7919 * i;
            std::shuffle(renum.begin(), renum.end(), gen);
            dense2D<unsigned> R;
            R.copy(M);
            for (std::size_t j = 0; j < R.cols(); ++j)
                for (std::size_t i = 0; i < R.rows(); ++i)
                    if (R(i, j) != U) R(i, j) = renum[R(i, j)];
            dense2D<unsigned> NR;
            ASSERT_EQ(get_neighbors(R, type, flag, NR), 0);
            ASSERT_EQ(columns(NR), columns(N));
        }
    }
}
