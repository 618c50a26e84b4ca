// The containers: shared and deep copies, views, growth, allocation failure, column appends,
// fixed-size objects, the histogram, the eigen-solver and the block allocator.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <gtest/gtest.h>
#include <meshutil/containers.h>
#include <random>
#include <sys/mman.h>
#include <vector>

using qx7::dense1D;
using qx7::dense2D;
using qx7::undefined_index;

namespace
{

dense2D<unsigned> iota_matrix(std::size_t rows, std::size_t cols)
{
    dense2D<unsigned> M(rows, cols);
    for (std::size_t j = 0; j < cols; ++j)
        for (std::size_t i = 0; i < rows; ++i)
            M(i, j) = unsigned(100 * j + i);
    return M;
}

} // namespace

TEST(dense1D, shallow_copies_share_and_deep_copies_do_not)
{
    dense1D<double> a(4, 1.0);
    dense1D<double> shallow(a);
    dense1D<double> deep;
    ASSERT_TRUE(deep.copy(a));
    shallow[2] = 7.0;
    EXPECT_EQ(a[2], 7.0);
    EXPECT_EQ(deep[2], 1.0);

    dense1D<double> view = a.sub_vector(1, 2);
    view[0] = -3.0;
    EXPECT_EQ(a[1], -3.0);
    EXPECT_EQ(view.size(), 2u);
    EXPECT_EQ(view[1], 7.0);

    // Equality compares sizes and values, not storage.
    EXPECT_TRUE(deep == dense1D<double>(4, 1.0));
    EXPECT_FALSE(deep == dense1D<double>(3, 1.0));
    EXPECT_FALSE(a == deep);
}

TEST(dense1D, growth_keeps_values_and_detaches_views)
{
    dense1D<unsigned> v;
    for (unsigned k = 0; k < 1000; ++k)
        ASSERT_TRUE(v.push_back(k));
    for (unsigned k = 0; k < 1000; ++k)
        ASSERT_EQ(v[k], k);

    // resize(n, value): old values kept, new ones set.
    dense1D<int> w(3, 5);
    ASSERT_TRUE(w.resize(6, -1));
    const int expected[6] = {5, 5, 5, -1, -1, -1};
    EXPECT_EQ(dense1D<int>(6, expected), w);

    // A grown view gets storage of its own: the parent does not see later writes.
    dense1D<int> parent(10, 0);
    dense1D<int> view = parent.sub_vector(2, 3);
    ASSERT_TRUE(view.resize(5, 9));
    view[0] = 42;
    EXPECT_EQ(parent[2], 0);
    EXPECT_EQ(parent[5], 0);
    EXPECT_EQ(view[4], 9);

    // push_back of an element of the vector itself while it reallocates.
    dense1D<double> s(1, 2.5);
    for (int k = 0; k < 40; ++k)
        ASSERT_TRUE(s.push_back(s[0]));
    EXPECT_EQ(s[40], 2.5);

    ASSERT_TRUE(s.push_back_n(-1.0, 3));
    EXPECT_EQ(s.size(), 44u);
    EXPECT_EQ(s[43], -1.0);
    s.clear_hard(); // storage released
    EXPECT_TRUE(s.empty());
    EXPECT_EQ(s.capacity(), 0u);
}

TEST(containers, failed_allocation_leaves_the_container_unchanged)
{
    dense1D<double> v(3, 1.5);
    volatile std::size_t huge_size = std::size_t(1) << 60; // not a constant: keeps the
    const std::size_t absurd = huge_size;                  // compiler from folding the fill
    EXPECT_FALSE(v.resize(absurd));
    EXPECT_FALSE(v.resize(absurd, 0.0));
    EXPECT_FALSE(v.reserve(absurd));
    EXPECT_FALSE(v.push_back_n(0.0, absurd));
    ASSERT_EQ(v.size(), 3u);
    EXPECT_EQ(v[2], 1.5);
    dense1D<double> huge(absurd);
    EXPECT_TRUE(huge.empty());

    dense2D<unsigned> M = iota_matrix(3, 2);
    EXPECT_FALSE(M.resize(3, std::size_t(1) << 60));
    EXPECT_FALSE(M.resize(std::size_t(1) << 31, std::size_t(1) << 31));
    EXPECT_FALSE(M.reserve(4, std::size_t(1) << 62));
    ASSERT_EQ(M.rows(), 3u);
    ASSERT_EQ(M.cols(), 2u);
    EXPECT_EQ(M(2, 1), 102u);
}

