// medit formatted mesh files read back: vertices and elements with their references.
#include "io/scanner.h"

#include <cstring>
#include <meshutil/io.h>

namespace qx7::meshutil
{

namespace
{

/// An element section: keyword, nodes per record, element type of the output.
struct medit_section
{
    const char* keyword;
    unsigned nodes;
    element_type type;
};

constexpr medit_section medit_sections[] = {
    {"Edges", 2, EL_EDGE2},       {"Triangles", 3, EL_TRIA3}, {"Quadrilaterals", 4, EL_QUAD4},
    {"Tetrahedra", 4, EL_TETRA4}, {"Pyramids", 5, EL_PYRAM5}, {"Prisms", 6, EL_PENTA6},
    {"Pentahedra", 6, EL_PENTA6}, {"Hexahedra", 8, EL_HEXA8}, {"Hexaedra", 8, EL_HEXA8},
};

bool token_is(const char* b, const char* e, const char* word) noexcept
{
    std::size_t n = std::strlen(word);
    return std::size_t(e - b) == n && std::memcmp(b, word, n) == 0;
}

/// A token that starts a keyword: a letter first, and not a textual number (nan, inf, infinity
/// in any case, with a sign or not, which are invalid data rather than keywords).
bool looks_like_keyword(const char* b, const char* e) noexcept
{
    if (b == e || !((*b >= 'a' && *b <= 'z') || (*b >= 'A' && *b <= 'Z'))) return false;
    char low[9] = {};
    std::size_t n = std::size_t(e - b);
    if (n > 8) return true;
    for (std::size_t i = 0; i < n; ++i)
        low[i] = char(b[i] | 0x20);
    return std::strcmp(low, "nan") != 0 && std::strcmp(low, "inf") != 0 &&
           std::strcmp(low, "infinity") != 0;
}

struct medit_reader
{
    detail::text_scanner sc;
    dense2D<double>& pos;
    dense1D<int>& vertex_refs;
    dense2D<unsigned> (&connectM)[nbr_element_types];
    dense1D<int> (&refs)[nbr_element_types];
    unsigned dim = 0;
    std::uint64_t max_index = 0; // largest 1-based index met
    const char* b = nullptr;
    const char* e = nullptr;

    /// Next token: 1, 0 at the end, or a negative code.
    int token() noexcept
    {
        int got = sc.next_token(b, e, '#');
        if (got == detail::scan_read) return -1;
        if (got == detail::scan_overlong) return -2;
        return got;
    }
    /// Next token that must be there.
    int data() noexcept
    {
        int got = token();
        return got == 1 ? 0 : got == 0 ? -2 : got;
    }
    int integer(std::int64_t& v) noexcept
    {
        if (int rc = data()) return rc;
        return detail::parse_int(b, e, v) ? 0 : -2;
    }
    int reference(int& r) noexcept
    {
        std::int64_t v;
        if (int rc = integer(v)) return rc;
        if (v < INT32_MIN || v > INT32_MAX) return -2;
        r = int(v);
        return 0;
    }
    int count(std::uint64_t& n) noexcept
    {
        std::int64_t v;
        if (int rc = integer(v)) return rc;
        if (v < 0) return -2;
        n = std::uint64_t(v);
        return 0;
    }
    /// Room for n more records of at least `bytes` bytes each, bounded by what the file holds.
    std::size_t bounded(std::uint64_t n, std::uint64_t bytes) const noexcept
    {
        std::uint64_t fit = sc.bytes_left() / bytes;
        return std::size_t(n < fit ? n : fit);
    }

    int vertices() noexcept
    {
        if (dim == 0) return -2;
        std::uint64_t n;
        if (int rc = count(n)) return rc;
        std::size_t want = pos.cols() + bounded(n, 2 * (dim + 1));
        if (!pos.reserve(dim, want) || !vertex_refs.reserve(want)) return -199;
        double x[3];
        for (std::uint64_t j = 0; j < n; ++j)
        {
            int r;
            for (unsigned i = 0; i < dim; ++i)
            {
                if (int rc = data()) return rc;
                if (!detail::parse_real(b, e, x[i])) return -2;
            }
            if (int rc = reference(r)) return rc;
            if (!append_column(pos, x, dim) || !vertex_refs.push_back(r)) return -199;
        }
        return 0;
    }

