// Free boundaries of a mesh, as records or codes, and the elements owning given boundaries.
#include "connectivity/grid_meshes.h"
#include "connectivity/matrix_util.h"
#include "connectivity/random_meshes.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <meshutil/connectivity.h>
#include <random>
#include <vector>

using namespace qx7;
using namespace qx7::meshutil;
using qx7::meshutil::test_meshes::columns;
using qx7::meshutil::test_meshes::matrix;
using qx7::meshutil::test_meshes::values;
namespace gm = qx7::meshutil::test_meshes;
using list = std::vector<unsigned>;
using records = std::vector<std::vector<unsigned>>;

namespace
{
constexpr unsigned U = undefined_index;

const element_type linear_types[] = {EL_EDGE2,  EL_TRIA3,  EL_QUAD4, EL_FACE_MIX, EL_TETRA4,
                                     EL_PYRAM5, EL_PENTA6, EL_HEXA8, EL_SOLID_MIX};

/// The neighbour matrix cut to nbr_boundaries(type) rows (one row for edges).
dense2D<unsigned> cut_rows(const dense2D<unsigned>& N, element_type type)
{
    dense2D<unsigned> C(nbr_boundaries(type), N.cols());
    for (std::size_t j = 0; j < N.cols(); ++j)
        for (std::size_t i = 0; i < C.rows(); ++i)
            C(i, j) = N(i, j);
    return C;
}

/// Record of boundary k of column j, with R places.
std::vector<unsigned> record_of(const dense2D<unsigned>& M, element_type type, std::size_t j,
                                unsigned k, unsigned R)
{
    std::vector<unsigned> r = gm::boundary_cycle(M, type, j, k);
    r.resize(R, U);
    return r;
}

/// Owner of a record by brute force: the first (e, k) listing the same cycle in the same sense
/// (a rotation of the record), else the first listing it at all.
unsigned brute_owner(const dense2D<unsigned>& M, element_type type, const list& rec,
                     unsigned nbr_bound)
{
    list r = rec;
    while (!r.empty() && r.back() == U && r.size() > 3)
        r.pop_back();
    if (std::find(r.begin(), r.end(), U) != r.end()) return U;
    unsigned any = U;
    for (std::size_t e = 0; e < M.cols(); ++e)
        for (unsigned k = 0; k < gm::boundary_count(M, type, e); ++k)
        {
            const list c = gm::boundary_cycle(M, type, e, k);
            if (!gm::same_cycle(c, r)) continue;
            const unsigned code = unsigned(e * nbr_bound + k);
            for (std::size_t s = 0; s < c.size(); ++s)
            {
                bool eq = true;
                for (std::size_t i = 0; i < c.size() && eq; ++i)
                    eq = c[i] == r[(s + i) % c.size()];
                if (eq && (c.size() > 2 || s == 0)) return code;
            }
            if (any == U) any = code;
        }
    return any;
}
} // namespace

//   2 ------ 3
//   | \  1   |      triangles 0 = (0, 1, 2) and 1 = (2, 1, 3)
//   |  0  \  |
//   0 ------ 1
TEST(get_mesh_boundaries, two_triangles)
{
    const dense2D<unsigned> M = matrix(3, {{0, 1, 2}, {2, 1, 3}});
    dense2D<unsigned> N, B;
    ASSERT_EQ(get_neighbors(M, EL_TRIA3, false, N), 0);
    ASSERT_EQ(get_mesh_boundaries(M, N, EL_TRIA3, B), 0);
    EXPECT_EQ(columns(B), (records{{2, 0}, {0, 1}, {1, 3}, {3, 2}}));
    ASSERT_EQ(get_mesh_boundaries(M, N, EL_TRIA3, B), 0); // appended: twice the content
    EXPECT_EQ(B.cols(), 8u);

    dense1D<unsigned> codes;
    unsigned nbr_bound = 9;
    ASSERT_EQ(get_mesh_bounding_elements(M, N, EL_TRIA3, codes, nbr_bound), 0);
    EXPECT_EQ(values(codes), (list{1, 2, 3, 4}));
    EXPECT_EQ(nbr_bound, 3u);
    ASSERT_EQ(get_mesh_bounding_elements(M, N, EL_FACE_MIX, codes, nbr_bound), 0);
    EXPECT_EQ(values(codes), (list{1, 2, 3, 4, 1, 2, 3, 4}));
}

