// Pieces shared by the file-format readers and writers (never installed): an owning FILE handle,
// a buffered text writer whose number formatting gives the same bytes as printf, the node-order
// tables of the element records of each format, and the splitting of mixed connectivities into
// pure ones.
#pragma once

#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <meshutil/containers.h>
#include <meshutil/elements.h>
#include <vector>

namespace qx7::meshutil::io
{

// ------------------------------------------------------------------------------------ FILE

/// Owns a FILE* and closes it on every path; close() reports whether closing succeeded.
class file_handle
{
public:
    /// Opens filename with the stdio mode; a null name gives no file.
    file_handle(const char* filename, const char* mode) noexcept
        : m_file(filename ? std::fopen(filename, mode) : nullptr)
    {
    }
    file_handle(const file_handle&) = delete;
    file_handle& operator=(const file_handle&) = delete;
    ~file_handle() { close(); }

    FILE* get() const noexcept { return m_file; }
    explicit operator bool() const noexcept { return m_file != nullptr; }
    /// Closes the file (if open); false when the C runtime reports an error.
    bool close() noexcept
    {
        if (!m_file) return true;
        bool ok = std::fclose(m_file) == 0;
        m_file = nullptr;
        return ok;
    }

private:
    FILE* m_file;
};

// ------------------------------------------------------------------------------------ numbers

/// A printf conversion of one double: `conv` 'e', 'E' or 'f', minimum field `width` (0: none,
/// right-justified with blanks otherwise) and `precision` digits after the point. {'E', 16, 6}
/// stands for "%16E", {'f', 0, 6} for "%f", {'e', 12, 5} for "%12.5e".
struct num_format
{
    char conv;
    int width;
    int precision;
};

/// Room that one formatted number may take: a "%.6f" of the largest double has 317 characters.
inline constexpr std::size_t max_number_chars = 352;

namespace detail
{
inline constexpr char digit_pairs[] = "00010203040506070809"
                                      "10111213141516171819"
                                      "20212223242526272829"
                                      "30313233343536373839"
                                      "40414243444546474849"
                                      "50515253545556575859"
                                      "60616263646566676869"
                                      "70717273747576777879"
                                      "80818283848586878889"
                                      "90919293949596979899";

/// Writes the decimal digits of u ending just before `end`; returns where they start.
inline char* digits_backwards(char* end, unsigned u) noexcept
{
    while (u >= 100)
    {
        unsigned q = u / 100;
        end -= 2;
        std::memcpy(end, digit_pairs + 2 * (u - 100 * q), 2);
        u = q;
    }
    if (u >= 10)
    {
        end -= 2;
        std::memcpy(end, digit_pairs + 2 * u, 2);
    }
    else
        *--end = char('0' + u);
    return end;
}

/// Copies [s, s + n) to p right-justified in a field of `width` blanks; returns the new end.
inline char* pad_copy(char* p, const char* s, std::size_t n, int width) noexcept
{
    for (std::size_t k = n; k < std::size_t(width > 0 ? width : 0); ++k)
        *p++ = ' ';
    std::memcpy(p, s, n);
    return p + n;
}
} // namespace detail

/// Number of decimal digits of u.
inline unsigned count_digits(unsigned u) noexcept
{
    unsigned n = 1;
    for (; u >= 10000; u /= 10000)
        n += 4;
    return n + (u >= 10) + (u >= 100) + (u >= 1000);
}

/// Writes v as printf's "%*d" with the given width (0: none) at p; returns the end. The bytes are
/// those printf gives, so an unsigned index above INT_MAX, passed through static_cast<int>, comes
/// out negative exactly as it would from printf("%d").
inline char* format_int(char* p, int v, int width = 0) noexcept
{
    unsigned u = static_cast<unsigned>(v);
    if (v < 0) u = 0u - u;
    const unsigned len = count_digits(u) + (v < 0);
    for (unsigned k = len; k < unsigned(width > 0 ? width : 0); ++k)
        *p++ = ' ';
    if (v < 0) *p = '-';
    char* end = p + len;
    detail::digits_backwards(end, u);
    return end;
}

/// Writes v as printf would with the conversion f, at p (at least max_number_chars free); returns
/// the end. Finite values go through std::to_chars with the same precision, which rounds the exact
/// binary value correctly (ties to even) as glibc's printf does; the point is always '.',
/// whatever the locale. Infinities and NaNs are handed to snprintf.
inline char* format_double(char* p, double v, num_format f) noexcept
{
    if (!std::isfinite(v))
    {
        const char* fmt = f.conv == 'E' ? "%*.*E" : f.conv == 'e' ? "%*.*e" : "%*.*f";
        int n = std::snprintf(p, max_number_chars, fmt, f.width, f.precision, v);
        return p + (n > 0 ? n : 0);
    }
    char tmp[max_number_chars];
    char* out = f.width > 0 ? tmp : p;
    std::to_chars_result r =
        f.conv == 'f'
            ? std::to_chars(out, out + max_number_chars, v, std::chars_format::fixed, f.precision)
            : std::to_chars(out, out + max_number_chars, v, std::chars_format::scientific,
                            f.precision);
    if (f.conv == 'E')
    {
        // d[.ddd]e±xx: the exponent letter follows the sign, one digit and the fraction.
        char* e = out + (std::signbit(v) ? 1 : 0) + 1 + (f.precision > 0 ? f.precision + 1 : 0);
        *e = 'E';
    }
    if (out == p) return r.ptr;
    return detail::pad_copy(p, tmp, std::size_t(r.ptr - tmp), f.width);
}

// ------------------------------------------------------------------------------------ writer

/// Buffered text output to a FILE: records are formatted into a block of memory (1 MiB, or a
/// small inline block when that cannot be had) that goes to the file with one fwrite when full.
/// Numbers are formatted by format_int and format_double. A failed fwrite is remembered;
/// finish() reports it.
class text_writer
{
public:
    explicit text_writer(FILE* file) noexcept : m_file(file)
    {
        if (m_heap.resize(std::size_t(1) << 20))
        {
            m_buf = m_heap.data();
            m_cap = m_heap.size();
        }
    }
    text_writer(const text_writer&) = delete;
    text_writer& operator=(const text_writer&) = delete;
    ~text_writer() { drain(); }

