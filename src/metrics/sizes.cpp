// Isotropic size field from the edge lengths of a mesh.
#include "metrics/metrics_private.h"
#include "model/model_private.h"

#include <meshutil/metrics.h>

namespace qx7::meshutil
{

namespace
{

enum class mean_mode
{
    minimum,
    maximum,
    arithmetic, // p == 1: L itself, no pow
    power
};

/// Euclidean distance between columns a and b over R rows (R == 0: `rows` rows).
template <int R>
inline double distance(const double* pa, const double* pb, std::size_t rows) noexcept
{
    double s = 0.0;
    const std::size_t r = R ? std::size_t(R) : rows;
    for (std::size_t k = 0; k < r; ++k)
    {
        const double d = pb[k] - pa[k];
        s += d * d;
    }
    return std::sqrt(s);
}

/// Accumulates the edges of every element into h (sizes) and c (counters).
template <int R, mean_mode M>
void accumulate(const dense2D<double>& pos, const dense2D<unsigned>& connectM, element_type type,
                double p, double* h, unsigned* c) noexcept
{
    // Tables of the shapes a column may have: the type itself, or the members of a mixed type.
    const bool mixed = type == EL_FACE_MIX || type == EL_SOLID_MIX;
    detail::local_edges tables[4] = {};
    if (type == EL_FACE_MIX)
    {
        tables[0] = detail::edges_of(EL_TRIA3);
        tables[1] = detail::edges_of(EL_QUAD4);
    }
    else if (type == EL_SOLID_MIX)
    {
        tables[0] = detail::edges_of(EL_TETRA4);
        tables[1] = detail::edges_of(EL_PYRAM5);
        tables[2] = detail::edges_of(EL_PENTA6);
        tables[3] = detail::edges_of(EL_HEXA8);
    }
    else
        tables[0] = detail::edges_of(type);
    const double init = M == mean_mode::minimum ? DBL_MAX : 0.0;
    const std::size_t rows = pos.rows();
    for (std::size_t j = 0, n = connectM.cols(); j < n; ++j)
    {
        const unsigned* e = connectM.col(j);
        const detail::local_edges* t = tables;
        if (mixed)
        {
            const element_type shape = column_shape(type, e);
            t += shape == EL_QUAD4 || shape == EL_PYRAM5 ? 1
                 : shape == EL_PENTA6                    ? 2
                 : shape == EL_HEXA8                     ? 3
                                                         : 0;
        }
        for (unsigned k = 0; k < t->count; ++k)
        {
            const unsigned a = e[t->nodes[k][0]], b = e[t->nodes[k][1]];
            const double L = distance<R>(pos.col(a), pos.col(b), rows);
            if (L == 0.0 || !std::isfinite(L)) continue;
            double v = L;
            if constexpr (M == mean_mode::power) v = std::pow(L, p);
            for (const unsigned x : {a, b})
            {
                if (c[x] == 0) h[x] = init;
                if constexpr (M == mean_mode::minimum)
                    h[x] = std::min(h[x], v);
                else if constexpr (M == mean_mode::maximum)
                    h[x] = std::max(h[x], v);
                else
                    h[x] += v;
                ++c[x];
            }
        }
    }
}

template <int R>
void accumulate_mode(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                     element_type type, double p, double* h, unsigned* c) noexcept
{
    if (p == 0.0)
        accumulate<R, mean_mode::minimum>(pos, connectM, type, p, h, c);
    else if (p == DBL_MAX)
        accumulate<R, mean_mode::maximum>(pos, connectM, type, p, h, c);
    else if (p == 1.0)
        accumulate<R, mean_mode::arithmetic>(pos, connectM, type, p, h, c);
    else
        accumulate<R, mean_mode::power>(pos, connectM, type, p, h, c);
}

bool supported(element_type type) noexcept
{
    return detail::linear_or_mixed(type);
}

} // namespace

int metrics_gen_iso(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                    element_type FE_type, dense1D<double>& sizes, double p) noexcept
{
    if (connectM.empty()) return 0;
    const element_type type = normalize_type(FE_type, connectM.rows());
    if (pos.rows() < element_dim(type)) return -1;
    const std::size_t nbr_nodes = pos.cols();
    if (!check_IDs(connectM, type, unsigned(nbr_nodes))) return -2;
    if (p < 0.0) return -5;
    dense1D<unsigned> counter;
    if (!counter.resize(nbr_nodes, 0u)) return -199;
    if (sizes.size() < nbr_nodes && !sizes.resize(nbr_nodes, 0.0)) return -199;
    if (!supported(type)) return -3;

    double* h = sizes.data();
    unsigned* c = counter.data();
    switch (pos.rows())
    {
    case 2:
        accumulate_mode<2>(pos, connectM, type, p, h, c);
        break;
    case 3:
        accumulate_mode<3>(pos, connectM, type, p, h, c);
        break;
    default:
        accumulate_mode<0>(pos, connectM, type, p, h, c);
        break;
    }
    if (p > 0.0 && p < DBL_MAX)
    {
        const double inv = 1.0 / p;
        for (std::size_t j = 0; j < nbr_nodes; ++j)
            if (c[j]) h[j] = p == 1.0 ? h[j] / c[j] : std::pow(h[j] / c[j], inv);
    }
    return 0;
}

} // namespace qx7::meshutil
