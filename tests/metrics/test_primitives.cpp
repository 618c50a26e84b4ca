// Tests of the single-metric operations.
#include "metrics/metrics_test_util.h"

#include <algorithm>
#include <cfloat>
#include <gtest/gtest.h>
#include <meshutil/metrics.h>

using namespace qx7;
using namespace qx7::meshutil;
using metrics_test::inf_;
using metrics_test::max_abs;
using metrics_test::nan_;
using metrics_test::quad;
using metrics_test::rng;
using metrics_test::same;

namespace
{

/// On valid metrics and indefinite symmetric matrices alike: V diag(l) V^T == M to 1e-12
/// relative with V orthonormal and l ascending; validity is the sign of the smallest eigenvalue;
/// bound_metric clamps the eigenvalues into [1/hmax^2, 1/hmin^2] (one-sided when a bound is
/// absent) and says whether anything was clamped; restrictions to planes keep lengths.
template <int N>
void single_metric_properties()
{
    rng r(11 + N);
    for (int t = 0; t < 2000; ++t)
    {
        symmetric_fixed<double, N> M = metrics_test::random_metric<N>(r, 1e-4, 1e4);
        if (t % 4 == 3)
            for (std::size_t k = 0; k < M.size(); ++k)
                M[k] = r.uniform(-1.0, 1.0);
        vector_fixed<double, N> l, lb;
        matrix_fixed<double, N, N> V, W;
        ASSERT_TRUE(eigen_pairs(M, l, V));
        for (int i = 0; i < N; ++i)
            for (int j = 0; j < N; ++j)
            {
                double s = 0.0, o = 0.0;
                for (int k = 0; k < N; ++k)
                    s += V(i, k) * l[k] * V(j, k), o += V(k, i) * V(k, j);
                EXPECT_NEAR(s, M(i, j), 1e-12 * max_abs(M));
                EXPECT_NEAR(o, i == j ? 1.0 : 0.0, 1e-12);
            }
        for (int k = 1; k < N; ++k)
            EXPECT_LE(l[k - 1], l[k]);
        EXPECT_EQ(is_valid_metric(M), l[0] > 0.0);

        for (const auto& b :
             {std::make_pair(0.1, 10.0), std::make_pair(0.0, 10.0), std::make_pair(0.1, DBL_MAX)})
        {
            const double lhigh = b.first > 0.0 ? 1.0 / (b.first * b.first) : DBL_MAX;
            const double llow = b.second < DBL_MAX ? 1.0 / (b.second * b.second) : 0.0;
            symmetric_fixed<double, N> B = M;
            EXPECT_EQ(bound_metric(B, b.first, b.second),
                      l[0] >= llow && l[N - 1] <= lhigh ? 0 : 1);
            ASSERT_TRUE(eigen_pairs(B, lb, W));
            for (int k = 0; k < N; ++k)
                EXPECT_NEAR(lb[k], std::min(lhigh, std::max(llow, l[k])),
                            1e-12 * std::fabs(lb[N - 1]));
        }
    }
}

/// For random pairs of metrics (equal ones included): the generalised pairs solve
/// M2 v = l M1 v with unit v and ascending l; maximum_metric / minimum_metric are symmetric in
/// their arguments, valid, and for every unit vector the union is at most as long as either
/// input and the intersection at least as long.
template <int N>
void metric_pair_properties(double hmin, double hmax, double tol)
{
    rng r(7 + N);
    for (int t = 0; t < 1000; ++t)
    {
        const symmetric_fixed<double, N> A = metrics_test::random_metric<N>(r, hmin, hmax);
        const symmetric_fixed<double, N> B =
            t % 5 == 4 ? A : metrics_test::random_metric<N>(r, hmin, hmax);
        vector_fixed<double, N> l;
        matrix_fixed<double, N, N> V;
        ASSERT_TRUE(eigen_pairs(A, B, l, V));
        const double scale = std::max(max_abs(B), std::fabs(l[N - 1]) * max_abs(A));
        for (int k = 0; k < N; ++k)
        {
            double n2 = 0.0;
            for (int i = 0; i < N; ++i)
            {
                double a = 0.0, b = 0.0;
                for (int j = 0; j < N; ++j)
                    a += B(i, j) * V(j, k), b += A(i, j) * V(j, k);
                EXPECT_NEAR(a, l[k] * b, tol * scale);
                n2 += V(i, k) * V(i, k);
            }
            EXPECT_NEAR(n2, 1.0, 1e-13);
            EXPECT_LE(l[k > 0 ? k - 1 : 0], l[k]);
        }

        symmetric_fixed<double, N> U1, U2, I1, I2;
        ASSERT_TRUE(maximum_metric(A, B, U1) && maximum_metric(B, A, U2));
        ASSERT_TRUE(minimum_metric(A, B, I1) && minimum_metric(B, A, I2));
        EXPECT_TRUE(is_valid_metric(U1) && is_valid_metric(I1));
        // Round-off is relative to the inputs' scale (the union can be much smaller).
        const double s = std::max(max_abs(A), max_abs(B));
        for (std::size_t k = 0; k < U1.size(); ++k)
        {
            EXPECT_NEAR(U1[k], U2[k], tol * s);
            EXPECT_NEAR(I1[k], I2[k], tol * s);
        }
        for (int m = 0; m < 20; ++m)
        {
            double u[N];
            metrics_test::unit_vector<N>(r, u);
            const double a = quad<N>(A, u), b = quad<N>(B, u);
            EXPECT_LE(quad<N>(U1, u), std::min(a, b) + tol * s);
            EXPECT_GE(quad<N>(I1, u), std::max(a, b) - tol * s);
        }
    }
}

/// A first metric that is not positive definite: false and both outputs zeroed.
template <int N>
void expect_pencil_fails(const symmetric_fixed<double, N>& M1)
{
    symmetric_fixed<double, N> I;
    metric_iso_to_aniso(1.0, I);
    vector_fixed<double, N> l;
    matrix_fixed<double, N, N> V;
    l = 9.0, V = 9.0;
    EXPECT_FALSE(eigen_pairs(M1, I, l, V));
    EXPECT_EQ(max_abs(l) + max_abs(V), 0.0);
}

} // namespace

