#pragma once

#include "io/atomic_file.h"
#include "model/control_cage.h"

#include <cstdint>
#include <span>
#include <string>

namespace sds_io {

/// Polygons to be written; the arrays stay the caller's. Indices are 0-based and trusted.
struct ObjMesh {
    std::span<const float> positions;                ///< x y z of every vertex
    std::span<const std::uint32_t> polygon_counts;   ///< corners of every polygon
    std::span<const std::uint32_t> polygon_indices;  ///< vertex of every face-corner
    std::span<const float> uv_points;                ///< u v w of every UV point; u and v are written. May be empty
    std::span<const std::uint32_t> uv_indices;       ///< UV point of every face-corner or 0xFFFFFFFF; empty without UVs
    /// Written as tags: sharpness and holes as ControlCage has them, each empty without any.
    std::span<const std::uint8_t> corner_creases = {};
    std::span<const float> corner_sharpness = {}, vertex_sharpness = {};
    std::span<const std::uint8_t> holes = {};
    sds_model::CageRules rules = {};
};

/// All of a cage but its groups and colors, with its tags.
ObjMesh to_obj_mesh(const sds_model::ControlCage& cage);

/// Writes `mesh` as an OBJ file, whole or not at all; "-" is standard output. Numbers are the shortest that read back
/// to the same float. Throws OutputError.
void write_obj(const std::string& path, const ObjMesh& mesh);

}  // namespace sds_io
