// NASTRAN bulk data read back: GRID cards and the usual line, shell and solid element cards.
#include "io/readers_private.h"
#include "io/scanner.h"

#include <cstring>
#include <meshutil/io.h>

namespace qx7::meshutil
{

namespace
{

/// An element card: name, kind and grid count without and with mid-edge grids.
struct nastran_card
{
    const char* name;
    element_type linear;
    unsigned nbr_linear;
    element_type quadratic;
    unsigned nbr_quadratic;
};

constexpr nastran_card nastran_cards[] = {
    {"CROD", EL_EDGE2, 2, EL_EDGE2, 2},        {"CBAR", EL_EDGE2, 2, EL_EDGE2, 2},
    {"CBEAM", EL_EDGE2, 2, EL_EDGE2, 2},       {"CTRIA3", EL_TRIA3, 3, EL_TRIA3, 3},
    {"CTRIA6", EL_TRIA3, 3, EL_TRIA6, 6},      {"CQUAD4", EL_QUAD4, 4, EL_QUAD4, 4},
    {"CQUAD8", EL_QUAD4, 4, EL_QUAD8, 8},      {"CTETRA", EL_TETRA4, 4, EL_TETRA10, 10},
    {"CTETRA_", EL_TETRA4, 4, EL_TETRA10, 10}, {"CPYRAM", EL_PYRAM5, 5, EL_PYRAM14, 13},
    {"CPYRA", EL_PYRAM5, 5, EL_PYRAM14, 13},   {"CPYRA_", EL_PYRAM5, 5, EL_PYRAM14, 13},
    {"CPENTA", EL_PENTA6, 6, EL_PENTA18, 15},  {"CPENTA_", EL_PENTA6, 6, EL_PENTA18, 15},
    {"CHEXA", EL_HEXA8, 8, EL_HEXA20, 20},     {"CHEXA_", EL_HEXA8, 8, EL_HEXA20, 20},
};

constexpr unsigned max_fields = 24; // EID, PID and 20 grids, with room
constexpr unsigned field_chars = 32;

/// Case-insensitive equality of [b, e) with an upper-case word.
bool equals_upper(const char* b, const char* e, const char* word) noexcept
{
    std::size_t n = std::strlen(word);
    if (std::size_t(e - b) != n) return false;
    for (std::size_t i = 0; i < n; ++i)
    {
        char c = b[i];
        if (c >= 'a' && c <= 'z') c = char(c - 'a' + 'A');
        if (c != word[i]) return false;
    }
    return true;
}

/// Case-insensitive prefix test of [b, e) against an upper-case word.
bool starts_upper(const char* b, const char* e, const char* word) noexcept
{
    std::size_t n = std::strlen(word);
    return std::size_t(e - b) >= n && equals_upper(b, b + n, word);
}

/// "BEGIN BULK" or "BEGIN SUPER" after leading blanks, words separated by blanks.
bool is_begin_bulk(const char* b, const char* e) noexcept
{
    detail::trim(b, e);
    if (!starts_upper(b, e, "BEGIN")) return false;
    const char* p = b + 5;
    if (p == e || !detail::is_blank(*p)) return false;
    while (p < e && detail::is_blank(*p))
        ++p;
    return starts_upper(p, e, "BULK") || starts_upper(p, e, "SUPER");
}

/// A real in NASTRAN's forms: an exponent may follow the mantissa without its letter
/// ("1.5-3"), "D" stands for "E"; plain integers are accepted.
bool parse_nastran_real(const char* b, const char* e, double& v) noexcept
{
    char buf[field_chars + 2];
    std::size_t n = 0;
    for (const char* p = b; p < e; ++p)
    {
        char c = *p;
        if (c == 'D' || c == 'd') c = 'E';
        if ((c == '+' || c == '-') && p > b && n > 0 && buf[n - 1] != 'E' && buf[n - 1] != 'e')
            buf[n++] = 'E';
        if (n >= field_chars) return false;
        buf[n++] = c;
    }
    return detail::parse_real(buf, buf + n, v);
}

struct nastran_reader
{
    detail::text_scanner sc;
    dense2D<double>& pos;
    dense1D<unsigned>& node_IDs;
    detail::element_records elements;

