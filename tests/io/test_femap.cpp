#include "io/reader_test_util.h"

#include <gtest/gtest.h>
#include <meshutil/io.h>
#include <numeric>
#include <random>

using namespace qx7::meshutil;
using namespace reader_test;
using qx7::dense1D;
using qx7::dense2D;

namespace
{
const unsigned U = undefined_index;

using grouped_mesh = grouped_read<FEMAP_input>;

const char* const header_83 = "   -1\n   100\n<NULL>\n8.3,\n   -1\n";
const char* const four_nodes = "   -1\n   403\n"
                               "1,0,0,1,46,0,0,0,0,0,0,0.,0.,0.,0,\n"
                               "2,0,0,1,46,0,0,0,0,0,0,1.,0.,0.,0,\n"
                               "3,0,0,1,46,0,0,0,0,0,0,0.,1.,0.,0,\n"
                               "4,0,0,1,46,0,0,0,0,0,0,0.,0.,1.,0,\n   -1\n";
const char* const plain_tail = "0.,0.,0.,\n0.,0.,0.,\n0.,0.,0.,\n"
                               "0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,\n";

std::string element(const std::string& record, const std::string& slots)
{
    return record + "\n" + slots + "\n0,0,0,0,0,0,0,0,0,0,\n" + plain_tail;
}
} // namespace

TEST(femap, reads_the_two_triangle_example)
{
    grouped_mesh m;
    ASSERT_EQ(m.read(data_path("two_triangles.neu")), 0);
    ASSERT_EQ(m.pos.cols(), 4u);
    EXPECT_EQ(column(m.pos, 2), (std::vector<double>{1, 1, 0}));
    EXPECT_EQ(std_of(m.node_IDs), (std::vector<unsigned>{1, 2, 3, 4}));
    EXPECT_EQ(std_of(m.first), (std::vector<unsigned>{0, 2}));
    EXPECT_EQ(std_of(m.types), (std::vector<int>{EL_TRIA3}));
    EXPECT_EQ(std_of(m.PIDs), (std::vector<unsigned>{7, 7}));
    EXPECT_EQ(std_of(m.element_IDs), (std::vector<unsigned>{1, 2}));
    EXPECT_EQ(column(m.connectM, 0), (std::vector<unsigned>{0, 1, 2}));
    EXPECT_EQ(column(m.connectM, 1), (std::vector<unsigned>{0, 2, 3}));
}

TEST(femap, newer_layout_lists_collapsed_bricks_and_unknown_blocks)
{
    // Version 8.3: a twelve-value record before the slots, list flags with one list; a pyramid
    // stored as a brick with its apex repeated; unknown blocks skipped; node IDs unsorted.
    std::string text = std::string(header_83) + "   -1\n   999\nanything at all\n-1,\n   -1\n" +
                       four_nodes + "   -1\n   403\n9,0,0,1,46,0,0,0,0,0,0,2.,2.,2.,0,\n   -1\n" +
                       "   -1\n   404\n" +
                       "1,124,7,25,6,1,0,0,0,0,0,0,0,0,0,0,\n0,0,0,0,0,0,0,0,0,0,0,0,\n"
                       "1,2,3,0,4,0,0,0,0,0,\n0,0,0,0,0,0,0,0,0,0,\n0.,0.,0.,\n0.,0.,0.,\n"
                       "0.,0.,0.,\n0,0,0,0,0,0,0,0,0,0,0,0,0,0,1,0,\n1,0,1.,0,0,0,0,0,0,\n"
                       "-1,0,0.,0,0,0,0,0,0,\n" +
                       element("5,124,8,25,8,1,0,0,", "1,2,3,4,9,9,9,9,0,0,") + "   -1\n";
    grouped_mesh m;
    ASSERT_EQ(m.read(write_file("newer.neu", text)), 0);
    EXPECT_EQ(m.pos.cols(), 5u);
    EXPECT_EQ(std_of(m.types), (std::vector<int>{EL_SOLID_MIX}));
    ASSERT_EQ(m.connectM.rows(), 8u);
    // Tetra 1 2 3 4 comes back turned as the library orders tetrahedra: 1 3 2 4.
    EXPECT_EQ(column(m.connectM, 0), (std::vector<unsigned>{0, 2, 1, 3, U, U, U, U}));
    EXPECT_EQ(column(m.connectM, 1), (std::vector<unsigned>{0, 1, 2, 3, 4, U, U, U}));
    EXPECT_EQ(std_of(m.element_IDs), (std::vector<unsigned>{1, 5}));
    EXPECT_EQ(std_of(m.PIDs), (std::vector<unsigned>{7, 8}));
}

