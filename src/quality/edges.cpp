// Edge qualities in a size field, and the distinct edges of connectivities.
#include "quality/quality_private.h"

#include <cstdint>
#include <cstring>
#include <meshutil/metrics.h>
#include <meshutil/quality.h>

namespace qx7::meshutil
{
namespace
{

// ------------------------------------------------------------------------------------ local edges

/// Corner-to-corner edges of one linear shape, as pairs of local nodes.
struct local_edges
{
    unsigned count;
    unsigned v[12][2];
};

/// The sides of the local boundaries of a surface or solid shape, each unordered pair once, in
/// order of first appearance around the boundaries.
constexpr local_edges sides_of(const local_boundaries& b) noexcept
{
    local_edges e{};
    for (unsigned f = 0; f < b.count; ++f)
        for (unsigned k = 0; k < b.size[f]; ++k)
        {
            const unsigned x = b.nodes[f][k], y = b.nodes[f][(k + 1) % b.size[f]];
            bool known = false;
            for (unsigned m = 0; m < e.count; ++m)
                known = known || (e.v[m][0] == x && e.v[m][1] == y) ||
                        (e.v[m][0] == y && e.v[m][1] == x);
            if (!known && x != y)
            {
                e.v[e.count][0] = x;
                e.v[e.count][1] = y;
                ++e.count;
            }
        }
    return e;
}

constexpr local_edges line_edges = {1, {{0, 1}}};
constexpr local_edges tria_edges = sides_of(tria_boundaries);
constexpr local_edges quad_edges = sides_of(quad_boundaries);
constexpr local_edges tetra_edges = sides_of(tetra_boundaries);
constexpr local_edges pyram_edges = sides_of(pyram_boundaries);
constexpr local_edges penta_edges = sides_of(penta_boundaries);
constexpr local_edges hexa_edges = sides_of(hexa_boundaries);
static_assert(tria_edges.count == 3 && quad_edges.count == 4 && tetra_edges.count == 6 &&
                  pyram_edges.count == 8 && penta_edges.count == 9 && hexa_edges.count == 12,
              "edge counts of the linear shapes");

/// Edges of a plain (not mixed) type; nullptr for EL_HEXA20 (deliberately without edges),
/// EL_UNKNOWN, EL_NODE and values outside the enumeration.
const local_edges* edges_of(element_type shape) noexcept
{
    switch (shape)
    {
    case EL_EDGE_MIX:
    case EL_EDGE2:
    case EL_EDGE3:
        return &line_edges;
    case EL_TRIA3:
    case EL_TRIA6:
        return &tria_edges;
    case EL_QUAD4:
    case EL_QUAD8:
    case EL_QUAD9:
        return &quad_edges;
    case EL_TETRA4:
    case EL_TETRA10:
        return &tetra_edges;
    case EL_PYRAM5:
    case EL_PYRAM14:
        return &pyram_edges;
    case EL_PENTA6:
    case EL_PENTA18:
        return &penta_edges;
    case EL_HEXA8:
    case EL_HEXA27:
        return &hexa_edges;
    default:
        return nullptr;
    }
}

bool is_mixed(element_type type) noexcept
{
    return type == EL_FACE_MIX || type == EL_SOLID_MIX;
}

// ------------------------------------------------------------------------------------ edge list

/// Sorts n keys below 2^bits ascending: least-significant-digit radix sort with 11-bit digits
/// through tmp (n values), skipping digits all keys share. The result is in keys.
void radix_sort(std::uint64_t* keys, std::uint64_t* tmp, std::size_t n, unsigned bits) noexcept
{
    constexpr unsigned digit = 11, radix = 1u << digit;
    if (n < 64)
    {
        std::sort(keys, keys + n);
        return;
    }
    std::uint64_t* src = keys;
    std::uint64_t* dst = tmp;
    std::size_t count[radix];
    for (unsigned shift = 0; shift < bits; shift += digit)
    {
        std::memset(count, 0, sizeof(count));
        for (std::size_t i = 0; i < n; ++i)
            ++count[(src[i] >> shift) & (radix - 1)];
        if (count[(src[0] >> shift) & (radix - 1)] == n) continue;
        std::size_t sum = 0;
        for (std::size_t& c : count)
        {
            const std::size_t c0 = c;
            c = sum;
            sum += c0;
        }
        for (std::size_t i = 0; i < n; ++i)
            dst[count[(src[i] >> shift) & (radix - 1)]++] = src[i];
        std::swap(src, dst);
    }
    if (src != keys) std::memcpy(keys, src, n * sizeof(std::uint64_t));
}

/// Number of bits needed to write m (0 for 0).
unsigned bit_width(std::uint64_t m) noexcept
{
    unsigned b = 0;
    while (m)
    {
        ++b;
        m >>= 1;
    }
    return b;
}

/// The distinct edges of a set of connectivities as sorted keys (smaller << shift | larger).
/// Types are refined by row count; matrices with rows x columns = 0 give nothing; every column
/// is read by its type's edge table (mixed columns by their shape). Preconditions: the row
/// counts have been checked against the types.
struct edge_list
{
    dense1D<std::uint64_t> keys; ///< sorted distinct keys, size() of them
    unsigned shift = 0;          ///< bits of the larger node in a key

