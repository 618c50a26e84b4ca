// Helpers shared by the reader tests: temporary files, file contents, truncated prefixes.
#pragma once

#include <cstdio>
#include <fstream>
#include <meshutil/containers.h>
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

/// Writes text to the output file `name`; returns its path.
inline std::string write_file(const std::string& name, const std::string& text)
{
    std::string path = out_path(name);
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
