// Pieces shared by the file-format writers: splitting mixed connectivities into pure ones.
#include "io/io_private.h"

#include <meshutil/connectivity.h>

namespace qx7::meshutil::io
{

int split_mixed(const dense2D<unsigned>* first, const dense2D<unsigned>* last,
                const dense1D<int>& element_types, std::vector<pure_part>& parts) noexcept
{
    try
    {
        for (const dense2D<unsigned>* m = first; m != last; ++m)
        {
            if (m->empty()) continue;
            const unsigned source = unsigned(m - first);
            const element_type t = normalize_type(element_type(element_types[source]), m->rows());
            if (t != EL_FACE_MIX && t != EL_SOLID_MIX)
            {
                parts.push_back({*m, t, source});
                continue;
            }
            // Mixed: a copy with its columns grouped by number of defined nodes; each group with
            // columns is a shape (3 or 4 nodes of a face, 4, 5, 6 or 8 of a solid).
            dense2D<unsigned> sorted;
            dense1D<unsigned> order, offsets;
            if (!sorted.copy(*m) || sort_elfes(sorted, order, offsets) != 0) return -199;
            const std::size_t rows = sorted.rows();
            for (std::size_t k = 1; k <= rows; ++k)
            {
                const std::size_t j0 = offsets[k], j1 = offsets[k + 1];
                if (j0 == j1) continue;
                const element_type shape = column_shape(t, sorted.col(j0));
                parts.push_back({sorted.sub_matrix(0, j0, k, j1 - j0), shape, source});
            }
        }
    }
    catch (const std::exception&)
    {
        return -199;
    }
    return 0;
}

} // namespace qx7::meshutil::io
