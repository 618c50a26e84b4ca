// Shape qualities: ideal elements, invariances, inversion, flattening, mixed matrices, range
// overloads and argument checks.
#include "quality/quality_private.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <meshutil/quality.h>
#include <random>
#include <set>
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

// One column per element listing nodes first..first+n-1.
dense2D<unsigned> one_element(unsigned n, unsigned rows = 0)
{
    dense2D<unsigned> c(rows ? rows : n, 1, undefined_index);
    for (unsigned i = 0; i < n; ++i)
        c(i, 0) = i;
    return c;
}

double quality_of(const Nodes& nodes, std::size_t rows, element_type type, unsigned mixed_rows = 0)
{
    dense1D<double> q;
    const int code = shape_qualities(make_pos(nodes, rows),
                                     one_element(unsigned(nodes.size()), mixed_rows), type, q);
    EXPECT_EQ(code, 0);
    return q.size() == 1 ? q[0] : NAN;
}

const double s3 = std::sqrt(3.0), s2 = std::sqrt(2.0);

struct ideal
{
    const char* name;
    element_type type;
    Nodes nodes;
};

// The ideal element of every supported kind, nodes in positive orientation.
std::vector<ideal> ideal_elements()
{
    const double h = 1.0 / s2; // apex height of the pyramid with equal edges
    return {
        {"triangle", EL_TRIA3, {{0, 0, 0}, {1, 0, 0}, {0.5, s3 / 2, 0}}},
        {"quadrangle", EL_QUAD4, {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}}},
        {"tetrahedron",
         EL_TETRA4,
         {{0, 0, 0}, {1, 0, 0}, {0.5, s3 / 2, 0}, {0.5, s3 / 6, -std::sqrt(2.0 / 3)}}},
        {"pyramid", EL_PYRAM5, {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0.5, 0.5, h}}},
        {"prism",
         EL_PENTA6,
         {{0, 0, 0}, {1, 0, 0}, {0.5, s3 / 2, 0}, {0, 0, 1}, {1, 0, 1}, {0.5, s3 / 2, 1}}},
        {"hexahedron",
         EL_HEXA8,
         {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}}},
    };
}

// Random rotation (unit quaternion), uniform scale and translation.
struct transform
{
    double R[3][3], s, t[3];
    explicit transform(std::mt19937_64& gen)
    {
        std::normal_distribution<double> n(0.0, 1.0);
        double q[4] = {n(gen), n(gen), n(gen), n(gen)};
        const double l = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
        for (double& v : q)
            v /= l;
        const double a = q[0], b = q[1], c = q[2], d = q[3];
        const double M[3][3] = {
            {a * a + b * b - c * c - d * d, 2 * (b * c - a * d), 2 * (b * d + a * c)},
            {2 * (b * c + a * d), a * a - b * b + c * c - d * d, 2 * (c * d - a * b)},
            {2 * (b * d - a * c), 2 * (c * d + a * b), a * a - b * b - c * c + d * d}};
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
                R[i][j] = M[i][j];
        s = std::exp(std::uniform_real_distribution<double>(-4.0, 4.0)(gen));
        for (double& v : t)
            v = 100.0 * n(gen);
    }
    Nodes apply(const Nodes& nodes, bool planar) const
    {
        // In the plane: the rotation by the angle that R gives the x axis.
        const double theta = std::atan2(R[1][0], R[0][0]);
        const double c = std::cos(theta), sn = std::sin(theta);
        Nodes out = nodes;
        for (auto& x : out)
        {
            double y[3];
            if (planar)
            {
                y[0] = c * x[0] - sn * x[1];
                y[1] = sn * x[0] + c * x[1];
                y[2] = 0.0;
            }
            else
                for (int i = 0; i < 3; ++i)
                    y[i] = R[i][0] * x[0] + R[i][1] * x[1] + R[i][2] * x[2];
            for (int i = 0; i < 3; ++i)
                x[i] = s * y[i] + t[i];
        }
        return out;
    }
};

