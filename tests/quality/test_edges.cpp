// Edge lists and edge qualities: brute-force comparisons on random mixed meshes with exclusion and
// invalid sizes or metrics, and the argument ladders.
#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <meshutil/quality.h>
#include <random>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

using namespace qx7;
using namespace qx7::meshutil;

namespace
{

using edge_list = std::vector<std::pair<unsigned, unsigned>>;
using edge_set = std::set<std::pair<unsigned, unsigned>>;

// Corner edges written out by hand for every shape, independent of the library's tables.
const edge_list& reference_edges(element_type shape)
{
    static const edge_list tables[] = {
        {},
        {{0, 1}},
        {{0, 1}, {1, 2}, {2, 0}},
        {{0, 1}, {1, 2}, {2, 3}, {3, 0}},
        {{0, 1}, {0, 2}, {0, 3}, {1, 2}, {1, 3}, {2, 3}},
        {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {0, 4}, {1, 4}, {2, 4}, {3, 4}},
        {{0, 1}, {1, 2}, {2, 0}, {3, 4}, {4, 5}, {5, 3}, {0, 3}, {1, 4}, {2, 5}},
        {{0, 1},
         {1, 2},
         {2, 3},
         {3, 0},
         {4, 5},
         {5, 6},
         {6, 7},
         {7, 4},
         {0, 4},
         {1, 5},
         {2, 6},
         {3, 7}}};
    if (shape == EL_HEXA20) return tables[0]; // none, on purpose
    const unsigned dim = element_dim(shape), corners = nbr_base_nodes(shape);
    return tables[dim == 1 ? 1 : dim == 2 ? corners - 1 : corners == 8 ? 7 : corners];
}

void add_reference(edge_set& s, const dense2D<unsigned>& M, element_type type)
{
    for (std::size_t j = 0; j < M.cols(); ++j)
        for (auto [a, b] : reference_edges(column_shape(type, M.col(j))))
            s.insert({std::min(M(a, j), M(b, j)), std::max(M(a, j), M(b, j))});
}

// Random connectivity of nbr columns with node indices from base to base + nbr_vertices - 1;
// mixed types get random shapes.
dense2D<unsigned> random_connectivity(element_type type, std::size_t nbr, unsigned nbr_vertices,
                                      std::mt19937_64& gen, unsigned base = 0)
{
    dense2D<unsigned> M(nbr_nodes(type), nbr, undefined_index);
    std::uniform_int_distribution<unsigned> node(base, base + (nbr_vertices - 1)), pick(0, 3);
    const unsigned solid_rows[4] = {4, 5, 6, 8};
    for (std::size_t j = 0; j < nbr; ++j)
    {
        unsigned used = M.rows();
        if (type == EL_FACE_MIX) used = pick(gen) < 2 ? 3 : 4;
        if (type == EL_SOLID_MIX) used = solid_rows[pick(gen)];
        for (unsigned i = 0; i < used; ++i)
            M(i, j) = node(gen);
    }
    return M;
}

edge_list columns_of(const dense2D<unsigned>& edges, std::size_t from = 0)
{
    edge_list v;
    for (std::size_t j = from; j < (edges.empty() ? 0 : edges.cols()); ++j)
        v.push_back({edges(0, j), edges(1, j)});
    return v;
}

// (b - a) / ln(b / a) through log1p.
double reference_mean(double a, double b)
{
    if (a > b) std::swap(a, b);
    return a == b ? a : (b - a) / std::log1p((b - a) / a);
}

// Compares a histogram with the reference one: count, sum, extremes, bins.
void expect_same(const misc::histogram& h, const misc::histogram& r)
{
    EXPECT_EQ(h.count(), r.count());
    EXPECT_NEAR(h.sum(), r.sum(), 1e-6 * r.sum());
    EXPECT_NEAR(h.min(), r.min(), 1e-6 * r.min());
    EXPECT_NEAR(h.max(), r.max(), 1e-6 * r.max());
    for (unsigned b = 0; b < 50; ++b)
        EXPECT_NEAR(double(h.bin(b)), double(r.bin(b)), 2.0) << b;
}

} // namespace

