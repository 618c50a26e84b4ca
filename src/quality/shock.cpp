// Size shocks: the largest shock of the edges at each node, in a size or metric field.
#include "quality/quality_private.h"

#include <meshutil/quality.h>

namespace qx7::meshutil
{
namespace
{

/// Shocks[i] becomes s when it is not already >= s (so a NaN is always replaced).
inline void raise(double* shocks, unsigned i, double s) noexcept
{
    if (!(shocks[i] >= s)) shocks[i] = s;
}

template <unsigned DIM>
void shock_loop(const dense2D<double>& pos, const dense2D<unsigned>& edges, const double* h,
                double* shocks) noexcept
{
    for (std::size_t k = 0, n = edges.cols(); k < n; ++k)
    {
        const unsigned* e = edges.col(k);
        const double s =
            detail::iso_edge_shock<DIM>(pos.col(e[0]), pos.col(e[1]), h[e[0]], h[e[1]]);
        raise(shocks, e[0], s);
        raise(shocks, e[1], s);
    }
}

template <unsigned DIM>
void shock_loop(const dense2D<double>& pos, const dense2D<unsigned>& edges,
                const dense2D<double>& metrics, double* shocks) noexcept
{
    for (std::size_t k = 0, n = edges.cols(); k < n; ++k)
    {
        const unsigned* e = edges.col(k);
        const double s = detail::aniso_edge_shock<DIM>(pos.col(e[0]), pos.col(e[1]),
                                                       metrics.col(e[0]), metrics.col(e[1]));
        raise(shocks, e[0], s);
        raise(shocks, e[1], s);
    }
}

/// The checks shared by both forms: 1 (go on), 0 (no edge) or a code.
int check_shock_arguments(const dense2D<double>& pos, const dense2D<unsigned>& edges) noexcept
{
    if (edges.empty()) return 0;
    if (pos.rows() != 2 && pos.rows() != 3) return -1;
    if (!check_IDs(edges, EL_EDGE2, static_cast<unsigned>(pos.cols()))) return -2;
    return 1;
}

/// shocks sized to the node count, all 0; false when memory cannot be had (shocks unchanged).
bool reset_shocks(dense1D<double>& shocks, std::size_t nbr_nodes) noexcept
{
    if (!shocks.resize(nbr_nodes)) return false;
    shocks = 0.0;
    return true;
}

} // namespace

int H_shock(const dense2D<double>& pos, const dense2D<unsigned>& edges,
            const dense2D<double>& metrics, dense1D<double>& shocks) noexcept
{
    const int check = check_shock_arguments(pos, edges);
    if (check <= 0) return check;
    const std::size_t need = pos.rows() == 2 ? 3 : 6;
    if (metrics.rows() < need || metrics.cols() < pos.cols()) return -3;
    if (!reset_shocks(shocks, pos.cols())) return -199;
    if (pos.rows() == 2)
        shock_loop<2>(pos, edges, metrics, shocks.data());
    else
        shock_loop<3>(pos, edges, metrics, shocks.data());
    return 0;
}

int H_shock(const dense2D<double>& pos, const dense2D<unsigned>& edges,
            const dense1D<double>& sizes, dense1D<double>& shocks) noexcept
{
    const int check = check_shock_arguments(pos, edges);
    if (check <= 0) return check;
    if (sizes.size() < pos.cols()) return -3;
    if (!reset_shocks(shocks, pos.cols())) return -199;
    if (pos.rows() == 2)
        shock_loop<2>(pos, edges, sizes.data(), shocks.data());
    else
        shock_loop<3>(pos, edges, sizes.data(), shocks.data());
    return 0;
}

} // namespace qx7::meshutil