Nodes perturb(const Nodes& nodes, std::mt19937_64& gen, double amount)
{
    std::uniform_real_distribution<double> u(-amount, amount);
    Nodes out = nodes;
    for (auto& x : out)
        for (double& v : x)
            v += u(gen);
    return out;
}

bool is_planar_type(element_type t)
{
    return t == EL_TRIA3 || t == EL_QUAD4;
}

} // namespace

TEST(shape, ideal_elements_give_one)
{
    for (const auto& e : ideal_elements())
    {
        EXPECT_NEAR(quality_of(e.nodes, 3, e.type), 1.0, 1e-14) << e.name;
        if (is_planar_type(e.type))
        {
            EXPECT_NEAR(quality_of(e.nodes, 2, e.type), 1.0, 1e-14) << e.name;
        }
    }
}

TEST(shape, invariant_under_rotation_translation_and_scaling)
{
    std::mt19937_64 gen(2024);
    for (const auto& e : ideal_elements())
        for (int trial = 0; trial < 200; ++trial)
        {
            const Nodes base = perturb(e.nodes, gen, 0.1);
            const transform T(gen);
            for (std::size_t rows : {std::size_t(2), std::size_t(3)})
            {
                if (rows == 2 && !is_planar_type(e.type)) continue;
                const double q0 = quality_of(base, rows, e.type);
                const double q1 = quality_of(T.apply(base, rows == 2), rows, e.type);
                EXPECT_NEAR(q1, q0, 1e-10) << e.name << " rows " << rows << " trial " << trial;
                EXPECT_GT(q0, 0.0) << e.name;
                EXPECT_LE(q0, 1.0) << e.name;
            }
        }
}

TEST(shape, mirrored_elements_are_negative_except_quadrangles_in_space)
{
    std::mt19937_64 gen(5);
    for (const auto& e : ideal_elements())
        for (int trial = 0; trial < 50; ++trial)
        {
            Nodes base = perturb(e.nodes, gen, 0.1), mirror = base;
            for (auto& x : mirror)
                x[1] = -x[1];
            const double q = quality_of(base, 3, e.type), qm = quality_of(mirror, 3, e.type);
            if (e.type == EL_TRIA3 || e.type == EL_QUAD4)
            {
                // Unsigned in space; signed in the plane (odd for triangles; a clockwise
                // quadrangle takes its largest corner instead of its smallest).
                EXPECT_NEAR(qm, q, 1e-12) << e.name;
                EXPECT_GE(qm, 0.0);
                const double q2 = quality_of(base, 2, e.type), qm2 = quality_of(mirror, 2, e.type);
                EXPECT_GT(q2, 0.0) << e.name;
                if (e.type == EL_TRIA3)
                    EXPECT_NEAR(qm2, -q2, 1e-12) << e.name;
                else
                    EXPECT_LE(qm2, -q2) << e.name;
            }
            else if (e.type == EL_TETRA4)
                EXPECT_NEAR(qm, -q, 1e-12) << e.name; // the measure itself is odd
            else
                EXPECT_LT(qm, 0.0) << e.name;
        }
}

TEST(shape, flattened_solids_tend_to_zero_continuously)
{
    for (const auto& e : ideal_elements())
    {
        double previous = quality_of(e.nodes, 3, e.type);
        for (double t = 0.5; t > 1e-14; t *= 0.1)
        {
            Nodes flat = e.nodes;
            for (auto& x : flat)
                x[2] *= t; // squash along z
            const double q = quality_of(flat, 3, e.type);
            if (e.type == EL_TRIA3 || e.type == EL_QUAD4)
            {
                EXPECT_NEAR(q, 1.0, 1e-14) << e.name; // already flat along z
                continue;
            }
            EXPECT_GE(q, 0.0) << e.name << " t " << t;
            EXPECT_LT(q, previous) << e.name << " t " << t;
            EXPECT_LT(q, 10.0 * t) << e.name << " t " << t;
            previous = q;
        }
        Nodes flat = e.nodes;
        for (auto& x : flat)
            x[2] = 0.0;
        if (!is_planar_type(e.type))
        {
            EXPECT_EQ(quality_of(flat, 3, e.type), 0.0) << e.name;
        }
    }
    // Planar elements flattened in the plane: three nodes tending to collinear.
    for (double t = 0.5; t > 1e-14; t *= 0.1)
    {
        const double q = quality_of({{0, 0}, {1, 0}, {0.5, t}}, 2, EL_TRIA3);
        EXPECT_NEAR(q, 2 * s3 * t / (1.0 + std::sqrt(1.0 + 4 * t * t)), 1e-12 * (1 + q)) << t;
    }
    EXPECT_EQ(quality_of({{0, 0}, {1, 0}, {2, 0}}, 2, EL_TRIA3), 0.0);
    EXPECT_EQ(quality_of({{0, 0, 0}, {1, 1, 1}, {2, 2, 2}}, 3, EL_TRIA3), 0.0);
}