    /// Appends n characters.
    void text(const char* s, std::size_t n) noexcept
    {
        while (n > m_cap - m_len)
        {
            std::size_t k = m_cap - m_len;
            std::memcpy(m_buf + m_len, s, k);
            m_len += k;
            s += k;
            n -= k;
            drain();
        }
        std::memcpy(m_buf + m_len, s, n);
        m_len += n;
    }
    /// Appends a NUL-terminated string.
    void text(const char* s) noexcept { text(s, std::strlen(s)); }
    /// Appends one character.
    void put(char c) noexcept
    {
        if (m_len == m_cap) drain();
        m_buf[m_len++] = c;
    }
    /// Appends v as "%*d".
    void integer(int v, int width = 0) noexcept
    {
        room(max_number_chars);
        m_len = std::size_t(format_int(m_buf + m_len, v, width) - m_buf);
    }
    /// Appends v with the printf conversion f.
    void real(double v, num_format f) noexcept
    {
        room(max_number_chars);
        m_len = std::size_t(format_double(m_buf + m_len, v, f) - m_buf);
    }
    /// Room for n more characters (n at most 4096): returns where to write them; commit(end)
    /// then takes what was written up to end.
    char* claim(std::size_t n) noexcept
    {
        room(n);
        return m_buf + m_len;
    }
    void commit(char* end) noexcept { m_len = std::size_t(end - m_buf); }
    /// Writes what is buffered; true when every write so far succeeded.
    bool finish() noexcept
    {
        drain();
        return !m_failed;
    }

private:
    void room(std::size_t n) noexcept
    {
        if (m_cap - m_len < n) drain();
    }
    void drain() noexcept
    {
        if (m_len && std::fwrite(m_buf, 1, m_len, m_file) != m_len) m_failed = true;
        m_len = 0;
    }

