// The propagation engine of the size gradation (never installed): a lazy max-heap of edges
// ordered by their gradation measure (size shock, or size variation per unit length), node
// stamps that invalidate older entries, direction bytes, and frozen nodes. Instantiated by the
// exported gradation functions, and by the benchmarks to read the engine's counters.
#pragma once

#include "metrics/metrics_private.h"
#include "quality/quality_private.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <meshutil/connectivity.h>

namespace qx7::meshutil::detail
{

/// Counters of one gradation run.
struct gradation_counters
{
    std::size_t pushes = 0;    ///< entries put into the queue
    std::size_t pops = 0;      ///< entries taken out of the queue
    std::size_t stale = 0;     ///< entries discarded by the stamp test
    std::size_t peak = 0;      ///< largest queue size (seeds not yet reached and heap)
    std::size_t heap_peak = 0; ///< largest heap size
    std::size_t updates = 0;   ///< successful node modifications
};

/// Queue entry: the edge's measure as a float, the stamp at which it was made, the node to
/// modify and its neighbour. 16 bytes.
struct gradation_entry
{
    float key;
    unsigned stamp;
    unsigned node;
    unsigned neighbour;
};
static_assert(sizeof(gradation_entry) == 16, "queue entries are 16 bytes");

/// True when entry a comes out of the queue before entry b: a larger key, or an equal key and an
/// older entry (a smaller stamp). Equal keys are common: a move leaves its node's edges with
/// shocks that depend only on the sizes and lengths involved, and on regular meshes hundreds of
/// thousands of entries can share one key. Treating the oldest first makes fewer moves: on the
/// random size fields of the benchmarks (27k to 2M nodes), 3 to 7 % fewer than the order a plain
/// heap happens to give, and 5 to 12 % fewer than the newest first.
inline bool comes_before(const gradation_entry& a, const gradation_entry& b) noexcept
{
    return a.key > b.key || (a.key == b.key && a.stamp < b.stamp);
}

/// Binary max-heap in the order of comes_before. A new entry, never older than those in the
/// heap, rises only past parents with a strictly smaller key; an older one (from the bands of
/// gradation_queue) also past parents with its key and a newer stamp.
/// Stored from slot 1 (slot 0 unused) in 64-byte aligned memory, so that the two children of a
/// node share 32 bytes and its four grandchildren one cache line; the removal prefetches the four
/// lines three levels below the current node, hiding most of the memory latency of deep heaps.
class gradation_heap
{
public:
    /// Capacity for n entries; false when memory cannot be had.
    bool reserve(std::size_t n) noexcept { return m_v.reserve(n + 1); }
    /// Adds an entry; false when memory cannot be had.
    bool push(const gradation_entry& e) noexcept
    {
        if (m_v.empty() && !m_v.push_back(e)) return false; // the unused slot 0
        if (!m_v.push_back(e)) return false;
        gradation_entry* v = m_v.data();
        std::size_t k = m_v.size() - 1;
        while (k > 1)
        {
            const std::size_t parent = k >> 1;
            if (!comes_before(e, v[parent])) break;
            v[k] = v[parent];
            k = parent;
        }
        v[k] = e;
        return true;
    }
    bool empty() const noexcept { return m_v.size() <= 1; }
    /// The entry with the largest key. Precondition: not empty.
    const gradation_entry& top() const noexcept { return m_v[1]; }
    std::size_t size() const noexcept { return m_v.empty() ? 0 : m_v.size() - 1; }
    /// Removes and returns the entry with the largest key. Precondition: not empty.
    gradation_entry pop() noexcept
    {
        gradation_entry* v = m_v.data();
        const gradation_entry top = v[1];
        const std::size_t n = m_v.size() - 1; // slots 1 .. n-1 remain
        const gradation_entry last = v[n];
        m_v.resize(n);
        if (n == 1) return top;
        std::size_t k = 1;
        for (;;)
        {
            std::size_t c = 2 * k;
            if (c >= n) break;
            if (16 * k < n)
            {
                __builtin_prefetch(v + 16 * k);
                __builtin_prefetch(v + 16 * k + 4);
                __builtin_prefetch(v + 16 * k + 8);
                __builtin_prefetch(v + 16 * k + 12);
            }
            // Branch-free choice of the child that comes first (the right one only when it does);
            // slot n is still allocated, and ignored when it is not a child.
            c += std::size_t((c + 1 < n) & comes_before(v[c + 1], v[c]));
            if (!comes_before(v[c], last)) break;
            v[k] = v[c];
            k = c;
        }
        v[k] = last;
        return top;
    }

private:
    dense1D<gradation_entry, 64> m_v;
};

/// Entries waiting until their band of keys may hold the next entry (see gradation_queue): per band
/// a list of chunks of 32 entries, in the order the entries came. The chunks come from one pool and
/// go back to it when their band is emptied.
class gradation_bands
{
public:
    static constexpr unsigned shift = 20;                   ///< band = float bits >> shift
    static constexpr unsigned count = (1u << (31 - shift)); ///< bands of non-negative keys
    static constexpr unsigned chunk = 32;                   ///< entries per chunk

    /// Band of a non-negative key: its exponent and leading 3 bits of mantissa, so that a band
    /// spans a factor of at most 1.125 and the bands order as their keys.
    static unsigned band(float key) noexcept
    {
        std::uint32_t bits;
        std::memcpy(&bits, &key, sizeof bits);
        return bits >> shift;
    }

    /// Capacity for about n entries; false when memory cannot be had.
    bool reserve(std::size_t n) noexcept
    {
        if (!m_lists.resize(count, list{none, none, 0})) return false;
        const std::size_t chunks = n / chunk + 1;
        return m_pool.reserve(chunks * chunk) && m_link.reserve(chunks);
    }
    std::size_t size() const noexcept { return m_size; }
    bool empty() const noexcept { return m_size == 0; }
    /// Highest band holding entries. Precondition: not empty.
    unsigned top() const noexcept { return m_top; }

