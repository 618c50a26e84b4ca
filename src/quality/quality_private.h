// Kernels of the quality family (never installed): per-element shape qualities, and per-edge
// lengths and shocks in a size field, the latter shared with the metric gradation.
//
// A size field is either one size h per node (isotropic) or one packed metric per node: 3 values
// M11, M12, M22 in 2-D, 6 values M11, M12, M22, M13, M23, M33 in 3-D. The size is taken to vary
// linearly along an edge, so the length of the edge in the field is its Euclidean length divided
// by the logarithmic mean of the sizes at its two ends.
#pragma once

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <meshutil/elements.h>

namespace qx7::meshutil::detail
{

/// Logarithmic mean (b - a) / ln(b / a) of two sizes, a = min(h1, h2), b = max(h1, h2).
/// With r = (b - a) / a, the closed form r / ln(1 + r) * a is used when a > 0 and r >= 0.1. Below
/// that it loses digits (ln(1 + r) of nearly equal sizes), and the series of r / ln(1 + r) to the
/// fourth order is used instead: with x = r / 2, a * (1 + x (1 - t)), t = x/3 (1 - x (1 - 19/15
/// x)); its truncation error at r = 0.1 is about 2e-7 relative. When a is not > 0, x is 0 and the
/// result is a (0 or negative: callers test mean > 0); a NaN size gives NaN.
inline double log_mean(double h1, double h2) noexcept
{
    const double a = std::min(h1, h2), b = std::max(h1, h2);
    const double r = (b - a) / a;
    if (a > 0.0 && r >= 0.1) return r / std::log(1.0 + r) * a;
    const double x = a > 0.0 ? 0.5 * r : 0.0;
    const double t = (x / 3.0) * (1.0 - x * (1.0 - 1.2666666666666666 * x));
    return a * (1.0 + x * (1.0 - t));
}

/// Squared Euclidean length of the DIM-vector e.
template <unsigned DIM>
inline double norm2(const double* e) noexcept
{
    double s = e[0] * e[0] + e[1] * e[1];
    if constexpr (DIM == 3) s += e[2] * e[2];
    return s;
}

/// Quadratic form eT M e of a packed DIM x DIM metric M (3 or 6 values).
template <unsigned DIM>
inline double metric_square(const double* M, const double* e) noexcept
{
    if constexpr (DIM == 2)
        return M[0] * e[0] * e[0] + 2.0 * M[1] * e[0] * e[1] + M[2] * e[1] * e[1];
    else
        return M[0] * e[0] * e[0] + M[2] * e[1] * e[1] + M[5] * e[2] * e[2] +
               2.0 * (M[1] * e[0] * e[1] + M[3] * e[0] * e[2] + M[4] * e[1] * e[2]);
}

/// Length in an isotropic size field of the edge xi -> xj (DIM coordinates each) with sizes hi,
/// hj at its ends: L = d / log_mean(hi, hj), d the Euclidean length, or 0 when the mean is not
/// > 0. li = d / hi and lj = d / hj receive the lengths in the two end sizes.
template <unsigned DIM>
inline double iso_edge_length(const double* xi, const double* xj, double hi, double hj, double& li,
                              double& lj) noexcept
{
    double e[DIM];
    for (unsigned k = 0; k < DIM; ++k)
        e[k] = xj[k] - xi[k];
    const double d = std::sqrt(norm2<DIM>(e));
    li = d / hi;
    lj = d / hj;
    const double mean = log_mean(hi, hj);
    return mean > 0.0 ? d / mean : 0.0;
}

/// Length of the edge vector e in the packed metrics Mi, Mj of its two ends:
/// L = li lj / log_mean(li, lj) with li = sqrt(eT Mi e), lj = sqrt(eT Mj e) (li and lj are
/// written); equivalently the Euclidean length over the logarithmic mean of the two directional
/// sizes |e| / li and |e| / lj. L is 0 when either quadratic form or the mean is not > 0.
template <unsigned DIM>
inline double metric_edge_length(const double* e, const double* Mi, const double* Mj, double& li,
                                 double& lj) noexcept
{
    const double qi = metric_square<DIM>(Mi, e), qj = metric_square<DIM>(Mj, e);
    li = std::sqrt(qi);
    lj = std::sqrt(qj);
    if (!(qi > 0.0) || !(qj > 0.0)) return 0.0;
    const double mean = log_mean(li, lj);
    return mean > 0.0 ? li * lj / mean : 0.0;
}

/// Size shock of an edge from its lengths li, lj in the sizes of its two ends and its length L in
/// the field: L == 0 gives 0 when the two ends have the same size (`same`) and DBL_MAX otherwise;
/// 0 < L < DBL_MAX gives pow(max(li, lj) / min(li, lj), 1 / L) - 1, the growth factor of the size
/// per unit of field length, minus one; a larger or NaN L gives 0. A result that is infinite or
/// NaN becomes DBL_MAX.
inline double shock_of_lengths(double li, double lj, double L, bool same) noexcept
{
    double s;
    if (L == 0.0)
        s = same ? 0.0 : DBL_MAX;
    else if (L < DBL_MAX)
        s = std::pow(std::max(li, lj) / std::min(li, lj), 1.0 / L) - 1.0;
    else
        s = 0.0;
    return std::isfinite(s) ? s : DBL_MAX;
}

/// Size shock of the edge xi -> xj in an isotropic field with sizes hi, hj at its ends.
template <unsigned DIM>
inline double iso_edge_shock(const double* xi, const double* xj, double hi, double hj) noexcept
{
    double li, lj;
    const double L = iso_edge_length<DIM>(xi, xj, hi, hj, li, lj);
    return shock_of_lengths(li, lj, L, hi == hj);
}

/// True when the two packed DIM x DIM metrics are equal value for value (NaN never equal).
template <unsigned DIM>
inline bool same_metric(const double* Mi, const double* Mj) noexcept
{
    constexpr unsigned n = DIM * (DIM + 1) / 2;
    for (unsigned k = 0; k < n; ++k)
        if (!(Mi[k] == Mj[k])) return false;
    return true;
}

/// Size shock of the edge xi -> xj in a field of packed metrics Mi, Mj at its ends.
template <unsigned DIM>
inline double aniso_edge_shock(const double* xi, const double* xj, const double* Mi,
                               const double* Mj) noexcept
{
    double e[DIM];
    for (unsigned k = 0; k < DIM; ++k)
        e[k] = xj[k] - xi[k];
    double li, lj;
    const double L = metric_edge_length<DIM>(e, Mi, Mj, li, lj);
    if (L == 0.0) return same_metric<DIM>(Mi, Mj) ? 0.0 : DBL_MAX;
    return shock_of_lengths(li, lj, L, false);
}

/// The element_type held in an int of a type vector; EL_UNKNOWN for a value outside 0 to 20.
inline element_type to_element_type(int t) noexcept
{
    return t >= 0 && t < static_cast<int>(nbr_element_types) ? static_cast<element_type>(t)
                                                             : EL_UNKNOWN;
}

// ------------------------------------------------------------------------------------ shapes
//
// Every kernel takes pointers to the coordinates of the element's nodes (2 values each for the
// planar kernels, 3 otherwise) and returns the quality: 1 for the ideal element, tending to 0
// as it flattens, negative when inverted (planar faces and solids).

/// Below this a quality counts as degenerate or inverted.
inline constexpr double q_degenerate = 1e-12;
/// Between q_degenerate and this, a quality is recomputed more carefully.
inline constexpr double q_doubtful = 1e-10;
/// Pyramid qualities below this (1e-12 x 24 sqrt(3)) are checked on the four sub-tetrahedra.
inline constexpr double q_pyram_doubtful = 4.1569219381653057e-11;

/// min(q, 1), then max(., -1).
inline double clamp_quality(double q) noexcept
{
    return std::max(std::min(q, 1.0), -1.0);
}

inline void sub3(const double* a, const double* b, double* d) noexcept
{
    d[0] = a[0] - b[0];
    d[1] = a[1] - b[1];
    d[2] = a[2] - b[2];
}
inline double dot3(const double* a, const double* b) noexcept
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}
inline void cross3(const double* a, const double* b, double* c) noexcept
{
    c[0] = a[1] * b[2] - a[2] * b[1];
    c[1] = a[2] * b[0] - a[0] * b[2];
    c[2] = a[0] * b[1] - a[1] * b[0];
}
/// det(a, b, c) = a . (b x c).
inline double det3(const double* a, const double* b, const double* c) noexcept
{
    double bc[3];
    cross3(b, c, bc);
    return dot3(a, bc);
}
/// Squared distance of two 3-D points.
inline double dist2_3(const double* a, const double* b) noexcept
{
    double d[3];
    sub3(a, b, d);
    return dot3(d, d);
}