TEST(shape, triangle_and_tetrahedron_match_direct_formulas)
{
    // Reference measures from cross products and Heron-free areas.
    std::mt19937_64 gen(99);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    auto len = [](const double* a, const double* b)
    {
        return std::sqrt((a[0] - b[0]) * (a[0] - b[0]) + (a[1] - b[1]) * (a[1] - b[1]) +
                         (a[2] - b[2]) * (a[2] - b[2]));
    };
    auto area2 = [](const double* a, const double* b, const double* c)
    {
        double u1[3], v1[3], n[3];
        qd::sub3(b, a, u1);
        qd::sub3(c, a, v1);
        qd::cross3(u1, v1, n);
        return std::sqrt(qd::dot3(n, n));
    };
    for (int k = 0; k < 500; ++k)
    {
        double p[4][3];
        for (auto& x : p)
            for (double& v : x)
                v = u(gen);
        Nodes n3 = {{p[0][0], p[0][1], p[0][2]},
                    {p[1][0], p[1][1], p[1][2]},
                    {p[2][0], p[2][1], p[2][2]},
                    {p[3][0], p[3][1], p[3][2]}};
        const double a = len(p[0], p[1]), b = len(p[1], p[2]), c = len(p[2], p[0]);
        const double tri = 2 * s3 * area2(p[0], p[1], p[2]) / ((a + b + c) * std::max({a, b, c}));
        EXPECT_NEAR(quality_of({n3[0], n3[1], n3[2]}, 3, EL_TRIA3), tri, 1e-12);

        double e1[3], e2[3], e3[3];
        qd::sub3(p[0], p[3], e1);
        qd::sub3(p[1], p[3], e2);
        qd::sub3(p[2], p[3], e3);
        double L = 0;
        for (int i = 0; i < 4; ++i)
            for (int j = i + 1; j < 4; ++j)
                L = std::max(L, len(p[i], p[j]));
        const double S = area2(p[0], p[1], p[2]) + area2(p[0], p[1], p[3]) +
                         area2(p[0], p[2], p[3]) + area2(p[1], p[2], p[3]);
        const double tet = 2 * std::sqrt(6.0) * qd::det3(e1, e2, e3) / (L * S);
        EXPECT_NEAR(quality_of(n3, 3, EL_TETRA4), tet, 1e-11);
    }
}

TEST(shape, tetrahedron_orderings_are_the_other_even_permutations)
{
    std::set<std::vector<unsigned>> seen = {{0, 1, 2, 3}};
    for (const auto& o : qd::tetra_even_orderings.order)
    {
        std::vector<unsigned> v(o, o + 4);
        unsigned inversions = 0;
        for (int i = 0; i < 4; ++i)
            for (int j = i + 1; j < 4; ++j)
                inversions += v[i] > v[j];
        EXPECT_EQ(inversions % 2, 0u);
        EXPECT_TRUE(seen.insert(v).second);
    }
    EXPECT_EQ(seen.size(), 12u);
    // An even reordering does not change the quality of a tetrahedron.
    const double P[4][3] = {{0.1, 0.2, 0}, {1.3, 0.1, 0.2}, {0.4, 1.1, -0.1}, {0.3, 0.4, 0.9}};
    const double q = qd::tetra_quality(P[0], P[1], P[2], P[3]);
    for (const auto& o : qd::tetra_even_orderings.order)
        EXPECT_NEAR(qd::tetra_quality(P[o[0]], P[o[1]], P[o[2]], P[o[3]]), q, 1e-14);
}

