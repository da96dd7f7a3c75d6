// The differential surface at a fragment of the limit patch.
#include <algorithm>
#include <cmath>

#include "qn_ctx/ctx_eval.h"
#include "sds/common/cubic_basis.h"
#include "sds/mesh_base/tangent_rules.h"
#include "sds/mesh_geometry/sds_mesh_geometry.h"

using Vec3f = GMathVec3<float>;
using Vec3d = GMathVec3<double>;
using Nets = sds::DerivativeNets<Vec3f>;

namespace {

constexpr double degree = 3.0;
// Below these shares of the patch's size, and of the product of the derivatives, there is only single-precision
// rounding.
constexpr double derivative_noise = 1e-6;
constexpr double cross_noise = 1e-6;
// How far towards the patch's centre the normal is looked for when the derivatives give none.
constexpr double centre_steps[] = {1.0 / 1024.0, 1.0 / 64.0, 1.0 / 4.0};

struct Derivatives {
    Vec3d du;
    Vec3d dv;
};

Derivatives evaluate_nets(const Nets& nets, float u, float v) {
    const sds::CubicBasis<float> cu(u);
    const sds::CubicBasis<float> cv(v);
    const sds::QuadraticBasis<float> qu(u);
    const sds::QuadraticBasis<float> qv(v);
    Vec3f rows[4];
    for (unsigned int r = 0; r < 4; ++r) rows[r] = sds::quadratic_sum(qu, nets.u[r][0], nets.u[r][1], nets.u[r][2]);
    const Vec3f du = sds::cubic_sum(cv, rows[0], rows[1], rows[2], rows[3]);
    for (unsigned int r = 0; r < 3; ++r)
        rows[r] = sds::cubic_sum(cu, nets.v[r][0], nets.v[r][1], nets.v[r][2], nets.v[r][3]);
    const Vec3f dv = sds::quadratic_sum(qv, rows[0], rows[1], rows[2]);
    return {Vec3d(du) * degree, Vec3d(dv) * degree};
}

// The cross product, or zero when the derivatives are parallel.
Vec3d normal_direction(const Derivatives& d) {
    const Vec3d n = d.du.cross(d.dv);
    return n.length() > cross_noise * d.du.length() * d.dv.length() ? n : Vec3d(0, 0, 0);
}

// First derivatives; one that is below the patch's rounding is no direction and counts as zero.
Derivatives significant_derivatives(const Nets& nets, const Vec3f* controls, float u, float v) {
    Derivatives d = evaluate_nets(nets, u, v);
    const auto diagonal = [controls](unsigned int a, unsigned int b) {
        return (Vec3d(controls[sds::corner_control(a)]) - Vec3d(controls[sds::corner_control(b)])).length();
    };
    const double noise = derivative_noise * std::max(diagonal(0, 2), diagonal(1, 3));
    if (!(d.du.length() > noise)) d.du = {0, 0, 0};
    if (!(d.dv.length() > noise)) d.dv = {0, 0, 0};
    return d;
}

struct SecondDerivatives {
    Vec3d uu, uv, vv;
};

// Of the control net, with the weights 6 (1 - t) and 6 t of its second differences.
SecondDerivatives second_derivatives(const Vec3f* controls, double u, double v) {
    const sds::CubicBasis<double> cu(u);
    const sds::CubicBasis<double> cv(v);
    const sds::QuadraticBasis<double> qu(u);
    const sds::QuadraticBasis<double> qv(v);
    const auto grid = [controls](unsigned int r, unsigned int c) {
        return Vec3d(controls[sds::grid_order[4 * r + c]]);
    };
    Vec3d along_u[4];  // second difference of row r
    Vec3d along_v[4];  // second difference of column c
    Vec3d mixed[3];
    for (unsigned int i = 0; i < 4; ++i) {
        along_u[i] = (grid(i, 2) - grid(i, 1) * 2.0 + grid(i, 0)) * (6.0 * (1.0 - u)) +
                     (grid(i, 3) - grid(i, 2) * 2.0 + grid(i, 1)) * (6.0 * u);
        along_v[i] = (grid(2, i) - grid(1, i) * 2.0 + grid(0, i)) * (6.0 * (1.0 - v)) +
                     (grid(3, i) - grid(2, i) * 2.0 + grid(1, i)) * (6.0 * v);
    }
    for (unsigned int r = 0; r < 3; ++r) {
        const auto twist = [&](unsigned int i) {
            return (grid(r + 1, i + 1) - grid(r + 1, i)) - (grid(r, i + 1) - grid(r, i));
        };
        mixed[r] = sds::quadratic_sum(qu, twist(0), twist(1), twist(2));
    }
    return {sds::cubic_sum(cv, along_u[0], along_u[1], along_u[2], along_u[3]),
            sds::quadratic_sum(qv, mixed[0], mixed[1], mixed[2]) * (degree * degree),
            sds::cubic_sum(cu, along_v[0], along_v[1], along_v[2], along_v[3])};
}

// Puts stored tangents, two per set bit, in the place of the differences.
void replace_entries(unsigned int irregular, const Vec3f* stored, Nets& nets) {
    for (unsigned int bit = 0; bit < 8; ++bit) {
        if (((irregular >> bit) & 1u) == 0) continue;
        for (unsigned int i = 0; i < 2; ++i)
            (bit < 4 ? nets.corner_entry(bit, i) : nets.edge_entry(bit - 4, i)) = *stored++;
    }
}

// The stored tangents of a patch in their places.
void replace_with_stored(const SdsMeshGeometry& geometry, unsigned int primitive, Nets& nets) {
    const SdsMeshBase::PatchTangentInfo& info = geometry.get_tangent_infos()[primitive];
    replace_entries(info.irregular, geometry.get_bezier_tangents_array().get_data() + info.tangent_offset, nets);
}

// The nets at rest, from local controls: what get_bezier_tangents gives, with more digits.
Nets load_nets(const SdsMeshGeometry& geometry, unsigned int primitive) {
    Vec3f controls[16];
    geometry.get_bezier_mesh().get_local_patch_controls(primitive, controls);
    Nets nets(controls);
    replace_with_stored(geometry, primitive, nets);
    return nets;
}

// The nets of the surface as it stands in `mesh`.
Nets compute_nets(const SdsMeshGeometry& geometry, const SdsBezierMesh& mesh, unsigned int primitive) {
    Vec3f controls[16];
    mesh.get_local_patch_controls(primitive, controls);
    Nets nets(controls);
    const SdsMeshBase::PatchTangentInfo& info = geometry.get_tangent_infos()[primitive];
    if (info.irregular == 0) return nets;
    Vec3f tangents[16];
    SdsMeshBase::compute_bezier_tangents(mesh, geometry.get_base()->get_edges(), primitive, info,
                                         geometry.get_local_topologies().get_data() + 4 * size_t{primitive}, tangents);
    replace_entries(info.irregular, tangents, nets);
    return nets;
}

// A direction for the normal where the derivatives at (u, v) give none.
Vec3d fallback_normal(const Nets& nets, const Vec3f* controls, double u, double v) {
    for (const double step : centre_steps) {
        const Vec3d n = normal_direction(
            evaluate_nets(nets, static_cast<float>(u + (0.5 - u) * step), static_cast<float>(v + (0.5 - v) * step)));
        if (n.length_squared() > 0.0) return n;
    }
    const Vec3d diagonal02 = Vec3d(controls[sds::corner_control(2)]) - Vec3d(controls[sds::corner_control(0)]);
    const Vec3d diagonal13 = Vec3d(controls[sds::corner_control(3)]) - Vec3d(controls[sds::corner_control(1)]);
    return diagonal02.cross(diagonal13);
}

}  // namespace

