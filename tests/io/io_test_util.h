// Shared fixtures of the writer tests: file helpers and a small mesh holding every element type.
#pragma once

#include <cstdio>
#include <initializer_list>
#include <meshutil/containers.h>
#include <meshutil/elements.h>
#include <string>
#include <vector>

namespace io_test
{

using qx7::dense1D;
using qx7::dense2D;
using qx7::meshutil::element_type;
constexpr unsigned U = qx7::undefined_index;

/// A fresh path in the test output directory (any old file of that name removed).
inline std::string out_path(const std::string& name)
{
    std::string p = std::string(MESHUTIL_TEST_OUTPUT_DIR) + "/" + name;
    std::remove(p.c_str());
    return p;
}

/// The whole content of a file, or "<missing>" when it cannot be opened.
inline std::string read_file(const std::string& path)
{
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return "<missing>";
    std::string s;
    char buf[4096];
    for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;)
        s.append(buf, n);
    std::fclose(f);
    return s;
}

inline bool file_exists(const std::string& path)
{
    return read_file(path) != "<missing>";
}

/// A golden file of tests/data/io.
inline std::string golden(const std::string& name)
{
    return read_file(std::string(MESHUTIL_TEST_DATA_DIR) + "/io/" + name);
}

/// A matrix of `rows` rows from its columns.
inline dense2D<unsigned> columns(std::size_t rows,
                                 std::initializer_list<std::initializer_list<unsigned>> cols)
{
    dense2D<unsigned> M(rows, cols.size(), U);
    std::size_t j = 0;
    for (const auto& c : cols)
    {
        std::size_t i = 0;
        for (unsigned v : c)
            M(i++, j) = v;
        ++j;
    }
    return M;
}

/// One column 0, 1, ..., n - 1.
inline dense2D<unsigned> iota_column(std::size_t n)
{
    dense2D<unsigned> M(n, 1);
    for (std::size_t i = 0; i < n; ++i)
        M(i, 0) = unsigned(i);
    return M;
}

/// 3 x 27 coordinates: node i at 0.5 x (i mod 3, (i / 3) mod 3, i / 9), except node 0 at
/// (-1.5, 2.25e-7, 123456789) and node 26 at (1e100, -0, 0.1).
inline dense2D<double> grid27()
{
    dense2D<double> pos(3, 27);
    for (std::size_t i = 0; i < 27; ++i)
    {
        pos(0, i) = 0.5 * double(i % 3);
        pos(1, i) = 0.5 * double((i / 3) % 3);
        pos(2, i) = 0.5 * double(i / 9);
    }
    pos(0, 0) = -1.5;
    pos(1, 0) = 2.25e-7;
    pos(2, 0) = 123456789.0;
    pos(0, 26) = 1e100;
    pos(1, 26) = -0.0;
    pos(2, 26) = 0.1;
    return pos;
}

/// A range of connectivities over grid27() holding every element type, out of type order.
struct typed_range
{
    std::vector<dense2D<unsigned>> mats;
    dense1D<int> types;
    void add(dense2D<unsigned> M, element_type t)
    {
        mats.push_back(M);
        types.push_back(int(t));
    }
    const dense2D<unsigned>* first() const { return mats.data(); }
    const dense2D<unsigned>* last() const { return mats.data() + mats.size(); }
};

/// Matrices in range order (references in medit, parts in EnSight):
///  0 EL_HEXA8 (0..7)             1 EL_TRIA3 (0 1 2) (2 3 4)
///  2 EL_SOLID_MIX: pyramid (0..4), tetra (5 6 7 8), hexa (0..7), tetra (1 2 3 4), wedge (0..5)
///  3 an empty EL_TETRA4          4 EL_FACE_MIX: quad (0 1 2 3), tria (4 5 6), tria (7 8 9)
///  5 EL_EDGE2 .. 20 EL_HEXA27: one column 0, 1, ..., n - 1 of each plain type in type order
/// and, when `with_skipped`, 21 EL_NODE (5), 22 EL_EDGE_MIX (0 1); always last a 3-row
/// EL_FACE_MIX (10 11 12), read as EL_TRIA3.
inline typed_range all_types(bool with_skipped)
{
    using namespace qx7::meshutil;
    typed_range r;
    r.add(iota_column(8), EL_HEXA8);
    r.add(columns(3, {{0, 1, 2}, {2, 3, 4}}), EL_TRIA3);
    r.add(columns(8, {{0, 1, 2, 3, 4},
                      {5, 6, 7, 8},
                      {0, 1, 2, 3, 4, 5, 6, 7},
                      {1, 2, 3, 4},
                      {0, 1, 2, 3, 4, 5}}),
          EL_SOLID_MIX);
    r.add(dense2D<unsigned>(), EL_TETRA4);
    r.add(columns(4, {{0, 1, 2, 3}, {4, 5, 6}, {7, 8, 9}}), EL_FACE_MIX);
    for (element_type t :
         {EL_EDGE2, EL_EDGE3, EL_TRIA3, EL_QUAD4, EL_TRIA6, EL_QUAD8, EL_QUAD9, EL_TETRA4,
          EL_TETRA10, EL_PYRAM5, EL_PYRAM14, EL_PENTA6, EL_PENTA18, EL_HEXA8, EL_HEXA20, EL_HEXA27})
        r.add(iota_column(nbr_nodes(t)), t);
    if (with_skipped)
    {
        r.add(columns(1, {{5}}), EL_NODE);
        r.add(columns(2, {{0, 1}}), EL_EDGE_MIX);
    }
    r.add(columns(3, {{10, 11, 12}}), EL_FACE_MIX);
    return r;
}

} // namespace io_test
