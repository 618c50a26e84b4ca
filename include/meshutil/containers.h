// Numeric containers exchanged by every meshutil function.
//
// dense1D<T>   growable vector, dense2D<T> column-major matrix: both hold a reference-counted
//              buffer (vector_num<T>) that views and shallow copies share. Copy construction
//              and assignment share; copy() makes a deep copy.
// vector_fixed<T,N>, matrix_fixed<T,M,N>, symmetric_fixed<T,N>: small fixed-size value objects.
// misc::histogram: a statistics accumulator with fixed bins.
// lapack::dspev: the system LAPACK's packed symmetric eigen-solver.
//
// Allocation never throws: an operation that cannot get memory returns false and leaves the
// container as it was. Element access is not bounds-checked.
#pragma once

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <meshutil/export.h>
#include <new>
#include <type_traits>

namespace qx7
{

/// The undefined index: no node, no element, no neighbour; fills the unused rows of mixed columns.
inline constexpr unsigned undefined_index = ~0u;

// ------------------------------------------------------------------------------------ allocator

/// Allocates `bytes` bytes aligned to 64 bytes for numeric work; nullptr on failure or on a size
/// that cannot be represented. Blocks of 1 MiB and more are mapped directly, aligned to 2 MiB and
/// advised for transparent huge pages, and a few freed large blocks are kept for reuse so that
/// repeated large scratch buffers do not go back and forth to the system.
/// Thread-safe. Complexity: O(1) (memory is not touched).
MESHUTIL_API void* __vector_num_alloc(std::size_t bytes) noexcept;

/// Frees a block of `bytes` bytes obtained from __vector_num_alloc(bytes); nullptr is a no-op.
MESHUTIL_API void __vector_num_free(void* p, std::size_t bytes) noexcept;

/// Releases every large block the allocator keeps for reuse back to the system.
MESHUTIL_API void __vector_num_trim() noexcept;

// ------------------------------------------------------------------------------------ ref counting

/// Base of reference-counted objects; the count is changed atomically.
class ref_counted
{
public:
    void add_ref() const noexcept { m_count.fetch_add(1, std::memory_order_relaxed); }
    /// Decrements the count; true when this was the last reference.
    bool release() const noexcept { return m_count.fetch_sub(1, std::memory_order_acq_rel) == 1; }
    long use_count() const noexcept { return m_count.load(std::memory_order_acquire); }

protected:
    ref_counted() noexcept = default;
    ref_counted(const ref_counted&) = delete;
    ref_counted& operator=(const ref_counted&) = delete;
    ~ref_counted() = default;

private:
    mutable std::atomic<long> m_count{0};
};

/// Intrusive counted pointer to a ref_counted object allocated with new.
template <class T>
class Ptr
{
public:
    Ptr() noexcept = default;
    explicit Ptr(T* p) noexcept : m_p(p)
    {
        if (m_p) m_p->add_ref();
    }
    Ptr(const Ptr& o) noexcept : m_p(o.m_p)
    {
        if (m_p) m_p->add_ref();
    }
    Ptr(Ptr&& o) noexcept : m_p(o.m_p) { o.m_p = nullptr; }
    ~Ptr() { reset(); }
    Ptr& operator=(const Ptr& o) noexcept
    {
        if (o.m_p) o.m_p->add_ref();
        reset();
        m_p = o.m_p;
        return *this;
    }
    Ptr& operator=(Ptr&& o) noexcept
    {
        if (this != &o)
        {
            reset();
            m_p = o.m_p;
            o.m_p = nullptr;
        }
        return *this;
    }
    void reset() noexcept
    {
        if (m_p && m_p->release()) delete m_p;
        m_p = nullptr;
    }
    T* get() const noexcept { return m_p; }
    T* operator->() const noexcept { return m_p; }
    explicit operator bool() const noexcept { return m_p != nullptr; }
    /// True when this pointer is the only holder of the object.
    bool unique() const noexcept { return m_p && m_p->use_count() == 1; }

private:
    T* m_p = nullptr;
};

/// Reference-counted element buffer shared by dense1D and dense2D objects and their views.
template <class T>
class vector_num : public ref_counted
{
    static_assert(std::is_trivially_copyable<T>::value, "numeric containers hold plain values");

public:
    /// A buffer of `capacity` elements (values not set); nullptr when memory cannot be had.
    static vector_num* create(std::size_t capacity) noexcept
    {
        if (capacity > std::size_t(std::numeric_limits<std::ptrdiff_t>::max()) / sizeof(T))
            return nullptr;
        void* data = capacity ? __vector_num_alloc(capacity * sizeof(T)) : nullptr;
        if (capacity && !data) return nullptr;
        auto* v = new (std::nothrow) vector_num(static_cast<T*>(data), capacity);
        if (!v) __vector_num_free(data, capacity * sizeof(T));
        return v;
    }
    ~vector_num() { __vector_num_free(m_data, m_capacity * sizeof(T)); }
    T* data() const noexcept { return m_data; }
    std::size_t capacity() const noexcept { return m_capacity; }

private:
    vector_num(T* data, std::size_t capacity) noexcept : m_data(data), m_capacity(capacity) {}
    T* m_data;
    std::size_t m_capacity;
};

namespace detail
{
/// Fills n elements at p with value.
template <class T>
inline void fill_n(T* p, std::size_t n, const T& value) noexcept
{
    for (std::size_t i = 0; i < n; ++i)
        p[i] = value;
}
} // namespace detail

// ------------------------------------------------------------------------------------ dense1D

/// Growable vector of numbers over a shared reference-counted buffer.
/// Copy construction and copy assignment share the buffer (writes through one are seen through
/// the other); copy() makes a deep copy. A view (sub_vector) shares its parent's buffer until it
/// is grown, which gives it storage of its own. Functions returning bool return false only when
/// memory could not be had, leaving the vector unchanged.
template <class T, std::size_t Align = 32>
class dense1D
{
public:
    using value_type = T;
    using size_type = std::size_t;

