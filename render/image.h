// A picture of named channels.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sds_render {

enum class ChannelKind {
    color,  // linear light, 16-bit float on disk
    data,   // 32-bit float on disk
    id,     // 32-bit unsigned integer
};

struct Channel {
    std::string name;  // "R", "Z", or "layer.component"
    ChannelKind kind = ChannelKind::data;
    // Row by row from the top, width * height; `values` for color and data, `ids` for id.
    std::vector<float> values;
    std::vector<std::uint32_t> ids;
};

class Image {
public:
    // Both sizes are at least 1.
    Image(unsigned int width, unsigned int height) : m_width(width), m_height(height) {}

    unsigned int get_width() const { return m_width; }
    unsigned int get_height() const { return m_height; }
    size_t get_pixel_count() const { return size_t{m_width} * m_height; }
    const std::vector<Channel>& get_channels() const { return m_channels; }

    // Adds a channel of zeros. Names are unique. References to channels do not survive it.
    Channel& add_channel(const std::string& name, ChannelKind kind);
    // Null when there is no such channel.
    Channel* find_channel(const std::string& name);
    const Channel* find_channel(const std::string& name) const;

private:
    unsigned int m_width;
    unsigned int m_height;
    std::vector<Channel> m_channels;
};

// 8-bit RGBA pixels of sRGB, row by row from the top, alpha not premultiplied.
using Pixels8 = std::vector<std::uint8_t>;

// What a person looks at. An empty `layer` is the picture itself: R, G, B through the filmic curve, with a little
// ordered noise against banding, and A. Other layers are shown by content: three components called X Y Z around zero as
// 0.5 + 0.5 x, colors as they are without the curve, ids each in a color of its own, other values stretched between
// their least and greatest finite ones. Throws std::invalid_argument when the image has no such layer.
Pixels8 make_preview(const Image& image, const std::string& layer);

}  // namespace sds_render
