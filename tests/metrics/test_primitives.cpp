// Tests of the single-metric operations.
#include "metrics/metrics_private.h"
#include "metrics/metrics_test_util.h"

#include <cfloat>
#include <gtest/gtest.h>
#include <limits>
#include <meshutil/metrics.h>

using namespace qx7;
using namespace qx7::meshutil;
using metrics_test::rng;

namespace
{

using metrics_test::inf_;
using metrics_test::nan_;

/// Checks V diag(l) V^T == M to 1e-12 relative, ascending l and orthonormal V.
template <int N>
void expect_decomposition(const symmetric_fixed<double, N>& M, const vector_fixed<double, N>& l,
                          const matrix_fixed<double, N, N>& V)
{
    const double scale = metrics_test::max_abs(M);
    for (int i = 0; i < N; ++i)
        for (int j = 0; j < N; ++j)
        {
            double s = 0.0, o = 0.0;
            for (int k = 0; k < N; ++k)
            {
                s += V(i, k) * l[k] * V(j, k);
                o += V(k, i) * V(k, j);
            }
            EXPECT_NEAR(s, M(i, j), 1e-12 * scale);
            EXPECT_NEAR(o, i == j ? 1.0 : 0.0, 1e-12);
        }
    for (int k = 1; k < N; ++k)
        EXPECT_LE(l[k - 1], l[k]);
}

template <int N>
void random_eigen_pairs_reconstruct()
{
    rng r(11 + N);
    for (int t = 0; t < 2000; ++t)
    {
        // Valid metrics over a wide range and indefinite symmetric matrices alike.
        symmetric_fixed<double, N> M = metrics_test::random_metric<N>(r, 1e-4, 1e4);
        if (t % 4 == 3)
            for (std::size_t k = 0; k < M.size(); ++k)
                M[k] = r.uniform(-1.0, 1.0);
        vector_fixed<double, N> l;
        matrix_fixed<double, N, N> V;
        ASSERT_TRUE(eigen_pairs(M, l, V));
        expect_decomposition<N>(M, l, V);
        bool positive = l[0] > 0.0;
        EXPECT_EQ(is_valid_metric(M), positive);
    }
}

/// Checks M2 v = l M1 v, ascending l and unit v for every pair.
template <int N>
void expect_generalised(const symmetric_fixed<double, N>& M1, const symmetric_fixed<double, N>& M2,
                        const vector_fixed<double, N>& l, const matrix_fixed<double, N, N>& V)
{
    const double scale =
        std::max(metrics_test::max_abs(M2), std::fabs(l[N - 1]) * metrics_test::max_abs(M1));
    for (int k = 0; k < N; ++k)
    {
        double n2 = 0.0;
        for (int i = 0; i < N; ++i)
        {
            double a = 0.0, b = 0.0;
            for (int j = 0; j < N; ++j)
            {
                a += M2(i, j) * V(j, k);
                b += M1(i, j) * V(j, k);
            }
            EXPECT_NEAR(a, l[k] * b, 1e-11 * scale);
            n2 += V(i, k) * V(i, k);
        }
        EXPECT_NEAR(n2, 1.0, 1e-13);
        if (k)
        {
            EXPECT_LE(l[k - 1], l[k]);
        }
    }
}

template <int N>
void random_generalised_pairs()
{
    rng r(101 + N);
    for (int t = 0; t < 2000; ++t)
    {
        const symmetric_fixed<double, N> M1 = metrics_test::random_metric<N>(r, 0.1, 10.0);
        symmetric_fixed<double, N> M2 = metrics_test::random_metric<N>(r, 0.1, 10.0);
        if (t % 3 == 2) M2 = M1; // equal metrics: every direction is an eigenvector
        vector_fixed<double, N> l;
        matrix_fixed<double, N, N> V;
        ASSERT_TRUE(eigen_pairs(M1, M2, l, V));
        expect_generalised<N>(M1, M2, l, V);
    }
}

/// maximum_metric / minimum_metric: symmetric in their arguments, and for every unit vector u the
/// union is at most as long as either input and the intersection at least as long.
template <int N>
void union_and_intersection_bound_inputs(double hmin, double hmax, double tol)
{
    rng r(7 + N);
    for (int t = 0; t < 1000; ++t)
    {
        const symmetric_fixed<double, N> A = metrics_test::random_metric<N>(r, hmin, hmax);
        const symmetric_fixed<double, N> B = metrics_test::random_metric<N>(r, hmin, hmax);
        symmetric_fixed<double, N> U1, U2, I1, I2;
        ASSERT_TRUE(maximum_metric(A, B, U1));
        ASSERT_TRUE(maximum_metric(B, A, U2));
        ASSERT_TRUE(minimum_metric(A, B, I1));
        ASSERT_TRUE(minimum_metric(B, A, I2));
        EXPECT_TRUE(is_valid_metric(U1));
        EXPECT_TRUE(is_valid_metric(I1));
        // Round-off is relative to the inputs' scale (the union can be much smaller).
        const double su = std::max(metrics_test::max_abs(A), metrics_test::max_abs(B)), si = su;
        for (std::size_t k = 0; k < U1.size(); ++k)
        {
            EXPECT_NEAR(U1[k], U2[k], tol * su);
            EXPECT_NEAR(I1[k], I2[k], tol * si);
        }
        for (int s = 0; s < 20; ++s)
        {
            double u[N];
            metrics_test::unit_vector<N>(r, u);
            const double a = metrics_test::quad<N>(A, u), b = metrics_test::quad<N>(B, u);
            EXPECT_LE(metrics_test::quad<N>(U1, u), std::min(a, b) + tol * su);
            EXPECT_GE(metrics_test::quad<N>(I1, u), std::max(a, b) - tol * si);
        }
    }
}

} // namespace

