// The differential surface at a fragment of the limit patch.
#include <algorithm>
#include <limits>

#include "qn_ctx/ctx_eval.h"
#include "sds/common/cubic_basis.h"
#include "sds/common/point_lanes.h"
#include "sds/mesh_base/tangent_rules.h"
#include "sds/mesh_geometry/pair_kernels/pair_kernels.h"
#include "sds/mesh_geometry/sds_mesh_geometry.h"
#include "sds/refinement/patch_places.h"

using Vec3f = GMathVec3<float>;
using Vec3d = GMathVec3<double>;
using sds::PointLanes;
using Nets = sds::DerivativeNets<PointLanes>;

namespace {

// Below these shares of the patch's size, and of the product of the derivatives, there is only single-precision
// rounding.
constexpr double derivative_noise = 1e-6;
constexpr double cross_noise = 1e-6;
// How far towards the patch's center the normal is looked for when the derivatives give none.
constexpr double center_steps[] = {1.0 / 1024.0, 1.0 / 64.0, 1.0 / 4.0};

struct Derivatives {
    Vec3d du;
    Vec3d dv;
};

Vec3d widen(PointLanes p) {
    Vec3f out;
    p.store(out);
    return Vec3d(out);
}

Derivatives evaluate_nets(const Nets& nets, float u, float v) {
    Derivatives out;
    static_assert(sizeof(nets) == 24 * 4 * sizeof(float) && sizeof(out) == 6 * sizeof(double));
    sds::get_pair_kernels().evaluate_slopes(reinterpret_cast<const float(*)[4]>(&nets), u, v, &out.du[0]);
    return out;
}

// The cross product, or zero when the derivatives are parallel.
Vec3d normal_direction(const Derivatives& d) {
    const Vec3d n = d.du.cross(d.dv);
    const double noise = cross_noise * cross_noise * d.du.length_squared() * d.dv.length_squared();
    return n.length_squared() > noise ? n : Vec3d(0, 0, 0);
}

// First derivatives; one that is below the patch's rounding is no direction and counts as zero.
Derivatives significant_derivatives(const Nets& nets, const PointLanes* controls, float u, float v) {
    Derivatives d = evaluate_nets(nets, u, v);
    const auto diagonal = [controls](unsigned int a, unsigned int b) {
        return (widen(controls[sds::corner_control(a)]) - widen(controls[sds::corner_control(b)])).length_squared();
    };
    const double noise = derivative_noise * derivative_noise * std::max(diagonal(0, 2), diagonal(1, 3));
    if (!(d.du.length_squared() > noise)) d.du = {0, 0, 0};
    if (!(d.dv.length_squared() > noise)) d.dv = {0, 0, 0};
    return d;
}

// What the control net itself says: the place and the second derivatives.
struct NetPoint {
    Vec3d position, uu, uv, vv;
};

NetPoint evaluate_net(const PointLanes* controls, double u, double v) {
    NetPoint point;
    static_assert(sizeof(PointLanes) == 4 * sizeof(float) && sizeof(point) == 12 * sizeof(double));
    sds::get_pair_kernels().evaluate_net(reinterpret_cast<const float(*)[4]>(controls), u, v, &point.position[0]);
    return point;
}

// The second derivatives from nets that are differences of a control net, which keep digits that its own second
// differences lose.
void set_second_derivatives(const Nets& nets, double u, double v, NetPoint& point) {
    const sds::CubicBasis<double> cu(u), cv(v);
    const sds::QuadraticBasis<double> qu(u), qv(v);
    point.uu = point.uv = point.vv = {0, 0, 0};
    for (unsigned int r = 0; r < 4; ++r) {
        const Vec3d along_u[3] = {widen(nets.u[r][0]), widen(nets.u[r][1]), widen(nets.u[r][2])};
        const Vec3d along_v[3] = {widen(nets.v[0][r]), widen(nets.v[1][r]), widen(nets.v[2][r])};
        point.uu += ((along_u[1] - along_u[0]) * (1.0 - u) + (along_u[2] - along_u[1]) * u) * (6.0 * cv.b[r]);
        point.vv += ((along_v[1] - along_v[0]) * (1.0 - v) + (along_v[2] - along_v[1]) * v) * (6.0 * cu.b[r]);
        if (r == 3) continue;
        for (unsigned int i = 0; i < 3; ++i)
            point.uv += (widen(nets.u[r + 1][i]) - widen(nets.u[r][i])) * (9.0 * qv.b[r] * qu.b[i]);
    }
}

// Puts stored tangents, two per set bit, in the place of the differences.
template <class Vec>
void replace_entries(unsigned int irregular, const Vec3f* stored, sds::DerivativeNets<Vec>& nets) {
    if ((irregular & 0xFFu) == 0) return;
    for (unsigned int bit = 0; bit < 8; ++bit) {
        if (((irregular >> bit) & 1u) == 0) continue;
        for (unsigned int i = 0; i < 2; ++i) nets.entry(bit, i) = Vec(*stored++);
    }
}

// The stored tangents of a patch in their places.
template <class Vec>
void replace_with_stored(const SdsMeshGeometry& geometry, unsigned int primitive, sds::DerivativeNets<Vec>& nets) {
    const SdsMeshBase::PatchTangentInfo& info = geometry.get_tangent_infos()[primitive];
    replace_entries(info.irregular, geometry.get_bezier_tangents_array().get_data() + info.tangent_offset, nets);
}

// One patch relative to its first vertex, which keeps digits that coordinates far from the origin lose: the controls,
// and the derivative nets that get_bezier_tangents gives. Stored controls stand where they are, and have their nets
// from elsewhere.
struct LocalPatch {
    PointLanes controls[16];
    Vec3d origin;
    Nets nets;
    bool has_exact_nets = false;  // which are those of the control net, and not made from it

