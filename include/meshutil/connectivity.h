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

} // namespace qx7::meshutil
