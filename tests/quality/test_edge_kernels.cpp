// Per-edge kernels: logarithmic mean, lengths in a size field, size shock.
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
    if (a == b) return a;
    const double r = (b - a) / a;
    return r / std::log1p(r) * a;
}
} // namespace

TEST(edge_kernels, log_mean_known_values_and_branches)
{
    EXPECT_EQ(log_mean(1.0, 1.0), 1.0);
    EXPECT_EQ(log_mean(3.5, 3.5), 3.5);
    // Series branch below a ratio of 1.1, closed form from 1.1 on.
    EXPECT_NEAR(log_mean(1.0, 1.05), 1.02479671006944, 1e-14);
    EXPECT_NEAR(log_mean(1.05, 1.0), 1.02479671006944, 1e-14);
    EXPECT_DOUBLE_EQ(log_mean(1.0, 1.1), 0.1 / std::log(1.1));
    EXPECT_DOUBLE_EQ(log_mean(1.0, 2.0), 1.0 / std::log(2.0));
    // A size that is not positive: the mean is the smaller size, never positive.
    EXPECT_EQ(log_mean(0.0, 2.0), 0.0);
    EXPECT_EQ(log_mean(-1.0, 2.0), -1.0);
    EXPECT_TRUE(std::isnan(log_mean(NAN, 2.0)));
}

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

TEST(edge_kernels, iso_length_and_shock_known_values)
{
    const double x0[3] = {0, 0, 0}, x1[3] = {1, 0, 0}, x2[3] = {0.6, 0.8, 0};
    double li, lj;
    // Sizes 1 and 2 over a unit edge: L = ln 2, shock = 2^(1/ln 2) - 1 = e - 1.
    EXPECT_NEAR(iso_edge_length<3>(x0, x1, 1.0, 2.0, li, lj), std::log(2.0), 1e-15);
    EXPECT_EQ(li, 1.0);
    EXPECT_EQ(lj, 0.5);
    EXPECT_NEAR(iso_edge_shock<3>(x0, x1, 1.0, 2.0), std::exp(1.0) - 1.0, 1e-14);
    EXPECT_NEAR(iso_edge_shock<2>(x0, x2, 2.0, 1.0), std::exp(1.0) - 1.0, 1e-14);
    // Equal sizes: no shock, whatever the length.
    for (double h : {1e-3, 1.0, 7.0})
        EXPECT_EQ(iso_edge_shock<3>(x0, x2, h, h), 0.0);
    // Zero-length edge: 0 for equal sizes, DBL_MAX otherwise; same for a size that is not > 0.
    EXPECT_EQ(iso_edge_shock<3>(x1, x1, 1.0, 1.0), 0.0);
    EXPECT_EQ(iso_edge_shock<3>(x1, x1, 1.0, 2.0), DBL_MAX);
    EXPECT_EQ(iso_edge_shock<3>(x0, x1, 0.0, 2.0), DBL_MAX);
    EXPECT_EQ(iso_edge_shock<3>(x0, x1, 0.0, 0.0), 0.0);
    // Sizes so different that the power overflows: DBL_MAX, not infinity.
    const double far[3] = {1e-300, 0, 0};
    EXPECT_EQ(iso_edge_shock<3>(x0, far, 1e-300, 1e300), DBL_MAX);
}

TEST(edge_kernels, metric_length_of_isotropic_metrics_matches_sizes)
{
    std::mt19937_64 gen(11);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    for (int k = 0; k < 500; ++k)
    {
        const double xi[3] = {u(gen), u(gen), u(gen)}, xj[3] = {u(gen), u(gen), u(gen)};
        const double hi = std::exp(2 * u(gen)), hj = std::exp(2 * u(gen));
        const double li2 = 1 / (hi * hi), lj2 = 1 / (hj * hj);
        const double Mi3[6] = {li2, 0, li2, 0, 0, li2}, Mj3[6] = {lj2, 0, lj2, 0, 0, lj2};
        const double Mi2[3] = {li2, 0, li2}, Mj2[3] = {lj2, 0, lj2};
        const double e[3] = {xj[0] - xi[0], xj[1] - xi[1], xj[2] - xi[2]};
        double ai, aj, bi, bj;
        const double L3 = metric_edge_length<3>(e, Mi3, Mj3, ai, aj);
        EXPECT_NEAR(L3 / iso_edge_length<3>(xi, xj, hi, hj, bi, bj), 1.0, 1e-12);
        EXPECT_NEAR(ai / bi, 1.0, 1e-12);
        EXPECT_NEAR(aj / bj, 1.0, 1e-12);
        const double L2 = metric_edge_length<2>(e, Mi2, Mj2, ai, aj);
        EXPECT_NEAR(L2 / iso_edge_length<2>(xi, xj, hi, hj, bi, bj), 1.0, 1e-12);
        const double s_iso = iso_edge_shock<3>(xi, xj, hi, hj);
        EXPECT_NEAR(aniso_edge_shock<3>(xi, xj, Mi3, Mj3), s_iso, 1e-9 * (1 + s_iso));
    }
}

TEST(edge_kernels, metric_length_reads_off_diagonal_terms_and_rejects_invalid_forms)
{
    // A metric stretched along (1, 1): M = R diag(4, 1/4) RT in the frame of (1,1)/sqrt2,
    // (-1,1)/sqrt2, packed M11, M12, M22 (and M13 = M23 = 0, M33 = 1 in 3-D).
    const double M2[3] = {2.125, 1.875, 2.125}, M3[6] = {2.125, 1.875, 2.125, 0, 0, 1};
    const double diag[3] = {1, 1, 0}, anti[3] = {-1, 1, 0}, up[3] = {0, 0, 3};
    double li, lj;
    EXPECT_NEAR(metric_edge_length<2>(diag, M2, M2, li, lj), 2.0 * std::sqrt(2.0), 1e-14);
    EXPECT_NEAR(metric_edge_length<2>(anti, M2, M2, li, lj), 0.5 * std::sqrt(2.0), 1e-14);
    EXPECT_NEAR(metric_edge_length<3>(diag, M3, M3, li, lj), 2.0 * std::sqrt(2.0), 1e-14);
    EXPECT_NEAR(metric_edge_length<3>(up, M3, M3, li, lj), 3.0, 1e-14);
    // A quadratic form that is not > 0 at either end gives 0, and the shock then compares the
    // metrics value by value.
    const double Z[6] = {0, 0, 0, 0, 0, 0}, N[6] = {-1, 0, 1, 0, 0, 1};
    EXPECT_EQ(metric_edge_length<3>(diag, M3, Z, li, lj), 0.0);
    EXPECT_EQ(metric_edge_length<3>(diag, N, M3, li, lj), 0.0);
    const double o[3] = {0, 0, 0};
    EXPECT_EQ(aniso_edge_shock<3>(o, diag, Z, Z), 0.0);
    EXPECT_EQ(aniso_edge_shock<3>(o, diag, Z, M3), DBL_MAX);
    EXPECT_EQ(aniso_edge_shock<3>(o, o, M3, M3), 0.0);
    const double M3b[6] = {2.125, 1.875, 2.125, 0, 0, 2};
    EXPECT_EQ(aniso_edge_shock<3>(o, o, M3, M3b), DBL_MAX);
    EXPECT_EQ(aniso_edge_shock<3>(o, diag, M3, M3), 0.0);
}
