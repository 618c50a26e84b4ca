// The fast number formatting of the writers gives exactly the bytes of printf.
#include "io/io_private.h"
#include "io/stl_private.h"

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

using namespace qx7::meshutil;

namespace
{

// Every double conversion the writers use, with its printf format.
struct conversion
{
    io::num_format f;
    const char* printf_format;
};
const conversion conversions[] = {
    {{'E', 0, 6}, "%E"},      {{'E', 16, 6}, "%16E"}, {{'e', 12, 5}, "%12.5e"},
    {{'f', 0, 6}, "%f"},      {{'e', 0, 0}, "%.0e"},  {{'E', 30, 17}, "%30.17E"},
    {{'f', 12, 2}, "%12.2f"}, {{'f', 0, 0}, "%.0f"},
};

double from_bits(std::uint64_t b)
{
    double d;
    std::memcpy(&d, &b, sizeof d);
    return d;
}

// Doubles of every kind: random bit patterns (all magnitudes, subnormals, NaN, infinities),
// log-uniform magnitudes, signed zeros, subnormal extremes, integers, powers of ten and their
// neighbours, exact ties and values just below and above a last-digit round-up.
std::vector<double> value_set()
{
    std::vector<double> v = {
        0.0,           -0.0,        DBL_MIN,   -DBL_MIN,    DBL_MAX,   -DBL_MAX, DBL_TRUE_MIN,
        -DBL_TRUE_MIN, DBL_EPSILON, HUGE_VAL,  -HUGE_VAL,   NAN,       -NAN,     0.5,
        1.5,           2.5,         0.125,     9.5,         99.5,      999999.5, 9999995.0,
        0.9999995,     9.9999995,   1.0000005, 123456789.0, 1234565.0, 1234575.0};
    std::mt19937_64 gen(20261122);
    for (int k = 0; k < 100000; ++k)
        v.push_back(from_bits(gen()));
    for (int k = 0; k < 100000; ++k)
    {
        double mant = double(gen() >> 11) / double(1ull << 53);
        int ex = int(gen() % 640) - 320;
        v.push_back((gen() & 1 ? -1 : 1) * mant * std::pow(10.0, ex));
    }
    for (int k = 0; k < 20000; ++k)
        v.push_back(from_bits(gen() & 0x000fffffffffffffull)); // subnormals
    for (int k = 0; k < 20000; ++k)
        v.push_back(double(std::int64_t(gen() >> (gen() % 64)) - (1ll << 20)));
    for (int e = -323; e <= 308; ++e)
    {
        double p = std::pow(10.0, e);
        v.push_back(p);
        v.push_back(std::nextafter(p, 0.0));
        v.push_back(std::nextafter(p, HUGE_VAL));
        v.push_back(-p);
    }
    // Ties at the last printed digit: integers d.ddddddd5 x 10^k and dyadic fractions, and their
    // neighbours, round to even; values a hair above round up.
    for (int k = 0; k < 20000; ++k)
    {
        // 6 to 9 digits ending in 5: ties for 5 to 8 significant digits.
        std::int64_t lo = 10000;
        for (unsigned d = gen() % 4; d > 0; --d)
            lo *= 10;
        double t = double(std::int64_t(gen() % std::uint64_t(9 * lo)) + lo) * 10 + 5;
        v.push_back(t);
        v.push_back(std::nextafter(t, 0.0));
        v.push_back(std::nextafter(t, HUGE_VAL));
        double d = double(gen() % (1u << 20)) / double(1u << (7 + gen() % 14)); // k / 2^m
        v.push_back(d);
        v.push_back(std::nextafter(d, HUGE_VAL));
        // Seven-digit decimals ending in 5 at every scale (ties of "%e") and their neighbours.
        char text[64];
        std::snprintf(text, sizeof text, "%u.%06u5e%d", unsigned(1 + gen() % 9),
                      unsigned(gen() % 1000000), int(gen() % 50) - 20);
        const double x = std::strtod(text, nullptr);
        v.insert(v.end(), {x, std::nextafter(x, 0.0), std::nextafter(x, HUGE_VAL)});
    }
    return v;
}

} // namespace

TEST(io_format, doubles_match_printf)
{
    const std::vector<double> values = value_set();
    char ours[io::max_number_chars + 8], ref[1024];
    for (const conversion& c : conversions)
    {
        std::size_t mismatches = 0;
        for (double x : values)
        {
            char* end = io::format_double(ours, x, c.f);
            int n = std::snprintf(ref, sizeof ref, c.printf_format, x);
            if (std::string(ours, end) != std::string(ref, std::size_t(n)) && ++mismatches < 5)
                ADD_FAILURE() << c.printf_format << " of " << std::hexfloat << x << ": ours '"
                              << std::string(ours, end) << "' printf '" << ref << "'";
        }
        EXPECT_EQ(mismatches, 0u) << c.printf_format;
    }
}

TEST(io_format, stl_direct_conversion_matches_printf)
{
    // The STL writer's own "%le" path declines (returns 0) near ties and out of its range; what
    // it does write is printf's text.
    const std::vector<double> values = value_set();
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
    EXPECT_GT(direct, values.size() / 8);
}

TEST(io_format, integers_match_printf)
{
    std::vector<int> values = {0,    1,        -1,        9,       10,      99,         100,
                               -100, 12345678, 123456789, INT_MAX, INT_MIN, INT_MIN + 1};
    std::mt19937 gen(7);
    for (int k = 0; k < 200000; ++k)
        values.push_back(int(gen() >> (gen() % 32)) * (k % 3 == 0 ? -1 : 1));
    for (int p = 1; p < 1000000000; p *= 10)
        for (int d : {-1, 0, 1})
            values.push_back(p + d);
    // Unsigned indices are printed through static_cast<int>, as printf("%d") prints them.
    values.push_back(static_cast<int>(qx7::undefined_index));
    char ours[64], ref[64];
    for (int width : {0, 8, 16})
        for (int x : values)
        {
            char* end = io::format_int(ours, x, width);
            int n = std::snprintf(ref, sizeof ref, "%*d", width, x);
            ASSERT_EQ(std::string(ours, end), std::string(ref, std::size_t(n)))
                << "width " << width;
        }
}

TEST(io_format, text_writer_carries_long_output_across_blocks)
{
    // More than the 1 MiB block, in pieces of every kind, compared with stdio's own output.
    std::string path = std::string(MESHUTIL_TEST_OUTPUT_DIR) + "/text_writer.txt";
    std::string expected;
    {
        io::file_handle file(path.c_str(), "w");
        ASSERT_TRUE(file);
        io::text_writer out(file.get());
        std::string big(3000000, 'x');
        out.text(big.c_str(), big.size());
        expected += big;
        char ref[400];
        for (int k = 0; k < 100000; ++k)
        {
            out.integer(k * 7919, 9);
            out.real(k * 1e-3, {'f', 0, 6});
            out.put('\n');
            expected += std::string(
                ref, std::size_t(std::snprintf(ref, sizeof ref, "%9d%f\n", k * 7919, k * 1e-3)));
        }
        out.real(1e300, {'f', 0, 6});
        expected += std::string(ref, std::size_t(std::snprintf(ref, sizeof ref, "%f", 1e300)));
        EXPECT_TRUE(out.finish());
    }
    std::FILE* f = std::fopen(path.c_str(), "rb");
    ASSERT_NE(f, nullptr);
    std::string got;
    char buf[65536];
    for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;)
        got.append(buf, n);
    std::fclose(f);
    EXPECT_TRUE(got == expected);
}