TEST(femap, malformed_files_give_their_code_and_empty_outputs)
{
    const std::string h = header_83, n = four_nodes;
    const std::string tri = element("1,124,7,17,2,1,0,0,", "1,2,3,0,0,0,0,0,0,0,");
    const struct
    {
        std::string text;
        int code;
    } cases[] = {
        {"not a neutral file\n", -2},
        {h + "   -1\n   403\n1,0,0,1,46,0,0,0,0,0,0,0.,0.,\n   -1\n", -2},
        {h + "   -1\n   403\n1,0,0,1,46,0,0,0,0,0,0,0.,0.,nan,0,\n   -1\n", -2},
        {h + "   -1\n   403\n0,0,0,1,46,0,0,0,0,0,0,0.,0.,0.,0,\n   -1\n", -2},
        {h + n + "   -1\n   404\n" + tri, -2}, // no closing delimiter
        {h + n + "   -1\n   404\n1,124,7,17,2,1,0,0,\n1,2,3,0,0,0,0,0,0,0,\n   -1\n", -2},
        {h + n + "   -1\n   404\n" + element("1,124,7,17,2,1,0,0,", "1,2,3,4,0,0,0,0,0,0,") +
             "   -1\n",
         -2},
        {h + n + "   -1\n   404\n" + element("1,124,7,17,2,1,0,0,", "1,2,0,0,0,0,0,0,0,0,") +
             "   -1\n",
         -2},
        {h + n + n, -3},
        {h + n + "   -1\n   404\n" + element("1,124,7,17,2,1,0,0,", "1,2,8,0,0,0,0,0,0,0,") +
             "   -1\n",
         -3},
        {h + n + "   -1\n   404\n" + tri + tri + "   -1\n", -3},
        {h + n + "   -1\n   404\n" + element("1,124,7,17,14,1,0,0,", "1,2,3,0,0,0,0,0,0,0,") +
             "   -1\n",
         -4},
    };
    for (const auto& c : cases)
    {
        grouped_mesh m;
        EXPECT_EQ(m.read(write_file("bad.neu", c.text)), c.code) << c.text;
        EXPECT_TRUE(m.empty());
    }
    grouped_mesh m;
    EXPECT_EQ(m.read(out_path("no/such/file.neu")), -1);
}

TEST(femap, writer_golden_file)
{
    dense2D<double> pos = columns<double>(2, {0, 0, 1, 0, 0, 0.5});
    dense2D<unsigned> tri = columns<unsigned>(3, {0, 1, 2});
    dense1D<unsigned> first(2), PIDs(1, 5u);
    first[0] = 0, first[1] = 1;
    dense1D<int> types(1, int(EL_TRIA3));
    std::string path = out_path("golden.neu");
    ASSERT_EQ(FEMAP_output(path.c_str(), pos, tri, first, types, PIDs), 0);
    const std::string zero = "0.0000000000000000E+00";
    const std::string node = ",0,0,1,46,0,0,0,0,0,0,";
    EXPECT_EQ(read_file(path),
              "   -1\n   100\n<NULL>\n4.41,\n   -1\n"
              "   -1\n   402\n5,110,1,17,1,0,\n<NULL>\n0,0,0,0,\n8,\n0,0,0,0,0,0,0,0,\n5,\n"
              "0.,0.,0.,0.,0.,\n   -1\n"
              "   -1\n   403\n1" +
                  node + zero + "," + zero + "," + zero + ",0,\n2" + node +
                  "1.0000000000000000E+00," + zero + "," + zero + ",0,\n3" + node + zero +
                  ",5.0000000000000000E-01," + zero +
                  ",0,\n   -1\n"
                  "   -1\n   404\n1,124,5,17,2,1,0,0,\n1,2,3,0,0,0,0,0,0,0,\n"
                  "0,0,0,0,0,0,0,0,0,0,\n" +
                  plain_tail + "   -1\n");
}

