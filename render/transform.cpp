#include "render/transform.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace sds_render {

namespace {

Matrix4 blend(const Matrix4& a, const Matrix4& b, double share) {
    Matrix4 out;
    for (unsigned int r = 0; r < 4; ++r)
        for (unsigned int c = 0; c < 3; ++c) out[r][c] = (1.0 - share) * a[r][c] + share * b[r][c];
    return out;
}

bool is_equal(const Matrix4& a, const Matrix4& b) {
    for (unsigned int r = 0; r < 4; ++r)
        if (!std::equal(a[r], a[r] + 3, b[r])) return false;
    return true;
}

// Normals go through the inverse transpose: n' = M^-1 n, as columns.
Vec3 transform_normal(const Matrix4& inverse, const Vec3& n) {
    Vec3 out;
    for (unsigned int r = 0; r < 3; ++r) out[r] = inverse.get_row(r).dot(n);
    return out;
}

// Derivative of the unit vector along `v` when `v` changes by `dv`.
Vec3 unit_derivative(const Vec3& v, const Vec3& dv) {
    const double length = v.length();
    if (!(length > 0.0)) return {0, 0, 0};
    const Vec3 unit = v * (1.0 / length);
    return (dv - unit * unit.dot(dv)) * (1.0 / length);
}

}  // namespace

Vec3 transform_point(const Matrix4& matrix, const Vec3& point) {
    return matrix.transform_vector(point) + matrix.get_row(3);
}

Matrix4 multiply(const Matrix4& first, const Matrix4& second) {
    Matrix4 out;
    for (unsigned int r = 0; r < 4; ++r) {
        const Vec3 row = second.transform_vector(first.get_row(r)) + (r == 3 ? second.get_row(3) : Vec3{0, 0, 0});
        for (unsigned int c = 0; c < 3; ++c) out[r][c] = row[c];
    }
    return out;
}

double get_determinant(const Matrix4& matrix) {
    return matrix.get_row(0).cross(matrix.get_row(1)).dot(matrix.get_row(2));
}

bool invert(const Matrix4& matrix, Matrix4& inverse) {
    const Vec3 x = matrix.get_row(0), y = matrix.get_row(1), z = matrix.get_row(2);
    // Rows scaled to unit length, so that a small object is not taken for a flat one.
    const double lengths[3] = {x.length(), y.length(), z.length()};
    if (!(lengths[0] > 0.0 && lengths[1] > 0.0 && lengths[2] > 0.0)) return false;
    const Vec3 rows[3] = {x * (1.0 / lengths[0]), y * (1.0 / lengths[1]), z * (1.0 / lengths[2])};
    const double determinant = rows[0].cross(rows[1]).dot(rows[2]);
    if (!(std::fabs(determinant) > 1e-12) || !matrix.get_row(3).is_finite()) return false;
    Matrix4 out;
    for (unsigned int k = 0; k < 3; ++k) {
        const Vec3 column = rows[(k + 1) % 3].cross(rows[(k + 2) % 3]) * (1.0 / (determinant * lengths[k]));
        for (unsigned int r = 0; r < 3; ++r) out[r][k] = column[r];
    }
    const Vec3 back = out.transform_vector(matrix.get_row(3));
    for (unsigned int c = 0; c < 3; ++c) out[3][c] = -back[c];
    for (unsigned int r = 0; r < 4; ++r)
        if (!out.get_row(r).is_finite()) return false;
    inverse = out;
    return true;
}

Bbox3 transform_box(const Matrix4& matrix, const Bbox3& box) {
    if (box.is_empty()) return box;
    Bbox3 out = Bbox3::empty();
    for (unsigned int corner = 0; corner < 8; ++corner) {
        Vec3 point;
        for (unsigned int a = 0; a < 3; ++a) point[a] = ((corner >> a & 1u) != 0 ? box.get_max() : box.get_min())[a];
        out.grow(transform_point(matrix, point));
    }
    return out;
}

Transform::Transform(std::vector<double> times, std::vector<Matrix4> matrices)
    : m_times(std::move(times)), m_matrices(std::move(matrices)) {
    const bool is_still = std::all_of(m_matrices.begin(), m_matrices.end(),
                                      [&](const Matrix4& matrix) { return is_equal(matrix, m_matrices.front()); });
    if (!is_still && m_times.size() > 1) return;
    m_times.clear();
    m_matrices.resize(1);
}

bool Transform::is_identity() const {
    return m_matrices.empty() || (!is_moving() && is_equal(m_matrices.front(), Matrix4()));
}

Matrix4 Transform::at(double time) const {
    if (m_matrices.empty()) return {};
    if (!is_moving() || !(time > m_times.front())) return m_matrices.front();
    if (time >= m_times.back()) return m_matrices.back();
    const auto next =
        static_cast<std::size_t>(std::upper_bound(m_times.begin(), m_times.end(), time) - m_times.begin());
    const double share = (time - m_times[next - 1]) / (m_times[next] - m_times[next - 1]);
    return blend(m_matrices[next - 1], m_matrices[next], share);
}

Matrix4 Transform::rate_at(double time) const {
    Matrix4 rate = Matrix4::scale(0, 0, 0);
    if (!is_moving() || time < m_times.front() || time > m_times.back()) return rate;
    const auto after =
        static_cast<std::size_t>(std::upper_bound(m_times.begin(), m_times.end(), time) - m_times.begin());
    const std::size_t next = std::min(after, m_times.size() - 1);
    const double span = m_times[next] - m_times[next - 1];
    for (unsigned int r = 0; r < 4; ++r)
        for (unsigned int c = 0; c < 3; ++c) rate[r][c] = (m_matrices[next][r][c] - m_matrices[next - 1][r][c]) / span;
    return rate;
}

bool place_sample(const Transform& transform, double time, GeometrySample& sample) {
    if (transform.is_identity()) return true;
    const Matrix4 matrix = transform.at(time);
    Matrix4 inverse;
    if (!invert(matrix, inverse)) return true;  // nothing was hit there
    const GeometrySample before = sample;
    const auto vector = [&](const Vec3& v) { return matrix.transform_vector(v); };
    const auto normal = [&](const Vec3& n) { return transform_normal(inverse, n); };
    const bool is_mirrored = get_determinant(matrix) < 0.0;
    const Vec3 up = normal(before.get_geometric_normal());
    sample.set_fallback_normal(is_mirrored ? -up : up);
    sample.init_surface(transform_point(matrix, before.get_geometric_position()), vector(before.get_geometric_dpdu()),
                        vector(before.get_geometric_dpdv()), vector(before.get_d2pduu()), vector(before.get_d2pduv()),
                        vector(before.get_d2pdvv()));
    const Vec3 smooth = normal(before.get_smoothing_normal());
    sample.set_smoothing(transform_point(matrix, before.get_smoothing_position()), normalized(smooth),
                         unit_derivative(smooth, normal(before.get_smoothing_dndu())),
                         unit_derivative(smooth, normal(before.get_smoothing_dndv())));
    const Vec3 carried = transform_point(transform.rate_at(time), before.get_geometric_position());
    if (before.has_position_dt() || transform.is_moving())
        sample.set_geometric_position_dt(vector(before.get_geometric_position_dt()) + carried);
    return !is_mirrored;
}

}  // namespace sds_render
