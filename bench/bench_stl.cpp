// STL files: STL_input and STL_output on closed tori of 250k, 1M and 2M triangles, binary and
// text, with a plain read-and-hash-merge reference of binary files timed alongside.
//
//   bench_stl [benchmark options]      runs the benchmarks (files in $STL_BENCH_DIR or /tmp)
//   bench_stl --write DIR              writes torus_<n>.stl (binary) and torus_<n>.txt.stl (text)
//   bench_stl --read FILE              STL_input once: CPU seconds and unique nodes
//   bench_stl --reference FILE         the plain hash merge once: CPU seconds and unique nodes
// The last two print one line "<cpu seconds> <nodes> <triangles>" for bench/compare_stl.sh.
#include "model/model_private.h"

#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <meshutil/io.h>
#include <string>
#include <sys/stat.h>
#include <vector>

using namespace qx7::meshutil;

namespace
{

const unsigned sizes[][2] = {{500, 250}, {1000, 500}, {2000, 500}}; // 250k, 1M, 2M triangles

/// A closed torus (radii 3 and 1) of 2 nu nv triangles; its corners are repeated per triangle
/// when written, as STL does.
void torus(unsigned nu, unsigned nv, qx7::dense2D<double>& pos, qx7::dense2D<unsigned>& connectM)
{
    const double pi = 3.14159265358979323846;
    pos.resize(3, std::size_t(nu) * nv);
    connectM.resize(3, 2 * std::size_t(nu) * nv);
    for (unsigned i = 0; i < nu; ++i)
        for (unsigned k = 0; k < nv; ++k)
        {
            const double u = 2 * pi * i / nu, v = 2 * pi * k / nv;
            const unsigned a = i * nv + k, b = ((i + 1) % nu) * nv + k;
            const unsigned c = ((i + 1) % nu) * nv + (k + 1) % nv, d = i * nv + (k + 1) % nv;
            double* p = pos.col(a);
            p[0] = (3 + std::cos(v)) * std::cos(u);
            p[1] = (3 + std::cos(v)) * std::sin(u);
            p[2] = std::sin(v);
            unsigned* e = connectM.col(2 * std::size_t(a));
            e[0] = a, e[1] = b, e[2] = c, e[3] = a, e[4] = c, e[5] = d;
        }
}

std::string bench_dir()
{
    const char* dir = std::getenv("STL_BENCH_DIR");
    return dir ? dir : "/tmp/meshutil_stl_bench";
}

std::string file_name(const std::string& dir, std::size_t nbr_tri, bool text)
{
    return dir + "/torus_" + std::to_string(nbr_tri) + (text ? ".txt.stl" : ".stl");
}

bool exists(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0;
}

/// Writes the tori that are not there yet; false on failure.
bool write_files(const std::string& dir)
{
    mkdir(dir.c_str(), 0777);
    for (const auto& s : sizes)
    {
        qx7::dense2D<double> pos;
        qx7::dense2D<unsigned> connectM;
        torus(s[0], s[1], pos, connectM);
        for (bool text : {false, true})
        {
            const std::string path = file_name(dir, connectM.cols(), text);
            if (!exists(path) && STL_output(path.c_str(), pos, connectM, text) != 0) return false;
        }
    }
    return true;
}

double cpu_seconds()
{
    return double(std::clock()) / CLOCKS_PER_SEC;
}

/// Plain reference: read the whole binary file, then give each distinct float triple a node
/// (open addressing on the exact bits, linear probing) and each corner its node.
bool hash_merge(const char* path, std::vector<double>& pos, std::vector<unsigned>& connectM)
{
    std::FILE* f = std::fopen(path, "rb");
    if (!f) return false;
    std::fseek(f, 0, SEEK_END);
    const long size = std::ftell(f);
    std::fseek(f, 0, SEEK_SET);
    std::vector<unsigned char> bytes(std::size_t(size > 0 ? size : 0));
    const bool ok = std::fread(bytes.data(), 1, bytes.size(), f) == bytes.size();
    std::fclose(f);
    if (!ok || bytes.size() < 84) return false;
    std::uint32_t nbr_tri;
    std::memcpy(&nbr_tri, bytes.data() + 80, 4);
    if (bytes.size() < 84 + 50 * std::size_t(nbr_tri)) return false;
    const std::size_t capacity = detail::hash_capacity(3 * std::size_t(nbr_tri));
    std::vector<unsigned> table(capacity, undefined_index);
    std::vector<std::uint32_t> keys; // 3 words per node
    keys.reserve(3 * std::size_t(nbr_tri));
    pos.clear();
    pos.reserve(9 * std::size_t(nbr_tri));
    connectM.resize(3 * std::size_t(nbr_tri));
    for (std::size_t t = 0; t < nbr_tri; ++t)
    {
        const unsigned char* r = bytes.data() + 84 + 50 * t + 12;
        for (int k = 0; k < 3; ++k)
        {
            std::uint32_t w[3];
            std::memcpy(w, r + 12 * k, 12);
            std::size_t h = detail::mix64((std::uint64_t(w[0]) << 32 | w[1]) ^
                                          (std::uint64_t(w[2]) * 0x9e3779b97f4a7c15ull)) &
                            (capacity - 1);
            unsigned node;
            for (;; h = (h + 1) & (capacity - 1))
            {
                node = table[h];
                if (node == undefined_index)
                {
                    node = table[h] = unsigned(keys.size() / 3);
                    keys.insert(keys.end(), w, w + 3);
                    float x[3];
                    std::memcpy(x, w, 12);
                    pos.insert(pos.end(), {double(x[0]), double(x[1]), double(x[2])});
                    break;
                }
                if (std::memcmp(&keys[3 * std::size_t(node)], w, 12) == 0) break;
            }
            connectM[3 * t + k] = node;
        }
    }
    return true;
}

// ------------------------------------------------------------------------------------ benchmarks

void read_stl(benchmark::State& state, bool text)
{
    const std::size_t nbr_tri =
        2 * std::size_t(sizes[state.range(0)][0]) * sizes[state.range(0)][1];
    const std::string path = file_name(bench_dir(), nbr_tri, text);
    qx7::dense2D<double> pos;
    qx7::dense2D<unsigned> connectM;
    for (auto _ : state)
        if (STL_input(path.c_str(), pos, connectM) != 0) state.SkipWithError("STL_input failed");
    struct stat st;
    stat(path.c_str(), &st);
    state.SetItemsProcessed(state.iterations() * std::int64_t(nbr_tri));
    state.SetBytesProcessed(state.iterations() * std::int64_t(st.st_size));
    state.counters["nodes"] = double(pos.cols());
}

void STL_input_binary(benchmark::State& state)
{
    read_stl(state, false);
}
void STL_input_text(benchmark::State& state)
{
    read_stl(state, true);
}

void write_stl(benchmark::State& state, bool text)
{
    qx7::dense2D<double> pos;
    qx7::dense2D<unsigned> connectM;
    torus(sizes[state.range(0)][0], sizes[state.range(0)][1], pos, connectM);
    const std::string path = bench_dir() + (text ? "/written.txt.stl" : "/written.stl");
    for (auto _ : state)
        if (STL_output(path.c_str(), pos, connectM, text) != 0)
            state.SkipWithError("STL_output failed");
    state.SetItemsProcessed(state.iterations() * std::int64_t(connectM.cols()));
    state.SetBytesProcessed(state.iterations() *
                            std::int64_t(text ? 0 : 84 + 50 * connectM.cols()));
    std::remove(path.c_str());
}

void STL_output_binary(benchmark::State& state)
{
    write_stl(state, false);
}
void STL_output_text(benchmark::State& state)
{
    write_stl(state, true);
}

void hash_merge_reference(benchmark::State& state)
{
    const std::size_t nbr_tri =
        2 * std::size_t(sizes[state.range(0)][0]) * sizes[state.range(0)][1];
    const std::string path = file_name(bench_dir(), nbr_tri, false);
    std::vector<double> pos;
    std::vector<unsigned> connectM;
    for (auto _ : state)
        if (!hash_merge(path.c_str(), pos, connectM)) state.SkipWithError("reference failed");
    state.SetItemsProcessed(state.iterations() * std::int64_t(nbr_tri));
    state.counters["nodes"] = double(pos.size() / 3);
}

BENCHMARK(STL_input_binary)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
BENCHMARK(hash_merge_reference)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
BENCHMARK(STL_input_text)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
BENCHMARK(STL_output_binary)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
BENCHMARK(STL_output_text)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    if (argc == 3 && std::strcmp(argv[1], "--write") == 0) return write_files(argv[2]) ? 0 : 1;
    if (argc == 3 &&
        (std::strcmp(argv[1], "--read") == 0 || std::strcmp(argv[1], "--reference") == 0))
    {
        // One timed read: "<cpu seconds> <nodes> <triangles>".
        const bool ours = std::strcmp(argv[1], "--read") == 0;
        qx7::dense2D<double> pos;
        qx7::dense2D<unsigned> connectM;
        std::vector<double> ref_pos;
        std::vector<unsigned> ref_connectM;
        const double t0 = cpu_seconds();
        const bool ok = ours ? STL_input(argv[2], pos, connectM) == 0
                             : hash_merge(argv[2], ref_pos, ref_connectM);
        const double t1 = cpu_seconds();
        if (!ok) return std::fprintf(stderr, "cannot read %s\n", argv[2]), 1;
        std::printf("%.3f %zu %zu\n", t1 - t0, ours ? pos.cols() : ref_pos.size() / 3,
                    ours ? connectM.cols() : ref_connectM.size() / 3);
        return 0;
    }
    if (!write_files(bench_dir())) return std::fprintf(stderr, "cannot write the tori\n"), 1;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
