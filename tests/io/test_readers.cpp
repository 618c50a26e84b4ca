// The medit, NASTRAN, FEMAP and Wavefront OBJ readers (and the OBJ and FEMAP writers): example
// files, malformed inputs with their codes, every prefix of a file, round trips of the writers.
#include "io/io_test_util.h"

#include <functional>
#include <gtest/gtest.h>
#include <meshutil/io.h>
#include <random>
#include <tuple>

using namespace qx7::meshutil;
using namespace io_test;

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

struct obj_mesh
{
    dense2D<double> pos;
    dense2D<unsigned> faces, edges;
    element_type type = EL_UNKNOWN;
    int read(const std::string& path)
    {
        return WavefrontOBJ_input(path.c_str(), pos, faces, type, edges);
    }
    bool empty() const { return pos.empty() && faces.empty() && edges.empty(); }
};

using deck = grouped_read<NASTRAN_input>;
using neutral = grouped_read<FEMAP_input>;

/// Reads `text` as a file of the test with the reader R; returns the code.
template <class R>
int read_text(R& r, const std::string& text, const char* name = "in.txt")
{
    return r.read(write_file(name, text));
}

/// Every code of a malformed-input table with empty outputs, and -1 for a missing file.
template <class R, class Case>
void expect_codes(const Case& cases)
{
    for (const auto& c : cases)
    {
        R r;
        EXPECT_EQ(read_text(r, c.first), c.second) << c.first.substr(0, 80);
        EXPECT_TRUE(r.empty()) << c.first.substr(0, 80);
    }
    R r;
    EXPECT_EQ(r.read(out_path("no/such/file")), -1);
}

template <class R>
int check_prefix(const std::string& path)
{
    R r;
    const int rc = r.read(path);
    if (rc)
    {
        EXPECT_TRUE(r.empty()) << path;
    }
    return rc;
}

const std::string bulk = "BEGIN BULK\n";
const std::string header_83 = "   -1\n   100\n<NULL>\n8.3,\n   -1\n";
const std::string four_nodes = "   -1\n   403\n"
                               "1,0,0,1,46,0,0,0,0,0,0,0.,0.,0.,0,\n"
                               "2,0,0,1,46,0,0,0,0,0,0,1.,0.,0.,0,\n"
                               "3,0,0,1,46,0,0,0,0,0,0,0.,1.,0.,0,\n"
                               "4,0,0,1,46,0,0,0,0,0,0,0.,0.,1.,0,\n   -1\n";
const std::string plain_tail = "0.,0.,0.,\n0.,0.,0.,\n0.,0.,0.,\n"
                               "0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,\n";

/// A FEMAP element record of the plain (older) layout.
std::string element(const std::string& record, const std::string& slots)
{
    return record + "\n" + slots + "\n0,0,0,0,0,0,0,0,0,0,\n" + plain_tail;
}

/// A version 8.3 file of the four nodes and one element block holding one triangle record.
std::string one_element(const std::string& record, const std::string& slots)
{
    return header_83 + four_nodes + "   -1\n   404\n" + element(record, slots) + "   -1\n";
}

} // namespace

TEST(readers, every_prefix_reads_or_fails_cleanly)
{
    // Cut anywhere, a file reads (code 0) or fails with a negative code and empty outputs.
    const std::tuple<const char*, std::size_t, std::function<int(const std::string&)>> readers[] = {
        {"square.mesh", 1, check_prefix<medit_mesh>},
        {"example.nas", 3, check_prefix<deck>},
        {"two_triangles.neu", 3, check_prefix<neutral>},
        {"demo.obj", 2, check_prefix<obj_mesh>},
    };
    for (const auto& [file, step, read] : readers)
    {
        const std::string text = read_file(data_path(file));
        ASSERT_GT(text.size(), 100u) << file;
        for (std::size_t n = 0; n < text.size(); n += step)
            EXPECT_LE(read(write_file(file, text.substr(0, n))), 0) << file << " " << n;
        EXPECT_EQ(read(data_path(file)), 0) << file;
    }
}

