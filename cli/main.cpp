// meshutil: command-line entry point. Parses the subcommand and its options, prints help, and
// hands over to the subcommand.
#include "cli.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <unistd.h>

namespace
{

struct option_spec
{
    const char* name;
    bool takes_value;
};

struct command_entry
{
    const char* name;
    int (*run)(const cli::context&);
    unsigned min_args, max_args;
    std::vector<option_spec> options;
    const char* help;
};

const char* const general_help =
    "usage: meshutil <command> [options] [arguments]\n"
    "\n"
    "Finite-element mesh utilities on the command line.\n"
    "\n"
    "commands:\n"
    "  info FILE                  counts, bounding box, boundaries, subdomains, quality, edges\n"
    "  convert IN OUT             any readable format to any writable one\n"
    "  quality IN                 per-element shape quality, worst elements first\n"
    "  boundary IN OUT            the free boundary of a mesh as a mesh of its own\n"
    "  sizes IN OUT.mesh          size field from edge lengths, graded, written with the mesh\n"
    "  demo [DIR]                 the sizes pipeline on a generated cube (also: no command)\n"
    "  generate KIND OUT          writes a generated mesh: cube, torus or square\n"
    "\n"
    "Run 'meshutil <command> --help' for the options of a command. Formats are chosen by file\n"
    "extension; --format (input) and --to (output) override it. Numbers of nodes and elements\n"
    "count from 1, as in the files. Exit status: 0 success, 1 failure, 2 bad command line.\n"
    "\n"
    "formats:\n";

const char* const common_options =
    "  --format FMT        read the input as FMT whatever its extension (also --from)\n"
    "  -q, --quiet         no progress on stderr\n"
    "  -h, --help          this help\n";

std::vector<command_entry> commands()
{
    const option_spec format{"--format", true}, from{"--from", true}, to{"--to", true},
        json{"--json", false}, binary{"--binary", false};
    return {
        {"info",
         cli::cmd_info,
         1,
         1,
         {format, from, json},
         "usage: meshutil info FILE [--json]\n"
         "\n"
         "Reads FILE and prints its node and element counts by type, bounding box, free and\n"
         "non-manifold boundaries, connected subdomains, unused nodes, degenerated elements,\n"
         "the shape-quality histogram and edge-length statistics. Boundaries and subdomains\n"
         "are those of the elements of the highest dimension.\n"
         "\n"
         "options:\n"
         "  --json              machine-readable output on stdout\n"},
        {"convert",
         cli::cmd_convert,
         2,
         2,
         {format, from, to, binary, {"--merge", true}},
         "usage: meshutil convert IN OUT [--merge TOL] [--binary] [--to FMT]\n"
         "\n"
         "Reads IN and writes it to OUT in the format of OUT's extension.\n"
         "\n"
         "options:\n"
         "  --merge TOL         first merge nodes closer than TOL (absolute distance), drop\n"
         "                      the elements that collapse and the nodes no longer used\n"
         "  --binary            binary STL (text by default)\n"
         "  --to FMT            write OUT as FMT whatever its extension\n"},
        {"quality",
         cli::cmd_quality,
         1,
         1,
         {format, from, json, {"--sol", true}, {"--worst", true}, {"--all", false}},
         "usage: meshutil quality IN [--sol OUT.sol] [--worst N] [--all] [--json]\n"
         "\n"
         "Computes the shape quality of every element: 1 for the ideal shape, towards 0 as it\n"
         "flattens, negative when inverted. Prints the statistics, the histogram and the N\n"
         "worst elements (default 10). Quadratic elements are measured on their corners.\n"
         "\n"
         "options:\n"
         "  --sol FILE          also write a medit solution file with, at every node, the\n"
         "                      worst quality of the elements around it (1 for a free node)\n"
         "  --worst N           how many of the worst elements to list\n"
         "  --all               list every element, in element order\n"
         "  --json              machine-readable output on stdout\n"},
        {"boundary",
         cli::cmd_boundary,
         2,
         2,
         {format, from, to, binary},
         "usage: meshutil boundary IN OUT [--to FMT] [--binary]\n"
         "\n"
         "Extracts the free boundary of the elements of the highest dimension (faces of a\n"
         "volume, edges of a surface: the boundaries that belong to one element only) and\n"
         "writes it with the nodes it uses as a mesh of its own. Boundaries keep the\n"
         "orientation of their element.\n"
         "\n"
         "options:\n"
         "  --to FMT            write OUT as FMT whatever its extension\n"
         "  --binary            binary STL (text by default)\n"},
        {"sizes",
         cli::cmd_sizes,
         2,
         2,
         {format,
          from,
          to,
          {"--p", true},
          {"--gradation", true},
          {"--direction", true},
          {"--sol", true}},
         "usage: meshutil sizes IN OUT.mesh [--p P] [--gradation G] [--direction D] [--sol F]\n"
         "\n"
         "The typical pipeline: reads IN, derives at every node a size from the lengths of\n"
         "the edges that meet there, bounds its gradation, and writes the mesh to OUT and the\n"
         "size field to a medit solution file beside it (OUT with the extension .sol).\n"
         "\n"
         "options:\n"
         "  --p P               mean of the edge lengths: 0 or 'min' minimum, 'max' maximum,\n"
         "                      else the power mean of order P (default 1, arithmetic)\n"
         "  --gradation G       largest size shock along an edge, G >= 0: neighbouring sizes\n"
         "                      differ by at most ln(1+G) times the edge length (default 0.3;\n"
         "                      'none' leaves the sizes as they are)\n"
         "  --direction D       'down' (default: sizes only shrink), 'up' or 'free'\n"
         "  --sol FILE          name of the solution file\n"
         "  --to FMT            write OUT as FMT whatever its extension\n"},
        {"demo",
         cli::cmd_demo,
         0,
         1,
         {{"--n", true}},
         "usage: meshutil demo [DIR] [--n N]\n"
         "\n"
         "Runs the sizes pipeline on a tetrahedral cube the tool generates (N cells a side,\n"
         "default 10, nodes clustered towards one corner): quality, boundary, size field,\n"
         "gradation, then writes mesh and field to DIR (default: a new folder meshutil-demo,\n"
         "meshutil-demo-2, ... in the current directory) and prints what it did.\n"
         "'meshutil' without a command runs the demo.\n"},
        {"generate",
         cli::cmd_generate,
         2,
         2,
         {to, binary, {"--n", true}},
         "usage: meshutil generate KIND OUT [--n N] [--to FMT] [--binary]\n"
         "\n"
         "Writes a generated mesh. KIND is 'cube' (tetrahedra, N cells a side, default 10),\n"
         "'torus' (triangles, 4N x 2N quadrangles split in two, default N 8) or 'square'\n"
         "(2-D triangles, N cells a side, default 10).\n"},
    };
}

int print_help(const command_entry& c)
{
    std::fputs(c.help, stdout);
    bool reads = false;
    for (const option_spec& o : c.options)
        reads = reads || std::strcmp(o.name, "--format") == 0;
    std::fputs(reads ? common_options
                     : "  -q, --quiet         no progress on stderr\n"
                       "  -h, --help          this help\n",
               stdout);
    return cli::exit_ok;
}

int run(int argc, char** argv)
{
    const std::vector<command_entry> entries = commands();
    std::vector<std::string> argsv(argv + 1, argv + argc);
    if (argsv.empty()) argsv.push_back("demo");
    const std::string& name = argsv[0];
    if (name == "-h" || name == "--help" || name == "help")
    {
        if (argsv.size() > 1)
            for (const command_entry& c : entries)
                if (argsv[1] == c.name) return print_help(c);
        std::fputs(general_help, stdout);
        std::fputs(cli::format_table().c_str(), stdout);
        return cli::exit_ok;
    }
    if (name == "--version")
    {
        std::printf("meshutil %s\n", qx7::meshutil::version());
        return cli::exit_ok;
    }
    const command_entry* entry = nullptr;
    for (const command_entry& c : entries)
        if (name == c.name) entry = &c;
    if (!entry) return cli::fail_usage("", "unknown command '" + name + "'");

    cli::context ctx;
    ctx.command = entry->name;
    bool options_done = false;
    for (std::size_t i = 1; i < argsv.size(); ++i)
    {
        const std::string& a = argsv[i];
        if (options_done || a.size() < 2 || a[0] != '-')
        {
            ctx.args.push_back(a);
            continue;
        }
        if (a == "--")
        {
            options_done = true;
            continue;
        }
        if (a == "-h" || a == "--help") return print_help(*entry);
        if (a == "-q" || a == "--quiet")
        {
            ctx.quiet = true;
            continue;
        }
        std::string key = a, val;
        bool inline_value = false;
        std::size_t eq = a.find('=');
        if (a.compare(0, 2, "--") == 0 && eq != std::string::npos)
        {
            key = a.substr(0, eq);
            val = a.substr(eq + 1);
            inline_value = true;
        }
        const option_spec* opt = nullptr;
        for (const option_spec& o : entry->options)
            if (key == o.name) opt = &o;
        if (!opt) return cli::fail_usage(entry->name, "unknown option '" + key + "'");
        if (!opt->takes_value)
        {
            if (inline_value) return cli::fail_usage(entry->name, key + " takes no value");
            ctx.flags.push_back(key == "--from" ? "--format" : key);
            continue;
        }
        if (!inline_value)
        {
            if (i + 1 >= argsv.size()) return cli::fail_usage(entry->name, key + " needs a value");
            val = argsv[++i];
        }
        ctx.values.emplace_back(key == "--from" ? "--format" : key, val);
    }
    if (ctx.args.size() < entry->min_args) return cli::fail_usage(entry->name, "missing argument");
    if (ctx.args.size() > entry->max_args)
        return cli::fail_usage(entry->name,
                               "unexpected argument '" + ctx.args[entry->max_args] + "'");
    ctx.json = ctx.flag("--json");
    ctx.progress = !ctx.quiet && isatty(fileno(stderr));
    return entry->run(ctx);
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        return run(argc, argv);
    }
    catch (const std::bad_alloc&)
    {
        return cli::fail("out of memory");
    }
}
