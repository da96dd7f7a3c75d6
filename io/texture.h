#pragma once

#include "render/surface_point.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace sds_io {

/// A picture to be looked up: bilinear, repeated in both directions, v upwards. Concurrent reads are safe.
class Texture {
public:
    static constexpr std::size_t default_limit = std::size_t{1} << 30;

    /// Reads a PNG of any kind; samples are taken for sRGB. Throws InputError, and before any memory is taken when the
    /// size that the file announces takes more than `limit` bytes.
    static Texture read_png(const std::string& path, std::size_t limit = default_limit);

    /// Bytes that read_png would keep, by what the file announces. Throws InputError.
    static std::uint64_t read_png_size(const std::string& path);

    unsigned int get_width() const { return m_width; }
    unsigned int get_height() const { return m_height; }

    /// Linear light at (u, v); black where they are not finite.
    sds_render::Color look_up(double u, double v) const;

private:
    struct PngFile;
    Texture() = default;

    unsigned int m_width = 0;
    unsigned int m_height = 0;
    std::unique_ptr<std::uint8_t[]> m_texels;  // r g b in sRGB, row by row from the top
};

/// The texture through a UV map of the object, clay where a primitive is not mapped.
sds_render::SurfaceColor make_texture_color(std::shared_ptr<const Texture> texture, unsigned int map);

}  // namespace sds_io
