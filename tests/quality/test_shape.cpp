// Shape qualities: ideal elements, invariances, inversion, flattening, brute-force values, mixed
// matrices, the hexahedron batch kernel, range overloads and return codes.
#include "quality/quality_private.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <meshutil/quality.h>
#include <random>
#include <vector>

using namespace qx7;
using namespace qx7::meshutil;
namespace qd = qx7::meshutil::detail;

namespace
{

using Nodes = std::vector<std::vector<double>>; // one node per entry, 2 or 3 values

dense2D<double> make_pos(const Nodes& nodes, std::size_t rows)
{
    dense2D<double> pos(rows, nodes.size(), 0.0);
    for (std::size_t j = 0; j < nodes.size(); ++j)
        for (std::size_t i = 0; i < rows && i < nodes[j].size(); ++i)
            pos(i, j) = nodes[j][i];
    return pos;
}

// Quality of the one element made of all the nodes, in order.
double quality_of(const Nodes& nodes, std::size_t rows, element_type type)
{
    dense2D<unsigned> c(nodes.size(), 1);
    for (unsigned i = 0; i < nodes.size(); ++i)
        c(i, 0) = i;
    dense1D<double> q;
    EXPECT_EQ(shape_qualities(make_pos(nodes, rows), c, type, q), 0);
    return q.size() == 1 ? q[0] : NAN;
}

const double s3 = std::sqrt(3.0);

struct ideal
{
    const char* name;
    element_type type;
    Nodes nodes;
};

// The ideal element of every supported kind, nodes in positive orientation.
const std::vector<ideal>& ideal_elements()
{
    static const std::vector<ideal> all = {
        {"triangle", EL_TRIA3, {{0, 0, 0}, {1, 0, 0}, {0.5, s3 / 2, 0}}},
        {"quadrangle", EL_QUAD4, {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}}},
        {"tetrahedron",
         EL_TETRA4,
         {{0, 0, 0}, {1, 0, 0}, {0.5, s3 / 2, 0}, {0.5, s3 / 6, -std::sqrt(2.0 / 3)}}},
        {"pyramid",
         EL_PYRAM5,
         {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0.5, 0.5, 1 / std::sqrt(2.0)}}},
        {"prism",
         EL_PENTA6,
         {{0, 0, 0}, {1, 0, 0}, {0.5, s3 / 2, 0}, {0, 0, 1}, {1, 0, 1}, {0.5, s3 / 2, 1}}},
        {"hexahedron",
         EL_HEXA8,
         {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}}},
    };
    return all;
}

bool is_planar_type(element_type t)
{
    return t == EL_TRIA3 || t == EL_QUAD4;
}

// Random rotation (about a random axis, about z in the plane), uniform scale and translation.
Nodes random_similarity(const Nodes& nodes, bool planar, std::mt19937_64& gen)
{
    std::normal_distribution<double> n(0.0, 1.0);
    double k[3] = {planar ? 0.0 : n(gen), planar ? 0.0 : n(gen), n(gen)}, kx[3];
    const double l = std::sqrt(qd::dot3(k, k)), angle = 3 * n(gen);
    for (double& v : k)
        v /= l;
    const double c = std::cos(angle), sn = std::sin(angle);
    const double s = std::exp(std::uniform_real_distribution<double>(-4.0, 4.0)(gen));
    const double t[3] = {100.0 * n(gen), 100.0 * n(gen), planar ? 0.0 : 100.0 * n(gen)};
    Nodes out = nodes;
    for (auto& x : out)
    {
        qd::cross3(k, x.data(), kx);
        const double kd = qd::dot3(k, x.data());
        for (int i = 0; i < 3; ++i)
            x[i] = s * (c * x[i] + sn * kx[i] + (1 - c) * kd * k[i]) + t[i];
    }
    return out;
}

Nodes perturb(const Nodes& nodes, std::mt19937_64& gen, double amount)
{
    std::uniform_real_distribution<double> u(-amount, amount);
    Nodes out = nodes;
    for (auto& x : out)
        for (double& v : x)
            v += u(gen);
    return out;
}

