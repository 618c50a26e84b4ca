// Connectivity benchmarks on generated meshes: a cube split into tetrahedra (1M and 4M), a
// hexahedral grid (1M), a triangulated torus (2M). Beside get_neighbors runs a plain reference
// that sorts every face by its sorted node list with std::sort and pairs equal neighbours, with
// fresh buffers in every iteration (second argument 0, as a plain program has them) and with
// buffers kept between iterations (1, page faults not counted). Items are elements.
#include "../tests/connectivity/grid_meshes.h"

#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <cstdint>
#include <meshutil/connectivity.h>
#include <vector>

using namespace qx7;
using namespace qx7::meshutil;
namespace gm = qx7::meshutil::test_meshes;

namespace
{

enum mesh_id
{
    tet_1M,
    tet_4M,
    hex_1M,
    torus_2M
};

struct bench_mesh
{
    dense2D<unsigned> connectM;
    element_type type;
};

/// The meshes, generated once per program run.
const bench_mesh& mesh(int id)
{
    static bench_mesh meshes[4];
    bench_mesh& m = meshes[id];
    if (m.connectM.empty())
    {
        switch (id)
        {
        case tet_1M: // 55^3 cubes x 6 = 998,250 tetrahedra
            m = {gm::tetra_cube(55, 55, 55), EL_TETRA4};
            break;
        case tet_4M: // 87^3 x 6 = 3,950,766 tetrahedra
            m = {gm::tetra_cube(87, 87, 87), EL_TETRA4};
            break;
        case hex_1M:
            m = {gm::hexa_grid(100, 100, 100), EL_HEXA8};
            break;
        default:
            m = {gm::torus_triangles(1000, 1000), EL_TRIA3};
            break;
        }
    }
    return m;
}

const char* mesh_name(int id)
{
    static const char* names[4] = {"tetra_1M", "tetra_4M", "hexa_1M", "torus_tria_2M"};
    return names[id];
}

void set_label(benchmark::State& state, int id)
{
    state.SetLabel(mesh_name(id));
    state.SetItemsProcessed(std::int64_t(state.iterations()) * mesh(id).connectM.cols());
}

// ------------------------------------------------------------------------------------ reference

/// Plain face pairing: one record per face (its K nodes sorted, then element and local face),
/// std::sort, equal neighbours linked both ways.
template <unsigned K>
struct face_record
{
    std::array<unsigned, K> key;
    unsigned e, k;
};

template <unsigned K>
void sort_reference(const dense2D<unsigned>& M, const local_boundaries& t,
                    std::vector<face_record<K>>& faces, std::vector<unsigned>& neighbors)
{
    using record = face_record<K>;
    const std::size_t n = M.cols();
    faces.clear();
    faces.reserve(n * t.count);
    for (std::size_t e = 0; e < n; ++e)
    {
        const unsigned* p = M.col(e);
        for (unsigned k = 0; k < t.count; ++k)
        {
            record r;
            for (unsigned i = 0; i < K; ++i)
                r.key[i] = p[t.nodes[k][i]];
            std::sort(r.key.begin(), r.key.end());
            r.e = unsigned(e);
            r.k = k;
            faces.push_back(r);
        }
    }
    std::sort(faces.begin(), faces.end(),
              [](const record& a, const record& b) { return a.key < b.key; });
    neighbors.assign(n * t.count, undefined_index);
    for (std::size_t i = 0; i + 1 < faces.size(); ++i)
        if (faces[i].key == faces[i + 1].key)
        {
            neighbors[faces[i].e * t.count + faces[i].k] = faces[i + 1].e;
            neighbors[faces[i + 1].e * t.count + faces[i + 1].k] = faces[i].e;
            ++i;
        }
}

/// With warm false the buffers are fresh in every iteration (as a plain program would have
/// them); with warm true they are kept between iterations, so that page faults are not counted.
template <unsigned K>
void run_reference(benchmark::State& state, const bench_mesh& m, const local_boundaries& t,
                   bool warm)
{
    std::vector<face_record<K>> faces;
    std::vector<unsigned> neighbors;
    for (auto _ : state)
    {
        sort_reference<K>(m.connectM, t, faces, neighbors);
        benchmark::DoNotOptimize(neighbors.data());
        if (!warm)
        {
            std::vector<face_record<K>>().swap(faces);
            std::vector<unsigned>().swap(neighbors);
        }
    }
}

void BM_sort_reference(benchmark::State& state)
{
    const int id = int(state.range(0));
    const bool warm = state.range(1) != 0;
    const bench_mesh& m = mesh(id);
    if (m.type == EL_TETRA4)
        run_reference<3>(state, m, tetra_boundaries, warm);
    else if (m.type == EL_HEXA8)
        run_reference<4>(state, m, hexa_boundaries, warm);
    else
        run_reference<2>(state, m, tria_boundaries, warm);
    set_label(state, id);
}

// ------------------------------------------------------------------------------------ ours

void BM_get_neighbors(benchmark::State& state)
{
    const int id = int(state.range(0));
    const bench_mesh& m = mesh(id);
    dense2D<unsigned> neighbors;
    for (auto _ : state)
    {
        if (get_neighbors(m.connectM, m.type, false, neighbors) != 0) state.SkipWithError("failed");
        benchmark::DoNotOptimize(neighbors.data());
        neighbors.clear_hard();
    }
    set_label(state, id);
}

void BM_get_mesh_boundaries(benchmark::State& state)
{
    const int id = int(state.range(0));
    const bench_mesh& m = mesh(id);
    dense2D<unsigned> neighbors, boundaries;
    if (get_neighbors(m.connectM, m.type, false, neighbors) != 0) state.SkipWithError("failed");
    for (auto _ : state)
    {
        boundaries.clear();
        if (get_mesh_boundaries(m.connectM, neighbors, m.type, boundaries) != 0)
            state.SkipWithError("failed");
        benchmark::DoNotOptimize(boundaries.data());
    }
    set_label(state, id);
}

void BM_get_connected_elements(benchmark::State& state)
{
    const int id = int(state.range(0));
    const bench_mesh& m = mesh(id);
    dense1D<unsigned> first, elements;
    for (auto _ : state)
    {
        if (get_connected_elements(m.connectM, first, elements) != 0) state.SkipWithError("failed");
        benchmark::DoNotOptimize(elements.data());
    }
    set_label(state, id);
}

void BM_get_node_graph(benchmark::State& state)
{
    const int id = int(state.range(0));
    const bench_mesh& m = mesh(id);
    dense1D<unsigned> first, graph;
    for (auto _ : state)
    {
        if (get_node_graph(m.connectM, first, graph) != 0) state.SkipWithError("failed");
        benchmark::DoNotOptimize(graph.data());
    }
    set_label(state, id);
}

} // namespace

BENCHMARK(BM_get_neighbors)->DenseRange(0, 3)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_get_mesh_boundaries)->DenseRange(0, 3)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_get_connected_elements)
    ->DenseRange(0, 3)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_get_node_graph)->DenseRange(0, 3)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_sort_reference)
    ->ArgsProduct({{0, 1, 2, 3}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

BENCHMARK_MAIN();
