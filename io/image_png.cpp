#include "io/image_files.h"

#include <png.h>
#include <zlib.h>
#include <string_view>

namespace sds_io {

namespace {

std::string to_big_endian(std::size_t number) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift & 0xff);
    return bytes;
}

/// A chunk of text with its keyword, length and checksum.
std::string make_text_chunk(const std::string& note) {
    using namespace std::string_literals;
    const std::string content = "tEXtqn_sds\0"s + note;
    const auto checksum = crc32(0, reinterpret_cast<const Bytef*>(content.data()), static_cast<uInt>(content.size()));
    return to_big_endian(content.size() - 4) + content + to_big_endian(checksum);
}

}  // namespace

void write_png(const std::string& path, const sds_render::Image& image, const std::string& layer,
               const std::string& note) {
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
    constexpr std::size_t behind_header = 33;  // signature and IHDR
    file.write(bytes.data(), behind_header);
    if (!note.empty()) file.write(make_text_chunk(note));
    file.write(bytes.data() + behind_header, size - behind_header);
    file.commit();
}

}  // namespace sds_io
