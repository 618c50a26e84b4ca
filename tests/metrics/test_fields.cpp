// Tests of the metric field functions.
#include "metrics/metrics_test_util.h"

#include <cfloat>
#include <gtest/gtest.h>
#include <limits>
#include <meshutil/metrics.h>
#include <vector>

using namespace qx7;
using namespace qx7::meshutil;
using metrics_test::rng;

namespace
{

using metrics_test::inf_;
using metrics_test::nan_;

dense1D<double> sizes_of(std::initializer_list<double> v)
{
    return metrics_test::list_of<double>(v);
}

dense1D<unsigned> ids_of(std::initializer_list<unsigned> v)
{
    return metrics_test::list_of<unsigned>(v);
}

std::vector<unsigned> to_vector(const dense1D<unsigned>& v)
{
    return std::vector<unsigned>(v.begin(), v.end());
}

/// A 6 x n field of random 3-D metrics, every third one made invalid.
dense2D<double> random_field3(rng& r, std::size_t n)
{
    dense2D<double> M(6, n);
    for (std::size_t j = 0; j < n; ++j)
    {
        const symmetric_fixed<double, 3> m = metrics_test::random_metric<3>(r, 0.01, 100.0);
        for (int k = 0; k < 6; ++k)
            M(k, j) = m[k];
        if (j % 3 == 1) M(5, j) = -M(5, j);
    }
    return M;
}

} // namespace

TEST(metric_fields, first_invalid_and_validity)
{
    EXPECT_EQ(first_invalid_metric(sizes_of({1, 2, 0, 3})), 2u);
    EXPECT_EQ(first_invalid_metric(sizes_of({1, 2})), 2u);
    EXPECT_EQ(first_invalid_metric(sizes_of({DBL_MAX})), 0u);
    EXPECT_EQ(first_invalid_metric(sizes_of({1, nan_})), 1u);
    EXPECT_TRUE(are_valid_metrics(sizes_of({1e-300, 1e300})));
    EXPECT_FALSE(are_valid_metrics(sizes_of({1, -1})));
    EXPECT_TRUE(are_valid_metrics(dense1D<double>()));

    // Unsupported row count: position 0 whatever the field holds.
    dense2D<double> F4(4, 3, 1.0), E4(4, 0);
    EXPECT_EQ(first_invalid_metric(F4), 0u);
    EXPECT_FALSE(are_valid_metrics(F4));
    EXPECT_TRUE(are_valid_metrics(E4));
    EXPECT_TRUE(are_valid_metrics(dense1D<unsigned>(), F4));
    EXPECT_FALSE(are_valid_metrics(ids_of({0}), F4));

    dense2D<double> M2(3, 3);
    const double cols[3][3] = {{1, 0, 1}, {1, 2, 1}, {2, 0.5, 1}};
    for (int j = 0; j < 3; ++j)
        for (int k = 0; k < 3; ++k)
            M2(k, j) = cols[j][k];
    EXPECT_EQ(first_invalid_metric(M2), 1u);
    EXPECT_EQ(first_invalid_metric(ids_of({2, 0, 1}), M2), 2u);
    EXPECT_EQ(first_invalid_metric(ids_of({2, 0, 3}), M2), 2u); // 3 is out of range
    EXPECT_TRUE(are_valid_metrics(ids_of({2, 0, 0}), M2));
    EXPECT_EQ(first_invalid_metric(ids_of({1, 5}), sizes_of({1, 2})), 1u);
    EXPECT_TRUE(are_valid_metrics(ids_of({1, 0}), sizes_of({1, 2})));

    rng r(21);
    const dense2D<double> M3 = random_field3(r, 30);
    dense1D<unsigned> IDs = ids_of({99});
    valid_metrics(M3, IDs);
    std::vector<unsigned> want = {99};
    for (unsigned j = 0; j < 30; ++j)
        if (j % 3 != 1) want.push_back(j);
    EXPECT_EQ(to_vector(IDs), want);
    EXPECT_EQ(first_invalid_metric(M3), 1u);
    valid_metrics(F4, IDs); // unsupported rows: nothing appended
    EXPECT_EQ(IDs.size(), want.size());
}

