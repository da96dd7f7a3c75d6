// Patches of quads that are still irregular at their last level: the approximation of quads that were never refined
// (control_rules.h, tangent_rules.h), from refined points and in double precision.
#pragma once

#include "sds/mesh_base/control_rules.h"
#include "sds/mesh_base/tangent_rules.h"
#include "sds/refinement/dart_masks.h"
#include "sds/refinement/patch_topology.h"
#include "sds/refinement/regular_patches.h"

namespace sds {

class LeafPatches {
public:
    using Vec3d = GMathVec3<double>;
    using Nets = DerivativeNets<Vec3d>;

    // Fans of so many quads are walked once, for all of their corners, and begin at the corner that comes first.
    static constexpr unsigned int great_valence = 16;

    explicit LeafPatches(const RefinementLevel& level);

    // Whether the limit point of the vertex at half-edge e asks for the sums around it.
    bool needs_sums(unsigned int e);
    // The limit point of the vertex at half-edge e.
    template <class Value>
    Value limit_at(unsigned int e, const LevelValues<Value>& values);
    // `limits` holds the limit points of the face's vertices.
    template <class Value>
    void compute(unsigned int face, const LevelValues<Value>& values, const PatchLimits<Value>& limits,
                 Value* controls);
    // Replaces what differences of the controls do not tell, of the face that was computed last.
    void bend_nets(unsigned int face, const LevelValues<Vec3d>& values, Nets& nets);

private:
    using Fan = SdsMeshBase::VertexLocalTopology;

    // One reading of the level's sharpness: with its fractional edges infinitely sharp, or smooth.
    struct Reading {
        bool is_hard;
        const SdsMeshBase::EdgesTopology* edges;
        CoreArray<Fan> great_fans;  // per half-edge, valence 0 until it is asked for; empty until one is met
        Fan corner_fan(unsigned int e);
    };

    // Where a corner stands in the frame of a fan of many quads, which all of its corners share.
    struct GreatCorner {
        unsigned int frame = none;
        unsigned int number = 0;
    };

    // Most corners of leaves are regular and need no walk.
    Fan corner_fan(Reading& reading, unsigned int e) const {
        if (m_level.vertex_kinds[m_level.corner_vertices[e]] == RefinementLevel::regular_vertex) return {true, e, e, 4};
        return reading.corner_fan(e);
    }
    template <class Value>
    void compute(unsigned int face, const Fan (&fans)[4], const SdsMeshBase::EdgesTopology& edges,
                 const LevelValues<Value>& values, const PatchLimits<Value>& limits, Value* controls) const;
    // The half-edge that leaves a dart along its sharp edge; none when the vertex at half-edge e is no dart with a mask
    // of its own.
    unsigned int dart_edge(unsigned int e);
    TangentPair<double> smooth_tangents(unsigned int e, const Fan& fan, const LevelValues<Vec3d>& values);
    TangentPair<double> tangents_at(unsigned int e, const Fan& fan, const LevelValues<Vec3d>& values);
    bool has_fractional_corner(unsigned int face) const;
    template <class Value>
    void blend(unsigned int face, const Value* hard, Value* controls) const;

    const RefinementLevel& m_level;
    bool m_has_fractional = false;
    SdsMeshBase::EdgesTopology m_hard_edges;  // empty when nothing is fractional
    Reading m_soft;
    Reading m_hard;
    Fan m_fans[4] = {};  // of the face that was computed last
    CoreArray<FanFrame<double>> m_great_frames;
    CoreArray<GreatCorner> m_great_corners;  // per half-edge, empty until one is met
};

template <class Value>
Value LeafPatches::limit_at(unsigned int e, const LevelValues<Value>& values) {
    const unsigned int v = m_level.corner_vertices[e];
    const unsigned int sharp = dart_edge(e);
    if (sharp == none) return limit_point(m_level, values, v);
    const unsigned int n = m_level.valences[v];
    return sum_dart_ring(m_level, sharp, n, dart_mask(n).limit, values.points.get_data());
}

template <class Value>
void LeafPatches::compute(unsigned int face, const Fan (&fans)[4], const SdsMeshBase::EdgesTopology& edges,
                          const LevelValues<Value>& values, const PatchLimits<Value>& limits, Value* controls) const {
    smooth_controls(
        m_level.corner_vertices.get_data() + 4 * size_t{face}, leaf_patch(m_level, face, fans, edges),
        [&](unsigned int w) -> const Value& { return values.points[w]; },
        [&](unsigned int w) -> const Value& { return limits.get(w); }, controls);
}

template <class Value>
void LeafPatches::compute(unsigned int face, const LevelValues<Value>& values, const PatchLimits<Value>& limits,
                          Value* controls) {
    for (unsigned int k = 0; k < 4; ++k) m_fans[k] = corner_fan(m_soft, 4 * face + k);
    compute(face, m_fans, *m_soft.edges, values, limits, controls);
    if (!has_fractional_corner(face)) return;
    Value hard[16];
    Fan fans[4];
    for (unsigned int k = 0; k < 4; ++k) fans[k] = corner_fan(m_hard, 4 * face + k);
    compute(face, fans, *m_hard.edges, values, limits, hard);
    blend(face, hard, controls);
}

// Shares belong to what patches share: a control beside a vertex has the vertex's, one on a fractional edge the edge's.
template <class Value>
void LeafPatches::blend(unsigned int face, const Value* hard, Value* controls) const {
    using Scalar = typename ValueOps<Value>::Scalar;
    const auto mix = [&](unsigned int i, float w) {
        const auto share = static_cast<Scalar>(w);
        controls[i] = hard[i] * share + controls[i] * (Scalar(1) - share);
    };
    for (unsigned int k = 0; k < 4; ++k) {
        const unsigned int c = 4 * face + k;
        const SharpVertex* vertex = m_level.sharp_vertex(m_level.corner_vertices[c]);
        const float share = vertex != nullptr ? fractional_share(*vertex) : 1.0f;
        const auto edge_share = [&](unsigned int corner) {
            const float s = m_level.sharpness_at(corner);
            return is_fractional(s) ? remaining_weight(s) : share;
        };
        mix(interior_control(k), share);
        mix(leaving_edge_control(k), edge_share(c));
        mix(arriving_edge_control(k), edge_share(previous_in_quad(c)));
    }
}

}  // namespace sds
