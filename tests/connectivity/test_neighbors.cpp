// Element boundaries and the neighbour matrix.
#include "connectivity/connectivity_private.h"
#include "connectivity/grid_meshes.h"
#include "connectivity/matrix_util.h"
#include "connectivity/random_meshes.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <meshutil/connectivity.h>
#include <vector>

using namespace qx7;
using namespace qx7::meshutil;
using qx7::meshutil::test_meshes::columns;
using qx7::meshutil::test_meshes::matrix;
using qx7::meshutil::test_meshes::values;
namespace cd = qx7::meshutil::detail;
namespace gm = qx7::meshutil::test_meshes;

namespace
{
constexpr unsigned U = undefined_index;

const element_type linear_types[] = {EL_EDGE2,  EL_TRIA3,  EL_QUAD4, EL_FACE_MIX, EL_TETRA4,
                                     EL_PYRAM5, EL_PENTA6, EL_HEXA8, EL_SOLID_MIX};
} // namespace

//   2 ------ 3
//   | \  1   |      triangles 0 = (0, 1, 2) and 1 = (2, 1, 3)
//   |  0  \  |      share the edge 1-2: edge 0 of triangle 0, edge 2 of triangle 1
//   0 ------ 1
TEST(get_neighbors, two_triangles_share_one_edge)
{
    dense2D<unsigned> M = matrix(3, {{0, 1, 2}, {2, 1, 3}}), N;
    ASSERT_EQ(get_neighbors(M, EL_TRIA3, false, N), 0);
    EXPECT_EQ(columns(N), (std::vector<std::vector<unsigned>>{{1, U, U}, {U, U, 0}}));
    // A 3-row matrix passed as a mixed surface is read as triangles.
    ASSERT_EQ(get_neighbors(M, EL_FACE_MIX, false, N), 0);
    EXPECT_EQ(N.rows(), 3u);
}

TEST(get_neighbors, three_triangles_on_one_edge)
{
    dense2D<unsigned> M = matrix(3, {{0, 1, 2}, {2, 1, 3}, {1, 2, 4}}), N;
    ASSERT_EQ(get_neighbors(M, EL_TRIA3, false, N), 0);
    EXPECT_EQ(columns(N), (std::vector<std::vector<unsigned>>{{U, U, U}, {U, U, U}, {U, U, U}}));
    // With the flag, the lowest element is the first: it ends with the last, both point to it.
    ASSERT_EQ(get_neighbors(M, EL_TRIA3, true, N), 0);
    EXPECT_EQ(columns(N), (std::vector<std::vector<unsigned>>{{2, U, U}, {U, U, 0}, {U, U, 0}}));
}

TEST(get_neighbors, argument_checks_and_shapes)
{
    dense2D<unsigned> N(2, 2, 5u);
    dense2D<unsigned> empty(3, 0);
    EXPECT_EQ(get_neighbors(empty, EL_TRIA3, false, N), 0);
    EXPECT_TRUE(N.empty());
    dense2D<unsigned> tria = matrix(3, {{0, 1, 2}});
    N.resize(2, 2, 5u);
    EXPECT_EQ(get_neighbors(tria, EL_QUAD4, false, N), -1);
    EXPECT_TRUE(N.empty());
    dense2D<unsigned> tria6(6, 1, 0u);
    EXPECT_EQ(get_neighbors(tria6, EL_TRIA6, false, N), -2);
    dense2D<unsigned> edges = matrix(2, {{0, 1}});
    EXPECT_EQ(get_neighbors(edges, EL_EDGE_MIX, false, N), -2);
    EXPECT_EQ(get_neighbors(tria, EL_NODE, false, N), -1);
    dense2D<unsigned> solid7(7, 1, 0u);
    EXPECT_EQ(get_neighbors(solid7, EL_SOLID_MIX, false, N), -1);

    // One pyramid in a mixed solid matrix: 6 rows, row 5 unused.
    dense2D<unsigned> pyr = matrix(8, {{0, 1, 2, 3, 4, U, U, U}});
    ASSERT_EQ(get_neighbors(pyr, EL_SOLID_MIX, true, N), 0);
    EXPECT_EQ(N.rows(), 6u);
    EXPECT_EQ(columns(N), (std::vector<std::vector<unsigned>>{{U, U, U, U, U, U}}));
    // Row counts of every type.
    const unsigned expected_rows[] = {2, 3, 4, 4, 4, 5, 5, 6, 6};
    for (std::size_t t = 0; t < 9; ++t)
    {
        dense2D<unsigned> M(nbr_nodes(linear_types[t]), 1, 0u);
        for (unsigned i = 0; i < M.rows(); ++i)
            M(i, 0) = i;
        ASSERT_EQ(get_neighbors(M, linear_types[t], false, N), 0);
        EXPECT_EQ(N.rows(), expected_rows[t]) << linear_types[t];
    }
}

