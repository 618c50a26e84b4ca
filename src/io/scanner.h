// Buffered text scanner shared by the mesh-file readers (never installed): reads the file in
// large blocks and hands out lines or blank-separated tokens as pointer ranges into its buffer,
// plus locale-independent number parsers that check that the whole token is a number.
#pragma once

#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

namespace qx7::meshutil::detail
{

/// Results of the scanner's getters.
enum scan_result
{
    scan_ok = 1,        ///< a line or token was returned
    scan_end = 0,       ///< end of the file
    scan_read = -1,     ///< the file could not be read
    scan_overlong = -2, ///< a line or token longer than the buffer
};

/// Block reader over a stdio file. Lines end at "\n", "\r\n" or "\r"; a line (or a token) may be
/// at most `max_line` bytes long. Returned ranges stay valid until the next call.
class text_scanner
{
public:
    static constexpr std::size_t max_line = std::size_t(1) << 20;
    static constexpr std::size_t block = std::size_t(1) << 20;

    text_scanner() noexcept = default;
    text_scanner(const text_scanner&) = delete;
    text_scanner& operator=(const text_scanner&) = delete;
    ~text_scanner()
    {
        if (m_file) std::fclose(m_file);
    }

    /// Opens the file (binary mode, so that line ends are seen as they are) and allocates the
    /// buffer: 0, -1 when the file cannot be opened, -199 without memory.
    int open(const char* filename) noexcept
    {
        if (!filename) return -1;
        m_file = std::fopen(filename, "rb");
        if (!m_file) return -1;
        if (std::fseek(m_file, 0, SEEK_END) == 0)
        {
            long size = std::ftell(m_file);
            if (size > 0) m_size = std::uint64_t(size);
        }
        std::rewind(m_file);
        // A small file is read in one block (plus one byte to see its end).
        if (m_size > 0 && m_size < m_cap) m_cap = std::size_t(m_size) + 1;
        m_buf.reset(new (std::nothrow) char[m_cap]);
        if (!m_buf) return -199;
        return 0;
    }

    /// Bytes of the file not yet handed out (0 when the size is unknown). Readers use it to bound
    /// reservations made from counts found in the file.
    std::uint64_t bytes_left() const noexcept
    {
        std::uint64_t used = m_consumed + m_pos;
        return m_size > used ? m_size - used : 0;
    }

    /// Next line without its end-of-line characters.
    int next_line(const char*& b, const char*& e) noexcept
    {
        for (;;)
        {
            if (m_skip_lf)
            {
                if (m_pos == m_len && !refill()) return m_error ? scan_read : scan_end;
                if (m_buf[m_pos] == '\n') ++m_pos;
                m_skip_lf = false;
            }
            const char* p = m_buf.get() + m_pos;
            const char* end = m_buf.get() + m_len;
            const char* q = p;
            while (q < end && *q != '\n' && *q != '\r')
                ++q;
            if (q < end)
            {
                b = p, e = q;
                m_pos = std::size_t(q - m_buf.get()) + 1;
                if (*q == '\r') m_skip_lf = true;
                return scan_ok;
            }
            if (m_eof)
            {
                if (p == end) return m_error ? scan_read : scan_end;
                b = p, e = end;
                m_pos = m_len;
                return scan_ok;
            }
            if (full()) return scan_overlong;
            if (!refill()) continue; // end reached: the loop returns the last line
        }
    }

