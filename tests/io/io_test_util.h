// Shared fixtures of the io tests: file helpers, small matrices, a mesh of every element type
// for the writers and a random grouped mesh for the readers.
#pragma once

#include <algorithm>
#include <cstdio>
#include <gtest/gtest.h>
#include <initializer_list>
#include <meshutil/containers.h>
#include <meshutil/elements.h>
#include <meshutil/io.h>
#include <numeric>
#include <random>
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

/// Path of a reader example in the test data directory.
inline std::string data_path(const std::string& name)
{
    return std::string(MESHUTIL_TEST_DATA_DIR) + "/readers/" + name;
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

/// Writes bytes to the output file `name`, prefixed with the running test's suite and name so
/// that tests run in parallel never share a file; returns its path.
inline std::string write_file(const std::string& name, const std::string& bytes)
{
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string path =
        out_path(std::string(info->test_suite_name()) + "." + info->name() + "." + name);
    if (std::FILE* f = std::fopen(path.c_str(), "wb"))
    {
        std::fwrite(bytes.data(), 1, bytes.size(), f);
        std::fclose(f);
    }
    return path;
}

/// A golden file of tests/data/io.
inline std::string golden(const std::string& name)
{
    return read_file(std::string(MESHUTIL_TEST_DATA_DIR) + "/io/" + name);
}

/// A matrix of `rows` rows from its columns (rows past a column's values: ~0u).
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

/// Matrix from values listed column after column.
template <class T>
dense2D<T> columns(std::size_t rows, std::initializer_list<T> values)
{
    dense2D<T> M(rows, values.size() / rows);
    std::size_t k = 0;
    for (T v : values)
        M(k % rows, k / rows) = v, ++k;
    return M;
}

template <class T>
std::vector<T> std_of(const dense1D<T>& v)
{
    return {v.begin(), v.end()};
}

/// Column j of M as a vector.
template <class T>
std::vector<T> column(const dense2D<T>& M, std::size_t j)
{
    return {M.col(j), M.col(j) + M.rows()};
}

/// Every column of M (none for an empty matrix).
template <class T>
std::vector<std::vector<T>> all_columns(const dense2D<T>& M)
{
    std::vector<std::vector<T>> c;
    for (std::size_t j = 0; !M.empty() && j < M.cols(); ++j)
        c.push_back(column(M, j));
    return c;
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

/// A mesh of groups in the general form of the grouped writers: `per_group` elements of each
/// listed type on distinct random nodes (EL_FACE_MIX columns alternate quadrangles and
/// triangles, EL_SOLID_MIX columns run through tetrahedra, wedges and hexahedra), random
/// property identifiers 1 to 4, coordinates that "%E" prints exactly (seven digits).
struct grouped_sample
{
    dense2D<double> pos;
    dense2D<unsigned> connectM;
    dense1D<unsigned> first, PIDs;
    dense1D<int> types;

    grouped_sample(const std::vector<qx7::meshutil::element_type>& written, unsigned per_group,
                   unsigned n, unsigned seed)
    {
        using namespace qx7::meshutil;
        std::mt19937 gen(seed);
        pos.resize(3, n);
        for (unsigned j = 0; j < n; ++j)
            for (int i = 0; i < 3; ++i)
                pos(i, j) = double(int(gen() % 20001) - 10000) / 4.0;
        const unsigned G = unsigned(written.size());
        connectM.resize(27, G * per_group, undefined_index);
        first.resize(G + 1);
        PIDs.resize(G * per_group);
        types.resize(G);
        std::vector<unsigned> nodes(n);
        for (unsigned k = 0; k < G; ++k)
        {
            first[k] = k * per_group, types[k] = written[k];
            for (unsigned c = 0; c < per_group; ++c)
            {
                unsigned j = k * per_group + c, r = nbr_nodes(written[k]);
                PIDs[j] = 1 + gen() % 4;
                if (written[k] == EL_FACE_MIX) r = c % 2 ? 3 : 4;
                if (written[k] == EL_SOLID_MIX) r = 4 + (c % 3) * 2;
                std::iota(nodes.begin(), nodes.end(), 0u);
                std::shuffle(nodes.begin(), nodes.end(), gen);
                for (unsigned i = 0; i < r; ++i)
                    connectM(i, j) = nodes[i];
            }
        }
        first[G] = G * per_group;
    }
};

/// Compares what a grouped reader gave back with the sample written: one group per written
/// type not in `skipped` (whose columns still count for element identifiers), of type
/// `read_as(type)`; the rows a file cannot carry must come back as ~0u (row 13 of EL_PYRAM14,
/// rows 15-17 of EL_PENTA18) and rows past the type's node count too.
template <class ReadAs>
void expect_groups(const grouped_sample& s, const std::vector<qx7::meshutil::element_type>& written,
                   const dense2D<unsigned>& C, const dense1D<unsigned>& first,
                   const dense1D<int>& types, const dense1D<unsigned>& PIDs,
                   const dense1D<unsigned>& EIDs,
                   const std::vector<qx7::meshutil::element_type>& skipped, ReadAs read_as)
{
    using namespace qx7::meshutil;
    const unsigned per_group = s.first[1] - s.first[0];
    unsigned kr = 0;
    for (unsigned k = 0; k < written.size(); ++k)
    {
        if (std::find(skipped.begin(), skipped.end(), written[k]) != skipped.end()) continue;
        ASSERT_LT(kr, types.size());
        const element_type expect = read_as(written[k]);
        EXPECT_EQ(types[kr], expect) << "group " << k;
        ASSERT_EQ(first[kr + 1] - first[kr], per_group);
        for (unsigned c = 0; c < per_group; ++c)
        {
            const unsigned jr = first[kr] + c, j = k * per_group + c;
            EXPECT_EQ(EIDs[jr], j + 1);
            EXPECT_EQ(PIDs[jr], s.PIDs[j]);
            for (unsigned i = 0; i < C.rows(); ++i)
            {
                const bool lost = (expect == EL_PYRAM14 && i == 13) ||
                                  (expect == EL_PENTA18 && i >= 15) || i >= nbr_nodes(expect);
                EXPECT_EQ(C(i, jr), lost ? undefined_index : s.connectM(i, j))
                    << "type " << expect << " row " << i;
            }
        }
        ++kr;
    }
    EXPECT_EQ(kr, types.size());
}

/// The outputs of a grouped reader (one matrix with type groups) and the reader itself.
using grouped_reader = int (*)(const char*, dense2D<double>&, dense2D<unsigned>&,
                               dense1D<unsigned>&, dense1D<int>&, dense1D<unsigned>&,
                               dense1D<unsigned>&, dense1D<unsigned>&) noexcept;

template <grouped_reader Read>
struct grouped_read
{
    dense2D<double> pos;
    dense2D<unsigned> connectM;
    dense1D<unsigned> first, PIDs, node_IDs, element_IDs;
    dense1D<int> types;
    int read(const std::string& path)
    {
        return Read(path.c_str(), pos, connectM, first, types, PIDs, node_IDs, element_IDs);
    }
    bool empty() const
    {
        return pos.empty() && connectM.empty() && first.empty() && types.empty() && PIDs.empty() &&
               node_IDs.empty() && element_IDs.empty();
    }
    /// Column j's first r rows.
    std::vector<unsigned> nodes(std::size_t j, std::size_t r) const
    {
        return {connectM.col(j), connectM.col(j) + r};
    }
};

} // namespace io_test
