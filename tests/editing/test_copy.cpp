// Plain, repeated and mirrored copies; clipping by a plane.
#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <meshutil/editing.h>
#include <vector>

using namespace qx7;
using namespace qx7::meshutil;

namespace
{
dense2D<unsigned> matrix(std::size_t rows, const std::vector<unsigned>& v)
{
    dense2D<unsigned> M(rows, v.size() / rows);
    std::copy(v.begin(), v.end(), M.data());
    return M;
}
std::vector<unsigned> entries(const dense2D<unsigned>& M)
{
    std::vector<unsigned> out;
    for (std::size_t j = 0; j < M.cols(); ++j)
        for (std::size_t i = 0; i < M.rows(); ++i)
            out.push_back(M(i, j));
    return out;
}
double signed_area(const dense2D<double>& p, const unsigned* t)
{
    return (p(0, t[1]) - p(0, t[0])) * (p(1, t[2]) - p(1, t[0])) -
           (p(1, t[1]) - p(1, t[0])) * (p(0, t[2]) - p(0, t[0]));
}
} // namespace

TEST(copy_mesh, plain_copy_appends_used_nodes_in_first_appearance_order)
{
    dense2D<double> pos(2, 8);
    for (unsigned j = 0; j < 8; ++j)
        pos(0, j) = pos(1, j) = j;
    dense2D<unsigned> M = matrix(2, {7, 3, 3, undefined_index}), out = matrix(1, {1, 2, 3});
    EXPECT_EQ(copy_mesh(pos, out, M), 0);
    EXPECT_EQ(pos.cols(), 10u);
    EXPECT_EQ(pos(0, 8), 7.0);
    EXPECT_EQ(pos(0, 9), 3.0);
    EXPECT_EQ(entries(out), (std::vector<unsigned>{8, 9, 9, undefined_index}));
    // In place, and an invalid index.
    EXPECT_EQ(copy_mesh(pos, M, M), 0);
    EXPECT_EQ(entries(M), (std::vector<unsigned>{10, 11, 11, undefined_index}));
    dense2D<unsigned> bad = matrix(1, {12});
    EXPECT_EQ(copy_mesh(pos, out, bad), -2);
    EXPECT_EQ(pos.cols(), 12u);
}

TEST(copy_mesh, repeated_copies_rotate_and_translate)
{
    dense2D<double> pos(2, 2, 0.0);
    pos(0, 1) = 1.0;
    dense2D<unsigned> edge = matrix(2, {0, 1}), out;
    const vector_fixed<double, 2> T(0.0, 10.0), O(0.0, 0.0);
    EXPECT_EQ(copy_mesh(pos, out, T, O, 0.0, 0, edge), 0);
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(copy_mesh(pos, out, T, O, M_PI / 2, 3, edge), 0);
    EXPECT_EQ(pos.cols(), 8u);
    EXPECT_EQ(entries(out), (std::vector<unsigned>{2, 3, 4, 5, 6, 7}));
    // Copy 3: rotated by 3 pi / 2, then shifted by 30 in y: node 1 lands on (0, 29).
    EXPECT_NEAR(pos(0, 7), 0.0, 1e-12);
    EXPECT_NEAR(pos(1, 7), 29.0, 1e-12);
    EXPECT_NEAR(pos(0, 5), -1.0, 1e-12);
    EXPECT_NEAR(pos(1, 5), 20.0, 1e-12);
    // 3-D form on a 2-D mesh grows z; copies accumulate behind the former output.
    dense2D<double> p3(2, 2, 0.0);
    p3(0, 1) = 1.0;
    EXPECT_EQ(copy_mesh(p3, out, vector_fixed<double, 3>(0.0, 0.0, 1.0),
                        vector_fixed<double, 3>(0.0, 0.0, 0.0),
                        vector_fixed<double, 3>(0.0, 0.0, M_PI), 2, edge),
              0);
    EXPECT_EQ(p3.rows(), 3u);
    EXPECT_EQ(out.cols(), 5u);
    EXPECT_NEAR(p3(0, 3), -1.0, 1e-12);
    EXPECT_NEAR(p3(2, 3), 1.0, 1e-12);
    EXPECT_NEAR(p3(0, 5), 1.0, 1e-12);
    EXPECT_NEAR(p3(2, 5), 2.0, 1e-12);
}

