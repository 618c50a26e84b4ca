// Shape qualities of elements: one value per column, or fed to a histogram.
#include "model/model_private.h"
#include "quality/quality_private.h"

#include <meshutil/quality.h>

namespace qx7::meshutil
{
namespace
{

/// Read access to the coordinates: gathers three components per node, rows that pos lacks read
/// as 0.
struct coords
{
    const double* data;
    std::size_t ld, rows;

    explicit coords(const dense2D<double>& pos) noexcept
        : data(pos.cols() ? pos.col(0) : nullptr), ld(pos.ld()), rows(pos.rows())
    {
    }
    const double* col(unsigned n) const noexcept { return data + std::size_t(n) * ld; }
    void load3(unsigned n, double* x) const noexcept
    {
        const double* p = col(n);
        if (rows >= 3)
        {
            x[0] = p[0];
            x[1] = p[1];
            x[2] = p[2];
            return;
        }
        for (std::size_t k = 0; k < 3; ++k)
            x[k] = k < rows ? p[k] : 0.0;
    }
};

/// Quality of one column of shape S; PLANAR when pos has exactly 2 rows.
template <element_type S, bool PLANAR>
inline double element_quality(const coords& X, const unsigned* e) noexcept
{
    if constexpr (S == EL_TRIA3 && PLANAR)
        return detail::tria_quality<2>(X.col(e[0]), X.col(e[1]), X.col(e[2]));
    else if constexpr (S == EL_QUAD4 && PLANAR)
    {
        const double* P[4] = {X.col(e[0]), X.col(e[1]), X.col(e[2]), X.col(e[3])};
        return detail::quad_quality_2d(P);
    }
    else
    {
        constexpr unsigned n = S == EL_TRIA3    ? 3
                               : S == EL_QUAD4  ? 4
                               : S == EL_TETRA4 ? 4
                               : S == EL_PYRAM5 ? 5
                               : S == EL_PENTA6 ? 6
                                                : 8;
        double x[n][3];
        const double* P[n];
        for (unsigned i = 0; i < n; ++i)
        {
            X.load3(e[i], x[i]);
            P[i] = x[i];
        }
        if constexpr (S == EL_TRIA3)
            return detail::tria_quality<3>(P[0], P[1], P[2]);
        else if constexpr (S == EL_QUAD4)
            return detail::quad_quality_3d(P);
        else if constexpr (S == EL_TETRA4)
            return detail::tetra_quality(P[0], P[1], P[2], P[3]);
        else if constexpr (S == EL_PYRAM5)
            return detail::pyram_quality(P, !PLANAR);
        else if constexpr (S == EL_PENTA6)
            return detail::penta_quality(P, !PLANAR);
        else
            return detail::hexa_quality(P, !PLANAR);
    }
}

/// Qualities of all columns of a pure matrix of shape S.
template <element_type S, bool PLANAR>
void pure_loop(const coords& X, const dense2D<unsigned>& connectM, double* out) noexcept
{
    for (std::size_t j = 0, n = connectM.cols(); j < n; ++j)
        out[j] = element_quality<S, PLANAR>(X, connectM.col(j));
}

/// Qualities of the first count lanes of H through the side-by-side kernel, lane b into
/// out[slot[b]]; an element outside the kernel's common case takes the general path.
/// On x86-64 with GCC and glibc this is compiled twice, for the base instruction set and for
/// AVX2 (four elements per instruction instead of two), and the loader picks the one the
/// processor runs. AVX2 does not bring fused multiply-adds, so both round every operation alike
/// and give the same bits.
#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__) && defined(__GLIBC__)
[[gnu::target_clones("avx2", "default")]]
#endif
void hexa_compute(detail::hexa_lanes<detail::hexa_batch>& H, const std::size_t* slot,
                  unsigned count, double* out) noexcept
{
    detail::hexa_quality_lanes(H);
    for (unsigned b = 0; b < count; ++b)
        if (!detail::hexa_lane_quality(H, b, out[slot[b]]))
        {
            double x[8][3];
            const double* P[8];
            for (unsigned i = 0; i < 8; ++i)
            {
                x[i][0] = H.x[i][b], x[i][1] = H.y[i][b], x[i][2] = H.z[i][b];
                P[i] = x[i];
            }
            out[slot[b]] = detail::extruded_quality<4>(P, detail::hexa_corners, 41.569219381653056,
                                                       hexa_boundaries, true);
        }
}

/// Hexahedra in space queued detail::hexa_batch at a time for hexa_compute, each with the place
/// of its value in the output.
class hexa_queue
{
public:
    explicit hexa_queue(double* out) noexcept : m_out(out) {}

