// Quality measures: shape qualities of 1M tetrahedra, hexahedra and triangles in space, edge
// qualities of the 1M-tetrahedron mesh in an isotropic and an anisotropic field, size shocks on
// its edges. compare_quality.py runs the shape benchmarks beside VTK's mesh-quality filter on
// the same meshes.
//
// Meshes: the unit cube in n^3 cells, interior nodes moved by a fixed smooth perturbation (no
// random generator, so that the comparison script builds the very same nodes), each cell split
// into six tetrahedra around its main diagonal or kept as a hexahedron; a wavy surface grid
// split into triangles.
#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdint>
#include <meshutil/quality.h>

using namespace qx7;
using namespace qx7::meshutil;

namespace
{

/// Nodes of the perturbed n^3-cell grid of the unit cube, node (i, j, k) at column
/// i + (n+1) (j + (n+1) k).
dense2D<double> grid_nodes(unsigned n)
{
    const unsigned m = n + 1;
    const double h = 1.0 / n;
    dense2D<double> pos(3, std::size_t(m) * m * m);
    for (unsigned k = 0; k < m; ++k)
        for (unsigned j = 0; j < m; ++j)
            for (unsigned i = 0; i < m; ++i)
            {
                double* p = pos.col(i + m * (j + m * k));
                const bool inner = i > 0 && j > 0 && k > 0 && i < n && j < n && k < n;
                const double a = inner ? 0.2 * h : 0.0;
                p[0] = i * h + a * std::sin(1.3 * i + 2.1 * j + 0.7 * k);
                p[1] = j * h + a * std::sin(0.9 * i + 1.7 * j + 2.9 * k);
                p[2] = k * h + a * std::sin(2.3 * i + 0.5 * j + 1.1 * k);
            }
    return pos;
}

/// Corner c (0..7, bottom 0-3 counter-clockwise, top 4-7) of cell (i, j, k).
unsigned corner(unsigned n, unsigned i, unsigned j, unsigned k, unsigned c)
{
    static const unsigned dx[8] = {0, 1, 1, 0, 0, 1, 1, 0}, dy[8] = {0, 0, 1, 1, 0, 0, 1, 1},
                          dz[8] = {0, 0, 0, 0, 1, 1, 1, 1};
    const unsigned m = n + 1;
    return (i + dx[c]) + m * ((j + dy[c]) + m * (k + dz[c]));
}

dense2D<unsigned> grid_hexahedra(unsigned n)
{
    dense2D<unsigned> M(8, std::size_t(n) * n * n);
    std::size_t col = 0;
    for (unsigned k = 0; k < n; ++k)
        for (unsigned j = 0; j < n; ++j)
            for (unsigned i = 0; i < n; ++i, ++col)
                for (unsigned c = 0; c < 8; ++c)
                    M(c, col) = corner(n, i, j, k, c);
    return M;
}

/// Six tetrahedra per cell around the diagonal 0-6, numbered so that det(P0-P3, P1-P3, P2-P3) > 0.
dense2D<unsigned> grid_tetrahedra(unsigned n)
{
    static const unsigned tets[6][4] = {{1, 0, 2, 6}, {2, 0, 3, 6}, {3, 0, 7, 6},
                                        {7, 0, 4, 6}, {4, 0, 5, 6}, {5, 0, 1, 6}};
    dense2D<unsigned> M(4, std::size_t(6) * n * n * n);
    std::size_t col = 0;
    for (unsigned k = 0; k < n; ++k)
        for (unsigned j = 0; j < n; ++j)
            for (unsigned i = 0; i < n; ++i)
                for (const auto& t : tets)
                {
                    for (unsigned c = 0; c < 4; ++c)
                        M(c, col) = corner(n, i, j, k, t[c]);
                    ++col;
                }
    return M;
}

/// A wavy surface z = 0.1 sin(3x) cos(2y) on an n x n grid, two triangles per cell.
void wavy_surface(unsigned n, dense2D<double>& pos, dense2D<unsigned>& tris)
{
    const unsigned m = n + 1;
    pos.resize(3, std::size_t(m) * m);
    for (unsigned j = 0; j < m; ++j)
        for (unsigned i = 0; i < m; ++i)
        {
            double* p = pos.col(i + m * j);
            p[0] = double(i) / n;
            p[1] = double(j) / n;
            p[2] = 0.1 * std::sin(3.0 * p[0]) * std::cos(2.0 * p[1]);
        }
    tris.resize(3, std::size_t(2) * n * n);
    std::size_t col = 0;
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i < n; ++i)
        {
            const unsigned a = i + m * j, b = a + 1, c = a + m + 1, d = a + m;
            unsigned* t = tris.col(col++);
            t[0] = a, t[1] = b, t[2] = c;
            t = tris.col(col++);
            t[0] = a, t[1] = c, t[2] = d;
        }
}

