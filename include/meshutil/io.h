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

/// Reads a formatted medit mesh file (.mesh): vertices with their references and the elements
/// of the kinds Edges, Triangles, Quadrilaterals, Tetrahedra, Pyramids, Prisms (or Pentahedra)
/// and Hexahedra (or Hexaedra), with their references.
/// The file is a stream of blank-separated tokens: line breaks are not significant, "#" starts
/// a comment up to the end of its line anywhere, keywords match exactly and may come in any order
/// and any number of times (sections of one kind are appended in file order). The first keyword
/// must be "MeshVersionFormatted" (version 1 to 4; reals are read as doubles whatever the
/// version) and "Dimension" (1, 2 or 3) must precede "Vertices" (and may not change after it).
/// Reading stops at "End"; the end of the file after a complete section is accepted as well.
/// Keywords this reader does not keep (Corners, Ridges, Normals, high-order kinds, solution data,
/// ...) are skipped with their data: tokens are consumed up to the next one that starts with a
/// letter; "nan" and "inf" in any case are data, not keywords. A number where a keyword is expected
/// (more records than the count announced) is an error. Hexahedra collapsed the way medit_output
/// writes pyramids and prisms are given back as such: "a b c d e e e e" (last four equal, first
/// five distinct) as the pyramid a b c d e, and "a b c c d e f f" (the six others distinct) as the
/// prism a b c d e f; other repeated nodes are kept as hexahedra. Indices are 1-based in the file
/// and 0-based in the output; they are checked against the vertex count once the whole file is
/// read.
/// @param[in]  filename  path of the file.
/// @param[out] pos       dimension x nbr_vertices coordinates; resized by the call.
/// @param[out] vertex_refs  nbr_vertices references.
/// @param[out] connectM  one connectivity per element type: connectM[EL_EDGE2], [EL_TRIA3],
///                       [EL_QUAD4], [EL_TETRA4], [EL_PYRAM5], [EL_PENTA6] and [EL_HEXA8] receive
///                       the elements of the file, nbr_nodes(type) x count each, in file order;
///                       every other entry is emptied.
/// @param[out] refs      refs[t] holds the references of the columns of connectM[t].
/// @return 0 on success; -1 the file cannot be opened or read; -2 the content is malformed (not
///         starting with MeshVersionFormatted, a token that is not the expected number, a
///         negative count, fewer records than announced, Vertices before Dimension, a number
///         where a keyword is expected, NaN or infinite coordinates, a token over 1 MiB);
///         -3 a vertex index outside 1 .. nbr_vertices; -4 a version other than 1 to 4 or a
///         dimension other than 1 to 3; -199 memory. The first problem met in file order decides,
///         index checks coming last. Outputs on failure: emptied.
/// Complexity: O(file size) time, O(output) memory (counts from the file only bound
/// reservations by the bytes actually left in the file).
MESHUTIL_API int medit_input(const char* filename, dense2D<double>& pos, dense1D<int>& vertex_refs,
                             dense2D<unsigned> (&connectM)[nbr_element_types],
                             dense1D<int> (&refs)[nbr_element_types]) noexcept;

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
/// grouped by number of defined nodes, the shapes present following each other in the order
/// triangles, quadrangles, or tetrahedra, pyramids, wedges, hexahedra; every part is converted by
/// vtk_convert, in range order. Matrices with no entries write nothing, whatever their type. The
/// file is opened first and the checks follow: a failed check leaves an empty file, deliberately.
/// @return 0; -1 the file cannot be opened or written; -2 pos has neither 2 nor 3 rows; -4 last
///         before first; -5 the number of matrices differs from element_types.size(); -3 a matrix
///         fails check_IDs against its type and pos.cols(); then the first non-zero code of
///         vtk_convert (-2 for a type without a VTK cell); -199 memory.
/// Complexity: O(nbr_nodes + total entries) time; O(entries of the mixed matrices) extra memory
/// (the cell lists are converted and written block by block, never held whole).
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
/// keep the file's order; the nodes are the surviving corners in file order, each with its own
/// coordinates (a corner is merged into the earliest corner within the tolerance, chains
/// resolved). A successful read always gives 3-row outputs, 3 x 0 for a file without triangles.
/// The corners are welded while the file is read: they wait in a buffer of one block until a
/// triangle with a positive height has been seen, and only the distinct corners of each block
/// are kept (the result is the one of the steps above). The storage of the outputs is reused;
/// `pos` may keep capacity for those distinct corners.
/// @param[in]  filename  path of the file.
/// @param[out] pos       3 x nbr_nodes coordinates; emptied first, empty on failure.
/// @param[out] connectM  3 x nbr_triangles node indices; emptied first, empty on failure.
/// @return 0 on success; -1 the file cannot be opened (or `filename` is null); -2 text: no
///         "solid" in the first line, binary: header shorter than 80 bytes; -3 text: syntax
///         error, binary: truncated data; -199 memory (also when the corners would number
///         2^32 - 1 or more). Outputs on failure: emptied.
/// Complexity: O(file size) parsing, then the merges: near-linear in the number of triangles
/// for well-spread nodes (on surfaces too); extra memory: one block of corners and the merges'
/// scratch over the distinct corners (a file whose first blocks have no positive height keeps
/// their corners until one comes).
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