TEST(metric_fields, bound_sizes)
{
    dense1D<double> h = sizes_of({0.5, 5, nan_, 2});
    dense1D<unsigned> IDs = ids_of({7, 7});
    EXPECT_EQ(bound_metrics(h, 1.0, 4.0, IDs), 3);
    EXPECT_EQ(h[0], 1.0);
    EXPECT_EQ(h[1], 4.0);
    EXPECT_EQ(h[2], 1.0); // NaN replaced by hmin
    EXPECT_EQ(h[3], 2.0);
    EXPECT_EQ(to_vector(IDs), (std::vector<unsigned>{0, 1, 2}));

    // No bound at all: nothing changes, even negative sizes; IDs is still emptied.
    dense1D<double> g = sizes_of({-1, 0, 3});
    EXPECT_EQ(bound_metrics(g, 0.0, DBL_MAX, IDs), 0);
    EXPECT_TRUE(IDs.empty());
    EXPECT_EQ(g[0], -1.0);
    EXPECT_EQ(bound_metrics(g, 0.0, DBL_MAX), 0);

    struct row
    {
        double hmin, hmax;
        int code;
    };
    for (const row& t : {row{nan_, 1.0, -2}, row{inf_, 1.0, -2}, row{1.0, inf_, -3},
                         row{1.0, nan_, -3}, row{-inf_, DBL_MAX, 0}})
    {
        dense1D<double> s = sizes_of({0.5, 5});
        EXPECT_EQ(bound_metrics(s, t.hmin, t.hmax), t.code);
        EXPECT_EQ(s[0], 0.5);
        EXPECT_EQ(s[1], 5.0);
    }
    dense1D<double> e;
    EXPECT_EQ(bound_metrics(e, nan_, nan_), 0);
    // hmin not > 0 with a finite hmax only bounds from above.
    dense1D<double> s = sizes_of({-1, 5});
    EXPECT_EQ(bound_metrics(s, 0.0, 4.0), 2); // -1 fails 0 <= h too
    EXPECT_EQ(s[0], 0.0);
    EXPECT_EQ(s[1], 4.0);
}

TEST(metric_fields, bound_metric_fields_match_single_metric_bounding)
{
    rng r(22);
    dense2D<double> M = random_field3(r, 60);
    dense2D<double> ref;
    ASSERT_TRUE(ref.copy(M));
    std::vector<unsigned> changed;
    for (unsigned j = 0; j < 60; ++j)
    {
        symmetric_fixed<double, 3> m;
        for (int k = 0; k < 6; ++k)
            m[k] = ref(k, j);
        if (bound_metric(m, 0.1, 10.0) == 1) changed.push_back(j);
        for (int k = 0; k < 6; ++k)
            ref(k, j) = m[k];
    }
    dense1D<unsigned> IDs;
    EXPECT_EQ(bound_metrics(M, 0.1, 10.0, IDs), int(changed.size()));
    EXPECT_EQ(to_vector(IDs), changed);
    for (unsigned j = 0; j < 60; ++j)
        for (int k = 0; k < 6; ++k)
            EXPECT_EQ(M(k, j), ref(k, j));
    // A second pass may only touch the round-off of the rebuilt columns.
    EXPECT_GE(bound_metrics(M, 0.1, 10.0), 0);
    for (unsigned j = 0; j < 60; ++j)
        for (int k = 0; k < 6; ++k)
            EXPECT_NEAR(M(k, j), ref(k, j), 1e-12 * 100.0);

    dense2D<double> M2(3, 2);
    const double v[6] = {100, 0, 1, 1, 0, 1};
    for (int k = 0; k < 6; ++k)
        M2.data()[k] = v[k];
    EXPECT_EQ(bound_metrics(M2, 0.5, 0.8), 2);
    EXPECT_NEAR(M2(0, 0), 4.0, 1e-14);
    EXPECT_NEAR(M2(2, 0), 1.5625, 1e-14);
    EXPECT_NEAR(M2(0, 1), 1.5625, 1e-14);

    dense2D<double> F4(4, 2, 1.0), E4(4, 0);
    EXPECT_EQ(bound_metrics(F4, 1.0, 2.0), -1);
    EXPECT_EQ(bound_metrics(E4, 1.0, 2.0), 0);
    EXPECT_EQ(bound_metrics(F4, 0.0, DBL_MAX), 0);
    EXPECT_EQ(bound_metrics(M2, nan_, 1.0), -2);
    EXPECT_EQ(bound_metrics(M2, 1.0, inf_), -3);
    IDs = ids_of({1, 2});
    EXPECT_EQ(bound_metrics(F4, 1.0, 2.0, IDs), -1);
    EXPECT_TRUE(IDs.empty());
}

TEST(metric_fields, overwrite_invalid)
{
    dense1D<double> h = sizes_of({-1, 2, nan_, 0, 0});
    EXPECT_EQ(overwrite_invalid_metrics(h, sizes_of({3, 5, 7, -1})), 1);
    EXPECT_EQ(h[0], 3.0);
    EXPECT_EQ(h[1], 2.0);
    EXPECT_TRUE(std::isnan(h[2])); // NaN is kept
    EXPECT_EQ(h[3], 0.0);          // the fallback is not > 0
    EXPECT_EQ(h[4], 0.0);          // beyond the fallback

    dense2D<double> M(3, 3, 0.0);
    M(0, 1) = M(2, 1) = 1.0; // column 1 valid
    EXPECT_EQ(overwrite_invalid_metrics(M, sizes_of({2, 3})), 1);
    EXPECT_EQ(M(0, 0), 0.25);
    EXPECT_EQ(M(1, 0), 0.0);
    EXPECT_EQ(M(2, 0), 0.25);
    EXPECT_EQ(M(0, 1), 1.0);
    EXPECT_EQ(M(0, 2), 0.0);
    dense2D<double> M6(6, 1, 0.0);
    EXPECT_EQ(overwrite_invalid_metrics(M6, sizes_of({0.5})), 1);
    const double want[6] = {4, 0, 4, 0, 0, 4};
    for (int k = 0; k < 6; ++k)
        EXPECT_EQ(M6(k, 0), want[k]);
    dense2D<double> F4(4, 1, 0.0), E(3, 0);
    EXPECT_EQ(overwrite_invalid_metrics(F4, sizes_of({1})), -1);
    EXPECT_EQ(overwrite_invalid_metrics(E, sizes_of({1})), 0);

    dense2D<double> T(3, 3, 0.0), S(3, 2, 0.0);
    S(0, 0) = S(2, 0) = 9.0; // valid fallback for column 0 only
    T(0, 2) = T(2, 2) = 1.0;
    EXPECT_EQ(overwrite_invalid_metrics(T, S), 1);
    EXPECT_EQ(T(0, 0), 9.0);
    EXPECT_EQ(T(0, 1), 0.0);
    EXPECT_EQ(overwrite_invalid_metrics(F4, S), -1);
    EXPECT_EQ(overwrite_invalid_metrics(T, M6), -2);
}

