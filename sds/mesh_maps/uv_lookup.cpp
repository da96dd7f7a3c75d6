#include <limits>

#include "sds/common/cubic_basis.h"
#include "sds/mesh_maps/refined_map.h"

using sds::none;
using Vec3f = GMathVec3<float>;
using Vec3d = GMathVec3<double>;

bool SdsMeshMaps::is_primitive_uv_mapped(const unsigned int& quad, const unsigned int& uv_map) const {
    if (uv_maps.is_empty() || quad >= base->get_primitive_count()) return false;
    const unsigned int* indices = uv_maps[uv_map].quad_indices.get_data() + 4 * size_t{quad};
    return indices[0] != none && indices[1] != none && indices[2] != none && indices[3] != none;
}

void SdsMeshMaps::get_bezier_controls(const unsigned int& uv_map, const unsigned int& quad, Vec3f* controls) const {
    uv_maps[uv_map].controls.get_patch_controls(quad, controls);
}

void SdsMeshMaps::compute_fragment_uvw(const CtxEval&, const GeometryFragment& fragment, const unsigned int& uv_map,
                                       Vec3d& uvw, Vec3d& duvw_du, Vec3d& duvw_dv) const {
    if (const RefinedMap* refined = uv_maps[uv_map].refined.get(); refined != nullptr) {
        const sds::PatchPlaces& places = refined->get_places();
        const sds::PatchPlace at = places.find_patch(fragment.primitive, fragment.u, fragment.v);
        if (at.patch == none) {
            constexpr double nan = std::numeric_limits<double>::quiet_NaN();
            uvw = duvw_du = duvw_dv = Vec3d(nan, nan, nan);
            return;
        }
        const sds::PatchJet<Vec3f> jet = sds::evaluate_jet(refined->controls.get_data() + 16 * size_t{at.patch},
                                                           static_cast<float>(at.u), static_cast<float>(at.v));
        uvw = Vec3d(jet.value);
        duvw_du = Vec3d(jet.du);
        duvw_dv = Vec3d(jet.dv);
        places.get_frame(at).turn_to_face(duvw_du, duvw_dv);
        return;
    }
    Vec3f controls[16];
    get_bezier_controls(uv_map, fragment.primitive, controls);
    const sds::PatchJet<Vec3f> jet =
        sds::evaluate_jet(controls, static_cast<float>(fragment.u), static_cast<float>(fragment.v));
    uvw = Vec3d(jet.value);
    duvw_du = Vec3d(jet.du);
    duvw_dv = Vec3d(jet.dv);
}

void SdsMeshMaps::compute_edge_uvw(const CtxEval& ctx, const unsigned int& quad, const unsigned int& edge,
                                   const unsigned int& uv_map, const double& t, Vec3d& uvw) const {
    if (edge > 3) return;
    if (uv_maps[uv_map].refined) {
        GeometryFragment fragment;
        fragment.primitive = quad;
        fragment.u = edge == 0 ? t : edge == 1 ? 1.0 : edge == 2 ? 1.0 - t : 0.0;
        fragment.v = edge == 0 ? 0.0 : edge == 1 ? t : edge == 2 ? 1.0 : 1.0 - t;
        Vec3d duvw_du, duvw_dv;
        compute_fragment_uvw(ctx, fragment, uv_map, uvw, duvw_du, duvw_dv);
        return;
    }
    Vec3f controls[16];
    get_bezier_controls(uv_map, quad, controls);
    const unsigned int next = (edge + 1) & 3u;
    uvw = Vec3d(sds::cubic_sum(sds::CubicBasis<float>(static_cast<float>(t)), controls[sds::corner_control(edge)],
                               controls[sds::leaving_edge_control(edge)], controls[sds::arriving_edge_control(next)],
                               controls[sds::corner_control(next)]));
}