/// Bit pattern of a double, so that comparisons tell -0 from 0 and accept equal NaNs.
std::uint64_t bits(double v)
{
    std::uint64_t u;
    std::memcpy(&u, &v, sizeof u);
    return u;
}

} // namespace

TEST(shape, ideal_similar_and_mirrored_elements)
{
    // Ideal elements give 1. A random similarity keeps the value of a perturbed element, which
    // lies in (0, 1]. A mirror image is negative for solids (the tetrahedron measure is odd);
    // faces are unsigned in space and signed in the plane (odd for triangles; a clockwise
    // quadrangle takes its largest corner instead of its smallest).
    std::mt19937_64 gen(2024);
    for (const auto& e : ideal_elements())
        for (std::size_t rows : {2, 3})
        {
            if (rows == 2 && !is_planar_type(e.type)) continue;
            EXPECT_NEAR(quality_of(e.nodes, rows, e.type), 1.0, 1e-14) << e.name << rows;
            for (int trial = 0; trial < 200; ++trial)
            {
                const Nodes base = perturb(e.nodes, gen, 0.1);
                Nodes mirror = base;
                for (auto& x : mirror)
                    x[1] = -x[1];
                const double q = quality_of(base, rows, e.type);
                const double qs = quality_of(random_similarity(base, rows == 2, gen), rows, e.type);
                const double qm = quality_of(mirror, rows, e.type);
                EXPECT_NEAR(qs, q, 1e-10) << e.name << " rows " << rows << " trial " << trial;
                EXPECT_GT(q, 0.0) << e.name;
                EXPECT_LE(q, 1.0) << e.name;
                if (rows == 3 && is_planar_type(e.type))
                    EXPECT_NEAR(qm, q, 1e-12) << e.name;
                else if (e.type == EL_TRIA3 || e.type == EL_TETRA4)
                    EXPECT_NEAR(qm, -q, 1e-12) << e.name << rows;
                else if (e.type == EL_QUAD4)
                    EXPECT_LE(qm, -q) << e.name;
                else
                    EXPECT_LT(qm, 0.0) << e.name;
            }
        }
}

TEST(shape, flattened_solids_tend_to_zero_continuously)
{
    for (const auto& e : ideal_elements())
    {
        if (is_planar_type(e.type)) continue;
        double previous = 1.0;
        Nodes flat = e.nodes;
        for (double t = 0.5; t > 1e-14; t *= 0.1)
        {
            for (std::size_t i = 0; i < flat.size(); ++i)
                flat[i][2] = t * e.nodes[i][2]; // squash along z
            const double q = quality_of(flat, 3, e.type);
            EXPECT_GE(q, 0.0) << e.name << " t " << t;
            EXPECT_LT(q, previous) << e.name << " t " << t;
            EXPECT_LT(q, 10.0 * t) << e.name << " t " << t;
            previous = q;
        }
        for (auto& x : flat)
            x[2] = 0.0;
        EXPECT_EQ(quality_of(flat, 3, e.type), 0.0) << e.name;
        // On 2-row coordinates solids read z = 0: flat as well.
        EXPECT_EQ(quality_of(e.nodes, 2, e.type), 0.0) << e.name;
    }
    EXPECT_EQ(quality_of({{0, 0}, {1, 0}, {2, 0}}, 2, EL_TRIA3), 0.0);
    EXPECT_EQ(quality_of({{0, 0, 0}, {1, 1, 1}, {2, 2, 2}}, 3, EL_TRIA3), 0.0);
}

