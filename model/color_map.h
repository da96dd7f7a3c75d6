#pragma once

#include "model/mesh_scene.h"

#include <string>
#include <vector>

namespace sds_model {

/// The values at both ends of a ramp of colors; an empty one is the property's own.
struct ValueRange {
    double low = 0.0, high = 0.0;

    bool is_empty() const { return !(low < high); }
};

/// Ramps of colors by name: viridis, heat, gray, and blue-red, which is white in the middle.
const std::vector<std::string>& color_map_names();

/// Linear light on a ramp at a place in [0, 1]; NaN is its beginning. Throws std::invalid_argument for an unknown name.
sds_render::Color look_up_ramp(const std::string& name, double place);

/// Colors a scene by a property: a single number, or the length of several; clay where a mesh has none. Without a range
/// the least and the greatest value on the cages are the ends. Throws std::invalid_argument for an unknown property or
/// ramp. The meshes outlive the color.
sds_render::SurfaceColor make_ramp_color(const MeshScene& meshes, const std::string& property, const std::string& ramp,
                                         const ValueRange& range);

}  // namespace sds_model
