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

// ------------------------------------------------------------------------------------ fields
// A size field is a dense1D<double> of sizes h, valid when 0 < h < DBL_MAX (NaN is invalid). A
// metric field is a dense2D<double> with one column per node: 3 rows for 2-D metrics, 6 rows for
// 3-D metrics, in the packed order above; a column is valid when is_valid_metric says so. Fields
// are never resized by these functions: outputs must be sized by the caller.

/// Position of the first invalid size, or sizes.size() when all are valid.
/// @param[in] sizes  the size field.
/// @return the position, or the size count.
/// Complexity: O(n).
MESHUTIL_API unsigned first_invalid_metric(const dense1D<double>& sizes) noexcept;

/// Position of the first invalid column of a 3-row or 6-row metric field, or the column count when
/// all are valid. Any other row count gives 0 at once, so that a non-empty field of such a shape
/// is never reported valid and an empty one always is.
/// @param[in] metrics  the metric field.
/// @return the position, or the column count; 0 for an unsupported row count.
/// Complexity: O(n), one eigenvalue computation per column (dspev in 3-D).
MESHUTIL_API unsigned first_invalid_metric(const dense2D<double>& metrics) noexcept;

/// Position in IDs of the first ID whose size is invalid or which is not below the size count;
/// IDs.size() when there is none.
/// @param[in] IDs    positions into the field.
/// @param[in] sizes  the size field.
/// @return the position in IDs, or IDs.size().
/// Complexity: O(IDs.size()).
MESHUTIL_API unsigned first_invalid_metric(const dense1D<unsigned>& IDs,
                                           const dense1D<double>& sizes) noexcept;

/// Position in IDs of the first ID whose column is invalid or which is not below the column count;
/// IDs.size() when there is none; 0 for a row count other than 3 or 6.
/// @param[in] IDs      positions into the field.
/// @param[in] metrics  the metric field.
/// @return the position in IDs, IDs.size(), or 0 for an unsupported row count.
/// Complexity: O(IDs.size()) eigenvalue computations.
MESHUTIL_API unsigned first_invalid_metric(const dense1D<unsigned>& IDs,
                                           const dense2D<double>& metrics) noexcept;

/// True when every size is valid (first_invalid_metric equals the size count).
/// Complexity: O(n).
MESHUTIL_API bool are_valid_metrics(const dense1D<double>& sizes) noexcept;
/// True when every column is valid; false for a non-empty field whose row count is not 3 or 6,
/// true for an empty one. Complexity: O(n) eigenvalue computations.
MESHUTIL_API bool are_valid_metrics(const dense2D<double>& metrics) noexcept;
/// True when every listed size exists and is valid. Complexity: O(IDs.size()).
MESHUTIL_API bool are_valid_metrics(const dense1D<unsigned>& IDs,
                                    const dense1D<double>& sizes) noexcept;
/// True when every listed column exists and is valid; with a row count other than 3 or 6, true
/// only for an empty ID list. Complexity: O(IDs.size()) eigenvalue computations.
MESHUTIL_API bool are_valid_metrics(const dense1D<unsigned>& IDs,
                                    const dense2D<double>& metrics) noexcept;

/// Appends the index of every valid column of a 3-row or 6-row metric field to IDs, in ascending
/// order; existing entries are kept. Any other row count appends nothing.
/// @param[in]     metrics  the metric field.
/// @param[in,out] IDs      receives the indices; left as it was when memory cannot be had.
/// Complexity: O(n) eigenvalue computations; IDs grows at most once.
MESHUTIL_API void valid_metrics(const dense2D<double>& metrics, dense1D<unsigned>& IDs) noexcept;

/// Bounds every size to [hmin, hmax]: a size for which hmin <= h fails (h below hmin, or NaN)
/// becomes hmin, otherwise a size above hmax becomes hmax.
/// @param[in,out] sizes  the size field.
/// @param[in]     hmin   smallest size.
/// @param[in]     hmax   largest size.
/// @return the number of sizes changed; 0 at once for an empty field, or when hmin is not > 0
///         (NaN included) and hmax == DBL_MAX (then even negative sizes stay); -2 hmin infinite or
///         NaN; -3 hmax infinite or NaN. Sizes are untouched on negative results.
/// Complexity: O(n).
MESHUTIL_API int bound_metrics(dense1D<double>& sizes, double hmin, double hmax) noexcept;

