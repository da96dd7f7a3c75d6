#pragma once

#include "render/camera.h"
#include "render/shading.h"

#include <string>

namespace sds_io {

/// Light from all around: an EXR whose rows run around the horizon and whose columns run from straight up to straight
/// down; its middle is azimuth 180 of a camera's view, behind a scene that is seen from azimuth 0. Linear light, R G B
/// or a single channel. Throws InputError.
sds_render::Environment read_environment(const std::string& path, sds_render::UpAxis up);

}  // namespace sds_io
