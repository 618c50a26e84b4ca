#include "io/stl_private.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <meshutil/io.h>
#include <random>
#include <string>
#include <vector>

using namespace qx7::meshutil;
using qx7::dense1D;
using qx7::dense2D;

namespace
{

std::string output_path(const std::string& name)
{
    return std::string(MESHUTIL_TEST_OUTPUT_DIR) + "/stl_" + name;
}

std::string read_bytes(const std::string& path)
{
    std::string out;
    if (std::FILE* f = std::fopen(path.c_str(), "rb"))
    {
        char buf[4096];
        std::size_t got;
        while ((got = std::fread(buf, 1, sizeof buf, f)) > 0)
            out.append(buf, got);
        std::fclose(f);
    }
    return out;
}

void write_bytes(const std::string& path, const std::string& bytes)
{
    std::FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr) << path;
    ASSERT_EQ(std::fwrite(bytes.data(), 1, bytes.size(), f), bytes.size());
    std::fclose(f);
}

dense2D<double> coordinates(std::size_t rows, std::initializer_list<double> values)
{
    dense2D<double> M(rows, values.size() / rows);
    std::size_t k = 0;
    for (double v : values)
        M(k % rows, k / rows) = v, ++k;
    return M;
}

dense2D<unsigned> triangles(std::initializer_list<unsigned> values)
{
    dense2D<unsigned> M(3, values.size() / 3);
    std::size_t k = 0;
    for (unsigned v : values)
        M(k % 3, k / 3) = v, ++k;
    return M;
}

/// Little-endian bytes of a 32-bit word given in hexadecimal.
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
std::string text_facet(const double (&P)[3][3], const char* facet = "facet normal",
                       const char* vertex = "vertex")
{
    char buf[512];
    std::snprintf(buf, sizeof buf,
                  " %s 0 0 1\n  outer loop\n   %s %.17g %.17g %.17g\n   %s %.17g %.17g %.17g\n"
                  "   %s %.17g %.17g %.17g\n  endloop\n endfacet\n",
                  facet, vertex, P[0][0], P[0][1], P[0][2], vertex, P[1][0], P[1][1], P[1][2],
                  vertex, P[2][0], P[2][1], P[2][2]);
    return buf;
}

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

// The small mesh of the golden files: two unit triangles, a degenerate one (zero normal), and one
// whose coordinates round in the last printed digit.
//
//   2            6
//   | \          | \          (4, 5, 6 in the plane z = 7)
//   0--1         4--5      3 = (0, 0, 2) above 0
const double golden_nodes[] = {0,
                               0,
                               0,
                               1,
                               0,
                               0,
                               0,
                               1,
                               0,
                               0,
                               0,
                               2,
                               1234.5678,
                               -0.000123456789,
                               7,
                               1235.5678,
                               -0.000123456789,
                               7,
                               1234.5678,
                               1.25,
                               7};

dense2D<double> golden_pos()
{
    dense2D<double> pos(3, 7);
    for (std::size_t k = 0; k < 21; ++k)
        pos.data()[k] = golden_nodes[k];
    return pos;
}

} // namespace

// ------------------------------------------------------------------------------------ writer

TEST(stl, text_writer_matches_golden_file)
{
    const std::string path = output_path("golden_text.stl");
    ASSERT_EQ(STL_output(path.c_str(), golden_pos(),
                         triangles({0, 1, 2, 0, 3, 1, 1, 1, 2, 4, 5, 6}), true),
              0);
    EXPECT_EQ(read_bytes(path),
              read_bytes(std::string(MESHUTIL_TEST_DATA_DIR) + "/stl/golden_text.stl"));
}

TEST(stl, binary_writer_matches_hand_made_bytes)
{
    // 2-row coordinates: the third component is written as 0.
    const std::string path = output_path("golden.stlb");
    ASSERT_EQ(STL_output(path.c_str(), coordinates(2, {0, 0, 1, 0, 0, 1, 2, 0.5}),
                         triangles({0, 1, 2, 1, 0, 3}), false),
              0);
    const std::uint32_t one = 0x3f800000, minus_one = 0xbf800000, two = 0x40000000,
                        half = 0x3f000000;
    const std::string expected = binary_file("QX7 STL Binary", 2,
                                             {{0, 0, one, 0, 0, 0, one, 0, 0, 0, one, 0},
                                              {0, 0, minus_one, one, 0, 0, 0, 0, 0, two, half, 0}});
    EXPECT_EQ(read_bytes(path), expected);
}