TEST(shape, nearly_degenerate_elements_stay_small_and_signed)
{
    // A sliver: four nodes nearly on one plane, det(P0-P3, P1-P3, P2-P3) = -2t; its quality is
    // tiny, of the sign of its volume.
    for (double t : {1e-9, 1e-11, 1e-13, -1e-11})
    {
        const double q = quality_of({{0, 0, 0}, {1, 0, t}, {1, 1, 0}, {0, 1, t}}, 3, EL_TETRA4);
        EXPECT_LT(std::fabs(q), 10 * std::fabs(t)) << t;
        EXPECT_EQ(q<0, t> 0) << t;
    }
    // Pyramid with a nearly flat apex: the sub-tetrahedra decide.
    for (double h : {1e-11, 1e-12, 1e-14})
    {
        const Nodes p = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0.5, 0.5, h}};
        const double q = quality_of(p, 3, EL_PYRAM5);
        EXPECT_GE(q, 0.0);
        EXPECT_LT(q, 1e-10);
    }
    // A hexahedron with one face folded inwards past its centroid has a bad face.
    Nodes hexa = ideal_elements()[5].nodes;
    hexa[6] = {0.2, 0.2, 0.2}; // corner 6 pushed through the element
    EXPECT_LT(quality_of(hexa, 3, EL_HEXA8), 0.0);
    // A warped hexahedron keeps a positive but lower quality.
    hexa = ideal_elements()[5].nodes;
    hexa[6][2] = 1.3;
    const double qw = quality_of(hexa, 3, EL_HEXA8);
    EXPECT_GT(qw, 0.0);
    EXPECT_LT(qw, 0.95);
}

TEST(shape, warped_bases_and_planar_coordinates)
{
    // Lifting one base corner of the pyramid warps its base: lower, still positive.
    Nodes pyramid = ideal_elements()[3].nodes;
    const double q0 = quality_of(pyramid, 3, EL_PYRAM5);
    pyramid[2][2] = 0.3;
    const double q1 = quality_of(pyramid, 3, EL_PYRAM5);
    EXPECT_GT(q1, 0.0);
    EXPECT_LT(q1, q0 - 0.05);
    // Solids on 2-row coordinates read z = 0: flat, quality 0 (the planar warp factor is 1).
    for (const auto& e : ideal_elements())
        if (!is_planar_type(e.type))
        {
            EXPECT_EQ(quality_of(e.nodes, 2, e.type), 0.0) << e.name;
        }
}