TEST(get_mesh_boundaries, argument_checks_in_order)
{
    const dense2D<unsigned> M = matrix(3, {{0, 1, 2}, {2, 1, 3}});
    const dense2D<unsigned> N = matrix(3, {{1, U, U}, {U, U, 0}});
    const dense2D<unsigned> B2(2, 1, 0u), B3(3, 1, 0u), none;
    const dense2D<unsigned> M6(6, 2, 0u), N_bad = matrix(3, {{2, U, U}, {U, U, 0}});
    const dense2D<unsigned> no_cols(4, 0), N_short = matrix(3, {{1, U, U}}),
                                           N_one_row = cut_rows(N, EL_EDGE2);
    struct item
    {
        const dense2D<unsigned>& connectM;
        const dense2D<unsigned>& neighbors;
        element_type type;
        const dense2D<unsigned>& boundaries;
        int expected;
    } items[] = {
        {no_cols, N, EL_TRIA3, B3, 0}, // no columns: nothing checked
        {M, N, EL_QUAD4, B3, -1},         {M, N_short, EL_TRIA3, B3, -2}, // column count
        {M, N_one_row, EL_TRIA3, B3, -2},                                 // row count
        {M, N_bad, EL_TRIA3, B3, -2}, // entry equal to the element count
        {M, N, EL_TRIA3, B3, -4},     // output rows
        {M6, N, EL_TRIA6, B2, -4},    // output shape before the type
        {M6, N, EL_TRIA6, none, -3},  // unsupported type
        {M, N, EL_TRIA3, B2, 0},
    };
    for (std::size_t k = 0; k < sizeof(items) / sizeof(items[0]); ++k)
    {
        dense2D<unsigned> out;
        out.copy(items[k].boundaries);
        EXPECT_EQ(get_mesh_boundaries(items[k].connectM, items[k].neighbors, items[k].type, out),
                  items[k].expected)
            << k;
    }

    dense1D<unsigned> codes;
    unsigned nbr_bound = 7;
    EXPECT_EQ(get_mesh_bounding_elements(dense2D<unsigned>(3, 0), N, EL_TRIA3, codes, nbr_bound),
              0);
    EXPECT_EQ(nbr_bound, 0u);
    EXPECT_EQ(get_mesh_bounding_elements(M, N, EL_QUAD4, codes, nbr_bound), -1);
    EXPECT_EQ(get_mesh_bounding_elements(M6, N, EL_TRIA6, codes, nbr_bound), -2);
    EXPECT_EQ(nbr_bound, 3u);
    EXPECT_EQ(get_mesh_bounding_elements(M, cut_rows(N, EL_EDGE2), EL_TRIA3, codes, nbr_bound), -2);
    EXPECT_EQ(get_mesh_bounding_elements(M, matrix(3, {{1, U, U}}), EL_TRIA3, codes, nbr_bound),
              -2);
    EXPECT_TRUE(codes.empty());
}

TEST(get_mesh_boundaries, edges_use_one_neighbour_row)
{
    // A polyline 5 - 6 - 7: the neighbour matrix of get_neighbors has two rows and is refused;
    // cut to one row it gives the end point opposite node 0 of each free end.
    const dense2D<unsigned> M = matrix(2, {{5, 6}, {6, 7}});
    dense2D<unsigned> N, B;
    ASSERT_EQ(get_neighbors(M, EL_EDGE2, false, N), 0);
    EXPECT_EQ(columns(N), (records{{1, U}, {U, 0}}));
    EXPECT_EQ(get_mesh_boundaries(M, N, EL_EDGE2, B), -2);
    ASSERT_EQ(get_mesh_boundaries(M, cut_rows(N, EL_EDGE2), EL_EDGE2, B), 0);
    EXPECT_EQ(columns(B), (records{{7}}));
    dense1D<unsigned> codes;
    unsigned nbr_bound;
    ASSERT_EQ(get_mesh_bounding_elements(M, cut_rows(N, EL_EDGE2), EL_EDGE2, codes, nbr_bound), 0);
    EXPECT_EQ(nbr_bound, 1u);
    EXPECT_EQ(values(codes), (list{1}));
}