TEST(stl, writer_checks_and_failures)
{
    const std::string path = output_path("checks.stl");
    const dense2D<double> pos = golden_pos();
    struct Case
    {
        const char* what;
        std::string file;
        dense2D<double> pos;
        dense2D<unsigned> connectM;
        int expected;
    } cases[] = {
        {"unopenable", output_path("no_such_dir/x.stl"), pos, triangles({0, 1, 2}), -1},
        {"one row", path, coordinates(1, {0, 1, 2}), triangles({0, 1, 2}), -2},
        {"four rows", path, dense2D<double>(4, 3, 0.0), triangles({0, 1, 2}), -2},
        {"index = nbr_nodes", path, pos, triangles({0, 1, 7}), -3},
        {"undefined index", path, pos, triangles({0, undefined_index, 2}), -3},
        {"four-row connectivity", path, pos, dense2D<unsigned>(4, 1, 0u), -3},
        {"full device", "/dev/full", pos, triangles({0, 1, 2}), -1},
    };
    for (const Case& c : cases)
        for (bool text : {true, false})
        {
            write_bytes(path, "old content");
            EXPECT_EQ(STL_output(c.file.c_str(), c.pos, c.connectM, text), c.expected)
                << c.what << (text ? " text" : " binary");
            if (c.file == path)
            {
                EXPECT_EQ(read_bytes(path), "") << c.what; // opened before the checks
            }
        }
    EXPECT_EQ(STL_output(nullptr, pos, triangles({0, 1, 2}), true), -1);
    // An empty mesh is a valid empty solid.
    ASSERT_EQ(STL_output(path.c_str(), dense2D<double>(3, 0), dense2D<unsigned>(3, 0), true), 0);
    EXPECT_EQ(read_bytes(path), "solid QX7\nendsolid QX7\n");
    ASSERT_EQ(STL_output(path.c_str(), dense2D<double>(3, 0), dense2D<unsigned>(), false), 0);
    EXPECT_EQ(read_bytes(path), binary_file("QX7 STL Binary", 0, {}));
}

TEST(stl, direct_number_formatting_is_printf)
{
    // The writer's direct "%le" conversion against snprintf over random magnitudes, signed zeros,
    // subnormals, powers of ten and their neighbours, halfway cases and last-digit round-ups.
    std::vector<double> values = {0.0,
                                  -0.0,
                                  1.0,
                                  -1.0,
                                  0.5,
                                  1234567.5,
                                  9999999.5,
                                  0.99999995,
                                  9.9999995,
                                  999999.95,
                                  1e-16,
                                  1e28,
                                  1e29,
                                  1e-17,
                                  4.9e-324,
                                  2.2250738585072014e-308,
                                  1.7976931348623157e308,
                                  INFINITY,
                                  -INFINITY,
                                  NAN};
    for (int e = -30; e <= 32; ++e)
    {
        const double x = std::pow(10.0, e);
        values.insert(values.end(), {x, std::nextafter(x, 0.0), std::nextafter(x, INFINITY), -x});
    }
    std::mt19937_64 gen(17);
    char text[64];
    for (int i = 0; i < 100000; ++i)
    {
        // Seven-digit decimals with a trailing 5 (the rounding boundary) and their neighbours.
        std::snprintf(text, sizeof text, "%u.%06u5e%d", unsigned(1 + gen() % 9),
                      unsigned(gen() % 1000000), int(gen() % 50) - 20);
        const double x = std::strtod(text, nullptr);
        values.insert(values.end(), {x, std::nextafter(x, 0.0), std::nextafter(x, INFINITY)});
        // Random bits of every magnitude.
        std::uint64_t bits = gen();
        double y;
        std::memcpy(&y, &bits, sizeof y);
        values.push_back(y);
        values.push_back(std::ldexp(double(gen() >> 11), int(gen() % 160) - 110));
    }
    std::size_t direct = 0;
    for (double x : values)
    {
        char got[32], expected[32];
        const int n = detail::stl_format_e_direct(x, got);
        std::snprintf(expected, sizeof expected, "%le", x);
        if (n == 0) continue;
        ++direct;
        ASSERT_EQ(std::string(got, std::size_t(n)), expected) << std::hexfloat << x;
    }
    EXPECT_GT(direct, values.size() / 8); // the near-tie values go to snprintf by design
}

