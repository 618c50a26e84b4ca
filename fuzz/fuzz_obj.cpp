// Fuzzes the Wavefront OBJ reader with arbitrary bytes written to a temporary file.
// fuzz-seconds: 30
#include "fuzz_file.h"

#include <meshutil/io.h>

using namespace qx7::meshutil;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const fuzz_file file("obj", ".obj", data, size);
    if (!file.ok()) return 0;
    qx7::dense2D<double> pos;
    qx7::dense2D<unsigned> faces, edges;
    element_type type;
    if (WavefrontOBJ_input(file.path(), pos, faces, type, edges) == 0)
    {
        // A successful read is a valid mesh.
        if (!faces.empty() && !check_IDs(faces, type, unsigned(pos.cols()))) __builtin_trap();
        if (!check_IDs(edges, EL_EDGE2, unsigned(pos.cols()))) __builtin_trap();
    }
    else if (!pos.empty() || !faces.empty() || !edges.empty())
        __builtin_trap();
    return 0;
}
