#include <algorithm>
#include <cmath>
#include <numbers>

#include "io/usda/scene_readers.h"

namespace sds_usda {

namespace {

constexpr Matrix4 identity = identity_matrix;

std::size_t axis_of(char letter) { return static_cast<std::size_t>(letter - 'X'); }

Matrix4 axis_rotation(std::size_t axis, double degrees) {
    const double angle = degrees * std::numbers::pi / 180.0;
    const std::size_t i = (axis + 1) % 3, j = (axis + 2) % 3;
    Matrix4 out = identity;
    out[5 * i] = out[5 * j] = std::cos(angle);
    out[4 * i + j] = std::sin(angle);
    out[4 * j + i] = -std::sin(angle);
    return out;
}

/// Of the quaternion w x y z, of any length but 0.
Matrix4 quaternion_rotation(std::span<const double> q) {
    const double norm = q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3];
    if (!(norm > 0.0)) return identity;
    const double s = 2.0 / norm, w = q[0], x = q[1], y = q[2], z = q[3];
    return {1 - s * (y * y + z * z),
            s * (x * y + z * w),
            s * (x * z - y * w),
            0,
            s * (x * y - z * w),
            1 - s * (x * x + z * z),
            s * (y * z + x * w),
            0,
            s * (x * z + y * w),
            s * (y * z - x * w),
            1 - s * (x * x + y * y),
            0,
            0,
            0,
            0,
            1};
}

Matrix4 op_matrix_at(const UsdXformOp& op, const Timed<double>& value, double time) {
    const auto [s, t] = find_sample(value.times, time);
    const std::span<const double> before = value.sample(s);
    if (!(t > 0.0)) return op_matrix(op, before);
    const std::span<const double> after = value.sample(s + 1);
    std::array<double, 16> a{}, b{};
    std::copy(before.begin(), before.end(), a.begin());
    std::copy(after.begin(), after.end(), b.begin());
    if (op.kind == UsdXformOp::Kind::orient) {
        const std::array<double, 4> turned = slerp({a[0], a[1], a[2], a[3]}, {b[0], b[1], b[2], b[3]}, t);
        std::copy(turned.begin(), turned.end(), a.begin());
    } else {
        for (std::size_t i = 0; i < a.size(); ++i) a[i] = (1 - t) * a[i] + t * b[i];
    }
    return op_matrix(op, std::span(a).first(before.size()));
}

}  // namespace

std::array<double, 4> slerp(std::array<double, 4> first, std::array<double, 4> second, double share) {
    const auto normalize = [](std::array<double, 4>& q) {
        const double length = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
        for (std::size_t i = 0; i < 4 && length > 0.0; ++i) q[i] /= length;
    };
    normalize(first);
    normalize(second);
    const double dot = first[0] * second[0] + first[1] * second[1] + first[2] * second[2] + first[3] * second[3];
    const double angle = std::acos(std::min(std::abs(dot), 1.0)), sine = std::sin(angle);
    const double to_a = sine > 1e-9 ? std::sin((1 - share) * angle) / sine : 1 - share;
    const double to_b = (sine > 1e-9 ? std::sin(share * angle) / sine : share) * (dot < 0 ? -1.0 : 1.0);
    std::array<double, 4> out{};
    for (std::size_t i = 0; i < 4; ++i) out[i] = to_a * first[i] + to_b * second[i];
    return out;
}

Matrix4 product(const Matrix4& first, const Matrix4& second) {
    Matrix4 out{};
    for (std::size_t i = 0; i < 4; ++i)
        for (std::size_t j = 0; j < 4; ++j)
            for (std::size_t k = 0; k < 4; ++k) out[4 * i + j] += first[4 * i + k] * second[4 * k + j];
    return out;
}

Matrix4 op_matrix(const UsdXformOp& op, std::span<const double> value) {
    Matrix4 out = identity;
    const auto component = [&](std::size_t axis) { return value[value.size() == 1 ? 0 : axis]; };
    switch (op.kind) {
        case UsdXformOp::Kind::translate:
            for (const char letter : op.axes) out[12 + axis_of(letter)] = component(axis_of(letter));
            return out;
        case UsdXformOp::Kind::scale:
            for (const char letter : op.axes) out[5 * axis_of(letter)] = component(axis_of(letter));
            return out;
        case UsdXformOp::Kind::rotate:
            for (const char letter : op.axes)
                out = product(out, axis_rotation(axis_of(letter), component(axis_of(letter))));
            return out;
        case UsdXformOp::Kind::orient:
            return quaternion_rotation(value);
        case UsdXformOp::Kind::matrix:
            std::copy(value.begin(), value.end(), out.begin());
            return out;
    }
    return out;
}