TEST(metric_primitives, eigen_pairs_reconstruct_random_matrices)
{
    random_eigen_pairs_reconstruct<2>();
    random_eigen_pairs_reconstruct<3>();
}

TEST(metric_primitives, eigen_pairs_2d_special_cases)
{
    vector_fixed<double, 2> l;
    matrix_fixed<double, 2, 2> V;
    // The small eigenvalue is recovered through det / l2.
    ASSERT_TRUE(eigen_pairs(symmetric_fixed<double, 2>(1.0, 0.0, 1e-14), l, V));
    EXPECT_EQ(l[0], 1e-14);
    EXPECT_EQ(l[1], 1.0);
    // A multiple of the identity gives the canonical basis.
    ASSERT_TRUE(eigen_pairs(symmetric_fixed<double, 2>(3.0, 0.0, 3.0), l, V));
    EXPECT_EQ(V(0, 0), 1.0);
    EXPECT_EQ(V(1, 0), 0.0);
    EXPECT_EQ(V(0, 1), 0.0);
    EXPECT_EQ(V(1, 1), 1.0);
    EXPECT_FALSE(eigen_pairs(symmetric_fixed<double, 2>(inf_, 0.0, 1.0), l, V));
    EXPECT_FALSE(eigen_pairs(symmetric_fixed<double, 2>(nan_, 0.0, 1.0), l, V));
}

TEST(metric_primitives, validity)
{
    EXPECT_FALSE(is_valid_metric(symmetric_fixed<double, 2>(1.0, 0.0, 0.0)));
    EXPECT_FALSE(is_valid_metric(symmetric_fixed<double, 2>(1.0, 2.0, 1.0)));
    EXPECT_TRUE(is_valid_metric(symmetric_fixed<double, 2>(1.0, 0.0, 1.0)));
    EXPECT_TRUE(is_valid_metric(symmetric_fixed<double, 2>(1.0, 0.0, 1e-300)));
    EXPECT_FALSE(is_valid_metric(symmetric_fixed<double, 2>(nan_, 0.0, 1.0)));
    EXPECT_TRUE(is_valid_metric(symmetric_fixed<double, 3>(1.0, 0.0, 1.0, 0.0, 0.0, 1.0)));
    EXPECT_TRUE(is_valid_metric(symmetric_fixed<double, 3>(1.0, 0.0, 1.0, 0.0, 0.0, 1e-300)));
    EXPECT_FALSE(is_valid_metric(symmetric_fixed<double, 3>(1.0, 0.0, 1.0, 0.0, 0.0, 0.0)));
    EXPECT_FALSE(is_valid_metric(symmetric_fixed<double, 3>(1.0, 2.0, 1.0, 0.0, 0.0, 1.0)));
    EXPECT_FALSE(is_valid_metric(symmetric_fixed<double, 3>(1.0, 0.0, nan_, 0.0, 0.0, 1.0)));
    EXPECT_FALSE(is_valid_metric(symmetric_fixed<double, 3>(1.0, 0.0, inf_, 0.0, 0.0, 1.0)));
}

