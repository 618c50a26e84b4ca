// Fuzzes the STL reader (text and binary parsing, the fallback between them, welding) with
// arbitrary file contents; what it reads is written back in both forms and read again.
// fuzz-seconds: 60
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <meshutil/io.h>
#include <unistd.h>

using namespace qx7::meshutil;

namespace
{

/// Stops the run when a property fails.
void require(bool condition)
{
    if (!condition) __builtin_trap();
}

/// A well-formed result: 3 x nodes coordinates, 3 x triangles indices below the node count.
void check_mesh(const qx7::dense2D<double>& pos, const qx7::dense2D<unsigned>& connectM)
{
    require(pos.empty() || pos.rows() == 3);
    require(connectM.empty() || connectM.rows() == 3);
    require(check_IDs(connectM, EL_TRIA3, unsigned(pos.cols())));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // The reader takes a file name: one file per process, removed after each input.
    char path[64];
    std::snprintf(path, sizeof path, "/tmp/fuzz_stl_%ld.stl", long(getpid()));
    std::FILE* f = std::fopen(path, "wb");
    if (!f) return 0;
    const bool written = std::fwrite(data, 1, size, f) == size;
    if (std::fclose(f) != 0 || !written)
    {
        std::remove(path);
        return 0;
    }
    qx7::dense2D<double> pos;
    qx7::dense2D<unsigned> connectM;
    const int code = STL_input(path, pos, connectM);
    require(code == 0 || code == -2 || code == -3 || code == -199);
    if (code != 0)
        require(pos.empty() && connectM.empty());
    else
    {
        check_mesh(pos, connectM);
        const std::size_t nbr_tri = connectM.empty() ? 0 : connectM.cols();
        for (bool text : {false, true})
        {
            require(STL_output(path, pos, connectM, text) == 0);
            qx7::dense2D<double> pos2;
            qx7::dense2D<unsigned> connectM2;
            require(STL_input(path, pos2, connectM2) == 0);
            check_mesh(pos2, connectM2);
            require((connectM2.empty() ? 0 : connectM2.cols()) <= nbr_tri);
        }
    }
    std::remove(path);
    return 0;
}
