// Free boundaries of a mesh, as records or as codes, and the elements owning given boundaries.
#include "connectivity/connectivity_private.h"

#include <algorithm>
#include <meshutil/connectivity.h>

namespace qx7::meshutil
{

int get_mesh_boundaries(const dense2D<unsigned>& connectM, const dense2D<unsigned>& neighbors,
                        element_type FE_type, dense2D<unsigned>& boundaries) noexcept
{
    const std::size_t n = connectM.cols();
    if (n == 0) return 0;
    FE_type = normalize_type(FE_type, connectM.rows());
    if (connectM.rows() != nbr_nodes(FE_type)) return -1;
    const unsigned B = nbr_boundaries(FE_type);
    if (neighbors.cols() != n || neighbors.rows() != B || !detail::entries_below(neighbors, n))
        return -2;
    const unsigned R = boundary_record_size(FE_type);
    if (!boundaries.empty() && boundaries.rows() != R) return -4;
    if (!detail::boundary_type_supported(FE_type)) return -3;

    for (std::size_t j = 0; j < n; ++j)
    {
        const unsigned* p = connectM.col(j);
        const unsigned* nb = neighbors.col(j);
        const local_boundaries& t = detail::column_table(FE_type, p);
        for (unsigned k = 0, kn = std::min(t.count, B); k < kn; ++k)
            if (nb[k] == undefined_index && !detail::append_boundary(boundaries, t, p, k, R))
                return -199;
    }
    return 0;
}

int get_mesh_bounding_elements(const dense2D<unsigned>& connectM,
                               const dense2D<unsigned>& neighbors, element_type FE_type,
                               dense1D<unsigned>& codes, unsigned& nbr_bound) noexcept
{
    nbr_bound = 0;
    if (connectM.empty()) return 0;
    FE_type = normalize_type(FE_type, connectM.rows());
    if (!check_IDs(connectM, FE_type, undefined_index)) return -1;
    nbr_bound = nbr_boundaries(FE_type);
    if (!detail::boundary_type_supported(FE_type)) return -2;
    const std::size_t n = connectM.cols();
    if (connectM.rows() != nbr_nodes(FE_type)) return -1;
    if (neighbors.cols() != n || neighbors.rows() != nbr_bound) return -2;

    for (std::size_t j = 0; j < n; ++j)
    {
        const unsigned* p = connectM.col(j);
        const unsigned* nb = neighbors.col(j);
        const unsigned kn = std::min(detail::column_table(FE_type, p).count, nbr_bound);
        for (unsigned k = 0; k < kn; ++k)
        {
            if (nb[k] != undefined_index) continue;
            if (codes.size() == codes.capacity() &&
                !codes.reserve(std::max<std::size_t>(4, 2 * codes.size())))
                return -199;
            if (!codes.push_back(static_cast<unsigned>(j * nbr_bound + k))) return -199;
        }
    }
    return 0;
}

namespace
{
/// Number of defined places of a boundary record of R places, or 0 when it cannot be a boundary
/// (an undefined node among its first places): a 4-place record ending with ~0u is a triangle.
inline unsigned record_nodes(const unsigned* r, unsigned R) noexcept
{
    const unsigned n = (R == 4 && r[3] == undefined_index) ? 3 : R;
    for (unsigned i = 0; i < n; ++i)
        if (r[i] == undefined_index) return 0;
    return n;
}
} // namespace

int get_elements_on_boundaries(const dense2D<unsigned>& connectM, element_type FE_type,
                               const dense2D<unsigned>& boundaries, dense1D<unsigned>& codes,
                               unsigned& nbr_bound) noexcept
{
    codes.clear();
    nbr_bound = 0;
    const std::size_t nrec = boundaries.empty() ? 0 : boundaries.cols();
    if (connectM.empty()) return codes.resize(nrec, undefined_index) ? 0 : -199;
    FE_type = normalize_type(FE_type, connectM.rows());
    if (!check_IDs(connectM, FE_type, undefined_index)) return -1;
    if (!detail::boundary_type_supported(FE_type)) return -2;
    const unsigned R = boundary_record_size(FE_type);
    if (!boundaries.empty() && boundaries.rows() != R) return -3;
    nbr_bound = FE_type == EL_EDGE2 ? 2 : nbr_boundaries(FE_type);
    if (nrec == 0) return 0;

    // The records go in an open-addressing table of their keys (first record of each key, the
    // others chained behind it); then every boundary of every element is looked up in it.
    const std::size_t cap = detail::hash_capacity(nrec), mask = cap - 1;
    dense1D<detail::boundary_key> keys;
    dense1D<unsigned> heads, next;
    dense1D<unsigned char> same;
    if (nrec >= undefined_index || !codes.resize(nrec, undefined_index) || !keys.resize(nrec) ||
        !heads.resize(cap, undefined_index) || !next.resize(nrec, undefined_index) ||
        !same.resize(nrec, 0))
    {
        codes.clear();
        return -199;
    }
    for (std::size_t r = 0; r < nrec; ++r)
    {
        const unsigned* rec = boundaries.col(r);
        const unsigned size = record_nodes(rec, R);
        if (size == 0) continue;
        keys[r] = detail::make_key(rec, size);
        for (std::size_t h = detail::hash_key(keys[r]) & mask;; h = (h + 1) & mask)
        {
            unsigned& head = heads[h];
            if (head == undefined_index)
            {
                head = static_cast<unsigned>(r);
                break;
            }
            if (keys[head] == keys[r])
            {
                // Chained right behind the first record of the key (the order does not matter:
                // every record of a key gets the same answer).
                next[r] = next[head];
                next[head] = static_cast<unsigned>(r);
                break;
            }
        }
    }

    for (std::size_t j = 0, n = connectM.cols(); j < n; ++j)
    {
        const unsigned* p = connectM.col(j);
        const local_boundaries& t = detail::column_table(FE_type, p);
        for (unsigned k = 0; k < t.count; ++k)
        {
            const detail::boundary_key key = detail::key_of(t, p, k);
            std::size_t h = detail::hash_key(key) & mask;
            while (heads[h] != undefined_index && !(keys[heads[h]] == key))
                h = (h + 1) & mask;
            if (heads[h] == undefined_index) continue;
            unsigned cycle[4];
            for (unsigned i = 0; i < t.size[k]; ++i)
                cycle[i] = p[t.nodes[k][i]];
            const unsigned code = static_cast<unsigned>(j * nbr_bound + k);
            // Elements come in increasing order: the first one listing the record in its own
            // sense wins, else the first one at all.
            for (unsigned r = heads[h]; r != undefined_index; r = next[r])
            {
                if (same[r]) continue;
                const bool s = detail::same_sense(cycle, boundaries.col(r), t.size[k]);
                if (s || codes[r] == undefined_index)
                {
                    codes[r] = code;
                    same[r] = s;
                }
            }
        }
    }
    return 0;
}

} // namespace qx7::meshutil