/// Triangle quality, one pass: 2 sqrt(3) A2 / ((sum of edges) x (longest edge)) with A2 twice
/// the area, signed in the plane (positive counter-clockwise), unsigned in space; 0 for a triangle
/// without length.
template <unsigned DIM>
inline double tria_quality_once(const double* p0, const double* p1, const double* p2) noexcept
{
    double u[DIM], w[DIM], d[DIM];
    for (unsigned k = 0; k < DIM; ++k)
    {
        u[k] = p0[k] - p2[k];
        w[k] = p1[k] - p2[k];
        d[k] = u[k] - w[k];
    }
    const double uu = norm2<DIM>(u), ww = norm2<DIM>(w);
    const double lu = std::sqrt(uu), lw = std::sqrt(ww), ld = std::sqrt(norm2<DIM>(d));
    const double D = (lu + lw + ld) * std::max(std::max(lu, lw), ld);
    double A2;
    if constexpr (DIM == 2)
        A2 = u[0] * w[1] - u[1] * w[0];
    else
    {
        const double uw = u[0] * w[0] + u[1] * w[1] + u[2] * w[2];
        A2 = std::sqrt(std::max(0.0, uu * ww - uw * uw));
    }
    const double q = D > 0.0 ? 3.4641016151377544 * A2 / D : 0.0;
    return clamp_quality(q);
}

/// Triangle quality; a value between q_degenerate and q_doubtful is recomputed with each node as
/// the origin in turn, keeping the smallest.
template <unsigned DIM>
inline double tria_quality(const double* p0, const double* p1, const double* p2) noexcept
{
    double q = tria_quality_once<DIM>(p0, p1, p2);
    if (q > q_degenerate && q < q_doubtful)
    {
        q = std::min(q, tria_quality_once<DIM>(p1, p2, p0));
        if (q > q_degenerate) q = std::min(q, tria_quality_once<DIM>(p2, p0, p1));
    }
    return q;
}