    /// Appends e to its band; false when memory cannot be had.
    bool add(const gradation_entry& e) noexcept
    {
        const unsigned b = band(e.key);
        list& l = m_lists[b];
        if (l.tail == none || l.fill == chunk)
        {
            unsigned c = m_free;
            if (c != none)
                m_free = m_link[c];
            else
            {
                c = unsigned(m_link.size());
                const std::size_t size = m_pool.size();
                if (!m_link.push_back(none) || !m_pool.reserve(size + chunk, size / 2 + chunk) ||
                    !m_pool.resize(size + chunk))
                    return false;
            }
            m_link[c] = none;
            if (l.tail == none)
                l.head = c;
            else
                m_link[l.tail] = c;
            l.tail = c;
            l.fill = 0;
        }
        m_pool[std::size_t(l.tail) * chunk + l.fill++] = e;
        if (m_size++ == 0 || b > m_top) m_top = b;
        return true;
    }

    /// Hands the entries of the top band to f in the order they came, and empties the band.
    /// Precondition: not empty.
    template <class Fn>
    bool take_top(Fn f) noexcept
    {
        list& l = m_lists[m_top];
        for (unsigned c = l.head; c != none;)
        {
            const unsigned n = c == l.tail ? l.fill : chunk;
            const gradation_entry* e = m_pool.data() + std::size_t(c) * chunk;
            for (unsigned k = 0; k < n; ++k)
                if (!f(e[k])) return false;
            m_size -= n;
            const unsigned next = m_link[c];
            m_link[c] = m_free;
            m_free = c;
            c = next;
        }
        l = {none, none, 0};
        if (m_size != 0)
            while (m_lists[m_top].head == none)
                --m_top;
        return true;
    }

private:
    static constexpr unsigned none = ~0u;
    struct list
    {
        unsigned head, tail, fill; ///< first and last chunk, entries in the last
    };
    dense1D<list> m_lists;
    dense1D<gradation_entry, 64> m_pool;
    dense1D<unsigned> m_link; ///< per chunk: the next chunk of its band, or of the free list
    unsigned m_free = none;
    unsigned m_top = 0;
    std::size_t m_size = 0;
};

/// Sorts v by key, largest first, keeping the order of equal keys: by insertion for a few
/// entries, else by `passes` radix passes of 11 bits over the key bits from the lowest up (the
/// keys are non-negative floats, whose bits order as they do); tmp is scratch. False when memory
/// cannot be had.
inline bool sort_by_key(dense1D<gradation_entry, 64>& v, dense1D<gradation_entry, 64>& tmp,
                        unsigned passes) noexcept
{
    const std::size_t n = v.size();
    if (n <= 32)
    {
        gradation_entry* e = v.data();
        for (std::size_t k = 1; k < n; ++k)
        {
            const gradation_entry x = e[k];
            std::size_t j = k;
            for (; j > 0 && e[j - 1].key < x.key; --j)
                e[j] = e[j - 1];
            e[j] = x;
        }
        return true;
    }
    if (!tmp.resize(n)) return false;
    for (unsigned pass = 0; pass < passes; ++pass)
    {
        const unsigned shift = 11 * pass;
        // Digits of the complemented bits, so that larger keys come first.
        auto digit = [shift](const gradation_entry& e)
        {
            std::uint32_t bits;
            std::memcpy(&bits, &e.key, sizeof bits);
            return (~bits >> shift) & 2047u;
        };
        const gradation_entry* from = v.data();
        gradation_entry* to = tmp.data();
        std::size_t count[2049] = {};
        for (std::size_t k = 0; k < n; ++k)
            ++count[digit(from[k]) + 1];
        for (unsigned d = 1; d <= 2048; ++d)
            count[d] += count[d - 1];
        for (std::size_t k = 0; k < n; ++k)
            to[count[digit(from[k])]++] = from[k];
        std::swap(v, tmp);
    }
    return true;
}

/// The queue of a run. The entry taken next is always the first in the order of comes_before
/// (the largest key, the oldest among equal keys, a seed first). The entries are kept in four
/// places, so that the binary heap, whose every level beyond the cache costs a memory wait per
/// removal, holds few of them:
/// - the seeds (the entries made before the propagation starts, one per node), sorted once by key
///   and read in order; most go stale before their turn;
/// - the binary heap, for the entries made during the propagation with a key in or above the
///   band of the entry last taken;
/// - the bands below it, where the other entries wait, each band in the order its entries came;
/// - the sorted band: once the highest band is not below the band of the heap's largest key nor
///   of the next seed's (only then may it hold the next entry), its entries are sorted by key
///   (a stable sort, so equal keys stay oldest first) and read in order, like the seeds. (If the
///   previous sorted band is not used up by then, the band enters the heap instead.)
/// Early in a run the seeds' huge shocks are treated while moves make entries with small ones,
/// which wait in their bands instead of deepening the heap. At 1M nodes about 70 % of the entries
/// made during the propagation are read from sorted bands without ever entering the heap, which
/// peaks at 127k entries (2.1M when every entry went through it).
class gradation_queue
{
public:
    /// Capacity for the seeds and for about `entries` entries made during the propagation; false
    /// when memory cannot be had.
    bool reserve(std::size_t seeds, std::size_t entries) noexcept
    {
        return m_seeds.reserve(seeds) && m_heap.reserve(entries / 8 + 16) &&
               m_bands.reserve(entries);
    }
    /// Adds an entry (a seed until start); false when memory cannot be had.
    bool push(const gradation_entry& e) noexcept
    {
        if (m_seeding) return m_seeds.push_back(e);
        if (gradation_bands::band(e.key) >= m_band) return m_heap.push(e);
        return m_bands.add(e);
    }
    /// Ends the seeding: sorts the seeds by key, largest first, keeping the order of equal keys;
    /// the heap's band starts at the largest seed's. False when memory cannot be had.
    bool start() noexcept
    {
        m_seeding = false;
        if (!sort_by_key(m_seeds, m_sorted, 3)) return false;
        m_sorted.clear();
        if (!m_seeds.empty()) m_band = gradation_bands::band(m_seeds[0].key);
        return true;
    }
    bool empty() const noexcept
    {
        return m_next == m_seeds.size() && m_sorted_next == m_sorted.size() && m_heap.empty() &&
               m_bands.empty();
    }
    std::size_t size() const noexcept
    {
        return m_seeds.size() - m_next + m_sorted.size() - m_sorted_next + m_heap.size() +
               m_bands.size();
    }
    std::size_t heap_size() const noexcept { return m_heap.size(); }
    /// Makes the next entry available to top and pop: takes the highest band out of waiting when
    /// it may hold the first entry, that is when its band is not below the band of the heap's top,
    /// of the sorted band's next entry nor of the next seed. False when memory cannot be had.
    /// Precondition: not empty.
    bool prepare() noexcept
    {
        if (m_bands.empty()) return true;
        const unsigned b = m_bands.top();
        const bool sorted_left = m_sorted_next < m_sorted.size();
        if (!m_heap.empty() && gradation_bands::band(m_heap.top().key) > b) return true;
        if (sorted_left && gradation_bands::band(m_sorted[m_sorted_next].key) > b) return true;
        if (m_next < m_seeds.size() && gradation_bands::band(m_seeds[m_next].key) > b) return true;
        if (sorted_left)
            return m_bands.take_top([this](const gradation_entry& e) { return m_heap.push(e); });
        m_sorted.clear();
        m_sorted_next = 0;
        return m_bands.take_top([this](const gradation_entry& e)
                                { return m_sorted.push_back(e); }) &&
               sort_by_key(m_sorted, m_scratch, 2); // a band fixes the bits above the lowest 22
    }
    /// The first entry. Precondition: prepared, not empty.
    const gradation_entry& top() const noexcept
    {
        switch (source())
        {
        case from_seeds:
            return m_seeds[m_next];
        case from_sorted:
            return m_sorted[m_sorted_next];
        default:
            return m_heap.top();
        }
    }
    /// Removes and returns the first entry; the entries made from now on below its band wait in
    /// the bands. Precondition: prepared, not empty.
    gradation_entry pop() noexcept
    {
        gradation_entry e;
        switch (source())
        {
        case from_seeds:
            e = m_seeds[m_next++];
            break;
        case from_sorted:
            e = m_sorted[m_sorted_next++];
            break;
        default:
            e = m_heap.pop();
        }
        m_band = gradation_bands::band(e.key);
        return e;
    }

private:
    enum place
    {
        from_seeds,
        from_sorted,
        from_heap
    };
    /// Where the first entry is: of the first entries of the three sorted places, the one that
    /// comes first, a seed on a tie.
    place source() const noexcept
    {
        place p = from_heap;
        const gradation_entry* best = nullptr;
        if (m_next < m_seeds.size())
        {
            p = from_seeds;
            best = &m_seeds[m_next];
        }
        if (m_sorted_next < m_sorted.size() &&
            (!best || comes_before(m_sorted[m_sorted_next], *best)))
        {
            p = from_sorted;
            best = &m_sorted[m_sorted_next];
        }
        if (!m_heap.empty() && (!best || comes_before(m_heap.top(), *best))) p = from_heap;
        return p;
    }

