// Tests of the isotropic size generation.
#include "metrics/metrics_test_util.h"

#include <cfloat>
#include <gtest/gtest.h>
#include <meshutil/metrics.h>
#include <utility>
#include <vector>

using namespace qx7;
using namespace qx7::meshutil;
using metrics_test::nan_;
using metrics_test::rng;

namespace
{

using edge_list = std::vector<std::pair<unsigned, unsigned>>;

/// Local edges of each linear shape, written out by hand.
edge_list reference_edges(element_type shape)
{
    switch (shape)
    {
    case EL_EDGE2:
        return {{0, 1}};
    case EL_TRIA3:
        return {{0, 1}, {1, 2}, {2, 0}};
    case EL_QUAD4:
        return {{0, 1}, {1, 2}, {2, 3}, {3, 0}};
    case EL_TETRA4:
        return {{0, 1}, {0, 2}, {0, 3}, {1, 2}, {1, 3}, {2, 3}};
    case EL_PYRAM5:
        return {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {0, 4}, {1, 4}, {2, 4}, {3, 4}};
    case EL_PENTA6:
        return {{0, 1}, {1, 2}, {2, 0}, {3, 4}, {4, 5}, {5, 3}, {0, 3}, {1, 4}, {2, 5}};
    case EL_HEXA8:
        return {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {4, 5}, {5, 6},
                {6, 7}, {7, 4}, {0, 4}, {1, 5}, {2, 6}, {3, 7}};
    default:
        return {};
    }
}

/// Brute-force sizes: per node the list of incident edge lengths, then the mean.
std::vector<double> reference_sizes(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                                    element_type type, double p, double unset)
{
    std::vector<std::vector<double>> lengths(pos.cols());
    for (std::size_t j = 0; j < connectM.cols(); ++j)
    {
        const unsigned* e = connectM.col(j);
        for (const auto& ab : reference_edges(column_shape(type, e)))
        {
            const unsigned a = e[ab.first], b = e[ab.second];
            double s = 0.0;
            for (std::size_t k = 0; k < pos.rows(); ++k)
                s += (pos(k, a) - pos(k, b)) * (pos(k, a) - pos(k, b));
            const double L = std::sqrt(s);
            if (L == 0.0 || !std::isfinite(L)) continue;
            lengths[a].push_back(L);
            lengths[b].push_back(L);
        }
    }
    std::vector<double> h(pos.cols(), unset);
    for (std::size_t i = 0; i < h.size(); ++i)
    {
        const auto& l = lengths[i];
        if (l.empty()) continue;
        if (p == 0.0)
            h[i] = *std::min_element(l.begin(), l.end());
        else if (p == DBL_MAX)
            h[i] = *std::max_element(l.begin(), l.end());
        else
        {
            double s = 0.0;
            for (double x : l)
                s += std::pow(x, p);
            h[i] = std::pow(s / double(l.size()), 1.0 / p);
        }
    }
    return h;
}

/// A line of nodes on the x axis.
dense2D<double> line_nodes(std::initializer_list<double> xs, std::size_t rows = 2)
{
    dense2D<double> pos(rows, xs.size(), 0.0);
    std::size_t j = 0;
    for (double x : xs)
        pos(0, j++) = x;
    return pos;
}

dense2D<unsigned> columns(std::size_t rows, std::initializer_list<unsigned> v)
{
    dense2D<unsigned> M(rows, v.size() / rows);
    std::size_t k = 0;
    for (unsigned x : v)
        M.data()[k++] = x;
    return M;
}

} // namespace

TEST(metrics_gen_iso, means_of_incident_edges)
{
    dense1D<double> h;
    EXPECT_EQ(metrics_gen_iso(line_nodes({0, 2}), columns(2, {0, 1}), EL_EDGE2, h, 1.0), 0);
    ASSERT_EQ(h.size(), 2u);
    EXPECT_EQ(h[0], 2.0);
    EXPECT_EQ(h[1], 2.0);

    // Node 1 meets edges of lengths 1 and 3.
    const dense2D<double> pos = line_nodes({0, 1, 4});
    const dense2D<unsigned> E = columns(2, {0, 1, 1, 2});
    const std::pair<double, double> modes[] = {
        {0.0, 1.0}, {DBL_MAX, 3.0}, {1.0, 2.0}, {2.0, std::sqrt(5.0)}};
    for (const auto& m : modes)
    {
        EXPECT_EQ(metrics_gen_iso(pos, E, EL_EDGE2, h, m.first), 0);
        EXPECT_NEAR(h[1], m.second, 1e-15) << m.first;
    }

    // One coordinate row is enough for edges.
    EXPECT_EQ(metrics_gen_iso(line_nodes({0, 3}, 1), columns(2, {0, 1}), EL_EDGE2, h, 1.0), 0);
    EXPECT_EQ(h[0], 3.0);
}

TEST(metrics_gen_iso, shared_edges_count_once_per_element)
{
    //  2 ----- 3      Triangles (0, 1, 2) and (2, 1, 3) share the edge 1-2, whose length
    //  | \     |      sqrt(2) then enters the means of nodes 1 and 2 twice.
    //  |   \   |
    //  0 ----- 1
    dense2D<double> pos(2, 4);
    const double xy[8] = {0, 0, 1, 0, 0, 1, 1, 1};
    for (int k = 0; k < 8; ++k)
        pos.data()[k] = xy[k];
    dense1D<double> h;
    EXPECT_EQ(metrics_gen_iso(pos, columns(3, {0, 1, 2, 2, 1, 3}), EL_TRIA3, h, 1.0), 0);
    EXPECT_EQ(h[0], 1.0);
    EXPECT_NEAR(h[1], (2.0 + 2.0 * std::sqrt(2.0)) / 4.0, 1e-15);
    EXPECT_NEAR(h[2], (2.0 + 2.0 * std::sqrt(2.0)) / 4.0, 1e-15);
    EXPECT_EQ(h[3], 1.0);
}

