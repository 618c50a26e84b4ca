// Edge lists and edge qualities: brute-force comparisons on random mixed meshes, exclusion,
// invalid sizes and the argument ladders.
#include <cmath>
#include <gtest/gtest.h>
#include <meshutil/quality.h>
#include <random>
#include <set>
#include <utility>
#include <vector>

using namespace qx7;
using namespace qx7::meshutil;

namespace
{

using edge_set = std::set<std::pair<unsigned, unsigned>>;
using edge_vector = std::vector<std::pair<unsigned, unsigned>>;

edge_vector as_vector(const edge_set& s)
{
    return edge_vector(s.begin(), s.end());
}

// Corner edges written out by hand for every shape, independent of the library's tables.
const std::vector<std::pair<unsigned, unsigned>>& reference_edges(element_type shape)
{
    static const std::vector<std::pair<unsigned, unsigned>> none,
        line = {{0, 1}}, tria = {{0, 1}, {1, 2}, {2, 0}}, quad = {{0, 1}, {1, 2}, {2, 3}, {3, 0}},
        tetra = {{0, 1}, {0, 2}, {0, 3}, {1, 2}, {1, 3}, {2, 3}},
        pyram = {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {0, 4}, {1, 4}, {2, 4}, {3, 4}},
        penta = {{0, 1}, {1, 2}, {2, 0}, {3, 4}, {4, 5}, {5, 3}, {0, 3}, {1, 4}, {2, 5}},
        hexa = {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {4, 5}, {5, 6},
                {6, 7}, {7, 4}, {0, 4}, {1, 5}, {2, 6}, {3, 7}};
    switch (shape)
    {
    case EL_EDGE2:
    case EL_EDGE3:
        return line;
    case EL_TRIA3:
    case EL_TRIA6:
        return tria;
    case EL_QUAD4:
    case EL_QUAD8:
    case EL_QUAD9:
        return quad;
    case EL_TETRA4:
    case EL_TETRA10:
        return tetra;
    case EL_PYRAM5:
    case EL_PYRAM14:
        return pyram;
    case EL_PENTA6:
    case EL_PENTA18:
        return penta;
    case EL_HEXA8:
    case EL_HEXA27:
        return hexa;
    default:
        return none;
    }
}

// Shape of a mixed column, by the first undefined row.
element_type shape_of(element_type type, const unsigned* c)
{
    if (type == EL_FACE_MIX) return c[3] == undefined_index ? EL_TRIA3 : EL_QUAD4;
    if (type == EL_SOLID_MIX)
        return c[4] == undefined_index   ? EL_TETRA4
               : c[5] == undefined_index ? EL_PYRAM5
               : c[6] == undefined_index ? EL_PENTA6
                                         : EL_HEXA8;
    return type;
}

void add_reference(edge_set& s, const dense2D<unsigned>& M, element_type type)
{
    for (std::size_t j = 0; j < M.cols(); ++j)
        for (auto [a, b] : reference_edges(shape_of(type, M.col(j))))
        {
            unsigned x = M(a, j), y = M(b, j);
            s.insert({std::min(x, y), std::max(x, y)});
        }
}

// Random connectivity of nbr columns with node indices below nbr_nodes; mixed types get random
// shapes.
dense2D<unsigned> random_connectivity(element_type type, std::size_t nbr, unsigned nbr_vertices,
                                      std::mt19937_64& gen)
{
    dense2D<unsigned> M(nbr_nodes(type), nbr, undefined_index);
    std::uniform_int_distribution<unsigned> node(0, nbr_vertices - 1), pick(0, 3);
    for (std::size_t j = 0; j < nbr; ++j)
    {
        unsigned used = M.rows();
        if (type == EL_FACE_MIX) used = pick(gen) < 2 ? 3 : 4;
        const unsigned solid_rows[4] = {4, 5, 6, 8};
        if (type == EL_SOLID_MIX) used = solid_rows[pick(gen)];
        for (unsigned i = 0; i < used; ++i)
            M(i, j) = node(gen);
    }
    return M;
}

dense2D<double> random_pos(std::size_t rows, unsigned nbr_nodes, std::mt19937_64& gen)
{
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    dense2D<double> pos(rows, nbr_nodes);
    for (std::size_t j = 0; j < nbr_nodes; ++j)
        for (std::size_t i = 0; i < rows; ++i)
            pos(i, j) = u(gen);
    return pos;
}

std::vector<std::pair<unsigned, unsigned>> columns_of(const dense2D<unsigned>& edges,
                                                      std::size_t from = 0)
{
    std::vector<std::pair<unsigned, unsigned>> v;
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

const element_type all_types[] = {EL_EDGE2,   EL_EDGE3,  EL_FACE_MIX, EL_TRIA3,     EL_QUAD4,
                                  EL_TRIA6,   EL_QUAD8,  EL_QUAD9,    EL_SOLID_MIX, EL_TETRA4,
                                  EL_TETRA10, EL_PYRAM5, EL_PYRAM14,  EL_PENTA6,    EL_PENTA18,
                                  EL_HEXA8,   EL_HEXA20, EL_HEXA27};

} // namespace

TEST(edges, edge_quality_values_and_codes)
{
    double Q = -1.0;
    EXPECT_EQ(edge_quality(1.0, 1.0, 1.0, Q), 0);
    EXPECT_EQ(Q, 1.0);
    EXPECT_EQ(edge_quality(1.0, 1.0, 2.0, Q), 0);
    EXPECT_NEAR(Q, std::log(2.0), 1e-15);
    EXPECT_EQ(edge_quality(3.0, 1.05, 1.0, Q), 0);
    EXPECT_NEAR(Q, 3.0 / 1.02479671006944, 1e-13);
    Q = 7.0;
    EXPECT_EQ(edge_quality(1.0, 0.0, 1.0, Q), -2);
    EXPECT_EQ(edge_quality(1.0, NAN, -1.0, Q), -2);
    EXPECT_EQ(edge_quality(1.0, 1.0, -1.0, Q), -3);
    EXPECT_EQ(Q, 7.0);
}

TEST(edges, copy_edges_matches_brute_force_on_every_type)
{
    std::mt19937_64 gen(31);
    for (element_type type : all_types)
        for (unsigned nbr_nodes : {5u, 40u, 3000u})
        {
            const dense2D<unsigned> M = random_connectivity(type, 500, nbr_nodes, gen);
            edge_set ref;
            if (type != EL_HEXA20) add_reference(ref, M, type);
            dense2D<unsigned> edges;
            ASSERT_EQ(copy_edges(M, type, edges), 0) << type;
            const auto got = columns_of(edges);
            EXPECT_EQ(got, as_vector(ref)) << "type " << type << " nodes " << nbr_nodes;
        }
}

TEST(edges, copy_edges_over_several_matrices_appends_sorted_distinct_edges)
{
    std::mt19937_64 gen(8);
    const dense2D<unsigned> mats[3] = {random_connectivity(EL_SOLID_MIX, 300, 200, gen),
                                       random_connectivity(EL_FACE_MIX, 300, 200, gen),
                                       random_connectivity(EL_EDGE2, 300, 200, gen)};
    dense1D<int> types(3);
    types[0] = EL_SOLID_MIX, types[1] = EL_FACE_MIX, types[2] = EL_EDGE2;
    edge_set ref;
    for (int k = 0; k < 3; ++k)
        add_reference(ref, mats[k], element_type(types[k]));
    dense2D<unsigned> edges(2, 2, 9u); // two columns kept in front
    ASSERT_EQ(copy_edges(mats, mats + 3, types, edges), 0);
    EXPECT_EQ(edges.cols(), 2 + ref.size());
    EXPECT_EQ(edges(0, 0), 9u);
    EXPECT_EQ(edges(1, 1), 9u);
    EXPECT_EQ(columns_of(edges, 2), as_vector(ref));
}

TEST(edges, copy_edges_small_cases_and_large_indices)
{
    //  3 ----- 2
    //  |  \    |     triangles (0, 1, 3) and (1, 2, 3) share the edge 1-3:
    //  |    \  |     5 distinct edges
    //  0 ----- 1
    dense2D<unsigned> tris(3, 2);
    const unsigned t[6] = {0, 1, 3, 1, 2, 3};
    for (int k = 0; k < 6; ++k)
        tris(k % 3, k / 3) = t[k];
    dense2D<unsigned> edges;
    ASSERT_EQ(copy_edges(tris, EL_TRIA3, edges), 0);
    EXPECT_EQ(columns_of(edges),
              (std::vector<std::pair<unsigned, unsigned>>{{0, 1}, {0, 3}, {1, 2}, {1, 3}, {2, 3}}));
    // A mixed face matrix with 3 rows is a triangle matrix.
    edges.clear();
    ASSERT_EQ(copy_edges(tris, EL_FACE_MIX, edges), 0);
    EXPECT_EQ(edges.cols(), 5u);
    // The 20-node hexahedron has no edges; an empty connectivity neither.
    edges.clear();
    ASSERT_EQ(copy_edges(dense2D<unsigned>(20, 3, 1u), EL_HEXA20, edges), 0);
    EXPECT_TRUE(edges.empty());
    ASSERT_EQ(copy_edges(dense2D<unsigned>(0, 3), EL_TETRA4, edges), 0);
    EXPECT_TRUE(edges.empty());
    // Indices are not bounded: the largest ones sort last, ~0u included.
    dense2D<unsigned> big(2, 100);
    for (unsigned j = 0; j < 100; ++j)
    {
        big(0, j) = undefined_index - j % 7;
        big(1, j) = (j * 2654435761u) % 1000u;
    }
    ASSERT_EQ(copy_edges(big, EL_EDGE2, edges), 0);
    edge_set ref;
    add_reference(ref, big, EL_EDGE2);
    EXPECT_EQ(columns_of(edges), as_vector(ref));
}

TEST(edges, copy_edges_argument_ladder)
{
    const dense2D<unsigned> mats[2] = {dense2D<unsigned>(3, 1, 0u), dense2D<unsigned>(4, 1, 0u)};
    dense1D<int> types(2, int(EL_TRIA3));
    dense2D<unsigned> edges(2, 1, 5u);
    EXPECT_EQ(copy_edges(mats + 1, mats, types, edges), -2);
    EXPECT_EQ(copy_edges(mats, mats + 1, types, edges), -3);
    dense2D<unsigned> three_rows(3, 1, 0u);
    EXPECT_EQ(copy_edges(mats, mats + 2, types, three_rows), -4);
    EXPECT_EQ(copy_edges(mats, mats + 2, types, edges), -1); // 4 rows as triangles
    types[1] = 77;
    EXPECT_EQ(copy_edges(mats, mats + 2, types, edges), -1);
    EXPECT_EQ(edges.cols(), 1u);
    EXPECT_EQ(edges(0, 0), 5u);
    EXPECT_EQ(copy_edges(mats, mats, dense1D<int>(), edges), 0);
    EXPECT_EQ(edges.cols(), 1u);
}

TEST(edges, isotropic_qualities_match_brute_force)
{
    std::mt19937_64 gen(77);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    for (std::size_t rows : {std::size_t(2), std::size_t(3)})
    {
        const unsigned nbr_nodes = 400;
        const dense2D<double> pos = random_pos(rows, nbr_nodes, gen);
        dense1D<double> sizes(nbr_nodes);
        for (unsigned i = 0; i < nbr_nodes; ++i)
            sizes[i] = i % 3 ? 0.1 + u(gen) : 0.5; // equal sizes too
        const dense2D<unsigned> mats[2] = {random_connectivity(EL_SOLID_MIX, 300, nbr_nodes, gen),
                                           random_connectivity(EL_TRIA3, 200, nbr_nodes, gen)};
        dense1D<int> types(2);
        types[0] = EL_SOLID_MIX, types[1] = EL_TRIA3;
        edge_set ref;
        add_reference(ref, mats[0], EL_SOLID_MIX);
        add_reference(ref, mats[1], EL_TRIA3);
        // Exclude a handful, some reversed, one not in the mesh.
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

        misc::histogram h(0.0, 50.0, 50);
        ASSERT_EQ(edge_qualities(pos, mats, mats + 2, types, sizes, h, excluded), int(ref.size()));
        misc::histogram r(0.0, 50.0, 50);
        for (auto [a, b] : ref)
        {
            double d2 = 0;
            for (std::size_t i = 0; i < rows; ++i)
                d2 += (pos(i, a) - pos(i, b)) * (pos(i, a) - pos(i, b));
            r.process(std::sqrt(d2) / reference_mean(sizes[a], sizes[b]));
        }
        EXPECT_EQ(h.count(), r.count());
        EXPECT_NEAR(h.sum(), r.sum(), 1e-6 * r.sum());
        EXPECT_NEAR(h.min(), r.min(), 1e-6 * r.min());
        EXPECT_NEAR(h.max(), r.max(), 1e-6 * r.max());
        for (unsigned b = 0; b < 50; ++b)
            EXPECT_NEAR(double(h.bin(b)), double(r.bin(b)), 2.0) << b;
    }
}

TEST(edges, exclusion_and_invalid_sizes)
{
    // Square 0-1-2-3 split by 0-2; node 4 carries size 0 and is joined to 2.
    dense2D<double> pos(2, 5, 0.0);
    const double xy[10] = {0, 0, 1, 0, 1, 1, 0, 1, 2, 1};
    for (int k = 0; k < 10; ++k)
        pos(k % 2, k / 2) = xy[k];
    dense2D<unsigned> tris(3, 2);
    const unsigned t[6] = {0, 1, 2, 0, 2, 3};
    for (int k = 0; k < 6; ++k)
        tris(k % 3, k / 3) = t[k];
    dense1D<double> sizes(5, 1.0);
    misc::histogram h;
    const dense2D<unsigned> none;
    EXPECT_EQ(edge_qualities(pos, tris, EL_TRIA3, sizes, h, none), 5);
    EXPECT_EQ(h.count(), 5u);
    EXPECT_NEAR(h.max(), std::sqrt(2.0), 1e-15);
    // Excluding every edge, in the other direction: 0 and nothing measured.
    dense2D<unsigned> all;
    ASSERT_EQ(copy_edges(tris, EL_TRIA3, all), 0);
    dense2D<unsigned> reversed(2, all.cols());
    for (std::size_t j = 0; j < all.cols(); ++j)
        reversed(0, j) = all(1, j), reversed(1, j) = all(0, j);
    h.clear();
    EXPECT_EQ(edge_qualities(pos, tris, EL_TRIA3, sizes, h, reversed), 0);
    EXPECT_EQ(h.count(), 0u);
    // A size of 0: its edges are skipped, the others still measured.
    dense2D<unsigned> more(3, 3);
    const unsigned t2[9] = {0, 1, 2, 0, 2, 3, 1, 4, 2};
    for (int k = 0; k < 9; ++k)
        more(k % 3, k / 3) = t2[k];
    sizes[4] = 0.0;
    h.clear();
    EXPECT_EQ(edge_qualities(pos, more, EL_TRIA3, sizes, h, none), -4);
    EXPECT_EQ(h.count(), 5u);
    dense1D<int> types(1, int(EL_TRIA3));
    h.clear();
    EXPECT_EQ(edge_qualities(pos, &more, &more + 1, types, sizes, h, none), -5);
    EXPECT_EQ(h.count(), 5u);
    // Too few sizes: edges beyond them are skipped alike.
    h.clear();
    EXPECT_EQ(edge_qualities(pos, more, EL_TRIA3, dense1D<double>(4, 1.0), h, none), -4);
    EXPECT_EQ(h.count(), 5u);
    // The 20-node hexahedron yields no edge: count 0.
    dense2D<double> pos3(3, 20, 0.0);
    dense2D<unsigned> hexa20(20, 1);
    for (unsigned i = 0; i < 20; ++i)
        hexa20(i, 0) = i;
    EXPECT_EQ(edge_qualities(pos3, hexa20, EL_HEXA20, dense1D<double>(20, 1.0), h, none), 0);
}

TEST(edges, edge_qualities_argument_ladder)
{
    const dense2D<double> pos(3, 4, 0.0), pos4(4, 4, 0.0);
    const dense2D<unsigned> mats[2] = {dense2D<unsigned>(3, 1, 0u), dense2D<unsigned>(3, 1, 4u)};
    dense1D<int> types(2, int(EL_TRIA3));
    const dense1D<double> sizes(4, 1.0);
    const dense2D<unsigned> none, bad_excluded(2, 1, 4u), three_rows(3, 1, 0u);
    misc::histogram h;
    EXPECT_EQ(edge_qualities(pos4, mats, mats, types, sizes, h, bad_excluded), 0);
    EXPECT_EQ(edge_qualities(pos4, mats, mats + 2, types, sizes, h, none), -1);
    EXPECT_EQ(edge_qualities(pos, mats, mats + 1, types, sizes, h, bad_excluded), -4);
    EXPECT_EQ(edge_qualities(pos, mats + 1, mats, types, sizes, h, none), -4);
    EXPECT_EQ(edge_qualities(pos, mats, mats + 2, types, sizes, h, none), -2);
    EXPECT_EQ(
        edge_qualities(pos, mats, mats + 1, dense1D<int>(1, int(EL_TRIA3)), sizes, h, bad_excluded),
        -7);
    EXPECT_EQ(
        edge_qualities(pos, mats, mats + 1, dense1D<int>(1, int(EL_TRIA3)), sizes, h, three_rows),
        -7);
    // Single-matrix forms: codes below -3 move up by one.
    EXPECT_EQ(edge_qualities(pos4, mats[0], EL_TRIA3, sizes, h, none), -1);
    EXPECT_EQ(edge_qualities(pos, mats[1], EL_TRIA3, sizes, h, none), -2);
    EXPECT_EQ(edge_qualities(pos, mats[0], EL_TRIA3, sizes, h, bad_excluded), -6);
    EXPECT_EQ(edge_qualities(pos, mats[0], EL_TRIA3, dense1D<double>(4, 0.0), h, none), -4);
    EXPECT_EQ(h.count(), 0u);
}

TEST(edges, metric_qualities_match_brute_force_and_sizes)
{
    std::mt19937_64 gen(123);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    for (std::size_t rows : {std::size_t(2), std::size_t(3)})
    {
        const unsigned nbr_nodes = 300;
        const std::size_t mrows = rows == 2 ? 3 : 6;
        const dense2D<double> pos = random_pos(rows, nbr_nodes, gen);
        dense1D<double> sizes(nbr_nodes);
        dense2D<double> iso(mrows, nbr_nodes, 0.0), aniso(mrows, nbr_nodes, 0.0);
        std::vector<std::vector<double>> full(nbr_nodes); // 3 x 3 row-major
        for (unsigned j = 0; j < nbr_nodes; ++j)
        {
            sizes[j] = 0.1 + u(gen);
            const double l = 1.0 / (sizes[j] * sizes[j]);
            iso(0, j) = iso(2, j) = l;
            if (rows == 3) iso(5, j) = l;
            // A random positive-definite metric G^T G + 0.1 I.
            double G[3][3], M[3][3];
            for (auto& r : G)
                for (double& v : r)
                    v = 2 * u(gen) - 1;
            for (int a = 0; a < 3; ++a)
                for (int b = 0; b < 3; ++b)
                {
                    M[a][b] = a == b ? 0.1 : 0.0;
                    for (int k = 0; k < 3; ++k)
                        M[a][b] += G[k][a] * G[k][b];
                }
            aniso(0, j) = M[0][0], aniso(1, j) = M[0][1], aniso(2, j) = M[1][1];
            if (rows == 3) aniso(3, j) = M[0][2], aniso(4, j) = M[1][2], aniso(5, j) = M[2][2];
            full[j] = {M[0][0], M[0][1], M[0][2], M[1][0], M[1][1],
                       M[1][2], M[2][0], M[2][1], M[2][2]};
        }
        const dense2D<unsigned> M = random_connectivity(EL_SOLID_MIX, 400, nbr_nodes, gen);
        const dense2D<unsigned> none;
        misc::histogram by_sizes(0, 50, 50), by_iso(0, 50, 50), by_aniso(0, 50, 50), ref(0, 50, 50);
        const int n = edge_qualities(pos, M, EL_SOLID_MIX, sizes, by_sizes, none);
        ASSERT_GT(n, 0);
        EXPECT_EQ(edge_qualities(pos, M, EL_SOLID_MIX, iso, by_iso, none), n);
        EXPECT_EQ(edge_qualities(pos, M, EL_SOLID_MIX, aniso, by_aniso, none), n);
        EXPECT_NEAR(by_iso.sum(), by_sizes.sum(), 1e-10 * by_sizes.sum());
        EXPECT_NEAR(by_iso.max(), by_sizes.max(), 1e-10 * by_sizes.max());
        edge_set edges;
        add_reference(edges, M, EL_SOLID_MIX);
        for (auto [a, b] : edges)
        {
            double e[3] = {0, 0, 0}, qa = 0, qb = 0;
            for (std::size_t i = 0; i < rows; ++i)
                e[i] = pos(i, b) - pos(i, a);
            for (std::size_t r = 0; r < rows; ++r)
                for (std::size_t c = 0; c < rows; ++c)
                    qa += e[r] * full[a][3 * r + c] * e[c], qb += e[r] * full[b][3 * r + c] * e[c];
            const double la = std::sqrt(qa), lb = std::sqrt(qb);
            ref.process(qa > 0 && qb > 0 ? la * lb / reference_mean(la, lb) : 0.0);
        }
        EXPECT_EQ(by_aniso.count(), ref.count());
        EXPECT_NEAR(by_aniso.sum(), ref.sum(), 1e-6 * ref.sum());
        EXPECT_NEAR(by_aniso.max(), ref.max(), 1e-6 * ref.max());
    }
}

TEST(edges, invalid_metrics_are_skipped)
{
    //  0 ---- 1 ---- 2    (2-D), metric at node 2 indefinite: [[1, 2], [2, 1]]
    dense2D<double> pos(2, 3, 0.0);
    pos(0, 1) = 1.0, pos(0, 2) = 2.0;
    dense2D<unsigned> edges(2, 2);
    edges(0, 0) = 0, edges(1, 0) = 1, edges(0, 1) = 1, edges(1, 1) = 2;
    dense2D<double> metrics(3, 3, 0.0);
    for (std::size_t j = 0; j < 3; ++j)
        metrics(0, j) = metrics(2, j) = 4.0; // size 0.5
    const dense2D<unsigned> none;
    misc::histogram h;
    EXPECT_EQ(edge_qualities(pos, edges, EL_EDGE2, metrics, h, none), 2);
    EXPECT_EQ(h.count(), 2u);
    EXPECT_DOUBLE_EQ(h.max(), 2.0);
    metrics(1, 2) = 2 * 4.0; // eigenvalues -4 and 12
    h.clear();
    EXPECT_EQ(edge_qualities(pos, edges, EL_EDGE2, metrics, h, none), -4);
    EXPECT_EQ(h.count(), 1u);
    dense1D<int> types(1, int(EL_EDGE2));
    h.clear();
    EXPECT_EQ(edge_qualities(pos, &edges, &edges + 1, types, metrics, h, none), -5);
    EXPECT_EQ(h.count(), 1u);
    // Too few metric columns, or too few rows for the dimension: those edges are skipped.
    h.clear();
    EXPECT_EQ(edge_qualities(pos, edges, EL_EDGE2, metrics.sub_matrix(0, 0, 3, 2), h, none), -4);
    EXPECT_EQ(h.count(), 1u);
    dense2D<double> pos3(3, 3, 0.0);
    h.clear();
    EXPECT_EQ(edge_qualities(pos3, edges, EL_EDGE2, metrics, h, none), -4);
    EXPECT_EQ(h.count(), 0u);
    // A zero 3-D metric is invalid too; a metric of 1e-300 I is valid.
    dense2D<double> m3(6, 3, 0.0);
    for (std::size_t j = 0; j < 3; ++j)
        m3(0, j) = m3(2, j) = m3(5, j) = 1e-300;
    h.clear();
    EXPECT_EQ(edge_qualities(pos3, edges, EL_EDGE2, m3, h, none), 2);
    m3(0, 0) = m3(2, 0) = m3(5, 0) = 0.0;
    h.clear();
    EXPECT_EQ(edge_qualities(pos3, edges, EL_EDGE2, m3, h, none), -4);
    EXPECT_EQ(h.count(), 1u);
}
