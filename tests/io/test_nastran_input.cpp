#include "io/reader_test_util.h"

#include <gtest/gtest.h>
#include <meshutil/io.h>

using namespace qx7::meshutil;
using namespace reader_test;
using qx7::dense1D;
using qx7::dense2D;

namespace
{
const unsigned U = undefined_index;

struct deck : grouped_read<NASTRAN_input>
{
    int read_text(const std::string& text) { return read(write_file("deck.nas", text)); }
};

const std::string bulk = "BEGIN BULK\n";
} // namespace

TEST(nastran_input, reads_the_example_deck_in_every_field_format)
{
    deck d;
    ASSERT_EQ(d.read(data_path("example.nas")), 0);
    ASSERT_EQ(d.pos.rows(), 3u);
    ASSERT_EQ(d.pos.cols(), 10u);
    const double expected[10][3] = {{0, 0, 0},   {1, 0, 0},  {0, 1, 0},  {0, 0, 1},   {.5, 0, 0},
                                    {.5, .5, 0}, {0, .5, 0}, {0, 0, .5}, {.5, 0, .5}, {0, .5, .5}};
    for (unsigned j = 0; j < 10; ++j)
    {
        EXPECT_EQ(d.node_IDs[j], j + 1);
        for (unsigned i = 0; i < 3; ++i)
            EXPECT_DOUBLE_EQ(d.pos(i, j), expected[j][i]) << "GRID " << j + 1;
    }
    EXPECT_EQ(std_of(d.types),
              (std::vector<int>{EL_TRIA3, EL_TETRA4, EL_TETRA10, EL_EDGE2, EL_QUAD4, EL_TRIA6}));
    EXPECT_EQ(std_of(d.first), (std::vector<unsigned>{0, 1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(std_of(d.PIDs), (std::vector<unsigned>{11, 12, 13, 14, 15, 16}));
    EXPECT_EQ(std_of(d.element_IDs), (std::vector<unsigned>{1, 2, 3, 4, 5, 6}));
    ASSERT_EQ(d.connectM.rows(), 10u);
    EXPECT_EQ(d.nodes(0, 4), (std::vector<unsigned>{0, 1, 2, U}));
    EXPECT_EQ(d.nodes(1, 5), (std::vector<unsigned>{0, 2, 1, 3, U}));
    EXPECT_EQ(d.nodes(2, 10), (std::vector<unsigned>{0, 2, 1, 3, 5, 4, 6, 7, 9, 8}));
    EXPECT_EQ(d.nodes(3, 3), (std::vector<unsigned>{0, 1, U}));
    EXPECT_EQ(d.nodes(4, 5), (std::vector<unsigned>{0, 1, 5, 6, U}));
    EXPECT_EQ(d.nodes(5, 7), (std::vector<unsigned>{0, 1, 2, 5, 6, 4, U}));
}

TEST(nastran_input, real_number_forms)
{
    const struct
    {
        const char* text;
        double value;
    } good[] = {{"0.5", 0.5},      {".5", 0.5},       {"5.-1", 0.5},      {"+5.-1", 0.5},
                {"5.0E-1", 0.5},   {"5.E-1", 0.5},    {".5E0", 0.5},      {"5.0D-1", 0.5},
                {"5.0d-1", 0.5},   {"50.-2", 0.5},    {"0.05+1", 0.5},    {"500.-3", 0.5},
                {"-.5", -0.5},     {"1", 1.0},        {"-2.5+2", -250.0}, {"7.000+12", 7e12},
                {"2.0000+6", 2e6}, {"1.5-3", 1.5e-3}, {"1.25e+2", 125.0}, {"", 0.0}};
    for (const auto& g : good)
    {
        deck d;
        ASSERT_EQ(d.read_text(bulk + "GRID,1,," + g.text + ",0.,0.\nENDDATA\n"), 0) << g.text;
        EXPECT_DOUBLE_EQ(d.pos(0, 0), g.value) << g.text;
    }
    for (const char* bad : {"1.5x", "1 .5", "nan", "inf", "--1", "1.5e", "+-1.", "1.5--3", "."})
    {
        deck d;
        EXPECT_EQ(d.read_text(bulk + "GRID,1,," + bad + ",0.,0.\nENDDATA\n"), -2) << bad;
    }
}

TEST(nastran_input, continuations_tabs_case_and_comments)
{
    const std::string text = "$ header\n"
                             "begin bulk\n"
                             "CHEXA,1,2,1,2,3,4,5,6,+C\n"
                             "+C,7,8\n"
                             "CHEXA,2,,1,2,3,4,5,6,7,8\n"    // one long free line
                             "GRID*,7,,1.5,2.5\n*,3.5\n"     // large free field
                             "GRID\t1\t\t0.\t0.\t0.\n"       // tabs in small field
                             "grid,2,,1.,0.,0. $ trailing\n" // lower case, comment
                             "GRID           3       0      1.      1.      0.\n"
                             "GRID,4,,0.,1.,0.\nGRID,5,,0.,0.,1.\nGRID,6,,1.,0.,1.\n"
                             "GRID,8,,0.,1.,1.\n"
                             "PSOLID,2,1\n+,ignored,continuation\n"
                             "  enddata\nGRID,99,,0.,0.,0.\n";
    deck d;
    ASSERT_EQ(d.read_text(text), 0);
    EXPECT_EQ(std_of(d.node_IDs), (std::vector<unsigned>{7, 1, 2, 3, 4, 5, 6, 8}));
    EXPECT_EQ(column(d.pos, 0), (std::vector<double>{1.5, 2.5, 3.5}));
    EXPECT_EQ(column(d.pos, 3), (std::vector<double>{1, 1, 0}));
    EXPECT_EQ(std_of(d.types), (std::vector<int>{EL_HEXA8}));
    EXPECT_EQ(std_of(d.PIDs), (std::vector<unsigned>{2, 2})); // blank PID: the element's ID
    EXPECT_EQ(d.nodes(0, 8), (std::vector<unsigned>{1, 2, 3, 4, 5, 6, 0, 7}));
    EXPECT_EQ(d.nodes(1, 8), d.nodes(0, 8));
}

TEST(nastran_input, reads_a_deck_in_the_style_of_meshio)
{
    const std::string text = "$ Nastran file written by meshio v5.0.0\nBEGIN BULK\n"
                             "GRID*   1                                          0.E+0           "
                             "0.E+0\n*                  0.E+0\n"
                             "GRID*   2                                          1.E+0           "
                             "0.E+0\n*                  0.E+0\n"
                             "GRID*   3                                          0.E+0           "
                             "1.E+0\n*                  0.E+0\n"
                             "GRID*   4                                          0.E+0           "
                             "0.E+0\n*                  1.E+0\n"
                             "GRID*   5                                         1.5E+0         "
                             "2.25E-7\n*                 -3.E+0\n"
                             "CTETRA  1               1       2       3       4       \n"
                             "CTRIA3  2               1       2       5       \n"
                             "CHEXA   3               1       2       3       4       5       1"
                             "       +13     \n+13     2       3       \n"
                             "CTETRA_ 4               1       2       3       4       5       1"
                             "       +14     \n+14     2       3       4       5       \n"
                             "ENDDATA\n";
    deck d;
    ASSERT_EQ(d.read_text(text), 0);
    ASSERT_EQ(d.pos.cols(), 5u);
    EXPECT_EQ(column(d.pos, 4), (std::vector<double>{1.5, 2.25e-7, -3.0}));
    EXPECT_EQ(std_of(d.types), (std::vector<int>{EL_TETRA4, EL_TRIA3, EL_HEXA8, EL_TETRA10}));
    EXPECT_EQ(std_of(d.PIDs), (std::vector<unsigned>{1, 2, 3, 4}));
    EXPECT_EQ(d.nodes(2, 8), (std::vector<unsigned>{0, 1, 2, 3, 4, 0, 1, 2}));
    EXPECT_EQ(d.nodes(3, 10), (std::vector<unsigned>{0, 2, 1, 3, 0, 4, 1, 2, 4, 3}));
}

TEST(nastran_input, malformed_decks_give_their_code_and_empty_outputs)
{
    const std::string grids = "GRID,1,,0.,0.,0.\nGRID,2,,1.,0.,0.\nGRID,3,,0.,1.,0.\n";
    const struct
    {
        std::string text;
        int code;
    } cases[] = {
        {grids + "ENDDATA\n", -2},
        {bulk + grids, -2},
        {bulk + "+C,1,2\n" + grids + "ENDDATA\n", -2},
        {bulk + "GRID,0,,0.,0.,0.\nENDDATA\n", -2},
        {bulk + "GRID,x,,0.,0.,0.\nENDDATA\n", -2},
        {bulk + "GRID,4294967295,,0.,0.,0.\nENDDATA\n", -2},
        {bulk + grids + "CTRIA3,1,1,1,2\nENDDATA\n", -2},
        {bulk + grids + "CTRIA6,1,1,1,2,3,1\nENDDATA\n", -2},
        {bulk + grids + "CTRIA3,1,1,1,2,3\n" + std::string(2u << 20, '$') + "\nENDDATA\n", -2},
        {bulk + grids + "CTRIA3,1,1,1,2,4\nENDDATA\n", -3},
        {bulk + grids + "GRID,2,,1.,0.,0.\nENDDATA\n", -3},
        {bulk + grids + "CTRIA3,1,1,1,2,3\nCBAR,1,1,1,2\nENDDATA\n", -3},
        {bulk + "GRID,1,2,0.,0.,0.\nENDDATA\n", -4},
    };
    for (const auto& c : cases)
    {
        deck d;
        EXPECT_EQ(d.read_text(c.text), c.code) << c.text.substr(0, 80);
        EXPECT_TRUE(d.empty());
    }
    deck d;
    EXPECT_EQ(d.read(out_path("no/such/file.nas")), -1);
}

TEST(nastran_input, every_prefix_reads_or_fails_cleanly)
{
    std::string text = read_file(data_path("example.nas"));
    for_each_prefix("prefix.nas", text, 3,
                    [](const std::string& path, std::size_t)
                    {
                        deck d;
                        int rc = d.read(path);
                        EXPECT_LE(rc, 0);
                        if (rc)
                        {
                            EXPECT_TRUE(d.empty());
                        }
                    });
}

TEST(nastran_input, reads_back_what_the_writer_wrote)
{
    // Groups without a card are skipped but keep their identifiers; EL_EDGE3 comes back as its
    // end nodes, QUAD9 and HEXA27 without their centres, PYRAM14 and PENTA18 with ~0u where the
    // card has no grid.
    const std::vector<element_type> written = {
        EL_TRIA3,   EL_NODE,    EL_HEXA27,   EL_QUAD4,   EL_EDGE2,  EL_TETRA4,  EL_EDGE3,
        EL_PYRAM5,  EL_TRIA6,   EL_PENTA6,   EL_QUAD8,   EL_HEXA8,  EL_QUAD9,   EL_TETRA10,
        EL_UNKNOWN, EL_PYRAM14, EL_FACE_MIX, EL_PENTA18, EL_HEXA20, EL_EDGE_MIX};
    // (EL_SOLID_MIX groups need a matrix of exactly 8 rows in this writer: see the FEMAP test.)
    grouped_sample s(written, 3, 60, 11);
    std::string path = out_path("writer.nas");
    ASSERT_EQ(NASTRAN_output(path.c_str(), s.pos, s.connectM, s.first, s.types, s.PIDs), 0);
    deck d;
    ASSERT_EQ(d.read(path), 0);
    ASSERT_EQ(d.pos.cols(), s.pos.cols());
    for (unsigned j = 0; j < s.pos.cols(); ++j)
    {
        EXPECT_EQ(d.node_IDs[j], j + 1);
        EXPECT_EQ(column(d.pos, j), column(s.pos, j));
    }
    // EL_EDGE3 keeps its end nodes only: blank its middle row in the reference.
    for (unsigned k = 0; k < written.size(); ++k)
        if (written[k] == EL_EDGE3)
            for (unsigned j = s.first[k]; j < s.first[k + 1]; ++j)
                s.connectM(2, j) = U;
    expect_groups(s, written, d.connectM, d.first, d.types, d.PIDs, d.element_IDs,
                  {EL_UNKNOWN, EL_NODE, EL_EDGE_MIX},
                  [](element_type t) {
                      return t == EL_QUAD9    ? EL_QUAD8
                             : t == EL_HEXA27 ? EL_HEXA20
                             : t == EL_EDGE3  ? EL_EDGE2
                                              : t;
                  });
}
