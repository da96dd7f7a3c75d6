#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>

namespace sds_io {

/// What a material library says of the color of a surface.
struct Material {
    std::array<float, 3> diffuse{0.8f, 0.8f, 0.8f};  ///< `Kd`, linear light
    std::string texture;                             ///< `map_Kd`, a path; empty without one
};

/// Reads the materials of an MTL file, by name, into `materials`; one that is there already stays. Of a material are
/// read `Kd` (three numbers, or one for all) and `map_Kd` (its options are skipped; the path is relative to the
/// library). Names are decoded as read_obj decodes them. Throws InputError, with the line, for a `Kd` that is not
/// finite, and when the file cannot be read.
void read_mtl(const std::string& path, std::map<std::string, Material>& materials);

}  // namespace sds_io
