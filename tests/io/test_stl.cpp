// STL files: the writers against hand-made bytes, the number formatting and scanning against
// printf and sscanf, the text and binary corner readers, and the welding of corners into nodes.
#include "io/io_test_util.h"
#include "io/stl_private.h"

#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <meshutil/editing.h>
#include <meshutil/io.h>
#include <random>
#include <sstream>
#include <tuple>

using namespace qx7::meshutil;
using namespace io_test;

namespace
{

constexpr std::uint32_t one = 0x3f800000; // 1.0f

/// Little-endian bytes of a 32-bit word.
std::string le32(std::uint32_t w)
{
    std::string s(4, '\0');
    for (int k = 0; k < 4; ++k)
        s[k] = char((w >> (8 * k)) & 0xff);
    return s;
}

/// Binary STL bytes: 80-byte header (header text padded with zeros), the count word, then the
/// records given as 12 float bit patterns each (attribute 0).
std::string binary_file(const std::string& header, std::uint32_t count,
                        const std::vector<std::vector<std::uint32_t>>& records)
{
    std::string s = header;
    s.resize(80, '\0');
    s += le32(count);
    for (const auto& r : records)
    {
        for (std::uint32_t w : r)
            s += le32(w);
        s += std::string(2, '\0');
    }
    return s;
}

/// Text STL facet with the given corners (normal 0 0 1).
std::string text_facet(const double (&P)[3][3])
{
    char buf[512];
    std::snprintf(
        buf, sizeof buf,
        " facet normal 0 0 1\n  outer loop\n   vertex %.17g %.17g %.17g\n"
        "   vertex %.17g %.17g %.17g\n   vertex %.17g %.17g %.17g\n  endloop\n endfacet\n",
        P[0][0], P[0][1], P[0][2], P[1][0], P[1][1], P[1][2], P[2][0], P[2][1], P[2][2]);
    return buf;
}

const std::string unit_facet = text_facet({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});

/// Reads the corner soup of a text or binary STL file through the internal parsers.
int read_soup(const std::string& path, bool binary, dense2D<double>& pos)
{
    pos.clear();
    std::FILE* f = std::fopen(path.c_str(), binary ? "rb" : "rt");
    if (!f) return 1;
    int r = binary ? detail::stl_read_binary(f, pos) : detail::stl_read_text(f, pos);
    std::fclose(f);
    return r;
}

/// STL_input with outputs that hold junk before the call.
int read_stl(const std::string& path, dense2D<double>& pos, dense2D<unsigned>& connectM)
{
    pos.resize(2, 5, 1.0);
    connectM.resize(4, 2, 7u);
    return STL_input(path.c_str(), pos, connectM);
}

// Unit cube, twelve triangles, outward; node k at (k & 1, (k >> 1) & 1, (k >> 2) & 1).
const unsigned cube_triangles[] = {0, 2, 1, 1, 2, 3, 4, 5, 6, 5, 7, 6, 0, 1, 4, 1, 5, 4,
                                   2, 6, 3, 3, 6, 7, 0, 4, 2, 2, 4, 6, 1, 3, 5, 3, 7, 5};

dense2D<double> cube_pos()
{
    dense2D<double> pos(3, 8);
    for (unsigned k = 0; k < 8; ++k)
        pos(0, k) = k & 1, pos(1, k) = (k >> 1) & 1, pos(2, k) = (k >> 2) & 1;
    return pos;
}

dense2D<unsigned> cube_connectivity()
{
    dense2D<unsigned> M(3, 12);
    std::memcpy(M.data(), cube_triangles, sizeof cube_triangles);
    return M;
}

/// A binary file of the first nbr_tri triangles of the cube (zero normals), made by hand.
std::string cube_binary(const std::string& header, unsigned nbr_tri = 12)
{
    std::vector<std::vector<std::uint32_t>> records;
    for (unsigned t = 0; t < nbr_tri; ++t)
    {
        std::vector<std::uint32_t> r(3, 0);
        for (int k = 0; k < 3; ++k)
            for (int i = 0; i < 3; ++i)
                r.push_back((cube_triangles[3 * t + k] >> i) & 1 ? one : 0);
        records.push_back(r);
    }
    return binary_file(header, nbr_tri, records);
}

} // namespace

// ------------------------------------------------------------------------------------ writer