TEST(metric_primitives, generalised_pairs_solve_the_pencil)
{
    random_generalised_pairs<2>();
    random_generalised_pairs<3>();
}

TEST(metric_primitives, generalised_pairs_fail_on_bad_first_metric)
{
    vector_fixed<double, 2> l2(9.0, 9.0);
    matrix_fixed<double, 2, 2> V2;
    V2 = 9.0;
    const symmetric_fixed<double, 2> I2(1.0, 0.0, 1.0);
    for (const auto& M1 :
         {symmetric_fixed<double, 2>(0.0, 0.0, 1.0), symmetric_fixed<double, 2>(1.0, 1.0, 1.0),
          symmetric_fixed<double, 2>(1.0, 2.0, 1.0)})
    {
        EXPECT_FALSE(eigen_pairs(M1, I2, l2, V2));
        EXPECT_EQ(l2, (vector_fixed<double, 2>(0.0, 0.0)));
        for (int k = 0; k < 4; ++k)
            EXPECT_EQ(V2.data()[k], 0.0);
    }
    vector_fixed<double, 3> l3(9.0, 9.0, 9.0);
    matrix_fixed<double, 3, 3> V3;
    V3 = 9.0;
    const symmetric_fixed<double, 3> I3(1.0, 0.0, 1.0, 0.0, 0.0, 1.0);
    EXPECT_FALSE(
        eigen_pairs(symmetric_fixed<double, 3>(1.0, 0.0, 1.0, 0.0, 0.0, -1.0), I3, l3, V3));
    EXPECT_EQ(l3, (vector_fixed<double, 3>(0.0, 0.0, 0.0)));
    for (int k = 0; k < 9; ++k)
        EXPECT_EQ(V3.data()[k], 0.0);
    EXPECT_FALSE(eigen_pairs(symmetric_fixed<double, 3>(1.0, 1.0, 1.0, 0.0, 0.0, 1.0), I3, l3, V3));
}

TEST(metric_primitives, bound_metric_codes_and_values)
{
    const symmetric_fixed<double, 2> D(100.0, 0.0, 1.0);
    struct row
    {
        double hmin, hmax;
        int code;
    };
    const row rows[] = {{0.0, DBL_MAX, 0}, {nan_, DBL_MAX, 0}, {nan_, 1.0, -2}, {inf_, 1.0, -2},
                        {1.0, inf_, -3},   {1.0, nan_, -3},    {0.01, 10.0, 0}};
    for (const row& t : rows)
    {
        symmetric_fixed<double, 2> M = D;
        symmetric_fixed<double, 3> M3(100.0, 0.0, 1.0, 0.0, 0.0, 1.0);
        EXPECT_EQ(bound_metric(M, t.hmin, t.hmax), t.code) << t.hmin << " " << t.hmax;
        EXPECT_EQ(bound_metric(M3, t.hmin, t.hmax), t.code) << t.hmin << " " << t.hmax;
        for (int k = 0; k < 3; ++k)
            EXPECT_EQ(M[k], D[k]);
    }
    symmetric_fixed<double, 2> M = D;
    EXPECT_EQ(bound_metric(M, 0.5, 0.8), 1);
    EXPECT_NEAR(M[0], 4.0, 1e-14);
    EXPECT_NEAR(M[1], 0.0, 1e-14);
    EXPECT_NEAR(M[2], 1.5625, 1e-14);
    symmetric_fixed<double, 3> M3(100.0, 0.0, 1.0, 0.0, 0.0, 0.01);
    EXPECT_EQ(bound_metric(M3, 0.5, 0.8), 1);
    const double want[6] = {4.0, 0.0, 1.5625, 0.0, 0.0, 1.5625};
    for (int k = 0; k < 6; ++k)
        EXPECT_NEAR(M3[k], want[k], 1e-13);
    // A matrix whose decomposition fails becomes (1/hmin^2) I.
    symmetric_fixed<double, 2> B(nan_, 0.0, 1.0);
    EXPECT_EQ(bound_metric(B, 0.5, 2.0), 1);
    EXPECT_EQ(B[0], 4.0);
    EXPECT_EQ(B[1], 0.0);
    EXPECT_EQ(B[2], 4.0);
}