/// Planar quadrangle quality: 4 sqrt(2) (smallest corner cross product) / (max(longest diagonal,
/// longest edge) x perimeter), negative when a corner turns clockwise.
inline double quad_quality_2d(const double* const P[4]) noexcept
{
    double e[4][2], L[4];
    for (unsigned i = 0; i < 4; ++i)
    {
        const double* a = P[i];
        const double* b = P[(i + 1) & 3];
        e[i][0] = b[0] - a[0];
        e[i][1] = b[1] - a[1];
        L[i] = std::sqrt(e[i][0] * e[i][0] + e[i][1] * e[i][1]);
    }
    double cmin = e[3][0] * e[0][1] - e[3][1] * e[0][0];
    for (unsigned i = 1; i < 4; ++i)
        cmin = std::min(cmin, e[i - 1][0] * e[i][1] - e[i - 1][1] * e[i][0]);
    const double g0[2] = {P[2][0] - P[0][0], P[2][1] - P[0][1]};
    const double g1[2] = {P[3][0] - P[1][0], P[3][1] - P[1][1]};
    const double d =
        std::sqrt(std::max(g0[0] * g0[0] + g0[1] * g0[1], g1[0] * g1[0] + g1[1] * g1[1]));
    const double den = std::max(d, std::max(std::max(L[0], L[1]), std::max(L[2], L[3]))) *
                       (L[0] + L[1] + L[2] + L[3]);
    return den > 0.0 ? clamp_quality(5.656854249492381 * cmin / den) : 0.0;
}

/// Spatial quadrangle quality in [0, 1]: the planar measure with the shortest corner normal in
/// place of the smallest cross product, times the warp factor max(0, 1 - acos(c) / pi), c the
/// larger cosine between the normals at opposite corners (0 when a corner normal vanishes).
inline double quad_quality_3d(const double* const P[4]) noexcept
{
    double e[4][3], L[4], n[4][3], ln[4];
    for (unsigned i = 0; i < 4; ++i)
    {
        sub3(P[(i + 1) & 3], P[i], e[i]);
        L[i] = std::sqrt(dot3(e[i], e[i]));
    }
    for (unsigned i = 0; i < 4; ++i)
    {
        cross3(e[(i + 3) & 3], e[i], n[i]);
        ln[i] = std::sqrt(dot3(n[i], n[i]));
    }
    const double m = std::min(std::min(ln[0], ln[1]), std::min(ln[2], ln[3]));
    const double d = std::sqrt(std::max(dist2_3(P[2], P[0]), dist2_3(P[3], P[1])));
    const double den = std::max(d, std::max(std::max(L[0], L[1]), std::max(L[2], L[3]))) *
                       (L[0] + L[1] + L[2] + L[3]);
    const double q0 = den > 0.0 ? 5.656854249492381 * m / den : 0.0;
    double W = 0.0;
    if (m > 0.0)
    {
        const double c02 = dot3(n[0], n[2]) / (ln[0] * ln[2]);
        const double c13 = dot3(n[1], n[3]) / (ln[1] * ln[3]);
        const double c = clamp_quality(std::max(c02, c13));
        W = std::max(0.0, 1.0 - std::acos(c) * 0.3183098861837907);
    }
    return std::max(std::min(q0 * W, 1.0), 0.0);
}

/// Tetrahedron quality, one pass: 2 sqrt(6) det(P0-P3, P1-P3, P2-P3) / (longest edge x sum of
/// the doubled face areas), all lengths and areas taken from the dot products of the three edge
/// vectors at P3. `suspect` is set when round-off made a squared edge or area negative.
inline double tetra_quality_once(const double* p0, const double* p1, const double* p2,
                                 const double* p3, bool& suspect) noexcept
{
    double a[3], b[3], c[3];
    sub3(p0, p3, a);
    sub3(p1, p3, b);
    sub3(p2, p3, c);
    const double aa = dot3(a, a), bb = dot3(b, b), cc = dot3(c, c);
    const double ab = dot3(a, b), ac = dot3(a, c), bc = dot3(b, c);
    double e[6] = {aa, bb, cc, aa + bb - 2.0 * ab, aa + cc - 2.0 * ac, bb + cc - 2.0 * bc};
    const double abac = aa - ab - ac + bc;
    double f[4] = {aa * bb - ab * ab, aa * cc - ac * ac, bb * cc - bc * bc,
                   e[3] * e[4] - abac * abac};
    for (unsigned i = 3; i < 6; ++i)
        if (e[i] < 0.0)
        {
            e[i] = 0.0;
            suspect = true;
        }
    for (double& fi : f)
        if (fi < 0.0)
        {
            fi = 0.0;
            suspect = true;
        }
    const double L = std::sqrt(
        std::max(std::max(std::max(e[0], e[1]), std::max(e[2], e[3])), std::max(e[4], e[5])));
    const double S = std::sqrt(f[0]) + std::sqrt(f[1]) + std::sqrt(f[2]) + std::sqrt(f[3]);
    const double LS = L * S;
    return LS > 0.0 ? clamp_quality(4.898979485566356 * det3(a, b, c) / LS) : 0.0;
}

