#include "render/renderer.h"

#include <algorithm>
#include <chrono>
#include <memory>

#include "qn_sys/sys_thread.h"
#include "render/tile.h"

namespace sds_render {

namespace {

Image make_image(unsigned int width, unsigned int height, const RenderOptions& options) {
    Image image(width, height);
    for (const char* name : {"R", "G", "B", "A"}) image.add_channel(name, ChannelKind::color);
    for (const Layer& layer : options.layers)
        for (unsigned int c = 0; c < layer.components.size(); ++c)
            image.add_channel(layer.get_channel_name(c), layer.kind);
    return image;
}

// Calls `render_one(i, thread)` for every i below `count`. Statistics but the camera rays.
template <class RenderOne>
RenderStatistics render_all(const Scene& scene, unsigned int count, AppProgressBar* progress,
                            const RenderOne& render_one) {
    const auto begin = std::chrono::steady_clock::now();
    std::vector<std::unique_ptr<RenderThread>> threads(sys_max_worker_count());
    for (auto& thread : threads) thread = std::make_unique<RenderThread>(scene.get_shader_ctx());
    sys_parallel_for(count, [&](unsigned int i, unsigned int worker) {
        render_one(i, *threads[worker]);
        if (progress != nullptr) progress->increment(1.0f / static_cast<float>(count));
    });
    RenderStatistics statistics;
    for (const auto& thread : threads) {
        statistics.rays += thread->ray_count;
        statistics.hits += thread->hit_count;
    }
    statistics.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    return statistics;
}

}  // namespace

Rendering render(const Scene& scene, const Camera& camera, const RenderOptions& options, AppProgressBar* progress) {
    Rendering out{make_image(camera.get_width(), camera.get_height(), options), {}};
    const TileRenderer tiles(scene, camera, options, out.image);
    out.statistics =
        render_all(scene, count_tiles(camera.get_width(), camera.get_height()), progress,
                   [&](unsigned int tile, RenderThread& thread) { tiles.render_tile(tile, thread, progress); });
    out.statistics.camera_rays = std::uint64_t{out.image.get_pixel_count()} * options.samples;
    return out;
}

unsigned int count_tiles(unsigned int width, unsigned int height) {
    return ((width + tile_size - 1) / tile_size) * ((height + tile_size - 1) / tile_size);
}

Rendering render_tiles(const Scene& scene, const Camera& camera, const RenderOptions& options,
                       std::span<const unsigned int> tiles, AppProgressBar* progress, double* seconds) {
    const auto count = static_cast<unsigned int>(tiles.size());
    Rendering out{make_image(tile_size, tile_size * count, options), {}};
    const TileRenderer renderer(scene, camera, options, out.image);
    out.statistics = render_all(scene, count, progress, [&](unsigned int i, RenderThread& thread) {
        const auto begin = std::chrono::steady_clock::now();
        renderer.render_tile_of_strip(tiles[i], i, thread, progress);
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
        if (seconds != nullptr) seconds[i] = taken.count();
    });
    for (const unsigned int tile : tiles) {
        const unsigned int columns = (camera.get_width() + tile_size - 1) / tile_size;
        const unsigned int width = std::min(tile_size, camera.get_width() - tile % columns * tile_size);
        const unsigned int height = std::min(tile_size, camera.get_height() - tile / columns * tile_size);
        out.statistics.camera_rays += std::uint64_t{width} * height * options.samples;
    }
    return out;
}

void paste_tile(const Image& strip, unsigned int at, unsigned int tile, const ImageArea& area, Image& image) {
    const unsigned int columns = (area.width + tile_size - 1) / tile_size;
    const unsigned int left = tile % columns * tile_size, top = tile / columns * tile_size;
    const unsigned int width = std::min(tile_size, area.width - left), height = std::min(tile_size, area.height - top);
    for (const Channel& from : strip.get_channels()) {
        Channel& to = *image.find_channel(from.name);
        const auto copy = [&](const auto& source, auto& target) {
            for (unsigned int y = 0; y < height; ++y) {
                const size_t row = (size_t{at} * tile_size + y) * tile_size;
                const size_t place = size_t{area.top + top + y} * image.get_width() + area.left + left;
                std::copy_n(&source[row], width, &target[place]);
            }
        };
        if (from.kind == ChannelKind::id)
            copy(from.ids, to.ids);
        else
            copy(from.values, to.values);
    }
}

}  // namespace sds_render