void SdsMeshGeometry::get_bezier_tangents(const unsigned int& primitive, Vec3f* out) const {
    Vec3f controls[16];
    get_bezier_controls(primitive, controls);
    Nets nets(controls);
    replace_with_stored(*this, primitive, nets);
    std::copy(&nets.u[0][0], &nets.u[0][0] + 12, out);
    std::copy(&nets.v[0][0], &nets.v[0][0] + 12, out + 12);
}

void SdsMeshGeometry::compute_fragment_sample(const CtxEval& ctx, const GeometryFragment& fragment,
                                              GeometrySample& sample) const {
    if (fragment.primitive >= base->get_primitive_count()) return;
    const auto u = static_cast<float>(fragment.u);
    const auto v = static_cast<float>(fragment.v);
    const sds::CubicBasis<float> cu(u);
    const sds::CubicBasis<float> cv(v);

    SdsBezierMesh storage;
    Vec3f controls[16];
    const SdsBezierMesh& mesh = get_mesh_for(ctx, fragment.time, storage);
    mesh.get_patch_controls(fragment.primitive, controls);
    const Vec3d position(sds::evaluate_patch(controls, cu, cv));
    const SecondDerivatives dd = second_derivatives(controls, fragment.u, fragment.v);
    const auto init = [&](const Nets& nets, GeometrySample& out) {
        Derivatives d = significant_derivatives(nets, controls, u, v);
        out.set_fallback_normal({0, 0, 0});
        if (normal_direction(d).length_squared() == 0.0) {
            out.set_fallback_normal(fallback_normal(nets, controls, fragment.u, fragment.v));
            // Parallel but for rounding, whose cross product must not pass for a direction.
            if (d.du.length_squared() > 0.0) d.dv = d.du * (d.du.dot(d.dv) / d.du.length_squared());
        }
        out.init_surface(position, d.du, d.dv, dd.uu, dd.uv, dd.vv);
    };

    init(load_nets(*this, fragment.primitive), sample);
    if (&mesh == &storage) {
        GeometrySample moved;
        init(compute_nets(*this, mesh, fragment.primitive), moved);
        sample.set_smoothing(position, moved.get_geometric_normal(), moved.get_geometric_dndu(),
                             moved.get_geometric_dndv());
    } else {
        sample.set_smoothing(position, sample.get_geometric_normal(), sample.get_geometric_dndu(),
                             sample.get_geometric_dndv());
    }

    if (!is_animated() || !(std::fabs(fragment.time_interval) > 1e-8)) return;
    get_bezier_controls_at(fragment.primitive, fragment.time + fragment.time_interval,
                           ctx.get_shader_ctx()->get_motion_blur().get_time_sampling(), controls);
    const Vec3d later(sds::evaluate_patch(controls, cu, cv));
    sample.set_geometric_position_dt((later - position) * (1.0 / fragment.time_interval));
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
