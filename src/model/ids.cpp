// Index and ID utilities: checks, largest ID, renumbering, shifting, matching two lists, counting
// sort into offset form, permutation, bounding boxes, version.
#include "model/model_private.h"

#include <meshutil/editing.h>
#include <meshutil/elements.h>

namespace qx7::meshutil
{

const char* version() noexcept
{
    return "4.7.2.1";
}

// ------------------------------------------------------------------------------------ checks

bool check_IDs(const dense1D<unsigned>& IDs, unsigned max_ID) noexcept
{
    if (IDs.empty() || max_ID == undefined_index) return true;
    const unsigned* p = IDs.data();
    for (std::size_t i = 0, n = IDs.size(); i < n; ++i)
        if (p[i] != undefined_index && p[i] >= max_ID) return false;
    return true;
}

bool check_IDs(const dense2D<unsigned>& connectM, unsigned max_ID) noexcept
{
    if (connectM.empty() || max_ID == undefined_index) return true;
    const std::size_t rows = connectM.rows();
    for (std::size_t j = 0, n = connectM.cols(); j < n; ++j)
    {
        const unsigned* p = connectM.col(j);
        for (std::size_t i = 0; i < rows; ++i)
            if (p[i] != undefined_index && p[i] >= max_ID) return false;
    }
    return true;
}

namespace
{
inline void max_defined(const unsigned* p, std::size_t n, unsigned& m) noexcept
{
    for (std::size_t i = 0; i < n; ++i)
        if (p[i] != undefined_index && p[i] > m) m = p[i];
}
} // namespace

unsigned max_ID(const dense1D<unsigned>& IDs) noexcept
{
    if (IDs.empty()) return undefined_index;
    unsigned m = 0;
    max_defined(IDs.data(), IDs.size(), m);
    return m;
}

unsigned max_ID(const dense2D<unsigned>& connectM) noexcept
{
    if (connectM.empty()) return undefined_index;
    unsigned m = 0;
    for (std::size_t j = 0, n = connectM.cols(); j < n; ++j)
        max_defined(connectM.col(j), connectM.rows(), m);
    return m;
}

// ------------------------------------------------------------------------------------ renumbering

namespace
{
inline void change_run(unsigned* p, std::size_t n, const unsigned* map, std::size_t size) noexcept
{
    for (std::size_t i = 0; i < n; ++i)
        if (p[i] < size) p[i] = map[p[i]];
}
} // namespace

void change_indices(dense1D<unsigned>& indices, const dense1D<unsigned>& new_IDs) noexcept
{
    if (indices.empty()) return;
    change_run(indices.data(), indices.size(), new_IDs.data(), new_IDs.size());
}

void change_indices(dense2D<unsigned>& connectM, const dense1D<unsigned>& new_IDs) noexcept
{
    if (connectM.empty()) return;
    for (std::size_t j = 0, n = connectM.cols(); j < n; ++j)
        change_run(connectM.col(j), connectM.rows(), new_IDs.data(), new_IDs.size());
}

int shift_indices(dense1D<unsigned>& indices, int shift) noexcept
{
    if (shift == 0 || indices.empty()) return 0;
    const unsigned s = static_cast<unsigned>(shift);
    unsigned* p = indices.data();
    for (std::size_t i = 0, n = indices.size(); i < n; ++i)
        if (p[i] != undefined_index) p[i] += s;
    return 0;
}

int shift_indices(dense2D<unsigned>& connectM, int shift, element_type FE_type) noexcept
{
    if (shift == 0 || connectM.empty()) return 0;
    const unsigned s = static_cast<unsigned>(shift);
    const std::size_t rows = connectM.rows();
    const bool mixed = FE_type == EL_FACE_MIX || FE_type == EL_SOLID_MIX;
    for (std::size_t j = 0, n = connectM.cols(); j < n; ++j)
    {
        unsigned* p = connectM.col(j);
        if (mixed)
        {
            for (std::size_t i = 0; i < rows; ++i)
                if (p[i] != undefined_index) p[i] += s;
        }
        else
        {
            for (std::size_t i = 0; i < rows; ++i)
                p[i] += s;
        }
    }
    return 0;
}

// ------------------------------------------------------------------------------------ matching

int get_IDs(const dense1D<unsigned>& A, const dense1D<unsigned>& B, dense1D<unsigned>& B_in_A,
            dense1D<unsigned>& A_in_B) noexcept
{
    // ID -> last position in A, open addressing with linear probing; ~0u marks a free slot.
    const std::size_t cap = detail::hash_capacity(A.size());
    dense1D<unsigned> keys, pos;
    if (!B_in_A.resize(B.size()) || !A_in_B.resize(A.size()) || !keys.resize(cap) ||
        !pos.resize(cap))
    {
        B_in_A.clear();
        A_in_B.clear();
        return -199;
    }
    B_in_A = undefined_index;
    A_in_B = undefined_index;
    keys = undefined_index;
    const std::size_t mask = cap - 1;
    for (std::size_t i = 0; i < A.size(); ++i)
    {
        const unsigned id = A[i];
        if (id == undefined_index) continue;
        std::size_t h = detail::mix32(id) & mask;
        while (keys[h] != undefined_index && keys[h] != id)
            h = (h + 1) & mask;
        keys[h] = id;
        pos[h] = static_cast<unsigned>(i);
    }
    for (std::size_t j = 0; j < B.size(); ++j)
    {
        const unsigned id = B[j];
        if (id == undefined_index) continue;
        std::size_t h = detail::mix32(id) & mask;
        while (keys[h] != undefined_index && keys[h] != id)
            h = (h + 1) & mask;
        if (keys[h] == id)
        {
            B_in_A[j] = pos[h];
            A_in_B[pos[h]] = static_cast<unsigned>(j);
        }
    }
    return 0;
}

namespace
{

/// Order-independent key of a column.
inline std::uint64_t column_key(const unsigned* p, std::size_t rows) noexcept
{
    std::uint64_t key = 0;
    for (std::size_t i = 0; i < rows; ++i)
        key += static_cast<std::uint32_t>((p[i] ^ 2166136261u) * 16777619u);
    return key;
}

/// Copies p (n values, read backwards when reversed) into out, rotated so that the first largest
/// value comes first.
inline void rotate_largest_first(const unsigned* p, std::size_t n, bool reversed,
                                 unsigned* out) noexcept
{
    std::size_t best = 0;
    for (std::size_t k = 1; k < n; ++k)
    {
        unsigned v = reversed ? p[n - 1 - k] : p[k];
        unsigned b = reversed ? p[n - 1 - best] : p[best];
        if (v > b) best = k;
    }
    for (std::size_t k = 0; k < n; ++k)
    {
        std::size_t s = (best + k) % n;
        out[k] = reversed ? p[n - 1 - s] : p[s];
    }
}

} // namespace

int get_IDs(const dense2D<unsigned>& A, const dense2D<unsigned>& B, dense1D<unsigned>& B_in_A,
            dense1D<unsigned>& A_in_B, bool strict_order) noexcept
{
    if (A.rows() != B.rows())
    {
        B_in_A.clear();
        A_in_B.clear();
        return -2;
    }
    const std::size_t rows = A.rows();
    const std::size_t na = A.empty() ? 0 : A.cols(), nb = B.empty() ? 0 : B.cols();
    const std::size_t cap = detail::hash_capacity(na);
    dense1D<unsigned> head, next, scratch;
    dense1D<std::uint64_t> keys;
    if (!B_in_A.resize(B.cols()) || !A_in_B.resize(A.cols()) || !head.resize(cap) ||
        !next.resize(na) || !keys.resize(na) || !scratch.resize(3 * rows + 1))
    {
        B_in_A.clear();
        A_in_B.clear();
        return -199;
    }
    B_in_A = undefined_index;
    A_in_B = undefined_index;
    head = undefined_index;
    const std::size_t mask = cap - 1;
    // Columns pushed from the last so that every chain lists them in increasing order.
    for (std::size_t i = na; i-- > 0;)
    {
        keys[i] = column_key(A.col(i), rows);
        std::size_t h = detail::mix64(keys[i]) & mask;
        next[i] = head[h];
        head[h] = static_cast<unsigned>(i);
    }
    unsigned* b_rot = scratch.data();
    unsigned* a_rot = b_rot + rows;
    for (std::size_t j = 0; j < nb; ++j)
    {
        const unsigned* q = B.col(j);
        const std::uint64_t key = column_key(q, rows);
        if (!strict_order) rotate_largest_first(q, rows, false, b_rot);
        for (unsigned i = head[detail::mix64(key) & mask]; i != undefined_index; i = next[i])
        {
            if (keys[i] != key) continue;
            const unsigned* p = A.col(i);
            bool match;
            if (strict_order)
                match = std::equal(p, p + rows, q);
            else
            {
                rotate_largest_first(p, rows, false, a_rot);
                match = std::equal(a_rot, a_rot + rows, b_rot);
                if (!match)
                {
                    rotate_largest_first(p, rows, true, a_rot);
                    match = std::equal(a_rot, a_rot + rows, b_rot);
                }
            }
            if (match)
            {
                B_in_A[j] = i;
                A_in_B[i] = static_cast<unsigned>(j);
                break;
            }
        }
    }
    return 0;
}

// ------------------------------------------------------------------------------------ sorting

int get_sorted_order(const dense1D<unsigned>& values, dense1D<unsigned>& order,
                     dense1D<unsigned>& first) noexcept
{
    order.clear();
    first.clear();
    if (values.empty())
    {
        if (!first.resize(1, 0u)) return -199;
        return 0;
    }
    const std::size_t m = max_ID(values);
    if (!order.resize(values.size()) || !first.resize(m + 4, 0u))
    {
        order.clear();
        first.clear();
        return -199;
    }
    first = 0u;
    const unsigned* v = values.data();
    const std::size_t n = values.size();
    unsigned* f = first.data();
    std::size_t undefined = 0;
    for (std::size_t i = 0; i < n; ++i)
    {
        if (v[i] == undefined_index)
            ++undefined;
        else
            ++f[v[i] + 1];
    }
    for (std::size_t k = 1; k <= m + 1; ++k)
        f[k] += f[k - 1];
    // f[v] is now the start of value v; place positions, advancing a cursor per value.
    unsigned* o = order.data();
    std::size_t tail = n - undefined;
    for (std::size_t i = 0; i < n; ++i)
    {
        if (v[i] == undefined_index)
            o[tail++] = static_cast<unsigned>(i);
        else
            o[f[v[i]]++] = static_cast<unsigned>(i);
    }
    // The cursors ended at the start of the next value: shift back by one slot.
    for (std::size_t k = m + 1; k > 0; --k)
        f[k] = f[k - 1];
    f[0] = 0;
    first.resize(m + 2);
    return 0;
}

namespace
{
template <class T>
int permute(dense1D<T>& v, const dense1D<unsigned>& perm) noexcept
{
    if (v.empty()) return 0;
    dense1D<T> old;
    if (!old.copy(v)) return -199;
    const std::size_t n = v.size(), m = std::min(n, perm.size());
    T* out = v.data();
    for (std::size_t i = 0; i < m; ++i)
    {
        const unsigned j = perm[i];
        if (j < n && j != i) out[j] = old[i];
    }
    return 0;
}
} // namespace

int permutation(dense1D<unsigned>& v, const dense1D<unsigned>& perm) noexcept
{
    return permute(v, perm);
}

int permutation(dense1D<double>& v, const dense1D<unsigned>& perm) noexcept
{
    return permute(v, perm);
}

// ------------------------------------------------------------------------------------ bounding
// boxes

namespace
{

template <std::size_t D>
inline void grow_box(const double* p, vector_fixed<double, D>& lo, vector_fixed<double, D>& hi)
{
    for (std::size_t k = 0; k < D; ++k)
    {
        if (!(p[k] >= lo[k])) lo[k] = p[k];
        if (p[k] > hi[k]) hi[k] = p[k];
    }
}

template <std::size_t D>
int box_all(const dense2D<double>& pos, vector_fixed<double, D>& lo, vector_fixed<double, D>& hi)
{
    if (pos.rows() != D) return -1;
    for (std::size_t j = 0, n = pos.cols(); j < n; ++j)
        grow_box(pos.col(j), lo, hi);
    return 0;
}

template <std::size_t D>
int box_list(const dense2D<double>& pos, const dense1D<unsigned>& indices,
             vector_fixed<double, D>& lo, vector_fixed<double, D>& hi)
{
    if (indices.empty()) return 0;
    if (pos.rows() != D) return -1;
    const std::size_t n = pos.cols();
    for (std::size_t i = 0; i < indices.size(); ++i)
        if (indices[i] != undefined_index && indices[i] >= n) return -2;
    for (std::size_t i = 0; i < indices.size(); ++i)
        if (indices[i] != undefined_index) grow_box(pos.col(indices[i]), lo, hi);
    return 0;
}

template <std::size_t D>
int box_connectivity(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                     vector_fixed<double, D>& lo, vector_fixed<double, D>& hi)
{
    // The node-list form over the distinct nodes in order of first appearance.
    dense1D<unsigned> list;
    if (unique_indices(list, connectM) != 0) return -199;
    return box_list(pos, list, lo, hi);
}

} // namespace

int inc_bounding_box(const dense2D<double>& pos, vector_fixed<double, 2>& box_min,
                     vector_fixed<double, 2>& box_max) noexcept
{
    return box_all(pos, box_min, box_max);
}
int inc_bounding_box(const dense2D<double>& pos, vector_fixed<double, 3>& box_min,
                     vector_fixed<double, 3>& box_max) noexcept
{
    return box_all(pos, box_min, box_max);
}
int inc_bounding_box(const dense2D<double>& pos, const dense1D<unsigned>& indices,
                     vector_fixed<double, 2>& box_min, vector_fixed<double, 2>& box_max) noexcept
{
    return box_list(pos, indices, box_min, box_max);
}
int inc_bounding_box(const dense2D<double>& pos, const dense1D<unsigned>& indices,
                     vector_fixed<double, 3>& box_min, vector_fixed<double, 3>& box_max) noexcept
{
    return box_list(pos, indices, box_min, box_max);
}
int inc_bounding_box(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                     vector_fixed<double, 2>& box_min, vector_fixed<double, 2>& box_max) noexcept
{
    return box_connectivity(pos, connectM, box_min, box_max);
}
int inc_bounding_box(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                     vector_fixed<double, 3>& box_min, vector_fixed<double, 3>& box_max) noexcept
{
    return box_connectivity(pos, connectM, box_min, box_max);
}

} // namespace qx7::meshutil
