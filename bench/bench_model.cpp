// Containers and ID utilities: the column-append helper, the counting sort into offset form, and
// the numeric allocator on large buffers (fresh pages against reused, huge-page-advised blocks).
#include <meshutil/elements.h>

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <random>

using namespace qx7::meshutil;

namespace
{

void append_column_records(benchmark::State& state)
{
    const std::size_t n = std::size_t(state.range(0));
    for (auto _ : state)
    {
        qx7::dense2D<unsigned> M;
        unsigned rec[3];
        for (std::size_t j = 0; j < n; ++j)
        {
            rec[0] = unsigned(j), rec[1] = unsigned(j + 1), rec[2] = unsigned(j + 2);
            if (!append_column(M, rec, 3)) state.SkipWithError("append failed");
        }
        benchmark::DoNotOptimize(M.data());
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t(n));
}
BENCHMARK(append_column_records)->Arg(1 << 20)->Arg(10000000)->Unit(benchmark::kMillisecond);

void sorted_order(benchmark::State& state)
{
    const std::size_t n = std::size_t(state.range(0));
    const unsigned distinct = unsigned(state.range(1));
    qx7::dense1D<unsigned> values(n), order, first;
    std::mt19937 gen(1);
    for (std::size_t i = 0; i < n; ++i)
        values[i] = gen() % distinct;
    for (auto _ : state)
    {
        if (get_sorted_order(values, order, first) != 0) state.SkipWithError("sort failed");
        benchmark::DoNotOptimize(order.data());
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t(n));
}
BENCHMARK(sorted_order)->Args({10000000, 1000})->Args({10000000, 10000000})
    ->Unit(benchmark::kMillisecond);

// Allocate, touch every byte, free: the cost of getting memory that is really usable.
constexpr std::size_t big = std::size_t(200) << 20;

void touch(char* p, std::size_t bytes)
{
    for (std::size_t k = 0; k < bytes; k += 4096)
        p[k] = 1;
    benchmark::ClobberMemory();
}

void alloc_touch_malloc(benchmark::State& state)
{
    for (auto _ : state)
    {
        char* p = static_cast<char*>(std::malloc(big));
        touch(p, big);
        std::free(p);
    }
    state.SetBytesProcessed(state.iterations() * std::int64_t(big));
}
BENCHMARK(alloc_touch_malloc)->Unit(benchmark::kMillisecond)->Iterations(5);

void alloc_touch_numeric_allocator(benchmark::State& state)
{
    qx7::__vector_num_trim();
    for (auto _ : state)
    {
        char* p = static_cast<char*>(qx7::__vector_num_alloc(big));
        touch(p, big);
        qx7::__vector_num_free(p, big);
    }
    state.SetBytesProcessed(state.iterations() * std::int64_t(big));
}
BENCHMARK(alloc_touch_numeric_allocator)->Unit(benchmark::kMillisecond)->Iterations(5);

void alloc_touch_numeric_allocator_first_use(benchmark::State& state)
{
    for (auto _ : state)
    {
        qx7::__vector_num_trim(); // no block to reuse: fresh huge pages every time
        char* p = static_cast<char*>(qx7::__vector_num_alloc(big));
        touch(p, big);
        qx7::__vector_num_free(p, big);
    }
    state.SetBytesProcessed(state.iterations() * std::int64_t(big));
}
BENCHMARK(alloc_touch_numeric_allocator_first_use)->Unit(benchmark::kMillisecond)->Iterations(5);

} // namespace

BENCHMARK_MAIN();