TEST(shape, triangle_and_tetrahedron_match_direct_formulas)
{
    // Triangle: 2 sqrt(3) area / (perimeter x longest side), signed in the plane; tetrahedron:
    // 2 sqrt(6) x 6 volume / (longest edge x total face area).
    std::mt19937_64 gen(99);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    auto len = [](const std::vector<double>& a, const std::vector<double>& b)
    { return std::sqrt(qd::dist2_3(a.data(), b.data())); };
    auto normal = [](const Nodes& n, int a, int b, int c, double* v)
    {
        double e1[3], e2[3];
        qd::sub3(n[b].data(), n[a].data(), e1);
        qd::sub3(n[c].data(), n[a].data(), e2);
        qd::cross3(e1, e2, v);
        return std::sqrt(qd::dot3(v, v));
    };
    for (int k = 0; k < 500; ++k)
    {
        Nodes n(4, std::vector<double>(3));
        for (auto& x : n)
            for (double& v : x)
                v = u(gen);
        double L = 0, S = 0, v[3], e[3][3];
        for (int flat = 0; flat < 2; ++flat) // in space, then z dropped (signed in the plane)
        {
            Nodes t = {n[0], n[1], n[2]};
            for (auto& x : t)
                x[2] *= 1 - flat;
            const double a = len(t[0], t[1]), b = len(t[1], t[2]), c = len(t[2], t[0]);
            const double area = flat ? (normal(t, 0, 1, 2, v), v[2]) : normal(t, 0, 1, 2, v);
            EXPECT_NEAR(quality_of(t, 3 - flat, EL_TRIA3),
                        2 * s3 * area / ((a + b + c) * std::max({a, b, c})), 1e-12);
        }
        for (int i = 0; i < 4; ++i)
        {
            for (int j = i + 1; j < 4; ++j)
                L = std::max(L, len(n[i], n[j]));
            S += normal(n, (i + 1) % 4, (i + 2) % 4, (i + 3) % 4, v);
            if (i < 3) qd::sub3(n[i].data(), n[3].data(), e[i]);
        }
        EXPECT_NEAR(quality_of(n, 3, EL_TETRA4),
                    2 * std::sqrt(6.0) * qd::det3(e[0], e[1], e[2]) / (L * S), 1e-11);
    }
}

TEST(shape, quadrangle_known_values)
{
    // 4 sqrt(2) x smallest corner area (corner normal in space) / (longest of sides and
    // diagonals x perimeter); in space times the warp factor 1 - acos(c) / pi, c the larger
    // cosine between the normals at opposite corners. A 2 x 1 rectangle, then a unit square with
    // one corner lifted by 0.5: smallest normal 1, longest diagonal 1.5, c = sqrt(2/3).
    for (std::size_t rows : {2, 3})
        EXPECT_NEAR(quality_of({{0, 0, 0}, {2, 0, 0}, {2, 1, 0}, {0, 1, 0}}, rows, EL_QUAD4),
                    8 * std::sqrt(2.0) / (std::sqrt(5.0) * 6), 1e-14)
            << rows;
    EXPECT_NEAR(quality_of({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0.5}}, 3, EL_QUAD4),
                4 * std::sqrt(2.0) / (1.5 * (2 + std::sqrt(5.0))) *
                    (1 - std::acos(std::sqrt(2.0 / 3)) / M_PI),
                1e-14);
}

TEST(shape, nearly_degenerate_and_warped_elements)
{
    // A sliver: four nodes nearly on one plane, det(P0-P3, P1-P3, P2-P3) = -2t; its quality is
    // tiny, of the sign of its volume, also after the retries over other node orderings.
    for (double t : {1e-9, 1e-11, 1e-13, -1e-11})
    {
        const double q = quality_of({{0, 0, 0}, {1, 0, t}, {1, 1, 0}, {0, 1, t}}, 3, EL_TETRA4);
        EXPECT_LT(std::fabs(q), 10 * std::fabs(t)) << t;
        EXPECT_EQ(std::signbit(q), t > 0) << t;
    }
    // Pyramid with a nearly flat apex: the sub-tetrahedra decide.
    for (double h : {1e-11, 1e-12, 1e-14})
    {
        const double q =
            quality_of({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0.5, 0.5, h}}, 3, EL_PYRAM5);
        EXPECT_GE(q, 0.0);
        EXPECT_LT(q, 1e-10);
    }
    // Lifting one base corner of the pyramid warps its base: lower, still positive.
    Nodes pyramid = ideal_elements()[3].nodes;
    pyramid[2][2] = 0.3;
    const double q = quality_of(pyramid, 3, EL_PYRAM5);
    EXPECT_GT(q, 0.0);
    EXPECT_LT(q, 0.95);
}

