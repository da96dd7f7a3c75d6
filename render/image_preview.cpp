#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "render/image.h"
#include "render/render_types.h"
#include "render/tone.h"

namespace sds_render {

namespace {

using Components = std::vector<const Channel*>;

Components find_layer(const Image& image, const std::string& layer) {
    Components components;
    for (const Channel& channel : image.get_channels()) {
        const bool is_inside = channel.name.size() > layer.size() && channel.name[layer.size()] == '.';
        if (channel.name == layer || (channel.name.compare(0, layer.size(), layer) == 0 && is_inside))
            components.push_back(&channel);
    }
    return components;
}

std::uint8_t to_byte(double x, double noise = 0.0) {
    return static_cast<std::uint8_t>(std::floor(clamp_unit(x) * 255.0 + 0.5 + noise * 0.998));
}

// In [-0.5, 0.5), even over any neighborhood (interleaved gradient noise, J. Jimenez 2014).
double get_noise(unsigned int x, unsigned int y) {
    const double fine = 0.06711056 * x + 0.00583715 * y;
    const double coarse = 52.9829189 * (fine - std::floor(fine));
    return coarse - std::floor(coarse) - 0.5;
}

std::array<std::uint8_t, 3> get_id_color(std::uint32_t id) {
    if (id == no_index) return {0, 0, 0};
    std::uint32_t x = (id ^ (id >> 16)) * 0x7feb352du;
    x = (x ^ (x >> 15)) * 0x846ca68bu;
    x ^= x >> 16;
    const auto channel = [&](unsigned int shift) {
        return static_cast<std::uint8_t>(72u + ((x >> shift) & 0xffu) * 168u / 255u);
    };
    return {channel(0), channel(8), channel(16)};
}

void show_beauty(const Image& image, Pixels8& pixels) {
    const Channel* rgb[3] = {image.find_channel("R"), image.find_channel("G"), image.find_channel("B")};
    const Channel* alpha = image.find_channel("A");
    if (rgb[0] == nullptr || rgb[1] == nullptr || rgb[2] == nullptr)
        throw std::invalid_argument("the image has no R, G and B");
    for (size_t i = 0; i < image.get_pixel_count(); ++i) {
        const double coverage = alpha != nullptr ? clamp_unit(alpha->values[i]) : 1.0;
        const double scale = coverage > 0.0 ? 1.0 / coverage : 1.0;  // premultiplied in the image
        const double noise = get_noise(static_cast<unsigned int>(i % image.get_width()),
                                       static_cast<unsigned int>(i / image.get_width()));
        for (unsigned int c = 0; c < 3; ++c) {
            const double shown = encode_srgb(apply_filmic_curve(rgb[c]->values[i] * scale));
            pixels[4 * i + c] = to_byte(shown, noise);
        }
        pixels[4 * i + 3] = to_byte(coverage);
    }
}

void show_ids(const Channel& channel, Pixels8& pixels) {
    for (size_t i = 0; i < channel.ids.size(); ++i) {
        const auto color = get_id_color(channel.ids[i]);
        std::copy(color.begin(), color.end(), pixels.begin() + static_cast<std::ptrdiff_t>(4 * i));
    }
}

void show_colors(const Components& components, Pixels8& pixels) {
    for (size_t i = 0; i < components[0]->values.size(); ++i)
        for (size_t c = 0; c < 3; ++c) {
            const Channel& channel = *components[std::min(c, components.size() - 1)];
            pixels[4 * i + c] = to_byte(encode_srgb(channel.values[i]));
        }
}

void show_directions(const Components& components, Pixels8& pixels) {
    for (size_t i = 0; i < components[0]->values.size(); ++i)
        for (size_t c = 0; c < 3; ++c) pixels[4 * i + c] = to_byte(0.5 + 0.5 * components[c]->values[i]);
}

void show_stretched(const Components& components, Pixels8& pixels) {
    for (size_t c = 0; c < 3; ++c) {
        if (c >= components.size() && components.size() > 1) continue;  // two components: red and green
        const std::vector<float>& values = components[std::min(c, components.size() - 1)]->values;
        float low = std::numeric_limits<float>::infinity(), high = -low;
        for (const float value : values) {
            if (!std::isfinite(value)) continue;
            low = std::min(low, value);
            high = std::max(high, value);
        }
        const double span = high > low ? double{high} - double{low} : 1.0;
        for (size_t i = 0; i < values.size(); ++i)
            pixels[4 * i + c] = std::isfinite(values[i]) ? to_byte((double{values[i]} - low) / span) : 0;
    }
}

bool are_directions(const Components& components) {
    if (components.size() != 3) return false;
    for (const Channel* channel : components)
        for (const float value : channel->values)
            if (!(std::fabs(value) <= 1.0001f)) return false;
    return true;
}

}  // namespace

Pixels8 make_preview(const Image& image, const std::string& layer) {
    Pixels8 pixels(4 * image.get_pixel_count(), 0);
    for (size_t i = 3; i < pixels.size(); i += 4) pixels[i] = 255;
    if (layer.empty()) {
        show_beauty(image, pixels);
        return pixels;
    }
    const Components components = find_layer(image, layer);
    if (components.empty()) throw std::invalid_argument("the image has no layer " + layer);
    if (components[0]->kind == ChannelKind::id)
        show_ids(*components[0], pixels);
    else if (components[0]->kind == ChannelKind::color)
        show_colors(components, pixels);
    else if (are_directions(components))
        show_directions(components, pixels);
    else
        show_stretched(components, pixels);
    return pixels;
}

}  // namespace sds_render