    // The card being gathered.
    bool have_card = false;
    char name[12] = {};
    unsigned nbr_fields = 0;
    char text[max_fields][field_chars] = {};
    unsigned char length[max_fields] = {};
    // Shape of its last physical line, for the continuation rules of free field.
    bool last_free = false;
    unsigned last_items = 0, last_capacity = 8;

    void add_field(const char* b, const char* e) noexcept
    {
        detail::trim(b, e);
        if (nbr_fields < max_fields)
        {
            std::size_t n = std::size_t(e - b);
            if (n > field_chars)
                length[nbr_fields] = 255;
            else
            {
                std::memcpy(text[nbr_fields], b, n);
                length[nbr_fields] = (unsigned char)n;
            }
        }
        ++nbr_fields;
    }

    /// Field k as a range; empty when blank or absent. False when too long to be a value.
    bool field(unsigned k, const char*& b, const char*& e) const noexcept
    {
        if (k >= nbr_fields || k >= max_fields)
        {
            b = e = text[0];
            return true;
        }
        if (length[k] == 255) return false;
        b = text[k], e = text[k] + length[k];
        return true;
    }

    /// Appends the data fields of one physical line; `continuation` skips field 1.
    void add_line(const char* b, const char* e, bool continuation) noexcept
    {
        if (continuation && last_free)
        {
            // The previous free line ended with its continuation marker, or was short.
            if (last_items == last_capacity + 1)
                --nbr_fields;
            else
                for (unsigned k = last_items; k < last_capacity; ++k)
                    add_field(b, b);
        }
        const char* comma = static_cast<const char*>(std::memchr(b, ',', std::size_t(e - b)));
        bool large;
        if (comma)
        {
            // Free field: field 1 (name or marker), then the data items.
            const char* p = comma;
            if (!continuation) set_name(b, p);
            large = continuation ? (*b == '*') : name_is_large;
            unsigned items = 0;
            while (p < e)
            {
                const char* s = ++p;
                while (p < e && *p != ',')
                    ++p;
                add_field(s, p);
                ++items;
            }
            last_free = true;
            last_items = items;
            last_capacity = large ? 4 : 8;
            return;
        }
        // Fixed field: the first 80 columns, tabs expanded to the next multiple of 8.
        char line[80];
        unsigned col = 0;
        for (const char* p = b; p < e && col < 80; ++p)
        {
            if (*p == '\t') do
                    line[col++] = ' ';
                while (col % 8 && col < 80);
            else
                line[col++] = *p;
        }
        while (col < 80)
            line[col++] = ' ';
        if (!continuation) set_name(line, line + 8);
        large = continuation ? (line[0] == '*') : name_is_large;
        const unsigned width = large ? 16 : 8, count = large ? 4 : 8;
        for (unsigned k = 0; k < count; ++k)
            add_field(line + 8 + k * width, line + 8 + (k + 1) * width);
        last_free = false;
    }

    bool name_is_large = false;
    void set_name(const char* b, const char* e) noexcept
    {
        detail::trim(b, e);
        std::size_t n = std::size_t(e - b);
        name_is_large = n > 0 && e[-1] == '*';
        if (name_is_large) --n;
        if (n > 8) n = 9; // too long for any card kept
        for (std::size_t i = 0; i < n; ++i)
        {
            char c = i < std::size_t(e - b) ? b[i] : ' ';
            name[i] = (c >= 'a' && c <= 'z') ? char(c - 'a' + 'A') : c;
        }
        name[n] = '\0';
    }

