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
/// Complexity: O(sum over nodes of the sizes of the elements around them) time, O(n + rows x
/// nbr_elements) extra memory.
MESHUTIL_API int get_node_graph(const dense2D<unsigned>& connectM, dense1D<unsigned>& first,
                                dense1D<unsigned>& graph) noexcept;

} // namespace qx7::meshutil
