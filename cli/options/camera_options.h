#pragma once

#include "cli/options/load_scene.h"
#include "render/camera.h"

#include <CLI/App.hpp>
#include <optional>
#include <string>
#include <vector>

namespace sds_cli {

/// Where a picture is taken from: beside the scene, from a place, or by a camera of a layer.
struct CameraOptions {
    std::string view;  ///< azimuth and elevation
    std::string up;    ///< empty: the layer's, else y
    std::vector<double> position, target, up_vector;
    double field_of_view = 35.0;
    std::string path;  ///< of a layer's camera
};

/// Adds --view, --up, --camera, --position, --target, --up-vector and --field-of-view.
void add_camera_options(CLI::App& command, CameraOptions& options);

/// The view that frames the scene. Throws UsageError.
sds_render::CameraView parse_view(const CameraOptions& options);

/// Throws UsageError for options that do not go together, asked before anything is read.
void check_camera(const CameraOptions& options, bool is_of_layer, bool is_turntable);

/// When the layer's camera opens and closes at a frame, in time codes from there; a moment without one. Throws
/// UsageError when it has no such camera.
sds_render::Shutter choose_shutter(const CameraOptions& options, const sds_usda::UsdScene& layer, double frame);

/// The camera where one is told, and the view to frame the scene with otherwise.
struct ScenePose {
    sds_render::CameraView view;
    std::optional<sds_render::Camera> camera;
};
ScenePose make_pose(const CameraOptions& options, const sds_render::CameraView& view, const LoadedScene& scene,
                    unsigned int width, unsigned int height);

}  // namespace sds_cli
