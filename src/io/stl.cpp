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

} // namespace detail

namespace
{

// ------------------------------------------------------------------------------------ sinks

// The readers hand the corners to a sink: room() before each triangle (false: memory), then
// corner() three times, and done() at the end, whatever the outcome. A binary file whose size is
// known announces its (checked) triangle count with reserve() first.

/// Keeps the corner soup: three new columns of pos per triangle.
class soup_sink
{
public:
    explicit soup_sink(dense2D<double>& pos) noexcept : m_pos(pos) {}
    bool reserve(std::size_t nbr_tri) noexcept
    {
        return 3 * nbr_tri <= max_corners && m_pos.resize(3, 3 * nbr_tri);
    }
    bool room() noexcept { return m_n + 3 <= max_corners && room_for_triangle(m_pos, m_n); }
    void corner(const double* v) noexcept
    {
        double* p = m_pos.col(m_n++);
        p[0] = v[0], p[1] = v[1], p[2] = v[2];
    }
    void done() noexcept { m_pos.resize(3, m_n); } // shrinking keeps the storage: cannot fail

private:
    dense2D<double>& m_pos;
    std::size_t m_n = 0;
};

/// Welds the corners as they come, into the caller's pos and connectM; the result is the mesh
/// of the public calls (merge of the connectivity by blocks with tolerance 0, merge of the whole
/// connectivity with the tolerance, remove_degenerated, simplify) on the soup with its sequential
/// connectivity.
///
/// The exact pass needs a block's corners only: the corners wait in a buffer of one block, and
/// a full block is merged (the node-list merge over the buffer's columns, with local indices:
/// the block's connectivity lists its corners in order) as soon as some triangle has a positive
/// height (until then the file may turn out to have none, and the soup is the result). Each
/// corner then names its block's first corner at the same position, never a later one, so the
/// distinct nodes in order of first appearance are the corners that name themselves, in corner
/// order: only these are kept, as the columns of pos, and the connectivity names them. The
/// tolerance pass is the node-list merge over them. Relabelling the nodes in increasing order
/// changes no merge (they depend on coordinates and list order only) and keeps the final order
/// of the nodes.
class weld_sink
{
public:
    weld_sink(dense2D<double>& pos, dense2D<unsigned>& connectM) noexcept
        : m_pos(pos), m_conn(connectM)
    {
    }

    bool reserve(std::size_t nbr_tri) noexcept
    {
        // Distinct nodes: about half the triangle count on closed surfaces; more grow the room.
        const std::size_t corners = 3 * nbr_tri;
        return corners <= max_corners && m_conn.resize(3, nbr_tri) &&
               m_raw.resize(3, corners < m_block ? corners : m_block) &&
               m_pos.resize(3, nbr_tri / 2 + 64);
    }

    bool room() noexcept
    {
        if (m_total + 3 > max_corners) return false;
        if (m_raw_n >= m_block && m_h2 > 0.0 && !weld_raw(m_raw_n / m_block * m_block))
            return false;
        if (m_raw_n + 3 <= m_raw.cols()) return true;
        std::size_t cols = m_raw.cols() < 96 ? 96 : 2 * m_raw.cols();
        if (m_h2 > 0.0 && m_raw.cols() < m_block && cols > m_block) cols = m_block;
        return m_raw.resize(3, cols);
    }

    void corner(const double* v) noexcept
    {
        double* p = m_raw.col(m_raw_n++);
        p[0] = v[0], p[1] = v[1], p[2] = v[2];
        if (++m_total % 3 != 0) return;
        const double h2 = triangle_height2(p - 6, p - 3, p);
        if (h2 > 0.0 && (m_h2 == 0.0 || h2 < m_h2)) m_h2 = h2;
    }

    void done() noexcept {}

