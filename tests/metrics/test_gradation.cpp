// Tests of the gradation of size and metric fields.
#include "metrics/gradation_engine.h"
#include "metrics/metrics_test_util.h"

#include <cfloat>
#include <gtest/gtest.h>
#include <meshutil/connectivity.h>
#include <meshutil/metrics.h>
#include <queue>
#include <vector>

using namespace qx7;
using namespace qx7::meshutil;
using metrics_test::nan_;
using metrics_test::rng;

namespace
{

/// n^DIM jittered grid nodes on [0, 1]^DIM split into triangles (2-D) or tetrahedra (3-D).
template <int DIM>
void grid_mesh(unsigned n, rng& r, dense2D<double>& pos, dense2D<unsigned>& connectM)
{
    const unsigned c = n - 1;
    const double h = 1.0 / c;
    const std::size_t nbr = DIM == 2 ? n * n : n * n * n;
    pos.resize(DIM, nbr);
    for (std::size_t j = 0; j < nbr; ++j)
    {
        std::size_t q = j;
        for (int k = 0; k < DIM; ++k, q /= n)
            pos(k, j) = (double(q % n) + r.uniform(-0.2, 0.2)) * h;
    }
    const unsigned step[3] = {1, n, n * n};
    if (DIM == 2)
    {
        connectM.resize(3, 2 * c * c);
        std::size_t e = 0;
        for (unsigned j = 0; j < c; ++j)
            for (unsigned i = 0; i < c; ++i)
            {
                const unsigned v = i + n * j;
                const unsigned t[6] = {v, v + 1, v + n + 1, v, v + n + 1, v + n};
                for (int k = 0; k < 6; ++k)
                    connectM.data()[3 * e + k] = t[k];
                e += 2;
            }
        return;
    }
    const unsigned perms[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
    connectM.resize(4, 6 * c * c * c);
    std::size_t e = 0;
    for (unsigned k = 0; k < c; ++k)
        for (unsigned j = 0; j < c; ++j)
            for (unsigned i = 0; i < c; ++i)
                for (const auto& p : perms)
                {
                    unsigned* t = connectM.col(e++);
                    t[0] = i + n * (j + n * k);
                    t[1] = t[0] + step[p[0]];
                    t[2] = t[1] + step[p[1]];
                    t[3] = t[2] + step[p[2]];
                }
}

/// Largest gradation measure over the node graph, from the engine's own measure.
template <unsigned DIM, bool ANISO, bool VARIATION>
double worst_measure(const dense2D<double>& pos, const dense2D<unsigned>& connectM, double* field,
                     std::size_t field_ld)
{
    dense1D<unsigned> first, graph;
    EXPECT_EQ(get_node_graph(connectM, first, graph), 0);
    meshutil::detail::gradation<DIM, ANISO, VARIATION> run(pos.col(0), pos.ld(), field, field_ld,
                                                           first.data(), graph.data(), nullptr,
                                                           nullptr, false, 0.0);
    double worst = 0.0;
    for (unsigned i = 0; i + 1 < first.size(); ++i)
        for (unsigned k = first[i]; k < first[i + 1]; ++k)
            worst = std::max(worst, run.measure(i, graph[k]));
    return worst;
}

/// The isotropic metric field of a size field.
dense2D<double> iso_metrics(const dense1D<double>& h, unsigned dim)
{
    dense2D<double> M(dim == 2 ? 3 : 6, h.size());
    EXPECT_EQ(dim == 2 ? metrics_iso_to_aniso2d(h, M) : metrics_iso_to_aniso3d(h, M), 0);
    return M;
}

/// Size along axis 0 of every metric (1 / sqrt(M11)).
std::vector<double> sizes_of_metrics(const dense2D<double>& M)
{
    std::vector<double> h(M.cols());
    for (std::size_t j = 0; j < M.cols(); ++j)
        h[j] = 1.0 / std::sqrt(M(0, j));
    return h;
}

dense2D<double> two_nodes(std::size_t rows)
{
    dense2D<double> pos(rows, 2, 0.0);
    pos(0, 1) = 1.0;
    return pos;
}

dense2D<unsigned> one_edge()
{
    dense2D<unsigned> E(2, 1);
    E(0, 0) = 0;
    E(1, 0) = 1;
    return E;
}

const dense1D<unsigned> no_nodes;

} // namespace

TEST(metric_gradation, check_ladder)
{
    const dense2D<double> pos = two_nodes(2);
    const dense2D<unsigned> E = one_edge();
    dense1D<double> h = metrics_test::list_of<double>({1.0, 10.0});
    dense2D<double> M = iso_metrics(h, 2);
    dense2D<unsigned> bad;
    ASSERT_TRUE(bad.copy(E));
    bad(1, 0) = 2;
    struct row
    {
        const dense2D<double>* pos;
        const dense2D<unsigned>* connectM;
        dense1D<unsigned> nodes;
        double g;
        int code;
    };
    const dense2D<double> pos1 = two_nodes(1);
    const dense2D<unsigned> empty;
    const row rows[] = {
        {&pos, &empty, no_nodes, -1.0, 0},
        {&pos1, &E, no_nodes, DBL_MAX, 0},
        {&pos1, &E, no_nodes, 0.5, -1},
        {&pos, &bad, no_nodes, 0.5, -2},
        {&pos, &E, metrics_test::list_of<unsigned>({2}), 0.5, -4},
        {&pos, &E, metrics_test::list_of<unsigned>({undefined_index}), 0.5, -4},
        {&pos, &E, no_nodes, -1.0, -7},
        {&pos, &E, no_nodes, nan_, -7},
    };
    for (const row& t : rows)
    {
        EXPECT_EQ(bound_metric_gradations(*t.pos, *t.connectM, EL_EDGE2, t.nodes, true, 0, t.g, h),
                  t.code);
        EXPECT_EQ(bound_metric_gradations(*t.pos, *t.connectM, EL_EDGE2, t.nodes, true, 0, t.g, M),
                  t.code);
        EXPECT_EQ(bound_metric_variations(*t.pos, *t.connectM, EL_EDGE2, t.nodes, true, 0, t.g, h),
                  t.code);
        EXPECT_EQ(bound_metric_variations(*t.pos, *t.connectM, EL_EDGE2, t.nodes, true, 0, t.g, M),
                  t.code);
        EXPECT_EQ(h[0], 1.0);
        EXPECT_EQ(h[1], 10.0);
        EXPECT_EQ(M(0, 0), 1.0);
    }
    dense1D<double> short_h = metrics_test::list_of<double>({1.0});
    EXPECT_EQ(bound_metric_gradations(pos, E, EL_EDGE2, no_nodes, true, 0, 0.5, short_h), -8);
    dense2D<double> M3 = iso_metrics(h, 3);
    EXPECT_EQ(bound_metric_gradations(pos, E, EL_EDGE2, no_nodes, true, 0, 0.5, M3), -8);
    dense2D<double> M1(3, 1, 1.0);
    EXPECT_EQ(bound_metric_variations(pos, E, EL_EDGE2, no_nodes, true, 0, 0.5, M1), -8);
}

TEST(metric_gradation, two_nodes_by_direction)
{
    // Sizes 1 and 10 one unit apart, g = 0.5: the gap may be ln 1.5 (shock) or 0.5 (variation).
    const double l = std::log(1.5);
    struct row
    {
        bool variation;
        int direction;
        int result;
        double h0, h1;
    };
    const row rows[] = {
        {false, -1, 1, 1.0, 1.0 + l},  {false, 1, 1, 10.0 - l, 10.0}, {false, 2, 0, 1.0, 10.0},
        {false, 0, 1, 10.0 - l, 10.0}, {true, -1, 1, 1.0, 1.5},       {true, 1, 1, 9.5, 10.0},
        {true, 0, 1, 9.5, 10.0},       {true, 258, 0, 1.0, 10.0},
    };
    for (unsigned dim : {2u, 3u})
        for (const row& t : rows)
        {
            const dense2D<double> pos = two_nodes(dim);
            dense1D<double> h = metrics_test::list_of<double>({1.0, 10.0});
            dense2D<double> M = iso_metrics(h, dim);
            if (t.variation)
            {
                EXPECT_EQ(bound_metric_variations(pos, one_edge(), EL_EDGE2, no_nodes, true,
                                                  t.direction, 0.5, h),
                          t.result);
                EXPECT_EQ(bound_metric_variations(pos, one_edge(), EL_EDGE2, no_nodes, true,
                                                  t.direction, 0.5, M),
                          t.result);
            }
            else
            {
                EXPECT_EQ(bound_metric_gradations(pos, one_edge(), EL_EDGE2, no_nodes, true,
                                                  t.direction, 0.5, h),
                          t.result);
                EXPECT_EQ(bound_metric_gradations(pos, one_edge(), EL_EDGE2, no_nodes, true,
                                                  t.direction, 0.5, M),
                          t.result);
            }
            const std::vector<double> hm = sizes_of_metrics(M);
            EXPECT_NEAR(h[0], t.h0, 1e-14) << t.variation << " " << t.direction;
            EXPECT_NEAR(h[1], t.h1, 1e-14) << t.variation << " " << t.direction;
            EXPECT_NEAR(hm[0], t.h0, 1e-12) << t.variation << " " << t.direction;
            EXPECT_NEAR(hm[1], t.h1, 1e-12) << t.variation << " " << t.direction;
            EXPECT_NEAR(M(1, 0), 0.0, 1e-15);
            EXPECT_NEAR(M(2, 0), M(0, 0), 1e-12 * M(0, 0)); // still isotropic
        }
}

TEST(metric_gradation, frozen_neighbour_limits_the_move)
{
    //  2 (frozen, h 1) --- 0 (h 1) --- 1 (h 10), unit spacing, g = 0.5: node 0 may grow only
    //  to 1 + ln 1.5 because of node 2; node 1 then shrinks to 1 + 2 ln 1.5.
    const double l = std::log(1.5);
    dense2D<double> pos(2, 3, 0.0);
    pos(0, 1) = 1.0;
    pos(0, 2) = -1.0;
    dense2D<unsigned> E(2, 2);
    const unsigned v[4] = {0, 1, 2, 0};
    for (int k = 0; k < 4; ++k)
        E.data()[k] = v[k];
    dense1D<double> h = metrics_test::list_of<double>({1.0, 10.0, 1.0});
    dense2D<double> M = iso_metrics(h, 2);
    const dense1D<unsigned> frozen = metrics_test::list_of<unsigned>({2});
    EXPECT_EQ(bound_metric_gradations(pos, E, EL_EDGE2, frozen, true, 0, 0.5, h), 2);
    EXPECT_EQ(bound_metric_gradations(pos, E, EL_EDGE2, frozen, true, 0, 0.5, M), 2);
    const std::vector<double> hm = sizes_of_metrics(M);
    const double want[3] = {1.0 + l, 1.0 + 2.0 * l, 1.0};
    for (int k = 0; k < 3; ++k)
    {
        EXPECT_NEAR(h[k], want[k], 1e-12);
        EXPECT_NEAR(hm[k], want[k], 1e-10);
    }
    // The same with node 2 frozen by listing the free nodes instead.
    h = metrics_test::list_of<double>({1.0, 10.0, 1.0});
    EXPECT_EQ(bound_metric_gradations(pos, E, EL_EDGE2, metrics_test::list_of<unsigned>({0, 1}),
                                      false, 0, 0.5, h),
              2);
    for (int k = 0; k < 3; ++k)
        EXPECT_NEAR(h[k], want[k], 1e-12);
    // A node frozen at the worst shock keeps its size; with everything frozen nothing moves.
    h = metrics_test::list_of<double>({1.0, 10.0, 1.0});
    EXPECT_EQ(bound_metric_gradations(pos, E, EL_EDGE2, metrics_test::list_of<unsigned>({1}), true,
                                      0, 0.5, h),
              2);
    EXPECT_EQ(h[1], 10.0);
    EXPECT_NEAR(h[0], 10.0 - l, 1e-12);
    EXPECT_NEAR(h[2], 10.0 - 2.0 * l, 1e-12);
    EXPECT_EQ(bound_metric_gradations(pos, E, EL_EDGE2, no_nodes, false, 0, 0.5, h), 0);
}

TEST(metric_gradation, isotropic_metrics_follow_the_isotropic_moves)
{
    // A chain with random spacing and one outlying size: every node grows once, in a wave.
    rng r(41);
    for (unsigned dim : {2u, 3u})
    {
        const unsigned n = 40;
        dense2D<double> pos(dim, n, 0.0);
        dense2D<unsigned> E(2, n - 1);
        double x = 0.0;
        for (unsigned j = 0; j < n; ++j)
        {
            x += r.uniform(0.5, 1.5);
            pos(0, j) = x;
            pos(1, j) = r.uniform(-0.3, 0.3);
            if (j) E(0, j - 1) = j - 1, E(1, j - 1) = j;
        }
        dense1D<double> h(n, 1.0);
        h[17] = 30.0;
        dense2D<double> M = iso_metrics(h, dim);
        const int a = bound_metric_gradations(pos, E, EL_EDGE2, no_nodes, true, 1, 0.3, h);
        const int b = bound_metric_gradations(pos, E, EL_EDGE2, no_nodes, true, 1, 0.3, M);
        EXPECT_GT(a, 20);
        EXPECT_EQ(a, b);
        const std::vector<double> hm = sizes_of_metrics(M);
        for (unsigned j = 0; j < n; ++j)
            EXPECT_NEAR(hm[j], h[j], 1e-6 * h[j]) << dim << " " << j;
    }
}

namespace
{

/// Grades a random field on a jittered grid with direction `dir` and checks the final measure
/// bound, validity, monotonicity per node, and frozen nodes.
template <unsigned DIM, bool ANISO, bool VARIATION>
void check_bound(int dir, bool with_frozen, std::uint64_t seed)
{
    rng r(seed);
    dense2D<double> pos;
    dense2D<unsigned> connectM;
    grid_mesh<DIM>(DIM == 2 ? 12 : 6, r, pos, connectM);
    const std::size_t n = pos.cols();
    const double g = 0.4;
    dense1D<double> h(n);
    dense2D<double> M(DIM == 2 ? 3 : 6, n);
    for (std::size_t j = 0; j < n; ++j)
    {
        h[j] = r.log_uniform(0.01, 1.0);
        const symmetric_fixed<double, DIM> m = metrics_test::random_metric<DIM>(r, 0.01, 1.0);
        for (std::size_t k = 0; k < m.size(); ++k)
            M(k, j) = m[k];
    }
    dense1D<unsigned> frozen;
    if (with_frozen)
        for (unsigned j = 0; j < n; j += 7)
            frozen.push_back(j);
    dense1D<double> h0;
    dense2D<double> M0;
    ASSERT_TRUE(h0.copy(h));
    ASSERT_TRUE(M0.copy(M));
    const element_type type = DIM == 2 ? EL_TRIA3 : EL_TETRA4;
    int count;
    if constexpr (ANISO)
        count = VARIATION ? bound_metric_variations(pos, connectM, type, frozen, true, dir, g, M)
                          : bound_metric_gradations(pos, connectM, type, frozen, true, dir, g, M);
    else
        count = VARIATION ? bound_metric_variations(pos, connectM, type, frozen, true, dir, g, h)
                          : bound_metric_gradations(pos, connectM, type, frozen, true, dir, g, h);
    ASSERT_GT(count, 0);
    const std::size_t ps = M.rows();
    for (std::size_t j = 0; j < n; ++j)
    {
        if (j % 7 == 0 && with_frozen)
        {
            EXPECT_EQ(h[j], h0[j]);
            for (std::size_t k = 0; k < ps; ++k)
                EXPECT_EQ(M(k, j), M0(k, j));
        }
        symmetric_fixed<double, DIM> m, m0;
        for (std::size_t k = 0; k < ps; ++k)
            m[k] = M(k, j), m0[k] = M0(k, j);
        EXPECT_TRUE(is_valid_metric(m));
        EXPECT_GT(h[j], 0.0);
        // Sizes only move in the requested direction, in every direction for metrics.
        if (dir == 1)
        {
            EXPECT_GE(h[j], h0[j]);
        }
        if (dir == -1)
        {
            EXPECT_LE(h[j], h0[j]);
        }
        for (int s = 0; s < 4 && dir != 0; ++s)
        {
            double u[DIM];
            metrics_test::unit_vector<DIM>(r, u);
            const double a = metrics_test::quad<DIM>(m, u), b = metrics_test::quad<DIM>(m0, u);
            if (dir == 1)
            {
                EXPECT_LE(a, b * (1 + 1e-9));
            }
            else
            {
                EXPECT_GE(a, b * (1 - 1e-9));
            }
        }
    }
    if (with_frozen) return; // frozen nodes may keep edges above the limit
    const double limit = VARIATION ? g / 0.999 : std::pow(1.0 + g, 1.0 / 0.999) - 1.0;
    double worst;
    if constexpr (ANISO)
        worst = worst_measure<DIM, true, VARIATION>(pos, connectM, M.col(0), M.ld());
    else
        worst = worst_measure<DIM, false, VARIATION>(pos, connectM, h.data(), 1);
    EXPECT_LE(worst, limit * (1 + 1e-6)) << DIM << " " << ANISO << " " << VARIATION << " " << dir;
    EXPECT_GT(worst, g * 0.9); // the bound is reached, not undershot everywhere
}

} // namespace

TEST(metric_gradation, final_measures_are_bounded)
{
    for (int dir : {1, -1})
    {
        check_bound<2, false, false>(dir, false, 51);
        check_bound<3, false, false>(dir, false, 52);
        check_bound<2, true, false>(dir, false, 53);
        check_bound<3, true, false>(dir, false, 54);
        check_bound<2, false, true>(dir, false, 55);
        check_bound<3, false, true>(dir, false, 56);
        check_bound<2, true, true>(dir, false, 57);
        check_bound<3, true, true>(dir, false, 58);
    }
}

TEST(metric_gradation, frozen_nodes_never_change)
{
    for (int dir : {0, 1, -1})
    {
        check_bound<2, false, false>(dir, true, 61);
        check_bound<3, true, false>(dir, true, 62);
        check_bound<3, false, true>(dir, true, 63);
        check_bound<2, true, true>(dir, true, 64);
    }
}

namespace
{

/// The propagation written out plainly for isotropic shocks without frozen nodes: every edge
/// above g is queued in both directions, nothing is grouped, deferred or pruned. Returns the
/// count.
template <unsigned DIM>
int plain_gradation(const dense2D<double>& pos, const dense2D<unsigned>& connectM, int direction,
                    double g, std::vector<double>& h)
{
    dense1D<unsigned> first, graph;
    EXPECT_EQ(get_node_graph(connectM, first, graph), 0);
    const std::size_t n = first.size() - 1;
    std::vector<unsigned> state(n, 0);
    std::vector<unsigned char> dir(n, static_cast<unsigned char>(direction & 0xff));
    struct entry
    {
        float key;
        unsigned stamp, node, neighbour;
        std::size_t order; // insertion order, to break ties as first come first served
        bool operator<(const entry& o) const
        {
            return key < o.key || (key == o.key && order > o.order);
        }
    };
    std::priority_queue<entry> queue;
    std::size_t pushed = 0;
    const double lg = std::log1p(g);
    auto dist = [&](unsigned a, unsigned b)
    {
        double s = 0.0;
        for (std::size_t k = 0; k < pos.rows(); ++k)
            s += (pos(k, a) - pos(k, b)) * (pos(k, a) - pos(k, b));
        return std::sqrt(s);
    };
    auto shock = [&](unsigned a, unsigned b)
    { return meshutil::detail::iso_edge_shock<DIM>(pos.col(a), pos.col(b), h[a], h[b]); };
    auto push = [&](double s, unsigned stamp, unsigned a, unsigned b) {
        queue.push({float(std::min(s, double(FLT_MAX))), stamp, a, b, pushed++});
    };
    for (unsigned i = 0; i < n; ++i)
        for (unsigned k = first[i]; k < first[i + 1]; ++k)
            if (shock(i, graph[k]) > g) push(shock(i, graph[k]), 0, i, graph[k]);
    unsigned stamp = 0;
    int count = 0;
    while (!queue.empty())
    {
        const entry e = queue.top();
        queue.pop();
        const unsigned i = e.node, j = e.neighbour;
        if (state[i] > e.stamp || state[j] > e.stamp) continue;
        const double d = dist(i, j), gap = std::fabs(h[j] - h[i]);
        const double t = gap > 0.0 ? std::max(0.0, 1.0 - lg * d / gap) : 0.0;
        const unsigned char want = h[j] > h[i] ? 1 : 255;
        bool allowed = false;
        if (t > 1e-12)
        {
            if (dir[i] == 0) dir[i] = want;
            allowed = dir[i] == want;
        }
        if (!(t > 0.001) || !allowed) continue;
        double hn = h[i] + t * (h[j] - h[i]);
        hn = dir[i] == 1 ? std::max(hn, h[i]) : std::min(hn, h[i]);
        if (!(std::max(h[i], hn) / std::min(h[i], hn) > 1.000000000001)) continue;
        h[i] = hn;
        if (state[i] == 0) ++count;
        state[i] = ++stamp;
        for (unsigned k = first[i]; k < first[i + 1]; ++k)
        {
            const unsigned nb = graph[k];
            const double s = shock(i, nb);
            if (!(s > g)) continue;
            push(s, stamp, i, nb);
            push(s, stamp, nb, i);
        }
    }
    return count;
}

} // namespace

TEST(metric_gradation, same_moves_as_the_plain_propagation)
{
    // With a fixed direction only one of the two entries of an edge can move a node, and jittered
    // grids keep the keys of distinct edges apart, so the order of the moves is fixed and the
    // engine's deferred entries must reproduce the plain propagation exactly: with sizes within
    // a factor 3 (mostly one move per node) and over three decades (several moves per node, many
    // entries deferred). (With direction 0 the two entries of an edge tie, and which end moves
    // depends on how the queue breaks ties.)
    rng r(71);
    for (double hmin : {0.03, 0.001})
        for (int dim : {2, 3})
            for (int dir : {1, -1})
            {
                dense2D<double> pos;
                dense2D<unsigned> connectM;
                if (dim == 2)
                    grid_mesh<2>(15, r, pos, connectM);
                else
                    grid_mesh<3>(7, r, pos, connectM);
                dense1D<double> h(pos.cols());
                std::vector<double> ref(pos.cols());
                for (std::size_t j = 0; j < h.size(); ++j)
                    h[j] = ref[j] = r.log_uniform(hmin, hmin < 0.01 ? 1.0 : 0.1);
                const int count = bound_metric_gradations(
                    pos, connectM, dim == 2 ? EL_TRIA3 : EL_TETRA4, no_nodes, true, dir, 0.3, h);
                EXPECT_EQ(count, dim == 2 ? plain_gradation<2>(pos, connectM, dir, 0.3, ref)
                                          : plain_gradation<3>(pos, connectM, dir, 0.3, ref));
                EXPECT_GT(count, 50);
                for (std::size_t j = 0; j < h.size(); ++j)
                    EXPECT_NEAR(h[j], ref[j], 1e-9 * ref[j])
                        << hmin << " " << dim << " " << dir << " " << j;
            }
}

TEST(metric_gradation, shock_screen_never_hides_a_shock_above_g)
{
    // Edges whose gap per unit length lies just around the screen, for limits from the smallest
    // screened one upwards and size differences from the smallest screened one upwards: whenever
    // the screen says "below g", the shock as computed is not above g. The screen must also
    // recognise most of the edges below it.
    rng r(81);
    for (double g : {1e-6, 1e-3, 0.05, 0.2, 1.0, 10.0, 1e3})
    {
        const double screen = meshutil::detail::shock_screen(g);
        ASSERT_GT(screen, 0.0);
        int screened = 0;
        for (int k = 0; k < 20000; ++k)
        {
            const double hi = r.log_uniform(1e-4, 1e4);
            const double rel = r.log_uniform(1e-6, 10.0); // relative size difference
            const double hj = r.uniform(0.0, 1.0) < 0.5 ? hi * (1.0 + rel) : hi / (1.0 + rel);
            const double gap = std::fabs(hj - hi);
            const double d = gap / (screen * r.uniform(0.9999, 1.0001)); // gap / d near the screen
            double xi[3] = {0.0, 0.0, 0.0}, xj[3] = {d, 0.0, 0.0};
            if (!meshutil::detail::shock_clearly_below(hi, hj, d, screen)) continue;
            ++screened;
            EXPECT_LE(meshutil::detail::iso_edge_shock<3>(xi, xj, hi, hj), g)
                << g << " " << hi << " " << hj << " " << d;
        }
        EXPECT_GT(screened, 5000) << g;
    }
    // Limits too small to screen, and sizes that cannot be screened.
    EXPECT_EQ(meshutil::detail::shock_screen(1e-7), 0.0);
    EXPECT_EQ(meshutil::detail::shock_screen(DBL_MAX), 0.0);
    const double screen = meshutil::detail::shock_screen(0.2);
    for (double hj : {1.0 + 1e-7, 0.0, -1.0, nan_, DBL_MAX})
        EXPECT_FALSE(meshutil::detail::shock_clearly_below(1.0, hj, 1e9, screen)) << hj;
    EXPECT_FALSE(meshutil::detail::shock_clearly_below(1.0, 2.0, 0.0, screen));
}
