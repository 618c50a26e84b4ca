// Boundaries between elements of different colours.
#include "connectivity/connectivity_private.h"

#include <algorithm>
#include <meshutil/connectivity.h>

namespace qx7::meshutil
{

int get_colors_boundaries(const dense2D<unsigned>& connectM, const dense2D<unsigned>& neighbors,
                          const dense1D<unsigned>& colors, element_type FE_type, bool both_sides,
                          dense2D<unsigned>& boundaries) noexcept
{
    const std::size_t n = connectM.cols();
    if (n == 0) return 0;
    FE_type = normalize_type(FE_type, connectM.rows());
    if (connectM.rows() != nbr_nodes(FE_type)) return -1;
    const unsigned B = nbr_boundaries(FE_type);
    if (neighbors.rows() != B || neighbors.cols() < n || !detail::entries_below(neighbors, n))
        return -2;
    if (colors.size() != n) return -3;
    const unsigned R = boundary_record_size(FE_type);
    if (!boundaries.empty() && boundaries.rows() != R) return -5;
    if (!detail::boundary_type_supported(FE_type)) return -4;

    const unsigned* color = colors.data();
    for (std::size_t e = 0; e < n; ++e)
    {
        const unsigned* p = connectM.col(e);
        const unsigned* nb = neighbors.col(e);
        const local_boundaries& t = detail::column_table(FE_type, p);
        for (unsigned k = 0, kn = std::min(t.count, B); k < kn; ++k)
        {
            const unsigned other = nb[k];
            if (other != undefined_index && color[other] == color[e]) continue;
            // Written from the lower element only, unless both sides are asked for.
            if (!both_sides && other <= e) continue;
            if (!detail::append_boundary(boundaries, t, p, k, R)) return -199;
        }
    }
    return 0;
}

} // namespace qx7::meshutil
