// Samples on the flat cells of a fixed level.
#include <algorithm>
#include <cmath>

#include "qn_ctx/ctx_eval.h"
#include "sds/common/cubic_basis.h"
#include "sds/mesh/sds_mesh.h"

using Vec3f = GMathVec3<float>;
using Vec3d = GMathVec3<double>;

namespace {

// The cell of a fragment: its lower corner in patch coordinates and where in it the fragment lies.
struct CellPlace {
    float corner_u, corner_v;
    double local_u, local_v;
    float size;

    CellPlace(double u, double v, float scale, float scale_inv) : size(scale_inv) {
        // The far patch border belongs to the last cell.
        const auto locate = [=](double x) {
            return std::min(std::floor(static_cast<float>(x * static_cast<double>(scale))), scale - 1.0f) * scale_inv;
        };
        corner_u = locate(u);
        corner_v = locate(v);
        local_u = (u - static_cast<double>(corner_u)) * static_cast<double>(scale);
        local_v = (v - static_cast<double>(corner_v)) * static_cast<double>(scale);
    }
};

// The triangle of the cell that holds the fragment: position and the cell's differences along u and v.
struct CellPoint {
    Vec3d position, du, dv;

    CellPoint(const Vec3f* controls, const CellPlace& place) {
        const sds::CubicBasis<float> u0(place.corner_u), u1(place.corner_u + place.size);
        const sds::CubicBasis<float> v0(place.corner_v), v1(place.corner_v + place.size);
        const Vec3d c0(sds::evaluate_patch(controls, u0, v0));
        const Vec3d c2(sds::evaluate_patch(controls, u1, v1));
        if (place.local_u >= place.local_v) {
            const Vec3d c1(sds::evaluate_patch(controls, u1, v0));
            du = c1 - c0;
            dv = c2 - c1;
        } else {
            const Vec3d c3(sds::evaluate_patch(controls, u0, v1));
            du = c2 - c3;
            dv = c3 - c0;
        }
        position = c0 + du * place.local_u + dv * place.local_v;
    }
};

}  // namespace

void SdsMesh::compute_fragment_sample(const CtxEval& ctx, const GeometryFragment& fragment,
                                      GeometrySample& sample) const {
    if (level == 0 || fragment.primitive >= get_primitive_count() ||
        (!geometry->is_refined() && base->is_primitive_void(fragment.primitive))) {
        geometry->compute_fragment_sample(ctx, fragment, sample);
        return;
    }
    Vec3f controls[16];
    geometry->get_bezier_controls_at(fragment.primitive, fragment.time,
                                     ctx.get_shader_ctx()->get_motion_blur().get_time_sampling(), controls);
    const float cells =
        geometry->is_refined() ? static_cast<float>(1u << get_cell_level(fragment.primitive)) : level_scale;
    const CellPlace place(fragment.u, fragment.v, cells, 1.0f / cells);
    const CellPoint cell(controls, place);

    GeometryFragment still = fragment;
    still.time_interval = 0.0;
    GeometrySample limit;
    geometry->compute_fragment_sample(ctx, still, limit);

    const auto scale = static_cast<double>(cells);
    sample.set_fallback_normal(limit.get_smoothing_normal());
    sample.init_surface(cell.position, cell.du * scale, cell.dv * scale, {0, 0, 0}, {0, 0, 0}, {0, 0, 0});
    sample.set_smoothing(cell.position, limit.get_smoothing_normal(), limit.get_smoothing_dndu(),
                         limit.get_smoothing_dndv());

    if (geometry->get_bezier_velocities(fragment, controls))
        sample.set_geometric_position_dt(CellPoint(controls, place).position);
}

void SdsMesh::compute_edge_sample(const CtxEval&, const unsigned int& primitive, const unsigned int& edge,
                                  const double& t, const bool& reversed, GeometrySample& sample) const {
    compute_edge_sample(primitive, edge, t, reversed, sample);
}
void SdsMesh::compute_edge_sample(const unsigned int& primitive, const unsigned int& edge, const double& t,
                                  const bool& reversed, GeometrySample& sample) const {
    geometry->compute_edge_sample(primitive, edge, t, reversed, sample);
}
