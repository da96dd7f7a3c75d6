#include "sds/mesh/ray_index.h"

#include "qn_ctx/ctx_eval.h"
#include "sds/intersection/fast/ray_hand_over.h"
#include "sds/mesh/control_cache.h"

namespace sds {

void RayIndex::intersect(const CtxEval& ctx, GeometryRaytraceCtx& rays) const {
    const ReferencePointScope reference(rays, m_center);
    const bool is_limit = m_mesh->get_level() == 0;
    const float extent = m_mesh->get_geometry()->get_largest_coordinate();
    if (is_limit) return trace_tree(ctx, m_tree, *this, true, extent, rays);
    const StartNodeScope start_node(rays);
    trace_tree(ctx, m_tree, *this, false, extent, rays);
}

const ControlLanes& RayIndex::get_controls(const CtxEval& ctx, unsigned int patch) const {
    return ctx.get_thread()->get_kept_scratch().keep<ControlCache>().get(*m_mesh->get_geometry(), patch);
}

}  // namespace sds
