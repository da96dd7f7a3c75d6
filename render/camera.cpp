#include "render/camera.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

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

GeometryRay Camera::camera_ray(double x, double y) const {
    GeometryRay ray;
    ray.origin = m_position;
    const double right = (x - 0.5 * m_width) / m_pixels_per_slope;
    const double up = (0.5 * m_height - y) / m_pixels_per_slope;
    ray.direction = normalised(m_forward + m_right * right + m_up * up);
    return ray;
}

// x = r / d with r the way to the right and d the depth: dx = (dr - x dd) / d.
void Camera::get_pixel_step(const Vec3& point, const Vec3& step, double& x, double& y) const {
    const Vec3 arm = point - m_position;
    const double depth = arm.dot(m_forward);
    const double sink = step.dot(m_forward);
    x = m_pixels_per_slope * (step.dot(m_right) - arm.dot(m_right) / depth * sink) / depth;
    y = -m_pixels_per_slope * (step.dot(m_up) - arm.dot(m_up) / depth * sink) / depth;
}

}  // namespace sds_render
