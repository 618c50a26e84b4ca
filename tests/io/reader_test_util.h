// Helpers shared by the reader tests: temporary files, file contents, truncated prefixes.
#pragma once

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <meshutil/elements.h>
#include <meshutil/io.h>
#include <numeric>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace reader_test
{

/// Path of a file in the test output directory.
inline std::string out_path(const std::string& name)
{
    return std::string(MESHUTIL_TEST_OUTPUT_DIR) + "/" + name;
}

/// Path of a file in the test data directory.
inline std::string data_path(const std::string& name)
{
    return std::string(MESHUTIL_TEST_DATA_DIR) + "/readers/" + name;
}

/// Writes text to the output file `name`, prefixed with the running test's suite and name so
/// that tests run in parallel never share a file; returns its path.
inline std::string write_file(const std::string& name, const std::string& text)
{
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string path =
        out_path(std::string(info->test_suite_name()) + "." + info->name() + "." + name);
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

inline std::string read_file(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

/// Matrix from values listed column after column.
template <class T>
qx7::dense2D<T> columns(std::size_t rows, std::initializer_list<T> values)
{
    qx7::dense2D<T> M(rows, values.size() / rows);
    std::size_t k = 0;
    for (T v : values)
        M(k % rows, k / rows) = v, ++k;
    return M;
}

template <class T>
std::vector<T> std_of(const qx7::dense1D<T>& v)
{
    return {v.begin(), v.end()};
}

/// Column j of M as a vector.
template <class T>
std::vector<T> column(const qx7::dense2D<T>& M, std::size_t j)
{
    return {M.col(j), M.col(j) + M.rows()};
}

/// Calls read(path) on every prefix of text cut at `step` bytes; read must return 0 or a
/// negative code and check its own outputs.
template <class Read>
void for_each_prefix(const std::string& name, const std::string& text, std::size_t step, Read read)
{
    for (std::size_t n = 0; n < text.size(); n += step)
        read(write_file(name, text.substr(0, n)), n);
}

} // namespace reader_test

namespace reader_test
{

/// A mesh of groups in the general form of the grouped writers: `per_group` elements of each
/// listed type on distinct random nodes (EL_FACE_MIX columns alternate quadrangles and
/// triangles, EL_SOLID_MIX columns run through tetrahedra, wedges and hexahedra), random
/// property identifiers 1 to 4, coordinates that "%E" prints exactly (seven digits).
struct grouped_sample
{
    qx7::dense2D<double> pos;
    qx7::dense2D<unsigned> connectM;
    qx7::dense1D<unsigned> first, PIDs;
    qx7::dense1D<int> types;

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
                   const qx7::dense2D<unsigned>& C, const qx7::dense1D<unsigned>& first,
                   const qx7::dense1D<int>& types, const qx7::dense1D<unsigned>& PIDs,
                   const qx7::dense1D<unsigned>& EIDs,
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
using grouped_reader = int (*)(const char*, qx7::dense2D<double>&, qx7::dense2D<unsigned>&,
                               qx7::dense1D<unsigned>&, qx7::dense1D<int>&, qx7::dense1D<unsigned>&,
                               qx7::dense1D<unsigned>&, qx7::dense1D<unsigned>&) noexcept;

template <grouped_reader Read>
struct grouped_read
{
    qx7::dense2D<double> pos;
    qx7::dense2D<unsigned> connectM;
    qx7::dense1D<unsigned> first, PIDs, node_IDs, element_IDs;
    qx7::dense1D<int> types;
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

} // namespace reader_test