/// Bounds every column of a metric field as bound_metric does (eigenvalues clamped into
/// [1/hmax^2, 1/hmin^2], a column whose decomposition fails replaced by (1/hmin^2) I).
/// @param[in,out] metrics  3 x n or 6 x n metric field.
/// @param[in]     hmin     smallest size.
/// @param[in]     hmax     largest size.
/// @return the number of columns changed; 0 at once for an empty field (rows x cols == 0), or when
///         hmin is not > 0 and hmax == DBL_MAX; -1 row count other than 3 or 6; -2 hmin infinite
///         or NaN; -3 hmax infinite or NaN. The field is untouched on negative results.
/// Complexity: O(n), one eigen-decomposition per column (one dspev call in 3-D), no allocation.
MESHUTIL_API int bound_metrics(dense2D<double>& metrics, double hmin, double hmax) noexcept;

/// bound_metrics on sizes that also lists the changed positions: IDs is emptied first (also when
/// the call returns early or fails), then receives the position of every changed size in
/// ascending order.
/// @return the length of IDs, or -2 / -3 as bound_metrics; -199 when IDs cannot grow (the sizes
///         changed so far stay changed).
/// Complexity: O(n).
MESHUTIL_API int bound_metrics(dense1D<double>& sizes, double hmin, double hmax,
                               dense1D<unsigned>& IDs) noexcept;

/// bound_metrics on metrics that also lists the changed columns: IDs is emptied first (also when
/// the call returns early or fails), then receives the index of every changed column in ascending
/// order.
/// @return the length of IDs, or -1 / -2 / -3 as bound_metrics; -199 when IDs cannot grow (the
///         columns changed so far stay changed).
/// Complexity: O(n) eigen-decompositions.
MESHUTIL_API int bound_metrics(dense2D<double>& metrics, double hmin, double hmax,
                               dense1D<unsigned>& IDs) noexcept;

/// Repairs sizes from a fallback field: over the first min(sizes.size(), fallback.size())
/// positions, a size for which 0 >= h holds is replaced by the fallback's value when that is > 0.
/// A NaN size is thereby kept (unlike bound_metrics, which replaces it).
/// @param[in,out] sizes     the size field.
/// @param[in]     fallback  the replacement sizes.
/// @return the number of sizes replaced.
/// Complexity: O(n).
MESHUTIL_API int overwrite_invalid_metrics(dense1D<double>& sizes,
                                           const dense1D<double>& fallback) noexcept;

/// Repairs a metric field from fallback sizes: over the first min(cols, fallback_sizes.size())
/// columns, an invalid column whose fallback size h is > 0 becomes (1/h^2) I.
/// @param[in,out] metrics         3 x n or 6 x n metric field.
/// @param[in]     fallback_sizes  the replacement sizes.
/// @return the number of columns replaced; -1 row count other than 3 or 6 (checked before the
///         emptiness of the field); 0 for an empty field.
/// Complexity: O(n) eigenvalue computations.
MESHUTIL_API int overwrite_invalid_metrics(dense2D<double>& metrics,
                                           const dense1D<double>& fallback_sizes) noexcept;

/// Repairs a metric field from a fallback metric field: over the first min of the two column
/// counts, an invalid column is replaced by the fallback's column when that one is valid.
/// @param[in,out] metrics   3 x n or 6 x n metric field.
/// @param[in]     fallback  metric field with the same row count.
/// @return the number of columns replaced; -1 row count of metrics other than 3 or 6; -2 the
///         fallback's row count differs.
/// Complexity: O(n) eigenvalue computations.
MESHUTIL_API int overwrite_invalid_metrics(dense2D<double>& metrics,
                                           const dense2D<double>& fallback) noexcept;

/// Writes the isotropic 2-D metric (1/h^2, 0, 1/h^2) of every size h > 0 into its column; a column
/// whose size is not > 0 keeps its previous values (unlike metric_iso_to_aniso, which writes
/// zeros).
/// @param[in]  sizes    n sizes.
/// @param[out] metrics  3 x m field, m >= n, not resized; columns from n on are untouched.
/// @return 0; 0 at once when both are empty; -2 metrics without 3 rows or with fewer than n
/// columns. Complexity: O(n).
MESHUTIL_API int metrics_iso_to_aniso2d(const dense1D<double>& sizes,
                                        dense2D<double>& metrics) noexcept;