// ------------------------------------------------------------------------------------ medit

TEST(medit_input, reads_the_unit_square_example)
{
    // Planar vertices, counts on their own line, several records on a line, skipped Corners.
    medit_mesh m;
    ASSERT_EQ(m.read(data_path("square.mesh")), 0);
    EXPECT_EQ(all_columns(m.pos),
              (std::vector<std::vector<double>>{{0, 0}, {1, 0}, {1, 1}, {0, 1}}));
    EXPECT_EQ(std_of(m.vertex_refs), (std::vector<int>{0, 0, 0, 0}));
    EXPECT_EQ(all_columns(m.connectM[EL_EDGE2]),
              (std::vector<std::vector<unsigned>>{{0, 1}, {1, 2}, {2, 3}, {3, 0}}));
    EXPECT_EQ(std_of(m.refs[EL_EDGE2]), (std::vector<int>{1, 2, 2, 2}));
    EXPECT_EQ(all_columns(m.connectM[EL_TRIA3]),
              (std::vector<std::vector<unsigned>>{{0, 1, 2}, {0, 2, 3}}));
    EXPECT_EQ(std_of(m.refs[EL_TRIA3]), (std::vector<int>{7, 7}));
    EXPECT_EQ(m.count(EL_QUAD4) + m.count(EL_TETRA4) + m.count(EL_HEXA8), 0u);
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
    ASSERT_EQ(read_text(m, text), 0);
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
    const std::pair<std::string, int> cases[] = {
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
        {head + "Vertices 1\n0 0 " + std::string(2u << 20, '1') + "\n", -2},
    };
    expect_codes<medit_mesh>(cases);
    // Vertices sections add up; indices are checked once the whole file is read.
    medit_mesh m;
    EXPECT_EQ(read_text(m, v2 + "Triangles 1\n1 2 3 0\nVertices 1\n0 0 0\n"), 0);
    EXPECT_EQ(m.pos.cols(), 3u);
}

// ------------------------------------------------------------------------------------ NASTRAN

