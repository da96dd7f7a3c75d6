#include "render/framing.h"

#include <algorithm>

namespace sds_render {

namespace {

// Rays along the longer side of the picture. What falls between two of them has the room that a camera leaves.
constexpr unsigned int look_count = 160;

}  // namespace

Camera frame_scene(const Scene& scene, const CameraView& view, unsigned int width, unsigned int height) {
    CameraView full = view;
    full.distance_factor = 1.0;
    const Camera look(scene.get_bbox(), full, width, height);
    RenderThread thread(scene.get_shader_ctx());
    const Shutter& shutter = scene.get_shutter();
    const double step = static_cast<double>(std::max(width, height)) / look_count;
    std::vector<Vec3> points;
    Bbox3 box = Bbox3::empty();
    for (const double share : {0.0, 0.5, 1.0}) {
        if (share > 0.0 && !(shutter.close > shutter.open)) break;
        for (double y = 0.5 * step; y < height; y += step)
            for (double x = 0.5 * step; x < width; x += step) {
                GeometryRay ray = look.camera_ray(x, y);
                ray.time = shutter.open + share * (shutter.close - shutter.open);
                if (!scene.intersect(ray, thread)) continue;
                points.push_back(ray.origin + ray.direction * ray.hit.t);
                box.grow(points.back());
            }
    }
    // A few scattered hits tell nothing about the outline of something thin.
    const bool is_telling = points.size() >= 64 && box.get_diagonal() > 0.1 * scene.get_radius();
    return is_telling ? Camera(points, view, width, height) : Camera(scene.get_bbox(), view, width, height);
}

}  // namespace sds_render
