// Kernels on single metrics stored as raw packed values (never installed). 2-D metrics are
// (a, b, c) = (M11, M12, M22); 3-D metrics (M11, M12, M22, M13, M23, M33). Used by the metric
// primitives, the metric fields, the gradation and the anisotropic edge measures.
#pragma once

#include "quality/quality_private.h"

#include <cfloat>
#include <cmath>
#include <cstddef>
#include <meshutil/elements.h>

namespace qx7::meshutil::detail
{

// ------------------------------------------------------------------------------------ 2-D

/// Eigenvalues l1 <= l2 of the 2-D metric m in closed form, the smaller (or larger) one recomputed
/// as det / other when it is below 1e-12 times the other; false when one is not finite.
inline bool eigenvalues2(const double* m, double& l1, double& l2) noexcept
{
    const double a = m[0], b = m[1], c = m[2];
    const double det = a * c - b * b;
    const double disc = std::sqrt((a - c) * (a - c) + 4.0 * b * b);
    l1 = 0.5 * (a + c - disc);
    l2 = l1 + disc;
    if (std::fabs(l1) < 1e-12 * std::fabs(l2))
        l1 = det / l2;
    else if (std::fabs(l2) < 1e-12 * std::fabs(l1))
        l2 = det / l1;
    return std::isfinite(l1) && std::isfinite(l2);
}

/// Eigenvectors of the 2-D metric m given its smaller eigenvalue l1: v (column 0) for l1 and
/// (-v1, v0) (column 1) for the other, written column-major into z[4]; (1, 0) and (0, 1) for a
/// multiple of the identity; v is divided by its length when `normalise` is set.
inline void eigenvectors2(const double* m, double l1, bool normalise, double* z) noexcept
{
    const double a = m[0], b = m[1], c = m[2];
    const double da = l1 - a, dc = l1 - c;
    double x, y, n2;
    if (dc * dc <= da * da)
    {
        x = b;
        y = da;
        n2 = b * b + da * da;
    }
    else
    {
        x = dc;
        y = b;
        n2 = dc * dc + b * b;
    }
    if (n2 <= 1e-24 * std::max(a * a, c * c))
    {
        x = 1.0;
        y = 0.0;
    }
    else if (normalise)
    {
        const double n = std::sqrt(n2);
        x /= n;
        y /= n;
    }
    z[0] = x;
    z[1] = y;
    z[2] = -y;
    z[3] = x;
}

/// True when the smaller closed-form eigenvalue of the 2-D metric m is > 0.
inline bool is_valid2(const double* m) noexcept
{
    double l1, l2;
    eigenvalues2(m, l1, l2);
    return l1 > 0.0;
}

/// Generalised eigen-pairs of M2 v = l M1 v in 2-D (unit eigenvectors in z, column-major); false,
/// with w and z zeroed, when M11 == 0, det(M1) <= 0 or the reduced problem fails.
inline bool generalised_pairs2(const double* m1, const double* m2, double* w, double* z) noexcept
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

// ------------------------------------------------------------------------------------ 3-D

/// Eigenvalues of the 3-D metric m (ascending) through dspev without vectors; w is zeroed before
/// the call. Returns LAPACK's info.
inline long eigenvalues3(const double* m, double* w) noexcept
{
    double ap[6] = {m[0], m[1], m[2], m[3], m[4], m[5]};
    double work[9] = {};
    double z[1] = {0.0};
    long info = 0;
    w[0] = w[1] = w[2] = 0.0;
    lapack::dspev('N', 'U', 3, ap, w, z, 1, work, info);
    return info;
}

/// Eigenvalues (ascending) and orthonormal eigenvectors (z, column-major 3 x 3) of the 3-D metric
/// m through dspev; true when dspev succeeds.
inline bool eigen_pairs3(const double* m, double* w, double* z) noexcept
{
    double ap[6] = {m[0], m[1], m[2], m[3], m[4], m[5]};
    double work[9] = {};
    long info = 0;
    lapack::dspev('V', 'U', 3, ap, w, z, 3, work, info);
    return info == 0;
}

/// True when the smallest eigenvalue of the 3-D metric m (dspev, status not consulted) is > 0.
inline bool is_valid3(const double* m) noexcept
{
    double w[3];
    eigenvalues3(m, w);
    return w[0] > 0.0;
}

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

/// Generalised eigen-pairs of M2 v = l M1 v in 3-D (unit eigenvectors in z, column-major); false,
/// with w and z zeroed, when M1 is not positive definite or dspev fails.
inline bool generalised_pairs3(const double* m1, const double* m2, double* w, double* z) noexcept
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

// ------------------------------------------------------------------------------------ either

/// Number of packed values of an N-D metric.
template <int N>
inline constexpr int packed_size = N*(N + 1) / 2;

/// Validity of an N-D metric (N = 2 or 3).
template <int N>
inline bool is_valid(const double* m) noexcept
{
    if constexpr (N == 2)
        return is_valid2(m);
    else
        return is_valid3(m);
}

/// Generalised eigen-pairs of an N-D pair of metrics.
template <int N>
inline bool generalised_pairs(const double* m1, const double* m2, double* w, double* z) noexcept
{
    if constexpr (N == 2)
        return generalised_pairs2(m1, m2, w, z);
    else
        return generalised_pairs3(m1, m2, w, z);
}

/// Packed index of element (i, j), i <= j.
inline constexpr int packed_index(int i, int j) noexcept
{
    return i + j * (j + 1) / 2;
}

/// Inverse of the column-major N x N matrix a into b; false when its determinant is 0 or not
/// finite.
template <int N>
inline bool invert(const double* a, double* b) noexcept
{
    if constexpr (N == 2)
    {
        const double det = a[0] * a[3] - a[1] * a[2];
        if (det == 0.0 || !std::isfinite(det)) return false;
        const double r = 1.0 / det;
        b[0] = a[3] * r;
        b[1] = -a[1] * r;
        b[2] = -a[2] * r;
        b[3] = a[0] * r;
        return true;
    }
    else
    {
        // a(i, j) = a[i + 3 j]; b = adj(a) / det.
        const double c00 = a[4] * a[8] - a[5] * a[7];
        const double c01 = a[5] * a[6] - a[3] * a[8];
        const double c02 = a[3] * a[7] - a[4] * a[6];
        const double det = a[0] * c00 + a[1] * c01 + a[2] * c02;
        if (det == 0.0 || !std::isfinite(det)) return false;
        const double r = 1.0 / det;
        b[0] = c00 * r;
        b[3] = c01 * r;
        b[6] = c02 * r;
        b[1] = (a[2] * a[7] - a[1] * a[8]) * r;
        b[4] = (a[0] * a[8] - a[2] * a[6]) * r;
        b[7] = (a[1] * a[6] - a[0] * a[7]) * r;
        b[2] = (a[1] * a[5] - a[2] * a[4]) * r;
        b[5] = (a[2] * a[3] - a[0] * a[5]) * r;
        b[8] = (a[0] * a[4] - a[1] * a[3]) * r;
        return true;
    }
}

/// The packed metric Q^T diag(d) Q for the column-major N x N matrix Q: with Q = V^T (V holding
/// eigenvectors in columns) this rebuilds V diag(d) V^T; with Q = P^-1 it rebuilds the metric of
/// a simultaneous reduction.
template <int N>
inline void rebuild(const double* Q, const double* d, double* m) noexcept
{
    for (int j = 0; j < N; ++j)
        for (int i = 0; i <= j; ++i)
        {
            double s = 0.0;
            for (int k = 0; k < N; ++k)
                s += d[k] * Q[k + i * N] * Q[k + j * N];
            m[packed_index(i, j)] = s;
        }
}

/// Bounds the sizes of the packed N-D metric m to [hmin, hmax] (bound_metric, N = 2 or 3).
template <int N>
int bound_metric(double* m, double hmin, double hmax) noexcept;

/// Simultaneous reduction of two N-D metrics: P holds the unit generalised eigenvectors p_k of
/// (M1, M2) in columns, Pinv its inverse, d1[k] = p_k^T M1 p_k and d2[k] = p_k^T M2 p_k, so that
/// M1 = Pinv^T diag(d1) Pinv and M2 = Pinv^T diag(d2) Pinv.
template <int N>
struct reduction
{
    double P[N * N];
    double Pinv[N * N];
    double d1[N];
    double d2[N];
};

/// Reduces (M1, M2) simultaneously; on failure (no generalised pairs, singular P) every value of
/// r is zero and false is returned. True does not mean that the d values are positive.
template <int N>
inline bool reduce(const double* m1, const double* m2, reduction<N>& r) noexcept
{
    double w[N];
    bool ok = generalised_pairs<N>(m1, m2, w, r.P) && invert<N>(r.P, r.Pinv);
    if (ok)
        for (int k = 0; k < N; ++k)
        {
            r.d1[k] = metric_square<N>(m1, r.P + k * N);
            r.d2[k] = w[k] * r.d1[k];
        }
    else
    {
        for (int k = 0; k < N * N; ++k)
            r.P[k] = r.Pinv[k] = 0.0;
        for (int k = 0; k < N; ++k)
            r.d1[k] = r.d2[k] = 0.0;
    }
    return ok;
}

/// True when min d > 0 and max d < DBL_MAX over the N values (NaN fails).
template <int N>
inline bool positive_finite(const double* d) noexcept
{
    for (int k = 0; k < N; ++k)
        if (!(d[k] > 0.0) || !(d[k] < DBL_MAX)) return false;
    return true;
}

/// The 2-D metric (1/h^2) P^T P that the isotropic size h induces on the plane of the 3 x 2
/// column-major frame P; zero when h is not > 0 or 1/h^2 is 0.
inline void iso_to_plane(double h, const double* P, double* m) noexcept
{
    m[0] = m[1] = m[2] = 0.0;
    if (h <= 0.0) return;
    const double l = 1.0 / (h * h);
    if (l == 0.0) return;
    const double *p1 = P, *p2 = P + 3;
    m[0] = l * (p1[0] * p1[0] + p1[1] * p1[1] + p1[2] * p1[2]);
    m[1] = l * (p1[0] * p2[0] + p1[1] * p2[1] + p1[2] * p2[2]);
    m[2] = l * (p2[0] * p2[0] + p2[1] * p2[1] + p2[2] * p2[2]);
}

/// The 2-D metric P^T M3 P that the 3-D metric m3 induces on the plane of the 3 x 2 column-major
/// frame P (T = M3 P first, then P^T T).
inline void restrict_to_plane(const double* m3, const double* P, double* m) noexcept
{
    double T[6];
    for (int j = 0; j < 2; ++j)
    {
        const double* p = P + 3 * j;
        T[3 * j] = m3[0] * p[0] + m3[1] * p[1] + m3[3] * p[2];
        T[3 * j + 1] = m3[1] * p[0] + m3[2] * p[1] + m3[4] * p[2];
        T[3 * j + 2] = m3[3] * p[0] + m3[4] * p[1] + m3[5] * p[2];
    }
    m[0] = P[0] * T[0] + P[1] * T[1] + P[2] * T[2];
    m[1] = P[0] * T[3] + P[1] * T[4] + P[2] * T[5];
    m[2] = P[3] * T[3] + P[4] * T[4] + P[5] * T[5];
}

// ------------------------------------------------------------------------------------ elements

/// The local corner-to-corner edges of one linear shape: edge k joins local nodes nodes[k][0] and
/// nodes[k][1]. Surface shapes list their boundary edges in boundary order; solids list the edges
/// of their faces in the order faces and face sides are met, each edge once.
struct local_edges
{
    unsigned count;
    unsigned nodes[12][2];
};

/// The edges of a shape, derived from the local boundary tables (one source of truth): EL_EDGE2
/// and EL_EDGE3 give their end nodes, surface shapes their boundaries, solids the sides of their
/// faces without repetition. Any other type (mixed types included) gives 0 edges.
inline constexpr local_edges edges_of(element_type shape) noexcept
{
    local_edges e{0, {}};
    if (shape == EL_EDGE2 || shape == EL_EDGE3)
    {
        e.count = 1;
        e.nodes[0][0] = 0;
        e.nodes[0][1] = 1;
        return e;
    }
    const local_boundaries* b = boundaries_of(shape);
    if (!b) return e;
    const bool surface = b == &tria_boundaries || b == &quad_boundaries;
    for (unsigned f = 0; f < b->count; ++f)
    {
        const unsigned sides = surface ? 1 : b->size[f];
        for (unsigned k = 0; k < sides; ++k)
        {
            unsigned p = b->nodes[f][k];
            unsigned q = surface ? b->nodes[f][1] : b->nodes[f][(k + 1) % b->size[f]];
            bool known = false;
            for (unsigned m = 0; m < e.count; ++m)
                if ((e.nodes[m][0] == p && e.nodes[m][1] == q) ||
                    (e.nodes[m][0] == q && e.nodes[m][1] == p))
                    known = true;
            if (known) continue;
            e.nodes[e.count][0] = p;
            e.nodes[e.count][1] = q;
            ++e.count;
        }
    }
    return e;
}

} // namespace qx7::meshutil::detail