/// The eleven even orderings of (0, 1, 2, 3) other than the identity, k = 1..11: rotate the four
/// left by k / 3, then the last three left by k % 3, and swap the second and third when k / 3 is
/// odd.
struct tetra_orderings
{
    unsigned order[11][4];
    constexpr tetra_orderings() : order{}
    {
        for (unsigned k = 1; k < 12; ++k)
        {
            const unsigned r = k / 3, s = k % 3;
            unsigned v[4] = {}, w[4] = {};
            for (unsigned i = 0; i < 4; ++i)
                v[i] = (i + r) & 3;
            w[0] = v[0];
            for (unsigned i = 0; i < 3; ++i)
                w[1 + i] = v[1 + (i + s) % 3];
            if (r & 1)
            {
                const unsigned t = w[1];
                w[1] = w[2];
                w[2] = t;
            }
            for (unsigned i = 0; i < 4; ++i)
                order[k - 1][i] = w[i];
        }
    }
};
inline constexpr tetra_orderings tetra_even_orderings{};

/// Tetrahedron quality, positive when det(P0-P3, P1-P3, P2-P3) > 0. A doubtful value (suspect,
/// or between q_degenerate and q_doubtful) is recomputed over the eleven other even orderings of
/// the nodes, keeping the smallest and stopping once it is at most q_degenerate.
inline double tetra_quality(const double* p0, const double* p1, const double* p2,
                            const double* p3) noexcept
{
    bool suspect = false;
    double q = tetra_quality_once(p0, p1, p2, p3, suspect);
    if ((!suspect && q >= q_doubtful) || q <= q_degenerate) return q;
    const double* P[4] = {p0, p1, p2, p3};
    for (const auto& o : tetra_even_orderings.order)
    {
        bool ignored = false;
        q = std::min(q, tetra_quality_once(P[o[0]], P[o[1]], P[o[2]], P[o[3]], ignored));
        if (q <= q_degenerate) break;
    }
    return q;
}

/// The corner geometry of a quadrangle P[0..3]: edges e[k] = P[k+1] - P[k], corner normals
/// n[k] = e[k-1] x e[k] (the normal of triangle (k-1, k, k+1)) and their squared lengths l2[k].
struct quad_corners
{
    double e[4][3], n[4][3], l2[4];

    explicit quad_corners(const double* const P[4]) noexcept
    {
        for (unsigned k = 0; k < 4; ++k)
            sub3(P[(k + 1) & 3], P[k], e[k]);
        for (unsigned k = 0; k < 4; ++k)
        {
            cross3(e[(k + 3) & 3], e[k], n[k]);
            l2[k] = dot3(n[k], n[k]);
        }
    }
};

/// The two parts of the value of a pyramid with base Q (corner geometry of P[0..3]) and apex X,
/// given the base nodes relative to the apex, A[i] = P[i] - X, and their squared lengths S[i]:
/// V, the smallest of the four volumes (x6) that the base diagonals cut off with the apex, and
/// E = 2 (squared base edges) + (squared apex edges). The volume of the tetrahedron of apex X on
/// triangle (k-1, k, k+1) is n[k] . (X - P[k]) = -n[k] . A[k].
inline void pyram_parts(const quad_corners& Q, const double* const A[4], const double* S, double& V,
                        double& E) noexcept
{
    V = -dot3(Q.n[0], A[0]);
    V = std::min(V, -dot3(Q.n[2], A[2]));
    V = std::min(V, -dot3(Q.n[3], A[3]));
    V = std::min(V, -dot3(Q.n[1], A[1]));
    double base = 0.0, side = 0.0;
    for (unsigned k = 0; k < 4; ++k)
    {
        base += dot3(Q.e[k], Q.e[k]);
        side += S[k];
    }
    E = 2.0 * base + side;
}

/// Pyramid value from its parts: 24 sqrt(6) V / E^(3/2), clamped, 0 when E is not > 0.
inline double pyram_value(double V, double E) noexcept
{
    return E > 0.0 ? clamp_quality(58.78775382679627 * V / (E * std::sqrt(E))) : 0.0;
}

/// The pyramid parts of P[0..3] with apex P[4], from scratch.
inline void pyram_parts(const double* const P[5], const quad_corners& Q, double& V,
                        double& E) noexcept
{
    double a[4][3], S[4];
    for (unsigned i = 0; i < 4; ++i)
    {
        sub3(P[i], P[4], a[i]);
        S[i] = dot3(a[i], a[i]);
    }
    const double* A[4] = {a[0], a[1], a[2], a[3]};
    pyram_parts(Q, A, S, V, E);
}

/// Pyramid value before any correction: positive when the base turns counter-clockwise seen
/// from the apex, 1 for the pyramid with equal edges.
inline double pyram_value(const double* const P[5]) noexcept
{
    const quad_corners Q(P);
    double V, E;
    pyram_parts(P, Q, V, E);
    return pyram_value(V, E);
}

/// True when the pyramid value of the parts V, E is surely above 2 q_pyram_doubtful, told
/// without a root or a division: (K V)^2 > (2 q_pyram_doubtful)^2 E^3 with E kept in a range
/// where E^3 is a normal double. The factor 2 leaves a wide margin over round-off, so that a
/// true answer never contradicts pyram_value.
inline bool pyram_surely_fine(double V, double E) noexcept
{
    const double KV = 58.78775382679627 * V;
    return (V > 0.0) & (E >= 1e-90) & (E <= 1e90) & (KV * KV > 6.912e-21 * (E * E * E));
}

