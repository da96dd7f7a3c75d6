#include "sds/refinement/leaf_patches.h"

#include "sds/mesh_base/control_rules.h"
#include "sds/refinement/patch_topology.h"

namespace sds {

LeafPatches::LeafPatches(const RefinementLevel& level, DartMasks& darts)
    : m_level(level), m_darts(darts), m_soft{false, &level.edges, {}}, m_hard{true, &m_hard_edges, {}} {
    const Fan unknown{false, none, none, 0};
    m_soft.fans.assign(4 * level.face_count, unknown);
    bool has_fractional = false;
    for (const unsigned int e : level.sharp_edges) has_fractional |= is_fractional(level.edge_sharpness[e]);
    for (const SharpVertex& vertex : level.tagged_vertices) has_fractional |= is_fractional(vertex.sharpness);
    if (!has_fractional) return;
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
    m_hard.fans.assign(4 * level.face_count, unknown);
}

// A fan is walked once for all of its corners, which keeps huge valences linear.
const SdsMeshBase::VertexLocalTopology* LeafPatches::Reading::corner_fans(unsigned int face) {
    for (unsigned int e = 4 * face; e < 4 * face + 4; ++e) {
        if (fans[e].valence != 0) continue;
        Fan fan;
        SdsMeshBase::analyse_vertex_local_topology(*edges, e, fan);
        const bool is_smooth = fan.closed && !edges->is_sharp(fan.last_edge);
        unsigned int h = fan.first_edge;
        for (unsigned int i = 0; i < fan.valence; ++i) {
            fans[h] = fan;
            if (is_smooth) fans[h].first_edge = fans[h].last_edge = h;
            if (i + 1 < fan.valence) h = next_in_quad(edges->opposite_edges[h]);
        }
    }
    return fans.get_data() + 4 * size_t{face};
}

unsigned int LeafPatches::dart_edge(unsigned int e) {
    const SharpVertex* vertex = m_level.sharp_vertex(m_level.corner_vertices[e]);
    if (vertex == nullptr || !vertex->is_dart()) return none;
    const Fan& fan = m_soft.corner_fans(quad_of(e))[corner_of(e)];
    const bool has_mask = fan.closed && fan.valence > 2 && fan.valence <= DartMasks::max_valence;
    return has_mask ? fan.last_edge : none;
}

LeafPatches::Vec3d LeafPatches::limit_at(unsigned int e, const LevelValues<Vec3d>& values) {
    const unsigned int v = m_level.corner_vertices[e];
    const unsigned int sharp = dart_edge(e);
    if (sharp == none) return limit_point(m_level, values, v);
    const unsigned int n = m_level.valences[v];
    return sum_dart_ring(m_level, sharp, n, m_darts.get(n).limit, values.points.get_data());
}

// The tangents of a smooth vertex, turned into the dart's tangent plane.
TangentPair<double> LeafPatches::tangents_at(unsigned int e, const Fan& fan, const LevelValues<Vec3d>& values) {
    const auto point = [&](unsigned int w) -> const Vec3d& { return values.points[w]; };
    TangentPair<double> tangents =
        limit_tangents<ExactTrig>(m_level.corner_vertices.get_data(), m_level.edges, e, fan, point);
    const unsigned int sharp = dart_edge(e);
    if (sharp == none) return tangents;
    const DartMask& mask = m_darts.get(fan.valence);
    const Vec3d normal = sum_dart_ring(m_level, sharp, fan.valence, mask.along, values.points.get_data())
                             .cross(sum_dart_ring(m_level, sharp, fan.valence, mask.across, values.points.get_data()));
    const double squared = normal.length_squared();
    if (!(squared > 0.0)) return tangents;
    tangents.t1 -= normal * (normal.dot(tangents.t1) / squared);
    tangents.t2 -= normal * (normal.dot(tangents.t2) / squared);
    return tangents;
}

bool LeafPatches::has_fractional_corner(unsigned int face) const {
    if (m_hard.fans.is_empty()) return false;
    for (unsigned int k = 0; k < 4; ++k) {
        const SharpVertex* vertex = m_level.sharp_vertex(m_level.corner_vertices[4 * face + k]);
        if (vertex != nullptr && vertex->is_fractional()) return true;
    }
    return false;
}

void LeafPatches::compute(unsigned int face, Reading& reading, const LevelValues<Vec3d>& values, const Vec3d* limits,
                          Vec3d* controls) const {
    const Fan* fans = reading.corner_fans(face);
    SdsMeshBase::BezierPatch patch = regular_patch(m_level, face);
    for (unsigned int k = 0; k < 4; ++k) {
        const auto n = static_cast<float>(fans[k].valence);
        patch.edge_weights[k] = fans[k].closed ? n + n : 4.0f * n;
        patch.corner_weights[k] = fans[k].closed ? n : std::max(4.0f, n + n);
        const unsigned int bit = 1u << k;
        patch.sharp_edges = reading.edges->is_sharp(4 * face + k) ? patch.sharp_edges | bit : patch.sharp_edges & ~bit;
    }
    smooth_controls(
        m_level.corner_vertices.get_data() + 4 * size_t{face}, patch,
        [&](unsigned int w) -> const Vec3d& { return values.points[w]; },
        [&](unsigned int w) -> const Vec3d& { return limits[w]; }, controls);
}

void LeafPatches::compute(unsigned int face, const LevelValues<Vec3d>& values, const Vec3d* limits, Vec3d* controls) {
    compute(face, m_soft, values, limits, controls);
    if (!has_fractional_corner(face)) return;
    Vec3d hard[16];
    compute(face, m_hard, values, limits, hard);
    blend(face, hard, controls);
}

// Shares belong to what patches share: a control beside a vertex has the vertex's, one on a fractional edge the edge's.
void LeafPatches::blend(unsigned int face, const Vec3d* hard, Vec3d* controls) const {
    const auto mix = [&](unsigned int i, double w) { controls[i] = hard[i] * w + controls[i] * (1.0 - w); };
    for (unsigned int k = 0; k < 4; ++k) {
        const unsigned int c = 4 * face + k;
        const SharpVertex* vertex = m_level.sharp_vertex(m_level.corner_vertices[c]);
        const double share = vertex != nullptr ? static_cast<double>(fractional_share(*vertex)) : 1.0;
        const auto edge_share = [&](unsigned int corner) {
            const float s = m_level.sharpness_at(corner);
            return is_fractional(s) ? static_cast<double>(remaining_weight(s)) : share;
        };
        mix(interior_control(k), share);
        mix(leaving_edge_control(k), edge_share(c));
        mix(arriving_edge_control(k), edge_share(previous_in_quad(c)));
    }
}

void LeafPatches::compute_nets(unsigned int face, const LevelValues<Vec3d>& values, const Vec3d* controls, Nets& nets) {
    nets = Nets(controls);
    // Differences of blended controls are all that a crease on its way to smoothness has.
    if (has_fractional_corner(face)) return;
    const Fan* fans = m_soft.corner_fans(face);
    SdsMeshBase::PatchTangentInfo info;
    SdsMeshBase::compute_tangent_infos(1, fans, &info, false, nullptr);
    // Between sharp edges that turn inwards the crease's tangents do not hold: the controls' differences do better.
    for (unsigned int k = 0; k < 4; ++k) {
        const SharpVertex* vertex = m_level.sharp_vertex(m_level.corner_vertices[4 * face + k]);
        if (vertex != nullptr && vertex->is_corner()) info.irregular &= ~(1u << k);
    }
    replace_irregular_entries<ExactTrig>(
        m_level.edges, face, info.irregular, fans,
        [&](unsigned int e, const Fan& fan) { return tangents_at(e, fan, values); }, nets);
}

}  // namespace sds
