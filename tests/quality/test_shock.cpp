// Size shocks at nodes: known values, brute force on random edges, metric and size forms alike,
// argument checks.
#include <cfloat>
#include <cmath>
#include <gtest/gtest.h>
#include <meshutil/quality.h>
#include <random>

using namespace qx7;
using namespace qx7::meshutil;

namespace
{

dense2D<unsigned> edge_matrix(std::initializer_list<std::pair<unsigned, unsigned>> list)
{
    dense2D<unsigned> e(2, list.size());
    std::size_t j = 0;
    for (auto [a, b] : list)
        e(0, j) = a, e(1, j++) = b;
    return e;
}

} // namespace

TEST(shock, known_values_on_a_small_chain)
{
    //  0 ---- 1 ---- 2     3 (on no edge)     4 == 5 (same place)
    dense2D<double> pos(3, 6, 0.0);
    pos(0, 1) = 1.0, pos(0, 2) = 3.0, pos(0, 3) = 9.0, pos(0, 4) = 5.0, pos(0, 5) = 5.0;
    dense1D<double> sizes(6, 1.0);
    sizes[1] = 2.0, sizes[2] = 2.0, sizes[5] = 1.5;
    const dense2D<unsigned> edges = edge_matrix({{0, 1}, {1, 2}, {4, 5}});
    dense1D<double> shocks(2, NAN);
    ASSERT_EQ(H_shock(pos, edges, sizes, shocks), 0);
    ASSERT_EQ(shocks.size(), 6u);
    const double e1 = std::exp(1.0) - 1.0; // sizes 1 and 2 over a unit edge: L = ln 2
    EXPECT_NEAR(shocks[0], e1, 1e-14);
    EXPECT_NEAR(shocks[1], e1, 1e-14); // the larger of e - 1 and 0
    EXPECT_EQ(shocks[2], 0.0);         // equal sizes
    EXPECT_EQ(shocks[3], 0.0);         // on no edge
    EXPECT_EQ(shocks[4], DBL_MAX);     // zero length, different sizes
    EXPECT_EQ(shocks[5], DBL_MAX);
    sizes[5] = 1.0;
    ASSERT_EQ(H_shock(pos, edges, sizes, shocks), 0);
    EXPECT_EQ(shocks[4], 0.0); // zero length, equal sizes

    // The same with isotropic metrics (1/h^2) I, in 3-D and in 2-D.
    for (std::size_t rows : {std::size_t(2), std::size_t(3)})
    {
        dense2D<double> p2 = pos.sub_matrix(0, 0, rows, 6), M(rows == 2 ? 3 : 6, 6, 0.0);
        sizes[5] = 1.5;
        for (std::size_t j = 0; j < 6; ++j)
        {
            const double l = 1.0 / (sizes[j] * sizes[j]);
            M(0, j) = M(2, j) = l;
            if (rows == 3) M(5, j) = l;
        }
        dense1D<double> s2;
        ASSERT_EQ(H_shock(p2, edges, M, s2), 0);
        EXPECT_NEAR(s2[0], e1, 1e-12);
        EXPECT_NEAR(s2[1], e1, 1e-12);
        EXPECT_EQ(s2[2], 0.0);
        EXPECT_EQ(s2[3], 0.0);
        EXPECT_EQ(s2[4], DBL_MAX);
    }
}

