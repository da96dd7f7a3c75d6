// A pin-hole camera that frames a box.
#pragma once

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

class Camera {
public:
    // Stands as close as it can so that the points are inside a picture of width x height square pixels with a little
    // room around, in its middle. There are at least two different points.
    Camera(const std::vector<Vec3>& points, const CameraView& view, unsigned int width, unsigned int height);
    // The same for the corners of a box. A box that is empty or one point is framed as the unit cube around it.
    Camera(const Bbox3& box, const CameraView& view, unsigned int width, unsigned int height);

    // The ray through a point of the picture in pixels, x to the right and y down from the upper left corner: pixel
    // (i, j) has its center at (i + 0.5, j + 0.5). Unit direction.
    GeometryRay camera_ray(double x, double y) const;

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
    unsigned int m_width;
    unsigned int m_height;
    double m_pixels_per_slope;  // pixels per unit of (sideways / depth)
    Vec3 m_position{0, 0, 0};
    Vec3 m_right{1, 0, 0};
    Vec3 m_up{0, 1, 0};
    Vec3 m_forward{0, 0, -1};
};

}  // namespace sds_render
