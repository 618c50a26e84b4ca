// Command-line access to the readers and writers for the round-trip scripts:
//   readers_tool dump <obj|medit|nastran> <file>
//       prints "nodes N", one line of three coordinates per node, then one line per element
//       "<kind> <reference> <nodes...>" (0-based nodes; NASTRAN elements in grid order, the
//       others in file order).
//   readers_tool convert obj <in> <out>
//       reads <in> and writes it back as OBJ.
#include "io/readers_private.h"

#include <cstdio>
#include <cstring>
#include <meshutil/io.h>

using namespace qx7::meshutil;
using qx7::dense1D;
using qx7::dense2D;

namespace
{

const char* kind_name(element_type t)
{
    switch (t)
    {
    case EL_NODE:
        return "vertex";
    case EL_EDGE2:
        return "line";
    case EL_EDGE3:
        return "line3";
    case EL_TRIA3:
        return "triangle";
    case EL_QUAD4:
        return "quad";
    case EL_TRIA6:
        return "triangle6";
    case EL_QUAD8:
        return "quad8";
    case EL_TETRA4:
        return "tetra";
    case EL_TETRA10:
        return "tetra10";
    case EL_PYRAM5:
        return "pyramid";
    case EL_PENTA6:
        return "wedge";
    case EL_HEXA8:
        return "hexahedron";
    case EL_HEXA20:
        return "hexahedron20";
    default:
        return "other";
    }
}

void print_nodes(const dense2D<double>& pos)
{
    std::printf("nodes %zu\n", pos.empty() ? std::size_t(0) : pos.cols());
    for (std::size_t j = 0; j < pos.cols(); ++j)
        std::printf("%.17g %.17g %.17g\n", pos(0, j), pos.rows() > 1 ? pos(1, j) : 0.0,
                    pos.rows() > 2 ? pos(2, j) : 0.0);
}

void print_element(element_type t, long ref, const unsigned* p, bool nastran)
{
    std::printf("%s %ld", kind_name(t), ref);
    unsigned count = nbr_nodes(t);
    const unsigned char* order = nastran ? detail::nastran_order(t, count) : nullptr;
    for (unsigned k = 0; k < count; ++k)
        std::printf(" %u", p[order ? order[k] : k]);
    std::printf("\n");
}

int dump_nastran(const char* path)
{
    dense2D<double> pos;
    dense2D<unsigned> C;
    dense1D<unsigned> first, PIDs, nodes, elements;
    dense1D<int> types;
    if (int rc = NASTRAN_input(path, pos, C, first, types, PIDs, nodes, elements)) return rc;
    print_nodes(pos);
    for (std::size_t k = 0; k < types.size(); ++k)
        for (std::size_t j = first[k]; j < first[k + 1]; ++j)
            print_element(column_shape(element_type(types[k]), C.col(j)), PIDs[j], C.col(j), true);
    return 0;
}

int dump(const char* format, const char* path)
{
    if (!std::strcmp(format, "nastran")) return dump_nastran(path);
    if (!std::strcmp(format, "medit"))
    {
        dense2D<double> pos;
        dense1D<int> vrefs;
        dense2D<unsigned> C[nbr_element_types];
        dense1D<int> refs[nbr_element_types];
        if (int rc = medit_input(path, pos, vrefs, C, refs)) return rc;
        print_nodes(pos);
        for (unsigned t = 0; t < nbr_element_types; ++t)
            for (std::size_t j = 0; !C[t].empty() && j < C[t].cols(); ++j)
                print_element(element_type(t), refs[t][j], C[t].col(j), false);
        return 0;
    }
    dense2D<double> pos;
    dense2D<unsigned> faces, edges;
    element_type type;
    if (int rc = WavefrontOBJ_input(path, pos, faces, type, edges)) return rc;
    print_nodes(pos);
    for (std::size_t j = 0; !faces.empty() && j < faces.cols(); ++j)
        print_element(column_shape(type, faces.col(j)), 0, faces.col(j), false);
    for (std::size_t j = 0; !edges.empty() && j < edges.cols(); ++j)
        print_element(EL_EDGE2, 0, edges.col(j), false);
    return 0;
}

int convert(const char* format, const char* in, const char* out)
{
    if (std::strcmp(format, "obj")) return 2;
    dense2D<double> pos;
    dense2D<unsigned> M[2];
    element_type type;
    if (int rc = WavefrontOBJ_input(in, pos, M[0], type, M[1])) return rc;
    dense1D<int> types(2);
    types[0] = type, types[1] = EL_EDGE2;
    return WavefrontOBJ_output(out, pos, M, M + 2, types);
}

} // namespace

int main(int argc, char** argv)
{
    int rc = 1;
    if (argc == 4 && !std::strcmp(argv[1], "dump"))
        rc = dump(argv[2], argv[3]);
    else if (argc == 5 && !std::strcmp(argv[1], "convert"))
        rc = convert(argv[2], argv[3], argv[4]);
    else
        std::fprintf(stderr,
                     "usage: readers_tool dump <format> <file> | convert <format> <in> <out>\n");
    if (rc) std::fprintf(stderr, "readers_tool: code %d\n", rc);
    return rc ? 1 : 0;
}
