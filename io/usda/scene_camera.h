#pragma once

#include "io/usda/mesh_source.h"
#include "io/usda/scene.h"
#include "render/camera.h"
#include "render/scene.h"

#include <string>
#include <vector>

namespace sds_usda {

/// The camera of that path. Throws std::invalid_argument, with the known paths, when there is none.
const UsdCamera& find_camera(const UsdScene& scene, const std::string& path);

/// When a camera opens and closes at a frame, in time codes from there; a moment where it does not say.
sds_render::Shutter camera_shutter(const UsdCamera& camera, double frame);

/// The poses of a camera while a frame's span goes by, in its time; one without times where it stands still.
struct CameraWay {
    std::vector<double> times;
    std::vector<sds_render::CameraPose> poses;
};

/// Lengths of a camera's optics are tenths of scene units. The picture is as wide as the aperture; its height follows
/// from the pixels. Throws std::invalid_argument for a camera without aperture, focal length or direction.
CameraWay make_camera_way(const UsdScene& scene, const UsdCamera& camera, const UsdFrame& frame);

}  // namespace sds_usda
