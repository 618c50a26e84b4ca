// Tests of the metric field functions.
#include "metrics/metrics_test_util.h"

#include <cfloat>
#include <gtest/gtest.h>
#include <meshutil/metrics.h>

using namespace qx7;
using namespace qx7::meshutil;
using metrics_test::cols_of;
using metrics_test::inf_;
using metrics_test::list_of;
using metrics_test::nan_;
using metrics_test::rng;
using metrics_test::same;

namespace
{

/// A field (3 or 6 rows) of n random metrics, every third column made invalid.
dense2D<double> random_field(rng& r, std::size_t rows, std::size_t n)
{
    dense2D<double> M = rows == 3 ? metrics_test::random_field<2>(r, n, 0.01, 100.0)
                                  : metrics_test::random_field<3>(r, n, 0.01, 100.0);
    for (std::size_t j = 1; j < n; j += 3)
        M(rows - 1, j) = -M(rows - 1, j);
    return M;
}

bool valid_column(const dense2D<double>& M, std::size_t j)
{
    return M.rows() == 3 ? is_valid_metric(metrics_test::column<2>(M, j))
                         : is_valid_metric(metrics_test::column<3>(M, j));
}

bool valid_size(double h)
{
    return h > 0.0 && h < DBL_MAX;
}

} // namespace

TEST(metric_fields, validity_against_brute_force)
{
    // Sizes are valid in (0, DBL_MAX), columns when is_valid_metric says so; random ID lists
    // include positions beyond the field, which count as invalid.
    rng r(21);
    const double pool[] = {1.0, 1e-300, 0.0, -1.0, nan_, DBL_MAX, inf_, 3.0, 0.5};
    for (std::size_t rows : {3u, 6u})
        for (int t = 0; t < 50; ++t)
        {
            const unsigned n = 1 + unsigned(r.next() % 12);
            const dense2D<double> M = random_field(r, rows, n);
            dense1D<double> h(n);
            dense1D<unsigned> IDs(r.next() % 5), listed = list_of<unsigned>({99}), want = listed;
            for (unsigned j = 0; j < n; ++j)
            {
                h[j] = r.uniform() < 0.8 ? r.log_uniform(1e-3, 1e3) : pool[r.next() % 9];
                if (valid_column(M, j)) want.push_back(j);
            }
            for (unsigned& id : IDs)
                id = unsigned(r.next() % (n + 2));
            unsigned first_m = n, first_h = n, at_m = unsigned(IDs.size()), at_h = at_m;
            for (unsigned j = n; j-- > 0;)
            {
                if (!valid_column(M, j)) first_m = j;
                if (!valid_size(h[j])) first_h = j;
            }
            for (unsigned k = unsigned(IDs.size()); k-- > 0;)
            {
                if (IDs[k] >= n || !valid_column(M, IDs[k])) at_m = k;
                if (IDs[k] >= n || !valid_size(h[IDs[k]])) at_h = k;
            }
            EXPECT_EQ(first_invalid_metric(M), first_m);
            EXPECT_EQ(first_invalid_metric(h), first_h);
            EXPECT_EQ(first_invalid_metric(IDs, M), at_m);
            EXPECT_EQ(first_invalid_metric(IDs, h), at_h);
            EXPECT_EQ(are_valid_metrics(M), first_m == n);
            EXPECT_EQ(are_valid_metrics(h), first_h == n);
            EXPECT_EQ(are_valid_metrics(IDs, M), at_m == IDs.size());
            EXPECT_EQ(are_valid_metrics(IDs, h), at_h == IDs.size());
            valid_metrics(M, listed); // appends
            EXPECT_TRUE(listed == want);
        }
    // Unsupported row count: position 0 whatever the field holds, never valid unless empty.
    const dense2D<double> F4(4, 3, 1.0), E4(4, 0);
    EXPECT_EQ(first_invalid_metric(F4), 0u);
    EXPECT_FALSE(are_valid_metrics(F4));
    EXPECT_TRUE(are_valid_metrics(E4));
    EXPECT_TRUE(are_valid_metrics(dense1D<unsigned>(), F4));
    EXPECT_FALSE(are_valid_metrics(list_of<unsigned>({0}), F4));
    dense1D<unsigned> IDs = list_of<unsigned>({7});
    valid_metrics(F4, IDs);
    EXPECT_TRUE(IDs == list_of<unsigned>({7}));
}