/// The 3-D form of metrics_iso_to_aniso2d: (1/h^2, 0, 1/h^2, 0, 0, 1/h^2) into a 6 x m field.
/// @return 0; 0 at once when both are empty; -2 metrics without 6 rows or with fewer than n
/// columns. Complexity: O(n).
MESHUTIL_API int metrics_iso_to_aniso3d(const dense1D<double>& sizes,
                                        dense2D<double>& metrics) noexcept;

/// Writes, for every size h, the 2-D metric that h induces on the plane of its frame
/// (metric_iso_to_aniso2d; zero for h not > 0).
/// @param[in]  sizes    n sizes.
/// @param[in]  frames   6 x n: two 3-D vectors per column (rows 0-2 and 3-5) spanning the plane.
/// @param[out] metrics  3 x m field, m >= n, not resized.
/// @return 0; 0 at once when all three are empty; -2 frames without 6 rows or with a column count
///         other than n; -3 metrics without 3 rows or with fewer than n columns.
/// Complexity: O(n).
MESHUTIL_API int metrics_iso_to_aniso2d(const dense1D<double>& sizes, const dense2D<double>& frames,
                                        dense2D<double>& metrics) noexcept;

/// Writes, for every 3-D metric M3, the 2-D metric P^T M3 P that it induces on the plane of its
/// frame P (metric_aniso3d_to_aniso2d).
/// @param[in]  metrics3d  6 x n metric field.
/// @param[in]  frames     6 x n frames.
/// @param[out] metrics    3 x m field, m >= n, not resized.
/// @return 0; 0 at once when metrics3d and frames are both empty; -1 metrics3d without 6 rows; -2
///         frames without 6 rows or with a column count other than n; -3 metrics without 3 rows
///         or with fewer than n columns.
/// Complexity: O(n).
MESHUTIL_API int metrics_aniso3d_to_aniso2d(const dense2D<double>& metrics3d,
                                            const dense2D<double>& frames,
                                            dense2D<double>& metrics) noexcept;

// ------------------------------------------------------------------------------------ gradation
// Gradation control. The size shock of an edge is exp(|h_j - h_i| / d) - 1 for sizes h_i, h_j at
// its ends and Euclidean length d (the sizes' ratio per unit of length measured in the field,
// through the logarithmic mean of the two sizes); for metrics the sizes are those along the edge,
// d / sqrt(e^T M e). The size variation of an edge is |h_j - h_i| / d. The gradation functions
// pull sizes towards their neighbours' until no edge of the node graph of connectM (two nodes
// are neighbours when an element contains both, quadrangle and hexahedron diagonals included)
// exceeds g: a priority queue of 16-byte entries (float key, stamp, node, neighbour) treats the
// worst edge first, and a modified node puts its edges back into the queue; older entries of a
// node are discarded lazily by the stamp test.
//
// A move of node i towards j is the fraction t = 1 - d step / |h_j - h_i| of the size gap, with
// step = ln(1 + g) (shock) or g (variation), so that the edge's measure becomes g. It needs
// t > 0.001 (so measures may end up to (1 + g)^(1 / 0.999) - 1, or g / 0.999, above g) and a
// change of the size by a ratio above 1 + 1e-12. Directions: a node may only grow (1), only
// shrink (-1), or (0) takes the direction of its first move (t > 1e-12) and keeps it; any other
// low byte of `direction` matches neither, and nothing moves. Frozen nodes never change; a move
// of a node is limited so that the edges to its frozen neighbours do not exceed g on the far
// side of the move (the band |h - h_k| <= d_k step around each frozen neighbour k, or the size
// along the edge for metrics), and fails when the node already starts beyond such a band; a
// frozen neighbour that puts no limit in the direction of the move is ignored.
//
// Metrics move along their simultaneous reduction with the metric at j (see minimum_metric): in
// each reduced direction the size moves linearly towards j's, but only when that is the move's
// direction (sizes of a growing node never shrink in any direction, and the other way round), so
// the size along the edge changes monotonically; the fraction is found by a root search to
// 1e-13 relative and the result is always a valid metric. On isotropic metrics (1/h^2) I the
// moves are those of the isotropic form. A metric move fails on a zero-length edge, on invalid
// metrics at either end, or when the reduction fails.
//
// Checks, in order (all four functions): 0 at once when connectM is empty or g == DBL_MAX; -1
// pos has neither 2 nor 3 rows; -2 connectM does not conform to FE_type with indices below
// pos.cols(); -4 an entry of nodes is not below pos.cols(); -7 g is not >= 0 (NaN included); -8
// the metric field does not have 3 rows (2-D) or 6 rows (3-D), or the field has no more entries
// than the largest node index of connectM. Then -199 when memory cannot be had (the field may
// then be partly graded).
//
// Among entries of equal keys the oldest comes out first: an entry made before the propagation
// starts, then by the stamp of the move that made it. Such ties are common on structured meshes
// (the two ends of an edge, or nodes graded from the same source), and treating the oldest first
// makes fewer moves than the other way round. Entries of one move with equal keys come out in an
// order that depends on the queue's arrangement and is not part of the contract.
//
// Complexity: O(E log Q) for E queue entries and a queue of at most Q entries; near-linear in
// the mesh size for size fields of bounded gradient. Extra memory: the node graph, 8 bytes per
// graph entry, 16 bytes per node plus a copy of its coordinates and field values (the run works
// on the copy and writes the field back at the end), and 16 bytes per queue entry.

