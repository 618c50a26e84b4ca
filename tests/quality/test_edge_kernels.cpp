// Per-edge kernels: the logarithmic mean, degenerate lengths and shocks.
#include "quality/quality_private.h"

#include <cfloat>
#include <cmath>
#include <gtest/gtest.h>
#include <random>

using namespace qx7::meshutil::detail;

namespace
{
// (b - a) / ln(b / a) through log1p, accurate for any ratio.
double reference_log_mean(double a, double b)
{
    if (a > b) std::swap(a, b);
    return a == b ? a : (b - a) / std::log1p((b - a) / a);
}
} // namespace

TEST(edge_kernels, log_mean_series_meets_closed_form_at_threshold)
{
    // The series is r/ln(1+r) to fourth order; its truncation error grows like r^5 and is
    // 1.66e-7 relative at r = 0.1. Both sides of the threshold must agree to that order.
    const double below = log_mean(1.0, std::nextafter(1.1, 0.0));
    const double at = log_mean(1.0, 1.1);
    EXPECT_LT(std::fabs(below - at) / at, 2e-7);
    for (double r : {1e-8, 1e-4, 1e-2, 0.05, 0.09})
    {
        const double ref = reference_log_mean(1.0, 1.0 + r);
        const double bound = 2e-7 * std::pow(r / 0.1, 5) + 4e-16;
        EXPECT_LT(std::fabs(log_mean(1.0, 1.0 + r) - ref) / ref, bound) << r;
    }
}

TEST(edge_kernels, log_mean_is_symmetric_scale_covariant_and_between_sizes)
{
    std::mt19937_64 gen(7);
    std::uniform_real_distribution<double> u(-6.0, 6.0);
    for (int k = 0; k < 2000; ++k)
    {
        const double a = std::exp(u(gen)), b = a * std::exp(0.5 * u(gen)), s = std::exp(u(gen));
        const double m = log_mean(a, b);
        EXPECT_EQ(m, log_mean(b, a));
        EXPECT_GE(m, std::min(a, b));
        EXPECT_LE(m, std::max(a, b));
        EXPECT_NEAR(log_mean(s * a, s * b) / (s * m), 1.0, 1e-13);
        EXPECT_NEAR(m / reference_log_mean(a, b), 1.0, 2e-7);
    }
}

TEST(edge_kernels, degenerate_sizes_lengths_and_invalid_forms)
{
    // The logarithmic mean of equal sizes is the size; with a size that is not positive, the
    // smaller size (never positive); NaN with a NaN size.
    EXPECT_EQ(log_mean(3.5, 3.5), 3.5);
    EXPECT_EQ(log_mean(0.0, 2.0), 0.0);
    EXPECT_EQ(log_mean(2.0, -1.0), -1.0);
    EXPECT_TRUE(std::isnan(log_mean(NAN, 2.0)));
    const double o[3] = {0, 0, 0}, x[3] = {1, 0, 0}, d[3] = {1, 1, 0};
    // Sizes that are not > 0: 0 when equal, DBL_MAX otherwise; an overflowing power: DBL_MAX.
    EXPECT_EQ(iso_edge_shock<3>(o, x, 0.0, 2.0), DBL_MAX);
    EXPECT_EQ(iso_edge_shock<3>(o, x, 0.0, 0.0), 0.0);
    const double far[3] = {1e-300, 0, 0};
    EXPECT_EQ(iso_edge_shock<3>(o, far, 1e-300, 1e300), DBL_MAX);
    // A quadratic form that is not > 0 at either end gives length 0, and the shock then
    // compares the metrics value by value (all six).
    const double M[6] = {2.125, 1.875, 2.125, 0, 0, 1}, M33[6] = {2.125, 1.875, 2.125, 0, 0, 2};
    const double Z[6] = {0, 0, 0, 0, 0, 0}, N[6] = {-1, 0, 1, 0, 0, 1};
    double li, lj;
    EXPECT_EQ(metric_edge_length<3>(d, M, Z, li, lj), 0.0);
    EXPECT_EQ(metric_edge_length<3>(d, N, M, li, lj), 0.0);
    EXPECT_EQ(aniso_edge_shock<3>(o, d, Z, Z), 0.0);
    EXPECT_EQ(aniso_edge_shock<3>(o, d, Z, M), DBL_MAX);
    EXPECT_EQ(aniso_edge_shock<3>(o, o, M, M), 0.0);
    EXPECT_EQ(aniso_edge_shock<3>(o, o, M, M33), DBL_MAX);
    EXPECT_EQ(aniso_edge_shock<3>(o, d, M, M), 0.0);
}
