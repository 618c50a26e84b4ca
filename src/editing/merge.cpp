// Node merging: the earliest-in-B rule over pairs found by a k-d tree, an exact-coordinate hash or
// a uniform grid; connectivity forms with edge collapsing modes.
#include "editing/editing_private.h"

#include <algorithm>
#include <cstring>

namespace qx7::meshutil
{

namespace detail
{

namespace
{

/// Whether two node lists hold the same values in the same order.
inline bool same_list(const dense1D<unsigned>& a, const dense1D<unsigned>& b) noexcept
{
    return a.size() == b.size() &&
           (a.data() == b.data() || std::equal(a.begin(), a.end(), b.begin()));
}

template <unsigned D>
inline bool has_nan(const double* p) noexcept
{
    for (unsigned i = 0; i < D; ++i)
        if (p[i] != p[i]) return true;
    return false;
}

/// Whether q lies in the closed box [p - tol, p + tol] and within Euclidean distance tol of p,
/// evaluated exactly as the tree search does (so every search path agrees to the bit).
template <unsigned D>
inline bool within(const double* p, const double* q, double tol) noexcept
{
    for (unsigned i = 0; i < D; ++i)
        if (!(q[i] >= p[i] - tol) || q[i] > p[i] + tol) return false;
    double d2 = 0.0;
    for (unsigned i = 0; i < D; ++i)
        d2 += (q[i] - p[i]) * (q[i] - p[i]);
    return !(std::sqrt(d2) > tol);
}

/// Map entries of B in order, then those of A outside B, replaced by their final survivor (each
/// entry names a node of B earlier in B's order, already final).
void resolve_in_order(dense1D<unsigned>& map, const dense1D<unsigned>& A,
                      const dense1D<unsigned>& B, const unsigned* rank) noexcept
{
    unsigned* m = map.data();
    for (std::size_t j = 0; j < B.size(); ++j)
        m[B[j]] = m[m[B[j]]];
    for (std::size_t i = 0; i < A.size(); ++i)
        if (rank[A[i]] == undefined_index) m[A[i]] = m[m[A[i]]];
}

/// Pairs from a k-d tree over A, one closed-box search per node of B. The pairs (j, a) come in
/// increasing j and a node keeps the first j that reaches it, so applying each pair as it is
/// found gives the map that sorting all pairs by (j, a) and applying them in that order gives
/// (for one j the nodes a are distinct): no pair list is kept.
template <unsigned D>
int merge_tree(const dense2D<double>& pos, const dense1D<unsigned>& A, const dense1D<unsigned>& B,
               dense1D<unsigned>& map, double tol) noexcept
{
    kd_tree<D> tree;
    tree.pos = &pos;
    dense1D<unsigned> rank;
    if (!rank.resize(pos.cols(), undefined_index)) return -199;
    if (kd_insert(tree, A.data(), A.size()) != A.size()) return -199;
    unsigned* m = map.data();
    int count = 0;
    for (std::size_t j = 0; j < B.size(); ++j)
    {
        const unsigned b = B[j];
        rank[b] = unsigned(j);
        const double* p = pos.col(b);
        double lo[D], hi[D];
        for (unsigned i = 0; i < D; ++i)
        {
            lo[i] = p[i] - tol;
            hi[i] = p[i] + tol;
        }
        const bool ok = kd_box(tree, lo, hi,
                               [&](unsigned a)
                               {
                                   if (rank[a] <= j || m[a] != a) return true;
                                   double d2 = 0.0;
                                   const double* q = pos.col(a);
                                   for (unsigned i = 0; i < D; ++i)
                                       d2 += (q[i] - p[i]) * (q[i] - p[i]);
                                   if (std::sqrt(d2) > tol) return true;
                                   m[a] = b;
                                   ++count;
                                   return true;
                               });
        if (!ok) return -199;
    }
    resolve_in_order(map, A, B, rank.data());
    return count;
}

/// Hash of coordinates that equal under == (-0.0 and 0.0 alike): the bits of each coordinate
/// times its own odd constant, then one mixing of the sum.
template <unsigned D>
inline std::uint64_t coordinate_hash(const double* p) noexcept
{
    constexpr std::uint64_t factor[3] = {0x9e3779b97f4a7c15ull, 0xc2b2ae3d27d4eb4full,
                                         0x165667b19e3779f9ull};
    std::uint64_t h = 0;
    for (unsigned i = 0; i < D; ++i)
    {
        const double c = p[i] == 0.0 ? 0.0 : p[i];
        std::uint64_t bits;
        std::memcpy(&bits, &c, sizeof bits);
        h += bits * factor[i];
    }
    return mix64(h);
}

template <unsigned D>
inline bool same_point(const double* p, const double* q) noexcept
{
    for (unsigned i = 0; i < D; ++i)
        if (!(p[i] == q[i])) return false;
    return true;
}

/// Slot of the class of p in an open-addressing table over positions in A (class heads, ~0u for
/// a free slot): the slot holding a position whose node has p's coordinates, else the free slot
/// that ends the probe.
template <unsigned D>
inline std::size_t class_slot(const dense2D<double>& pos, const dense1D<unsigned>& A,
                              const unsigned* head, std::size_t mask, const double* p) noexcept
{
    std::size_t h = coordinate_hash<D>(p) & mask;
    while (head[h] != undefined_index && !same_point<D>(pos.col(A[head[h]]), p))
        h = (h + 1) & mask;
    return h;
}

/// tol = 0: the nodes of A with a given position form a class; at the first node b of B with
/// that position (in B's order) every other member merges into b, and later nodes of B at that
/// position find no candidate left (members are earlier in B, or merged already). NaN
/// coordinates never compare equal, so nodes of B with one take no part; -2 (map unchanged) when
/// a node of A has one. When B is A, the first member in A's order is that b: one pass merges
/// each node into the first member of its class met.
template <unsigned D>
int merge_exact(const dense2D<double>& pos, const dense1D<unsigned>& A, const dense1D<unsigned>& B,
                dense1D<unsigned>& map) noexcept
{
    const std::size_t na = A.size(), cap = hash_capacity(na), mask = cap - 1;
    dense1D<unsigned> head, next;
    if (!head.resize(cap, undefined_index)) return -199;
    unsigned* m = map.data();
    int count = 0;
    if (same_list(A, B))
    {
        // A node with a NaN coordinate equals none: it starts a class of its own, where it is
        // found and the map restored.
        // The slot of the node `ahead` places on is computed early and its line fetched, so
        // that the table's cache misses overlap.
        constexpr std::size_t ahead = 16;
        std::size_t slot[ahead];
        for (std::size_t ia = 0; ia < ahead && ia < na; ++ia)
            slot[ia] = coordinate_hash<D>(pos.col(A[ia])) & mask;
        for (std::size_t ia = 0; ia < na; ++ia)
        {
            const double* p = pos.col(A[ia]);
            std::size_t h = slot[ia % ahead];
            if (ia + ahead < na)
            {
                const std::size_t next_slot = coordinate_hash<D>(pos.col(A[ia + ahead])) & mask;
                __builtin_prefetch(head.data() + next_slot);
                slot[ia % ahead] = next_slot;
            }
            while (head[h] != undefined_index && !same_point<D>(pos.col(A[head[h]]), p))
                h = (h + 1) & mask;
            if (head[h] == undefined_index)
            {
                if (has_nan<D>(p))
                {
                    for (std::size_t i = 0; i < ia; ++i)
                        m[A[i]] = A[i];
                    return -2;
                }
                head[h] = unsigned(ia);
            }
            else
            {
                m[A[ia]] = A[head[h]];
                ++count;
            }
        }
        return count;
    }
    dense1D<unsigned char> done;
    if (!next.resize(na) || !done.resize(cap, 0)) return -199;
    for (std::size_t ia = 0; ia < na; ++ia)
    {
        const double* p = pos.col(A[ia]);
        if (has_nan<D>(p)) return -2;
        const std::size_t h = class_slot<D>(pos, A, head.data(), mask, p);
        next[ia] = head[h];
        head[h] = unsigned(ia);
    }
    for (std::size_t j = 0; j < B.size(); ++j)
    {
        const unsigned b = B[j];
        const double* p = pos.col(b);
        if (has_nan<D>(p)) continue;
        const std::size_t h = class_slot<D>(pos, A, head.data(), mask, p);
        if (head[h] == undefined_index || done[h]) continue;
        done[h] = 1;
        for (unsigned ia = head[h]; ia != undefined_index; ia = next[ia])
            if (A[ia] != b)
            {
                m[A[ia]] = b;
                ++count;
            }
    }
    return count;
}

/// Cells along one axis of a grid: cell of x is floor((x - lo) / side), clamped to [0, n - 1],
/// a non-decreasing function of x (NaN in cell 0).
struct grid_axis
{
    double lo, inv_side;
    std::size_t n;
    double last; ///< n - 1
    grid_axis() = default;
    grid_axis(double low, double inv, std::size_t cells) noexcept
        : lo(low), inv_side(inv), n(cells), last(double(cells - 1))
    {
    }
    std::size_t cell(double x) const noexcept
    {
        // Truncation is the floor for the positive values that reach it.
        const double v = (x - lo) * inv_side;
        if (!(v > 0.0)) return 0;
        if (v >= last) return n - 1;
        return std::size_t(v);
    }
};

/// Side of the finest cells per coarse cell side: a power of two 2^shift. Nodes that fill their
/// bounding box give about one node per coarse cell and shift 0. Nodes on a surface or a curve
/// leave most coarse cells empty and crowd the others: the number of occupied cells when cells
/// are grouped 2 per axis gives the dimension d of the set (occupied counts scale by 2^d), and
/// the fine side is chosen so that a fine cell holds about two nodes, never below tol.
template <unsigned D>
unsigned fine_shift(const unsigned* counts, const std::size_t* dims, std::size_t sampled,
                    std::size_t stride, double side, double tol) noexcept
{
    std::uint64_t crowding = 0, occupied = 0;
    std::size_t nbr_cells = 1;
    for (unsigned i = 0; i < D; ++i)
        nbr_cells *= dims[i];
    for (std::size_t c = 0; c < nbr_cells; ++c)
    {
        crowding += std::uint64_t(counts[c]) * counts[c];
        occupied += counts[c] != 0;
    }
    // Mean number of nodes sharing a node's cell. A sample of every stride-th node (fraction f)
    // puts in a cell of c nodes a binomial count c_s, whose square has the mean
    // f^2 c^2 + f (1 - f) c: that gives the estimate from the sampled counts.
    const double f = 1.0 / double(stride);
    const double sharing = (double(crowding) - (1.0 - f) * double(sampled)) / (f * double(sampled));
    if (sharing <= 4.0) return 0;
    std::size_t half[D], nbr_half = 1;
    for (unsigned i = 0; i < D; ++i)
        nbr_half *= (half[i] = (dims[i] + 1) / 2);
    dense1D<unsigned char> mark;
    if (!mark.resize(nbr_half, 0)) return 0;
    std::uint64_t occupied_half = 0;
    std::size_t at[D] = {};
    for (std::size_t c = 0; c < nbr_cells; ++c)
    {
        if (counts[c] != 0)
        {
            std::size_t id = 0;
            for (unsigned i = D; i-- > 0;)
                id = id * half[i] + at[i] / 2;
            occupied_half += mark[id] == 0;
            mark[id] = 1;
        }
        for (unsigned i = 0; i < D && ++at[i] == dims[i]; ++i)
            at[i] = 0;
    }
    const double dim =
        std::min(double(D), std::max(1.0, std::log2(double(occupied) / double(occupied_half))));
    const double ratio = std::pow(sharing / 2.0, 1.0 / dim);
    unsigned shift = 0;
    // Fine cells at least tol wide; fine counts per axis (dims << shift) below 2^31, and at most
    // 2^27 fine cells per coarse cell, so that in-cell keys fit 32 bits.
    while (double(1u << (shift + 1)) <= 2.0 * ratio && shift + 1 <= 27 / D &&
           !(side / double(1u << (shift + 1)) < tol))
    {
        bool fits = true;
        for (unsigned i = 0; i < D; ++i)
            fits = fits && (std::uint64_t(dims[i]) << (shift + 1)) < (std::uint64_t(1) << 31);
        if (!fits) break;
        ++shift;
    }
    return shift;
}

/// Sorts the nodes of each dense cell by fine key when `keyed`, and tells whether the nodes sharing
/// a fine cell stay few enough for the scans: the sum of the squared run lengths at most
/// 16 na + 1024. Nodes crowded in fine cells make the scans quadratic: the tree suits better.
template <class T>
bool sort_cells(T* data, const dense1D<unsigned>& start, bool keyed, std::size_t na) noexcept
{
    std::uint64_t crowding = 0;
    for (std::size_t c = 0; c + 1 < start.size(); ++c)
    {
        T* first = data + start[c];
        T* last = data + start[c + 1];
        if (keyed && last - first > 1)
            std::sort(first, last, [](const T& x, const T& y) { return x.key < y.key; });
        for (T* run = first; run != last;)
        {
            T* end = run + 1;
            while (end != last && end->key == run->key)
                ++end;
            crowding += std::uint64_t(end - run) * std::uint64_t(end - run);
            run = end;
        }
    }
    return crowding <= 16 * std::uint64_t(na) + 1024;
}

/// The first node of fine cell `k` in a dense cell [it, end) sorted by key when `keyed`.
template <class T>
inline const T* first_of_key(const T* it, const T* end, unsigned k, bool keyed) noexcept
{
    if (!keyed) return it;
    if (end - it > 8)
        return std::lower_bound(it, end, k, [](const T& x, unsigned v) { return x.key < v; });
    while (it != end && it->key < k)
        ++it;
    return it;
}

/// The grid merge of one list with itself, cell by cell. At step j of the merge, a node a later
/// in the list takes b = A[j] when a lies within tol of b and no earlier step took it: a merges
/// into the earliest b before it whose box holds it, whatever order the pairs are visited in. So
/// the nodes are walked in cell order, each keeping the smallest such position met, and every
/// read stays within a few neighbouring cells. The located nodes carry their coordinates (copied
/// bit for bit), their position in A and their fine key.
/// `axis` gives the fine cells along each axis, `cell` the dense-array cell and fine key of fine
/// coordinates; `start` holds the prefix counts of the dense cells; `keyed` tells whether the
/// dense cells hold several fine cells (nodes then sorted by key within them).
template <unsigned D, class Cell>
int merge_grid_self(const dense2D<double>& pos, const dense1D<unsigned>& A, dense1D<unsigned>& map,
                    double tol, const grid_axis* axis, Cell cell, dense1D<unsigned>& start,
                    bool keyed) noexcept
{
    struct located
    {
        unsigned key, rank; ///< key holds the dense cell until the nodes reach their cells
        double x[D];
    };
    const std::size_t na = A.size(), nbr_cells = start.size() - 1;
    auto cell_of = [&](const double* p)
    {
        std::size_t f[D];
        for (unsigned i = 0; i < D; ++i)
            f[i] = axis[i].cell(p[i]);
        return cell(f);
    };
    // Binning goes through runs of consecutive cells (at most 2048 runs): the nodes are first
    // placed by run, then each run is sorted out by cell from a copy. Each pass then writes to a
    // few thousand places at a time, where scattering every node straight to its cell would miss
    // the cache at every node once the cells outgrow it.
    unsigned run_bits = 0;
    while ((nbr_cells - 1) >> run_bits >= 2048)
        ++run_bits;
    const std::size_t nbr_runs = ((nbr_cells - 1) >> run_bits) + 1;
    dense1D<located> nodes;
    dense1D<unsigned> best, run_start;
    if (!nodes.resize(na) || !best.resize(na, undefined_index) ||
        !run_start.resize(nbr_runs + 1, 0u))
        return -199;
    for (std::size_t k = 0; k < na; ++k)
        ++run_start[(cell_of(pos.col(A[k])).first >> run_bits) + 1];
    std::size_t largest = 0;
    for (std::size_t r = 0; r < nbr_runs; ++r)
    {
        largest = std::max<std::size_t>(largest, run_start[r + 1]);
        run_start[r + 1] += run_start[r];
    }
    for (std::size_t k = 0; k < na; ++k)
    {
        const double* p = pos.col(A[k]);
        const std::size_t id = cell_of(p).first;
        located& l = nodes[run_start[id >> run_bits]++];
        l.key = unsigned(id);
        l.rank = unsigned(k);
        for (unsigned i = 0; i < D; ++i)
            l.x[i] = p[i];
    }
    {
        dense1D<located> copy;
        if (!copy.resize(largest)) return -199;
        std::size_t begin = 0;
        for (std::size_t r = 0; r < nbr_runs; ++r)
        {
            const std::size_t end = run_start[r], size = end - begin;
            const std::size_t c0 = r << run_bits, c1 = std::min(nbr_cells, (r + 1) << run_bits);
            std::copy(nodes.data() + begin, nodes.data() + end, copy.data());
            for (std::size_t t = 0; t < size; ++t)
                ++start[copy[t].key];
            std::size_t at = begin;
            for (std::size_t c = c0; c < c1; ++c)
            {
                const std::size_t count = start[c];
                start[c] = unsigned(at);
                at += count;
            }
            for (std::size_t t = 0; t < size; ++t)
            {
                located& l = nodes[start[copy[t].key]++];
                l = copy[t];
                l.key = cell_of(l.x).second;
            }
            begin = end;
        }
    }
    // start[c] now ends cell c.
    for (std::size_t c = nbr_cells; c > 0; --c)
        start[c] = start[c - 1];
    start[0] = 0;
    if (!sort_cells(nodes.data(), start, keyed, na)) return -2;

    // The merged nodes are counted by runs of positions in A, as for the cells.
    unsigned rank_bits = 0;
    while ((na - 1) >> rank_bits >= 2048)
        ++rank_bits;
    const std::size_t nbr_rank_runs = ((na - 1) >> rank_bits) + 1;
    dense1D<unsigned> rank_start;
    if (!rank_start.resize(nbr_rank_runs + 1, 0u)) return -199;
    const located* all = nodes.data();
    for (std::size_t t = 0; t < na; ++t)
    {
        const double* p = all[t].x;
        const unsigned r = all[t].rank;
        std::size_t first[D], last[D], at[D];
        for (unsigned i = 0; i < D; ++i)
        {
            first[i] = axis[i].cell(p[i] - tol);
            last[i] = axis[i].cell(p[i] + tol);
            at[i] = first[i];
        }
        for (;;)
        {
            const auto [id, k] = cell(at);
            const located* it = all + start[id];
            const located* end = all + start[id + 1];
            it = first_of_key(it, end, k, keyed);
            for (; it != end && it->key == k; ++it)
                if (it->rank > r && r < best[it - all] && within<D>(p, it->x, tol))
                {
                    rank_start[(it->rank >> rank_bits) + 1] += best[it - all] == undefined_index;
                    best[it - all] = r;
                }
            unsigned i = 0;
            while (i < D && at[i] == last[i])
                at[i] = first[i], ++i;
            if (i == D) break;
            ++at[i];
        }
    }
    // The merges go to the map through runs of positions, so that its writes stay local.
    for (std::size_t r = 0; r < nbr_rank_runs; ++r)
        rank_start[r + 1] += rank_start[r];
    const std::size_t count = rank_start[nbr_rank_runs];
    struct merged
    {
        unsigned rank, into;
    };
    dense1D<merged> merges;
    if (!merges.resize(count)) return -199;
    for (std::size_t t = 0; t < na; ++t)
        if (best[t] != undefined_index)
            merges[rank_start[all[t].rank >> rank_bits]++] = merged{all[t].rank, best[t]};
    unsigned* m = map.data();
    for (std::size_t e = 0; e < count; ++e)
        m[A[merges[e].rank]] = A[merges[e].into];
    // Each entry names an earlier node of A: in A's order, that node's entry is final already.
    for (std::size_t j = 0; j < na; ++j)
        m[A[j]] = m[m[A[j]]];
    return int(count);
}

/// Pairs from a two-level grid over A. Fine cells have side >= tol and the cell of a coordinate
/// is a non-decreasing function of it, so the fine cells from those of b - tol to b + tol hold
/// every node of A in the closed box of b, and each candidate passes the very tests of the tree
/// search. Coarse cells sized from the number of nodes are split 2^shift times per axis into
/// fine cells (see fine_shift); a dense array lists the nodes by cells as fine as its budget
/// allows, each such cell's nodes sorted by fine cell within it. Returns -2 (nothing changed)
/// when the grid does not suit: a non-finite coordinate in A, or nodes crowded in few fine
/// cells.
template <unsigned D>
int merge_grid(const dense2D<double>& pos, const dense1D<unsigned>& A, const dense1D<unsigned>& B,
               dense1D<unsigned>& map, double tol) noexcept
{
    const std::size_t na = A.size();
    if (na == 0 || na >= undefined_index / 2) return -2;
    double lo[D], hi[D];
    for (unsigned i = 0; i < D; ++i)
    {
        lo[i] = INFINITY;
        hi[i] = -INFINITY;
    }
    for (std::size_t k = 0; k < na; ++k)
    {
        const double* p = pos.col(A[k]);
        for (unsigned i = 0; i < D; ++i)
        {
            if (!std::isfinite(p[i])) return -2;
            lo[i] = std::min(lo[i], p[i]);
            hi[i] = std::max(hi[i], p[i]);
        }
    }
    // About one node per coarse cell when the nodes fill their box, never cells finer than tol.
    double extent = 0.0;
    for (unsigned i = 0; i < D; ++i)
        extent = std::max(extent, hi[i] - lo[i]);
    const double per_axis = std::ceil(std::pow(double(na), 1.0 / D));
    double side = std::max(tol, extent / per_axis);
    if (!(side > 0.0) || !std::isfinite(side)) side = 1.0;
    std::size_t dims[D], nbr_cells = 1;
    grid_axis axis[D];
    for (unsigned i = 0; i < D; ++i)
    {
        const double cells = std::floor((hi[i] - lo[i]) / side) + 1.0;
        if (!(cells <= double(4 * na + 16))) return -2;
        dims[i] = std::size_t(cells);
        nbr_cells *= dims[i];
        if (nbr_cells > 8 * na + 64 || nbr_cells >= undefined_index) return -2;
        axis[i] = grid_axis(lo[i], 1.0 / side, dims[i]);
    }
    dense1D<unsigned> start, rank;
    if (!start.resize(nbr_cells + 1, 0u)) return -199;
    // Cell of fine coordinates f in a grid of n[i] cells per axis, each 2^bits fine cells wide.
    auto coarse_id = [](const std::size_t* n, const std::size_t* f, unsigned bits)
    {
        std::size_t id = 0;
        for (unsigned i = D; i-- > 0;)
            id = id * n[i] + (f[i] >> bits);
        return id;
    };
    // Fine cell of fine coordinates f within their cell of the dense array.
    auto fine_key = [](const std::size_t* f, unsigned bits)
    {
        const std::size_t low = (std::size_t(1) << bits) - 1;
        unsigned k = 0;
        for (unsigned i = D; i-- > 0;)
            k = (k << bits) | unsigned(f[i] & low);
        return k;
    };
    // Coarse counts of a sample (every stride-th node) choose the fine side; then every node
    // is binned.
    const std::size_t stride = na > 16384 ? na / 16384 : 1;
    std::size_t sampled = 0;
    for (std::size_t k = 0; k < na; k += stride, ++sampled)
    {
        const double* p = pos.col(A[k]);
        std::size_t f[D];
        for (unsigned i = 0; i < D; ++i)
            f[i] = axis[i].cell(p[i]);
        ++start[coarse_id(dims, f, 0) + 1];
    }
    const unsigned shift = fine_shift<D>(start.data() + 1, dims, sampled, stride, side, tol);
    for (unsigned i = 0; i < D; ++i)
        axis[i] = grid_axis(lo[i], double(1u << shift) / side, dims[i] << shift);
    // Cells listed through the dense array: as fine as its budget of 8 na + 64 cells (with
    // 32-bit ids) allows; the lower `bits` bits of the fine coordinates tell the fine cell
    // within such a cell.
    unsigned bits = shift;
    while (bits > 0)
    {
        double cells = 1.0;
        for (unsigned i = 0; i < D; ++i)
            cells *= double(dims[i] << (shift - bits + 1));
        if (cells > double(8 * na + 64) || cells >= double(undefined_index)) break;
        --bits;
    }
    std::size_t cdims[D];
    nbr_cells = 1;
    for (unsigned i = 0; i < D; ++i)
        nbr_cells *= (cdims[i] = dims[i] << (shift - bits));
    if (!start.resize(nbr_cells + 1)) return -199;
    start = 0u;
    if (same_list(A, B))
        return merge_grid_self<D>(
            pos, A, map, tol, axis,
            [&](const std::size_t* f) {
                return std::pair{coarse_id(cdims, f, bits), fine_key(f, bits)};
            },
            start, bits > 0);
    // Fine coordinates of A's k-th node (recomputed rather than stored: two passes over A read
    // pos in A's order, cheaper than writing and reading back two more arrays of na entries).
    auto fine_of = [&](std::size_t k, std::size_t* f)
    {
        const double* p = pos.col(A[k]);
        for (unsigned i = 0; i < D; ++i)
            f[i] = axis[i].cell(p[i]);
    };
    for (std::size_t k = 0; k < na; ++k)
    {
        std::size_t f[D];
        fine_of(k, f);
        ++start[coarse_id(cdims, f, bits) + 1];
    }
    for (std::size_t c = 0; c < nbr_cells; ++c)
        start[c + 1] += start[c];

    // Items: a node and its fine key, by cell (small, so that building and sorting them stays
    // cheap; the coordinates are read from pos, in an order close to that of the cells).
    struct item
    {
        unsigned node, key;
    };
    dense1D<item> items;
    if (!items.resize(na) || !rank.resize(pos.cols(), undefined_index)) return -199;
    for (std::size_t j = 0; j < B.size(); ++j)
        rank[B[j]] = unsigned(j);
    for (std::size_t k = 0; k < na; ++k)
    {
        std::size_t f[D];
        fine_of(k, f);
        items[start[coarse_id(cdims, f, bits)]++] = item{A[k], fine_key(f, bits)};
    }
    for (std::size_t c = nbr_cells; c > 0; --c)
        start[c] = start[c - 1];
    start[0] = 0;
    // Each coarse cell sorted by fine key (the order within a fine cell plays no part); nodes
    // crowded in fine cells make the scans quadratic: the tree suits better.
    if (!sort_cells(items.data(), start, bits > 0, na)) return -2;

    unsigned* m = map.data();
    int count = 0;
    // Read-ahead: the cell of the node `far` places on has its start fetched, and the items of
    // the node `near` places on (by then its start has arrived) with their nodes' ranks, so that
    // the random reads of successive nodes overlap. It only warms caches.
    constexpr std::size_t far = 16, near = 8;
    auto first_cell = [&](std::size_t jj)
    {
        const double* q = pos.col(B[jj]);
        std::size_t f[D];
        for (unsigned i = 0; i < D; ++i)
            f[i] = axis[i].cell(q[i] - tol);
        return coarse_id(cdims, f, bits);
    };
    for (std::size_t j = 0; j < B.size(); ++j)
    {
        if (j + far < B.size()) __builtin_prefetch(start.data() + first_cell(j + far));
        if (j + near < B.size())
        {
            const std::size_t id = first_cell(j + near);
            const item* it = items.data() + start[id];
            if (it != items.data() + start[id + 1])
            {
                __builtin_prefetch(rank.data() + it->node);
                __builtin_prefetch(pos.col(it->node));
            }
        }
        const unsigned b = B[j];
        const double* p = pos.col(b);
        std::size_t first[D], last[D], at[D];
        bool finite = true;
        for (unsigned i = 0; i < D; ++i)
        {
            finite = finite && std::isfinite(p[i]);
            first[i] = axis[i].cell(p[i] - tol);
            last[i] = axis[i].cell(p[i] + tol);
            at[i] = first[i];
        }
        // A non-finite coordinate of b makes a box no finite node lies in.
        if (!finite) continue;
        for (;;)
        {
            const std::size_t id = coarse_id(cdims, at, bits);
            const unsigned k = fine_key(at, bits);
            const item* it = items.data() + start[id];
            const item* end = items.data() + start[id + 1];
            it = first_of_key(it, end, k, bits > 0);
            for (; it != end && it->key == k; ++it)
            {
                // At step j a node was handled when its position in B is at most j.
                const unsigned a = it->node;
                if (rank[a] <= j || !within<D>(p, pos.col(a), tol) || m[a] != a) continue;
                m[a] = b;
                ++count;
            }
            unsigned i = 0;
            while (i < D && at[i] == last[i])
                at[i] = first[i], ++i;
            if (i == D) break;
            ++at[i];
        }
    }
    resolve_in_order(map, A, B, rank.data());
    return count;
}

template <unsigned D>
int merge_dim(const dense2D<double>& pos, const dense1D<unsigned>& A, const dense1D<unsigned>& B,
              dense1D<unsigned>& map, double tol, merge_search how) noexcept
{
    // A NaN coordinate in the tree hides the nodes below it on its less side from every box
    // search (no coordinate compares greater or equal to NaN), so the pairs the tree finds then
    // depend on its shape: only the tree itself gives that result. The hash and the grid give
    // up (-2, map unchanged) on such nodes.
    if (how == merge_search::exact_hash || (how == merge_search::automatic && tol == 0.0))
    {
        const int count = merge_exact<D>(pos, A, B, map);
        if (count != -2) return count;
    }
    else if (how == merge_search::grid_only)
        return merge_grid<D>(pos, A, B, map, tol);
    else if (how == merge_search::grid || how == merge_search::automatic)
    {
        const int count = merge_grid<D>(pos, A, B, map, tol);
        if (count != -2) return count;
    }
    return merge_tree<D>(pos, A, B, map, tol);
}

} // namespace

int merge_nodes(const dense2D<double>& pos, const dense1D<unsigned>& A, const dense1D<unsigned>& B,
                dense1D<unsigned>& map, double tol, merge_search how) noexcept
{
    const std::size_t n = pos.cols();
    if (!map.resize(n)) return -199;
    for (std::size_t i = 0; i < n; ++i)
        map[i] = unsigned(i);
    const int count = pos.rows() == 2 ? merge_dim<2>(pos, A, B, map, tol, how)
                                      : merge_dim<3>(pos, A, B, map, tol, how);
    if (count < 0) map.clear();
    return count;
}

} // namespace detail

// ------------------------------------------------------------------------------------ node lists

namespace
{

/// Distinct lists, then the merge; map emptied on failure.
int merge_lists(const dense2D<double>& pos, const dense1D<unsigned>& nodes1,
                const dense1D<unsigned>& nodes2, dense1D<unsigned>& new_indices,
                double tol) noexcept
{
    dense1D<unsigned> A, B;
    if (unique_indices(A, nodes1) != 0) return -199;
    if (detail::same_list(nodes1, nodes2))
        B = A;
    else if (unique_indices(B, nodes2) != 0)
        return -199;
    return detail::merge_nodes(pos, A, B, new_indices, tol, detail::merge_search::automatic);
}

} // namespace

int merge(const dense2D<double>& pos, const dense1D<unsigned>& nodes1,
          const dense1D<unsigned>& nodes2, dense1D<unsigned>& new_indices, double tol) noexcept
{
    new_indices.clear();
    if (pos.cols() == 0) return 0;
    if (pos.rows() != 2 && pos.rows() != 3) return -1;
    if (!check_IDs(nodes1, unsigned(pos.cols()))) return -2;
    if (!check_IDs(nodes2, unsigned(pos.cols()))) return -3;
    if (!(tol >= 0.0)) return -4;
    if (nodes1.empty() || nodes2.empty()) return 0;
    return merge_lists(pos, nodes1, nodes2, new_indices, tol);
}

int merge(const dense2D<double>& pos, const dense1D<unsigned>& nodes,
          dense1D<unsigned>& new_indices, double tol) noexcept
{
    return merge(pos, nodes, nodes, new_indices, tol);
}

int merge(dense2D<double>& pos, dense1D<unsigned>& new_indices, double tol) noexcept
{
    new_indices.clear();
    if (pos.cols() == 0) return 0;
    if (pos.rows() != 2 && pos.rows() != 3) return -1;
    if (!(tol >= 0.0)) return -3;
    const std::size_t n = pos.cols(), rows = pos.rows();
    dense1D<unsigned> all;
    if (!all.resize(n)) return -199;
    for (std::size_t j = 0; j < n; ++j)
        all[j] = unsigned(j);
    const int count =
        detail::merge_nodes(pos, all, all, new_indices, tol, detail::merge_search::automatic);
    if (count <= 0) return count;
    for (std::size_t j = 0; j < n; ++j)
        if (new_indices[j] != j)
        {
            const double* src = pos.col(new_indices[j]);
            double* dst = pos.col(j);
            for (std::size_t i = 0; i < rows; ++i)
                dst[i] = src[i];
        }
    return count;
}

int merge(dense2D<double>& pos, double tol) noexcept
{
    dense1D<unsigned> map;
    return merge(pos, map, tol);
}

// ------------------------------------------------------------------------------------ connectivity

namespace
{

/// Final survivor of every node (chains of any order; merged nodes never receive, so no cycle).
void resolve_chains(dense1D<unsigned>& map) noexcept
{
    unsigned* m = map.data();
    for (std::size_t x = 0, n = map.size(); x < n; ++x)
    {
        unsigned r = unsigned(x);
        while (m[r] != r)
            r = m[r];
        for (unsigned y = unsigned(x); m[y] != r;)
        {
            const unsigned next = m[y];
            m[y] = r;
            y = next;
        }
    }
}

/// One sweep of edge collapsing over the elements of [first, last) (see the doc of merge).
template <unsigned D>
int collapse_sweep(const dense2D<double>& pos, const dense2D<unsigned>* first,
                   const dense2D<unsigned>* last, dense1D<unsigned>& map, double tol) noexcept
{
    struct candidate
    {
        double d;
        unsigned short iu, iv;
    };
    constexpr std::size_t max_rows = 32;
    candidate cand[max_rows * (max_rows - 1)];
    unsigned* m = map.data();
    int count = 0;
    for (const dense2D<unsigned>* M = first; M != last; ++M)
    {
        if (M->empty()) continue;
        const std::size_t rows = std::min(M->rows(), max_rows);
        for (std::size_t j = 0, n = M->cols(); j < n; ++j)
        {
            const unsigned* e = M->col(j);
            std::size_t nc = 0;
            for (std::size_t iu = 0; iu < rows; ++iu)
            {
                const unsigned u = e[iu];
                if (u == undefined_index || m[u] != u) continue;
                const double* p = pos.col(u);
                for (std::size_t iv = 0; iv < rows; ++iv)
                {
                    const unsigned v = e[iv];
                    if (v == undefined_index || v == u || m[v] != v) continue;
                    const double* q = pos.col(v);
                    bool inside = true;
                    for (unsigned i = 0; i < D; ++i)
                        inside = inside && q[i] >= p[i] - tol && !(q[i] > p[i] + tol);
                    if (!inside) continue;
                    double d2 = 0.0;
                    for (unsigned i = 0; i < D; ++i)
                        d2 += (q[i] - p[i]) * (q[i] - p[i]);
                    const double d = std::sqrt(d2);
                    if (d > tol) continue;
                    cand[nc++] = candidate{d, (unsigned short)iu, (unsigned short)iv};
                }
            }
            if (nc == 0) continue;
            std::sort(cand, cand + nc,
                      [](const candidate& a, const candidate& b)
                      {
                          if (a.d != b.d) return a.d < b.d;
                          if (a.iu != b.iu) return a.iu < b.iu;
                          return a.iv < b.iv;
                      });
            for (std::size_t c = 0; c < nc; ++c)
            {
                const unsigned u = e[cand[c].iu], v = e[cand[c].iv];
                if (m[u] != u || m[v] != v) continue;
                m[v] = u;
                ++count;
            }
        }
    }
    resolve_chains(map);
    return count;
}

void renumber(dense2D<unsigned>* first, dense2D<unsigned>* last,
              const dense1D<unsigned>& map) noexcept
{
    for (dense2D<unsigned>* M = first; M != last; ++M)
        change_indices(*M, map);
}

} // namespace

int merge(const dense2D<double>& pos, dense2D<unsigned>* connectM1, dense2D<unsigned>* connectM2,
          dense1D<unsigned>& new_indices, double tol, unsigned mode) noexcept
{
    new_indices.clear();
    if (pos.cols() == 0 || connectM1 == connectM2) return 0;
    if (pos.rows() != 2 && pos.rows() != 3) return -1;
    if (connectM2 < connectM1) return -3;
    for (const dense2D<unsigned>* M = connectM1; M != connectM2; ++M)
        if (!check_IDs(*M, unsigned(pos.cols()))) return -2;
    if (!(tol >= 0.0)) return -5;
    if (mode > 2) return -6;
    dense1D<unsigned> list;
    if (detail::unique_of_range(list, connectM1, connectM2) != 0) return -199;
    if (list.empty()) return 0;
    if (mode == 0)
    {
        const int count =
            detail::merge_nodes(pos, list, list, new_indices, tol, detail::merge_search::automatic);
        if (count > 0) renumber(connectM1, connectM2, new_indices);
        return count;
    }
    const std::size_t n = pos.cols();
    if (!new_indices.resize(n)) return -199;
    for (std::size_t i = 0; i < n; ++i)
        new_indices[i] = unsigned(i);
    auto sweep = [&]()
    {
        return pos.rows() == 2 ? collapse_sweep<2>(pos, connectM1, connectM2, new_indices, tol)
                               : collapse_sweep<3>(pos, connectM1, connectM2, new_indices, tol);
    };
    int count = sweep();
    if (count > 0)
    {
        renumber(connectM1, connectM2, new_indices);
        if (mode == 2)
        {
            const int more = sweep();
            if (more > 0) renumber(connectM1, connectM2, new_indices);
            count += more;
        }
    }
    return count;
}

int merge(const dense2D<double>& pos, dense2D<unsigned>* connectM1, dense2D<unsigned>* connectM2,
          double tol, unsigned mode) noexcept
{
    dense1D<unsigned> map;
    return merge(pos, connectM1, connectM2, map, tol, mode);
}

int merge(const dense2D<double>& pos, dense2D<unsigned>& connectM, dense1D<unsigned>& new_indices,
          double tol, unsigned mode) noexcept
{
    return merge(pos, &connectM, &connectM + 1, new_indices, tol, mode);
}

int merge(const dense2D<double>& pos, dense2D<unsigned>& connectM, double tol,
          unsigned mode) noexcept
{
    dense1D<unsigned> map;
    return merge(pos, &connectM, &connectM + 1, map, tol, mode);
}

int merge(const dense2D<double>& pos, dense2D<unsigned>& connectM) noexcept
{
    return merge(pos, connectM, 1e-6, 0);
}

int merge(const dense2D<double>& pos, dense2D<unsigned>& connectM1, dense2D<unsigned>& connectM2,
          dense1D<unsigned>& new_indices, double tol, unsigned mode) noexcept
{
    // Shallow copies share the callers' buffers, so renumbering them renumbers the originals.
    dense2D<unsigned> pair[2] = {connectM1, connectM2};
    return merge(pos, pair, pair + 2, new_indices, tol, mode);
}

int merge(const dense2D<double>& pos, dense2D<unsigned>& connectM1, dense2D<unsigned>& connectM2,
          double tol, unsigned mode) noexcept
{
    dense1D<unsigned> map;
    return merge(pos, connectM1, connectM2, map, tol, mode);
}

int merge(const dense2D<double>& pos, dense2D<unsigned>& connectM1,
          dense2D<unsigned>& connectM2) noexcept
{
    return merge(pos, connectM1, connectM2, 1e-6, 0);
}

} // namespace qx7::meshutil
