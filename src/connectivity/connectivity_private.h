// Helpers shared by the connectivity functions (never installed): supported types, boundary
// records, canonical boundary keys and their hash.
#pragma once

#include "model/model_private.h"

#include <cstddef>
#include <cstdint>
#include <meshutil/connectivity.h>

namespace qx7::meshutil::detail
{

/// True for the types the boundary and neighbour functions accept (after normalize_type).
inline bool boundary_type_supported(element_type FE_type) noexcept
{
    return detail::linear_or_mixed(FE_type);
}

/// Row count of the neighbour matrix of a supported type: the largest boundary count of the
/// shapes it holds (2 for EL_EDGE2, 4 for EL_FACE_MIX, 6 for EL_SOLID_MIX).
inline unsigned neighbor_rows(element_type FE_type) noexcept
{
    if (FE_type == EL_EDGE2) return 2;
    return nbr_boundaries(FE_type);
}

/// The boundary table of column p of a supported type.
inline const local_boundaries& column_table(element_type FE_type, const unsigned* p) noexcept
{
    return *boundaries_of(column_shape(FE_type, p));
}

/// Writes the R-place record of boundary k of column p: the global nodes of the table's list,
/// ~0u in the remaining places. Precondition: R >= t.size[k].
inline void boundary_record(const local_boundaries& t, const unsigned* p, unsigned k, unsigned R,
                            unsigned* record) noexcept
{
    const unsigned s = t.size[k];
    for (unsigned i = 0; i < s; ++i)
        record[i] = p[t.nodes[k][i]];
    for (unsigned i = s; i < R; ++i)
        record[i] = undefined_index;
}

/// Appends the R-place record of boundary k of column p as a new last column of out
/// (append_column); false when memory cannot be had.
inline bool append_boundary(dense2D<unsigned>& out, const local_boundaries& t, const unsigned* p,
                            unsigned k, unsigned R) noexcept
{
    unsigned record[4];
    boundary_record(t, p, k, R, record);
    return append_column(out, record, R);
}

/// True when every entry of M is ~0u or below n.
inline bool entries_below(const dense2D<unsigned>& M, std::size_t n) noexcept
{
    for (std::size_t j = 0, cols = M.cols(), rows = M.rows(); j < cols; ++j)
    {
        const unsigned* p = M.col(j);
        for (std::size_t i = 0; i < rows; ++i)
            if (p[i] != undefined_index && p[i] >= n) return false;
    }
    return true;
}

/// Canonical form of a boundary: the same value for every list of the same nodes forming the same
/// cycle, in either sense and from any start, and different values otherwise. n is the number of
/// nodes (1 to 4); unused places hold ~0u.
struct boundary_key
{
    unsigned v[4];
    unsigned n;
    bool operator==(const boundary_key& o) const noexcept
    {
        return v[0] == o.v[0] && v[1] == o.v[1] && v[2] == o.v[2] && v[3] == o.v[3] && n == o.n;
    }
};

/// Smallest of the eight rotations and reflections of a 4-cycle, compared lexicographically.
inline void min_dihedral4(const unsigned* c, unsigned* out) noexcept
{
    bool have = false;
    for (unsigned start = 0; start < 4; ++start)
        for (int dir = 1; dir >= -1; dir -= 2)
        {
            unsigned cand[4];
            for (int i = 0; i < 4; ++i)
                cand[i] = c[(start + 4 + dir * i) & 3];
            bool less = !have;
            for (int i = 0; i < 4 && !less; ++i)
            {
                if (cand[i] != out[i])
                {
                    less = cand[i] < out[i];
                    break;
                }
            }
            if (less)
            {
                for (int i = 0; i < 4; ++i)
                    out[i] = cand[i];
                have = true;
            }
        }
}

/// Canonical key of the cycle c[0..n-1], n from 1 to 4: a point as it is, an edge and a triangle
/// sorted (every order of three nodes is a rotation or reflection), a quadrangle rotated to start
/// at its smallest node and turned towards the smaller of that node's two neighbours (the
/// smallest of its eight rotations and reflections when the smallest node repeats).
inline boundary_key make_key(const unsigned* c, unsigned n) noexcept
{
    boundary_key key{{undefined_index, undefined_index, undefined_index, undefined_index}, n};
    if (n == 1)
        key.v[0] = c[0];
    else if (n == 2)
    {
        const bool swap = c[1] < c[0];
        key.v[0] = swap ? c[1] : c[0];
        key.v[1] = swap ? c[0] : c[1];
    }
    else if (n == 3)
    {
        unsigned a = c[0], b = c[1], d = c[2], t;
        if (b < a) t = a, a = b, b = t;
        if (d < b) t = b, b = d, d = t;
        if (b < a) t = a, a = b, b = t;
        key.v[0] = a;
        key.v[1] = b;
        key.v[2] = d;
    }
    else
    {
        unsigned i = 0;
        for (unsigned j = 1; j < 4; ++j)
            if (c[j] < c[i]) i = j;
        const unsigned m = c[i], next = c[(i + 1) & 3], opp = c[(i + 2) & 3], prev = c[(i + 3) & 3];
        if (next == m || opp == m || prev == m)
            min_dihedral4(c, key.v);
        else
        {
            key.v[0] = m;
            key.v[1] = next <= prev ? next : prev;
            key.v[2] = opp;
            key.v[3] = next <= prev ? prev : next;
        }
    }
    return key;
}

/// Key of boundary k of column p with table t.
inline boundary_key key_of(const local_boundaries& t, const unsigned* p, unsigned k) noexcept
{
    unsigned c[4] = {undefined_index, undefined_index, undefined_index, undefined_index};
    const unsigned n = t.size[k];
    for (unsigned i = 0; i < n; ++i)
        c[i] = p[t.nodes[k][i]];
    return make_key(c, n);
}

/// 64-bit hash of a key.
inline std::uint64_t hash_key(const boundary_key& key) noexcept
{
    std::uint64_t h = key.v[0] * 0x9e3779b97f4a7c15ull + key.v[1] * 0xc2b2ae3d27d4eb4full +
                      key.v[2] * 0x165667b19e3779f9ull + key.v[3] * 0x27d4eb2f165667c5ull + key.n;
    return mix64(h);
}

/// True when the boundary record r (R places) lists the same cycle as the boundary key's source
/// in the same sense: some rotation of r equals the cycle c[0..n-1].
inline bool same_sense(const unsigned* c, const unsigned* r, unsigned n) noexcept
{
    if (n < 3) return n == 1 || (c[0] == r[0] && c[1] == r[1]);
    for (unsigned s = 0; s < n; ++s)
    {
        bool eq = true;
        for (unsigned i = 0; i < n && eq; ++i)
            eq = c[i] == r[(s + i) % n];
        if (eq) return true;
    }
    return false;
}

} // namespace qx7::meshutil::detail