TEST(metric_fields, bound_sizes)
{
    // Below hmin or NaN: hmin; above hmax: hmax; hmin not > 0 with a finite hmax bounds from
    // above only, but -1 fails 0 <= h too. IDs lists the changes after being emptied.
    dense1D<double> h = list_of<double>({0.5, 5, nan_, 2}), g = list_of<double>({-1, 5});
    dense1D<unsigned> IDs = list_of<unsigned>({7, 7});
    EXPECT_EQ(bound_metrics(h, 1.0, 4.0, IDs), 3);
    EXPECT_TRUE(h == list_of<double>({1, 4, 1, 2}) && IDs == list_of<unsigned>({0, 1, 2}));
    EXPECT_EQ(bound_metrics(g, 0.0, 4.0), 2);
    EXPECT_TRUE(g == list_of<double>({0, 4}));
    // Early exits and bad bounds leave the sizes untouched (IDs still emptied).
    const double rows[][3] = {{0.0, DBL_MAX, 0}, {-inf_, DBL_MAX, 0}, {nan_, 1.0, -2},
                              {inf_, 1.0, -2},   {1.0, inf_, -3},     {1.0, nan_, -3}};
    for (const auto& t : rows)
    {
        h = list_of<double>({-1, 5}), IDs = list_of<unsigned>({7});
        EXPECT_EQ(bound_metrics(h, t[0], t[1]), int(t[2]));
        EXPECT_EQ(bound_metrics(h, t[0], t[1], IDs), int(t[2]));
        EXPECT_TRUE(h == list_of<double>({-1, 5}) && IDs.empty());
    }
    dense1D<double> e;
    EXPECT_EQ(bound_metrics(e, nan_, nan_), 0);
}

TEST(metric_fields, bound_metric_fields_match_single_metric_bounding)
{
    rng r(22);
    for (std::size_t rows : {3u, 6u})
    {
        dense2D<double> M = random_field(r, rows, 60), ref;
        ASSERT_TRUE(ref.copy(M));
        dense1D<unsigned> changed, IDs;
        for (unsigned j = 0; j < 60; ++j)
        {
            auto bound_column = [&](auto m)
            {
                const int code = bound_metric(m, 0.1, 10.0);
                std::copy_n(m.data(), m.size(), ref.col(j));
                return code;
            };
            if ((rows == 3 ? bound_column(metrics_test::column<2>(ref, j))
                           : bound_column(metrics_test::column<3>(ref, j))) == 1)
                changed.push_back(j);
        }
        EXPECT_EQ(bound_metrics(M, 0.1, 10.0, IDs), int(changed.size()));
        EXPECT_TRUE(IDs == changed && same(M, ref));
    }
    // Check order: empty field and absent bounds before the row count, then the bounds.
    dense2D<double> F4(4, 2, 1.0), E4(4, 0), M2 = cols_of<double>(3, {1, 0, 1});
    dense1D<unsigned> IDs = list_of<unsigned>({1, 2});
    EXPECT_EQ(bound_metrics(F4, 1.0, 2.0, IDs), -1);
    EXPECT_TRUE(IDs.empty());
    EXPECT_EQ(bound_metrics(E4, 1.0, 2.0), 0);
    EXPECT_EQ(bound_metrics(F4, 0.0, DBL_MAX), 0);
    EXPECT_EQ(bound_metrics(F4, nan_, 1.0), -1);
    EXPECT_EQ(bound_metrics(M2, nan_, 1.0), -2);
    EXPECT_EQ(bound_metrics(M2, 1.0, inf_), -3);
}

