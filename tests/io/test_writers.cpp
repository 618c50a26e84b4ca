// The medit, EnSight, legacy VTK and NASTRAN writers: golden files of every element type, the
// forms with one or two matrices and per-element references, check ladders and what a refused
// call leaves on disk, medit solution files, the VTK cell conversion and stream form.
#include "io/io_test_util.h"

#include <functional>
#include <gtest/gtest.h>
#include <meshutil/io.h>
#include <tuple>

using namespace qx7::meshutil;
using namespace io_test;

namespace
{

dense1D<unsigned> list(std::initializer_list<unsigned> v)
{
    dense1D<unsigned> d;
    for (unsigned x : v)
        d.push_back(x);
    return d;
}

dense1D<int> type_list(std::initializer_list<element_type> v)
{
    dense1D<int> d;
    for (element_type x : v)
        d.push_back(int(x));
    return d;
}

/// Unit square with its centre (node 4) in the plane:  3 --- 2
///                                                      |  4  |
///                                                      0 --- 1
dense2D<double> square2d()
{
    return columns<double>(2, {0, 0, 1, 0, 1, 1, 0, 1, 0.5, 0.5});
}

const char nastran_elements_banner[] = "$----------------------------------------\n"
                                       "$                 ELEMENTS               \n"
                                       "$----------------------------------------\n";

/// The element cards of a NASTRAN deck: what follows the elements banner.
std::string element_cards(const std::string& deck)
{
    std::size_t at = deck.find(nastran_elements_banner);
    return at == std::string::npos ? "<no banner>"
                                   : deck.substr(at + sizeof nastran_elements_banner - 1);
}

} // namespace

TEST(writers, every_element_type_matches_golden_file)
{
    // The same range of every type over grid27(): medit sections by type value with references
    // = matrix index, mixed matrices split by shape; EnSight part k + 1 for matrix k, skipped
    // kinds using up their part number; VTK mixed matrices split, quadratic elements as a linear
    // cell plus a poly-vertex, the empty matrix left out.
    const typed_range all = all_types(true), plain = all_types(false);
    const dense2D<double> pos = grid27();
    // NASTRAN: one 27-row matrix, one group per type (one face group of mixed columns, an
    // EL_EDGE_MIX group that writes nothing but keeps its identifier, an empty EL_UNKNOWN group).
    dense2D<unsigned> M(27, 0);
    dense1D<unsigned> first, PIDs;
    const dense1D<int> types =
        type_list({EL_EDGE2, EL_EDGE_MIX, EL_TRIA3, EL_QUAD4, EL_TRIA6, EL_QUAD8, EL_QUAD9,
                   EL_FACE_MIX, EL_TETRA4, EL_TETRA10, EL_PYRAM5, EL_PYRAM14, EL_PENTA6, EL_PENTA18,
                   EL_HEXA8, EL_HEXA20, EL_HEXA27, EL_EDGE3, EL_UNKNOWN});
    for (int t : types)
    {
        first.push_back(unsigned(M.cols()));
        for (int c = 0; t != EL_UNKNOWN && c < (t == EL_FACE_MIX ? 2 : 1); ++c)
        {
            const std::size_t j = M.cols();
            M.resize(27, j + 1, U);
            const unsigned n = t == EL_FACE_MIX ? 3 + c : nbr_nodes(element_type(t));
            for (unsigned i = 0; i < n; ++i)
                M(i, j) = i;
            PIDs.push_back(unsigned(100 + j));
        }
    }
    first.push_back(unsigned(M.cols()));
    const std::tuple<const char*, std::function<int(const char*)>> writers[] = {
        {"medit_all_types.mesh",
         [&](const char* p) { return medit_output(p, pos, all.first(), all.last(), all.types); }},
        {"ensight_all_types.geo",
         [&](const char* p) { return ensight_output(p, pos, all.first(), all.last(), all.types); }},
        {"vtk_all_types.vtk", [&](const char* p)
         { return vtk_output(p, pos, plain.first(), plain.last(), plain.types); }},
        {"nastran_all_types.nas",
         [&](const char* p) { return NASTRAN_output(p, pos, M, first, types, PIDs); }},
    };
    for (const auto& [file, write] : writers)
    {
        const std::string path = out_path(file);
        ASSERT_EQ(write(path.c_str()), 0) << file;
        EXPECT_EQ(read_file(path), golden(file)) << file;
    }
}