/// Smallest tetrahedron quality of (P[i], P[i+2], P[i+1], apex), i = 0..3 (base indices mod 4),
/// stopping once it is at most q_degenerate.
inline double pyram_subtetra_min(const double* const P[5]) noexcept
{
    double t = tetra_quality(P[0], P[2], P[1], P[4]);
    for (unsigned i = 1; i < 4 && t > q_degenerate; ++i)
        t = std::min(t, tetra_quality(P[i], P[(i + 2) & 3], P[(i + 1) & 3], P[4]));
    return t;
}

/// c |c| for the cosine c between vectors a and b of squared lengths la, lb > 0: monotone in c,
/// and free of roots while la lb is a normal double.
inline double signed_square_cosine(const double* a, const double* b, double la, double lb) noexcept
{
    const double d = dot3(a, b), p = la * lb;
    if (p >= DBL_MIN && p <= DBL_MAX) return d * std::fabs(d) / p;
    const double c = d / (std::sqrt(la) * std::sqrt(lb));
    return c * std::fabs(c);
}

/// The cosine whose signed square is r.
inline double cosine_of_signed_square(double r) noexcept
{
    return r >= 0.0 ? std::sqrt(r) : -std::sqrt(-r);
}

/// Warp measure of a quadrangle in space: c |c|, c the larger of the cosines between the
/// normals of the two triangles of each diagonal split, clamped to [-1, 1]. The triangles of the
/// split along 0-2 have the corner normals at nodes 1 and 3, those of the split along 1-3 the
/// corner normals at 2 and 0. `flat` is set (and 0 returned) when one of the four normals has
/// zero length (no tolerance).
inline double quad_warp_measure(const quad_corners& Q, bool& flat) noexcept
{
    flat = !(Q.l2[0] > 0.0) || !(Q.l2[1] > 0.0) || !(Q.l2[2] > 0.0) || !(Q.l2[3] > 0.0);
    if (flat) return 0.0;
    const double r = std::max(signed_square_cosine(Q.n[1], Q.n[3], Q.l2[1], Q.l2[3]),
                              signed_square_cosine(Q.n[0], Q.n[2], Q.l2[0], Q.l2[2]));
    return clamp_quality(r);
}

/// Warp factor of a warp measure r = c |c|: max(0, asin(c) / pi + 0.5), growing with c from 0
/// (c = -1) through 0.5 (c = 0) to 1 (a planar convex quadrangle, c = 1).
inline double warp_factor(double r) noexcept
{
    return std::max(0.0, std::asin(cosine_of_signed_square(r)) * 0.3183098861837907 + 0.5);
}

/// Pyramid quality (base P[0..3], apex P[4]). A value in (q_degenerate, q_pyram_doubtful) is
/// checked on the four sub-tetrahedra, whose minimum wins when degenerate; in space the value is
/// then multiplied by the warp factor of the base (0 when a base corner normal vanishes).
inline double pyram_quality(const double* const P[5], bool spatial) noexcept
{
    const quad_corners Q(P);
    double V, E;
    pyram_parts(P, Q, V, E);
    const double q = pyram_value(V, E);
    if (q <= q_degenerate) return q;
    if (q < q_pyram_doubtful)
    {
        const double t = pyram_subtetra_min(P);
        if (t < q_degenerate) return t;
    }
    if (!spatial) return q;
    bool flat;
    const double r = quad_warp_measure(Q, flat);
    return flat ? 0.0 : q * warp_factor(r);
}

/// Face check of a prism or hexahedron P[0..n) with q > q_degenerate, against its centroid C,
/// given A[i] = P[i] - C and S[i] = |A[i]|^2. Each face (in table order, until the smallest face
/// value is at most q_degenerate) forms with C a tetrahedron (a triangle, whose quality is negated
/// since the faces turn inwards) or a pyramid (a quadrangle, valued as a pyramid times its base
/// warp factor, or with warp 0 when degenerate). q is multiplied by the smallest warp factor, and
/// replaced by the smallest face value when that is degenerate.
/// A face with warp measure r >= 0 and pyramid value qf > 2 q_degenerate (and not below
/// q_pyram_doubtful) has a warp factor of at least 0.5 and a face value above q_degenerate: its
/// exact value cannot change the result, and since the factor grows with r, the smallest factor
/// of such faces is taken once from their smallest r. In the common case (pyram_surely_fine) qf
/// itself is not even computed. This spares an asin, a root and a division per face.
inline double face_check(double q, const double* const* P, const double* const* A, const double* S,
                         const local_boundaries& faces, const double* C, bool spatial) noexcept
{
    double min_face = 1.0, min_warp = 1.0, min_r = 2.0;
    for (unsigned f = 0; f < faces.count && min_face > q_degenerate; ++f)
    {
        const unsigned* v = faces.nodes[f];
        if (faces.size[f] == 3)
        {
            min_face = std::min(min_face, -tetra_quality(P[v[0]], P[v[1]], P[v[2]], C));
            continue;
        }
        const double* B[5] = {P[v[0]], P[v[1]], P[v[2]], P[v[3]], C};
        const double* BA[4] = {A[v[0]], A[v[1]], A[v[2]], A[v[3]]};
        const double BS[4] = {S[v[0]], S[v[1]], S[v[2]], S[v[3]]};
        const quad_corners Q(B);
        double V, E;
        pyram_parts(Q, BA, BS, V, E);
        bool flat = true;
        double r = 0.0;
        if (spatial) r = quad_warp_measure(Q, flat);
        if (spatial && !flat && r >= 0.0 && pyram_surely_fine(V, E))
        {
            min_r = std::min(min_r, r); // the common case
            continue;
        }
        const double qf = pyram_value(V, E);
        double value, t, warp = 0.0;
        if (qf <= q_degenerate)
            value = qf;
        else if (qf < q_pyram_doubtful && (t = pyram_subtetra_min(B)) < q_degenerate)
            value = t;
        else if (!spatial)
            value = qf, warp = 1.0;
        else if (!flat && r >= 0.0 && 0.5 * qf > q_degenerate)
        {
            min_r = std::min(min_r, r);
            value = 0.5 * qf; // a lower bound above q_degenerate
            warp = 1.0;       // accounted for through min_r
        }
        else
        {
            warp = flat ? 0.0 : warp_factor(r);
            value = qf * warp;
        }
        min_face = std::min(min_face, value);
        min_warp = std::min(min_warp, warp);
    }
    if (min_r <= 1.0) min_warp = std::min(min_warp, warp_factor(min_r));
    q *= min_warp;
    return min_face < q_degenerate ? min_face : q;
}