    dense1D() noexcept = default;
    /// n elements, values not set (empty when memory cannot be had).
    explicit dense1D(size_type n) noexcept { resize(n); }
    /// n elements set to value (empty when memory cannot be had).
    dense1D(size_type n, const T& value) noexcept { resize(n, value); }
    /// n elements copied from data (empty when memory cannot be had).
    dense1D(size_type n, const T* data) noexcept
    {
        if (resize(n) && n) std::memcpy(this->data(), data, n * sizeof(T));
    }
    /// Shallow copy: shares other's storage.
    dense1D(const dense1D& other) noexcept = default;
    dense1D(dense1D&& other) noexcept
        : m_storage(std::move(other.m_storage)), m_size(other.m_size), m_offset(other.m_offset)
    {
        other.m_size = other.m_offset = 0;
    }
    /// View of n elements of other from start, sharing its storage.
    dense1D(const dense1D& other, size_type start, size_type n) noexcept
        : m_storage(other.m_storage), m_size(n), m_offset(other.m_offset + start)
    {
    }
    /// Shallow assignment: shares other's storage.
    dense1D& operator=(const dense1D& other) noexcept = default;
    dense1D& operator=(dense1D&& other) noexcept
    {
        if (this != &other)
        {
            m_storage = std::move(other.m_storage);
            m_size = other.m_size;
            m_offset = other.m_offset;
            other.m_size = other.m_offset = 0;
        }
        return *this;
    }
    /// Sets every element to value.
    dense1D& operator=(const T& value) noexcept
    {
        detail::fill_n(data(), m_size, value);
        return *this;
    }
    /// Equal sizes and equal values.
    bool operator==(const dense1D& other) const noexcept
    {
        if (m_size != other.m_size) return false;
        const T* a = data();
        const T* b = other.data();
        for (size_type i = 0; i < m_size; ++i)
            if (!(a[i] == b[i])) return false;
        return true;
    }
    bool operator!=(const dense1D& other) const noexcept { return !(*this == other); }

