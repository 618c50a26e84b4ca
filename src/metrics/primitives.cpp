// Operations on one metric: validity, eigen-pairs (plain and generalised), bounding of sizes,
// union and intersection, conversions from isotropic and from 3-D to 2-D.
#include "metrics/metrics_private.h"

#include <meshutil/metrics.h>

namespace qx7::meshutil
{

namespace
{

/// Eigen-pairs with unit vectors, closed form in 2-D and dspev in 3-D.
template <int N>
inline bool decompose(const double* m, double* w, double* z) noexcept
{
    if constexpr (N == 2)
    {
        if (!detail::eigenvalues2(m, w[0], w[1])) return false;
        detail::eigenvectors2(m, w[0], true, z);
        return true;
    }
    else
        return detail::eigen_pairs3(m, w, z);
}

/// Transpose of a column-major N x N matrix.
template <int N>
inline void transpose(const double* a, double* t) noexcept
{
    for (int j = 0; j < N; ++j)
        for (int i = 0; i < N; ++i)
            t[j + i * N] = a[i + j * N];
}

} // namespace

namespace detail
{

template <int N>
int bound_metric(double* m, double hmin, double hmax) noexcept
{
    if (!(hmin > 0.0) && hmax == DBL_MAX) return 0;
    if (!std::isfinite(hmin)) return -2;
    if (!std::isfinite(hmax)) return -3;
    const double lhigh = hmin > 0.0 ? 1.0 / (hmin * hmin) : DBL_MAX;
    const double llow = hmax > 0.0 ? 1.0 / (hmax * hmax) : 0.0;
    double w[N], z[N * N];
    if (!decompose<N>(m, w, z))
    {
        for (int k = 0; k < N; ++k)
            w[k] = lhigh;
        for (int k = 0; k < N * N; ++k)
            z[k] = (k % (N + 1)) == 0 ? 1.0 : 0.0;
    }
    else
    {
        bool changed = false;
        for (int k = 0; k < N; ++k)
        {
            double l = w[k];
            if (l > lhigh) l = lhigh;
            if (l < llow) l = llow;
            if (l != w[k]) changed = true;
            w[k] = l;
        }
        if (!changed) return 0;
    }
    double vt[N * N];
    transpose<N>(z, vt);
    detail::rebuild<N>(vt, w, m);
    return 1;
}

template int bound_metric<2>(double*, double, double) noexcept;
template int bound_metric<3>(double*, double, double) noexcept;

} // namespace detail

namespace
{

/// Union (larger sizes) or intersection (smaller sizes) of two metrics into m.
template <int N>
bool combine(const double* m1, const double* m2, bool larger_sizes, double* m) noexcept
{
    detail::reduction<N> r;
    detail::reduce<N>(m1, m2, r);
    double d[N];
    for (int k = 0; k < N; ++k)
        d[k] = larger_sizes ? std::min(r.d1[k], r.d2[k]) : std::max(r.d1[k], r.d2[k]);
    double out[detail::packed_size<N>];
    bool ok = detail::positive_finite<N>(d);
    if (ok)
    {
        detail::rebuild<N>(r.Pinv, d, out);
        ok = detail::is_valid<N>(out);
    }
    const double* src = ok ? out : m1;
    double keep[detail::packed_size<N>];
    for (int k = 0; k < detail::packed_size<N>; ++k)
        keep[k] = src[k];
    for (int k = 0; k < detail::packed_size<N>; ++k)
        m[k] = keep[k];
    return ok;
}

template <int N>
void iso_to_aniso(double h, double* m) noexcept
{
    const double l = h > 0.0 ? 1.0 / (h * h) : 0.0;
    for (int j = 0; j < N; ++j)
        for (int i = 0; i <= j; ++i)
            m[detail::packed_index(i, j)] = i == j ? l : 0.0;
}

} // namespace

// ------------------------------------------------------------------------------------ exported

bool is_valid_metric(const symmetric_fixed<double, 2>& M) noexcept
{
    return detail::is_valid2(M.data());
}

bool is_valid_metric(const symmetric_fixed<double, 3>& M) noexcept
{
    return detail::is_valid3(M.data());
}

bool eigen_pairs(const symmetric_fixed<double, 2>& M, vector_fixed<double, 2>& eigenvalues,
                 matrix_fixed<double, 2, 2>& eigenvectors) noexcept
{
    return decompose<2>(M.data(), eigenvalues.data(), eigenvectors.data());
}

bool eigen_pairs(const symmetric_fixed<double, 3>& M, vector_fixed<double, 3>& eigenvalues,
                 matrix_fixed<double, 3, 3>& eigenvectors) noexcept
{
    double w[3], z[9];
    const bool ok = detail::eigen_pairs3(M.data(), w, z);
    for (int k = 0; k < 3; ++k)
        eigenvalues[k] = w[k];
    for (int k = 0; k < 9; ++k)
        eigenvectors.data()[k] = z[k];
    return ok;
}

bool eigen_pairs(const symmetric_fixed<double, 2>& M1, const symmetric_fixed<double, 2>& M2,
                 vector_fixed<double, 2>& eigenvalues,
                 matrix_fixed<double, 2, 2>& eigenvectors) noexcept
{
    double w[2], z[4];
    const bool ok = detail::generalised_pairs2(M1.data(), M2.data(), w, z);
    for (int k = 0; k < 2; ++k)
        eigenvalues[k] = w[k];
    for (int k = 0; k < 4; ++k)
        eigenvectors.data()[k] = z[k];
    return ok;
}

bool eigen_pairs(const symmetric_fixed<double, 3>& M1, const symmetric_fixed<double, 3>& M2,
                 vector_fixed<double, 3>& eigenvalues,
                 matrix_fixed<double, 3, 3>& eigenvectors) noexcept
{
    double w[3], z[9];
    const bool ok = detail::generalised_pairs3(M1.data(), M2.data(), w, z);
    for (int k = 0; k < 3; ++k)
        eigenvalues[k] = w[k];
    for (int k = 0; k < 9; ++k)
        eigenvectors.data()[k] = z[k];
    return ok;
}

int bound_metric(symmetric_fixed<double, 2>& M, double hmin, double hmax) noexcept
{
    return detail::bound_metric<2>(M.data(), hmin, hmax);
}

int bound_metric(symmetric_fixed<double, 3>& M, double hmin, double hmax) noexcept
{
    return detail::bound_metric<3>(M.data(), hmin, hmax);
}

bool maximum_metric(const symmetric_fixed<double, 2>& M1, const symmetric_fixed<double, 2>& M2,
                    symmetric_fixed<double, 2>& M) noexcept
{
    return combine<2>(M1.data(), M2.data(), true, M.data());
}

bool maximum_metric(const symmetric_fixed<double, 3>& M1, const symmetric_fixed<double, 3>& M2,
                    symmetric_fixed<double, 3>& M) noexcept
{
    return combine<3>(M1.data(), M2.data(), true, M.data());
}

bool minimum_metric(const symmetric_fixed<double, 2>& M1, const symmetric_fixed<double, 2>& M2,
                    symmetric_fixed<double, 2>& M) noexcept
{
    return combine<2>(M1.data(), M2.data(), false, M.data());
}

bool minimum_metric(const symmetric_fixed<double, 3>& M1, const symmetric_fixed<double, 3>& M2,
                    symmetric_fixed<double, 3>& M) noexcept
{
    return combine<3>(M1.data(), M2.data(), false, M.data());
}

void metric_iso_to_aniso(double h, symmetric_fixed<double, 2>& M) noexcept
{
    iso_to_aniso<2>(h, M.data());
}

void metric_iso_to_aniso(double h, symmetric_fixed<double, 3>& M) noexcept
{
    iso_to_aniso<3>(h, M.data());
}

void metric_iso_to_aniso2d(double h, const matrix_fixed<double, 3, 2>& P,
                           symmetric_fixed<double, 2>& M) noexcept
{
    detail::iso_to_plane(h, P.data(), M.data());
}

void metric_aniso3d_to_aniso2d(const symmetric_fixed<double, 3>& M3,
                               const matrix_fixed<double, 3, 2>& P,
                               symmetric_fixed<double, 2>& M) noexcept
{
    detail::restrict_to_plane(M3.data(), P.data(), M.data());
}

} // namespace qx7::meshutil