TEST(metric_primitives, random_single_metrics)
{
    single_metric_properties<2>();
    single_metric_properties<3>();
}

TEST(metric_primitives, random_pairs_of_metrics)
{
    // Sizes over two decades, then over four (condition numbers 1e4 and 1e8 of the metrics).
    metric_pair_properties<2>(0.1, 10.0, 1e-11);
    metric_pair_properties<3>(0.1, 10.0, 1e-11);
    metric_pair_properties<2>(0.01, 100.0, 1e-7);
    metric_pair_properties<3>(0.01, 100.0, 1e-7);
}

TEST(metric_primitives, special_cases)
{
    vector_fixed<double, 2> l;
    matrix_fixed<double, 2, 2> V;
    // A tiny eigenvalue keeps its relative accuracy; a multiple of I gives the canonical basis.
    ASSERT_TRUE(eigen_pairs(symmetric_fixed<double, 2>(1.0, 0.0, 1e-14), l, V));
    EXPECT_EQ(l, (vector_fixed<double, 2>(1e-14, 1.0)));
    ASSERT_TRUE(eigen_pairs(symmetric_fixed<double, 2>(3.0, 0.0, 3.0), l, V));
    for (int k = 0; k < 4; ++k)
        EXPECT_EQ(V.data()[k], k % 3 == 0 ? 1.0 : 0.0);
    EXPECT_FALSE(eigen_pairs(symmetric_fixed<double, 2>(inf_, 0.0, 1.0), l, V));
    EXPECT_FALSE(eigen_pairs(symmetric_fixed<double, 2>(nan_, 0.0, 1.0), l, V));

    // Validity has no tolerance: the 2-D metric (a, b, c) and the 3-D one (a, 0, 1, 0, b, c).
    const double rows[][4] = {
        {1, 0, 1e-300, 1}, {1, 0, 0, 0}, {1, 0, -1e-300, 0}, {nan_, 0, 1, 0}, {1, 0, inf_, 0}};
    for (const auto& t : rows)
    {
        EXPECT_EQ(is_valid_metric(symmetric_fixed<double, 2>(t[0], t[1], t[2])), t[3] == 1);
        EXPECT_EQ(is_valid_metric(symmetric_fixed<double, 3>(t[0], 0.0, 1.0, 0.0, t[1], t[2])),
                  t[3] == 1);
    }

    expect_pencil_fails<2>({0.0, 0.0, 1.0});
    expect_pencil_fails<2>({1.0, 1.0, 1.0});
    expect_pencil_fails<2>({1.0, 2.0, 1.0});
    expect_pencil_fails<3>({1.0, 0.0, 1.0, 0.0, 0.0, -1.0});
    expect_pencil_fails<3>({1.0, 1.0, 1.0, 0.0, 0.0, 1.0});
}

