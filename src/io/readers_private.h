// Pieces shared by the readers of files that name nodes and elements by identifiers (NASTRAN
// bulk data, FEMAP neutral files): the identifier-to-column table and the assembly of element
// records into one connectivity with groups (never installed).
#pragma once

#include "io/io_private.h"
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
    /// memory. Identifiers 1, 2, ..., n in this order (the usual numbering) need no table.
    int build(const dense1D<unsigned>& ids) noexcept
    {
        std::size_t n = ids.size(), cap = hash_capacity(n);
        m_direct = n;
        for (std::size_t j = 0; j < n && m_direct == n; ++j)
            if (ids[j] != j + 1) m_direct = 0;
        if (m_direct == n) return 0;
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
        if (m_direct) return id >= 1 && id <= m_direct ? id - 1 : undefined_index;
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
    std::size_t m_direct = 0; // n when the identifiers are 1 .. n in order
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

/// The grouped readers' frame: empties every output, runs the reader (built from pos and
/// node_IDs, which it fills, and collecting element records), assembles the groups, and on any
/// error empties every output again. Returns the reader's or the assembly's code.
template <class Reader>
int read_grouped(const char* filename, dense2D<double>& pos, dense2D<unsigned>& connectM,
                 dense1D<unsigned>& first, dense1D<int>& types, dense1D<unsigned>& PIDs,
                 dense1D<unsigned>& node_IDs, dense1D<unsigned>& element_IDs) noexcept
{
    auto clear_all = [&]
    {
        pos.clear(), connectM.clear(), first.clear(), types.clear();
        PIDs.clear(), node_IDs.clear(), element_IDs.clear();
    };
    clear_all();
    Reader r{{}, pos, node_IDs, {}};
    int rc = r.run(filename);
    if (rc == 0)
        rc = assemble_elements(r.elements, node_IDs, connectM, first, types, PIDs, element_IDs);
    if (rc) clear_all();
    return rc;
}

/// Grid order of NASTRAN cards (card grid p is local node order[p]), from the writer's table;
/// sets count to the number of grids. EL_NODE and EL_EDGE_MIX take their nodes in order; the
/// other types without a card give count 0.
inline const unsigned char* nastran_order(element_type t, unsigned& count) noexcept
{
    static constexpr unsigned char in_order[2] = {0, 1};
    count = t == EL_NODE ? 1 : t == EL_EDGE_MIX ? 2 : 0;
    if (count) return in_order;
    if (unsigned(t) >= nbr_element_types) return in_order;
    count = io::nastran_layouts[t].count;
    return io::nastran_layouts[t].nodes;
}

/// Places grids listed in NASTRAN order into the library's local order: lib receives
/// nbr_nodes(t) entries, ~0u in the rows the card has no grid for.
inline void from_nastran_order(element_type t, const unsigned* grids, unsigned* lib) noexcept
{
    unsigned count;
    const unsigned char* order = nastran_order(t, count);
    for (unsigned i = 0, r = nbr_nodes(t); i < r; ++i)
        lib[i] = undefined_index;
    for (unsigned p = 0; p < count; ++p)
        lib[order[p]] = grids[p];
}

} // namespace qx7::meshutil::detail
