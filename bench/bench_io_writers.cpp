// Mesh writers on a structured cube [1, 2]^3 of 101^3 nodes split into 5M tetrahedra (5 per cell,
// the split alternating with the cell parity), node coordinates jittered with a fixed seed so that
// every number has its full digits. Each writer is timed writing a real file (in TMPDIR, /tmp by
// default), and the medit and VTK ones also to /dev/null, which leaves the number formatting
// alone. Reports elements/s and bytes/s.
#include <benchmark/benchmark.h>
#include <cstdint>
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

struct cube_mesh
{
    dense2D<double> pos;
    dense2D<unsigned> tets;
};

/// (n+1)^3 nodes, 5 n^3 tetrahedra.
const cube_mesh& cube(unsigned n)
{
    static cube_mesh m;
    if (m.pos.cols() == std::size_t(n + 1) * (n + 1) * (n + 1)) return m;
    const unsigned p = n + 1;
    m.pos.resize(3, std::size_t(p) * p * p);
    std::uint64_t s = 20261122;
    auto jitter = [&s]()
    {
        s = s * 6364136223846793005ull + 1442695040888963407ull;
        return (double(s >> 11) / 9007199254740992.0 - 0.5) * 0.3;
    };
    const double h = 1.0 / n;
    for (unsigned k = 0, c = 0; k < p; ++k)
        for (unsigned j = 0; j < p; ++j)
            for (unsigned i = 0; i < p; ++i, ++c)
            {
                m.pos(0, c) = 1.0 + (i + jitter()) * h;
                m.pos(1, c) = 1.0 + (j + jitter()) * h;
                m.pos(2, c) = 1.0 + (k + jitter()) * h;
            }
    static const unsigned even[5][4] = {
        {0, 1, 3, 5}, {0, 3, 2, 6}, {0, 5, 4, 6}, {3, 5, 6, 7}, {0, 3, 5, 6}};
    static const unsigned odd[5][4] = {
        {1, 0, 2, 4}, {1, 2, 3, 7}, {1, 4, 5, 7}, {2, 4, 7, 6}, {1, 2, 4, 7}};
    m.tets.resize(4, std::size_t(5) * n * n * n);
    std::size_t e = 0;
    for (unsigned k = 0; k < n; ++k)
        for (unsigned j = 0; j < n; ++j)
            for (unsigned i = 0; i < n; ++i)
            {
                unsigned v[8];
                for (unsigned c = 0; c < 8; ++c)
                    v[c] = (i + (c & 1)) + p * ((j + ((c >> 1) & 1)) + p * (k + (c >> 2)));
                const auto& split = ((i + j + k) & 1) ? odd : even;
                for (const auto& t : split)
                {
                    unsigned* col = m.tets.col(e++);
                    for (unsigned r = 0; r < 4; ++r)
                        col[r] = v[t[r]];
                }
            }
    return m;
}

std::string target(bool null_device, const char* name)
{
    if (null_device) return "/dev/null";
    const char* dir = std::getenv("TMPDIR");
    return std::string(dir && *dir ? dir : "/tmp") + "/meshutil_bench_" + name;
}

template <class Write>
void run(benchmark::State& state, const char* name, Write write)
{
    // MESHUTIL_BENCH_CELLS overrides the cube size (for the side-by-side script's quick runs).
    const char* cells = std::getenv("MESHUTIL_BENCH_CELLS");
    const cube_mesh& m =
        cube(cells && *cells ? unsigned(std::atoi(cells)) : unsigned(state.range(0)));
    const bool null_device = state.range(1) != 0;
    const std::string path = target(null_device, name);
    std::int64_t bytes = 0;
    for (auto _ : state)
    {
        if (write(path.c_str(), m) != 0) state.SkipWithError("write failed");
        state.PauseTiming();
        struct stat st;
        if (!null_device && stat(path.c_str(), &st) == 0) bytes = st.st_size;
        state.ResumeTiming();
    }
    if (!null_device)
    {
        std::remove(path.c_str());
        state.SetBytesProcessed(state.iterations() * bytes);
        state.counters["MB"] = double(bytes) / 1e6;
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t(m.tets.cols()));
}

void medit(benchmark::State& state)
{
    run(state, "w.mesh",
        [](const char* f, const cube_mesh& m)
        { return medit_output(f, m.pos, m.tets, EL_TETRA4); });
}
void vtk(benchmark::State& state)
{
    run(state, "w.vtk",
        [](const char* f, const cube_mesh& m) { return vtk_output(f, m.pos, m.tets, EL_TETRA4); });
}
void nastran(benchmark::State& state)
{
    run(state, "w.nas",
        [](const char* f, const cube_mesh& m)
        { return NASTRAN_output(f, m.pos, m.tets, EL_TETRA4); });
}
void ensight(benchmark::State& state)
{
    run(state, "w.geo",
        [](const char* f, const cube_mesh& m)
        { return ensight_output(f, m.pos, m.tets, EL_TETRA4); });
}

// Args: cells per cube edge (100: 1.03M nodes, 5M tetrahedra), then 1 to write to /dev/null.
BENCHMARK(medit)->Args({100, 0})->Args({100, 1})->Unit(benchmark::kSecond)->Iterations(2);
BENCHMARK(vtk)->Args({100, 0})->Args({100, 1})->Unit(benchmark::kSecond)->Iterations(2);
BENCHMARK(nastran)->Args({100, 0})->Unit(benchmark::kSecond)->Iterations(2);
BENCHMARK(ensight)->Args({100, 0})->Unit(benchmark::kSecond)->Iterations(2);

} // namespace

BENCHMARK_MAIN();
