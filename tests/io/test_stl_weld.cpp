// Welding of STL corner soups: the same nodes and triangles as the plain sequence of public calls
// (sequential connectivity, exact merges by blocks of triangles, tolerance merge, removal of
// degenerated triangles and of unused nodes), on soups of one block and of several.
#include "io/stl_private.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <meshutil/editing.h>
#include <meshutil/io.h>
#include <random>
#include <string>
#include <vector>

using namespace qx7::meshutil;
using qx7::dense1D;
using qx7::dense2D;

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

/// Corner soup of a closed torus of 2 nu nv triangles in shuffled order, so that the copies of
/// a corner fall in different blocks. With `moves`, some corners are moved by a multiple of
/// tol0 (a little under the welding tolerance, or well over it) and some triangles are
/// degenerate (a repeated corner); with `specials`, a few coordinates are signed zeros and a few
/// among the last 2000 triangles NaN (the blocks before them are free of NaN).
dense2D<double> torus_soup(unsigned nu, unsigned nv, bool moves, bool specials, std::mt19937& gen)
{
    const double pi = 3.14159265358979323846;
    const std::size_t nbr_tri = 2 * std::size_t(nu) * nv;
    std::vector<std::size_t> order(nbr_tri);
    for (std::size_t t = 0; t < nbr_tri; ++t)
        order[t] = t;
    for (std::size_t t = nbr_tri; t > 1; --t)
        std::swap(order[t - 1], order[gen() % t]);
    auto corner = [&](unsigned i, unsigned k, double* p)
    {
        const double u = 2 * pi * (i % nu) / nu, v = 2 * pi * (k % nv) / nv;
        p[0] = (3 + std::cos(v)) * std::cos(u);
        p[1] = (3 + std::cos(v)) * std::sin(u);
        p[2] = std::sin(v);
    };
    // Heights of these triangles are at least about 0.5 x the smaller grid step.
    const double tol0 = 0.05 * 0.5 * 2 * pi / std::max(nu, nv);
    dense2D<double> pos(3, 3 * nbr_tri);
    for (std::size_t s = 0; s < nbr_tri; ++s)
    {
        const std::size_t t = order[s];
        const unsigned q = unsigned(t / 2), i = q / nv, k = q % nv;
        const unsigned quad[4][2] = {{i, k}, {i + 1, k}, {i + 1, k + 1}, {i, k + 1}};
        const unsigned pick[2][3] = {{0, 1, 2}, {0, 2, 3}};
        for (unsigned c = 0; c < 3; ++c)
        {
            double* p = pos.col(3 * s + c);
            corner(quad[pick[t % 2][c]][0], quad[pick[t % 2][c]][1], p);
            if (moves && gen() % 40 == 0)
                p[gen() % 3] += std::vector<double>{0.3, -0.9, 2.0, 5.0}[gen() % 4] * tol0;
            if (specials && s + 2000 > nbr_tri && gen() % 500 == 0) p[gen() % 3] = std::nan("");
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
bool same_mesh(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
               const dense2D<double>& ref, const dense2D<unsigned>& ref_connectM)
{
    return pos.rows() == ref.rows() && pos.cols() == ref.cols() &&
           std::memcmp(pos.data(), ref.data(), pos.rows() * pos.cols() * sizeof(double)) == 0 &&
           connectM.cols() == ref_connectM.cols() &&
           std::equal(connectM.data(), connectM.data() + 3 * connectM.cols(), ref_connectM.data());
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
        ASSERT_TRUE(same_mesh(pos, connectM, ref, ref_connectM));
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
        ASSERT_TRUE(same_mesh(pos, connectM, ref, ref_connectM));
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
    const std::size_t nbr_tri = soup.cols() / 3;
    std::string bytes(80, '\0');
    bytes.resize(84 + 50 * nbr_tri, '\0');
    const std::uint32_t count = std::uint32_t(nbr_tri);
    for (int k = 0; k < 4; ++k)
        bytes[80 + k] = char(count >> (8 * k));
    for (std::size_t t = 0; t < nbr_tri; ++t)
        for (int k = 0; k < 9; ++k)
        {
            const float x = float(soup.col(3 * t)[k]);
            std::uint32_t w;
            std::memcpy(&w, &x, 4);
            for (int b = 0; b < 4; ++b)
                bytes[84 + 50 * t + 12 + 4 * k + b] = char(w >> (8 * b));
        }
    const std::string path = std::string(MESHUTIL_TEST_OUTPUT_DIR) + "/stl_weld_blocks.stl";
    std::FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    ASSERT_EQ(std::fwrite(bytes.data(), 1, bytes.size(), f), bytes.size());
    std::fclose(f);
    dense2D<double> pos, ref;
    dense2D<unsigned> connectM, ref_connectM;
    ASSERT_EQ(STL_input(path.c_str(), pos, connectM), 0);
    f = std::fopen(path.c_str(), "rb");
    ASSERT_NE(f, nullptr);
    ASSERT_EQ(detail::stl_read_binary(f, ref), 0);
    std::fclose(f);
    ASSERT_EQ(weld_with_public_calls(ref, ref_connectM), 0);
    ASSERT_TRUE(same_mesh(pos, connectM, ref, ref_connectM));
    std::remove(path.c_str());
}
