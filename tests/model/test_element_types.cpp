// Element type tables, normalisation, local boundary tables and typed conformity.
#include "model/common.h"

#include <array>

namespace
{
using vec3 = std::array<double, 3>;

vec3 centroid(const vec3* p, const unsigned* ids, unsigned n)
{
    vec3 c = {0, 0, 0};
    for (unsigned k = 0; k < n; ++k)
        for (int d = 0; d < 3; ++d)
            c[d] += p[ids[k]][d] / n;
    return c;
}

/// Sign of (face normal by the right-hand rule) . (face centroid - element centroid) for every
/// face of the shape; +1 all outwards, -1 all inwards, 0 mixed.
int face_orientation(const local_boundaries& t, const vec3* p, unsigned nbr_nodes)
{
    const unsigned all[8] = {0, 1, 2, 3, 4, 5, 6, 7};
    const vec3 c = centroid(p, all, nbr_nodes);
    int sign = 0;
    for (unsigned k = 0; k < t.count; ++k)
    {
        const unsigned* f = t.nodes[k];
        const vec3 fc = centroid(p, f, t.size[k]);
        double s = 0;
        for (unsigned i = 0; i < t.size[k]; ++i) // Newell's normal, valid for quads too
        {
            const vec3 &a = p[f[i]], &b = p[f[(i + 1) % t.size[k]]];
            s += (a[1] - b[1]) * (a[2] + b[2]) * (fc[0] - c[0]) +
                 (a[2] - b[2]) * (a[0] + b[0]) * (fc[1] - c[1]) +
                 (a[0] - b[0]) * (a[1] + b[1]) * (fc[2] - c[2]);
        }
        const int this_sign = s > 0 ? 1 : -1;
        if (sign == 0) sign = this_sign;
        if (sign != this_sign) return 0;
    }
    return sign;
}
} // namespace

TEST(element_types, lookup_tables)
{
    struct row
    {
        element_type t;
        unsigned dim, nodes, base, boundaries, record;
    };
    const row rows[] = {
        {EL_UNKNOWN, 0, 0, 0, 0, 0},  {EL_NODE, 0, 1, 1, 0, 0},     {EL_EDGE_MIX, 1, 2, 2, 1, 1},
        {EL_EDGE2, 1, 2, 2, 1, 1},    {EL_EDGE3, 1, 3, 2, 1, 1},    {EL_FACE_MIX, 2, 4, 4, 4, 2},
        {EL_TRIA3, 2, 3, 3, 3, 2},    {EL_QUAD4, 2, 4, 4, 4, 2},    {EL_TRIA6, 2, 6, 3, 3, 3},
        {EL_QUAD8, 2, 8, 4, 4, 3},    {EL_QUAD9, 2, 9, 4, 4, 3},    {EL_SOLID_MIX, 3, 8, 8, 6, 4},
        {EL_TETRA4, 3, 4, 4, 4, 3},   {EL_TETRA10, 3, 10, 4, 4, 6}, {EL_PYRAM5, 3, 5, 5, 5, 4},
        {EL_PYRAM14, 3, 14, 5, 5, 9}, {EL_PENTA6, 3, 6, 6, 5, 4},   {EL_PENTA18, 3, 18, 6, 5, 9},
        {EL_HEXA8, 3, 8, 8, 6, 4},    {EL_HEXA20, 3, 20, 8, 6, 8},  {EL_HEXA27, 3, 27, 8, 6, 9}};
    ASSERT_EQ(sizeof(rows) / sizeof(rows[0]), nbr_element_types);
    for (const row& r : rows)
    {
        EXPECT_EQ(element_dim(r.t), r.dim) << r.t;
        EXPECT_EQ(nbr_nodes(r.t), r.nodes) << r.t;
        EXPECT_EQ(nbr_base_nodes(r.t), r.base) << r.t;
        EXPECT_EQ(nbr_boundaries(r.t), r.boundaries) << r.t;
        EXPECT_EQ(boundary_record_size(r.t), r.record) << r.t;
    }
    EXPECT_EQ(nbr_nodes(static_cast<element_type>(21)), 0u);
    EXPECT_EQ(nbr_boundaries(static_cast<element_type>(-1)), 0u);
}