    FILE* m_file;
    dense1D<char> m_heap;
    char m_inline[4096];
    char* m_buf = m_inline;
    std::size_t m_cap = sizeof m_inline;
    std::size_t m_len = 0;
    bool m_failed = false;
};

// ------------------------------------------------------------------------------------ records

/// How one element type is written by a format: its keyword (or numeric code) and the local
/// nodes written, in file order. A null keyword with code 0 means the format has no record for
/// the type.
struct element_layout
{
    const char* keyword;
    unsigned code;
    unsigned count;
    unsigned char nodes[20];
};

// clang-format off
/// medit: base nodes only; pyramids and wedges as collapsed hexahedra.
inline constexpr element_layout medit_layouts[nbr_element_types] = {
    {nullptr, 0, 0, {}},                                          // EL_UNKNOWN
    {nullptr, 0, 0, {}},                                          // EL_NODE
    {nullptr, 0, 0, {}},                                          // EL_EDGE_MIX
    {"Edges\n", 0, 2, {0, 1}},                                    // EL_EDGE2
    {"Edges\n", 0, 2, {0, 1}},                                    // EL_EDGE3
    {nullptr, 0, 0, {}},                                          // EL_FACE_MIX
    {"Triangles\n", 0, 3, {0, 1, 2}},                             // EL_TRIA3
    {"Quadrilaterals\n", 0, 4, {0, 1, 2, 3}},                     // EL_QUAD4
    {"Triangles\n", 0, 3, {0, 1, 2}},                             // EL_TRIA6
    {"Quadrilaterals\n", 0, 4, {0, 1, 2, 3}},                     // EL_QUAD8
    {"Quadrilaterals\n", 0, 4, {0, 1, 2, 3}},                     // EL_QUAD9
    {nullptr, 0, 0, {}},                                          // EL_SOLID_MIX
    {"Tetrahedra\n", 0, 4, {0, 1, 2, 3}},                         // EL_TETRA4
    {"Tetrahedra\n", 0, 4, {0, 1, 2, 3}},                         // EL_TETRA10
    {"Hexahedra\n", 0, 8, {0, 1, 2, 3, 4, 4, 4, 4}},              // EL_PYRAM5
    {"Hexahedra\n", 0, 8, {0, 1, 2, 3, 4, 4, 4, 4}},              // EL_PYRAM14
    {"Hexahedra\n", 0, 8, {0, 1, 2, 2, 3, 4, 5, 5}},              // EL_PENTA6
    {"Hexahedra\n", 0, 8, {0, 1, 2, 2, 3, 4, 5, 5}},              // EL_PENTA18
    {"Hexahedra\n", 0, 8, {0, 1, 2, 3, 4, 5, 6, 7}},              // EL_HEXA8
    {"Hexahedra\n", 0, 8, {0, 1, 2, 3, 4, 5, 6, 7}},              // EL_HEXA20
    {"Hexahedra\n", 0, 8, {0, 1, 2, 3, 4, 5, 6, 7}},              // EL_HEXA27
};

/// Legacy VTK: the cell type code and the base nodes of the linear cell (tetrahedra reordered);
/// the other nodes of quadratic types follow as a poly-vertex cell.
inline constexpr element_layout vtk_layouts[nbr_element_types] = {
    {nullptr, 0, 0, {}},                                          // EL_UNKNOWN
    {nullptr, 0, 0, {}},                                          // EL_NODE
    {nullptr, 0, 0, {}},                                          // EL_EDGE_MIX
    {"line", 3, 2, {0, 1}},                                       // EL_EDGE2
    {"line", 3, 2, {0, 1}},                                       // EL_EDGE3
    {nullptr, 0, 0, {}},                                          // EL_FACE_MIX
    {"triangle", 5, 3, {0, 1, 2}},                                // EL_TRIA3
    {"quad", 9, 4, {0, 1, 2, 3}},                                 // EL_QUAD4
    {"triangle", 5, 3, {0, 1, 2}},                                // EL_TRIA6
    {"quad", 9, 4, {0, 1, 2, 3}},                                 // EL_QUAD8
    {"quad", 9, 4, {0, 1, 2, 3}},                                 // EL_QUAD9
    {nullptr, 0, 0, {}},                                          // EL_SOLID_MIX
    {"tetra", 10, 4, {0, 1, 3, 2}},                               // EL_TETRA4
    {"tetra", 10, 4, {0, 1, 3, 2}},                               // EL_TETRA10
    {"pyramid", 14, 5, {0, 1, 2, 3, 4}},                          // EL_PYRAM5
    {"pyramid", 14, 5, {0, 1, 2, 3, 4}},                          // EL_PYRAM14
    {"wedge", 13, 6, {0, 1, 2, 3, 4, 5}},                         // EL_PENTA6
    {"wedge", 13, 6, {0, 1, 2, 3, 4, 5}},                         // EL_PENTA18
    {"hexahedron", 12, 8, {0, 1, 2, 3, 4, 5, 6, 7}},              // EL_HEXA8
    {"hexahedron", 12, 8, {0, 1, 2, 3, 4, 5, 6, 7}},              // EL_HEXA20
    {"hexahedron", 12, 8, {0, 1, 2, 3, 4, 5, 6, 7}},              // EL_HEXA27
};

/// VTK cell type of the poly-vertex that carries the higher-order nodes.
inline constexpr unsigned vtk_poly_vertex = 2;

/// NASTRAN bulk data: card name and grid points in card order.
inline constexpr element_layout nastran_layouts[nbr_element_types] = {
    {nullptr, 0, 0, {}},                                          // EL_UNKNOWN
    {nullptr, 0, 0, {}},                                          // EL_NODE
    {nullptr, 0, 0, {}},                                          // EL_EDGE_MIX
    {"CBAR", 0, 2, {0, 1}},                                       // EL_EDGE2
    {"CBAR", 0, 2, {0, 1}},                                       // EL_EDGE3
    {nullptr, 0, 0, {}},                                          // EL_FACE_MIX (per column)
    {"CTRIA3", 0, 3, {0, 1, 2}},                                  // EL_TRIA3
    {"CQUAD4", 0, 4, {0, 1, 2, 3}},                               // EL_QUAD4
    {"CTRIA6", 0, 6, {0, 1, 2, 5, 3, 4}},                         // EL_TRIA6
    {"CQUAD8", 0, 8, {0, 1, 2, 3, 4, 5, 6, 7}},                   // EL_QUAD8
    {"CQUAD8", 0, 8, {0, 1, 2, 3, 4, 5, 6, 7}},                   // EL_QUAD9: centre dropped
    {nullptr, 0, 0, {}},                                          // EL_SOLID_MIX (per column)
    {"CTETRA", 0, 4, {0, 2, 1, 3}},                               // EL_TETRA4
    {"CTETRA", 0, 10, {0, 2, 1, 3, 5, 4, 6, 7, 9, 8}},            // EL_TETRA10
    {"CPYRAM", 0, 5, {0, 1, 2, 3, 4}},                            // EL_PYRAM5
    {"CPYRAM", 0, 13, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}}, // EL_PYRAM14
    {"CPENTA", 0, 6, {0, 1, 2, 3, 4, 5}},                         // EL_PENTA6
    {"CPENTA", 0, 15, {0, 1, 2, 3, 4, 5, 11, 9, 10, 6, 7, 8, 14, 12, 13}}, // EL_PENTA18
    {"CHEXA", 0, 8, {0, 1, 2, 3, 4, 5, 6, 7}},                    // EL_HEXA8
    {"CHEXA", 0, 20, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 16, 17, 18, 19, 12, 13, 14, 15}},
    {"CHEXA", 0, 20, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 16, 17, 18, 19, 12, 13, 14, 15}},
};