/// Reads the bulk data of a NASTRAN deck: GRID cards as nodes and element cards as one
/// connectivity with groups, the form NASTRAN_output writes (group k is the columns first[k] up
/// to first[k+1] of connectM, of type types[k]; one property identifier per column).
/// Lines before "BEGIN BULK" (which may carry more words, "BEGIN BULK=..." or "BEGIN SUPER=...")
/// are ignored, and so is anything after "ENDDATA"; both are matched without regard to case after
/// leading blanks, and both are required. Cards come in small field (8 columns), large field
/// ("GRID*", 16 columns, continued on a line starting with "*") or free field (a comma on the
/// line; "GRID*," for large free field); each physical line chooses its own format. A line whose
/// first character is "+", "*", "," or a blank continues the card above (continuation markers are
/// not matched); text from "$" on is a comment; blank lines are skipped; a tab advances a
/// fixed-field line to the next multiple of eight columns and is a blank in free field. A
/// free-field line of exactly nine data items (five in large field) followed by a continuation
/// line ends with the continuation marker, which is dropped; a free-field line followed by a
/// continuation is otherwise padded to eight (four) fields. Reals take NASTRAN's forms ("1.5-3",
/// "+5.-1", ".5", "5.0D-1", "50.-2") as well as plain integers; NaN, infinities and text are
/// errors. Card names are matched without regard to case.
/// Nodes: GRID ID CP X1 X2 X3 (blank coordinates are 0). Identifiers need not be contiguous or
/// sorted: node j is the j-th GRID of the deck and node_IDs[j] its identifier. CP must be blank
/// or 0 (the basic system).
/// Elements, kept in deck order: CROD, CBAR, CBEAM (first two grids: EL_EDGE2); CTRIA3
/// (EL_TRIA3); CTRIA6 (EL_TRIA6; with its three mid-side grids blank or 0, EL_TRIA3); CQUAD4
/// (EL_QUAD4); CQUAD8 (EL_QUAD8, or EL_QUAD4 with blank mid-sides); CTETRA (EL_TETRA4 or
/// EL_TETRA10); CPYRAM or CPYRA (EL_PYRAM5; 13 grids give EL_PYRAM14 with ~0u in row 13, its
/// base-centre node); CPENTA (EL_PENTA6; 15 grids give EL_PENTA18 with ~0u in rows 15-17, its
/// face-centre nodes); CHEXA (EL_HEXA8 or EL_HEXA20). The names "CTETRA_", "CPYRA_", "CPENTA_"
/// and "CHEXA_" are read as the cards without the underscore. Mid-edge grids must be all given or
/// all blank; a partly quadratic element is an error. Node orders are the inverse of
/// NASTRAN_output's: a triangle G1..G6 gives G1 G2 G3 G5 G6 G4, a tetrahedron G1 G3 G2 G4 (with
/// mid-edges G5 G7 G6 G8 G10 G9), a 15-grid wedge G1..G6 G10 G11 G12 G8 G9 G7 G14 G15 G13, a
/// 20-grid hexahedron G1..G12 G17..G20 G13..G16. A blank property identifier reads as the element
/// identifier. Other cards are skipped with their continuations.
/// Groups are runs of consecutive cards of one type; consecutive linear triangles and quadrangles
/// form one group, of type EL_FACE_MIX when both occur, and so do consecutive linear solids
/// (EL_SOLID_MIX). connectM has as many rows as the largest group needs: nbr_nodes(type), 4 for
/// EL_FACE_MIX, 8 for EL_SOLID_MIX; the rows below a column's nodes hold ~0u.
/// @param[in]  filename     path of the deck.
/// @param[out] pos          3 x nbr_nodes coordinates, in GRID order.
/// @param[out] connectM     rows x nbr_elements connectivity, in card order.
/// @param[out] first        nbr_groups + 1 column offsets (first[0] = 0, last = nbr_elements).
/// @param[out] types        nbr_groups element types.
/// @param[out] PIDs         nbr_elements property identifiers.
/// @param[out] node_IDs     nbr_nodes GRID identifiers.
/// @param[out] element_IDs  nbr_elements element identifiers.
/// @return 0 on success; -1 the file cannot be opened or read; -2 the deck is malformed (no
///         BEGIN BULK or no ENDDATA, a continuation without a card, a field that is not the
///         number expected, an identifier not in 1 .. 4294967294, too few grids, a partly
///         quadratic element, a line over 1 MiB); -3 an element names a grid no GRID defines, or
///         a GRID or element identifier repeats; -4 a GRID with a coordinate system other than
///         the basic one; -199 memory. The first problem in deck order decides; identifier checks
///         come after the whole deck is read. Outputs on failure: emptied.
/// Complexity: O(file size) expected time (hash tables of identifiers), O(output) memory.
MESHUTIL_API int NASTRAN_input(const char* filename, dense2D<double>& pos,
                               dense2D<unsigned>& connectM, dense1D<unsigned>& first,
                               dense1D<int>& types, dense1D<unsigned>& PIDs,
                               dense1D<unsigned>& node_IDs,
                               dense1D<unsigned>& element_IDs) noexcept;

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