    dense1D<gradation_entry, 64> m_seeds;
    dense1D<gradation_entry, 64> m_sorted;  ///< the sorted band (sorting scratch for the seeds)
    dense1D<gradation_entry, 64> m_scratch; ///< sorting scratch for the sorted band
    gradation_heap m_heap;
    gradation_bands m_bands;
    std::size_t m_next = 0, m_sorted_next = 0;
    unsigned m_band = 0; ///< band of the entry last taken: new entries below it wait in m_bands
    bool m_seeding = true;
};

/// The measure as a queue key: capped at FLT_MAX before the conversion to float.
inline float gradation_key(double s) noexcept
{
    return float(std::min(s, double(FLT_MAX)));
}

/// The isotropic shock of an edge is exp(|h_j - h_i| / d) - 1 in exact arithmetic, since the
/// logarithmic mean of the sizes is |h_j - h_i| / |ln(h_j / h_i)|. As computed (the mean's series
/// below a 10 % difference is accurate to 3e-7, pow and log to a few ulps), the exponent is within
/// 1e-6 of its exact value relatively once the sizes differ by 1e-6 or more relatively, and the
/// pow(...) - 1 cancellation costs at most a few 1e-16 absolutely. So a gap below
/// (1 - 1e-5) ln(1 + g) per unit length gives a computed shock below g whenever g >= 1e-6: its
/// margin, at least 9e-6 ln(1 + g) (1 + g), dwarfs both errors. Returns that screen, or 0 (no
/// screening) for a smaller g.
inline double shock_screen(double g) noexcept
{
    return g >= 1e-6 && g < DBL_MAX ? std::log1p(g) * (1.0 - 1e-5) : 0.0;
}

/// True when an edge of length d between positive finite sizes hi and hj, differing by at least
/// 1e-6 relatively, has a gap below screen * d: its computed shock is then not above the g of
/// the screen (see shock_screen). False means nothing.
inline bool shock_clearly_below(double hi, double hj, double d, double screen) noexcept
{
    const double gap = std::fabs(hj - hi), low = std::min(hi, hj);
    return low > 0.0 && std::max(hi, hj) < DBL_MAX && d > 0.0 && d < DBL_MAX && gap >= 1e-6 * low &&
           gap < screen * d;
}

/// Size variation of an edge from its lengths li, lj in the end sizes and its field length L:
/// |li - lj| / (li lj), the difference of the two (directional) sizes over the Euclidean length;
/// L == 0 gives 0 for equal ends (`same`) and DBL_MAX otherwise; a non-finite L gives 0; a
/// non-finite result becomes DBL_MAX.
inline double variation_of_lengths(double li, double lj, double L, bool same) noexcept
{
    double s;
    if (L == 0.0)
        s = same ? 0.0 : DBL_MAX;
    else if (L < DBL_MAX)
        s = std::fabs(li - lj) / (li * lj);
    else
        s = 0.0;
    return std::isfinite(s) ? s : DBL_MAX;
}

/// Euclidean distance between two DIM-points.
template <unsigned DIM>
inline double distance(const double* a, const double* b) noexcept
{
    double e[DIM];
    for (unsigned k = 0; k < DIM; ++k)
        e[k] = b[k] - a[k];
    return std::sqrt(norm2<DIM>(e));
}

/// Largest t in a bracket [lo, hi] with f(t) == 0 for an increasing f with f(lo) <= 0 <= f(hi),
/// by regula falsi with the Illinois modification, started at `guess`; stops when |f| falls
/// below tol or the bracket below 1e-15.
template <class F>
inline double solve_increasing(F f, double lo, double hi, double guess, double tol) noexcept
{
    double flo = f(lo), fhi = f(hi);
    if (!(flo < 0.0)) return lo;
    if (!(fhi > 0.0)) return hi;
    double x = guess > lo && guess < hi ? guess : 0.5 * (lo + hi);
    int side = 0;
    for (int it = 0; it < 100; ++it)
    {
        const double fx = f(x);
        if (!(std::fabs(fx) > tol)) return x;
        if (fx < 0.0)
        {
            lo = x;
            flo = fx;
            if (side == -1) fhi *= 0.5;
            side = -1;
        }
        else
        {
            hi = x;
            fhi = fx;
            if (side == 1) flo *= 0.5;
            side = 1;
        }
        if (hi - lo <= 1e-15) break;
        x = (lo * fhi - hi * flo) / (fhi - flo);
        if (!(x > lo && x < hi)) x = 0.5 * (lo + hi);
    }
    return 0.5 * (lo + hi);
}

/// True when the packed N-D matrix m has positive Cholesky pivots (is positive definite).
template <int N>
inline bool positive_pivots(const double* m) noexcept
{
    if constexpr (N == 2)
        return m[0] > 0.0 && m[0] * m[2] - m[1] * m[1] > 0.0;
    else
    {
        if (!(m[0] > 0.0)) return false;
        const double l1 = m[1] / m[0], l2 = m[3] / m[0];
        const double p1 = m[2] - m[1] * l1;
        if (!(p1 > 0.0)) return false;
        const double l21 = (m[4] - m[3] * l1) / p1;
        return m[5] - m[3] * l2 - p1 * l21 * l21 > 0.0;
    }
}

/// The gradation measure of the edge from the node at xi with field value(s) fi (a size, or a
/// packed metric) to the node at xj with fj; order is +1 when the size at j (along the edge, for
/// metrics) is the larger, -1 when it is the smaller, 0 when they are equal.
template <unsigned DIM, bool ANISO, bool VARIATION>
inline double edge_measure(const double* xi, const double* xj, const double* fi, const double* fj,
                           int& order) noexcept
{
    if constexpr (!ANISO)
    {
        const double hi = *fi, hj = *fj;
        order = hj > hi ? 1 : hj < hi ? -1 : 0;
        if constexpr (!VARIATION)
            return iso_edge_shock<DIM>(xi, xj, hi, hj);
        else
        {
            double li, lj;
            const double L = iso_edge_length<DIM>(xi, xj, hi, hj, li, lj);
            return variation_of_lengths(li, lj, L, hi == hj);
        }
    }
    else
    {
        double e[DIM];
        for (unsigned k = 0; k < DIM; ++k)
            e[k] = xj[k] - xi[k];
        double li, lj;
        const double L = metric_edge_length<DIM>(e, fi, fj, li, lj);
        order = lj < li ? 1 : lj > li ? -1 : 0; // a shorter length is a larger size
        if (L == 0.0) return same_metric<DIM>(fi, fj) ? 0.0 : DBL_MAX;
        if constexpr (!VARIATION)
            return shock_of_lengths(li, lj, L, false);
        else
            return variation_of_lengths(li, lj, L, false);
    }
}

/// Bookkeeping of one node during a run, in one 16-byte record so that the stamp test, the list
/// bounds and the representative of a node cost one cache line (four neighbours share one).
struct gradation_node
{
    unsigned state;    ///< ~0u frozen, else the stamp of the last modification (0: never)
    unsigned rep;      ///< the node's representative slot (see gradation::run), or ~0u
    unsigned first;    ///< start of the node's list in the node graph
    unsigned char dir; ///< direction byte: 1 grow only, 255 shrink only, 0 not yet decided
};
static_assert(sizeof(gradation_node) == 16, "node records are 16 bytes");

/// The gradation of one field: DIM coordinates, isotropic sizes (ANISO false, one value per node)
/// or packed metrics (ANISO true), size shock (VARIATION false) or size variation.
///
/// A run works on its own copies: one record per node holding its coordinates followed by its
/// field value(s), so that a neighbour's position and size come in one cache line; the field is
/// copied back when the run ends. The propagation reads a few dozen scattered cache lines per
/// move, so the layout, not the arithmetic, sets its speed on large meshes.
template <unsigned DIM, bool ANISO, bool VARIATION>
class gradation
{
public:
    static constexpr int N = int(DIM);
    static constexpr unsigned F = ANISO ? unsigned(packed_size<N>) : 1u; ///< field values per node
    static constexpr unsigned R = DIM + F;                               ///< doubles per record
    static constexpr unsigned char up = 1, down = 255;

