#include "io/image_files.h"

#include <png.h>

namespace sds_io {

void write_png(const std::string& path, const sds_render::Image& image, const std::string& layer) {
    const sds_render::Pixels8 pixels = make_preview(image, layer);
    AtomicFile file(path);
    png_image header{};
    header.version = PNG_IMAGE_VERSION;
    header.width = image.get_width();
    header.height = image.get_height();
    header.format = PNG_FORMAT_RGBA;
    std::string bytes(PNG_IMAGE_PNG_SIZE_MAX(header), '\0');
    png_alloc_size_t size = bytes.size();
    const bool is_written = png_image_write_to_memory(&header, bytes.data(), &size, 0, pixels.data(), 0, nullptr) != 0;
    const std::string reason = header.message;
    png_image_free(&header);
    if (!is_written) throw OutputError(path, reason);
    file.write(bytes.data(), size);
    file.commit();
}

}  // namespace sds_io
