#include "render/renderer.h"

#include <algorithm>
#include <chrono>
#include <memory>

#include "qn_sys/sys_thread.h"
#include "render/tile.h"

namespace sds_render {

namespace {

Image make_image(const Camera& camera, const RenderOptions& options) {
    Image image(camera.get_width(), camera.get_height());
    for (const char* name : {"R", "G", "B", "A"}) image.add_channel(name, ChannelKind::color);
    for (const Layer& layer : options.layers)
        for (unsigned int c = 0; c < layer.components.size(); ++c)
            image.add_channel(layer.get_channel_name(c), layer.kind);
    return image;
}

}  // namespace

Rendering render(const Scene& scene, const Camera& camera, const RenderOptions& options, AppProgressBar* progress) {
    const auto begin = std::chrono::steady_clock::now();
    Rendering out{make_image(camera, options), {}};
    const TileRenderer tiles(scene, camera, options, out.image);

    std::vector<std::unique_ptr<RenderThread>> threads(sys_max_worker_count());
    for (auto& thread : threads) thread = std::make_unique<RenderThread>(scene.get_shader_ctx());
    const unsigned int count = tiles.get_tile_count();
    sys_parallel_for(count, [&](unsigned int tile, unsigned int worker) {
        tiles.render_tile(tile, *threads[worker], progress);
        if (progress != nullptr) progress->increment(1.0f / static_cast<float>(count));
    });

    for (const auto& thread : threads) {
        out.statistics.rays += thread->ray_count;
        out.statistics.hits += thread->hit_count;
    }
    out.statistics.camera_rays = std::uint64_t{out.image.get_pixel_count()} * options.samples;
    out.statistics.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    return out;
}

}  // namespace sds_render
