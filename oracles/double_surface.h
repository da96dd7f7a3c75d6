// The surface once more in double precision: the rules' templates on the topology of a built surface. What holds in
// exact arithmetic holds here to about 1e-15, so that single-precision rounding does not hide a wrong rule.
#pragma once

#include "oracles/built_surface.h"
#include "sds/common/cubic_basis.h"
#include "sds/mesh_base/tangent_rules.h"

namespace sds_test {

using NetsD = sds::DerivativeNets<Vec3d>;

// A point with its two derivatives per patch parameter.
struct SurfacePoint {
    Vec3d position;
    Vec3d du;
    Vec3d dv;
    Vec3d normal_direction() const { return du.cross(dv); }
};

// Derivatives of the nets at (u, v); position is left zero.
SurfacePoint evaluate_nets(const NetsD& nets, double u, double v);

class DoubleSurface {
public:
    // `surface` has smooth patches and outlives this.
    DoubleSurface(const ZooMesh& cage, const BuiltSurface& surface);

    // The sixteen controls in corner order.
    void get_controls(unsigned int quad, Vec3d* out) const;
    // The derivative nets with the limit tangents in place.
    NetsD get_nets(unsigned int quad) const;
    // Position of the patch, derivatives of the nets.
    SurfacePoint evaluate(unsigned int quad, double u, double v) const;

private:
    const BuiltSurface& m_surface;
    std::vector<Vec3d> m_vertices;
    std::vector<Vec3d> m_corners;
};

}  // namespace sds_test
