// What the file readers' fuzz targets share: the input bytes written to a temporary file of the
// target's own (removed again at the end of the run), and the checks on the grouped outputs of
// the readers that return one matrix with type groups.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <meshutil/containers.h>
#include <meshutil/elements.h>
#include <string>
#include <unistd.h>

/// The fuzz input as a file: /tmp/meshutil_fuzz_<name>_<pid><extension>.
class fuzz_file
{
public:
    fuzz_file(const char* name, const char* extension, const std::uint8_t* data, std::size_t size)
        : m_path(std::string("/tmp/meshutil_fuzz_") + name + "_" + std::to_string(getpid()) +
                 extension)
    {
        std::FILE* f = std::fopen(m_path.c_str(), "wb");
        if (!f) return;
        m_ok = std::fwrite(data, 1, size, f) == size;
        m_ok = std::fclose(f) == 0 && m_ok;
    }
    ~fuzz_file() { std::remove(m_path.c_str()); }
    fuzz_file(const fuzz_file&) = delete;
    fuzz_file& operator=(const fuzz_file&) = delete;

    bool ok() const { return m_ok; }
    const char* path() const { return m_path.c_str(); }

private:
    std::string m_path;
    bool m_ok = false;
};

/// A grouped read: on success the groups cover the columns and every entry is a node or ~0u; on
/// failure nothing is left behind. Traps otherwise.
inline void check_grouped_read(int rc, const qx7::dense2D<double>& pos,
                               const qx7::dense2D<unsigned>& connectM,
                               const qx7::dense1D<unsigned>& first, const qx7::dense1D<int>& types,
                               const qx7::dense1D<unsigned>& PIDs)
{
    if (rc == 0)
    {
        if (first.size() != types.size() + 1 || first[types.size()] != PIDs.size())
            __builtin_trap();
        if (!qx7::meshutil::check_IDs(connectM, unsigned(pos.cols())) && !connectM.empty())
            __builtin_trap();
    }
    else if (!pos.empty() || !connectM.empty() || !first.empty())
        __builtin_trap();
}
