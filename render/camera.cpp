#include "render/camera.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <stdexcept>

namespace sds_render {

namespace {

constexpr double room = 1.06;

std::vector<Vec3> get_corners(Bbox3 box) {
    if (box.is_empty() || !(box.get_diagonal() > 0.0)) {
        const Vec3 center = box.is_empty() ? Vec3{0, 0, 0} : box.get_center();
        const double half = std::max(1.0, 1e-9 * center.length());
        box = {center - Vec3{half, half, half}, center + Vec3{half, half, half}};
    }
    const Vec3 &low = box.get_min(), &high = box.get_max();
    std::vector<Vec3> corners;
    for (unsigned int c = 0; c < 8; ++c)
        corners.push_back(
            {((c & 1) != 0 ? high : low)[0], ((c & 2) != 0 ? high : low)[1], ((c & 4) != 0 ? high : low)[2]});
    return corners;
}

// Where a camera stands across its axis and how far along it, so that points (x, z), z counted towards the camera, are
// seen at slopes of at most `slope`: x - at <= slope (distance - z) and at - x <= slope (distance - z) for all of them.
struct Stand {
    double at;
    double distance;

    Stand(const std::vector<Vec3>& arms, const Vec3& across, const Vec3& toward, double slope) {
        double right = -std::numeric_limits<double>::infinity(), left = right;
        for (const Vec3& arm : arms) {
            right = std::max(right, arm.dot(across) + slope * arm.dot(toward));
            left = std::max(left, -arm.dot(across) + slope * arm.dot(toward));
        }
        at = 0.5 * (right - left);
        distance = 0.5 * (right + left) / slope;
    }
};

// Where azimuths 0 and 90 and elevation 90 are: the axes of y up, turned.
struct SceneAxes {
    Vec3 front, side, up;
};

SceneAxes get_axes(UpAxis up) {
    switch (up) {
        case UpAxis::x:
            return {{0, 0, 1}, {0, -1, 0}, {1, 0, 0}};
        case UpAxis::z:
            return {{0, -1, 0}, {1, 0, 0}, {0, 0, 1}};
        case UpAxis::y:
            break;
    }
    return {{0, 0, 1}, {1, 0, 0}, {0, 1, 0}};
}

}  // namespace

Camera::Camera(const Bbox3& box, const CameraView& view, unsigned int width, unsigned int height)
    : Camera(get_corners(box), view, width, height) {}

Camera::Camera(const std::vector<Vec3>& points, const CameraView& view, unsigned int width, unsigned int height)
    : m_width(width), m_height(height) {
    constexpr double degree = std::numbers::pi / 180.0;
    const double azimuth = view.azimuth * degree, elevation = view.elevation * degree;
    const SceneAxes axes = get_axes(view.up);
    const double level = std::cos(elevation);
    const Vec3 toward = axes.side * (level * std::sin(azimuth)) + axes.up * std::sin(elevation) +
                        axes.front * (level * std::cos(azimuth));
    // From the azimuth alone, so that it stands even straight above.
    m_right = axes.side * std::cos(azimuth) - axes.front * std::sin(azimuth);
    m_up = toward.cross(m_right);
    m_forward = -toward;

    const double smaller = std::min(width, height);
    const double tangent = std::tan(0.5 * view.field_of_view * degree);
    m_pixels_per_slope = 0.5 * smaller / tangent;
    const double slope_x = 0.5 * width / m_pixels_per_slope, slope_y = 0.5 * height / m_pixels_per_slope;

    Bbox3 box = Bbox3::empty();
    for (const Vec3& point : points) box.grow(point);
    const Vec3 center = box.get_center();
    std::vector<Vec3> arms;
    arms.reserve(points.size());
    for (const Vec3& point : points) arms.push_back(point - center);
    const Stand x(arms, m_right, toward, slope_x / room), y(arms, m_up, toward, slope_y / room);
    const double distance = std::max(x.distance, y.distance) * view.distance_factor;
    m_position = center + m_right * x.at + m_up * y.at + toward * distance;
}

CameraPose look_at(const Vec3& position, const Vec3& target, const Vec3& up, double field_of_view, unsigned int width,
                   unsigned int height) {
    CameraPose pose;
    pose.position = position;
    pose.forward = normalized(target - position);
    pose.right = normalized(pose.forward.cross(up));
    pose.up = pose.right.cross(pose.forward);
    if (!(pose.right.length() > 0.5)) throw std::invalid_argument("the camera looks along its up axis, or nowhere");
    const double smaller = std::min(width, height);
    pose.width = 2.0 * std::tan(0.5 * field_of_view * std::numbers::pi / 180.0) * width / smaller;
    return pose;
}

Camera::Camera(const CameraPose& pose, unsigned int width, unsigned int height)
    : m_width(width),
      m_height(height),
      m_pixels_per_slope(width / pose.width),
      m_shift_x(pose.shift_x),
      m_shift_y(pose.shift_y),
      m_is_parallel(pose.is_parallel),
      m_lens_radius(pose.lens_radius),
      m_focus(pose.focus),
      m_position(pose.position),
      m_right(pose.right),
      m_up(pose.up),
      m_forward(pose.forward) {}

struct Camera::Way {
    std::vector<double> times;
    std::vector<CameraPose> poses;
};

Camera::Camera(std::vector<double> times, std::vector<CameraPose> poses, unsigned int width, unsigned int height)
    : Camera(poses.front(), width, height) {
    if (times.size() > 1) m_way = std::make_shared<const Way>(Way{std::move(times), std::move(poses)});
}

Camera Camera::at(double time) const {
    if (!is_moving()) return *this;
    const std::vector<double>& times = m_way->times;
    const auto next = static_cast<std::size_t>(std::upper_bound(times.begin(), times.end(), time) - times.begin());
    if (next == 0 || next == times.size()) return {m_way->poses[next == 0 ? 0 : next - 1], m_width, m_height};
    const CameraPose &from = m_way->poses[next - 1], &to = m_way->poses[next];
    const double share = (time - times[next - 1]) / (times[next] - times[next - 1]);
    const auto blend = [share](const auto& a, const auto& b) { return a * (1.0 - share) + b * share; };
    CameraPose pose;
    pose.position = blend(from.position, to.position);
    pose.right = normalized(blend(from.right, to.right));
    pose.up = normalized(blend(from.up, to.up));
    pose.forward = normalized(blend(from.forward, to.forward));
    pose.width = blend(from.width, to.width);
    pose.shift_x = blend(from.shift_x, to.shift_x);
    pose.shift_y = blend(from.shift_y, to.shift_y);
    pose.is_parallel = from.is_parallel;
    pose.lens_radius = blend(from.lens_radius, to.lens_radius);
    pose.focus = blend(from.focus, to.focus);
    return {pose, m_width, m_height};
}

GeometryRay Camera::camera_ray(double x, double y) const {
    GeometryRay ray;
    ray.origin = m_position;
    const double right = (x - 0.5 * m_width) / m_pixels_per_slope + m_shift_x;
    const double up = (0.5 * m_height - y) / m_pixels_per_slope + m_shift_y;
    if (m_is_parallel) {
        ray.origin = m_position + m_right * right + m_up * up;
        ray.direction = m_forward;
        return ray;
    }
    ray.direction = normalized(m_forward + m_right * right + m_up * up);
    return ray;
}

GeometryRay Camera::camera_ray(double x, double y, double lens_x, double lens_y) const {
    GeometryRay ray = camera_ray(x, y);
    if (!has_lens()) return ray;
    const Vec3 sharp = ray.origin + ray.direction * (m_focus / ray.direction.dot(m_forward));
    const double radius = m_lens_radius * std::sqrt(lens_x), angle = 2.0 * std::numbers::pi * lens_y;
    ray.origin += m_right * (radius * std::cos(angle)) + m_up * (radius * std::sin(angle));
    ray.direction = normalized(sharp - ray.origin);
    return ray;
}

// x = r / d with r the way to the right and d the depth: dx = (dr - x dd) / d.
void Camera::get_pixel_step(const Vec3& point, const Vec3& step, double& x, double& y) const {
    if (m_is_parallel) {
        x = m_pixels_per_slope * step.dot(m_right);
        y = -m_pixels_per_slope * step.dot(m_up);
        return;
    }
    const Vec3 arm = point - m_position;
    const double depth = arm.dot(m_forward);
    const double sink = step.dot(m_forward);
    x = m_pixels_per_slope * (step.dot(m_right) - arm.dot(m_right) / depth * sink) / depth;
    y = -m_pixels_per_slope * (step.dot(m_up) - arm.dot(m_up) / depth * sink) / depth;
}

}  // namespace sds_render
