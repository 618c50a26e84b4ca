// Element boundaries and the neighbour matrix.
#include "connectivity/connectivity_private.h"

#include <algorithm>
#include <meshutil/connectivity.h>

namespace qx7::meshutil
{

int get_element_boundaries(const dense2D<unsigned>& connectM, element_type FE_type,
                           dense2D<unsigned>& boundaries) noexcept
{
    if (connectM.empty()) return 0;
    FE_type = normalize_type(FE_type, connectM.rows());
    if (!check_IDs(connectM, FE_type, undefined_index)) return -1;
    if (!detail::boundary_type_supported(FE_type)) return -2;
    const unsigned R = boundary_record_size(FE_type);
    if (!boundaries.empty() && boundaries.rows() != R) return -2;

    for (std::size_t j = 0, n = connectM.cols(); j < n; ++j)
    {
        const unsigned* p = connectM.col(j);
        const local_boundaries& t = detail::column_table(FE_type, p);
        for (unsigned k = 0; k < t.count; ++k)
            if (!detail::append_boundary(boundaries, t, p, k, R)) return -199;
    }
    return 0;
}

namespace
{

/// One boundary in the multimap: the first K places of its canonical key and its code
/// e x 16 + 8 x (quadrangle) + k.
template <unsigned K, class Code>
struct boundary_entry
{
    unsigned v[K];
    Code code;
};

/// Average number of boundaries per bucket of node ranges; a bucket's table (two codes per slot,
/// 1.25 to 2.5 slots per boundary) then stays within the fast caches. A sweep over 1024, 4096 and
/// 16384 on 1M tetrahedra and 1M hexahedra changed the time by less than 5%.
constexpr std::size_t bucket_target = 4096;

/// Matches the boundaries of a mesh through a flat hash multimap in two levels. Every boundary is
/// filed, by the smallest node of its key, into one of P buckets of consecutive node ranges (a
/// counting sort, so that a bucket lists its boundaries in element order); each bucket is then
/// matched through an open-addressing table over the full keys (linear probing, capacity of at
/// least 1.25 x the bucket size). All scratch is sized once: the entries (one per boundary), the
/// bucket offsets and one table for the largest bucket. Meshes numbered with some locality keep
/// the work local: buckets are filled and the neighbour matrix written in nearby places; any other
/// numbering costs scattered memory accesses but the same number of operations.
template <unsigned K, class Code, element_type Type>
struct neighbor_matcher
{
    static constexpr Code empty = ~Code(0);
    static constexpr Code many = ~Code(0) - 1;
    using entry = boundary_entry<K, Code>;

    const dense2D<unsigned>& connectM;
    element_type FE_type;
    bool flag_nonmanifold;
    dense2D<unsigned>& neighbors;

    /// The table of column p: the type's own for a plain type, the column's shape's for a mixed
    /// one.
    const local_boundaries& table(const unsigned* p) const noexcept
    {
        if constexpr (Type == EL_FACE_MIX || Type == EL_SOLID_MIX)
            return detail::column_table(Type, p);
        else
            return *boundaries_of(Type);
    }

    /// Calls f(code, key) for every boundary, element by element, in local order.
    template <class F>
    void for_each_boundary(F&& f) const noexcept
    {
        for (std::size_t j = 0, n = connectM.cols(); j < n; ++j)
        {
            const unsigned* p = connectM.col(j);
            const local_boundaries& t = table(p);
            for (unsigned k = 0; k < t.count; ++k)
                f(Code(j) << 4 | Code(t.size[k] == 4) << 3 | k, detail::key_of(t, p, k));
        }
    }

    static bool same_key(const entry& a, const entry& b) noexcept
    {
        for (unsigned i = 0; i < K; ++i)
            if (a.v[i] != b.v[i]) return false;
        return ((a.code ^ b.code) & 8) == 0;
    }

    static std::size_t hash(const entry& a) noexcept
    {
        static constexpr std::uint64_t mul[4] = {0x9e3779b97f4a7c15ull, 0xc2b2ae3d27d4eb4full,
                                                 0x165667b19e3779f9ull, 0x27d4eb2f165667c5ull};
        std::uint64_t h = 0;
        for (unsigned i = 0; i < K; ++i)
            h += a.v[i] * mul[i];
        return std::size_t(detail::mix64(h));
    }

    /// Links the boundaries of codes f (the first of its key) and m, or undoes the link when a
    /// third boundary of the same key shows that it is non-manifold.
    void link(Code f, Code m, Code& second) noexcept
    {
        const std::size_t ef = std::size_t(f >> 4), e = std::size_t(m >> 4);
        const unsigned kf = unsigned(f & 7), k = unsigned(m & 7);
        if (flag_nonmanifold || second == empty)
        {
            neighbors(kf, ef) = unsigned(e);
            neighbors(k, e) = unsigned(ef);
            second = m;
        }
        else if (second != many)
        {
            neighbors(kf, ef) = undefined_index;
            neighbors(unsigned(second & 7), std::size_t(second >> 4)) = undefined_index;
            second = many;
        }
    }