    size_type size() const noexcept { return m_size; }
    bool empty() const noexcept { return m_size == 0; }
    /// Elements available from element 0 without reallocation.
    size_type capacity() const noexcept { return m_storage ? m_storage->capacity() - m_offset : 0; }
    T* data() noexcept { return m_storage ? m_storage->data() + m_offset : nullptr; }
    const T* data() const noexcept { return m_storage ? m_storage->data() + m_offset : nullptr; }
    T* begin() noexcept { return data(); }
    T* end() noexcept { return data() + m_size; }
    const T* begin() const noexcept { return data(); }
    const T* end() const noexcept { return data() + m_size; }
    T& operator[](size_type i) noexcept { return m_storage->data()[m_offset + i]; }
    const T& operator[](size_type i) const noexcept { return m_storage->data()[m_offset + i]; }
    /// True when no other container or view shares the storage.
    bool unique() const noexcept { return m_storage.unique(); }

    /// View of n elements from start, sharing the storage.
    dense1D sub_vector(size_type start, size_type n) noexcept { return dense1D(*this, start, n); }
    const dense1D sub_vector(size_type start, size_type n) const noexcept
    {
        return dense1D(*this, start, n);
    }

    /// Deep copy of other into new storage of this vector's own.
    bool copy(const dense1D& other) noexcept
    {
        if (other.m_size == 0)
        {
            clear_hard();
            return true;
        }
        Ptr<vector_num<T>> fresh(vector_num<T>::create(other.m_size));
        if (!fresh) return false;
        std::memcpy(fresh->data(), other.data(), other.m_size * sizeof(T));
        m_storage = std::move(fresh);
        m_size = other.m_size;
        m_offset = 0;
        return true;
    }
    /// Size becomes n; the first min(size, n) values are kept, new ones are not set.
    bool resize(size_type n) noexcept
    {
        if (n > m_size && !grow(n, n)) return false;
        m_size = n;
        return true;
    }
    /// As resize(n), with the new elements set to value.
    bool resize(size_type n, const T& value) noexcept
    {
        size_type old = m_size;
        if (!resize(n)) return false;
        if (n > old) detail::fill_n(data() + old, n - old, value);
        return true;
    }
    /// Capacity for at least n elements, values kept, size unchanged. When the buffer must be
    /// replaced, the new capacity is at least size() + hint, so that hint more elements fit.
    bool reserve(size_type n, size_type hint = 0) noexcept
    {
        if (n <= capacity() && m_storage.unique()) return true;
        return grow(n, std::max(n, m_size + hint));
    }
    /// Appends one element; the storage grows geometrically (by half, at least 16 elements).
    bool push_back(const T& value) noexcept
    {
        if (m_size == capacity() || !m_storage.unique())
        {
            T keep = value; // value may live in this vector
            if (!grow(m_size + 1, std::max<size_type>(16, m_size + m_size / 2 + 1))) return false;
            data()[m_size++] = keep;
            return true;
        }
        data()[m_size++] = value;
        return true;
    }
    /// Appends n copies of value.
    bool push_back_n(const T& value, size_type n) noexcept
    {
        if (n == 0) return true;
        if (n > std::numeric_limits<size_type>::max() - m_size) return false;
        T keep = value;
        size_type need = m_size + n;
        if (need > capacity() || !m_storage.unique())
            if (!grow(need, std::max(need, m_size + m_size / 2))) return false;
        detail::fill_n(data() + m_size, n, keep);
        m_size = need;
        return true;
    }
    /// Size 0, storage released.
    void clear_hard() noexcept
    {
        m_storage.reset();
        m_size = m_offset = 0;
    }
    /// Size 0, storage kept for reuse.
    void clear() noexcept { m_size = 0; }

private:
    template <class, std::size_t>
    friend class dense1D;
    template <class>
    friend class dense2D;

