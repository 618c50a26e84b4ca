// Fuzzes the FEMAP neutral reader with arbitrary bytes written to a temporary file.
// fuzz-seconds: 30
#include "fuzz_file.h"

#include <meshutil/io.h>

using namespace qx7::meshutil;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const fuzz_file file("femap", ".neu", data, size);
    if (!file.ok()) return 0;
    qx7::dense2D<double> pos;
    qx7::dense2D<unsigned> connectM;
    qx7::dense1D<unsigned> first, PIDs, node_IDs, element_IDs;
    qx7::dense1D<int> types;
    const int rc =
        FEMAP_input(file.path(), pos, connectM, first, types, PIDs, node_IDs, element_IDs);
    check_grouped_read(rc, pos, connectM, first, types, PIDs);
    return 0;
}