    int grid() noexcept
    {
        const char *b, *e;
        std::uint32_t id, cp = 0;
        double x[3] = {0.0, 0.0, 0.0};
        if (!field(0, b, e) || !detail::parse_u32(b, e, id) || id == 0 || id == undefined_index)
            return -2;
        if (!field(1, b, e)) return -2;
        if (b != e && !detail::parse_u32(b, e, cp)) return -2;
        if (cp != 0) return -4;
        for (unsigned i = 0; i < 3; ++i)
        {
            if (!field(2 + i, b, e)) return -2;
            if (b != e && !parse_nastran_real(b, e, x[i])) return -2;
        }
        if (!append_column(pos, x, 3) || !node_IDs.push_back(id)) return -199;
        return 0;
    }

    /// Grid field k: 0 when blank, ~0u when not a valid identifier.
    unsigned grid_field(unsigned k) const noexcept
    {
        const char *b, *e;
        std::uint32_t v;
        if (!field(k, b, e)) return undefined_index;
        if (b == e) return 0;
        return detail::parse_u32(b, e, v) ? v : undefined_index;
    }

    int element(const nastran_card& card) noexcept
    {
        const char *b, *e;
        std::uint32_t eid, pid;
        if (!field(0, b, e) || !detail::parse_u32(b, e, eid) || eid == 0 || eid == undefined_index)
            return -2;
        if (!field(1, b, e)) return -2;
        if (b == e)
            pid = eid;
        else if (!detail::parse_u32(b, e, pid) || pid == undefined_index)
            return -2;
        unsigned grids[20], lib[27], given = 0;
        for (unsigned k = 0; k < card.nbr_quadratic; ++k)
        {
            grids[k] = grid_field(2 + k);
            if (grids[k] == undefined_index) return -2;
            if (k < card.nbr_linear && grids[k] == 0) return -2;
            if (k >= card.nbr_linear && grids[k] != 0) ++given;
        }
        element_type kind = card.linear;
        if (given == card.nbr_quadratic - card.nbr_linear && given > 0)
            kind = card.quadratic;
        else if (given != 0)
            return -2;
        detail::from_nastran_order(kind, grids, lib);
        return elements.add(kind, eid, pid, lib) ? 0 : -199;
    }

    /// Interprets the gathered card, if any.
    int finish_card() noexcept
    {
        if (!have_card) return 0;
        have_card = false;
        if (std::strcmp(name, "GRID") == 0) return grid();
        for (const nastran_card& card : nastran_cards)
            if (std::strcmp(name, card.name) == 0) return element(card);
        return 0;
    }

    int run(const char* filename) noexcept
    {
        if (int rc = sc.open(filename)) return rc;
        const char *b, *e;
        int got = detail::scan_end;
        bool bulk = false;
        while (!bulk && (got = sc.next_line(b, e)) == detail::scan_ok)
            bulk = is_begin_bulk(b, e);
        if (!bulk) return got == detail::scan_read ? -1 : -2;
        while ((got = sc.next_line(b, e)) == detail::scan_ok)
        {
            if (const void* dollar = std::memchr(b, '$', std::size_t(e - b)))
                e = static_cast<const char*>(dollar);
            const char *tb = b, *te = e;
            detail::trim(tb, te);
            if (tb == te) continue;
            if (starts_upper(tb, te, "ENDDATA")) return finish_card();
            const char c = *b;
            if (c == '+' || c == '*' || c == ',' || detail::is_blank(c))
            {
                if (!have_card) return -2;
                add_line(b, e, true);
                continue;
            }
            if (int rc = finish_card()) return rc;
            have_card = true;
            nbr_fields = 0;
            add_line(b, e, false);
        }
        if (got == detail::scan_read) return -1;
        return -2; // no ENDDATA, or an overlong line
    }
};

} // namespace

int NASTRAN_input(const char* filename, dense2D<double>& pos, dense2D<unsigned>& connectM,
                  dense1D<unsigned>& first, dense1D<int>& types, dense1D<unsigned>& PIDs,
                  dense1D<unsigned>& node_IDs, dense1D<unsigned>& element_IDs) noexcept
{
    return detail::read_grouped<nastran_reader>(filename, pos, connectM, first, types, PIDs,
                                                node_IDs, element_IDs);
}

} // namespace qx7::meshutil