    /// Gives this vector unshared storage for at least `need` elements (allocating `cap`
    /// when a new buffer is needed), keeping its values.
    bool grow(size_type need, size_type cap) noexcept
    {
        if (m_storage.unique() && capacity() >= need) return true;
        Ptr<vector_num<T>> fresh(vector_num<T>::create(std::max(need, cap)));
        if (!fresh) return false;
        if (m_size) std::memcpy(fresh->data(), data(), m_size * sizeof(T));
        m_storage = std::move(fresh);
        m_offset = 0;
        return true;
    }

    Ptr<vector_num<T>> m_storage;
    size_type m_size = 0;
    size_type m_offset = 0;
};

// ------------------------------------------------------------------------------------ dense2D

/// Column-major matrix over a shared reference-counted buffer: element (i, j) is at
/// storage[offset + i + j * ld], ld >= rows (larger in a sub-matrix view). A matrix is empty
/// when rows * cols is 0. Copy construction and assignment share; copy() is deep.
template <class T>
class dense2D
{
public:
    using value_type = T;
    using size_type = std::size_t;

    dense2D() noexcept = default;
    /// rows x cols, values not set (empty when memory cannot be had).
    dense2D(size_type rows, size_type cols) noexcept { resize(rows, cols); }
    /// rows x cols set to value (empty when memory cannot be had).
    dense2D(size_type rows, size_type cols, const T& value) noexcept { resize(rows, cols, value); }
    /// Shallow copy: shares storage, offset, rows, cols and ld.
    dense2D(const dense2D& other) noexcept = default;
    dense2D(dense2D&& other) noexcept
        : m_storage(std::move(other.m_storage)), m_offset(other.m_offset), m_rows(other.m_rows),
          m_cols(other.m_cols), m_ld(other.m_ld)
    {
        other.m_offset = other.m_rows = other.m_cols = other.m_ld = 0;
    }
    dense2D& operator=(const dense2D& other) noexcept = default;
    dense2D& operator=(dense2D&& other) noexcept
    {
        if (this != &other)
        {
            m_storage = std::move(other.m_storage);
            m_offset = other.m_offset;
            m_rows = other.m_rows;
            m_cols = other.m_cols;
            m_ld = other.m_ld;
            other.m_offset = other.m_rows = other.m_cols = other.m_ld = 0;
        }
        return *this;
    }
    /// Sets every element to value.
    dense2D& operator=(const T& value) noexcept
    {
        for (size_type j = 0; j < m_cols; ++j)
            detail::fill_n(col(j), m_rows, value);
        return *this;
    }

    size_type rows() const noexcept { return m_rows; }
    size_type cols() const noexcept { return m_cols; }
    size_type ld() const noexcept { return m_ld; }
    size_type size() const noexcept { return m_rows * m_cols; }
    bool empty() const noexcept { return m_rows * m_cols == 0; }
    /// Columns available without reallocation: (storage capacity - offset) / ld.
    size_type capacity_cols() const noexcept
    {
        return (m_storage && m_ld) ? (m_storage->capacity() - m_offset) / m_ld : 0;
    }
    bool unique() const noexcept { return m_storage.unique(); }

    T* data() noexcept { return m_storage ? m_storage->data() + m_offset : nullptr; }
    const T* data() const noexcept { return m_storage ? m_storage->data() + m_offset : nullptr; }
    /// Pointer to the first element of column j.
    T* col(size_type j) noexcept { return m_storage->data() + m_offset + j * m_ld; }
    const T* col(size_type j) const noexcept { return m_storage->data() + m_offset + j * m_ld; }
    T& operator()(size_type i, size_type j) noexcept
    {
        return m_storage->data()[m_offset + i + j * m_ld];
    }
    const T& operator()(size_type i, size_type j) const noexcept
    {
        return m_storage->data()[m_offset + i + j * m_ld];
    }

