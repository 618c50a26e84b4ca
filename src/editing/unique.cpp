// Distinct node indices: listing in order of first appearance, counting.
#include "editing/editing_private.h"

#include <cstring>

namespace qx7::meshutil
{

namespace
{

/// Set of unsigned values with a small state per value (0 absent): a bit set when the values are
/// small enough, else a flat open-addressing table with linear probing.
class index_set
{
public:
    /// Room for `count` values, the largest being max_value.
    bool init(std::size_t count, unsigned max_value) noexcept
    {
        m_bits = std::size_t(max_value) < 64 * (count + 1024);
        if (m_bits) return m_words.resize(std::size_t(max_value) / 64 + 1, 0);
        m_cap = detail::hash_capacity(count);
        return m_keys.resize(m_cap, undefined_index) && m_state.resize(m_cap, 0);
    }
    /// The state of v (0 when absent); sets it to s when it was absent.
    unsigned char insert(unsigned v, unsigned char s) noexcept
    {
        if (m_bits)
        {
            std::uint64_t& w = m_words[v >> 6];
            const std::uint64_t b = std::uint64_t(1) << (v & 63);
            if (w & b) return 1;
            w |= b;
            return 0;
        }
        std::size_t h = slot(v);
        if (m_keys[h] == v) return m_state[h];
        m_keys[h] = v;
        m_state[h] = s;
        return 0;
    }

protected:
    std::size_t slot(unsigned v) const noexcept
    {
        const std::size_t mask = m_cap - 1;
        std::size_t h = detail::mix32(v) & mask;
        while (m_keys[h] != undefined_index && m_keys[h] != v)
            h = (h + 1) & mask;
        return h;
    }
    bool m_bits = true;
    std::size_t m_cap = 0;
    dense1D<std::uint64_t> m_words;
    dense1D<unsigned> m_keys;
    dense1D<unsigned char> m_state;
};

/// Number of defined entries and their largest value over the runs.
template <class Runs>
void scan_runs(const Runs& runs, std::size_t& count, unsigned& max_value) noexcept
{
    count = 0;
    max_value = 0;
    runs(
        [&](const unsigned* p, std::size_t n)
        {
            for (std::size_t i = 0; i < n; ++i)
                if (p[i] != undefined_index)
                {
                    ++count;
                    if (p[i] > max_value) max_value = p[i];
                }
        });
}

/// Appends the distinct values of the runs (first appearance, ~0u and excluded values skipped).
/// Two passes: mark and count, reserve exactly, then emit each value at its first occurrence.
template <class Runs>
int gather_unique(dense1D<unsigned>& out, const Runs& runs,
                  const dense1D<unsigned>& excluded) noexcept
{
    std::size_t count;
    unsigned max_value;
    scan_runs(runs, count, max_value);
    if (count == 0) return 0;
    // Excluded values above max_value cannot occur; those below take part in the set.
    class emitter : public index_set
    {
    public:
        bool bits() const noexcept { return m_bits; }
        std::uint64_t* words() noexcept { return m_words.data(); }
        std::size_t nbr_words() const noexcept { return m_words.size(); }
        /// Hash form: promotes a value in state 1 (to emit) to state 2 (emitted); true if it was 1.
        bool take(unsigned v) noexcept
        {
            const std::size_t h = slot(v);
            if (m_state[h] != 1) return false;
            m_state[h] = 2;
            return true;
        }
    } set;
    if (!set.init(count + excluded.size(), max_value)) return -199;
    std::size_t distinct = 0;
    if (set.bits())
    {
        // Values marked, excluded ones cleared, then emitted at first occurrence by test-and-clear.
        std::uint64_t* w = set.words();
        runs(
            [&](const unsigned* p, std::size_t n)
            {
                for (std::size_t i = 0; i < n; ++i)
                    if (p[i] != undefined_index) w[p[i] >> 6] |= std::uint64_t(1) << (p[i] & 63);
            });
        for (std::size_t i = 0; i < excluded.size(); ++i)
            if (excluded[i] <= max_value)
                w[excluded[i] >> 6] &= ~(std::uint64_t(1) << (excluded[i] & 63));
        for (std::size_t k = 0; k < set.nbr_words(); ++k)
            distinct += std::size_t(__builtin_popcountll(w[k]));
        const std::size_t base = out.size();
        if (!out.reserve(base + distinct) || !out.resize(base + distinct)) return -199;
        unsigned* o = out.data() + base;
        runs(
            [&](const unsigned* p, std::size_t n)
            {
                for (std::size_t i = 0; i < n; ++i)
                {
                    const unsigned v = p[i];
                    if (v == undefined_index) continue;
                    std::uint64_t& word = w[v >> 6];
                    const std::uint64_t b = std::uint64_t(1) << (v & 63);
                    if (word & b)
                    {
                        word &= ~b;
                        *o++ = v;
                    }
                }
            });
        return 0;
    }
    // Hash form: excluded values enter with state 3 (never emitted), the others with state 1.
    for (std::size_t i = 0; i < excluded.size(); ++i)
        if (excluded[i] != undefined_index) set.insert(excluded[i], 3);
    runs(
        [&](const unsigned* p, std::size_t n)
        {
            for (std::size_t i = 0; i < n; ++i)
                if (p[i] != undefined_index && set.insert(p[i], 1) == 0) ++distinct;
        });
    const std::size_t base = out.size();
    if (!out.reserve(base + distinct) || !out.resize(base + distinct)) return -199;
    unsigned* o = out.data() + base;
    runs(
        [&](const unsigned* p, std::size_t n)
        {
            for (std::size_t i = 0; i < n; ++i)
                if (p[i] != undefined_index && set.take(p[i])) *o++ = p[i];
        });
    return 0;
}

/// Number of distinct defined values of the runs, or -199.
template <class Runs>
int count_unique(const Runs& runs) noexcept
{
    std::size_t count;
    unsigned max_value;
    scan_runs(runs, count, max_value);
    if (count == 0) return 0;
    index_set set;
    if (!set.init(count, max_value)) return -199;
    std::size_t distinct = 0;
    runs(
        [&](const unsigned* p, std::size_t n)
        {
            for (std::size_t i = 0; i < n; ++i)
                if (p[i] != undefined_index && set.insert(p[i], 1) == 0) ++distinct;
        });
    return int(distinct);
}

struct vector_runs
{
    const dense1D<unsigned>* v;
    template <class F>
    void operator()(F&& f) const noexcept
    {
        if (!v->empty()) f(v->data(), v->size());
    }
};

} // namespace

int unique_indices(dense1D<unsigned>& out, const dense1D<unsigned>& in,
                   dense1D<unsigned> excluded) noexcept
{
    return gather_unique(out, vector_runs{&in}, excluded);
}

int unique_indices(dense1D<unsigned>& out, const dense2D<unsigned>& connectM,
                   dense1D<unsigned> excluded) noexcept
{
    return gather_unique(out, detail::matrix_runs{&connectM, &connectM + 1}, excluded);
}

int unique_indices(dense1D<unsigned>& out, const dense2D<unsigned>* connectM1,
                   const dense2D<unsigned>* connectM2, dense1D<unsigned> excluded) noexcept
{
    if (connectM2 < connectM1) return -3;
    return gather_unique(out, detail::matrix_runs{connectM1, connectM2}, excluded);
}

int count_unique_indices(const dense2D<unsigned>& connectM) noexcept
{
    return count_unique(detail::matrix_runs{&connectM, &connectM + 1});
}

int count_unique_indices(const dense2D<unsigned>* connectM1,
                         const dense2D<unsigned>* connectM2) noexcept
{
    if (connectM2 < connectM1) return -2;
    return count_unique(detail::matrix_runs{connectM1, connectM2});
}

namespace detail
{
int unique_of_range(dense1D<unsigned>& out, const dense2D<unsigned>* first,
                    const dense2D<unsigned>* last) noexcept
{
    return gather_unique(out, matrix_runs{first, last}, dense1D<unsigned>());
}
} // namespace detail

} // namespace qx7::meshutil