/// Isotropic sizes h = 0.02 (1 + x + y^2) and a rotated anisotropic metric field.
void size_fields(const dense2D<double>& pos, dense1D<double>& sizes, dense2D<double>& metrics)
{
    sizes.resize(pos.cols());
    metrics.resize(6, pos.cols());
    for (std::size_t j = 0; j < pos.cols(); ++j)
    {
        const double* p = pos.col(j);
        const double h = 0.02 * (1.0 + p[0] + p[1] * p[1]);
        sizes[j] = h;
        // diag(1/h^2, 4/h^2, 1/(4h^2)) rotated by t about z.
        const double t = 2.0 * p[2], c = std::cos(t), s = std::sin(t);
        const double l0 = 1 / (h * h), l1 = 4 / (h * h), l2 = 0.25 / (h * h);
        double* M = metrics.col(j);
        M[0] = c * c * l0 + s * s * l1;
        M[1] = c * s * (l0 - l1);
        M[2] = s * s * l0 + c * c * l1;
        M[3] = 0.0;
        M[4] = 0.0;
        M[5] = l2;
    }
}

constexpr unsigned tetra_n = 55; // 6 x 55^3 = 998,250 tetrahedra
constexpr unsigned hexa_n = 100; // 1,000,000 hexahedra
constexpr unsigned tria_n = 707; // 2 x 707^2 = 999,698 triangles

/// Items: the elements.
void shape_run(benchmark::State& state, const dense2D<double>& pos, const dense2D<unsigned>& M,
               element_type type)
{
    dense1D<double> q;
    for (auto _ : state)
    {
        if (shape_qualities(pos, M, type, q) != 0) state.SkipWithError("failed");
        benchmark::DoNotOptimize(q.data());
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t(M.cols()));
}

void shape_tetrahedra(benchmark::State& state)
{
    shape_run(state, grid_nodes(tetra_n), grid_tetrahedra(tetra_n), EL_TETRA4);
}
BENCHMARK(shape_tetrahedra)->Unit(benchmark::kMillisecond);

void shape_hexahedra(benchmark::State& state)
{
    shape_run(state, grid_nodes(hexa_n), grid_hexahedra(hexa_n), EL_HEXA8);
}
BENCHMARK(shape_hexahedra)->Unit(benchmark::kMillisecond);

/// The same hexahedra given as a mixed solid matrix (8 rows, every column a hexahedron): the
/// element-by-element path that mixed matrices take.
void mixed_shape_hexahedra(benchmark::State& state)
{
    shape_run(state, grid_nodes(hexa_n), grid_hexahedra(hexa_n), EL_SOLID_MIX);
}
BENCHMARK(mixed_shape_hexahedra)->Unit(benchmark::kMillisecond);

void shape_triangles_in_space(benchmark::State& state)
{
    dense2D<double> pos;
    dense2D<unsigned> M;
    wavy_surface(tria_n, pos, M);
    shape_run(state, pos, M, EL_TRIA3);
}
BENCHMARK(shape_triangles_in_space)->Unit(benchmark::kMillisecond);

/// Items: the distinct edges measured.
void edge_qualities_tetrahedra(benchmark::State& state)
{
    const bool anisotropic = state.range(0) != 0;
    const dense2D<double> pos = grid_nodes(tetra_n);
    const dense2D<unsigned> M = grid_tetrahedra(tetra_n);
    dense1D<double> sizes;
    dense2D<double> metrics;
    size_fields(pos, sizes, metrics);
    const dense2D<unsigned> none;
    int count = 0;
    for (auto _ : state)
    {
        misc::histogram histo(0.0, 3.0, 30);
        count = anisotropic ? edge_qualities(pos, M, EL_TETRA4, metrics, histo, none)
                            : edge_qualities(pos, M, EL_TETRA4, sizes, histo, none);
        if (count < 0) state.SkipWithError("failed");
        benchmark::DoNotOptimize(histo.sum());
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t(count));
    state.SetLabel(anisotropic ? "metrics" : "sizes");
}
BENCHMARK(edge_qualities_tetrahedra)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

/// Items: the edges.
void size_shocks_tetrahedra(benchmark::State& state)
{
    const bool anisotropic = state.range(0) != 0;
    const dense2D<double> pos = grid_nodes(tetra_n);
    dense2D<unsigned> edges;
    copy_edges(grid_tetrahedra(tetra_n), EL_TETRA4, edges);
    dense1D<double> sizes, shocks;
    dense2D<double> metrics;
    size_fields(pos, sizes, metrics);
    for (auto _ : state)
    {
        const int code =
            anisotropic ? H_shock(pos, edges, metrics, shocks) : H_shock(pos, edges, sizes, shocks);
        if (code != 0) state.SkipWithError("failed");
        benchmark::DoNotOptimize(shocks.data());
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t(edges.cols()));
    state.SetLabel(anisotropic ? "metrics" : "sizes");
}
BENCHMARK(size_shocks_tetrahedra)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

/// Items: the raw edges of the elements (six per tetrahedron).
void copy_edges_tetrahedra(benchmark::State& state)
{
    const dense2D<unsigned> M = grid_tetrahedra(tetra_n);
    dense2D<unsigned> edges;
    for (auto _ : state)
    {
        edges.clear();
        if (copy_edges(M, EL_TETRA4, edges) != 0) state.SkipWithError("failed");
        benchmark::DoNotOptimize(edges.data());
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t(6 * M.cols()));
}
BENCHMARK(copy_edges_tetrahedra)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
