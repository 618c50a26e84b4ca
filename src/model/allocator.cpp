// The numeric allocator behind dense1D and dense2D buffers.
//
// Small blocks come from the C heap, 64-byte aligned. Large blocks (1 MiB and more) are mapped
// directly, 2 MiB aligned, and advised for transparent huge pages: on virtual machines a page
// fault costs several microseconds, and huge pages cut the number of faults by 512. Freed large
// blocks are kept in a small cache (at most 32 blocks, 1 GiB in all; the blocks kept longest ago
// make room for new ones) and handed out again for requests they fit without wasting more than
// half of them, so algorithms that allocate and free large scratch buffers call after call do not
// fault the same memory in again and again. The cache is the allocator's own business, guarded by
// a mutex: it never changes a result.
#include <cstdint>
#include <cstdlib>
#include <meshutil/containers.h>
#include <mutex>
#include <sys/mman.h>

namespace qx7
{
namespace
{

constexpr std::size_t small_alignment = 64;
constexpr std::size_t large_threshold = std::size_t(1) << 20;
constexpr std::size_t huge_page = std::size_t(2) << 20;
constexpr unsigned cache_slots = 32;
constexpr std::size_t cache_limit = std::size_t(1) << 30;

struct large_block
{
    void* p;
    std::size_t bytes;  // mapped size, a multiple of huge_page
    std::uint64_t when; // order in which the blocks were kept
};

struct block_cache
{
    std::mutex lock;
    large_block slots[cache_slots] = {};
    large_block lent[cache_slots] = {}; // kept blocks handed out for shorter requests
    std::size_t total = 0;
    std::uint64_t kept = 0;

    /// A kept block for a request of `bytes` (a multiple of huge_page): the smallest that fits
    /// without wasting more than half of it; nullptr when none does. The caller will free it
    /// with the size it asked for, so a longer block is noted as lent with its true size (or,
    /// when too many are out, cut down to the request).
    void* take(std::size_t bytes)
    {
        large_block found = {nullptr, 0, 0};
        {
            std::lock_guard<std::mutex> guard(lock);
            unsigned best = cache_slots;
            for (unsigned k = 0; k < cache_slots; ++k)
                if (slots[k].p && slots[k].bytes >= bytes && slots[k].bytes / 2 <= bytes &&
                    (best == cache_slots || slots[k].bytes < slots[best].bytes))
                    best = k;
            if (best == cache_slots) return nullptr;
            found = slots[best];
            total -= found.bytes;
            slots[best] = {nullptr, 0, 0};
            if (found.bytes == bytes) return found.p;
            for (auto& l : lent)
                if (!l.p)
                {
                    l = found;
                    return found.p;
                }
        }
        munmap(static_cast<char*>(found.p) + bytes, found.bytes - bytes);
        return found.p;
    }

    /// Takes back a block freed with the size `bytes` it was asked for: kept for reuse, making
    /// room by unmapping the blocks kept longest ago (the blocks of the latest calls are the
    /// likeliest to be asked for again), or unmapped when it alone exceeds the cache.
    void release(void* p, std::size_t bytes)
    {
        large_block evicted[cache_slots + 1];
        unsigned nbr_evicted = 0;
        {
            std::lock_guard<std::mutex> guard(lock);
            for (auto& l : lent)
                if (l.p == p)
                {
                    bytes = l.bytes;
                    l = {nullptr, 0, 0};
                    break;
                }
            if (bytes > cache_limit)
                evicted[nbr_evicted++] = {p, bytes, 0};
            else
                for (;;)
                {
                    unsigned free_slot = cache_slots, oldest = cache_slots;
                    for (unsigned k = 0; k < cache_slots; ++k)
                        if (!slots[k].p)
                            free_slot = k;
                        else if (oldest == cache_slots || slots[k].when < slots[oldest].when)
                            oldest = k;
                    if (free_slot != cache_slots && total + bytes <= cache_limit)
                    {
                        slots[free_slot] = {p, bytes, ++kept};
                        total += bytes;
                        break;
                    }
                    evicted[nbr_evicted++] = slots[oldest];
                    total -= slots[oldest].bytes;
                    slots[oldest] = {nullptr, 0, 0};
                }
        }
        for (unsigned k = 0; k < nbr_evicted; ++k)
            munmap(evicted[k].p, evicted[k].bytes);
    }

    void trim()
    {
        std::lock_guard<std::mutex> guard(lock);
        for (auto& s : slots)
            if (s.p)
            {
                munmap(s.p, s.bytes);
                s = {nullptr, 0, 0};
            }
        total = 0;
    }
};

// Built on first use and never destroyed, so that containers freed during static destruction
// still find it.
block_cache& cache()
{
    alignas(block_cache) static unsigned char storage[sizeof(block_cache)];
    static block_cache* c = new (storage) block_cache;
    return *c;
}

std::size_t mapped_size(std::size_t bytes)
{
    return (bytes + huge_page - 1) / huge_page * huge_page;
}

void* map_large(std::size_t size)
{
    // Over-map by one huge page and trim both ends to get a 2 MiB aligned block.
    std::size_t span = size + huge_page;
    void* raw = mmap(nullptr, span, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (raw == MAP_FAILED) return nullptr;
    auto base = reinterpret_cast<std::uintptr_t>(raw);
    std::uintptr_t aligned = (base + huge_page - 1) & ~(std::uintptr_t(huge_page) - 1);
    if (aligned > base) munmap(raw, aligned - base);
    std::size_t tail = (base + span) - (aligned + size);
    if (tail) munmap(reinterpret_cast<void*>(aligned + size), tail);
    void* p = reinterpret_cast<void*>(aligned);
#ifdef MADV_HUGEPAGE
    madvise(p, size, MADV_HUGEPAGE);
#endif
    return p;
}

} // namespace

void* __vector_num_alloc(std::size_t bytes) noexcept
{
    if (bytes == 0) bytes = 1;
    if (bytes > (std::size_t(1) << 62)) return nullptr;
    if (bytes < large_threshold)
    {
        std::size_t rounded = (bytes + small_alignment - 1) / small_alignment * small_alignment;
        return std::aligned_alloc(small_alignment, rounded);
    }
    std::size_t size = mapped_size(bytes);
    if (void* p = cache().take(size)) return p;
    return map_large(size);
}

void __vector_num_free(void* p, std::size_t bytes) noexcept
{
    if (!p) return;
    if (bytes == 0) bytes = 1;
    if (bytes < large_threshold)
    {
        std::free(p);
        return;
    }
    cache().release(p, mapped_size(bytes));
}

void __vector_num_trim() noexcept
{
    cache().trim();
}

} // namespace qx7