TEST(metric_fields, iso_to_aniso)
{
    dense2D<double> M(6, 3, 7.0);
    EXPECT_EQ(metrics_iso_to_aniso3d(sizes_of({2, 0, 0.5}), M), 0);
    const double c0[6] = {0.25, 0, 0.25, 0, 0, 0.25}, c2[6] = {4, 0, 4, 0, 0, 4};
    for (int k = 0; k < 6; ++k)
    {
        EXPECT_EQ(M(k, 0), c0[k]);
        EXPECT_EQ(M(k, 1), 7.0); // size 0: the column stays
        EXPECT_EQ(M(k, 2), c2[k]);
    }
    dense2D<double> M2(3, 4, 7.0);
    EXPECT_EQ(metrics_iso_to_aniso2d(sizes_of({2}), M2), 0);
    EXPECT_EQ(M2(0, 0), 0.25);
    EXPECT_EQ(M2(1, 0), 0.0);
    EXPECT_EQ(M2(0, 1), 7.0);
    EXPECT_EQ(M2.cols(), 4u); // never resized
    dense2D<double> empty;
    EXPECT_EQ(metrics_iso_to_aniso2d(dense1D<double>(), empty), 0);
    EXPECT_EQ(metrics_iso_to_aniso2d(sizes_of({1}), empty), -2);
    EXPECT_EQ(metrics_iso_to_aniso3d(sizes_of({1}), M2), -2);
    EXPECT_EQ(metrics_iso_to_aniso2d(sizes_of({1, 1, 1, 1, 1}), M2), -2);

    // With frames: an orthonormal frame gives the isotropic 2-D metric, h <= 0 gives zero.
    dense2D<double> frames(6, 2, 0.0);
    frames(0, 0) = frames(4, 0) = 1.0;
    frames(1, 1) = frames(5, 1) = 1.0;
    dense2D<double> out(3, 2, 7.0);
    EXPECT_EQ(metrics_iso_to_aniso2d(sizes_of({2, -1}), frames, out), 0);
    EXPECT_EQ(out(0, 0), 0.25);
    EXPECT_EQ(out(1, 0), 0.0);
    EXPECT_EQ(out(2, 0), 0.25);
    EXPECT_EQ(out(0, 1), 0.0);
    EXPECT_EQ(out(2, 1), 0.0);
    EXPECT_EQ(metrics_iso_to_aniso2d(dense1D<double>(), dense2D<double>(), empty), 0);
    EXPECT_EQ(metrics_iso_to_aniso2d(sizes_of({1}), frames, out), -2);
    EXPECT_EQ(metrics_iso_to_aniso2d(sizes_of({1, 1}), frames, M), -3);

    dense2D<double> M3(6, 2, 0.0);
    M3(0, 0) = 1.0, M3(2, 0) = 2.0, M3(5, 0) = 3.0;
    M3(0, 1) = 4.0, M3(2, 1) = 5.0, M3(5, 1) = 6.0;
    EXPECT_EQ(metrics_aniso3d_to_aniso2d(M3, frames, out), 0);
    EXPECT_EQ(out(0, 0), 1.0); // frame 0 spans x and y
    EXPECT_EQ(out(2, 0), 2.0);
    EXPECT_EQ(out(0, 1), 5.0); // frame 1 spans y and z
    EXPECT_EQ(out(2, 1), 6.0);
    EXPECT_EQ(out(1, 1), 0.0);
    EXPECT_EQ(metrics_aniso3d_to_aniso2d(dense2D<double>(6, 0), dense2D<double>(), empty), 0);
    EXPECT_EQ(metrics_aniso3d_to_aniso2d(M2, frames, out), -1);
    EXPECT_EQ(metrics_aniso3d_to_aniso2d(M3, M, out), -2);
    EXPECT_EQ(metrics_aniso3d_to_aniso2d(M3, frames, M), -3);
}
