// Random small meshes of every linear and mixed type, built so that many boundaries are shared
// (by two elements or more), and brute-force boundary matching, for property tests.
#pragma once

#include <meshutil/elements.h>
#include <random>
#include <vector>

namespace qx7::meshutil::test_meshes
{

/// The shapes a column of the type may hold.
inline std::vector<element_type> shapes_of(element_type FE_type)
{
    if (FE_type == EL_FACE_MIX) return {EL_TRIA3, EL_QUAD4};
    if (FE_type == EL_SOLID_MIX) return {EL_TETRA4, EL_PYRAM5, EL_PENTA6, EL_HEXA8};
    return {FE_type};
}

/// The nodes of boundary k of column j as a list (its own cycle).
inline std::vector<unsigned> boundary_cycle(const dense2D<unsigned>& M, element_type FE_type,
                                            std::size_t j, unsigned k)
{
    const unsigned* p = M.col(j);
    const local_boundaries& t = *boundaries_of(column_shape(FE_type, p));
    std::vector<unsigned> c;
    for (unsigned i = 0; i < t.size[k]; ++i)
        c.push_back(p[t.nodes[k][i]]);
    return c;
}

/// Number of local boundaries of column j.
inline unsigned boundary_count(const dense2D<unsigned>& M, element_type FE_type, std::size_t j)
{
    return boundaries_of(column_shape(FE_type, M.col(j)))->count;
}

/// Same cycle of nodes, in either sense and from any start (checked by trying them all).
inline bool same_cycle(const std::vector<unsigned>& a, const std::vector<unsigned>& b)
{
    const std::size_t n = a.size();
    if (b.size() != n) return false;
    for (std::size_t s = 0; s < n; ++s)
        for (int dir : {1, -1})
        {
            bool eq = true;
            for (std::size_t i = 0; i < n && eq; ++i)
                eq = a[i] == b[(s + n + dir * long(i) % long(n)) % n];
            if (eq) return true;
        }
    return false;
}

/// A random mesh of n columns with nodes drawn from 0 .. pool-1 (pool >= 8). About half of the
/// columns are glued to an earlier column: one of their boundaries is a rotated, possibly
/// reversed, copy of one of its boundaries. One column in twelve repeats a node.
inline dense2D<unsigned> random_mesh(element_type FE_type, std::size_t n, unsigned pool,
                                     std::mt19937& gen)
{
    const std::vector<element_type> shapes = shapes_of(FE_type);
    const unsigned rows = nbr_nodes(FE_type);
    dense2D<unsigned> M(rows, n, undefined_index);
    std::vector<unsigned> nodes(pool);
    for (std::size_t j = 0; j < n; ++j)
    {
        const element_type shape = shapes[gen() % shapes.size()];
        const unsigned s = nbr_nodes(shape);
        for (unsigned i = 0; i < pool; ++i)
            nodes[i] = i;
        for (unsigned i = 0; i < s; ++i)
            std::swap(nodes[i], nodes[i + gen() % (pool - i)]);
        if (gen() % 12 == 0) nodes[gen() % s] = nodes[gen() % s];
        unsigned* c = M.col(j);
        for (unsigned i = 0; i < s; ++i)
            c[i] = nodes[i];
        if (j == 0 || gen() % 2) continue;
        // Glue: copy a boundary of an earlier column onto a boundary of this one of equal size.
        const std::size_t other = gen() % j;
        const unsigned ko = gen() % boundary_count(M, FE_type, other);
        std::vector<unsigned> cyc = boundary_cycle(M, FE_type, other, ko);
        const local_boundaries& t = *boundaries_of(shape);
        std::vector<unsigned> fits;
        for (unsigned k = 0; k < t.count; ++k)
            if (t.size[k] == cyc.size()) fits.push_back(k);
        if (fits.empty()) continue;
        const unsigned k = fits[gen() % fits.size()];
        const std::size_t m = cyc.size(), rot = gen() % m;
        const bool rev = gen() % 2;
        for (std::size_t i = 0; i < m; ++i)
        {
            const unsigned v = cyc[(rot + (rev ? m - i : i)) % m];
            // Keep the column's other nodes distinct from the glued ones where possible.
            for (unsigned l = 0; l < s; ++l)
                if (c[l] == v) c[l] = c[t.nodes[k][i]];
            c[t.nodes[k][i]] = v;
        }
    }
    return M;
}

/// Neighbour matrix by brute force: every pair of boundaries compared with same_cycle; a group of
/// boundaries sharing one cycle is ordered by (element, local boundary). Two: linked both ways.
/// More: with the flag, every other one points to the first and the first to the last; without
/// it, none is linked.
inline dense2D<unsigned> brute_neighbors(const dense2D<unsigned>& M, element_type FE_type,
                                         unsigned rows, bool flag_nonmanifold)
{
    struct entry
    {
        std::size_t e;
        unsigned k;
        std::vector<unsigned> c;
    };
    std::vector<entry> all;
    for (std::size_t j = 0; j < M.cols(); ++j)
        for (unsigned k = 0; k < boundary_count(M, FE_type, j); ++k)
            all.push_back({j, k, boundary_cycle(M, FE_type, j, k)});
    dense2D<unsigned> N(rows, M.cols(), undefined_index);
    std::vector<bool> done(all.size(), false);
    for (std::size_t a = 0; a < all.size(); ++a)
    {
        if (done[a]) continue;
        std::vector<std::size_t> group{a};
        for (std::size_t b = a + 1; b < all.size(); ++b)
            if (!done[b] && same_cycle(all[a].c, all[b].c)) group.push_back(b);
        for (std::size_t g : group)
            done[g] = true;
        if (group.size() == 2 || (group.size() > 2 && flag_nonmanifold))
        {
            const entry& f = all[a];
            for (std::size_t g = 1; g < group.size(); ++g)
            {
                const entry& m = all[group[g]];
                N(m.k, m.e) = unsigned(f.e);
                N(f.k, f.e) = unsigned(m.e);
            }
        }
    }
    return N;
}

} // namespace qx7::meshutil::test_meshes
