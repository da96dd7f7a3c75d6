#include "render/tile.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "qn_app_base/app_progress_bar.h"

namespace sds_render {

namespace {

// Pixels are visited in blocks, so that a packet covers a compact part of the picture.
constexpr unsigned int block_width = 4;
constexpr unsigned int block_height = 2;

// Half the width of the tent that weighs a sample by its distance from the pixel's center, in pixels.
constexpr double filter_radius = 0.85;

// Distributes x in [0, 1) like a tent over (-1, 1).
double warp_to_tent(double x) { return x < 0.5 ? std::sqrt(2.0 * x) - 1.0 : 1.0 - std::sqrt(2.0 - 2.0 * x); }

// Gives a cancelled bar the occasion to throw where rays are slow.
class CancelWatch {
public:
    explicit CancelWatch(AppProgressBar* progress) : m_progress(progress) {}

    void ask() {
        constexpr std::chrono::milliseconds pause{50};
        if (m_progress == nullptr) return;
        const auto now = std::chrono::steady_clock::now();
        if (now - m_last < pause) return;
        m_last = now;
        m_progress->increment(0.0f);
    }

private:
    AppProgressBar* m_progress;
    std::chrono::steady_clock::time_point m_last = std::chrono::steady_clock::now();
};

}  // namespace

TileRenderer::TileRenderer(const Scene& scene, const Camera& camera, const RenderOptions& options, Image& image)
    : m_scene(&scene),
      m_camera(&camera),
      m_options(&options),
      m_shader(scene, camera, options.shading),
      m_columns((camera.get_width() + tile_size - 1) / tile_size) {
    for (const char* name : {"R", "G", "B", "A"}) m_channels.push_back(image.find_channel(name));
    for (const Layer& layer : options.layers)
        for (unsigned int c = 0; c < layer.components.size(); ++c)
            m_channels.push_back(image.find_channel(layer.get_channel_name(c)));
}

void TileRenderer::render_tile(unsigned int tile, RenderThread& thread, AppProgressBar* progress) const {
    const unsigned int left = tile % m_columns * tile_size, top = tile / m_columns * tile_size;
    const size_t width = m_camera->get_width();
    render({left, top, top * width + left, width}, thread, progress);
}

void TileRenderer::render_tile_of_strip(unsigned int tile, unsigned int at, RenderThread& thread,
                                        AppProgressBar* progress) const {
    render({tile % m_columns * tile_size, tile / m_columns * tile_size, size_t{at} * tile_size * tile_size, tile_size},
           thread, progress);
}

void TileRenderer::render(const Place& place, RenderThread& thread, AppProgressBar* progress) const {
    const unsigned int left = place.left, top = place.top;
    const unsigned int right = std::min(left + tile_size, m_camera->get_width());
    const unsigned int bottom = std::min(top + tile_size, m_camera->get_height());
    Packet packet;
    Pixel pixel;
    CancelWatch watch(progress);
    reset(pixel);
    const auto flush = [&] {
        trace(packet, thread);
        shade(packet, place, pixel, thread);
        packet.count = 0;
        watch.ask();
    };
    for (unsigned int block_y = top; block_y < bottom; block_y += block_height)
        for (unsigned int block_x = left; block_x < right; block_x += block_width)
            for (unsigned int y = block_y; y < std::min(block_y + block_height, bottom); ++y)
                for (unsigned int x = block_x; x < std::min(block_x + block_width, right); ++x)
                    for (unsigned int i = 0; i < m_options->samples; ++i) {
                        packet.samples[packet.count] = make_sample(x, y, i);
                        packet.rays[packet.count] = make_ray(packet.samples[packet.count]);
                        if (++packet.count == packet_size) flush();
                    }
    if (packet.count != 0) flush();
}

TileRenderer::Sample TileRenderer::make_sample(unsigned int x, unsigned int y, unsigned int index) const {
    Sample sample{x, y, index, x + 0.5, y + 0.5};
    if (m_options->samples == 1) return sample;
    const SamplePoint at = PixelSampler(x, y, m_options->samples).get(index, 0);
    sample.at_x += filter_radius * warp_to_tent(at.x);
    sample.at_y += filter_radius * warp_to_tent(at.y);
    return sample;
}

GeometryRay TileRenderer::make_ray(const Sample& sample) const {
    const PixelSampler sampler(sample.x, sample.y, m_options->samples);
    const Shutter& shutter = m_scene->get_shutter();
    double time = shutter.open;
    if (shutter.close > shutter.open) time += (shutter.close - shutter.open) * sampler.get(sample.index, 1).x;
    const auto take = [&](const Camera& camera) {
        if (!camera.has_lens()) return camera.camera_ray(sample.at_x, sample.at_y);
        const SamplePoint lens = sampler.get(sample.index, Shader::lens_dimension_pair);
        return camera.camera_ray(sample.at_x, sample.at_y, lens.x, lens.y);
    };
    GeometryRay ray = m_camera->is_moving() ? take(m_camera->at(time)) : take(*m_camera);
    ray.time = time;
    return ray;
}

void TileRenderer::trace(Packet& packet, RenderThread& thread) const {
    if (m_options->packets) {
        m_scene->intersect_packet(packet.rays, packet.count, thread, packet.objects);
        return;
    }
    for (unsigned int i = 0; i < packet.count; ++i) {
        packet.objects[i] = no_index;
        m_scene->intersect(packet.rays[i], thread, &packet.objects[i]);
    }
}

void TileRenderer::shade(Packet& packet, const Place& place, Pixel& pixel, RenderThread& thread) const {
    Shader::Hit* hits[packet_size];
    unsigned int hit_count = 0;
    for (unsigned int i = 0; i < packet.count; ++i) {
        if (packet.rays[i].hit.primitive == no_index) continue;
        set_hit(packet, i, thread);
        hits[hit_count++] = &packet.hits[i];
    }
    m_shader.light(hits, hit_count, thread);
    for (unsigned int i = 0; i < packet.count; ++i) {
        const Sample& sample = packet.samples[i];
        add_hit(packet, i, pixel, thread);
        if (sample.index + 1 != m_options->samples) continue;
        store(pixel, place.first + (sample.y - place.top) * place.stride + (sample.x - place.left));
        reset(pixel);
    }
}

void TileRenderer::set_hit(Packet& packet, unsigned int i, RenderThread& thread) const {
    const Sample& sample = packet.samples[i];
    const GeometryRay& ray = packet.rays[i];
    Shader::Hit& hit = packet.hits[i];
    hit = {};
    hit.sampler = PixelSampler(sample.x, sample.y, m_options->samples);
    hit.sample = sample.index;
    SurfacePoint& point = hit.point;
    point.ctx = &thread.get_eval();
    point.object_index = packet.objects[i];
    point.object = &m_scene->get_object(point.object_index);
    point.fragment.primitive = ray.hit.primitive;
    point.fragment.u = ray.hit.u;
    point.fragment.v = ray.hit.v;
    point.fragment.time = ray.time;
    point.object->compute_fragment_sample(*point.ctx, point.fragment, point.sample);
    point.is_mirrored = !place_sample(m_scene->get_transform(point.object_index), ray.time, point.sample);
    point.position = ray.origin + ray.direction * ray.hit.t;
    point.direction = ray.direction;
    point.depth =
        m_camera->is_moving() ? m_camera->at(ray.time).get_depth(point.position) : m_camera->get_depth(point.position);
}

void TileRenderer::add_hit(const Packet& packet, unsigned int i, Pixel& pixel, RenderThread& thread) const {
    const Sample& sample = packet.samples[i];
    const GeometryRay& ray = packet.rays[i];
    const double dx = sample.at_x - (sample.x + 0.5), dy = sample.at_y - (sample.y + 0.5);
    const bool is_nearest = dx * dx + dy * dy < pixel.nearest;
    if (is_nearest) pixel.nearest = dx * dx + dy * dy;

    if (ray.hit.primitive == no_index) {
        add_layers(nullptr, is_nearest, pixel);
        if (!m_options->background) return;
        pixel.color += m_shader.get_background(sample.at_x, sample.at_y, ray.direction);
        pixel.alpha += 1.0f;
        return;
    }
    pixel.color += m_shader.shade(packet.hits[i], pixel.occlusion, thread);
    pixel.alpha += 1.0f;
    add_layers(&packet.hits[i].point, is_nearest, pixel);
}

void TileRenderer::add_layers(const SurfacePoint* point, bool is_nearest, Pixel& pixel) const {
    for (size_t l = 0; l < pixel.layers.size(); ++l) {
        const Layer& layer = m_options->layers[l];
        const bool is_filtered = layer.kind == ChannelKind::color;
        if (!is_filtered && !is_nearest) continue;
        const Layer::Value value = point != nullptr ? layer.evaluate(*point) : layer.background;
        if (!is_filtered)
            pixel.layers[l] = value;
        else
            for (unsigned int c = 0; c < Layer::max_component_count; ++c)
                pixel.layers[l].components[c] += value.components[c];
    }
}

void TileRenderer::reset(Pixel& pixel) const {
    pixel.color = {0, 0, 0};
    pixel.alpha = 0.0f;
    pixel.nearest = 1e30;
    pixel.occlusion = {};
    pixel.layers.assign(m_options->layers.size(), Layer::Value{});
}

void TileRenderer::store(const Pixel& pixel, size_t at) const {
    const float share = 1.0f / static_cast<float>(m_options->samples);
    for (unsigned int c = 0; c < 3; ++c) m_channels[c]->values[at] = pixel.color[c] * share;
    m_channels[3]->values[at] = pixel.alpha * share;
    size_t channel = 4;
    for (size_t l = 0; l < pixel.layers.size(); ++l) {
        const Layer& layer = m_options->layers[l];
        for (size_t c = 0; c < layer.components.size(); ++c, ++channel) {
            if (layer.kind == ChannelKind::id)
                m_channels[channel]->ids[at] = pixel.layers[l].id;
            else
                m_channels[channel]->values[at] =
                    pixel.layers[l].components[c] * (layer.kind == ChannelKind::color ? share : 1.0f);
        }
    }
}

}  // namespace sds_render
