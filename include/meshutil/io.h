// Mesh files: readers and writers (medit, legacy VTK, STL, NASTRAN, EnSight, FEMAP neutral,
// Wavefront OBJ).
#pragma once

#include <meshutil/containers.h>
#include <meshutil/elements.h>
#include <meshutil/export.h>

#include <cstdio>

namespace qx7::meshutil
{

// ------------------------------------------------------------------------------------ medit files

// (end of medit files)

// ------------------------------------------------------------------------------------ legacy VTK files

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

// ------------------------------------------------------------------------------------ NASTRAN bulk data

// (end of NASTRAN bulk data)

// ------------------------------------------------------------------------------------ EnSight geometry

// (end of EnSight geometry)

// ------------------------------------------------------------------------------------ FEMAP neutral files

// (end of FEMAP neutral files)

// ------------------------------------------------------------------------------------ Wavefront OBJ files

// (end of Wavefront OBJ files)

} // namespace qx7::meshutil