TEST(shape, mixed_matrices_match_pure_ones)
{
    // 300 perturbed elements of random kinds: the faces in a mixed face matrix, the solids in a
    // mixed solid matrix (where the hexahedra are queued apart, in batches), and each alone in a
    // matrix of its own type.
    std::mt19937_64 gen(17);
    const auto& ideals = ideal_elements();
    Nodes nodes;
    dense2D<unsigned> mixed[2] = {dense2D<unsigned>(4, 0), dense2D<unsigned>(8, 0)};
    std::vector<std::size_t> kinds[2];
    std::vector<dense2D<unsigned>> pure[2];
    for (int n = 0; n < 300; ++n)
    {
        const std::size_t k = gen() % 6, solid = k >= 2;
        const Nodes el = perturb(ideals[k].nodes, gen, 0.15);
        pure[solid].emplace_back(el.size(), 1);
        std::vector<unsigned> c(8, undefined_index);
        for (std::size_t i = 0; i < el.size(); ++i)
        {
            c[i] = pure[solid].back()(i, 0) = unsigned(nodes.size());
            nodes.push_back(el[i]);
        }
        ASSERT_TRUE(append_column(mixed[solid], c.data(), solid ? 8 : 4));
        kinds[solid].push_back(k);
    }
    for (std::size_t rows : {2, 3})
    {
        const dense2D<double> pos = make_pos(nodes, rows);
        for (std::size_t solid : {0, 1})
        {
            const element_type type = solid ? EL_SOLID_MIX : EL_FACE_MIX;
            dense1D<double> q, p;
            ASSERT_EQ(shape_qualities(pos, mixed[solid], type, q), 0);
            ASSERT_EQ(q.size(), kinds[solid].size());
            for (std::size_t j = 0; j < q.size(); ++j)
            {
                ASSERT_EQ(shape_qualities(pos, pure[solid][j], ideals[kinds[solid][j]].type, p), 0);
                EXPECT_EQ(bits(q[j]), bits(p[0])) << ideals[kinds[solid][j]].name << " " << j;
            }
            // Mixed types with the row count of one shape are read as that shape.
            const std::size_t j = std::find(kinds[solid].begin(), kinds[solid].end(), 2 * solid) -
                                  kinds[solid].begin();
            ASSERT_EQ(shape_qualities(pos, mixed[solid].sub_matrix(0, j, 3 + solid, 1), type, p),
                      0);
            EXPECT_EQ(p[0], q[j]);
        }
    }
}

