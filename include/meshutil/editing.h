// Mesh editing: merging, index compaction, degenerated elements, transformations, copies,
// symmetry, clipping, simplification.
#pragma once

#include <meshutil/containers.h>
#include <meshutil/elements.h>
#include <meshutil/export.h>

namespace qx7::meshutil
{

// ------------------------------------------------------------------------------------ distinct
// indices

/// Appends to out each value of `in` not seen before, in order of first appearance, skipping ~0u
/// and every value of `excluded`. The present content of out is kept and does not count as seen
/// (a value already in out is appended again).
/// @param[out] out       grows by the number of distinct values appended.
/// @param[in]  in        any values.
/// @param[in]  excluded  values never appended.
/// @return 0; -199 memory (out unchanged).
/// Complexity: O(size of in + size of excluded) expected time; O(max value / 8) extra bytes (a
/// bit set) when the largest value is below 64 x the number of values, else a flat hash table.
MESHUTIL_API int unique_indices(dense1D<unsigned>& out, const dense1D<unsigned>& in,
                                dense1D<unsigned> excluded = dense1D<unsigned>()) noexcept;
/// As the vector form over the entries of connectM read column by column (rows in order).
/// @return 0; -199 memory (out unchanged). Complexity: O(rows x cols) expected time.
MESHUTIL_API int unique_indices(dense1D<unsigned>& out, const dense2D<unsigned>& connectM,
                                dense1D<unsigned> excluded = dense1D<unsigned>()) noexcept;
/// As the vector form over the range [connectM1, connectM2) of consecutive connectivity objects,
/// in array order; equal pointers append nothing.
/// @return 0; -3 reversed range; -199 memory (out unchanged on every failure).
/// Complexity: O(total entries) expected time.
MESHUTIL_API int unique_indices(dense1D<unsigned>& out, const dense2D<unsigned>* connectM1,
                                const dense2D<unsigned>* connectM2,
                                dense1D<unsigned> excluded = dense1D<unsigned>()) noexcept;
/// Number of distinct values other than ~0u among the entries of connectM.
/// @return the count; -199 memory. Complexity: O(rows x cols) expected time.
MESHUTIL_API int count_unique_indices(const dense2D<unsigned>& connectM) noexcept;
/// As above over the range [connectM1, connectM2) of consecutive connectivity objects.
/// @return the count; -2 reversed range; -199 memory. Complexity: O(total entries) expected time.
MESHUTIL_API int count_unique_indices(const dense2D<unsigned>* connectM1,
                                      const dense2D<unsigned>* connectM2) noexcept;

// ------------------------------------------------------------------------------------ merging

/// Merges each node of nodes1 into the earliest node of nodes2 (in the order of nodes2) lying at a
/// Euclidean distance not greater than tol, and resolves chains so that no entry names a merged
/// node. Both lists are first reduced to their distinct indices (~0u dropped); among nodes listed
/// in both, the one first in nodes2 survives. tol is absolute (units of pos); tol = 0 merges
/// exactly coincident nodes only (-0.0 equals 0.0; a NaN coordinate never matches). Candidate
/// pairs come from a k-d tree over nodes1 built in the fixed-seed order of node_detector, or,
/// with identical results, from an exact-coordinate hash (tol = 0) or a grid whose cells follow
/// the density of the points, surfaces and curves included (small tol).
/// @param[in]  pos          2 or 3 x nbr_nodes coordinates.
/// @param[in]  nodes1       nodes to merge (~0u skipped).
/// @param[in]  nodes2       nodes to merge into (~0u skipped).
/// @param[out] new_indices  pos.cols(): node i's survivor, i itself when kept; emptied first.
/// @param[in]  tol          distance tolerance, >= 0.
/// @return the number of merged nodes; 0 (map empty) when pos has no column; -1 pos without 2 or
///         3 rows; -2 an entry of nodes1 not below pos.cols() and not ~0u; -3 same for nodes2;
///         -4 not tol >= 0 (negative or NaN); 0 (map empty) when nodes1 or nodes2 is empty;
///         -199 memory (map empty).
/// Complexity: O(n log n) expected time for well-spread nodes (n = nodes1 + nodes2 + cols),
///             O(cols + n) extra memory.
MESHUTIL_API int merge(const dense2D<double>& pos, const dense1D<unsigned>& nodes1,
                       const dense1D<unsigned>& nodes2, dense1D<unsigned>& new_indices,
                       double tol) noexcept;
/// As the two-list form with nodes1 = nodes2 = nodes. @return as the two-list form.
MESHUTIL_API int merge(const dense2D<double>& pos, const dense1D<unsigned>& nodes,
                       dense1D<unsigned>& new_indices, double tol) noexcept;
/// Merges all nodes among themselves, then overwrites each merged node's column of pos with the
/// coordinates of its survivor (no column is removed).
/// @param[in,out] pos          2 or 3 x nbr_nodes coordinates.
/// @param[out]    new_indices  pos.cols() survivors; emptied first.
/// @return the number of merged nodes; 0 when pos has no column; -1 pos without 2 or 3 rows;
///         -3 not tol >= 0; -199 memory. Map empty and pos unchanged on failure.
/// Complexity: as the node-list form.
MESHUTIL_API int merge(dense2D<double>& pos, dense1D<unsigned>& new_indices, double tol) noexcept;
/// As above with a local map that is discarded. @return as above.
MESHUTIL_API int merge(dense2D<double>& pos, double tol) noexcept;
/// Merges the nodes used by the connectivities [connectM1, connectM2) and renumbers them in place
/// (coordinates are never changed).
/// mode 0: the node-list merge over the distinct nodes of the connectivities (order of first
///   appearance), any close nodes.
/// mode 1: collapses short element edges only: the elements are visited in order; for each,
///   every node u still its own survivor is paired with every other node v of the same element
///   still its own survivor, inside the closed box [u - tol, u + tol] and at distance <= tol. The
///   element's pairs are applied by increasing distance (ties: u's row, then v's row), v merged
///   into u when both are still survivors; the next element sees the merges made.
/// mode 2: mode 1, then, when at least one node was merged, the connectivities are renumbered
///   and the same sweep runs once more over them (it catches edges made short by the first
///   renumbering); the count is the sum of both sweeps.
/// @param[in]     pos          2 or 3 x nbr_nodes coordinates.
/// @param[in,out] connectM1, connectM2  range of consecutive connectivities, renumbered.
/// @param[out]    new_indices  pos.cols() survivors (resolved); emptied first.
/// @param[in]     tol          distance tolerance, >= 0.
/// @param[in]     mode         0, 1 or 2.
/// @return the number of merged nodes; 0 when pos has no column or the range is empty; -1 pos
///         without 2 or 3 rows; -3 reversed range; -2 a node index not below pos.cols() (and not
///         ~0u); -5 not tol >= 0; -6 mode > 2; -199 memory. Map empty and connectivities
///         unchanged on failure.
/// Complexity: mode 0 as the node-list form; modes 1, 2 O(entries x rows) time, O(cols) memory.
MESHUTIL_API int merge(const dense2D<double>& pos, dense2D<unsigned>* connectM1,
                       dense2D<unsigned>* connectM2, dense1D<unsigned>& new_indices, double tol,
                       unsigned mode) noexcept;
/// As the range form with a local map. @return as the range form.
MESHUTIL_API int merge(const dense2D<double>& pos, dense2D<unsigned>* connectM1,
                       dense2D<unsigned>* connectM2, double tol, unsigned mode) noexcept;
/// As the range form over one connectivity. @return as the range form.
MESHUTIL_API int merge(const dense2D<double>& pos, dense2D<unsigned>& connectM,
                       dense1D<unsigned>& new_indices, double tol, unsigned mode) noexcept;
/// As the range form over one connectivity with a local map. @return as the range form.
MESHUTIL_API int merge(const dense2D<double>& pos, dense2D<unsigned>& connectM, double tol,
                       unsigned mode) noexcept;
/// As the range form over one connectivity, tol = 1e-6, mode 0. @return as the range form.
MESHUTIL_API int merge(const dense2D<double>& pos, dense2D<unsigned>& connectM) noexcept;
/// As the range form over two connectivities (first, then second). The two must be distinct
/// objects. @return as the range form.
MESHUTIL_API int merge(const dense2D<double>& pos, dense2D<unsigned>& connectM1,
                       dense2D<unsigned>& connectM2, dense1D<unsigned>& new_indices, double tol,
                       unsigned mode) noexcept;
/// As the two-connectivity form with a local map. @return as the range form.
MESHUTIL_API int merge(const dense2D<double>& pos, dense2D<unsigned>& connectM1,
                       dense2D<unsigned>& connectM2, double tol, unsigned mode) noexcept;
/// As the two-connectivity form, tol = 1e-6, mode 0. @return as the range form.
MESHUTIL_API int merge(const dense2D<double>& pos, dense2D<unsigned>& connectM1,
                       dense2D<unsigned>& connectM2) noexcept;

// ------------------------------------------------------------------------------------ degenerated
// elements

/// Deletes the elements holding a repeated node, compacting connectM in place (order kept). A
/// repeated ~0u (empty rows of a mixed column) makes an element degenerated only when strict is
/// true; a single ~0u never does. The element type plays no part.
/// @param[in,out] connectM     rows x nbr_elements; keeps its rows, loses the removed columns.
/// @param[out]    new_indices  former cols(): new column of each element, ~0u when removed.
/// @param[in]     strict       whether repeated ~0u entries count.
/// @return the number of elements removed; -199 memory (connectM unchanged, map empty).
/// Complexity: O(cols x rows^2) time, O(cols) extra memory for the map only.
MESHUTIL_API int remove_degenerated(dense2D<unsigned>& connectM, dense1D<unsigned>& new_indices,
                                    bool strict) noexcept;
/// As above without the map. @return the number of elements removed.
MESHUTIL_API int remove_degenerated(dense2D<unsigned>& connectM, bool strict) noexcept;

// ------------------------------------------------------------------------------------ simplify

/// Removes the nodes that no connectivity of [connectM1, connectM2) uses, compacting the columns
/// of pos in place (order kept), and renumbers the connectivities. Nodes below keep_below are
/// kept and keep their numbers. An empty range removes nothing.
/// @param[in,out] pos          any rows x nbr_nodes; loses the unused columns.
/// @param[in,out] connectM1, connectM2  range of consecutive connectivities (~0u entries kept).
/// @param[out]    new_indices  former cols(): new index of each node, ~0u when removed; left
///                             empty when nothing can be removed (empty pos, keep_below too large).
/// @param[in]     keep_below   nodes 0 .. keep_below-1 are never removed.
/// @return the number of nodes removed; -3 reversed range; 0 for an empty range; -2 an entry not
///         below pos.cols() (and not ~0u), tested even for an empty matrix; 0 when pos has no
///         entry or keep_below >= pos.cols(); -199 memory. On failure nothing changes and the
///         map is empty.
/// Complexity: O(entries + cols x rows) time, O(cols) extra memory (map and a bit set).
MESHUTIL_API int simplify(dense2D<double>& pos, dense2D<unsigned>* connectM1,
                          dense2D<unsigned>* connectM2, dense1D<unsigned>& new_indices,
                          unsigned keep_below) noexcept;
/// As the range form over one connectivity. @return as the range form.
MESHUTIL_API int simplify(dense2D<double>& pos, dense2D<unsigned>& connectM,
                          dense1D<unsigned>& new_indices, unsigned keep_below) noexcept;
/// As the range form over one connectivity, map discarded. @return as the range form.
MESHUTIL_API int simplify(dense2D<double>& pos, dense2D<unsigned>& connectM,
                          unsigned keep_below) noexcept;
/// As the range form over two distinct connectivities (first, then second), map discarded.
/// @return as the range form.
MESHUTIL_API int simplify(dense2D<double>& pos, dense2D<unsigned>& connectM1,
                          dense2D<unsigned>& connectM2, unsigned keep_below) noexcept;

// ------------------------------------------------------------------------------------ transforms

// Common rules of translate, rotate and zoom. A 2-D form touches rows 0 and 1, a 3-D form rows 0
// to 2; a pos with fewer rows is first grown to 2 (3) rows with 0.0 (more rows are kept as they
// are). Nothing is done and 0 is returned when pos has no entry, when the list is empty, or for
// the identity, tested exactly: every component of V zero, angle zero, every component of rot
// zero, k equal to 1 (a NaN counts as the identity, being neither above nor below it).
// The all-nodes forms return pos.cols(); the node-list forms of translate and rotate the number
// of valid entries (below pos.cols(); an index listed twice moves twice); the node-list form of
// zoom returns 0 (entries not below pos.cols() are skipped); the connectivity forms act as the
// node-list form over the distinct nodes of connectM (each moves once). -199 when the rows cannot
// be grown or the distinct nodes cannot be gathered.

/// Translates every node by V (x, y). @param[in,out] pos coordinates. @param[in] V shift.
/// @return pos.cols(), 0 for a no-op; -199 memory. Complexity: O(cols).
MESHUTIL_API int translate(dense2D<double>& pos, const vector_fixed<double, 2>& V) noexcept;
/// Translates every node by V (x, y, z). @return pos.cols(), 0 for a no-op; -199 memory.
MESHUTIL_API int translate(dense2D<double>& pos, const vector_fixed<double, 3>& V) noexcept;
/// Translates the listed nodes by V. @return the number of valid entries, 0 for a no-op; -199.
/// Complexity: O(size of nodes).
MESHUTIL_API int translate(dense2D<double>& pos, const vector_fixed<double, 2>& V,
                           const dense1D<unsigned>& nodes) noexcept;
/// 3-D node-list form. @return as the 2-D node-list form.
MESHUTIL_API int translate(dense2D<double>& pos, const vector_fixed<double, 3>& V,
                           const dense1D<unsigned>& nodes) noexcept;
/// Translates the distinct nodes of connectM by V. @return as the node-list form; -199 memory.
/// Complexity: O(entries of connectM) expected time.
MESHUTIL_API int translate(dense2D<double>& pos, const vector_fixed<double, 2>& V,
                           const dense2D<unsigned>& connectM) noexcept;
/// 3-D connectivity form. @return as the node-list form; -199 memory.
MESHUTIL_API int translate(dense2D<double>& pos, const vector_fixed<double, 3>& V,
                           const dense2D<unsigned>& connectM) noexcept;

/// Rotates every node counter-clockwise by angle (radians) about O: p = O + R (p - O), with cos
/// and sin computed once. @return pos.cols(), 0 for a no-op; -199 memory. Complexity: O(cols).
MESHUTIL_API int rotate(dense2D<double>& pos, const vector_fixed<double, 2>& O,
                        double angle) noexcept;
/// Rotates every node about O by the rotation vector rot (axis rot/|rot|, angle |rot|, right-hand
/// rule): R = I + a W + b W^2 with W the cross-product matrix of rot, a = sin(t)/t and
/// b = (1 - cos(t))/t^2; for t <= 0.1, a and b come from their Taylor series in t^2 (to t^10 and
/// t^8), free of cancellation. @return pos.cols(), 0 for a no-op; -199 memory.
MESHUTIL_API int rotate(dense2D<double>& pos, const vector_fixed<double, 3>& O,
                        const vector_fixed<double, 3>& rot) noexcept;
/// 2-D node-list form. @return the number of valid entries, 0 for a no-op; -199 memory.
MESHUTIL_API int rotate(dense2D<double>& pos, const vector_fixed<double, 2>& O, double angle,
                        const dense1D<unsigned>& nodes) noexcept;
/// 3-D node-list form. @return the number of valid entries, 0 for a no-op; -199 memory.
MESHUTIL_API int rotate(dense2D<double>& pos, const vector_fixed<double, 3>& O,
                        const vector_fixed<double, 3>& rot,
                        const dense1D<unsigned>& nodes) noexcept;
/// 2-D connectivity form. @return as the node-list form; -199 memory.
MESHUTIL_API int rotate(dense2D<double>& pos, const vector_fixed<double, 2>& O, double angle,
                        const dense2D<unsigned>& connectM) noexcept;
/// 3-D connectivity form. @return as the node-list form; -199 memory.
MESHUTIL_API int rotate(dense2D<double>& pos, const vector_fixed<double, 3>& O,
                        const vector_fixed<double, 3>& rot,
                        const dense2D<unsigned>& connectM) noexcept;

/// Scales every node about O by k: p = p + (k - 1)(p - O) per coordinate (k < 0 mirrors through
/// O, k = 0 collapses onto O). @return pos.cols(), 0 for a no-op; -199 memory.
MESHUTIL_API int zoom(dense2D<double>& pos, const vector_fixed<double, 2>& O, double k) noexcept;
/// 3-D form. @return pos.cols(), 0 for a no-op; -199 memory.
MESHUTIL_API int zoom(dense2D<double>& pos, const vector_fixed<double, 3>& O, double k) noexcept;
/// 2-D node-list form. @return 0 in every case, also when nodes moved (not a count); -199 memory.
MESHUTIL_API int zoom(dense2D<double>& pos, const vector_fixed<double, 2>& O, double k,
                      const dense1D<unsigned>& nodes) noexcept;
/// 3-D node-list form. @return 0 in every case; -199 memory.
MESHUTIL_API int zoom(dense2D<double>& pos, const vector_fixed<double, 3>& O, double k,
                      const dense1D<unsigned>& nodes) noexcept;
/// 2-D connectivity form (each distinct node once). @return 0; -199 memory.
MESHUTIL_API int zoom(dense2D<double>& pos, const vector_fixed<double, 2>& O, double k,
                      const dense2D<unsigned>& connectM) noexcept;
/// 3-D connectivity form (each distinct node once). @return 0; -199 memory.
MESHUTIL_API int zoom(dense2D<double>& pos, const vector_fixed<double, 3>& O, double k,
                      const dense2D<unsigned>& connectM) noexcept;

// ------------------------------------------------------------------------------------ copies

/// Appends to pos a copy of each distinct node of connectM (order of first appearance: copy k is
/// node base + k, base = former pos.cols()) and sets connectM_out to connectM renumbered onto the
/// copies. connectM_out may be connectM itself.
/// @param[in,out] pos           coordinates; grows by the number of distinct nodes.
/// @param[out]    connectM_out  replaced by the renumbered copy.
/// @param[in]     connectM      the elements to copy.
/// @return 0; -2 a node index not below pos.cols() (and not ~0u); -199 memory. Nothing is
///         changed on failure.
/// Complexity: O(entries + distinct nodes x rows) time, O(cols) extra memory.
MESHUTIL_API int copy_mesh(dense2D<double>& pos, dense2D<unsigned>& connectM_out,
                           const dense2D<unsigned>& connectM) noexcept;
/// n plain copies in 2-D: copy i (1..n) rotated by i x angle about O, then translated by i x T,
/// each appended behind the former content of connectM_out (not cleared; rows become the larger
/// of the two, new places ~0u). The source elements are not part of the result.
/// @return 0 (nothing done when pos is empty or n = 0); the code of the first failing plain
///         copy (the copies already made stay).
/// Complexity: O(n x (entries + distinct nodes)).
MESHUTIL_API int copy_mesh(dense2D<double>& pos, dense2D<unsigned>& connectM_out,
                           const vector_fixed<double, 2>& T, const vector_fixed<double, 2>& O,
                           double angle, unsigned n, const dense2D<unsigned>& connectM) noexcept;
/// n plain copies in 3-D: copy i rotated by the rotation vector i x rot about O, then translated
/// by i x T; otherwise as the 2-D form. @return as the 2-D form.
MESHUTIL_API int copy_mesh(dense2D<double>& pos, dense2D<unsigned>& connectM_out,
                           const vector_fixed<double, 3>& T, const vector_fixed<double, 3>& O,
                           const vector_fixed<double, 3>& rot, unsigned n,
                           const dense2D<unsigned>& connectM) noexcept;
/// Mirror copy about the line through P with normal N (any non-zero length): a plain copy, pos
/// grown to 2 rows if needed, then each copied node p becomes p - 2 ((p - P).N / |N|^2) N. The
/// copies keep the source node order, so their orientation is reversed (deliberately not
/// reordered).
/// @return 0 (nothing done when pos has no entry); -4 |N|^2 = 0; the plain copy's code.
/// Complexity: O(entries + distinct nodes).
MESHUTIL_API int copy_sym_mesh(dense2D<double>& pos, dense2D<unsigned>& connectM_out,
                               const vector_fixed<double, 2>& P, const vector_fixed<double, 2>& N,
                               const dense2D<unsigned>& connectM) noexcept;
/// Mirror copy about the plane through P with normal N (pos grown to 3 rows if needed).
/// @return as the 2-D form.
MESHUTIL_API int copy_sym_mesh(dense2D<double>& pos, dense2D<unsigned>& connectM_out,
                               const vector_fixed<double, 3>& P, const vector_fixed<double, 3>& N,
                               const dense2D<unsigned>& connectM) noexcept;
/// Appends to connectM_out (not cleared) the elements of connectM lying strictly on the side of
/// the plane through P towards which N points, in column order. Each node's side is computed
/// once, s = (p - P).N over the rows of pos (at most 3): inside when s > 0 (a node on the plane
/// is outside). An element's rows are scanned up to its first ~0u; it is kept when every scanned
/// node is inside. A connectivity with zero rows keeps every element.
/// @param[in]  pos           coordinates.
/// @param[in]  connectM      elements.
/// @param[in]  P, N          plane point and normal (any non-zero length).
/// @param[out] connectM_out  empty or with connectM.rows() rows; grows.
/// @return 0 (nothing done when connectM has no entry); -2 a node index not below pos.cols()
///         (and not ~0u); -4 |N| < 1e-12; -5 connectM_out of another row count; -199 memory.
/// Complexity: O(entries) time, O(cols of pos) extra memory.
MESHUTIL_API int clip(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                      const vector_fixed<double, 3>& P, const vector_fixed<double, 3>& N,
                      dense2D<unsigned>& connectM_out) noexcept;

} // namespace qx7::meshutil
