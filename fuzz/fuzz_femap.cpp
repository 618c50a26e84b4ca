// Fuzzes the FEMAP neutral reader with arbitrary bytes written to a temporary file.
// fuzz-seconds: 30
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <meshutil/io.h>
#include <string>
#include <unistd.h>

using namespace qx7::meshutil;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string path = "/tmp/meshutil_fuzz_femap_" + std::to_string(getpid()) + ".neu";
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return 0;
    std::fwrite(data, 1, size, f);
    std::fclose(f);
    qx7::dense2D<double> pos;
    qx7::dense2D<unsigned> connectM;
    qx7::dense1D<unsigned> first, PIDs, node_IDs, element_IDs;
    qx7::dense1D<int> types;
    int rc = FEMAP_input(path.c_str(), pos, connectM, first, types, PIDs, node_IDs, element_IDs);
    if (rc == 0)
    {
        // Groups cover the columns; entries are nodes or ~0u.
        if (first.size() != types.size() + 1 || first[types.size()] != PIDs.size())
            __builtin_trap();
        if (!check_IDs(connectM, unsigned(pos.cols())) && !connectM.empty()) __builtin_trap();
    }
    else if (!pos.empty() || !connectM.empty() || !first.empty())
        __builtin_trap();
    std::remove(path.c_str());
    return 0;
}
