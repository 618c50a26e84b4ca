// FEMAP neutral files (formatted): nodes (block 403) and elements (block 404) read and written.
#include "io/readers_private.h"
#include "io/scanner.h"

#include <algorithm>
#include <cstring>
#include <meshutil/io.h>

namespace qx7::meshutil
{

namespace
{

// ------------------------------------------------------------------------------------ layout

constexpr const char* femap_delimiter = "   -1\n";
constexpr const char* femap_block = "   %d\n";
constexpr const char* femap_header = "<NULL>\n4.41,\n";
constexpr const char* femap_property = "%u,110,1,%d,1,0,\n<NULL>\n0,0,0,0,\n8,\n"
                                       "0,0,0,0,0,0,0,0,\n5,\n0.,0.,0.,0.,0.,\n";
constexpr const char* femap_node = "%u,0,0,1,46,0,0,0,0,0,0,%.16E,%.16E,%.16E,0,\n";
constexpr const char* femap_element = "%u,124,%u,%d,%d,1,0,0,\n";
constexpr const char* femap_element_tail = "0.,0.,0.,\n0.,0.,0.,\n0.,0.,0.,\n"
                                           "0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,\n";

constexpr unsigned nbr_slots = 20;

/// One topology code: the slots its nodes take, listed in NASTRAN order.
struct femap_topology
{
    int code;
    unsigned count;
    unsigned slots[nbr_slots];
};

constexpr femap_topology topo_point = {9, 1, {0}};
constexpr femap_topology topo_line2 = {0, 2, {0, 1}};
constexpr femap_topology topo_line3 = {1, 3, {0, 1, 2}};
constexpr femap_topology topo_tri3 = {2, 3, {0, 1, 2}};
constexpr femap_topology topo_tri6 = {3, 6, {0, 1, 2, 4, 5, 6}};
constexpr femap_topology topo_quad4 = {4, 4, {0, 1, 2, 3}};
constexpr femap_topology topo_quad8 = {5, 8, {0, 1, 2, 3, 4, 5, 6, 7}};
constexpr femap_topology topo_tetra4 = {6, 4, {0, 1, 2, 4}};
constexpr femap_topology topo_wedge6 = {7, 6, {0, 1, 2, 4, 5, 6}};
constexpr femap_topology topo_brick8 = {8, 8, {0, 1, 2, 3, 4, 5, 6, 7}};
constexpr femap_topology topo_tetra10 = {10, 10, {0, 1, 2, 4, 8, 9, 10, 12, 13, 14}};
constexpr femap_topology topo_wedge15 = {
    11, 15, {0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 16, 17, 18}};
constexpr femap_topology topo_brick20 = {
    12, 20, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19}};
/// Pyramids as collapsed bricks: base in slots 0-3, apex in 4-7 (and 16-19 for 13 nodes).
constexpr femap_topology topo_pyram5 = {8, 5, {0, 1, 2, 3, 4}};
constexpr femap_topology topo_pyram13 = {12, 13, {0, 1, 2, 3, 4, 8, 9, 10, 11, 12, 13, 14, 15}};

/// Topology used to write a plain shape; nullptr when none.
const femap_topology* topology_of(element_type t) noexcept
{
    switch (t)
    {
    case EL_NODE:
        return &topo_point;
    case EL_EDGE2:
    case EL_EDGE_MIX:
        return &topo_line2;
    case EL_EDGE3:
        return &topo_line3;
    case EL_TRIA3:
        return &topo_tri3;
    case EL_TRIA6:
        return &topo_tri6;
    case EL_QUAD4:
        return &topo_quad4;
    case EL_QUAD8:
    case EL_QUAD9:
        return &topo_quad8;
    case EL_TETRA4:
        return &topo_tetra4;
    case EL_TETRA10:
        return &topo_tetra10;
    case EL_PYRAM5:
        return &topo_pyram5;
    case EL_PYRAM14:
        return &topo_pyram13;
    case EL_PENTA6:
        return &topo_wedge6;
    case EL_PENTA18:
        return &topo_wedge15;
    case EL_HEXA8:
        return &topo_brick8;
    case EL_HEXA20:
    case EL_HEXA27:
        return &topo_brick20;
    default:
        return nullptr;
    }
}

/// Element family code of the shape: bar, linear or parabolic plate, linear or parabolic solid.
int family_of(element_type t) noexcept
{
    unsigned d = element_dim(t);
    bool quadratic = nbr_nodes(t) > nbr_base_nodes(t);
    if (d <= 1) return 2;
    if (d == 2) return quadratic ? 18 : 17;
    return quadratic ? 26 : 25;
}

/// The 20 slots of one element of shape t with local nodes p (0-based, written 1-based).
void fill_slots(element_type t, const unsigned* p, unsigned* slots) noexcept
{
    std::fill(slots, slots + nbr_slots, 0u);
    const femap_topology* topo = topology_of(t);
    if (t == EL_EDGE3)
    {
        for (unsigned i = 0; i < 3; ++i)
            slots[i] = p[i] + 1;
        return;
    }
    unsigned count;
    const unsigned char* order = detail::nastran_order(t, count);
    for (unsigned k = 0; k < count; ++k)
        slots[topo->slots[k]] = p[order[k]] + 1;
    if (t == EL_PYRAM5 || t == EL_PYRAM14)
    {
        for (unsigned s = 5; s < 8; ++s)
            slots[s] = slots[4];
        if (t == EL_PYRAM14)
            for (unsigned s = 16; s < 20; ++s)
                slots[s] = slots[4];
    }
}

/// Block 402: the property identifiers in use, ascending, each with the family of its first
/// element; no block when no element has a property.
int write_properties(std::FILE* f, const dense2D<unsigned>& connectM,
                     const dense1D<unsigned>& first, const dense1D<int>& types,
                     const dense1D<unsigned>& PIDs) noexcept
{
    const std::size_t n = PIDs.size();
    dense1D<std::uint64_t> keys;
    if (!keys.reserve(n)) return -199;
    for (std::size_t j = 0; j < n; ++j)
        if (PIDs[j]) keys.push_back(std::uint64_t(PIDs[j]) << 32 | j);
    if (keys.empty()) return 0;
    std::sort(keys.begin(), keys.end());
    std::fputs(femap_delimiter, f);
    std::fprintf(f, femap_block, 402);
    std::size_t k = 0; // group of the column, found by bisection
    for (std::size_t i = 0; i < keys.size(); ++i)
    {
        unsigned pid = unsigned(keys[i] >> 32);
        if (i && pid == unsigned(keys[i - 1] >> 32)) continue;
        std::size_t j = std::size_t(keys[i] & 0xffffffffu);
        k = std::size_t(std::upper_bound(first.begin(), first.end(), unsigned(j)) - first.begin());
        element_type t = normalize_type(element_type(types[k - 1]), connectM.rows());
        if (t == EL_FACE_MIX || t == EL_SOLID_MIX) t = column_shape(t, connectM.col(j));
        std::fprintf(f, femap_property, pid, family_of(t));
    }
    std::fputs(femap_delimiter, f);
    return 0;
}

// ------------------------------------------------------------------------------------ reading

/// Splits a record into values separated by commas and/or blanks; returns the number of values
/// (all are counted, at most `max` are stored).
unsigned split_values(const char* b, const char* e, const char** vb, const char** ve,
                      unsigned max) noexcept
{
    unsigned n = 0;
    const char* p = b;
    for (;;)
    {
        while (p < e && (*p == ',' || detail::is_blank(*p)))
            ++p;
        if (p == e) return n;
        const char* s = p;
        while (p < e && *p != ',' && !detail::is_blank(*p))
            ++p;
        if (n < max) vb[n] = s, ve[n] = p;
        ++n;
    }
}

bool is_delimiter(const char* b, const char* e) noexcept
{
    detail::trim(b, e);
    return e - b == 2 && b[0] == '-' && b[1] == '1';
}

bool is_blank_line(const char* b, const char* e) noexcept
{
    detail::trim(b, e);
    return b == e;
}

/// An identifier in 1 .. ~0u - 1.
bool parse_id(const char* b, const char* e, unsigned& id) noexcept
{
    return detail::parse_u32(b, e, id) && id != 0 && id != undefined_index;
}

struct femap_reader
{
    detail::text_scanner sc;
    dense2D<double>& pos;
    dense1D<unsigned>& node_IDs;
    detail::element_records elements;
    double version = -1.0; // unknown until block 100
    const char* b = nullptr;
    const char* e = nullptr;

