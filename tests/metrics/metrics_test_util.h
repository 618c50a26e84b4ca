// Helpers shared by the metric tests: a fixed-seed generator and random metrics.
#pragma once

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
    std::size_t k = 0;
    for (T x : v)
        s[k++] = x;
    return s;
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

/// A random unit vector of dimension N.
template <int N>
inline void unit_vector(rng& r, double* u)
{
    double n2 = 0.0;
    do
    {
        n2 = 0.0;
        for (int i = 0; i < N; ++i)
        {
            u[i] = r.uniform(-1.0, 1.0);
            n2 += u[i] * u[i];
        }
    } while (n2 < 1e-4 || n2 > 1.0);
    const double n = std::sqrt(n2);
    for (int i = 0; i < N; ++i)
        u[i] /= n;
}

/// A random orthonormal basis (columns of q, column-major N x N) by Gram-Schmidt.
template <int N>
inline void orthonormal_basis(rng& r, double* q)
{
    for (int k = 0; k < N; ++k)
    {
        for (;;)
        {
            unit_vector<N>(r, q + k * N);
            for (int m = 0; m < k; ++m)
            {
                double d = 0.0;
                for (int i = 0; i < N; ++i)
                    d += q[i + k * N] * q[i + m * N];
                for (int i = 0; i < N; ++i)
                    q[i + k * N] -= d * q[i + m * N];
            }
            double n2 = 0.0;
            for (int i = 0; i < N; ++i)
                n2 += q[i + k * N] * q[i + k * N];
            if (n2 < 1e-2) continue;
            for (int i = 0; i < N; ++i)
                q[i + k * N] /= std::sqrt(n2);
            break;
        }
    }
}

/// A random valid metric Q diag(1/h^2) Q^T with sizes log-uniform in [hmin, hmax].
template <int N>
inline qx7::symmetric_fixed<double, N> random_metric(rng& r, double hmin = 0.01,
                                                     double hmax = 100.0)
{
    double q[N * N], l[N];
    orthonormal_basis<N>(r, q);
    for (int k = 0; k < N; ++k)
    {
        const double h = r.log_uniform(hmin, hmax);
        l[k] = 1.0 / (h * h);
    }
    qx7::symmetric_fixed<double, N> M;
    for (int j = 0; j < N; ++j)
        for (int i = 0; i <= j; ++i)
        {
            double s = 0.0;
            for (int k = 0; k < N; ++k)
                s += l[k] * q[i + k * N] * q[j + k * N];
            M(i, j) = s;
        }
    return M;
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

/// Largest absolute entry.
template <class Metric>
inline double max_abs(const Metric& M)
{
    double m = 0.0;
    for (std::size_t k = 0; k < M.size(); ++k)
        m = std::max(m, std::fabs(M[k]));
    return m;
}

} // namespace metrics_test
