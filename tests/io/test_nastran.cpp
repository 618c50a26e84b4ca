// NASTRAN bulk data: golden file, card continuations, groups, check ladder.
#include "io/io_test_util.h"

#include <gtest/gtest.h>
#include <meshutil/io.h>

using namespace qx7::meshutil;
using namespace io_test;

static const char elements_banner[] = "$----------------------------------------\n"
                                      "$                 ELEMENTS               \n"
                                      "$----------------------------------------\n";

/// The element cards of a deck: what follows the elements banner.
static std::string element_cards(const std::string& deck)
{
    std::size_t at = deck.find(elements_banner);
    return at == std::string::npos ? "<no banner>" : deck.substr(at + sizeof elements_banner - 1);
}

static dense1D<unsigned> list(std::initializer_list<unsigned> v)
{
    dense1D<unsigned> d;
    for (unsigned x : v)
        d.push_back(x);
    return d;
}

TEST(nastran, every_element_type_matches_golden_file)
{
    // One 27-row matrix, one group per type (one face group of mixed columns, an EL_EDGE_MIX
    // group that writes nothing but keeps its identifier, an empty EL_UNKNOWN group last).
    const element_type order[] = {EL_EDGE2,  EL_EDGE_MIX, EL_TRIA3,    EL_QUAD4,   EL_TRIA6,
                                  EL_QUAD8,  EL_QUAD9,    EL_FACE_MIX, EL_TETRA4,  EL_TETRA10,
                                  EL_PYRAM5, EL_PYRAM14,  EL_PENTA6,   EL_PENTA18, EL_HEXA8,
                                  EL_HEXA20, EL_HEXA27,   EL_EDGE3,    EL_UNKNOWN};
    dense2D<unsigned> M(27, 0);
    dense1D<unsigned> first, PIDs;
    dense1D<int> types;
    for (element_type t : order)
    {
        first.push_back(unsigned(M.cols()));
        types.push_back(int(t));
        if (t == EL_UNKNOWN) continue;
        for (int c = 0; c < (t == EL_FACE_MIX ? 2 : 1); ++c)
        {
            const std::size_t j = M.cols();
            M.resize(27, j + 1, U);
            const unsigned n = t == EL_FACE_MIX ? 3 + c : nbr_nodes(t);
            for (unsigned i = 0; i < n; ++i)
                M(i, j) = i;
            PIDs.push_back(unsigned(100 + j));
        }
    }
    first.push_back(unsigned(M.cols()));
    const std::string path = out_path("nastran_all_types.nas");
    ASSERT_EQ(NASTRAN_output(path.c_str(), grid27(), M, first, types, PIDs), 0);
    EXPECT_EQ(read_file(path), golden("nastran_all_types.nas"));
}

TEST(nastran, single_triangle_on_planar_nodes)
{
    dense2D<double> pos(2, 3, 0.0);
    pos(0, 1) = 1.0, pos(1, 2) = 12345.5;
    const std::string path = out_path("nastran_tria.nas");
    ASSERT_EQ(NASTRAN_output(path.c_str(), pos, columns(3, {{0, 1, 2}}), EL_TRIA3), 0);
    EXPECT_EQ(read_file(path),
              "$ QX7 MeshUtil(R) NASTRAN exporter\nBEGIN BULK\n"
              "$----------------------------------------\n"
              "$ Referenced Material Records -----------\n"
              "$ Material Record :    ------------------\n"
              "$ Description of Material :   -----------\n"
              "MAT1    1       0.                 0.  0.\n"
              "$----------------------------------------\n"
              "$                GRID POINTS             \n"
              "$----------------------------------------\n"
              "GRID*                  1                    0.000000E+00    0.000000E+00*C\n"
              "*C          0.000000E+00\n"
              "GRID*                  2                    1.000000E+00    0.000000E+00*C\n"
              "*C          0.000000E+00\n"
              "GRID*                  3                    0.000000E+00    1.234550E+04*C\n"
              "*C          0.000000E+00\n" +
                  std::string(elements_banner) + "CTRIA3,1,1,1,2,3\nENDDATA\n");
}

