// Fuzzes the medit mesh reader with arbitrary bytes written to a temporary file.
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
    const std::string path = "/tmp/meshutil_fuzz_medit_" + std::to_string(getpid()) + ".mesh";
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return 0;
    std::fwrite(data, 1, size, f);
    std::fclose(f);
    qx7::dense2D<double> pos;
    qx7::dense1D<int> vertex_refs;
    qx7::dense2D<unsigned> connectM[nbr_element_types];
    qx7::dense1D<int> refs[nbr_element_types];
    int rc = medit_input(path.c_str(), pos, vertex_refs, connectM, refs);
    for (unsigned t = 0; t < nbr_element_types; ++t)
    {
        // A successful read is a valid mesh; a failed one leaves nothing behind.
        if (rc == 0 && !check_IDs(connectM[t], element_type(t), unsigned(pos.cols())))
            __builtin_trap();
        if (rc != 0 && !connectM[t].empty()) __builtin_trap();
    }
    std::remove(path.c_str());
    return 0;
}
