#include "io/usda/scene_camera.h"

#include "io/usda/scene_source.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace sds_usda {

namespace {

using sds_render::CameraPose;
using sds_render::Vec3;

double number_at(const Timed<double>& timed, double time) {
    const auto [sample, share] = find_sample(timed.times, time);
    const double from = timed.sample(sample)[0];
    return share > 0.0 ? (1.0 - share) * from + share * timed.sample(sample + 1)[0] : from;
}

CameraPose pose_at(const UsdScene& scene, const UsdCamera& camera, double time) {
    constexpr double tenth = 0.1;
    const Matrix4 matrix = world_matrix(scene, camera.node, time);
    const auto row = [&](std::size_t r) { return Vec3{matrix[4 * r], matrix[4 * r + 1], matrix[4 * r + 2]}; };
    CameraPose pose;
    pose.position = row(3);
    pose.right = sds_render::normalized(row(0));
    pose.up = sds_render::normalized(row(1));
    pose.forward = -sds_render::normalized(row(2));
    pose.is_parallel = camera.is_orthographic;
    const double focal = number_at(camera.focal_length, time);
    const double unit = camera.is_orthographic ? tenth : 1.0 / focal;
    pose.width = number_at(camera.horizontal_aperture, time) * unit;
    pose.shift_x = number_at(camera.horizontal_aperture_offset, time) * unit;
    pose.shift_y = number_at(camera.vertical_aperture_offset, time) * unit;
    const double f_stop = number_at(camera.f_stop, time), focus = number_at(camera.focus_distance, time);
    if (f_stop > 0.0 && focus > 0.0 && !pose.is_parallel) {
        pose.lens_radius = 0.5 * focal * tenth / f_stop;
        pose.focus = focus;
    }
    if (!(pose.width > 0.0) || !std::isfinite(pose.width) || !(pose.forward.length() > 0.5))
        throw std::invalid_argument(prim_path(scene, camera.node) + " has no aperture, focal length or direction");
    return pose;
}

/// Times of the optics' samples within the span, and its ends where there is one.
std::vector<double> optics_times(const UsdCamera& camera, const UsdFrame& frame) {
    std::vector<double> times;
    for (const Timed<double>* optics :
         {&camera.focal_length, &camera.horizontal_aperture, &camera.horizontal_aperture_offset,
          &camera.vertical_aperture_offset, &camera.f_stop, &camera.focus_distance})
        if (optics->get_sample_count() > 1)
            for (const double sample : optics->times)
                times.push_back(std::clamp(sample - frame.time, frame.open, frame.close));
    if (!times.empty()) times.insert(times.end(), {frame.open, frame.close});
    return times;
}

}  // namespace

const UsdCamera& find_camera(const UsdScene& scene, const std::string& path) {
    std::string known;
    for (const UsdCamera& camera : scene.cameras) {
        const std::string here = prim_path(scene, camera.node);
        if (here == path) return camera;
        known += (known.empty() ? "" : ", ") + here;
    }
    throw std::invalid_argument("no camera '" + path + "'; there are " + (known.empty() ? "none" : known));
}

sds_render::Shutter camera_shutter(const UsdCamera& camera, double frame) {
    const sds_render::Shutter shutter{number_at(camera.shutter_open, frame), number_at(camera.shutter_close, frame)};
    return shutter.close > shutter.open ? shutter : sds_render::Shutter{};
}

CameraWay make_camera_way(const UsdScene& scene, const UsdCamera& camera, const UsdFrame& frame) {
    CameraWay way;
    if (!frame.is_moment()) {
        way.times = make_transform(scene, camera.node, frame).get_times();
        const std::vector<double> optics = optics_times(camera, frame);
        way.times.insert(way.times.end(), optics.begin(), optics.end());
        std::sort(way.times.begin(), way.times.end());
        way.times.erase(std::unique(way.times.begin(), way.times.end()), way.times.end());
    }
    for (const double time : way.times) way.poses.push_back(pose_at(scene, camera, frame.time + time));
    if (way.times.empty()) way.poses.push_back(pose_at(scene, camera, frame.time));
    return way;
}

}  // namespace sds_usda