TEST(stl, writers_match_hand_made_files)
{
    // Text: two unit triangles, a degenerate one (zero normal), one whose coordinates round in
    // the last printed digit.
    const double nodes[7][3] = {{0, 0, 0},
                                {1, 0, 0},
                                {0, 1, 0},
                                {0, 0, 2},
                                {1234.5678, -0.000123456789, 7},
                                {1235.5678, -0.000123456789, 7},
                                {1234.5678, 1.25, 7}};
    dense2D<double> pos(3, 7);
    std::memcpy(pos.data(), nodes, sizeof nodes);
    std::string path = out_path("stl_golden_text.stl");
    ASSERT_EQ(STL_output(path.c_str(), pos,
                         columns(3, {{0, 1, 2}, {0, 3, 1}, {1, 1, 2}, {4, 5, 6}}), true),
              0);
    EXPECT_EQ(read_file(path),
              read_file(std::string(MESHUTIL_TEST_DATA_DIR) + "/stl/golden_text.stl"));
    // Binary, 2-row coordinates: the third component is written as 0.
    path = out_path("stl_golden.stlb");
    ASSERT_EQ(STL_output(path.c_str(), columns<double>(2, {0, 0, 1, 0, 0, 1, 2, 0.5}),
                         columns(3, {{0, 1, 2}, {1, 0, 3}}), false),
              0);
    const std::uint32_t minus_one = 0xbf800000, two = 0x40000000, half = 0x3f000000;
    EXPECT_EQ(read_file(path), binary_file("QX7 STL Binary", 2,
                                           {{0, 0, one, 0, 0, 0, one, 0, 0, 0, one, 0},
                                            {0, 0, minus_one, one, 0, 0, 0, 0, 0, two, half, 0}}));
}

TEST(stl, writer_checks_and_failures)
{
    const std::string path = write_file("checks.stl", "");
    const dense2D<double> pos(3, 7, 0.0);
    const dense2D<unsigned> tri = columns(3, {{0, 1, 2}});
    struct Case
    {
        const char* what;
        std::string file;
        dense2D<double> pos;
        dense2D<unsigned> connectM;
        int expected;
    } cases[] = {
        {"unopenable", out_path("no_such_dir/x.stl"), pos, tri, -1},
        {"one row", path, dense2D<double>(1, 3, 0.0), tri, -2},
        {"four rows", path, dense2D<double>(4, 3, 0.0), tri, -2},
        {"index = nbr_nodes", path, pos, columns(3, {{0, 1, 7}}), -3},
        {"undefined index", path, pos, columns(3, {{0, U, 2}}), -3},
        {"four-row connectivity", path, pos, dense2D<unsigned>(4, 1, 0u), -3},
        {"full device", "/dev/full", pos, tri, -1},
    };
    for (const Case& c : cases)
        for (bool text : {true, false})
        {
            write_file("checks.stl", "old content");
            EXPECT_EQ(STL_output(c.file.c_str(), c.pos, c.connectM, text), c.expected)
                << c.what << (text ? " text" : " binary");
            if (c.file == path)
            {
                EXPECT_EQ(read_file(path), "") << c.what; // opened before the checks
            }
        }
    EXPECT_EQ(STL_output(nullptr, pos, tri, true), -1);
    // An empty mesh is a valid empty solid.
    ASSERT_EQ(STL_output(path.c_str(), dense2D<double>(3, 0), dense2D<unsigned>(3, 0), true), 0);
    EXPECT_EQ(read_file(path), "solid QX7\nendsolid QX7\n");
    ASSERT_EQ(STL_output(path.c_str(), dense2D<double>(3, 0), dense2D<unsigned>(), false), 0);
    EXPECT_EQ(read_file(path), binary_file("QX7 STL Binary", 0, {}));
}

// ------------------------------------------------------------------------------------ parsing