    /// Next line; 1, 0 at the end, or a negative code.
    int line() noexcept
    {
        int got = sc.next_line(b, e);
        if (got == detail::scan_read) return -1;
        if (got == detail::scan_overlong) return -2;
        return got;
    }
    /// Next non-blank line; 1, 0 at the end, or a negative code.
    int record() noexcept
    {
        int got;
        while ((got = line()) == 1 && is_blank_line(b, e))
        {
        }
        return got;
    }
    /// Next record inside a block: 1, or -2 at the end of the file or at a delimiter.
    int inner_record() noexcept
    {
        int got = record();
        if (got < 0) return got;
        return got == 0 || is_delimiter(b, e) ? -2 : 1;
    }

    int header() noexcept
    {
        int got = line(); // title: free text
        if (got <= 0) return got < 0 ? got : -2;
        if (is_delimiter(b, e)) return 0; // a header without title and version
        const char *vb[1], *ve[1];
        if ((got = inner_record()) < 0) return got;
        if (split_values(b, e, vb, ve, 1) < 1 || !detail::parse_real(vb[0], ve[0], version))
            return -2;
        return skip_block();
    }

    int skip_block() noexcept
    {
        int got;
        while ((got = line()) == 1)
            if (is_delimiter(b, e)) return 0;
        return got < 0 ? got : -2;
    }

