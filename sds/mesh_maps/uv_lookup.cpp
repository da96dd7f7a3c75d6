#include "sds/common/cubic_basis.h"
#include "sds/mesh_maps/sds_mesh_maps.h"

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
    Vec3f controls[16];
    get_bezier_controls(uv_map, fragment.primitive, controls);
    const sds::PatchJet<Vec3f> jet =
        sds::evaluate_jet(controls, static_cast<float>(fragment.u), static_cast<float>(fragment.v));
    uvw = Vec3d(jet.value);
    duvw_du = Vec3d(jet.du);
    duvw_dv = Vec3d(jet.dv);
}

void SdsMeshMaps::compute_edge_uvw(const CtxEval&, const unsigned int& quad, const unsigned int& edge,
                                   const unsigned int& uv_map, const double& t, Vec3d& uvw) const {
    if (edge > 3) return;
    Vec3f controls[16];
    get_bezier_controls(uv_map, quad, controls);
    const unsigned int next = (edge + 1) & 3u;
    uvw = Vec3d(sds::cubic_sum(sds::CubicBasis<float>(static_cast<float>(t)), controls[sds::corner_control(edge)],
                               controls[sds::leaving_edge_control(edge)], controls[sds::arriving_edge_control(next)],
                               controls[sds::corner_control(next)]));
}