    /// Queues the hexahedron of nodes e, whose value goes to out[j]; a full batch is computed.
    void add(const coords& X, const unsigned* e, std::size_t j) noexcept
    {
        for (unsigned i = 0; i < 8; ++i)
        {
            double p[3];
            X.load3(e[i], p);
            m_lanes.x[i][m_count] = p[0];
            m_lanes.y[i][m_count] = p[1];
            m_lanes.z[i][m_count] = p[2];
        }
        m_slot[m_count] = j;
        if (++m_count == B) flush();
    }

    /// Computes the queued hexahedra; a short batch repeats its last one in the unused lanes.
    void flush() noexcept
    {
        if (m_count == 0) return;
        for (unsigned b = m_count; b < B; ++b)
            for (unsigned i = 0; i < 8; ++i)
            {
                m_lanes.x[i][b] = m_lanes.x[i][m_count - 1];
                m_lanes.y[i][b] = m_lanes.y[i][m_count - 1];
                m_lanes.z[i][b] = m_lanes.z[i][m_count - 1];
            }
        hexa_compute(m_lanes, m_slot, m_count, m_out);
        m_count = 0;
    }

private:
    static constexpr unsigned B = detail::hexa_batch;
    detail::hexa_lanes<B> m_lanes;
    std::size_t m_slot[B];
    unsigned m_count = 0;
    double* m_out;
};

/// Qualities of all columns of a pure hexahedron matrix in space, through the queue.
void hexa_loop(const coords& X, const dense2D<unsigned>& connectM, double* out) noexcept
{
    hexa_queue queue(out);
    for (std::size_t j = 0, n = connectM.cols(); j < n; ++j)
        queue.add(X, connectM.col(j), j);
    queue.flush();
}

/// Qualities of the columns of an EL_FACE_MIX (4 rows) or EL_SOLID_MIX (8 rows) matrix; in space
/// the hexahedra go through the queue of the side-by-side kernel.
template <bool PLANAR>
void mixed_loop(const coords& X, const dense2D<unsigned>& connectM, element_type type,
                double* out) noexcept
{
    constexpr unsigned U = undefined_index;
    hexa_queue queue(out);
    for (std::size_t j = 0, n = connectM.cols(); j < n; ++j)
    {
        const unsigned* e = connectM.col(j);
        if (type == EL_FACE_MIX)
            out[j] = e[3] == U ? element_quality<EL_TRIA3, PLANAR>(X, e)
                               : element_quality<EL_QUAD4, PLANAR>(X, e);
        else if (e[3] != U && e[4] == U)
            out[j] = element_quality<EL_TETRA4, PLANAR>(X, e);
        else if (e[4] == U && e[5] != U && e[6] == U) // rows 3, 4 and 6 undefined: a prism
            out[j] = element_quality<EL_PENTA6, PLANAR>(X, e);
        else if (e[4] != U && e[5] == U)
            out[j] = element_quality<EL_PYRAM5, PLANAR>(X, e);
        else if (e[4] != U && e[6] == U)
            out[j] = element_quality<EL_PENTA6, PLANAR>(X, e);
        else if (PLANAR) // the rest reads as a hexahedron, rows 3 and 4 undefined included
            out[j] = element_quality<EL_HEXA8, PLANAR>(X, e);
        else
            queue.add(X, e, j);
    }
    queue.flush();
}

template <bool PLANAR>
void dispatch(const coords& X, const dense2D<unsigned>& connectM, element_type type,
              double* out) noexcept
{
    switch (type)
    {
    case EL_TRIA3:
        return pure_loop<EL_TRIA3, PLANAR>(X, connectM, out);
    case EL_QUAD4:
        return pure_loop<EL_QUAD4, PLANAR>(X, connectM, out);
    case EL_TETRA4:
        return pure_loop<EL_TETRA4, PLANAR>(X, connectM, out);
    case EL_PYRAM5:
        return pure_loop<EL_PYRAM5, PLANAR>(X, connectM, out);
    case EL_PENTA6:
        return pure_loop<EL_PENTA6, PLANAR>(X, connectM, out);
    case EL_HEXA8:
        if constexpr (!PLANAR) return hexa_loop(X, connectM, out);
        return pure_loop<EL_HEXA8, PLANAR>(X, connectM, out);
    default: // EL_FACE_MIX, EL_SOLID_MIX
        return mixed_loop<PLANAR>(X, connectM, type, out);
    }
}

bool supported(element_type type) noexcept
{
    return detail::linear_or_mixed(type);
}

/// Qualities of one matrix into out[0 .. cols), already sized and zeroed: checks from the type on.
int compute_matrix(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                   element_type FE_type, double* out) noexcept
{
    const element_type type = normalize_type(FE_type, connectM.rows());
    if (!supported(type)) return -3;
    if (connectM.cols() == 0) return 0;
    if (type == EL_EDGE2 && connectM.empty()) return 0;
    if (connectM.rows() != nbr_nodes(type) ||
        !check_IDs(connectM, type, static_cast<unsigned>(pos.cols())))
        return -2;
    if (type == EL_EDGE2)
    {
        for (std::size_t j = 0, n = connectM.cols(); j < n; ++j)
            out[j] = 1.0;
        return 0;
    }
    const coords X(pos);
    if (pos.rows() == 2)
        dispatch<true>(X, connectM, type, out);
    else
        dispatch<false>(X, connectM, type, out);
    return 0;
}

} // namespace

int shape_qualities(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                    element_type FE_type, dense1D<double>& out) noexcept
{
    out.clear();
    if (!out.resize(connectM.cols(), 0.0)) return -199;
    const int code = compute_matrix(pos, connectM, FE_type, out.data());
    if (code != 0) out.clear();
    return code;
}

int shape_qualities(const dense2D<double>& pos, const dense2D<unsigned>* first,
                    const dense2D<unsigned>* last, const dense1D<int>& element_types,
                    dense1D<double>& out) noexcept
{
    if (first > last) return -3;
    const std::size_t nbr_matrices = static_cast<std::size_t>(last - first);
    if (nbr_matrices != element_types.size()) return -4;
    std::size_t total = 0;
    for (const dense2D<unsigned>* M = first; M != last; ++M)
        total += M->cols();
    out.clear();
    if (!out.resize(total, 0.0)) return -199;
    std::size_t offset = 0;
    for (std::size_t k = 0; k < nbr_matrices; ++k)
    {
        const dense2D<unsigned>& M = first[k];
        if (M.empty()) continue; // its columns stay counted in total: kept on purpose
        const int code =
            compute_matrix(pos, M, detail::to_element_type(element_types[k]), out.data() + offset);
        if (code != 0)
        {
            out.clear();
            return code;
        }
        offset += M.cols();
    }
    return 0;
}

int shape_qualities(const dense2D<double>& pos, const dense2D<unsigned>* first,
                    const dense2D<unsigned>* last, const dense1D<int>& element_types,
                    misc::histogram& histo) noexcept
{
    dense1D<double> values;
    const int code = shape_qualities(pos, first, last, element_types, values);
    if (code == 0) histo.process(values);
    return code;
}

int shape_qualities(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                    element_type FE_type, misc::histogram& histo) noexcept
{
    dense1D<int> types;
    if (!types.resize(1, static_cast<int>(FE_type))) return -199;
    return shape_qualities(pos, &connectM, &connectM + 1, types, histo);
}

} // namespace qx7::meshutil
