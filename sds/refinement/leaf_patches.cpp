#include "sds/refinement/leaf_patches.h"

#include <bit>

namespace sds {

LeafPatches::LeafPatches(const RefinementLevel& level)
    : m_level(level), m_soft{false, &level.edges, {}}, m_hard{true, &m_hard_edges, {}} {
    for (const SharpVertex& vertex : level.sharp_vertices) m_has_fractional |= vertex.is_fractional();
    if (!m_has_fractional) return;
    m_hard_edges = level.edges;
    for (const unsigned int e : level.sharp_edges) {
        const unsigned int h = level.edge_corners[e];
        if (h == none) continue;  // half of an edge from a vertex to itself
        for (const unsigned int side : {h, level.edges.opposite_edges[h]}) {
            if (side == none) continue;
            unsigned char& flags = m_hard_edges.quad_edge_flags[quad_of(side)];
            flags = static_cast<unsigned char>(flags | 1u << corner_of(side));
        }
    }
}

// A large fan is walked once for all of its corners, which keeps huge valences linear.
SdsMeshBase::VertexLocalTopology LeafPatches::Reading::corner_fan(unsigned int e) {
    if (!great_fans.is_empty() && great_fans[e].valence != 0) return great_fans[e];
    Fan fan;
    SdsMeshBase::analyse_vertex_local_topology(*edges, e, fan);
    if (fan.valence < great_valence) return fan;
    if (great_fans.is_empty()) great_fans.assign(edges->opposite_edges.get_count(), Fan{false, none, none, 0});
    const bool is_smooth = fan.closed && !edges->is_sharp(fan.last_edge);
    unsigned int h = fan.first_edge;
    for (unsigned int i = 0; i < fan.valence; ++i) {
        great_fans[h] = fan;
        if (is_smooth) great_fans[h].first_edge = great_fans[h].last_edge = h;
        if (i + 1 < fan.valence) h = next_in_quad(edges->opposite_edges[h]);
    }
    return fan;
}

unsigned int LeafPatches::dart_edge(unsigned int e) {
    const SharpVertex* vertex = m_level.sharp_vertex(m_level.corner_vertices[e]);
    if (vertex == nullptr || !vertex->is_dart()) return none;
    const Fan fan = m_soft.corner_fan(e);
    const bool has_mask = fan.closed && fan.valence > 2 && fan.valence <= max_dart_valence;
    return has_mask ? fan.last_edge : none;
}

bool LeafPatches::needs_sums(unsigned int e) {
    const SharpVertex* vertex = m_level.sharp_vertex(m_level.corner_vertices[e]);
    if (vertex == nullptr || vertex->is_fractional()) return true;
    const VertexRule rule = vertex_rule(vertex->sharpness, vertex->edge_count);
    return rule != VertexRule::corner && rule != VertexRule::crease && dart_edge(e) == none;
}

TangentPair<double> LeafPatches::smooth_tangents(unsigned int e, const Fan& fan, const LevelValues<Vec3d>& values) {
    const unsigned int* vertices = m_level.corner_vertices.get_data();
    const auto point = [&](unsigned int w) -> const Vec3d& { return values.points[w]; };
    if (fan.valence <= max_summed_valence) return limit_tangents<ExactTrig>(vertices, m_level.edges, e, fan, point);
    if (m_great_corners.is_empty()) m_great_corners.assign(m_level.corner_vertices.get_count(), GreatCorner());
    if (m_great_corners[e].frame == none) {
        const unsigned int index = m_great_frames.get_count();
        m_great_frames.add(great_fan_frame(vertices, m_level.edges, e, fan, point, [&](unsigned int h, unsigned int i) {
            m_great_corners[h] = {index, i};
        }));
    }
    const GreatCorner& corner = m_great_corners[e];
    return great_fan_tangents<double>(m_great_frames[corner.frame], fan, corner.number);
}

// The tangents of a smooth vertex, turned into the dart's tangent plane.
TangentPair<double> LeafPatches::tangents_at(unsigned int e, const Fan& fan, const LevelValues<Vec3d>& values) {
    TangentPair<double> tangents = smooth_tangents(e, fan, values);
    const unsigned int sharp = dart_edge(e);
    if (sharp == none) return tangents;
    const DartMask& mask = dart_mask(fan.valence);
    const Vec3d normal = sum_dart_ring(m_level, sharp, fan.valence, mask.along, values.points.get_data())
                             .cross(sum_dart_ring(m_level, sharp, fan.valence, mask.across, values.points.get_data()));
    const double squared = normal.length_squared();
    if (!(squared > 0.0)) return tangents;
    tangents.t1 -= normal * (normal.dot(tangents.t1) / squared);
    tangents.t2 -= normal * (normal.dot(tangents.t2) / squared);
    return tangents;
}

bool LeafPatches::has_fractional_corner(unsigned int face) const {
    if (!m_has_fractional) return false;
    for (unsigned int k = 0; k < 4; ++k) {
        const SharpVertex* vertex = m_level.sharp_vertex(m_level.corner_vertices[4 * face + k]);
        if (vertex != nullptr && vertex->is_fractional()) return true;
    }
    return false;
}

void LeafPatches::bend_nets(unsigned int face, const LevelValues<Vec3d>& values, Nets& nets) {
    // Differences of blended controls are all that a crease on its way to smoothness has.
    if (has_fractional_corner(face)) return;
    SdsMeshBase::PatchTangentInfo info{};
    SdsMeshBase::compute_tangent_infos(1, m_fans, &info, false, nullptr);
    // Between sharp edges that turn inwards the crease's tangents do not hold: the controls' differences do better.
    for (unsigned int corners = info.irregular & 15u; corners != 0; corners &= corners - 1) {
        const auto k = static_cast<unsigned int>(std::countr_zero(corners));
        const SharpVertex* vertex = m_level.sharp_vertex(m_level.corner_vertices[4 * face + k]);
        if (vertex != nullptr && vertex->is_corner()) info.irregular &= ~(1u << k);
    }
    replace_irregular_entries<ExactTrig>(
        m_level.edges, face, info.irregular, m_fans,
        [&](unsigned int e, const Fan& fan) { return tangents_at(e, fan, values); }, nets);
}

}  // namespace sds
