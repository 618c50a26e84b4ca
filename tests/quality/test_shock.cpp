// Size shocks at nodes: brute force on random edges, the metric and size forms alike, argument
// checks.
#include <cfloat>
#include <cmath>
#include <gtest/gtest.h>
#include <meshutil/quality.h>
#include <random>

using namespace qx7;
using namespace qx7::meshutil;

TEST(shock, node_maximum_matches_brute_force)
{
    // Random edges over all nodes but the last (on no edge: 0); some edges join a node to itself
    // (0); nodes 1 and 3 share the places of nodes 0 and 2, with a different size (DBL_MAX) and
    // the same size (0). The size grows linearly along an edge, so the growth factor per unit of
    // field length is exp(|h_b - h_a| / d). Metrics (1/h^2) I give the same values.
    std::mt19937_64 gen(3);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    const unsigned n = 300;
    for (std::size_t rows : {2, 3})
    {
        dense2D<double> pos(rows, n), metrics(rows == 2 ? 3 : 6, n, 0.0);
        dense1D<double> sizes(n);
        for (unsigned j = 0; j < n; ++j)
        {
            for (std::size_t i = 0; i < rows; ++i)
                pos(i, j) = j == 1 || j == 3 ? pos(i, j - 1) : u(gen);
            sizes[j] = j == 3 ? sizes[2] : 0.05 + u(gen);
            const double l = 1.0 / (sizes[j] * sizes[j]);
            metrics(0, j) = metrics(2, j) = metrics(rows == 2 ? 2 : 5, j) = l;
        }
        dense2D<unsigned> edges(2, 1000);
        std::uniform_int_distribution<unsigned> node(0, n - 2);
        for (std::size_t k = 0; k < edges.cols(); ++k)
            edges(0, k) = node(gen), edges(1, k) = k % 50 == 0 ? edges(0, k) : node(gen);
        edges(0, 1) = 0, edges(1, 1) = 1, edges(0, 2) = 3, edges(1, 2) = 2;
        std::vector<double> ref(n, 0.0);
        for (std::size_t k = 0; k < edges.cols(); ++k)
        {
            const unsigned a = edges(0, k), b = edges(1, k);
            double d2 = 0.0;
            for (std::size_t i = 0; i < rows; ++i)
                d2 += (pos(i, a) - pos(i, b)) * (pos(i, a) - pos(i, b));
            const double dh = std::fabs(sizes[b] - sizes[a]);
            const double s = dh == 0.0 ? 0.0 : d2 == 0.0 ? DBL_MAX : std::expm1(dh / std::sqrt(d2));
            ref[a] = std::max(ref[a], s);
            ref[b] = std::max(ref[b], s);
        }
        dense1D<double> si(2, NAN), sm;
        ASSERT_EQ(H_shock(pos, edges, sizes, si), 0);
        ASSERT_EQ(H_shock(pos, edges, metrics, sm), 0);
        ASSERT_EQ(si.size(), n);
        EXPECT_EQ(si[0], DBL_MAX);
        EXPECT_EQ(si[n - 1], 0.0);
        for (unsigned j = 0; j < n; ++j)
        {
            // The series branch of the mean (sizes within 10 %) is accurate to about 2e-7.
            EXPECT_NEAR(si[j], ref[j], 1e-6 * (1.0 + ref[j])) << j;
            EXPECT_NEAR(sm[j], si[j], 1e-9 * (1.0 + si[j])) << j;
        }
    }
}

TEST(shock, argument_checks)
{
    const dense2D<double> pos(3, 3, 0.0), pos1(1, 3, 0.0), metrics(6, 3, 1.0);
    const dense1D<double> sizes(3, 1.0);
    dense2D<unsigned> ok(2, 1, 0u), bad(2, 1, 3u);
    ok(1, 0) = 2;
    dense1D<double> shocks(2, 7.0);
    // No edge: 0, shocks untouched (before any other check). Then in order: -1 pos, -2 edges,
    // -3 sizes or metrics too small; shocks untouched.
    EXPECT_EQ(H_shock(pos1, dense2D<unsigned>(2, 0), sizes, shocks), 0);
    EXPECT_EQ(H_shock(pos1, dense2D<unsigned>(0, 4), metrics, shocks), 0);
    EXPECT_EQ(H_shock(pos1, ok, sizes, shocks), -1);
    EXPECT_EQ(H_shock(pos1, ok, metrics, shocks), -1);
    EXPECT_EQ(H_shock(pos, bad, dense1D<double>(), shocks), -2);
    EXPECT_EQ(H_shock(pos, dense2D<unsigned>(3, 1, 0u), metrics, shocks), -2);
    EXPECT_EQ(H_shock(pos, ok, dense1D<double>(2, 1.0), shocks), -3);
    EXPECT_EQ(H_shock(pos, ok, dense2D<double>(3, 3, 1.0), shocks), -3);
    EXPECT_EQ(H_shock(pos, ok, dense2D<double>(6, 2, 1.0), shocks), -3);
    ASSERT_EQ(shocks.size(), 2u);
    EXPECT_EQ(shocks[0], 7.0);
    // Invalid sizes and metrics are no error: they show as 0 or DBL_MAX.
    dense1D<double> bad_sizes(3, 1.0);
    bad_sizes[2] = -1.0;
    EXPECT_EQ(H_shock(pos, ok, bad_sizes, shocks), 0);
    EXPECT_EQ(shocks[0], DBL_MAX);
    EXPECT_EQ(shocks[1], 0.0);
    EXPECT_EQ(H_shock(pos, ok, dense2D<double>(6, 3, 0.0), shocks), 0);
    EXPECT_EQ(shocks[2], 0.0); // equal (zero) metrics
}
