// Removal of degenerated elements and of unused nodes, both compacting in place.
#include "editing/editing_private.h"

namespace qx7::meshutil
{

// ------------------------------------------------------------------------------------ degenerated

namespace
{

/// Whether a column holds a repeated node (repeated ~0u counts only when strict).
inline bool degenerated(const unsigned* e, std::size_t rows, bool strict) noexcept
{
    unsigned sorted[32];
    if (rows > 32)
    {
        for (std::size_t a = 0; a < rows; ++a)
            for (std::size_t b = a + 1; b < rows; ++b)
                if (e[a] == e[b] && (strict || e[a] != undefined_index)) return true;
        return false;
    }
    for (std::size_t k = 0; k < rows; ++k)
    {
        std::size_t i = k;
        for (; i > 0 && sorted[i - 1] > e[k]; --i)
            sorted[i] = sorted[i - 1];
        sorted[i] = e[k];
    }
    // ~0u sorts last: the first equal pair is a defined node unless only ~0u repeats.
    for (std::size_t k = 1; k < rows; ++k)
        if (sorted[k] == sorted[k - 1]) return strict || sorted[k] != undefined_index;
    return false;
}

int remove_impl(dense2D<unsigned>& connectM, unsigned* map, bool strict) noexcept
{
    const std::size_t n = connectM.cols(), rows = connectM.rows();
    if (rows == 0)
    {
        for (std::size_t j = 0; map && j < n; ++j)
            map[j] = unsigned(j);
        return 0;
    }
    std::size_t kept = 0;
    for (std::size_t j = 0; j < n; ++j)
    {
        const unsigned* e = connectM.col(j);
        if (degenerated(e, rows, strict))
        {
            if (map) map[j] = undefined_index;
            continue;
        }
        if (kept != j)
        {
            unsigned* dst = connectM.col(kept);
            for (std::size_t i = 0; i < rows; ++i)
                dst[i] = e[i];
        }
        if (map) map[j] = unsigned(kept);
        ++kept;
    }
    connectM.resize(rows, kept);
    return int(n - kept);
}

} // namespace

int remove_degenerated(dense2D<unsigned>& connectM, dense1D<unsigned>& new_indices,
                       bool strict) noexcept
{
    if (!new_indices.resize(connectM.cols(), undefined_index))
    {
        new_indices.clear();
        return -199;
    }
    new_indices = undefined_index;
    return remove_impl(connectM, new_indices.data(), strict);
}

int remove_degenerated(dense2D<unsigned>& connectM, bool strict) noexcept
{
    return remove_impl(connectM, nullptr, strict);
}

// ------------------------------------------------------------------------------------ simplify

int simplify(dense2D<double>& pos, dense2D<unsigned>* connectM1, dense2D<unsigned>* connectM2,
             dense1D<unsigned>& new_indices, unsigned keep_below) noexcept
{
    new_indices.clear();
    if (connectM2 < connectM1) return -3;
    if (connectM1 == connectM2) return 0;
    const std::size_t n = pos.cols();
    for (const dense2D<unsigned>* M = connectM1; M != connectM2; ++M)
        if (!check_IDs(*M, unsigned(n))) return -2;
    if (pos.empty() || keep_below >= n) return 0;
    dense1D<std::uint64_t> used;
    if (!new_indices.resize(n, undefined_index) || !used.resize(n / 64 + 1, 0))
    {
        new_indices.clear();
        return -199;
    }
    detail::matrix_runs{connectM1, connectM2}(
        [&](const unsigned* p, std::size_t rows)
        {
            for (std::size_t i = 0; i < rows; ++i)
                if (p[i] != undefined_index) used[p[i] >> 6] |= std::uint64_t(1) << (p[i] & 63);
        });
    unsigned* map = new_indices.data();
    for (std::size_t i = 0; i < n; ++i)
        map[i] = unsigned(i);
    const std::size_t rows = pos.rows();
    std::size_t dest = keep_below;
    for (std::size_t i = keep_below; i < n; ++i)
    {
        if (!((used[i >> 6] >> (i & 63)) & 1))
        {
            map[i] = undefined_index;
            continue;
        }
        if (i > dest)
        {
            const double* src = pos.col(i);
            double* dst = pos.col(dest);
            for (std::size_t r = 0; r < rows; ++r)
                dst[r] = src[r];
            map[i] = unsigned(dest);
        }
        ++dest;
    }
    pos.resize(rows, dest);
    if (dest < n)
        for (dense2D<unsigned>* M = connectM1; M != connectM2; ++M)
            change_indices(*M, new_indices);
    return int(n - dest);
}

int simplify(dense2D<double>& pos, dense2D<unsigned>& connectM, dense1D<unsigned>& new_indices,
             unsigned keep_below) noexcept
{
    return simplify(pos, &connectM, &connectM + 1, new_indices, keep_below);
}

int simplify(dense2D<double>& pos, dense2D<unsigned>& connectM, unsigned keep_below) noexcept
{
    dense1D<unsigned> map;
    return simplify(pos, &connectM, &connectM + 1, map, keep_below);
}

int simplify(dense2D<double>& pos, dense2D<unsigned>& connectM1, dense2D<unsigned>& connectM2,
             unsigned keep_below) noexcept
{
    // Shallow copies share the callers' buffers, so renumbering them renumbers the originals.
    dense2D<unsigned> pair[2] = {connectM1, connectM2};
    dense1D<unsigned> map;
    return simplify(pos, pair, pair + 2, map, keep_below);
}

} // namespace qx7::meshutil
