// STL files: the text and binary readers (corner soup, smallest height, welding by merging) and
// the text and binary writers.
#include "editing/editing_private.h"
#include "io/stl_private.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <meshutil/editing.h>
#include <meshutil/io.h>

namespace qx7::meshutil
{

using detail::stl_header_bytes;
using detail::stl_record_bytes;

namespace
{

// ------------------------------------------------------------------------------------ files

/// Closes the file on every path.
struct file_holder
{
    std::FILE* f;
    explicit file_holder(std::FILE* file) noexcept : f(file) {}
    file_holder(const file_holder&) = delete;
    file_holder& operator=(const file_holder&) = delete;
    ~file_holder()
    {
        if (f) std::fclose(f);
    }
    /// Closes now; false when the close (the last flush) failed.
    bool close() noexcept
    {
        std::FILE* g = f;
        f = nullptr;
        return g && std::fclose(g) == 0;
    }
};

/// Bytes of the read buffer: large enough for one fread to be cheap, small enough to stay cached.
constexpr std::size_t read_buffer_bytes = std::size_t(1) << 20;

/// The line buffer of the text reader: lines are read in chunks of at most 255 bytes.
constexpr std::size_t line_bytes = 256;

/// Buffered reading of a stdio stream: refills a caller's buffer by large freads.
class byte_reader
{
public:
    byte_reader(std::FILE* f, char* buffer, std::size_t capacity) noexcept
        : m_f(f), m_buf(buffer), m_cap(capacity)
    {
    }

    /// Makes at least n bytes (n <= capacity) available when the stream has them; returns the
    /// number of bytes available, less than n only at the end of the stream (or on an error).
    std::size_t ensure(std::size_t n) noexcept
    {
        std::size_t avail = m_end - m_pos;
        if (avail >= n || m_done) return avail;
        std::memmove(m_buf, m_buf + m_pos, avail);
        m_end = avail;
        m_pos = 0;
        while (m_end < n && !m_done)
        {
            std::size_t got = std::fread(m_buf + m_end, 1, m_cap - m_end, m_f);
            if (got == 0) m_done = true;
            m_end += got;
        }
        return m_end - m_pos;
    }
    const unsigned char* peek() const noexcept
    {
        return reinterpret_cast<const unsigned char*>(m_buf + m_pos);
    }
    void skip(std::size_t n) noexcept { m_pos += n; }

