#include <png.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "render/image.h"
#include "render/whole_file.h"

namespace sds_render {

void write_png(const std::string& path, const Image& image, const std::string& layer) {
    const Pixels8 pixels = make_preview(image, layer);
    WholeFile file(path);
    std::FILE* stream = std::fopen(file.get_temporary_path().c_str(), "wb");
    if (stream == nullptr) throw ImageError(path, std::strerror(errno));

    png_image header{};
    header.version = PNG_IMAGE_VERSION;
    header.width = image.get_width();
    header.height = image.get_height();
    header.format = PNG_FORMAT_RGBA;
    const bool is_written = png_image_write_to_stdio(&header, stream, 0, pixels.data(), 0, nullptr) != 0;
    const std::string reason = header.message;
    png_image_free(&header);
    const bool is_closed = std::fclose(stream) == 0;
    if (!is_written) throw ImageError(path, reason);
    if (!is_closed) throw ImageError(path, std::strerror(errno));
    file.publish();
}

}  // namespace sds_render