    /// Makes this a sharing view of all of other.
    void shallow_copy(const dense2D& other) noexcept { *this = other; }
    /// View of the m x n block from (i0, j0), sharing storage and keeping ld.
    dense2D sub_matrix(size_type i0, size_type j0, size_type m, size_type n) noexcept
    {
        return make_view(i0, j0, m, n);
    }
    const dense2D sub_matrix(size_type i0, size_type j0, size_type m, size_type n) const noexcept
    {
        return make_view(i0, j0, m, n);
    }
    /// View of all rows * cols elements in storage order (for matrices with ld == rows).
    dense1D<T> as_vector() const noexcept
    {
        dense1D<T> v;
        v.m_storage = m_storage;
        v.m_size = m_rows * m_cols;
        v.m_offset = m_offset;
        return v;
    }

    /// Deep copy of other into storage of this matrix's own (ld = rows).
    bool copy(const dense2D& other) noexcept
    {
        if (other.empty())
        {
            m_storage.reset();
            m_offset = 0;
            m_rows = other.m_rows;
            m_cols = other.m_cols;
            m_ld = other.m_rows;
            return true;
        }
        Ptr<vector_num<T>> fresh(vector_num<T>::create(other.m_rows * other.m_cols));
        if (!fresh) return false;
        copy_block(fresh->data(), other.m_rows, other, other.m_rows, other.m_cols);
        m_storage = std::move(fresh);
        m_offset = 0;
        m_rows = m_ld = other.m_rows;
        m_cols = other.m_cols;
        return true;
    }

    /// Empties the matrix (rows, cols and ld 0) and keeps the storage for reuse by resize.
    void clear() noexcept { m_rows = m_cols = m_ld = 0; }
    /// Empties the matrix and releases the storage.
    void clear_hard() noexcept
    {
        m_storage.reset();
        m_offset = m_rows = m_cols = m_ld = 0;
    }

    /// New dimensions. The values of the rows and columns that stay are kept (also when the row
    /// count changes); new elements are not set. Reuses the storage when it is not shared and
    /// large enough, otherwise allocates exactly rows * cols.
    bool resize(size_type rows, size_type cols) noexcept
    {
        return resize_impl(rows, cols, nullptr);
    }
    /// As resize(rows, cols), with the new elements set to value.
    bool resize(size_type rows, size_type cols, const T& value) noexcept
    {
        T keep = value;
        return resize_impl(rows, cols, &keep);
    }
    /// Capacity for rows * cols elements with ld equal to the current row count, values kept,
    /// dimensions unchanged.
    bool reserve(size_type rows, size_type cols) noexcept
    {
        if (rows && cols > std::numeric_limits<size_type>::max() / rows) return false;
        size_type need = std::max(rows * cols, m_rows * m_cols);
        bool packed = empty() || m_ld == m_rows;
        if (m_storage.unique() && packed && m_storage->capacity() - m_offset >= need)
        {
            if (empty()) m_ld = m_rows;
            return true;
        }
        Ptr<vector_num<T>> fresh(vector_num<T>::create(need));
        if (!fresh) return false;
        if (!empty()) copy_block(fresh->data(), m_rows, *this, m_rows, m_cols);
        m_storage = std::move(fresh);
        m_offset = 0;
        m_ld = m_rows;
        return true;
    }

private:
    dense2D make_view(size_type i0, size_type j0, size_type m, size_type n) const noexcept
    {
        dense2D v(*this);
        v.m_offset = m_offset + i0 + j0 * m_ld;
        v.m_rows = m;
        v.m_cols = n;
        return v;
    }

    /// Copies the r x c leading block of src into dst with leading dimension ld.
    static void copy_block(T* dst, size_type ld, const dense2D& src, size_type r,
                           size_type c) noexcept
    {
        if (r == 0) return;
        for (size_type j = 0; j < c; ++j)
            std::memcpy(dst + j * ld, src.col(j), r * sizeof(T));
    }

