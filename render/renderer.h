// Pictures: samples over tiles on all threads of the calling arena.
#pragma once

#include <cstdint>
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

}  // namespace sds_render
