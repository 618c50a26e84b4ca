// Connected parts of a mesh, and the reordering by parts.
#include "connectivity/common.h"
#include "connectivity/random_meshes.h"

#include <algorithm>
#include <deque>
#include <random>

namespace
{
/// Listing by the plain rule: seeds in increasing order, a first-in first-out queue of every
/// unvisited neighbour, an element dropped when it comes out already visited.
void brute_subdomains(const dense2D<unsigned>& N, list& order, list& first)
{
    const std::size_t n = N.cols();
    std::vector<bool> visited(n, false);
    order.clear();
    first.assign(1, 0);
    for (std::size_t seed = 0; seed < n; ++seed)
    {
        if (visited[seed]) continue;
        std::deque<unsigned> queue{unsigned(seed)};
        while (!queue.empty())
        {
            const unsigned e = queue.front();
            queue.pop_front();
            if (visited[e]) continue;
            visited[e] = true;
            order.push_back(e);
            for (std::size_t i = 0; i < N.rows(); ++i)
                if (N(i, e) < n && !visited[N(i, e)]) queue.push_back(N(i, e));
        }
        first.push_back(unsigned(order.size()));
    }
}

} // namespace

TEST(get_subdomains, small_cases)
{
    dense1D<unsigned> order, first;
    ASSERT_EQ(get_subdomains(dense2D<unsigned>(3, 0), order, first), 0);
    EXPECT_TRUE(order.empty());
    EXPECT_EQ(values(first), (list{0}));

    // Triangles 0 and 2 are neighbours, 1 is alone.
    const dense2D<unsigned> N = matrix(3, {{2, U, U}, {U, U, U}, {U, 0, U}});
    ASSERT_EQ(get_subdomains(N, order, first), 0);
    EXPECT_EQ(values(order), (list{0, 2, 1}));
    EXPECT_EQ(values(first), (list{0, 2, 3}));

    // A link recorded on one side only is followed from that side only; out-of-range entries
    // are skipped.
    ASSERT_EQ(get_subdomains(matrix(2, {{3, 7}, {U, U}, {1, U}}), order, first), 0);
    EXPECT_EQ(values(order), (list{0, 1, 2}));
    EXPECT_EQ(values(first), (list{0, 1, 2, 3}));

    // The reordering form: new column 1 is old triangle 2, the entries naming 2 now name 1.
    dense2D<unsigned> M = matrix(3, {{0, 1, 2}, {5, 6, 7}, {2, 1, 3}});
    dense2D<unsigned> NR;
    NR.copy(N);
    ASSERT_EQ(get_subdomains(M, NR, first), 0);
    EXPECT_EQ(columns(M), (records{{0, 1, 2}, {2, 1, 3}, {5, 6, 7}}));
    EXPECT_EQ(columns(NR), (records{{1, U, U}, {U, 0, U}, {U, U, U}}));
    EXPECT_EQ(values(first), (list{0, 2, 3}));

    dense2D<unsigned> short_n = matrix(3, {{1, U, U}});
    EXPECT_EQ(get_subdomains(M, short_n, first), -2);
    EXPECT_EQ(columns(M), (records{{0, 1, 2}, {2, 1, 3}, {5, 6, 7}}));
}

// Random meshes of every type, with few shared boundaries and so several pieces: the listing
// matches the plain queue rule; the reordering form moves the columns by that order and leaves
// the neighbour matrix that get_neighbors computes for the new connectivity.
TEST(get_subdomains, matches_the_queue_rule_on_random_meshes)
{
    std::mt19937 gen(8);
    for (element_type type : linear_types)
        for (int trial = 0; trial < 3; ++trial)
        {
            dense2D<unsigned> M = gm::random_mesh(type, 1 + gen() % 60, 40 + gen() % 60, gen);
            dense2D<unsigned> N;
            ASSERT_EQ(get_neighbors(M, type, false, N), 0);
            dense1D<unsigned> order, first;
            ASSERT_EQ(get_subdomains(N, order, first), 0);
            list ref_order, ref_first;
            brute_subdomains(N, ref_order, ref_first);
            EXPECT_EQ(values(order), ref_order);
            EXPECT_EQ(values(first), ref_first);

            const records old_columns = columns(M);
            ASSERT_EQ(get_subdomains(M, N, first), 0);
            EXPECT_EQ(values(first), ref_first);
            const records new_columns = columns(M);
            for (std::size_t j = 0; j < M.cols(); ++j)
                ASSERT_EQ(new_columns[j], old_columns[order[j]]);
            dense2D<unsigned> fresh;
            ASSERT_EQ(get_neighbors(M, type, false, fresh), 0);
            EXPECT_EQ(columns(N), columns(fresh));
        }
}