TEST(metric_primitives, bound_metric_clamps_random_metrics)
{
    rng r(5);
    for (int t = 0; t < 500; ++t)
    {
        symmetric_fixed<double, 3> M = metrics_test::random_metric<3>(r, 0.01, 100.0);
        const symmetric_fixed<double, 3> M0 = M;
        const int code = bound_metric(M, 0.1, 10.0);
        vector_fixed<double, 3> l, l0;
        matrix_fixed<double, 3, 3> V;
        ASSERT_TRUE(eigen_pairs(M, l, V));
        ASSERT_TRUE(eigen_pairs(M0, l0, V));
        const bool inside = l0[0] >= 0.01 && l0[2] <= 100.0;
        EXPECT_EQ(code, inside ? 0 : 1);
        // Eigenvalues are accurate relative to the largest one.
        for (int k = 0; k < 3; ++k)
            EXPECT_NEAR(l[k], std::min(100.0, std::max(0.01, l0[k])), 1e-12 * l[2]);
    }
}

TEST(metric_primitives, union_and_intersection)
{
    symmetric_fixed<double, 2> M;
    EXPECT_TRUE(maximum_metric(symmetric_fixed<double, 2>(1.0, 0.0, 4.0),
                               symmetric_fixed<double, 2>(4.0, 0.0, 1.0), M));
    EXPECT_NEAR(M[0], 1.0, 1e-15);
    EXPECT_NEAR(M[1], 0.0, 1e-15);
    EXPECT_NEAR(M[2], 1.0, 1e-15);
    EXPECT_TRUE(minimum_metric(symmetric_fixed<double, 2>(1.0, 0.0, 4.0),
                               symmetric_fixed<double, 2>(4.0, 0.0, 1.0), M));
    EXPECT_NEAR(M[0], 4.0, 1e-15);
    EXPECT_NEAR(M[1], 0.0, 1e-15);
    EXPECT_NEAR(M[2], 4.0, 1e-15);
    // An invalid second metric: false and a copy of the first.
    const symmetric_fixed<double, 2> A(2.0, 0.5, 3.0), Z(0.0, 0.0, 0.0);
    EXPECT_FALSE(maximum_metric(A, Z, M));
    for (int k = 0; k < 3; ++k)
        EXPECT_EQ(M[k], A[k]);
    EXPECT_FALSE(minimum_metric(Z, A, M));
    for (int k = 0; k < 3; ++k)
        EXPECT_EQ(M[k], 0.0);
    symmetric_fixed<double, 3> A3(2.0, 0.5, 3.0, 0.1, 0.2, 1.0), M3;
    EXPECT_FALSE(maximum_metric(A3, symmetric_fixed<double, 3>(), M3));
    for (int k = 0; k < 6; ++k)
        EXPECT_EQ(M3[k], A3[k]);
    // The output may be an input.
    symmetric_fixed<double, 3> B3(1.0, 0.0, 1.0, 0.0, 0.0, 1.0), C3 = A3;
    ASSERT_TRUE(minimum_metric(A3, B3, M3));
    ASSERT_TRUE(minimum_metric(C3, B3, C3));
    for (int k = 0; k < 6; ++k)
        EXPECT_EQ(C3[k], M3[k]);
}

TEST(metric_primitives, union_and_intersection_are_symmetric_and_bound_inputs)
{
    // Sizes over two decades, then over four (condition numbers 1e4 and 1e8 of the metrics).
    union_and_intersection_bound_inputs<2>(0.1, 10.0, 1e-11);
    union_and_intersection_bound_inputs<3>(0.1, 10.0, 1e-11);
    union_and_intersection_bound_inputs<2>(0.01, 100.0, 1e-7);
    union_and_intersection_bound_inputs<3>(0.01, 100.0, 1e-7);
}

