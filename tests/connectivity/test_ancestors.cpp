// Node-to-element connectivity and the node graph.
#include "connectivity/grid_meshes.h"
#include "connectivity/matrix_util.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <meshutil/connectivity.h>
#include <random>
#include <vector>

using namespace qx7;
using namespace qx7::meshutil;
using qx7::meshutil::test_meshes::matrix;
using qx7::meshutil::test_meshes::values;
using list = std::vector<unsigned>;

namespace
{
constexpr unsigned U = undefined_index;

/// A random connectivity over nodes 0 .. pool-1 with some ~0u entries and repeated nodes.
dense2D<unsigned> random_connectivity(std::mt19937& gen, std::size_t rows, std::size_t cols,
                                      unsigned pool)
{
    dense2D<unsigned> M(rows, cols);
    for (std::size_t j = 0; j < cols; ++j)
        for (std::size_t i = 0; i < rows; ++i)
            M(i, j) = gen() % 7 == 0 ? U : unsigned(gen() % pool);
    return M;
}

/// Node graph by brute force: for node i, the columns holding i in increasing order, their rows
/// top to bottom, each other node once, in order of discovery.
std::vector<list> brute_graph(const dense2D<unsigned>& M, std::size_t n)
{
    std::vector<list> g(n);
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < M.cols(); ++j)
        {
            bool holds = false;
            for (std::size_t r = 0; r < M.rows(); ++r)
                holds = holds || M(r, j) == i;
            if (!holds) continue;
            for (std::size_t r = 0; r < M.rows(); ++r)
            {
                const unsigned x = M(r, j);
                if (x != U && x != i && std::find(g[i].begin(), g[i].end(), x) == g[i].end())
                    g[i].push_back(x);
            }
        }
    return g;
}
} // namespace

