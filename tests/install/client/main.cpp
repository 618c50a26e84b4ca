// A client of the installed library: prints its version and the node count of a tetrahedron.
#include <meshutil/meshutil.h>

#include <cstdio>

int main()
{
    std::printf("meshutil %s, a tetrahedron has %u nodes\n", qx7::meshutil::version(),
                qx7::meshutil::nbr_nodes(qx7::meshutil::EL_TETRA4));
    return 0;
}
