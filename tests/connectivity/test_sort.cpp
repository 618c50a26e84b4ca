// Sorting of element columns by their number of defined nodes.
#include "connectivity/matrix_util.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <meshutil/connectivity.h>
#include <random>
#include <vector>

using namespace qx7;
using namespace qx7::meshutil;
using qx7::meshutil::test_meshes::columns;
using qx7::meshutil::test_meshes::matrix;
using qx7::meshutil::test_meshes::values;

namespace
{
constexpr unsigned U = undefined_index;
} // namespace

TEST(sort_elfes, splits_a_mixed_surface_into_triangles_then_quadrangles)
{
    dense2D<unsigned> M = matrix(4, {{0, 1, 2, 3}, {4, 5, 6, U}, {7, 8, 9, 10}, {1, 2, 3, U}});
    dense1D<unsigned> order, first;
    ASSERT_EQ(sort_elfes(M, order, first), 0);
    EXPECT_EQ(values(order), (std::vector<unsigned>{1, 3, 0, 2}));
    EXPECT_EQ(values(first), (std::vector<unsigned>{0, 0, 0, 0, 2, 4}));
    dense2D<unsigned> expected =
        matrix(4, {{4, 5, 6, U}, {1, 2, 3, U}, {0, 1, 2, 3}, {7, 8, 9, 10}});
    for (std::size_t j = 0; j < 4; ++j)
        for (std::size_t i = 0; i < 4; ++i)
            EXPECT_EQ(M(i, j), expected(i, j)) << i << "," << j;
}

TEST(sort_elfes, degenerate_shapes)
{
    dense1D<unsigned> order, first;
    dense2D<unsigned> none(8, 0);
    ASSERT_EQ(sort_elfes(none, order, first), 0);
    EXPECT_TRUE(order.empty());
    EXPECT_EQ(values(first), std::vector<unsigned>(10, 0u));

    dense2D<unsigned> no_rows(0, 3);
    ASSERT_EQ(sort_elfes(no_rows, order, first), 0);
    EXPECT_EQ(values(order), (std::vector<unsigned>{0, 1, 2}));
    EXPECT_EQ(values(first), (std::vector<unsigned>{0, 3}));

    // Only undefined entries: every column has 0 defined nodes; the outputs are reused.
    dense2D<unsigned> undefined(2, 2, U);
    ASSERT_EQ(sort_elfes(undefined, order, first), 0);
    EXPECT_EQ(values(order), (std::vector<unsigned>{0, 1}));
    EXPECT_EQ(values(first), (std::vector<unsigned>{0, 2, 2, 2}));
}

// Random mixed solids, also seen through a view whose leading dimension exceeds its rows,
// against a stable sort of the columns by their defined-node count.
TEST(sort_elfes, matches_a_stable_sort_on_random_mixed_solids)
{
    std::mt19937 gen(17);
    const unsigned sizes[4] = {4, 5, 6, 8};
    for (int trial = 0; trial < 40; ++trial)
    {
        const std::size_t n = gen() % 50;
        dense2D<unsigned> parent(10, n + 2, 7u);
        dense2D<unsigned> M = parent.sub_matrix(1, 1, 8, n);
        std::vector<std::vector<unsigned>> cols(n);
        for (std::size_t j = 0; j < n; ++j)
        {
            const unsigned s = sizes[gen() % 4];
            for (unsigned i = 0; i < 8; ++i)
            {
                M(i, j) = i < s ? unsigned(gen() % 100) : U;
                cols[j].push_back(M(i, j));
            }
        }
        dense1D<unsigned> order, first;
        ASSERT_EQ(sort_elfes(M, order, first), 0);

        auto count = [](const std::vector<unsigned>& c)
        { return std::count_if(c.begin(), c.end(), [](unsigned x) { return x != U; }); };
        std::vector<unsigned> ref(n);
        for (std::size_t j = 0; j < n; ++j)
            ref[j] = unsigned(j);
        std::stable_sort(ref.begin(), ref.end(),
                         [&](unsigned a, unsigned b) { return count(cols[a]) < count(cols[b]); });
        ASSERT_EQ(values(order), ref);
        ASSERT_EQ(first.size(), 10u);
        EXPECT_EQ(first[0], 0u);
        EXPECT_EQ(first[9], n);
        for (std::size_t k = 0; k <= 8; ++k)
            for (unsigned j = first[k]; j < first[k + 1]; ++j)
                EXPECT_EQ(count(cols[order[j]]), long(k));
        for (std::size_t j = 0; j < n; ++j)
            for (std::size_t i = 0; i < 8; ++i)
                ASSERT_EQ(M(i, j), cols[order[j]][i]);
        // The rows and columns around the view are not touched.
        for (std::size_t j = 0; j < n + 2; ++j)
        {
            EXPECT_EQ(parent(0, j), 7u);
            EXPECT_EQ(parent(9, j), 7u);
        }
        EXPECT_EQ(parent(1, 0), 7u);
        EXPECT_EQ(parent(1, n + 1), 7u);
    }
}
