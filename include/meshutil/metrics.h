// Anisotropic metrics: primitives, fields, gradation, isotropic size generation.
//
// A 2-D metric is the symmetric matrix [[M11, M12], [M12, M22]] stored as (M11, M12, M22); a 3-D
// metric stores its upper triangle packed by columns, (M11, M12, M22, M13, M23, M33), the packed
// layout of LAPACK with UPLO "U". An edge vector e has the length sqrt(e^T M e) in M, so an
// eigenvalue l of M is the size 1/sqrt(l) along its eigenvector, and the isotropic size h is the
// metric (1/h^2) I. DBL_MAX stands for "no bound" and is the exclusive upper limit of a valid size.
// 2-D metrics are solved in closed form; 3-D ones through the system LAPACK's dspev, on stack
// buffers, without allocation.
#pragma once

#include <meshutil/containers.h>
#include <meshutil/elements.h>
#include <meshutil/export.h>

namespace qx7::meshutil
{

// ------------------------------------------------------------------------------------ primitives

/// True when the smallest eigenvalue of M is > 0 (no tolerance: 1e-300 is valid; a NaN entry makes
/// the metric invalid). 2-D: closed form; 3-D: dspev without eigenvectors, whose status is not
/// consulted (its eigenvalues are zeroed first).
/// @param[in] M  the metric.
/// @return true when M is positive definite.
/// Complexity: O(1), no allocation.
MESHUTIL_API bool is_valid_metric(const symmetric_fixed<double, 2>& M) noexcept;
/// The 3-D form of is_valid_metric.
MESHUTIL_API bool is_valid_metric(const symmetric_fixed<double, 3>& M) noexcept;

/// Eigenvalues in ascending order and orthonormal eigenvectors (column i belongs to eigenvalue i).
/// 2-D: closed form; the smaller eigenvalue is recomputed as det / l2 when it is below 1e-12 times
/// the larger one (and the other way round), so that tiny eigenvalues keep their relative
/// accuracy; a multiple of the identity gives the vectors (1, 0) and (0, 1). The second 2-D vector
/// is the first turned by +90 degrees. 3-D: dspev.
/// @param[in]  M             the metric (any symmetric matrix).
/// @param[out] eigenvalues   ascending eigenvalues.
/// @param[out] eigenvectors  unit eigenvectors, one per column.
/// @return true on success; false when an eigenvalue is not finite (2-D) or dspev fails (3-D);
///         the outputs then hold unspecified values.
/// Complexity: O(1), no allocation.
MESHUTIL_API bool eigen_pairs(const symmetric_fixed<double, 2>& M,
                              vector_fixed<double, 2>& eigenvalues,
                              matrix_fixed<double, 2, 2>& eigenvectors) noexcept;
/// The 3-D form of eigen_pairs.
MESHUTIL_API bool eigen_pairs(const symmetric_fixed<double, 3>& M,
                              vector_fixed<double, 3>& eigenvalues,
                              matrix_fixed<double, 3, 3>& eigenvectors) noexcept;

/// Generalised eigen-pairs: the solutions of M2 v = l M1 v, eigenvalues ascending (for a positive
/// definite M1), eigenvectors of unit Euclidean length (not M1-normalised).
/// 2-D: closed form through a square-root factor of M1; fails when M11 == 0 or det(M1) <= 0.
/// 3-D: Cholesky factor L of M1 (fails when a pivot is not > 0), dspev of L^-1 M2 L^-T, vectors
/// mapped back by L^-T and normalised.
/// @param[in]  M1            the metric of the right-hand side (positive definite).
/// @param[in]  M2            the metric of the left-hand side.
/// @param[out] eigenvalues   ascending generalised eigenvalues.
/// @param[out] eigenvectors  unit eigenvectors, one per column.
/// @return true on success; false on failure, with both outputs zeroed.
/// Complexity: O(1), no allocation.
MESHUTIL_API bool eigen_pairs(const symmetric_fixed<double, 2>& M1,
                              const symmetric_fixed<double, 2>& M2,
                              vector_fixed<double, 2>& eigenvalues,
                              matrix_fixed<double, 2, 2>& eigenvectors) noexcept;
/// The 3-D form of the generalised eigen_pairs.
MESHUTIL_API bool eigen_pairs(const symmetric_fixed<double, 3>& M1,
                              const symmetric_fixed<double, 3>& M2,
                              vector_fixed<double, 3>& eigenvalues,
                              matrix_fixed<double, 3, 3>& eigenvectors) noexcept;

/// Bounds the sizes of M to [hmin, hmax]: its eigenvalues are clamped, first down to 1/hmin^2
/// (when hmin > 0) and then up to 1/hmax^2 (when hmax > 0), and M is rebuilt from them. A metric
/// whose decomposition fails becomes (1/hmin^2) I (DBL_MAX I when hmin is not > 0).
/// @param[in,out] M     the metric; rewritten only when an eigenvalue changed.
/// @param[in]     hmin  smallest size; not > 0 means no lower bound.
/// @param[in]     hmax  largest size; DBL_MAX means no upper bound.
/// @return 0 at once when hmin is not > 0 (NaN included) and hmax == DBL_MAX; -2 hmin infinite or
///         NaN; -3 hmax infinite or NaN; otherwise 1 when M changed, 0 when it did not.
///         M is untouched on negative results.
/// Complexity: O(1), no allocation.
MESHUTIL_API int bound_metric(symmetric_fixed<double, 2>& M, double hmin, double hmax) noexcept;
/// The 3-D form of bound_metric.
MESHUTIL_API int bound_metric(symmetric_fixed<double, 3>& M, double hmin, double hmax) noexcept;

/// The union of two metrics: the metric of the larger size in every direction of their
/// simultaneous reduction (so its eigenvalues are the smaller ones). Symmetric in M1 and M2 up to
/// round-off. M may be M1 or M2.
/// @param[in]  M1, M2  the two metrics.
/// @param[out] M       the union; a copy of M1 on failure.
/// @return true on success; false when the reduction fails (M1 not positive definite, for one) or
///         the union is not a valid metric.
/// Complexity: O(1), no allocation.
MESHUTIL_API bool maximum_metric(const symmetric_fixed<double, 2>& M1,
                                 const symmetric_fixed<double, 2>& M2,
                                 symmetric_fixed<double, 2>& M) noexcept;
/// The 3-D form of maximum_metric.
MESHUTIL_API bool maximum_metric(const symmetric_fixed<double, 3>& M1,
                                 const symmetric_fixed<double, 3>& M2,
                                 symmetric_fixed<double, 3>& M) noexcept;

/// The intersection of two metrics: the metric of the smaller size in every direction of their
/// simultaneous reduction (its eigenvalues are the larger ones). Symmetric in M1 and M2 up to
/// round-off. M may be M1 or M2.
/// @param[in]  M1, M2  the two metrics.
/// @param[out] M       the intersection; a copy of M1 on failure.
/// @return true on success; false when the reduction fails or the result is not a valid metric.
/// Complexity: O(1), no allocation.
MESHUTIL_API bool minimum_metric(const symmetric_fixed<double, 2>& M1,
                                 const symmetric_fixed<double, 2>& M2,
                                 symmetric_fixed<double, 2>& M) noexcept;
/// The 3-D form of minimum_metric.
MESHUTIL_API bool minimum_metric(const symmetric_fixed<double, 3>& M1,
                                 const symmetric_fixed<double, 3>& M2,
                                 symmetric_fixed<double, 3>& M) noexcept;

/// The isotropic metric of size h: (1/h^2) I; the zero matrix (an invalid metric) when h is not
/// > 0, so that later validity tests catch the bad size.
/// @param[in]  h  the size.
/// @param[out] M  the metric.
/// Complexity: O(1).
MESHUTIL_API void metric_iso_to_aniso(double h, symmetric_fixed<double, 2>& M) noexcept;
/// The 3-D form of metric_iso_to_aniso.
MESHUTIL_API void metric_iso_to_aniso(double h, symmetric_fixed<double, 3>& M) noexcept;

/// The 2-D metric that the isotropic 3-D size h induces on the plane spanned by the columns P1, P2
/// of P: (1/h^2) P^T P. Zero when h is not > 0 or 1/h^2 is 0.
/// @param[in]  h  the size.
/// @param[in]  P  3 x 2 frame of the plane (normally orthonormal columns).
/// @param[out] M  the 2-D metric.
/// Complexity: O(1).
MESHUTIL_API void metric_iso_to_aniso2d(double h, const matrix_fixed<double, 3, 2>& P,
                                        symmetric_fixed<double, 2>& M) noexcept;

/// The 2-D metric that a 3-D metric induces on the plane spanned by the columns of P: P^T M3 P.
/// @param[in]  M3  the 3-D metric.
/// @param[in]  P   3 x 2 frame of the plane.
/// @param[out] M   the 2-D metric.
/// Complexity: O(1).
MESHUTIL_API void metric_aniso3d_to_aniso2d(const symmetric_fixed<double, 3>& M3,
                                            const matrix_fixed<double, 3, 2>& P,
                                            symmetric_fixed<double, 2>& M) noexcept;

} // namespace qx7::meshutil