TEST(dense2D, views_write_through_and_copies_are_deep)
{
    dense2D<unsigned> M = iota_matrix(4, 5);
    dense2D<unsigned> before;
    ASSERT_TRUE(before.copy(M));
    dense2D<unsigned> shallow(M);

    dense2D<unsigned> view = M.sub_matrix(1, 2, 2, 3);
    EXPECT_EQ(view.ld(), 4u);
    EXPECT_EQ(view(0, 0), 201u);
    view(1, 2) = 7;
    EXPECT_EQ(M(2, 4), 7u);
    EXPECT_EQ(shallow(2, 4), 7u);
    EXPECT_EQ(before(2, 4), 402u);

    dense1D<unsigned> flat = M.as_vector();
    ASSERT_EQ(flat.size(), 20u);
    EXPECT_EQ(flat[4 * 3 + 1], 301u);

    // A deep copy of a view is packed (ld = rows).
    dense2D<unsigned> packed;
    ASSERT_TRUE(packed.copy(view));
    EXPECT_EQ(packed.ld(), 2u);
    EXPECT_EQ(packed(1, 2), 7u);

    // Emptiness is rows times cols.
    EXPECT_TRUE(dense2D<double>(3, 0).empty());
    EXPECT_TRUE(dense2D<double>(0, 5).empty());
}

TEST(dense2D, resize_keeps_values_whatever_the_row_change)
{
    // Every combination of shrinking and growing rows and columns, in place, reallocated, or
    // shared with another holder (which must not see the change), compared with the leading
    // block of the original.
    const std::size_t sizes[] = {0, 1, 2, 3, 5};
    for (std::size_t r0 : sizes)
        for (std::size_t c0 : sizes)
            for (std::size_t r1 : sizes)
                for (std::size_t c1 : sizes)
                    for (int mode = 0; mode < 3; ++mode)
                    {
                        dense2D<unsigned> M = iota_matrix(r0, c0), other;
                        if (mode == 1)
                        {
                            ASSERT_TRUE(M.reserve(r0, 40));
                        }
                        if (mode == 2) other = M; // shallow: shares the buffer
                        ASSERT_TRUE(M.resize(r1, c1, undefined_index));
                        ASSERT_EQ(other.rows(), mode == 2 ? r0 : 0);
                        ASSERT_EQ(other.cols(), mode == 2 ? c0 : 0);
                        for (std::size_t j = 0; j < other.cols(); ++j)
                            for (std::size_t i = 0; i < other.rows(); ++i)
                                ASSERT_EQ(other(i, j), 100 * j + i);
                        ASSERT_EQ(M.rows(), r1);
                        ASSERT_EQ(M.cols(), c1);
                        for (std::size_t j = 0; j < c1; ++j)
                            for (std::size_t i = 0; i < r1; ++i)
                            {
                                unsigned expect =
                                    (i < r0 && j < c0) ? unsigned(100 * j + i) : undefined_index;
                                ASSERT_EQ(M(i, j), expect)
                                    << r0 << "x" << c0 << " -> " << r1 << "x" << c1 << " mode "
                                    << mode << " at " << i << "," << j;
                            }
                    }
}

TEST(append_column, doubles_capacity_from_four_columns)
{
    using qx7::meshutil::append_column;
    dense2D<unsigned> M;
    std::size_t capacities[9];
    for (unsigned k = 0; k < 9; ++k)
    {
        qx7::vector_fixed<unsigned, 3> rec(k, k + 1, k + 2);
        ASSERT_TRUE(append_column(M, rec));
        capacities[k] = M.capacity_cols();
    }
    const std::size_t expected[9] = {4, 4, 4, 4, 8, 8, 8, 8, 16};
    for (unsigned k = 0; k < 9; ++k)
        EXPECT_EQ(capacities[k], expected[k]) << k;
    for (unsigned k = 0; k < 9; ++k)
        EXPECT_EQ(M(2, k), k + 2);
}

