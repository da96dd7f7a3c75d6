#include <png.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "render/image.h"
#include "render/whole_file.h"

namespace sds_render {

void write_png(std::FILE* stream, const std::string& name, const Image& image, const std::string& layer) {
    const Pixels8 pixels = make_preview(image, layer);
    png_image header{};
    header.version = PNG_IMAGE_VERSION;
    header.width = image.get_width();
    header.height = image.get_height();
    header.format = PNG_FORMAT_RGBA;
    const bool is_written = png_image_write_to_stdio(&header, stream, 0, pixels.data(), 0, nullptr) != 0;
    const std::string reason = header.message;
    png_image_free(&header);
    if (!is_written) throw ImageError(name, reason);
    if (std::fflush(stream) != 0) throw ImageError(name, std::strerror(errno));
}

void write_png(const std::string& path, const Image& image, const std::string& layer) {
    WholeFile file(path);
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(std::fopen(file.get_temporary_path().c_str(), "wb"),
                                                                 &std::fclose);
    if (!stream) throw ImageError(path, std::strerror(errno));
    write_png(stream.get(), path, image, layer);
    file.publish();
}

}  // namespace sds_render