TEST(stl, number_scanner_agrees_with_sscanf)
{
    // Lines made of the scanner's literals, spaces and number-like tokens (plain decimals of every
    // size, exponents, signs, and the forms only sscanf handles), compared bit for bit.
    std::mt19937_64 gen(11);
    std::vector<std::string> odd;
    std::istringstream odd_list("nan inf -infinity 0x1.8p3 1e 1e+ . - +.5 5. 1e400 1e-400 1.5. 1-2 "
                                "00012 -0 -0.0 4.9e-324 1e22 1e23 9007199254740993 "
                                "12345678901234567890 0.30000000000000004 1,5 2e+0005 7e-22");
    for (std::string t; odd_list >> t;)
        odd.push_back(t);
    auto token = [&]() -> std::string
    {
        char buf[64];
        switch (gen() % 5)
        {
        case 0:
            return odd[gen() % odd.size()];
        case 1:
        {
            double x = std::ldexp(double(gen() >> 11), int(gen() % 200) - 150);
            std::snprintf(buf, sizeof buf, "%.*e", int(gen() % 20), gen() % 2 ? -x : x);
            return buf;
        }
        case 2:
            std::snprintf(buf, sizeof buf, "%.*f", int(gen() % 12),
                          double(std::int64_t(gen() % 2000001) - 1000000) / 1000.0);
            return buf;
        case 3:
            std::snprintf(buf, sizeof buf, "%.*g", int(gen() % 18 + 1),
                          std::ldexp(double(gen() >> 11), -int(gen() % 80)));
            return buf;
        default:
            return std::to_string(std::int64_t(gen() % 100000) - 50000);
        }
    };
    const char* spaces[] = {" ", "  ", "\t", "", " \r", "\v"};
    int fast_lines = 0;
    for (int round = 0; round < 50000; ++round)
    {
        const bool facet = gen() % 2;
        std::string line = spaces[gen() % 6];
        line += facet ? (gen() % 8 ? "facet normal" : "facetnormal") : "vertex";
        for (int i = 0; i < 3; ++i)
            line += std::string(spaces[gen() % 5]) + token();
        line += gen() % 2 ? "\n" : " trailing";
        double got[3] = {-1, -1, -1}, expected[3] = {-1, -1, -1};
        const bool ok = detail::stl_scan_triple(line.c_str(), facet, got);
        const bool expected_ok =
            std::sscanf(line.c_str(),
                        facet ? " facet normal %lg %lg %lg\n" : " vertex %lg %lg %lg\n",
                        &expected[0], &expected[1], &expected[2]) == 3;
        ASSERT_EQ(ok, expected_ok) << line;
        if (ok)
        {
            ++fast_lines;
            ASSERT_EQ(std::memcmp(got, expected, sizeof got), 0) << line;
        }
    }
    EXPECT_GT(fast_lines, 5000);
}

TEST(stl, text_soup_cases)
{
    const std::string& facet = unit_facet;
    const std::tuple<const char*, std::string, int, std::size_t> cases[] = {
        {"empty file", "", -2, 0},
        {"no solid", "object\n" + facet + "endsolid\n", -2, 0},
        {"solid anywhere in line 1", "my solid part\n" + facet + "endsolid\n", 0, 3},
        {"no endsolid", "solid\n" + facet, -3, 3},
        {"empty solid", "solid\nendsolid\n", 0, 0},
        {"text after endsolid", "solid\n" + facet + "endsolid\ngarbage\n" + facet, 0, 3},
        {"two solids",
         "solid a\n" + facet + "endsolid a\nsolid b\n" + facet + facet + "endsolid b\n", 0, 9},
        {"endsolid counts as a next solid", "solid\n" + facet + "endsolid\nendsolid\n", -3, 3},
        {"missing outer loop", "solid\n facet normal 0 0 1\n vertex 0 0 0\n", -3, 0},
        {"two numbers", "solid\n facet normal 0 0 1\nouter loop\n vertex 0 0\n", -3, 0},
        {"missing endloop",
         "solid\n facet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 0 0\nvertex 0 1 "
         "0\nendfacet\n",
         -3, 3},
        {"glued keywords",
         "solid\nfacetnormal 0 0 1\nouter loop\nvertex0 0 0\nvertex 1 0 "
         "0\nvertex 0 1 0\nendloop\nendfacet\nendsolid",
         0, 3},
        {"no final newline", "solid\n" + facet + "endsolid", 0, 3},
        {"NUL cuts a line", std::string("solid\0x\n", 8) + facet + std::string("endsol\0id\n", 10),
         -3, 3},
        {"long line splits", "solid " + std::string(300, 'x') + "\n" + facet + "endsolid\n", -3, 0},
        {"255-byte line", "solid" + std::string(250, ' ') + "\n" + facet + "endsolid\n", -3, 0},
        {"254-byte line", "solid" + std::string(249, ' ') + "\n" + facet + "endsolid\n", 0, 3},
    };
    for (const auto& [what, text, code, corners] : cases)
    {
        dense2D<double> pos;
        EXPECT_EQ(read_soup(write_file("soup.stl", text), false, pos), code) << what;
        EXPECT_EQ(pos.cols(), corners) << what;
    }
}