TEST(femap, writer_checks_in_order_and_creates_no_file)
{
    dense2D<double> pos(3, 3, 0.0), pos1(1, 3, 0.0);
    dense2D<unsigned> tri = columns<unsigned>(3, {0, 1, 2, 0, 1, 3});
    dense1D<unsigned> first(2), bad_first(2), PIDs(2, 1u), short_PIDs(1, 1u);
    first[0] = 0, first[1] = 2, bad_first[0] = 0, bad_first[1] = 1;
    dense1D<int> types(1, int(EL_TRIA3)), two_types(2, int(EL_TRIA3)), bad_type(1, 21);
    std::string path = out_path("refused.neu");
    std::remove(path.c_str());
    const char* f = path.c_str();
    EXPECT_EQ(FEMAP_output(f, pos1, tri, first, types, PIDs), -2);
    EXPECT_EQ(FEMAP_output(f, pos, tri, bad_first, types, PIDs), -4);
    EXPECT_EQ(FEMAP_output(f, pos, tri, first, two_types, PIDs), -5);
    EXPECT_EQ(FEMAP_output(f, pos, tri, first, bad_type, PIDs), -5);
    EXPECT_EQ(FEMAP_output(f, pos, tri, first, types, short_PIDs), -6);
    EXPECT_EQ(FEMAP_output(f, pos, tri, first, types, PIDs), -3); // node 3 of 3
    EXPECT_EQ(std::fopen(f, "r"), nullptr);
    EXPECT_EQ(FEMAP_output(out_path("no/dir.neu").c_str(), pos, tri, EL_TRIA3), -3);
    dense2D<double> pos4(3, 4, 0.0);
    EXPECT_EQ(FEMAP_output(out_path("no/dir.neu").c_str(), pos4, tri, EL_TRIA3), -1);
}

TEST(femap, round_trip_of_every_type_is_exact)
{
    // One group per type, separated so that no two groups of one family touch; QUAD9 and
    // HEXA27 come back as QUAD8 and HEXA20 (centre nodes dropped).
    const std::vector<element_type> written = {
        EL_TRIA3,   EL_NODE,    EL_HEXA27,   EL_QUAD4,   EL_EDGE2,     EL_TETRA4, EL_EDGE3,
        EL_PYRAM5,  EL_TRIA6,   EL_PENTA6,   EL_QUAD8,   EL_HEXA8,     EL_QUAD9,  EL_TETRA10,
        EL_UNKNOWN, EL_PYRAM14, EL_FACE_MIX, EL_PENTA18, EL_SOLID_MIX, EL_HEXA20, EL_EDGE_MIX};
    grouped_sample s(written, 3, 60, 3);
    std::string path = out_path("all_types.neu");
    ASSERT_EQ(FEMAP_output(path.c_str(), s.pos, s.connectM, s.first, s.types, s.PIDs), 0);
    grouped_mesh m;
    ASSERT_EQ(m.read(path), 0);
    ASSERT_EQ(m.pos.cols(), s.pos.cols());
    for (unsigned j = 0; j < s.pos.cols(); ++j)
        EXPECT_EQ(column(m.pos, j), column(s.pos, j));
    expect_groups(s, written, m.connectM, m.first, m.types, m.PIDs, m.element_IDs, {EL_UNKNOWN},
                  [](element_type t)
                  {
                      return t == EL_QUAD9      ? EL_QUAD8
                             : t == EL_HEXA27   ? EL_HEXA20
                             : t == EL_EDGE_MIX ? EL_EDGE2
                                                : t;
                  });
}

TEST(femap, every_prefix_reads_or_fails_cleanly)
{
    std::string text = read_file(data_path("two_triangles.neu"));
    for_each_prefix("prefix.neu", text, 3,
                    [](const std::string& path, std::size_t)
                    {
                        grouped_mesh m;
                        int rc = m.read(path);
                        EXPECT_LE(rc, 0);
                        if (rc)
                        {
                            EXPECT_TRUE(m.empty());
                        }
                    });
}
