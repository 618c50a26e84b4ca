// Quality measures: shape qualities, edge qualities, size shocks.
#pragma once

#include <meshutil/containers.h>
#include <meshutil/elements.h>
#include <meshutil/export.h>

namespace qx7::meshutil
{

// ------------------------------------------------------------------------------------ shape
// qualities

/// Dimensionless shape quality of every element: 1 for the ideal element of its kind
/// (equilateral triangle, square, regular tetrahedron, pyramid with equal edges, right prism on
/// an equilateral triangle with square sides, cube), tending to 0 as the element flattens,
/// negative for an inverted planar triangle or quadrangle or an inverted solid; values lie in
/// [-1, 1] (a quadrangle in space in [0, 1]).
/// Planar formulas are used when pos has exactly 2 rows, spatial ones otherwise. Solids always
/// use three components: rows that pos lacks read as 0 (so solids on 2-row coordinates are
/// flat, quality 0), rows past the third are ignored. The type is first refined by the row count
/// (normalize_type). Supported: EL_EDGE2 (every value exactly 1.0), EL_TRIA3, EL_QUAD4,
/// EL_FACE_MIX, EL_TETRA4, EL_PYRAM5, EL_PENTA6, EL_HEXA8, EL_SOLID_MIX; quadratic types are not.
/// Mixed columns: EL_FACE_MIX is a triangle when row 3 is ~0u; EL_SOLID_MIX is a tetrahedron when
/// row 3 is defined and row 4 is ~0u, a pyramid when row 4 is defined and row 5 is ~0u, a prism
/// when rows 4 and 5 are defined and row 6 is ~0u, else a hexahedron (a column with rows 3 and 4
/// both ~0u, which the connectivity check rejects, would read as a prism or hexahedron). Nearly
/// degenerate elements are recomputed more carefully (other node orderings, sub-tetrahedra of
/// pyramids, faces of prisms and hexahedra against the centroid); degenerate elements are not
/// errors. The warp factor of a quadrangular face in the face check of prisms and hexahedra is
/// that of pyramid bases, computed from the face's corner normals (shared with the face's
/// pyramid value) without any tolerance: a vanishing corner normal gives 0.
/// @param[in]  pos       2 or 3 x nbr_nodes coordinates.
/// @param[in]  connectM  nbr_nodes(FE_type) x nbr_elements.
/// @param[in]  FE_type   element type of every column.
/// @param[out] out       nbr_elements values in column order; resized by the call.
/// @return 0 on success (also for a connectivity without columns, or an EL_EDGE2 one with rows x
///         columns = 0); -199 out cannot be sized; -3 unsupported type; -2 connectivity with a row
///         count not valid for the type (a matrix with 0 rows but some columns included) or an
///         index not below pos.cols(). Outputs on failure: out emptied (size 0).
/// Complexity: O(nbr_elements) time, no extra memory.
MESHUTIL_API int shape_qualities(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                                 element_type FE_type, dense1D<double>& out) noexcept;

/// As the vector form, the values fed to histo (histogram::process of the whole vector) only
/// when the code is 0. Works as the range form over the one matrix connectM with type FE_type:
/// a connectivity with rows x columns = 0 is skipped whatever its type.
/// @return as the range form; histo untouched on failure.
/// Complexity: O(nbr_elements) time, O(nbr_elements) extra memory.
MESHUTIL_API int shape_qualities(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                                 element_type FE_type, misc::histogram& histo) noexcept;

/// Shape qualities of the consecutive connectivities [first, last), element_types[k] being the
/// type of matrix k: out holds the values of matrix 0, then matrix 1, and so on.
/// out is first sized to the total column count, filled with 0.0. A matrix with rows x columns =
/// 0 is skipped without advancing the write position, although its columns were counted: a
/// matrix with 0 rows but some columns shifts the values of the following ones forward and
/// leaves as many 0.0 at the end (kept on purpose).
/// @param[in]  pos            2 or 3 x nbr_nodes coordinates.
/// @param[in]  first, last    range of connectivities.
/// @param[in]  element_types  one element_type per matrix.
/// @param[out] out            total column count values; resized by the call.
/// @return 0; -3 first > last; -4 element_types.size() differs from the matrix count; -199 out
///         cannot be sized; then the first failing matrix's code as in the vector form (-3,
///         -2). Outputs on failure: out emptied (size 0) from the -199 check on.
/// Complexity: O(total columns) time, no extra memory.
MESHUTIL_API int shape_qualities(const dense2D<double>& pos, const dense2D<unsigned>* first,
                                 const dense2D<unsigned>* last, const dense1D<int>& element_types,
                                 dense1D<double>& out) noexcept;

/// Range form feeding histo (histogram::process of the whole vector) only when the code is 0.
/// @return as the range vector form; histo untouched on failure.
/// Complexity: O(total columns) time and extra memory.
MESHUTIL_API int shape_qualities(const dense2D<double>& pos, const dense2D<unsigned>* first,
                                 const dense2D<unsigned>* last, const dense1D<int>& element_types,
                                 misc::histogram& histo) noexcept;

// ------------------------------------------------------------------------------------ edge
// qualities

/// Length of an edge in a size field varying linearly from h1 to h2 along it: Q = L / m, m the
/// logarithmic mean (h2 - h1) / ln(h2 / h1) of the two sizes (evaluated by a fourth-order series
/// when the sizes differ by less than 10 %), or Q = 0 if m is not > 0. 1 is a perfect edge.
/// @param[in]  L       Euclidean length of the edge.
/// @param[in]  h1, h2  sizes at its ends.
/// @param[out] Q       the length in the size field; untouched on failure.
/// @return 0; -2 h1 not > 0 (NaN included); -3 h2 not > 0.
/// Complexity: O(1).
MESHUTIL_API int edge_quality(double L, double h1, double h2, double& Q) noexcept;

/// Measures every distinct corner-to-corner edge of the connectivities [connect_begin,
/// connect_end) in a field of packed metrics (3 rows M11, M12, M22 in 2-D; 6 rows M11, M12, M22,
/// M13, M23, M33 in 3-D; one column per node) and feeds each value to histo.process(double).
/// The value of edge (i, j) with e = x_j - x_i, l_i = sqrt(eT M_i e), l_j = sqrt(eT M_j e) is
/// l_i l_j / mean(l_i, l_j) (logarithmic mean as in edge_quality), or 0 when a quadratic form is
/// not > 0. Edges are taken as copy_edges lists them (sorted, distinct, smaller node first; no
/// edge from EL_HEXA20, EL_UNKNOWN or EL_NODE); the edges of excluded (smaller node first as well,
/// so either direction excludes) are removed first, and the rest measured in list order. An
/// edge is skipped, and the call fails with -5 after measuring all the others, when one of its
/// nodes is not below metrics.cols(), when metrics has fewer rows than the dimension needs, or
/// when the metric at one end is not valid (smallest eigenvalue not > 0, is_valid_metric).
/// 2-D when pos has 2 rows, 3-D with 3 rows.
/// @param[in]     pos                         2 or 3 x nbr_nodes coordinates.
/// @param[in]     connect_begin, connect_end  range of connectivities.
/// @param[in]     FE_types                    one element_type per connectivity.
/// @param[in]     metrics                     3 or 6 x nbr_nodes packed metrics.
/// @param[in,out] histo                       receives one value per measured edge.
/// @param[in]     excluded                    2 x n edges not to measure (EL_EDGE2); may be empty.
/// @return the number of edges after exclusion; 0 at once when connect_begin == connect_end;
///         -1 pos with neither 2 nor 3 rows; -4 FE_types.size() differs from the connectivity
///         count (a reversed range included); -2 a connectivity not conforming to its type
///         (check_IDs with pos.cols()); -7 excluded not conforming to EL_EDGE2; -199 memory;
///         -5 some edge skipped. histo has received the measured edges when -5 is returned,
///         nothing for the other codes.
/// Complexity: O(E log(N) / log(2048) + N) time with E raw edges and N nodes (radix sort), O(E +
/// N) extra memory.
MESHUTIL_API int edge_qualities(const dense2D<double>& pos, const dense2D<unsigned>* connect_begin,
                                const dense2D<unsigned>* connect_end, const dense1D<int>& FE_types,
                                const dense2D<double>& metrics, misc::histogram& histo,
                                const dense2D<unsigned>& excluded) noexcept;

/// As the metric range form with one size h per node: the value of edge (i, j) is |x_j - x_i| /
/// mean(h_i, h_j) (logarithmic mean, 0 when the mean is not > 0). An edge is skipped (-5) when
/// a node is not below sizes.size() or a size at either end is not > 0 (no upper limit).
/// @return as the metric range form.
/// Complexity: O(E log(N) / log(2048) + N) time, O(E) extra memory.
MESHUTIL_API int edge_qualities(const dense2D<double>& pos, const dense2D<unsigned>* connect_begin,
                                const dense2D<unsigned>* connect_end, const dense1D<int>& FE_types,
                                const dense1D<double>& sizes, misc::histogram& histo,
                                const dense2D<unsigned>& excluded) noexcept;

/// Metric form for one connectivity of type FE_type: the range form over this one matrix, with
/// the codes below -3 moved up by one (kept on purpose): -1 pos, -2 connectivity, -4 skipped
/// edge, -6 excluded; -199 (memory) is not moved.
/// @return the number of edges after exclusion, or the moved codes above.
/// Complexity: as the range form.
MESHUTIL_API int edge_qualities(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                                element_type FE_type, const dense2D<double>& metrics,
                                misc::histogram& histo, const dense2D<unsigned>& excluded) noexcept;

/// Size form for one connectivity: the size range form over this one matrix, codes moved as in
/// the metric one-connectivity form (-1, -2, -4 skipped edge, -6 excluded, -199).
/// @return the number of edges after exclusion, or a code.
/// Complexity: as the range form.
MESHUTIL_API int edge_qualities(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                                element_type FE_type, const dense1D<double>& sizes,
                                misc::histogram& histo, const dense2D<unsigned>& excluded) noexcept;

/// Appends the distinct corner-to-corner edges of the connectivities [connect_begin,
/// connect_end) to edges, one column (smaller node, larger node) per edge, sorted by (first,
/// second). Each type is refined by its row count first; edges, EL_EDGE_MIX and EL_EDGE3 give one
/// edge (their first two nodes), triangles 3, quadrangles 4 (EL_QUAD8, EL_QUAD9 by their corners),
/// tetrahedra 6, pyramids 8, wedges 9, EL_HEXA8 and EL_HEXA27 12; mixed columns give the edges
/// of their shape; EL_HEXA20, EL_UNKNOWN and EL_NODE give none (EL_HEXA20 on purpose). Local edges
/// are the sides of the local boundaries of elements.h. Indices are not bounded (any unsigned
/// value, ~0u included, is taken as a node). An empty edges matrix has no former column.
/// @param[in]     connect_begin, connect_end  range of connectivities.
/// @param[in]     FE_types                    one element_type per connectivity.
/// @param[in,out] edges                       empty or 2 rows; the new edges are appended.
/// @return 0; -2 connect_begin > connect_end; -3 FE_types.size() differs from the connectivity
///         count; -4 edges neither empty nor of 2 rows; -1 a connectivity whose row count does not
///         fit its type; -199 memory. Outputs on failure: edges unchanged.
/// Complexity: O(E log(N) / log(2048)) time with E raw edges and N the largest index, O(E) extra
/// memory.
MESHUTIL_API int copy_edges(const dense2D<unsigned>* connect_begin,
                            const dense2D<unsigned>* connect_end, const dense1D<int>& FE_types,
                            dense2D<unsigned>& edges) noexcept;

/// copy_edges over the one connectivity connectM of type FE_type.
/// @return as the range form.
/// Complexity: as the range form.
MESHUTIL_API int copy_edges(const dense2D<unsigned>& connectM, element_type FE_type,
                            dense2D<unsigned>& edges) noexcept;

// ------------------------------------------------------------------------------------ size
// shock

/// Largest size shock of the given edges at every node, in a field of packed metrics (3 rows in
/// 2-D, 6 in 3-D, one column per node). The shock of edge (i, j) is pow(max(l_i, l_j) / min(l_i,
/// l_j), 1 / L) - 1 with l_i = sqrt(eT M_i e), l_j likewise and L = l_i l_j / mean(l_i, l_j) its
/// length in the field: the factor by which the size grows per unit of field length, minus one.
/// L = 0 (a quadratic form or the mean not > 0) gives 0 when M_i and M_j are equal value for
/// value, DBL_MAX otherwise; an infinite L gives 0; an infinite or NaN shock becomes DBL_MAX.
/// Invalid metrics are no error. Node values take the larger shock (a stored value that is not
/// >= the new one is replaced, so NaN never stays). 2-D when pos has 2 rows, 3-D with 3 rows.
/// @param[in]  pos      2 or 3 x nbr_nodes coordinates.
/// @param[in]  edges    2 x nbr_edges (EL_EDGE2).
/// @param[in]  metrics  3 or 6 x nbr_nodes packed metrics (at least).
/// @param[out] shocks   nbr_nodes values, 0 for a node on no edge; resized by the call; must
///                      not share its storage with metrics.
/// @return 0 (at once, shocks untouched, when edges has rows x columns = 0); -1 pos with neither
///         2 nor 3 rows; -2 edges not conforming to EL_EDGE2 with indices below pos.cols(); -3
///         metrics with fewer rows than the dimension needs or fewer columns than pos (a check
///         of our own: such a field cannot be read); -199 shocks cannot be sized. Outputs on
///         failure: shocks untouched.
/// Complexity: O(nbr_edges + nbr_nodes) time, no extra memory.
MESHUTIL_API int H_shock(const dense2D<double>& pos, const dense2D<unsigned>& edges,
                         const dense2D<double>& metrics, dense1D<double>& shocks) noexcept;

/// As the metric form with one size h per node: L = d / mean(h_i, h_j), d the Euclidean length;
/// when the mean is not > 0 or L = 0 the shock is 0 if h_i == h_j, DBL_MAX otherwise; else
/// pow(max(d/h_i, d/h_j) / min(d/h_i, d/h_j), 1 / L) - 1 for a finite L, 0 for an infinite one;
/// an infinite or NaN shock becomes DBL_MAX. Sizes are not checked.
/// @param[in]  sizes   nbr_nodes sizes (at least); shocks must not share their storage.
/// @return 0; -1; -2 as the metric form; -3 fewer sizes than pos has columns; -199.
///         Outputs on failure: shocks untouched.
/// Complexity: O(nbr_edges + nbr_nodes) time, no extra memory.
MESHUTIL_API int H_shock(const dense2D<double>& pos, const dense2D<unsigned>& edges,
                         const dense1D<double>& sizes, dense1D<double>& shocks) noexcept;

} // namespace qx7::meshutil
