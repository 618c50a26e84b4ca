#include "io/reader_test_util.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <meshutil/io.h>

using namespace qx7::meshutil;
using namespace reader_test;
using qx7::dense1D;
using qx7::dense2D;

namespace
{
struct medit_mesh
{
    dense2D<double> pos;
    dense1D<int> vertex_refs;
    dense2D<unsigned> connectM[nbr_element_types];
    dense1D<int> refs[nbr_element_types];
    int read(const std::string& path)
    {
        return medit_input(path.c_str(), pos, vertex_refs, connectM, refs);
    }
    bool empty() const
    {
        for (unsigned t = 0; t < nbr_element_types; ++t)
            if (!connectM[t].empty() || !refs[t].empty()) return false;
        return pos.empty() && vertex_refs.empty();
    }
    std::size_t count(element_type t) const { return connectM[t].empty() ? 0 : connectM[t].cols(); }
};
} // namespace

TEST(medit_input, reads_the_unit_square_example)
{
    medit_mesh m;
    ASSERT_EQ(m.read(data_path("square.mesh")), 0);
    ASSERT_EQ(m.pos.rows(), 2u);
    ASSERT_EQ(m.pos.cols(), 4u);
    EXPECT_EQ(column(m.pos, 2), (std::vector<double>{1, 1}));
    EXPECT_EQ(column(m.pos, 3), (std::vector<double>{0, 1}));
    EXPECT_EQ(std_of(m.vertex_refs), (std::vector<int>{0, 0, 0, 0}));
    ASSERT_EQ(m.count(EL_EDGE2), 4u);
    EXPECT_EQ(column(m.connectM[EL_EDGE2], 1), (std::vector<unsigned>{1, 2}));
    EXPECT_EQ(std_of(m.refs[EL_EDGE2]), (std::vector<int>{1, 2, 2, 2}));
    ASSERT_EQ(m.count(EL_TRIA3), 2u);
    EXPECT_EQ(column(m.connectM[EL_TRIA3], 1), (std::vector<unsigned>{0, 2, 3}));
    EXPECT_EQ(std_of(m.refs[EL_TRIA3]), (std::vector<int>{7, 7}));
    for (element_type t : {EL_QUAD4, EL_TETRA4, EL_PYRAM5, EL_PENTA6, EL_HEXA8})
        EXPECT_EQ(m.count(t), 0u);
}

TEST(medit_input, free_order_comments_repeated_sections_and_collapsed_hexahedra)
{
    // Elements before their vertices, a second Hexahedra section, skipped keywords with and
    // without counts, a comment glued to a token, no End.
    const std::string text =
        "# leading comment\nMeshVersionFormatted 2 Dimension\n3\n"
        "Hexahedra 3\n1 2 3 4 5 5 5 5 11\n1 2 3 3 4 5 6 6 12\n1 2 3 4 5 6 7 8 13\n"
        "RequiredVertices 2 1 2 BoundingBox 0 0 0 1 1 1\n"
        "Vertices 8\n0 0 0 1#ref\n1 0 0 1\n1 1 0 1\n0 1 0 1\n0 0 1 2\n1 0 1 2\n1 1 1 2\n"
        "0 1 1 -2\nTetrahedra 1 1 2 3 5 -4 Prisms 1 1 2 3 5 6 7 21 Pentahedra 1 2 3 4 6 7 8 22\n"
        "Hexaedra 2 1 1 2 2 3 3 4 4 31 1 2 3 4 1 2 3 4 32\nPyramids 1 1 2 3 4 5 41\n"
        "Tangents 1 0. 1. 0. NormalAtVertices 1 1 1\n";
    medit_mesh m;
    ASSERT_EQ(m.read(write_file("free.mesh", text)), 0);
    ASSERT_EQ(m.pos.rows(), 3u);
    ASSERT_EQ(m.pos.cols(), 8u);
    EXPECT_EQ(m.vertex_refs[0], 1);
    EXPECT_EQ(m.vertex_refs[7], -2);
    ASSERT_EQ(m.count(EL_PYRAM5), 2u);
    EXPECT_EQ(column(m.connectM[EL_PYRAM5], 0), (std::vector<unsigned>{0, 1, 2, 3, 4}));
    EXPECT_EQ(std_of(m.refs[EL_PYRAM5]), (std::vector<int>{11, 41}));
    ASSERT_EQ(m.count(EL_PENTA6), 3u);
    EXPECT_EQ(column(m.connectM[EL_PENTA6], 0), (std::vector<unsigned>{0, 1, 2, 3, 4, 5}));
    EXPECT_EQ(std_of(m.refs[EL_PENTA6]), (std::vector<int>{12, 21, 22}));
    // Other repetitions stay hexahedra.
    ASSERT_EQ(m.count(EL_HEXA8), 3u);
    EXPECT_EQ(std_of(m.refs[EL_HEXA8]), (std::vector<int>{13, 31, 32}));
    EXPECT_EQ(column(m.connectM[EL_HEXA8], 1), (std::vector<unsigned>{0, 0, 1, 1, 2, 2, 3, 3}));
    ASSERT_EQ(m.count(EL_TETRA4), 1u);
    EXPECT_EQ(m.refs[EL_TETRA4][0], -4);
}