TEST(metric_primitives, conversions)
{
    symmetric_fixed<double, 2> M2(5.0, 5.0, 5.0);
    metric_iso_to_aniso(-1.0, M2);
    for (int k = 0; k < 3; ++k)
        EXPECT_EQ(M2[k], 0.0);
    symmetric_fixed<double, 3> M3;
    metric_iso_to_aniso(2.0, M3);
    const double want[6] = {0.25, 0.0, 0.25, 0.0, 0.0, 0.25};
    for (int k = 0; k < 6; ++k)
        EXPECT_EQ(M3[k], want[k]);

    // Restrictions to a plane: lengths of in-plane vectors P x agree with the 2-D metric.
    rng r(3);
    for (int t = 0; t < 200; ++t)
    {
        double q[9];
        metrics_test::orthonormal_basis<3>(r, q);
        matrix_fixed<double, 3, 2> P;
        for (int k = 0; k < 6; ++k)
            P.data()[k] = q[k] * (t % 2 ? 1.0 : 0.5); // not always orthonormal
        const symmetric_fixed<double, 3> A = metrics_test::random_metric<3>(r);
        const double h = r.uniform(0.1, 10.0);
        symmetric_fixed<double, 2> R, S;
        metric_aniso3d_to_aniso2d(A, P, R);
        metric_iso_to_aniso2d(h, P, S);
        symmetric_fixed<double, 3> H;
        metric_iso_to_aniso(h, H);
        for (int s = 0; s < 5; ++s)
        {
            double x[2], y[3];
            metrics_test::unit_vector<2>(r, x);
            for (int i = 0; i < 3; ++i)
                y[i] = P(i, 0) * x[0] + P(i, 1) * x[1];
            const double a = metrics_test::quad<3>(A, y), b = metrics_test::quad<3>(H, y);
            EXPECT_NEAR(metrics_test::quad<2>(R, x), a, 1e-12 * a);
            EXPECT_NEAR(metrics_test::quad<2>(S, x), b, 1e-12 * b);
        }
    }
    symmetric_fixed<double, 2> S(1.0, 1.0, 1.0);
    matrix_fixed<double, 3, 2> P;
    P = 1.0;
    metric_iso_to_aniso2d(0.0, P, S);
    for (int k = 0; k < 3; ++k)
        EXPECT_EQ(S[k], 0.0);
}

TEST(metric_primitives, edges_derived_from_boundary_tables)
{
    struct row
    {
        element_type shape;
        unsigned count;
    };
    const row rows[] = {{EL_EDGE2, 1},  {EL_TRIA3, 3},  {EL_QUAD4, 4},  {EL_TETRA4, 6},
                        {EL_PYRAM5, 8}, {EL_PENTA6, 9}, {EL_HEXA8, 12}, {EL_FACE_MIX, 0}};
    for (const row& t : rows)
    {
        const meshutil::detail::local_edges e = meshutil::detail::edges_of(t.shape);
        EXPECT_EQ(e.count, t.count) << t.shape;
        // Every edge joins two distinct nodes, and no edge is listed twice.
        for (unsigned k = 0; k < e.count; ++k)
        {
            EXPECT_NE(e.nodes[k][0], e.nodes[k][1]);
            for (unsigned m = 0; m < k; ++m)
                EXPECT_FALSE(std::min(e.nodes[k][0], e.nodes[k][1]) ==
                                 std::min(e.nodes[m][0], e.nodes[m][1]) &&
                             std::max(e.nodes[k][0], e.nodes[k][1]) ==
                                 std::max(e.nodes[m][0], e.nodes[m][1]));
        }
    }
    // The triangle keeps its boundary order.
    const meshutil::detail::local_edges t = meshutil::detail::edges_of(EL_TRIA3);
    EXPECT_EQ(t.nodes[0][0], 1u);
    EXPECT_EQ(t.nodes[0][1], 2u);
    EXPECT_EQ(t.nodes[2][0], 0u);
    EXPECT_EQ(t.nodes[2][1], 1u);
}