TEST(edges, edge_quality_values_and_codes)
{
    double Q = -1.0;
    for (auto [L, h1, h2] : {std::tuple{1.0, 1.0, 1.0}, {1.0, 1.0, 2.0}, {3.0, 1.05, 1.0}})
    {
        EXPECT_EQ(edge_quality(L, h1, h2, Q), 0);
        EXPECT_NEAR(Q * reference_mean(h1, h2) / L, 1.0, 1e-8); // series within 10 %
    }
    Q = 7.0;
    EXPECT_EQ(edge_quality(1.0, 0.0, 1.0, Q), -2);
    EXPECT_EQ(edge_quality(1.0, NAN, -1.0, Q), -2);
    EXPECT_EQ(edge_quality(1.0, 1.0, -1.0, Q), -3);
    EXPECT_EQ(Q, 7.0);
}

TEST(edges, copy_edges_matches_brute_force_on_every_type)
{
    const element_type all_types[] = {EL_EDGE2,   EL_EDGE3,  EL_FACE_MIX, EL_TRIA3,     EL_QUAD4,
                                      EL_TRIA6,   EL_QUAD8,  EL_QUAD9,    EL_SOLID_MIX, EL_TETRA4,
                                      EL_TETRA10, EL_PYRAM5, EL_PYRAM14,  EL_PENTA6,    EL_PENTA18,
                                      EL_HEXA8,   EL_HEXA20, EL_HEXA27};
    std::mt19937_64 gen(31);
    for (unsigned nbr_nodes : {5u, 40u, 3000u, 0u})
    {
        // Each type alone, then all of them appended in one call behind two columns that stay,
        // with a mixed face matrix of 3 rows read as triangles. Indices are not bounded: the
        // last case reaches ~0u (not for mixed types, where ~0u marks unused rows).
        std::vector<dense2D<unsigned>> mats = {random_connectivity(EL_TRIA3, 100, 40, gen)};
        dense1D<int> types(1, int(EL_FACE_MIX));
        edge_set all;
        add_reference(all, mats[0], EL_TRIA3);
        for (element_type type : all_types)
        {
            if (nbr_nodes == 0 && (type == EL_FACE_MIX || type == EL_SOLID_MIX)) continue;
            mats.push_back(nbr_nodes
                               ? random_connectivity(type, 500, nbr_nodes, gen)
                               : random_connectivity(type, 500, 3000, gen, undefined_index - 2999));
            ASSERT_TRUE(types.push_back(type));
            edge_set ref;
            add_reference(ref, mats.back(), type);
            add_reference(all, mats.back(), type);
            dense2D<unsigned> edges;
            ASSERT_EQ(copy_edges(mats.back(), type, edges), 0) << type;
            EXPECT_EQ(columns_of(edges), edge_list(ref.begin(), ref.end()))
                << "type " << type << " nodes " << nbr_nodes;
        }
        dense2D<unsigned> edges(2, 2, 9u);
        ASSERT_EQ(copy_edges(mats.data(), mats.data() + mats.size(), types, edges), 0);
        EXPECT_EQ(edges(0, 0), 9u);
        EXPECT_EQ(edges(1, 1), 9u);
        EXPECT_EQ(columns_of(edges, 2), edge_list(all.begin(), all.end()));
    }
}

TEST(edges, copy_edges_argument_ladder)
{
    const dense2D<unsigned> mats[3] = {dense2D<unsigned>(3, 1, 0u), dense2D<unsigned>(4, 1, 0u),
                                       dense2D<unsigned>(0, 3)};
    dense1D<int> types(2, int(EL_TRIA3));
    dense2D<unsigned> edges(2, 1, 5u), three_rows(3, 1, 0u);
    EXPECT_EQ(copy_edges(mats + 1, mats, types, edges), -2);
    EXPECT_EQ(copy_edges(mats, mats + 1, types, edges), -3);
    EXPECT_EQ(copy_edges(mats, mats + 2, types, three_rows), -4);
    EXPECT_EQ(copy_edges(mats, mats + 2, types, edges), -1); // 4 rows as triangles
    types[1] = 77;
    EXPECT_EQ(copy_edges(mats, mats + 2, types, edges), -1);
    EXPECT_EQ(copy_edges(mats, mats, dense1D<int>(), edges), 0);
    EXPECT_EQ(copy_edges(mats[2], EL_TETRA4, edges), 0); // no rows: nothing
    ASSERT_EQ(edges.cols(), 1u);                         // unchanged throughout
    EXPECT_EQ(edges(0, 0), 5u);
}

