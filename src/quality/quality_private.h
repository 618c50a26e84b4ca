// Per-edge kernels of the quality family, shared with the metric gradation (never installed).
//
// A size field is either one size h per node (isotropic) or one packed metric per node: 3 values
// M11, M12, M22 in 2-D, 6 values M11, M12, M22, M13, M23, M33 in 3-D. The size is taken to vary
// linearly along an edge, so the length of the edge in the field is its Euclidean length divided
// by the logarithmic mean of the sizes at its two ends.
#pragma once

#include <algorithm>
#include <cfloat>
#include <cmath>

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

} // namespace qx7::meshutil::detail
