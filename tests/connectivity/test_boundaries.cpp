// Free boundaries of a mesh, as records or codes, and the elements owning given boundaries.
#include "connectivity/common.h"
#include "connectivity/grid_meshes.h"
#include "connectivity/random_meshes.h"

#include <algorithm>
#include <map>
#include <random>

namespace
{
/// The neighbour matrix cut to nbr_boundaries(type) rows (one row for edges).
dense2D<unsigned> cut_rows(const dense2D<unsigned>& N, element_type type)
{
    dense2D<unsigned> C(nbr_boundaries(type), N.cols());
    for (std::size_t j = 0; j < N.cols(); ++j)
        for (std::size_t i = 0; i < C.rows(); ++i)
            C(i, j) = N(i, j);
    return C;
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

// get_mesh_boundaries, get_colors_boundaries and get_mesh_bounding_elements check the same
// arguments in the same order; the colours come third, so the later codes of the second are one
// higher; the third has no output shape to check and does not range-check the neighbours.
TEST(get_mesh_boundaries, argument_checks_in_order)
{
    const dense2D<unsigned> M = two_triangles();
    const dense2D<unsigned> N = matrix(3, {{1, U, U}, {U, U, 0}});
    const dense2D<unsigned> B2(2, 1, 0u), B3(3, 1, 0u), none;
    const dense2D<unsigned> M6(6, 2, 0u), N_bad = matrix(3, {{2, U, U}, {U, U, 0}});
    const dense2D<unsigned> no_cols(4, 0), N_short = matrix(3, {{1, U, U}}),
                                           N_one_row = cut_rows(N, EL_EDGE2),
                                           N_wide = matrix(3, {{1, U, U}, {U, U, 0}, {U, U, U}});
    const dense1D<unsigned> colors(2, 1u), too_few_colors(1, 1u);
    struct item
    {
        const dense2D<unsigned>& connectM;
        const dense2D<unsigned>& neighbors;
        element_type type;
        const dense2D<unsigned>& boundaries;
        int mesh, colored, codes;
    } items[] = {
        {no_cols, N, EL_TRIA3, B3, 0, 0, 0}, // no columns: nothing checked
        {M, N, EL_QUAD4, B3, -1, -1, -1},
        {M, N_short, EL_TRIA3, B3, -2, -2, -2},   // column count
        {M, N_one_row, EL_TRIA3, B3, -2, -2, -2}, // row count
        {M, N_bad, EL_TRIA3, B3, -2, -2, 0},      // entry equal to the element count
        {M, N, EL_TRIA3, B3, -4, -5, 0},          // output rows
        {M6, N, EL_TRIA6, B2, -4, -5, -2},        // output shape before the type
        {M6, N, EL_TRIA6, none, -3, -4, -2},      // unsupported type
        {M, N, EL_TRIA3, B2, 0, 0, 0},
        {M, N_wide, EL_TRIA3, B2, -2, 0, -2}, // extra columns: colours only read the first ones
    };
    for (std::size_t k = 0; k < sizeof(items) / sizeof(items[0]); ++k)
    {
        const item& it = items[k];
        dense2D<unsigned> out;
        out.copy(it.boundaries);
        EXPECT_EQ(get_mesh_boundaries(it.connectM, it.neighbors, it.type, out), it.mesh) << k;
        out.copy(it.boundaries);
        EXPECT_EQ(get_colors_boundaries(it.connectM, it.neighbors, colors, it.type, false, out),
                  it.colored)
            << k;
        // Too few colours: refused after the mesh and neighbour checks, before the others.
        const int bad =
            it.colored == -1 || it.colored == -2 || !it.connectM.cols() ? it.colored : -3;
        EXPECT_EQ(
            get_colors_boundaries(it.connectM, it.neighbors, too_few_colors, it.type, false, out),
            bad)
            << k;
        dense1D<unsigned> codes;
        unsigned nbr_bound = 7;
        EXPECT_EQ(get_mesh_bounding_elements(it.connectM, it.neighbors, it.type, codes, nbr_bound),
                  it.codes)
            << k;
        // nbr_bound is set as soon as the rows are known to fit the type.
        EXPECT_EQ(nbr_bound, it.codes == -1 || !it.connectM.cols() ? 0u : 3u) << k;
    }
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

// On random meshes of every type, the codes are exactly the free slots in increasing order, and
// the records are those slots' boundaries; a second call appends them again. A mixed type given
// for a matrix of one shape is read as that shape.
TEST(get_mesh_boundaries, records_and_codes_list_the_free_slots)
{
    std::mt19937 gen(5);
    for (element_type type : linear_types)
    {
        if (type == EL_EDGE2) continue; // one row only, covered above
        for (int trial = 0; trial < 6; ++trial)
        {
            const dense2D<unsigned> M = gm::random_mesh(type, 1 + gen() % 40, 10, gen);
            const element_type given = trial % 2 ? gm::mixed_alias(type) : type;
            dense2D<unsigned> N, B;
            ASSERT_EQ(get_neighbors(M, given, trial % 2 == 0, N), 0);
            dense1D<unsigned> codes;
            unsigned nbr_bound;
            for (int pass = 0; pass < 2; ++pass)
            {
                ASSERT_EQ(get_mesh_boundaries(M, N, given, B), 0);
                ASSERT_EQ(get_mesh_bounding_elements(M, N, given, codes, nbr_bound), 0);
            }
            const unsigned R = boundary_record_size(normalize_type(type, M.rows()));
            records expected_records;
            list expected_codes;
            for (int pass = 0; pass < 2; ++pass)
                for (std::size_t e = 0; e < M.cols(); ++e)
                    for (unsigned k = 0; k < gm::boundary_count(M, type, e); ++k)
                        if (N(k, e) == U)
                        {
                            expected_codes.push_back(unsigned(e * nbr_bound + k));
                            expected_records.push_back(gm::boundary_cycle(M, type, e, k));
                            expected_records.back().resize(R, U);
                        }
            EXPECT_EQ(values(codes), expected_codes);
            EXPECT_EQ(columns(B), expected_records);
        }
    }
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

// A record matching several elements goes to one listing it in its own sense, the lowest such.
TEST(get_elements_on_boundaries, prefers_the_element_listing_the_record_in_its_sense)
{
    const dense2D<unsigned> B = matrix(2, {{2, 1}, {1, 2}, {1, 3}, {3, 1}, {5, 6}, {U, 1}});
    dense1D<unsigned> codes(2, 4u);
    unsigned nbr_bound;
    ASSERT_EQ(get_elements_on_boundaries(two_triangles(), EL_TRIA3, B, codes, nbr_bound), 0);
    EXPECT_EQ(nbr_bound, 3u);
    EXPECT_EQ(values(codes), (list{5, 0, 3, 3, U, U}));

    // A third triangle on edge 1-2 in the sense of triangle 0: the lower of the two wins.
    const dense2D<unsigned> M3 = matrix(3, {{0, 1, 2}, {2, 1, 3}, {4, 1, 2}});
    ASSERT_EQ(get_elements_on_boundaries(M3, EL_TRIA3, matrix(2, {{1, 2}, {2, 1}, {4, 1}}), codes,
                                         nbr_bound),
              0);
    EXPECT_EQ(values(codes), (list{0, 5, 8}));
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
// force. Edges have two codes per element (the end opposite node 0, then node 1); a triangular
// face never matches a quadrangular one.
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
}