TEST(edges, qualities_match_brute_force_with_exclusion_and_invalid_fields)
{
    // A random mesh of mixed solids and triangles, measured with sizes and with random metrics
    // G^T G + 0.1 I against lengths evaluated in full; a handful of edges excluded (some
    // reversed, one not in the mesh). In 2-D every size and metric is valid (1e-300 I too) and
    // the calls return the edge count. In 3-D some sizes are 0 or negative, some metrics zero or
    // indefinite, and the last nodes have neither: their edges are skipped, the others measured,
    // and the calls fail with -5 (-4 for one matrix).
    std::mt19937_64 gen(77);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    const unsigned nbr_nodes = 400;
    for (std::size_t rows : {2, 3})
    {
        const bool faulty = rows == 3;
        const unsigned known = faulty ? nbr_nodes - 7 : nbr_nodes; // nodes with size and metric
        dense2D<double> pos(rows, nbr_nodes);
        dense1D<double> sizes(known);
        dense2D<double> metrics(rows == 2 ? 3 : 6, known);
        std::vector<std::array<double, 9>> full(known); // 3 x 3 row-major
        std::vector<bool> valid_metric(nbr_nodes, false);
        for (unsigned j = 0; j < nbr_nodes; ++j)
        {
            for (std::size_t i = 0; i < rows; ++i)
                pos(i, j) = 2 * u(gen) - 1;
            if (j >= known) continue;
            sizes[j] = j % 3 ? 0.1 + u(gen) : 0.5; // equal sizes too
            if (faulty && j % 23 == 0) sizes[j] = j % 2 ? 0.0 : -1.0;
            double G[3][3];
            for (auto& r : G)
                for (double& v : r)
                    v = 2 * u(gen) - 1;
            auto& M = full[j];
            for (int k = 0; k < 9; ++k)
            {
                const int a = k / 3, b = k % 3;
                M[k] = a == b ? 0.1 : 0.0;
                for (int i = 0; i < 3; ++i)
                    M[k] += G[i][a] * G[i][b];
                if (j % 19 == 2) M[k] = a == b ? 1e-300 : 0.0;
                if (faulty && j % 19 == 1) M[k] = 0.0;
                if (faulty && j % 19 == 3) M[k] = a == b ? 1.0 : 2.0; // eigenvalue -1
            }
            valid_metric[j] = !faulty || (j % 19 != 1 && j % 19 != 3);
            metrics(0, j) = M[0], metrics(1, j) = M[1], metrics(2, j) = M[4];
            if (rows == 3) metrics(3, j) = M[2], metrics(4, j) = M[5], metrics(5, j) = M[8];
        }
        const dense2D<unsigned> mats[2] = {random_connectivity(EL_SOLID_MIX, 300, nbr_nodes, gen),
                                           random_connectivity(EL_TRIA3, 200, nbr_nodes, gen)};
        dense1D<int> types(2, int(EL_SOLID_MIX));
        types[1] = EL_TRIA3;
        edge_set ref;
        add_reference(ref, mats[0], EL_SOLID_MIX);
        add_reference(ref, mats[1], EL_TRIA3);
        dense2D<unsigned> excluded(2, 0);
        std::size_t k = 0;
        for (auto it = ref.begin(); it != ref.end(); ++it, ++k)
            if (k % 17 == 0)
            {
                const unsigned e[2] = {k % 2 ? it->first : it->second,
                                       k % 2 ? it->second : it->first};
                append_column(excluded, e, 2);
            }
        const unsigned stranger[2] = {nbr_nodes - 1, nbr_nodes - 1};
        append_column(excluded, stranger, 2);
        for (std::size_t j = 0; j < excluded.cols(); ++j)
            ref.erase({std::min(excluded(0, j), excluded(1, j)),
                       std::max(excluded(0, j), excluded(1, j))});

        misc::histogram by_sizes(0, 50, 50), by_metrics(0, 50, 50), ref_sizes(0, 50, 50),
            ref_metrics(0, 50, 50);
        const int expected = faulty ? -5 : int(ref.size());
        EXPECT_EQ(edge_qualities(pos, mats, mats + 2, types, sizes, by_sizes, excluded), expected);
        EXPECT_EQ(edge_qualities(pos, mats, mats + 2, types, metrics, by_metrics, excluded),
                  expected);
        for (auto [a, b] : ref)
        {
            if (b >= known) continue;
            double e[3] = {0, 0, 0}, qa = 0, qb = 0;
            for (std::size_t i = 0; i < rows; ++i)
                e[i] = pos(i, b) - pos(i, a);
            const double d = std::sqrt(e[0] * e[0] + e[1] * e[1] + e[2] * e[2]);
            if (sizes[a] > 0 && sizes[b] > 0)
                ref_sizes.process(d / reference_mean(sizes[a], sizes[b]));
            if (!valid_metric[a] || !valid_metric[b]) continue;
            for (std::size_t r = 0; r < rows; ++r)
                for (std::size_t c = 0; c < rows; ++c)
                    qa += e[r] * full[a][3 * r + c] * e[c], qb += e[r] * full[b][3 * r + c] * e[c];
            const double la = std::sqrt(qa), lb = std::sqrt(qb);
            ref_metrics.process(qa > 0 && qb > 0 ? la * lb / reference_mean(la, lb) : 0.0);
        }
        expect_same(by_sizes, ref_sizes);
        expect_same(by_metrics, ref_metrics);
        const std::size_t before = by_sizes.count();
        const int single = edge_qualities(pos, mats[0], EL_SOLID_MIX, sizes, by_sizes, excluded);
        EXPECT_EQ(single, faulty ? -4 : int(by_sizes.count() - before));
        EXPECT_EQ(edge_qualities(pos, mats[0], EL_SOLID_MIX, metrics, by_metrics, excluded),
                  faulty ? -4 : single);
    }
}

