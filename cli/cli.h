// Shared declarations of the meshutil command-line tool: the in-memory mesh, file formats, option
// parsing, error reporting, progress and JSON output.
#pragma once

#include <cstdint>
#include <meshutil/meshutil.h>
#include <string>
#include <vector>

namespace cli
{

using qx7::dense1D;
using qx7::dense2D;
namespace mu = qx7::meshutil;

// ------------------------------------------------------------------------------------ exit codes

/// Success, a failed operation (library code, file), a bad command line.
enum exit_code
{
    exit_ok = 0,
    exit_failure = 1,
    exit_usage = 2
};

// ------------------------------------------------------------------------------------ mesh

/// One connectivity matrix and the element type of its columns.
struct block
{
    dense2D<unsigned> connectM;
    mu::element_type type = mu::EL_UNKNOWN;
};

/// Coordinates and the blocks of elements that refer to them.
struct mesh
{
    dense2D<double> pos;
    std::vector<block> blocks;

    std::size_t nbr_elements() const;
    /// Largest element dimension present (0 when there is no element).
    unsigned top_dim() const;
};

/// The blocks as the (first, last) range and type vector that the range forms take.
struct block_range
{
    std::vector<dense2D<unsigned>> mats; ///< shallow copies of the blocks' matrices
    dense1D<int> types;
    explicit block_range(const mesh& m);
    const dense2D<unsigned>* first() const { return mats.data(); }
    const dense2D<unsigned>* last() const { return mats.data() + mats.size(); }
};

/// The elements of the highest dimension gathered into one matrix: one block when a single block
/// has that dimension, else an EL_FACE_MIX or EL_SOLID_MIX matrix (edges: EL_EDGE2). Quadratic
/// elements keep their corner nodes only. Returns false when memory runs out.
bool principal_elements(const mesh& m, block& out);

/// Plain name of an element type ("tetrahedra", ...), and its enumerator name ("EL_TETRA4").
const char* type_words(mu::element_type t);
const char* type_name(mu::element_type t);

// ------------------------------------------------------------------------------------ formats

enum class format
{
    none,
    medit,
    vtk,
    stl,
    nastran,
    ensight,
    obj,
    femap
};

/// Format named on the command line ("mesh", "medit", "stl", ...), or format::none.
format format_from_name(const std::string& name);
/// Format given by the file's extension (case-insensitive), or format::none.
format format_from_path(const std::string& path);
const char* format_name(format f);
bool format_readable(format f);
bool format_writable(format f);
/// One line per format: name, extensions, read/write.
std::string format_table();

struct context;

/// Reads a mesh; prints the error and returns false on failure.
bool read_mesh(const context& ctx, const std::string& path, format f, mesh& m);
/// Writes a mesh; prints the error and returns false on failure. binary applies to STL.
bool write_mesh(const context& ctx, const std::string& path, format f, const mesh& m, bool binary);
/// Resolves the format of a path: the override when given, else the extension; prints the error
/// (unknown extension or format, or not readable/writable) and returns format::none on failure.
format resolve_format(const std::string& path, const std::string& override_name, bool for_writing);

// ------------------------------------------------------------------------------------ options

/// The parsed command line of one subcommand.
struct context
{
    std::string command;
    std::vector<std::string> args;                           ///< positional arguments
    std::vector<std::pair<std::string, std::string>> values; ///< options with a value
    std::vector<std::string> flags;                          ///< options without a value
    bool json = false;
    bool quiet = false;
    bool progress = false; ///< stderr is a terminal and --quiet is not given

    bool flag(const char* name) const;
    /// Value of an option, or def when absent.
    std::string value(const char* name, const std::string& def = std::string()) const;
    bool has(const char* name) const;
};

// ------------------------------------------------------------------------------------ reporting

/// Prints "meshutil: <what>: <function> returned <code> (<reason>)" on stderr; returns
/// exit_failure.
int fail_call(const std::string& what, const char* function, int code);
/// Prints "meshutil <command>: <message>" and a pointer to --help on stderr; returns exit_usage.
int fail_usage(const std::string& command, const std::string& message);
/// Prints "meshutil: <message>" on stderr; returns exit_failure.
int fail(const std::string& message);
/// Plain-words reason of a library code returned by the named function.
const char* reason(const char* function, int code);

/// A step announced on stderr when ctx.progress is set and the work is large enough; its end is
/// reported with the time it took.
class progress
{
public:
    progress(const context& ctx, const std::string& what, std::size_t work);
    ~progress();
    progress(const progress&) = delete;
    progress& operator=(const progress&) = delete;

private:
    bool m_on;
    double m_start;
};

/// Minimal JSON text builder: values are appended with the separators JSON needs.
class json_writer
{
public:
    json_writer& begin_object(const char* key = nullptr);
    json_writer& end_object();
    json_writer& begin_array(const char* key = nullptr);
    json_writer& end_array();
    json_writer& value(const char* key, double v);
    json_writer& value(const char* key, std::uint64_t v);
    json_writer& value(const char* key, const std::string& v);
    json_writer& value(const char* key, bool v);
    const std::string& str() const { return m_out; }

private:
    void prefix(const char* key);
    std::string m_out;
    std::vector<bool> m_first;
};

/// "%.6g" of a double, "nan"/"inf" spelled out.
std::string fmt(double v);

/// Histogram as text lines: "  [lo, hi)  count  bar" with bars scaled to the largest bin.
std::string histogram_text(const qx7::misc::histogram& h, const char* indent);

// ------------------------------------------------------------------------------------ demo meshes

/// Tetrahedral cube [0,1]^3 of n^3 cells, six positive tetrahedra per cell, nodes clustered
/// towards the origin and interior nodes jittered (fixed seed), so sizes and qualities vary.
bool make_cube(unsigned n, mesh& m);
/// Triangulated torus surface (radii 1 and 0.35), nu x nv quadrangles split in two, outwards.
bool make_torus(unsigned nu, unsigned nv, mesh& m);
/// Triangulated unit square in 2-D, n x n cells. All three return false when memory runs out.
bool make_square(unsigned n, mesh& m);

// ------------------------------------------------------------------------------------ commands

int cmd_info(const context& ctx);
int cmd_convert(const context& ctx);
int cmd_quality(const context& ctx);
int cmd_boundary(const context& ctx);
int cmd_sizes(const context& ctx);
int cmd_demo(const context& ctx);
int cmd_generate(const context& ctx);

} // namespace cli
