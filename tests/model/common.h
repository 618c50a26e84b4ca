// Setup shared by the element-type and ID tests: names and small builders of vectors and
// matrices from literal values.
#pragma once

#include <algorithm>
#include <gtest/gtest.h>
#include <initializer_list>
#include <meshutil/elements.h>
#include <vector>

using namespace qx7::meshutil;
using qx7::dense1D;
using qx7::dense2D;
using qx7::vector_fixed;

namespace
{
constexpr unsigned U = undefined_index;

/// A vector holding the values.
inline dense1D<unsigned> vec(std::initializer_list<unsigned> v)
{
    dense1D<unsigned> out(v.size());
    std::copy(v.begin(), v.end(), out.begin());
    return out;
}

/// The values of v.
inline std::vector<unsigned> std_of(const dense1D<unsigned>& v)
{
    return {v.begin(), v.end()};
}

/// A matrix of the given row count filled column by column with the values.
inline dense2D<unsigned> columns(std::size_t rows, std::initializer_list<unsigned> values)
{
    dense2D<unsigned> M(rows, values.size() / rows);
    std::size_t k = 0;
    for (unsigned v : values)
        M(k % rows, k / rows) = v, ++k;
    return M;
}
} // namespace
