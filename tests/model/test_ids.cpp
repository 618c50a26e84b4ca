// ID checks, renumbering, matching, sorting, permutation and bounding boxes.
#include "model/common.h"

#include <cmath>
#include <numeric>
#include <random>

TEST(ids, version_string)
{
    EXPECT_STREQ(version(), "4.7.2.1");
}

TEST(ids, check_and_max_treat_undefined_specially)
{
    EXPECT_TRUE(check_IDs(vec({0, U, 4}), 5));
    EXPECT_FALSE(check_IDs(vec({0, U, 4}), 4));
    EXPECT_TRUE(check_IDs(vec({0, U, 4}), U));
    EXPECT_TRUE(check_IDs(dense1D<unsigned>(), 0));
    EXPECT_TRUE(check_IDs(columns(2, {0, U, 3, 1}), 4));
    EXPECT_FALSE(check_IDs(columns(2, {0, U, 4, 1}), 4));

    EXPECT_EQ(max_ID(vec({U, U})), 0u);
    EXPECT_EQ(max_ID(dense1D<unsigned>()), U);
    EXPECT_EQ(max_ID(vec({3, U, 7})), 7u);
    EXPECT_EQ(max_ID(columns(3, {3, U, 7, 9, 1, U})), 9u);
    EXPECT_EQ(max_ID(dense2D<unsigned>(3, 0)), U);
    // A view: entries outside it do not count.
    dense2D<unsigned> M = columns(2, {1, 50, 2, 3});
    EXPECT_EQ(max_ID(M.sub_matrix(0, 0, 1, 2)), 2u);
}

TEST(ids, change_and_shift_indices)
{
    dense1D<unsigned> v = vec({2, U, 9});
    change_indices(v, vec({10, 11, 12}));
    EXPECT_EQ(std_of(v), (std::vector<unsigned>{12, U, 9}));

    dense2D<unsigned> M = columns(2, {0, 1, 2, 5});
    change_indices(M, vec({U, 7, 8}));
    EXPECT_EQ(M(0, 0), U);
    EXPECT_EQ(M(1, 0), 7u);
    EXPECT_EQ(M(1, 1), 5u);

    dense1D<unsigned> w = vec({0, U, 5});
    EXPECT_EQ(shift_indices(w, 3), 0);
    EXPECT_EQ(std_of(w), (std::vector<unsigned>{3, U, 8}));

    dense2D<unsigned> tri = columns(3, {1, 2, U});
    dense2D<unsigned> mix = columns(4, {1, 2, 3, U});
    EXPECT_EQ(shift_indices(tri, -1, EL_TRIA3), 0);
    EXPECT_EQ(shift_indices(mix, -1, EL_FACE_MIX), 0);
    EXPECT_EQ(tri(2, 0), 4294967294u); // plain types shift ~0u too
    EXPECT_EQ(tri(0, 0), 0u);
    EXPECT_EQ(mix(3, 0), U);
    EXPECT_EQ(mix(2, 0), 2u);
}

TEST(ids, vector_matching_keeps_last_positions)
{
    dense1D<unsigned> B_in_A, A_in_B;
    ASSERT_EQ(get_IDs(vec({4, 7, U, 4}), vec({7, 4, U, 9, 7}), B_in_A, A_in_B), 0);
    EXPECT_EQ(std_of(B_in_A), (std::vector<unsigned>{1, 3, U, U, 1}));
    EXPECT_EQ(std_of(A_in_B), (std::vector<unsigned>{U, 4, U, 1}));

    ASSERT_EQ(get_IDs(dense1D<unsigned>(), vec({1}), B_in_A, A_in_B), 0);
    EXPECT_EQ(std_of(B_in_A), (std::vector<unsigned>{U}));
    EXPECT_TRUE(A_in_B.empty());
}

