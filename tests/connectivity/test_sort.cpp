// Sorting of element columns by their number of defined nodes.
#include "connectivity/common.h"

#include <algorithm>
#include <random>

TEST(sort_elfes, degenerate_shapes)
{
    dense1D<unsigned> order, first;
    dense2D<unsigned> none(8, 0);
    ASSERT_EQ(sort_elfes(none, order, first), 0);
    EXPECT_TRUE(order.empty());
    EXPECT_EQ(values(first), list(10, 0u));

    dense2D<unsigned> no_rows(0, 3);
    ASSERT_EQ(sort_elfes(no_rows, order, first), 0);
    EXPECT_EQ(values(order), (list{0, 1, 2}));
    EXPECT_EQ(values(first), (list{0, 3}));

    // Only undefined entries: every column has 0 defined nodes; the outputs are reused.
    dense2D<unsigned> undefined(2, 2, U);
    ASSERT_EQ(sort_elfes(undefined, order, first), 0);
    EXPECT_EQ(values(order), (list{0, 1}));
    EXPECT_EQ(values(first), (list{0, 2, 2, 2}));
}

// Random mixed solids, seen through a view whose leading dimension exceeds its rows, against a
// stable sort of the columns by their defined-node count; nothing around the view is touched.
TEST(sort_elfes, matches_a_stable_sort_on_random_mixed_solids)
{
    std::mt19937 gen(17);
    const unsigned sizes[4] = {4, 5, 6, 8};
    for (int trial = 0; trial < 40; ++trial)
    {
        const std::size_t n = gen() % 50;
        dense2D<unsigned> parent(10, n + 2, 7u);
        dense2D<unsigned> M = parent.sub_matrix(1, 1, 8, n);
        records cols(n);
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

        auto count = [](const list& c)
        { return std::count_if(c.begin(), c.end(), [](unsigned x) { return x != U; }); };
        list ref(n);
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
        for (std::size_t j = 0; j < n + 2; ++j)
        {
            EXPECT_EQ(parent(0, j), 7u);
            EXPECT_EQ(parent(9, j), 7u);
        }
        EXPECT_EQ(parent(1, 0), 7u);
        EXPECT_EQ(parent(1, n + 1), 7u);
    }
}