/// Quality of an N-gon extruded into a solid (prism N = 3, hexahedron N = 4; bottom P[0..N),
/// top P[N..2N), P[i+N] above P[i]): K V / E^(3/2), V the smallest corner triple product
/// det(P[a] - P[i], P[b] - P[i], P[c] - P[i]) with (a, b, c) = corner[i], E the sum of the
/// squared edges (bottom, top, vertical), clamped; then the face check against the centroid.
template <unsigned N>
inline double extruded_quality(const double* const P[2 * N], const unsigned (*corner)[3], double K,
                               const local_boundaries& faces, bool spatial) noexcept
{
    double V = DBL_MAX;
    for (unsigned i = 0; i < 2 * N; ++i)
    {
        double a[3], b[3], c[3];
        sub3(P[corner[i][0]], P[i], a);
        sub3(P[corner[i][1]], P[i], b);
        sub3(P[corner[i][2]], P[i], c);
        V = std::min(V, det3(a, b, c));
    }
    double E = 0.0;
    for (unsigned i = 0; i < N; ++i)
        E += dist2_3(P[(i + 1) % N], P[i]) + dist2_3(P[N + (i + 1) % N], P[N + i]) +
             dist2_3(P[i + N], P[i]);
    const double E32 = E * std::sqrt(E);
    double q = E32 > 0.0 ? clamp_quality(K * V / E32) : 0.0;
    if (q > q_degenerate)
    {
        double C[3] = {0, 0, 0};
        for (unsigned i = 0; i < 2 * N; ++i)
            for (unsigned k = 0; k < 3; ++k)
                C[k] += P[i][k];
        for (double& c : C)
            c /= 2 * N;
        double a[2 * N][3], S[2 * N];
        const double* A[2 * N];
        for (unsigned i = 0; i < 2 * N; ++i)
        {
            sub3(P[i], C, a[i]);
            S[i] = dot3(a[i], a[i]);
            A[i] = a[i];
        }
        q = face_check(q, P, A, S, faces, C, spatial);
    }
    return q;
}

/// Prism quality (bottom P[0..2], top P[3..5], P[i+3] above P[i]): 18 sqrt(3) V / E^(3/2) and
/// the face check (two triangles, then three quadrangles).
inline double penta_quality(const double* const P[6], bool spatial) noexcept
{
    // Bottom corner i: next, previous, above; top corner: previous, next, below.
    static constexpr unsigned corner[6][3] = {{1, 2, 3}, {2, 0, 4}, {0, 1, 5},
                                              {5, 4, 0}, {3, 5, 1}, {4, 3, 2}};
    return extruded_quality<3>(P, corner, 31.17691453623979, penta_boundaries, spatial);
}

/// Corners of the hexahedron: corner i with its three neighbours (a, b, c), det(P[a] - P[i],
/// P[b] - P[i], P[c] - P[i]) > 0 for a valid element.
inline constexpr unsigned hexa_corners[8][3] = {{1, 3, 4}, {2, 0, 5}, {3, 1, 6}, {0, 2, 7},
                                                {7, 5, 0}, {4, 6, 1}, {5, 7, 2}, {6, 4, 3}};

/// Where the face check of a hexahedron finds its face corner normals. At hexahedron corner i,
/// with edge vectors u[m] = P[hexa_corners[i][m]] - P[i], the three cross products are
/// X[0] = u[1] x u[2], X[1] = u[2] x u[0], X[2] = u[0] x u[1]. The corner normal of face f at its
/// node k, e[k-1] x e[k] = u[next] x u[prev], is sign x X[m] at corner node; next is the edge to
/// the face's following node.
struct hexa_face_map
{
    unsigned node[6][4], m[6][4], next[6][4];
    double sign[6][4];
    constexpr hexa_face_map() : node{}, m{}, next{}, sign{}
    {
        for (unsigned f = 0; f < 6; ++f)
            for (unsigned k = 0; k < 4; ++k)
            {
                const unsigned i = hexa_boundaries.nodes[f][k];
                const unsigned nx = hexa_boundaries.nodes[f][(k + 1) & 3];
                const unsigned pv = hexa_boundaries.nodes[f][(k + 3) & 3];
                unsigned p = 0, q = 0;
                for (unsigned j = 0; j < 3; ++j)
                {
                    if (hexa_corners[i][j] == nx) p = j;
                    if (hexa_corners[i][j] == pv) q = j;
                }
                node[f][k] = i;
                m[f][k] = 3 - p - q;
                next[f][k] = p;
                sign[f][k] = q == (p + 1) % 3 ? 1.0 : -1.0;
            }
    }
};
inline constexpr hexa_face_map hexa_faces{};

