// Patches of quads that are still irregular at their last level: the approximation of quads that were never refined
// (control_rules.h, tangent_rules.h), from refined points and in double precision.
#pragma once

#include "sds/mesh_base/tangent_rules.h"
#include "sds/refinement/value_rules.h"

namespace sds {

class LeafPatches {
public:
    using Vec3d = GMathVec3<double>;
    using Nets = DerivativeNets<Vec3d>;

    explicit LeafPatches(const RefinementLevel& level);

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
        CoreArray<Fan> fans;  // per half-edge, valence 0 until it is asked for
        const Fan* corner_fans(unsigned int face);
    };

    void compute(unsigned int face, Reading& reading, const LevelValues<Vec3d>& values, const Vec3d* limits,
                 Vec3d* controls) const;
    bool has_fractional_corner(unsigned int face) const;
    void blend(unsigned int face, const Vec3d* hard, Vec3d* controls) const;

    const RefinementLevel& m_level;
    SdsMeshBase::EdgesTopology m_hard_edges;  // empty when nothing is fractional
    Reading m_soft;
    Reading m_hard;
};

}  // namespace sds
