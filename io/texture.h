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

    unsigned int width() const { return width_; }
    unsigned int height() const { return height_; }

    /// Linear light at (u, v); black where they are not finite.
    sds_render::Color look_up(double u, double v) const;

private:
    Texture(unsigned int width, unsigned int height) : width_(width), height_(height) {}

    unsigned int width_;
    unsigned int height_;
    std::vector<sds_render::Color> texels_;  // row by row from the top
};

/// The texture through a UV map of the object, clay where a primitive is not mapped.
sds_render::SurfaceColour make_texture_colour(std::shared_ptr<const Texture> texture, unsigned int map);

}  // namespace sds_io
