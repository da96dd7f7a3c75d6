#include "sds/refinement/depth_per_vertex.h"

#include <algorithm>
#include <utility>

namespace sds {

DepthPerVertex::DepthPerVertex(const CoreBasicArray<GMathVec3<float>>& positions, unsigned int vertex_count,
                               const RefinementOptions& options)
    : m_smooth_triangles(options.smooth_triangles) {
    m_values.points.assign(vertex_count, Vec3d(0, 0, 0));
    Vec3d low(0, 0, 0), high(0, 0, 0);
    for (unsigned int v = 0; v < positions.get_count(); ++v) {
        const Vec3d p(positions[v]);
        m_values.points[v] = p;
        for (unsigned int i = 0; i < 3; ++i) {
            low[i] = v == 0 ? p[i] : std::min(low[i], p[i]);
            high[i] = v == 0 ? p[i] : std::max(high[i], p[i]);
        }
    }
    m_error = options.error * (high - low).length();
}

// Sharp vertices have no distance that tells: creases and corners are close to their limit at once. Their patches are
// off by some share of their size, hence a tenth of the longest edge.
bool DepthPerVertex::is_close(const RefinementLevel& level, unsigned int v) const {
    const SharpVertex* vertex = level.sharp_vertex(v);
    if (vertex == nullptr)
        return (m_values.points[v] - smooth_limit(level, m_values, v)).length_squared() < m_error * m_error;
    // The quads along a fractional crease belong together: they go on until their sharpness is resolved.
    return !vertex->is_fractional() && m_longest_edges[v] < 100.0 * m_error * m_error;
}

void DepthPerVertex::stop(RefinementLevel& level) {
    if (level.depth < 1) return;
    sum_neighbors(level, m_values);
    m_longest_edges.assign(level.vertex_count, 0.0);
    for (unsigned int c = 0; c < level.corner_vertices.get_count(); ++c) {
        const unsigned int a = level.edge_start(c);
        const unsigned int b = level.edge_end(c);
        const double squared = (m_values.points[a] - m_values.points[b]).length_squared();
        m_longest_edges[a] = std::max(m_longest_edges[a], squared);
        m_longest_edges[b] = std::max(m_longest_edges[b], squared);
    }
    enum Decision : unsigned char { unknown, stops, goes };
    CoreArray<unsigned char> decisions(level.vertex_count, static_cast<unsigned char>(unknown));
    const auto for_each_irregular_corner = [&level](unsigned int f, const auto& visit) {
        const unsigned int regular = find_regular_corners(level, f);
        for (unsigned int k = 0; k < 4; ++k)
            if ((regular >> k & 1u) == 0) visit(level.corner_vertices[4 * f + k]);
    };
    const auto goes_on = [&](unsigned int f) {
        bool any = false;
        for_each_irregular_corner(f, [&](unsigned int v) { any |= decisions[v] == goes; });
        return any;
    };
    for (unsigned int f = 0; f < level.candidate_count; ++f) {
        if (level.states[f] != FaceState::refined) continue;
        for_each_irregular_corner(f, [&](unsigned int v) {
            if (decisions[v] == unknown) decisions[v] = is_close(level, v) ? stops : goes;
        });
    }
    // Where a quad has more than one irregular vertex after all, as along borders that stay, they go on together.
    for (bool is_changed = true; is_changed;) {
        is_changed = false;
        for (unsigned int f = 0; f < level.candidate_count; ++f) {
            if (level.states[f] != FaceState::refined || !goes_on(f)) continue;
            for_each_irregular_corner(f, [&](unsigned int v) {
                is_changed |= decisions[v] != goes;
                decisions[v] = goes;
            });
        }
    }
    for (unsigned int f = 0; f < level.candidate_count; ++f)
        if (level.states[f] == FaceState::refined && !goes_on(f)) level.states[f] = FaceState::leaf;
}

void DepthPerVertex::refine(const RefinementLevel& level, const RefinementLevel& fine) {
    if (level.depth < 1) sum_neighbors(level, m_values);
    refine_values(level, fine, m_smooth_triangles && !level.is_quads(), m_values, m_next);
    std::swap(m_values, m_next);
}

}  // namespace sds
