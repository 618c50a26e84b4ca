// Pieces shared by the readers of files that name nodes and elements by identifiers (NASTRAN
// bulk data, FEMAP neutral files): the identifier-to-column table and the assembly of element
// records into one connectivity with groups (never installed).
#pragma once

#include "model/model_private.h"

#include <cstdint>
#include <meshutil/elements.h>

namespace qx7::meshutil::detail
{

/// Open-addressing table from 32-bit identifiers (never ~0u) to column numbers.
class id_table
{
public:
    /// Builds the table of ids[j] -> j. Returns 0, -3 when an identifier repeats, -199 without
    /// memory.
    int build(const dense1D<unsigned>& ids) noexcept
    {
        std::size_t n = ids.size(), cap = hash_capacity(n);
        if (!m_keys.resize(cap) || !m_vals.resize(cap)) return -199;
        m_keys = undefined_index;
        m_mask = cap - 1;
        for (std::size_t j = 0; j < n; ++j)
        {
            unsigned id = ids[j];
            std::size_t h = mix32(id) & m_mask;
            while (m_keys[h] != undefined_index)
            {
                if (m_keys[h] == id) return -3;
                h = (h + 1) & m_mask;
            }
            m_keys[h] = id;
            m_vals[h] = unsigned(j);
        }
        return 0;
    }
    /// Column of the identifier, ~0u when absent.
    unsigned find(unsigned id) const noexcept
    {
        if (m_keys.empty()) return undefined_index;
        std::size_t h = mix32(id) & m_mask;
        for (;;)
        {
            unsigned k = m_keys[h];
            if (k == id) return m_vals[h];
            if (k == undefined_index) return undefined_index;
            h = (h + 1) & m_mask;
        }
    }

private:
    dense1D<unsigned> m_keys, m_vals;
    std::size_t m_mask = 0;
};

/// Elements as read from a file: kind, identifiers, and node identifiers in the library's local
/// order (nbr_nodes(kind) entries each, ~0u where the file has no node for a row).
struct element_records
{
    dense1D<unsigned char> kinds;
    dense1D<unsigned> EIDs, PIDs, nodes;