//   2 ------ 3
//   | \  1   |      triangles 0 = (0, 1, 2) and 1 = (2, 1, 3)
//   |  0  \  |
//   0 ------ 1
TEST(get_ancestors, two_triangles)
{
    const dense2D<unsigned> M = matrix(3, {{0, 1, 2}, {2, 1, 3}});
    dense1D<unsigned> a;
    ASSERT_EQ(get_ancestors(M, a), 0);
    EXPECT_EQ(values(a), (list{0, 1, 1, 1}));
    // A table given by the caller keeps its size; nodes beyond it are ignored.
    dense1D<unsigned> b(2, 7u);
    ASSERT_EQ(get_ancestors(M, b), 0);
    EXPECT_EQ(values(b), (list{0, 1}));
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

TEST(get_connected_elements, small_cases)
{
    dense1D<unsigned> first, elements;
    ASSERT_EQ(get_connected_elements(matrix(3, {{0, 1, 2}, {2, 1, 3}}), first, elements), 0);
    EXPECT_EQ(values(first), (list{0, 1, 3, 5, 6}));
    EXPECT_EQ(values(elements), (list{0, 0, 1, 0, 1, 1}));

    ASSERT_EQ(get_connected_elements(matrix(4, {{4, 5, 6, U}}), first, elements), 0);
    EXPECT_EQ(values(first), (list{0, 0, 0, 0, 0, 1, 2, 3}));
    EXPECT_EQ(values(elements), (list{0, 0, 0}));

    ASSERT_EQ(get_connected_elements(matrix(2, {{U, U}, {U, U}}), first, elements), 0);
    EXPECT_EQ(values(first), (list{0, 0}));
    EXPECT_TRUE(elements.empty());

    ASSERT_EQ(get_connected_elements(dense2D<unsigned>(4, 0), first, elements), 0);
    EXPECT_EQ(values(first), (list{0}));
    EXPECT_TRUE(elements.empty());

    // A degenerate element lists its repeated node twice.
    ASSERT_EQ(get_connected_elements(matrix(3, {{1, 1, 0}}), first, elements), 0);
    EXPECT_EQ(values(first), (list{0, 1, 3}));
    EXPECT_EQ(values(elements), (list{0, 0, 0}));
}

TEST(get_node_graph, small_cases)
{
    dense1D<unsigned> first, graph;
    ASSERT_EQ(get_node_graph(matrix(3, {{0, 1, 2}, {2, 1, 3}}), first, graph), 0);
    EXPECT_EQ(values(first), (list{0, 2, 5, 8, 10}));
    EXPECT_EQ(values(graph), (list{1, 2, 0, 2, 3, 0, 1, 3, 2, 1}));

    // A quadrangle: diagonals are neighbours too.
    ASSERT_EQ(get_node_graph(matrix(4, {{0, 1, 2, 3}}), first, graph), 0);
    EXPECT_EQ(values(first), (list{0, 3, 6, 9, 12}));
    EXPECT_EQ(values(graph), (list{1, 2, 3, 0, 2, 3, 0, 1, 3, 0, 1, 2}));

    // Gaps in the numbering give empty ranges; ~0u adds nothing.
    ASSERT_EQ(get_node_graph(matrix(4, {{0, 3, 4, U}}), first, graph), 0);
    EXPECT_EQ(values(first), (list{0, 2, 2, 2, 4, 6}));
    EXPECT_EQ(values(graph), (list{3, 4, 0, 4, 0, 3}));

    graph.resize(3, 1u);
    ASSERT_EQ(get_node_graph(dense2D<unsigned>(3, 0), first, graph), 0);
    EXPECT_EQ(values(first), (list{0}));
    EXPECT_TRUE(graph.empty());

    ASSERT_EQ(get_node_graph(matrix(2, {{U, U}}), first, graph), 0);
    EXPECT_EQ(values(first), (list{0, 0}));
    EXPECT_TRUE(graph.empty());
}

// Random connectivities with ~0u entries, repeated nodes and unused node numbers, also read
// through a view, against brute force; the graph is symmetric.
TEST(get_node_graph, matches_brute_force_on_random_connectivities)
{
    std::mt19937 gen(99);
    for (int trial = 0; trial < 30; ++trial)
    {
        const std::size_t rows = 1 + gen() % 8, cols = 1 + gen() % 30;
        const unsigned pool = 1 + gen() % 40;
        dense2D<unsigned> parent = random_connectivity(gen, rows + 2, cols, pool);
        const dense2D<unsigned> M = parent.sub_matrix(1, 0, rows, cols);

        dense1D<unsigned> first_ne, elements;
        ASSERT_EQ(get_connected_elements(M, first_ne, elements), 0);
        const std::size_t n = first_ne.size() - 1;
        ASSERT_EQ(n, std::size_t(max_ID(M)) + 1);
        for (std::size_t x = 0; x < n; ++x)
        {
            list expected;
            for (std::size_t j = 0; j < cols; ++j)
                for (std::size_t r = 0; r < rows; ++r)
                    if (M(r, j) == x) expected.push_back(unsigned(j));
            ASSERT_EQ(list(elements.begin() + first_ne[x], elements.begin() + first_ne[x + 1]),
                      expected);
        }

        dense1D<unsigned> first, graph;
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

// On a hexahedral grid every interior node sees the 26 nodes of its 3 x 3 x 3 block.
TEST(get_node_graph, hexahedral_grid_degrees)
{
    const dense2D<unsigned> M = test_meshes::hexa_grid(4, 4, 4);
    dense1D<unsigned> first, graph;
    ASSERT_EQ(get_node_graph(M, first, graph), 0);
    ASSERT_EQ(first.size(), 5u * 5 * 5 + 1);
    for (unsigned k = 0; k <= 4; ++k)
        for (unsigned j = 0; j <= 4; ++j)
            for (unsigned i = 0; i <= 4; ++i)
            {
                auto span = [](unsigned c) { return (c > 0) + (c < 4) + 1u; };
                const unsigned v = test_meshes::grid_node(i, j, k, 4, 4);
                EXPECT_EQ(first[v + 1] - first[v], span(i) * span(j) * span(k) - 1);
            }
}