    int nodes() noexcept
    {
        const char *vb[14], *ve[14];
        for (;;)
        {
            int got = record();
            if (got <= 0) return got < 0 ? got : -2;
            if (is_delimiter(b, e)) return 0;
            unsigned id;
            double x[3];
            if (split_values(b, e, vb, ve, 14) < 14 || !parse_id(vb[0], ve[0], id)) return -2;
            for (int i = 0; i < 3; ++i)
                if (!detail::parse_real(vb[11 + i], ve[11 + i], x[i])) return -2;
            if (!append_column(pos, x, 3) || !node_IDs.push_back(id)) return -199;
        }
    }

    /// Reads `count` node slots from the current record into slots + offset.
    int slot_record(unsigned* slots, unsigned offset) noexcept
    {
        const char *vb[10], *ve[10];
        if (split_values(b, e, vb, ve, 10) != 10) return -2;
        for (unsigned i = 0; i < 10; ++i)
        {
            unsigned v;
            if (!detail::parse_u32(vb[i], ve[i], v) || v == undefined_index) return -2;
            slots[offset + i] = v;
        }
        return 0;
    }

    int elements_block() noexcept
    {
        const char *vb[20], *ve[20];
        for (;;)
        {
            int got = record();
            if (got <= 0) return got < 0 ? got : -2;
            if (is_delimiter(b, e)) return 0;
            unsigned eid, pid;
            std::int64_t topology;
            if (split_values(b, e, vb, ve, 5) < 5 || !parse_id(vb[0], ve[0], eid) ||
                !detail::parse_u32(vb[2], ve[2], pid) || pid == undefined_index ||
                !detail::parse_int(vb[4], ve[4], topology))
                return -2;
            unsigned slots[nbr_slots];
            if ((got = inner_record()) < 0) return got;
            if (split_values(b, e, vb, ve, 0) == 12 && (got = inner_record()) < 0) return got;
            if ((got = slot_record(slots, 0)) < 0) return got;
            if ((got = inner_record()) < 0 || (got = slot_record(slots, 10)) < 0) return got;
            // Orientation, two offsets, releases (with the list flags last).
            for (int r = 0; r < 4; ++r)
                if ((got = inner_record()) < 0) return got;
            unsigned nv = split_values(b, e, vb, ve, 20);
            if (nv >= 16 && nv <= 20 && (version < 0 || version >= 4.5))
                for (unsigned i = nv - 4; i < nv; ++i)
                {
                    std::int64_t flag;
                    if (!detail::parse_int(vb[i], ve[i], flag)) return -2;
                    if (flag != 0 && (got = skip_list()) < 0) return got;
                }
            if ((got = element(eid, pid, topology, slots)) < 0) return got;
        }
    }

    /// Skips list records up to the one starting with -1.
    int skip_list() noexcept
    {
        const char *vb[1], *ve[1];
        for (;;)
        {
            int got = record();
            if (got <= 0) return got < 0 ? got : -2;
            std::int64_t v;
            if (split_values(b, e, vb, ve, 1) >= 1 && detail::parse_int(vb[0], ve[0], v) && v == -1)
                return 0;
        }
    }