TEST(element_types, normalisation_and_column_shapes)
{
    const struct
    {
        element_type type;
        unsigned rows;
        element_type expected;
    } norm[] = {{EL_FACE_MIX, 3, EL_TRIA3},    {EL_FACE_MIX, 4, EL_FACE_MIX},
                {EL_SOLID_MIX, 4, EL_TETRA4},  {EL_SOLID_MIX, 5, EL_PYRAM5},
                {EL_SOLID_MIX, 6, EL_PENTA6},  {EL_SOLID_MIX, 8, EL_SOLID_MIX},
                {EL_EDGE_MIX, 2, EL_EDGE_MIX}, {EL_TRIA3, 4, EL_TRIA3}};
    for (const auto& n : norm)
        EXPECT_EQ(normalize_type(n.type, n.rows), n.expected) << n.type << " " << n.rows;

    const unsigned faces[2][4] = {{5, 6, 7, U}, {5, 6, 7, 8}};
    EXPECT_EQ(column_shape(EL_FACE_MIX, faces[0]), EL_TRIA3);
    EXPECT_EQ(column_shape(EL_FACE_MIX, faces[1]), EL_QUAD4);
    const element_type solids[] = {EL_TETRA4, EL_PYRAM5, EL_PENTA6, EL_HEXA8};
    for (const element_type s : solids)
    {
        unsigned col[8];
        for (unsigned i = 0; i < 8; ++i)
            col[i] = i < nbr_nodes(s) ? i : U;
        EXPECT_EQ(column_shape(EL_SOLID_MIX, col), s);
    }
}

TEST(element_types, boundary_tables_match_the_boundary_counts)
{
    for (unsigned t = 0; t < nbr_element_types; ++t)
    {
        const element_type type = static_cast<element_type>(t);
        const local_boundaries* b = boundaries_of(type);
        if (!b) continue;
        const unsigned expected = element_dim(type) == 1 ? 2 : nbr_boundaries(type);
        EXPECT_EQ(b->count, expected) << t;
        // Every place beyond a boundary's size is ~0u, every node is a base node.
        for (unsigned k = 0; k < b->count; ++k)
            for (unsigned i = 0; i < 4; ++i)
            {
                if (i < b->size[k])
                    EXPECT_LT(b->nodes[k][i], nbr_base_nodes(type)) << t;
                else
                    EXPECT_EQ(b->nodes[k][i], undefined_index) << t;
            }
    }
    EXPECT_EQ(boundaries_of(EL_FACE_MIX), nullptr);
    EXPECT_EQ(boundaries_of(EL_NODE), nullptr);
}

// The faces of a tetrahedron of positive volume (node1 - node0) . ((node2 - node0) x (node3 -
// node0)) point outwards; those of the other solids, their bottom counter-clockwise seen from
// the apex or top face (z up), point inwards.
TEST(element_types, solid_faces_are_oriented_alike)
{
    const vec3 tet[4] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    const vec3 pyr[5] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0.5, 0.5, 1}};
    const vec3 pen[6] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {0, 1, 1}};
    const vec3 hex[8] = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0},
                         {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};
    EXPECT_EQ(face_orientation(tetra_boundaries, tet, 4), 1);
    EXPECT_EQ(face_orientation(pyram_boundaries, pyr, 5), -1);
    EXPECT_EQ(face_orientation(penta_boundaries, pen, 6), -1);
    EXPECT_EQ(face_orientation(hexa_boundaries, hex, 8), -1);
    // Face k of the tetrahedron is opposite node k; face 4 of the hexahedron is 0-1-2-3.
    for (unsigned k = 0; k < 4; ++k)
        for (unsigned i = 0; i < 3; ++i)
            EXPECT_NE(tetra_boundaries.nodes[k][i], k);
    EXPECT_EQ(hexa_boundaries.nodes[4][0], 0u);
    EXPECT_EQ(hexa_boundaries.nodes[4][3], 3u);
}

