#pragma once

#include "render/surface_point.h"

#include <memory>
#include <string>
#include <vector>

namespace sds_io {

/// A picture to be looked up: bilinear, repeated in both directions, v upwards. Concurrent reads are safe.
class Texture {
public:
    /// Reads a PNG of any kind; samples are taken for sRGB. Throws InputError.
    static Texture read_png(const std::string& path);

    unsigned int get_width() const { return m_width; }
    unsigned int get_height() const { return m_height; }

    /// Linear light at (u, v); black where they are not finite.
    sds_render::Color look_up(double u, double v) const;

private:
    Texture(unsigned int width, unsigned int height) : m_width(width), m_height(height) {}

    unsigned int m_width;
    unsigned int m_height;
    std::vector<sds_render::Color> m_texels;  // row by row from the top
};

/// The texture through a UV map of the object, clay where a primitive is not mapped.
sds_render::SurfaceColor make_texture_color(std::shared_ptr<const Texture> texture, unsigned int map);

}  // namespace sds_io