    /// Completes the mesh after a successful read: 0 or -199.
    int finish() noexcept
    {
        const std::size_t nbr_tri = m_total / 3;
        if (m_h2 == 0.0)
        {
            // No positive height: nothing was merged, the soup is the result.
            if (!m_pos.resize(3, m_total) || !m_conn.resize(3, nbr_tri)) return -199;
            for (std::size_t k = 0; k < m_total; ++k)
            {
                const double* src = m_raw.col(k);
                double* dst = m_pos.col(k);
                dst[0] = src[0], dst[1] = src[1], dst[2] = src[2];
            }
            unsigned* c = m_conn.data();
            for (std::size_t k = 0; k < m_total; ++k)
                c[k] = unsigned(k);
            return 0;
        }
        if (!weld_raw(m_raw_n)) return -199;
        return tolerance_pass(nbr_tri);
    }

private:
    /// Exact pass over the first n corners of the buffer (whole blocks, or the last one), the
    /// remaining corners moved to its front.
    bool weld_raw(std::size_t n) noexcept
    {
        if (m_local.size() < m_block)
        {
            if (!m_local.resize(m_block)) return false;
            for (std::size_t k = 0; k < m_block; ++k)
                m_local[k] = unsigned(k);
        }
        for (std::size_t k0 = 0; k0 < n; k0 += m_block)
        {
            const std::size_t nk = n - k0 < m_block ? n - k0 : m_block;
            const dense2D<double> corners = m_raw.sub_matrix(0, k0, 3, nk);
            const dense1D<unsigned> list = m_local.sub_vector(0, nk);
            if (detail::merge_nodes(corners, list, list, m_map, 0.0,
                                    detail::merge_search::automatic) < 0)
                return false;
            if (!grow(m_pos, 3, m_nbr_distinct + nk) || !grow(m_conn, 3, (m_nbr_welded + nk) / 3))
                return false;
            unsigned* c = m_conn.data() + m_nbr_welded;
            const unsigned* m = m_map.data();
            for (std::size_t k = 0; k < nk; ++k)
            {
                if (m[k] != k)
                {
                    c[k] = c[m[k]]; // an earlier corner of the block
                    continue;
                }
                const double* src = corners.col(k);
                double* dst = m_pos.col(m_nbr_distinct);
                dst[0] = src[0], dst[1] = src[1], dst[2] = src[2];
                c[k] = unsigned(m_nbr_distinct++);
            }
            m_nbr_welded += nk;
        }
        if (n < m_raw_n)
            std::memmove(m_raw.col(0), m_raw.col(n), 3 * (m_raw_n - n) * sizeof(double));
        m_raw_n -= n;
        return true;
    }

    /// Columns for at least `need` items: doubling, values kept.
    template <class T>
    static bool grow(dense2D<T>& m, std::size_t rows, std::size_t need) noexcept
    {
        if (need <= m.cols()) return true;
        return m.resize(rows, need < 2 * m.cols() ? 2 * m.cols() : need);
    }

    /// Tolerance merge over the distinct nodes, then the triangles with a repeated node go
    /// (order kept) and the nodes they alone used too (the others keep their order).
    int tolerance_pass(std::size_t nbr_tri) noexcept
    {
        const std::size_t nbr = 3 * nbr_tri, nd = m_nbr_distinct;
        if (!m_local.resize(nd)) return -199;
        for (std::size_t k = 0; k < nd; ++k)
            m_local[k] = unsigned(k);
        const dense2D<double> distinct = m_pos.sub_matrix(0, 0, 3, nd);
        const int r = detail::merge_nodes(distinct, m_local, m_local, m_map, 0.05 * std::sqrt(m_h2),
                                          detail::merge_search::automatic);
        if (r < 0) return r;
        unsigned* c = m_conn.data();
        unsigned* used = m_map.data(); // the survivor of each node, then ~0u or its new index
        if (r > 0)
            for (std::size_t k = 0; k < nbr; ++k)
                c[k] = used[c[k]];
        for (std::size_t i = 0; i < nd; ++i)
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
        for (std::size_t i = 0; i < nd; ++i)
        {
            if (used[i] == undefined_index) continue;
            if (nbr_used != i)
            {
                const double* src = m_pos.col(i);
                double* dst = m_pos.col(nbr_used);
                dst[0] = src[0], dst[1] = src[1], dst[2] = src[2];
            }
            used[i] = unsigned(nbr_used++);
        }
        for (std::size_t k = 0; k < 3 * kept; ++k)
            c[k] = used[c[k]];
        m_conn.resize(3, kept); // shrinking keeps the storage: cannot fail
        m_pos.resize(3, nbr_used);
        return 0;
    }

