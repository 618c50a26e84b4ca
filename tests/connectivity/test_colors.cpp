// Boundaries between elements of different colours.
#include "connectivity/grid_meshes.h"
#include "connectivity/matrix_util.h"

#include <gtest/gtest.h>
#include <meshutil/connectivity.h>
#include <random>
#include <vector>

using namespace qx7;
using namespace qx7::meshutil;
using qx7::meshutil::test_meshes::columns;
using qx7::meshutil::test_meshes::matrix;
namespace gm = qx7::meshutil::test_meshes;
using records = std::vector<std::vector<unsigned>>;

namespace
{
constexpr unsigned U = undefined_index;

dense1D<unsigned> colour_list(std::vector<unsigned> c)
{
    return dense1D<unsigned>(c.size(), c.data());
}
} // namespace

//   2 ------ 3
//   | \  1   |      triangles 0 = (0, 1, 2) and 1 = (2, 1, 3)
//   |  0  \  |
//   0 ------ 1
TEST(get_colors_boundaries, two_triangles)
{
    const dense2D<unsigned> M = matrix(3, {{0, 1, 2}, {2, 1, 3}});
    dense2D<unsigned> N;
    ASSERT_EQ(get_neighbors(M, EL_TRIA3, false, N), 0);
    struct item
    {
        std::vector<unsigned> colors;
        bool both_sides;
        records expected;
    } items[] = {
        {{1, 1}, false, {{2, 0}, {0, 1}, {1, 3}, {3, 2}}},
        {{1, 1}, true, {{2, 0}, {0, 1}, {1, 3}, {3, 2}}},
        {{1, 2}, false, {{1, 2}, {2, 0}, {0, 1}, {1, 3}, {3, 2}}},
        {{1, 2}, true, {{1, 2}, {2, 0}, {0, 1}, {1, 3}, {3, 2}, {2, 1}}},
    };
    for (const item& it : items)
    {
        dense2D<unsigned> B;
        ASSERT_EQ(get_colors_boundaries(M, N, colour_list(it.colors), EL_TRIA3, it.both_sides, B),
                  0);
        EXPECT_EQ(columns(B), it.expected);
    }
}

TEST(get_colors_boundaries, argument_checks_in_order)
{
    const dense2D<unsigned> M = matrix(3, {{0, 1, 2}, {2, 1, 3}});
    const dense2D<unsigned> N = matrix(3, {{1, U, U}, {U, U, 0}});
    const dense2D<unsigned> wide = matrix(3, {{1, U, U}, {U, U, 0}, {U, U, U}});
    const dense2D<unsigned> M6(6, 2, 0u), none, B2(2, 1, 0u), B3(3, 1, 0u);
    const dense1D<unsigned> c2 = colour_list({1, 2}), c1 = colour_list({1});
    const dense2D<unsigned> no_cols(3, 0), N_short = matrix(3, {{1, U, U}}),
                                           N_rows = matrix(4, {{1, U, U, U}, {U, U, 0, U}}),
                                           N_bad = matrix(3, {{1, U, U}, {U, U, 2}});
    struct item
    {
        const dense2D<unsigned>& connectM;
        const dense2D<unsigned>& neighbors;
        const dense1D<unsigned>& colors;
        element_type type;
        const dense2D<unsigned>& boundaries;
        int expected;
    } items[] = {
        {no_cols, N, c1, EL_TRIA3, B3, 0},
        {M, N, c1, EL_QUAD4, B3, -1},
        {M, N_rows, c1, EL_TRIA3, B3, -2},
        {M, N_short, c1, EL_TRIA3, B3, -2}, // fewer columns than elements
        {M, N_bad, c1, EL_TRIA3, B3, -2},
        {M, N, c1, EL_TRIA3, B3, -3},
        {M, N, c2, EL_TRIA3, B3, -5},
        {M6, N, c2, EL_TRIA6, B2, -5}, // output shape before the type
        {M6, N, c2, EL_TRIA6, none, -4},
        {M, wide, c2, EL_TRIA3, B2, 0}, // extra columns are allowed
    };
    for (std::size_t k = 0; k < sizeof(items) / sizeof(items[0]); ++k)
    {
        dense2D<unsigned> out;
        out.copy(items[k].boundaries);
        EXPECT_EQ(get_colors_boundaries(items[k].connectM, items[k].neighbors, items[k].colors,
                                        items[k].type, false, out),
                  items[k].expected)
            << k;
    }
}

// On a coloured hexahedral grid: one colour gives the free boundary; distinct colours with both
// sides give every face of every element; with one side, every face once.
TEST(get_colors_boundaries, limits_on_a_grid)
{
    const dense2D<unsigned> H = gm::hexa_grid(3, 2, 2);
    const std::size_t n = H.cols();
    dense2D<unsigned> N, free_faces, all_faces;
    ASSERT_EQ(get_neighbors(H, EL_HEXA8, false, N), 0);
    ASSERT_EQ(get_mesh_boundaries(H, N, EL_HEXA8, free_faces), 0);
    ASSERT_EQ(get_element_boundaries(H, EL_HEXA8, all_faces), 0);

    dense2D<unsigned> B;
    ASSERT_EQ(get_colors_boundaries(H, N, dense1D<unsigned>(n, 4u), EL_HEXA8, true, B), 0);
    EXPECT_EQ(columns(B), columns(free_faces));

    dense1D<unsigned> distinct(n);
    for (std::size_t e = 0; e < n; ++e)
        distinct[e] = unsigned(e);
    B.clear();
    ASSERT_EQ(get_colors_boundaries(H, N, distinct, EL_HEXA8, true, B), 0);
    EXPECT_EQ(columns(B), columns(all_faces));
    B.clear();
    ASSERT_EQ(get_colors_boundaries(H, N, distinct, EL_HEXA8, false, B), 0);
    const std::size_t interior = (6 * n - free_faces.cols()) / 2;
    EXPECT_EQ(B.cols(), free_faces.cols() + interior);

    // Two layers of colours: the interface between them is a 3 x 2 square, written once.
    dense1D<unsigned> layers(n);
    for (std::size_t e = 0; e < n; ++e)
        layers[e] = e < n / 2 ? 1u : 2u;
    B.clear();
    ASSERT_EQ(get_colors_boundaries(H, N, layers, EL_HEXA8, false, B), 0);
    EXPECT_EQ(B.cols(), free_faces.cols() + 6);
}