    int element(unsigned eid, unsigned pid, std::int64_t topology, unsigned* s) noexcept
    {
        if (topology == 13 || topology == 15 || topology == 16 || topology == 17) return 0;
        const femap_topology* topo = nullptr;
        element_type kind = EL_UNKNOWN;
        switch (topology)
        {
        case 0:
            topo = &topo_line2, kind = EL_EDGE2;
            break;
        case 1:
            topo = &topo_line3, kind = EL_EDGE3;
            break;
        case 2:
            topo = &topo_tri3, kind = EL_TRIA3;
            break;
        case 3:
            topo = &topo_tri6, kind = EL_TRIA6;
            break;
        case 4:
            topo = &topo_quad4, kind = EL_QUAD4;
            break;
        case 5:
            topo = &topo_quad8, kind = EL_QUAD8;
            break;
        case 6:
            topo = &topo_tetra4, kind = EL_TETRA4;
            break;
        case 7:
            topo = &topo_wedge6, kind = EL_PENTA6;
            break;
        case 8:
            topo = &topo_brick8, kind = EL_HEXA8;
            break;
        case 9:
            topo = &topo_point, kind = EL_NODE;
            break;
        case 10:
            topo = &topo_tetra10, kind = EL_TETRA10;
            break;
        case 11:
            topo = &topo_wedge15, kind = EL_PENTA18;
            break;
        case 12:
            topo = &topo_brick20, kind = EL_HEXA20;
            break;
        default:
            return -4;
        }
        // Variants: a tetra4 in slots 0-3, pyramids as collapsed bricks.
        unsigned grids[nbr_slots];
        unsigned used[nbr_slots] = {}; // 1 for the slots the shape reads
        unsigned count = 0;
        auto take = [&](unsigned slot)
        {
            grids[count++] = s[slot];
            used[slot] = 1;
        };
        const bool apex_repeated = s[4] && s[5] == s[4] && s[6] == s[4] && s[7] == s[4];
        const bool apex_alone = s[4] && !s[5] && !s[6] && !s[7];
        if (kind == EL_TETRA4 && s[3] && !s[4])
            for (unsigned i = 0; i < 4; ++i)
                take(i);
        else if (kind == EL_HEXA8 && (apex_repeated || apex_alone))
        {
            kind = EL_PYRAM5;
            for (unsigned i = 0; i < 8; ++i)
                take(i);
            count = 5;
        }
        else if (kind == EL_HEXA20 && (apex_repeated || apex_alone) &&
                 ((s[16] == s[4] && s[17] == s[4] && s[18] == s[4] && s[19] == s[4]) ||
                  (!s[16] && !s[17] && !s[18] && !s[19])))
        {
            kind = EL_PYRAM14;
            for (unsigned i = 0; i < 20; ++i)
                take(i);
            for (unsigned i = 0; i < 8; ++i) // mid-edges after the apex
                grids[5 + i] = s[8 + i];
            count = 13;
        }
        else
            for (unsigned k = 0; k < topo->count; ++k)
                take(topo->slots[k]);
        for (unsigned i = 0; i < nbr_slots; ++i)
            if (!used[i] && s[i]) return -2;
        for (unsigned k = 0; k < count; ++k)
            if (!grids[k]) return -2;
        unsigned lib[27];
        if (kind == EL_EDGE3)
            std::memcpy(lib, grids, 3 * sizeof(unsigned));
        else
            detail::from_nastran_order(kind, grids, lib);
        return elements.add(kind, eid, pid, lib) ? 0 : -199;
    }

    int run(const char* filename) noexcept
    {
        if (int rc = sc.open(filename)) return rc;
        int got = record();
        if (got < 0) return got;
        if (got == 0 || !is_delimiter(b, e)) return -2;
        for (;;)
        {
            const char *vb[1], *ve[1];
            std::int64_t id;
            if ((got = inner_record()) < 0) return got;
            if (split_values(b, e, vb, ve, 1) != 1 || !detail::parse_int(vb[0], ve[0], id))
                return -2;
            if (id == 100)
                got = header();
            else if (id == 403)
                got = nodes();
            else if (id == 404)
                got = elements_block();
            else
                got = skip_block();
            if (got < 0) return got;
            // Next block, if any.
            if ((got = record()) <= 0) return got;
            if (!is_delimiter(b, e)) return -2;
        }
    }
};

} // namespace