TEST(nastran_input, reads_the_example_deck_in_every_field_format)
{
    deck d;
    ASSERT_EQ(d.read(data_path("example.nas")), 0);
    const double nodes[10][3] = {{0, 0, 0},   {1, 0, 0},  {0, 1, 0},  {0, 0, 1},   {.5, 0, 0},
                                 {.5, .5, 0}, {0, .5, 0}, {0, 0, .5}, {.5, 0, .5}, {0, .5, .5}};
    for (unsigned j = 0; j < 10; ++j)
        EXPECT_EQ(column(d.pos, j), std::vector<double>(nodes[j], nodes[j] + 3)) << j;
    EXPECT_EQ(std_of(d.node_IDs), (std::vector<unsigned>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
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
    const std::tuple<const char*, double> good[] = {
        {"0.5", 0.5},      {".5", 0.5},       {"5.-1", 0.5},      {"+5.-1", 0.5},
        {"5.0E-1", 0.5},   {"5.E-1", 0.5},    {".5E0", 0.5},      {"5.0D-1", 0.5},
        {"5.0d-1", 0.5},   {"50.-2", 0.5},    {"0.05+1", 0.5},    {"500.-3", 0.5},
        {"-.5", -0.5},     {"1", 1.0},        {"-2.5+2", -250.0}, {"7.000+12", 7e12},
        {"2.0000+6", 2e6}, {"1.5-3", 1.5e-3}, {"1.25e+2", 125.0}, {"", 0.0}};
    for (const auto& [text, value] : good)
    {
        deck d;
        ASSERT_EQ(read_text(d, bulk + "GRID,1,," + text + ",0.,0.\nENDDATA\n"), 0) << text;
        EXPECT_DOUBLE_EQ(d.pos(0, 0), value) << text;
    }
    for (const char* bad : {"1.5x", "1 .5", "nan", "inf", "--1", "1.5e", "+-1.", "1.5--3", "."})
    {
        deck d;
        EXPECT_EQ(read_text(d, bulk + "GRID,1,," + bad + ",0.,0.\nENDDATA\n"), -2) << bad;
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
    ASSERT_EQ(read_text(d, text), 0);
    EXPECT_EQ(std_of(d.node_IDs), (std::vector<unsigned>{7, 1, 2, 3, 4, 5, 6, 8}));
    EXPECT_EQ(column(d.pos, 0), (std::vector<double>{1.5, 2.5, 3.5}));
    EXPECT_EQ(column(d.pos, 3), (std::vector<double>{1, 1, 0}));
    EXPECT_EQ(std_of(d.types), (std::vector<int>{EL_HEXA8}));
    EXPECT_EQ(std_of(d.PIDs), (std::vector<unsigned>{2, 2})); // blank PID: the element's ID
    EXPECT_EQ(d.nodes(0, 8), (std::vector<unsigned>{1, 2, 3, 4, 5, 6, 0, 7}));
    EXPECT_EQ(d.nodes(1, 8), d.nodes(0, 8));
}

TEST(nastran_input, malformed_decks_give_their_code_and_empty_outputs)
{
    const std::string grids = bulk + "GRID,1,,0.,0.,0.\nGRID,2,,1.,0.,0.\nGRID,3,,0.,1.,0.\n";
    const std::pair<std::string, int> cases[] = {
        {grids.substr(bulk.size()) + "ENDDATA\n", -2},
        {grids, -2},
        {bulk + "+C,1,2\n" + grids.substr(bulk.size()) + "ENDDATA\n", -2},
        {bulk + "GRID,0,,0.,0.,0.\nENDDATA\n", -2},
        {bulk + "GRID,x,,0.,0.,0.\nENDDATA\n", -2},
        {bulk + "GRID,4294967295,,0.,0.,0.\nENDDATA\n", -2},
        {grids + "CTRIA3,1,1,1,2\nENDDATA\n", -2},
        {grids + "CTRIA6,1,1,1,2,3,1\nENDDATA\n", -2},
        {grids + "CTRIA3,1,1,1,2,3\n" + std::string(2u << 20, '$') + "\nENDDATA\n", -2},
        {grids + "CTRIA3,1,1,1,2,4\nENDDATA\n", -3},
        {grids + "GRID,2,,1.,0.,0.\nENDDATA\n", -3},
        {grids + "CTRIA3,1,1,1,2,3\nCBAR,1,1,1,2\nENDDATA\n", -3},
        {bulk + "GRID,1,2,0.,0.,0.\nENDDATA\n", -4},
    };
    expect_codes<deck>(cases);
}

// ------------------------------------------------------------------------------------ FEMAP

TEST(femap, newer_layout_lists_collapsed_bricks_and_unknown_blocks)
{
    // Version 8.3: a twelve-value record before the slots, list flags with one list; a pyramid
    // stored as a brick with its apex repeated; unknown blocks skipped; node IDs unsorted.
    std::string text = header_83 + "   -1\n   999\nanything at all\n-1,\n   -1\n" + four_nodes +
                       "   -1\n   403\n9,0,0,1,46,0,0,0,0,0,0,2.,2.,2.,0,\n   -1\n" +
                       "   -1\n   404\n" +
                       "1,124,7,25,6,1,0,0,0,0,0,0,0,0,0,0,\n0,0,0,0,0,0,0,0,0,0,0,0,\n"
                       "1,2,3,0,4,0,0,0,0,0,\n0,0,0,0,0,0,0,0,0,0,\n0.,0.,0.,\n0.,0.,0.,\n"
                       "0.,0.,0.,\n0,0,0,0,0,0,0,0,0,0,0,0,0,0,1,0,\n1,0,1.,0,0,0,0,0,0,\n"
                       "-1,0,0.,0,0,0,0,0,0,\n" +
                       element("5,124,8,25,8,1,0,0,", "1,2,3,4,9,9,9,9,0,0,") + "   -1\n";
    neutral m;
    ASSERT_EQ(read_text(m, text), 0);
    EXPECT_EQ(m.pos.cols(), 5u);
    EXPECT_EQ(std_of(m.types), (std::vector<int>{EL_SOLID_MIX}));
    // Tetra 1 2 3 4 comes back turned as the library orders tetrahedra: 1 3 2 4.
    EXPECT_EQ(all_columns(m.connectM), (std::vector<std::vector<unsigned>>{
                                           {0, 2, 1, 3, U, U, U, U}, {0, 1, 2, 3, 4, U, U, U}}));
    EXPECT_EQ(std_of(m.element_IDs), (std::vector<unsigned>{1, 5}));
    EXPECT_EQ(std_of(m.PIDs), (std::vector<unsigned>{7, 8}));
}

TEST(femap, malformed_files_give_their_code_and_empty_outputs)
{
    const std::string h = header_83, n = four_nodes;
    const std::string tri = element("1,124,7,17,2,1,0,0,", "1,2,3,0,0,0,0,0,0,0,");
    const std::pair<std::string, int> cases[] = {
        {"not a neutral file\n", -2},
        {h + "   -1\n   403\n1,0,0,1,46,0,0,0,0,0,0,0.,0.,\n   -1\n", -2},
        {h + "   -1\n   403\n1,0,0,1,46,0,0,0,0,0,0,0.,0.,nan,0,\n   -1\n", -2},
        {h + "   -1\n   403\n0,0,0,1,46,0,0,0,0,0,0,0.,0.,0.,0,\n   -1\n", -2},
        {h + n + "   -1\n   404\n" + tri, -2}, // no closing delimiter
        {h + n + "   -1\n   404\n1,124,7,17,2,1,0,0,\n1,2,3,0,0,0,0,0,0,0,\n   -1\n", -2},
        {one_element("1,124,7,17,2,1,0,0,", "1,2,3,4,0,0,0,0,0,0,"), -2},
        {one_element("1,124,7,17,2,1,0,0,", "1,2,0,0,0,0,0,0,0,0,"), -2},
        {h + n + n, -3},
        {one_element("1,124,7,17,2,1,0,0,", "1,2,8,0,0,0,0,0,0,0,"), -3},
        {h + n + "   -1\n   404\n" + tri + tri + "   -1\n", -3},
        {one_element("1,124,7,17,14,1,0,0,", "1,2,3,0,0,0,0,0,0,0,"), -4},
    };
    expect_codes<neutral>(cases);
}

TEST(femap, writer_golden_file)
{
    dense2D<double> pos = columns<double>(2, {0, 0, 1, 0, 0, 0.5});
    dense1D<unsigned> first(2), PIDs(1, 5u);
    first[0] = 0, first[1] = 1;
    dense1D<int> types(1, int(EL_TRIA3));
    std::string path = out_path("femap_golden.neu");
    ASSERT_EQ(FEMAP_output(path.c_str(), pos, columns(3, {{0, 1, 2}}), first, types, PIDs), 0);
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

TEST(readers, grouped_writers_read_back_exactly)
{
    // One group per type, separated so that no two groups of one family touch. Groups without a
    // card or record are skipped but keep their identifiers; QUAD9 and HEXA27 come back without
    // their centres, PYRAM14 and PENTA18 with ~0u where the card has no grid. NASTRAN writes
    // EL_EDGE3 as a bar of its end nodes and skips EL_NODE and EL_EDGE_MIX (its EL_SOLID_MIX
    // groups need a matrix of exactly 8 rows); FEMAP writes EL_EDGE_MIX as bars.
    for (bool nastran : {true, false})
    {
        std::vector<element_type> written = {
            EL_TRIA3,   EL_NODE,    EL_HEXA27,   EL_QUAD4,   EL_EDGE2,  EL_TETRA4,  EL_EDGE3,
            EL_PYRAM5,  EL_TRIA6,   EL_PENTA6,   EL_QUAD8,   EL_HEXA8,  EL_QUAD9,   EL_TETRA10,
            EL_UNKNOWN, EL_PYRAM14, EL_FACE_MIX, EL_PENTA18, EL_HEXA20, EL_EDGE_MIX};
        if (!nastran) written.insert(written.end() - 2, EL_SOLID_MIX);
        grouped_sample s(written, 3, 60, nastran ? 11 : 3);
        const std::string path = out_path(nastran ? "grouped.nas" : "grouped.neu");
        deck d;
        if (nastran)
        {
            ASSERT_EQ(NASTRAN_output(path.c_str(), s.pos, s.connectM, s.first, s.types, s.PIDs), 0);
            ASSERT_EQ(d.read(path), 0);
        }
        else
        {
            ASSERT_EQ(FEMAP_output(path.c_str(), s.pos, s.connectM, s.first, s.types, s.PIDs), 0);
            ASSERT_EQ(FEMAP_input(path.c_str(), d.pos, d.connectM, d.first, d.types, d.PIDs,
                                  d.node_IDs, d.element_IDs),
                      0);
        }
        EXPECT_EQ(all_columns(d.pos), all_columns(s.pos));
        for (unsigned j = 0; j < s.pos.cols(); ++j)
            EXPECT_EQ(d.node_IDs[j], j + 1);
        for (unsigned k = 0; nastran && k < written.size(); ++k)
            for (unsigned j = s.first[k]; written[k] == EL_EDGE3 && j < s.first[k + 1]; ++j)
                s.connectM(2, j) = U;
        expect_groups(s, written, d.connectM, d.first, d.types, d.PIDs, d.element_IDs,
                      nastran ? std::vector<element_type>{EL_UNKNOWN, EL_NODE, EL_EDGE_MIX}
                              : std::vector<element_type>{EL_UNKNOWN},
                      [nastran](element_type t)
                      {
                          return t == EL_QUAD9                  ? EL_QUAD8
                                 : t == EL_HEXA27               ? EL_HEXA20
                                 : t == EL_EDGE3 && nastran     ? EL_EDGE2
                                 : t == EL_EDGE_MIX && !nastran ? EL_EDGE2
                                                                : t;
                      });
    }
}

// ------------------------------------------------------------------------------------ OBJ

TEST(obj, demo_file_with_every_reference_form)
{
    obj_mesh m;
    ASSERT_EQ(m.read(data_path("demo.obj")), 0);
    EXPECT_EQ(m.pos.cols(), 5u);
    EXPECT_EQ(column(m.pos, 4), (std::vector<double>{0.5, 1.5, 0}));
    // 1 2 3 | 1 3 4 | 2 5 3 | relative 2 3 5 | pentagon 1 2 3 5 4 fanned from its first corner.
    ASSERT_EQ(m.type, EL_TRIA3);
    EXPECT_EQ(
        all_columns(m.faces),
        all_columns(columns(
            3, {{0, 1, 2}, {0, 2, 3}, {1, 4, 2}, {1, 2, 4}, {0, 1, 2}, {0, 2, 4}, {0, 4, 3}})));
    EXPECT_EQ(all_columns(m.edges), all_columns(columns(2, {{0, 1}, {1, 2}, {2, 3}, {3, 0}})));
}

TEST(obj, statements_line_ends_and_mixed_faces)
{
    // BOM, CR and CRLF line ends, trailing comments, colours, a continued face, quads with
    // triangles (EL_FACE_MIX), continuation at the end of the file.
    std::string text = "\xEF\xBB\xBFv 0 0 0 1 0 0\r\nv 1 0 0 # x\rv 1 1 0\nv 0 1 0\n"
                       "vt 0 0\nvn 0 0 1\nf 1/1/1 2/1/1 \\\n 3//1 4/1\ng a b\nf -4 -3 -2\n"
                       "usemtl m\nl 1 2 \\";
    obj_mesh m;
    ASSERT_EQ(read_text(m, text), 0);
    EXPECT_EQ(m.pos.cols(), 4u);
    EXPECT_EQ(m.type, EL_FACE_MIX);
    EXPECT_EQ(all_columns(m.faces), all_columns(columns(4, {{0, 1, 2, 3}, {0, 1, 2}})));
    EXPECT_EQ(m.edges.cols(), 1u);
    // Only quadrangles: EL_QUAD4; no faces: EL_UNKNOWN.
    ASSERT_EQ(read_text(m, "v 0 0 0\nv 1 0 0\nv 1 1 0\nf 1 2 3 3\n"), 0);
    EXPECT_EQ(m.type, EL_QUAD4);
    ASSERT_EQ(read_text(m, "v 0 0 0\n"), 0);
    EXPECT_EQ(m.type, EL_UNKNOWN);
    EXPECT_TRUE(m.faces.empty());
}

TEST(obj, malformed_files_give_their_code_and_empty_outputs)
{
    const std::string v3 = "v 0 0 0\nv 1 0 0\nv 0 1 0\n";
    const std::pair<std::string, int> cases[] = {
        {"v 1 2\n", -2},
        {"v 1 2 nan\n", -2},
        {"v 1.5abc 0 0\n", -2},
        {"v 1 2 inf\n", -2},
        {v3 + "f 1 2\n", -2},
        {v3 + "f 1 2 0\n", -2},
        {v3 + "f 1/2/3/4 1 2\n", -2},
        {v3 + "f 1/x 2 3\n", -2},
        {v3 + "f 1// 2 3\n", -2},
        {v3 + "l 1\n", -2},
        {v3 + "f 1 2 4\n", -3},
        {"f 1 2 3 \\", -3},
        {v3 + "f -1 -2 -4\n", -3},
        {v3 + "f 1/1 2/1 3/1\n", -3},
        {v3 + "f 1//-1 2 3\n", -3},
        {v3 + "f 1 2 3\n" + std::string(2u << 20, ' ') + "\n", -2},
    };
    expect_codes<obj_mesh>(cases);
}

TEST(obj, writer_golden_file)
{
    dense2D<double> pos = columns<double>(2, {0, 0, 1, 0, 1, 1, 0.1, 0.5});
    dense2D<unsigned> mats[] = {columns(4, {{0, 1, 2}, {0, 2, 3, 1}}), columns(2, {{0, 1}})};
    dense1D<int> types(2);
    types[0] = EL_FACE_MIX, types[1] = EL_EDGE2;
    std::string path = out_path("obj_golden.obj");
    ASSERT_EQ(WavefrontOBJ_output(path.c_str(), pos, mats, mats + 2, types), 0);
    EXPECT_EQ(read_file(path), "# Wavefront OBJ file, generated by QX7 MeshUtil(TM).\n"
                               "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0.10000000000000001 0.5 0\n"
                               "f 1 2 3\nf 1 3 4 2\nl 1 2\n");
}

TEST(obj, round_trip_is_exact)
{
    // Random coordinates of every magnitude come back to the bit; faces with and without a
    // fourth corner and edges come back in order.
    std::mt19937 gen(7);
    std::uniform_real_distribution<double> coord(-1e3, 1e3);
    const unsigned n = 200;
    dense2D<double> pos(3, n);
    for (unsigned j = 0; j < n; ++j)
        for (int i = 0; i < 3; ++i)
            pos(i, j) = coord(gen) * std::pow(10.0, int(gen() % 20) - 10);
    dense2D<unsigned> mats[] = {dense2D<unsigned>(4, 300), dense2D<unsigned>(2, 50)};
    for (dense2D<unsigned>& M : mats)
        for (unsigned j = 0; j < M.cols(); ++j)
            for (unsigned i = 0; i < M.rows(); ++i)
                M(i, j) = (i == 3 && gen() % 2) ? U : gen() % n;
    dense1D<int> types(2);
    types[0] = EL_FACE_MIX, types[1] = EL_EDGE2;
    std::string path = out_path("obj_round.obj");
    ASSERT_EQ(WavefrontOBJ_output(path.c_str(), pos, mats, mats + 2, types), 0);
    obj_mesh m;
    ASSERT_EQ(m.read(path), 0);
    EXPECT_EQ(m.type, EL_FACE_MIX);
    EXPECT_EQ(all_columns(m.pos), all_columns(pos));
    EXPECT_EQ(all_columns(m.faces), all_columns(mats[0]));
    EXPECT_EQ(all_columns(m.edges), all_columns(mats[1]));
}
