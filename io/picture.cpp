#include "io/picture.h"

#include "io/environment.h"
#include "model/color_map.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace sds_io {

namespace {

using sds_model::MeshScene;
using sds_render::SurfaceColor;

constexpr std::string_view property_prefix = "prop:";
constexpr double checks_per_unit = 16.0;

bool is_property_layer(const std::string& name) { return name.starts_with(property_prefix); }

void set_lights(const PictureOptions& options, sds_render::UpAxis up, sds_render::ShadingOptions& shading) {
    shading.up = {0, 0, 0};
    shading.up[static_cast<unsigned int>(up)] = 1.0;
    if (!options.environment.empty()) shading.environment = read_environment(options.environment, up);
    if (options.sun.empty()) return;
    sds_render::CameraView view;
    view.azimuth = options.sun[0];
    view.elevation = options.sun[1];
    view.up = up;
    const sds_render::Camera towards(sds_render::Bbox3::empty(), view, 1, 1);
    shading.sun = sds_render::Sun{-towards.get_forward(), options.sun_strength};
}

SurfaceColor where_mapped(SurfaceColor mapped, SurfaceColor plain, unsigned int map) {
    return [mapped = std::move(mapped), plain = std::move(plain), map](const sds_render::SurfacePoint& point) {
        return map < point.object->get_uv_map_count() ? mapped(point) : plain(point);
    };
}

SurfaceColor make_property_color(const PictureOptions& options, const MeshScene& meshes) {
    sds_model::ValueRange range;
    if (!options.color_range.empty()) range = {options.color_range[0], options.color_range[1]};
    if (!options.color_range.empty() && range.is_empty())
        throw std::invalid_argument("color range: the first number is less than the second");
    return make_ramp_color(meshes, options.color_by, options.color_map, range);
}

SurfaceColor make_color(const PictureOptions& options, const MeshScene& meshes, const SurfaceColor& by_group,
                        bool keeps_unmapped) {
    const std::vector<sds_model::MeshInstance>& instances = meshes.get_instances();
    const bool has_colors = std::any_of(instances.begin(), instances.end(), [&](const auto& instance) {
        return meshes.get_mesh(instance).get_color_map_count() > 0;
    });
    const SurfaceColor plain = has_colors ? sds_render::make_map_color(0, sds_render::clay) : by_group;
    SurfaceColor mapped;
    if (!options.texture.empty())
        mapped = make_texture_color(
            std::make_shared<const Texture>(Texture::read_png(options.texture, options.texture_limit)), options.uv_map);
    else if (options.checker)
        mapped = sds_render::make_checker(options.uv_map, checks_per_unit);
    else
        return options.color_by.empty() ? plain : make_property_color(options, meshes);
    return keeps_unmapped ? where_mapped(mapped, plain, options.uv_map) : mapped;
}

}  // namespace

void check_layer_names(const std::vector<std::string>& names) {
    try {
        for (const std::string& name : names)
            if (!is_property_layer(name)) sds_render::make_layer(name);
    } catch (const std::invalid_argument& error) {
        throw std::invalid_argument(std::string(error.what()) + ", prop:NAME");
    }
}

std::vector<sds_render::Layer> make_layers(const std::vector<std::string>& names, const MeshScene& meshes) {
    std::vector<sds_render::Layer> layers;
    std::vector<std::string> channels{"R", "G", "B", "A"};
    for (const std::string& name : names) {
        layers.push_back(is_property_layer(name) ? meshes.make_property_layer(name.substr(property_prefix.size()))
                                                 : sds_render::make_layer(name));
        for (unsigned int c = 0; c < layers.back().components.size(); ++c) {
            const std::string channel = layers.back().get_channel_name(c);
            if (std::find(channels.begin(), channels.end(), channel) != channels.end())
                throw std::invalid_argument(std::string("layer ").append(name).append(" gives channel ") + channel +
                                            " a second time");
            channels.push_back(channel);
        }
    }
    return layers;
}

sds_render::RenderOptions make_render_options(const PictureOptions& options, const MeshScene& meshes,
                                              sds_render::UpAxis up, const SurfaceColor& by_group,
                                              bool keeps_unmapped) {
    sds_render::RenderOptions out;
    out.samples = options.samples;
    out.background = options.background;
    out.shading.wire = options.wire;
    set_lights(options, up, out.shading);
    out.shading.color = make_color(options, meshes, by_group, keeps_unmapped);
    return out;
}

}  // namespace sds_io
