// Operations on one metric: validity, eigen-pairs (plain and generalised), bounding of sizes,
// union and intersection, conversions from isotropic and from 3-D to 2-D.
#include "metrics/metrics_private.h"

#include <meshutil/metrics.h>

namespace qx7::meshutil
{

namespace detail
{

long eigenvalues3(const double* m, double* w) noexcept
{
    double ap[6] = {m[0], m[1], m[2], m[3], m[4], m[5]};
    double work[9] = {};
    double z[1] = {0.0};
    long info = 0;
    w[0] = w[1] = w[2] = 0.0;
    lapack::dspev('N', 'U', 3, ap, w, z, 1, work, info);
    return info;
}

bool eigen_pairs3(const double* m, double* w, double* z) noexcept
{
    double ap[6] = {m[0], m[1], m[2], m[3], m[4], m[5]};
    double work[9] = {};
    long info = 0;
    lapack::dspev('V', 'U', 3, ap, w, z, 3, work, info);
    return info == 0;
}

bool generalised_pairs2(const double* m1, const double* m2, double* w, double* z) noexcept
{
    w[0] = w[1] = 0.0;
    z[0] = z[1] = z[2] = z[3] = 0.0;
    const double a = m1[0], b = m1[1], c = m1[2];
    const double det = a * c - b * b;
    if (a == 0.0 || !(det > 0.0)) return false;
    // With F = [[s, -b], [0, a]], F^T M1 F = a det I, and F^T M2 F is the matrix n below.
    const double s = std::sqrt(det);
    const double p = m2[0], q = m2[1], r = m2[2];
    const double n[3] = {p * det, (a * q - b * p) * s, a * a * r - (2.0 * a * q - b * p) * b};
    double l1, l2, u[4];
    if (!eigenvalues2(n, l1, l2)) return false;
    eigenvectors2(n, l1, false, u);
    const double f = 1.0 / (det * a);
    w[0] = l1 * f;
    w[1] = l2 * f;
    for (int k = 0; k < 2; ++k)
    {
        const double x = u[2 * k], y = u[2 * k + 1];
        double vx = s * x - b * y, vy = a * y;
        const double len = std::sqrt(vx * vx + vy * vy);
        if (len != 0.0)
        {
            vx /= len;
            vy /= len;
        }
        z[2 * k] = vx;
        z[2 * k + 1] = vy;
    }
    return true;
}

namespace
{

/// Full 3 x 3 column-major matrix of a packed 3-D metric.
inline void unpack3(const double* m, double* A) noexcept
{
    A[0] = m[0];
    A[1] = A[3] = m[1];
    A[4] = m[2];
    A[2] = A[6] = m[3];
    A[5] = A[7] = m[4];
    A[8] = m[5];
}

/// Solves L x = b in place for the lower-triangular column-major L.
inline void forward3(const double* L, double* x) noexcept
{
    x[0] /= L[0];
    x[1] = (x[1] - L[1] * x[0]) / L[4];
    x[2] = (x[2] - L[2] * x[0] - L[5] * x[1]) / L[8];
}

/// Solves L^T x = b in place for the lower-triangular column-major L.
inline void backward3(const double* L, double* x) noexcept
{
    x[2] /= L[8];
    x[1] = (x[1] - L[5] * x[2]) / L[4];
    x[0] = (x[0] - L[1] * x[1] - L[2] * x[2]) / L[0];
}

} // namespace

bool generalised_pairs3(const double* m1, const double* m2, double* w, double* z) noexcept
{
    for (int k = 0; k < 3; ++k)
        w[k] = 0.0;
    for (int k = 0; k < 9; ++k)
        z[k] = 0.0;
    // Cholesky factor M1 = L L^T, failing on a pivot that is not > 0 (NaN included). Zero
    // off-diagonal terms need no care: they simply give zero entries of L.
    double L[9] = {};
    double r = m1[0];
    if (!(r > 0.0)) return false;
    L[0] = std::sqrt(r);
    L[1] = m1[1] / L[0];
    L[2] = m1[3] / L[0];
    r = m1[2] - L[1] * L[1];
    if (!(r > 0.0)) return false;
    L[4] = std::sqrt(r);
    L[5] = (m1[4] - L[2] * L[1]) / L[4];
    r = m1[5] - L[2] * L[2] - L[5] * L[5];
    if (!(r > 0.0)) return false;
    L[8] = std::sqrt(r);

    // C = L^-1 M2 L^-T: Y = L^-1 M2 column by column, then C = L^-1 Y^T.
    double B[9], Y[9];
    unpack3(m2, B);
    for (int j = 0; j < 3; ++j)
    {
        for (int i = 0; i < 3; ++i)
            Y[i + 3 * j] = B[i + 3 * j];
        forward3(L, Y + 3 * j);
    }
    double C[9];
    for (int j = 0; j < 3; ++j)
    {
        for (int i = 0; i < 3; ++i)
            C[i + 3 * j] = Y[j + 3 * i];
        forward3(L, C + 3 * j);
    }
    // Symmetrise while packing (round-off makes C slightly unsymmetric).
    const double ap[6] = {C[0], 0.5 * (C[3] + C[1]), C[4], 0.5 * (C[6] + C[2]), 0.5 * (C[7] + C[5]),
                          C[8]};
    double U[9];
    if (!eigen_pairs3(ap, w, U))
    {
        for (int k = 0; k < 3; ++k)
            w[k] = 0.0;
        return false;
    }
    for (int k = 0; k < 3; ++k)
    {
        double* v = z + 3 * k;
        for (int i = 0; i < 3; ++i)
            v[i] = U[i + 3 * k];
        backward3(L, v);
        const double len = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
        if (len != 0.0)
            for (int i = 0; i < 3; ++i)
                v[i] /= len;
    }
    return true;
}

} // namespace detail

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