    bool resize_impl(size_type r, size_type c, const T* fill) noexcept
    {
        if (r && c > std::numeric_limits<size_type>::max() / r) return false;
        if (r == m_rows && c <= m_cols)
        {
            m_cols = c;
            return true;
        }
        // Keep ld when only columns are added to a matrix that has rows; otherwise pack (ld = r).
        size_type new_ld = (r == m_rows && m_rows) ? m_ld : r;
        size_type need = c ? new_ld * (c - 1) + r : 0;
        size_type kr = std::min(r, m_rows), kc = std::min(c, m_cols);
        if (m_rows == 0) kc = 0;
        T* dst;
        if (m_storage.unique() && m_storage->capacity() - m_offset >= need)
        {
            dst = m_storage->data() + m_offset;
            if (new_ld < m_ld)
                for (size_type j = 1; j < kc; ++j)
                    std::memmove(dst + j * new_ld, dst + j * m_ld, kr * sizeof(T));
            else if (new_ld > m_ld)
                for (size_type j = kc; j-- > 1;)
                    std::memmove(dst + j * new_ld, dst + j * m_ld, kr * sizeof(T));
        }
        else
        {
            new_ld = r;
            Ptr<vector_num<T>> fresh(vector_num<T>::create(r * c));
            if (r != 0 && c != 0 && !fresh) return false;
            dst = fresh ? fresh->data() : nullptr;
            if (kr && kc) copy_block(dst, new_ld, *this, kr, kc);
            m_storage = std::move(fresh);
            m_offset = 0;
        }
        if (fill)
        {
            for (size_type j = 0; j < kc; ++j)
                detail::fill_n(dst + j * new_ld + kr, r - kr, *fill);
            for (size_type j = kc; j < c; ++j)
                detail::fill_n(dst + j * new_ld, r, *fill);
        }
        m_rows = r;
        m_cols = c;
        m_ld = new_ld;
        return true;
    }

    Ptr<vector_num<T>> m_storage;
    size_type m_offset = 0;
    size_type m_rows = 0;
    size_type m_cols = 0;
    size_type m_ld = 0;
};

// ------------------------------------------------------------------------------------ fixed
// objects

/// N values in a plain array, value-initialised; constructible from its N values.
template <class T, std::size_t N>
class vector_fixed
{
public:
    vector_fixed() noexcept = default;
    template <class... A, class = std::enable_if_t<sizeof...(A) == N && (N > 0) &&
                                                   (std::is_convertible<A, T>::value && ...)>>
    vector_fixed(A... values) noexcept : m_values{static_cast<T>(values)...}
    {
    }
    /// Sets all N values to value.
    vector_fixed& operator=(const T& value) noexcept
    {
        for (std::size_t i = 0; i < N; ++i)
            m_values[i] = value;
        return *this;
    }
    bool operator==(const vector_fixed& o) const noexcept
    {
        for (std::size_t i = 0; i < N; ++i)
            if (!(m_values[i] == o.m_values[i])) return false;
        return true;
    }
    bool operator!=(const vector_fixed& o) const noexcept { return !(*this == o); }
    static constexpr std::size_t size() noexcept { return N; }
    T& operator[](std::size_t i) noexcept { return m_values[i]; }
    const T& operator[](std::size_t i) const noexcept { return m_values[i]; }
    T* data() noexcept { return m_values; }
    const T* data() const noexcept { return m_values; }
    T* begin() noexcept { return m_values; }
    T* end() noexcept { return m_values + N; }
    const T* begin() const noexcept { return m_values; }
    const T* end() const noexcept { return m_values + N; }

private:
    T m_values[N]{};
};

/// M x N values stored column by column, value-initialised.
template <class T, std::size_t M, std::size_t N>
class matrix_fixed
{
public:
    matrix_fixed() noexcept = default;
    T& operator()(std::size_t i, std::size_t j) noexcept { return m_values[i + j * M]; }
    const T& operator()(std::size_t i, std::size_t j) const noexcept { return m_values[i + j * M]; }
    /// Pointer to the first of the M values of column j (read and write).
    T* col(std::size_t j) noexcept { return m_values + j * M; }
    const T* col(std::size_t j) const noexcept { return m_values + j * M; }
    matrix_fixed& operator=(const T& value) noexcept
    {
        for (std::size_t k = 0; k < M * N; ++k)
            m_values[k] = value;
        return *this;
    }
    static constexpr std::size_t rows() noexcept { return M; }
    static constexpr std::size_t cols() noexcept { return N; }
    T* data() noexcept { return m_values; }
    const T* data() const noexcept { return m_values; }

private:
    T m_values[M * N]{};
};

/// Symmetric N x N matrix stored as its N(N+1)/2 upper-triangle values packed by columns
/// (LAPACK packed storage, UPLO "U"): for N = 3 the order is 11, 12, 22, 13, 23, 33.
template <class T, std::size_t N>
class symmetric_fixed
{
public:
    static constexpr std::size_t packed_size = N * (N + 1) / 2;
    symmetric_fixed() noexcept = default;
    template <class... A, class = std::enable_if_t<sizeof...(A) == packed_size &&
                                                   (std::is_convertible<A, T>::value && ...)>>
    symmetric_fixed(A... values) noexcept : m_values{static_cast<T>(values)...}
    {
    }
    /// Packed value k.
    T& operator[](std::size_t k) noexcept { return m_values[k]; }
    const T& operator[](std::size_t k) const noexcept { return m_values[k]; }
    /// Element (i, j) = (j, i).
    T& operator()(std::size_t i, std::size_t j) noexcept { return m_values[index(i, j)]; }
    const T& operator()(std::size_t i, std::size_t j) const noexcept
    {
        return m_values[index(i, j)];
    }
    static constexpr std::size_t size() noexcept { return packed_size; }
    T* data() noexcept { return m_values; }
    const T* data() const noexcept { return m_values; }

private:
    static constexpr std::size_t index(std::size_t i, std::size_t j) noexcept
    {
        return i <= j ? i + j * (j + 1) / 2 : j + i * (i + 1) / 2;
    }
    T m_values[packed_size]{};
};

// ------------------------------------------------------------------------------------ histogram

namespace misc
{

/// Statistics accumulator: count, minimum, maximum and mean of the values processed, and a
/// histogram over [lower, upper] in equal bins. A value x goes to bin floor((x - lower) / width),
/// x == upper to the last bin; values below lower or above upper are counted as underflow or
/// overflow, NaN values only in nbr_nan(). min, max and mean are over the non-NaN values (NaN
/// when there is none). The default range [0, 1] in 10 bins suits shape qualities.
/// No allocation: at most max_bins bins.
class histogram
{
public:
    static constexpr unsigned max_bins = 64;