TEST(metrics_gen_iso, codes_and_untouched_sizes)
{
    const dense2D<double> pos = line_nodes({0, 1, 2, 5});
    const dense2D<unsigned> T = columns(3, {0, 1, 2});
    dense1D<double> h = metrics_test::list_of<double>({7, 7});
    EXPECT_EQ(metrics_gen_iso(pos, dense2D<unsigned>(3, 0), EL_TRIA3, h, 1.0), 0);
    EXPECT_EQ(h.size(), 2u); // empty connectivity: sizes untouched
    EXPECT_EQ(metrics_gen_iso(line_nodes({0, 1, 2}, 1), T, EL_TRIA3, h, 1.0), -1);
    EXPECT_EQ(metrics_gen_iso(pos, columns(3, {0, 1, 4}), EL_TRIA3, h, 1.0), -2);
    EXPECT_EQ(metrics_gen_iso(pos, T, EL_QUAD4, h, 1.0), -2); // wrong row count
    EXPECT_EQ(metrics_gen_iso(pos, T, EL_TRIA3, h, -1.0), -5);
    EXPECT_EQ(h.size(), 2u);
    EXPECT_EQ(metrics_gen_iso(pos, columns(6, {0, 1, 2, 0, 1, 2}), EL_TRIA6, h, 1.0), -3);
    EXPECT_EQ(metrics_gen_iso(pos, columns(2, {0, 1}), EL_EDGE_MIX, h, 1.0), -3);
    ASSERT_EQ(h.size(), 4u); // grown before the type is dispatched, old values kept
    EXPECT_EQ(h[0], 7.0);
    EXPECT_EQ(h[3], 0.0);

    // Node 3 belongs to no element and node 2 only to a zero-length edge: both keep their size.
    h = metrics_test::list_of<double>({7, 7, 7, 7});
    const dense2D<double> dup = line_nodes({0, 1, 1, 9});
    EXPECT_EQ(metrics_gen_iso(dup, columns(2, {0, 1, 1, 2}), EL_EDGE2, h, 2.0), 0);
    EXPECT_EQ(h[0], 1.0);
    EXPECT_EQ(h[1], 1.0);
    EXPECT_EQ(h[2], 7.0);
    EXPECT_EQ(h[3], 7.0);
    // A NaN exponent passes the checks.
    EXPECT_EQ(metrics_gen_iso(dup, columns(2, {0, 3}), EL_EDGE2, h, nan_), 0);
    EXPECT_TRUE(std::isnan(h[0]));
}

TEST(metrics_gen_iso, random_mixed_meshes_match_brute_force)
{
    rng r(31);
    const std::size_t nbr_nodes = 60;
    dense2D<double> pos(3, nbr_nodes);
    for (std::size_t k = 0; k < 3 * nbr_nodes; ++k)
        pos.data()[k] = r.uniform(-1.0, 1.0);
    pos(0, 5) = pos(0, 4), pos(1, 5) = pos(1, 4), pos(2, 5) = pos(2, 4); // a zero-length edge

    struct mesh
    {
        element_type type;
        std::size_t rows;
        unsigned shapes; // number of member shapes (defined nodes 3..4 or 4..8 in a mixed column)
    };
    const mesh meshes[] = {{EL_FACE_MIX, 4, 2}, {EL_SOLID_MIX, 8, 4}, {EL_TETRA4, 4, 1},
                           {EL_HEXA8, 8, 1},    {EL_PENTA6, 6, 1},    {EL_PYRAM5, 5, 1},
                           {EL_QUAD4, 4, 1},    {EL_TRIA3, 3, 1}};
    const unsigned solid_sizes[4] = {4, 5, 6, 8};
    for (const mesh& m : meshes)
    {
        dense2D<unsigned> C(m.rows, 40);
        for (std::size_t j = 0; j < 40; ++j)
        {
            unsigned defined = unsigned(m.rows);
            if (m.type == EL_FACE_MIX) defined = 3 + unsigned(r.next() % 2);
            if (m.type == EL_SOLID_MIX) defined = solid_sizes[r.next() % 4];
            for (unsigned i = 0; i < m.rows; ++i)
                C(i, j) = i < defined ? unsigned(r.next() % 12) : undefined_index;
        }
        C(0, 0) = 4, C(1, 0) = 5; // make sure the zero-length edge occurs
        for (double p : {0.0, 0.5, 1.0, 2.0, 3.0, DBL_MAX})
        {
            dense1D<double> h(nbr_nodes, -3.0);
            ASSERT_EQ(metrics_gen_iso(pos, C, m.type, h, p), 0);
            const std::vector<double> want = reference_sizes(pos, C, m.type, p, -3.0);
            for (std::size_t i = 0; i < nbr_nodes; ++i)
                EXPECT_NEAR(h[i], want[i], 1e-13 * std::fabs(want[i]))
                    << m.type << " p " << p << " node " << i;
        }
    }
}