    /// first/graph: the node graph of the mesh (get_node_graph); g: the largest admissible measure.
    gradation(const unsigned* first, const unsigned* graph, double g) noexcept
        : m_graph(graph), m_first(first), m_g(g), m_step(VARIATION ? g : std::log1p(g)),
          m_screen(shock_screen(g))
    {
    }

    /// Runs the propagation over the nodes [0, n) of the graph: pos and field are column pointers
    /// with their leading dimensions (field: F values per node); `nodes` and `nodes_frozen` say
    /// which nodes are frozen (entries not below n are ignored); every direction byte starts at
    /// `direction`. Returns the number of distinct nodes modified, or -199 when memory cannot be
    /// had (the field is then left partly graded, as far as the run got).
    ///
    /// Every graph entry (i, k) is a slot holding the key of the entry that would move i towards
    /// k: the edge's measure, signed by the direction of the move (positive to grow), when the
    /// last move of i or k left it above g and the move is not already ruled out by the direction
    /// of i; else NaN (empty). A move of i rewrites the slots of i and the slot (k, i) of every
    /// free neighbour k; a slot whose entry was tried is emptied. So the entries that are not
    /// stale are exactly those of non-empty slots.
    ///
    /// Not every slot is queued. Each node has a representative, its best slot (key descending,
    /// then list position), which is always queued; a rewritten slot is queued only when it beats
    /// the representative, and becomes the new one; when the representative is tried, or
    /// rewritten, the node's next best slot takes its place and is queued. A slot waiting behind
    /// a larger key of its own node could not come out of the queue before that key anyway, so
    /// the entries are tried in the order in which they would be if every slot were queued (ties
    /// aside), with far fewer queued entries: most slots are rewritten or made stale by a move of
    /// their node before their turn. (A former representative that is still queued may be queued
    /// again: the second entry, if it is not stale, retries a move that just failed, and fails
    /// the same way.) Entries that could only fail without effect, because the node's direction
    /// is already fixed against the move (or the two sizes are equal), or, for sizes, because the
    /// move would be too small to be made and would leave the direction byte as it is (see
    /// futile), are not queued: popping them would change nothing.
    ///
    /// An entry carries the stamp of the latest modification made before it was queued: it is
    /// stale once either node has been modified after it, whatever their stamps were then.
    long run(const double* pos, std::size_t pos_ld, double* field, std::size_t field_ld,
             std::size_t n, const dense1D<unsigned>& nodes, bool nodes_frozen,
             unsigned char direction, gradation_counters& counters) noexcept
    {
        const std::size_t nbr_entries = m_first[n];
        if (!m_node_store.resize(n + 1) || !m_rec_store.resize(n * R) ||
            !m_keys_store.resize(nbr_entries) || !m_mirror_store.resize(nbr_entries))
            return -199;
        m_node = m_node_store.data();
        m_rec = m_rec_store.data();
        m_keys = m_keys_store.data();
        m_mirror = m_mirror_store.data();
        const unsigned free_state = nodes_frozen ? 0u : undefined_index;
        for (std::size_t i = 0; i <= n; ++i)
            m_node[i] = {free_state, undefined_index, m_first[i], direction};
        for (std::size_t k = 0, m = nodes.size(); k < m; ++k)
            if (nodes[k] < n) m_node[nodes[k]].state = nodes_frozen ? undefined_index : 0u;
        m_any_frozen = false;
        for (std::size_t i = 0; i < n; ++i)
            m_any_frozen |= m_node[i].state == undefined_index;
        for (std::size_t i = 0; i < n; ++i)
        {
            double* r = m_rec + i * R;
            for (unsigned k = 0; k < DIM; ++k)
                r[k] = pos[i * pos_ld + k];
            for (unsigned k = 0; k < F; ++k)
                r[DIM + k] = field[i * field_ld + k];
        }
        const long result = propagate(n, counters);
        for (std::size_t i = 0; i < n; ++i)
            if (m_node[i].state != 0 && m_node[i].state != undefined_index)
                for (unsigned k = 0; k < F; ++k)
                    field[i * field_ld + k] = m_rec[i * R + DIM + k];
        return result;
    }

private:
    static constexpr float empty = __builtin_nanf("");

