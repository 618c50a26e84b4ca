// Error messages, progress on stderr, JSON and text formatting.
#include "cli.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace cli
{

namespace
{

struct reason_entry
{
    const char* function; ///< nullptr: any function
    int code;
    const char* text;
};

// Reasons in plain words, by function and code; the first match wins, so the entries of a
// function come before the generic ones.
const reason_entry reasons[] = {
    {"STL_input", -1, "the file cannot be opened"},
    {"STL_input", -2,
     "not an STL file: the first line has no \"solid\" and the file is shorter than a binary "
     "header"},
    {"STL_input", -3,
     "not a valid STL file: syntax error in the text form, or fewer binary triangles than the "
     "count announces"},
    {"STL_output", -1, "the file cannot be created or written"},
    {"STL_output", -2, "the coordinates have neither 2 nor 3 components"},
    {"STL_output", -3, "a triangle refers to a node that does not exist"},
    {"medit_output", -1, "the file cannot be created or written"},
    {"medit_output", -2, "the coordinates have neither 1, 2 nor 3 components"},
    {"medit_output", -3, "an element refers to a node that does not exist"},
    {"medit_scalar", -1, "the file cannot be created or written"},
    {"vtk_output", -1, "the file cannot be created or written"},
    {"vtk_output", -2, "the coordinates have neither 2 nor 3 components"},
    {"vtk_output", -3, "an element refers to a node that does not exist"},
    {"NASTRAN_output", -1, "the file cannot be created or written"},
    {"NASTRAN_output", -2, "the coordinates have neither 2 nor 3 components"},
    {"NASTRAN_output", -3, "an element group does not have the row count of its type"},
    {"ensight_output", -1, "the file cannot be created or written"},
    {"ensight_output", -2, "the coordinates have neither 1, 2 nor 3 components"},
    {"ensight_output", -3, "a connectivity does not have the row count of its type"},
    {"WavefrontOBJ_output", -1, "the file cannot be created or written"},
    {"FEMAP_output", -1, "the file cannot be created or written"},
    {"medit_input", -2,
     "malformed content: no MeshVersionFormatted first, a token that is not the number "
     "expected, or fewer records than announced"},
    {"medit_input", -3, "an element refers to a vertex that does not exist"},
    {"medit_input", -4, "unsupported version (1 to 4) or dimension (1 to 3)"},
    {"NASTRAN_input", -2,
     "malformed bulk data: no BEGIN BULK or ENDDATA, a field that is not the number expected, or "
     "an element with too few grids"},
    {"NASTRAN_input", -3, "an element names a grid no GRID card defines, or an identifier repeats"},
    {"NASTRAN_input", -4, "a GRID uses a coordinate system other than the basic one"},
    {"FEMAP_input", -2,
     "malformed neutral file: a block or record cut short, or a value that is not the number "
     "expected"},
    {"FEMAP_input", -3, "an element names a node no record defines, or an identifier repeats"},
    {"FEMAP_input", -4, "an element topology this reader does not know"},
    {"WavefrontOBJ_input", -2,
     "malformed OBJ: a vertex with fewer than three numbers, a face with fewer than three "
     "corners, or a reference that is not a number"},
    {"WavefrontOBJ_input", -3, "a face or line refers to a vertex that does not exist"},
    {"FEMAP_output", -3, "an element group does not have the row count of its type"},
    {"WavefrontOBJ_output", -5, "OBJ cannot hold solid elements"},
    {"get_neighbors", -1, "the connectivity does not have the row count of its element type"},
    {"get_neighbors", -2, "the element type has no neighbour relation (quadratic or unknown)"},
    {"get_mesh_boundaries", -2, "the neighbour matrix does not match the mesh"},
    {"get_mesh_boundaries", -3, "the element type has no boundary table"},
    {"shape_qualities", -2, "an element refers to a node that does not exist"},
    {"shape_qualities", -3, "the element type has no shape quality (quadratic or unknown)"},
    {"copy_edges", -1, "a connectivity does not have the row count of its element type"},
    {"metrics_gen_iso", -1, "the coordinates have fewer components than the elements' dimension"},
    {"metrics_gen_iso", -2, "an element refers to a node that does not exist"},
    {"metrics_gen_iso", -3, "sizes are generated for linear elements only"},
    {"metrics_gen_iso", -5, "the exponent p is negative"},
    {"bound_metric_gradations", -1, "the coordinates have neither 2 nor 3 components"},
    {"bound_metric_gradations", -2, "an element refers to a node that does not exist"},
    {"bound_metric_gradations", -7, "the gradation is negative"},
    {"bound_metric_gradations", -8, "the size field does not cover every node"},
    {"merge", -1, "the coordinates have neither 2 nor 3 components"},
    {"merge", -2, "an element refers to a node that does not exist"},
    {"merge", -5, "the tolerance is negative"},
    {"simplify", -2, "an element refers to a node that does not exist"},
    {nullptr, -1, "the file cannot be opened, or the first argument is not a valid mesh"},
    {nullptr, -199, "out of memory"},
};

} // namespace

const char* reason(const char* function, int code)
{
    for (const reason_entry& e : reasons)
        if (e.code == code && (!e.function || std::strcmp(e.function, function) == 0))
            return e.text;
    if (std::strstr(function, "_input"))
        return "the file is not valid data of this format, or is truncated";
    return "invalid argument";
}

int fail_call(const std::string& what, const char* function, int code)
{
    std::fprintf(stderr, "meshutil: %s: %s returned %d (%s)\n", what.c_str(), function, code,
                 reason(function, code));
    return exit_failure;
}

int fail_usage(const std::string& command, const std::string& message)
{
    if (command.empty())
        std::fprintf(stderr, "meshutil: %s\nTry 'meshutil --help'.\n", message.c_str());
    else
        std::fprintf(stderr, "meshutil %s: %s\nTry 'meshutil %s --help'.\n", command.c_str(),
                     message.c_str(), command.c_str());
    return exit_usage;
}

int fail(const std::string& message)
{
    std::fprintf(stderr, "meshutil: %s\n", message.c_str());
    return exit_failure;
}

// ------------------------------------------------------------------------------------ progress

namespace
{
double now_seconds()
{
    using clock = std::chrono::steady_clock;
    return std::chrono::duration<double>(clock::now().time_since_epoch()).count();
}

// Work (entries, bytes) from which a step is worth announcing.
constexpr std::size_t large_work = 1u << 20;
} // namespace

progress::progress(const context& ctx, const std::string& what, std::size_t work)
    : m_on(ctx.progress && work >= large_work), m_start(now_seconds())
{
    if (!m_on) return;
    std::fprintf(stderr, "meshutil: %s ...", what.c_str());
    std::fflush(stderr);
}

progress::~progress()
{
    if (!m_on) return;
    std::fprintf(stderr, " %.2f s\n", now_seconds() - m_start);
}

// ------------------------------------------------------------------------------------ JSON

void json_writer::prefix(const char* key)
{
    if (!m_first.empty())
    {
        if (!m_first.back()) m_out += ',';
        m_first.back() = false;
    }
    if (key)
    {
        m_out += '"';
        m_out += key;
        m_out += "\":";
    }
}

json_writer& json_writer::begin_object(const char* key)
{
    prefix(key);
    m_out += '{';
    m_first.push_back(true);
    return *this;
}

json_writer& json_writer::end_object()
{
    m_out += '}';
    m_first.pop_back();
    return *this;
}

json_writer& json_writer::begin_array(const char* key)
{
    prefix(key);
    m_out += '[';
    m_first.push_back(true);
    return *this;
}

json_writer& json_writer::end_array()
{
    m_out += ']';
    m_first.pop_back();
    return *this;
}

json_writer& json_writer::value(const char* key, double v)
{
    prefix(key);
    if (!std::isfinite(v))
    {
        m_out += "null";
        return *this;
    }
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.17g", v);
    m_out += buf;
    return *this;
}

json_writer& json_writer::value(const char* key, std::uint64_t v)
{
    prefix(key);
    m_out += std::to_string(v);
    return *this;
}

json_writer& json_writer::value(const char* key, bool v)
{
    prefix(key);
    m_out += v ? "true" : "false";
    return *this;
}

json_writer& json_writer::value(const char* key, const std::string& v)
{
    prefix(key);
    m_out += '"';
    for (unsigned char c : v)
    {
        if (c == '"' || c == '\\')
        {
            m_out += '\\';
            m_out += char(c);
        }
        else if (c < 0x20)
        {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", c);
            m_out += buf;
        }
        else
            m_out += char(c);
    }
    m_out += '"';
    return *this;
}

// ------------------------------------------------------------------------------------ text

std::string fmt(double v)
{
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.6g", v);
    return buf;
}

std::string histogram_text(const qx7::misc::histogram& h, const char* indent)
{
    constexpr unsigned bar_width = 40;
    std::uint64_t largest = 0;
    for (unsigned k = 0; k < h.nbr_bins(); ++k)
        largest = std::max(largest, h.bin(k));
    std::string out;
    char buf[160];
    for (unsigned k = 0; k < h.nbr_bins(); ++k)
    {
        unsigned len = largest ? unsigned((h.bin(k) * bar_width + largest - 1) / largest) : 0;
        std::snprintf(buf, sizeof buf, "%s[%5.3g, %5.3g%c %9llu  ", indent, h.bin_lower(k),
                      h.bin_upper(k), k + 1 == h.nbr_bins() ? ']' : ')',
                      static_cast<unsigned long long>(h.bin(k)));
        out += buf;
        out.append(len, '#');
        while (!out.empty() && out.back() == ' ')
            out.pop_back();
        out += '\n';
    }
    return out;
}

} // namespace cli