    /// Matches the entries [b0, b1) of one bucket; slots has room for hash_capacity(b1 - b0).
    void match_bucket(const entry* entries, std::size_t b0, std::size_t b1, Code* slots) noexcept
    {
        const std::size_t cap = detail::hash_capacity(b1 - b0), mask = cap - 1;
        std::fill_n(slots, 2 * cap, empty);
        for (std::size_t r = b0; r < b1; ++r)
        {
            const entry& x = entries[r];
            for (std::size_t h = hash(x) & mask;; h = (h + 1) & mask)
            {
                Code* s = slots + 2 * h;
                if (s[0] == empty)
                {
                    s[0] = Code(r);
                    break;
                }
                if (same_key(entries[s[0]], x))
                {
                    link(entries[s[0]].code, x.code, s[1]);
                    break;
                }
            }
        }
    }

    int run() noexcept
    {
        // Buckets of 2^shift consecutive node numbers, about bucket_target boundaries each.
        const std::uint64_t m = max_ID(connectM);
        const std::size_t total_bound =
            std::size_t(detail::neighbor_rows(FE_type)) * connectM.cols();
        unsigned shift = 0;
        while (shift < 33 && ((m >> shift) + 1) * bucket_target > total_bound)
            ++shift;
        const std::size_t P = std::size_t(m >> shift) + 1;
        auto bucket = [m, shift](unsigned v0)
        { return std::size_t(std::min<std::uint64_t>(v0, m) >> shift); };

        dense1D<std::size_t> offsets;
        if (!offsets.resize(P + 1, 0)) return -199;
        std::size_t* off = offsets.data();
        for_each_boundary([&](Code, const detail::boundary_key& key)
                          { ++off[bucket(key.v[0]) + 1]; });
        std::size_t largest = 0;
        for (std::size_t b = 1; b <= P; ++b)
        {
            largest = std::max(largest, off[b]);
            off[b] += off[b - 1];
        }

        dense1D<entry> entries;
        dense1D<Code> slots;
        if (!entries.resize(off[P]) || !slots.resize(2 * detail::hash_capacity(largest)))
            return -199;
        entry* ent = entries.data();
        for_each_boundary(
            [&](Code code, const detail::boundary_key& key)
            {
                entry& x = ent[off[bucket(key.v[0])]++];
                for (unsigned i = 0; i < K; ++i)
                    x.v[i] = key.v[i];
                x.code = code;
            });
        // The cursors ended at the start of the next bucket.
        for (std::size_t b = P; b > 0; --b)
            off[b] = off[b - 1];
        off[0] = 0;
        for (std::size_t b = 0; b < P; ++b)
            match_bucket(ent, off[b], off[b + 1], slots.data());
        return 0;
    }
};

template <unsigned K, element_type Type>
int match_boundaries(const dense2D<unsigned>& connectM, element_type FE_type, bool flag_nonmanifold,
                     dense2D<unsigned>& neighbors) noexcept
{
    // Codes e x 16 + 15 stay below the two markers in 32 bits up to 2^28 - 1 elements.
    if (connectM.cols() < (std::size_t(1) << 28) - 1)
        return neighbor_matcher<K, std::uint32_t, Type>{connectM, FE_type, flag_nonmanifold,
                                                        neighbors}
            .run();
    return neighbor_matcher<K, std::uint64_t, Type>{connectM, FE_type, flag_nonmanifold, neighbors}
        .run();
}

} // namespace

int get_neighbors(const dense2D<unsigned>& connectM, element_type FE_type, bool flag_nonmanifold,
                  dense2D<unsigned>& neighbors) noexcept
{
    neighbors.clear();
    if (connectM.empty()) return 0;
    FE_type = normalize_type(FE_type, connectM.rows());
    if (!check_IDs(connectM, FE_type, undefined_index)) return -1;
    if (!detail::boundary_type_supported(FE_type)) return -2;
    if (!neighbors.resize(detail::neighbor_rows(FE_type), connectM.cols(), undefined_index))
        return -199;
    int rc;
    switch (FE_type)
    {
    case EL_EDGE2:
        rc = match_boundaries<1, EL_EDGE2>(connectM, FE_type, flag_nonmanifold, neighbors);
        break;
    case EL_TRIA3:
        rc = match_boundaries<2, EL_TRIA3>(connectM, FE_type, flag_nonmanifold, neighbors);
        break;
    case EL_QUAD4:
        rc = match_boundaries<2, EL_QUAD4>(connectM, FE_type, flag_nonmanifold, neighbors);
        break;
    case EL_FACE_MIX:
        rc = match_boundaries<2, EL_FACE_MIX>(connectM, FE_type, flag_nonmanifold, neighbors);
        break;
    case EL_TETRA4:
        rc = match_boundaries<3, EL_TETRA4>(connectM, FE_type, flag_nonmanifold, neighbors);
        break;
    case EL_PYRAM5:
        rc = match_boundaries<4, EL_PYRAM5>(connectM, FE_type, flag_nonmanifold, neighbors);
        break;
    case EL_PENTA6:
        rc = match_boundaries<4, EL_PENTA6>(connectM, FE_type, flag_nonmanifold, neighbors);
        break;
    case EL_HEXA8:
        rc = match_boundaries<4, EL_HEXA8>(connectM, FE_type, flag_nonmanifold, neighbors);
        break;
    default: // EL_SOLID_MIX
        rc = match_boundaries<4, EL_SOLID_MIX>(connectM, FE_type, flag_nonmanifold, neighbors);
        break;
    }
    if (rc != 0) neighbors.clear();
    return rc;
}

} // namespace qx7::meshutil