    long propagate(std::size_t n, gradation_counters& counters) noexcept
    {
        gradation_queue queue;
        if (!queue.reserve(n, 3 * n + 16)) return -199;
        for (unsigned i = 0; i < n; ++i)
            for (unsigned k = m_first[i]; k < m_first[i + 1]; ++k)
                if (m_graph[k] > i)
                {
                    const unsigned m = find_slot(m_graph[k], i);
                    m_mirror[k] = m;
                    m_mirror[m] = k;
                }
        unsigned stamp = 0;
        for (unsigned i = 0; i < n; ++i)
        {
            if (m_node[i].state == undefined_index) continue;
            for (unsigned k = m_first[i]; k < m_first[i + 1]; ++k)
            {
                int order;
                double t;
                const double s = screened_measure(i, m_graph[k], order, t);
                keep(k, s, order, futile(i, t));
            }
            if (!push_best(queue, i, stamp, counters)) return -199;
        }
        if (!queue.start()) return -199;
        long count = 0;
        while (!queue.empty())
        {
            counters.peak = std::max(counters.peak, queue.size());
            if (!queue.prepare()) return -199;
            counters.heap_peak = std::max(counters.heap_peak, queue.heap_size());
            const gradation_entry e = queue.pop();
            ++counters.pops;
            if (!queue.empty())
            {
                if (!queue.prepare()) return -199;
                // The next entry's stamp test reads these: fetch them while this one is treated.
                const gradation_entry& next = queue.top();
                __builtin_prefetch(m_node + next.node);
                __builtin_prefetch(m_node + next.neighbour);
                __builtin_prefetch(rec(next.node));
                __builtin_prefetch(rec(next.neighbour));
            }
            const unsigned i = e.node, j = e.neighbour;
            const unsigned state_j = m_node[j].state;
            if (m_node[i].state > e.stamp || (state_j != undefined_index && state_j > e.stamp))
            {
                ++counters.stale;
                continue;
            }
            // The entry is the current value of its slot. A successful move rewrites every slot
            // of i, this one included; a failed one empties it.
            const unsigned begin = m_node[i].first, end = m_node[i + 1].first;
            __builtin_prefetch(m_graph + begin);
            __builtin_prefetch(m_graph + end - 1);
            __builtin_prefetch(m_mirror + begin);
            __builtin_prefetch(m_mirror + end - 1);
            __builtin_prefetch(m_keys + begin);
            __builtin_prefetch(m_keys + end - 1);
            if (!update(i, j))
            {
                const unsigned slot = find_slot(i, j);
                m_keys[slot] = empty;
                if (m_node[i].rep == slot && !push_best(queue, i, stamp, counters)) return -199;
                continue;
            }
            ++counters.updates;
            if (m_node[i].state == 0) ++count;
            m_node[i].state = ++stamp;
            for (unsigned k = begin; k < end; ++k)
            {
                const unsigned nb = m_graph[k];
                __builtin_prefetch(rec(nb));
                if constexpr (R * sizeof(double) > 64) __builtin_prefetch(rec(nb) + 8);
                __builtin_prefetch(m_node + nb);
                __builtin_prefetch(m_keys + m_mirror[k]);
            }
            for (unsigned k = begin; k < end; ++k)
            {
                const unsigned nb = m_graph[k];
                int order;
                double t;
                const double s = screened_measure(i, nb, order, t);
                keep(k, s, order, futile(i, t));
                gradation_node& node = m_node[nb];
                if (node.state == undefined_index) continue;
                const unsigned m = m_mirror[k];
                keep(m, s, -order, futile(nb, t) || !may_move(nb, -order));
                if (node.rep == m)
                {
                    if (!push_best(queue, nb, stamp, counters)) return -199;
                }
                else if (!std::isnan(m_keys[m]) &&
                         (node.rep == undefined_index ||
                          std::fabs(m_keys[m]) > std::fabs(m_keys[node.rep])))
                {
                    if (!queue.push({std::fabs(m_keys[m]), stamp, nb, i})) return -199;
                    ++counters.pushes;
                    node.rep = m;
                }
            }
            if (!push_best(queue, i, stamp, counters)) return -199;
            // Stamps must stay below the frozen marker; 4e9 modifications end the run.
            if (stamp == undefined_index - 1) break;
        }
        return count;
    }