    LocalPatch(const SdsMeshGeometry& geometry, const SdsBezierMesh& mesh, unsigned int primitive)
        : origin(load(geometry, mesh, primitive, controls)), nets(controls) {}
    // At rest, of a surface that is not refined.
    LocalPatch(const SdsMeshGeometry& geometry, unsigned int primitive)
        : LocalPatch(geometry, geometry.get_bezier_mesh(), primitive) {
        replace_with_stored(geometry, primitive, nets);
    }
    // Of a refined surface; `stored` are 24 vectors.
    LocalPatch(const SdsMeshGeometry& geometry, const SdsBezierMesh& mesh, unsigned int primitive, const Vec3f* stored)
        : origin(load_stored(mesh, primitive, controls)),
          nets(controls),
          has_exact_nets(!geometry.get_places().get_patch(primitive).is_leaf()) {
        for (unsigned int i = 0; i < 24; ++i) sds::get_net_slot(nets, i) = PointLanes(stored[i]);
    }

    NetPoint evaluate(double u, double v) const {
        NetPoint point = evaluate_net(controls, u, v);
        point.position += origin;
        if (has_exact_nets) set_second_derivatives(nets, u, v, point);
        return point;
    }

private:
    static Vec3d load(const SdsMeshGeometry& geometry, const SdsBezierMesh& mesh, unsigned int primitive,
                      PointLanes* out) {
        mesh.get_local_patch_controls(primitive, out);
        return Vec3d(mesh.get_quad_vertices()[geometry.get_base()->get_quad_indices(primitive)[0]]);
    }
    static Vec3d load_stored(const SdsBezierMesh& mesh, unsigned int primitive, PointLanes* out) {
        Vec3f stored[16];
        mesh.get_patch_controls(primitive, stored);
        for (unsigned int i = 0; i < 16; ++i) out[i] = PointLanes(stored[i]);
        return {0, 0, 0};
    }
};

// The patch at rest. It is too large to be copied on its way.
LocalPatch compute_resting(const SdsMeshGeometry& geometry, unsigned int primitive) {
    if (geometry.is_refined()) {
        Vec3f nets[24];
        geometry.get_bezier_tangents(primitive, nets);
        return {geometry, geometry.get_bezier_mesh(), primitive, nets};
    }
    return {geometry, primitive};
}

// The patch of the surface as it stands in `mesh`, which moves.
LocalPatch compute_moved(const SdsMeshGeometry& geometry, const SdsBezierMesh& mesh, unsigned int primitive) {
    LocalPatch patch(geometry, mesh, primitive);
    const SdsMeshBase::PatchTangentInfo& info = geometry.get_tangent_infos()[primitive];
    if (info.irregular == 0) return patch;
    Vec3f tangents[16];
    SdsMeshBase::compute_bezier_tangents(mesh, geometry.get_base()->get_edges(), primitive, info,
                                         geometry.get_local_topologies().get_data() + 4 * size_t{primitive}, tangents);
    replace_entries(info.irregular, tangents, patch.nets);
    return patch;
}

// A direction for the normal where the derivatives at (u, v) give none.
Vec3d fallback_normal(const Nets& nets, const PointLanes* controls, double u, double v) {
    for (const double step : center_steps) {
        const Vec3d n = normal_direction(
            evaluate_nets(nets, static_cast<float>(u + (0.5 - u) * step), static_cast<float>(v + (0.5 - v) * step)));
        if (n.length_squared() > 0.0) return n;
    }
    const Vec3d diagonal02 = widen(controls[sds::corner_control(2)]) - widen(controls[sds::corner_control(0)]);
    const Vec3d diagonal13 = widen(controls[sds::corner_control(3)]) - widen(controls[sds::corner_control(1)]);
    return diagonal02.cross(diagonal13);
}

}  // namespace