TEST(edges, edge_qualities_argument_ladder)
{
    const dense2D<double> pos(3, 4, 0.0), pos4(4, 4, 0.0), metrics(6, 4, 0.0);
    const dense2D<unsigned> mats[2] = {dense2D<unsigned>(3, 1, 0u), dense2D<unsigned>(3, 1, 4u)};
    dense1D<int> types(2, int(EL_TRIA3)), one(1, int(EL_TRIA3));
    const dense1D<double> sizes(4, 1.0);
    const dense2D<unsigned> none, bad_excluded(2, 1, 4u), three_rows(3, 1, 0u);
    misc::histogram h;
    EXPECT_EQ(edge_qualities(pos4, mats, mats, types, sizes, h, bad_excluded), 0);
    EXPECT_EQ(edge_qualities(pos4, mats, mats + 2, types, sizes, h, none), -1);
    EXPECT_EQ(edge_qualities(pos, mats, mats + 1, types, sizes, h, bad_excluded), -4);
    EXPECT_EQ(edge_qualities(pos, mats + 1, mats, types, sizes, h, none), -4);
    EXPECT_EQ(edge_qualities(pos, mats, mats + 2, types, sizes, h, none), -2);
    EXPECT_EQ(edge_qualities(pos, mats, mats + 1, one, sizes, h, bad_excluded), -7);
    EXPECT_EQ(edge_qualities(pos, mats, mats + 1, one, sizes, h, three_rows), -7);
    // Single-matrix forms: codes below -3 move up by one.
    EXPECT_EQ(edge_qualities(pos4, mats[0], EL_TRIA3, sizes, h, none), -1);
    EXPECT_EQ(edge_qualities(pos, mats[1], EL_TRIA3, sizes, h, none), -2);
    EXPECT_EQ(edge_qualities(pos, mats[0], EL_TRIA3, sizes, h, bad_excluded), -6);
    EXPECT_EQ(edge_qualities(pos, mats[0], EL_TRIA3, dense1D<double>(4, 0.0), h, none), -4);
    EXPECT_EQ(edge_qualities(pos, mats[0], EL_TRIA3, metrics, h, none), -4); // zero metric
    EXPECT_EQ(h.count(), 0u);
    // Metrics with too few rows for the dimension: every edge skipped.
    EXPECT_EQ(edge_qualities(pos, mats[0], EL_TRIA3, dense2D<double>(3, 4, 1.0), h, none), -4);
    EXPECT_EQ(h.count(), 0u);
    // The 20-node hexahedron yields no edge.
    EXPECT_EQ(edge_qualities(pos, dense2D<unsigned>(20, 1, 1u), EL_HEXA20, sizes, h, none), 0);
}