TEST(shock, node_maximum_matches_brute_force)
{
    std::mt19937_64 gen(3);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    const unsigned n = 300;
    dense2D<double> pos(3, n), metrics(6, n, 0.0);
    dense1D<double> sizes(n);
    for (unsigned j = 0; j < n; ++j)
    {
        for (int i = 0; i < 3; ++i)
            pos(i, j) = u(gen);
        sizes[j] = 0.05 + u(gen);
        const double l = 1.0 / (sizes[j] * sizes[j]);
        metrics(0, j) = metrics(2, j) = metrics(5, j) = l;
    }
    dense2D<unsigned> edges(2, 1000);
    std::uniform_int_distribution<unsigned> node(0, n - 1);
    for (std::size_t k = 0; k < edges.cols(); ++k)
        edges(0, k) = node(gen), edges(1, k) = node(gen);
    std::vector<double> ref(n, 0.0);
    for (std::size_t k = 0; k < edges.cols(); ++k)
    {
        const unsigned a = edges(0, k), b = edges(1, k);
        const double d = std::sqrt((pos(0, a) - pos(0, b)) * (pos(0, a) - pos(0, b)) +
                                   (pos(1, a) - pos(1, b)) * (pos(1, a) - pos(1, b)) +
                                   (pos(2, a) - pos(2, b)) * (pos(2, a) - pos(2, b)));
        const double ha = sizes[a], hb = sizes[b];
        double s = 0.0;
        if (a != b && ha != hb)
        {
            // Growth ratio per unit length: exp(ln(hmax/hmin) / L), L = d ln(hb/ha) / (hb - ha).
            const double L = d * std::log(hb / ha) / (hb - ha);
            s = std::exp(std::fabs(std::log(hb / ha)) / L) - 1.0;
        }
        else if (a == b)
            s = 0.0;
        ref[a] = std::max(ref[a], s);
        ref[b] = std::max(ref[b], s);
    }
    dense1D<double> si, sm;
    ASSERT_EQ(H_shock(pos, edges, sizes, si), 0);
    ASSERT_EQ(H_shock(pos, edges, metrics, sm), 0);
    for (unsigned j = 0; j < n; ++j)
    {
        // The series branch of the mean (sizes within 10 %) is accurate to about 2e-7.
        EXPECT_NEAR(si[j], ref[j], 1e-6 * (1.0 + ref[j])) << j;
        EXPECT_NEAR(sm[j], si[j], 1e-9 * (1.0 + si[j])) << j;
    }
}

TEST(shock, argument_checks)
{
    const dense2D<double> pos(3, 3, 0.0), pos1(1, 3, 0.0);
    const dense1D<double> sizes(3, 1.0);
    const dense2D<double> metrics(6, 3, 1.0);
    dense1D<double> shocks(2, 7.0);
    // No edge: 0, shocks untouched (before any other check).
    EXPECT_EQ(H_shock(pos1, dense2D<unsigned>(2, 0), sizes, shocks), 0);
    EXPECT_EQ(H_shock(pos1, dense2D<unsigned>(0, 4), metrics, shocks), 0);
    EXPECT_EQ(shocks.size(), 2u);
    const dense2D<unsigned> ok = edge_matrix({{0, 2}}), bad = edge_matrix({{0, 3}});
    EXPECT_EQ(H_shock(pos1, ok, sizes, shocks), -1);
    EXPECT_EQ(H_shock(pos1, ok, metrics, shocks), -1);
    EXPECT_EQ(H_shock(pos, bad, sizes, shocks), -2);
    EXPECT_EQ(H_shock(pos, dense2D<unsigned>(3, 1, 0u), metrics, shocks), -2);
    EXPECT_EQ(H_shock(pos, ok, dense1D<double>(2, 1.0), shocks), -3);
    EXPECT_EQ(H_shock(pos, ok, dense2D<double>(3, 3, 1.0), shocks), -3);
    EXPECT_EQ(H_shock(pos, ok, dense2D<double>(6, 2, 1.0), shocks), -3);
    EXPECT_EQ(shocks.size(), 2u);
    EXPECT_EQ(shocks[0], 7.0);
    // Invalid sizes and metrics are no error: they show as 0 or DBL_MAX.
    dense1D<double> bad_sizes(3, 1.0);
    bad_sizes[2] = -1.0;
    EXPECT_EQ(H_shock(pos, ok, bad_sizes, shocks), 0);
    EXPECT_EQ(shocks[0], DBL_MAX);
    EXPECT_EQ(shocks[1], 0.0);
    dense2D<double> zero(6, 3, 0.0);
    EXPECT_EQ(H_shock(pos, ok, zero, shocks), 0);
    EXPECT_EQ(shocks[2], 0.0); // equal (zero) metrics
}
