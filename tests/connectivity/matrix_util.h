// Small conversions between the containers and std::vector for the connectivity tests.
#pragma once

#include <meshutil/containers.h>
#include <vector>

namespace qx7::meshutil::test_meshes
{

/// A rows x columns.size() matrix, column j holding columns[j].
inline dense2D<unsigned> matrix(std::size_t rows, const std::vector<std::vector<unsigned>>& columns)
{
    dense2D<unsigned> M(rows, columns.size());
    for (std::size_t j = 0; j < columns.size(); ++j)
        for (std::size_t i = 0; i < rows; ++i)
            M(i, j) = columns[j][i];
    return M;
}

/// The columns of M as vectors.
inline std::vector<std::vector<unsigned>> columns(const dense2D<unsigned>& M)
{
    std::vector<std::vector<unsigned>> c(M.cols());
    for (std::size_t j = 0; j < M.cols(); ++j)
        c[j].assign(M.col(j), M.col(j) + M.rows());
    return c;
}

/// The values of v.
inline std::vector<unsigned> values(const dense1D<unsigned>& v)
{
    return std::vector<unsigned>(v.begin(), v.end());
}

} // namespace qx7::meshutil::test_meshes