/// Gauss-Jordan with the largest pivot of each column.
std::optional<Matrix4> inverse(const Matrix4& matrix) {
    Matrix4 left = matrix, right = identity;
    for (std::size_t column = 0; column < 4; ++column) {
        std::size_t pivot = column;
        for (std::size_t row = column + 1; row < 4; ++row)
            if (std::abs(left[4 * row + column]) > std::abs(left[4 * pivot + column])) pivot = row;
        const double value = left[4 * pivot + column];
        if (!(std::abs(value) > 0.0)) return std::nullopt;
        for (std::size_t k = 0; k < 4; ++k) {
            std::swap(left[4 * column + k], left[4 * pivot + k]);
            std::swap(right[4 * column + k], right[4 * pivot + k]);
        }
        for (std::size_t k = 0; k < 4; ++k) {
            left[4 * column + k] /= value;
            right[4 * column + k] /= value;
        }
        for (std::size_t row = 0; row < 4; ++row) {
            const double factor = left[4 * row + column];
            if (row == column || factor == 0.0) continue;
            for (std::size_t k = 0; k < 4; ++k) {
                left[4 * row + k] -= factor * left[4 * column + k];
                right[4 * row + k] -= factor * right[4 * column + k];
            }
        }
    }
    return right;
}

SamplePlace find_sample(const std::vector<double>& times, double time) {
    const auto after = static_cast<std::size_t>(std::upper_bound(times.begin(), times.end(), time) - times.begin());
    if (after == 0) return {};
    if (after == times.size()) return {after - 1, 0.0};
    return {after - 1, (time - times[after - 1]) / (times[after] - times[after - 1])};
}

std::string prim_path(const UsdScene& scene, std::uint32_t node) {
    std::string path;
    for (; node != 0; node = scene.nodes[node].parent) path = "/" + scene.nodes[node].name + path;
    return path.empty() ? "/" : path;
}

std::vector<double> transform_times(const UsdScene& scene, std::uint32_t node) {
    std::vector<double> times;
    for (; node != 0; node = scene.nodes[node].resets_stack ? 0 : scene.nodes[node].parent)
        for (const Timed<double>& value : scene.nodes[node].op_values)
            times.insert(times.end(), value.times.begin(), value.times.end());
    std::sort(times.begin(), times.end());
    times.erase(std::unique(times.begin(), times.end()), times.end());
    return times;
}

void append_ops(const UsdNode& node, double time, Matrix4& matrix) {
    for (auto op = node.ops.rbegin(); op != node.ops.rend(); ++op) {
        const Matrix4 own = op_matrix_at(*op, node.op_values[op->value], time);
        matrix = product(matrix, op->is_inverted ? inverse(own).value_or(identity) : own);
    }
}

Matrix4 world_matrix(const UsdScene& scene, std::uint32_t node, double time) {
    Matrix4 world = identity;
    for (; node != 0; node = scene.nodes[node].resets_stack ? 0 : scene.nodes[node].parent)
        append_ops(scene.nodes[node], time, world);
    return world;
}

Timed<double> world_transform(const UsdScene& scene, std::uint32_t node) {
    Timed<double> out;
    out.times = transform_times(scene, node);
    const auto append = [&](double time) {
        const Matrix4 matrix = world_matrix(scene, node, time);
        out.values.insert(out.values.end(), matrix.begin(), matrix.end());
        out.ends.push_back(out.values.size());
    };
    for (const double time : out.times) append(time);
    if (out.times.empty()) append(0.0);
    return out;
}

bool is_visible(const UsdScene& scene, std::uint32_t node, double time) {
    for (; node != 0; node = scene.nodes[node].parent) {
        const Timed<std::uint8_t>& invisible = scene.nodes[node].invisible;
        if (!invisible.is_empty() && invisible.sample(find_sample(invisible.times, time).sample).front() != 0)
            return false;
    }
    return true;
}

}  // namespace sds_usda
