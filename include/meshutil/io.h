// Mesh files: readers and writers (medit, legacy VTK, STL, NASTRAN, EnSight, FEMAP neutral,
// Wavefront OBJ).
#pragma once

#include <cstdio>
#include <meshutil/containers.h>
#include <meshutil/elements.h>
#include <meshutil/export.h>

namespace qx7::meshutil
{

// ------------------------------------------------------------------------------------ medit files

/// Writes a mesh as a formatted medit mesh file ("MeshVersionFormatted 1", "Dimension d", a comment
/// line, "Vertices" with every coordinate as "%E " and the vertex reference 0, then the element
/// sections and "End"). Matrix k of the range is read with type element_types[k] and its elements
/// get the reference k. Mixed matrices (EL_FACE_MIX with 4 rows, EL_SOLID_MIX with 8) are split by
/// shape, their columns grouped by number of defined nodes (so within one shape they keep their
/// column order); a mixed matrix with fewer rows is read as the plain type its rows force. Then
/// one section per element type value, 0 to 20 in order, holds every element of that type,
/// matrix by matrix in range order, one line of "%d " node numbers (1-based) and "%d \n" with the
/// reference: "Edges", "Triangles", "Quadrilaterals", "Tetrahedra", "Hexahedra". Quadratic
/// elements keep their base nodes; pyramids (a b c d e e e e) and wedges (a b c c d e f f) are
/// written as collapsed hexahedra in sections of their own, so a mesh of pyramids, wedges and
/// hexahedra has three "Hexahedra" sections. Matrices with no entries and the types EL_UNKNOWN,
/// EL_NODE and EL_EDGE_MIX write nothing. Numbers are written with a '.' whatever the locale.
/// @param[in] filename       file to create (stdio mode "w").
/// @param[in] pos            1, 2 or 3 x nbr_nodes coordinates; the row count is the dimension.
/// @param[in] first, last    the connectivities [first, last).
/// @param[in] element_types  one element_type value per matrix.
/// @return 0; -2 pos has not 1, 2 or 3 rows; -4 last before first; -5 the number of matrices
///         differs from element_types.size(); -3 a matrix fails check_IDs against its type and
///         pos.cols() (a type value outside 0 to 20 fails unless its matrix is empty); -199 memory
///         for splitting a mixed matrix; -1 the file cannot be opened or written. Every check comes
///         before the file is opened: a failed check creates no file.
/// Complexity: O(nbr_nodes + total entries) time; O(entries of the mixed matrices) extra memory.
MESHUTIL_API int medit_output(const char* filename, const dense2D<double>& pos,
                              const dense2D<unsigned>* first, const dense2D<unsigned>* last,
                              const dense1D<int>& element_types) noexcept;

/// The range form with one matrix: every element has the reference 0.
MESHUTIL_API int medit_output(const char* filename, const dense2D<double>& pos,
                              const dense2D<unsigned>& connectM, element_type FE_type) noexcept;

/// The range form with two matrices in this order: references 0 and 1.
MESHUTIL_API int medit_output(const char* filename, const dense2D<double>& pos,
                              const dense2D<unsigned>& connectM1,
                              const dense2D<unsigned>& connectM2, element_type FE_type1,
                              element_type FE_type2) noexcept;

/// Writes a mesh with one reference per element: the columns are gathered into one matrix per
/// reference value 0 to M (M the largest reference other than ~0u, 0 when there is none), in
/// column order, and these M + 1 matrices, all of type FE_type, go to the range form. So each
/// element is written with its own reference, and inside a section the elements come grouped by
/// reference, ascending, in column order within a group. Columns whose reference is ~0u are not
/// written.
/// @param[in] connectM    nbr_nodes(FE_type) x nbr_elements.
/// @param[in] references  one reference per column.
/// @return 0 at once, creating no file, when connectM has no entries; -5 references.size()
///         differs from connectM.cols(); -6 the M + 1 matrices cannot be allocated; then the codes
///         of the range form.
/// Complexity: O(nbr_nodes + entries + M) time, O(entries + M) extra memory.
MESHUTIL_API int medit_output(const char* filename, const dense2D<double>& pos,
                              const dense2D<unsigned>& connectM, element_type FE_type,
                              const dense1D<unsigned>& references) noexcept;

/// Writes a nodal scalar field as a medit solution file: the line "dim 1 n 2", then the values as
/// "%E ", eight to a line, each full line ended by "\n", then the remaining values and a final
/// "\n" (so 16 values end with an empty line, and 0 values give the header and an empty line).
/// dim is written as given and not checked.
/// @return 0; -1 the file cannot be opened or written.
/// Complexity: O(n).
MESHUTIL_API int medit_scalar(const char* filename, unsigned dim,
                              const dense1D<double>& values) noexcept;

/// Writes a nodal vector field (one column per node) as a medit solution file: the line
/// "dim rows cols 2", then per column its values as "%E " and "\n". dim is not checked.
/// @return 0; -1 the file cannot be opened or written.
/// Complexity: O(rows x cols).
MESHUTIL_API int medit_vector(const char* filename, unsigned dim,
                              const dense2D<double>& field) noexcept;

/// Writes a nodal symmetric tensor field (one column per node: 3 rows m11 m12 m22 in the plane,
/// 6 rows m11 m12 m22 m13 m23 m33 in space) as a medit solution file: the line
/// "d rows cols 2" with d = 2 for 3 rows and 3 for 6 rows, then per column its values in stored
/// order as "%E " and "\n".
/// @return 0; -1 the file cannot be opened or written; -2 field has neither 3 nor 6 rows, checked
///         after the file is opened, so an empty file is left, deliberately.
/// Complexity: O(rows x cols).
MESHUTIL_API int medit_tensor(const char* filename, const dense2D<double>& field) noexcept;

// (end of medit files)

// ------------------------------------------------------------------------------------ legacy VTK
// files

/// Appends the VTK cells of one connectivity to a cell list (per cell its node count, then its
/// 0-based nodes) and a cell-type list, and adds their number to nbr_cells; nothing is cleared.
/// Each element gives its linear cell on the base nodes: line 3, triangle 5, quad 9, tetra 10
/// (nodes N0 N1 N3 N2), pyramid 14, wedge 13, hexahedron 12; the further nodes of a quadratic
/// element follow as a second cell, a poly-vertex (type 2), so such an element adds two cells.
/// A mixed type is first read as the plain type its row count forces (EL_FACE_MIX with 3 rows is
/// EL_TRIA3, ...). Node indices are not bounded.
/// @param[in]     connectM    the connectivity.
/// @param[in]     FE_type     its element type.
/// @param[in,out] nbr_cells   grows by the number of cells appended.
/// @param[in,out] cells       the cell list, appended to.
/// @param[in,out] cell_types  the cell-type list, appended to.
/// @return 0; -1 connectM fails check_IDs against FE_type (row count only); -2 the type has no VTK
///         cell (EL_UNKNOWN, EL_NODE, EL_EDGE_MIX, and the mixed types that stay mixed); -1
///         connectM has fewer rows than the type's base nodes (an empty matrix of 0 rows
///         included); -199 the lists cannot grow. The lists are unchanged on failure.
/// Complexity: O(entries) time, amortised.
MESHUTIL_API int vtk_convert(const dense2D<unsigned>& connectM, element_type FE_type,
                             unsigned& nbr_cells, dense1D<unsigned>& cells,
                             dense1D<unsigned>& cell_types) noexcept;

/// Writes a legacy VTK unstructured grid in text to an open stream, which stays open: the header
/// lines, "POINTS n double" with one "%f %f %f" line per node (a third value 0 for planar
/// coordinates), "CELLS nbr_cells size" with each cell's count and nodes as "%d " and a line end,
/// "CELL_TYPES m" with one "%d" line per code. Reading of the cell list stops at its end, should
/// nbr_cells or a count ask for more. Numbers are written with a '.' whatever the locale.
/// @param[in] file        an open stream.
/// @param[in] pos         2 or 3 x nbr_nodes coordinates.
/// @param[in] nbr_cells   the number of cells of the cell list.
/// @param[in] cells       the cell list (as vtk_convert makes it).
/// @param[in] cell_types  one VTK code per cell.
/// @return 0; -1 file is null or a write fails; -2 pos has neither 2 nor 3 rows (nothing written).
/// Complexity: O(nbr_nodes + cells.size() + cell_types.size()).
MESHUTIL_API int vtk_output(FILE* file, const dense2D<double>& pos, unsigned nbr_cells,
                            const dense1D<unsigned>& cells,
                            const dense1D<unsigned>& cell_types) noexcept;

/// Writes a mesh as a legacy VTK text file. Matrix k of the range has type element_types[k];
/// mixed matrices (EL_FACE_MIX with 4 rows, EL_SOLID_MIX with 8) are split by shape, their columns
/// grouped by number of defined nodes, and each shape present is converted in the order
/// triangles, quadrangles, or tetrahedra, pyramids, wedges, hexahedra; the other matrices are
/// converted in range order by vtk_convert. Matrices with no entries write nothing, whatever their
/// type. The file is opened first and the checks follow: a failed check leaves an empty file,
/// deliberately.
/// @return 0; -1 the file cannot be opened or written; -2 pos has neither 2 nor 3 rows; -4 last
///         before first; -5 the number of matrices differs from element_types.size(); -3 a matrix
///         fails check_IDs against its type and pos.cols(); then the first non-zero code of
///         vtk_convert (-2 for a type without a VTK cell); -199 memory.
/// Complexity: O(nbr_nodes + total entries) time and extra memory.
MESHUTIL_API int vtk_output(const char* filename, const dense2D<double>& pos,
                            const dense2D<unsigned>* first, const dense2D<unsigned>* last,
                            const dense1D<int>& element_types) noexcept;

/// The range form with one matrix.
MESHUTIL_API int vtk_output(const char* filename, const dense2D<double>& pos,
                            const dense2D<unsigned>& connectM, element_type FE_type) noexcept;

/// The range form with two matrices in this order.
MESHUTIL_API int vtk_output(const char* filename, const dense2D<double>& pos,
                            const dense2D<unsigned>& connectM1, const dense2D<unsigned>& connectM2,
                            element_type FE_type1, element_type FE_type2) noexcept;

// (end of legacy VTK files)

// ------------------------------------------------------------------------------------ STL files

/// Reads a triangulated surface from an STL file, text or binary, as shared nodes and an
/// EL_TRIA3 connectivity with coincident corners merged.
/// The file is first read as text; when that fails with a code from -198 to -1 (or cannot be
/// opened) it is read again as binary and the binary code is returned; a text code of 0 or -199
/// is final. When neither open succeeds the result is -1.
/// Text: lines are read in chunks of at most 255 bytes (a longer line is read as several lines),
/// ASCII letters lower-cased first, so keywords match in any case; everything after a NUL byte
/// in a line is ignored. The first line must contain "solid"; each facet is the five-line
/// sequence "facet normal x y z" (the normal is not kept), a line containing "outer loop", three
/// "vertex x y z" lines, lines containing "endloop" and "endfacet". Numbers follow the C
/// library's `%lg` conversion in the "C" locale ("nan" and "inf" are read as such). A line
/// containing "endsolid" ends a solid; when the next line contains "solid" the next solid
/// follows (one mesh), otherwise reading stops and the rest of the file is ignored.
/// Binary: an 80-byte header (ignored), a little-endian 32-bit triangle count, then 50 bytes per
/// triangle (normal, three corners as float32, a 2-byte attribute); the count is taken as a
/// signed 32-bit number, so a count of 2^31 or more reads no triangle and gives an empty mesh;
/// bytes after the last counted triangle are ignored. When the file size is known, a count
/// larger than the records present is rejected before anything is allocated.
/// Each corner first becomes a node of its own (nodes 3t, 3t+1, 3t+2 for triangle t). h2 is
/// the smallest positive squared triangle height: for corner i of (P0, P1, P2) and j = i+1,
/// k = i+2 (mod 3), |(Pi - Pj) x (Pk - Pj)|^2 / |Pk - Pj|^2 (no division when Pk = Pj), the
/// smallest of the three per triangle, the smallest positive one over the triangles. When no
/// triangle has a positive height the unmerged soup is returned. Otherwise the nodes are merged
/// exactly (merge with tolerance 0 on blocks of 100000 triangles), then with the tolerance
/// 0.05 sqrt(h2) over the whole connectivity, degenerated triangles are removed
/// (remove_degenerated, strict) and unused nodes dropped (simplify): the triangles that remain
/// keep the file's order and each node keeps the position of the first corner merged into it.
/// The storage of the outputs is reused; `pos` may keep capacity for the unmerged corners.
/// @param[in]  filename  path of the file.
/// @param[out] pos       3 x nbr_nodes coordinates; emptied first, empty on failure.
/// @param[out] connectM  3 x nbr_triangles node indices; emptied first, empty on failure.
/// @return 0 on success; -1 the file cannot be opened (or `filename` is null); -2 text: no
///         "solid" in the first line, binary: header shorter than 80 bytes; -3 text: syntax
///         error, binary: truncated data; -199 memory (also when the corners would number
///         2^32 - 1 or more). Outputs on failure: emptied.
/// Complexity: O(file size) parsing, then the merges: near-linear in the number of triangles
/// for well-spread nodes; O(nbr_triangles) extra memory besides the merges' own.
MESHUTIL_API int STL_input(const char* filename, dense2D<double>& pos,
                           dense2D<unsigned>& connectM) noexcept;

/// Writes a triangle surface as an STL file, text or binary.
/// The file is opened (mode "wt" or "wb") before the arguments are checked, so a failed check
/// leaves an empty file. Each facet normal is (P1 - P0) x (P2 - P0) divided by its length when
/// that is not zero (a zero normal is written as is); with 2-row coordinates the third
/// component of every node is 0. Text: "solid QX7", per triangle "   facet normal %le %le %le",
/// "      outer loop", three "         vertex %le %le %le", "      endloop", "   endfacet",
/// then "endsolid QX7", each line ended by "\n"; when a write fails in the middle the last line
/// is still attempted. Binary: the 80-byte header "QX7 STL Binary" padded with zero bytes, the
/// little-endian 32-bit triangle count, then per triangle the normal and the three corners as
/// little-endian float32 (values beyond the float range become infinities) and a zero 16-bit
/// attribute, on every host. Closing the file is part of writing: a failed close is a failed
/// write.
/// @param[in] filename  path of the file (created or truncated).
/// @param[in] pos       2 or 3 x nbr_nodes coordinates.
/// @param[in] connectM  3 x nbr_triangles node indices (EL_TRIA3), each below pos.cols().
/// @param[in] text      true for the text form, false for the binary form.
/// @return 0 on success; -1 the file cannot be opened (or `filename` is null) or a write
///         failed, also when there are 2^32 triangles or more for the binary count; -2 `pos`
///         has neither 2 nor 3 rows; -3 `connectM` fails check_IDs(connectM, EL_TRIA3,
///         pos.cols()). Outputs on failure: the file is left empty or partly written.
/// Complexity: O(nbr_triangles) time, O(1) extra memory besides a fixed output buffer.
MESHUTIL_API int STL_output(const char* filename, const dense2D<double>& pos,
                            const dense2D<unsigned>& connectM, bool text) noexcept;

// (end of STL files)

// ------------------------------------------------------------------------------------ NASTRAN bulk
// data

/// Writes a mesh as a NASTRAN bulk-data deck: a "$" comment banner, "BEGIN BULK", one MAT1 card,
/// a large-field "GRID*" card pair per node ("GRID*   %16d                %16E%16E*C" with the
/// identifier i + 1, x and y, then "*C      %16E" with z, 0.0 for planar coordinates), one
/// free-field card per element and "ENDDATA". The elements are written group by group: group k
/// is the columns first[k] to first[k+1] - 1 of connectM with type types[k]. An element card is
/// "NAME,EID,PID" and ",%d" per node (1-based), with EID the column index + 1 over the whole
/// matrix and PID its entry of PIDs; after every eight fields a line ends with ",+C" and the next
/// begins with "+C" (so six nodes on the first line, eight on the next ones). Cards: CBAR (end
/// nodes of EL_EDGE2, EL_EDGE3), CTRIA3, CQUAD4, CTRIA6 (N0 N1 N2 N5 N3 N4), CQUAD8 (EL_QUAD8;
/// EL_QUAD9 with its first eight nodes), CTETRA (EL_TETRA4 N0 N2 N1 N3; EL_TETRA10 N0 N2 N1 N3 N5
/// N4 N6 N7 N9 N8), CPYRAM (EL_PYRAM5; EL_PYRAM14 without its last node), CPENTA (EL_PENTA6;
/// EL_PENTA18 as 15 nodes N0-N5 N11 N9 N10 N6 N7 N8 N14 N12 N13), CHEXA (EL_HEXA8; EL_HEXA20 and
/// EL_HEXA27 as N0-N11 N16-N19 N12-N15). EL_FACE_MIX and EL_SOLID_MIX groups are typed column by
/// column; EL_UNKNOWN, EL_NODE, EL_EDGE_MIX and values outside 0 to 20 write no card but their
/// columns keep their identifiers.
/// Group check: the group's sub-matrix is its columns and the first r rows of connectM (at most
/// all), r = nbr_nodes(types[k]), or min(rows, 4) for EL_FACE_MIX and min(rows, 20) for
/// EL_SOLID_MIX; it must have exactly nbr_nodes(types[k]) rows (so a mixed solid group needs 8
/// rows exactly and a face group 4). Node indices are not bounded.
/// @param[in] connectM  connectivity of all groups.
/// @param[in] first     types.size() + 1 column offsets, non-decreasing, the last at most
///                      connectM.cols().
/// @param[in] types     one element_type value per group.
/// @param[in] PIDs      one property identifier per column.
/// @return 0 at once, creating no file, when connectM has no entries; -1 the file cannot be
///         opened or written; -2 pos has neither 2 nor 3 rows; -5 first.size() differs from
///         types.size() + 1; -6 PIDs.size() differs from connectM.cols(); then for each group in
///         order: -4 its column range decreases or passes connectM.cols(), -3 its sub-matrix has
///         the wrong row count. Checks -2 to -3 come after the file is opened and leave it empty.
/// Complexity: O(nbr_nodes + entries) time, O(1) extra memory.
MESHUTIL_API int NASTRAN_output(const char* filename, const dense2D<double>& pos,
                                const dense2D<unsigned>& connectM, const dense1D<unsigned>& first,
                                const dense1D<int>& types, const dense1D<unsigned>& PIDs) noexcept;

/// One group: every column of connectM with type FE_type and the property identifier 1.
/// @return the codes of the general form; -199 memory.
MESHUTIL_API int NASTRAN_output(const char* filename, const dense2D<double>& pos,
                                const dense2D<unsigned>& connectM, element_type FE_type) noexcept;

/// Two matrices as two groups: their columns are gathered into one matrix (connectM1's columns
/// first, element identifiers running on over both; rows the larger row count, missing rows
/// ~0u), with the property identifier 1 for the elements of connectM1 and 2 for those of
/// connectM2. A matrix with no entries forms no group.
/// @return the codes of the general form (0 and no file when both are empty); -199 memory.
/// Complexity: O(nbr_nodes + entries) time and extra memory.
MESHUTIL_API int NASTRAN_output(const char* filename, const dense2D<double>& pos,
                                const dense2D<unsigned>& connectM1,
                                const dense2D<unsigned>& connectM2, element_type FE_type1,
                                element_type FE_type2) noexcept;

// (end of NASTRAN bulk data)

// ------------------------------------------------------------------------------------ EnSight
// geometry

/// Writes a mesh as an EnSight text geometry file with given node and element ids: the banner
/// lines, "coordinates", "%8d" with the node count and one line per node (its id i + 1 as "%8d",
/// then x, y, z as "%12.5e", 0.0 for missing components), then one part per matrix of the range:
/// matrix k becomes "part %8d" with k + 1, a line of asterisks, the element keyword, "%8d" with
/// the element count and one line per element (its id, the column index + 1 counted in the part,
/// then its nodes + 1, all as "%8d"). Keywords and node orders: bar2, bar3, tria3, quad4, tria6
/// (N0 N1 N2 N5 N3 N4), quad8 (EL_QUAD8, EL_QUAD9 without its centre), tetra4 (N0 N2 N1 N3),
/// tetra10 (N0 N2 N1 N3 N5 N4 N6 N7 N9 N8), penta6 (EL_PENTA6, EL_PENTA18 truncated), hexa8,
/// hexa20 (EL_HEXA20, EL_HEXA27 truncated). Matrices with no entries and types without a keyword
/// (pyramids, the mixed types, EL_UNKNOWN, EL_NODE, EL_EDGE_MIX) write no part but use up their
/// part number; mixed matrices are not split, but one whose row count forces a plain type (e.g.
/// EL_FACE_MIX with 3 rows) is written as that type. Node indices are not bounded.
/// @param[in] pos  1, 2 or 3 x nbr_nodes coordinates.
/// @return 0; -1 the file cannot be opened or written; -2 pos has not 1, 2 or 3 rows; -4 last
///         before first; -5 the number of matrices differs from element_types.size(); -3 a matrix
///         fails check_IDs against its type (row count only). The file is opened first: a failed
///         check leaves an empty file, deliberately.
/// Complexity: O(nbr_nodes + total entries) time, O(1) extra memory.
MESHUTIL_API int ensight_output(const char* filename, const dense2D<double>& pos,
                                const dense2D<unsigned>* first, const dense2D<unsigned>* last,
                                const dense1D<int>& element_types) noexcept;

/// The range form with one matrix: part 1.
MESHUTIL_API int ensight_output(const char* filename, const dense2D<double>& pos,
                                const dense2D<unsigned>& connectM, element_type FE_type) noexcept;

/// The range form with two matrices in this order: parts 1 and 2.
MESHUTIL_API int ensight_output(const char* filename, const dense2D<double>& pos,
                                const dense2D<unsigned>& connectM1,
                                const dense2D<unsigned>& connectM2, element_type FE_type1,
                                element_type FE_type2) noexcept;

// (end of EnSight geometry)

// ------------------------------------------------------------------------------------ FEMAP
// neutral files

// (end of FEMAP neutral files)

// ------------------------------------------------------------------------------------ Wavefront
// OBJ files

// (end of Wavefront OBJ files)

} // namespace qx7::meshutil