TEST(append_column, record_size_must_match_a_non_empty_matrix)
{
    using qx7::meshutil::append_column;
    // A 3 x 0 matrix is empty: a 2-value record turns it into 2 x 1.
    dense2D<unsigned> M(3, 0);
    const unsigned two[2] = {8, 9};
    ASSERT_TRUE(append_column(M, two, 2));
    EXPECT_EQ(M.rows(), 2u);
    EXPECT_EQ(M.cols(), 1u);
    EXPECT_EQ(M(1, 0), 9u);

    // A 2-value record on a non-empty 3-row matrix fails and changes nothing.
    dense2D<unsigned> N = iota_matrix(3, 2);
    EXPECT_FALSE(append_column(N, two, 2));
    EXPECT_EQ(N.rows(), 3u);
    EXPECT_EQ(N.cols(), 2u);
    EXPECT_EQ(N(2, 1), 102u);

    // Appending to a shared matrix leaves the other holder as it was.
    dense2D<unsigned> P = iota_matrix(2, 3);
    dense2D<unsigned> Q(P);
    ASSERT_TRUE(append_column(P, two, 2));
    EXPECT_EQ(Q.cols(), 3u);
    EXPECT_EQ(P.cols(), 4u);
    EXPECT_EQ(P(1, 2), 201u);
}

TEST(fixed, layouts_of_the_fixed_objects)
{
    qx7::matrix_fixed<double, 3, 3> A;
    A.col(1)[2] = 5.0; // column-major
    EXPECT_EQ(A(2, 1), 5.0);

    // Packed upper triangle by columns: 11, 12, 22, 13, 23, 33; copies are deep.
    qx7::symmetric_fixed<double, 3> S(1.0, 2.0, 3.0, 4.0, 5.0, 6.0);
    EXPECT_EQ(S(0, 1), 2.0);
    EXPECT_EQ(S(1, 0), 2.0);
    EXPECT_EQ(S(2, 0), 4.0);
    EXPECT_EQ(S(1, 2), 5.0);
    EXPECT_EQ(S(2, 2), 6.0);
    qx7::symmetric_fixed<double, 3> T;
    T = S;
    S[0] = 9.0;
    EXPECT_EQ(T[0], 1.0);
}

TEST(histogram, counts_statistics_and_bins)
{
    qx7::misc::histogram h; // [0, 1] in 10 bins
    const double values[] = {0.0, 0.05, 0.5, 1.0, 1.5, -0.25, std::nan("")};
    for (double x : values)
        h.process(x);
    EXPECT_EQ(h.count(), 7u);
    EXPECT_EQ(h.nbr_nan(), 1u);
    EXPECT_EQ(h.min(), -0.25);
    EXPECT_EQ(h.max(), 1.5);
    EXPECT_DOUBLE_EQ(h.mean(), (0.0 + 0.05 + 0.5 + 1.0 + 1.5 - 0.25) / 6);
    EXPECT_EQ(h.bin(0), 2u);
    EXPECT_EQ(h.bin(5), 1u);
    EXPECT_EQ(h.bin(9), 1u); // the upper edge belongs to the last bin
    EXPECT_EQ(h.underflow(), 1u);
    EXPECT_EQ(h.overflow(), 1u);

    qx7::misc::histogram g(-1.0, 1.0, 4);
    g.process(dense1D<double>(3, -0.75));
    EXPECT_EQ(g.bin(0), 3u);
    EXPECT_EQ(g.bin_upper(0), -0.5);
    EXPECT_TRUE(std::isnan(qx7::misc::histogram().mean()));
}

TEST(lapack, dspev_diagonalises_a_packed_symmetric_matrix)
{
    // [[2,1,0],[1,2,0],[0,0,5]] packed upper by columns: eigenvalues 1, 3, 5.
    double ap[6] = {2, 1, 2, 0, 0, 5};
    double w[3], z[9], work[9];
    long info = -1;
    EXPECT_EQ(qx7::lapack::dspev('V', 'U', 3, ap, w, z, 3, work, info), 0);
    EXPECT_EQ(info, 0);
    EXPECT_NEAR(w[0], 1.0, 1e-14);
    EXPECT_NEAR(w[1], 3.0, 1e-14);
    EXPECT_NEAR(w[2], 5.0, 1e-14);
    EXPECT_NEAR(std::abs(z[6 + 2]), 1.0, 1e-14);
}

