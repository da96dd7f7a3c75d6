#include "model/color_map.h"

#include "sds/mesh_property/element_types.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <span>
#include <stdexcept>

namespace sds_model {

namespace {

using sds_render::Color;

struct Ramp {
    const char* name;
    std::vector<std::array<double, 3>> colors;  // sRGB, evenly over the ramp
};

const std::vector<Ramp>& get_ramps() {
    static const std::vector<Ramp> ramps{
        // S. van der Walt and N. Smith, 2015: lightness grows evenly
        {"viridis",
         {{0.267, 0.005, 0.329},
          {0.283, 0.141, 0.458},
          {0.254, 0.265, 0.530},
          {0.207, 0.372, 0.553},
          {0.164, 0.471, 0.558},
          {0.128, 0.567, 0.551},
          {0.135, 0.659, 0.518},
          {0.267, 0.749, 0.441},
          {0.478, 0.821, 0.318},
          {0.741, 0.873, 0.150},
          {0.993, 0.906, 0.144}}},
        {"heat", {{0.05, 0.02, 0.05}, {0.45, 0.05, 0.15}, {0.80, 0.20, 0.08}, {0.97, 0.60, 0.10}, {1.0, 0.97, 0.70}}},
        {"gray", {{0.03, 0.03, 0.03}, {0.97, 0.97, 0.97}}},
        {"blue-red",
         {{0.10, 0.25, 0.65}, {0.45, 0.65, 0.88}, {0.93, 0.93, 0.92}, {0.92, 0.58, 0.42}, {0.68, 0.08, 0.14}}},
    };
    return ramps;
}

const Ramp& find_ramp(const std::string& name) {
    for (const Ramp& ramp : get_ramps())
        if (name == ramp.name) return ramp;
    throw std::invalid_argument("no color map '" + name + "'");
}

// IEC 61966-2-1.
double decode_srgb(double x) { return x <= 0.04045 ? x / 12.92 : std::pow((x + 0.055) / 1.055, 2.4); }

Color look_up(const Ramp& ramp, double place) {
    const double at = sds_render::clamp_unit(place) * static_cast<double>(ramp.colors.size() - 1);
    const std::size_t first = std::min(static_cast<std::size_t>(at), ramp.colors.size() - 2);
    const double share = at - static_cast<double>(first);
    Color out;
    for (unsigned int c = 0; c < 3; ++c)
        out[c] =
            static_cast<float>(decode_srgb((1.0 - share) * ramp.colors[first][c] + share * ramp.colors[first + 1][c]));
    return out;
}

double to_scalar(std::span<const double> values) {
    if (values.size() == 1) return values[0];
    double square = 0.0;
    for (const double value : values) square += value * value;
    return std::sqrt(square);
}

/// What the cage's own values span.
void grow(const SurfaceProperty& property, ValueRange& range) {
    const PolyMeshProperty& source = property.get_source();
    const unsigned int extent = property.get_extent();
    std::vector<double> values(extent);
    for (unsigned int s = 0; s < source.get_sample_count(); ++s) {
        const ResourceProperty& sample = source.get_sample_values(s);
        sds::with_element(sample.get_type(), [&](auto element) {
            using T = decltype(element);
            for (unsigned int i = 0; i < sample.get_item_count(); ++i) {
                const T* const item = sample.get_item_values<T>(i);
                for (unsigned int c = 0; c < extent; ++c) values[c] = sds::to_real(item[c]);
                range.low = std::min(range.low, to_scalar(values));
                range.high = std::max(range.high, to_scalar(values));
            }
        });
    }
}

}  // namespace

const std::vector<std::string>& color_map_names() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> list;
        for (const Ramp& ramp : get_ramps()) list.push_back(ramp.name);
        return list;
    }();
    return names;
}

Color look_up_ramp(const std::string& name, double place) { return look_up(find_ramp(name), place); }

sds_render::SurfaceColor make_ramp_color(const MeshScene& meshes, const std::string& property, const std::string& ramp,
                                         const ValueRange& range) {
    const Ramp& colors = find_ramp(ramp);
    const std::vector<const SurfaceProperty*> properties = meshes.find_property(property);
    ValueRange ends = range;
    if (ends.is_empty()) {
        constexpr double infinity = std::numeric_limits<double>::infinity();
        ends = {infinity, -infinity};
        for (const SurfaceProperty* each : properties)
            if (each != nullptr) grow(*each, ends);
        if (ends.is_empty()) ends = {ends.low - 0.5, ends.low + 0.5};  // the same everywhere: the middle
    }
    return [properties, ends, &colors](const sds_render::SurfacePoint& point) {
        const SurfaceProperty* each = properties[point.object_index];
        if (each == nullptr) return sds_render::clay;
        constexpr unsigned int few = 16;
        double room[few];
        std::vector<double> more(each->get_extent() > few ? each->get_extent() : 0);
        double* const values = more.empty() ? room : more.data();
        each->evaluate(*point.ctx, point.fragment, values, nullptr, nullptr);
        return look_up(colors, (to_scalar({values, each->get_extent()}) - ends.low) / (ends.high - ends.low));
    };
}

}  // namespace sds_model
