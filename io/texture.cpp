#include "io/texture.h"

#include "io/input_error.h"

#include <png.h>
#include <array>
#include <cmath>

namespace sds_io {

namespace {

using sds_render::Color;

std::array<float, 256> make_decoder() {
    std::array<float, 256> table;
    for (std::size_t i = 0; i < table.size(); ++i) {
        const double x = static_cast<double>(i) / 255.0;  // IEC 61966-2-1
        table[i] = static_cast<float>(x <= 0.04045 ? x / 12.92 : std::pow((x + 0.055) / 1.055, 2.4));
    }
    return table;
}

/// The texels on both sides of a place in [0, 1) of a repeated row, and how far it is from the first.
struct TexelPair {
    unsigned int first, second;
    float share;

    TexelPair(double place, unsigned int count) {
        const double texel = (place - std::floor(place)) * count - 0.5;
        const double lower = std::floor(texel);
        share = static_cast<float>(texel - lower);
        first = (static_cast<unsigned int>(static_cast<long>(lower) + static_cast<long>(count))) % count;
        second = (first + 1) % count;
    }
};

/// Frees what the library holds for a picture.
struct PngImage {
    png_image image{};
    PngImage() { image.version = PNG_IMAGE_VERSION; }
    ~PngImage() { png_image_free(&image); }
    PngImage(const PngImage&) = delete;
    PngImage& operator=(const PngImage&) = delete;
};

}  // namespace

Texture Texture::read_png(const std::string& path) {
    PngImage png;
    if (png_image_begin_read_from_file(&png.image, path.c_str()) == 0) throw InputError(path, png.image.message);
    png.image.format = PNG_FORMAT_RGB;
    std::vector<png_byte> bytes(PNG_IMAGE_SIZE(png.image));
    const png_color black{0, 0, 0};  // behind transparent texels
    if (png_image_finish_read(&png.image, &black, bytes.data(), 0, nullptr) == 0)
        throw InputError(path, png.image.message);
    Texture texture(png.image.width, png.image.height);
    static const std::array<float, 256> decode = make_decoder();
    texture.m_texels.reserve(bytes.size() / 3);
    for (std::size_t i = 0; i + 3 <= bytes.size(); i += 3)
        texture.m_texels.push_back({decode[bytes[i]], decode[bytes[i + 1]], decode[bytes[i + 2]]});
    return texture;
}

Color Texture::look_up(double u, double v) const {
    if (!std::isfinite(u) || !std::isfinite(v)) return {0, 0, 0};
    const TexelPair x(u, m_width), y(-v, m_height);
    const auto row = [&](unsigned int line) {
        const Color* texels = m_texels.data() + std::size_t{line} * m_width;
        return sds_render::mix(texels[x.first], texels[x.second], x.share);
    };
    return sds_render::mix(row(y.first), row(y.second), y.share);
}

sds_render::SurfaceColor make_texture_color(std::shared_ptr<const Texture> texture, unsigned int map) {
    return [texture = std::move(texture), map](const sds_render::SurfacePoint& point) {
        sds_render::Vec3 uvw;
        return sds_render::get_uvw(point, map, uvw) ? texture->look_up(uvw[0], uvw[1]) : sds_render::clay;
    };
}

}  // namespace sds_io
