#pragma once

#include "io/atomic_file.h"

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
};

/// Writes `mesh` as an OBJ file, whole or not at all; "-" is standard output. Numbers are the shortest that read back
/// to the same float. Throws OutputError, and what `cancel` throws.
void write_obj(const std::string& path, const ObjMesh& mesh, Cancel cancel = nullptr);

}  // namespace sds_io
