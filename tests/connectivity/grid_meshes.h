// Structured meshes generated in code, for the connectivity tests and benchmarks.
#pragma once

#include <meshutil/containers.h>

namespace qx7::meshutil::test_meshes
{

/// Node number of grid point (i, j, k) of an (nx+1) x (ny+1) x (nz+1) point grid.
inline unsigned grid_node(unsigned i, unsigned j, unsigned k, unsigned nx, unsigned ny)
{
    return i + (nx + 1) * (j + (ny + 1) * k);
}

/// nx x ny x nz cubes, each split into 6 tetrahedra around its main diagonal (a conforming split:
/// neighbouring cubes cut their common square along the same diagonal). Every tetrahedron has a
/// positive volume (node1 - node0) . ((node2 - node0) x (node3 - node0)) in the grid coordinates.
inline dense2D<unsigned> tetra_cube(unsigned nx, unsigned ny, unsigned nz)
{
    static const unsigned perms[6][3] = {{0, 1, 2}, {1, 2, 0}, {2, 0, 1},
                                         {0, 2, 1}, {2, 1, 0}, {1, 0, 2}};
    dense2D<unsigned> M(4, std::size_t(6) * nx * ny * nz);
    std::size_t e = 0;
    for (unsigned k = 0; k < nz; ++k)
        for (unsigned j = 0; j < ny; ++j)
            for (unsigned i = 0; i < nx; ++i)
                for (unsigned p = 0; p < 6; ++p)
                {
                    unsigned x[3] = {i, j, k};
                    unsigned* c = M.col(e++);
                    c[0] = grid_node(x[0], x[1], x[2], nx, ny);
                    for (unsigned s = 0; s < 3; ++s)
                    {
                        ++x[perms[p][s]];
                        c[s + 1] = grid_node(x[0], x[1], x[2], nx, ny);
                    }
                    if (p >= 3) std::swap(c[2], c[3]); // odd permutations: restore the sign
                }
    return M;
}

/// nx x ny x nz hexahedra: bottom 0-1-2-3 counter-clockwise seen from above, 4-7 above them.
inline dense2D<unsigned> hexa_grid(unsigned nx, unsigned ny, unsigned nz)
{
    dense2D<unsigned> M(8, std::size_t(nx) * ny * nz);
    std::size_t e = 0;
    for (unsigned k = 0; k < nz; ++k)
        for (unsigned j = 0; j < ny; ++j)
            for (unsigned i = 0; i < nx; ++i)
            {
                unsigned* c = M.col(e++);
                for (unsigned l = 0; l < 2; ++l)
                {
                    c[4 * l + 0] = grid_node(i, j, k + l, nx, ny);
                    c[4 * l + 1] = grid_node(i + 1, j, k + l, nx, ny);
                    c[4 * l + 2] = grid_node(i + 1, j + 1, k + l, nx, ny);
                    c[4 * l + 3] = grid_node(i, j + 1, k + l, nx, ny);
                }
            }
    return M;
}

/// A closed torus of nu x nv quadrangles (nu, nv >= 3), each split into two triangles, all
/// oriented alike: node (u, v) is u + nu * v, both directions periodic.
inline dense2D<unsigned> torus_triangles(unsigned nu, unsigned nv)
{
    dense2D<unsigned> M(3, std::size_t(2) * nu * nv);
    std::size_t e = 0;
    for (unsigned v = 0; v < nv; ++v)
        for (unsigned u = 0; u < nu; ++u)
        {
            const unsigned a = u + nu * v, b = (u + 1) % nu + nu * v,
                           c = (u + 1) % nu + nu * ((v + 1) % nv), d = u + nu * ((v + 1) % nv);
            unsigned* t0 = M.col(e++);
            t0[0] = a, t0[1] = b, t0[2] = c;
            unsigned* t1 = M.col(e++);
            t1[0] = a, t1[1] = c, t1[2] = d;
        }
    return M;
}

} // namespace qx7::meshutil::test_meshes
