#include "render/surface_point.h"

#include <cmath>
#include <limits>
#include <stdexcept>

namespace sds_render {

namespace {

// Hues a golden angle apart, all about as light as clay.
Color get_group_tint(unsigned int index) {
    if (index == 0) return clay;
    const double hue = 0.08 + 0.61803398875 * index;
    Color out;
    for (unsigned int c = 0; c < 3; ++c) {
        const double wave = std::cos(6.283185307179586 * (hue - c / 3.0));
        out[c] = static_cast<float>(0.5 + 0.17 * wave);
    }
    return out;
}

// Where the point lies on the faces that users know.
GeometryPlace get_place(const SurfacePoint& point) {
    return point.object->get_primitive_place(point.fragment.primitive, point.fragment.u, point.fragment.v);
}

Layer::Value to_value(const Vec3& v) {
    Layer::Value value;
    for (unsigned int c = 0; c < 3; ++c) value.components[c] = static_cast<float>(v[c]);
    return value;
}

Layer::Value to_value(const Color& color) { return to_value(Vec3(color)); }

Layer::Value to_id(unsigned int id) {
    Layer::Value value;
    value.id = id;
    return value;
}

Layer make_vector_layer(const char* name, std::vector<std::string> components,
                        std::function<Vec3(const SurfacePoint&)> evaluate) {
    Layer layer;
    layer.name = name;
    layer.components = std::move(components);
    layer.evaluate = [evaluate = std::move(evaluate)](const SurfacePoint& point) { return to_value(evaluate(point)); };
    return layer;
}

Layer make_id_layer(const char* name, std::function<unsigned int(const SurfacePoint&)> evaluate) {
    Layer layer;
    layer.name = name;
    layer.components = {""};
    layer.kind = ChannelKind::id;
    layer.evaluate = [evaluate = std::move(evaluate)](const SurfacePoint& point) { return to_id(evaluate(point)); };
    return layer;
}

Layer make_depth_layer() {
    Layer layer = make_vector_layer("Z", {""}, [](const SurfacePoint& point) { return Vec3{point.depth, 0, 0}; });
    layer.background.components[0] = std::numeric_limits<float>::infinity();
    return layer;
}

Layer make_color_map_layer() {
    Layer layer;
    layer.name = "color";
    layer.components = {"R", "G", "B", "A"};
    layer.kind = ChannelKind::color;
    layer.evaluate = [](const SurfacePoint& point) {
        Layer::Value value;
        if (point.object->get_color_map_count() == 0) return value;
        GMathVec4<float> color;
        point.object->compute_fragment_color(*point.ctx, point.fragment, 0, color);
        for (unsigned int c = 0; c < 4; ++c) value.components[c] = color[c];
        return value;
    };
    return layer;
}

Layer make_checker_layer() {
    Layer layer;
    layer.name = "checker";
    layer.components = {"R", "G", "B"};
    layer.kind = ChannelKind::color;
    layer.evaluate = [checker = make_checker(0, 8.0)](const SurfacePoint& point) { return to_value(checker(point)); };
    return layer;
}

// Where a stripe has a kink the surface has a crease, where it breaks in direction the curvature jumps.
Layer make_reflection_layer() {
    constexpr double stripes = 14.0;  // around the ring
    Layer layer;
    layer.name = "lines";
    layer.components = {"R", "G", "B"};
    layer.kind = ChannelKind::color;
    layer.evaluate = [](const SurfacePoint& point) {
        const Vec3 normal = point.sample.get_smoothing_normal();
        const Vec3 mirrored = point.direction - normal * (2.0 * point.direction.dot(normal));
        const double turn = std::atan2(mirrored[1], mirrored[2]) / 6.283185307179586;
        const bool is_dark = std::fabs(std::fmod(std::floor(turn * 2.0 * stripes), 2.0)) == 1.0;
        return to_value(is_dark ? Color{0.02f, 0.02f, 0.03f} : Color{0.80f, 0.80f, 0.78f});
    };
    return layer;
}

const std::vector<Layer>& get_layers() {
    static const std::vector<Layer> layers{
        make_vector_layer("N", {"X", "Y", "Z"},
                          [](const SurfacePoint& point) { return point.sample.get_smoothing_normal(); }),
        make_vector_layer("Ng", {"X", "Y", "Z"},
                          [](const SurfacePoint& point) {
                              const Vec3& normal = point.sample.get_geometric_normal();
                              return point.is_mirrored ? -normal : normal;
                          }),
        make_vector_layer("P", {"X", "Y", "Z"}, [](const SurfacePoint& point) { return point.position; }),
        make_depth_layer(),
        make_vector_layer("st", {"X", "Y"},
                          [](const SurfacePoint& point) {
                              const GeometryPlace place = get_place(point);
                              return Vec3{place.u, place.v, 0};
                          }),
        make_vector_layer("uv", {"X", "Y"},
                          [](const SurfacePoint& point) {
                              Vec3 uvw{0, 0, 0};
                              get_uvw(point, 0, uvw);
                              return uvw;
                          }),
        make_id_layer("id", [](const SurfacePoint& point) { return get_place(point).face; }),
        make_id_layer("object", [](const SurfacePoint& point) { return point.object_index; }),
        make_id_layer("group",
                      [](const SurfacePoint& point) {
                          return point.object->get_primitive_shading_group_index(point.fragment.primitive);
                      }),
        make_color_map_layer(),
        make_checker_layer(),
        make_reflection_layer()};
    return layers;
}

}  // namespace

SurfaceColor make_uniform_color(const Color& color) {
    return [color](const SurfacePoint&) { return color; };
}

SurfaceColor make_group_color() {
    return [](const SurfacePoint& point) {
        const unsigned int group = point.object->get_primitive_shading_group_index(point.fragment.primitive);
        return get_group_tint(group == no_index ? point.object_index : group + 5 * point.object_index);
    };
}

SurfaceColor make_map_color(unsigned int map, const Color& fallback) {
    return [map, fallback](const SurfacePoint& point) {
        if (map >= point.object->get_color_map_count()) return fallback;
        GMathVec4<float> color;
        point.object->compute_fragment_color(*point.ctx, point.fragment, map, color);
        return Color{color[0], color[1], color[2]};
    };
}

SurfaceColor make_checker(unsigned int map, double count) {
    return [map, count](const SurfacePoint& point) {
        Vec3 uvw;
        const bool is_mapped = get_uvw(point, map, uvw);
        const double scale = is_mapped ? count : 2.0;
        const double parity = std::floor(uvw[0] * scale) + std::floor(uvw[1] * scale);
        const bool is_dark = std::fabs(std::fmod(parity, 2.0)) == 1.0;
        if (!is_mapped) return is_dark ? Color{0.42f, 0.30f, 0.30f} : Color{0.52f, 0.40f, 0.40f};
        return is_dark ? Color{0.16f, 0.20f, 0.25f} : Color{0.72f, 0.70f, 0.66f};
    };
}

bool get_uvw(const SurfacePoint& point, unsigned int map, Vec3& uvw) {
    if (map < point.object->get_uv_map_count() && point.object->is_primitive_uv_mapped(point.fragment.primitive, map)) {
        Vec3 du, dv;
        point.object->compute_fragment_uvw(*point.ctx, point.fragment, map, uvw, du, dv);
        return true;
    }
    const GeometryPlace place = get_place(point);
    uvw = {place.u, place.v, 0};
    return false;
}

std::string Layer::get_channel_name(unsigned int component) const {
    if (name.empty() || components[component].empty()) return name + components[component];
    return name + "." + components[component];
}

Layer make_layer(const std::string& name) {
    std::string known;
    for (const Layer& layer : get_layers()) {
        if (layer.name == name) return layer;
        known += known.empty() ? layer.name : ", " + layer.name;
    }
    throw std::invalid_argument("unknown layer " + name + "; known are " + known);
}

const std::vector<std::string>& get_layer_names() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> list;
        for (const Layer& layer : get_layers()) list.push_back(layer.name);
        return list;
    }();
    return names;
}

}  // namespace sds_render