int FEMAP_output(const char* filename, const dense2D<double>& pos,
                 const dense2D<unsigned>& connectM, const dense1D<unsigned>& first,
                 const dense1D<int>& types, const dense1D<unsigned>& PIDs) noexcept
{
    if (pos.rows() != 2 && pos.rows() != 3) return -2;
    const std::size_t nbr_elts = connectM.empty() ? 0 : connectM.cols();
    if (first.empty() || first[0] != 0 || first[first.size() - 1] != nbr_elts) return -4;
    for (std::size_t k = 1; k < first.size(); ++k)
        if (first[k] < first[k - 1]) return -4;
    if (types.size() + 1 != first.size()) return -5;
    for (std::size_t k = 0; k < types.size(); ++k)
        if (types[k] < 0 || types[k] >= int(nbr_element_types)) return -5;
    if (PIDs.size() != nbr_elts) return -6;
    const unsigned nbr_nodes_pos = unsigned(pos.cols());
    for (std::size_t k = 0; k < types.size(); ++k)
    {
        element_type t = normalize_type(element_type(types[k]), connectM.rows());
        std::size_t r = nbr_nodes(t), n = first[k + 1] - first[k];
        if (n == 0 || t == EL_UNKNOWN) continue;
        if (connectM.rows() < r) return -3;
        if (!check_IDs(connectM.sub_matrix(0, first[k], r, n), t, nbr_nodes_pos)) return -3;
    }
    io::file_handle file(filename, "w");
    if (!file) return -1;
    std::FILE* f = file.get();
    std::fputs(femap_delimiter, f);
    std::fprintf(f, femap_block, 100);
    std::fputs(femap_header, f);
    std::fputs(femap_delimiter, f);
    if (int rc = write_properties(f, connectM, first, types, PIDs)) return rc;
    std::fputs(femap_delimiter, f);
    std::fprintf(f, femap_block, 403);
    const bool planar = pos.rows() == 2;
    for (std::size_t j = 0; j < pos.cols(); ++j)
    {
        const double* p = pos.col(j);
        std::fprintf(f, femap_node, unsigned(j + 1), p[0], p[1], planar ? 0.0 : p[2]);
    }
    std::fputs(femap_delimiter, f);
    std::fputs(femap_delimiter, f);
    std::fprintf(f, femap_block, 404);
    unsigned s[nbr_slots];
    for (std::size_t k = 0; k < types.size(); ++k)
    {
        const element_type t = normalize_type(element_type(types[k]), connectM.rows());
        if (t == EL_UNKNOWN) continue;
        for (std::size_t j = first[k]; j < first[k + 1]; ++j)
        {
            const unsigned* p = connectM.col(j);
            const element_type shape = column_shape(t, p);
            fill_slots(shape, p, s);
            std::fprintf(f, femap_element, unsigned(j + 1), PIDs[j], family_of(shape),
                         topology_of(shape)->code);
            for (unsigned line = 0; line < 2; ++line)
            {
                const unsigned* q = s + 10 * line;
                std::fprintf(f, "%u,%u,%u,%u,%u,%u,%u,%u,%u,%u,\n", q[0], q[1], q[2], q[3], q[4],
                             q[5], q[6], q[7], q[8], q[9]);
            }
            std::fputs(femap_element_tail, f);
        }
    }
    std::fputs(femap_delimiter, f);
    if (std::ferror(f)) return -1;
    return file.close() ? 0 : -1;
}

int FEMAP_output(const char* filename, const dense2D<double>& pos,
                 const dense2D<unsigned>& connectM, element_type FE_type) noexcept
{
    const std::size_t n = connectM.empty() ? 0 : connectM.cols();
    dense1D<unsigned> first(2), PIDs(n, 1u);
    dense1D<int> types(1, int(FE_type));
    if (first.size() != 2 || PIDs.size() != n || types.size() != 1) return -199;
    first[0] = 0, first[1] = unsigned(n);
    return FEMAP_output(filename, pos, connectM, first, types, PIDs);
}

int FEMAP_input(const char* filename, dense2D<double>& pos, dense2D<unsigned>& connectM,
                dense1D<unsigned>& first, dense1D<int>& types, dense1D<unsigned>& PIDs,
                dense1D<unsigned>& node_IDs, dense1D<unsigned>& element_IDs) noexcept
{
    return detail::read_grouped<femap_reader>(filename, pos, connectM, first, types, PIDs, node_IDs,
                                              element_IDs);
}

} // namespace qx7::meshutil
