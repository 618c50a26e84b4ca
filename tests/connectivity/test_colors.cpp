// Boundaries between elements of different colours.
#include "connectivity/common.h"
#include "connectivity/grid_meshes.h"

namespace
{
dense1D<unsigned> colour_list(std::vector<unsigned> c)
{
    return dense1D<unsigned>(c.size(), c.data());
}
} // namespace

TEST(get_colors_boundaries, two_triangles)
{
    const dense2D<unsigned> M = two_triangles();
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
}