TEST(metric_fields, overwrite_invalid)
{
    // Only sizes with 0 >= h (NaN kept), only from fallbacks > 0, only as far as the fallback.
    dense1D<double> h = list_of<double>({-1, 2, nan_, 0, 0});
    EXPECT_EQ(overwrite_invalid_metrics(h, list_of<double>({3, 5, 7, -1})), 1);
    EXPECT_TRUE(h[0] == 3.0 && h[1] == 2.0 && std::isnan(h[2]) && h[3] == 0.0 && h[4] == 0.0);
    // Invalid columns become the isotropic metric of their fallback size.
    dense2D<double> M = cols_of<double>(3, {0, 0, 0, 1, 0, 1, 0, 0, 0}), M6(6, 1, 0.0);
    EXPECT_EQ(overwrite_invalid_metrics(M, list_of<double>({2, 3})), 1);
    EXPECT_TRUE(same(M, cols_of<double>(3, {0.25, 0, 0.25, 1, 0, 1, 0, 0, 0})));
    EXPECT_EQ(overwrite_invalid_metrics(M6, list_of<double>({0.5})), 1);
    EXPECT_TRUE(same(M6, cols_of<double>(6, {4, 0, 4, 0, 0, 4})));
    // From a fallback field: only valid fallback columns are copied.
    dense2D<double> T = cols_of<double>(3, {0, 0, 0, 0, 0, 0, 1, 0, 1});
    const dense2D<double> S = cols_of<double>(3, {9, 0, 9, 0, 0, 0});
    EXPECT_EQ(overwrite_invalid_metrics(T, S), 1);
    EXPECT_TRUE(same(T, cols_of<double>(3, {9, 0, 9, 0, 0, 0, 1, 0, 1})));
    // The row count is checked before the emptiness of the field, then the fallback's rows.
    dense2D<double> F4(4, 0), E(3, 0);
    EXPECT_EQ(overwrite_invalid_metrics(F4, list_of<double>({1})), -1);
    EXPECT_EQ(overwrite_invalid_metrics(E, list_of<double>({1})), 0);
    EXPECT_EQ(overwrite_invalid_metrics(F4, S), -1);
    EXPECT_EQ(overwrite_invalid_metrics(T, M6), -2);
}

TEST(metric_fields, conversions)
{
    // Sizes not > 0 leave their column; columns beyond the sizes are untouched; never resized.
    dense2D<double> M(6, 2, 7.0), M2(3, 3, 7.0), out(3, 2, 7.0), empty;
    EXPECT_EQ(metrics_iso_to_aniso3d(list_of<double>({0.5}), M), 0);
    EXPECT_TRUE(same(M, cols_of<double>(6, {4, 0, 4, 0, 0, 4, 7, 7, 7, 7, 7, 7})));
    EXPECT_EQ(metrics_iso_to_aniso2d(list_of<double>({-1, 2}), M2), 0);
    EXPECT_TRUE(same(M2, cols_of<double>(3, {7, 7, 7, 0.25, 0, 0.25, 7, 7, 7})));
    // With frames (frame 0 spans x and y, frame 1 spans y and z): sizes not > 0 give zero.
    const dense2D<double> frames = cols_of<double>(6, {1, 0, 0, 0, 1, 0, 0, 1, 0, 0, 0, 1});
    EXPECT_EQ(metrics_iso_to_aniso2d(list_of<double>({2, -1}), frames, out), 0);
    EXPECT_TRUE(same(out, cols_of<double>(3, {0.25, 0, 0.25, 0, 0, 0})));
    const dense2D<double> M3 = cols_of<double>(6, {1, 0, 2, 0, 0, 3, 4, 0, 5, 0, 0, 6});
    EXPECT_EQ(metrics_aniso3d_to_aniso2d(M3, frames, out), 0);
    EXPECT_TRUE(same(out, cols_of<double>(3, {1, 0, 2, 5, 0, 6})));

    const dense1D<double> one = list_of<double>({1}), two = list_of<double>({1, 1}), none;
    const int codes[][2] = {
        {metrics_iso_to_aniso2d(none, empty), 0},
        {metrics_iso_to_aniso2d(one, empty), -2},
        {metrics_iso_to_aniso3d(one, M2), -2},
        {metrics_iso_to_aniso2d(list_of<double>({1, 1, 1, 1}), M2), -2},
        {metrics_iso_to_aniso2d(none, dense2D<double>(), empty), 0},
        {metrics_iso_to_aniso2d(one, frames, out), -2},
        {metrics_iso_to_aniso2d(two, frames, M), -3},
        {metrics_aniso3d_to_aniso2d(dense2D<double>(6, 0), dense2D<double>(), empty), 0},
        {metrics_aniso3d_to_aniso2d(M2, frames, out), -1},
        {metrics_aniso3d_to_aniso2d(M3, M2, out), -2},
        {metrics_aniso3d_to_aniso2d(M3, frames, M), -3},
    };
    for (const auto& c : codes)
        EXPECT_EQ(c[0], c[1]) << "row " << (&c - codes);
}
