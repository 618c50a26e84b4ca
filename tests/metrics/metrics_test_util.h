// Helpers shared by the metric tests: a fixed-seed generator, random metrics, small fields.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <meshutil/containers.h>

namespace metrics_test
{

inline const double nan_ = std::numeric_limits<double>::quiet_NaN();
inline const double inf_ = std::numeric_limits<double>::infinity();

/// A dense1D holding the listed values.
template <class T>
inline qx7::dense1D<T> list_of(std::initializer_list<T> v)
{
    qx7::dense1D<T> s(v.size());
    std::copy(v.begin(), v.end(), s.data());
    return s;
}

/// A dense2D with the given row count holding the listed values column by column.
template <class T>
inline qx7::dense2D<T> cols_of(std::size_t rows, std::initializer_list<T> v)
{
    qx7::dense2D<T> M(rows, v.size() / rows);
    std::copy(v.begin(), v.end(), M.data());
    return M;
}

/// splitmix64 with its own mapping to doubles, so that the values do not depend on the standard
/// library.
struct rng
{
    std::uint64_t state;
    explicit rng(std::uint64_t seed) : state(seed) {}
    std::uint64_t next()
    {
        std::uint64_t z = (state += 0x9e3779b97f4a7c15ull);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
        return z ^ (z >> 31);
    }
    /// Uniform in [0, 1).
    double uniform() { return double(next() >> 11) * (1.0 / 9007199254740992.0); }
    double uniform(double a, double b) { return a + (b - a) * uniform(); }
    /// exp of a uniform value in [ln a, ln b).
    double log_uniform(double a, double b) { return std::exp(uniform(std::log(a), std::log(b))); }
};

template <int N>
inline double dot(const double* a, const double* b)
{
    double s = 0.0;
    for (int i = 0; i < N; ++i)
        s += a[i] * b[i];
    return s;
}

/// A random unit vector of dimension N (uniform over the sphere).
template <int N>
inline void unit_vector(rng& r, double* u)
{
    do
        for (int i = 0; i < N; ++i)
            u[i] = r.uniform(-1.0, 1.0);
    while (dot<N>(u, u) < 1e-4 || dot<N>(u, u) > 1.0);
    const double n = std::sqrt(dot<N>(u, u));
    for (int i = 0; i < N; ++i)
        u[i] /= n;
}

/// A random orthonormal basis (columns of q, column-major N x N): the product of two random
/// reflections I - 2 u u^T, which can be any rotation.
template <int N>
inline void orthonormal_basis(rng& r, double* q)
{
    double u[N], v[N];
    unit_vector<N>(r, u);
    unit_vector<N>(r, v);
    const double uv = dot<N>(u, v);
    for (int j = 0; j < N; ++j)
        for (int i = 0; i < N; ++i)
            q[i + j * N] =
                (i == j) - 2.0 * u[i] * u[j] - 2.0 * v[i] * v[j] + 4.0 * uv * u[i] * v[j];
}

/// A random valid metric Q diag(1/h^2) Q^T with sizes log-uniform in [hmin, hmax].
template <int N>
inline qx7::symmetric_fixed<double, N> random_metric(rng& r, double hmin = 0.01,
                                                     double hmax = 100.0)
{
    double q[N * N], l[N];
    orthonormal_basis<N>(r, q);
    for (int k = 0; k < N; ++k)
        l[k] = std::pow(r.log_uniform(hmin, hmax), -2.0);
    qx7::symmetric_fixed<double, N> M;
    for (int j = 0; j < N; ++j)
        for (int i = 0; i <= j; ++i)
            for (int k = 0; k < N; ++k)
                M(i, j) += l[k] * q[i + k * N] * q[j + k * N];
    return M;
}

/// A field of n random metrics of dimension N (N(N+1)/2 rows), sizes in [hmin, hmax].
template <int N>
inline qx7::dense2D<double> random_field(rng& r, std::size_t n, double hmin, double hmax)
{
    qx7::dense2D<double> F(N * (N + 1) / 2, n);
    for (std::size_t j = 0; j < n; ++j)
    {
        const qx7::symmetric_fixed<double, N> m = random_metric<N>(r, hmin, hmax);
        std::copy(m.data(), m.data() + m.size(), F.col(j));
    }
    return F;
}

/// Column j of a field of N-D metrics.
template <int N>
inline qx7::symmetric_fixed<double, N> column(const qx7::dense2D<double>& F, std::size_t j)
{
    qx7::symmetric_fixed<double, N> m;
    std::copy(F.col(j), F.col(j) + m.size(), m.data());
    return m;
}

/// x^T M x.
template <int N>
inline double quad(const qx7::symmetric_fixed<double, N>& M, const double* x)
{
    double s = 0.0;
    for (int i = 0; i < N; ++i)
        for (int j = 0; j < N; ++j)
            s += x[i] * M(i, j) * x[j];
    return s;
}

/// Largest absolute entry of a fixed vector, matrix or metric (plain arrays of doubles).
template <class A>
inline double max_abs(const A& M)
{
    double m = 0.0;
    for (std::size_t k = 0; k < sizeof(A) / sizeof(double); ++k)
        m = std::max(m, std::fabs(M.data()[k]));
    return m;
}

/// Entry-wise equality of two fixed vectors, matrices or metrics.
template <class A>
inline bool same(const A& a, const A& b)
{
    return std::equal(a.data(), a.data() + sizeof(A) / sizeof(double), b.data());
}

/// Same shape and entries.
inline bool same(const qx7::dense2D<double>& a, const qx7::dense2D<double>& b)
{
    return a.rows() == b.rows() && a.cols() == b.cols() &&
           std::equal(a.data(), a.data() + a.size(), b.data());
}

} // namespace metrics_test
