// Element-type lookups and the typed conformity check of a connectivity.
#include <meshutil/elements.h>

namespace qx7::meshutil
{
namespace
{

struct type_row
{
    unsigned dim, nodes, base_nodes, boundaries, record_size;
};

// One row per element_type value, 0 to 20.
constexpr type_row type_table[nbr_element_types] = {{0, 0, 0, 0, 0},   // EL_UNKNOWN
                                                    {0, 1, 1, 0, 0},   // EL_NODE
                                                    {1, 2, 2, 1, 1},   // EL_EDGE_MIX
                                                    {1, 2, 2, 1, 1},   // EL_EDGE2
                                                    {1, 3, 2, 1, 1},   // EL_EDGE3
                                                    {2, 4, 4, 4, 2},   // EL_FACE_MIX
                                                    {2, 3, 3, 3, 2},   // EL_TRIA3
                                                    {2, 4, 4, 4, 2},   // EL_QUAD4
                                                    {2, 6, 3, 3, 3},   // EL_TRIA6
                                                    {2, 8, 4, 4, 3},   // EL_QUAD8
                                                    {2, 9, 4, 4, 3},   // EL_QUAD9
                                                    {3, 8, 8, 6, 4},   // EL_SOLID_MIX
                                                    {3, 4, 4, 4, 3},   // EL_TETRA4
                                                    {3, 10, 4, 4, 6},  // EL_TETRA10
                                                    {3, 5, 5, 5, 4},   // EL_PYRAM5
                                                    {3, 14, 5, 5, 9},  // EL_PYRAM14
                                                    {3, 6, 6, 5, 4},   // EL_PENTA6
                                                    {3, 18, 6, 5, 9},  // EL_PENTA18
                                                    {3, 8, 8, 6, 4},   // EL_HEXA8
                                                    {3, 20, 8, 6, 8},  // EL_HEXA20
                                                    {3, 27, 8, 6, 9}}; // EL_HEXA27

constexpr type_row no_type = {0, 0, 0, 0, 0};

const type_row& row_of(element_type t) noexcept
{
    unsigned k = static_cast<unsigned>(t);
    return k < nbr_element_types ? type_table[k] : no_type;
}

} // namespace

unsigned element_dim(element_type FE_type) noexcept
{
    return row_of(FE_type).dim;
}
unsigned nbr_nodes(element_type FE_type) noexcept
{
    return row_of(FE_type).nodes;
}
unsigned nbr_base_nodes(element_type FE_type) noexcept
{
    return row_of(FE_type).base_nodes;
}
unsigned nbr_boundaries(element_type FE_type) noexcept
{
    return row_of(FE_type).boundaries;
}
unsigned boundary_record_size(element_type FE_type) noexcept
{
    return row_of(FE_type).record_size;
}

bool check_IDs(const dense2D<unsigned>& connectM, element_type FE_type, unsigned max_ID) noexcept
{
    if (connectM.empty()) return true;
    const std::size_t rows = connectM.rows(), cols = connectM.cols();
    const element_type type = normalize_type(FE_type, rows);
    if (static_cast<unsigned>(type) >= nbr_element_types) return false;

    if (type == EL_FACE_MIX)
    {
        if (rows != 4) return false;
        if (max_ID == undefined_index) return true;
        for (std::size_t j = 0; j < cols; ++j)
        {
            const unsigned* p = connectM.col(j);
            for (std::size_t i = 0; i < 4; ++i)
            {
                if (i == 3 && p[i] == undefined_index) break;
                if (p[i] >= max_ID) return false;
            }
        }
        return true;
    }
    if (type == EL_SOLID_MIX)
    {
        if (rows != 8) return false;
        if (max_ID == undefined_index) return true;
        for (std::size_t j = 0; j < cols; ++j)
        {
            const unsigned* p = connectM.col(j);
            std::size_t end = 8;
            for (std::size_t i = 4; i < 7; ++i)
                if (p[i] == undefined_index)
                {
                    end = i;
                    break;
                }
            for (std::size_t i = 0; i < end; ++i)
                if (p[i] >= max_ID) return false;
            for (std::size_t i = end; i < 8; ++i)
                if (p[i] != undefined_index) return false;
        }
        return true;
    }
    if (rows != nbr_nodes(type)) return false;
    if (max_ID == undefined_index) return true;
    for (std::size_t j = 0; j < cols; ++j)
    {
        const unsigned* p = connectM.col(j);
        for (std::size_t i = 0; i < rows; ++i)
            if (p[i] >= max_ID) return false;
    }
    return true;
}

} // namespace qx7::meshutil