    /// Reads the next line as fgets with a 256-byte buffer does (at most 255 bytes, up to and
    /// including a newline) into out, ASCII letters lower-cased, cut at the first NUL byte.
    /// False at the end of the stream when no byte is left.
    bool next_line(char* out) noexcept
    {
        std::size_t avail = ensure(line_bytes - 1);
        if (avail == 0) return false;
        std::size_t limit = avail < line_bytes - 1 ? avail : line_bytes - 1;
        const char* s = m_buf + m_pos;
        const void* nl = std::memchr(s, '\n', limit);
        std::size_t len = nl ? std::size_t(static_cast<const char*>(nl) - s) + 1 : limit;
        m_pos += len;
        // The string ends at the first NUL; lower-casing without branches vectorises.
        const void* nul = std::memchr(s, '\0', len);
        const std::size_t k = nul ? std::size_t(static_cast<const char*>(nul) - s) : len;
        for (std::size_t i = 0; i < k; ++i)
        {
            const char c = s[i];
            out[i] = char(c + ((unsigned char)(c - 'A') < 26 ? 'a' - 'A' : 0));
        }
        out[k] = '\0';
        return true;
    }

private:
    std::FILE* m_f;
    char* m_buf;
    std::size_t m_cap;
    std::size_t m_pos = 0, m_end = 0;
    bool m_done = false;
};

/// Size of a stream opened for reading when it can be seeked (regular files), else -1. The
/// position is back at the start afterwards.
long stream_size(std::FILE* f) noexcept
{
    if (std::fseek(f, 0, SEEK_END) != 0) return -1;
    long size = std::ftell(f);
    if (std::fseek(f, 0, SEEK_SET) != 0) return -1;
    return size;
}

/// Sizes the read buffer for a stream of the given size (-1: unknown): the whole stream plus one
/// byte when that is smaller than read_buffer_bytes, at least one line.
bool size_read_buffer(dense1D<char>& buffer, long size) noexcept
{
    std::size_t bytes = read_buffer_bytes;
    if (size >= 0 && std::size_t(size) < bytes) bytes = std::size_t(size) + 1;
    return buffer.resize(bytes < line_bytes ? line_bytes : bytes);
}

// ------------------------------------------------------------------------------------ numbers

inline bool is_space(char c) noexcept
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

/// Powers of ten exactly representable as doubles.
constexpr double exact_powers_of_ten[23] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                            1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                            1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

/// Converts the plain decimal number at *p ([sign] digits [. digits] [e [sign] digits], at least
/// one digit) when it ends at a space or at the end of the string and its value is w x 10^q with
/// w <= 2^53 and |q| <= 22 (or w = 0): then w and 10^|q| are exact doubles and one correctly
/// rounded product or quotient gives the correctly rounded value, the one strtod and %lg give.
/// Advances p past the number and returns true; false (p unspecified) otherwise.
bool fast_number(const char*& p, double& value) noexcept
{
    const char* s = p;
    bool negative = false;
    if (*s == '+' || *s == '-') negative = *s++ == '-';
    std::uint64_t w = 0;
    int digits = 0, fraction = 0;
    for (; *s >= '0' && *s <= '9'; ++s, ++digits)
        w = w * 10 + unsigned(*s - '0');
    if (*s == '.')
        for (++s; *s >= '0' && *s <= '9'; ++s, ++digits, ++fraction)
            w = w * 10 + unsigned(*s - '0');
    if (digits == 0 || digits > 19) return false;
    int exponent = 0;
    if (*s == 'e' || *s == 'E')
    {
        ++s;
        bool exp_negative = false;
        if (*s == '+' || *s == '-') exp_negative = *s++ == '-';
        int exp_digits = 0;
        for (; *s >= '0' && *s <= '9'; ++s, ++exp_digits)
            if (exp_digits < 5) exponent = exponent * 10 + (*s - '0'); // more: rejected below
        if (exp_digits == 0 || exp_digits > 4) return false;
        if (exp_negative) exponent = -exponent;
    }
    if (*s != '\0' && !is_space(*s)) return false;
    int q = exponent - fraction;
    double x;
    if (w == 0)
        x = 0.0;
    else if (w > (std::uint64_t(1) << 53) || q < -22 || q > 22)
        return false;
    else
        x = q >= 0 ? double(w) * exact_powers_of_ten[q] : double(w) / exact_powers_of_ten[-q];
    value = negative ? -x : x;
    p = s;
    return true;
}

/// The direct path of stl_scan_triple: the literal (a space matches any run of spaces, possibly
/// empty), then three fast numbers, each preceded by optional spaces.
bool fast_triple(const char* p, const char* literal, double v[3]) noexcept
{
    for (; *literal; ++literal)
    {
        if (*literal == ' ')
        {
            while (is_space(*p))
                ++p;
        }
        else if (*p++ != *literal)
            return false;
    }
    for (int i = 0; i < 3; ++i)
    {
        while (is_space(*p))
            ++p;
        if (!fast_number(p, v[i])) return false;
    }
    return true;
}

constexpr const char* facet_literal = " facet normal ";
constexpr const char* vertex_literal = " vertex ";
constexpr const char* facet_scan_format = " facet normal %lg %lg %lg\n";
constexpr const char* vertex_scan_format = " vertex %lg %lg %lg\n";

// ------------------------------------------------------------------------------------ soup

/// Makes room for 3 more corner columns in pos (sized to its capacity, `used` columns filled),
/// doubling the capacity; false when memory cannot be had.
bool room_for_triangle(dense2D<double>& pos, std::size_t used) noexcept
{
    if (used + 3 <= pos.cols()) return true;
    std::size_t cols = pos.cols() < 96 ? 96 : 2 * pos.cols();
    return pos.resize(3, cols);
}

/// Decodes the little-endian float32 at p.
inline double load_float(const unsigned char* p) noexcept
{
    std::uint32_t bits = std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 |
                         std::uint32_t(p[2]) << 16 | std::uint32_t(p[3]) << 24;
    float x;
    std::memcpy(&x, &bits, 4);
    return double(x);
}

/// Squared distance from pi to the line through pj and pk: |(pi - pj) x (pk - pj)|^2 /
/// |pk - pj|^2, without the division when pk = pj.
inline double corner_height2(const double* pi, const double* pj, const double* pk) noexcept
{
    const double u0 = pi[0] - pj[0], u1 = pi[1] - pj[1], u2 = pi[2] - pj[2];
    const double w0 = pk[0] - pj[0], w1 = pk[1] - pj[1], w2 = pk[2] - pj[2];
    const double x0 = u1 * w2 - u2 * w1, x1 = u2 * w0 - u0 * w2, x2 = u0 * w1 - u1 * w0;
    const double value = x0 * x0 + x1 * x1 + x2 * x2;
    const double edge2 = w0 * w0 + w1 * w1 + w2 * w2;
    return edge2 != 0.0 ? value / edge2 : value;
}

/// Smallest corner_height2 of the triangle (a, b, c), corners taken cyclically (a from b to c,
/// b from c to a, c from a to b).
inline double triangle_height2(const double* a, const double* b, const double* c) noexcept
{
    double h2 = corner_height2(a, b, c);
    const double hb = corner_height2(b, c, a);
    if (hb < h2) h2 = hb;
    const double hc = corner_height2(c, a, b);
    if (hc < h2) h2 = hc;
    return h2;
}

/// Largest number of corner nodes: node indices stay below the undefined index.
constexpr std::size_t max_corners = std::size_t(undefined_index) - 1;

} // namespace

// ------------------------------------------------------------------------------------ reading

namespace detail
{

bool stl_scan_triple(const char* line, bool facet, double v[3]) noexcept
{
    if (fast_triple(line, facet ? facet_literal : vertex_literal, v)) return true;
    return std::sscanf(line, facet ? facet_scan_format : vertex_scan_format, &v[0], &v[1], &v[2]) ==
           3;
}

int stl_format_e_direct(double x, char* out) noexcept
{
    if (!std::isfinite(x)) return 0;
    char* p = out;
    if (std::signbit(x)) *p++ = '-';
    const double a = std::fabs(x);
    if (a == 0.0)
    {
        std::memcpy(p, "0.000000e+00", 12);
        return int(p - out) + 12;
    }
    const int e = int(std::floor(std::log10(a)));
    const int k = 6 - e;
    if (k < -22 || k > 22) return 0;
    // One correctly rounded operation on exact operands: |m - a 10^k| <= 2^-30 below 2^24.
    const double m = k >= 0 ? a * exact_powers_of_ten[k] : a / exact_powers_of_ten[-k];
    if (!(m >= 1e6 && m < 9999999.25)) return 0; // exponent estimate off, or a carry
    const double whole = std::floor(m);
    const double fraction = m - whole;              // exact
    if (std::fabs(fraction - 0.5) < 1e-6) return 0; // too close to a tie to decide
    unsigned n = unsigned(whole) + (fraction > 0.5 ? 1u : 0u);
    char digits[7];
    for (int i = 6; i >= 0; --i, n /= 10)
        digits[i] = char('0' + n % 10);
    p[0] = digits[0];
    p[1] = '.';
    std::memcpy(p + 2, digits + 1, 6);
    p[8] = 'e';
    p[9] = e < 0 ? '-' : '+';
    const int ae = e < 0 ? -e : e; // at most 28: two digits
    p[10] = char('0' + ae / 10);
    p[11] = char('0' + ae % 10);
    return int(p - out) + 12;
}

int stl_read_text(std::FILE* f, dense2D<double>& pos) noexcept
{
    dense1D<char> buffer;
    if (!size_read_buffer(buffer, stream_size(f))) return -199;
    byte_reader in(f, buffer.data(), buffer.size());
    char line[line_bytes];
    if (!in.next_line(line) || !std::strstr(line, "solid")) return -2;
    std::size_t n = 0; // corners read
    double v[3];
    int result = 0;
    for (;;)
    {
        if (!in.next_line(line))
        {
            result = -3;
            break;
        }
        if (std::strstr(line, "endsolid"))
        {
            if (in.next_line(line) && std::strstr(line, "solid")) continue;
            break;
        }
        if (!stl_scan_triple(line, true, v) || !in.next_line(line) ||
            !std::strstr(line, "outer loop"))
        {
            result = -3;
            break;
        }
        if (n + 3 > max_corners || !room_for_triangle(pos, n))
        {
            result = -199;
            break;
        }
        int k = 0;
        for (; k < 3 && in.next_line(line) && stl_scan_triple(line, false, v); ++k, ++n)
        {
            double* p = pos.col(n);
            p[0] = v[0], p[1] = v[1], p[2] = v[2];
        }
        if (k < 3 || !in.next_line(line) || !std::strstr(line, "endloop") || !in.next_line(line) ||
            !std::strstr(line, "endfacet"))
        {
            result = -3;
            break;
        }
    }
    pos.resize(3, n); // shrinking keeps the storage: cannot fail
    return result;
}

int stl_read_binary(std::FILE* f, dense2D<double>& pos) noexcept
{
    const long size = stream_size(f);
    dense1D<char> buffer;
    if (!size_read_buffer(buffer, size)) return -199;
    byte_reader in(f, buffer.data(), buffer.size());
    if (in.ensure(stl_header_bytes) < stl_header_bytes) return -2;
    in.skip(stl_header_bytes);
    if (in.ensure(4) < 4) return -3;
    const unsigned char* c = in.peek();
    const std::int32_t count = std::int32_t(std::uint32_t(c[0]) | std::uint32_t(c[1]) << 8 |
                                            std::uint32_t(c[2]) << 16 | std::uint32_t(c[3]) << 24);
    in.skip(4);
    if (count <= 0) return 0;
    const std::size_t nbr_tri = std::size_t(count);
    // With a known size, a count beyond the records present fails before any allocation, and
    // the corners get their exact room at once.
    if (size >= 0)
    {
        const std::size_t records =
            std::size_t(size) < stl_header_bytes + 4
                ? 0
                : (std::size_t(size) - stl_header_bytes - 4) / stl_record_bytes;
        if (records < nbr_tri) return -3;
        if (3 * nbr_tri > max_corners || !pos.resize(3, 3 * nbr_tri)) return -199;
    }
    std::size_t n = 0;
    int result = 0;
    for (std::size_t t = 0; t < nbr_tri; ++t, n += 3)
    {
        if (in.ensure(stl_record_bytes) < stl_record_bytes)
        {
            result = -3;
            break;
        }
        if (n + 3 > max_corners || !room_for_triangle(pos, n))
        {
            result = -199;
            break;
        }
        const unsigned char* r = in.peek() + 12; // the normal is not kept
        double* p = pos.col(n);
        for (int k = 0; k < 9; ++k)
            p[k] = load_float(r + 4 * k);
        in.skip(stl_record_bytes);
    }
    pos.resize(3, n);
    return result;
}

double stl_triangle_height2(const double* a, const double* b, const double* c) noexcept
{
    return triangle_height2(a, b, c);
}

double stl_smallest_height2(const dense2D<double>& pos) noexcept
{
    double h2 = 0.0;
    const std::size_t nbr_tri = pos.cols() / 3;
    for (std::size_t t = 0; t < nbr_tri; ++t)
    {
        const double value =
            stl_triangle_height2(pos.col(3 * t), pos.col(3 * t + 1), pos.col(3 * t + 2));
        if (value > 0.0 && (h2 == 0.0 || value < h2)) h2 = value;
    }
    return h2;
}

int stl_weld(dense2D<double>& pos, dense2D<unsigned>& connectM) noexcept
{
    const std::size_t nbr_tri = pos.cols() / 3, nbr = 3 * nbr_tri;
    const double h2 = stl_smallest_height2(pos);
    if (!pos.resize(3, pos.cols()) || !connectM.resize(3, nbr_tri)) return -199;
    unsigned* c = connectM.data(); // packed: entry k of the column-major storage is corner k
    for (std::size_t k = 0; k < nbr; ++k)
        c[k] = unsigned(k);
    if (h2 == 0.0) return 0;
    // The steps give the mesh of the public calls (merge of the connectivity by blocks with
    // tolerance 0, merge of the whole connectivity with the tolerance, remove_degenerated,
    // simplify): the node-list merges run on the lists those calls would gather, in the same
    // order, over the same coordinates; node indices are relabelled in increasing order on the
    // way, which changes no merge (they depend on coordinates and list order only) and keeps
    // the final order of the nodes.
    //
    // Exact pass by blocks of triangles. A block's corners are the consecutive nodes k0, k0 + 1,
    // ... and its connectivity lists them in that order: the merge of the block is the node-list
    // merge over the block's columns of pos (a view), with local indices.
    dense1D<unsigned> local, map;
    const std::size_t block = 3 * (nbr_tri < stl_exact_block ? nbr_tri : stl_exact_block);
    if (!local.resize(block)) return -199;
    for (std::size_t k = 0; k < block; ++k)
        local[k] = unsigned(k);
    for (std::size_t k0 = 0; k0 < nbr; k0 += block)
    {
        const std::size_t n = nbr - k0 < block ? nbr - k0 : block;
        const dense2D<double> corners = pos.sub_matrix(0, k0, 3, n);
        const dense1D<unsigned> list = local.sub_vector(0, n);
        const int r = merge_nodes(corners, list, list, map, 0.0, merge_search::automatic);
        if (r < 0) return r;
        for (std::size_t k = 0; k < n; ++k)
            c[k0 + k] = unsigned(k0 + map[k]);
    }
    // Every corner now names its block's first corner at the same position, never a later one:
    // the distinct nodes in order of first appearance are the corners that name themselves, in
    // increasing order. They move to the first columns, in that order.
    std::size_t nbr_distinct = 0;
    for (std::size_t k = 0; k < nbr; ++k)
    {
        if (c[k] != k)
        {
            c[k] = c[c[k]]; // an earlier corner, already relabelled
            continue;
        }
        if (nbr_distinct != k)
        {
            const double* src = pos.col(k);
            double* dst = pos.col(nbr_distinct);
            dst[0] = src[0], dst[1] = src[1], dst[2] = src[2];
        }
        c[k] = unsigned(nbr_distinct++);
    }
    // Tolerance pass over the distinct nodes.
    if (!local.resize(nbr_distinct)) return -199;
    for (std::size_t k = 0; k < nbr_distinct; ++k)
        local[k] = unsigned(k);
    const dense2D<double> distinct = pos.sub_matrix(0, 0, 3, nbr_distinct);
    const int r =
        merge_nodes(distinct, local, local, map, 0.05 * std::sqrt(h2), merge_search::automatic);
    if (r < 0) return r;
    if (r > 0)
        for (std::size_t k = 0; k < nbr; ++k)
            c[k] = map[c[k]];
    // Triangles with a repeated node go (order kept); the nodes they alone used go too, the
    // others keep their order.
    unsigned* used = map.data(); // ~0u: unused; then the new index
    for (std::size_t i = 0; i < nbr_distinct; ++i)
        used[i] = undefined_index;
    std::size_t kept = 0;
    for (std::size_t t = 0; t < nbr_tri; ++t)
    {
        const unsigned a = c[3 * t], b = c[3 * t + 1], d = c[3 * t + 2];
        if (a == b || b == d || a == d) continue;
        unsigned* e = c + 3 * kept++;
        e[0] = a, e[1] = b, e[2] = d;
        used[a] = used[b] = used[d] = 0;
    }
    std::size_t nbr_used = 0;
    for (std::size_t i = 0; i < nbr_distinct; ++i)
    {
        if (used[i] == undefined_index) continue;
        if (nbr_used != i)
        {
            const double* src = pos.col(i);
            double* dst = pos.col(nbr_used);
            dst[0] = src[0], dst[1] = src[1], dst[2] = src[2];
        }
        used[i] = unsigned(nbr_used++);
    }
    for (std::size_t k = 0; k < 3 * kept; ++k)
        c[k] = used[c[k]];
    connectM.resize(3, kept); // shrinking keeps the storage: cannot fail
    pos.resize(3, nbr_used);
    return 0;
}

} // namespace detail

namespace
{

/// Reads the file as text (binary false) or binary, then welds the corners; both outputs are
/// emptied on failure. opened tells whether the file could be opened (if not, the result is -1).
int read_stl(const char* filename, bool binary, dense2D<double>& pos, dense2D<unsigned>& connectM,
             bool& opened) noexcept
{
    file_holder file(std::fopen(filename, binary ? "rb" : "rt"));
    opened = file.f != nullptr;
    if (!opened) return -1;
    int result = binary ? detail::stl_read_binary(file.f, pos) : detail::stl_read_text(file.f, pos);
    file.close();
    if (result == 0) result = detail::stl_weld(pos, connectM);
    if (result != 0)
    {
        pos.clear();
        connectM.clear();
    }
    return result;
}

} // namespace

int STL_input(const char* filename, dense2D<double>& pos, dense2D<unsigned>& connectM) noexcept
{
    pos.clear();
    connectM.clear();
    if (!filename) return -1;
    bool opened;
    const int text = read_stl(filename, false, pos, connectM, opened);
    if (text == 0 || text < -198 || text > -1) return text;
    const int binary = read_stl(filename, true, pos, connectM, opened);
    return opened ? binary : text; // text is -1 when its open failed too
}

// ------------------------------------------------------------------------------------ writing

namespace
{

constexpr const char* text_header = "solid QX7\n";
// Facet and vertex lines: the prefix, then three numbers in number_format separated by one
// space, then a newline ("   facet normal %le %le %le\n", "         vertex %le %le %le\n").
constexpr const char* text_facet = "   facet normal ";
constexpr const char* text_outer_loop = "      outer loop\n";
constexpr const char* text_vertex = "         vertex ";
constexpr const char* number_format = "%le";
constexpr const char* text_endloop = "      endloop\n";
constexpr const char* text_endfacet = "   endfacet\n";
constexpr const char* text_footer = "endsolid QX7\n";

constexpr char binary_title[] = "QX7 STL Binary";

/// Triangles packed per fwrite of the binary writer.
constexpr std::size_t write_block = 16384;

/// The three corners of triangle e, with z = 0 for 2-row coordinates.
inline void corners(const dense2D<double>& pos, const unsigned* e, double P[3][3]) noexcept
{
    const bool planar = pos.rows() == 2;
    for (int k = 0; k < 3; ++k)
    {
        const double* p = pos.col(e[k]);
        P[k][0] = p[0], P[k][1] = p[1], P[k][2] = planar ? 0.0 : p[2];
    }
}

/// (P1 - P0) x (P2 - P0), divided by its length when that is not zero.
inline void unit_normal(const double P[3][3], double n[3]) noexcept
{
    const double a[3] = {P[1][0] - P[0][0], P[1][1] - P[0][1], P[1][2] - P[0][2]};
    const double b[3] = {P[2][0] - P[0][0], P[2][1] - P[0][1], P[2][2] - P[0][2]};
    n[0] = a[1] * b[2] - a[2] * b[1];
    n[1] = a[2] * b[0] - a[0] * b[2];
    n[2] = a[0] * b[1] - a[1] * b[0];
    const double length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
    if (length != 0.0)
        for (int i = 0; i < 3; ++i)
            n[i] /= length;
}

/// Stores x as a little-endian float32 at p.
inline void store_float(unsigned char* p, double x) noexcept
{
    const float y = static_cast<float>(x); // IEEE: values beyond the float range give infinities
    std::uint32_t bits;
    std::memcpy(&bits, &y, 4);
    p[0] = static_cast<unsigned char>(bits), p[1] = static_cast<unsigned char>(bits >> 8);
    p[2] = static_cast<unsigned char>(bits >> 16), p[3] = static_cast<unsigned char>(bits >> 24);
}

/// Appends the three numbers of a facet or vertex line after its prefix, and the newline.
char* put_triple(char* p, const char* prefix, const double* v) noexcept
{
    const std::size_t len = std::strlen(prefix);
    std::memcpy(p, prefix, len);
    p += len;
    for (int i = 0; i < 3; ++i)
    {
        int n = detail::stl_format_e_direct(v[i], p);
        if (n == 0) n = std::snprintf(p, 32, number_format, v[i]);
        p += n;
        *p++ = i < 2 ? ' ' : '\n';
    }
    return p;
}

char* put_text(char* p, const char* text) noexcept
{
    const std::size_t len = std::strlen(text);
    std::memcpy(p, text, len);
    return p + len;
}

int write_text(std::FILE* f, const dense2D<double>& pos, const dense2D<unsigned>& connectM) noexcept
{
    bool ok = std::fputs(text_header, f) >= 0;
    double P[3][3], n[3];
    char facet[512]; // 7 lines, 12 numbers of at most 24 bytes
    const std::size_t nbr = connectM.empty() ? 0 : connectM.cols();
    for (std::size_t j = 0; ok && j < nbr; ++j)
    {
        corners(pos, connectM.col(j), P);
        unit_normal(P, n);
        char* p = put_triple(facet, text_facet, n);
        p = put_text(p, text_outer_loop);
        for (int k = 0; k < 3; ++k)
            p = put_triple(p, text_vertex, P[k]);
        p = put_text(p, text_endloop);
        p = put_text(p, text_endfacet);
        const std::size_t bytes = std::size_t(p - facet);
        ok = std::fwrite(facet, 1, bytes, f) == bytes;
    }
    const bool last = std::fputs(text_footer, f) >= 0;
    return ok && last ? 0 : -1;
}

int write_binary(std::FILE* f, const dense2D<double>& pos,
                 const dense2D<unsigned>& connectM) noexcept
{
    const std::size_t nbr = connectM.empty() ? 0 : connectM.cols();
    if (nbr > 0xffffffffu) return -1;
    unsigned char head[stl_header_bytes + 4] = {};
    std::memcpy(head, binary_title, sizeof binary_title - 1);
    for (int k = 0; k < 4; ++k)
        head[stl_header_bytes + k] = static_cast<unsigned char>(nbr >> (8 * k));
    if (std::fwrite(head, 1, sizeof head, f) != sizeof head) return -1;
    dense1D<unsigned char> buffer;
    if (!buffer.resize(write_block * stl_record_bytes)) return -1;
    double P[3][3], n[3];
    for (std::size_t j0 = 0; j0 < nbr; j0 += write_block)
    {
        const std::size_t block = nbr - j0 < write_block ? nbr - j0 : write_block;
        unsigned char* r = buffer.data();
        for (std::size_t j = j0; j < j0 + block; ++j, r += stl_record_bytes)
        {
            corners(pos, connectM.col(j), P);
            unit_normal(P, n);
            for (int i = 0; i < 3; ++i)
                store_float(r + 4 * i, n[i]);
            for (int k = 0; k < 3; ++k)
                for (int i = 0; i < 3; ++i)
                    store_float(r + 12 + 12 * k + 4 * i, P[k][i]);
            r[48] = r[49] = 0;
        }
        const std::size_t bytes = block * stl_record_bytes;
        if (std::fwrite(buffer.data(), 1, bytes, f) != bytes) return -1;
    }
    return 0;
}

} // namespace

int STL_output(const char* filename, const dense2D<double>& pos, const dense2D<unsigned>& connectM,
               bool text) noexcept
{
    if (!filename) return -1;
    file_holder file(std::fopen(filename, text ? "wt" : "wb"));
    if (!file.f) return -1;
    if (pos.rows() != 2 && pos.rows() != 3) return -2;
    if (!check_IDs(connectM, EL_TRIA3, unsigned(pos.cols()))) return -3;
    const int result =
        text ? write_text(file.f, pos, connectM) : write_binary(file.f, pos, connectM);
    const bool closed = file.close();
    return result == 0 && closed ? 0 : -1;
}

} // namespace qx7::meshutil