    int elements(const medit_section& s) noexcept
    {
        std::uint64_t n;
        if (int rc = count(n)) return rc;
        dense2D<unsigned>& M = connectM[s.type];
        std::size_t want = M.cols() + bounded(n, 2 * (s.nodes + 1));
        if (!M.reserve(s.nodes, want) || !refs[s.type].reserve(want)) return -199;
        unsigned v[8];
        for (std::uint64_t j = 0; j < n; ++j)
        {
            for (unsigned i = 0; i < s.nodes; ++i)
            {
                std::int64_t x;
                if (int rc = integer(x)) return rc;
                if (x < 1 || x >= std::int64_t(undefined_index)) return -3;
                if (std::uint64_t(x) > max_index) max_index = std::uint64_t(x);
                v[i] = unsigned(x - 1);
            }
            int r;
            if (int rc = reference(r)) return rc;
            element_type t = s.type;
            if (t == EL_HEXA8) t = collapsed_shape(v);
            if (!append_column(connectM[t], v, nbr_nodes(t)) || !refs[t].push_back(r)) return -199;
        }
        return 0;
    }

    /// Pyramid a b c d e e e e or prism a b c c d e f f (the nodes named once distinct), with
    /// v rewritten to the shape's nodes; EL_HEXA8 otherwise.
    static element_type collapsed_shape(unsigned* v) noexcept
    {
        auto distinct = [](const unsigned* a, unsigned n)
        {
            for (unsigned i = 0; i < n; ++i)
                for (unsigned k = i + 1; k < n; ++k)
                    if (a[i] == a[k]) return false;
            return true;
        };
        if (v[5] == v[4] && v[6] == v[4] && v[7] == v[4] && distinct(v, 5)) return EL_PYRAM5;
        if (v[3] == v[2] && v[7] == v[6])
        {
            unsigned w[6] = {v[0], v[1], v[2], v[4], v[5], v[6]};
            if (distinct(w, 6))
            {
                std::memcpy(v, w, sizeof w);
                return EL_PENTA6;
            }
        }
        return EL_HEXA8;
    }

    /// Skips the data of a keyword this reader does not keep; leaves the next keyword (if any)
    /// as the current token. Returns 1 with a token, 0 at the end, or a negative code.
    int skip_unknown() noexcept
    {
        int got;
        while ((got = token()) == 1 && !looks_like_keyword(b, e))
        {
        }
        return got;
    }

    int run(const char* filename) noexcept
    {
        if (int rc = sc.open(filename)) return rc;
        int got = token();
        if (got < 0) return got;
        if (got == 0 || !token_is(b, e, "MeshVersionFormatted")) return -2;
        std::int64_t v;
        if (int rc = integer(v)) return rc;
        if (v < 1 || v > 4) return -4;
        got = token();
        while (got == 1)
        {
            if (!looks_like_keyword(b, e)) return -2;
            int rc = 0;
            bool known = true;
            if (token_is(b, e, "End"))
                return 0;
            else if (token_is(b, e, "Dimension"))
            {
                if ((rc = integer(v)) == 0 && (v < 1 || v > 3)) rc = -4;
                if (rc == 0 && !pos.empty() && unsigned(v) != dim) rc = -2;
                dim = unsigned(v);
            }
            else if (token_is(b, e, "Vertices"))
                rc = vertices();
            else
            {
                known = false;
                for (const medit_section& s : medit_sections)
                    if (token_is(b, e, s.keyword))
                    {
                        rc = elements(s);
                        known = true;
                        break;
                    }
            }
            if (rc) return rc;
            got = known ? token() : skip_unknown();
        }
        return got;
    }
};

} // namespace

int medit_input(const char* filename, dense2D<double>& pos, dense1D<int>& vertex_refs,
                dense2D<unsigned> (&connectM)[nbr_element_types],
                dense1D<int> (&refs)[nbr_element_types]) noexcept
{
    auto clear_all = [&]()
    {
        pos.clear(), vertex_refs.clear();
        for (unsigned t = 0; t < nbr_element_types; ++t)
            connectM[t].clear(), refs[t].clear();
    };
    clear_all();
    medit_reader r{{}, pos, vertex_refs, connectM, refs};
    int rc = r.run(filename);
    if (rc == 0 && r.max_index > pos.cols()) rc = -3;
    if (rc) clear_all();
    return rc;
}

} // namespace qx7::meshutil