    std::size_t size() const noexcept { return keys.size(); }
    unsigned first(std::size_t k) const noexcept { return unsigned(keys[k] >> shift); }
    unsigned second(std::size_t k) const noexcept
    {
        return unsigned(keys[k] & ((std::uint64_t(1) << shift) - 1));
    }

    /// Builds the list, then removes the edges of `excluded` (2 rows, may be empty) from it.
    /// @return 0, or -199 when memory cannot be had.
    int build(const dense2D<unsigned>* first, const dense2D<unsigned>* last,
              const dense1D<int>& types, const dense2D<unsigned>* excluded) noexcept
    {
        // Count the raw edges.
        std::size_t total = 0;
        for (const dense2D<unsigned>* M = first; M != last; ++M)
        {
            if (M->empty()) continue;
            const element_type type =
                normalize_type(detail::to_element_type(types[std::size_t(M - first)]), M->rows());
            if (is_mixed(type))
                for (std::size_t j = 0, n = M->cols(); j < n; ++j)
                    total += edges_of(column_shape(type, M->col(j)))->count;
            else if (const local_edges* t = edges_of(type))
                total += t->count * M->cols();
        }
        const std::size_t nbr_excluded = excluded && !excluded->empty() ? excluded->cols() : 0;
        dense1D<std::uint64_t> tmp;
        if (!keys.resize(total) || !tmp.resize(std::max(total, nbr_excluded))) return -199;

        // Fill with 32-bit halves, tracking the largest node.
        std::uint64_t* k = keys.data();
        unsigned largest = 0;
        auto put = [&](unsigned a, unsigned b)
        {
            if (a > b) std::swap(a, b);
            largest = std::max(largest, b);
            *k++ = (std::uint64_t(a) << 32) | b;
        };
        for (const dense2D<unsigned>* M = first; M != last; ++M)
        {
            if (M->empty()) continue;
            const element_type type =
                normalize_type(detail::to_element_type(types[std::size_t(M - first)]), M->rows());
            const local_edges* t = is_mixed(type) ? nullptr : edges_of(type);
            if (!is_mixed(type) && !t) continue;
            for (std::size_t j = 0, n = M->cols(); j < n; ++j)
            {
                const unsigned* e = M->col(j);
                const local_edges* te = t ? t : edges_of(column_shape(type, e));
                for (unsigned m = 0; m < te->count; ++m)
                    put(e[te->v[m][0]], e[te->v[m][1]]);
            }
        }
        if (nbr_excluded)
            for (std::size_t j = 0; j < nbr_excluded; ++j)
                largest = std::max(largest, std::max(excluded->col(j)[0], excluded->col(j)[1]));

        // Repack with as many bits as the largest node needs, sort, keep distinct keys.
        shift = std::max(1u, bit_width(largest));
        std::uint64_t* d = keys.data();
        for (std::size_t i = 0; i < total; ++i)
            d[i] = ((d[i] >> 32) << shift) | (d[i] & 0xffffffffu);
        radix_sort(d, tmp.data(), total, 2 * shift);
        std::size_t n = total ? 1 : 0;
        for (std::size_t i = 1; i < total; ++i)
            if (d[i] != d[n - 1]) d[n++] = d[i];

        if (nbr_excluded && n)
        {
            // The excluded edges, packed and sorted alike, then a sorted set difference.
            dense1D<std::uint64_t> ex;
            if (!ex.resize(nbr_excluded)) return -199;
            for (std::size_t j = 0; j < nbr_excluded; ++j)
            {
                unsigned a = excluded->col(j)[0], b = excluded->col(j)[1];
                if (a > b) std::swap(a, b);
                ex[j] = (std::uint64_t(a) << shift) | b;
            }
            radix_sort(ex.data(), tmp.data(), nbr_excluded, 2 * shift);
            std::size_t kept = 0, x = 0;
            for (std::size_t i = 0; i < n; ++i)
            {
                while (x < nbr_excluded && ex[x] < d[i])
                    ++x;
                if (x < nbr_excluded && ex[x] == d[i]) continue;
                d[kept++] = d[i];
            }
            n = kept;
        }
        keys.resize(n);
        return 0;
    }
};

// ------------------------------------------------------------------------------------ measures

/// Measures the listed edges with sizes; false when some edge was skipped.
template <unsigned DIM>
bool measure(const dense2D<double>& pos, const edge_list& list, const dense1D<double>& sizes,
             unsigned char*, misc::histogram& histo) noexcept
{
    bool all = true;
    const std::size_t nbr_sizes = sizes.size();
    const double* h = sizes.data();
    for (std::size_t k = 0, n = list.size(); k < n; ++k)
    {
        const unsigned i = list.first(k), j = list.second(k);
        if (i >= nbr_sizes || j >= nbr_sizes || !(h[i] > 0.0) || !(h[j] > 0.0))
        {
            all = false;
            continue;
        }
        double li, lj;
        histo.process(detail::iso_edge_length<DIM>(pos.col(i), pos.col(j), h[i], h[j], li, lj));
    }
    return all;
}

/// Validity of the metric of node i, computed once per node: flags[i] is 0 before, then 1 for a
/// valid metric, 2 for an invalid one.
template <unsigned DIM>
bool valid_at(const dense2D<double>& metrics, unsigned i, unsigned char* flags) noexcept
{
    if (flags[i] == 0)
    {
        symmetric_fixed<double, DIM> M;
        const double* m = metrics.col(i);
        for (std::size_t k = 0; k < M.size(); ++k)
            M[k] = m[k];
        flags[i] = is_valid_metric(M) ? 1 : 2;
    }
    return flags[i] == 1;
}

/// Measures the listed edges with metrics; flags holds metrics.cols() zeroed bytes. False when
/// some edge was skipped.
template <unsigned DIM>
bool measure(const dense2D<double>& pos, const edge_list& list, const dense2D<double>& metrics,
             unsigned char* flags, misc::histogram& histo) noexcept
{
    constexpr std::size_t need = DIM * (DIM + 1) / 2;
    if (list.size() && metrics.rows() < need) return false;
    bool all = true;
    const std::size_t nbr_metrics = metrics.cols();
    for (std::size_t k = 0, n = list.size(); k < n; ++k)
    {
        const unsigned i = list.first(k), j = list.second(k);
        if (i >= nbr_metrics || j >= nbr_metrics || !valid_at<DIM>(metrics, i, flags) ||
            !valid_at<DIM>(metrics, j, flags))
        {
            all = false;
            continue;
        }
        const double* xi = pos.col(i);
        const double* xj = pos.col(j);
        double e[DIM], li, lj;
        for (unsigned c = 0; c < DIM; ++c)
            e[c] = xj[c] - xi[c];
        histo.process(detail::metric_edge_length<DIM>(e, metrics.col(i), metrics.col(j), li, lj));
    }
    return all;
}

/// The checks shared by the range forms of edge_qualities: 1 (go on), 0 (empty range) or a code.
int check_edge_arguments(const dense2D<double>& pos, const dense2D<unsigned>* first,
                         const dense2D<unsigned>* last, const dense1D<int>& types,
                         const dense2D<unsigned>& excluded) noexcept
{
    if (first == last) return 0;
    if (pos.rows() != 2 && pos.rows() != 3) return -1;
    if (last - first != static_cast<std::ptrdiff_t>(types.size())) return -4;
    const unsigned nbr = static_cast<unsigned>(pos.cols());
    for (const dense2D<unsigned>* M = first; M != last; ++M)
        if (!check_IDs(*M, detail::to_element_type(types[std::size_t(M - first)]), nbr)) return -2;
    if (!check_IDs(excluded, EL_EDGE2, nbr)) return -7;
    return 1;
}

/// Validity flags a field needs: one per metric, none for sizes.
std::size_t nbr_flags(const dense1D<double>&) noexcept
{
    return 0;
}
std::size_t nbr_flags(const dense2D<double>& metrics) noexcept
{
    return metrics.cols();
}

/// The range forms of edge_qualities, for sizes or metrics.
template <class Field>
int range_form(const dense2D<double>& pos, const dense2D<unsigned>* first,
               const dense2D<unsigned>* last, const dense1D<int>& types, const Field& field,
               misc::histogram& histo, const dense2D<unsigned>& excluded) noexcept
{
    const int check = check_edge_arguments(pos, first, last, types, excluded);
    if (check <= 0) return check;
    edge_list list;
    dense1D<unsigned char> flags;
    if (list.build(first, last, types, &excluded) != 0 || !flags.resize(nbr_flags(field), 0))
        return -199;
    const bool all = pos.rows() == 2 ? measure<2>(pos, list, field, flags.data(), histo)
                                     : measure<3>(pos, list, field, flags.data(), histo);
    return all ? static_cast<int>(list.size()) : -5;
}

/// The one-connectivity forms: the range form over one matrix, its codes below -3 moved up by
/// one (the memory code stays).
template <class Field>
int single_form(const dense2D<double>& pos, const dense2D<unsigned>& connectM, element_type FE_type,
                const Field& field, misc::histogram& histo,
                const dense2D<unsigned>& excluded) noexcept
{
    dense1D<int> types;
    if (!types.resize(1, static_cast<int>(FE_type))) return -199;
    const int code = range_form(pos, &connectM, &connectM + 1, types, field, histo, excluded);
    return code < -3 && code != -199 ? code + 1 : code;
}

} // namespace

int edge_quality(double L, double h1, double h2, double& Q) noexcept
{
    if (!(h1 > 0.0)) return -2;
    if (!(h2 > 0.0)) return -3;
    const double mean = detail::log_mean(h1, h2);
    Q = mean > 0.0 ? L / mean : 0.0;
    return 0;
}

int copy_edges(const dense2D<unsigned>* connect_begin, const dense2D<unsigned>* connect_end,
               const dense1D<int>& FE_types, dense2D<unsigned>& edges) noexcept
{
    if (connect_begin > connect_end) return -2;
    if (static_cast<std::size_t>(connect_end - connect_begin) != FE_types.size()) return -3;
    if (!edges.empty() && edges.rows() != 2) return -4;
    for (const dense2D<unsigned>* M = connect_begin; M != connect_end; ++M)
        if (!check_IDs(*M, detail::to_element_type(FE_types[std::size_t(M - connect_begin)]),
                       undefined_index))
            return -1;
    edge_list list;
    if (list.build(connect_begin, connect_end, FE_types, nullptr) != 0) return -199;
    const std::size_t former = edges.empty() ? 0 : edges.cols();
    if (!edges.resize(2, former + list.size())) return -199;
    for (std::size_t k = 0, n = list.size(); k < n; ++k)
    {
        unsigned* p = edges.col(former + k);
        p[0] = list.first(k);
        p[1] = list.second(k);
    }
    return 0;
}

int copy_edges(const dense2D<unsigned>& connectM, element_type FE_type,
               dense2D<unsigned>& edges) noexcept
{
    dense1D<int> types;
    if (!types.resize(1, static_cast<int>(FE_type))) return -199;
    return copy_edges(&connectM, &connectM + 1, types, edges);
}

int edge_qualities(const dense2D<double>& pos, const dense2D<unsigned>* connect_begin,
                   const dense2D<unsigned>* connect_end, const dense1D<int>& FE_types,
                   const dense1D<double>& sizes, misc::histogram& histo,
                   const dense2D<unsigned>& excluded) noexcept
{
    return range_form(pos, connect_begin, connect_end, FE_types, sizes, histo, excluded);
}

int edge_qualities(const dense2D<double>& pos, const dense2D<unsigned>* connect_begin,
                   const dense2D<unsigned>* connect_end, const dense1D<int>& FE_types,
                   const dense2D<double>& metrics, misc::histogram& histo,
                   const dense2D<unsigned>& excluded) noexcept
{
    return range_form(pos, connect_begin, connect_end, FE_types, metrics, histo, excluded);
}

int edge_qualities(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                   element_type FE_type, const dense1D<double>& sizes, misc::histogram& histo,
                   const dense2D<unsigned>& excluded) noexcept
{
    return single_form(pos, connectM, FE_type, sizes, histo, excluded);
}

int edge_qualities(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                   element_type FE_type, const dense2D<double>& metrics, misc::histogram& histo,
                   const dense2D<unsigned>& excluded) noexcept
{
    return single_form(pos, connectM, FE_type, metrics, histo, excluded);
}

} // namespace qx7::meshutil
