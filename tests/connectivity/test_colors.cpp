// Boundaries between elements of different colours.
#include "connectivity/common.h"
#include "connectivity/grid_meshes.h"

// On a coloured hexahedral grid: one colour gives the free boundary; distinct colours with both
// sides give every face of every element; with one side, every face once, an interface from its
// lower element.
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
    const records all = columns(all_faces);
    records once;
    for (std::size_t e = 0; e < n; ++e)
        for (unsigned k = 0; k < 6; ++k)
            if (N(k, e) == U || N(k, e) > e) once.push_back(all[6 * e + k]);
    EXPECT_EQ(columns(B), once);
}