TEST(writers, failed_checks_return_their_code_and_leave_the_file_as_documented)
{
    // Every check of each writer with the earlier ones passing. The medit, FEMAP and OBJ writers
    // check before creating their file; the others create it first and leave it empty.
    const dense2D<double> pos = grid27(), pos4(3, 4, 0.0);
    const dense2D<unsigned> tri = columns(3, {{0, 1, 2}}),
                            tri2 = columns(3, {{0, 1, 2}, {1, 2, 3}});
    const dense2D<unsigned> pair[2] = {tri, columns(3, {{0, 1, 27}})}; // node 27 is out of range
    const dense2D<unsigned> holed = columns(4, {{0, U, 2, 3}});        // hole before row 3
    const dense1D<int> one = type_list({EL_TRIA3}), two = type_list({EL_TRIA3, EL_TRIA3});
    const dense1D<unsigned> all2 = list({0, 2}), pids2 = list({1, 1});
    using call = std::function<int(const char*)>;
#define W(call) [&](const char* p) { return call; }
    const struct
    {
        const char* writer;
        int code;
        call write;
    } cases[] = {
        {"medit", -2, W(medit_output(p, dense2D<double>(4, 5, 0.0), &tri, &tri + 1, one))},
        {"medit", -2, W(medit_output(p, dense2D<double>(), &tri, &tri + 1, one))},
        {"medit", -4, W(medit_output(p, pos, &tri + 1, &tri, one))},
        {"medit", -5, W(medit_output(p, pos, &tri, &tri + 1, two))},
        {"medit", -3, W(medit_output(p, pos, pair, pair + 2, two))},
        {"medit", -3, W(medit_output(p, pos, &holed, &holed + 1, type_list({EL_FACE_MIX})))},
        {"medit", -3, W(medit_output(p, pos, &tri, &tri + 1, dense1D<int>(1, 99)))},
        {"medit", -3, W(medit_output(p, pos, tri, EL_QUAD4))},
        {"medit", -5, W(medit_output(p, pos, tri2, EL_TRIA3, list({1})))},
        {"ensight", -2, W(ensight_output(p, dense2D<double>(4, 4, 0.0), tri, EL_TRIA3))},
        {"ensight", -4, W(ensight_output(p, pos, &tri + 1, &tri, one))},
        {"ensight", -5, W(ensight_output(p, pos, &tri, &tri + 1, two))},
        {"ensight", -3, W(ensight_output(p, pos, tri, EL_QUAD4))},
        {"ensight", -3, W(ensight_output(p, pos, iota_column(7), EL_SOLID_MIX))},
        {"vtk", -2, W(vtk_output(p, dense2D<double>(1, 27, 0.0), tri, EL_TRIA3))},
        {"vtk", -4, W(vtk_output(p, pos, &tri + 1, &tri, one))},
        {"vtk", -5, W(vtk_output(p, pos, &tri, &tri + 1, two))},
        {"vtk", -3, W(vtk_output(p, pos, pair[1], EL_TRIA3))},
        {"vtk", -3, W(vtk_output(p, pos, tri, EL_QUAD4))},
        {"vtk", -2, W(vtk_output(p, pos, tri, columns(1, {{3}}), EL_TRIA3, EL_NODE))},
        {"nastran", -2, W(NASTRAN_output(p, dense2D<double>(1, 4, 0.0), tri2, EL_TRIA3))},
        {"nastran", -5, W(NASTRAN_output(p, pos4, tri2, list({0, 1, 2}), one, pids2))},
        {"nastran", -6, W(NASTRAN_output(p, pos4, tri2, all2, one, list({1})))},
        {"nastran", -4, W(NASTRAN_output(p, pos4, tri2, list({0, 3}), one, pids2))},
        {"nastran", -4, W(NASTRAN_output(p, pos4, tri2, list({2, 1}), one, pids2))},
        {"nastran", -3, W(NASTRAN_output(p, pos4, tri2, all2, type_list({EL_FACE_MIX}), pids2))},
        {"nastran", -3,
         W(NASTRAN_output(p, pos4, dense2D<unsigned>(9, 1, 0u), list({0, 1}),
                          type_list({EL_SOLID_MIX}), list({1})))},
        {"nastran", -3, W(NASTRAN_output(p, pos4, tri2, EL_QUAD4))},
        {"femap", -2, W(FEMAP_output(p, dense2D<double>(1, 4, 0.0), tri2, all2, one, pids2))},
        {"femap", -4, W(FEMAP_output(p, pos4, tri2, list({0, 1}), one, pids2))},
        {"femap", -5, W(FEMAP_output(p, pos4, tri2, all2, two, pids2))},
        {"femap", -5, W(FEMAP_output(p, pos4, tri2, all2, dense1D<int>(1, 21), pids2))},
        {"femap", -6, W(FEMAP_output(p, pos4, tri2, all2, one, list({1})))},
        {"femap", -3, W(FEMAP_output(p, dense2D<double>(3, 3, 0.0), tri2, all2, one, pids2))},
        {"obj", -2, W(WavefrontOBJ_output(p, dense2D<double>(1, 3, 0.0), tri, EL_TRIA3))},
        {"obj", -4, W(WavefrontOBJ_output(p, pos, &tri + 1, &tri, one))},
        {"obj", -5, W(WavefrontOBJ_output(p, pos, &tri, &tri, one))},
        {"obj", -5, W(WavefrontOBJ_output(p, pos, columns(4, {{0, 1, 2, 0}}), EL_TETRA4))},
        {"obj", -3, W(WavefrontOBJ_output(p, pos, pair[1], EL_TRIA3))},
    };
#undef W
    for (const auto& c : cases)
    {
        const std::string path = out_path("writer_refused");
        EXPECT_EQ(c.write(path.c_str()), c.code) << c.writer << " " << &c - cases;
        const bool checks_first =
            std::string("medit femap obj").find(c.writer) != std::string::npos;
        EXPECT_EQ(read_file(path), checks_first ? "<missing>" : "")
            << c.writer << " " << &c - cases;
        EXPECT_EQ(c.write(MESHUTIL_TEST_OUTPUT_DIR "/no/such/dir"), checks_first ? c.code : -1)
            << c.writer << " " << &c - cases;
    }
    // An empty connectivity creates no file (medit, NASTRAN); EnSight does not bound indices; a
    // valid call on a bad path fails to open.
    const std::string path = out_path("writer_empty");
    EXPECT_EQ(medit_output(path.c_str(), square2d(), dense2D<unsigned>(3, 0), EL_TRIA3,
                           list({1, 2, 3, 4})),
              0);
    EXPECT_EQ(
        NASTRAN_output(path.c_str(), dense2D<double>(1, 4, 0.0), dense2D<unsigned>(3, 0), EL_TRIA3),
        0);
    EXPECT_EQ(NASTRAN_output(path.c_str(), pos, dense2D<unsigned>(), dense2D<unsigned>(4, 0),
                             EL_TRIA3, EL_QUAD4),
              0);
    EXPECT_FALSE(file_exists(path));
    EXPECT_EQ(FEMAP_output(MESHUTIL_TEST_OUTPUT_DIR "/no/such/dir", pos4, tri2, EL_TRIA3), -1);
    EXPECT_EQ(WavefrontOBJ_output(MESHUTIL_TEST_OUTPUT_DIR "/no/such/dir", pos4, tri2, EL_TRIA3),
              -1);
    EXPECT_EQ(medit_output(MESHUTIL_TEST_OUTPUT_DIR "/no/such/dir", pos4, tri2, EL_TRIA3), -1);
    ASSERT_EQ(ensight_output(path.c_str(), pos4, columns(2, {{0, 99}}), EL_EDGE2), 0);
    EXPECT_NE(read_file(path).find("bar2\n       1\n       1       1     100\n"),
              std::string::npos);
}

