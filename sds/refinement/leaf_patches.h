// Patches of quads that are still irregular at their last level: the approximation of quads that were never refined
// (control_rules.h, tangent_rules.h), from refined points and in double precision.
#pragma once

#include "sds/mesh_base/tangent_rules.h"
#include "sds/refinement/dart_masks.h"
#include "sds/refinement/value_rules.h"

namespace sds {

class LeafPatches {
public:
    using Vec3d = GMathVec3<double>;
    using Nets = DerivativeNets<Vec3d>;

    LeafPatches(const RefinementLevel& level, DartMasks& darts);

    // The limit point of the vertex at half-edge e.
    Vec3d limit_at(unsigned int e, const LevelValues<Vec3d>& values);
    // `limits` holds the limit points of the level's vertices.
    void compute(unsigned int face, const LevelValues<Vec3d>& values, const Vec3d* limits, Vec3d* controls);
    // From the controls that compute gave.
    void compute_nets(unsigned int face, const LevelValues<Vec3d>& values, const Vec3d* controls, Nets& nets);

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

    void compute(unsigned int face, Reading& reading, const LevelValues<Vec3d>& values, const Vec3d* limits,
                 Vec3d* controls) const;
    // The half-edge that leaves a dart along its sharp edge; none when the vertex at half-edge e is no dart with a mask
    // of its own.
    unsigned int dart_edge(unsigned int e);
    TangentPair<double> smooth_tangents(unsigned int e, const Fan& fan, const LevelValues<Vec3d>& values);
    TangentPair<double> tangents_at(unsigned int e, const Fan& fan, const LevelValues<Vec3d>& values);
    bool has_fractional_corner(unsigned int face) const;
    void blend(unsigned int face, const Vec3d* hard, Vec3d* controls) const;

    const RefinementLevel& m_level;
    DartMasks& m_darts;
    bool m_has_fractional = false;
    SdsMeshBase::EdgesTopology m_hard_edges;  // empty when nothing is fractional
    Reading m_soft;
    Reading m_hard;
    CoreArray<FanFrame<double>> m_great_frames;
    CoreArray<GreatCorner> m_great_corners;  // per half-edge, empty until one is met
};

}  // namespace sds