TEST(copy_sym_mesh, mirror_copies_reverse_orientation)
{
    dense2D<double> pos(2, 3, 0.0);
    pos(0, 0) = 1.0, pos(1, 0) = 5.0;
    pos(0, 1) = 2.0;
    pos(1, 2) = 1.0;
    dense2D<unsigned> tri = matrix(3, {0, 1, 2}), out;
    EXPECT_EQ(copy_sym_mesh(pos, out, vector_fixed<double, 2>(0.0, 0.0),
                            vector_fixed<double, 2>(0.0, 0.0), tri),
              -4);
    EXPECT_EQ(pos.cols(), 3u);
    EXPECT_EQ(copy_sym_mesh(pos, out, vector_fixed<double, 2>(0.0, 0.0),
                            vector_fixed<double, 2>(2.0, 0.0), tri),
              0);
    EXPECT_EQ(pos(0, 3), -1.0);
    EXPECT_EQ(pos(1, 3), 5.0);
    // (1, 5), (2, 0), (0, 1) turns clockwise; its mirror image counter-clockwise.
    EXPECT_LT(signed_area(pos, tri.col(0)), 0.0);
    EXPECT_EQ(signed_area(pos, out.col(0)), -signed_area(pos, tri.col(0)));
    // 3-D mirror about the plane z = 1 of a 2-row mesh: z grows to 0, then mirrored to 2.
    dense2D<double> flat(2, 3, 0.0);
    EXPECT_EQ(copy_sym_mesh(flat, out, vector_fixed<double, 3>(0.0, 0.0, 1.0),
                            vector_fixed<double, 3>(0.0, 0.0, 3.0), tri),
              0);
    EXPECT_EQ(flat.rows(), 3u);
    EXPECT_EQ(flat(2, 4), 2.0);
    EXPECT_EQ(flat(2, 0), 0.0);
}

TEST(clip, keeps_elements_strictly_on_the_positive_side)
{
    dense2D<double> pos(3, 5, 1.0);
    pos(2, 4) = 0.0; // on the plane: outside
    dense2D<unsigned> tets = matrix(4, {0, 1, 2, 3, 0, 1, 2, 4}), out;
    const vector_fixed<double, 3> P(0.0, 0.0, 0.0), N(0.0, 0.0, 1.0);
    EXPECT_EQ(clip(pos, tets, P, N, out), 0);
    EXPECT_EQ(entries(out), (std::vector<unsigned>{0, 1, 2, 3}));
    EXPECT_EQ(clip(pos, tets, P, N, out), 0);
    EXPECT_EQ(out.cols(), 2u);
    EXPECT_EQ(clip(pos, tets, P, vector_fixed<double, 3>(0.0, 0.0, -1.0), out), 0);
    EXPECT_EQ(out.cols(), 2u);
    // Mixed columns stop at the first ~0u.
    dense2D<unsigned> mixed = matrix(4, {0, 1, 2, undefined_index}), out4;
    EXPECT_EQ(clip(pos, mixed, P, N, out4), 0);
    EXPECT_EQ(out4.cols(), 1u);
    // Ladder.
    dense2D<unsigned> empty, bad = matrix(4, {0, 1, 2, 5}), out3(3, 1, 0u);
    EXPECT_EQ(clip(pos, empty, P, vector_fixed<double, 3>(), out3), 0);
    EXPECT_EQ(clip(pos, bad, P, vector_fixed<double, 3>(), out3), -2);
    EXPECT_EQ(clip(pos, tets, P, vector_fixed<double, 3>(0.0, 1e-13, 0.0), out3), -4);
    EXPECT_EQ(clip(pos, tets, P, N, out3), -5);
}
