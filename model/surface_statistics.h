#pragma once

#include "model/surface.h"

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace sds_model {

/// Vertices that the quads of a surface use, by what happens to them.
struct VertexClasses {
    std::uint32_t smooth = 0;  ///< no sharp edge
    std::uint32_t dart = 0;    ///< the end of a crease
    std::uint32_t crease = 0;  ///< two creases
    std::uint32_t corner = 0;  ///< three sharp edges and more, or kept in place by the interpolation mode
    std::uint32_t border = 0;  ///< others on a border
};

/// How far one patch is the limit surface on a quad, as PatchClasses counts them.
enum class PatchClass : std::uint8_t { regular, boundary, irregular };

/// The quads, by how far one patch each is the limit surface.
struct PatchClasses {
    std::uint32_t regular = 0;    ///< four smooth corners of valence four: the surface is exact
    std::uint32_t boundary = 0;   ///< some regular corner on a border or crease, the others regular: exact too
    std::uint32_t irregular = 0;  ///< some corner is neither, or the end of a crease
};

/// Of a refined surface.
struct RefinementStatistics {
    std::uint32_t depth = 0;  ///< that was asked for
    std::uint32_t patches = 0;
    std::uint32_t leaves = 0;                   ///< patches that only come close to the limit surface
    std::map<int, std::uint32_t> patch_levels;  ///< patches by level; -1: whole quads of a cage that took a step
};

struct MapStatistics {
    std::string name;
    std::uint32_t points = 0;
    std::uint32_t seam_edges = 0;  ///< borders of the map within the mesh
    std::uint32_t unmapped_quads = 0;
};

/// An array that grows with the mesh: its bytes, and how many of them a quad, a vertex, a tangent and a UV point take.
struct ArraySize {
    std::string name;
    std::size_t bytes = 0;
    std::size_t per_quad = 0, per_vertex = 0, per_tangent = 0, per_uv_point = 0;
    std::size_t fixed = 0;    ///< the rest
    bool is_refined = false;  ///< grows with the patches of a refined surface instead
};

VertexClasses classify_vertices(const Surface& surface);
PatchClasses classify_patches(const Surface& surface);
/// Of every quad.
std::vector<PatchClass> patch_classes(const Surface& surface);
/// One patch per quad where the surface is not refined.
RefinementStatistics refinement_statistics(const Surface& surface);
/// Used vertices by the number of edges that meet there.
std::map<std::uint32_t, std::uint32_t> valence_histogram(const SdsMeshBase& base);
std::vector<MapStatistics> uv_map_statistics(const Surface& surface);
/// Empty arrays are left out. UV maps stand in their order.
std::vector<ArraySize> array_sizes(const Surface& surface);

}  // namespace sds_model
