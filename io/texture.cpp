#include "io/texture.h"

#include "io/input_error.h"
#include "io/input_places.h"
#include "model/array_size.h"

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

constexpr std::uint64_t texel_size = 3;

}  // namespace

/// A picture whose header is read. Frees what the library holds for it.
struct Texture::PngFile {
    png_image image{};

    explicit PngFile(const std::string& path) {
        image.version = PNG_IMAGE_VERSION;
        if (png_image_begin_read_from_file(&image, locate_input(path).c_str()) == 0)
            throw InputError(path, image.message);
        image.format = PNG_FORMAT_RGB;
    }
    ~PngFile() { png_image_free(&image); }
    PngFile(const PngFile&) = delete;
    PngFile& operator=(const PngFile&) = delete;

    std::uint64_t get_size() const { return texel_size * image.width * image.height; }
};

std::uint64_t Texture::read_png_size(const std::string& path) { return PngFile(path).get_size(); }

Texture Texture::read_png(const std::string& path, std::size_t limit) {
    PngFile png(path);
    if (png.get_size() > limit)
        throw InputError(path, std::to_string(png.image.width) + " x " + std::to_string(png.image.height) +
                                   " texels take " + sds_model::to_size_text(png.get_size()) +
                                   ", more than the limit of " + sds_model::to_size_text(limit));
    Texture texture;
    texture.m_width = png.image.width;
    texture.m_height = png.image.height;
    // Left unset, so that memory is touched as rows are decoded, not because a header announces them.
    texture.m_texels.reset(new std::uint8_t[png.get_size()]);
    const png_color black{0, 0, 0};  // behind transparent texels
    const auto row_size = static_cast<png_int_32>(texel_size * png.image.width);
    if (png_image_finish_read(&png.image, &black, texture.m_texels.get(), row_size, nullptr) == 0)
        throw InputError(path, png.image.message);
    return texture;
}

Color Texture::look_up(double u, double v) const {
    if (!std::isfinite(u) || !std::isfinite(v)) return {0, 0, 0};
    static const std::array<float, 256> decode = make_decoder();
    const TexelPair x(u, m_width), y(-v, m_height);
    const auto color = [&](unsigned int line, unsigned int column) {
        const std::uint8_t* texel = m_texels.get() + texel_size * (std::size_t{line} * m_width + column);
        return Color{decode[texel[0]], decode[texel[1]], decode[texel[2]]};
    };
    const auto row = [&](unsigned int line) {
        return sds_render::mix(color(line, x.first), color(line, x.second), x.share);
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
