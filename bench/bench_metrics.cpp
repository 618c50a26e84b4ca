// Benchmarks of the metric family on a structured tetrahedral mesh of the unit cube.
#include "metrics/gradation_engine.h"

#include <benchmark/benchmark.h>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <meshutil/metrics.h>
#include <meshutil/quality.h>

using namespace qx7;
using namespace qx7::meshutil;
namespace md = qx7::meshutil::detail;

namespace
{

/// splitmix64 mapped to [0, 1) by hand (fixed seed, independent of the standard library).
struct rng
{
    std::uint64_t state;
    std::uint64_t next()
    {
        std::uint64_t z = (state += 0x9e3779b97f4a7c15ull);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
        return z ^ (z >> 31);
    }
    double uniform() { return double(next() >> 11) * (1.0 / 9007199254740992.0); }
};

/// n x n x n nodes on the unit cube, every cell split into 6 tetrahedra around its main diagonal.
void cube_mesh(unsigned n, dense2D<double>& pos, dense2D<unsigned>& connectM)
{
    const unsigned c = n - 1;
    pos.resize(3, std::size_t(n) * n * n);
    connectM.resize(4, std::size_t(6) * c * c * c);
    const double h = 1.0 / c;
    for (unsigned k = 0; k < n; ++k)
        for (unsigned j = 0; j < n; ++j)
            for (unsigned i = 0; i < n; ++i)
            {
                double* p = pos.col(i + n * (j + std::size_t(n) * k));
                p[0] = i * h;
                p[1] = j * h;
                p[2] = k * h;
            }
    const unsigned step[3] = {1, n, n * n};
    const unsigned perms[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
    std::size_t e = 0;
    for (unsigned k = 0; k < c; ++k)
        for (unsigned j = 0; j < c; ++j)
            for (unsigned i = 0; i < c; ++i)
            {
                const unsigned v0 = i + n * (j + n * k);
                for (const auto& p : perms)
                {
                    unsigned* t = connectM.col(e++);
                    t[0] = v0;
                    t[1] = v0 + step[p[0]];
                    t[2] = t[1] + step[p[1]];
                    t[3] = t[2] + step[p[2]];
                }
            }
}

/// Node count per side for about `nodes` nodes.
unsigned side_for(std::int64_t nodes)
{
    return unsigned(std::lround(std::cbrt(double(nodes))));
}

/// n random valid 3-D metrics with sizes log-uniform in [hmin, hmax] along random axes.
void random_metrics(std::size_t n, double hmin, double hmax, std::uint64_t seed, dense2D<double>& M)
{
    rng r{seed};
    M.resize(6, n);
    const double la = std::log(hmin), lb = std::log(hmax);
    for (std::size_t j = 0; j < n; ++j)
    {
        // Random rotation from a unit quaternion, sizes along its axes.
        double q[4], s = 0.0;
        for (double& x : q)
        {
            x = 2.0 * r.uniform() - 1.0;
            s += x * x;
        }
        s = std::sqrt(s);
        const double w = q[0] / s, x = q[1] / s, y = q[2] / s, z = q[3] / s;
        const double R[9] = {
            1 - 2 * (y * y + z * z), 2 * (x * y + w * z),     2 * (x * z - w * y),
            2 * (x * y - w * z),     1 - 2 * (x * x + z * z), 2 * (y * z + w * x),
            2 * (x * z + w * y),     2 * (y * z - w * x),     1 - 2 * (x * x + y * y)};
        double l[3];
        for (double& v : l)
        {
            const double hh = std::exp(la + (lb - la) * r.uniform());
            v = 1.0 / (hh * hh);
        }
        double* m = M.col(j);
        const int idx[6][2] = {{0, 0}, {0, 1}, {1, 1}, {0, 2}, {1, 2}, {2, 2}};
        for (int t = 0; t < 6; ++t)
        {
            double v = 0.0;
            for (int k = 0; k < 3; ++k)
                v += l[k] * R[idx[t][0] + 3 * k] * R[idx[t][1] + 3 * k];
            m[t] = v;
        }
    }
}

void BM_metrics_gen_iso(benchmark::State& state)
{
    dense2D<double> pos;
    dense2D<unsigned> connectM;
    cube_mesh(side_for(state.range(0)), pos, connectM);
    dense1D<double> sizes;
    for (auto _ : state)
    {
        int code = metrics_gen_iso(pos, connectM, EL_TETRA4, sizes, 1.0);
        benchmark::DoNotOptimize(code);
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t(pos.cols()));
    state.counters["elements"] = double(connectM.cols());
}
BENCHMARK(BM_metrics_gen_iso)->Arg(1000000)->Unit(benchmark::kMillisecond);

void BM_bound_metrics_3d(benchmark::State& state)
{
    dense2D<double> M0, M;
    random_metrics(std::size_t(state.range(0)), 0.001, 1.0, 1, M0);
    int changed = 0;
    for (auto _ : state)
    {
        state.PauseTiming();
        M.copy(M0);
        state.ResumeTiming();
        changed = bound_metrics(M, 0.01, 0.5);
        benchmark::DoNotOptimize(changed);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.counters["changed"] = changed;
}
BENCHMARK(BM_bound_metrics_3d)->Arg(1000000)->Unit(benchmark::kMillisecond);

void BM_are_valid_metrics_3d(benchmark::State& state)
{
    dense2D<double> M;
    random_metrics(std::size_t(state.range(0)), 0.001, 1.0, 2, M);
    for (auto _ : state)
    {
        bool ok = are_valid_metrics(M);
        benchmark::DoNotOptimize(ok);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_are_valid_metrics_3d)->Arg(1000000)->Unit(benchmark::kMillisecond);

/// Process CPU time in seconds (the machine is shared: wall time says little).
double cpu_seconds()
{
    timespec t;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

/// CPU seconds of one H_shock pass over all edges of the mesh (the yardstick of the gradation).
double shock_pass_seconds(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                          const dense1D<double>& sizes, std::size_t& nbr_edges)
{
    dense2D<unsigned> edges;
    copy_edges(connectM, EL_TETRA4, edges);
    nbr_edges = edges.cols();
    dense1D<double> shocks;
    H_shock(pos, edges, sizes, shocks); // warm-up: first touch of the output
    double best = HUGE_VAL;
    for (int k = 0; k < 3; ++k)
    {
        const double t0 = cpu_seconds();
        H_shock(pos, edges, sizes, shocks);
        best = std::min(best, cpu_seconds() - t0);
    }
    return best;
}

/// Log-uniform sizes in [0.001, 1].
void random_sizes(std::size_t n, std::uint64_t seed, dense1D<double>& h)
{
    rng r{seed};
    h.resize(n);
    const double la = std::log(0.001);
    for (std::size_t j = 0; j < n; ++j)
        h[j] = std::exp(la * (1.0 - r.uniform()));
}

/// Engine counters of one run on a copy of the field (not timed).
template <bool ANISO>
md::gradation_counters count_run(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                                 double* field, std::size_t ld, std::size_t rows,
                                 std::size_t entries)
{
    md::gradation_counters c;
    const dense1D<unsigned> none;
    md::bound_gradation<ANISO, false>(pos, connectM, EL_TETRA4, none, true, 0, 0.2, field, ld, rows,
                                      entries, c);
    return c;
}

void BM_gradation_iso(benchmark::State& state)
{
    dense2D<double> pos;
    dense2D<unsigned> connectM;
    cube_mesh(side_for(state.range(0)), pos, connectM);
    dense1D<double> h0, h;
    random_sizes(pos.cols(), 3, h0);
    const dense1D<unsigned> none;
    // The first call in the process runs untimed and is reported apart (first_call_ms): it
    // faults its scratch memory in, which on virtual machines costs far more than elsewhere (the
    // host backs the pages on first touch). The timed calls reuse that memory.
    h.copy(h0);
    double cpu = cpu_seconds();
    int modified = bound_metric_gradations(pos, connectM, EL_TETRA4, none, true, 0, 0.2, h);
    state.counters["first_call_ms"] = 1e3 * (cpu_seconds() - cpu);
    // The timed calls are reported by their fastest (call_ms): shared virtual machines add noise
    // of 10 % and more from one call to the next, and the fastest call is the best estimate of
    // the cost of the work itself. Growth figures compare the call_ms of the two sizes.
    double best = HUGE_VAL;
    for (auto _ : state)
    {
        state.PauseTiming();
        h.copy(h0);
        state.ResumeTiming();
        const double t0 = cpu_seconds();
        modified = bound_metric_gradations(pos, connectM, EL_TETRA4, none, true, 0, 0.2, h);
        best = std::min(best, cpu_seconds() - t0);
        benchmark::DoNotOptimize(modified);
    }
    std::size_t nbr_edges = 0;
    const double pass = shock_pass_seconds(pos, connectM, h0, nbr_edges);
    state.counters["call_ms"] = 1e3 * best;
    state.counters["edges"] = double(nbr_edges);
    state.counters["H_shock_ms"] = 1e3 * pass;
    state.counters["x_H_shock"] = best / pass;
    h.copy(h0);
    const md::gradation_counters c = count_run<false>(pos, connectM, h.data(), 1, 1, h.size());
    state.SetItemsProcessed(state.iterations() * std::int64_t(pos.cols()));
    state.counters["nodes"] = double(pos.cols());
    state.counters["modified"] = modified;
    state.counters["pushes"] = double(c.pushes);
    state.counters["pops"] = double(c.pops);
    state.counters["stale"] = double(c.stale);
    state.counters["peak"] = double(c.peak);
    state.counters["heap_peak"] = double(c.heap_peak);
    state.counters["updates"] = double(c.updates);
}
BENCHMARK(BM_gradation_iso)
    ->Arg(250000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

/// The growth of the isotropic gradation from 250k to 1M nodes, measured with the calls of the
/// two sizes interleaved (after one untimed call of each), so that both see the same machine:
/// on a shared virtual machine the cost of memory drifts by 10 % and more within minutes, which
/// two benchmarks run one after the other turn into a ratio error of that size. Reports the
/// fastest of three calls of each size and their ratio.
void BM_gradation_iso_growth(benchmark::State& state)
{
    struct problem
    {
        dense2D<double> pos;
        dense2D<unsigned> connectM;
        dense1D<double> h0, h;
        double best = HUGE_VAL;
    } sizes[2];
    const std::int64_t nodes[2] = {250000, 1000000};
    for (int k = 0; k < 2; ++k)
    {
        cube_mesh(side_for(nodes[k]), sizes[k].pos, sizes[k].connectM);
        random_sizes(sizes[k].pos.cols(), 3, sizes[k].h0);
    }
    const dense1D<unsigned> none;
    int modified = 0;
    for (auto _ : state)
        for (int round = 0; round < 4; ++round) // round 0 untimed: first touch of the memory
            for (problem& p : sizes)
            {
                p.h.copy(p.h0);
                const double t0 = cpu_seconds();
                modified =
                    bound_metric_gradations(p.pos, p.connectM, EL_TETRA4, none, true, 0, 0.2, p.h);
                if (round > 0) p.best = std::min(p.best, cpu_seconds() - t0);
                benchmark::DoNotOptimize(modified);
            }
    state.counters["call_ms_250k"] = 1e3 * sizes[0].best;
    state.counters["call_ms_1M"] = 1e3 * sizes[1].best;
    state.counters["ratio"] = sizes[1].best / sizes[0].best;
}
BENCHMARK(BM_gradation_iso_growth)->Unit(benchmark::kMillisecond)->Iterations(1);

void BM_gradation_aniso_3d(benchmark::State& state)
{
    dense2D<double> pos;
    dense2D<unsigned> connectM;
    cube_mesh(side_for(state.range(0)), pos, connectM);
    dense2D<double> M0, M;
    random_metrics(pos.cols(), 0.001, 1.0, 4, M0);
    const dense1D<unsigned> none;
    int modified = 0;
    for (auto _ : state)
    {
        state.PauseTiming();
        M.copy(M0);
        state.ResumeTiming();
        modified = bound_metric_gradations(pos, connectM, EL_TETRA4, none, true, 0, 0.2, M);
        benchmark::DoNotOptimize(modified);
    }
    M.copy(M0);
    const md::gradation_counters c =
        count_run<true>(pos, connectM, M.col(0), M.ld(), M.rows(), M.cols());
    state.SetItemsProcessed(state.iterations() * std::int64_t(pos.cols()));
    state.counters["nodes"] = double(pos.cols());
    state.counters["modified"] = modified;
    state.counters["pushes"] = double(c.pushes);
    state.counters["pops"] = double(c.pops);
    state.counters["stale"] = double(c.stale);
    state.counters["peak"] = double(c.peak);
    state.counters["updates"] = double(c.updates);
}
BENCHMARK(BM_gradation_aniso_3d)->Arg(250000)->Unit(benchmark::kMillisecond)->Iterations(1);

} // namespace

BENCHMARK_MAIN();