TEST(shape, return_codes_and_empty_connectivities)
{
    const dense2D<double> pos = make_pos({{0, 0}, {1, 0}, {0.5, s3 / 2}, {1, 1}, {0, 1}}, 2);
    const struct
    {
        dense2D<unsigned> M;
        element_type type;
        int code;
        std::size_t size; // of the output; edges get 1 each (0 with no rows)
    } cases[] = {
        {dense2D<unsigned>(2, 3, 1u), EL_EDGE2, 0, 3},
        {dense2D<unsigned>(0, 2), EL_EDGE2, 0, 2},
        {dense2D<unsigned>(4, 0), EL_TETRA4, 0, 0},
        {dense2D<unsigned>(0, 2), EL_TRIA3, -2, 0},     // 0 rows but some columns
        {dense2D<unsigned>(3, 1, 5u), EL_TRIA3, -2, 0}, // index beyond pos
        {dense2D<unsigned>(4, 1, 0u), EL_TRIA3, -2, 0}, // row count
    };
    dense1D<double> q;
    for (const auto& c : cases)
    {
        q.resize(4, 7.0);
        EXPECT_EQ(shape_qualities(pos, c.M, c.type, q), c.code) << c.M.rows() << " " << c.type;
        ASSERT_EQ(q.size(), c.size);
        for (std::size_t j = 0; j < q.size(); ++j)
            EXPECT_EQ(q[j], c.M.rows() ? 1.0 : 0.0);
    }
    // Unsupported types, the quadratic ones included, fail before the indices are read.
    for (element_type t : {EL_TRIA6, EL_TETRA10, EL_HEXA20, EL_EDGE3, EL_NODE, EL_UNKNOWN,
                           EL_EDGE_MIX, static_cast<element_type>(77)})
    {
        q.resize(4, 1.0);
        EXPECT_EQ(shape_qualities(pos, dense2D<unsigned>(nbr_nodes(t), 1, 9u), t, q), -3) << t;
        EXPECT_EQ(q.size(), 0u);
    }

    // Range form: a matrix with no rows is skipped (its type never checked) without advancing
    // the write position, although its columns were counted (kept on purpose).
    dense2D<unsigned> tri(3, 1), quad(4, 1);
    tri(0, 0) = 0, tri(1, 0) = 1, tri(2, 0) = 2;
    quad(0, 0) = 0, quad(1, 0) = 1, quad(2, 0) = 3, quad(3, 0) = 4;
    const dense2D<unsigned> mats[4] = {tri, dense2D<unsigned>(0, 2), quad, dense2D<unsigned>(4, 0)};
    dense1D<int> types(4, int(EL_TRIA3));
    types[1] = 99, types[2] = EL_QUAD4, types[3] = EL_TETRA4;
    ASSERT_EQ(shape_qualities(pos, mats, mats + 4, types, q), 0);
    ASSERT_EQ(q.size(), 4u); // 1 + 2 + 1 + 0 columns
    EXPECT_NEAR(q[0], 1.0, 1e-14);
    EXPECT_NEAR(q[1], 1.0, 1e-14); // the quadrangle moved forward over the zero-row matrix
    EXPECT_EQ(q[2], 0.0);
    EXPECT_EQ(q[3], 0.0);
    // Its ladder: -3 reversed range, -4 type count, then per-matrix codes; output emptied.
    EXPECT_EQ(shape_qualities(pos, mats + 1, mats, types, q), -3);
    EXPECT_EQ(shape_qualities(pos, mats, mats + 3, types, q), -4);
    types[2] = EL_HEXA20;
    EXPECT_EQ(shape_qualities(pos, mats, mats + 4, types, q), -3);
    types[2] = EL_TRIA3;
    EXPECT_EQ(shape_qualities(pos, mats, mats + 4, types, q), -2);
    EXPECT_EQ(q.size(), 0u);
    EXPECT_EQ(shape_qualities(pos, mats, mats, dense1D<int>(), q), 0);
    // Histograms are fed on success only.
    misc::histogram h;
    EXPECT_EQ(shape_qualities(pos, mats, mats + 4, types, h), -2);
    EXPECT_EQ(shape_qualities(pos, quad, EL_TRIA3, h), -2);
    EXPECT_EQ(h.count(), 0u);
    types[2] = EL_QUAD4;
    EXPECT_EQ(shape_qualities(pos, mats, mats + 4, types, h), 0);
    EXPECT_EQ(shape_qualities(pos, quad, EL_QUAD4, h), 0);
    EXPECT_EQ(h.count(), 5u);
    EXPECT_NEAR(h.max(), 1.0, 1e-14);
    EXPECT_EQ(h.min(), 0.0);
}