// Records and codes describe the same boundaries, on random meshes of every type.
TEST(get_mesh_boundaries, records_and_codes_agree_on_random_meshes)
{
    std::mt19937 gen(5);
    for (element_type type : linear_types)
    {
        if (type == EL_EDGE2) continue; // one row only, covered above
        for (int trial = 0; trial < 6; ++trial)
        {
            const dense2D<unsigned> M = gm::random_mesh(type, 1 + gen() % 40, 10, gen);
            dense2D<unsigned> N, B;
            ASSERT_EQ(get_neighbors(M, type, trial % 2 == 0, N), 0);
            ASSERT_EQ(get_mesh_boundaries(M, N, type, B), 0);
            dense1D<unsigned> codes;
            unsigned nbr_bound;
            ASSERT_EQ(get_mesh_bounding_elements(M, N, type, codes, nbr_bound), 0);
            ASSERT_EQ(B.cols(), codes.size());
            const unsigned R = boundary_record_size(normalize_type(type, M.rows()));
            for (std::size_t c = 0; c < codes.size(); ++c)
            {
                const std::size_t e = codes[c] / nbr_bound;
                const unsigned k = codes[c] % nbr_bound;
                EXPECT_EQ(N(k, e), U);
                EXPECT_EQ(columns(B)[c], record_of(M, type, e, k, R));
            }
        }
    }
}

TEST(get_mesh_boundaries, closed_torus_has_none)
{
    const dense2D<unsigned> M = gm::torus_triangles(7, 5);
    dense2D<unsigned> N, B;
    ASSERT_EQ(get_neighbors(M, EL_TRIA3, false, N), 0);
    ASSERT_EQ(get_mesh_boundaries(M, N, EL_TRIA3, B), 0);
    EXPECT_TRUE(B.empty());
}

// The free faces of structured solid grids form a closed surface, consistently oriented: every
// edge is shared by exactly two faces, which run along it in opposite senses.
TEST(get_mesh_boundaries, solid_grids_bound_a_closed_oriented_surface)
{
    const dense2D<unsigned> meshes[] = {gm::tetra_cube(3, 2, 4), gm::hexa_grid(3, 2, 4)};
    const element_type types[] = {EL_TETRA4, EL_HEXA8};
    const element_type surface[] = {EL_TRIA3, EL_QUAD4};
    const std::size_t faces[] = {2 * 2 * (6 + 8 + 12), 2 * (6 + 8 + 12)};
    for (int m = 0; m < 2; ++m)
    {
        dense2D<unsigned> N, B, SN;
        ASSERT_EQ(get_neighbors(meshes[m], types[m], false, N), 0);
        ASSERT_EQ(get_mesh_boundaries(meshes[m], N, types[m], B), 0);
        ASSERT_EQ(B.cols(), faces[m]);
        ASSERT_EQ(get_neighbors(B, surface[m], false, SN), 0);
        std::map<std::pair<unsigned, unsigned>, int> directed;
        for (std::size_t f = 0; f < B.cols(); ++f)
            for (unsigned k = 0; k < SN.rows(); ++k)
            {
                EXPECT_NE(SN(k, f), U) << "free or non-manifold edge";
                const list c = gm::boundary_cycle(B, surface[m], f, k);
                ++directed[{c[0], c[1]}];
            }
        for (const auto& d : directed)
        {
            EXPECT_EQ(d.second, 1);
            EXPECT_EQ(directed.count({d.first.second, d.first.first}), 1u);
        }
    }
}

//   2 ------ 3
//   | \  1   |      triangles 0 = (0, 1, 2) and 1 = (2, 1, 3)
//   |  0  \  |
//   0 ------ 1
TEST(get_elements_on_boundaries, prefers_the_element_listing_the_record_in_its_sense)
{
    const dense2D<unsigned> M = matrix(3, {{0, 1, 2}, {2, 1, 3}});
    const dense2D<unsigned> B = matrix(2, {{2, 1}, {1, 2}, {1, 3}, {3, 1}, {5, 6}, {U, 1}});
    dense1D<unsigned> codes(2, 4u);
    unsigned nbr_bound;
    ASSERT_EQ(get_elements_on_boundaries(M, EL_TRIA3, B, codes, nbr_bound), 0);
    EXPECT_EQ(nbr_bound, 3u);
    EXPECT_EQ(values(codes), (list{5, 0, 3, 3, U, U}));

    // A third triangle on edge 1-2 in the sense of triangle 0: the lower of the two wins.
    const dense2D<unsigned> M3 = matrix(3, {{0, 1, 2}, {2, 1, 3}, {4, 1, 2}});
    ASSERT_EQ(get_elements_on_boundaries(M3, EL_TRIA3, matrix(2, {{1, 2}, {2, 1}, {4, 1}}), codes,
                                         nbr_bound),
              0);
    EXPECT_EQ(values(codes), (list{0, 5, 8}));

    // End points of edges get both codes k = 0 and 1.
    const dense2D<unsigned> E = matrix(2, {{5, 6}, {6, 7}});
    ASSERT_EQ(
        get_elements_on_boundaries(E, EL_EDGE2, matrix(1, {{7}, {5}, {6}, {9}}), codes, nbr_bound),
        0);
    EXPECT_EQ(nbr_bound, 2u);
    EXPECT_EQ(values(codes), (list{2, 1, 0, U}));

    // A mixed solid: a triangular record never matches a quadrangular face.
    const dense2D<unsigned> S = matrix(8, {{0, 1, 2, 3, 4, U, U, U}});
    ASSERT_EQ(get_elements_on_boundaries(S, EL_SOLID_MIX,
                                         matrix(4, {{3, 2, 1, 0}, {1, 0, 4, U}, {0, 1, 2, U}}),
                                         codes, nbr_bound),
              0);
    EXPECT_EQ(nbr_bound, 6u);
    EXPECT_EQ(values(codes), (list{4, 0, U}));
}