/// The twelve edges of the hexahedron, numbered from the corner table: edge k runs from node
/// from[k] to node to[k] > from[k]. The edge vector u[m] = P[hexa_corners[i][m]] - P[i] of
/// corner i is sign[i][m] times the vector of edge edge[i][m] (its exact negation when the edge
/// runs the other way).
struct hexa_corner_edge_map
{
    unsigned from[12], to[12], edge[8][3];
    double sign[8][3];
    constexpr hexa_corner_edge_map() : from{}, to{}, edge{}, sign{}
    {
        unsigned count = 0;
        for (unsigned i = 0; i < 8; ++i)
            for (unsigned m = 0; m < 3; ++m)
                if (hexa_corners[i][m] > i)
                {
                    from[count] = i;
                    to[count] = hexa_corners[i][m];
                    ++count;
                }
        for (unsigned i = 0; i < 8; ++i)
            for (unsigned m = 0; m < 3; ++m)
                for (unsigned k = 0; k < 12; ++k)
                {
                    const unsigned j = hexa_corners[i][m];
                    if ((from[k] == i && to[k] == j) || (from[k] == j && to[k] == i))
                    {
                        edge[i][m] = k;
                        sign[i][m] = from[k] == i ? 1.0 : -1.0;
                    }
                }
    }
    /// True when every corner edge was found among the twelve edges.
    constexpr bool complete() const noexcept
    {
        for (unsigned i = 0; i < 8; ++i)
            for (unsigned m = 0; m < 3; ++m)
                if (sign[i][m] == 0.0) return false;
        return true;
    }
};
inline constexpr hexa_corner_edge_map hexa_corner_edges{};
static_assert(hexa_corner_edges.complete(), "every corner edge is one of the twelve edges");

/// Number of hexahedra the batched kernel computes side by side.
inline constexpr unsigned hexa_batch = 8;

/// The nodes of B hexahedra side by side (node i of lane b at x[i][b], y[i][b], z[i][b]) and the
/// outcome of hexa_quality_lanes for each lane: V[b], E[b] and r[b].
template <unsigned B>
struct hexa_lanes
{
    double x[8][B], y[8][B], z[8][B];
    double V[B], E[B], r[B];
};