TEST(stl, binary_soup_cases)
{
    const std::vector<std::uint32_t> rec = {0, 0, one, 0, 0, 0, one, 0, 0, 0, one, 0};
    const std::string two = binary_file("", 2, {rec, rec});
    const std::tuple<const char*, std::string, int, std::size_t> cases[] = {
        {"empty", "", -2, 0},
        {"short header", std::string(79, 'a'), -2, 0},
        {"no count", std::string(80, 'a'), -3, 0},
        {"short count", std::string(83, 'a'), -3, 0},
        {"no triangle", binary_file("", 0, {}), 0, 0},
        {"two triangles", two, 0, 6},
        {"trailing bytes ignored", two + "tail", 0, 6},
        {"one byte short", two.substr(0, two.size() - 1), -3, 0},
        {"count beyond data", binary_file("", 3, {rec, rec}), -3, 0},
        {"count 2^31 - 1 in a tiny file", binary_file("", 0x7fffffff, {rec}), -3, 0},
        {"count 2^31 reads as negative", binary_file("", 0x80000000u, {rec}), 0, 0},
        {"count 2^32 - 1 reads as negative", binary_file("", 0xffffffffu, {rec}), 0, 0},
    };
    for (const auto& [what, bytes, expected, corners] : cases)
    {
        dense2D<double> pos;
        const int code = read_soup(write_file("soup.stlb", bytes), true, pos);
        EXPECT_EQ(code, expected) << what;
        if (code == 0)
        {
            EXPECT_EQ(pos.cols(), corners) << what;
        }
    }
    // Through a pipe the size is unknown: the records are read as they come.
    std::FILE* pipe = popen(("cat " + write_file("pipe.stlb", two)).c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    dense2D<double> pos;
    EXPECT_EQ(detail::stl_read_binary(pipe, pos), 0);
    pclose(pipe);
    ASSERT_EQ(pos.cols(), 6u);
    EXPECT_EQ(pos(0, 1), 1.0);
    EXPECT_EQ(pos(1, 2), 1.0);
}

TEST(stl, triangle_heights_against_projection)
{
    // Random triangles: distance from each corner to the foot of its projection on the line
    // through the other two, in long double.
    std::mt19937_64 gen(5);
    std::uniform_real_distribution<double> u(-10, 10);
    for (int round = 0; round < 1000; ++round)
    {
        double P[3][3];
        for (auto& p : P)
            for (double& x : p)
                x = u(gen);
        long double best = -1;
        for (int i = 0; i < 3; ++i)
        {
            const double *pi = P[i], *pj = P[(i + 1) % 3], *pk = P[(i + 2) % 3];
            long double d[3], e[3], de = 0, ee = 0;
            for (int r = 0; r < 3; ++r)
                d[r] = (long double)pi[r] - pj[r], e[r] = (long double)pk[r] - pj[r],
                de += d[r] * e[r], ee += e[r] * e[r];
            long double h2 = 0;
            for (int r = 0; r < 3; ++r)
            {
                long double x = d[r] - de / ee * e[r];
                h2 += x * x;
            }
            if (best < 0 || h2 < best) best = h2;
        }
        EXPECT_NEAR(detail::stl_triangle_height2(P[0], P[1], P[2]), double(best),
                    1e-9 * double(best));
    }
    // A zero-length edge gives 0 (the division is left out, the cross product vanishes); the
    // smallest positive value over the triangles skips flat ones.
    const double a[3] = {0, 0, 0}, c[3] = {0, 4, 0};
    EXPECT_EQ(detail::stl_triangle_height2(a, a, c), 0.0);
    const dense2D<double> soup = columns<double>(3, {0, 0, 0, 3, 0, 0, 0, 4, 0,   // 2.4^2
                                                     0, 0, 0, 1, 1, 1, 2, 2, 2,   // flat: 0
                                                     5, 5, 5, 6, 5, 5, 5, 6, 5}); // 1/2
    EXPECT_DOUBLE_EQ(detail::stl_smallest_height2(soup), 0.5);
    EXPECT_EQ(detail::stl_smallest_height2(soup.sub_matrix(0, 3, 3, 3)), 0.0);
}

// ------------------------------------------------------------------------------------ reader

TEST(stl, reader_codes_and_fallback)
{
    const std::tuple<const char*, std::string, int, std::size_t> cases[] = {
        {"empty file", "", -2, 0},
        {"short text error: binary header short", "solid\nbad\n", -2, 0},
        {"long text error: binary data truncated", "solid\n" + std::string(100, ' ') + "\nbad\n",
         -3, 0},
        {"empty solid", "solid\nendsolid\n", 0, 0},
        {"binary with a solid header", cube_binary("solid cube"), 0, 12},
        {"binary with a solid header, upper case", cube_binary("SOLID CUBE"), 0, 12},
        {"binary, negative count", binary_file("", 0xfffffff0u, {}), 0, 0},
        {"binary, truncated", cube_binary("x").substr(0, 300), -3, 0},
    };
    dense2D<double> pos;
    dense2D<unsigned> connectM;
    for (const auto& [what, bytes, code, nbr_tri] : cases)
    {
        EXPECT_EQ(read_stl(write_file("codes.stl", bytes), pos, connectM), code) << what;
        if (code == 0)
        {
            EXPECT_EQ(pos.rows(), 3u) << what;
            EXPECT_EQ(connectM.rows(), 3u) << what;
            EXPECT_EQ(connectM.cols(), nbr_tri) << what;
        }
        else
        {
            EXPECT_TRUE(pos.empty() && connectM.empty()) << what;
        }
    }
    EXPECT_EQ(read_stl(out_path("no_such_dir/x.stl"), pos, connectM), -1);
    EXPECT_TRUE(pos.empty() && connectM.empty());
    EXPECT_EQ(STL_input(nullptr, pos, connectM), -1);
}

TEST(stl, truncated_files_fail_cleanly)
{
    // Every prefix of a text and of a binary file: a text prefix reads when it holds the whole
    // "endsolid" keyword; a binary prefix fails unless complete.
    const std::string text = "solid t\n" + unit_facet + "endsolid t\n";
    const std::string binary = cube_binary("QX7", 2);
    for (const std::string* file : {&text, &binary})
        for (std::size_t len = 0; len <= file->size(); ++len)
        {
            const std::string prefix = file->substr(0, len);
            dense2D<double> pos;
            dense2D<unsigned> connectM;
            const int code = read_stl(write_file("prefix.stl", prefix), pos, connectM);
            const bool complete =
                file == &text ? prefix.find("endsolid") != std::string::npos : len == file->size();
            ASSERT_EQ(code, complete ? 0 : len < 80 ? -2 : -3) << len;
            if (code != 0)
            {
                ASSERT_TRUE(pos.empty() && connectM.empty()) << len;
            }
        }
}

TEST(stl, fuzz_seed_corpus_is_generated_current_and_read)
{
    // The seed corpus of the fuzz target: small files made here (the cube as each writer writes
    // it, hand-made binary and text cases), written into the source tree when missing and
    // compared byte for byte otherwise, then read with their expected codes and sizes. The
    // cube reads back with 8 nodes numbered by first corner (0 2 1 3 4 5 6 7) and its 12
    // triangles in file order.
    const std::string dir = std::string(MESHUTIL_TEST_DATA_DIR) + "/../../fuzz/seeds/fuzz_stl/";
    std::string cube_written[2];
    for (bool text : {true, false})
    {
        const std::string scratch = out_path(text ? "stl_seed.stl" : "stl_seed.bin.stl");
        ASSERT_EQ(STL_output(scratch.c_str(), cube_pos(), cube_connectivity(), text), 0);
        cube_written[text] = read_file(scratch);
    }
    const std::string facet = text_facet({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
    std::string upper = "solid A\n" + facet + "endsolid A\nsolid B\n" +
                        text_facet({{1, 0, 0}, {1, 1, 0}, {0, 1, 0}}) + "endsolid B\n";
    for (char& c : upper)
        c = char(std::toupper(static_cast<unsigned char>(c)));
    const std::vector<std::uint32_t> flat = {0, 0, 0, 0, 0, 0, one, 0, 0, one, 0, 0};
    const std::tuple<const char*, std::string, int, std::size_t, std::size_t> seeds[] = {
        {"cube_text.stl", cube_written[1], 0, 8, 12},
        {"cube_binary.stl", cube_written[0], 0, 8, 12},
        {"solid_header_binary.stl", cube_binary("solid binary", 3), 0, 7, 3},
        {"two_solids_upper_case.stl", upper, 0, 4, 2},
        {"odd_values.stl", // no positive height: nothing merged
         "solid\nfacet normal nan 0 0\nouter loop\nvertex inf -1e400 0x1p-3\nvertex 1e-320 2 3\n"
         "vertex -0 1e22 4.5e+07\nendloop\nendfacet\nendsolid\n",
         0, 3, 1},
        {"degenerate_only.stl", binary_file("", 2, {flat, flat}), 0, 6, 2}, // likewise
        {"count_beyond_data.stl", binary_file("", 40, {flat}), -3, 0, 0},
        {"syntax_error.stl", "solid\n" + facet.substr(0, 60) + "endsolid\n", -2, 0, 0}};
    const unsigned renumber[8] = {0, 2, 1, 3, 4, 5, 6, 7};
    for (const auto& [name, bytes, code, nbr_nodes, nbr_tri] : seeds)
    {
        const std::string path = dir + name;
        if (!file_exists(path))
            if (std::FILE* f = std::fopen(path.c_str(), "wb"))
            {
                std::fwrite(bytes.data(), 1, bytes.size(), f);
                std::fclose(f);
            }
        EXPECT_EQ(read_file(path), bytes) << name;
        dense2D<double> pos;
        dense2D<unsigned> connectM;
        EXPECT_EQ(read_stl(path, pos, connectM), code) << name;
        EXPECT_EQ(pos.empty() ? 0 : pos.cols(), nbr_nodes) << name;
        EXPECT_EQ(connectM.empty() ? 0 : connectM.cols(), nbr_tri) << name;
        if (nbr_tri != 12 || pos.cols() != 8) continue;
        for (unsigned k = 0; k < 8; ++k)
            EXPECT_EQ(column(pos, renumber[k]),
                      (std::vector<double>{double(k & 1), double((k >> 1) & 1), double(k >> 2)}));
        for (std::size_t j = 0; j < 36; ++j)
            EXPECT_EQ(connectM.data()[j], renumber[cube_triangles[j]]);
    }
}

// ------------------------------------------------------------------------------------ welding

TEST(stl, tolerance_is_five_percent_of_the_smallest_height)
{
    // Two unit right triangles sharing an edge whose copies are moved by `shift`: the smallest
    // height is sqrt(1/2) (to a hypotenuse), so copies within 0.0353 weld, farther ones do not.
    dense2D<double> pos;
    dense2D<unsigned> connectM;
    for (double shift : {0.0, 0.03, 0.035, 0.036, 0.2})
    {
        const std::string bytes = "solid\n" + unit_facet +
                                  text_facet({{1 + shift, 0, 0}, {1, 1, 0}, {0, 1 - shift, 0}}) +
                                  "endsolid\n";
        ASSERT_EQ(read_stl(write_file("tol.stl", bytes), pos, connectM), 0);
        ASSERT_EQ(connectM.cols(), 2u);
        EXPECT_EQ(pos.cols(), shift < 0.0354 ? 4u : 6u) << shift;
        if (shift < 0.0354)
        {
            // The earlier corner survives with its coordinates.
            EXPECT_EQ(connectM(0, 1), 1u);
            EXPECT_EQ(connectM(2, 1), 2u);
            EXPECT_EQ(pos(0, 1), 1.0);
        }
    }
    // A triangle with a repeated corner disappears with the nodes only it used; a flat triangle
    // with distinct corners stays.
    ASSERT_EQ(
        read_stl(write_file("tol.stl",
                            "solid\n" + unit_facet + text_facet({{5, 5, 5}, {5, 5, 5}, {6, 6, 5}}) +
                                text_facet({{0, 0, 0}, {2, 0, 0}, {1, 0, 0}}) + "endsolid\n"),
                 pos, connectM),
        0);
    EXPECT_EQ(pos.cols(), 4u);
    EXPECT_EQ(all_columns(connectM), all_columns(columns(3, {{0, 1, 2}, {0, 3, 1}})));
}

namespace
{

/// The welding spelled with the public functions, one call per step.
int weld_with_public_calls(dense2D<double>& pos, dense2D<unsigned>& connectM)
{
    const std::size_t nbr_tri = pos.cols() / 3;
    const double h2 = detail::stl_smallest_height2(pos);
    connectM.resize(3, nbr_tri);
    for (std::size_t k = 0; k < 3 * nbr_tri; ++k)
        connectM.data()[k] = unsigned(k);
    if (h2 == 0.0) return 0;
    for (std::size_t j0 = 0; j0 < nbr_tri; j0 += detail::stl_exact_block)
    {
        dense2D<unsigned> block =
            connectM.sub_matrix(0, j0, 3, std::min(detail::stl_exact_block, nbr_tri - j0));
        if (merge(pos, block, 0.0, 0) < 0) return -1;
    }
    if (merge(pos, connectM, 0.05 * std::sqrt(h2), 0) < 0) return -1;
    if (remove_degenerated(connectM, true) < 0) return -1;
    return simplify(pos, connectM, 0u) < 0 ? -1 : 0;
}

/// A closed torus (radii 3 and 1) of 2 nu nv triangles, outward: node (i, k) of the grid is
/// perm[i nv + k] and quadrangle (i, k) gives triangles 2 (i nv + k) and 2 (i nv + k) + 1.
void torus(unsigned nu, unsigned nv, const std::vector<unsigned>& perm, dense2D<double>& pos,
           dense2D<unsigned>& connectM)
{
    const double pi = 3.14159265358979323846;
    pos.resize(3, nu * nv);
    connectM.resize(3, 2 * nu * nv);
    for (unsigned i = 0; i < nu; ++i)
        for (unsigned k = 0; k < nv; ++k)
        {
            const double u = 2 * pi * i / nu, v = 2 * pi * k / nv;
            const unsigned a = perm[i * nv + k], b = perm[((i + 1) % nu) * nv + k];
            const unsigned c = perm[((i + 1) % nu) * nv + (k + 1) % nv];
            const unsigned d = perm[i * nv + (k + 1) % nv];
            pos(0, a) = (3 + std::cos(v)) * std::cos(u);
            pos(1, a) = (3 + std::cos(v)) * std::sin(u);
            pos(2, a) = std::sin(v);
            const unsigned e[6] = {a, b, c, a, c, d};
            for (int r = 0; r < 6; ++r)
                connectM(r % 3, 2 * (i * nv + k) + r / 3) = e[r];
        }
}

/// A random permutation of 0 .. n - 1.
std::vector<unsigned> shuffled(std::size_t n, std::mt19937& gen)
{
    std::vector<unsigned> perm(n);
    std::iota(perm.begin(), perm.end(), 0u);
    std::shuffle(perm.begin(), perm.end(), gen);
    return perm;
}

/// Corner soup of a closed torus of 2 nu nv triangles in shuffled order, so that the copies of
/// a corner fall in different blocks. With `moves`, some corners are moved by a multiple of
/// tol0 (a little under the welding tolerance, or well over it) and some triangles are
/// degenerate (a repeated corner); with `specials`, a few coordinates are signed zeros and a few
/// among the last 2000 triangles NaN (the blocks before them are free of NaN).
dense2D<double> torus_soup(unsigned nu, unsigned nv, bool moves, bool specials, std::mt19937& gen)
{
    dense2D<double> nodes;
    dense2D<unsigned> connectM;
    torus(nu, nv, shuffled(std::size_t(nu) * nv, gen), nodes, connectM);
    const std::vector<unsigned> order = shuffled(connectM.cols(), gen);
    // Heights of these triangles are at least about 0.5 x the smaller grid step.
    const double tol0 = 0.05 * 0.5 * 2 * 3.14159265358979323846 / std::max(nu, nv);
    dense2D<double> pos(3, 3 * connectM.cols());
    for (std::size_t s = 0; s < connectM.cols(); ++s)
    {
        for (unsigned c = 0; c < 3; ++c)
        {
            double* p = pos.col(3 * s + c);
            std::memcpy(p, nodes.col(connectM(c, order[s])), 3 * sizeof(double));
            if (moves && gen() % 40 == 0)
                p[gen() % 3] += std::vector<double>{0.3, -0.9, 2.0, 5.0}[gen() % 4] * tol0;
            if (specials && s + 2000 > connectM.cols() && gen() % 500 == 0)
                p[gen() % 3] = std::nan("");
            if (specials && gen() % 500 == 0) p[gen() % 3] = gen() % 2 ? 0.0 : -0.0;
        }
        if (moves && gen() % 300 == 0)
            std::memcpy(pos.col(3 * s + 1), pos.col(3 * s), 3 * sizeof(double));
    }
    return pos;
}

/// n degenerate triangles (a repeated corner, or three points on a line), then the soup.
dense2D<double> degenerate_first(std::size_t n, const dense2D<double>& soup, std::mt19937& gen)
{
    dense2D<double> pos(3, 3 * n + soup.cols());
    for (std::size_t t = 0; t < n; ++t)
    {
        const double x = double(gen() % 1000), y = double(gen() % 1000);
        const double line[9] = {x, y, 0, x + 1, y, 0, x + (gen() % 2 ? 2 : 1), y, 0};
        std::memcpy(pos.col(3 * t), line, sizeof line);
    }
    if (!soup.empty()) std::memcpy(pos.col(3 * n), soup.data(), 3 * soup.cols() * sizeof(double));
    return pos;
}

/// Same coordinates to the bit, same triangles.
void expect_same_mesh(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                      const dense2D<double>& ref, const dense2D<unsigned>& ref_connectM)
{
    ASSERT_EQ(pos.cols(), ref.cols());
    EXPECT_EQ(std::memcmp(pos.data(), ref.data(), 3 * pos.cols() * sizeof(double)), 0);
    EXPECT_EQ(all_columns(connectM), all_columns(ref_connectM));
}

} // namespace

TEST(stl_weld, same_mesh_as_the_public_merge_steps)
{
    std::mt19937 gen(41);
    struct soup
    {
        unsigned nu, nv;
        bool moves, specials;
    };
    // 105800 triangles span two blocks of the exact pass.
    const soup soups[] = {{20, 13, false, false},
                          {23, 17, true, true},
                          {40, 30, true, false},
                          {230, 230, false, false},
                          {230, 230, true, true}};
    for (const soup& s : soups)
    {
        SCOPED_TRACE(testing::Message() << s.nu << " x " << s.nv << " moves " << s.moves
                                        << " specials " << s.specials);
        dense2D<double> pos = torus_soup(s.nu, s.nv, s.moves, s.specials, gen), ref;
        ref.copy(pos);
        dense2D<unsigned> connectM, ref_connectM;
        ASSERT_EQ(detail::stl_weld(pos, connectM), 0);
        ASSERT_EQ(weld_with_public_calls(ref, ref_connectM), 0);
        expect_same_mesh(pos, connectM, ref, ref_connectM);
        // The plain torus welds to its nu nv nodes; moved corners stay apart or weld.
        if (s.moves)
            EXPECT_GT(pos.cols(), std::size_t(s.nu) * s.nv);
        else
            EXPECT_EQ(pos.cols(), std::size_t(s.nu) * s.nv);
    }
    // Blocks of degenerate triangles before the first positive height (the exact pass waits
    // for one), and a file of degenerate triangles only (the soup, unmerged).
    for (bool tail : {true, false})
    {
        const dense2D<double> torus = torus_soup(40, 30, true, false, gen);
        dense2D<double> pos = degenerate_first(110000, tail ? torus : dense2D<double>(), gen), ref;
        ref.copy(pos);
        dense2D<unsigned> connectM, ref_connectM;
        ASSERT_EQ(detail::stl_weld(pos, connectM), 0);
        ASSERT_EQ(weld_with_public_calls(ref, ref_connectM), 0);
        expect_same_mesh(pos, connectM, ref, ref_connectM);
        if (!tail)
        {
            EXPECT_EQ(pos.cols(), 330000u);
        }
    }
}

TEST(stl_weld, binary_file_over_several_blocks_reads_as_its_soup_welded)
{
    // The reader welds while it reads; the soup reader and the public steps give the reference.
    std::mt19937 gen(43);
    const dense2D<double> soup = torus_soup(230, 230, true, true, gen);
    std::vector<std::vector<std::uint32_t>> records(soup.cols() / 3,
                                                    std::vector<std::uint32_t>(12, 0));
    for (std::size_t t = 0; t < records.size(); ++t)
        for (int k = 0; k < 9; ++k)
        {
            const float x = float(soup.col(3 * t)[k]);
            std::memcpy(&records[t][3 + k], &x, 4);
        }
    const std::string path =
        write_file("blocks.stl", binary_file("", std::uint32_t(records.size()), records));
    dense2D<double> pos, ref;
    dense2D<unsigned> connectM, ref_connectM;
    ASSERT_EQ(STL_input(path.c_str(), pos, connectM), 0);
    ASSERT_EQ(read_soup(path, true, ref), 0);
    ASSERT_EQ(weld_with_public_calls(ref, ref_connectM), 0);
    expect_same_mesh(pos, connectM, ref, ref_connectM);
    std::remove(path.c_str());
}

TEST(stl, read_back_what_is_written)
{
    // A closed torus of 2 x 300 x 200 triangles (more than one exact-merge block and several
    // write blocks), with its nodes shuffled so that file order differs from node order: both
    // forms read back as the same triangles over the same number of nodes, corners to float or
    // printed precision.
    std::mt19937 gen(9);
    dense2D<double> pos;
    dense2D<unsigned> connectM;
    torus(300, 200, shuffled(300 * 200, gen), pos, connectM);
    const std::string path = out_path("stl_torus.stl");
    for (bool text : {true, false})
    {
        ASSERT_EQ(STL_output(path.c_str(), pos, connectM, text), 0);
        dense2D<double> pos2;
        dense2D<unsigned> connectM2;
        ASSERT_EQ(STL_input(path.c_str(), pos2, connectM2), 0);
        ASSERT_EQ(pos2.cols(), pos.cols());
        ASSERT_EQ(connectM2.cols(), connectM.cols());
        // Same topology: one consistent node map; corners close.
        std::vector<unsigned> map(pos.cols(), U);
        const double tol = text ? 5e-6 : 5e-7;
        for (std::size_t j = 0; j < connectM.cols(); ++j)
            for (int k = 0; k < 3; ++k)
            {
                unsigned& m = map[connectM(k, j)];
                if (m == U) m = connectM2(k, j);
                ASSERT_EQ(m, connectM2(k, j)) << j;
                for (int i = 0; i < 3; ++i)
                    ASSERT_NEAR(pos2(i, m), pos(i, connectM(k, j)), tol);
            }
    }
}
