// Tests of the gradation of size and metric fields.
#include "metrics/gradation_engine.h"
#include "metrics/metrics_test_util.h"

#include <algorithm>
#include <cfloat>
#include <gtest/gtest.h>
#include <meshutil/connectivity.h>
#include <meshutil/metrics.h>
#include <queue>
#include <tuple>
#include <vector>

using namespace qx7;
using namespace qx7::meshutil;
using metrics_test::cols_of;
using metrics_test::list_of;
using metrics_test::nan_;
using metrics_test::rng;

namespace
{

const dense1D<unsigned> no_nodes;

/// n^DIM jittered grid nodes on [0, 1]^DIM, each cell split into the DIM! simplices that follow
/// the axes in every order (triangles in 2-D, tetrahedra in 3-D).
template <int DIM>
void grid_mesh(unsigned n, rng& r, dense2D<double>& pos, dense2D<unsigned>& connectM)
{
    const unsigned c = n - 1, cells = DIM == 2 ? c * c : c * c * c;
    const unsigned step[3] = {1, n, n * n};
    const unsigned perms[6][3] = {{0, 1, 2}, {1, 0, 2}, {0, 2, 1}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
    const unsigned nperms = DIM == 2 ? 2 : 6;
    pos.resize(DIM, DIM == 2 ? n * n : n * n * n);
    for (std::size_t j = 0; j < pos.cols(); ++j)
        for (std::size_t k = 0, q = j; k < DIM; ++k, q /= n)
            pos(k, j) = (double(q % n) + r.uniform(-0.2, 0.2)) / c;
    connectM.resize(DIM + 1, cells * nperms);
    for (unsigned e = 0; e < cells; ++e)
        for (unsigned p = 0; p < nperms; ++p)
        {
            unsigned* t = connectM.col(e * nperms + p);
            t[0] = 0;
            for (unsigned k = 0, q = e; k < DIM; ++k, q /= c)
                t[0] += (q % c) * step[k];
            for (unsigned k = 0; k < DIM; ++k)
                t[k + 1] = t[k] + step[perms[p][k]];
        }
}

/// The shock (variation false) or variation form on a size or metric field.
template <class Field>
int grade(bool variation, const dense2D<double>& pos, const dense2D<unsigned>& connectM,
          element_type type, const dense1D<unsigned>& nodes, bool frozen, int dir, double g,
          Field& field)
{
    return variation ? bound_metric_variations(pos, connectM, type, nodes, frozen, dir, g, field)
                     : bound_metric_gradations(pos, connectM, type, nodes, frozen, dir, g, field);
}

/// Largest gradation measure over the node graph, from the engine's own measure.
template <unsigned DIM, bool ANISO, bool VARIATION>
double worst_measure(const dense2D<double>& pos, const dense2D<unsigned>& connectM, double* field,
                     std::size_t field_ld)
{
    dense1D<unsigned> first, graph;
    EXPECT_EQ(get_node_graph(connectM, first, graph), 0);
    double worst = 0.0;
    for (unsigned i = 0; i + 1 < first.size(); ++i)
        for (unsigned k = first[i]; k < first[i + 1]; ++k)
        {
            const unsigned j = graph[k];
            int order;
            worst = std::max(worst, meshutil::detail::edge_measure<DIM, ANISO, VARIATION>(
                                        pos.col(i), pos.col(j), field + i * field_ld,
                                        field + j * field_ld, order));
        }
    return worst;
}

/// The isotropic metric field of a size field.
dense2D<double> iso_metrics(const dense1D<double>& h, unsigned dim)
{
    dense2D<double> M(dim == 2 ? 3 : 6, h.size());
    EXPECT_EQ(dim == 2 ? metrics_iso_to_aniso2d(h, M) : metrics_iso_to_aniso3d(h, M), 0);
    return M;
}

} // namespace

TEST(metric_gradation, check_ladder)
{
    // Two nodes one unit apart with sizes 1 and 10. The four forms must agree, and every failing
    // check leaves the field as it was.
    const dense2D<double> pos = cols_of<double>(2, {0, 0, 1, 0}), pos1 = cols_of<double>(1, {0, 1});
    const dense2D<unsigned> E = cols_of<unsigned>(2, {0, 1});
    auto code = [](const dense2D<double>& p, const dense2D<unsigned>& C,
                   const dense1D<unsigned>& nodes, double g)
    {
        int c[4];
        for (int k : {0, 2})
        {
            dense1D<double> h = list_of<double>({1.0, 10.0});
            dense2D<double> M = iso_metrics(h, 2);
            c[k] = grade(k == 2, p, C, EL_EDGE2, nodes, true, 0, g, h);
            c[k + 1] = grade(k == 2, p, C, EL_EDGE2, nodes, true, 0, g, M);
            EXPECT_TRUE(h == list_of<double>({1.0, 10.0}) && M(0, 0) == 1.0 && M(0, 1) == 0.01);
        }
        return c[0] == c[1] && c[1] == c[2] && c[2] == c[3] ? c[0] : 99;
    };
    EXPECT_EQ(code(pos, dense2D<unsigned>(), no_nodes, -1.0), 0);
    EXPECT_EQ(code(pos1, E, no_nodes, DBL_MAX), 0);
    EXPECT_EQ(code(pos1, E, no_nodes, 0.5), -1);
    EXPECT_EQ(code(pos, cols_of<unsigned>(2, {0, 2}), no_nodes, 0.5), -2);
    EXPECT_EQ(code(pos, E, list_of<unsigned>({2}), 0.5), -4);
    EXPECT_EQ(code(pos, E, list_of<unsigned>({undefined_index}), 0.5), -4);
    EXPECT_EQ(code(pos, E, no_nodes, -1.0), -7);
    EXPECT_EQ(code(pos, E, no_nodes, nan_), -7);
    // -8: a field too short, or of the wrong row count.
    dense1D<double> short_h = list_of<double>({1.0});
    dense2D<double> M3 = iso_metrics(list_of<double>({1.0, 10.0}), 3), M1(3, 1, 1.0);
    EXPECT_EQ(grade(false, pos, E, EL_EDGE2, no_nodes, true, 0, 0.5, short_h), -8);
    EXPECT_EQ(grade(false, pos, E, EL_EDGE2, no_nodes, true, 0, 0.5, M3), -8);
    EXPECT_EQ(grade(true, pos, E, EL_EDGE2, no_nodes, true, 0, 0.5, M1), -8);
}

TEST(metric_gradation, small_cases_by_direction_and_frozen_nodes)
{
    // Nodes 2 --- 0 --- 1 at unit spacing with sizes 1, 1 and 10, g = 0.5: a move leaves the gap
    // ln 1.5 (shock) or 0.5 (variation). On the edge 0-1 alone, only the low byte of the
    // direction counts and 2 matches no move. On the chain with node 2 frozen (listed, or left
    // out of the free nodes), node 0 may grow only to 1 + ln 1.5 and node 1 then shrinks to
    // 1 + 2 ln 1.5; with node 1 frozen the wave runs the other way; with every node frozen
    // nothing moves. Isotropic metrics make the same moves.
    const double l = std::log(1.5);
    const dense2D<unsigned> edge = cols_of<unsigned>(2, {0, 1});
    const dense2D<unsigned> chain = cols_of<unsigned>(2, {0, 1, 2, 0});
    struct row
    {
        const dense2D<unsigned>& connectM;
        bool variation;
        dense1D<unsigned> nodes;
        bool frozen;
        int direction, count;
        double want[3];
    };
    const row rows[] = {
        {edge, false, no_nodes, true, -1, 1, {1.0, 1.0 + l, 1.0}},
        {edge, false, no_nodes, true, 1, 1, {10.0 - l, 10.0, 1.0}},
        {edge, false, no_nodes, true, 0, 1, {10.0 - l, 10.0, 1.0}},
        {edge, false, no_nodes, true, 2, 0, {1.0, 10.0, 1.0}},
        {edge, true, no_nodes, true, -1, 1, {1.0, 1.5, 1.0}},
        {edge, true, no_nodes, true, 1, 1, {9.5, 10.0, 1.0}},
        {edge, true, no_nodes, true, 0, 1, {9.5, 10.0, 1.0}},
        {edge, true, no_nodes, true, 258, 0, {1.0, 10.0, 1.0}},
        {chain, false, list_of<unsigned>({2}), true, 0, 2, {1.0 + l, 1.0 + 2.0 * l, 1.0}},
        {chain, false, list_of<unsigned>({0, 1}), false, 0, 2, {1.0 + l, 1.0 + 2.0 * l, 1.0}},
        {chain, false, list_of<unsigned>({1}), true, 0, 2, {10.0 - l, 10.0, 10.0 - 2.0 * l}},
        {chain, false, no_nodes, false, 0, 0, {1.0, 10.0, 1.0}},
    };
    for (unsigned dim : {2u, 3u})
        for (const row& t : rows)
        {
            dense2D<double> pos(dim, 3, 0.0);
            pos(0, 1) = 1.0, pos(0, 2) = -1.0;
            dense1D<double> h = list_of<double>({1.0, 10.0, 1.0});
            dense2D<double> M = iso_metrics(h, dim);
            EXPECT_EQ(grade(t.variation, pos, t.connectM, EL_EDGE2, t.nodes, t.frozen, t.direction,
                            0.5, h),
                      t.count);
            EXPECT_EQ(grade(t.variation, pos, t.connectM, EL_EDGE2, t.nodes, t.frozen, t.direction,
                            0.5, M),
                      t.count);
            for (int k = 0; k < 3; ++k)
            {
                EXPECT_NEAR(h[k], t.want[k], 1e-12) << (&t - rows) << " " << k;
                EXPECT_NEAR(1.0 / std::sqrt(M(0, k)), t.want[k], 1e-10) << (&t - rows) << " " << k;
            }
            EXPECT_NEAR(M(1, 0), 0.0, 1e-15);
            EXPECT_NEAR(M(2, 0), M(0, 0), 1e-12 * M(0, 0)); // still isotropic
        }
}

namespace
{

/// Grades a random field on a jittered grid with direction `dir`. Every result is valid, sizes
/// only move in the requested direction (in every direction for metrics), frozen nodes (every
/// seventh) keep their values, and without frozen nodes the final measure is at most the limit
/// that the smallest admissible move leaves, and reaches g somewhere.
template <unsigned DIM, bool ANISO, bool VARIATION>
void check_bound(int dir, bool with_frozen, std::uint64_t seed)
{
    rng r(seed);
    dense2D<double> pos;
    dense2D<unsigned> connectM;
    grid_mesh<DIM>(DIM == 2 ? 12 : 6, r, pos, connectM);
    const std::size_t n = pos.cols();
    const double g = 0.4;
    dense1D<double> h(n), h0;
    dense2D<double> M = metrics_test::random_field<DIM>(r, n, 0.01, 1.0), M0;
    dense1D<unsigned> frozen;
    for (std::size_t j = 0; j < n; ++j)
    {
        h[j] = r.log_uniform(0.01, 1.0);
        if (with_frozen && j % 7 == 0) frozen.push_back(unsigned(j));
    }
    ASSERT_TRUE(h0.copy(h) && M0.copy(M));
    const element_type type = DIM == 2 ? EL_TRIA3 : EL_TETRA4;
    if constexpr (ANISO)
        ASSERT_GT(grade(VARIATION, pos, connectM, type, frozen, true, dir, g, M), 0);
    else
        ASSERT_GT(grade(VARIATION, pos, connectM, type, frozen, true, dir, g, h), 0);
    for (std::size_t j = 0; j < n; ++j)
    {
        const symmetric_fixed<double, DIM> m = metrics_test::column<DIM>(M, j),
                                           m0 = metrics_test::column<DIM>(M0, j);
        EXPECT_TRUE(!(with_frozen && j % 7 == 0) || (h[j] == h0[j] && metrics_test::same(m, m0)))
            << j;
        EXPECT_TRUE(is_valid_metric(m) && h[j] > 0.0) << j;
        EXPECT_TRUE(dir * (h[j] - h0[j]) >= 0.0) << j;
        for (int s = 0; s < 4 && dir != 0; ++s)
        {
            double u[DIM];
            metrics_test::unit_vector<DIM>(r, u);
            const double a = metrics_test::quad<DIM>(m, u), b = metrics_test::quad<DIM>(m0, u);
            EXPECT_TRUE(dir == 1 ? a <= b * (1 + 1e-9) : a >= b * (1 - 1e-9)) << j;
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
    EXPECT_GT(worst, g * 0.9);
}

} // namespace

TEST(metric_gradation, random_fields_are_bounded_and_frozen_nodes_never_change)
{
    using check = void (*)(int, bool, std::uint64_t);
    const check checks[] = {check_bound<2, false, false>, check_bound<3, false, false>,
                            check_bound<2, true, false>,  check_bound<3, true, false>,
                            check_bound<2, false, true>,  check_bound<3, false, true>,
                            check_bound<2, true, true>,   check_bound<3, true, true>};
    for (std::uint64_t k = 0; k < 8; ++k)
        for (int dir : {1, -1, 0})
        {
            if (dir) checks[k](dir, false, 51 + k);
            checks[k](dir, true, 61 + k);
        }
}

namespace
{

/// The propagation written out plainly for isotropic shocks without frozen nodes: every edge
/// above g is queued in both directions, nothing is grouped, deferred or pruned; equal keys come
/// out first come, first served. Returns the count.
template <unsigned DIM>
int plain_gradation(const dense2D<double>& pos, const dense2D<unsigned>& connectM, int direction,
                    double g, std::vector<double>& h)
{
    dense1D<unsigned> first, graph;
    EXPECT_EQ(get_node_graph(connectM, first, graph), 0);
    const std::size_t n = first.size() - 1;
    std::vector<unsigned> state(n, 0);
    std::vector<unsigned char> dir(n, static_cast<unsigned char>(direction & 0xff));
    // key, minus the insertion order, stamp, node, neighbour
    std::priority_queue<std::tuple<float, long long, unsigned, unsigned, unsigned>> queue;
    long long pushed = 0;
    const double lg = std::log1p(g);
    auto shock = [&](unsigned a, unsigned b)
    { return meshutil::detail::iso_edge_shock<DIM>(pos.col(a), pos.col(b), h[a], h[b]); };
    auto push = [&](double s, unsigned stamp, unsigned a, unsigned b)
    { queue.emplace(float(std::min(s, double(FLT_MAX))), -pushed++, stamp, a, b); };
    for (unsigned i = 0; i < n; ++i)
        for (unsigned k = first[i]; k < first[i + 1]; ++k)
            if (shock(i, graph[k]) > g) push(shock(i, graph[k]), 0, i, graph[k]);
    unsigned stamp = 0;
    int count = 0;
    while (!queue.empty())
    {
        const auto [key, order, st, i, j] = queue.top();
        queue.pop();
        if (state[i] > st || state[j] > st) continue;
        double d = 0.0;
        for (std::size_t k = 0; k < DIM; ++k)
            d += (pos(k, i) - pos(k, j)) * (pos(k, i) - pos(k, j));
        const double gap = std::fabs(h[j] - h[i]);
        const double t = gap > 0.0 ? std::max(0.0, 1.0 - lg * std::sqrt(d) / gap) : 0.0;
        const unsigned char want = h[j] > h[i] ? 1 : 255;
        if (t > 1e-12 && dir[i] == 0) dir[i] = want; // direction 0: the first move decides
        if (!(t > 0.001) || dir[i] != want) continue;
        double hn = h[i] + t * (h[j] - h[i]);
        hn = dir[i] == 1 ? std::max(hn, h[i]) : std::min(hn, h[i]);
        if (!(std::max(h[i], hn) / std::min(h[i], hn) > 1.000000000001)) continue;
        h[i] = hn;
        count += state[i] == 0;
        state[i] = ++stamp;
        for (unsigned k = first[i]; k < first[i + 1]; ++k)
            if (shock(i, graph[k]) > g)
                push(shock(i, graph[k]), stamp, i, graph[k]),
                    push(shock(i, graph[k]), stamp, graph[k], i);
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
    // depends on how the queue breaks ties.) Isotropic metrics must make the same moves.
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
                dense2D<double> M = iso_metrics(h, dim);
                const element_type type = dim == 2 ? EL_TRIA3 : EL_TETRA4;
                const int count =
                    bound_metric_gradations(pos, connectM, type, no_nodes, true, dir, 0.3, h);
                EXPECT_EQ(count, dim == 2 ? plain_gradation<2>(pos, connectM, dir, 0.3, ref)
                                          : plain_gradation<3>(pos, connectM, dir, 0.3, ref));
                EXPECT_GT(count, 50);
                // Isotropic metrics make the same moves.
                EXPECT_EQ(bound_metric_gradations(pos, connectM, type, no_nodes, true, dir, 0.3, M),
                          count);
                for (std::size_t j = 0; j < h.size(); ++j)
                {
                    EXPECT_NEAR(h[j], ref[j], 1e-9 * ref[j]) << hmin << " " << dim << " " << dir;
                    EXPECT_NEAR(1.0 / std::sqrt(M(0, j)), h[j], 1e-6 * h[j]) << hmin << " " << dim;
                }
            }
}

TEST(metric_gradation, queue_gives_the_largest_key_and_the_oldest_of_equal_keys)
{
    // Seeds, then rounds of one removal and a few entries made with a new stamp, against a list
    // scanned for the first entry in (largest key, smallest stamp) order. The keys repeat (ties
    // across stamps), span the float range (entries waiting far below the heap) and crowd the
    // last key taken (band edges, bands entering a heap that already holds their keys).
    namespace md = meshutil::detail;
    rng r(5);
    for (int trial = 0; trial < 6; ++trial)
    {
        std::vector<float> pool;
        for (int k = 0; k < 12; ++k)
            pool.push_back(float(r.log_uniform(0.2, trial % 2 ? 1e30 : 4.0)));
        pool.push_back(FLT_MAX);
        md::gradation_queue queue;
        ASSERT_TRUE(queue.reserve(400, 64)); // the heap and the bands have to grow
        std::vector<md::gradation_entry> live;
        unsigned id = 0, stamp = 0;
        float last = pool[0];
        auto key = [&]
        {
            const double u = r.uniform();
            return u < 0.4   ? pool[r.next() % pool.size()]
                   : u < 0.6 ? last
                             : float(std::min(double(FLT_MAX), last * r.uniform(0.8, 1.25)));
        };
        auto add = [&](float k)
        {
            const md::gradation_entry e{k, stamp, id++, 0};
            live.push_back(e);
            ASSERT_TRUE(queue.push(e));
        };
        for (int k = 0; k < 400; ++k)
            add(key());
        ASSERT_TRUE(queue.start());
        std::size_t taken = 0;
        while (!queue.empty())
        {
            ASSERT_TRUE(queue.prepare());
            ASSERT_EQ(queue.size(), live.size());
            const md::gradation_entry e = queue.pop();
            const auto first = std::min_element(live.begin(), live.end(), md::comes_before);
            const auto it =
                std::find_if(live.begin(), live.end(),
                             [&](const md::gradation_entry& x) { return x.node == e.node; });
            ASSERT_NE(it, live.end());
            // Entries of one stamp with equal keys may come out in any order.
            ASSERT_EQ(it->key, first->key) << trial << " " << taken;
            ASSERT_EQ(it->stamp, first->stamp) << trial << " " << taken;
            live.erase(it);
            last = e.key;
            ++stamp;
            if (++taken < 4000)
                for (auto k = r.next() % 4; k > 0; --k)
                    add(key());
        }
        EXPECT_TRUE(live.empty());
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