/// Writes a mesh as a formatted FEMAP neutral file (version 4.41): a header block 100, one
/// property block 402 entry per distinct non-zero property identifier, ascending (no block 402
/// when there is none; each entry carries the family of the first element using it), the nodes
/// in block 403 and the elements in block 404, each block between "   -1" lines.
/// Group k is the columns first[k] up to first[k+1] of connectM, of type types[k]; it uses the
/// first nbr_nodes(types[k]) rows (4 for EL_FACE_MIX, 8 for EL_SOLID_MIX, whose columns are typed
/// one by one by their packing). Node j gets identifier j + 1, column j of connectM element
/// identifier j + 1. Nodes are written "ID,0,0,1,46,0,0,0,0,0,0,x,y,z,0," with the coordinates
/// as "%.16E" (read back exactly; z = 0 for 2-row coordinates); each element as its record
/// "ID,124,PID,type,topology,1,0,0," (type 2 bar for edges, 17/18 linear/parabolic plate for
/// surfaces, 25/26 linear/parabolic solid), two lines of ten node slots (0 = empty), three lines
/// "0.,0.,0.," and a line of sixteen zeros. Topologies and slots: EL_NODE point (9); EL_EDGE2
/// and EL_EDGE_MIX line2 (0); EL_EDGE3 line3 (1; ends then middle); EL_TRIA3 tri3 (2);
/// EL_TRIA6 tri6 (3; mid-sides 0-1, 1-2, 2-0 in slots 4, 5, 6); EL_QUAD4 quad4 (4); EL_QUAD8 and
/// EL_QUAD9 quad8 (5, the centre node of EL_QUAD9 is dropped); EL_TETRA4 tetra4 (6, corners in
/// slots 0, 1, 2, 4) and EL_TETRA10 tetra10 (10), both in the node order NASTRAN_output writes;
/// EL_PENTA6 wedge6 (7); EL_PENTA18 wedge15 (11, face centres dropped); EL_HEXA8 brick8 (8);
/// EL_HEXA20 and EL_HEXA27 brick20 (12, centres dropped); EL_PYRAM5 a brick8 with the apex in
/// slots 4 to 7, EL_PYRAM14 a brick20 with the apex in slots 4 to 7 and 16 to 19 (base centre
/// dropped). Groups of type EL_UNKNOWN are skipped; their columns still count for identifiers.
/// @param[in] filename  path of the file, opened with mode "w".
/// @param[in] pos       2 or 3 x nbr_nodes coordinates.
/// @param[in] connectM  connectivity holding all groups.
/// @param[in] first     nbr_groups + 1 non-decreasing column offsets, from 0 to connectM.cols().
/// @param[in] types     nbr_groups element types.
/// @param[in] PIDs      connectM.cols() property identifiers (0 = none).
/// @return 0 on success; -2 pos does not have 2 or 3 rows; -4 first is empty, does not start at
///         0, decreases or does not end at the column count; -5 types.size() + 1 differs from
///         first.size() or a type is outside 0 to 20; -6 PIDs.size() differs from the column
///         count; -3 connectM has fewer rows than a group needs or a group fails check_IDs with
///         its type and pos.cols() (~0u only where a mixed packing allows it); -1 the file cannot
///         be opened or written; -199 memory. Outputs on failure: no file is created by a failed
///         check; a write error may leave a partial file.
/// Complexity: O(nbr_nodes + rows x nbr_elements + P log P) time for P elements with a
/// property, O(P) extra memory.
MESHUTIL_API int FEMAP_output(const char* filename, const dense2D<double>& pos,
                              const dense2D<unsigned>& connectM, const dense1D<unsigned>& first,
                              const dense1D<int>& types, const dense1D<unsigned>& PIDs) noexcept;

