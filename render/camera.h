// A camera: one that frames a box, or one that stands where it is told.
#pragma once

#include <memory>
#include <vector>

#include "qn_geometry/geometry_raytrace_ctx.h"
#include "render/render_types.h"

namespace sds_render {

// The axis that points up in the scene.
enum class UpAxis { x, y, z };

// Where the camera stands as seen from the framed box. Degrees.
struct CameraView {
    double azimuth = 35.0;    // y up: 0 on +z, growing towards +x; z up: 0 on -y, towards +x; x up: 0 on +z, towards -y
    double elevation = 22.0;  // growing upwards
    UpAxis up = UpAxis::y;
    double field_of_view = 35.0;   // of the smaller side of the picture, in (0, 180)
    double distance_factor = 1.0;  // of the distance at which the box just fits
};

// A camera that stands somewhere. Axes are of unit length and at right angles.
struct CameraPose {
    Vec3 position{0, 0, 0};
    Vec3 right{1, 0, 0}, up{0, 1, 0}, forward{0, 0, -1};
    // Width of the picture, and what the picture's middle is to the right of and above the axis: at depth 1, or
    // anywhere for a parallel camera.
    double width = 1.0, shift_x = 0.0, shift_y = 0.0;
    bool is_parallel = false;
    // Of the lens, 0 for a pin-hole, and the depth that is sharp.
    double lens_radius = 0.0, focus = 1.0;
};

// At `position`, looking at `target`, with `up` upwards; `field_of_view` of the smaller side, in degrees. Throws
// std::invalid_argument when nothing is left to look at.
CameraPose look_at(const Vec3& position, const Vec3& target, const Vec3& up, double field_of_view, unsigned int width,
                   unsigned int height);

class Camera {
public:
    Camera(const CameraPose& pose, unsigned int width, unsigned int height);
    // One on its way: poses at strictly increasing times, as many, at least one. Between them numbers are blended
    // linearly and axes are made unit again; outside of them the nearest holds. Members but at() answer for the first.
    Camera(std::vector<double> times, std::vector<CameraPose> poses, unsigned int width, unsigned int height);
    // Stands as close as it can so that the points are inside a picture of width x height square pixels with a little
    // room around, in its middle. There are at least two different points.
    Camera(const std::vector<Vec3>& points, const CameraView& view, unsigned int width, unsigned int height);
    // The same for the corners of a box. A box that is empty or one point is framed as the unit cube around it.
    Camera(const Bbox3& box, const CameraView& view, unsigned int width, unsigned int height);

    // The ray through a point of the picture in pixels, x to the right and y down from the upper left corner: pixel
    // (i, j) has its center at (i + 0.5, j + 0.5). Unit direction.
    GeometryRay camera_ray(double x, double y) const;
    // The same through a point of the lens, given in [0, 1) x [0, 1).
    GeometryRay camera_ray(double x, double y, double lens_x, double lens_y) const;
    bool has_lens() const { return m_lens_radius > 0.0; }
    bool is_moving() const { return m_way != nullptr; }
    // As it stands at a time.
    Camera at(double time) const;

    // Distance of a point from the camera along the viewing axis.
    double get_depth(const Vec3& point) const { return (point - m_position).dot(m_forward); }

    // Pixels, to the right and down, that the image of a point moves by when the point moves by `step`, to first order.
    // The point lies in front of the camera.
    void get_pixel_step(const Vec3& point, const Vec3& step, double& x, double& y) const;

    unsigned int get_width() const { return m_width; }
    unsigned int get_height() const { return m_height; }
    const Vec3& get_position() const { return m_position; }
    const Vec3& get_right() const { return m_right; }
    const Vec3& get_up() const { return m_up; }
    const Vec3& get_forward() const { return m_forward; }

private:
    struct Way;

    unsigned int m_width;
    unsigned int m_height;
    std::shared_ptr<const Way> m_way;  // null when still
    double m_pixels_per_slope;         // pixels per unit of (sideways / depth), or of sideways for a parallel camera
    double m_shift_x = 0.0, m_shift_y = 0.0;
    bool m_is_parallel = false;
    double m_lens_radius = 0.0, m_focus = 1.0;
    Vec3 m_position{0, 0, 0};
    Vec3 m_right{1, 0, 0};
    Vec3 m_up{0, 1, 0};
    Vec3 m_forward{0, 0, -1};
};

}  // namespace sds_render