namespace
{

// A pyramid's base warp factor evaluated plainly: triangle normals from the node differences,
// an asin per call.
double naive_warp(const double* const B[4])
{
    static const int tri[4][3] = {{0, 1, 2}, {0, 2, 3}, {1, 2, 3}, {1, 3, 0}};
    double n[4][3], l[4];
    for (int k = 0; k < 4; ++k)
    {
        double u[3], v[3];
        qd::sub3(B[tri[k][1]], B[tri[k][0]], u);
        qd::sub3(B[tri[k][2]], B[tri[k][0]], v);
        qd::cross3(u, v, n[k]);
        if (!((l[k] = std::sqrt(qd::dot3(n[k], n[k]))) > 0)) return 0.0;
    }
    double c = std::max(qd::dot3(n[0], n[1]) / (l[0] * l[1]), qd::dot3(n[2], n[3]) / (l[2] * l[3]));
    c = std::max(std::min(c, 1.0), -1.0);
    return std::max(0.0, std::asin(c) / M_PI + 0.5);
}

// Pyramid value from the volumes that the base diagonals cut off, written out plainly.
double naive_pyram_value(const double* const B[5])
{
    double a[4][3], n13[3], n02[3], t0[3], t3[3];
    for (int i = 0; i < 4; ++i)
        qd::sub3(B[i], B[4], a[i]);
    qd::cross3(a[1], a[3], n13);
    qd::cross3(a[0], a[2], n02);
    qd::sub3(B[4], B[0], t0);
    qd::sub3(B[4], B[3], t3);
    const double V = std::min(std::min(qd::dot3(t0, n13), qd::dot3(a[2], n13)),
                              std::min(qd::dot3(t3, n02), qd::dot3(a[1], n02)));
    double E = 0;
    for (int i = 0; i < 4; ++i)
        E += 2 * qd::dist2_3(B[(i + 1) % 4], B[i]) + qd::dot3(a[i], a[i]);
    return std::max(std::min(24 * std::sqrt(6.0) * V / std::pow(E, 1.5), 1.0), -1.0);
}

// The hexahedron (N = 4) and prism (N = 3) measures written out plainly, each face checked in
// full against the centroid.
double naive_extruded(const double* const* P, unsigned N)
{
    static const unsigned prism_corners[6][3] = {{1, 2, 3}, {2, 0, 4}, {0, 1, 5},
                                                 {5, 4, 0}, {3, 5, 1}, {4, 3, 2}};
    const unsigned n = 2 * N;
    double V = 1e300, E = 0, C[3] = {0, 0, 0};
    for (unsigned i = 0; i < n; ++i)
    {
        const unsigned* c = N == 4 ? qd::hexa_corners[i] : prism_corners[i];
        double a[3], b[3], d[3];
        qd::sub3(P[c[0]], P[i], a);
        qd::sub3(P[c[1]], P[i], b);
        qd::sub3(P[c[2]], P[i], d);
        V = std::min(V, qd::det3(a, b, d));
        for (int k = 0; k < 3; ++k)
            C[k] += P[i][k] / n;
    }
    for (unsigned i = 0; i < N; ++i)
        E += qd::dist2_3(P[(i + 1) % N], P[i]) + qd::dist2_3(P[N + (i + 1) % N], P[N + i]) +
             qd::dist2_3(P[i + N], P[i]);
    const double K = N == 4 ? 24 * std::sqrt(3.0) : 18 * std::sqrt(3.0);
    const double q = std::max(std::min(K * V / std::pow(E, 1.5), 1.0), -1.0);
    if (!(q > qd::q_degenerate)) return q;
    const local_boundaries& faces = N == 4 ? hexa_boundaries : penta_boundaries;
    double min_face = 1, min_warp = 1;
    for (unsigned f = 0; f < faces.count && min_face > qd::q_degenerate; ++f)
    {
        const unsigned* v = faces.nodes[f];
        if (faces.size[f] == 3)
        {
            min_face = std::min(min_face, -qd::tetra_quality(P[v[0]], P[v[1]], P[v[2]], C));
            continue;
        }
        const double* B[5] = {P[v[0]], P[v[1]], P[v[2]], P[v[3]], C};
        const double qf = naive_pyram_value(B);
        EXPECT_NEAR(qf, qd::pyram_value(B), 1e-13);
        double value = qf, warp = 0, t;
        if (qf <= qd::q_degenerate)
            ;
        else if (qf < qd::q_pyram_doubtful && (t = qd::pyram_subtetra_min(B)) < qd::q_degenerate)
            value = t;
        else
            warp = naive_warp(B), value = qf * warp;
        min_face = std::min(min_face, value);
        min_warp = std::min(min_warp, warp);
    }
    return min_face < qd::q_degenerate ? min_face : q * min_warp;
}

double general_hexa_quality(const double* const P[8])
{
    return qd::extruded_quality<4>(P, qd::hexa_corners, 41.569219381653056, hexa_boundaries, true);
}

} // namespace