TEST(ids, matrix_matching_against_brute_force)
{
    // Random small triangle and quadrangle lists: a column of B matches the lowest column of A
    // listing the same cycle (strict: the same sequence).
    std::mt19937 gen(7);
    for (int round = 0; round < 50; ++round)
    {
        const std::size_t rows = 3 + round % 2, na = 30, nb = 40;
        dense2D<unsigned> A(rows, na), B(rows, nb);
        for (std::size_t j = 0; j < na; ++j)
            for (std::size_t i = 0; i < rows; ++i)
                A(i, j) = gen() % 6;
        for (std::size_t j = 0; j < nb; ++j)
        {
            // Half of B are rotated, possibly reversed copies of columns of A.
            if (gen() % 2)
            {
                std::size_t src = gen() % na, shift = gen() % rows;
                bool reverse = gen() % 2;
                for (std::size_t i = 0; i < rows; ++i)
                {
                    std::size_t k = (i + shift) % rows;
                    B(i, j) = A(reverse ? rows - 1 - k : k, src);
                }
            }
            else
                for (std::size_t i = 0; i < rows; ++i)
                    B(i, j) = gen() % 6;
        }
        for (bool strict : {false, true})
        {
            dense1D<unsigned> B_in_A, A_in_B;
            ASSERT_EQ(get_IDs(A, B, B_in_A, A_in_B, strict), 0);
            std::vector<unsigned> expect_A_in_B(na, U);
            for (std::size_t j = 0; j < nb; ++j)
            {
                unsigned expect = U;
                for (std::size_t i = 0; i < na && expect == U; ++i)
                {
                    std::vector<unsigned> a(A.col(i), A.col(i) + rows),
                        b(B.col(j), B.col(j) + rows);
                    if (strict)
                    {
                        if (a == b) expect = unsigned(i);
                        continue;
                    }
                    // Same cycle in either sense, compared after putting the largest first.
                    auto canon = [&](std::vector<unsigned> c)
                    {
                        std::rotate(c.begin(), std::max_element(c.begin(), c.end()), c.end());
                        return c;
                    };
                    std::vector<unsigned> ra(a.rbegin(), a.rend());
                    if (canon(a) == canon(b) || canon(ra) == canon(b)) expect = unsigned(i);
                }
                ASSERT_EQ(B_in_A[j], expect) << "round " << round << " column " << j;
                if (expect != U) expect_A_in_B[expect] = unsigned(j);
            }
            EXPECT_EQ(std_of(A_in_B), expect_A_in_B);
        }
    }
}

TEST(ids, matrix_matching_codes)
{
    dense1D<unsigned> B_in_A = vec({1}), A_in_B = vec({1});
    EXPECT_EQ(get_IDs(columns(3, {1, 2, 3}), columns(3, {3, 2, 1}), B_in_A, A_in_B, false), 0);
    EXPECT_EQ(B_in_A[0], 0u);
    EXPECT_EQ(get_IDs(columns(3, {1, 2, 3}), columns(3, {3, 2, 1}), B_in_A, A_in_B, true), 0);
    EXPECT_EQ(B_in_A[0], U);
    EXPECT_EQ(get_IDs(columns(3, {1, 2, 3}), columns(2, {1, 2}), B_in_A, A_in_B, true), -2);
    EXPECT_TRUE(B_in_A.empty());
    EXPECT_TRUE(A_in_B.empty());
}

TEST(ids, sorted_order_is_a_stable_counting_sort)
{
    dense1D<unsigned> order, first;
    ASSERT_EQ(get_sorted_order(dense1D<unsigned>(), order, first), 0);
    EXPECT_TRUE(order.empty());
    EXPECT_EQ(std_of(first), (std::vector<unsigned>{0}));
    // ~0u has no slot: listed last.
    ASSERT_EQ(get_sorted_order(vec({U, 1, 0}), order, first), 0);
    EXPECT_EQ(std_of(order), (std::vector<unsigned>{2, 1, 0}));
    EXPECT_EQ(std_of(first), (std::vector<unsigned>{0, 1, 2}));

    std::mt19937 gen(3);
    dense1D<unsigned> values(5000);
    for (auto& v : values)
        v = gen() % 300;
    ASSERT_EQ(get_sorted_order(values, order, first), 0);
    std::vector<unsigned> ref(values.size());
    std::iota(ref.begin(), ref.end(), 0u);
    std::stable_sort(ref.begin(), ref.end(),
                     [&](unsigned a, unsigned b) { return values[a] < values[b]; });
    EXPECT_EQ(std_of(order), ref);
    ASSERT_EQ(first.size(), max_ID(values) + 2u);
    for (unsigned v = 0; v + 1 < first.size(); ++v)
        for (unsigned k = first[v]; k < first[v + 1]; ++k)
            ASSERT_EQ(values[order[k]], v);
}

