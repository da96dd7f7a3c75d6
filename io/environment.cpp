#include "io/environment.h"

#include "io/input_error.h"
#include "io/input_places.h"

#include <Iex.h>
#include <ImfArray.h>
#include <ImfRgbaFile.h>
#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>
#include <vector>

namespace sds_io {

namespace {

using sds_render::Color;
using sds_render::UpAxis;
using sds_render::Vec3;

constexpr long long max_pixels = 1LL << 28;

struct LatLong {
    unsigned int width = 0, height = 0;
    std::vector<Color> pixels;  // row by row from the top

    Color get(double x, double y) const {
        const double column = x * width - 0.5, line = std::clamp(y * height - 0.5, 0.0, height - 1.0);
        const double left = std::floor(column), top = std::floor(line);
        const auto share_x = static_cast<float>(column - left), share_y = static_cast<float>(line - top);
        const auto wrap = [&](double c) { return static_cast<std::size_t>(c < 0.0 ? c + width : c) % width; };
        const auto row = [&](double r) {
            const Color* const first = &pixels[static_cast<std::size_t>(r) * width];
            return sds_render::mix(first[wrap(left)], first[wrap(left + 1.0)], share_x);
        };
        return sds_render::mix(row(top), row(std::min(top + 1.0, height - 1.0)), share_y);
    }
};

LatLong read_exr(const std::string& path) {
    try {
        Imf::RgbaInputFile file(locate_input(path).c_str());
        const Imath::Box2i window = file.dataWindow();
        const long long width = 1LL + window.max.x - window.min.x, height = 1LL + window.max.y - window.min.y;
        if (width < 1 || height < 1 || width * height > max_pixels) throw InputError(path, "too large a picture");
        LatLong out{static_cast<unsigned int>(width), static_cast<unsigned int>(height), {}};
        std::vector<Imf::Rgba> pixels(static_cast<std::size_t>(width * height));
        file.setFrameBuffer(pixels.data() - window.min.x - window.min.y * width, 1, static_cast<std::size_t>(width));
        file.readPixels(window.min.y, window.max.y);
        const auto clean = [](float v) { return v > 0.0f && std::isfinite(v) ? v : 0.0f; };
        for (const Imf::Rgba& p : pixels) out.pixels.push_back({clean(p.r), clean(p.g), clean(p.b)});
        return out;
    } catch (const Iex::BaseExc& error) {
        throw InputError(path, error.what());
    }
}

}  // namespace

sds_render::Environment read_environment(const std::string& path, UpAxis up) {
    const auto picture = std::make_shared<const LatLong>(read_exr(path));
    const auto axis = static_cast<unsigned int>(up);
    return [picture, axis](const Vec3& direction) {
        const double height = std::clamp(direction[axis], -1.0, 1.0);
        // front and side as a camera's azimuth counts them
        const Vec3& d = direction;
        const double front = axis == 2 ? -d[1] : d[2], side = axis == 0 ? -d[1] : d[0];
        const double around = std::atan2(-side, -front);  // 0 behind the scene, growing to the right
        return picture->get(0.5 - 0.5 * around / std::numbers::pi, 0.5 - std::asin(height) / std::numbers::pi);
    };
}

}  // namespace sds_io