TEST(shape, prism_and_hexahedron_agree_with_plain_evaluation)
{
    // Strong perturbations reach every branch: warped faces (negative warp cosines), inverted
    // face pyramids, inverted corners.
    std::mt19937_64 gen(4242);
    unsigned negative = 0, warped = 0;
    for (double amount : {0.02, 0.2, 0.45})
        for (int trial = 0; trial < 3000; ++trial)
            for (unsigned N : {3u, 4u})
            {
                const Nodes nodes = perturb(ideal_elements()[N + 1].nodes, gen, amount);
                const double* P[8];
                for (std::size_t i = 0; i < nodes.size(); ++i)
                    P[i] = nodes[i].data();
                const double fast = N == 4 ? qd::hexa_quality(P, true) : qd::penta_quality(P, true);
                if (N == 4)
                {
                    EXPECT_EQ(fast, general_hexa_quality(P)) << trial; // bit for bit
                }
                const double plain = naive_extruded(P, N);
                EXPECT_NEAR(fast, plain, 1e-12 + 1e-9 * std::fabs(plain)) << N << " " << trial;
                negative += fast < 0;
                warped += fast > 0 && fast < 0.5;
            }
    EXPECT_GT(negative, 100u);
    EXPECT_GT(warped, 100u);
}

TEST(shape, hexahedron_batches_match_the_general_path_bit_for_bit)
{
    // Separate hexahedra, mild to wild perturbations at scales from 1e-150 to 1e150 (squared
    // edges leaving the range where the common case is decided), plus degenerate ones: all
    // nodes equal, flattened, inverted. 8 k + 5 elements, so that the last batch is short.
    std::mt19937_64 gen(99);
    const double scales[] = {1.0, 1e-150, 1e150, 3e-7, 4e5}, amounts[] = {0.02, 0.25, 0.5};
    Nodes nodes;
    const std::size_t count = 8 * 250 + 5;
    dense2D<unsigned> M(8, count);
    for (std::size_t j = 0; j < count; ++j)
    {
        Nodes h = perturb(ideal_elements()[5].nodes, gen, amounts[j % 3]);
        const double s = scales[j % 5];
        for (auto& x : h)
            for (double& v : x)
                v = s * v + 10.0 * s;
        if (j % 37 == 0)
            for (auto& x : h)
                x = h[0]; // all nodes equal
        if (j % 41 == 0)
            for (auto& x : h)
                x[2] = 0.0; // flat
        if (j % 43 == 0) std::swap(h[0], h[4]);
        for (unsigned i = 0; i < 8; ++i)
        {
            M(i, j) = unsigned(nodes.size());
            nodes.push_back(h[i]);
        }
    }
    const dense2D<double> pos = make_pos(nodes, 3);
    dense1D<double> q;
    ASSERT_EQ(shape_qualities(pos, M, EL_HEXA8, q), 0);
    ASSERT_EQ(q.size(), count);
    unsigned outcomes[3] = {0, 0, 0}; // value only, common case, general path
    for (std::size_t j = 0; j < count; ++j)
    {
        const double* P[8];
        qd::hexa_lanes<1> H;
        for (unsigned i = 0; i < 8; ++i)
        {
            P[i] = pos.col(M(i, j));
            H.x[i][0] = P[i][0], H.y[i][0] = P[i][1], H.z[i][0] = P[i][2];
        }
        EXPECT_EQ(bits(q[j]), bits(general_hexa_quality(P))) << j;
        qd::hexa_quality_lanes(H);
        ++outcomes[!(qd::hexa_value(H.V[0], H.E[0]) > qd::q_degenerate) ? 0
                   : H.r[0] >= 0.0                                      ? 1
                                                                        : 2];
    }
    // Every outcome of the kernel is met, in batches that mix them.
    EXPECT_GT(outcomes[0], 50u);
    EXPECT_GT(outcomes[1], 500u);
    EXPECT_GT(outcomes[2], 50u);
}