TEST(get_elements_on_boundaries, argument_checks_in_order)
{
    const dense2D<unsigned> M = matrix(3, {{0, 1, 2}});
    dense1D<unsigned> codes;
    unsigned nbr_bound = 5;
    ASSERT_EQ(get_elements_on_boundaries(dense2D<unsigned>(3, 0), EL_TRIA3, matrix(2, {{0, 1}}),
                                         codes, nbr_bound),
              0);
    EXPECT_EQ(values(codes), (list{U}));
    EXPECT_EQ(nbr_bound, 0u);
    EXPECT_EQ(get_elements_on_boundaries(M, EL_QUAD4, matrix(2, {{0, 1}}), codes, nbr_bound), -1);
    EXPECT_TRUE(codes.empty());
    EXPECT_EQ(get_elements_on_boundaries(dense2D<unsigned>(6, 1, 0u), EL_TRIA6, dense2D<unsigned>(),
                                         codes, nbr_bound),
              -2);
    EXPECT_EQ(get_elements_on_boundaries(M, EL_TRIA3, matrix(3, {{0, 1, 2}}), codes, nbr_bound),
              -3);
    EXPECT_EQ(get_elements_on_boundaries(M, EL_TRIA3, dense2D<unsigned>(), codes, nbr_bound), 0);
    EXPECT_TRUE(codes.empty());
    EXPECT_EQ(nbr_bound, 3u);
}

// Records cut from random meshes of every type, rotated, reversed, or made up, against brute
// force; and on a solid grid the free faces come back to the codes of their own elements.
TEST(get_elements_on_boundaries, matches_brute_force_on_random_meshes)
{
    std::mt19937 gen(31);
    for (element_type type : linear_types)
        for (int trial = 0; trial < 6; ++trial)
        {
            const dense2D<unsigned> M = gm::random_mesh(type, 1 + gen() % 40, 10, gen);
            const element_type t = normalize_type(type, M.rows());
            const unsigned R = boundary_record_size(t);
            const unsigned nbr_bound = t == EL_EDGE2 ? 2 : nbr_boundaries(t);
            records recs;
            for (int r = 0; r < 30; ++r)
            {
                const std::size_t e = gen() % M.cols();
                list c = gm::boundary_cycle(M, type, e, gen() % gm::boundary_count(M, type, e));
                if (gen() % 2) std::reverse(c.begin(), c.end());
                std::rotate(c.begin(), c.begin() + gen() % c.size(), c.end());
                if (gen() % 5 == 0) c[gen() % c.size()] = gen() % 12;
                c.resize(R, U);
                recs.push_back(c);
            }
            dense1D<unsigned> codes;
            unsigned got_bound;
            ASSERT_EQ(get_elements_on_boundaries(M, type, matrix(R, recs), codes, got_bound), 0);
            ASSERT_EQ(got_bound, nbr_bound);
            for (std::size_t r = 0; r < recs.size(); ++r)
                ASSERT_EQ(codes[r], brute_owner(M, type, recs[r], nbr_bound)) << type << " " << r;
        }

    const dense2D<unsigned> H = gm::hexa_grid(3, 3, 2);
    dense2D<unsigned> N, B;
    ASSERT_EQ(get_neighbors(H, EL_HEXA8, false, N), 0);
    ASSERT_EQ(get_mesh_boundaries(H, N, EL_HEXA8, B), 0);
    dense1D<unsigned> expected, codes;
    unsigned nb1, nb2;
    ASSERT_EQ(get_mesh_bounding_elements(H, N, EL_HEXA8, expected, nb1), 0);
    ASSERT_EQ(get_elements_on_boundaries(H, EL_HEXA8, B, codes, nb2), 0);
    EXPECT_EQ(nb1, nb2);
    EXPECT_EQ(values(codes), values(expected));
}