    histogram() noexcept : histogram(0.0, 1.0, 10) {}
    /// Bins over [lower, upper]; nbr_bins is clamped to [1, max_bins]; a reversed range is swapped
    /// and an empty or non-finite range becomes [lower, lower + 1].
    histogram(double lower, double upper, unsigned nbr_bins) noexcept
    {
        if (lower > upper) std::swap(lower, upper);
        if (!(upper > lower) || !std::isfinite(lower) || !std::isfinite(upper))
        {
            lower = std::isfinite(lower) ? lower : 0.0;
            upper = lower + 1.0;
        }
        m_lower = lower;
        m_upper = upper;
        m_nbr_bins = std::min(std::max(nbr_bins, 1u), max_bins);
        clear();
    }
    /// Adds one value.
    void process(double x) noexcept
    {
        ++m_count;
        if (std::isnan(x))
        {
            ++m_nan;
            return;
        }
        if (m_count - m_nan == 1)
            m_min = m_max = x;
        else
        {
            if (x < m_min) m_min = x;
            if (x > m_max) m_max = x;
        }
        m_sum += x;
        if (x < m_lower)
            ++m_under;
        else if (x > m_upper)
            ++m_over;
        else
        {
            double t = (x - m_lower) / (m_upper - m_lower) * m_nbr_bins;
            unsigned k = t >= m_nbr_bins ? m_nbr_bins - 1 : static_cast<unsigned>(t);
            ++m_bins[k];
        }
    }
    /// Adds every value of v.
    template <std::size_t A>
    void process(const dense1D<double, A>& v) noexcept
    {
        for (std::size_t i = 0; i < v.size(); ++i)
            process(v[i]);
    }
    /// Forgets every value (the bins are kept).
    void clear() noexcept
    {
        m_count = m_nan = m_under = m_over = 0;
        m_sum = 0.0;
        m_min = m_max = std::numeric_limits<double>::quiet_NaN();
        for (auto& b : m_bins)
            b = 0;
    }