TEST(get_element_boundaries, records_follow_the_local_tables)
{
    dense2D<unsigned> B;
    dense2D<unsigned> tria = matrix(3, {{5, 6, 7}});
    ASSERT_EQ(get_element_boundaries(tria, EL_TRIA3, B), 0);
    EXPECT_EQ(columns(B), (std::vector<std::vector<unsigned>>{{6, 7}, {7, 5}, {5, 6}}));
    EXPECT_EQ(B.capacity_cols(), 4u);
    // Appended after the existing columns.
    ASSERT_EQ(get_element_boundaries(tria, EL_FACE_MIX, B), 0);
    EXPECT_EQ(B.cols(), 6u);
    EXPECT_EQ(B.capacity_cols(), 8u);

    dense2D<unsigned> F;
    dense2D<unsigned> tet = matrix(4, {{10, 11, 12, 13}});
    ASSERT_EQ(get_element_boundaries(tet, EL_TETRA4, F), 0);
    EXPECT_EQ(columns(F), (std::vector<std::vector<unsigned>>{
                              {11, 12, 13}, {12, 10, 13}, {11, 13, 10}, {12, 11, 10}}));
    EXPECT_EQ(get_element_boundaries(tet, EL_TETRA4, B), -2); // 2-row output

    dense2D<unsigned> P;
    dense2D<unsigned> pyr = matrix(8, {{0, 1, 2, 3, 4, U, U, U}});
    ASSERT_EQ(get_element_boundaries(pyr, EL_SOLID_MIX, P), 0);
    EXPECT_EQ(columns(P),
              (std::vector<std::vector<unsigned>>{
                  {0, 4, 1, U}, {1, 4, 2, U}, {2, 4, 3, U}, {3, 4, 0, U}, {0, 1, 2, 3}}));

    dense2D<unsigned> E;
    dense2D<unsigned> edge = matrix(2, {{3, 9}});
    ASSERT_EQ(get_element_boundaries(edge, EL_EDGE2, E), 0);
    EXPECT_EQ(columns(E), (std::vector<std::vector<unsigned>>{{9}, {3}}));

    dense2D<unsigned> untouched(3, 1, 1u);
    EXPECT_EQ(get_element_boundaries(dense2D<unsigned>(3, 0), EL_TRIA3, untouched), 0);
    EXPECT_EQ(get_element_boundaries(tria, EL_TETRA4, untouched), -1);
    EXPECT_EQ(get_element_boundaries(dense2D<unsigned>(6, 1, 0u), EL_TRIA6, untouched), -2);
    EXPECT_EQ(untouched.cols(), 1u);
}

TEST(canonical_keys, equal_exactly_for_the_same_cycle)
{
    // Every pair of 4-lists over a small alphabet, repeats included, against brute force.
    std::vector<std::vector<unsigned>> lists;
    for (unsigned a = 0; a < 4; ++a)
        for (unsigned b = 0; b < 4; ++b)
            for (unsigned c = 0; c < 4; ++c)
                for (unsigned d = 0; d < 4; ++d)
                    lists.push_back({a, b, c, d});
    for (const auto& x : lists)
        for (const auto& y : lists)
            ASSERT_EQ(cd::make_key(x.data(), 4) == cd::make_key(y.data(), 4), gm::same_cycle(x, y));
    const unsigned tri[3] = {7, 3, 5}, quad[4] = {7, 3, 5, U};
    EXPECT_FALSE(cd::make_key(tri, 3) == cd::make_key(quad, 4));
}

// Random meshes of every accepted type, with shared and non-manifold boundaries and degenerate
// columns, against the brute-force matching, both flags; the result must not change when the
// node numbers are renumbered.
TEST(get_neighbors, matches_brute_force_on_random_meshes)
{
    std::mt19937 gen(2024);
    for (element_type type : linear_types)
        for (int trial = 0; trial < 12; ++trial)
        {
            const std::size_t n = 1 + gen() % 60;
            const unsigned pool = 8 + gen() % (type == EL_EDGE2 || type == EL_TRIA3 ? 4 : 12);
            dense2D<unsigned> M = gm::random_mesh(type, n, pool, gen);
            for (bool flag : {false, true})
            {
                dense2D<unsigned> N;
                ASSERT_EQ(get_neighbors(M, type, flag, N), 0);
                dense2D<unsigned> ref = gm::brute_neighbors(M, type, cd::neighbor_rows(type), flag);
                ASSERT_EQ(columns(N), columns(ref)) << type << " trial " << trial;

                // Renumbered nodes (a shuffled, sparse numbering) give the same matrix.
                std::vector<unsigned> renum(pool);
                for (unsigned i = 0; i < pool; ++i)
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

// Structured grids are manifold: every interior boundary is linked both ways, and the flag
// changes nothing.
TEST(get_neighbors, structured_grids_are_symmetric)
{
    const dense2D<unsigned> meshes[] = {gm::tetra_cube(3, 4, 2), gm::hexa_grid(4, 3, 2),
                                        gm::torus_triangles(5, 4)};
    const element_type types[] = {EL_TETRA4, EL_HEXA8, EL_TRIA3};
    const std::size_t free_count[] = {2 * 2 * (12 + 6 + 8), 2 * (12 + 8 + 6), 0};
    for (int m = 0; m < 3; ++m)
    {
        dense2D<unsigned> N, NF;
        ASSERT_EQ(get_neighbors(meshes[m], types[m], false, N), 0);
        ASSERT_EQ(get_neighbors(meshes[m], types[m], true, NF), 0);
        EXPECT_EQ(columns(N), columns(NF));
        std::size_t free = 0;
        for (std::size_t e = 0; e < N.cols(); ++e)
            for (unsigned k = 0; k < N.rows(); ++k)
            {
                const unsigned f = N(k, e);
                if (f == U)
                {
                    ++free;
                    continue;
                }
                unsigned back = 0;
                for (unsigned l = 0; l < N.rows(); ++l)
                    back += N(l, f) == e;
                EXPECT_EQ(back, 1u);
            }
        EXPECT_EQ(free, free_count[m]) << m;
    }
}
