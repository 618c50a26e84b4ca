// Distinct indices against a brute-force reference, in both table forms (bit set, hash).
#include <algorithm>
#include <gtest/gtest.h>
#include <meshutil/editing.h>
#include <random>
#include <vector>

using namespace qx7;
using namespace qx7::meshutil;

namespace
{

std::vector<unsigned> reference_unique(const std::vector<unsigned>& prefix,
                                       const std::vector<unsigned>& in,
                                       const std::vector<unsigned>& excluded)
{
    std::vector<unsigned> out = prefix, seen = excluded;
    for (unsigned v : in)
        if (v != undefined_index && std::find(seen.begin(), seen.end(), v) == seen.end())
        {
            seen.push_back(v);
            out.push_back(v);
        }
    return out;
}

dense1D<unsigned> make(const std::vector<unsigned>& v)
{
    return dense1D<unsigned>(v.size(), v.data());
}

} // namespace

TEST(unique_indices, matches_brute_force_in_every_form)
{
    std::mt19937 gen(7);
    // Small value ranges use the bit set, huge ones the hash table.
    for (unsigned range : {10u, 1000u, 4000000000u})
        for (unsigned trial = 0; trial < 20; ++trial)
        {
            const unsigned rows = 1 + gen() % 4, cols = gen() % 60;
            std::vector<unsigned> values(rows * cols), prefix(gen() % 3, 5u), excluded;
            for (unsigned& v : values)
                v = gen() % 8 == 0 ? undefined_index : gen() % range;
            for (unsigned k = 0; k < 3 && !values.empty(); ++k)
                excluded.push_back(values[gen() % values.size()]);
            excluded.push_back(undefined_index - 1);
            const std::vector<unsigned> expect = reference_unique(prefix, values, excluded);

            dense1D<unsigned> out = make(prefix);
            ASSERT_EQ(unique_indices(out, make(values), make(excluded)), 0);
            EXPECT_EQ(std::vector<unsigned>(out.begin(), out.end()), expect);

            dense2D<unsigned> M(rows, cols);
            std::copy(values.begin(), values.end(), M.data());
            out = make(prefix);
            ASSERT_EQ(unique_indices(out, M, make(excluded)), 0);
            EXPECT_EQ(std::vector<unsigned>(out.begin(), out.end()), expect);

            // A range of two: the split does not change the result.
            const unsigned cut = cols / 2;
            dense2D<unsigned> range2[2] = {dense2D<unsigned>(rows, cut),
                                           dense2D<unsigned>(rows, cols - cut)};
            std::copy(values.begin(), values.begin() + rows * cut, range2[0].data());
            std::copy(values.begin() + rows * cut, values.end(), range2[1].data());
            out = make(prefix);
            ASSERT_EQ(unique_indices(out, range2, range2 + 2, make(excluded)), 0);
            EXPECT_EQ(std::vector<unsigned>(out.begin(), out.end()), expect);

            const std::vector<unsigned> all = reference_unique({}, values, {});
            EXPECT_EQ(count_unique_indices(M), int(all.size()));
            EXPECT_EQ(count_unique_indices(range2, range2 + 2), int(all.size()));
        }
}

TEST(unique_indices, edge_cases)
{
    dense2D<unsigned> undefined_only(4, 3, undefined_index);
    EXPECT_EQ(count_unique_indices(undefined_only), 0);
    dense2D<unsigned> range[2];
    dense1D<unsigned> out(1, 9u);
    EXPECT_EQ(unique_indices(out, range + 1, range), -3);
    EXPECT_EQ(count_unique_indices(range + 1, range), -2);
    EXPECT_EQ(unique_indices(out, range, range), 0);
    EXPECT_EQ(out.size(), 1u);
    // A value already present before the call is appended again.
    EXPECT_EQ(unique_indices(out, dense1D<unsigned>(3, 9u)), 0);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[1], 9u);
}

TEST(inc_bounding_box, connectivity_form_uses_distinct_nodes)
{
    dense2D<double> pos(2, 3, 0.0);
    pos(0, 1) = -2.0;
    pos(1, 2) = 5.0;
    dense2D<unsigned> M(2, 2, 1u);
    M(1, 1) = 2;
    vector_fixed<double, 2> lo(1e300, 1e300), hi(-1e300, -1e300);
    EXPECT_EQ(inc_bounding_box(pos, M, lo, hi), 0);
    EXPECT_EQ(lo, (vector_fixed<double, 2>(-2.0, 0.0)));
    EXPECT_EQ(hi, (vector_fixed<double, 2>(0.0, 5.0)));
    M(0, 0) = 3;
    EXPECT_EQ(inc_bounding_box(pos, M, lo, hi), -2);
    vector_fixed<double, 3> lo3, hi3;
    EXPECT_EQ(inc_bounding_box(pos, M, lo3, hi3), -1);
    EXPECT_EQ(inc_bounding_box(pos, dense2D<unsigned>(3, 2, undefined_index), lo3, hi3), 0);
}