TEST(shape, mixed_matrices_match_pure_ones)
{
    std::mt19937_64 gen(17);
    const auto ideals = ideal_elements();
    // Nodes of six perturbed elements, one per kind, laid side by side.
    Nodes nodes;
    std::vector<std::vector<unsigned>> elements;
    for (const auto& e : ideals)
    {
        std::vector<unsigned> el;
        for (const auto& x : perturb(e.nodes, gen, 0.15))
        {
            el.push_back(unsigned(nodes.size()));
            nodes.push_back(x);
        }
        elements.push_back(el);
    }
    for (std::size_t rows : {std::size_t(2), std::size_t(3)})
    {
        const dense2D<double> pos = make_pos(nodes, rows);
        dense2D<unsigned> faces(4, 2, undefined_index), solids(8, 4, undefined_index);
        for (std::size_t k = 0; k < 6; ++k)
        {
            dense2D<unsigned>& M = k < 2 ? faces : solids;
            const std::size_t j = k < 2 ? k : k - 2;
            for (std::size_t i = 0; i < elements[k].size(); ++i)
                M(i, j) = elements[k][i];
        }
        dense1D<double> mixed_faces, mixed_solids;
        ASSERT_EQ(shape_qualities(pos, faces, EL_FACE_MIX, mixed_faces), 0);
        ASSERT_EQ(shape_qualities(pos, solids, EL_SOLID_MIX, mixed_solids), 0);
        for (std::size_t k = 0; k < 6; ++k)
        {
            dense2D<unsigned> pure(elements[k].size(), 1);
            for (std::size_t i = 0; i < elements[k].size(); ++i)
                pure(i, 0) = elements[k][i];
            dense1D<double> q;
            ASSERT_EQ(shape_qualities(pos, pure, ideals[k].type, q), 0);
            EXPECT_EQ(k < 2 ? mixed_faces[k] : mixed_solids[k - 2], q[0]) << ideals[k].name;
        }
        // Mixed types with the row count of one shape are read as that shape.
        dense2D<unsigned> tri = faces.sub_matrix(0, 0, 3, 1), tet = solids.sub_matrix(0, 0, 4, 1);
        dense1D<double> q;
        ASSERT_EQ(shape_qualities(pos, tri, EL_FACE_MIX, q), 0);
        EXPECT_EQ(q[0], mixed_faces[0]);
        ASSERT_EQ(shape_qualities(pos, tet, EL_SOLID_MIX, q), 0);
        EXPECT_EQ(q[0], mixed_solids[0]);
    }
}