TEST(metric_primitives, bound_metric_check_ladder)
{
    // Early exit, then -2 / -3 for non-finite bounds; M untouched unless something is clamped.
    const double rows[][3] = {{0.0, DBL_MAX, 0}, {nan_, DBL_MAX, 0}, {nan_, 1.0, -2},
                              {inf_, 1.0, -2},   {1.0, inf_, -3},    {1.0, nan_, -3},
                              {0.01, 10.0, 0}};
    for (const auto& t : rows)
    {
        const symmetric_fixed<double, 2> D(100.0, 0.0, 1.0);
        const symmetric_fixed<double, 3> D3(100.0, 0.0, 1.0, 0.0, 0.0, 1.0);
        symmetric_fixed<double, 2> M = D;
        symmetric_fixed<double, 3> M3 = D3;
        EXPECT_EQ(bound_metric(M, t[0], t[1]), int(t[2])) << t[0] << " " << t[1];
        EXPECT_EQ(bound_metric(M3, t[0], t[1]), int(t[2])) << t[0] << " " << t[1];
        EXPECT_TRUE(same(M, D) && same(M3, D3));
    }
    // A matrix whose decomposition fails becomes (1/hmin^2) I.
    symmetric_fixed<double, 2> B(nan_, 0.0, 1.0);
    EXPECT_EQ(bound_metric(B, 0.5, 2.0), 1);
    EXPECT_TRUE(same(B, symmetric_fixed<double, 2>(4.0, 0.0, 4.0)));
}

TEST(metric_primitives, union_and_intersection_special_cases)
{
    // The bounds are reached: diagonal metrics give the entry-wise minimum and maximum.
    const symmetric_fixed<double, 2> A(1.0, 0.0, 4.0), B(4.0, 0.0, 1.0), Z(0.0, 0.0, 0.0);
    symmetric_fixed<double, 2> M;
    EXPECT_TRUE(maximum_metric(A, B, M));
    EXPECT_LE(max_abs(symmetric_fixed<double, 2>(M[0] - 1.0, M[1], M[2] - 1.0)), 1e-15);
    EXPECT_TRUE(minimum_metric(A, B, M));
    EXPECT_LE(max_abs(symmetric_fixed<double, 2>(M[0] - 4.0, M[1], M[2] - 4.0)), 1e-15);
    // An invalid metric on either side: false and a copy of the first.
    EXPECT_FALSE(maximum_metric(A, Z, M));
    EXPECT_TRUE(same(M, A));
    EXPECT_FALSE(minimum_metric(Z, A, M));
    EXPECT_TRUE(same(M, Z));
    symmetric_fixed<double, 3> A3(2.0, 0.5, 3.0, 0.1, 0.2, 1.0), M3;
    EXPECT_FALSE(maximum_metric(A3, symmetric_fixed<double, 3>(), M3));
    EXPECT_TRUE(same(M3, A3));
    // The output may be an input.
    symmetric_fixed<double, 3> B3(1.0, 0.0, 1.0, 0.0, 0.0, 1.0), C3 = A3;
    ASSERT_TRUE(minimum_metric(A3, B3, M3));
    ASSERT_TRUE(minimum_metric(C3, B3, C3));
    EXPECT_TRUE(same(C3, M3));
}

TEST(metric_primitives, conversions)
{
    symmetric_fixed<double, 2> M2(5.0, 5.0, 5.0), S(1.0, 1.0, 1.0);
    metric_iso_to_aniso(-1.0, M2);
    EXPECT_EQ(max_abs(M2), 0.0);
    symmetric_fixed<double, 3> M3;
    metric_iso_to_aniso(2.0, M3);
    EXPECT_TRUE(same(M3, symmetric_fixed<double, 3>(0.25, 0.0, 0.25, 0.0, 0.0, 0.25)));
    matrix_fixed<double, 3, 2> P;
    P = 1.0;
    metric_iso_to_aniso2d(0.0, P, S);
    EXPECT_EQ(max_abs(S), 0.0);
}