    /// Values processed, NaN included.
    std::uint64_t count() const noexcept { return m_count; }
    std::uint64_t nbr_nan() const noexcept { return m_nan; }
    double min() const noexcept { return m_min; }
    double max() const noexcept { return m_max; }
    double mean() const noexcept
    {
        std::uint64_t n = m_count - m_nan;
        return n ? m_sum / double(n) : std::numeric_limits<double>::quiet_NaN();
    }
    double sum() const noexcept { return m_sum; }
    unsigned nbr_bins() const noexcept { return m_nbr_bins; }
    double lower() const noexcept { return m_lower; }
    double upper() const noexcept { return m_upper; }
    /// Values in bin k, k < nbr_bins().
    std::uint64_t bin(unsigned k) const noexcept { return m_bins[k]; }
    double bin_lower(unsigned k) const noexcept
    {
        return m_lower + (m_upper - m_lower) * k / m_nbr_bins;
    }
    double bin_upper(unsigned k) const noexcept
    {
        return k + 1 == m_nbr_bins ? m_upper : m_lower + (m_upper - m_lower) * (k + 1) / m_nbr_bins;
    }
    std::uint64_t underflow() const noexcept { return m_under; }
    std::uint64_t overflow() const noexcept { return m_over; }

private:
    double m_lower = 0.0, m_upper = 1.0;
    unsigned m_nbr_bins = 10;
    std::uint64_t m_count = 0, m_nan = 0, m_under = 0, m_over = 0;
    double m_sum = 0.0, m_min = 0.0, m_max = 0.0;
    std::uint64_t m_bins[max_bins] = {};
};

} // namespace misc

// ------------------------------------------------------------------------------------ LAPACK

namespace lapack
{

/// Eigenvalues and, with jobz 'V', eigenvectors of an n x n symmetric matrix in packed storage
/// (uplo 'U' or 'L'), through the system LAPACK's dspev: ap is overwritten, w receives the
/// eigenvalues in ascending order, z (ldz >= n) the orthonormal eigenvectors column by column,
/// work needs 3n doubles. info is LAPACK's: 0 on success, -i for a bad argument i, > 0 when the
/// iteration did not converge. Returns info. Complexity: O(n^3).
MESHUTIL_API int dspev(char jobz, char uplo, long n, double* ap, double* w, double* z, long ldz,
                       double* work, long& info) noexcept;

} // namespace lapack

} // namespace qx7

namespace qx7::meshutil
{

using qx7::undefined_index;

/// Appends the record of R values at `record` as a new last column of M. Fails (false, M
/// unchanged) when M is not empty and its row count is not R, or when memory cannot be had. When
/// M is empty or its column count equals its capacity in columns, it first reserves R rows by
/// max(4, 2 x cols) columns, so growth is by doubling from a first capacity of 4 columns.
/// Complexity: amortised O(R).
template <class T>
bool append_column(dense2D<T>& M, const T* record, std::size_t R) noexcept
{
    if (!M.empty() && M.rows() != R) return false;
    std::size_t cols = M.empty() ? 0 : M.cols();
    if (M.empty() || cols == M.capacity_cols())
        if (!M.reserve(R, std::max<std::size_t>(4, 2 * cols))) return false;
    if (!M.resize(R, cols + 1)) return false;
    T* p = M.col(cols);
    for (std::size_t i = 0; i < R; ++i)
        p[i] = record[i];
    return true;
}

/// append_column for a fixed-size record.
template <class T, std::size_t R>
bool append_column(dense2D<T>& M, const vector_fixed<T, R>& record) noexcept
{
    return append_column(M, record.data(), R);
}

} // namespace qx7::meshutil