void SdsMeshGeometry::get_bezier_tangents(const unsigned int& primitive, Vec3f* out) const {
    if (refinement) return get_refined_nets_at(primitive, 0.0, out);
    Vec3f controls[16];
    get_bezier_controls(primitive, controls);
    sds::DerivativeNets<Vec3f> nets(controls);
    replace_with_stored(*this, primitive, nets);
    std::copy(&nets.u[0][0], &nets.u[0][0] + 12, out);
    std::copy(&nets.v[0][0], &nets.v[0][0] + 12, out + 12);
}

void SdsMeshGeometry::compute_fragment_sample(const CtxEval& ctx, const GeometryFragment& fragment,
                                              GeometrySample& sample) const {
    if (fragment.primitive >= get_patch_count() || is_patch_void(fragment.primitive)) return;
    const auto u = static_cast<float>(fragment.u);
    const auto v = static_cast<float>(fragment.v);

    const auto init = [&](const LocalPatch& patch, const NetPoint& at, GeometrySample& out) {
        Derivatives d = significant_derivatives(patch.nets, patch.controls, u, v);
        out.set_fallback_normal({0, 0, 0});
        if (normal_direction(d).length_squared() == 0.0) {
            out.set_fallback_normal(fallback_normal(patch.nets, patch.controls, fragment.u, fragment.v));
            // Parallel but for rounding, whose cross product must not pass for a direction.
            if (d.du.length_squared() > 0.0) d.dv = d.du * (d.du.dot(d.dv) / d.du.length_squared());
        }
        out.init_surface(at.position, d.du, d.dv, at.uu, at.uv, at.vv);
    };

    const LocalPatch patch = compute_resting(*this, fragment.primitive);
    if (!is_rest_time(fragment.time)) {
        const SdsBezierMesh mesh =
            get_bezier_mesh_at(fragment.time, ctx.get_shader_ctx()->get_motion_blur().get_time_sampling());
        Vec3f moved_nets[24];
        if (refinement) get_refined_nets_at(fragment.primitive, fragment.time, moved_nets);
        const LocalPatch moved_patch = refinement ? LocalPatch(*this, mesh, fragment.primitive, moved_nets)
                                                  : compute_moved(*this, mesh, fragment.primitive);
        const NetPoint at = moved_patch.evaluate(fragment.u, fragment.v);
        GeometrySample moved;
        init(moved_patch, at, moved);
        init(patch, at, sample);
        sample.set_smoothing(at.position, moved.get_geometric_normal(), moved.get_geometric_dndu(),
                             moved.get_geometric_dndv());
    } else {
        // The smoothing part is the same at rest.
        init(patch, patch.evaluate(fragment.u, fragment.v), sample);
    }

    Vec3f velocities[16];
    if (get_bezier_velocities(fragment, velocities)) {
        PointLanes lanes[16];
        for (unsigned int i = 0; i < 16; ++i) lanes[i] = PointLanes(velocities[i]);
        sample.set_geometric_position_dt(evaluate_net(lanes, fragment.u, fragment.v).position);
    }
}

SdsMeshGeometry::LimitPoint SdsMeshGeometry::compute_limit_point(const LimitPlace& place) const {
    if (is_patch_void(place.primitive)) {
        constexpr float nan = std::numeric_limits<float>::quiet_NaN();
        constexpr Vec3f nowhere(nan, nan, nan);
        return {nowhere, nowhere, nowhere, nowhere};
    }
    const LocalPatch patch = compute_resting(*this, place.primitive);
    const auto u = static_cast<double>(place.u), v = static_cast<double>(place.v);
    const Derivatives d = significant_derivatives(patch.nets, patch.controls, place.u, place.v);
    Vec3d normal = normal_direction(d);
    if (normal.length_squared() == 0.0) normal = fallback_normal(patch.nets, patch.controls, u, v);
    const double length = normal.length();
    if (length > 0.0) normal = normal * (1.0 / length);
    return {Vec3f(patch.evaluate(u, v).position), Vec3f(d.du), Vec3f(d.dv), Vec3f(normal)};
}

void SdsMeshGeometry::compute_edge_sample(const unsigned int& primitive, const unsigned int& edge, const double& t,
                                          const bool& reversed, GeometrySample& sample) const {
    const double along = reversed ? 1.0 - t : t;
    GeometryFragment fragment;
    fragment.primitive = primitive;
    switch (edge) {
        case 0:
            fragment.u = along, fragment.v = 0.0;
            break;
        case 1:
            fragment.u = 1.0, fragment.v = along;
            break;
        case 2:
            fragment.u = 1.0 - along, fragment.v = 1.0;
            break;
        default:
            fragment.u = 0.0, fragment.v = 1.0 - along;
            break;
    }
    const CtxShader at_rest;
    compute_fragment_sample(CtxEval(at_rest), fragment, sample);
}
