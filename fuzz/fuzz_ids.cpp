// Fuzzes the column matching of two element lists and the typed conformity check with matrices
// read from arbitrary bytes.
// fuzz-seconds: 20
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <meshutil/elements.h>

using namespace qx7::meshutil;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 3) return 0;
    const std::size_t rows = data[0] % 10, type = data[1] % 23;
    const bool strict = data[2] & 1;
    data += 3, size -= 3;
    const std::size_t values = size / 4, cols_a = rows ? values / (2 * rows) : 0;
    const std::size_t cols_b = rows ? (values - cols_a * rows) / rows : 0;
    qx7::dense2D<unsigned> A(rows, cols_a), B(rows, cols_b);
    // Small node numbers make matches likely; 0xff bytes give ~0u.
    auto value = [&](std::size_t k)
    {
        std::uint32_t v;
        std::memcpy(&v, data + 4 * k, 4);
        return (v & 0xff) == 0xff ? undefined_index : v % 16;
    };
    for (std::size_t k = 0; k < cols_a * rows; ++k)
        A.data()[k] = value(k);
    for (std::size_t k = 0; k < cols_b * rows; ++k)
        B.data()[k] = value(cols_a * rows + k);
    qx7::dense1D<unsigned> B_in_A, A_in_B, order, first;
    get_IDs(A, B, B_in_A, A_in_B, strict);
    check_IDs(A, static_cast<element_type>(type), 12);
    get_sorted_order(A.as_vector(), order, first);
    return 0;
}
