// Setup shared by the connectivity tests: names, small conversions between the containers and
// std::vector, and the two-triangle mesh most hand-made cases start from.
#pragma once

#include <gtest/gtest.h>
#include <meshutil/connectivity.h>
#include <vector>

namespace qx7::meshutil::test_meshes
{

using list = std::vector<unsigned>;
using records = std::vector<std::vector<unsigned>>;
constexpr unsigned U = undefined_index;

/// The linear and mixed types the boundary and neighbour functions accept.
inline constexpr element_type linear_types[] = {EL_EDGE2,    EL_TRIA3,  EL_QUAD4,
                                                EL_FACE_MIX, EL_TETRA4, EL_PYRAM5,
                                                EL_PENTA6,   EL_HEXA8,  EL_SOLID_MIX};

/// The mixed type that reads a matrix of the type's row count as that type (EL_TRIA3 from
/// EL_FACE_MIX; EL_TETRA4, EL_PYRAM5, EL_PENTA6 from EL_SOLID_MIX), else the type itself.
inline element_type mixed_alias(element_type type)
{
    if (type == EL_TRIA3) return EL_FACE_MIX;
    if (type == EL_TETRA4 || type == EL_PYRAM5 || type == EL_PENTA6) return EL_SOLID_MIX;
    return type;
}

/// A rows x columns.size() matrix, column j holding columns[j].
inline dense2D<unsigned> matrix(std::size_t rows, const records& columns)
{
    dense2D<unsigned> M(rows, columns.size());
    for (std::size_t j = 0; j < columns.size(); ++j)
        for (std::size_t i = 0; i < rows; ++i)
            M(i, j) = columns[j][i];
    return M;
}

/// The columns of M as vectors.
inline records columns(const dense2D<unsigned>& M)
{
    records c(M.cols());
    for (std::size_t j = 0; j < M.cols(); ++j)
        c[j].assign(M.col(j), M.col(j) + M.rows());
    return c;
}

/// The values of v.
inline list values(const dense1D<unsigned>& v)
{
    return list(v.begin(), v.end());
}

//   2 ------ 3
//   | \  1   |      triangles 0 = (0, 1, 2) and 1 = (2, 1, 3) share the edge 1-2:
//   |  0  \  |      edge 0 of triangle 0, edge 2 of triangle 1
//   0 ------ 1
inline dense2D<unsigned> two_triangles()
{
    return matrix(3, {{0, 1, 2}, {2, 1, 3}});
}

} // namespace qx7::meshutil::test_meshes

using namespace qx7;
using namespace qx7::meshutil;
using namespace qx7::meshutil::test_meshes;
namespace gm = qx7::meshutil::test_meshes;
