// The meshes the tool builds itself: a graded tetrahedral cube, a torus surface, a square.
#include "cli.h"

#include <cmath>

namespace cli
{

namespace
{

/// Fixed-seed generator (xorshift64*) mapped to [-1, 1) by hand, so the demo mesh is the same
/// on every platform.
class jitter
{
public:
    double next()
    {
        m_state ^= m_state >> 12;
        m_state ^= m_state << 25;
        m_state ^= m_state >> 27;
        std::uint64_t r = m_state * 0x2545F4914F6CDD1Dull;
        return double(r >> 11) * (2.0 / 9007199254740992.0) - 1.0;
    }

private:
    std::uint64_t m_state = 0x9E3779B97F4A7C15ull;
};

/// Node positions along one axis, clustered towards 0: x = 0.3 t + 0.7 t^2.
double graded(double t)
{
    return 0.3 * t + 0.7 * t * t;
}

double det3(const double* a, const double* b, const double* c, const double* d)
{
    double u[3], v[3], w[3];
    for (int i = 0; i < 3; ++i)
    {
        u[i] = a[i] - d[i];
        v[i] = b[i] - d[i];
        w[i] = c[i] - d[i];
    }
    return u[0] * (v[1] * w[2] - v[2] * w[1]) - u[1] * (v[0] * w[2] - v[2] * w[0]) +
           u[2] * (v[0] * w[1] - v[1] * w[0]);
}

} // namespace

bool make_cube(unsigned n, mesh& m)
{
    if (n == 0) n = 1;
    const unsigned s = n + 1;
    m.blocks.assign(1, block{});
    dense2D<unsigned>& c = m.blocks[0].connectM;
    m.blocks[0].type = mu::EL_TETRA4;
    if (!m.pos.resize(3, std::size_t(s) * s * s) || !c.resize(4, std::size_t(6) * n * n * n))
        return false;
    jitter rnd;
    for (unsigned k = 0; k < s; ++k)
        for (unsigned j = 0; j < s; ++j)
            for (unsigned i = 0; i < s; ++i)
            {
                double* p = m.pos.col(i + s * (j + s * k));
                const unsigned idx[3] = {i, j, k};
                for (int a = 0; a < 3; ++a)
                {
                    double t = double(idx[a]) / n;
                    p[a] = graded(t);
                    // Interior nodes move by up to a tenth of the local cell width.
                    if (idx[a] > 0 && idx[a] < n)
                        p[a] += 0.1 * rnd.next() * (graded(t + 1.0 / n) - graded(t));
                }
            }
    // Six tetrahedra per cell around the diagonal from corner 0 to corner 7 (corner bits: x 1,
    // y 2, z 4); the split is the same in every cell, so neighbouring cells share their faces.
    static const unsigned paths[6][2] = {{1, 2}, {1, 4}, {2, 1}, {2, 4}, {4, 1}, {4, 2}};
    std::size_t e = 0;
    for (unsigned k = 0; k < n; ++k)
        for (unsigned j = 0; j < n; ++j)
            for (unsigned i = 0; i < n; ++i)
            {
                unsigned corner[8];
                for (unsigned b = 0; b < 8; ++b)
                    corner[b] = (i + (b & 1)) + s * ((j + ((b >> 1) & 1)) + s * (k + (b >> 2)));
                for (const auto& path : paths)
                {
                    unsigned* t = c.col(e++);
                    t[0] = corner[0];
                    t[1] = corner[path[0]];
                    t[2] = corner[path[0] + path[1]];
                    t[3] = corner[7];
                    if (det3(m.pos.col(t[0]), m.pos.col(t[1]), m.pos.col(t[2]), m.pos.col(t[3])) <
                        0)
                        std::swap(t[0], t[1]);
                }
            }
    return true;
}

bool make_torus(unsigned nu, unsigned nv, mesh& m)
{
    const double pi = 3.14159265358979323846, R = 1.0, r = 0.35;
    if (nu < 3) nu = 3;
    if (nv < 3) nv = 3;
    m.blocks.assign(1, block{});
    dense2D<unsigned>& c = m.blocks[0].connectM;
    m.blocks[0].type = mu::EL_TRIA3;
    if (!m.pos.resize(3, std::size_t(nu) * nv) || !c.resize(3, std::size_t(2) * nu * nv))
        return false;
    for (unsigned i = 0; i < nu; ++i)
        for (unsigned j = 0; j < nv; ++j)
        {
            double u = 2 * pi * i / nu, v = 2 * pi * j / nv;
            double* p = m.pos.col(std::size_t(i) * nv + j);
            p[0] = (R + r * std::cos(v)) * std::cos(u);
            p[1] = (R + r * std::cos(v)) * std::sin(u);
            p[2] = r * std::sin(v);
        }
    std::size_t e = 0;
    for (unsigned i = 0; i < nu; ++i)
        for (unsigned j = 0; j < nv; ++j)
        {
            // The quadrangle (i, j), (i+1, j), (i+1, j+1), (i, j+1) turns around the outward
            // normal.
            unsigned a = i * nv + j, b = ((i + 1) % nu) * nv + j;
            unsigned cc = ((i + 1) % nu) * nv + (j + 1) % nv, d = i * nv + (j + 1) % nv;
            unsigned* t = c.col(e++);
            t[0] = a, t[1] = b, t[2] = cc;
            t = c.col(e++);
            t[0] = a, t[1] = cc, t[2] = d;
        }
    return true;
}

bool make_square(unsigned n, mesh& m)
{
    if (n == 0) n = 1;
    const unsigned s = n + 1;
    m.blocks.assign(1, block{});
    dense2D<unsigned>& c = m.blocks[0].connectM;
    m.blocks[0].type = mu::EL_TRIA3;
    if (!m.pos.resize(2, std::size_t(s) * s) || !c.resize(3, std::size_t(2) * n * n)) return false;
    for (unsigned j = 0; j < s; ++j)
        for (unsigned i = 0; i < s; ++i)
        {
            double* p = m.pos.col(i + s * j);
            p[0] = double(i) / n;
            p[1] = double(j) / n;
        }
    std::size_t e = 0;
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i < n; ++i)
        {
            unsigned a = i + s * j, b = a + 1, d = a + s, cc = d + 1;
            unsigned* t = c.col(e++);
            t[0] = a, t[1] = b, t[2] = cc;
            t = c.col(e++);
            t[0] = a, t[1] = cc, t[2] = d;
        }
    return true;
}

} // namespace cli
