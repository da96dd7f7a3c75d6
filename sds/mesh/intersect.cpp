// Rays and frusta against primitives.
#include "qn_ctx/ctx_eval.h"
#include "sds/intersection/bezier_intersection.h"
#include "sds/intersection/ray_space/ray_space.h"
#include "sds/mesh/control_cache.h"
#include "sds/mesh/sds_mesh.h"

using Vec3f = GMathVec3<float>;

namespace {

constexpr unsigned int adaptive_frustum_level = 3;

// Sets the rays' reference point to the object's centre for the duration of a call. Boxes hold finite points only.
class ReferencePointScope {
public:
    ReferencePointScope(GeometryRaytraceCtx& rays, const GMathBbox3<float>& bbox)
        : m_rays(rays), m_former(rays.get_reference_point()) {
        rays.set_reference_point(GMathBbox3<double>(bbox).get_center());
    }
    ~ReferencePointScope() { m_rays.set_reference_point(m_former); }
    ReferencePointScope(const ReferencePointScope&) = delete;
    ReferencePointScope& operator=(const ReferencePointScope&) = delete;

private:
    GeometryRaytraceCtx& m_rays;
    GMathVec3<double> m_former;
};

}  // namespace

void SdsMesh::intersect_primitive(const CtxEval& ctx, const unsigned int& primitive,
                                  GeometryFrustumCtx& frustum) const {
    const int selection = frustum.get_mode();
    if (selection == 0 || selection == 1) {
        Vec3f controls[16];
        geometry->get_bezier_controls(primitive, controls);
        const unsigned int count =
            (level != 0 ? level : adaptive_frustum_level) - (base->get_base_tessellation_level() ? 1u : 0u);
        frustum_bezier_intersection(ctx, primitive, controls, frustum, count);
    } else if (selection == 2 || selection == 3) {
        const unsigned int* quad = base->get_quad_indices(primitive);
        for (unsigned int k = 0; k < 4; ++k)
            if (quad[k] != sds::none) frustum.vertex_marks[quad[k]] = 1;
    }
}

void SdsMesh::intersect_primitive(const CtxEval& ctx, const unsigned int& primitive, GeometryRaytraceCtx& rays) const {
    if (ctx.get_thread() == nullptr) return;
    const ReferencePointScope reference(rays, geometry->get_bbox());
    const unsigned int count = level - (base->get_base_tessellation_level() ? 1u : 0u);
    if (rays.get_data().kernel_family == 0 && !rays.has_motion_blur()) {
        const sds::ControlLanes& controls =
            ctx.get_thread()->get_kept_scratch().keep<sds::ControlCache>().get(*geometry, primitive);
        if (level == 0)
            sds::trace_limit_surface(ctx, primitive, controls, rays);
        else
            sds::trace_flat_cells(ctx, primitive, controls, rays, count);
        return;
    }
    Vec3f controls[16];
    if (rays.has_motion_blur())
        geometry->get_bezier_controls_at(primitive, rays.get_time(),
                                         ctx.get_shader_ctx()->get_motion_blur().get_time_sampling(), controls);
    else
        geometry->get_bezier_controls(primitive, controls);
    if (level == 0)
        ray_bezier_intersection_adaptive(ctx, primitive, controls, rays);
    else
        ray_bezier_intersection_estimate(ctx, primitive, controls, rays, count);
}