TEST(writers, matrix_forms_references_and_planar_coordinates)
{
    const std::string path = out_path("writer_forms");
    const char* p = path.c_str();
    // medit: per-element references group columns by reference (undefined ones last), the one-
    // and two-matrix forms number references from zero, pyramids as collapsed hexahedra.
    const std::string vertices = "MeshVersionFormatted 1\nDimension 2\n"
                                 "# Mesh format for MEDIT, generated by QX7 MeshUtil(TM).\n\n"
                                 "Vertices\n5\n"
                                 "0.000000E+00 0.000000E+00 0 \n1.000000E+00 0.000000E+00 0 \n"
                                 "1.000000E+00 1.000000E+00 0 \n0.000000E+00 1.000000E+00 0 \n"
                                 "5.000000E-01 5.000000E-01 0 \n\n";
    const dense2D<unsigned> tri =
        columns(3, {{0, 1, 4}, {1, 2, 4}, {2, 3, 4}, {3, 0, 4}, {0, 2, 1}});
    ASSERT_EQ(medit_output(p, square2d(), tri, EL_TRIA3, list({2, U, 0, 2, 1})), 0);
    EXPECT_EQ(read_file(path),
              vertices + "Triangles\n4\n3 4 5 0 \n1 3 2 1 \n1 2 5 2 \n4 1 5 2 \n\nEnd\n");
    const dense2D<unsigned> pyr = iota_column(5);
    ASSERT_EQ(medit_output(p, square2d(), pyr, columns(4, {{0, 1, 2, 3}}), EL_PYRAM5, EL_QUAD4), 0);
    EXPECT_EQ(read_file(path), vertices + "Quadrilaterals\n1\n1 2 3 4 1 \n\n" +
                                   "Hexahedra\n1\n1 2 3 4 5 5 5 5 0 \n\nEnd\n");
    ASSERT_EQ(medit_output(p, square2d(), dense2D<unsigned>(), EL_TRIA3), 0);
    EXPECT_EQ(read_file(path), vertices + "End\n");

    // NASTRAN: planar nodes, one group with property 1; an 8-row matrix of a triangle group and
    // a mixed solid group; two matrices with identifiers running on, an empty one forming no group.
    dense2D<double> planar(2, 3, 0.0);
    planar(0, 1) = 1.0, planar(1, 2) = 12345.5;
    ASSERT_EQ(NASTRAN_output(p, planar, columns(3, {{0, 1, 2}}), EL_TRIA3), 0);
    const std::string deck = read_file(path);
    EXPECT_NE(
        deck.find("GRID*                  3                    0.000000E+00    1.234550E+04*C\n"
                  "*C          0.000000E+00\n"),
        std::string::npos);
    EXPECT_EQ(element_cards(deck), "CTRIA3,1,1,1,2,3\nENDDATA\n");
    const dense2D<unsigned> M = columns(
        8,
        {{4, 5, 6}, {0, 1, 2, 3}, {0, 1, 2, 3, 4}, {0, 1, 2, 3, 4, 5}, {0, 1, 2, 3, 4, 5, 6, 7}});
    ASSERT_EQ(NASTRAN_output(p, grid27(), M, list({0, 1, 5}), type_list({EL_TRIA3, EL_SOLID_MIX}),
                             list({7, 8, 9, 10, 11})),
              0);
    EXPECT_EQ(element_cards(read_file(path)), "CTRIA3,1,7,5,6,7\nCTETRA,2,8,1,3,2,4\n"
                                              "CPYRAM,3,9,1,2,3,4,5\nCPENTA,4,10,1,2,3,4,5,6\n"
                                              "CHEXA,5,11,1,2,3,4,5,6,+C\n+C,7,8\nENDDATA\n");
    ASSERT_EQ(NASTRAN_output(p, grid27(), columns(3, {{0, 1, 2}, {2, 3, 4}}),
                             columns(4, {{0, 1, 2, 3}}), EL_TRIA3, EL_QUAD4),
              0);
    EXPECT_EQ(element_cards(read_file(path)),
              "CTRIA3,1,1,1,2,3\nCTRIA3,2,1,3,4,5\nCQUAD4,3,2,1,2,3,4\nENDDATA\n");
    ASSERT_EQ(NASTRAN_output(p, grid27(), dense2D<unsigned>(), columns(4, {{0, 1, 2, 3}}), EL_HEXA8,
                             EL_QUAD4),
              0);
    EXPECT_EQ(element_cards(read_file(path)), "CQUAD4,1,2,1,2,3,4\nENDDATA\n");

    // EnSight: a 1-row coordinate matrix, y and z written as 0; the two-matrix form numbers
    // parts from 1.
    const std::string ensight_head = "EnSight Mesh File.\nGenerated by QX7 MeshUtil (TM).\n"
                                     "node id given\nelement id given\ncoordinates\n";
    ASSERT_EQ(ensight_output(p, dense2D<double>(1, 1, -2.0), dense2D<unsigned>(), EL_EDGE2), 0);
    EXPECT_EQ(read_file(path),
              ensight_head + "       1\n       1-2.00000e+00 0.00000e+00 0.00000e+00\n");
    ASSERT_EQ(ensight_output(p, dense2D<double>(1, 4, 0.0), columns(3, {{0, 1, 2}}),
                             columns(4, {{0, 1, 2, 3}}), EL_TRIA3, EL_QUAD4),
              0);
    EXPECT_NE(read_file(path).find("part        2\n*************\nquad4\n"), std::string::npos);

    // VTK: planar points get a zero third coordinate.
    ASSERT_EQ(vtk_output(p, columns<double>(2, {0, 0, 1, 0, 0, -2.5e-7}), columns(3, {{0, 1, 2}}),
                         EL_TRIA3),
              0);
    EXPECT_EQ(read_file(path), "# vtk DataFile Version 2.0\nGenerated by QX7 MeshUtil(TM).\n"
                               "ASCII\nDATASET UNSTRUCTURED_GRID\n\nPOINTS 3 double\n"
                               "0.000000 0.000000 0.000000\n1.000000 0.000000 0.000000\n"
                               "0.000000 -0.000000 0.000000\n\nCELLS 1 4\n3 0 1 2 \n\n"
                               "CELL_TYPES 1\n5\n");
}

