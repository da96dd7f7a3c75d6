#include "sds/intersection/trace_patch.h"

#include "qn_ctx/ctx_eval.h"
#include "qn_geometry/geometry_raytrace_ctx.h"
#include "sds/intersection/bezier_intersection.h"
#include "sds/intersection/fast/ray_hand_over.h"
#include "sds/intersection/fast/trace_fast.h"
#include "sds/intersection/reference/trace_reference.h"

void sds::trace_patch(const CtxEval& ctx, unsigned int primitive, const ControlLanes& controls, unsigned int level,
                      GeometryRaytraceCtx& rays, float shared_extent) {
    if (ctx.get_thread() == nullptr) return;
    const bool is_fast = rays.get_data().kernel_family == 0;
    if (level == limit_surface) {
        if (is_fast) return trace_limit_fast(ctx, primitive, controls, shared_extent, rays);
        return trace_limit_reference(ctx, primitive, controls, rays);
    }
    const StartNodeScope start_node(rays);
    if (is_fast)
        trace_cells_fast(ctx, primitive, controls, level, shared_extent, rays);
    else
        trace_cells_reference(ctx, primitive, controls, level, rays);
}

void ray_bezier_intersection_adaptive(const CtxEval& ctx, const unsigned int& primitive,
                                      const GMathVec3<float>* controls, GeometryRaytraceCtx& rays) {
    sds::trace_patch(ctx, primitive, sds::ControlLanes(controls), sds::limit_surface, rays);
}

void ray_bezier_intersection_estimate(const CtxEval& ctx, const unsigned int& primitive,
                                      const GMathVec3<float>* controls, GeometryRaytraceCtx& rays,
                                      const unsigned int& count) {
    sds::trace_patch(ctx, primitive, sds::ControlLanes(controls), count, rays);
}