/// EnSight geometry: element keyword and nodes in file order.
inline constexpr element_layout ensight_layouts[nbr_element_types] = {
    {nullptr, 0, 0, {}},                                          // EL_UNKNOWN
    {nullptr, 0, 0, {}},                                          // EL_NODE
    {nullptr, 0, 0, {}},                                          // EL_EDGE_MIX
    {"bar2", 0, 2, {0, 1}},                                       // EL_EDGE2
    {"bar3", 0, 3, {0, 1, 2}},                                    // EL_EDGE3
    {nullptr, 0, 0, {}},                                          // EL_FACE_MIX
    {"tria3", 0, 3, {0, 1, 2}},                                   // EL_TRIA3
    {"quad4", 0, 4, {0, 1, 2, 3}},                                // EL_QUAD4
    {"tria6", 0, 6, {0, 1, 2, 5, 3, 4}},                          // EL_TRIA6
    {"quad8", 0, 8, {0, 1, 2, 3, 4, 5, 6, 7}},                    // EL_QUAD8
    {"quad8", 0, 8, {0, 1, 2, 3, 4, 5, 6, 7}},                    // EL_QUAD9: centre dropped
    {nullptr, 0, 0, {}},                                          // EL_SOLID_MIX
    {"tetra4", 0, 4, {0, 2, 1, 3}},                               // EL_TETRA4
    {"tetra10", 0, 10, {0, 2, 1, 3, 5, 4, 6, 7, 9, 8}},           // EL_TETRA10
    {nullptr, 0, 0, {}},                                          // EL_PYRAM5
    {nullptr, 0, 0, {}},                                          // EL_PYRAM14
    {"penta6", 0, 6, {0, 1, 2, 3, 4, 5}},                         // EL_PENTA6
    {"penta6", 0, 6, {0, 1, 2, 3, 4, 5}},                         // EL_PENTA18
    {"hexa8", 0, 8, {0, 1, 2, 3, 4, 5, 6, 7}},                    // EL_HEXA8
    {"hexa20", 0, 20, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19}},
    {"hexa20", 0, 20, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19}},
};
// clang-format on

