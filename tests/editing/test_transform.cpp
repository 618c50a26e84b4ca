// Translations, rotations and zooms: no-op rules, row growth, return values, the rotation series.
#include "editing/editing_private.h"

#include <cmath>
#include <gtest/gtest.h>
#include <meshutil/editing.h>
#include <random>

using namespace qx7;
using namespace qx7::meshutil;

namespace
{
dense2D<double> random_pos(unsigned rows, unsigned n, unsigned seed)
{
    std::mt19937 gen(seed);
    dense2D<double> pos(rows, n);
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i < rows; ++i)
            pos(i, j) = double(gen()) / 4294967296.0 * 4.0 - 2.0;
    return pos;
}
double dist(const dense2D<double>& p, unsigned a, unsigned b)
{
    double s = 0;
    for (unsigned i = 0; i < p.rows(); ++i)
        s += (p(i, a) - p(i, b)) * (p(i, a) - p(i, b));
    return std::sqrt(s);
}
} // namespace

TEST(transform, no_ops_row_growth_and_return_values)
{
    const vector_fixed<double, 2> O2(0.0, 0.0);
    const vector_fixed<double, 3> O3(0.0, 0.0, 0.0);
    dense2D<double> one_row(1, 3, 1.0), empty;
    EXPECT_EQ(translate(one_row, vector_fixed<double, 2>(0.0, 0.0)), 0);
    EXPECT_EQ(translate(one_row, vector_fixed<double, 2>(std::nan(""), 0.0)), 0);
    EXPECT_EQ(rotate(one_row, O2, 0.0), 0);
    EXPECT_EQ(rotate(one_row, O3, O3), 0);
    EXPECT_EQ(zoom(one_row, O3, 1.0), 0);
    EXPECT_EQ(one_row.rows(), 1u);
    EXPECT_EQ(translate(one_row, vector_fixed<double, 2>(1.0, 0.0)), 3);
    EXPECT_EQ(one_row.rows(), 2u);
    EXPECT_EQ(one_row(0, 2), 2.0);
    EXPECT_EQ(one_row(1, 2), 0.0);
    EXPECT_EQ(translate(one_row, vector_fixed<double, 3>(0.0, 0.0, 1e-300)), 3);
    EXPECT_EQ(one_row(2, 0), 1e-300);
    for (const auto& V : {vector_fixed<double, 3>(1.0, 2.0, 3.0)})
    {
        EXPECT_EQ(translate(empty, V), 0);
        EXPECT_EQ(rotate(empty, O3, V), 0);
        EXPECT_EQ(zoom(empty, O3, 2.0), 0);
    }
    // 2-D on a 3-row matrix leaves z; node lists count valid entries, twice when listed twice;
    // the connectivity form moves each node once; zoom with a list returns 0.
    dense2D<double> pos(3, 3, 0.0);
    pos(2, 1) = 7.0;
    dense1D<unsigned> nodes(3, 1u);
    nodes[2] = 3;
    EXPECT_EQ(translate(pos, vector_fixed<double, 2>(1.0, 1.0), nodes), 2);
    EXPECT_EQ(pos(0, 1), 2.0);
    EXPECT_EQ(pos(2, 1), 7.0);
    dense2D<unsigned> conn(2, 2, 1u);
    EXPECT_EQ(translate(pos, vector_fixed<double, 2>(1.0, 0.0), conn), 1);
    EXPECT_EQ(pos(0, 1), 3.0);
    EXPECT_EQ(rotate(pos, O2, 1.0, nodes), 2);
    EXPECT_EQ(zoom(pos, O3, 2.0, nodes), 0);
    EXPECT_EQ(zoom(pos, O3, 2.0, conn), 0);
    EXPECT_EQ(zoom(pos, O3, 0.5), 3);
    EXPECT_EQ(translate(pos, O3, dense1D<unsigned>()), 0);
    EXPECT_EQ(translate(pos, vector_fixed<double, 3>(1.0, 0.0, 0.0), dense1D<unsigned>()), 0);
}

TEST(transform, rotations_known_values_and_invariance)
{
    dense2D<double> p(2, 1, 0.0);
    p(0, 0) = 1.0;
    EXPECT_EQ(rotate(p, vector_fixed<double, 2>(0.0, 0.0), M_PI / 2), 1);
    EXPECT_NEAR(p(0, 0), 0.0, 1e-12);
    EXPECT_NEAR(p(1, 0), 1.0, 1e-12);
    dense2D<double> q(3, 1, 0.0);
    q(0, 0) = 1.0;
    EXPECT_EQ(rotate(q, vector_fixed<double, 3>(0.0, 0.0, 0.0),
                     vector_fixed<double, 3>(0.0, 0.0, M_PI / 2)),
              1);
    EXPECT_NEAR(q(0, 0), 0.0, 1e-12);
    EXPECT_NEAR(q(1, 0), 1.0, 1e-12);
    EXPECT_NEAR(q(2, 0), 0.0, 1e-12);
    // Distances are kept, and the centre does not move.
    for (double len : {0.01, 0.05, 0.1, 0.7, 3.0})
    {
        dense2D<double> pos = random_pos(3, 20, 4), before;
        before.copy(pos);
        const vector_fixed<double, 3> O(0.3, -0.2, 0.1);
        const vector_fixed<double, 3> r(len * 0.6, -len * 0.8, 0.0);
        EXPECT_EQ(rotate(pos, O, r), 20);
        for (unsigned a = 0; a < 20; ++a)
            for (unsigned b = a + 1; b < 20; ++b)
                EXPECT_NEAR(dist(pos, a, b), dist(before, a, b), 1e-12);
        // Zoom scales distances by |k|.
        dense2D<double> z;
        z.copy(before);
        EXPECT_EQ(zoom(z, O, -2.5), 20);
        EXPECT_NEAR(dist(z, 0, 1), 2.5 * dist(before, 0, 1), 1e-12);
    }
}

TEST(transform, rotation_series_meets_closed_form)
{
    // Below and at the switch, the series agrees with sin(t)/t and (1 - cos t)/t^2.
    for (double theta : {0.05, 0.1})
    {
        const double rot[3] = {theta * 0.48, theta * 0.6, theta * 0.64};
        double R[9];
        meshutil::detail::rotation_matrix(rot, R);
        const double t2 = theta * theta, a = std::sin(theta) / theta,
                     b = (1 - std::cos(theta)) / t2;
        const double W[9] = {0, rot[2], -rot[1], -rot[2], 0, rot[0], rot[1], -rot[0], 0};
        for (int j = 0; j < 3; ++j)
            for (int i = 0; i < 3; ++i)
            {
                double w2 = 0;
                for (int k = 0; k < 3; ++k)
                    w2 += W[i + 3 * k] * W[k + 3 * j];
                EXPECT_NEAR(R[i + 3 * j], (i == j) + a * W[i + 3 * j] + b * w2, 1e-12);
            }
    }
}