TEST(writers, medit_solution_files_match_their_layout)
{
    const std::string path = out_path("medit.bb");
    const char* p = path.c_str();
    dense1D<double> values;
    for (int k = 0; k < 16; ++k)
        values.push_back(k * 0.5);
    const std::string line1 = "0.000000E+00 5.000000E-01 1.000000E+00 1.500000E+00 2.000000E+00 "
                              "2.500000E+00 3.000000E+00 3.500000E+00 \n";
    const std::string line2 = "4.000000E+00 4.500000E+00 5.000000E+00 5.500000E+00 6.000000E+00 "
                              "6.500000E+00 7.000000E+00 7.500000E+00 \n";
    ASSERT_EQ(medit_scalar(p, 3, values), 0);
    EXPECT_EQ(read_file(path), "3 1 16 2\n" + line1 + line2 + "\n");
    values.resize(10);
    ASSERT_EQ(medit_scalar(p, 2, values), 0);
    EXPECT_EQ(read_file(path), "2 1 10 2\n" + line1 + "4.000000E+00 4.500000E+00 \n");
    ASSERT_EQ(medit_scalar(p, 2, dense1D<double>()), 0);
    EXPECT_EQ(read_file(path), "2 1 0 2\n\n");
    const dense2D<double> vec = columns<double>(2, {1.0, -2.0, 1e-310, 65536.0});
    ASSERT_EQ(medit_vector(p, 7, vec), 0);
    EXPECT_EQ(read_file(path),
              "7 2 2 2\n1.000000E+00 -2.000000E+00 \n1.000000E-310 6.553600E+04 \n");
    const dense2D<double> plane = columns<double>(3, {4.0, 0.0, 0.25});
    ASSERT_EQ(medit_tensor(p, plane), 0);
    EXPECT_EQ(read_file(path), "2 3 1 2\n4.000000E+00 0.000000E+00 2.500000E-01 \n");
    ASSERT_EQ(medit_tensor(p, columns<double>(6, {0, 1, 2, 3, 4, 5})), 0);
    EXPECT_EQ(read_file(path), "3 6 1 2\n0.000000E+00 1.000000E+00 2.000000E+00 3.000000E+00 "
                               "4.000000E+00 5.000000E+00 \n");
    // A tensor field of 4 rows is refused after the file is created: it is left empty.
    EXPECT_EQ(medit_tensor(p, dense2D<double>(4, 1, 0.0)), -2);
    EXPECT_EQ(read_file(path), "");
    const char* bad = MESHUTIL_TEST_OUTPUT_DIR "/no/such/dir.bb";
    EXPECT_EQ(medit_scalar(bad, 2, values), -1);
    EXPECT_EQ(medit_vector(bad, 2, vec), -1);
    EXPECT_EQ(medit_tensor(bad, plane), -1);
}

