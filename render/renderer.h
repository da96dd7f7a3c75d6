// Pictures: samples over tiles on all threads of the calling arena.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "qn_app_base/app_progress_bar.h"
#include "render/camera.h"
#include "render/image.h"
#include "render/scene.h"
#include "render/shading.h"
#include "render/surface_point.h"

namespace sds_render {

struct RenderOptions {
    unsigned int samples = 16;  // per pixel, at least 1; powers of two spread best
    bool packets = true;        // camera rays in packets of 8, else one by one
    bool background = true;     // a soft gradient, else transparent
    ShadingOptions shading;
    std::vector<Layer> layers;
};

struct RenderStatistics {
    std::uint64_t camera_rays = 0;
    std::uint64_t rays = 0;  // with shadow and occlusion rays
    std::uint64_t hits = 0;
    double seconds = 0.0;

    double get_rays_per_second() const { return seconds > 0.0 ? static_cast<double>(rays) / seconds : 0.0; }
};

struct Rendering {
    Image image;
    RenderStatistics statistics;
};

// Renders the committed scene. The image has R, G, B (linear light, premultiplied), A (1 everywhere with a background)
// and the channels of the layers. Ray times are spread over the scene's shutter. The picture is a function of the
// arguments alone, whatever the number of threads. `progress` may be null; its innermost task goes to its end.
Rendering render(const Scene& scene, const Camera& camera, const RenderOptions& options, AppProgressBar* progress);

// A picture's tiles, which it may be made of in pieces: numbered row by row from the top left, tile_size pixels wide
// and high, but cut off at the picture's right and lower end.
inline constexpr unsigned int tile_size = 32;
unsigned int count_tiles(unsigned int width, unsigned int height);

// Tiles of the picture that render() makes, to the same bits, one below the other in an image of width tile_size; what
// is beyond the picture is 0. `seconds`, which may be null, gets what each of them took on its thread.
Rendering render_tiles(const Scene& scene, const Camera& camera, const RenderOptions& options,
                       std::span<const unsigned int> tiles, AppProgressBar* progress, double* seconds);

// A part of a picture.
struct ImageArea {
    unsigned int left, top, width, height;
};

// Puts tile `tile` of the picture that is to fill `area` of `image` there: it is place `at` of `strip`, whose channels
// `image` has.
void paste_tile(const Image& strip, unsigned int at, unsigned int tile, const ImageArea& area, Image& image);

}  // namespace sds_render
