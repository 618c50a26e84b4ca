// Writes a fixed-seed mesh of every element type in the medit, legacy VTK and NASTRAN formats,
// plus the raw input (roundtrip_input.txt), for meshio_roundtrip.py to read back and compare.
#include <cstdint>
#include <cstdio>
#include <meshutil/io.h>
#include <string>
#include <vector>

using namespace qx7::meshutil;
using qx7::dense1D;
using qx7::dense2D;

namespace
{

constexpr unsigned U = qx7::undefined_index;
constexpr unsigned nbr_points = 60;

/// A small linear congruential generator (fixed seed, same sequence everywhere).
struct lcg
{
    std::uint64_t s = 12345;
    unsigned next(unsigned n)
    {
        s = s * 6364136223846793005ull + 1442695040888963407ull;
        return unsigned((s >> 33) % n);
    }
};

/// `cols` columns of `rows` random node numbers; for a mixed type, shapes drawn at random with
/// ~0u after their last node.
dense2D<unsigned> random_matrix(lcg& g, element_type t, unsigned cols)
{
    const unsigned rows = nbr_nodes(t);
    dense2D<unsigned> M(rows, cols, U);
    for (unsigned j = 0; j < cols; ++j)
    {
        unsigned n = rows;
        if (t == EL_FACE_MIX) n = 3 + g.next(2);
        if (t == EL_SOLID_MIX)
        {
            const unsigned sizes[] = {4, 5, 6, 8};
            n = sizes[g.next(4)];
        }
        for (unsigned i = 0; i < n; ++i)
            M(i, j) = g.next(nbr_points);
    }
    return M;
}

void dump(FILE* f, const char* name, const std::vector<dense2D<unsigned>>& mats,
          const dense1D<int>& types)
{
    std::fprintf(f, "%s %zu\n", name, mats.size());
    for (std::size_t k = 0; k < mats.size(); ++k)
    {
        std::fprintf(f, "%d %zu %zu\n", types[k], mats[k].rows(), mats[k].cols());
        for (std::size_t j = 0; j < mats[k].cols(); ++j)
            for (std::size_t i = 0; i < mats[k].rows(); ++i)
                std::fprintf(f, "%u%c", mats[k](i, j), i + 1 == mats[k].rows() ? '\n' : ' ');
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) return 2;
    const std::string dir = argv[1];
    lcg g;
    dense2D<double> pos(3, nbr_points);
    for (unsigned j = 0; j < nbr_points; ++j)
        for (unsigned i = 0; i < 3; ++i)
            pos(i, j) = (double(g.next(2000001)) - 1000000.0) / 9973.0;

    // Every type in a range (mixed ones included) for medit; linear ones for VTK through meshio.
    std::vector<dense2D<unsigned>> all, linear;
    dense1D<int> all_types, linear_types;
    for (int t = EL_EDGE2; t <= EL_HEXA27; ++t)
    {
        dense2D<unsigned> M = random_matrix(g, element_type(t), 3 + g.next(3));
        all.push_back(M);
        all_types.push_back(t);
        if (t == EL_EDGE3 || t == EL_TRIA6 || t == EL_QUAD8 || t == EL_QUAD9 || t == EL_TETRA10 ||
            t == EL_PYRAM14 || t == EL_PENTA18 || t == EL_HEXA20 || t == EL_HEXA27)
            continue;
        linear.push_back(M);
        linear_types.push_back(t);
    }

    // NASTRAN: one 27-row matrix of groups (every plain type but the quadratic pyramid and wedge,
    // which meshio cannot store) and one 8-row matrix with a face group and a mixed solid group.
    dense2D<unsigned> big(27, 0);
    dense1D<unsigned> big_first, big_pids;
    dense1D<int> big_types;
    for (std::size_t k = 0; k < all.size(); ++k)
    {
        const int t = all_types[k];
        if (t == EL_FACE_MIX || t == EL_SOLID_MIX || t == EL_PYRAM14 || t == EL_PENTA18) continue;
        big_first.push_back(unsigned(big.cols()));
        big_types.push_back(t);
        for (std::size_t j = 0; j < all[k].cols(); ++j)
        {
            const std::size_t c = big.cols();
            big.resize(27, c + 1, U);
            for (std::size_t i = 0; i < all[k].rows(); ++i)
                big(i, c) = all[k](i, j);
            big_pids.push_back(unsigned(10 + k));
        }
    }
    big_first.push_back(unsigned(big.cols()));
    dense2D<unsigned> eight = random_matrix(g, EL_SOLID_MIX, 18);
    for (std::size_t j = 0; j < 6; ++j) // the face group: triangles and quadrangles
        for (unsigned i = 0, n = 3 + g.next(2); i < 8; ++i)
            eight(i, j) = i < n ? g.next(nbr_points) : U;
    dense1D<unsigned> eight_first(3, 0u), eight_pids(eight.cols(), 3u);
    eight_first[1] = 6, eight_first[2] = 18;
    dense1D<int> eight_types(2, int(EL_FACE_MIX));
    eight_types[1] = EL_SOLID_MIX;

    int codes[] = {
        medit_output((dir + "/rt.mesh").c_str(), pos, all.data(), all.data() + all.size(),
                     all_types),
        vtk_output((dir + "/rt_all.vtk").c_str(), pos, all.data(), all.data() + all.size(),
                   all_types),
        vtk_output((dir + "/rt_linear.vtk").c_str(), pos, linear.data(),
                   linear.data() + linear.size(), linear_types),
        NASTRAN_output((dir + "/rt_groups.nas").c_str(), pos, big, big_first, big_types, big_pids),
        NASTRAN_output((dir + "/rt_mixed.nas").c_str(), pos, eight, eight_first, eight_types,
                       eight_pids),
    };
    for (int c : codes)
        if (c != 0) return 1;

    FILE* f = std::fopen((dir + "/roundtrip_input.txt").c_str(), "w");
    if (!f) return 1;
    std::fprintf(f, "points %u\n", nbr_points);
    for (unsigned j = 0; j < nbr_points; ++j)
        std::fprintf(f, "%.17g %.17g %.17g\n", pos(0, j), pos(1, j), pos(2, j));
    dump(f, "all", all, all_types);
    dump(f, "linear", linear, linear_types);
    dump(f, "nastran", {big, eight}, dense1D<int>(2, 0));
    std::fprintf(f, "groups %zu %zu\n", big_types.size(), eight_types.size());
    for (std::size_t k = 0; k < big_types.size(); ++k)
        std::fprintf(f, "%d %u %u\n", big_types[k], big_first[k], big_first[k + 1]);
    for (std::size_t k = 0; k < eight_types.size(); ++k)
        std::fprintf(f, "%d %u %u\n", eight_types[k], eight_first[k], eight_first[k + 1]);
    return std::fclose(f) == 0 ? 0 : 1;
}
