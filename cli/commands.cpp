// The subcommands: info, convert, quality, boundary, sizes, demo, generate.
#include "cli.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>

namespace cli
{

// ------------------------------------------------------------------------------------ context

bool context::flag(const char* name) const
{
    return std::find(flags.begin(), flags.end(), name) != flags.end();
}

bool context::has(const char* name) const
{
    for (const auto& kv : values)
        if (kv.first == name) return true;
    return false;
}

std::string context::value(const char* name, const std::string& def) const
{
    std::string v = def;
    for (const auto& kv : values)
        if (kv.first == name) v = kv.second; // the last one given wins
    return v;
}

namespace
{

/// Parses a finite number; false when the text is not one.
bool parse_number(const std::string& text, double& out)
{
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    double v = std::strtod(text.c_str(), &end);
    if (*end != '\0' || errno == ERANGE || !std::isfinite(v)) return false;
    out = v;
    return true;
}

/// Parses a count in [lo, hi].
bool parse_count(const std::string& text, unsigned lo, unsigned hi, unsigned& out)
{
    double v;
    if (!parse_number(text, v) || v != std::floor(v) || v < lo || v > hi) return false;
    out = unsigned(v);
    return true;
}

std::string plural(std::size_t n, const char* one, const char* many)
{
    return std::to_string(n) + " " + (n == 1 ? one : many);
}

/// The blocks with their quadratic columns cut to their corner nodes, so every block has a type
/// whose shape quality is defined; false when memory runs out.
[[maybe_unused]] bool linear_blocks(const mesh& m, mesh& out)
{
    out.pos = m.pos;
    out.blocks.clear();
    for (const block& b : m.blocks)
    {
        mesh one;
        one.pos = m.pos;
        one.blocks.push_back(b);
        block p;
        if (!principal_elements(one, p)) return false;
        if (b.connectM.empty()) p = b; // keep empty blocks: element numbering stays the same
        out.blocks.push_back(p);
    }
    return true;
}

/// Linear types that have a shape quality and a neighbour relation (after normalisation).
bool has_shape(mu::element_type t)
{
    switch (t)
    {
    case mu::EL_EDGE2:
    case mu::EL_FACE_MIX:
    case mu::EL_TRIA3:
    case mu::EL_QUAD4:
    case mu::EL_SOLID_MIX:
    case mu::EL_TETRA4:
    case mu::EL_PYRAM5:
    case mu::EL_PENTA6:
    case mu::EL_HEXA8:
        return true;
    default:
        return false;
    }
}

// ------------------------------------------------------------------------------------ statistics

struct mesh_report
{
    std::size_t nodes = 0, dim = 0;
    std::vector<std::pair<mu::element_type, std::size_t>> counts;
    bool has_box = false;
    double box_min[3] = {0, 0, 0}, box_max[3] = {0, 0, 0};
    bool has_connectivity = false;
    std::size_t free_boundaries = 0, nonmanifold = 0, subdomains = 0;
    bool has_subdomains = false;
    const char* boundary_words = "boundaries";
    bool has_editing = false;
    std::size_t unused = 0, degenerated = 0;
    bool has_quality = false;
    unsigned quality_dim = 0;
    qx7::misc::histogram quality;
    bool has_edges = false;
    std::size_t nbr_edges = 0;
    double edge_min = 0, edge_mean = 0, edge_max = 0;
    qx7::misc::histogram edges;
};

void count_types(const mesh& m, mesh_report& r)
{
    for (const block& b : m.blocks)
    {
        if (b.connectM.empty()) continue;
        mu::element_type t = mu::normalize_type(b.type, b.connectM.rows());
        if (t == mu::EL_FACE_MIX || t == mu::EL_SOLID_MIX || t == mu::EL_EDGE_MIX)
        {
            // Mixed columns are counted by their own shape.
            for (std::size_t e = 0; e < b.connectM.cols(); ++e)
            {
                mu::element_type s = mu::column_shape(t, b.connectM.col(e));
                auto it = std::find_if(r.counts.begin(), r.counts.end(),
                                       [s](const auto& c) { return c.first == s; });
                if (it == r.counts.end())
                    r.counts.emplace_back(s, 1);
                else
                    ++it->second;
            }
            continue;
        }
        auto it = std::find_if(r.counts.begin(), r.counts.end(),
                               [t](const auto& c) { return c.first == t; });
        if (it == r.counts.end())
            r.counts.emplace_back(t, b.connectM.cols());
        else
            it->second += b.connectM.cols();
    }
    std::sort(r.counts.begin(), r.counts.end());
}

void bounding_box(const mesh& m, mesh_report& r)
{
    const std::size_t rows = m.pos.rows();
    if (m.pos.cols() == 0 || (rows != 2 && rows != 3)) return;
    const double inf = std::numeric_limits<double>::infinity();
    if (rows == 2)
    {
        qx7::vector_fixed<double, 2> lo(inf, inf), hi(-inf, -inf);
        if (mu::inc_bounding_box(m.pos, lo, hi) != 0) return;
        for (int i = 0; i < 2; ++i)
            r.box_min[i] = lo[i], r.box_max[i] = hi[i];
    }
    else
    {
        qx7::vector_fixed<double, 3> lo(inf, inf, inf), hi(-inf, -inf, -inf);
        if (mu::inc_bounding_box(m.pos, lo, hi) != 0) return;
        for (int i = 0; i < 3; ++i)
            r.box_min[i] = lo[i], r.box_max[i] = hi[i];
    }
    r.has_box = true;
}

/// Free and non-manifold boundaries and subdomains of the principal elements. A boundary is free
/// when one element only has it, non-manifold when three or more share it: the neighbour matrix
/// that links non-manifold boundaries differs there from the one that leaves them open.
int connectivity_report(const mesh& m, mesh_report& r)
{
    block p;
    if (!principal_elements(m, p))
        return fail(std::string("cannot analyse the mesh") + ": out of memory");
    if (p.connectM.empty() || !has_shape(p.type)) return exit_ok;
    const unsigned dim = mu::element_dim(p.type);
    r.boundary_words = dim == 3 ? "faces" : dim == 2 ? "edges" : "end points";
    dense2D<unsigned> open, linked;
    int code = mu::get_neighbors(p.connectM, p.type, false, open);
    if (code < 0) return fail_call("cannot find neighbours", "get_neighbors", code);
    code = mu::get_neighbors(p.connectM, p.type, true, linked);
    if (code < 0) return fail_call("cannot find neighbours", "get_neighbors", code);
    // Non-manifold boundaries: distinct node sets of the slots open in one matrix only.
    std::vector<std::array<unsigned, 4>> shared;
    for (std::size_t e = 0; e < p.connectM.cols(); ++e)
    {
        const unsigned* c = p.connectM.col(e);
        mu::element_type shape = mu::column_shape(p.type, c);
        const mu::local_boundaries* lb = mu::boundaries_of(shape);
        if (!lb) continue;
        for (unsigned k = 0; k < lb->count; ++k)
        {
            if (linked(k, e) == qx7::undefined_index)
                ++r.free_boundaries;
            else if (open(k, e) == qx7::undefined_index)
            {
                std::array<unsigned, 4> key;
                key.fill(qx7::undefined_index);
                for (unsigned i = 0; i < lb->size[k]; ++i)
                    key[i] = c[lb->nodes[k][i]];
                std::sort(key.begin(), key.end());
                shared.push_back(key);
            }
        }
    }
    std::sort(shared.begin(), shared.end());
    r.nonmanifold = std::size_t(std::unique(shared.begin(), shared.end()) - shared.begin());
    dense1D<unsigned> order, first;
    code = mu::get_subdomains(linked, order, first);
    if (code < 0) return fail_call("cannot find subdomains", "get_subdomains", code);
    r.subdomains = first.size() ? first.size() - 1 : 0;
    r.has_subdomains = true;
    r.has_connectivity = true;
    return exit_ok;
}

int editing_report(const mesh& m, mesh_report& r)
{
    block_range range(m);
    int used = mu::count_unique_indices(range.first(), range.last());
    if (used < 0) return fail_call("cannot count nodes", "count_unique_indices", used);
    r.unused = m.pos.cols() > std::size_t(used) ? m.pos.cols() - std::size_t(used) : 0;
    for (const block& b : m.blocks)
    {
        if (b.connectM.empty()) continue;
        dense2D<unsigned> c;
        if (!c.copy(b.connectM))
            return fail(std::string("cannot count degenerated") + ": out of memory");
        int removed = mu::remove_degenerated(c, false);
        if (removed < 0)
            return fail_call("cannot count degenerated", "remove_degenerated", removed);
        r.degenerated += std::size_t(removed);
    }
    r.has_editing = true;
    return exit_ok;
}

/// Shape qualities of every element, in element order (blocks in order).
int qualities(const mesh& m, dense1D<double>& q)
{
    mesh lin;
    if (!linear_blocks(m, lin))
        return fail(std::string("cannot measure qualities") + ": out of memory");
    // Block by block, so that elements without a shape (nodes) keep their place with NaN.
    q.clear();
    if (!q.reserve(m.nbr_elements())) return fail("cannot measure qualities: out of memory");
    dense1D<double> one;
    for (const block& b : lin.blocks)
    {
        if (b.connectM.empty()) continue;
        if (!has_shape(b.type))
        {
            if (!q.push_back_n(std::numeric_limits<double>::quiet_NaN(), b.connectM.cols()))
                return fail("cannot measure qualities: out of memory");
            continue;
        }
        int code = mu::shape_qualities(lin.pos, b.connectM, b.type, one);
        if (code < 0) return fail_call("cannot measure qualities", "shape_qualities", code);
        for (std::size_t e = 0; e < one.size(); ++e)
            if (!q.push_back(one[e])) return fail("cannot measure qualities: out of memory");
    }
    return exit_ok;
}

int quality_report(const mesh& m, mesh_report& r)
{
    dense1D<double> q;
    if (int code = qualities(m, q)) return code;
    // The histogram is that of the elements of the highest dimension (the tetrahedra of a
    // volume mesh, not its boundary triangles).
    const unsigned dim = m.top_dim();
    std::size_t offset = 0;
    for (const block& b : m.blocks)
    {
        const std::size_t n = b.connectM.empty() ? 0 : b.connectM.cols();
        if (mu::element_dim(b.type) == dim)
            for (std::size_t k = 0; k < n; ++k)
                r.quality.process(q[offset + k]);
        offset += n;
    }
    r.quality_dim = dim;
    r.has_quality = true;

    block_range range(m);
    dense2D<unsigned> edges;
    int code = mu::copy_edges(range.first(), range.last(), range.types, edges);
    if (code < 0) return fail_call("cannot list edges", "copy_edges", code);
    const std::size_t ne = edges.empty() ? 0 : edges.cols();
    dense1D<double> len;
    if (!len.resize(ne)) return fail(std::string("cannot list edges") + ": out of memory");
    double lo = DBL_MAX, hi = 0, sum = 0;
    for (std::size_t e = 0; e < ne; ++e)
    {
        const double* a = m.pos.col(edges(0, e));
        const double* b = m.pos.col(edges(1, e));
        double s = 0;
        for (std::size_t i = 0; i < m.pos.rows(); ++i)
            s += (b[i] - a[i]) * (b[i] - a[i]);
        len[e] = std::sqrt(s);
        lo = std::min(lo, len[e]);
        hi = std::max(hi, len[e]);
        sum += len[e];
    }
    r.nbr_edges = ne;
    if (ne)
    {
        r.edge_min = lo, r.edge_max = hi, r.edge_mean = sum / double(ne);
        r.edges = qx7::misc::histogram(lo, hi > lo ? hi : lo + 1, 10);
        r.edges.process(len);
    }
    r.has_edges = true;
    return exit_ok;
}

void print_report_text(const std::string& path, format f, const mesh_report& r)
{
    std::printf("file                  %s (%s)\n", path.c_str(), format_name(f));
    std::printf("nodes                 %zu, %zu-D coordinates\n", r.nodes, r.dim);
    std::size_t total = 0;
    for (const auto& c : r.counts)
        total += c.second;
    std::printf("elements              %zu\n", total);
    for (const auto& c : r.counts)
        std::printf("  %-19s %zu (%s)\n", type_words(c.first), c.second, type_name(c.first));
    if (r.has_box)
    {
        std::printf("bounding box          ");
        for (std::size_t i = 0; i < r.dim; ++i)
            std::printf("%s[%s, %s]", i ? " x " : "", fmt(r.box_min[i]).c_str(),
                        fmt(r.box_max[i]).c_str());
        std::printf("\n");
    }
    if (r.has_connectivity)
    {
        std::printf("free boundaries       %zu %s\n", r.free_boundaries, r.boundary_words);
        std::printf("non-manifold          %zu %s\n", r.nonmanifold, r.boundary_words);
    }
    if (r.has_subdomains) std::printf("subdomains            %zu\n", r.subdomains);
    if (r.has_editing)
    {
        std::printf("unused nodes          %zu\n", r.unused);
        std::printf("degenerated elements  %zu\n", r.degenerated);
    }
    if (r.has_quality && r.quality.count())
    {
        std::printf("shape quality         %s-D elements: min %s  mean %s  max %s",
                    std::to_string(r.quality_dim).c_str(), fmt(r.quality.min()).c_str(),
                    fmt(r.quality.mean()).c_str(), fmt(r.quality.max()).c_str());
        if (r.quality.underflow())
            std::printf("  (%llu inverted)",
                        static_cast<unsigned long long>(r.quality.underflow()));
        std::printf("\n%s", histogram_text(r.quality, "  ").c_str());
    }
    if (r.has_edges && r.nbr_edges)
        std::printf("edge lengths          %zu edges: min %s  mean %s  max %s\n", r.nbr_edges,
                    fmt(r.edge_min).c_str(), fmt(r.edge_mean).c_str(), fmt(r.edge_max).c_str());
}

void histogram_json(json_writer& j, const qx7::misc::histogram& h)
{
    j.begin_array("bins");
    for (unsigned k = 0; k < h.nbr_bins(); ++k)
        j.begin_object()
            .value("lower", h.bin_lower(k))
            .value("upper", h.bin_upper(k))
            .value("count", std::uint64_t(h.bin(k)))
            .end_object();
    j.end_array();
}

void print_report_json(const std::string& path, format f, const mesh_report& r)
{
    json_writer j;
    j.begin_object().value("file", path).value("format", std::string(format_name(f)));
    j.value("nodes", std::uint64_t(r.nodes)).value("dimension", std::uint64_t(r.dim));
    j.begin_object("elements");
    for (const auto& c : r.counts)
        j.value(type_name(c.first), std::uint64_t(c.second));
    j.end_object();
    if (r.has_box)
    {
        j.begin_object("bounding_box").begin_array("min");
        for (std::size_t i = 0; i < r.dim; ++i)
            j.value(nullptr, r.box_min[i]);
        j.end_array().begin_array("max");
        for (std::size_t i = 0; i < r.dim; ++i)
            j.value(nullptr, r.box_max[i]);
        j.end_array().end_object();
    }
    if (r.has_connectivity)
        j.value("free_boundaries", std::uint64_t(r.free_boundaries))
            .value("nonmanifold_boundaries", std::uint64_t(r.nonmanifold));
    if (r.has_subdomains) j.value("subdomains", std::uint64_t(r.subdomains));
    if (r.has_editing)
        j.value("unused_nodes", std::uint64_t(r.unused))
            .value("degenerated_elements", std::uint64_t(r.degenerated));
    if (r.has_quality)
    {
        j.begin_object("shape_quality")
            .value("dimension", std::uint64_t(r.quality_dim))
            .value("count", std::uint64_t(r.quality.count()))
            .value("min", r.quality.min())
            .value("mean", r.quality.mean())
            .value("max", r.quality.max())
            .value("inverted", std::uint64_t(r.quality.underflow()));
        histogram_json(j, r.quality);
        j.end_object();
    }
    if (r.has_edges)
        j.begin_object("edge_length")
            .value("count", std::uint64_t(r.nbr_edges))
            .value("min", r.edge_min)
            .value("mean", r.edge_mean)
            .value("max", r.edge_max)
            .end_object();
    j.end_object();
    std::printf("%s\n", j.str().c_str());
}

/// Reads the command's input (first positional argument) with its format override.
bool read_input(const context& ctx, mesh& m, format& f)
{
    const std::string& path = ctx.args[0];
    f = resolve_format(path, ctx.value("--format"), false);
    return f != format::none && read_mesh(ctx, path, f, m);
}

/// Output format of a path with the --to override.
format output_format(const context& ctx, const std::string& path)
{
    return resolve_format(path, ctx.value("--to"), true);
}

} // namespace

// ------------------------------------------------------------------------------------ info

int cmd_info(const context& ctx)
{
    mesh m;
    format f;
    if (!read_input(ctx, m, f)) return exit_failure;
    mesh_report r;
    r.nodes = m.pos.cols();
    r.dim = m.pos.rows();
    count_types(m, r);
    bounding_box(m, r);
    {
        progress step(ctx, "neighbours and subdomains", m.nbr_elements() * 8);
        if (int code = connectivity_report(m, r)) return code;
    }
    if (int code = editing_report(m, r)) return code;
    {
        progress step(ctx, "qualities and edges", m.nbr_elements() * 8);
        if (int code = quality_report(m, r)) return code;
    }
    if (ctx.json)
        print_report_json(ctx.args[0], f, r);
    else
        print_report_text(ctx.args[0], f, r);
    return exit_ok;
}

// ------------------------------------------------------------------------------------ convert

int cmd_convert(const context& ctx)
{
    const std::string& out = ctx.args[1];
    double tol = -1;
    if (ctx.has("--merge") && (!parse_number(ctx.value("--merge"), tol) || tol < 0))
        return fail_usage(ctx.command, "--merge needs a tolerance >= 0");
    format fo = output_format(ctx, out);
    if (fo == format::none) return exit_failure;
    mesh m;
    format fi;
    if (!read_input(ctx, m, fi)) return exit_failure;
    if (tol >= 0)
    {
        progress step(ctx, "merging nodes", m.pos.cols() * 8);
        block_range range(m);
        dense1D<unsigned> map;
        int merged =
            mu::merge(m.pos, range.mats.data(), range.mats.data() + range.mats.size(), map, tol, 0);
        if (merged < 0) return fail_call("cannot merge nodes", "merge", merged);
        std::size_t removed = 0;
        for (dense2D<unsigned>& c : range.mats)
        {
            int n = c.empty() ? 0 : mu::remove_degenerated(c, false);
            if (n < 0) return fail_call("cannot remove elements", "remove_degenerated", n);
            removed += std::size_t(n);
        }
        int dropped =
            mu::simplify(m.pos, range.mats.data(), range.mats.data() + range.mats.size(), map, 0);
        if (dropped < 0) return fail_call("cannot drop nodes", "simplify", dropped);
        for (std::size_t k = 0; k < m.blocks.size(); ++k)
            m.blocks[k].connectM = range.mats[k];
        if (!ctx.quiet)
            std::printf("merged %s, removed %s, dropped %s\n",
                        plural(std::size_t(merged), "node", "nodes").c_str(),
                        plural(removed, "collapsed element", "collapsed elements").c_str(),
                        plural(std::size_t(dropped), "unused node", "unused nodes").c_str());
    }
    if (!write_mesh(ctx, out, fo, m, ctx.flag("--binary"))) return exit_failure;
    if (!ctx.quiet)
        std::printf("wrote %s (%s): %s, %s\n", out.c_str(), format_name(fo),
                    plural(m.pos.cols(), "node", "nodes").c_str(),
                    plural(m.nbr_elements(), "element", "elements").c_str());
    return exit_ok;
}

// ------------------------------------------------------------------------------------ quality

int cmd_quality(const context& ctx)
{
    unsigned worst = 10;
    if (ctx.has("--worst") && !parse_count(ctx.value("--worst"), 0, ~0u, worst))
        return fail_usage(ctx.command, "--worst needs a count");
    const std::string sol = ctx.value("--sol");
    mesh m;
    format f;
    if (!read_input(ctx, m, f)) return exit_failure;
    dense1D<double> q;
    {
        progress step(ctx, "qualities", m.nbr_elements() * 8);
        if (int code = qualities(m, q)) return code;
    }
    qx7::misc::histogram h;
    h.process(q);

    // Element e of the file: block and column.
    std::vector<std::pair<std::size_t, std::size_t>> where;
    where.reserve(q.size());
    for (std::size_t k = 0; k < m.blocks.size(); ++k)
        for (std::size_t e = 0; !m.blocks[k].connectM.empty() && e < m.blocks[k].connectM.cols();
             ++e)
            where.emplace_back(k, e);
    // Every element with --all; else the worst first, ties in element order, elements without
    // a shape quality (nodes) left out.
    std::vector<std::size_t> listed;
    listed.reserve(q.size());
    const bool all = ctx.flag("--all");
    for (std::size_t e = 0; e < q.size(); ++e)
        if (all || !std::isnan(q[e])) listed.push_back(e);
    if (!all)
    {
        std::size_t n = std::min<std::size_t>(worst, listed.size());
        std::partial_sort(listed.begin(), listed.begin() + n, listed.end(),
                          [&](std::size_t a, std::size_t b)
                          { return q[a] < q[b] || (q[a] == q[b] && a < b); });
        listed.resize(n);
    }

    if (!sol.empty())
    {
        // At every node the worst quality of the elements around it; 1 where there is none.
        dense1D<double> nodal(m.pos.cols(), 1.0);
        for (std::size_t e = 0; e < q.size(); ++e)
        {
            const dense2D<unsigned>& c = m.blocks[where[e].first].connectM;
            const unsigned* p = c.col(where[e].second);
            for (std::size_t i = 0; i < c.rows(); ++i)
                if (p[i] < nodal.size()) nodal[p[i]] = std::min(nodal[p[i]], q[e]);
        }
        int code = mu::medit_scalar(sol.c_str(), unsigned(m.pos.rows()), nodal);
        if (code < 0) return fail_call("cannot write '" + sol + "'", "medit_scalar", code);
    }

    auto element_json = [&](json_writer& j, std::size_t e)
    {
        const block& b = m.blocks[where[e].first];
        const unsigned* p = b.connectM.col(where[e].second);
        j.begin_object()
            .value("element", std::uint64_t(e + 1))
            .value("type", std::string(type_name(
                               mu::column_shape(mu::normalize_type(b.type, b.connectM.rows()), p))))
            .value("quality", q[e]);
        j.begin_array("nodes");
        for (std::size_t i = 0; i < b.connectM.rows(); ++i)
            if (p[i] != qx7::undefined_index) j.value(nullptr, std::uint64_t(p[i]) + 1);
        j.end_array().end_object();
    };
    if (ctx.json)
    {
        json_writer j;
        j.begin_object().value("file", ctx.args[0]).value("elements", std::uint64_t(q.size()));
        j.value("min", h.min()).value("mean", h.mean()).value("max", h.max());
        j.value("inverted", std::uint64_t(h.underflow()));
        histogram_json(j, h);
        j.begin_array(ctx.flag("--all") ? "all" : "worst");
        for (std::size_t e : listed)
            element_json(j, e);
        j.end_array();
        if (!sol.empty()) j.value("sol", sol);
        j.end_object();
        std::printf("%s\n", j.str().c_str());
        return exit_ok;
    }
    std::printf("%s: %s\n", ctx.args[0].c_str(), plural(q.size(), "element", "elements").c_str());
    if (q.size())
    {
        std::printf("shape quality  min %s  mean %s  max %s", fmt(h.min()).c_str(),
                    fmt(h.mean()).c_str(), fmt(h.max()).c_str());
        if (h.underflow())
            std::printf("  (%llu inverted)", static_cast<unsigned long long>(h.underflow()));
        std::printf("\n%s", histogram_text(h, "  ").c_str());
    }
    if (!listed.empty())
    {
        std::printf("%s\n", ctx.flag("--all") ? "every element:" : "worst elements:");
        std::printf("  %10s  %-12s  %-14s  %s\n", "element", "type", "quality", "nodes");
        for (std::size_t e : listed)
        {
            const block& b = m.blocks[where[e].first];
            const unsigned* p = b.connectM.col(where[e].second);
            mu::element_type t = mu::column_shape(mu::normalize_type(b.type, b.connectM.rows()), p);
            std::printf("  %10zu  %-12s  %-14.8g ", e + 1, type_name(t), q[e]);
            for (std::size_t i = 0; i < b.connectM.rows(); ++i)
                if (p[i] != qx7::undefined_index) std::printf(" %u", p[i] + 1);
            std::printf("\n");
        }
    }
    if (!sol.empty()) std::printf("wrote %s (worst quality at every node)\n", sol.c_str());
    return exit_ok;
}

// ------------------------------------------------------------------------------------ boundary

namespace
{

/// The free boundary of the principal elements as a mesh over the same nodes (unused nodes
/// dropped when the library can); false after printing the error.
bool free_boundary(const mesh& m, mesh& out, std::size_t& count)
{
    block p;
    if (!principal_elements(m, p))
        return fail(std::string("cannot analyse the mesh") + ": out of memory"), false;
    out.pos = m.pos;
    out.blocks.assign(1, block{});
    count = 0;
    if (p.connectM.empty() || !has_shape(p.type)) return true;
    dense2D<unsigned> neighbors, bnd;
    int code = mu::get_neighbors(p.connectM, p.type, true, neighbors);
    if (code < 0) return fail_call("cannot find neighbours", "get_neighbors", code), false;
    if (mu::element_dim(p.type) == 1)
    {
        // The boundary of a line mesh: its free end points, as nodes.
        for (std::size_t e = 0; e < p.connectM.cols(); ++e)
            for (unsigned k = 0; k < 2; ++k)
                if (neighbors(k, e) == qx7::undefined_index &&
                    !mu::append_column(bnd, p.connectM.col(e) + k, 1))
                    return fail(std::string("cannot list the boundary") + ": out of memory"), false;
    }
    else
    {
        code = mu::get_mesh_boundaries(p.connectM, neighbors, p.type, bnd);
        if (code < 0)
            return fail_call("cannot list the boundary", "get_mesh_boundaries", code), false;
    }
    count = bnd.empty() ? 0 : bnd.cols();
    block& b = out.blocks[0];
    const unsigned R = mu::boundary_record_size(p.type);
    b.type = R == 1                   ? mu::EL_NODE
             : R == 2                 ? mu::EL_EDGE2
             : R == 3                 ? mu::EL_TRIA3
             : p.type == mu::EL_HEXA8 ? mu::EL_QUAD4
                                      : mu::EL_FACE_MIX;
    b.connectM = bnd;
    if (!out.pos.copy(m.pos))
        return fail(std::string("cannot copy the nodes") + ": out of memory"), false;
    int dropped = mu::simplify(out.pos, b.connectM, 0u);
    if (dropped < 0) return fail_call("cannot drop unused nodes", "simplify", dropped), false;
    return true;
}

} // namespace

int cmd_boundary(const context& ctx)
{
    const std::string& out = ctx.args[1];
    format fo = output_format(ctx, out);
    if (fo == format::none) return exit_failure;
    mesh m, bm;
    format fi;
    if (!read_input(ctx, m, fi)) return exit_failure;
    std::size_t count = 0;
    if (!free_boundary(m, bm, count)) return exit_failure;
    if (!write_mesh(ctx, out, fo, bm, ctx.flag("--binary"))) return exit_failure;
    if (!ctx.quiet)
    {
        if (count == 0)
            std::printf("%s has no free boundary (closed); wrote %s with no element\n",
                        ctx.args[0].c_str(), out.c_str());
        else
            std::printf("wrote %s (%s): %s, %s\n", out.c_str(), format_name(fo),
                        plural(count, "boundary element", "boundary elements").c_str(),
                        plural(bm.pos.cols(), "node", "nodes").c_str());
    }
    return exit_ok;
}

// ------------------------------------------------------------------------------------ sizes

namespace
{

struct size_options
{
    double p = 1.0;
    double g = 0.3;
    int direction = -1;
};

struct size_summary
{
    double min = 0, mean = 0, max = 0;
};

[[maybe_unused]] size_summary summarize(const dense1D<double>& h, const block& p)
{
    // Over the nodes that elements use.
    std::vector<char> used(h.size(), 0);
    for (std::size_t e = 0; e < p.connectM.cols(); ++e)
        for (std::size_t i = 0; i < p.connectM.rows(); ++i)
        {
            unsigned n = p.connectM(i, e);
            if (n < used.size()) used[n] = 1;
        }
    size_summary s{DBL_MAX, 0, 0};
    std::size_t n = 0;
    for (std::size_t i = 0; i < h.size(); ++i)
        if (used[i])
        {
            s.min = std::min(s.min, h[i]);
            s.max = std::max(s.max, h[i]);
            s.mean += h[i];
            ++n;
        }
    if (n)
        s.mean /= double(n);
    else
        s.min = 0;
    return s;
}

/// The pipeline: size field from edge lengths, gradation bounded, mesh and field written.
/// Prints each step; returns an exit code.
int run_sizes(const context& ctx, const mesh& m, const size_options& o, const std::string& out,
              format fo, const std::string& sol, const char* indent)
{
    block p;
    if (!principal_elements(m, p))
        return fail(std::string("cannot analyse the mesh") + ": out of memory");
    if (p.connectM.empty()) return fail("the mesh has no element to derive sizes from");
    dense1D<double> sizes(m.pos.cols(), 0.0);
    if (sizes.size() != m.pos.cols())
        return fail(std::string("cannot size the field") + ": out of memory");
    int code = mu::metrics_gen_iso(m.pos, p.connectM, p.type, sizes, o.p);
    if (code < 0) return fail_call("cannot derive sizes", "metrics_gen_iso", code);
    size_summary s0 = summarize(sizes, p);
    std::printf("%ssize field     p = %s: min %s  mean %s  max %s\n", indent,
                o.p == DBL_MAX ? "max" : fmt(o.p).c_str(), fmt(s0.min).c_str(),
                fmt(s0.mean).c_str(), fmt(s0.max).c_str());
    if (o.g != DBL_MAX)
    {
        progress step(ctx, "gradation", p.connectM.size() * 16);
        dense1D<unsigned> none;
        int modified = mu::bound_metric_gradations(m.pos, p.connectM, p.type, none, true,
                                                   o.direction, o.g, sizes);
        if (modified < 0)
            return fail_call("cannot bound the gradation", "bound_metric_gradations", modified);
        size_summary s1 = summarize(sizes, p);
        std::printf("%sgradation      g = %s (%s): %s changed; min %s  mean %s  max %s\n", indent,
                    fmt(o.g).c_str(),
                    o.direction < 0   ? "down"
                    : o.direction > 0 ? "up"
                                      : "free",
                    plural(std::size_t(modified), "node", "nodes").c_str(), fmt(s1.min).c_str(),
                    fmt(s1.mean).c_str(), fmt(s1.max).c_str());
    }
    if (!write_mesh(ctx, out, fo, m, false)) return exit_failure;
    code = mu::medit_scalar(sol.c_str(), unsigned(m.pos.rows()), sizes);
    if (code < 0) return fail_call("cannot write '" + sol + "'", "medit_scalar", code);
    std::printf("%swrote          %s (%s), %s (size at every node)\n", indent, out.c_str(),
                format_name(fo), sol.c_str());
    return exit_ok;
}

[[maybe_unused]] std::string replace_extension(const std::string& path, const char* ext)
{
    std::size_t dot = path.find_last_of('.');
    std::size_t slash = path.find_last_of('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return path + ext;
    return path.substr(0, dot) + ext;
}

} // namespace

int cmd_sizes(const context& ctx)
{
    size_options o;
    const std::string ptext = ctx.value("--p", "1");
    if (ptext == "min")
        o.p = 0;
    else if (ptext == "max")
        o.p = DBL_MAX;
    else if (!parse_number(ptext, o.p) || o.p < 0)
        return fail_usage(ctx.command, "--p needs 'min', 'max' or a number >= 0");
    const std::string gtext = ctx.value("--gradation", "0.3");
    if (gtext == "none")
        o.g = DBL_MAX;
    else if (!parse_number(gtext, o.g) || o.g < 0)
        return fail_usage(ctx.command, "--gradation needs 'none' or a number >= 0");
    const std::string dtext = ctx.value("--direction", "down");
    if (dtext == "down")
        o.direction = -1;
    else if (dtext == "up")
        o.direction = 1;
    else if (dtext == "free")
        o.direction = 0;
    else
        return fail_usage(ctx.command, "--direction is 'down', 'up' or 'free'");
    const std::string& out = ctx.args[1];
    format fo = output_format(ctx, out);
    if (fo == format::none) return exit_failure;
    const std::string sol = ctx.value("--sol", replace_extension(out, ".sol"));
    mesh m;
    format fi;
    if (!read_input(ctx, m, fi)) return exit_failure;
    std::printf("%s: %s, %s\n", ctx.args[0].c_str(), plural(m.pos.cols(), "node", "nodes").c_str(),
                plural(m.nbr_elements(), "element", "elements").c_str());
    return run_sizes(ctx, m, o, out, fo, sol, "");
}

// ------------------------------------------------------------------------------------ demo

namespace
{

bool is_dir(const std::string& path)
{
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool exists(const std::string& path)
{
    struct stat st;
    return ::stat(path.c_str(), &st) == 0;
}

} // namespace

int cmd_demo(const context& ctx)
{
    unsigned n = 10;
    if (ctx.has("--n") && !parse_count(ctx.value("--n"), 1, 200, n))
        return fail_usage(ctx.command, "--n needs a count from 1 to 200");
    std::string dir;
    if (!ctx.args.empty())
    {
        dir = ctx.args[0];
        if (!is_dir(dir) && ::mkdir(dir.c_str(), 0777) != 0)
            return fail("cannot create the folder '" + dir + "': " + std::strerror(errno));
    }
    else
    {
        // A new folder: meshutil-demo, then meshutil-demo-2, -3, ...
        for (unsigned k = 1; k < 1000 && dir.empty(); ++k)
        {
            std::string d = k == 1 ? "meshutil-demo" : "meshutil-demo-" + std::to_string(k);
            if (exists(d)) continue;
            if (::mkdir(d.c_str(), 0777) != 0)
                return fail("cannot create the folder '" + d + "': " + std::strerror(errno));
            dir = d;
        }
        if (dir.empty()) return fail("no free folder name meshutil-demo-N in this directory");
    }
    mesh m;
    if (!make_cube(n, m))
        return fail(std::string("cannot generate the demo mesh") + ": out of memory");
    std::printf("meshutil %s demo: the size-field pipeline on a generated mesh\n", mu::version());
    std::printf("  generated      tetrahedral cube, %u cells a side: %s, %s\n", n,
                plural(m.pos.cols(), "node", "nodes").c_str(),
                plural(m.nbr_elements(), "tetrahedron", "tetrahedra").c_str());
    {
        dense1D<double> q;
        if (int code = qualities(m, q)) return code;
        qx7::misc::histogram h;
        h.process(q);
        std::printf("  shape quality  min %s  mean %s  max %s\n", fmt(h.min()).c_str(),
                    fmt(h.mean()).c_str(), fmt(h.max()).c_str());
    }
    {
        mesh_report r;
        if (int code = connectivity_report(m, r)) return code;
        std::printf("  boundary       %zu free faces, %zu non-manifold", r.free_boundaries,
                    r.nonmanifold);
        if (r.has_subdomains)
            std::printf(", %s", plural(r.subdomains, "subdomain", "subdomains").c_str());
        std::printf("\n");
    }
    const std::string out = dir + "/cube.mesh";
    if (int code = run_sizes(ctx, m, size_options{}, out, format::medit, dir + "/cube.sol", "  "))
        return code;
    if (format_readable(format::medit)) std::printf("next: meshutil info %s\n", out.c_str());
    return exit_ok;
}

// ------------------------------------------------------------------------------------ generate

int cmd_generate(const context& ctx)
{
    const std::string& kind = ctx.args[0];
    const std::string& out = ctx.args[1];
    unsigned n = kind == "torus" ? 8 : 10;
    if (ctx.has("--n") && !parse_count(ctx.value("--n"), 1, 400, n))
        return fail_usage(ctx.command, "--n needs a count from 1 to 400");
    if (kind != "cube" && kind != "torus" && kind != "square")
        return fail_usage(ctx.command, "unknown kind '" + kind + "' (cube, torus or square)");
    format fo = output_format(ctx, out);
    if (fo == format::none) return exit_failure;
    mesh m;
    bool ok = kind == "cube"    ? make_cube(n, m)
              : kind == "torus" ? make_torus(4 * n, 2 * n, m)
                                : make_square(n, m);
    if (!ok) return fail(std::string("cannot generate the mesh") + ": out of memory");
    if (!write_mesh(ctx, out, fo, m, ctx.flag("--binary"))) return exit_failure;
    if (!ctx.quiet)
        std::printf("wrote %s (%s): %s, %s\n", out.c_str(), format_name(fo),
                    plural(m.pos.cols(), "node", "nodes").c_str(),
                    plural(m.nbr_elements(), "element", "elements").c_str());
    return exit_ok;
}

} // namespace cli