    /// Next token: a run of characters other than blanks, tabs, line ends and `comment`; text
    /// from `comment` to the end of its line is skipped (pass '\0' for none).
    int next_token(const char*& b, const char*& e, char comment) noexcept
    {
        // Skip separators and comments.
        for (;;)
        {
            if (m_pos == m_len && !refill()) return m_error ? scan_read : scan_end;
            char c = m_buf[m_pos];
            if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f')
                ++m_pos;
            else if (comment && c == comment)
            {
                for (;;)
                {
                    if (m_pos == m_len && !refill()) return m_error ? scan_read : scan_end;
                    char* p = m_buf.get() + m_pos;
                    char* end = m_buf.get() + m_len;
                    while (p < end && *p != '\n' && *p != '\r')
                        ++p;
                    m_pos = std::size_t(p - m_buf.get());
                    if (p < end) break;
                }
            }
            else
                break;
        }
        for (;;)
        {
            const char* p = m_buf.get() + m_pos;
            const char* end = m_buf.get() + m_len;
            const char* q = p;
            while (q < end && !is_separator(*q, comment))
                ++q;
            if (q < end || m_eof)
            {
                b = p, e = q;
                m_pos = std::size_t(q - m_buf.get());
                return scan_ok;
            }
            if (full()) return scan_overlong;
            refill(); // keeps the partial token at the front of the buffer
        }
    }

private:
    /// The unread bytes are too many to make room for more: a line or token is too long.
    bool full() const noexcept
    {
        return m_len - m_pos >= max_line || (m_pos == 0 && m_len == m_cap);
    }

    static bool is_separator(char c, char comment) noexcept
    {
        return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f' ||
               (comment && c == comment);
    }

    /// Moves the unread bytes to the front and reads one more block after them; false when no
    /// byte could be added (end of file or read error).
    bool refill() noexcept
    {
        if (m_eof) return false;
        if (m_pos > 0)
        {
            std::memmove(m_buf.get(), m_buf.get() + m_pos, m_len - m_pos);
            m_consumed += m_pos;
            m_len -= m_pos;
            m_pos = 0;
        }
        std::size_t got = std::fread(m_buf.get() + m_len, 1, m_cap - m_len, m_file);
        m_len += got;
        if (got < m_cap - m_len + got)
        {
            if (std::ferror(m_file)) m_error = true;
            if (std::feof(m_file) || m_error) m_eof = true;
        }
        return got > 0;
    }

    std::FILE* m_file = nullptr;
    std::unique_ptr<char[]> m_buf;
    std::size_t m_cap = max_line + block;
    std::size_t m_pos = 0, m_len = 0;
    std::uint64_t m_consumed = 0, m_size = 0;
    bool m_eof = false, m_error = false, m_skip_lf = false;
};

// ------------------------------------------------------------------------------------ numbers

inline bool is_blank(char c) noexcept
{
    return c == ' ' || c == '\t';
}

/// Removes blanks and tabs at both ends of [b, e).
inline void trim(const char*& b, const char*& e) noexcept
{
    while (b < e && is_blank(*b))
        ++b;
    while (e > b && is_blank(e[-1]))
        --e;
}

/// Parses [b, e) entirely as a decimal integer with an optional sign; false on anything else or
/// on overflow of 64 bits.
inline bool parse_int(const char* b, const char* e, std::int64_t& v) noexcept
{
    if (b < e && *b == '+') ++b;
    if (b == e || (*b == '-' && e - b == 1)) return false;
    auto r = std::from_chars(b, e, v);
    return r.ec == std::errc() && r.ptr == e;
}

/// Parses [b, e) entirely as a non-negative integer that fits in 32 bits.
inline bool parse_u32(const char* b, const char* e, std::uint32_t& v) noexcept
{
    std::int64_t x;
    if (!parse_int(b, e, x) || x < 0 || x > 0xffffffffll) return false;
    v = std::uint32_t(x);
    return true;
}

/// Parses [b, e) entirely as a finite real in C syntax (optional sign, digits with an optional
/// point, optional exponent); NaN, infinities, hexadecimal forms and trailing text are refused.
inline bool parse_real(const char* b, const char* e, double& v) noexcept
{
    if (b < e && *b == '+')
    {
        ++b;
        if (b < e && (*b == '-' || *b == '+')) return false;
    }
    if (b == e) return false;
    char c = *b == '-' && e - b > 1 ? b[1] : *b;
    if (!((c >= '0' && c <= '9') || c == '.')) return false; // rejects nan, inf, "-"
    auto r = std::from_chars(b, e, v, std::chars_format::general);
    return r.ec == std::errc() && r.ptr == e && std::isfinite(v);
}

} // namespace qx7::meshutil::detail