TEST(shape, edges_empty_and_unsupported_types)
{
    const dense2D<double> pos = make_pos({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, 3);
    dense1D<double> q(5, 7.0);
    dense2D<unsigned> edges(2, 3, 0u);
    edges(1, 0) = 1;
    EXPECT_EQ(shape_qualities(pos, edges, EL_EDGE2, q), 0);
    ASSERT_EQ(q.size(), 3u);
    for (std::size_t j = 0; j < 3; ++j)
        EXPECT_EQ(q[j], 1.0);
    // Unsupported types empty the output, also the quadratic ones.
    for (element_type t : {EL_TRIA6, EL_TETRA10, EL_HEXA20, EL_EDGE3, EL_NODE, EL_UNKNOWN,
                           EL_EDGE_MIX, static_cast<element_type>(77)})
    {
        q.resize(4, 1.0);
        EXPECT_EQ(shape_qualities(pos, dense2D<unsigned>(nbr_nodes(t), 1, 0u), t, q), -3) << t;
        EXPECT_EQ(q.size(), 0u);
    }
    // No columns: 0 with an empty output; 0 rows and some columns is a row count error, except
    // for edges.
    q.resize(4, 1.0);
    EXPECT_EQ(shape_qualities(pos, dense2D<unsigned>(4, 0), EL_TETRA4, q), 0);
    EXPECT_EQ(q.size(), 0u);
    EXPECT_EQ(shape_qualities(pos, dense2D<unsigned>(0, 2), EL_EDGE2, q), 0);
    EXPECT_EQ(q.size(), 2u);
    EXPECT_EQ(shape_qualities(pos, dense2D<unsigned>(0, 2), EL_TRIA3, q), -2);
    EXPECT_EQ(q.size(), 0u);
    // Bad index and bad row count.
    EXPECT_EQ(shape_qualities(pos, dense2D<unsigned>(3, 1, 3u), EL_TRIA3, q), -2);
    EXPECT_EQ(shape_qualities(pos, dense2D<unsigned>(4, 1, 0u), EL_TRIA3, q), -2);
    EXPECT_EQ(q.size(), 0u);
}

TEST(shape, range_overloads_keep_the_zero_row_offset)
{
    const dense2D<double> pos = make_pos({{0, 0}, {1, 0}, {0.5, s3 / 2}, {1, 1}, {0, 1}}, 2);
    dense2D<unsigned> tri(3, 1), quad(4, 1), zero_rows(0, 2), none(4, 0);
    tri(0, 0) = 0, tri(1, 0) = 1, tri(2, 0) = 2;
    quad(0, 0) = 0, quad(1, 0) = 1, quad(2, 0) = 3, quad(3, 0) = 4;
    const dense2D<unsigned> mats[4] = {tri, zero_rows, quad, none};
    dense1D<int> types(4, int(EL_TRIA3));
    types[1] = 99; // skipped matrices are never checked
    types[2] = EL_QUAD4;
    types[3] = EL_TETRA4;
    dense1D<double> q;
    ASSERT_EQ(shape_qualities(pos, mats, mats + 4, types, q), 0);
    ASSERT_EQ(q.size(), 4u); // 1 + 2 + 1 + 0 columns
    EXPECT_NEAR(q[0], 1.0, 1e-14);
    EXPECT_NEAR(q[1], 1.0, 1e-14); // the quadrangle moved forward over the zero-row matrix
    EXPECT_EQ(q[2], 0.0);
    EXPECT_EQ(q[3], 0.0);

    // Argument ladder: -3 reversed range, -4 type count, then per-matrix codes; output emptied.
    EXPECT_EQ(shape_qualities(pos, mats + 1, mats, types, q), -3);
    EXPECT_EQ(shape_qualities(pos, mats, mats + 3, types, q), -4);
    types[2] = EL_HEXA20;
    EXPECT_EQ(shape_qualities(pos, mats, mats + 4, types, q), -3);
    EXPECT_EQ(q.size(), 0u);
    types[2] = EL_TRIA3;
    EXPECT_EQ(shape_qualities(pos, mats, mats + 4, types, q), -2);
    EXPECT_EQ(q.size(), 0u);
    EXPECT_EQ(shape_qualities(pos, mats, mats, dense1D<int>(), q), 0);
    EXPECT_EQ(q.size(), 0u);

    // Histograms are fed on success only.
    misc::histogram h;
    EXPECT_EQ(shape_qualities(pos, mats, mats + 4, types, h), -2);
    EXPECT_EQ(h.count(), 0u);
    types[2] = EL_QUAD4;
    EXPECT_EQ(shape_qualities(pos, mats, mats + 4, types, h), 0);
    EXPECT_EQ(h.count(), 4u);
    EXPECT_EQ(shape_qualities(pos, quad, EL_QUAD4, h), 0);
    EXPECT_EQ(h.count(), 5u);
    EXPECT_NEAR(h.max(), 1.0, 1e-14);
    EXPECT_EQ(h.min(), 0.0);
    EXPECT_EQ(shape_qualities(pos, quad, EL_TRIA3, h), -2);
    EXPECT_EQ(h.count(), 5u);
}

namespace
{

// Straightforward evaluation of a pyramid's base warp factor: triangle normals from the node
// differences, an asin per call.
double naive_warp(const double* const B[4])
{
    auto normal = [](const double* a, const double* b, const double* c, double* n)
    {
        double u[3], v[3];
        qd::sub3(b, a, u);
        qd::sub3(c, a, v);
        qd::cross3(u, v, n);
        return std::sqrt(qd::dot3(n, n));
    };
    double n[4][3], l[4];
    l[0] = normal(B[0], B[1], B[2], n[0]);
    l[1] = normal(B[0], B[2], B[3], n[1]);
    l[2] = normal(B[1], B[2], B[3], n[2]);
    l[3] = normal(B[1], B[3], B[0], n[3]);
    if (!(l[0] > 0) || !(l[1] > 0) || !(l[2] > 0) || !(l[3] > 0)) return 0.0;
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

// The hexahedron and prism measures written out plainly, each face checked in full.
double naive_extruded(const double* const* P, unsigned N)
{
    const unsigned n = 2 * N;
    double V = 1e300, E = 0;
    for (unsigned i = 0; i < n; ++i)
    {
        const unsigned* c = N == 4 ? qd::hexa_corners[i] : nullptr;
        static const unsigned pc[6][3] = {{1, 2, 3}, {2, 0, 4}, {0, 1, 5},
                                          {5, 4, 0}, {3, 5, 1}, {4, 3, 2}};
        if (N == 3) c = pc[i];
        double a[3], b[3], d[3];
        qd::sub3(P[c[0]], P[i], a);
        qd::sub3(P[c[1]], P[i], b);
        qd::sub3(P[c[2]], P[i], d);
        V = std::min(V, qd::det3(a, b, d));
    }
    for (unsigned i = 0; i < N; ++i)
        E += qd::dist2_3(P[(i + 1) % N], P[i]) + qd::dist2_3(P[N + (i + 1) % N], P[N + i]) +
             qd::dist2_3(P[i + N], P[i]);
    const double K = N == 4 ? 24 * std::sqrt(3.0) : 18 * std::sqrt(3.0);
    double q = std::max(std::min(K * V / std::pow(E, 1.5), 1.0), -1.0);
    if (!(q > 1e-12)) return q;
    double C[3] = {0, 0, 0};
    for (unsigned i = 0; i < n; ++i)
        for (int k = 0; k < 3; ++k)
            C[k] += P[i][k] / n;
    const local_boundaries& faces = N == 4 ? hexa_boundaries : penta_boundaries;
    double min_face = 1, min_warp = 1;
    for (unsigned f = 0; f < faces.count && min_face > 1e-12; ++f)
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
        double value, warp = 0, t;
        if (qf <= 1e-12)
            value = qf;
        else if (qf < 4.1569219381653057e-11 && (t = qd::pyram_subtetra_min(B)) < 1e-12)
            value = t;
        else
            warp = naive_warp(B), value = qf * warp;
        min_face = std::min(min_face, value);
        min_warp = std::min(min_warp, warp);
    }
    q *= min_warp;
    return min_face < 1e-12 ? min_face : q;
}

} // namespace

TEST(shape, prism_and_hexahedron_fast_paths_agree_with_plain_evaluation)
{
    // Strong perturbations reach every branch: warped faces (negative warp cosines), inverted
    // face pyramids, inverted corners.
    std::mt19937_64 gen(4242);
    const auto ideals = ideal_elements();
    unsigned negative = 0, warped = 0;
    for (double amount : {0.02, 0.2, 0.45})
        for (int trial = 0; trial < 3000; ++trial)
            for (unsigned which : {4u, 5u})
            {
                const Nodes nodes = perturb(ideals[which].nodes, gen, amount);
                const double* P[8];
                for (std::size_t i = 0; i < nodes.size(); ++i)
                    P[i] = nodes[i].data();
                const unsigned N = which == 5 ? 4 : 3;
                const double fast = N == 4 ? qd::hexa_quality(P, true) : qd::penta_quality(P, true);
                if (N == 4)
                {
                    // The corner-parallel path gives the general path's value bit for bit.
                    const double general = qd::extruded_quality<4>(
                        P, qd::hexa_corners, 41.569219381653056, hexa_boundaries, true);
                    EXPECT_EQ(fast, general) << trial;
                }
                const double plain = naive_extruded(P, N);
                EXPECT_NEAR(fast, plain, 1e-12 + 1e-9 * std::fabs(plain)) << N << " " << trial;
                negative += fast < 0;
                warped += fast > 0 && fast < 0.5;
            }
    EXPECT_GT(negative, 100u);
    EXPECT_GT(warped, 100u);
}

namespace
{

/// Bit pattern of a double, so that comparisons tell -0 from 0 and accept equal NaNs.
std::uint64_t bits(double v)
{
    std::uint64_t u;
    std::memcpy(&u, &v, sizeof u);
    return u;
}

} // namespace

TEST(shape, hexahedron_batches_match_the_general_path_bit_for_bit)
{
    // A mesh of separate hexahedra, mild to wild perturbations at scales from 1e-150 to 1e150
    // (squared edges leaving the range where the common case is decided), plus degenerate ones:
    // all nodes equal, flattened, inverted. 8 k + 5 elements, so that the last batch is short.
    std::mt19937_64 gen(99);
    const Nodes cube = ideal_elements()[5].nodes;
    std::vector<Nodes> hexas;
    const double scales[] = {1.0, 1e-150, 1e150, 3e-7, 4e5};
    for (int trial = 0; hexas.size() < 8 * 250 + 5; ++trial)
    {
        Nodes h = perturb(cube, gen, trial % 3 == 0 ? 0.02 : trial % 3 == 1 ? 0.25 : 0.5);
        const double s = scales[trial % 5];
        for (auto& x : h)
            for (double& v : x)
                v = s * v + 10.0 * s;
        if (trial % 37 == 0)
            for (auto& x : h)
                x = h[0]; // all nodes equal
        if (trial % 41 == 0)
            for (auto& x : h)
                x[2] = 0.0; // flat
        if (trial % 43 == 0) std::swap(h[0], h[4]);
        hexas.push_back(h);
    }
    Nodes nodes;
    dense2D<unsigned> M(8, hexas.size());
    for (std::size_t j = 0; j < hexas.size(); ++j)
        for (unsigned i = 0; i < 8; ++i)
        {
            M(i, j) = unsigned(nodes.size());
            nodes.push_back(hexas[j][i]);
        }
    const dense2D<double> pos = make_pos(nodes, 3);
    dense1D<double> q;
    ASSERT_EQ(shape_qualities(pos, M, EL_HEXA8, q), 0);
    ASSERT_EQ(q.size(), hexas.size());
    unsigned outcomes[3] = {0, 0, 0}; // value only, common case, general path
    for (std::size_t j = 0; j < hexas.size(); ++j)
    {
        const double* P[8];
        for (unsigned i = 0; i < 8; ++i)
            P[i] = pos.col(M(i, j));
        const double general =
            qd::extruded_quality<4>(P, qd::hexa_corners, 41.569219381653056, hexa_boundaries, true);
        EXPECT_EQ(bits(q[j]), bits(general)) << j << ": " << q[j] << " " << general;
        qd::hexa_lanes<1> H;
        for (unsigned i = 0; i < 8; ++i)
            H.x[i][0] = P[i][0], H.y[i][0] = P[i][1], H.z[i][0] = P[i][2];
        qd::hexa_quality_lanes(H);
        ++outcomes[!(qd::hexa_value(H.V[0], H.E[0]) > 1e-12) ? 0 : H.r[0] >= 0.0 ? 1 : 2];
    }
    // Every outcome of the kernel is met, in batches that mix them.
    EXPECT_GT(outcomes[0], 50u);
    EXPECT_GT(outcomes[1], 500u);
    EXPECT_GT(outcomes[2], 50u);

    // In a mixed matrix the hexahedra, queued apart from the other shapes, keep their values
    // and places: here every third column is a tetrahedron made of a hexahedron's first nodes.
    dense2D<unsigned> mixed(8, 0);
    std::vector<std::size_t> from;
    for (std::size_t j = 0; j < hexas.size(); ++j)
    {
        if (j % 3 == 0)
        {
            ASSERT_TRUE(mixed.resize(8, mixed.cols() + 1, undefined_index));
            for (unsigned i = 0; i < 4; ++i)
                mixed(i, mixed.cols() - 1) = M(i, j);
            from.push_back(~std::size_t(0));
        }
        ASSERT_TRUE(mixed.resize(8, mixed.cols() + 1));
        for (unsigned i = 0; i < 8; ++i)
            mixed(i, mixed.cols() - 1) = M(i, j);
        from.push_back(j);
    }
    dense1D<double> qm;
    ASSERT_EQ(shape_qualities(pos, mixed, EL_SOLID_MIX, qm), 0);
    ASSERT_EQ(qm.size(), from.size());
    for (std::size_t c = 0; c < from.size(); ++c)
    {
        const unsigned* e = mixed.col(c);
        const double expected =
            from[c] != ~std::size_t(0)
                ? q[from[c]]
                : qd::tetra_quality(pos.col(e[0]), pos.col(e[1]), pos.col(e[2]), pos.col(e[3]));
        EXPECT_EQ(bits(qm[c]), bits(expected)) << c;
    }
}