TEST(element_types, surface_edges_run_around_the_element)
{
    for (const local_boundaries* t : {&tria_boundaries, &quad_boundaries})
        for (unsigned k = 0; k < t->count; ++k)
            EXPECT_EQ(t->nodes[k][1], t->nodes[(k + 1) % t->count][0]);
    // Triangle edge k is opposite node k; quadrangle edge k starts at node k.
    for (unsigned k = 0; k < 3; ++k)
        EXPECT_TRUE(tria_boundaries.nodes[k][0] != k && tria_boundaries.nodes[k][1] != k);
    for (unsigned k = 0; k < 4; ++k)
        EXPECT_EQ(quad_boundaries.nodes[k][0], k);
    // The end opposite node k of an edge is the other node.
    EXPECT_EQ(edge_boundaries.nodes[0][0], 1u);
    EXPECT_EQ(edge_boundaries.nodes[1][0], 0u);
}

TEST(check_IDs, typed_conformity)
{
    struct item
    {
        dense2D<unsigned> M;
        element_type type;
        unsigned max;
        bool expected;
    };
    const item items[] = {
        {dense2D<unsigned>(), EL_UNKNOWN, 0, true},        // empty always conforms
        {dense2D<unsigned>(7, 0), EL_TRIA3, 0, true},      // so does 7 x 0
        {columns(3, {0, 1, 2}), EL_FACE_MIX, 3, true},     // read as EL_TRIA3
        {columns(3, {0, 1, 3}), EL_FACE_MIX, 3, false},    // index out of range
        {columns(3, {0, 1, U}), EL_FACE_MIX, 3, false},    // ~0u never allowed in a triangle
        {columns(3, {0, 1, U}), EL_TRIA3, U, true},        // row count alone
        {columns(4, {5, 6, 7, U}), EL_FACE_MIX, 8, true},  // a triangle
        {columns(4, {5, U, 7, 8}), EL_FACE_MIX, 8, false}, // ~0u before row 3
        {columns(4, {5, 6, 7, 8}), EL_FACE_MIX, 8, false}, // 8 not below 8
        {columns(5, {0, 1, 2, 3, 4}), EL_FACE_MIX, U, false},
        {columns(6, {0, 1, 2, 3, 4, 5}), EL_SOLID_MIX, 6, true}, // read as EL_PENTA6
        {columns(6, {0, 1, 2, 3, 4, U}), EL_SOLID_MIX, 6, false},
        {columns(7, {0, 1, 2, 3, 4, 5, 6}), EL_SOLID_MIX, U, false},
        {columns(8, {0, 1, 2, 3, 4, U, U, U}), EL_SOLID_MIX, 9, true}, // pyramid
        {columns(8, {0, 1, 2, 3, U, U, U, U}), EL_SOLID_MIX, 9, true}, // tetrahedron
        {columns(8, {0, 1, 2, 3, 4, U, 6, U}), EL_SOLID_MIX, 9, false},
        {columns(8, {0, 1, 2, 3, 4, 5, 6, U}), EL_SOLID_MIX, 9, false}, // ~0u in row 7 alone
        {columns(8, {0, 1, U, 3, 4, 5, 6, 7}), EL_SOLID_MIX, 9, false},
        {columns(8, {0, 1, 2, 3, 4, 5, 6, 7}), EL_SOLID_MIX, 8, true},
        {columns(4, {0, 1, 2, 3, 0, 1, 2, 4}), EL_TETRA4, 4, false}, // second column fails
        {columns(2, {0, 1}), EL_EDGE_MIX, 2, true},
        {columns(2, {0, 1}), EL_TRIA3, U, false},
        {columns(2, {0, 1}), static_cast<element_type>(40), U, false},
    };
    for (std::size_t k = 0; k < sizeof(items) / sizeof(items[0]); ++k)
        EXPECT_EQ(check_IDs(items[k].M, items[k].type, items[k].max), items[k].expected) << k;
}