    /// Appends one element; false without memory.
    bool add(element_type kind, unsigned EID, unsigned PID, const unsigned* n) noexcept
    {
        unsigned r = nbr_nodes(kind);
        if (!kinds.push_back((unsigned char)kind) || !EIDs.push_back(EID) || !PIDs.push_back(PID) ||
            !nodes.reserve(nodes.size() + r, nodes.size() / 2 + 64))
            return false;
        for (unsigned i = 0; i < r; ++i)
            nodes.push_back(n[i]);
        return true;
    }
};

/// Family of a kind for grouping: consecutive linear triangles and quadrangles form one group,
/// and so do consecutive linear solids; every other kind groups only with itself.
inline int group_family(element_type t) noexcept
{
    if (t == EL_TRIA3 || t == EL_QUAD4) return 100;
    if (t == EL_TETRA4 || t == EL_PYRAM5 || t == EL_PENTA6 || t == EL_HEXA8) return 101;
    return int(t);
}

/// Turns the records into the grouped-connectivity form: groups are runs of consecutive records
/// of one family; a run of one kind has that type, a run mixing kinds EL_FACE_MIX or
/// EL_SOLID_MIX. connectM gets as many rows as the largest group needs (~0u below a column's
/// nodes); node identifiers become columns of node_IDs.
/// Returns 0, -3 for an unknown node identifier or a repeated node or element identifier, -199.
inline int assemble_elements(const element_records& rec, const dense1D<unsigned>& node_IDs,
                             dense2D<unsigned>& connectM, dense1D<unsigned>& first,
                             dense1D<int>& types, dense1D<unsigned>& PIDs,
                             dense1D<unsigned>& EIDs) noexcept
{
    id_table nodes_of, elements_of;
    int rc = nodes_of.build(node_IDs);
    if (rc) return rc;
    if ((rc = elements_of.build(rec.EIDs))) return rc;
    const std::size_t n = rec.kinds.size();
    // Groups and row count.
    first.clear(), types.clear();
    std::size_t rows = 0;
    for (std::size_t j = 0; j < n;)
    {
        element_type t = element_type(rec.kinds[j]);
        int fam = group_family(t);
        bool mixed = false;
        std::size_t k = j + 1;
        for (; k < n && group_family(element_type(rec.kinds[k])) == fam; ++k)
            mixed |= rec.kinds[k] != rec.kinds[j];
        if (mixed) t = fam == 100 ? EL_FACE_MIX : EL_SOLID_MIX;
        if (!first.push_back(unsigned(j)) || !types.push_back(int(t))) return -199;
        rows = std::max<std::size_t>(rows, nbr_nodes(t));
        j = k;
    }
    if (!first.push_back(unsigned(n))) return -199;
    if (!connectM.resize(rows, n, undefined_index) || !PIDs.copy(rec.PIDs) || !EIDs.copy(rec.EIDs))
        return -199;
    connectM = undefined_index;
    const unsigned* src = rec.nodes.data();
    for (std::size_t j = 0; j < n; ++j)
    {
        unsigned r = nbr_nodes(element_type(rec.kinds[j]));
        unsigned* p = connectM.col(j);
        for (unsigned i = 0; i < r; ++i, ++src)
        {
            if (*src == undefined_index) continue;
            unsigned c = nodes_of.find(*src);
            if (c == undefined_index) return -3;
            p[i] = c;
        }
    }
    return 0;
}

/// Positions of the library's local nodes in the order NASTRAN cards list their grids (corners,
/// then mid-edge nodes; tetrahedra turned the other way): card grid p is local node order[p].
/// Sets count to the number of grids; nullptr for a type without a card. Quadratic types whose
/// face or centre nodes have no grid list fewer grids than they have rows.
inline const unsigned* nastran_order(element_type t, unsigned& count) noexcept
{
    static constexpr unsigned identity[20] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,
                                              10, 11, 12, 13, 14, 15, 16, 17, 18, 19};
    static constexpr unsigned tria6[6] = {0, 1, 2, 5, 3, 4};
    static constexpr unsigned tetra[10] = {0, 2, 1, 3, 5, 4, 6, 7, 9, 8};
    static constexpr unsigned penta15[15] = {0, 1, 2, 3, 4, 5, 11, 9, 10, 6, 7, 8, 14, 12, 13};
    static constexpr unsigned hexa20[20] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,
                                            10, 11, 16, 17, 18, 19, 12, 13, 14, 15};
    switch (t)
    {
    case EL_NODE:
        count = 1;
        return identity;
    case EL_EDGE2:
    case EL_EDGE3:
    case EL_EDGE_MIX:
        count = 2;
        return identity;
    case EL_TRIA3:
        count = 3;
        return identity;
    case EL_QUAD4:
        count = 4;
        return identity;
    case EL_TRIA6:
        count = 6;
        return tria6;
    case EL_QUAD8:
    case EL_QUAD9:
        count = 8;
        return identity;
    case EL_TETRA4:
        count = 4;
        return tetra;
    case EL_TETRA10:
        count = 10;
        return tetra;
    case EL_PYRAM5:
        count = 5;
        return identity;
    case EL_PYRAM14:
        count = 13;
        return identity;
    case EL_PENTA6:
        count = 6;
        return identity;
    case EL_PENTA18:
        count = 15;
        return penta15;
    case EL_HEXA8:
        count = 8;
        return identity;
    case EL_HEXA20:
    case EL_HEXA27:
        count = 20;
        return hexa20;
    default:
        count = 0;
        return nullptr;
    }
}

/// Places grids listed in NASTRAN order into the library's local order: lib receives
/// nbr_nodes(t) entries, ~0u in the rows the card has no grid for.
inline void from_nastran_order(element_type t, const unsigned* grids, unsigned* lib) noexcept
{
    unsigned count;
    const unsigned* order = nastran_order(t, count);
    for (unsigned i = 0, r = nbr_nodes(t); i < r; ++i)
        lib[i] = undefined_index;
    for (unsigned p = 0; p < count; ++p)
        lib[order[p]] = grids[p];
}

} // namespace qx7::meshutil::detail
