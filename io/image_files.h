#pragma once

#include "io/atomic_file.h"
#include "render/image.h"

#include <string>

namespace sds_io {

/// Pictures, whole or not at all; "-" is standard output. Throw OutputError.

/// The preview of a layer, the picture itself by default, as 8-bit RGBA.
void write_png(const std::string& path, const sds_render::Image& image, const std::string& layer = "");
/// The same without transparency, as a JPEG of quality 92 and full colors.
void write_jpeg(const std::string& path, const sds_render::Image& image, const std::string& layer = "");
/// Every channel.
void write_exr(const std::string& path, const sds_render::Image& image);

}  // namespace sds_io