// ------------------------------------------------------------------------------------ parsing

TEST(stl, number_scanner_agrees_with_sscanf)
{
    // Lines made of the scanner's literals, spaces and number-like tokens (plain decimals of every
    // size, exponents, signs, and the forms only sscanf handles), compared bit for bit.
    std::mt19937_64 gen(11);
    const char* odd[] = {"nan",
                         "inf",
                         "-infinity",
                         "0x1.8p3",
                         "1e",
                         "1e+",
                         ".",
                         "-",
                         "+.5",
                         "5.",
                         "1e400",
                         "1e-400",
                         "1.5.",
                         "1-2",
                         "00012",
                         "-0",
                         "-0.0",
                         "4.9e-324",
                         "1e22",
                         "1e23",
                         "9007199254740993",
                         "12345678901234567890",
                         "0.30000000000000004",
                         "1,5",
                         "2e+0005",
                         "7e-22"};
    auto token = [&]() -> std::string
    {
        char buf[64];
        switch (gen() % 5)
        {
        case 0:
            return odd[gen() % (sizeof odd / sizeof odd[0])];
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
    const std::string path = output_path("soup.stl");
    const std::string facet = text_facet({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
    struct Case
    {
        const char* what;
        std::string text;
        int code;
        std::size_t corners;
    } cases[] = {
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
    for (const Case& c : cases)
    {
        write_bytes(path, c.text);
        dense2D<double> pos;
        EXPECT_EQ(read_soup(path, false, pos), c.code) << c.what;
        EXPECT_EQ(pos.cols(), c.corners) << c.what;
    }
}

TEST(stl, text_keywords_in_any_case_and_odd_values)
{
    const std::string path = output_path("case.stl");
    const double P[3][3] = {{0.1, -2.5e-3, 7}, {1e10, 0, -0.0}, {3, 4, 5}};
    const std::string lower = "solid x\n" + text_facet(P) + "endsolid x\n";
    std::string upper = lower;
    for (char& c : upper)
        c = char(std::toupper(static_cast<unsigned char>(c)));
    dense2D<double> a, b;
    write_bytes(path, lower);
    ASSERT_EQ(read_soup(path, false, a), 0);
    write_bytes(path, upper);
    ASSERT_EQ(read_soup(path, false, b), 0);
    ASSERT_EQ(a.cols(), 3u);
    ASSERT_EQ(b.cols(), 3u);
    EXPECT_EQ(std::memcmp(a.data(), b.data(), 9 * sizeof(double)), 0);
    for (int k = 0; k < 3; ++k)
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(a(i, k), P[k][i]);
    EXPECT_TRUE(std::signbit(a(2, 1)));

    write_bytes(path,
                "SOLID\n FACET NORMAL NaN 0 0\n OUTER LOOP\n VERTEX NAN INF -Infinity\n"
                " VERTEX 1E400 -1e-400 0X1P-2\n VERTEX 1 2 3\n ENDLOOP\n ENDFACET\nENDSOLID\n");
    ASSERT_EQ(read_soup(path, false, a), 0);
    EXPECT_TRUE(std::isnan(a(0, 0)));
    EXPECT_EQ(a(1, 0), INFINITY);
    EXPECT_EQ(a(2, 0), -INFINITY);
    EXPECT_EQ(a(0, 1), INFINITY);
    EXPECT_EQ(a(1, 1), 0.0);
    EXPECT_EQ(a(2, 1), 0.25);
}

TEST(stl, binary_soup_cases)
{
    const std::string path = output_path("soup.stlb");
    const std::uint32_t one = 0x3f800000;
    const std::vector<std::uint32_t> rec = {0, 0, one, 0, 0, 0, one, 0, 0, 0, one, 0};
    const std::string two = binary_file("", 2, {rec, rec});
    struct Case
    {
        const char* what;
        std::string bytes;
        int code;
        std::size_t corners;
    } cases[] = {
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
    for (const Case& c : cases)
    {
        write_bytes(path, c.bytes);
        dense2D<double> pos;
        const int code = read_soup(path, true, pos);
        EXPECT_EQ(code, c.code) << c.what;
        if (code == 0)
        {
            EXPECT_EQ(pos.cols(), c.corners) << c.what;
        }
    }
    // Through a pipe the size is unknown: the records are read as they come.
    write_bytes(path, two);
    std::FILE* pipe = popen(("cat " + path).c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    dense2D<double> pos;
    EXPECT_EQ(detail::stl_read_binary(pipe, pos), 0);
    pclose(pipe);
    ASSERT_EQ(pos.cols(), 6u);
    EXPECT_EQ(pos(0, 1), 1.0);
    EXPECT_EQ(pos(1, 2), 1.0);
}

// ------------------------------------------------------------------------------------ heights

TEST(stl, triangle_heights_against_projection)
{
    // 3-4-5 right triangle: heights 4, 3 and 12/5.
    const double a[3] = {0, 0, 0}, b[3] = {3, 0, 0}, c[3] = {0, 4, 0};
    EXPECT_DOUBLE_EQ(detail::stl_triangle_height2(a, b, c), 2.4 * 2.4);
    // A zero-length edge gives 0 (the division is left out, the cross product vanishes).
    EXPECT_EQ(detail::stl_triangle_height2(a, a, c), 0.0);
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
    // The smallest positive value over the triangles skips flat ones.
    dense2D<double> soup(3, 9, 0.0);
    const double corners[] = {0, 0, 0, 3, 0, 0, 0, 4, 0,  // 2.4^2
                              0, 0, 0, 1, 1, 1, 2, 2, 2,  // flat: 0
                              5, 5, 5, 6, 5, 5, 5, 6, 5}; // sqrt(1/2)^2
    std::memcpy(soup.data(), corners, sizeof corners);
    EXPECT_DOUBLE_EQ(detail::stl_smallest_height2(soup), 0.5);
    EXPECT_EQ(detail::stl_smallest_height2(soup.sub_matrix(0, 3, 3, 3)), 0.0);
}

// ------------------------------------------------------------------------------------ reader

namespace
{

// Unit cube, twelve triangles, outward.
//
//     6-----7        z
//    /|    /|        |  y
//   4-----5 |        | /
//   | 2---|-3        |/
//   |/    |/         +---- x
//   0-----1
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

/// A binary file of the first nbr_tri triangles of the cube (zero normals): written by hand, not
/// by the writer under test.
std::string cube_binary(const std::string& header, unsigned nbr_tri = 12)
{
    std::vector<std::vector<std::uint32_t>> records;
    const std::uint32_t one = 0x3f800000;
    for (unsigned t = 0; t < nbr_tri; ++t)
    {
        std::vector<std::uint32_t> r(3, 0);
        for (int k = 0; k < 3; ++k)
        {
            const unsigned v = cube_triangles[3 * t + k];
            for (int i = 0; i < 3; ++i)
                r.push_back((v >> i) & 1 ? one : 0);
        }
        records.push_back(r);
    }
    return binary_file(header, nbr_tri, records);
}

/// STL_input with outputs that hold junk before the call.
int read_stl_file(const std::string& path, dense2D<double>& pos, dense2D<unsigned>& connectM)
{
    pos.resize(2, 5, 1.0);
    connectM.resize(4, 2, 7u);
    return STL_input(path.c_str(), pos, connectM);
}

} // namespace

TEST(stl, reader_codes_and_fallback)
{
    const std::string path = output_path("codes.stl");
    const std::string facet = text_facet({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
    struct Case
    {
        const char* what;
        std::string bytes;
        int code;
        std::size_t nbr_tri;
    } cases[] = {
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
    for (const Case& c : cases)
    {
        write_bytes(path, c.bytes);
        dense2D<double> pos;
        dense2D<unsigned> connectM;
        EXPECT_EQ(read_stl_file(path, pos, connectM), c.code) << c.what;
        if (c.code == 0)
        {
            EXPECT_EQ(pos.rows(), 3u) << c.what;
            EXPECT_EQ(connectM.rows(), 3u) << c.what;
            EXPECT_EQ(connectM.cols(), c.nbr_tri) << c.what;
        }
        else
        {
            EXPECT_TRUE(pos.empty() && connectM.empty()) << c.what;
        }
    }
    dense2D<double> pos;
    dense2D<unsigned> connectM;
    EXPECT_EQ(read_stl_file(output_path("no_such_dir/x.stl"), pos, connectM), -1);
    EXPECT_TRUE(pos.empty() && connectM.empty());
    EXPECT_EQ(STL_input(nullptr, pos, connectM), -1);
}

TEST(stl, truncated_files_fail_cleanly)
{
    // Every prefix of a text and of a binary file: a text prefix reads when it holds the whole
    // "endsolid" keyword; a binary prefix fails unless complete.
    const std::string path = output_path("prefix.stl");
    const std::string text =
        "solid t\n" + text_facet({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}) + "endsolid t\n";
    const std::string binary = cube_binary("QX7", 2);
    for (const std::string* file : {&text, &binary})
        for (std::size_t len = 0; len <= file->size(); ++len)
        {
            const std::string prefix = file->substr(0, len);
            write_bytes(path, prefix);
            dense2D<double> pos;
            dense2D<unsigned> connectM;
            const int code = read_stl_file(path, pos, connectM);
            const bool complete =
                file == &text ? prefix.find("endsolid") != std::string::npos : len == file->size();
            const int failure = len < 80 ? -2 : -3;
            ASSERT_EQ(code, complete ? 0 : failure) << len;
            if (code != 0)
            {
                ASSERT_TRUE(pos.empty() && connectM.empty()) << len;
            }
        }
}

TEST(stl, writer_output_parses_back_to_the_same_corners)
{
    const dense2D<double> pos = cube_pos();
    const dense2D<unsigned> connectM = cube_connectivity();
    const std::string path = output_path("cube_soup.stl");
    for (bool text : {true, false})
    {
        ASSERT_EQ(STL_output(path.c_str(), pos, connectM, text), 0);
        dense2D<double> soup;
        ASSERT_EQ(read_soup(path, !text, soup), 0);
        ASSERT_EQ(soup.cols(), 36u);
        for (std::size_t k = 0; k < 36; ++k)
            for (std::size_t i = 0; i < 3; ++i)
                EXPECT_EQ(soup(i, k), pos(i, cube_triangles[k])) << k;
    }
}

TEST(stl, fuzz_seeds_are_current_and_parse)
{
    // The seed corpus of the fuzz target: small files generated here, written into the source
    // tree when missing, compared byte for byte otherwise, and read with their expected codes.
    const std::string dir = std::string(MESHUTIL_TEST_DATA_DIR) + "/../../fuzz/seeds/fuzz_stl/";
    const std::string facet = text_facet({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
    const std::string scratch = output_path("seed.stl");
    ASSERT_EQ(STL_output(scratch.c_str(), cube_pos(), cube_connectivity(), true), 0);
    const std::string cube_text = read_bytes(scratch);
    ASSERT_EQ(STL_output(scratch.c_str(), cube_pos(), cube_connectivity(), false), 0);
    const std::string cube_written = read_bytes(scratch);
    std::string upper = "solid A\n" + facet + "endsolid A\nsolid B\n" +
                        text_facet({{1, 0, 0}, {1, 1, 0}, {0, 1, 0}}) + "endsolid B\n";
    for (char& c : upper)
        c = char(std::toupper(static_cast<unsigned char>(c)));
    const std::uint32_t one = 0x3f800000;
    const std::vector<std::uint32_t> flat = {0, 0, 0, 0, 0, 0, one, 0, 0, one, 0, 0};
    const struct
    {
        const char* name;
        std::string bytes;
        int code;
    } seeds[] = {
        {"cube_text.stl", cube_text, 0},
        {"cube_binary.stl", cube_written, 0},
        {"solid_header_binary.stl", cube_binary("solid binary", 3), 0},
        {"two_solids_upper_case.stl", upper, 0},
        {"odd_values.stl",
         "solid\nfacet normal nan 0 0\nouter loop\nvertex inf -1e400 0x1p-3\nvertex 1e-320 2 3\n"
         "vertex -0 1e22 4.5e+07\nendloop\nendfacet\nendsolid\n",
         0},
        {"degenerate_only.stl", binary_file("", 2, {flat, flat}), 0},
        {"count_beyond_data.stl", binary_file("", 40, {flat}), -3},
        {"syntax_error.stl", "solid\n" + facet.substr(0, 60) + "endsolid\n", -2},
    };
    for (const auto& seed : seeds)
    {
        const std::string path = dir + seed.name;
        if (std::FILE* f = std::fopen(path.c_str(), "rb"))
            std::fclose(f);
        else
            write_bytes(path, seed.bytes);
        EXPECT_EQ(read_bytes(path), seed.bytes) << seed.name;
        dense2D<double> pos;
        dense2D<unsigned> connectM;
        EXPECT_EQ(read_stl_file(path, pos, connectM), seed.code) << seed.name;
    }
}

// ------------------------------------------------------------------------------------ welding

namespace
{

/// The coordinates of corner k of triangle j of a mesh.
const double* corner(const dense2D<double>& pos, const dense2D<unsigned>& connectM, std::size_t j,
                     int k)
{
    return pos.col(connectM(k, j));
}

} // namespace

TEST(stl, cube_of_twelve_facets_gives_eight_nodes)
{
    // The hand-made binary cube, the same with a "solid" header, and the cube written as text
    // in upper case and split into two solids: 8 nodes, the 12 triangles in file order, nodes
    // numbered by first corner.
    const std::string path = output_path("cube.stl");
    std::string text_a = "solid A\n", text_b = "solid B\n";
    for (int t = 0; t < 12; ++t)
    {
        double P[3][3];
        for (int k = 0; k < 3; ++k)
            for (int i = 0; i < 3; ++i)
                P[k][i] = (cube_triangles[3 * t + k] >> i) & 1;
        (t < 5 ? text_a : text_b) += text_facet(P);
    }
    std::string text = text_a + "endsolid A\n" + text_b + "endsolid B\n";
    for (char& c : text)
        c = char(std::toupper(static_cast<unsigned char>(c)));
    for (const std::string& bytes : {cube_binary("QX7"), cube_binary("solid cube"), text})
    {
        write_bytes(path, bytes);
        dense2D<double> pos;
        dense2D<unsigned> connectM;
        ASSERT_EQ(read_stl_file(path, pos, connectM), 0);
        ASSERT_EQ(pos.cols(), 8u);
        ASSERT_EQ(connectM.cols(), 12u);
        // First-corner order of the cube's nodes: 0 2 1 3 4 5 6 7.
        const unsigned order[8] = {0, 2, 1, 3, 4, 5, 6, 7};
        unsigned renumber[8];
        for (unsigned k = 0; k < 8; ++k)
            renumber[order[k]] = k;
        for (unsigned k = 0; k < 8; ++k)
            for (unsigned i = 0; i < 3; ++i)
                EXPECT_EQ(pos(i, renumber[k]), double((k >> i) & 1));
        for (std::size_t j = 0; j < 12; ++j)
            for (int k = 0; k < 3; ++k)
                EXPECT_EQ(connectM(k, j), renumber[cube_triangles[3 * j + k]]);
    }
}

TEST(stl, tolerance_is_five_percent_of_the_smallest_height)
{
    // Two unit right triangles sharing an edge whose copies are moved by `shift`: the smallest
    // height is sqrt(1/2) (to a hypotenuse), so copies within 0.0353 weld, farther ones do not.
    //
    //   2 ------ 3
    //   |  \     |
    //   0 ------ 1
    const std::string path = output_path("tol.stl");
    for (double shift : {0.0, 0.03, 0.035, 0.036, 0.2})
    {
        const std::string bytes = "solid\n" + text_facet({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}) +
                                  text_facet({{1 + shift, 0, 0}, {1, 1, 0}, {0, 1 - shift, 0}}) +
                                  "endsolid\n";
        write_bytes(path, bytes);
        dense2D<double> pos;
        dense2D<unsigned> connectM;
        ASSERT_EQ(read_stl_file(path, pos, connectM), 0);
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
    write_bytes(path, "solid\n" + text_facet({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}) +
                          text_facet({{5, 5, 5}, {5, 5, 5}, {6, 6, 5}}) +
                          text_facet({{0, 0, 0}, {2, 0, 0}, {1, 0, 0}}) + "endsolid\n");
    dense2D<double> pos;
    dense2D<unsigned> connectM;
    ASSERT_EQ(read_stl_file(path, pos, connectM), 0);
    ASSERT_EQ(connectM.cols(), 2u);
    EXPECT_EQ(pos.cols(), 4u);
    EXPECT_EQ(connectM(0, 1), 0u);
    EXPECT_EQ(connectM(1, 1), 3u);
    EXPECT_EQ(connectM(2, 1), 1u);
    // Only degenerate triangles: no positive height, nothing merged.
    write_bytes(path, "solid\n" + text_facet({{0, 0, 0}, {1, 0, 0}, {2, 0, 0}}) +
                          text_facet({{0, 0, 0}, {0, 0, 0}, {1, 1, 1}}) + "endsolid\n");
    ASSERT_EQ(read_stl_file(path, pos, connectM), 0);
    EXPECT_EQ(pos.cols(), 6u);
    ASSERT_EQ(connectM.cols(), 2u);
    for (unsigned k = 0; k < 6; ++k)
        EXPECT_EQ(connectM(k % 3, k / 3), k);
}

TEST(stl, read_back_what_is_written)
{
    // A closed torus of 2 x 300 x 200 triangles (more than one exact-merge block), with its nodes
    // shuffled so that file order differs from node order: both forms read back as the same
    // triangles over the same number of nodes, corners to float or printed precision.
    const unsigned nu = 300, nv = 200;
    dense2D<double> pos(3, nu * nv);
    dense2D<unsigned> connectM(3, 2 * nu * nv);
    std::vector<unsigned> perm(nu * nv);
    for (unsigned k = 0; k < nu * nv; ++k)
        perm[k] = k;
    std::mt19937 gen(9);
    for (unsigned k = nu * nv - 1; k > 0; --k)
        std::swap(perm[k], perm[gen() % (k + 1)]);
    for (unsigned i = 0; i < nu; ++i)
        for (unsigned k = 0; k < nv; ++k)
        {
            const double u = 2 * M_PI * i / nu, v = 2 * M_PI * k / nv;
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
    const std::string path = output_path("torus.stl");
    for (bool text : {true, false})
    {
        ASSERT_EQ(STL_output(path.c_str(), pos, connectM, text), 0);
        dense2D<double> pos2;
        dense2D<unsigned> connectM2;
        ASSERT_EQ(STL_input(path.c_str(), pos2, connectM2), 0);
        ASSERT_EQ(pos2.cols(), pos.cols());
        ASSERT_EQ(connectM2.cols(), connectM.cols());
        // Same topology: one consistent node map; corners close.
        std::vector<unsigned> map(pos.cols(), undefined_index);
        const double tol = text ? 5e-6 : 5e-7;
        for (std::size_t j = 0; j < connectM.cols(); ++j)
            for (int k = 0; k < 3; ++k)
            {
                unsigned& m = map[connectM(k, j)];
                if (m == undefined_index) m = connectM2(k, j);
                ASSERT_EQ(m, connectM2(k, j)) << j;
                for (int i = 0; i < 3; ++i)
                    ASSERT_NEAR(corner(pos2, connectM2, j, k)[i], corner(pos, connectM, j, k)[i],
                                tol);
            }
    }
}
