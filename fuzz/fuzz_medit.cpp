// Fuzzes the medit mesh reader with arbitrary bytes written to a temporary file.
// fuzz-seconds: 30
#include "fuzz_file.h"

#include <meshutil/io.h>

using namespace qx7::meshutil;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const fuzz_file file("medit", ".mesh", data, size);
    if (!file.ok()) return 0;
    qx7::dense2D<double> pos;
    qx7::dense1D<int> vertex_refs;
    qx7::dense2D<unsigned> connectM[nbr_element_types];
    qx7::dense1D<int> refs[nbr_element_types];
    int rc = medit_input(file.path(), pos, vertex_refs, connectM, refs);
    for (unsigned t = 0; t < nbr_element_types; ++t)
    {
        // A successful read is a valid mesh; a failed one leaves nothing behind.
        if (rc == 0 && !check_IDs(connectM[t], element_type(t), unsigned(pos.cols())))
            __builtin_trap();
        if (rc != 0 && !connectM[t].empty()) __builtin_trap();
    }
    return 0;
}