/// One group of type FE_type, every property identifier 1: the general form with first =
/// (0, connectM.cols()) and types = (FE_type).
/// @return as the general form; -199 memory.
MESHUTIL_API int FEMAP_output(const char* filename, const dense2D<double>& pos,
                              const dense2D<unsigned>& connectM, element_type FE_type) noexcept;

/// Reads a formatted FEMAP neutral file: nodes of block 403 and elements of block 404, in the
/// grouped-connectivity form of NASTRAN_input.
/// Blocks are "-1" lines (blanks ignored) around a block identifier and its records; blocks may
/// come in any order and repeat; blank lines between blocks are skipped; blocks other than 100,
/// 403 and 404 are skipped. Values are separated by commas and/or blanks. Block 100 gives the
/// version (its title line is not interpreted). Nodes: identifier and fields 11 to 13 (x, y, z)
/// of records of at least 14 values. Elements: the first record gives identifier, property and
/// topology; the next record holds ten node slots, or twelve values of a newer layout followed by
/// the node records; two records of ten slots in all, then four records (orientation, offsets,
/// releases) are skipped, and when the version is 4.5 or more (or there is no block 100) each
/// non-zero one of the last four release values announces a list of records closed by one
/// starting with -1. Topologies are read back as FEMAP_output writes them: a brick8 whose slots 4
/// to 7 hold one node (or whose slots 5 to 7 are empty) is a pyramid, a brick20 collapsed the
/// same way with slots 16 to 19 equal to the apex or empty an EL_PYRAM14 with ~0u in row 13; a
/// wedge15 gives EL_PENTA18 with ~0u in rows 15 to 17; a tetra4 with slot 3 filled and slot 4
/// empty takes slots 0 to 3. Line3 gives EL_EDGE3, point EL_NODE. Elements of topologies 13, 15,
/// 16 and 17 (rigid, multi-node lists, contact, weld) are skipped. Groups follow NASTRAN_input's
/// rule (runs of one type; linear faces and linear solids mix).
/// @param[in]  filename     path of the file.
/// @param[out] pos          3 x nbr_nodes coordinates, in file order.
/// @param[out] connectM, first, types, PIDs  as NASTRAN_input.
/// @param[out] node_IDs     nbr_nodes node identifiers.
/// @param[out] element_IDs  nbr_elements element identifiers.
/// @return 0 on success; -1 the file cannot be opened or read; -2 the content is malformed (the
///         first non-blank line is not -1, a block or record cut short by the end of the file or
///         by a delimiter, a value that is not the number expected, an identifier not in 1 ..
///         4294967294, a node slot that the topology uses left empty or one it does not use
///         filled, a line over 1 MiB); -3 an element names a node no record defines, or a node or
///         element identifier repeats; -4 an unknown topology code; -199 memory. The first
///         problem in file order decides; identifier checks come after the whole file is read.
///         Outputs on failure: emptied.
/// Complexity: O(file size) expected time, O(output) memory.
MESHUTIL_API int FEMAP_input(const char* filename, dense2D<double>& pos,
                             dense2D<unsigned>& connectM, dense1D<unsigned>& first,
                             dense1D<int>& types, dense1D<unsigned>& PIDs,
                             dense1D<unsigned>& node_IDs, dense1D<unsigned>& element_IDs) noexcept;

// (end of FEMAP neutral files)

// ------------------------------------------------------------------------------------ Wavefront
// OBJ files