    const double* rec(unsigned i) const noexcept { return m_rec + std::size_t(i) * R; }
    const double* x(unsigned i) const noexcept { return rec(i); }
    double* value(unsigned i) const noexcept { return m_rec + std::size_t(i) * R + DIM; }

    /// The gradation measure of the edge i -> j when it may exceed g; otherwise 0 or the measure
    /// (both not above g). Isotropic shocks clearly below g are recognised without pow and log.
    /// t receives the fraction that a move of either end towards the other would take (the same
    /// both ways, as update_size computes it), or 1 when that is not worked out here (metrics).
    double screened_measure(unsigned i, unsigned j, int& order, double& t) const noexcept
    {
        t = 1.0;
        if constexpr (!ANISO)
        {
            const double hi = *value(i), hj = *value(j);
            const double d = distance<DIM>(x(i), x(j));
            if constexpr (!VARIATION)
                if (shock_clearly_below(hi, hj, d, m_screen))
                {
                    order = hj > hi ? 1 : -1;
                    return 0.0;
                }
            t = fraction(hi, hj, d);
        }
        return edge_measure<DIM, ANISO, VARIATION>(x(i), x(j), value(i), value(j), order);
    }

    /// True when a move of `node` by the fraction t must fail without any effect: a fraction of
    /// at most 0.001 fails, and leaves the direction byte as it is when it is already set or
    /// when t is at most 1e-12 (see direction_allows). Such entries are not queued.
    bool futile(unsigned node, double t) const noexcept
    {
        return t <= 0.001 && (m_node[node].dir != 0 || t <= 1e-12);
    }

    /// Keeps the key of graph entry k (the edge from its node): the measure's key, positive for
    /// a move up and negative for a move down, when it exceeds g and the move is not futile; else
    /// empty (nothing to do along it).
    void keep(unsigned k, double s, int order, bool futile) noexcept
    {
        if (s > m_g && order != 0 && !futile)
            m_keys[k] = order > 0 ? gradation_key(s) : -gradation_key(s);
        else
            m_keys[k] = empty;
    }

    /// Position of neighbour j in the list of i (which holds it once), without branches.
    unsigned find_slot(unsigned i, unsigned j) const noexcept
    {
        const unsigned begin = m_node[i].first, end = m_node[i + 1].first;
        unsigned found = 0;
        for (unsigned k = begin; k < end; ++k)
            found += (m_graph[k] == j) ? k - begin : 0u;
        return begin + found;
    }

    /// Makes the best live slot of node i (key descending, then list position ascending) its
    /// representative and queues it with the given stamp. Slots whose move the direction of i
    /// forbids are passed over. False when the queue cannot grow.
    bool push_best(gradation_queue& queue, unsigned i, unsigned stamp,
                   gradation_counters& counters) noexcept
    {
        gradation_node& node = m_node[i];
        const unsigned begin = node.first, end = m_node[i + 1].first;
        const unsigned char d = node.dir;
        unsigned best = end;
        float best_key = -1.0f;
        for (unsigned k = begin; k < end; ++k)
        {
            const float key = m_keys[k], size = std::fabs(key);
            if (!(size > best_key)) continue; // empty slots (NaN) never are
            if (d != 0 && d != (std::signbit(key) ? down : up)) continue;
            best = k;
            best_key = size;
        }
        if (best == end)
        {
            node.rep = undefined_index;
            return true;
        }
        node.rep = best;
        ++counters.pushes;
        return queue.push({best_key, stamp, i, m_graph[best]});
    }

