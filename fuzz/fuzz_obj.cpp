// Fuzzes the Wavefront OBJ reader with arbitrary bytes written to a temporary file.
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
    const std::string path = "/tmp/meshutil_fuzz_obj_" + std::to_string(getpid()) + ".obj";
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return 0;
    std::fwrite(data, 1, size, f);
    std::fclose(f);
    qx7::dense2D<double> pos;
    qx7::dense2D<unsigned> faces, edges;
    element_type type;
    if (WavefrontOBJ_input(path.c_str(), pos, faces, type, edges) == 0)
    {
        // A successful read is a valid mesh.
        if (!faces.empty() && !check_IDs(faces, type, unsigned(pos.cols()))) __builtin_trap();
        if (!check_IDs(edges, EL_EDGE2, unsigned(pos.cols()))) __builtin_trap();
    }
    else if (!pos.empty() || !faces.empty() || !edges.empty())
        __builtin_trap();
    std::remove(path.c_str());
    return 0;
}
