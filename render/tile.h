// One tile of a picture: camera rays, shading, and the filter that turns samples into pixels.
#pragma once

#include <vector>

#include "render/renderer.h"

namespace sds_render {

class TileRenderer {
public:
    // All arguments outlive the renderer; `image` has the picture's and the layers' channels, in this order.
    TileRenderer(const Scene& scene, const Camera& camera, const RenderOptions& options, Image& image);

    // Writes the pixels of one tile, and of no other, to where they are in the picture. Different tiles may be rendered
    // at the same time. Asks `progress`, which may be null, some times a second whether to go on, however long a ray
    // takes.
    void render_tile(unsigned int tile, RenderThread& thread, AppProgressBar* progress) const;
    // The same to place `at` of an image of width tile_size.
    void render_tile_of_strip(unsigned int tile, unsigned int at, RenderThread& thread, AppProgressBar* progress) const;

private:
    // Camera rays that are traced together.
    static constexpr unsigned int packet_size = Shader::packet_size;
    struct Sample {
        unsigned int x, y, index;  // pixel of the picture, sample in the pixel
        double at_x, at_y;         // in pixels
    };
    struct Packet {
        unsigned int count = 0;
        Sample samples[packet_size];
        GeometryRay rays[packet_size];
        unsigned int objects[packet_size];
        Shader::Hit hits[packet_size];
    };
    // Where the pixels of a tile are in the image.
    struct Place {
        unsigned int left, top;  // of the tile in the picture
        size_t first, stride;    // its first pixel, and the pixels from a row to the next
    };
    // A pixel while its samples come in; they come one pixel after the other and in order.
    struct Pixel {
        Color color{0, 0, 0};
        float alpha = 0.0f;
        double nearest = 1e30;  // squared distance from the center of the sample that the data layers show
        PixelOcclusion occlusion;
        std::vector<Layer::Value> layers;
    };

    Sample make_sample(unsigned int x, unsigned int y, unsigned int index) const;
    GeometryRay make_ray(const Sample& sample) const;
    void trace(Packet& packet, RenderThread& thread) const;
    void render(const Place& place, RenderThread& thread, AppProgressBar* progress) const;
    void shade(Packet& packet, const Place& place, Pixel& pixel, RenderThread& thread) const;
    void set_hit(Packet& packet, unsigned int i, RenderThread& thread) const;
    void add_hit(const Packet& packet, unsigned int i, Pixel& pixel, RenderThread& thread) const;
    void add_layers(const SurfacePoint* point, bool is_nearest, Pixel& pixel) const;
    void reset(Pixel& pixel) const;
    void store(const Pixel& pixel, size_t at) const;

    const Scene* m_scene;
    const Camera* m_camera;
    const RenderOptions* m_options;
    Shader m_shader;
    unsigned int m_columns;
    // Channels of the picture: R, G, B, A, then those of each layer.
    std::vector<Channel*> m_channels;
};

}  // namespace sds_render