/// True when t is an element type value (0 to 20).
inline bool is_element_type(int t) noexcept
{
    return t >= 0 && t < int(nbr_element_types);
}

/// The layout of type t in a format's table, or nullptr when t is outside 0 to 20 or the format
/// has no record for it.
inline const element_layout* layout_of(const element_layout (&table)[nbr_element_types],
                                       int t) noexcept
{
    if (!is_element_type(t) || !table[t].keyword) return nullptr;
    return &table[t];
}

// ------------------------------------------------------------------------------------ splitting

/// One pure connectivity cut out of a range: its matrix (a view when it comes from a mixed matrix),
/// its plain type, and the index of the matrix of the range it comes from.
struct pure_part
{
    dense2D<unsigned> connectM;
    element_type type;
    unsigned source;
};

/// Splits the matrices [first, last) into pure parts, in range order: a matrix with no entries
/// gives no part; an EL_FACE_MIX matrix (4 rows) gives one part per shape present (EL_TRIA3 then
/// EL_QUAD4), an EL_SOLID_MIX matrix (8 rows) one per shape present (EL_TETRA4, EL_PYRAM5,
/// EL_PENTA6, EL_HEXA8), its columns copied and grouped by their number of defined nodes first;
/// any other matrix is passed as it is, with its type normalised by row count. The columns of a
/// mixed matrix must be well formed (check_IDs against its type). Appends to parts.
/// @return 0; -199 when memory cannot be had.
int split_mixed(const dense2D<unsigned>* first, const dense2D<unsigned>* last,
                const dense1D<int>& element_types, std::vector<pure_part>& parts) noexcept;

/// True when every matrix of [first, last) passes check_IDs against its entry of element_types
/// with max_ID (~0u: row counts only). A type value outside 0 to 20 passes only with an empty
/// matrix. Precondition: the range and the type vector have the same size.
inline bool all_conform(const dense2D<unsigned>* first, const dense2D<unsigned>* last,
                        const dense1D<int>& element_types, unsigned max_ID) noexcept
{
    for (const dense2D<unsigned>* m = first; m != last; ++m)
    {
        int t = element_types[std::size_t(m - first)];
        if (m->empty()) continue;
        if (!is_element_type(t) || !check_IDs(*m, element_type(t), max_ID)) return false;
    }
    return true;
}

/// Calls write(first, last, types) on the N matrices with their N types as a range: the one- and
/// two-matrix forms of the range writers. @return write's code; -199 when the type vector cannot
/// be had.
template <std::size_t N, class Write>
int write_range(const dense2D<unsigned> (&mats)[N], const element_type (&types)[N],
                Write write) noexcept
{
    dense1D<int> t;
    if (!t.resize(N)) return -199;
    for (std::size_t k = 0; k < N; ++k)
        t[k] = int(types[k]);
    return write(mats, mats + N, t);
}

} // namespace qx7::meshutil::io