TEST(nastran, mixed_solid_groups_two_matrices_and_identifiers)
{
    const dense2D<double> pos = grid27();
    // 8 rows: a triangle group (first 3 rows), then a mixed solid group.
    const dense2D<unsigned> M = columns(
        8,
        {{4, 5, 6}, {0, 1, 2, 3}, {0, 1, 2, 3, 4}, {0, 1, 2, 3, 4, 5}, {0, 1, 2, 3, 4, 5, 6, 7}});
    dense1D<int> types;
    types.push_back(int(EL_TRIA3));
    types.push_back(int(EL_SOLID_MIX));
    const std::string path = out_path("nastran_mix.nas");
    ASSERT_EQ(NASTRAN_output(path.c_str(), pos, M, list({0, 1, 5}), types, list({7, 8, 9, 10, 11})),
              0);
    EXPECT_EQ(element_cards(read_file(path)), "CTRIA3,1,7,5,6,7\n"
                                              "CTETRA,2,8,1,3,2,4\n"
                                              "CPYRAM,3,9,1,2,3,4,5\n"
                                              "CPENTA,4,10,1,2,3,4,5,6\n"
                                              "CHEXA,5,11,1,2,3,4,5,6,+C\n+C,7,8\n"
                                              "ENDDATA\n");

    // Two matrices: identifiers run on over both, properties 1 and 2; an empty one forms no
    // group whatever its type.
    ASSERT_EQ(NASTRAN_output(path.c_str(), pos, columns(3, {{0, 1, 2}, {2, 3, 4}}),
                             columns(4, {{0, 1, 2, 3}}), EL_TRIA3, EL_QUAD4),
              0);
    EXPECT_EQ(element_cards(read_file(path)),
              "CTRIA3,1,1,1,2,3\nCTRIA3,2,1,3,4,5\nCQUAD4,3,2,1,2,3,4\nENDDATA\n");
    ASSERT_EQ(NASTRAN_output(path.c_str(), pos, dense2D<unsigned>(), columns(4, {{0, 1, 2, 3}}),
                             EL_HEXA8, EL_QUAD4),
              0);
    EXPECT_EQ(element_cards(read_file(path)), "CQUAD4,1,2,1,2,3,4\nENDDATA\n");
    out_path("nastran_mix.nas");
    EXPECT_EQ(NASTRAN_output(path.c_str(), pos, dense2D<unsigned>(), dense2D<unsigned>(4, 0),
                             EL_TRIA3, EL_QUAD4),
              0);
    EXPECT_FALSE(file_exists(path));
}

TEST(nastran, failed_checks_leave_an_empty_file)
{
    const dense2D<double> pos(3, 4, 0.0);
    const dense2D<unsigned> tri = columns(3, {{0, 1, 2}, {1, 2, 3}});
    const dense2D<unsigned> nine(9, 1, 0u);
    dense1D<int> tri_type(1, int(EL_TRIA3)), face(1, int(EL_FACE_MIX)), solid(1, int(EL_SOLID_MIX));
    const dense1D<unsigned> all2 = list({0, 2}), pids2 = list({1, 1});
    const std::string path = MESHUTIL_TEST_OUTPUT_DIR "/nastran_fail.nas";
    const char* p = path.c_str();
    const struct
    {
        int code;
        int result;
    } cases[] = {
        {-2, NASTRAN_output(out_path("nastran_fail.nas").c_str(), dense2D<double>(1, 4, 0.0), tri,
                            EL_TRIA3)},
        {-5, (out_path("nastran_fail.nas"),
              NASTRAN_output(p, pos, tri, list({0, 1, 2}), tri_type, pids2))},
        {-6,
         (out_path("nastran_fail.nas"), NASTRAN_output(p, pos, tri, all2, tri_type, list({1})))},
        {-4, (out_path("nastran_fail.nas"),
              NASTRAN_output(p, pos, tri, list({0, 3}), tri_type, pids2))},
        {-4, (out_path("nastran_fail.nas"),
              NASTRAN_output(p, pos, tri, list({2, 1}), tri_type, pids2))},
        {-3, (out_path("nastran_fail.nas"), NASTRAN_output(p, pos, tri, all2, face, pids2))},
        {-3, (out_path("nastran_fail.nas"),
              NASTRAN_output(p, pos, nine, list({0, 1}), solid, list({1})))},
        {-3, (out_path("nastran_fail.nas"), NASTRAN_output(p, pos, tri, EL_QUAD4))},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.result, c.code);
    EXPECT_EQ(read_file(path), "");
    // Only an empty connectivity creates no file; a bad path gives -1.
    out_path("nastran_fail.nas");
    EXPECT_EQ(NASTRAN_output(p, dense2D<double>(1, 4, 0.0), dense2D<unsigned>(3, 0), EL_TRIA3), 0);
    EXPECT_FALSE(file_exists(path));
    EXPECT_EQ(NASTRAN_output(MESHUTIL_TEST_OUTPUT_DIR "/no/such/dir.nas", pos, tri, EL_TRIA3), -1);
}
