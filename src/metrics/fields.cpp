// Whole size and metric fields: validity, bounding, repair, conversions.
#include "metrics/metrics_private.h"

#include <meshutil/metrics.h>

namespace qx7::meshutil
{

namespace
{

/// A valid size: 0 < h < DBL_MAX (NaN fails).
inline bool valid_size(double h) noexcept
{
    return h > 0.0 && h < DBL_MAX;
}

/// Validity of one packed column of a field with `rows` rows (3 or 6).
inline bool valid_column(const double* m, std::size_t rows) noexcept
{
    return rows == 3 ? detail::is_valid2(m) : detail::is_valid3(m);
}

inline bool supported_rows(std::size_t rows) noexcept
{
    return rows == 3 || rows == 6;
}

/// Early exit shared by the bounding functions: nothing to bound.
inline bool no_bound(double hmin, double hmax) noexcept
{
    return !(hmin > 0.0) && hmax == DBL_MAX;
}

/// The bound check ladder after the early exits: -2 / -3 for non-finite bounds, else 0.
inline int check_bounds(double hmin, double hmax) noexcept
{
    if (!std::isfinite(hmin)) return -2;
    if (!std::isfinite(hmax)) return -3;
    return 0;
}

/// Bounds the sizes; the position of every change goes to IDs when given.
int bound_sizes(dense1D<double>& sizes, double hmin, double hmax, dense1D<unsigned>* IDs) noexcept
{
    if (sizes.empty() || no_bound(hmin, hmax)) return 0;
    if (int code = check_bounds(hmin, hmax)) return code;
    int count = 0;
    double* h = sizes.data();
    for (std::size_t j = 0, n = sizes.size(); j < n; ++j)
    {
        if (!(hmin <= h[j]))
            h[j] = hmin;
        else if (h[j] > hmax)
            h[j] = hmax;
        else
            continue;
        ++count;
        if (IDs && !IDs->push_back(unsigned(j))) return -199;
    }
    return IDs ? int(IDs->size()) : count;
}

/// Bounds the columns of a metric field; the index of every change goes to IDs when given.
int bound_columns(dense2D<double>& metrics, double hmin, double hmax,
                  dense1D<unsigned>* IDs) noexcept
{
    if (metrics.empty() || no_bound(hmin, hmax)) return 0;
    const std::size_t rows = metrics.rows();
    if (!supported_rows(rows)) return -1;
    if (int code = check_bounds(hmin, hmax)) return code;
    int count = 0;
    for (std::size_t j = 0, n = metrics.cols(); j < n; ++j)
    {
        double* m = metrics.col(j);
        const int changed = rows == 3 ? detail::bound_metric<2>(m, hmin, hmax)
                                      : detail::bound_metric<3>(m, hmin, hmax);
        if (changed != 1) continue;
        ++count;
        if (IDs && !IDs->push_back(unsigned(j))) return -199;
    }
    return IDs ? int(IDs->size()) : count;
}

/// Writes the isotropic metric of every size h > 0 into its column of a field of `rows` rows.
int iso_to_aniso_field(const dense1D<double>& sizes, dense2D<double>& metrics,
                       std::size_t rows) noexcept
{
    if (sizes.empty() && metrics.empty()) return 0;
    if (metrics.rows() != rows || metrics.cols() < sizes.size()) return -2;
    for (std::size_t j = 0, n = sizes.size(); j < n; ++j)
    {
        const double h = sizes[j];
        if (!(h > 0.0)) continue;
        const double l = 1.0 / (h * h);
        double* m = metrics.col(j);
        for (std::size_t k = 0; k < rows; ++k)
            m[k] = 0.0;
        m[0] = m[2] = l;
        if (rows == 6) m[5] = l;
    }
    return 0;
}

} // namespace

// ------------------------------------------------------------------------------------ validity

unsigned first_invalid_metric(const dense1D<double>& sizes) noexcept
{
    const double* h = sizes.data();
    const std::size_t n = sizes.size();
    for (std::size_t j = 0; j < n; ++j)
        if (!valid_size(h[j])) return unsigned(j);
    return unsigned(n);
}

unsigned first_invalid_metric(const dense2D<double>& metrics) noexcept
{
    const std::size_t rows = metrics.rows();
    if (!supported_rows(rows)) return 0;
    const std::size_t n = metrics.cols();
    for (std::size_t j = 0; j < n; ++j)
        if (!valid_column(metrics.col(j), rows)) return unsigned(j);
    return unsigned(n);
}

unsigned first_invalid_metric(const dense1D<unsigned>& IDs, const dense1D<double>& sizes) noexcept
{
    const std::size_t n = IDs.size(), nbr = sizes.size();
    for (std::size_t k = 0; k < n; ++k)
        if (IDs[k] >= nbr || !valid_size(sizes[IDs[k]])) return unsigned(k);
    return unsigned(n);
}

unsigned first_invalid_metric(const dense1D<unsigned>& IDs, const dense2D<double>& metrics) noexcept
{
    const std::size_t rows = metrics.rows();
    if (!supported_rows(rows)) return 0;
    const std::size_t n = IDs.size(), nbr = metrics.cols();
    for (std::size_t k = 0; k < n; ++k)
        if (IDs[k] >= nbr || !valid_column(metrics.col(IDs[k]), rows)) return unsigned(k);
    return unsigned(n);
}

bool are_valid_metrics(const dense1D<double>& sizes) noexcept
{
    return first_invalid_metric(sizes) == sizes.size();
}

bool are_valid_metrics(const dense2D<double>& metrics) noexcept
{
    return first_invalid_metric(metrics) == metrics.cols();
}

bool are_valid_metrics(const dense1D<unsigned>& IDs, const dense1D<double>& sizes) noexcept
{
    return first_invalid_metric(IDs, sizes) == IDs.size();
}

bool are_valid_metrics(const dense1D<unsigned>& IDs, const dense2D<double>& metrics) noexcept
{
    return first_invalid_metric(IDs, metrics) == IDs.size();
}

void valid_metrics(const dense2D<double>& metrics, dense1D<unsigned>& IDs) noexcept
{
    const std::size_t rows = metrics.rows();
    if (!supported_rows(rows)) return;
    const std::size_t n = metrics.cols(), old = IDs.size();
    if (!IDs.reserve(old + n)) return;
    for (std::size_t j = 0; j < n; ++j)
        if (valid_column(metrics.col(j), rows)) IDs.push_back(unsigned(j));
}

// ------------------------------------------------------------------------------------ bounds

int bound_metrics(dense1D<double>& sizes, double hmin, double hmax) noexcept
{
    return bound_sizes(sizes, hmin, hmax, nullptr);
}

int bound_metrics(dense2D<double>& metrics, double hmin, double hmax) noexcept
{
    return bound_columns(metrics, hmin, hmax, nullptr);
}

int bound_metrics(dense1D<double>& sizes, double hmin, double hmax, dense1D<unsigned>& IDs) noexcept
{
    IDs.clear();
    return bound_sizes(sizes, hmin, hmax, &IDs);
}

int bound_metrics(dense2D<double>& metrics, double hmin, double hmax,
                  dense1D<unsigned>& IDs) noexcept
{
    IDs.clear();
    return bound_columns(metrics, hmin, hmax, &IDs);
}

// ------------------------------------------------------------------------------------ repair

int overwrite_invalid_metrics(dense1D<double>& sizes, const dense1D<double>& fallback) noexcept
{
    const std::size_t n = std::min(sizes.size(), fallback.size());
    int count = 0;
    for (std::size_t j = 0; j < n; ++j)
        if (0.0 >= sizes[j] && fallback[j] > 0.0)
        {
            sizes[j] = fallback[j];
            ++count;
        }
    return count;
}

int overwrite_invalid_metrics(dense2D<double>& metrics,
                              const dense1D<double>& fallback_sizes) noexcept
{
    const std::size_t rows = metrics.rows();
    if (!supported_rows(rows)) return -1;
    if (metrics.empty()) return 0;
    const std::size_t n = std::min(metrics.cols(), fallback_sizes.size());
    int count = 0;
    for (std::size_t j = 0; j < n; ++j)
    {
        const double h = fallback_sizes[j];
        double* m = metrics.col(j);
        if (!(h > 0.0) || valid_column(m, rows)) continue;
        const double l = 1.0 / (h * h);
        for (std::size_t k = 0; k < rows; ++k)
            m[k] = 0.0;
        m[0] = m[2] = l;
        if (rows == 6) m[5] = l;
        ++count;
    }
    return count;
}

int overwrite_invalid_metrics(dense2D<double>& metrics, const dense2D<double>& fallback) noexcept
{
    const std::size_t rows = metrics.rows();
    if (!supported_rows(rows)) return -1;
    if (fallback.rows() != rows) return -2;
    const std::size_t n = std::min(metrics.cols(), fallback.cols());
    int count = 0;
    for (std::size_t j = 0; j < n; ++j)
    {
        double* m = metrics.col(j);
        const double* f = fallback.col(j);
        if (valid_column(m, rows) || !valid_column(f, rows)) continue;
        for (std::size_t k = 0; k < rows; ++k)
            m[k] = f[k];
        ++count;
    }
    return count;
}

// ------------------------------------------------------------------------------------ conversions

int metrics_iso_to_aniso2d(const dense1D<double>& sizes, dense2D<double>& metrics) noexcept
{
    return iso_to_aniso_field(sizes, metrics, 3);
}

int metrics_iso_to_aniso3d(const dense1D<double>& sizes, dense2D<double>& metrics) noexcept
{
    return iso_to_aniso_field(sizes, metrics, 6);
}

int metrics_iso_to_aniso2d(const dense1D<double>& sizes, const dense2D<double>& frames,
                           dense2D<double>& metrics) noexcept
{
    if (sizes.empty() && frames.empty() && metrics.empty()) return 0;
    const std::size_t n = sizes.size();
    if (frames.rows() != 6 || frames.cols() != n) return -2;
    if (metrics.rows() != 3 || metrics.cols() < n) return -3;
    for (std::size_t j = 0; j < n; ++j)
        detail::iso_to_plane(sizes[j], frames.col(j), metrics.col(j));
    return 0;
}

int metrics_aniso3d_to_aniso2d(const dense2D<double>& metrics3d, const dense2D<double>& frames,
                               dense2D<double>& metrics) noexcept
{
    if (metrics3d.empty() && frames.empty()) return 0;
    if (metrics3d.rows() != 6) return -1;
    const std::size_t n = metrics3d.cols();
    if (frames.rows() != 6 || frames.cols() != n) return -2;
    if (metrics.rows() != 3 || metrics.cols() < n) return -3;
    for (std::size_t j = 0; j < n; ++j)
        detail::restrict_to_plane(metrics3d.col(j), frames.col(j), metrics.col(j));
    return 0;
}

} // namespace qx7::meshutil
