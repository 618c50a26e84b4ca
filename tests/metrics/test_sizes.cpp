// Tests of the isotropic size generation.
#include "metrics/metrics_test_util.h"

#include <algorithm>
#include <cfloat>
#include <gtest/gtest.h>
#include <meshutil/metrics.h>
#include <utility>
#include <vector>

using namespace qx7;
using namespace qx7::meshutil;
using metrics_test::cols_of;
using metrics_test::list_of;
using metrics_test::nan_;
using metrics_test::rng;

namespace
{

/// Local edges of each linear shape, written out by hand as pairs of node digits.
const char* reference_edges(element_type shape)
{
    const std::pair<element_type, const char*> table[] = {{EL_EDGE2, "01"},
                                                          {EL_TRIA3, "011220"},
                                                          {EL_QUAD4, "01122330"},
                                                          {EL_TETRA4, "010203121323"},
                                                          {EL_PYRAM5, "0112233004142434"},
                                                          {EL_PENTA6, "011220344553031425"},
                                                          {EL_HEXA8, "011223304556677404152637"}};
    for (const auto& t : table)
        if (t.first == shape) return t.second;
    return "";
}

/// Brute-force sizes: per node the list of incident edge lengths (one per element containing
/// the edge; zero and non-finite lengths left out), then the mean; `unset` where there is none.
std::vector<double> reference_sizes(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                                    element_type type, double p, double unset)
{
    std::vector<std::vector<double>> lengths(pos.cols());
    for (std::size_t j = 0; j < connectM.cols(); ++j)
    {
        const unsigned* e = connectM.col(j);
        for (const char* ab = reference_edges(column_shape(type, e)); *ab; ab += 2)
        {
            const unsigned a = e[ab[0] - '0'], b = e[ab[1] - '0'];
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

} // namespace

TEST(metrics_gen_iso, random_meshes_match_brute_force)
{
    // Random connectivities over 12 of 60 nodes (the others keep their size), one zero-length
    // edge, every coordinate row count from the element dimension to 4, and every mean.
    rng r(31);
    const std::size_t nbr_nodes = 60;
    dense2D<double> pos4(4, nbr_nodes);
    for (std::size_t k = 0; k < 4 * nbr_nodes; ++k)
        pos4.data()[k] = r.uniform(-1.0, 1.0);
    for (std::size_t k = 0; k < 4; ++k)
        pos4(k, 5) = pos4(k, 4);
    struct mesh
    {
        element_type type;
        unsigned rows;
    };
    const mesh meshes[] = {{EL_FACE_MIX, 4}, {EL_SOLID_MIX, 8}, {EL_TETRA4, 4},
                           {EL_HEXA8, 8},    {EL_PENTA6, 6},    {EL_PYRAM5, 5},
                           {EL_QUAD4, 4},    {EL_TRIA3, 3},     {EL_EDGE2, 2}};
    const unsigned solid_sizes[4] = {4, 5, 6, 8};
    for (const mesh& m : meshes)
    {
        dense2D<unsigned> C(m.rows, 40);
        for (std::size_t j = 0; j < 40; ++j)
        {
            unsigned defined = m.rows;
            if (m.type == EL_FACE_MIX) defined = 3 + unsigned(r.next() % 2);
            if (m.type == EL_SOLID_MIX) defined = solid_sizes[r.next() % 4];
            for (unsigned i = 0; i < m.rows; ++i)
                C(i, j) = i < defined ? unsigned(r.next() % 12) : undefined_index;
        }
        C(0, 0) = 4, C(1, 0) = 5; // make sure the zero-length edge occurs
        for (std::size_t rows = element_dim(m.type); rows <= 4; ++rows)
        {
            dense2D<double> pos(rows, nbr_nodes);
            for (std::size_t j = 0; j < nbr_nodes; ++j)
                std::copy(pos4.col(j), pos4.col(j) + rows, pos.col(j));
            for (double p : {0.0, 0.5, 1.0, 2.0, 3.0, DBL_MAX})
            {
                dense1D<double> h(nbr_nodes, -3.0);
                ASSERT_EQ(metrics_gen_iso(pos, C, m.type, h, p), 0);
                const std::vector<double> want = reference_sizes(pos, C, m.type, p, -3.0);
                for (std::size_t i = 0; i < nbr_nodes; ++i)
                    EXPECT_NEAR(h[i], want[i], 1e-13 * std::fabs(want[i]))
                        << m.type << " rows " << rows << " p " << p << " node " << i;
            }
        }
    }
}

TEST(metrics_gen_iso, check_ladder)
{
    const dense2D<double> pos = cols_of<double>(2, {0, 0, 1, 0, 2, 0, 5, 0});
    const dense2D<unsigned> T = cols_of<unsigned>(3, {0, 1, 2});
    dense1D<double> h = list_of<double>({7, 7});
    EXPECT_EQ(metrics_gen_iso(pos, dense2D<unsigned>(3, 0), EL_TRIA3, h, 1.0), 0);
    EXPECT_EQ(metrics_gen_iso(cols_of<double>(1, {0, 1, 2}), T, EL_TRIA3, h, 1.0), -1);
    EXPECT_EQ(metrics_gen_iso(pos, cols_of<unsigned>(3, {0, 1, 4}), EL_TRIA3, h, 1.0), -2);
    EXPECT_EQ(metrics_gen_iso(pos, T, EL_QUAD4, h, 1.0), -2); // wrong row count
    EXPECT_EQ(metrics_gen_iso(pos, T, EL_TRIA3, h, -1.0), -5);
    EXPECT_TRUE(h == list_of<double>({7, 7})); // untouched so far
    // An unsupported type is reported after the sizes have grown; old values are kept.
    EXPECT_EQ(metrics_gen_iso(pos, cols_of<unsigned>(6, {0, 1, 2, 0, 1, 2}), EL_TRIA6, h, 1.0), -3);
    EXPECT_EQ(metrics_gen_iso(pos, cols_of<unsigned>(2, {0, 1}), EL_EDGE_MIX, h, 1.0), -3);
    EXPECT_TRUE(h == list_of<double>({7, 7, 0, 0}));
    // A NaN exponent passes the checks.
    EXPECT_EQ(metrics_gen_iso(pos, cols_of<unsigned>(2, {0, 3}), EL_EDGE2, h, nan_), 0);
    EXPECT_TRUE(std::isnan(h[0]));
}
