// Rays and frusta against primitives.
#include <algorithm>
#include <cmath>

#include "qn_ctx/ctx_eval.h"
#include "sds/intersection/bezier_intersection.h"
#include "sds/intersection/fast/ray_hand_over.h"
#include "sds/intersection/trace_patch.h"
#include "sds/mesh/control_cache.h"
#include "sds/mesh/ray_index.h"
#include "sds/mesh/sds_mesh.h"

using Vec3f = GMathVec3<float>;

void SdsMesh::intersect_primitive(const CtxEval& ctx, const unsigned int& primitive,
                                  GeometryFrustumCtx& frustum) const {
    const int selection = frustum.get_mode();
    if (selection == 0 || selection == 1) {
        if (!geometry->is_refined() && base->is_primitive_void(primitive)) return;
        Vec3f controls[16];
        geometry->get_bezier_controls(primitive, controls);
        const unsigned int count = level != 0 ? get_cell_level(primitive) : get_adaptive_frustum_level(primitive);
        frustum_bezier_intersection(ctx, primitive, controls, frustum, count);
    } else if (selection == 2 || selection == 3) {
        unsigned int quad[4];
        get_primitive_vertices(primitive, quad);
        for (unsigned int k = 0; k < 4; ++k)
            if (quad[k] != sds::none) frustum.vertex_marks[quad[k]] = 1;
    }
}

void SdsMesh::intersect_primitive(const CtxEval& ctx, const unsigned int& primitive, GeometryRaytraceCtx& rays) const {
    if (ctx.get_thread() == nullptr) return;
    // Boxes hold finite points only.
    const sds::ReferencePointScope reference(rays, GMathBbox3<double>(geometry->get_bbox()).get_center());
    const unsigned int count = level == 0 ? sds::limit_surface : get_cell_level(primitive);
    if (!rays.has_motion_blur()) {
        sds::trace_patch(ctx, primitive,
                         ctx.get_thread()->get_kept_scratch().keep<sds::ControlCache>().get(*geometry, primitive),
                         count, rays, geometry->get_largest_coordinate());
        return;
    }
    Vec3f controls[16];
    geometry->get_bezier_controls_at(primitive, rays.get_time(),
                                     ctx.get_shader_ctx()->get_motion_blur().get_time_sampling(), controls);
    float extent = 0.0f;
    if (geometry->is_refined()) {
        // Where the patch is by then may be farther out than the surface at rest.
        extent = geometry->get_largest_coordinate();
        for (const Vec3f& c : controls)
            for (unsigned int axis = 0; axis < 3; ++axis) extent = std::max(extent, std::fabs(c[axis]));
    }
    sds::trace_patch(ctx, primitive, sds::ControlLanes(controls), count, rays, extent);
}

std::unique_ptr<const GeometryRayIndex> SdsMesh::make_ray_index(const CoreBasicArray<GMathBbox3<double>>& boxes) const {
    return sds::RayIndex::make(*this, boxes);
}
size_t SdsMesh::estimate_ray_index_size() const { return sds::RayIndex::estimate_size(*this); }
