#pragma once

#include "io/atomic_file.h"
#include "render/image.h"

#include <cstddef>
#include <string>

namespace sds_io {

/// Pictures, whole or not at all; "-" is standard output. Throw OutputError. A `note` that is not empty, ASCII without
/// line breaks, stands in the file's header under the name "qn_sds": an attribute of an .exr, a tEXt chunk of a PNG;
/// the comment of a JPEG, at most max_jpeg_note of it, else none. The pixels are the same with and without.

/// The preview of a layer, the picture itself by default, as 8-bit RGBA.
void write_png(const std::string& path, const sds_render::Image& image, const std::string& layer = "",
               const std::string& note = "");
/// The same without transparency, as a JPEG of quality 92 and full colors.
void write_jpeg(const std::string& path, const sds_render::Image& image, const std::string& layer = "",
                const std::string& note = "");
inline constexpr std::size_t max_jpeg_note = 65533;
/// Every channel.
void write_exr(const std::string& path, const sds_render::Image& image, const std::string& note = "");

}  // namespace sds_io
