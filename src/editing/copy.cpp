// Mesh copies (plain, repeated with rotation and translation, mirrored) and clipping by a plane.
#include "editing/editing_private.h"

namespace qx7::meshutil
{

namespace
{

/// Appends the columns of src, or only those with keep[j] != 0, behind out's columns; out takes
/// the larger row count, new places ~0u. Capacity grows by doubling. false on memory failure
/// (out unchanged).
bool append_columns(dense2D<unsigned>& out, const dense2D<unsigned>& src, const unsigned char* keep,
                    std::size_t nbr_kept) noexcept
{
    if (nbr_kept == 0) return true;
    const std::size_t c0 = out.empty() ? 0 : out.cols();
    const std::size_t rows = std::max(out.empty() ? 0 : out.rows(), src.rows());
    const std::size_t need = c0 + nbr_kept;
    if (c0 == 0)
        out.clear();
    else if (out.rows() != rows || need > out.capacity_cols())
    {
        dense2D<unsigned> grown;
        if (!grown.reserve(rows, std::max(need, 2 * c0)) || !grown.resize(rows, c0)) return false;
        for (std::size_t j = 0; j < c0; ++j)
        {
            unsigned* d = grown.col(j);
            const unsigned* s = out.col(j);
            for (std::size_t i = 0; i < rows; ++i)
                d[i] = i < out.rows() ? s[i] : undefined_index;
        }
        out = std::move(grown);
    }
    if (!out.resize(rows, need)) return false;
    std::size_t k = c0;
    for (std::size_t j = 0, n = src.cols(); j < n; ++j)
    {
        if (keep && !keep[j]) continue;
        const unsigned* s = src.col(j);
        unsigned* d = out.col(k++);
        for (std::size_t i = 0; i < rows; ++i)
            d[i] = i < src.rows() ? s[i] : undefined_index;
    }
    return true;
}

/// Plain copy; when appended is given it receives the new node indices.
int plain_copy(dense2D<double>& pos, dense2D<unsigned>& out, const dense2D<unsigned>& connectM,
               dense1D<unsigned>* appended) noexcept
{
    const std::size_t base = pos.cols(), rows = pos.rows();
    if (!check_IDs(connectM, unsigned(base))) return -2;
    dense1D<unsigned> list, map;
    if (unique_indices(list, connectM) != 0) return -199;
    const std::size_t k = list.size();
    if (!map.resize(base)) return -199;
    for (std::size_t i = 0; i < k; ++i)
        map[list[i]] = unsigned(base + i);
    if (appended && !appended->resize(k)) return -199;
    if (!pos.resize(rows, base + k)) return -199;
    const std::size_t er = connectM.rows(), ec = connectM.empty() ? 0 : connectM.cols();
    if (!out.resize(er, ec))
    {
        pos.resize(rows, base);
        return -199;
    }
    for (std::size_t i = 0; i < k; ++i)
    {
        const double* s = pos.col(list[i]);
        double* d = pos.col(base + i);
        for (std::size_t r = 0; r < rows; ++r)
            d[r] = s[r];
        if (appended) (*appended)[i] = unsigned(base + i);
    }
    // Entry by entry in place, so out may be connectM itself.
    for (std::size_t j = 0; j < ec; ++j)
    {
        const unsigned* s = connectM.col(j);
        unsigned* d = out.col(j);
        for (std::size_t r = 0; r < er; ++r)
            d[r] = s[r] == undefined_index ? undefined_index : map[s[r]];
    }
    return 0;
}

template <class Move>
int repeated_copies(dense2D<double>& pos, dense2D<unsigned>& connectM_out, unsigned n,
                    const dense2D<unsigned>& connectM, Move&& move) noexcept
{
    if (pos.empty() || n == 0) return 0;
    dense2D<unsigned> tmp;
    dense1D<unsigned> nodes;
    for (unsigned i = 1; i <= n; ++i)
    {
        int code = plain_copy(pos, tmp, connectM, &nodes);
        if (code < 0) return code;
        code = move(double(i), nodes);
        if (code < 0) return code;
        if (!append_columns(connectM_out, tmp, nullptr, tmp.empty() ? 0 : tmp.cols())) return -199;
    }
    return 0;
}

template <std::size_t D>
int mirror_copy(dense2D<double>& pos, dense2D<unsigned>& connectM_out,
                const vector_fixed<double, D>& P, const vector_fixed<double, D>& N,
                const dense2D<unsigned>& connectM) noexcept
{
    if (pos.empty()) return 0;
    double nn = 0.0;
    for (std::size_t i = 0; i < D; ++i)
        nn += N[i] * N[i];
    if (nn == 0.0) return -4;
    dense1D<unsigned> nodes;
    const int code = plain_copy(pos, connectM_out, connectM, &nodes);
    if (code < 0) return code;
    if (pos.rows() < D && !pos.resize(D, pos.cols(), 0.0)) return -199;
    for (std::size_t k = 0; k < nodes.size(); ++k)
    {
        double* p = pos.col(nodes[k]);
        double dot = 0.0;
        for (std::size_t i = 0; i < D; ++i)
            dot += (p[i] - P[i]) * N[i];
        const double s = -2.0 * dot / nn;
        for (std::size_t i = 0; i < D; ++i)
            p[i] += s * N[i];
    }
    return 0;
}

} // namespace

int copy_mesh(dense2D<double>& pos, dense2D<unsigned>& connectM_out,
              const dense2D<unsigned>& connectM) noexcept
{
    return plain_copy(pos, connectM_out, connectM, nullptr);
}

int copy_mesh(dense2D<double>& pos, dense2D<unsigned>& connectM_out,
              const vector_fixed<double, 2>& T, const vector_fixed<double, 2>& O, double angle,
              unsigned n, const dense2D<unsigned>& connectM) noexcept
{
    return repeated_copies(pos, connectM_out, n, connectM,
                           [&](double i, const dense1D<unsigned>& nodes)
                           {
                               int code = rotate(pos, O, i * angle, nodes);
                               if (code < 0) return code;
                               code = translate(pos, vector_fixed<double, 2>(i * T[0], i * T[1]),
                                                nodes);
                               return code < 0 ? code : 0;
                           });
}

int copy_mesh(dense2D<double>& pos, dense2D<unsigned>& connectM_out,
              const vector_fixed<double, 3>& T, const vector_fixed<double, 3>& O,
              const vector_fixed<double, 3>& rot, unsigned n,
              const dense2D<unsigned>& connectM) noexcept
{
    return repeated_copies(
        pos, connectM_out, n, connectM,
        [&](double i, const dense1D<unsigned>& nodes)
        {
            int code =
                rotate(pos, O, vector_fixed<double, 3>(i * rot[0], i * rot[1], i * rot[2]), nodes);
            if (code < 0) return code;
            code = translate(pos, vector_fixed<double, 3>(i * T[0], i * T[1], i * T[2]), nodes);
            return code < 0 ? code : 0;
        });
}

int copy_sym_mesh(dense2D<double>& pos, dense2D<unsigned>& connectM_out,
                  const vector_fixed<double, 2>& P, const vector_fixed<double, 2>& N,
                  const dense2D<unsigned>& connectM) noexcept
{
    return mirror_copy(pos, connectM_out, P, N, connectM);
}

int copy_sym_mesh(dense2D<double>& pos, dense2D<unsigned>& connectM_out,
                  const vector_fixed<double, 3>& P, const vector_fixed<double, 3>& N,
                  const dense2D<unsigned>& connectM) noexcept
{
    return mirror_copy(pos, connectM_out, P, N, connectM);
}

int clip(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
         const vector_fixed<double, 3>& P, const vector_fixed<double, 3>& N,
         dense2D<unsigned>& connectM_out) noexcept
{
    if (connectM.empty()) return 0;
    if (!check_IDs(connectM, unsigned(pos.cols()))) return -2;
    if (std::sqrt(N[0] * N[0] + N[1] * N[1] + N[2] * N[2]) < 1e-12) return -4;
    if (!connectM_out.empty() && connectM_out.rows() != connectM.rows()) return -5;
    enum : unsigned char
    {
        unknown,
        inside,
        outside
    };
    const std::size_t n = connectM.cols(), rows = connectM.rows();
    const std::size_t dim = std::min<std::size_t>(pos.rows(), 3);
    dense1D<unsigned char> side, keep;
    if (!side.resize(pos.cols(), unknown) || !keep.resize(n, 0)) return -199;
    std::size_t kept = 0;
    for (std::size_t j = 0; j < n; ++j)
    {
        const unsigned* e = connectM.col(j);
        bool all_inside = true;
        for (std::size_t i = 0; i < rows && e[i] != undefined_index; ++i)
        {
            unsigned char& s = side[e[i]];
            if (s == unknown)
            {
                const double* p = pos.col(e[i]);
                double dot = 0.0;
                for (std::size_t k = 0; k < dim; ++k)
                    dot += (p[k] - P[k]) * N[k];
                s = dot > 0.0 ? inside : outside;
            }
            if (s == outside)
            {
                all_inside = false;
                break;
            }
        }
        if (all_inside)
        {
            keep[j] = 1;
            ++kept;
        }
    }
    if (!append_columns(connectM_out, connectM, keep.data(), kept)) return -199;
    return 0;
}

} // namespace qx7::meshutil
