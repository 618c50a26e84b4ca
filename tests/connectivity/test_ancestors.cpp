// Node-to-element connectivity and the node graph.
#include "connectivity/common.h"

#include <algorithm>
#include <random>

namespace
{
/// Node graph by brute force: for node i, the columns holding i in increasing order, their rows
/// top to bottom, each other node once, in order of discovery.
std::vector<list> brute_graph(const dense2D<unsigned>& M, std::size_t n)
{
    std::vector<list> g(n);
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < M.cols(); ++j)
        {
            const list c(M.col(j), M.col(j) + M.rows());
            if (std::find(c.begin(), c.end(), i) == c.end()) continue;
            for (unsigned x : c)
                if (x != U && x != i && std::find(g[i].begin(), g[i].end(), x) == g[i].end())
                    g[i].push_back(x);
        }
    return g;
}
} // namespace

TEST(get_ancestors, two_triangles)
{
    const dense2D<unsigned> M = two_triangles();
    dense1D<unsigned> a;
    ASSERT_EQ(get_ancestors(M, a), 0);
    EXPECT_EQ(values(a), (list{0, 1, 1, 1}));
    // A table given by the caller keeps its size; nodes beyond it are ignored (here a view: the
    // rest of its parent stays as it was).
    dense1D<unsigned> parent(4, 7u), b = parent.sub_vector(0, 2);
    ASSERT_EQ(get_ancestors(M, b), 0);
    EXPECT_EQ(values(parent), (list{0, 1, 7, 7}));
    // Nodes no element uses keep their old values; an empty matrix changes nothing.
    dense1D<unsigned> c(6, 9u);
    ASSERT_EQ(get_ancestors(M, c), 0);
    EXPECT_EQ(values(c), (list{0, 1, 1, 1, 9, 9}));
    ASSERT_EQ(get_ancestors(dense2D<unsigned>(3, 0), c), 0);
    EXPECT_EQ(c.size(), 6u);
    // ~0u entries of a mixed matrix are skipped.
    dense1D<unsigned> d;
    ASSERT_EQ(get_ancestors(matrix(4, {{4, 5, 6, U}}), d), 0);
    EXPECT_EQ(values(d), (list{U, U, U, U, 0, 0, 0}));
}

// Random connectivities with ~0u entries, repeated nodes and unused node numbers, read through a
// view, against brute force: the elements of every node, and its neighbours in order of
// discovery; the graph is symmetric. The first two have no column and no defined entry; the
// outputs are reused from one matrix to the next.
TEST(get_node_graph, matches_brute_force_on_random_connectivities)
{
    std::mt19937 gen(99);
    dense1D<unsigned> first_ne, elements, first, graph;
    for (int trial = 0; trial < 32; ++trial)
    {
        const std::size_t rows = 1 + gen() % 8, cols = trial == 0 ? 0 : 1 + gen() % 30;
        const unsigned pool = 1 + gen() % 40;
        dense2D<unsigned> parent(rows + 2, cols);
        for (std::size_t j = 0; j < cols; ++j)
            for (std::size_t i = 0; i < rows + 2; ++i)
                parent(i, j) = trial == 1 || gen() % 7 == 0 ? U : unsigned(gen() % pool);
        const dense2D<unsigned> M = parent.sub_matrix(1, 0, rows, cols);

        ASSERT_EQ(get_connected_elements(M, first_ne, elements), 0);
        const std::size_t n = first_ne.size() - 1;
        ASSERT_EQ(n, unsigned(max_ID(M) + 1)); // no column: max_ID is ~0u, n is 0
        ASSERT_EQ(first_ne[n], elements.size());
        for (std::size_t x = 0; x < n; ++x)
        {
            list expected;
            for (std::size_t j = 0; j < cols; ++j)
                for (std::size_t r = 0; r < rows; ++r)
                    if (M(r, j) == x) expected.push_back(unsigned(j));
            ASSERT_EQ(list(elements.begin() + first_ne[x], elements.begin() + first_ne[x + 1]),
                      expected);
        }

        ASSERT_EQ(get_node_graph(M, first, graph), 0);
        ASSERT_EQ(first.size(), n + 1);
        ASSERT_EQ(first[n], graph.size());
        const std::vector<list> ref = brute_graph(M, n);
        for (std::size_t i = 0; i < n; ++i)
        {
            const list got(graph.begin() + first[i], graph.begin() + first[i + 1]);
            ASSERT_EQ(got, ref[i]) << "node " << i;
            for (unsigned j : got)
                EXPECT_NE(std::find(ref[j].begin(), ref[j].end(), unsigned(i)), ref[j].end());
        }
    }
}
