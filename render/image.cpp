#include "render/image.h"

#include <algorithm>
#include <utility>

namespace sds_render {

Channel& Image::add_channel(const std::string& name, ChannelKind kind) {
    Channel channel;
    channel.name = name;
    channel.kind = kind;
    if (kind == ChannelKind::id)
        channel.ids.resize(get_pixel_count());
    else
        channel.values.resize(get_pixel_count());
    m_channels.push_back(std::move(channel));
    return m_channels.back();
}

const Channel* Image::find_channel(const std::string& name) const {
    const auto found = std::find_if(m_channels.begin(), m_channels.end(),
                                    [&](const Channel& channel) { return channel.name == name; });
    return found != m_channels.end() ? &*found : nullptr;
}

Channel* Image::find_channel(const std::string& name) {
    return const_cast<Channel*>(std::as_const(*this).find_channel(name));
}

}  // namespace sds_render
