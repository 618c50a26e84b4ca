// Translation, rotation and scaling of all nodes, of listed nodes or of a connectivity's nodes.
#include "editing/editing_private.h"

namespace qx7::meshutil
{

namespace detail
{

void rotation_matrix(const double* rot, double* R) noexcept
{
    const double rx = rot[0], ry = rot[1], rz = rot[2];
    const double theta2 = rx * rx + ry * ry + rz * rz, theta = std::sqrt(theta2);
    double a, b;
    if (theta <= 0.1)
    {
        // Taylor series of sin(t)/t and (1 - cos(t))/t^2 in t^2, Horner form.
        a = 1.0 +
            theta2 * (-1.0 / 6.0 +
                      theta2 * (1.0 / 120.0 + theta2 * (-1.0 / 5040.0 +
                                                        theta2 * (1.0 / 362880.0 +
                                                                  theta2 * (-1.0 / 39916800.0)))));
        b = 0.5 +
            theta2 * (-1.0 / 24.0 + theta2 * (1.0 / 720.0 + theta2 * (-1.0 / 40320.0 +
                                                                      theta2 * (1.0 / 3628800.0))));
    }
    else
    {
        a = std::sin(theta) / theta;
        b = (1.0 - std::cos(theta)) / theta2;
    }
    // W: cross-product matrix of rot, column-major; R = I + a W + b W^2.
    const double W[9] = {0.0, rz, -ry, -rz, 0.0, rx, ry, -rx, 0.0};
    for (int j = 0; j < 3; ++j)
        for (int i = 0; i < 3; ++i)
        {
            double w2 = 0.0;
            for (int k = 0; k < 3; ++k)
                w2 += W[i + 3 * k] * W[k + 3 * j];
            R[i + 3 * j] = (i == j ? 1.0 : 0.0) + a * W[i + 3 * j] + b * w2;
        }
}

} // namespace detail

namespace
{

/// Neither below nor above the value (NaN counts as equal).
inline bool is(double x, double value) noexcept
{
    return !(x < value) && !(x > value);
}

template <std::size_t D>
inline bool is_zero(const vector_fixed<double, D>& v) noexcept
{
    for (std::size_t k = 0; k < D; ++k)
        if (!is(v[k], 0.0)) return false;
    return true;
}

/// Grows pos to at least D rows with 0.0.
inline bool grow_rows(dense2D<double>& pos, std::size_t D) noexcept
{
    return pos.rows() >= D || pos.resize(D, pos.cols(), 0.0);
}

/// Selection of the nodes a transformation applies to.
enum class selection
{
    all,
    list,
    connectivity
};

/// Applies op(column) to the selected nodes after the no-op tests; returns the count of moved
/// entries (pos.cols() for all nodes), 0 for a no-op, or -199.
template <class Op>
int apply(dense2D<double>& pos, bool identity, std::size_t D, const dense1D<unsigned>* nodes,
          const dense2D<unsigned>* connectM, Op&& op) noexcept
{
    if (pos.empty() || identity) return 0;
    if (!nodes && !connectM)
    {
        if (!grow_rows(pos, D)) return -199;
        for (std::size_t j = 0, n = pos.cols(); j < n; ++j)
            op(pos.col(j));
        return int(pos.cols());
    }
    dense1D<unsigned> distinct;
    if (connectM)
    {
        if (unique_indices(distinct, *connectM) != 0) return -199;
        nodes = &distinct;
    }
    if (nodes->empty()) return 0;
    if (!grow_rows(pos, D)) return -199;
    const std::size_t n = pos.cols();
    int count = 0;
    for (std::size_t k = 0; k < nodes->size(); ++k)
        if ((*nodes)[k] < n)
        {
            op(pos.col((*nodes)[k]));
            ++count;
        }
    return count;
}

template <std::size_t D>
int translate_impl(dense2D<double>& pos, const vector_fixed<double, D>& V,
                   const dense1D<unsigned>* nodes, const dense2D<unsigned>* connectM) noexcept
{
    return apply(pos, is_zero(V), D, nodes, connectM,
                 [&V](double* p)
                 {
                     for (std::size_t i = 0; i < D; ++i)
                         p[i] += V[i];
                 });
}

int rotate_impl(dense2D<double>& pos, const vector_fixed<double, 2>& O, double angle,
                const dense1D<unsigned>* nodes, const dense2D<unsigned>* connectM) noexcept
{
    if (pos.empty() || is(angle, 0.0)) return 0;
    const double co = std::cos(angle), si = std::sin(angle);
    return apply(pos, false, 2, nodes, connectM,
                 [&](double* p)
                 {
                     const double dx = p[0] - O[0], dy = p[1] - O[1];
                     p[0] = O[0] + co * dx - si * dy;
                     p[1] = O[1] + si * dx + co * dy;
                 });
}

int rotate_impl(dense2D<double>& pos, const vector_fixed<double, 3>& O,
                const vector_fixed<double, 3>& rot, const dense1D<unsigned>* nodes,
                const dense2D<unsigned>* connectM) noexcept
{
    if (pos.empty() || is_zero(rot)) return 0;
    double R[9];
    detail::rotation_matrix(rot.data(), R);
    return apply(pos, false, 3, nodes, connectM,
                 [&](double* p)
                 {
                     const double d[3] = {p[0] - O[0], p[1] - O[1], p[2] - O[2]};
                     for (int i = 0; i < 3; ++i)
                         p[i] = O[i] + (R[i] * d[0] + R[i + 3] * d[1] + R[i + 6] * d[2]);
                 });
}

template <std::size_t D>
int zoom_impl(dense2D<double>& pos, const vector_fixed<double, D>& O, double k,
              const dense1D<unsigned>* nodes, const dense2D<unsigned>* connectM) noexcept
{
    const double f = k - 1.0;
    const int code = apply(pos, is(k, 1.0), D, nodes, connectM,
                           [&](double* p)
                           {
                               for (std::size_t i = 0; i < D; ++i)
                                   p[i] = f * (p[i] - O[i]) + p[i];
                           });
    // The selective forms report 0 whatever they moved.
    return (nodes || connectM) && code > 0 ? 0 : code;
}

} // namespace

int translate(dense2D<double>& pos, const vector_fixed<double, 2>& V) noexcept
{
    return translate_impl(pos, V, nullptr, nullptr);
}
int translate(dense2D<double>& pos, const vector_fixed<double, 3>& V) noexcept
{
    return translate_impl(pos, V, nullptr, nullptr);
}
int translate(dense2D<double>& pos, const vector_fixed<double, 2>& V,
              const dense1D<unsigned>& nodes) noexcept
{
    return translate_impl(pos, V, &nodes, nullptr);
}
int translate(dense2D<double>& pos, const vector_fixed<double, 3>& V,
              const dense1D<unsigned>& nodes) noexcept
{
    return translate_impl(pos, V, &nodes, nullptr);
}
int translate(dense2D<double>& pos, const vector_fixed<double, 2>& V,
              const dense2D<unsigned>& connectM) noexcept
{
    return translate_impl(pos, V, nullptr, &connectM);
}
int translate(dense2D<double>& pos, const vector_fixed<double, 3>& V,
              const dense2D<unsigned>& connectM) noexcept
{
    return translate_impl(pos, V, nullptr, &connectM);
}

int rotate(dense2D<double>& pos, const vector_fixed<double, 2>& O, double angle) noexcept
{
    return rotate_impl(pos, O, angle, nullptr, nullptr);
}
int rotate(dense2D<double>& pos, const vector_fixed<double, 3>& O,
           const vector_fixed<double, 3>& rot) noexcept
{
    return rotate_impl(pos, O, rot, nullptr, nullptr);
}
int rotate(dense2D<double>& pos, const vector_fixed<double, 2>& O, double angle,
           const dense1D<unsigned>& nodes) noexcept
{
    return rotate_impl(pos, O, angle, &nodes, nullptr);
}
int rotate(dense2D<double>& pos, const vector_fixed<double, 3>& O,
           const vector_fixed<double, 3>& rot, const dense1D<unsigned>& nodes) noexcept
{
    return rotate_impl(pos, O, rot, &nodes, nullptr);
}
int rotate(dense2D<double>& pos, const vector_fixed<double, 2>& O, double angle,
           const dense2D<unsigned>& connectM) noexcept
{
    return rotate_impl(pos, O, angle, nullptr, &connectM);
}
int rotate(dense2D<double>& pos, const vector_fixed<double, 3>& O,
           const vector_fixed<double, 3>& rot, const dense2D<unsigned>& connectM) noexcept
{
    return rotate_impl(pos, O, rot, nullptr, &connectM);
}

int zoom(dense2D<double>& pos, const vector_fixed<double, 2>& O, double k) noexcept
{
    return zoom_impl(pos, O, k, nullptr, nullptr);
}
int zoom(dense2D<double>& pos, const vector_fixed<double, 3>& O, double k) noexcept
{
    return zoom_impl(pos, O, k, nullptr, nullptr);
}
int zoom(dense2D<double>& pos, const vector_fixed<double, 2>& O, double k,
         const dense1D<unsigned>& nodes) noexcept
{
    return zoom_impl(pos, O, k, &nodes, nullptr);
}
int zoom(dense2D<double>& pos, const vector_fixed<double, 3>& O, double k,
         const dense1D<unsigned>& nodes) noexcept
{
    return zoom_impl(pos, O, k, &nodes, nullptr);
}
int zoom(dense2D<double>& pos, const vector_fixed<double, 2>& O, double k,
         const dense2D<unsigned>& connectM) noexcept
{
    return zoom_impl(pos, O, k, nullptr, &connectM);
}
int zoom(dense2D<double>& pos, const vector_fixed<double, 3>& O, double k,
         const dense2D<unsigned>& connectM) noexcept
{
    return zoom_impl(pos, O, k, nullptr, &connectM);
}

} // namespace qx7::meshutil