/// Hexahedron qualities in space of the B lanes of H, one element per lane, in a loop over the
/// lanes without a branch, which the compiler turns into vector instructions working on several
/// elements at once. Per element: the twelve edge vectors, which give the three edge vectors of
/// each corner up to an exact sign change; at each corner the cross products of these, that is
/// the corner triple product and the corner normals of the three faces there (the normal of
/// face f at its node k, e[k-1] x e[k], is one of them up to an exact sign change); and the dot
/// products that the face check needs. Every value is the one that extruded_quality and
/// face_check compute, operation for operation, so the outcome is theirs (hexa_lane_quality):
/// V[b] and E[b] are the parts of the element value; r[b] >= 0 when every face is in the common
/// case of face_check, r[b] being then the smallest warp measure; r[b] < 0 otherwise. The root
/// and the division of the value are left to hexa_value: a root with its error handling would
/// put a branch in the loop. The inner loops are unrolled, so that every table index is a
/// constant and the body is straight code; tests are combined with a bitwise and.
template <unsigned B>
[[gnu::always_inline]] inline void hexa_quality_lanes(hexa_lanes<B>& H) noexcept
{
    for (unsigned b = 0; b < B; ++b)
    {
        double px[8], py[8], pz[8];
#pragma GCC unroll 8
        for (unsigned i = 0; i < 8; ++i)
            px[i] = H.x[i][b], py[i] = H.y[i][b], pz[i] = H.z[i][b];
        double cx = 0.0, cy = 0.0, cz = 0.0;
#pragma GCC unroll 8
        for (unsigned i = 0; i < 8; ++i)
            cx += px[i], cy += py[i], cz += pz[i];
        cx /= 8, cy /= 8, cz /= 8;
        // The twelve edge vectors and their squared lengths.
        double ex[12], ey[12], ez[12], N2[12];
#pragma GCC unroll 12
        for (unsigned k = 0; k < 12; ++k)
        {
            const unsigned i = hexa_corner_edges.from[k], j = hexa_corner_edges.to[k];
            ex[k] = px[j] - px[i], ey[k] = py[j] - py[i], ez[k] = pz[j] - pz[i];
            N2[k] = ex[k] * ex[k] + ey[k] * ey[k] + ez[k] * ez[k];
        }
        double det[8], S[8], L2[3][8], D[3][8], X[3][3][8];
#pragma GCC unroll 8
        for (unsigned i = 0; i < 8; ++i)
        {
            double vx[3], vy[3], vz[3];
#pragma GCC unroll 8
            for (unsigned m = 0; m < 3; ++m)
            {
                const unsigned k = hexa_corner_edges.edge[i][m];
                const double sign = hexa_corner_edges.sign[i][m];
                vx[m] = sign * ex[k], vy[m] = sign * ey[k], vz[m] = sign * ez[k];
            }
            const double ax = px[i] - cx, ay = py[i] - cy, az = pz[i] - cz;
            S[i] = ax * ax + ay * ay + az * az;
#pragma GCC unroll 8
            for (unsigned m = 0; m < 3; ++m)
            {
                const unsigned u = (m + 1) % 3, w = (m + 2) % 3;
                const double x = vy[u] * vz[w] - vz[u] * vy[w];
                const double y = vz[u] * vx[w] - vx[u] * vz[w];
                const double z = vx[u] * vy[w] - vy[u] * vx[w];
                X[m][0][i] = x, X[m][1][i] = y, X[m][2][i] = z;
                L2[m][i] = x * x + y * y + z * z;
                D[m][i] = x * ax + y * ay + z * az;
            }
            det[i] = vx[0] * X[0][0][i] + vy[0] * X[0][1][i] + vz[0] * X[0][2][i];
        }
        // The element value, as extruded_quality computes it.
        double V = DBL_MAX;
#pragma GCC unroll 8
        for (unsigned i = 0; i < 8; ++i)
            V = std::min(V, det[i]);
        double E = 0.0;
#pragma GCC unroll 8
        for (unsigned i = 0; i < 4; ++i)
            E += N2[hexa_corner_edges.edge[i][0]] + N2[hexa_corner_edges.edge[4 + i][1]] +
                 N2[hexa_corner_edges.edge[i][2]];
        // The faces as face_check sees them: pyramid parts with the centroid as apex, and the
        // warp measure.
        bool common = true;
        double min_r = 2.0;
#pragma GCC unroll 8
        for (unsigned f = 0; f < 6; ++f)
        {
            const unsigned* n = hexa_faces.node[f];
            const unsigned* m = hexa_faces.m[f];
            const double* s = hexa_faces.sign[f];
            double l2[4], base = 0.0, side = 0.0;
#pragma GCC unroll 8
            for (unsigned k = 0; k < 4; ++k)
            {
                l2[k] = L2[m[k]][n[k]];
                base += N2[hexa_corner_edges.edge[n[k]][hexa_faces.next[f][k]]];
                side += S[n[k]];
            }
            double Vf = -(s[0] * D[m[0]][n[0]]);
            Vf = std::min(Vf, -(s[2] * D[m[2]][n[2]]));
            Vf = std::min(Vf, -(s[3] * D[m[3]][n[3]]));
            Vf = std::min(Vf, -(s[1] * D[m[1]][n[1]]));
            const double Ef = 2.0 * base + side;
            const double Lf = std::min(std::min(l2[0], l2[1]), std::min(l2[2], l2[3]));
            // Cosine parts between the corner normals at nodes 1 and 3, and at 0 and 2.
            double d13 = X[m[1]][0][n[1]] * X[m[3]][0][n[3]];
            double d02 = X[m[0]][0][n[0]] * X[m[2]][0][n[2]];
#pragma GCC unroll 8
            for (unsigned c = 1; c < 3; ++c)
            {
                d13 += X[m[1]][c][n[1]] * X[m[3]][c][n[3]];
                d02 += X[m[0]][c][n[0]] * X[m[2]][c][n[2]];
            }
            d13 *= s[1] * s[3], d02 *= s[0] * s[2];
            const double p13 = l2[1] * l2[3], p02 = l2[0] * l2[2];
            const double R = std::max(d13 * std::fabs(d13) / p13, d02 * std::fabs(d02) / p02);
            // R >= 0 tells as much as its clamped value would.
            const double pmin = std::min(p13, p02), pmax = std::max(p13, p02);
            const bool fine = pyram_surely_fine(Vf, Ef);
            common =
                common & fine & (Lf > 0.0) & (pmin >= DBL_MIN) & (pmax <= DBL_MAX) & (R >= 0.0);
            min_r = std::min(min_r, clamp_quality(R));
        }
        H.V[b] = V;
        H.E[b] = E;
        H.r[b] = common ? min_r : -1.0;
    }
}

/// The value 24 sqrt(3) V / E^(3/2) of a hexahedron from its smallest corner triple product V and
/// its sum of squared edges E, clamped; 0 when E^(3/2) is not > 0.
inline double hexa_value(double V, double E) noexcept
{
    const double E32 = E * std::sqrt(E);
    return E32 > 0.0 ? clamp_quality(41.569219381653056 * V / E32) : 0.0;
}

/// The quality of lane b of H after hexa_quality_lanes, or false (q untouched) when the general
/// path must decide.
template <unsigned B>
inline bool hexa_lane_quality(const hexa_lanes<B>& H, unsigned b, double& q) noexcept
{
    const double v = hexa_value(H.V[b], H.E[b]);
    if (!(v > q_degenerate))
        q = v;
    else if (H.r[b] >= 0.0)
        q = v * std::min(1.0, warp_factor(H.r[b]));
    else
        return false;
    return true;
}

/// Hexahedron quality (bottom P[0..3], top P[4..7]): 24 sqrt(3) V / E^(3/2) and the face check
/// over the six faces; in space the common case takes the kernel of hexa_quality_lanes.
inline double hexa_quality(const double* const P[8], bool spatial) noexcept
{
    if (spatial)
    {
        hexa_lanes<1> H;
        for (unsigned i = 0; i < 8; ++i)
            H.x[i][0] = P[i][0], H.y[i][0] = P[i][1], H.z[i][0] = P[i][2];
        hexa_quality_lanes(H);
        double q;
        if (hexa_lane_quality(H, 0, q)) return q;
    }
    return extruded_quality<4>(P, hexa_corners, 41.569219381653056, hexa_boundaries, spatial);
}

} // namespace qx7::meshutil::detail