TEST(allocator, large_blocks_are_aligned_and_reused)
{
    const std::size_t bytes = std::size_t(16) << 20;
    void* a = qx7::__vector_num_alloc(bytes);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(a) % (std::size_t(2) << 20), 0u);
    static_cast<char*>(a)[bytes - 1] = 1;
    qx7::__vector_num_free(a, bytes);
    void* b = qx7::__vector_num_alloc(bytes - 4096);
    EXPECT_EQ(a, b);
    qx7::__vector_num_free(b, bytes - 4096);
    qx7::__vector_num_trim();

    // Once the cache is full, the latest freed block displaces the oldest ones (a program that
    // moves on to larger inputs gets its new buffers back instead of fresh mappings).
    const std::size_t four = std::size_t(4) << 20;
    std::vector<void*> old;
    for (unsigned k = 0; k < 32; ++k) // as many as the cache keeps
        old.push_back(qx7::__vector_num_alloc(four));
    for (void* p : old)
        qx7::__vector_num_free(p, four);
    const std::size_t big = std::size_t(64) << 20;
    void* c = qx7::__vector_num_alloc(big);
    ASSERT_NE(c, nullptr);
    static_cast<char*>(c)[big - 1] = 2;
    qx7::__vector_num_free(c, big);
    // The same memory, not a fresh mapping that happens to get the same address.
    ASSERT_EQ(qx7::__vector_num_alloc(big), c);
    EXPECT_EQ(static_cast<char*>(c)[big - 1], 2);
    qx7::__vector_num_free(c, big);
    void* d = qx7::__vector_num_alloc(four); // the 31 blocks of 4 MiB left still serve
    EXPECT_NE(std::find(old.begin(), old.end(), d), old.end());
    qx7::__vector_num_free(d, four);
    qx7::__vector_num_trim();

    // A kept block handed out for a shorter request comes back whole when that request is freed
    // (with the size it asked for), and the trim unmaps all of it.
    const std::size_t large = std::size_t(64) << 20, shorter = std::size_t(40) << 20;
    void* e = qx7::__vector_num_alloc(large);
    ASSERT_NE(e, nullptr);
    static_cast<char*>(e)[large - 1] = 3;
    qx7::__vector_num_free(e, large);
    ASSERT_EQ(qx7::__vector_num_alloc(shorter), e);
    qx7::__vector_num_free(e, shorter);
    ASSERT_EQ(qx7::__vector_num_alloc(large), e);
    EXPECT_EQ(static_cast<char*>(e)[large - 1], 3);
    qx7::__vector_num_free(e, large);
    qx7::__vector_num_trim();
    unsigned char residency;
    EXPECT_EQ(mincore(static_cast<char*>(e) + shorter, 4096, &residency), -1); // unmapped
    EXPECT_EQ(errno, ENOMEM);

    // With as many blocks lent as can be noted, one more kept block handed to a shorter request
    // is cut down to it: its tail is unmapped at once, and it comes back at the shorter size.
    const std::size_t eight = std::size_t(8) << 20, six = std::size_t(6) << 20;
    std::vector<void*> kept(33), lent;
    for (void*& p : kept)
        ASSERT_NE(p = qx7::__vector_num_alloc(eight), nullptr);
    for (int k = 0; k < 32; ++k)
        qx7::__vector_num_free(kept[k], eight);
    for (int k = 0; k < 32; ++k)
        lent.push_back(qx7::__vector_num_alloc(six)); // each an 8 MiB block, noted as lent
    qx7::__vector_num_free(kept[32], eight);
    void* cut = qx7::__vector_num_alloc(six);
    ASSERT_EQ(cut, kept[32]);
    EXPECT_EQ(mincore(static_cast<char*>(cut) + six, 4096, &residency), -1);
    EXPECT_EQ(errno, ENOMEM);
    static_cast<char*>(cut)[six - 1] = 4;
    qx7::__vector_num_free(cut, six);
    EXPECT_EQ(qx7::__vector_num_alloc(six), cut); // kept at 6 MiB, and still mapped
    EXPECT_EQ(static_cast<char*>(cut)[six - 1], 4);
    qx7::__vector_num_free(cut, six);
    for (void* p : lent) // the lent blocks come back whole
        qx7::__vector_num_free(p, six);
    void* whole = qx7::__vector_num_alloc(eight);
    EXPECT_NE(std::find(lent.begin(), lent.end(), whole), lent.end());
    qx7::__vector_num_free(whole, eight);
    qx7::__vector_num_trim();

    void* small = qx7::__vector_num_alloc(100);
    ASSERT_NE(small, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(small) % 64, 0u);
    qx7::__vector_num_free(small, 100);
}