TEST(ids, permutation_moves_old_positions_to_new)
{
    dense1D<unsigned> v = vec({10, 11, 12});
    ASSERT_EQ(permutation(v, vec({2, 0, 1})), 0);
    EXPECT_EQ(std_of(v), (std::vector<unsigned>{11, 12, 10}));
    v = vec({10, 11, 12});
    ASSERT_EQ(permutation(v, vec({U, 0})), 0);
    EXPECT_EQ(std_of(v), (std::vector<unsigned>{11, 11, 12}));

    dense1D<double> d(3);
    d[0] = 0.5, d[1] = 1.5, d[2] = 2.5;
    dense1D<double> shared(d);
    ASSERT_EQ(permutation(d, vec({1, 2, 0, 7})), 0);
    EXPECT_EQ(shared[0], 2.5); // updated in place
    EXPECT_EQ(d[1], 0.5);
    dense1D<double> empty;
    EXPECT_EQ(permutation(empty, vec({1})), 0);
}

TEST(ids, bounding_box_forms_and_codes)
{
    dense2D<double> pos(3, 4);
    const double xyz[12] = {0, 0, 0, 1, -2, 3, -1, 5, 0.5, 2, 2, 2};
    std::copy(xyz, xyz + 12, pos.data());
    const double inf = HUGE_VAL;

    vector_fixed<double, 3> lo(inf, inf, inf), hi(-inf, -inf, -inf);
    ASSERT_EQ(inc_bounding_box(pos, lo, hi), 0);
    EXPECT_EQ(lo, (vector_fixed<double, 3>(-1, -2, 0)));
    EXPECT_EQ(hi, (vector_fixed<double, 3>(2, 5, 3)));

    vector_fixed<double, 2> lo2(inf, inf), hi2(-inf, -inf);
    EXPECT_EQ(inc_bounding_box(pos, lo2, hi2), -1);

    lo = inf, hi = -inf;
    ASSERT_EQ(inc_bounding_box(pos, vec({1, U, 3}), lo, hi), 0);
    EXPECT_EQ(lo, (vector_fixed<double, 3>(1, -2, 2)));
    EXPECT_EQ(inc_bounding_box(pos, vec({1, 4}), lo, hi), -2);
    EXPECT_EQ(lo, (vector_fixed<double, 3>(1, -2, 2))); // unchanged by a failed check
    EXPECT_EQ(inc_bounding_box(pos, dense1D<unsigned>(), lo2, hi2), 0); // empty list first
    EXPECT_EQ(inc_bounding_box(pos, vec({0}), lo2, hi2), -1);

    lo = inf, hi = -inf;
    ASSERT_EQ(inc_bounding_box(pos, columns(2, {0, 2, 2, U}), lo, hi), 0);
    EXPECT_EQ(lo, (vector_fixed<double, 3>(-1, 0, 0)));
    EXPECT_EQ(hi, (vector_fixed<double, 3>(0, 5, 0.5)));
    EXPECT_EQ(inc_bounding_box(pos, columns(2, {0, 9}), lo, hi), -2);
    EXPECT_EQ(inc_bounding_box(pos, columns(2, {U, U}), lo2, hi2), 0); // no node: nothing done

    // A NaN coordinate is taken by the minimum (it is not at least the minimum), then replaced.
    dense2D<double> p2(2, 2);
    p2(0, 0) = std::nan(""), p2(1, 0) = 1, p2(0, 1) = 3, p2(1, 1) = 4;
    lo2 = inf, hi2 = -inf;
    ASSERT_EQ(inc_bounding_box(p2, lo2, hi2), 0);
    EXPECT_EQ(lo2[0], 3.0);
    EXPECT_EQ(hi2[0], 3.0);
}
