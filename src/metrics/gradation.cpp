// Gradation control of size and metric fields.
#include "metrics/gradation_engine.h"

#include <meshutil/metrics.h>

namespace qx7::meshutil
{

namespace
{

template <bool VARIATION>
int grade_sizes(const dense2D<double>& pos, const dense2D<unsigned>& connectM, element_type FE_type,
                const dense1D<unsigned>& nodes, bool nodes_frozen, int direction, double g,
                dense1D<double>& sizes) noexcept
{
    dense1D<double> field = sizes; // shallow: the caller's storage is updated in place
    detail::gradation_counters counters;
    return detail::bound_gradation<false, VARIATION>(pos, connectM, FE_type, nodes, nodes_frozen,
                                                     direction, g, field.data(), 1, 1, field.size(),
                                                     counters);
}

template <bool VARIATION>
int grade_metrics(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                  element_type FE_type, const dense1D<unsigned>& nodes, bool nodes_frozen,
                  int direction, double g, dense2D<double>& metrics) noexcept
{
    dense2D<double> field = metrics; // shallow: the caller's storage is updated in place
    detail::gradation_counters counters;
    double* base = field.empty() ? nullptr : field.col(0);
    return detail::bound_gradation<true, VARIATION>(pos, connectM, FE_type, nodes, nodes_frozen,
                                                    direction, g, base, field.ld(), field.rows(),
                                                    field.empty() ? 0 : field.cols(), counters);
}

} // namespace

int bound_metric_gradations(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                            element_type FE_type, const dense1D<unsigned>& nodes, bool nodes_frozen,
                            int direction, double g, dense1D<double>& sizes) noexcept
{
    return grade_sizes<false>(pos, connectM, FE_type, nodes, nodes_frozen, direction, g, sizes);
}

int bound_metric_gradations(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                            element_type FE_type, const dense1D<unsigned>& nodes, bool nodes_frozen,
                            int direction, double g, dense2D<double>& metrics) noexcept
{
    return grade_metrics<false>(pos, connectM, FE_type, nodes, nodes_frozen, direction, g, metrics);
}

int bound_metric_variations(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                            element_type FE_type, const dense1D<unsigned>& nodes, bool nodes_frozen,
                            int direction, double g, dense1D<double>& sizes) noexcept
{
    return grade_sizes<true>(pos, connectM, FE_type, nodes, nodes_frozen, direction, g, sizes);
}

int bound_metric_variations(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                            element_type FE_type, const dense1D<unsigned>& nodes, bool nodes_frozen,
                            int direction, double g, dense2D<double>& metrics) noexcept
{
    return grade_metrics<true>(pos, connectM, FE_type, nodes, nodes_frozen, direction, g, metrics);
}

} // namespace qx7::meshutil
