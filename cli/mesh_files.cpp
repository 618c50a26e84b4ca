// The in-memory mesh of the tool and its files: format table, reading and writing through the
// library's readers and writers.
#include "cli.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace cli
{

// ------------------------------------------------------------------------------------ mesh

std::size_t mesh::nbr_elements() const
{
    std::size_t n = 0;
    for (const block& b : blocks)
        n += b.connectM.empty() ? 0 : b.connectM.cols();
    return n;
}

unsigned mesh::top_dim() const
{
    unsigned d = 0;
    for (const block& b : blocks)
        if (!b.connectM.empty()) d = std::max(d, mu::element_dim(b.type));
    return d;
}

block_range::block_range(const mesh& m) : types(m.blocks.size())
{
    mats.reserve(m.blocks.size());
    for (std::size_t k = 0; k < m.blocks.size(); ++k)
    {
        mats.push_back(m.blocks[k].connectM);
        types[k] = m.blocks[k].type;
    }
}

namespace
{

/// The linear type whose nodes come first in a column of type t.
mu::element_type linear_type(mu::element_type t)
{
    switch (t)
    {
    case mu::EL_EDGE3:
        return mu::EL_EDGE2;
    case mu::EL_TRIA6:
        return mu::EL_TRIA3;
    case mu::EL_QUAD8:
    case mu::EL_QUAD9:
        return mu::EL_QUAD4;
    case mu::EL_TETRA10:
        return mu::EL_TETRA4;
    case mu::EL_PYRAM14:
        return mu::EL_PYRAM5;
    case mu::EL_PENTA18:
        return mu::EL_PENTA6;
    case mu::EL_HEXA20:
    case mu::EL_HEXA27:
        return mu::EL_HEXA8;
    case mu::EL_EDGE_MIX:
        return mu::EL_EDGE2;
    default:
        return t;
    }
}

} // namespace

bool principal_elements(const mesh& m, block& out)
{
    const unsigned dim = m.top_dim();
    out = block{};
    std::vector<const block*> chosen;
    std::size_t cols = 0;
    mu::element_type only = mu::EL_UNKNOWN;
    bool uniform = true;
    for (const block& b : m.blocks)
    {
        if (b.connectM.empty() || mu::element_dim(b.type) != dim) continue;
        mu::element_type t = linear_type(mu::normalize_type(b.type, b.connectM.rows()));
        if (!chosen.empty() && t != only) uniform = false;
        only = t;
        chosen.push_back(&b);
        cols += b.connectM.cols();
    }
    if (chosen.empty()) return true;
    // One linear type throughout: its columns, corner rows only. Otherwise the mixed type of the
    // dimension, unused rows ~0u.
    mu::element_type t = uniform ? only
                                 : (dim == 3   ? mu::EL_SOLID_MIX
                                    : dim == 2 ? mu::EL_FACE_MIX
                                               : mu::EL_EDGE2);
    const std::size_t rows = mu::nbr_nodes(t);
    if (!out.connectM.resize(rows, cols, qx7::undefined_index)) return false;
    out.type = t;
    std::size_t j = 0;
    for (const block* b : chosen)
    {
        const dense2D<unsigned>& c = b->connectM;
        const mu::element_type bt = linear_type(mu::normalize_type(b->type, c.rows()));
        const std::size_t used = std::min<std::size_t>({rows, c.rows(), mu::nbr_base_nodes(bt)});
        for (std::size_t e = 0; e < c.cols(); ++e, ++j)
            std::copy(c.col(e), c.col(e) + used, out.connectM.col(j));
    }
    return true;
}

const char* type_words(mu::element_type t)
{
    static const char* const words[] = {"unknown elements",
                                        "nodes",
                                        "mixed edges",
                                        "edges",
                                        "quadratic edges",
                                        "mixed faces",
                                        "triangles",
                                        "quadrangles",
                                        "6-node triangles",
                                        "8-node quadrangles",
                                        "9-node quadrangles",
                                        "mixed solids",
                                        "tetrahedra",
                                        "10-node tetrahedra",
                                        "pyramids",
                                        "14-node pyramids",
                                        "wedges",
                                        "18-node wedges",
                                        "hexahedra",
                                        "20-node hexahedra",
                                        "27-node hexahedra"};
    unsigned k = unsigned(t);
    return k < mu::nbr_element_types ? words[k] : "invalid elements";
}

const char* type_name(mu::element_type t)
{
    static const char* const names[] = {
        "EL_UNKNOWN", "EL_NODE",    "EL_EDGE_MIX", "EL_EDGE2",   "EL_EDGE3",  "EL_FACE_MIX",
        "EL_TRIA3",   "EL_QUAD4",   "EL_TRIA6",    "EL_QUAD8",   "EL_QUAD9",  "EL_SOLID_MIX",
        "EL_TETRA4",  "EL_TETRA10", "EL_PYRAM5",   "EL_PYRAM14", "EL_PENTA6", "EL_PENTA18",
        "EL_HEXA8",   "EL_HEXA20",  "EL_HEXA27"};
    unsigned k = unsigned(t);
    return k < mu::nbr_element_types ? names[k] : "invalid";
}

// ------------------------------------------------------------------------------------ formats

namespace
{

struct format_entry
{
    format fmt;
    const char* name;
    const char* aliases;    ///< space-separated, each preceded by a space
    const char* extensions; ///< space-separated, each preceded by a space
    bool readable;
    bool writable;
};

const format_entry formats[] = {
    {format::medit, "medit", " medit mesh ", " .mesh ", true, true},
    {format::vtk, "vtk", " vtk ", " .vtk ", false, true},
    {format::stl, "stl", " stl ", " .stl ", true, true},
    {format::nastran, "nastran", " nastran nas bdf ", " .nas .bdf ", true, true},
    {format::ensight, "ensight", " ensight geo ", " .geo ", false, true},
    {format::obj, "obj", " obj wavefront ", " .obj ", true, true},
    {format::femap, "femap", " femap neu ", " .neu ", true, true},
};

const format_entry* entry(format f)
{
    for (const format_entry& e : formats)
        if (e.fmt == f) return &e;
    return nullptr;
}

std::string lower(std::string s)
{
    for (char& c : s)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

} // namespace

format format_from_name(const std::string& name)
{
    std::string key = " " + lower(name) + " ";
    for (const format_entry& e : formats)
        if (std::strstr(e.aliases, key.c_str())) return e.fmt;
    return format::none;
}

format format_from_path(const std::string& path)
{
    std::size_t dot = path.find_last_of('.');
    std::size_t slash = path.find_last_of('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
        return format::none;
    std::string key = " " + lower(path.substr(dot)) + " ";
    for (const format_entry& e : formats)
        if (std::strstr(e.extensions, key.c_str())) return e.fmt;
    return format::none;
}

const char* format_name(format f)
{
    const format_entry* e = entry(f);
    return e ? e->name : "none";
}

bool format_readable(format f)
{
    const format_entry* e = entry(f);
    return e && e->readable;
}

bool format_writable(format f)
{
    const format_entry* e = entry(f);
    return e && e->writable;
}

std::string format_table()
{
    std::string out;
    char buf[160];
    for (const format_entry& e : formats)
    {
        std::snprintf(buf, sizeof buf, "  %-8s %-11s %s\n", e.name, e.extensions + 1,
                      e.readable && e.writable ? "read, write"
                      : e.readable             ? "read"
                      : e.writable             ? "write"
                                               : "(not in this build)");
        out += buf;
    }
    return out;
}

format resolve_format(const std::string& path, const std::string& override_name, bool for_writing)
{
    format f;
    if (!override_name.empty())
    {
        f = format_from_name(override_name);
        if (f == format::none)
        {
            fail("unknown format '" + override_name + "'; known formats:\n" + format_table());
            return format::none;
        }
    }
    else
    {
        f = format_from_path(path);
        if (f == format::none)
        {
            fail("cannot tell the format of '" + path +
                 "' from its extension; name it with --format (input) or --to (output). "
                 "Known formats:\n" +
                 format_table());
            return format::none;
        }
    }
    if (for_writing ? !format_writable(f) : !format_readable(f))
    {
        fail(std::string("the ") + format_name(f) + " format cannot be " +
             (for_writing ? "written" : "read") + " by this build ('" + path + "')");
        return format::none;
    }
    return f;
}

// ------------------------------------------------------------------------------------ reading

namespace
{

/// Size of a file in bytes, or -1 with errno set when it cannot be opened for reading.
long file_size(const std::string& path)
{
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return -1;
    long size = -1;
    if (std::fseek(f, 0, SEEK_END) == 0) size = std::ftell(f);
    std::fclose(f);
    return size < 0 ? 0 : size;
}

/// Splits a grouped connectivity (group k: columns first[k] to first[k+1] - 1, type types[k])
/// into blocks with the row count of their type; false when memory runs out.
[[maybe_unused]] bool split_groups(const dense2D<unsigned>& all, const dense1D<unsigned>& first,
                                   const dense1D<int>& types, mesh& m)
{
    for (std::size_t k = 0; k + 1 < first.size() && k < types.size(); ++k)
    {
        const std::size_t cols = first[k + 1] - first[k];
        if (cols == 0) continue;
        block b;
        b.type = mu::element_type(types[k]);
        const std::size_t rows = std::min<std::size_t>(all.rows(), mu::nbr_nodes(b.type));
        if (!b.connectM.copy(all.sub_matrix(0, first[k], rows, cols))) return false;
        m.blocks.push_back(b);
    }
    return true;
}

} // namespace

bool read_mesh(const context& ctx, const std::string& path, format f, mesh& m)
{
    m = mesh{};
    errno = 0;
    long size = file_size(path);
    if (size < 0)
    {
        fail("cannot open '" + path + "': " + std::strerror(errno));
        return false;
    }
    progress step(ctx, "reading " + path, std::size_t(size) / 8);
    const std::string what = "cannot read '" + path + "'";
    int code = 0;
    const char* function = "";
    switch (f)
    {
    case format::stl:
    {
        m.blocks.assign(1, block{});
        m.blocks[0].type = mu::EL_TRIA3;
        function = "STL_input";
        code = mu::STL_input(path.c_str(), m.pos, m.blocks[0].connectM);
        break;
    }
    case format::medit:
    {
        dense1D<int> vertex_refs;
        dense2D<unsigned> connectM[mu::nbr_element_types];
        dense1D<int> refs[mu::nbr_element_types];
        function = "medit_input";
        code = mu::medit_input(path.c_str(), m.pos, vertex_refs, connectM, refs);
        for (unsigned t = 0; code == 0 && t < mu::nbr_element_types; ++t)
            if (!connectM[t].empty()) m.blocks.push_back(block{connectM[t], mu::element_type(t)});
        break;
    }
    case format::nastran:
    {
        dense2D<unsigned> all;
        dense1D<unsigned> first, pids, node_ids, element_ids;
        dense1D<int> types;
        function = "NASTRAN_input";
        code =
            mu::NASTRAN_input(path.c_str(), m.pos, all, first, types, pids, node_ids, element_ids);
        if (code == 0 && !split_groups(all, first, types, m)) code = -199;
        break;
    }
    case format::femap:
    {
        dense2D<unsigned> all;
        dense1D<unsigned> first, pids, node_ids, element_ids;
        dense1D<int> types;
        function = "FEMAP_input";
        code = mu::FEMAP_input(path.c_str(), m.pos, all, first, types, pids, node_ids, element_ids);
        if (code == 0 && !split_groups(all, first, types, m)) code = -199;
        break;
    }
    case format::obj:
    {
        block faces, edges;
        function = "WavefrontOBJ_input";
        code =
            mu::WavefrontOBJ_input(path.c_str(), m.pos, faces.connectM, faces.type, edges.connectM);
        edges.type = mu::EL_EDGE2;
        if (!faces.connectM.empty()) m.blocks.push_back(faces);
        if (!edges.connectM.empty()) m.blocks.push_back(edges);
        break;
    }
    default:
        fail(std::string("the ") + format_name(f) + " format cannot be read by this build");
        return false;
    }
    if (code < 0)
    {
        fail_call(what, function, code);
        m = mesh{};
        return false;
    }
    // Lenient formats (OBJ skips every statement it does not know) read any text as an empty
    // mesh: a file without a node is taken for a wrong or corrupt one.
    if (m.pos.cols() == 0)
    {
        fail(what + ": no node in it; is it really a " + format_name(f) + " file?");
        m = mesh{};
        return false;
    }
    return true;
}

// ------------------------------------------------------------------------------------ writing

namespace
{

/// Every block as a group of columns of one matrix, padded with ~0u to the largest row count;
/// each block's elements carry its number (from 1) as property identifier. False when memory
/// runs out.
[[maybe_unused]] bool join_groups(const mesh& m, dense2D<unsigned>& all, dense1D<unsigned>& first,
                                  dense1D<int>& types, dense1D<unsigned>& pids)
{
    std::size_t rows = 0, cols = 0;
    for (const block& b : m.blocks)
        if (!b.connectM.empty())
        {
            rows = std::max(rows, b.connectM.rows());
            cols += b.connectM.cols();
        }
    first.clear();
    types.clear();
    pids.clear();
    if (!all.resize(rows, cols, qx7::undefined_index) || !pids.reserve(cols) ||
        !first.push_back(0u))
        return false;
    std::size_t j = 0;
    for (std::size_t k = 0; k < m.blocks.size(); ++k)
    {
        const dense2D<unsigned>& c = m.blocks[k].connectM;
        if (c.empty()) continue;
        for (std::size_t e = 0; e < c.cols(); ++e, ++j)
        {
            std::copy(c.col(e), c.col(e) + c.rows(), all.col(j));
            if (!pids.push_back(unsigned(k + 1))) return false;
        }
        if (!first.push_back(unsigned(j)) || !types.push_back(m.blocks[k].type)) return false;
    }
    return true;
}

/// The triangles of the surface blocks: triangles as they are, quadrangles split along the
/// diagonal from their first node, mixed faces by shape; quadratic faces by their corners.
bool surface_triangles(const mesh& m, dense2D<unsigned>& tria)
{
    std::size_t n = 0;
    for (const block& b : m.blocks)
    {
        if (b.connectM.empty() || mu::element_dim(b.type) != 2) continue;
        mu::element_type t = linear_type(mu::normalize_type(b.type, b.connectM.rows()));
        n += b.connectM.cols() * (t == mu::EL_TRIA3 ? 1 : 2);
    }
    if (!tria.resize(3, n)) return false;
    std::size_t j = 0;
    for (const block& b : m.blocks)
    {
        if (b.connectM.empty() || mu::element_dim(b.type) != 2) continue;
        mu::element_type t = linear_type(mu::normalize_type(b.type, b.connectM.rows()));
        for (std::size_t e = 0; e < b.connectM.cols(); ++e)
        {
            const unsigned* p = b.connectM.col(e);
            mu::element_type shape = t == mu::EL_FACE_MIX ? mu::column_shape(t, p) : t;
            unsigned* q = tria.col(j++);
            q[0] = p[0], q[1] = p[1], q[2] = p[2];
            if (shape == mu::EL_QUAD4)
            {
                q = tria.col(j++);
                q[0] = p[0], q[1] = p[2], q[2] = p[3];
            }
        }
    }
    return tria.resize(3, j);
}

} // namespace

bool write_mesh(const context& ctx, const std::string& path, format f, const mesh& m, bool binary)
{
    (void)binary;
    progress step(ctx, "writing " + path, m.pos.cols() * 3 + m.nbr_elements() * 4);
    const std::string what = "cannot write '" + path + "'";
    block_range range(m);
    int code = 0;
    const char* function = "";
    switch (f)
    {
    case format::medit:
        function = "medit_output";
        code = mu::medit_output(path.c_str(), m.pos, range.first(), range.last(), range.types);
        break;
    case format::vtk:
        function = "vtk_output";
        code = mu::vtk_output(path.c_str(), m.pos, range.first(), range.last(), range.types);
        break;
    case format::ensight:
        function = "ensight_output";
        code = mu::ensight_output(path.c_str(), m.pos, range.first(), range.last(), range.types);
        break;
    case format::nastran:
    {
        dense2D<unsigned> all;
        dense1D<unsigned> first, pids;
        dense1D<int> types;
        if (!join_groups(m, all, first, types, pids)) return fail(what + ": out of memory"), false;
        function = "NASTRAN_output";
        code = mu::NASTRAN_output(path.c_str(), m.pos, all, first, types, pids);
        break;
    }
    case format::femap:
    {
        dense2D<unsigned> all;
        dense1D<unsigned> first, pids;
        dense1D<int> types;
        if (!join_groups(m, all, first, types, pids)) return fail(what + ": out of memory"), false;
        function = "FEMAP_output";
        code = mu::FEMAP_output(path.c_str(), m.pos, all, first, types, pids);
        break;
    }
    case format::obj:
        if (m.top_dim() == 3)
        {
            fail(what + ": OBJ holds faces and lines and this mesh has solids (extract its "
                        "boundary first with 'meshutil boundary')");
            return false;
        }
        function = "WavefrontOBJ_output";
        code =
            mu::WavefrontOBJ_output(path.c_str(), m.pos, range.first(), range.last(), range.types);
        break;
    case format::stl:
    {
        dense2D<unsigned> tria;
        if (!surface_triangles(m, tria)) return fail_call(what, "STL_output", -199), false;
        if (tria.empty())
        {
            fail(what + ": STL holds triangles and this mesh has no surface element (extract "
                        "its boundary first with 'meshutil boundary')");
            return false;
        }
        function = "STL_output";
        code = mu::STL_output(path.c_str(), m.pos, tria, !binary);
        break;
    }
    default:
        fail(std::string("the ") + format_name(f) + " format cannot be written by this build");
        return false;
    }
    if (code < 0)
    {
        fail_call(what, function, code);
        return false;
    }
    return true;
}

} // namespace cli