/// Writes meshes as a Wavefront OBJ file: a comment line, every node as "v x y z" (coordinates
/// as "%.17g", read back exactly; z = 0 for 2-row coordinates), then the elements of matrix
/// after matrix, column by column, as "f a b c", "f a b c d" or "l a b" with 1-based absolute
/// indices. EL_TRIA3 and EL_QUAD4 columns are faces; EL_FACE_MIX columns are typed one by one;
/// the quadratic surface types write their corners only. EL_EDGE2, EL_EDGE_MIX and EL_EDGE3
/// (ends only) are lines. EL_UNKNOWN and EL_NODE matrices are left out; solids cannot be written.
/// @param[in] filename       path of the file, opened with mode "w".
/// @param[in] pos            2 or 3 x nbr_nodes coordinates.
/// @param[in] first, last    range of connectivities.
/// @param[in] element_types  one element type per matrix.
/// @return 0 on success; -2 pos does not have 2 or 3 rows; -4 last before first; -5 the number of
///         matrices differs from element_types.size(), or a type is a solid type or outside 0 to
///         20; -3 a matrix fails check_IDs with its type and pos.cols(); -1 the file cannot be
///         opened or written. Outputs on failure: no file is created by a failed check; a write
///         error may leave a partial file.
/// Complexity: O(nbr_nodes + total size of the matrices) time, O(1) extra memory.
MESHUTIL_API int WavefrontOBJ_output(const char* filename, const dense2D<double>& pos,
                                     const dense2D<unsigned>* first, const dense2D<unsigned>* last,
                                     const dense1D<int>& element_types) noexcept;

/// One matrix: the range form with that matrix and its type.
/// @return as the range form; -199 memory.
MESHUTIL_API int WavefrontOBJ_output(const char* filename, const dense2D<double>& pos,
                                     const dense2D<unsigned>& connectM,
                                     element_type FE_type) noexcept;

/// Reads the polygonal geometry of a Wavefront OBJ file: vertices, faces and lines.
/// Statements are lines (ends "\n", "\r\n" or "\r"; a UTF-8 byte-order mark is skipped); "#"
/// starts a comment anywhere; a "\" ending a line (after the comment is cut) joins the next line.
/// "v x y z" gives a vertex (numbers after the third, weight or colour, are ignored); "vt" and
/// "vn" are counted for index checks; "f" takes three or more references and "l" two or more, in
/// any of the forms v, v/vt, v//vn, v/vt/vn; a negative index counts back from the last element of
/// its kind defined above the line (-1 is the latest). Faces of three corners are triangles, of
/// four quadrangles; a polygon of n > 4 corners c0 .. c(n-1) is split into the fan of triangles
/// (c0, ci, c(i+1)), i = 1 .. n-2, which keeps its orientation and is exact for polygons convex
/// or star-shaped from c0. Corners are not checked for repetition (degenerate faces are kept). A
/// line through v0 .. v(m-1) gives the edges (vi, v(i+1)). Every other statement (vp, p, g, o, s,
/// usemtl, mtllib, free-form geometry, ...) is ignored; keywords are case-sensitive.
/// @param[in]  filename   path of the file.
/// @param[out] pos        3 x nbr_vertices coordinates.
/// @param[out] faces      faces in file order: 3 rows (EL_TRIA3) when all faces are triangles,
///                        4 rows (EL_QUAD4) when all are quadrangles, else 4 rows with ~0u in row
///                        3 for triangles (EL_FACE_MIX); empty when there is no face.
/// @param[out] face_type  EL_TRIA3, EL_QUAD4 or EL_FACE_MIX; EL_UNKNOWN when there is no face.
/// @param[out] edges      2 x nbr_edges edges (EL_EDGE2) in file order.
/// @return 0 on success; -1 the file cannot be opened or read; -2 malformed content (a v with
///         fewer than three numbers, a number that is not one (NaN and infinities included), a
///         face with fewer than three or a line with fewer than two references, a reference not
///         of the four forms, an index 0, a line over 1 MiB); -3 an index beyond its kind's
///         count or a relative index reaching before the first element of its kind; -199
///         memory. The first problem in file order decides, except indices counted from the
///         start, which are checked after the whole file is read. Outputs on failure: emptied.
/// Complexity: O(file size) time, O(output) memory.
MESHUTIL_API int WavefrontOBJ_input(const char* filename, dense2D<double>& pos,
                                    dense2D<unsigned>& faces, element_type& face_type,
                                    dense2D<unsigned>& edges) noexcept;

// (end of Wavefront OBJ files)

} // namespace qx7::meshutil
