// Command-line helper of the STL round trips through external readers and writers:
//   stl_roundtrip write <file> text|binary   writes a fixed torus, prints it as reference
//   stl_roundtrip read <file>                reads a file, prints the code and the mesh
// The mesh is printed as "nodes N", N lines "x y z", "triangles T", T lines "a b c" (0-based).
#include <cmath>
#include <cstdio>
#include <cstring>
#include <meshutil/io.h>

using namespace qx7::meshutil;

namespace
{

void print_mesh(const qx7::dense2D<double>& pos, const qx7::dense2D<unsigned>& connectM)
{
    std::printf("nodes %zu\n", pos.cols());
    for (std::size_t j = 0; j < pos.cols(); ++j)
        std::printf("%.17g %.17g %.17g\n", pos(0, j), pos(1, j), pos(2, j));
    std::printf("triangles %zu\n", connectM.cols());
    for (std::size_t j = 0; j < connectM.cols(); ++j)
        std::printf("%u %u %u\n", connectM(0, j), connectM(1, j), connectM(2, j));
}

/// A closed torus (radii 3 and 1) of 2 x 24 x 12 triangles, oriented outward.
void torus(qx7::dense2D<double>& pos, qx7::dense2D<unsigned>& connectM)
{
    const unsigned nu = 24, nv = 12;
    const double pi = 3.14159265358979323846;
    pos.resize(3, nu * nv);
    connectM.resize(3, 2 * nu * nv);
    for (unsigned i = 0; i < nu; ++i)
        for (unsigned k = 0; k < nv; ++k)
        {
            const double u = 2 * pi * i / nu, v = 2 * pi * k / nv;
            double* p = pos.col(i * nv + k);
            p[0] = (3 + std::cos(v)) * std::cos(u);
            p[1] = (3 + std::cos(v)) * std::sin(u);
            p[2] = std::sin(v);
            const unsigned a = i * nv + k, b = ((i + 1) % nu) * nv + k;
            const unsigned c = ((i + 1) % nu) * nv + (k + 1) % nv, d = i * nv + (k + 1) % nv;
            unsigned* e = connectM.col(2 * a);
            e[0] = a, e[1] = b, e[2] = c;
            e = connectM.col(2 * a + 1);
            e[0] = a, e[1] = c, e[2] = d;
        }
}

} // namespace

int main(int argc, char** argv)
{
    qx7::dense2D<double> pos;
    qx7::dense2D<unsigned> connectM;
    if (argc == 4 && std::strcmp(argv[1], "write") == 0)
    {
        torus(pos, connectM);
        const int code = STL_output(argv[2], pos, connectM, std::strcmp(argv[3], "text") == 0);
        if (code != 0) return std::fprintf(stderr, "STL_output: %d\n", code), 1;
        print_mesh(pos, connectM);
        return 0;
    }
    if (argc == 3 && std::strcmp(argv[1], "read") == 0)
    {
        const int code = STL_input(argv[2], pos, connectM);
        std::printf("code %d\n", code);
        print_mesh(pos, connectM);
        return 0;
    }
    std::fprintf(stderr, "usage: stl_roundtrip write <file> text|binary | read <file>\n");
    return 2;
}