/// Bounds the size shock of every edge of the node graph of connectM to g, in an isotropic size
/// field. See the section comment for the moves, directions, frozen nodes and checks.
/// @param[in]     pos           2 or 3 x nbr_nodes coordinates.
/// @param[in]     connectM      nbr_nodes(FE_type) x nbr_elements, any element type.
/// @param[in]     FE_type       the element type.
/// @param[in]     nodes         node list: frozen nodes when nodes_frozen, else the only free ones.
/// @param[in]     nodes_frozen  how to read nodes.
/// @param[in]     direction     1 sizes may only grow, -1 only shrink, 0 either (per node).
/// @param[in]     g             largest admissible shock, >= 0.
/// @param[in,out] sizes         one size per node, more entries than the largest node index of
///                              connectM; updated in place (shared storage sees the change).
/// @return the number of distinct nodes modified; 0 for an empty connectM or g == DBL_MAX; -1 pos
///         rows; -2 connectM; -4 nodes; -7 g; -8 sizes too short; -199 memory.
/// Complexity: see the section comment.
MESHUTIL_API int bound_metric_gradations(const dense2D<double>& pos,
                                         const dense2D<unsigned>& connectM, element_type FE_type,
                                         const dense1D<unsigned>& nodes, bool nodes_frozen,
                                         int direction, double g, dense1D<double>& sizes) noexcept;

/// Bounds the size shock of every edge of the node graph of connectM to g, in a metric field.
/// See the section comment for the path of a metric, directions, frozen nodes and checks.
/// @param[in]     pos, connectM, FE_type, nodes, nodes_frozen, direction, g  as the size form.
/// @param[in,out] metrics  3 x n (2-D) or 6 x n (3-D) metric field, n above the largest node
///                         index of connectM; updated in place.
/// @return the number of distinct nodes modified; 0 for an empty connectM or g == DBL_MAX; -1 pos
///         rows; -2 connectM; -4 nodes; -7 g; -8 metrics rows or columns; -199 memory.
/// Complexity: see the section comment; each move costs one generalised eigen-decomposition.
MESHUTIL_API int bound_metric_gradations(const dense2D<double>& pos,
                                         const dense2D<unsigned>& connectM, element_type FE_type,
                                         const dense1D<unsigned>& nodes, bool nodes_frozen,
                                         int direction, double g,
                                         dense2D<double>& metrics) noexcept;

