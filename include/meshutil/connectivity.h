// Connectivity analysis: element boundaries and neighbours, mesh boundaries, subdomains,
// node-to-element links, colour interfaces, node graph, sorting of elements by shape.
#pragma once

#include <meshutil/containers.h>
#include <meshutil/elements.h>
#include <meshutil/export.h>

namespace qx7::meshutil
{

// ------------------------------------------------------------------------------------ sorting

/// Sorts the columns of a connectivity by their number of defined nodes (entries other than ~0u),
/// stably and in place; the typical use is to split an EL_FACE_MIX matrix into its triangles and
/// quadrangles, or an EL_SOLID_MIX matrix into its tetrahedra, pyramids, wedges and hexahedra, as
/// contiguous column ranges.
/// The outputs have the offset form of get_sorted_order: new column i is old column order[i];
/// the columns with k defined nodes are the new columns first[k] to first[k+1]-1. Unlike
/// get_sorted_order, first always has rows + 2 entries (k = 0 to rows, then the column count),
/// whatever counts occur, so first[k] may be read for every k up to rows; first[0] is 0. Columns
/// with equal counts keep their relative order. A matrix with no rows gives first = (0, cols) and
/// the identity order. The storage of connectM is kept (a view is written through); order and
/// first must not share storage with connectM. To carry per-element data along, index it with
/// order (new value i = old value order[i]).
/// @param[in,out] connectM  any rows x nbr_elements; its columns are reordered.
/// @param[out]    order     nbr_elements; resized by the call.
/// @param[out]    first     rows + 2; resized by the call.
/// @return 0 on success; -199 memory. Outputs on failure: connectM unchanged, order and first
///         emptied.
/// Complexity: O(rows x nbr_elements) time, O(rows x nbr_elements) extra memory (a copy of the
/// matrix, skipped when it is already sorted).
MESHUTIL_API int sort_elfes(dense2D<unsigned>& connectM, dense1D<unsigned>& order,
                            dense1D<unsigned>& first) noexcept;

// ------------------------------------------------------------------------------------ boundaries
// and neighbours

/// Appends the boundaries of every element (end points of edges, edges of surface elements,
/// faces of solids) to a boundary connectivity, one record per column: element by element, and
/// for each element its local boundaries 0, 1, ... in the order and orientation of the local
/// boundary tables (edge_boundaries, tria_boundaries, ...). A boundary shared by two elements is
/// listed twice, in each element's orientation. Records have boundary_record_size(type) places
/// (1 for EL_EDGE2, 2 for surface types, 3 for EL_TETRA4, 4 for the other solids and
/// EL_SOLID_MIX, a triangular face then ending with ~0u). The type is first normalised by the row
/// count (normalize_type); mixed columns use the table of their shape (column_shape).
/// Accepted types: EL_EDGE2, EL_FACE_MIX, EL_TRIA3, EL_QUAD4, EL_SOLID_MIX, EL_TETRA4, EL_PYRAM5,
/// EL_PENTA6, EL_HEXA8. Columns are appended with append_column (doubling from 4 columns); the
/// existing columns of boundaries stay in front.
/// @param[in]     connectM    nbr_nodes(FE_type) x nbr_elements.
/// @param[in]     FE_type     element type of connectM.
/// @param[in,out] boundaries  boundary_record_size x (old cols + total boundaries); appended to.
/// @return 0 on success (also, with nothing done, for an empty connectM); -1 connectM does not
///         have the row count of the type; -2 unsupported type, or boundaries not empty with
///         another row count; -199 memory. Outputs on failure: the columns appended before the
///         failure stay.
/// Complexity: O(nbr_elements) amortised time, no extra memory beyond the output.
MESHUTIL_API int get_element_boundaries(const dense2D<unsigned>& connectM, element_type FE_type,
                                        dense2D<unsigned>& boundaries) noexcept;

/// Computes the neighbour matrix: neighbors(k, e) is the element on the other side of the local
/// boundary k of element e, ~0u when there is none (a boundary of the mesh, or a row beyond the
/// boundary count of a mixed column's shape). Two boundaries match when they consist of the same
/// nodes forming the same cycle, in either sense and from any starting node; a triangular face
/// never matches a quadrangular one, and orientation is not looked at.
/// A boundary shared by more than two elements (non-manifold): with flag_nonmanifold false, all
/// their slots for it stay ~0u; with flag_nonmanifold true, the sharing element with the lowest
/// column number (the first) is linked with each of the others, so that every other one points to
/// the first and the first's slot ends with the highest-numbered of the others. An element may be
/// its own neighbour when two of its boundaries hold the same nodes (a degenerate element).
/// Row count B: 2 for EL_EDGE2, 3 for EL_TRIA3, 4 for EL_QUAD4, EL_FACE_MIX and EL_TETRA4, 5 for
/// EL_PYRAM5 and EL_PENTA6, 6 for EL_HEXA8 and EL_SOLID_MIX. Accepted types as
/// get_element_boundaries. The boundaries are matched through a flat two-level hash multimap:
/// filed by their smallest node into buckets of consecutive node ranges (a counting sort that
/// keeps element order), then paired inside each bucket by an open-addressing table over their
/// canonical node lists; all scratch is sized once (one entry per boundary).
/// @param[in]  connectM          nbr_nodes(FE_type) x nbr_elements.
/// @param[in]  FE_type           element type of connectM (normalised by row count).
/// @param[in]  flag_nonmanifold  whether non-manifold boundaries are linked (see above).
/// @param[out] neighbors         B x nbr_elements; emptied first in every case, then resized.
/// @return 0 on success (also for an empty connectM, the output then empty); -1 connectM does not
///         have the row count of the type; -2 unsupported type; -199 memory. Outputs on failure:
///         neighbors empty.
/// Complexity: O(B x nbr_elements) expected time, O(B x nbr_elements) extra memory (about 16
/// bytes per boundary for tetrahedra).
MESHUTIL_API int get_neighbors(const dense2D<unsigned>& connectM, element_type FE_type,
                               bool flag_nonmanifold, dense2D<unsigned>& neighbors) noexcept;

// ------------------------------------------------------------------------------------ mesh
// boundaries

/// Appends the free boundaries of a mesh, those whose slot in the neighbour matrix is ~0u, as
/// boundary records (same records and orientation as get_element_boundaries), element by element
/// and in local order. For a consistently oriented mesh the result is consistently oriented. The
/// neighbour matrix must have nbr_boundaries(type) rows: so for EL_EDGE2 one row (the end point
/// opposite node 0), and a two-row matrix of edges from get_neighbors is refused.
/// @param[in]     connectM    nbr_nodes(FE_type) x nbr_elements.
/// @param[in]     neighbors   nbr_boundaries(FE_type) x nbr_elements, entries ~0u or below
///                            nbr_elements.
/// @param[in]     FE_type     element type (normalised by row count).
/// @param[in,out] boundaries  boundary_record_size(FE_type) rows; appended to.
/// @return 0 (nothing done) when connectM has no columns; -1 connectM rows differ from
///         nbr_nodes(type); -2 neighbors has the wrong column count, row count, or an entry
///         neither ~0u nor below nbr_elements; -4 boundaries not empty with a row count other than
///         boundary_record_size(type); -3 unsupported type (tested after the output shape);
///         -199 memory; 0 success. Outputs on failure: columns appended before a memory failure
///         stay; otherwise untouched.
/// Complexity: O(nbr_elements) amortised time, no extra memory beyond the output.
MESHUTIL_API int get_mesh_boundaries(const dense2D<unsigned>& connectM,
                                     const dense2D<unsigned>& neighbors, element_type FE_type,
                                     dense2D<unsigned>& boundaries) noexcept;

/// Appends the codes e x nbr_bound + k of the free boundaries (neighbors(k, e) is ~0u), element by
/// element and in local order, where nbr_bound = nbr_boundaries(type) is also returned through
/// nbr_bound (1 for EL_EDGE2, whose neighbour matrix here has one row; 6 for EL_SOLID_MIX, whose
/// tetrahedra use only k = 0 to 3). element = code / nbr_bound, k = code % nbr_bound. The entries
/// of neighbors are not range-checked. codes grows by doubling.
/// @param[in]     connectM   nbr_nodes(FE_type) x nbr_elements.
/// @param[in]     neighbors  nbr_boundaries(FE_type) x nbr_elements.
/// @param[in]     FE_type    element type (normalised by row count).
/// @param[in,out] codes      appended to.
/// @param[out]    nbr_bound  set to 0 first, then to nbr_boundaries of the normalised type.
/// @return 0 on success (also for an empty connectM, nbr_bound then 0); -1 connectM does not have
///         the row count of the type; -2 unsupported type, or neighbors with another column count
///         or row count; -199 memory. Outputs on failure: codes appended before a memory failure
///         stay.
/// Complexity: O(nbr_elements) amortised time, no extra memory beyond the output.
MESHUTIL_API int get_mesh_bounding_elements(const dense2D<unsigned>& connectM,
                                            const dense2D<unsigned>& neighbors,
                                            element_type FE_type, dense1D<unsigned>& codes,
                                            unsigned& nbr_bound) noexcept;

/// Finds, for every record of a boundary connectivity (end points of an edge mesh, edges of a
/// surface mesh, faces of a solid mesh, as get_mesh_boundaries or a file gives them), an element
/// of the mesh that has it as a local boundary, as the code e x nbr_bound + k, ~0u when no element
/// has it. Matching as in get_neighbors: same nodes forming the same cycle, either sense, any
/// start; a triangle never matches a quadrangle. When several elements have the boundary (an
/// interior face), an element listing it in the same sense as the record is preferred to one
/// listing it reversed, and among those the lowest column wins; so a record cut from an element
/// keeps pointing to that element even on an interface. nbr_bound is nbr_boundaries(type), except
/// for EL_EDGE2, where it is 2 so that both end points have a code (end point k is the end opposite
/// node k). Records are boundary_record_size(type) long (4 for faces of mixed or non-tetrahedral
/// solids, a triangle ending with ~0u); a record holding ~0u elsewhere matches nothing.
/// Accepted types as get_element_boundaries.
/// @param[in]  connectM    nbr_nodes(FE_type) x nbr_elements.
/// @param[in]  FE_type     element type (normalised by row count).
/// @param[in]  boundaries  boundary_record_size(FE_type) x nbr_records.
/// @param[out] codes       nbr_records, ~0u where unmatched; emptied first, then resized.
/// @param[out] nbr_bound   set to 0 first, then to the divisor of the codes.
/// @return 0 on success (an empty connectM gives codes all ~0u and nbr_bound 0; an empty
///         boundaries gives codes empty); -1 connectM does not have the row count of the type;
///         -2 unsupported type; -3 boundaries not empty with a row count other than
///         boundary_record_size(type); -199 memory. Outputs on failure: codes empty.
/// Complexity: O(nbr_records + B x nbr_elements) expected time, O(nbr_records) extra memory.
MESHUTIL_API int get_elements_on_boundaries(const dense2D<unsigned>& connectM, element_type FE_type,
                                            const dense2D<unsigned>& boundaries,
                                            dense1D<unsigned>& codes, unsigned& nbr_bound) noexcept;

// ------------------------------------------------------------------------------------ subdomains

/// Lists the connected parts (subdomains) of a mesh from its neighbour matrix, in offset form:
/// subdomain s is order[first[s]] to order[first[s+1]-1]. Subdomains come in the order of their
/// lowest element; each is flooded breadth first from that element, the neighbours of an element
/// taken in row order (local boundary 0 first). Links are followed as they stand: a link recorded
/// in one direction only is followed from its owner's side only; entries ~0u or not below the
/// column count are skipped.
/// @param[in]  neighbors  any rows x nbr_elements.
/// @param[out] order      nbr_elements, every element once; emptied first, then filled.
/// @param[out] first      nbr_subdomains + 1; first[0] = 0, last = nbr_elements.
/// @return 0 on success (no columns give order empty, first = (0)); -199 memory. Outputs on
///         failure: order and first empty.
/// Complexity: O(rows x nbr_elements) time, O(nbr_elements) extra memory (bits).
MESHUTIL_API int get_subdomains(const dense2D<unsigned>& neighbors, dense1D<unsigned>& order,
                                dense1D<unsigned>& first) noexcept;

/// As the listing form, then reorders the mesh in place so that every subdomain is a contiguous
/// column range: new column i of connectM and of neighbors is old column order[i], and the
/// element numbers held in neighbors (those below nbr_elements) are renumbered accordingly, ~0u
/// staying. Subdomain s is then columns first[s] to first[s+1]-1.
/// @param[in,out] connectM   any rows x nbr_elements.
/// @param[in,out] neighbors  any rows x nbr_elements (the same column count as connectM).
/// @param[out]    first      nbr_subdomains + 1.
/// @return 0 on success; -2 neighbors has a column count other than connectM's (nothing
///         changed); -199 memory. Outputs on failure: with -199, connectM, neighbors and first
///         are all emptied.
/// Complexity: O((rows(connectM) + rows(neighbors)) x nbr_elements) time and extra memory.
MESHUTIL_API int get_subdomains(dense2D<unsigned>& connectM, dense2D<unsigned>& neighbors,
                                dense1D<unsigned>& first) noexcept;

// ------------------------------------------------------------------------------------ node to
// element

/// Gives for every node one element that contains it: for each column j in order, each defined
/// node x of the column below ancestors.size() gets ancestors[x] = j, so a node ends with the
/// highest-numbered element containing it. An empty ancestors is first sized to max_ID + 1 entries
/// of ~0u; a non-empty one is used as it stands (size and contents kept, so nodes no element uses
/// keep their old values and nodes not below its size are ignored): a caller can pass a table
/// sized for all the nodes of a mesh.
/// @param[in]     connectM   any rows x nbr_elements, ~0u entries skipped.
/// @param[in,out] ancestors  node -> element.
/// @return 0 on success (an empty connectM leaves ancestors untouched); -199 memory. Outputs on
///         failure: ancestors untouched.
/// Complexity: O(rows x nbr_elements + max_ID) time, no extra memory.
MESHUTIL_API int get_ancestors(const dense2D<unsigned>& connectM,
                               dense1D<unsigned>& ancestors) noexcept;

/// Lists for every node the elements containing it, in offset form: the elements of node x are
/// elements[first[x]] to elements[first[x+1]-1], in increasing order; an element holding a node
/// twice is listed twice. first has max_ID + 2 entries (nodes no element uses have empty lists;
/// a matrix of ~0u only gives first = (0, 0)); first[max_ID + 1] is the number of defined
/// entries of connectM. ~0u entries are skipped, so mixed matrices need no care.
/// @param[in]  connectM  any rows x nbr_elements.
/// @param[out] first     max_ID + 2 offsets; emptied first (an empty connectM gives (0)).
/// @param[out] elements  first.back() element numbers; emptied first.
/// @return 0 on success; -199 memory. Outputs on failure: first and elements empty.
/// Complexity: O(rows x nbr_elements + max_ID) time, no extra memory beyond the outputs.
MESHUTIL_API int get_connected_elements(const dense2D<unsigned>& connectM, dense1D<unsigned>& first,
                                        dense1D<unsigned>& elements) noexcept;

// ------------------------------------------------------------------------------------ colour
// interfaces

/// Appends the boundaries that separate elements of different colours, and the free boundaries,
/// as boundary records (as get_element_boundaries), element by element and in local order. A
/// boundary whose neighbour has the same colour is skipped. With both_sides false, a boundary
/// whose neighbour n is at most e is skipped too (it is written from n), so every interface is
/// written once, from its lower element and in that element's orientation; with both_sides true,
/// every interface is written from both sides, each in its own orientation. Free boundaries are
/// written once in either case.
/// @param[in]     connectM    nbr_nodes(FE_type) x nbr_elements.
/// @param[in]     neighbors   nbr_boundaries(FE_type) x nbr_elements, entries ~0u or below
///                            nbr_elements. Extra columns are allowed (only their entries are
///                            checked); fewer columns than elements are refused with -2 rather
///                            than read out of bounds.
/// @param[in]     colors      nbr_elements colours.
/// @param[in]     FE_type     element type (normalised by row count).
/// @param[in]     both_sides  whether interfaces are written from both sides.
/// @param[in,out] boundaries  boundary_record_size(FE_type) rows; appended to.
/// @return 0 (nothing done) when connectM has no columns; -1 connectM rows differ from
///         nbr_nodes(type); -2 neighbors has the wrong row count, too few columns, or an entry
///         neither ~0u nor below nbr_elements; -3 colors size differs from nbr_elements;
///         -5 boundaries not empty with a row count other than boundary_record_size(type);
///         -4 unsupported type (tested last); -199 memory; 0 success. Outputs on failure: columns
///         appended before a memory failure stay; otherwise untouched.
/// Complexity: O(nbr_elements) amortised time, no extra memory beyond the output.
MESHUTIL_API int get_colors_boundaries(const dense2D<unsigned>& connectM,
                                       const dense2D<unsigned>& neighbors,
                                       const dense1D<unsigned>& colors, element_type FE_type,
                                       bool both_sides, dense2D<unsigned>& boundaries) noexcept;

// ------------------------------------------------------------------------------------ node graph

/// Computes the node-to-node graph of a mesh in offset form: the neighbours of node i are
/// graph[first[i]] to graph[first[i+1]-1]. Two nodes are neighbours when an element holds both
/// (diagonals of quadrangles and hexahedra and mid-edge nodes included); the graph is symmetric
/// and a node is never its own neighbour. The neighbours of i come in order of discovery: the
/// elements around i in increasing order, and in each the rows from top to bottom, a node met
/// again not repeated. n = max_ID + 1 (get_connected_elements' node count); unused node numbers
/// get empty ranges. Built with two passes of a marker array (count, then fill), no hashing and
/// no sorting. ~0u entries are skipped.
/// @param[in]  connectM  any rows x nbr_elements.
/// @param[out] first     n + 1 offsets (an empty connectM gives (0)); emptied first.
/// @param[out] graph     first[n] node numbers; emptied first.
/// @return 0 on success; -199 memory. Outputs on failure: graph empty, first empty when the
///         failure happened while sizing graph.
/// Complexity: O(sum over nodes of the sizes of the elements around them) time, O(n + defined
/// entries of connectM) extra memory (the node-to-element lists and the marker).
MESHUTIL_API int get_node_graph(const dense2D<unsigned>& connectM, dense1D<unsigned>& first,
                                dense1D<unsigned>& graph) noexcept;

} // namespace qx7::meshutil
