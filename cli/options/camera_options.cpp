#include "cli/options/camera_options.h"

#include "cli/options/usage_error.h"
#include "io/usda/scene_camera.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <sstream>

namespace sds_cli {

namespace {

using sds_usda::UsdCamera;
using sds_usda::UsdScene;
using Vec3 = sds_render::Vec3;

const UsdCamera& named_camera(const UsdScene& layer, const std::string& path) {
    return asked_by("--camera: ", [&]() -> const UsdCamera& { return sds_usda::find_camera(layer, path); });
}

Vec3 to_vector(const std::vector<double>& numbers) { return {numbers[0], numbers[1], numbers[2]}; }

}  // namespace

sds_render::CameraView parse_view(const CameraOptions& options) {
    using Up = sds_render::UpAxis;
    sds_render::CameraView view;
    view.up = options.up == "x" ? Up::x : options.up == "z" ? Up::z : Up::y;
    view.field_of_view = options.field_of_view;
    const std::string& text = options.view;
    if (text.empty()) return view;
    std::string numbers = text;
    std::replace(numbers.begin(), numbers.end(), ',', ' ');
    std::istringstream stream(numbers);
    std::string rest;
    if (!(stream >> view.azimuth >> view.elevation) || (stream >> rest))
        throw UsageError("--view: '" + text + "' is not azimuth and elevation in degrees, such as 35 22");
    if (!std::isfinite(view.azimuth) || !(std::fabs(view.elevation) <= 90.0))
        throw UsageError("--view: the elevation is between -90 and 90 degrees");
    return view;
}

void check_camera(const CameraOptions& options, bool is_of_layer, bool is_turntable) {
    if (!options.path.empty() && !is_of_layer) throw UsageError("--camera belongs to USD scenes; see --position");
    if (is_turntable && (!options.path.empty() || !options.position.empty()))
        throw UsageError("--turntable goes around the scene, with a camera of its own");
    for (const std::vector<double>* vector : {&options.position, &options.target, &options.up_vector})
        if (!std::all_of(vector->begin(), vector->end(), [](double v) { return std::isfinite(v); }))
            throw UsageError("--position, --target and --up-vector are finite numbers");
}

sds_render::Shutter choose_shutter(const CameraOptions& options, const UsdScene& layer, double frame) {
    return options.path.empty() ? sds_render::Shutter{}
                                : sds_usda::camera_shutter(named_camera(layer, options.path), frame);
}

ScenePose make_pose(const CameraOptions& options, const sds_render::CameraView& view, const LoadedScene& scene,
                    unsigned int width, unsigned int height) {
    ScenePose pose{view, std::nullopt};
    const bool is_z_up = scene.layer && scene.layer->up_axis == sds_usda::UpAxis::z;
    if (options.up.empty() && is_z_up) pose.view.up = sds_render::UpAxis::z;
    if (!options.path.empty()) {
        const UsdCamera& camera = named_camera(*scene.layer, options.path);
        sds_usda::CameraWay way =
            asked_by("--camera: ", [&] { return make_camera_way(*scene.layer, camera, scene.frame); });
        pose.camera.emplace(std::move(way.times), std::move(way.poses), width, height);
    }
    if (options.position.empty()) return pose;
    Vec3 up{0, 0, 0};
    up[static_cast<unsigned int>(pose.view.up)] = 1.0;
    if (!options.up_vector.empty()) up = to_vector(options.up_vector);
    pose.camera.emplace(asked_by("--position: ",
                                 [&] {
                                     return sds_render::look_at(to_vector(options.position), to_vector(options.target),
                                                                up, options.field_of_view, width, height);
                                 }),
                        width, height);
    return pose;
}

void add_camera_options(CLI::App& command, CameraOptions& options) {
    CLI::Option* view =
        command.add_option("--view", options.view, "Azimuth and elevation of the camera in degrees, 35 22 by default")
            ->type_name("A E");
    command
        .add_option("--up", options.up,
                    "The axis that points up; azimuth 0 is the side of +z, of -y when z points up. y, or what a scene "
                    "says")
        ->transform(CLI::IsMember({"x", "y", "z"}, CLI::ignore_case))
        ->type_name("AXIS");
    CLI::Option* camera =
        command.add_option("--camera", options.path, "A camera of a scene, by path: its place, lens and shutter")
            ->type_name("PATH")
            ->excludes(view);
    CLI::Option* position = command.add_option("--position", options.position, "Where the camera stands")
                                ->expected(3)
                                ->type_name("X Y Z")
                                ->excludes(view)
                                ->excludes(camera);
    options.target = {0, 0, 0};
    command.add_option("--target", options.target, "What the camera looks at; the origin by default")
        ->expected(3)
        ->type_name("X Y Z")
        ->needs(position);
    command.add_option("--up-vector", options.up_vector, "What points upwards in the picture; --up by default")
        ->expected(3)
        ->type_name("X Y Z")
        ->needs(position);
    command.add_option("--field-of-view", options.field_of_view, "Degrees that the smaller side of the picture covers")
        ->check(CLI::Range(0.1, 179.0))
        ->capture_default_str()
        ->excludes(camera);
}

}  // namespace sds_cli