TEST(medit_input, malformed_files_give_their_code_and_empty_outputs)
{
    const std::string head = "MeshVersionFormatted 1\nDimension 2\n";
    const std::string v2 = head + "Vertices 2\n0 0 0\n1 0 0\n";
    const struct
    {
        std::string text;
        int code;
    } cases[] = {
        {"", -2},
        {"Dimension 2\nMeshVersionFormatted 1\n", -2},
        {"MeshVersionFormatted x\n", -2},
        {"MeshVersionFormatted 5\nDimension 2\n", -4},
        {"MeshVersionFormatted 1\nDimension 4\n", -4},
        {"MeshVersionFormatted 1\nVertices 1\n0 0 0\n", -2},
        {head + "Vertices 3\n0 0 0\n1 0 0\n", -2},
        {head + "Vertices -1\n", -2},
        {head + "Vertices 1\n0 nan 0\n", -2},
        {head + "Vertices 1\n0 1e999 0\n", -2},
        {head + "Vertices 1\n0 0 0.5\n", -2},
        {v2 + "Edges 1\n1 2\n", -2},
        {v2 + "Edges 1\n1 2 0 3 4\n", -2},
        {v2 + "Edges 1\n1 3 0\n", -3},
        {v2 + "Edges 1\n0 1 0\n", -3},
        {v2 + "Triangles 1\n1 2 3 0\nVertices 1\n0 0 0\n", 0},
        {head + "Vertices 1\n0 0 " + std::string(2u << 20, '1') + "\n", -2},
    };
    for (const auto& c : cases)
    {
        medit_mesh m;
        EXPECT_EQ(m.read(write_file("bad.mesh", c.text)), c.code) << c.text.substr(0, 60);
        if (c.code)
        {
            EXPECT_TRUE(m.empty());
        }
    }
    medit_mesh m;
    EXPECT_EQ(m.read(out_path("no/such/file.mesh")), -1);
}

TEST(medit_input, every_prefix_reads_or_fails_cleanly)
{
    std::string text = read_file(data_path("square.mesh"));
    for_each_prefix("prefix.mesh", text, 1,
                    [](const std::string& path, std::size_t)
                    {
                        medit_mesh m;
                        int rc = m.read(path);
                        EXPECT_LE(rc, 0);
                        if (rc)
                        {
                            EXPECT_TRUE(m.empty());
                        }
                    });
}

TEST(medit_input, reads_back_what_the_writer_wrote)
{
    // One matrix per type, reference = matrix index; quadratic types come back as their base
    // nodes, pyramids and prisms from their collapsed hexahedra, mixed matrices split by shape.
    const std::vector<element_type> written = {
        EL_EDGE2, EL_TRIA3,     EL_QUAD4, EL_FACE_MIX, EL_TETRA4, EL_PYRAM5, EL_PENTA6,
        EL_HEXA8, EL_SOLID_MIX, EL_TRIA6, EL_TETRA10,  EL_EDGE3,  EL_HEXA20, EL_PENTA18};
    const unsigned per = 4;
    grouped_sample s(written, per, 40, 5);
    std::vector<dense2D<unsigned>> mats;
    for (unsigned k = 0; k < written.size(); ++k)
    {
        dense2D<unsigned> M;
        unsigned r = written[k] == EL_FACE_MIX    ? 4
                     : written[k] == EL_SOLID_MIX ? 8
                                                  : nbr_nodes(written[k]);
        ASSERT_TRUE(M.copy(s.connectM.sub_matrix(0, s.first[k], r, per)));
        mats.push_back(M);
    }
    std::string path = out_path("writer.mesh");
    ASSERT_EQ(medit_output(path.c_str(), s.pos, mats.data(), mats.data() + mats.size(), s.types),
              0);
    medit_mesh m;
    ASSERT_EQ(m.read(path), 0);
    ASSERT_EQ(m.pos.cols(), s.pos.cols());
    for (unsigned j = 0; j < s.pos.cols(); ++j)
        EXPECT_EQ(column(m.pos, j), column(s.pos, j));
    // Expected (reference, nodes) records per kind, compared as sorted lists.
    using record = std::pair<int, std::vector<unsigned>>;
    std::vector<record> expect[nbr_element_types], got[nbr_element_types];
    for (unsigned k = 0; k < written.size(); ++k)
        for (unsigned c = 0; c < per; ++c)
        {
            const unsigned* p = mats[k].col(c);
            element_type shape = column_shape(written[k], p);
            unsigned base = nbr_base_nodes(shape);
            element_type kind = element_dim(shape) == 1   ? EL_EDGE2
                                : base == 3               ? EL_TRIA3
                                : element_dim(shape) == 2 ? EL_QUAD4
                                : base == 4               ? EL_TETRA4
                                : base == 5               ? EL_PYRAM5
                                : base == 6               ? EL_PENTA6
                                                          : EL_HEXA8;
            expect[kind].push_back({int(k), std::vector<unsigned>(p, p + base)});
        }
    for (unsigned t = 0; t < nbr_element_types; ++t)
    {
        for (std::size_t j = 0; !m.connectM[t].empty() && j < m.connectM[t].cols(); ++j)
            got[t].push_back({m.refs[t][j], column(m.connectM[t], j)});
        std::sort(expect[t].begin(), expect[t].end());
        std::sort(got[t].begin(), got[t].end());
        EXPECT_EQ(got[t], expect[t]) << "type " << t;
    }
}