    dense2D<double>& m_pos;    ///< distinct nodes of the exact pass, then the result
    dense2D<unsigned>& m_conn; ///< per corner (packed) its node among them, then the result
    const std::size_t m_block = 3 * detail::stl_exact_block; ///< corners per exact block
    dense2D<double> m_raw;                                   ///< corners waiting for their block
    std::size_t m_raw_n = 0, m_total = 0, m_nbr_distinct = 0, m_nbr_welded = 0;
    double m_h2 = 0.0; ///< smallest positive squared height so far, 0 when none
    dense1D<unsigned> m_local, m_map;
};

// ------------------------------------------------------------------------------------ readers

template <class Sink>
int read_text(std::FILE* f, Sink& sink) noexcept
{
    dense1D<char> buffer;
    if (!size_read_buffer(buffer, stream_size(f))) return -199;
    byte_reader in(f, buffer.data(), buffer.size());
    char line[line_bytes];
    if (!in.next_line(line) || !std::strstr(line, "solid")) return -2;
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
        if (!detail::stl_scan_triple(line, true, v) || !in.next_line(line) ||
            !std::strstr(line, "outer loop"))
        {
            result = -3;
            break;
        }
        if (!sink.room())
        {
            result = -199;
            break;
        }
        int k = 0;
        for (; k < 3 && in.next_line(line) && detail::stl_scan_triple(line, false, v); ++k)
            sink.corner(v);
        if (k < 3 || !in.next_line(line) || !std::strstr(line, "endloop") || !in.next_line(line) ||
            !std::strstr(line, "endfacet"))
        {
            result = -3;
            break;
        }
    }
    sink.done();
    return result;
}

template <class Sink>
int read_binary(std::FILE* f, Sink& sink) noexcept
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
    // the sink gets the exact count at once.
    if (size >= 0)
    {
        const std::size_t records =
            std::size_t(size) < stl_header_bytes + 4
                ? 0
                : (std::size_t(size) - stl_header_bytes - 4) / stl_record_bytes;
        if (records < nbr_tri) return -3;
        if (!sink.reserve(nbr_tri)) return -199;
    }
    int result = 0;
    for (std::size_t t = 0; t < nbr_tri; ++t)
    {
        if (in.ensure(stl_record_bytes) < stl_record_bytes)
        {
            result = -3;
            break;
        }
        if (!sink.room())
        {
            result = -199;
            break;
        }
        const unsigned char* r = in.peek() + 12; // the normal is not kept
        for (int k = 0; k < 3; ++k)
        {
            const double v[3] = {load_float(r + 12 * k), load_float(r + 12 * k + 4),
                                 load_float(r + 12 * k + 8)};
            sink.corner(v);
        }
        in.skip(stl_record_bytes);
    }
    sink.done();
    return result;
}

} // namespace

namespace detail
{

int stl_read_text(std::FILE* f, dense2D<double>& pos) noexcept
{
    soup_sink sink(pos);
    return read_text(f, sink);
}

int stl_read_binary(std::FILE* f, dense2D<double>& pos) noexcept
{
    soup_sink sink(pos);
    return read_binary(f, sink);
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
    // The soup moves out of pos, which receives the mesh.
    dense2D<double> soup;
    soup = pos;
    pos.clear_hard();
    weld_sink sink(pos, connectM); // no reserve: the room grows as for a text file
    const std::size_t nbr_tri = soup.cols() / 3;
    for (std::size_t k = 0; k < 3 * nbr_tri; ++k)
    {
        if (k % 3 == 0 && !sink.room()) return -199;
        sink.corner(soup.col(k));
    }
    return sink.finish();
}

} // namespace detail

namespace
{

/// Reads the file as text (binary false) or binary, welding the corners as they come; both
/// outputs are emptied on failure. opened tells whether the file could be opened (if not, the
/// result is -1).
int read_stl(const char* filename, bool binary, dense2D<double>& pos, dense2D<unsigned>& connectM,
             bool& opened) noexcept
{
    file_holder file(std::fopen(filename, binary ? "rb" : "rt"));
    opened = file.f != nullptr;
    if (!opened) return -1;
    weld_sink sink(pos, connectM);
    int result = binary ? read_binary(file.f, sink) : read_text(file.f, sink);
    file.close();
    if (result == 0) result = sink.finish();
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
