#pragma once

#include "model/surface.h"

#include <cstdint>
#include <vector>

namespace sds_model {

/// A grid of points over the quads of a mesh, numbered so that neighboring quads share the points of their corners and
/// edges. Neighbors of opposite winding share corners only: their patches part ways along the edge. Points of a quad
/// are addressed by (i, j), both 0 .. cells, i along u (edge 0), j along v (edge 3 backwards).
class WeldedGrid {
public:
    /// `quad_indices` has four vertices per quad; quads with an index 0xFFFFFFFF get no points. Both arrays outlive the
    /// grid. Throws std::length_error when there are more than 2^32 - 1 points.
    WeldedGrid(const CoreBasicArray<unsigned int>& quad_indices, const CoreBasicArray<unsigned int>& opposite_edges,
               unsigned int cells);

    bool has_quad(std::uint32_t quad) const { return m_interiors[quad] != none; }
    std::uint32_t get_point_count() const { return m_point_count; }
    /// Number of a point of a quad that has points.
    std::uint32_t point(std::uint32_t quad, unsigned int i, unsigned int j) const;

private:
    static constexpr std::uint32_t none = 0xFFFFFFFFu;

    std::uint32_t edge_point(std::uint32_t half_edge, unsigned int t) const;
    std::uint32_t end_vertex(std::uint32_t half_edge) const {
        return m_quad_indices[(half_edge & ~3u) | ((half_edge + 1) & 3u)];
    }

    const CoreBasicArray<unsigned int>& m_quad_indices;
    unsigned int m_cells;
    std::uint32_t m_point_count = 0;
    std::vector<std::uint32_t> m_corners;    // point per vertex
    std::vector<std::uint32_t> m_owners;     // half-edge that numbers the points of each half-edge
    std::vector<std::uint32_t> m_edges;      // first inner point per owning half-edge
    std::vector<std::uint32_t> m_interiors;  // first inner point per quad; none where the quad has no points
};

/// Quads with shared vertices, ready to be written.
struct Tessellation {
    std::vector<float> positions;  // x y z per vertex
    std::vector<std::uint32_t> polygon_counts;
    std::vector<std::uint32_t> polygon_indices;
    std::vector<float> uv_points;           // u v w; empty without UVs
    std::vector<std::uint32_t> uv_indices;  // per face-corner, 0xFFFFFFFF where not mapped; empty without UVs
};

/// Bytes of a Tessellation for every cell of it.
std::size_t tessellated_cell_size(const Surface& surface, unsigned int uv_map);

/// The flat cells of a level (at least 1) at a time, row by row within each quad of the surface; holes have none.
/// `uv_map` is ignored when the surface has no such map. Throws std::length_error when the level gives too many
/// vertices, what Surface::check_time throws, and what `progress` throws to cancel; it may be null.
Tessellation tessellate(const Surface& surface, unsigned int level, double time, unsigned int uv_map,
                        AppProgressBar* progress = nullptr);

}  // namespace sds_model
