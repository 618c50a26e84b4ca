// Internal pieces of the STL reader, reachable by the tests and the fuzz target (never installed).
#pragma once

#include <cstddef>
#include <cstdio>
#include <meshutil/containers.h>

namespace qx7::meshutil::detail
{

/// Triangles per block of the exact merging pass of the STL reader.
inline constexpr std::size_t stl_exact_block = 100000;

/// Bytes of one binary STL triangle record: normal, three corners (12 float32), attribute word.
inline constexpr std::size_t stl_record_bytes = 50;

/// Bytes of the binary STL header that precedes the triangle count.
inline constexpr std::size_t stl_header_bytes = 80;

/// Scans `line` exactly as sscanf(line, " facet normal %lg %lg %lg\n", ...) (facet true) or
/// sscanf(line, " vertex %lg %lg %lg\n", ...) (facet false) would, "C" locale: true when three
/// numbers convert, their values in v. Plain decimal numbers of up to 19 digits whose value is
/// exact in one correctly rounded multiplication or division are converted directly, any other
/// line goes through sscanf.
bool stl_scan_triple(const char* line, bool facet, double v[3]) noexcept;

/// Writes x into out as printf's "%le" does ("C" locale) when a direct conversion is safe and
/// returns the length (at most 13, no terminating NUL); 0 otherwise (non-finite values,
/// decimal exponents outside -16..28, values within 1e-6 of a rounding tie in the seventh
/// digit), where the caller formats with snprintf.
int stl_format_e_direct(double x, char* out) noexcept;

/// Reads the facets of a text STL file from the current position of f, three new columns of
/// pos per facet (pos must be empty). Returns 0, -2 (no first line, or no "solid" in it), -3
/// (syntax error) or -199. On failure pos holds what was read so far.
int stl_read_text(std::FILE* f, dense2D<double>& pos) noexcept;

/// Reads the triangles of a binary STL file from the start of f, three new columns of pos per
/// triangle (pos must be empty). Returns 0, -2 (short header), -3 (truncated data) or -199. On
/// failure pos holds what was read so far.
int stl_read_binary(std::FILE* f, dense2D<double>& pos) noexcept;

/// Smallest squared height of the triangle (a, b, c): for each corner i with j = i+1, k = i+2
/// (mod 3), |(Pi - Pj) x (Pk - Pj)|^2 / |Pk - Pj|^2, without the division when Pk = Pj.
double stl_triangle_height2(const double* a, const double* b, const double* c) noexcept;

/// Smallest positive stl_triangle_height2 over the triangles (3t, 3t+1, 3t+2) of the 3-row pos;
/// 0 when none is positive.
double stl_smallest_height2(const dense2D<double>& pos) noexcept;

/// Turns the corner soup in pos (3 columns per triangle) into a mesh: sequential connectivity,
/// then, when some triangle has a positive height, the exact merge by blocks, the tolerance merge,
/// removal of degenerated triangles and of unused nodes. Returns 0, a negative code of those
/// steps, or -199.
int stl_weld(dense2D<double>& pos, dense2D<unsigned>& connectM) noexcept;

} // namespace qx7::meshutil::detail
