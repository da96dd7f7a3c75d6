// What is known at a hit, and functions of it: surface colors and picture layers.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "qn_geometry/geometry_object.h"
#include "render/image.h"
#include "render/render_types.h"

namespace sds_render {

struct SurfacePoint {
    const CtxEval* ctx = nullptr;
    const GeometryObject* object = nullptr;
    unsigned int object_index = no_index;
    GeometryFragment fragment;
    GeometrySample sample;     // as the scene sees it
    bool is_mirrored = false;  // the sample's geometric normal is on the other side
    Vec3 position{0, 0, 0};    // on the ray
    Vec3 direction{0, 0, 1};   // of the ray, unit
    double depth = 0.0;        // along the camera's axis
};

// Albedo at a hit. Called from many threads at once.
using SurfaceColor = std::function<Color(const SurfacePoint&)>;

inline const Color clay{0.61f, 0.43f, 0.32f};

SurfaceColor make_uniform_color(const Color& color);
// A quiet color of its own for every shading group of every object; the first of a scene is clay.
SurfaceColor make_group_color();
// The object's color map, `fallback` on objects without it.
SurfaceColor make_map_color(unsigned int map, const Color& fallback);
// Squares of a UV map, `count` along a unit of u and v; patch coordinates where a primitive is not mapped.
SurfaceColor make_checker(unsigned int map, double count);

// u, v, w of a map at the point; false, and patch coordinates, where the primitive is not mapped.
bool get_uvw(const SurfacePoint& point, unsigned int map, Vec3& uvw);

// A layer of the picture: up to four values, or one id, at every hit. Layers of kind `color` are filtered over the
// pixel and are 0 beside the surface. The others are taken from one sample, the one nearest to the pixel's center.
struct Layer {
    static constexpr unsigned int max_component_count = 4;
    struct Value {
        float components[max_component_count] = {};
        std::uint32_t id = no_index;
    };

    std::string name;                     // "" for components with plain names
    std::vector<std::string> components;  // "X", "Y", "Z"; one empty component names the channel like the layer
    ChannelKind kind = ChannelKind::data;
    Value background;
    // Called from many threads at once.
    std::function<Value(const SurfacePoint&)> evaluate;

    std::string get_channel_name(unsigned int component) const;
};

// Built-in layers by the name users give them:
//   N        smoothing normal X Y Z             Ng     geometric normal X Y Z
//   P        position X Y Z                     Z      depth along the camera's axis, infinite beside the surface
//   st       patch coordinates X Y              uv     UV map 0 X Y (patch coordinates where not mapped)
//   id       primitive index                    object object index         group  shading group index
//   color    color map 0, R G B A              checker  squares of UV map 0, R G B
//   lines    reflection lines: stripes of a ring of lights along x, mirrored by the smoothing normal, R G B
// Throws std::invalid_argument, with the known names, for another one.
Layer make_layer(const std::string& name);
const std::vector<std::string>& get_layer_names();

}  // namespace sds_render
