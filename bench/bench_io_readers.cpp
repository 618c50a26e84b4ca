// Readers of NASTRAN, medit, Wavefront OBJ and FEMAP files on a structured cube of nodes split
// into tetrahedra (n^3 nodes, 6 (n-1)^3 tetrahedra; n = 100 gives 1M nodes), and on the
// triangulated n2 x n2 square for OBJ (a surface format). Reports elements/s and MB/s.
// The files are written once into $MESHUTIL_BENCH_DIR (default /tmp/meshutil_bench_readers)
// and kept there, so that bench/compare_readers.py can time other readers on the same files.
// Sizes: $MESHUTIL_BENCH_N (default 100) nodes per cube side, the FEMAP cube has n/2 per side
// (its element records are seven lines long), the OBJ square 1000 per side.
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <meshutil/io.h>
#include <string>
#include <sys/stat.h>

using namespace qx7::meshutil;
using qx7::dense1D;
using qx7::dense2D;

namespace
{

std::string bench_dir()
{
    const char* d = std::getenv("MESHUTIL_BENCH_DIR");
    std::string dir = d && *d ? d : "/tmp/meshutil_bench_readers";
    mkdir(dir.c_str(), 0755);
    return dir;
}

unsigned cube_side()
{
    const char* s = std::getenv("MESHUTIL_BENCH_N");
    return s && std::atoi(s) > 1 ? unsigned(std::atoi(s)) : 100u;
}

/// n^3 nodes with small fixed-seed jitter, each cube split into six tetrahedra.
void make_cube(unsigned n, dense2D<double>& pos, dense2D<unsigned>& tets)
{
    pos.resize(3, std::size_t(n) * n * n);
    std::uint64_t state = 12345;
    auto jitter = [&]
    {
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        return double(state >> 11) * 0x1.0p-53 * 1e-3;
    };
    for (unsigned k = 0, j = 0; k < n; ++k)
        for (unsigned y = 0; y < n; ++y)
            for (unsigned x = 0; x < n; ++x, ++j)
                pos(0, j) = x + jitter(), pos(1, j) = y + jitter(), pos(2, j) = k + jitter();
    const std::size_t cubes = std::size_t(n - 1) * (n - 1) * (n - 1);
    tets.resize(4, 6 * cubes);
    static const unsigned split[6][4] = {{0, 1, 3, 7}, {0, 1, 7, 5}, {0, 5, 7, 4},
                                         {0, 3, 2, 7}, {0, 2, 6, 7}, {0, 6, 4, 7}};
    std::size_t e = 0;
    for (unsigned k = 0; k + 1 < n; ++k)
        for (unsigned y = 0; y + 1 < n; ++y)
            for (unsigned x = 0; x + 1 < n; ++x)
            {
                unsigned c[8];
                for (unsigned b = 0; b < 8; ++b)
                    c[b] = (x + (b & 1)) + n * ((y + ((b >> 1) & 1)) + n * (k + (b >> 2)));
                for (auto& s : split)
                {
                    for (unsigned i = 0; i < 4; ++i)
                        tets(i, e) = c[s[i]];
                    ++e;
                }
            }
}

bool exists(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 && st.st_size > 0;
}

double file_mb(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? double(st.st_size) / 1e6 : 0.0;
}

std::string prepare(const char* format)
{
    const std::string dir = bench_dir();
    const unsigned n = cube_side();
    const std::string name = dir + "/cube_" + std::to_string(n) + "." + format;
    if (exists(name)) return name;
    dense2D<double> pos;
    dense2D<unsigned> T;
    const std::string fmt = format;
    if (fmt == "mesh" || fmt == "nas")
    {
        make_cube(n, pos, T);
        if (fmt == "mesh")
            medit_output(name.c_str(), pos, T, EL_TETRA4);
        else
            NASTRAN_output(name.c_str(), pos, T, EL_TETRA4);
    }
    else if (fmt == "neu")
    {
        make_cube(n / 2, pos, T);
        FEMAP_output(name.c_str(), pos, T, EL_TETRA4);
    }
    else
    {
        // The triangulated square of 1000 x 1000 nodes.
        const unsigned m = 1000;
        pos.resize(3, std::size_t(m) * m);
        T.resize(3, 2 * std::size_t(m - 1) * (m - 1));
        for (unsigned y = 0, j = 0; y < m; ++y)
            for (unsigned x = 0; x < m; ++x, ++j)
                pos(0, j) = x * 1e-3, pos(1, j) = y * 1e-3, pos(2, j) = 0.1 * ((x * 7 + y) % 5);
        std::size_t e = 0;
        for (unsigned y = 0; y + 1 < m; ++y)
            for (unsigned x = 0; x + 1 < m; ++x, e += 2)
            {
                unsigned a = x + m * y, b = a + 1, c = a + m + 1, d = a + m;
                T(0, e) = a, T(1, e) = b, T(2, e) = c;
                T(0, e + 1) = a, T(1, e + 1) = c, T(2, e + 1) = d;
            }
        WavefrontOBJ_output(name.c_str(), pos, T, EL_TRIA3);
    }
    return name;
}

void report(benchmark::State& state, const std::string& path, std::size_t elements)
{
    state.SetItemsProcessed(state.iterations() * std::int64_t(elements));
    state.SetBytesProcessed(state.iterations() * std::int64_t(file_mb(path) * 1e6));
    state.counters["elements"] = double(elements);
}

void read_nastran(benchmark::State& state)
{
    const std::string path = prepare("nas");
    dense2D<double> pos;
    dense2D<unsigned> C;
    dense1D<unsigned> first, PIDs, nodes, elements;
    dense1D<int> types;
    for (auto _ : state)
        if (NASTRAN_input(path.c_str(), pos, C, first, types, PIDs, nodes, elements))
            state.SkipWithError("read failed");
    report(state, path, C.cols());
}

void read_femap(benchmark::State& state)
{
    const std::string path = prepare("neu");
    dense2D<double> pos;
    dense2D<unsigned> C;
    dense1D<unsigned> first, PIDs, nodes, elements;
    dense1D<int> types;
    for (auto _ : state)
        if (FEMAP_input(path.c_str(), pos, C, first, types, PIDs, nodes, elements))
            state.SkipWithError("read failed");
    report(state, path, C.cols());
}

void read_medit(benchmark::State& state)
{
    const std::string path = prepare("mesh");
    dense2D<double> pos;
    dense1D<int> vrefs;
    dense2D<unsigned> C[nbr_element_types];
    dense1D<int> refs[nbr_element_types];
    for (auto _ : state)
        if (medit_input(path.c_str(), pos, vrefs, C, refs)) state.SkipWithError("read failed");
    report(state, path, C[EL_TETRA4].cols());
}

void read_obj(benchmark::State& state)
{
    const std::string path = prepare("obj");
    dense2D<double> pos;
    dense2D<unsigned> faces, edges;
    element_type type;
    for (auto _ : state)
        if (WavefrontOBJ_input(path.c_str(), pos, faces, type, edges))
            state.SkipWithError("read failed");
    report(state, path, faces.cols());
}

BENCHMARK(read_nastran)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(read_medit)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(read_obj)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(read_femap)->Unit(benchmark::kMillisecond)->MinTime(2.0);

} // namespace
BENCHMARK_MAIN();