/// Bounds the size variation |h_j - h_i| / d of every edge of the node graph of connectM to g,
/// in an isotropic size field; a gap below 1e-12 d counts as none. The engine, directions and
/// frozen nodes are those of bound_metric_gradations, with the admissible gap g d per edge.
/// @param[in]     pos, connectM, FE_type, nodes, nodes_frozen, direction  as
///                bound_metric_gradations.
/// @param[in]     g      largest admissible variation (size difference per unit length), >= 0.
/// @param[in,out] sizes  one size per node, more entries than the largest node index of
///                       connectM; updated in place.
/// @return the number of distinct nodes modified; 0 for an empty connectM or g == DBL_MAX; -1 pos
///         rows; -2 connectM; -4 nodes; -7 g; -8 sizes too short; -199 memory.
/// Complexity: see the section comment.
MESHUTIL_API int bound_metric_variations(const dense2D<double>& pos,
                                         const dense2D<unsigned>& connectM, element_type FE_type,
                                         const dense1D<unsigned>& nodes, bool nodes_frozen,
                                         int direction, double g, dense1D<double>& sizes) noexcept;

/// Bounds the size variation of every edge of the node graph of connectM to g, in a metric
/// field, the sizes being those along each edge; metrics move as in bound_metric_gradations, to
/// the fraction that leaves the gap g d along the edge.
/// @param[in]     pos, connectM, FE_type, nodes, nodes_frozen, direction  as
///                bound_metric_gradations.
/// @param[in]     g        largest admissible variation, >= 0.
/// @param[in,out] metrics  3 x n (2-D) or 6 x n (3-D) metric field, n above the largest node
///                         index of connectM; updated in place.
/// @return the number of distinct nodes modified; 0 for an empty connectM or g == DBL_MAX; -1 pos
///         rows; -2 connectM; -4 nodes; -7 g; -8 metrics rows or columns; -199 memory.
/// Complexity: see the section comment; each move costs one generalised eigen-decomposition.
MESHUTIL_API int bound_metric_variations(const dense2D<double>& pos,
                                         const dense2D<unsigned>& connectM, element_type FE_type,
                                         const dense1D<unsigned>& nodes, bool nodes_frozen,
                                         int direction, double g,
                                         dense2D<double>& metrics) noexcept;

// ------------------------------------------------------------------------------------ size
// generation

/// Derives an isotropic size field from a mesh: the size at a node is a mean of the lengths of
/// the element edges that meet there. Every element contributes each of its edges (local edge
/// order of its shape), so an edge shared by k elements counts k times at both ends. An edge of
/// length 0 or of non-finite length is skipped (neither end counts it). Modes by p: p == 0 the
/// minimum, p == DBL_MAX the maximum, otherwise the power mean (sum of L^p / count)^(1/p) (p = 1
/// arithmetic, p = 2 quadratic). A NaN p passes the checks and gives NaN sizes.
/// Nodes that no counted edge reaches keep their previous size; entries added by growing `sizes`
/// are set to 0 (an invalid size, so that validity tests catch nodes left without a size).
/// @param[in]     pos       r x nbr_nodes coordinates, r >= element_dim(FE_type); lengths are
///                          measured over all r rows.
/// @param[in]     connectM  nbr_nodes(FE_type) x nbr_elements; EL_FACE_MIX with 3 rows is read as
///                          EL_TRIA3, EL_SOLID_MIX with 4, 5 or 6 rows as EL_TETRA4, EL_PYRAM5 or
///                          EL_PENTA6.
/// @param[in]     FE_type   EL_EDGE2, EL_FACE_MIX, EL_TRIA3, EL_QUAD4, EL_SOLID_MIX, EL_TETRA4,
///                          EL_PYRAM5, EL_PENTA6 or EL_HEXA8 (quadratic types are not accepted).
/// @param[in,out] sizes     grown to max(sizes.size(), nbr_nodes), never shrunk.
/// @param[in]     p         the exponent, >= 0.
/// @return 0 on success, and 0 at once for an empty connectM (sizes untouched); -1 pos has fewer
///         rows than element_dim(FE_type); -2 connectM does not conform to FE_type with indices
///         below nbr_nodes (check_IDs); -5 p < 0; -199 memory (sizes as it was); -3 unsupported
///         type, reported after sizes has been grown (its former values are kept).
/// Complexity: O(nbr_elements x edges per element + nbr_nodes) time, one unsigned counter per
/// node of extra memory.
MESHUTIL_API int metrics_gen_iso(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                                 element_type FE_type, dense1D<double>& sizes, double p) noexcept;

} // namespace qx7::meshutil