TEST(writers, vtk_convert_and_stream_form)
{
    unsigned nbr_cells = 0;
    dense1D<unsigned> cells, types;
    ASSERT_EQ(vtk_convert(columns(4, {{0, 1, 2, 3}}), EL_TETRA4, nbr_cells, cells, types), 0);
    // A quadratic triangle appends its triangle and a poly-vertex of its mid-edge nodes; a 3-row
    // EL_FACE_MIX matrix is read as triangles; indices are not bounded.
    ASSERT_EQ(vtk_convert(iota_column(6), EL_TRIA6, nbr_cells, cells, types), 0);
    ASSERT_EQ(vtk_convert(columns(3, {{7, U, 9}}), EL_FACE_MIX, nbr_cells, cells, types), 0);
    EXPECT_EQ(nbr_cells, 4u);
    EXPECT_EQ(std_of(cells),
              (std::vector<unsigned>{4, 0, 1, 3, 2, 3, 0, 1, 2, 3, 3, 4, 5, 3, 7, U, 9}));
    EXPECT_EQ(std_of(types), (std::vector<unsigned>{10, 5, 2, 5}));
    // Failures leave the lists as they were.
    const std::tuple<dense2D<unsigned>, element_type, int> cases[] = {
        {iota_column(4), EL_TRIA3, -1},          // wrong row count
        {columns(1, {{0}}), EL_NODE, -2},        // no VTK cell
        {columns(2, {{0, 1}}), EL_EDGE_MIX, -2}, //
        {columns(4, {{0, 1, 2, 3}}), EL_FACE_MIX, -2},
        {iota_column(8), EL_SOLID_MIX, -2},
        {dense2D<unsigned>(), EL_TRIA3, -1}, // no rows: fewer than the base nodes
    };
    for (const auto& [M, t, code] : cases)
        EXPECT_EQ(vtk_convert(M, t, nbr_cells, cells, types), code);
    EXPECT_EQ(nbr_cells, 4u);
    EXPECT_EQ(cells.size(), 17u);
    EXPECT_EQ(types.size(), 4u);

    // The stream form checks its stream and rows, and stops at the end of the cell list: two
    // cells announced, the second one's count runs past the list.
    dense2D<double> pos(3, 1, 0.0);
    cells.clear(), types.clear();
    EXPECT_EQ(vtk_output(static_cast<FILE*>(nullptr), pos, 0, cells, types), -1);
    const std::string path = out_path("vtk_stream.vtk");
    FILE* f = std::fopen(path.c_str(), "w");
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(vtk_output(f, dense2D<double>(1, 1, 0.0), 0, cells, types), -2);
    for (unsigned v : {1u, 0u, 5u, 0u})
        cells.push_back(v);
    types.push_back(1);
    EXPECT_EQ(vtk_output(f, pos, 2, cells, types), 0);
    std::fclose(f);
    EXPECT_EQ(read_file(path), "# vtk DataFile Version 2.0\nGenerated by QX7 MeshUtil(TM).\n"
                               "ASCII\nDATASET UNSTRUCTURED_GRID\n\nPOINTS 1 double\n"
                               "0.000000 0.000000 0.000000\n\nCELLS 2 4\n1 0 \n5 0 \n\n"
                               "CELL_TYPES 1\n1\n");
}