    /// False when a move of `node` towards a neighbour whose size compares as `order` (see
    /// edge_measure) must fail without any effect: equal sizes, or a direction already fixed the
    /// other way (the direction byte only changes from 0).
    bool may_move(unsigned node, int order) const noexcept
    {
        if (order == 0) return false;
        const unsigned char d = m_node[node].dir;
        return d == 0 || d == (order > 0 ? up : down);
    }
    /// The fraction of the move from size (or directional size) a towards b over an edge of
    /// length d that leaves the gap at the admissible d * step; 0 when there is no gap to close.
    double fraction(double a, double b, double d) const noexcept
    {
        const double gap = std::fabs(b - a);
        if constexpr (VARIATION)
        {
            if (!(gap > 1e-12 * d)) return 0.0;
        }
        else if (!(gap > 0.0))
            return 0.0;
        return std::max(0.0, 1.0 - m_step * d / gap);
    }

    /// Decides whether node i may move in direction `want` for the fraction t: a node without a
    /// direction takes `want` when t > 1e-12; the move needs t > 0.001 and the same direction.
    bool direction_allows(unsigned i, unsigned char want, double t) noexcept
    {
        bool allowed = false;
        if (t > 1e-12)
        {
            unsigned char& dir = m_node[i].dir;
            if (dir == 0) dir = want;
            allowed = dir == want;
        }
        return allowed && t > 0.001;
    }

    bool update(unsigned i, unsigned j) noexcept
    {
        if constexpr (ANISO)
            return update_metric(i, j);
        else
            return update_size(i, j);
    }

    /// Moves the size at i towards the size at j.
    bool update_size(unsigned i, unsigned j) noexcept
    {
        double& hi_ref = *value(i);
        const double hi = hi_ref, hj = *value(j);
        const double* xi = x(i);
        const double t = fraction(hi, hj, distance<DIM>(xi, x(j)));
        const unsigned char want = hj > hi ? up : down;
        if (!direction_allows(i, want, t)) return false;
        double hnew = hi + t * (hj - hi);
        if (m_any_frozen)
        {
            // Each frozen neighbour k admits sizes within d_k * step of its own: the move may not
            // leave that band on its far side.
            double bound = want == up ? HUGE_VAL : 0.0;
            for (unsigned k = m_node[i].first; k < m_node[i + 1].first; ++k)
            {
                const unsigned nb = m_graph[k];
                if (m_node[nb].state != undefined_index) continue;
                const double band = m_step * distance<DIM>(xi, x(nb)), hk = *value(nb);
                if (want == up)
                {
                    if (hk + band < bound) bound = hk + band;
                }
                else if (hk - band > bound)
                    bound = hk - band;
            }
            if (want == up)
            {
                if (!(bound > hi)) return false;
                hnew = std::min(hnew, bound);
            }
            else
            {
                if (!(bound < hi)) return false;
                hnew = std::max(hnew, bound);
            }
        }
        if (!(hnew > 0.0) || !(hnew < DBL_MAX)) return false;
        if (m_node[i].dir == up) hnew = std::max(hnew, hi);
        if (m_node[i].dir == down) hnew = std::min(hnew, hi);
        if (!(std::max(hi, hnew) / std::min(hi, hnew) > 1.000000000001)) return false;
        hi_ref = hnew;
        return true;
    }

    /// The path of the metric at i: sizes s1[k] + tau * ds[k] along the directions of the
    /// simultaneous reduction of (M_i, M_j).
    struct path
    {
        double s1[N], ds[N];
        const double* Pinv;
        /// Reduced coordinates Pinv e of an edge vector.
        void reduced(const double* e, double* c) const noexcept
        {
            for (int k = 0; k < N; ++k)
            {
                double s = 0.0;
                for (int m = 0; m < N; ++m)
                    s += Pinv[k + m * N] * e[m];
                c[k] = s;
            }
        }
        /// Size along the edge of length d with reduced coordinates c, at tau.
        double size_along(const double* c, double d, double tau) const noexcept
        {
            double q = 0.0;
            for (int k = 0; k < N; ++k)
            {
                const double s = s1[k] + tau * ds[k];
                q += c[k] * c[k] / (s * s);
            }
            return d / std::sqrt(q);
        }
    };

    /// Moves the metric at i towards the metric at j. In the directions p_k of their simultaneous
    /// reduction the sizes s1[k] of M_i move linearly towards the sizes s2[k] of M_j, but only
    /// those that move in the direction of the update (a growing node never shrinks in any
    /// direction, a shrinking one never grows). Along the edge the size of the moved metric then
    /// changes monotonically from that of M_i to at least (at most) that of M_j, and the fraction
    /// is the one at which the gap to M_j's size along the edge is d * step: the edge's measure
    /// becomes g. For two isotropic metrics this is exactly the isotropic update.
    bool update_metric(unsigned i, unsigned j) noexcept
    {
        double* Mi = value(i);
        const double* Mj = value(j);
        const double *xi = x(i), *xj = x(j);
        double e[DIM];
        for (unsigned k = 0; k < DIM; ++k)
            e[k] = xj[k] - xi[k];
        const double d = std::sqrt(norm2<DIM>(e));
        const double qi = metric_square<DIM>(Mi, e), qj = metric_square<DIM>(Mj, e);
        if (!(d > 0.0) || !(qi > 0.0) || !(qj > 0.0)) return false;
        const double hi = d / std::sqrt(qi), hj = d / std::sqrt(qj);
        const double t = fraction(hi, hj, d);
        const unsigned char want = hj > hi ? up : down;
        if (!direction_allows(i, want, t)) return false;

        reduction<N> r;
        if (!reduce<N>(Mi, Mj, r) || !positive_finite<N>(r.d1) || !positive_finite<N>(r.d2))
            return false;
        path p;
        p.Pinv = r.Pinv;
        for (int k = 0; k < N; ++k)
        {
            p.s1[k] = 1.0 / std::sqrt(r.d1[k]);
            const double delta = 1.0 / std::sqrt(r.d2[k]) - p.s1[k];
            p.ds[k] = want == up ? std::max(0.0, delta) : std::min(0.0, delta);
        }
        // Fraction along the path: the size along the edge reaches hj -/+ d * step.
        double c[N];
        p.reduced(e, c);
        const double target = want == up ? hj - m_step * d : hj + m_step * d;
        const double tol = 1e-13 * std::fabs(target);
        double tau = solve_increasing(
            [&](double s)
            {
                const double h = p.size_along(c, d, s);
                return want == up ? h - target : target - h;
            },
            0.0, 1.0, t, tol);

        if (m_any_frozen && !limit_by_frozen(i, p, want, tau)) return false;

        double dn[N];
        double ratio = 1.0;
        for (int k = 0; k < N; ++k)
        {
            const double s = p.s1[k] + tau * p.ds[k];
            dn[k] = 1.0 / (s * s);
            ratio = std::max(ratio, std::max(s, p.s1[k]) / std::min(s, p.s1[k]));
        }
        if (!positive_finite<N>(dn) || !(ratio > 1.000000000001)) return false;
        double Mn[packed_size<N>];
        rebuild<N>(r.Pinv, dn, Mn);
        if (!positive_pivots<N>(Mn)) return false;
        for (int k = 0; k < packed_size<N>; ++k)
            Mi[k] = Mn[k];
        return true;
    }

    /// Shortens the path fraction tau so that no edge to a frozen neighbour leaves the band of
    /// sizes that keeps its measure within g on the far side of the move; false when the move
    /// would start beyond such a band.
    bool limit_by_frozen(unsigned i, const path& p, unsigned char want, double& tau) const noexcept
    {
        const double* xi = x(i);
        for (unsigned k = m_node[i].first; k < m_node[i + 1].first; ++k)
        {
            const unsigned nb = m_graph[k];
            if (m_node[nb].state != undefined_index) continue;
            const double* xk = x(nb);
            double e[DIM];
            for (unsigned m = 0; m < DIM; ++m)
                e[m] = xk[m] - xi[m];
            const double d = std::sqrt(norm2<DIM>(e)), q = metric_square<DIM>(value(nb), e);
            if (!(d > 0.0) || !(q > 0.0)) continue;
            const double hk = d / std::sqrt(q);
            const double bound = want == up ? hk + m_step * d : hk - m_step * d;
            if (want == down && !(bound > 0.0)) continue;
            double c[N];
            p.reduced(e, c);
            const double h0 = p.size_along(c, d, 0.0), ht = p.size_along(c, d, tau);
            if (want == up)
            {
                if (!(bound > h0)) return false;
                if (!(ht > bound)) continue;
            }
            else
            {
                if (!(bound < h0)) return false;
                if (!(ht < bound)) continue;
            }
            tau = solve_increasing(
                [&](double s)
                {
                    const double h = p.size_along(c, d, s);
                    return want == up ? h - bound : bound - h;
                },
                0.0, tau, tau * (bound - h0) / (ht - h0), 1e-13 * bound);
        }
        return tau > 0.0;
    }

    const unsigned* m_graph;
    const unsigned* m_first;
    double m_g;
    double m_step;   ///< admissible size gap per unit length: ln(1 + g), or g for variations
    double m_screen; ///< gap per unit length below which an isotropic shock is below g
    bool m_any_frozen = false;
    dense1D<gradation_node, 64> m_node_store;
    dense1D<double, 64> m_rec_store;
    dense1D<float> m_keys_store;
    dense1D<unsigned> m_mirror_store;
    gradation_node* m_node = nullptr; ///< per node (and one past the last for the list end)
    double* m_rec = nullptr;          ///< per node: coordinates, then the field value(s)
    float* m_keys = nullptr;          ///< per graph entry: signed key of its slot, NaN when empty
    unsigned* m_mirror = nullptr;     ///< per graph entry (i, j): the position of i in j's list
};

/// Checks, set-up and run of a gradation; field points to the first value (or column) of a field
/// with the leading dimension field_ld, field_rows rows (1 for sizes) and field_entries entries.
template <bool ANISO, bool VARIATION>
int bound_gradation(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                    element_type FE_type, const dense1D<unsigned>& nodes, bool nodes_frozen,
                    int direction, double g, double* field, std::size_t field_ld,
                    std::size_t field_rows, std::size_t field_entries,
                    gradation_counters& counters) noexcept
{
    if (connectM.empty() || g == DBL_MAX) return 0;
    const std::size_t rows = pos.rows();
    if (rows != 2 && rows != 3) return -1;
    const std::size_t nbr_nodes = pos.cols();
    if (!check_IDs(connectM, FE_type, unsigned(nbr_nodes))) return -2;
    for (std::size_t k = 0, n = nodes.size(); k < n; ++k)
        if (nodes[k] >= nbr_nodes) return -4;
    if (!(g >= 0.0)) return -7;
    if (ANISO && field_rows != (rows == 2 ? 3u : 6u)) return -8;
    if (!(field_entries > max_ID(connectM))) return -8;

    dense1D<unsigned> first, graph;
    if (int code = get_node_graph(connectM, first, graph)) return code;
    const std::size_t n = first.size() - 1;
    const auto dir = static_cast<unsigned char>(direction & 0xff);
    long result;
    if (rows == 2)
        result =
            gradation<2, ANISO, VARIATION>(first.data(), graph.data(), g)
                .run(pos.col(0), pos.ld(), field, field_ld, n, nodes, nodes_frozen, dir, counters);
    else
        result =
            gradation<3, ANISO, VARIATION>(first.data(), graph.data(), g)
                .run(pos.col(0), pos.ld(), field, field_ld, n, nodes, nodes_frozen, dir, counters);
    return int(result);
}

} // namespace qx7::meshutil::detail
