#include "sds/intersection/fast/trace_fast.h"

#include <algorithm>
#include <cmath>

#include "qn_ctx/ctx_eval.h"
#include "sds/common/control_lanes.h"
#include "sds/intersection/fast/ray_hand_over.h"

namespace {

using sds::RayHit;
using sds::RayHits;
using sds::RaySpace;

float find_largest(const float* values, unsigned int count) {
    float largest = 0.0f;
    for (unsigned int i = 0; i < count; ++i) largest = std::max(largest, std::fabs(values[i]));
    return largest;
}

// Kernels multiply lengths: below this their products might be denormal, or nothing.
constexpr float least_extent = 0x1p-24f;

// A patch and a ray's origin so near to the world's origin, times the power of two that brings the larger of them to
// 1/2: the same bits, but for products that would have been denormal.
struct ScaledPatch {
    sds::ControlLanes grid;
    float origin[3];
    double factor = 1.0;

    ScaledPatch(const sds::ControlLanes& controls, const float* ray_origin, float largest)
        : factor(std::ldexp(1.0, -std::ilogb(largest) - 1)) {
        for (unsigned int axis = 0; axis < 3; ++axis) {
            origin[axis] = scale(ray_origin[axis]);
            for (unsigned int place = 0; place < 16; ++place)
                grid.coords[axis][place] = scale(controls.coords[axis][place]);
        }
    }
    float scale(float x) const { return static_cast<float>(static_cast<double>(x) * factor); }
};

template <class Kernel>
void trace_scaled(const ScaledPatch& patch, const GeometryRaySpace& space, double near, double far, float shared_extent,
                  const Kernel& kernel, RayHits& hits) {
    GeometryRaySpace scaled = space;
    std::copy_n(patch.origin, 3, scaled.origin);
    kernel(patch.grid.coords,
           {scaled.origin, scaled.across, scaled.along, space.shift * patch.factor, near * patch.factor,
            far * patch.factor, sds::find_edge_slack(scaled, patch.scale(shared_extent))},
           hits);
    for (unsigned int h = 0; h < hits.count; ++h)
        hits.hits[h].t = static_cast<float>(static_cast<double>(hits.hits[h].t) / patch.factor);
}

// Hands the rays of the range to kernel(controls, ray, hits) one by one and what they hit to push(i, shift, hits); logs
// under the name of the routine which limits they met. The hits stay in the thread's scratch until its next call.
template <class Kernel, class Push>
void trace_rays(const CtxEval& ctx, const char* routine, const sds::ControlLanes& grid, float shared_extent,
                GeometryRaytraceCtx& rays, const Kernel& kernel, const Push& push) {
    auto& hits = ctx.get_thread()->get_scratch().acquire<RayHits>();
    hits.step_count = hits.dropped_count = hits.unsettled_count = 0;
    for (unsigned int i = rays.get_first_ray(); i <= rays.get_last_ray(); ++i) {
        if (rays.is_ray_finished(i)) continue;
        const GeometryRaySpace& space = rays.get_ray_space(i);
        if (!sds::can_meet(space)) continue;
        hits.count = 0;
        const float from_origin = find_largest(space.origin, 3);
        if (from_origin < least_extent) {
            const float largest = std::max(from_origin, find_largest(grid.coords[0], 48));
            if (largest < least_extent && largest > 0.0f) {
                trace_scaled(ScaledPatch(grid, space.origin, largest), space, rays.get_tnear(i), rays.get_tfar(i),
                             shared_extent, kernel, hits);
                if (hits.count != 0) push(i, space.shift, hits);
                continue;
            }
        }
        kernel(grid.coords,
               {space.origin, space.across, space.along, space.shift, rays.get_tnear(i), rays.get_tfar(i),
                sds::find_edge_slack(space, shared_extent)},
               hits);
        if (hits.count != 0) push(i, space.shift, hits);
    }
    sds::log_limits(routine, hits);
}

}  // namespace

void sds::trace_limit_fast(const CtxEval& ctx, unsigned int primitive, const ControlLanes& controls,
                           float shared_extent, GeometryRaytraceCtx& rays) {
    const auto push = [&](unsigned int i, double shift, const RayHits& hits) {
        HitSlots slots;
        slots.clear();
        for (unsigned int h = 0; h < hits.count; ++h) {
            const RayHit& hit = hits.hits[h];
            slots.add(hit.side, hit.t, hit.u, hit.v, h);
        }
        slots.flush(static_cast<float>(duplicate_separation), [&](const HitSlots::Entry& entry) {
            const bool accepted =
                sds::push_hit(ctx, primitive, rays, i, shift + static_cast<double>(entry.t), entry.u, entry.v, 0.0f);
            if (accepted && rays.is_ray_finished(i)) rays.set_occluder(i, {primitive, entry.node, &hits});
        });
    };
    trace_rays(ctx, "adaptive", controls, shared_extent, rays, get_ray_kernels().adaptive, push);
}

void sds::trace_cells_fast(const CtxEval& ctx, unsigned int primitive, const ControlLanes& controls,
                           unsigned int level_count, float shared_extent, GeometryRaytraceCtx& rays) {
    const auto kernel = [level_count, estimate = get_ray_kernels().estimate](const float(*grid)[16],
                                                                             const RaySpace& ray, RayHits& hits) {
        estimate(grid, ray, level_count, hits);
    };
    const auto push = [&](unsigned int i, double shift, const RayHits& hits) {
        for (unsigned int h = 0; h < hits.count && !rays.is_ray_finished(i); ++h) {
            const RayHit& hit = hits.hits[h];
            sds::push_hit(ctx, primitive, rays, i, shift + static_cast<double>(hit.t), hit.u, hit.v, hit.cell);
        }
    };
    trace_rays(ctx, "estimate", controls, shared_extent, rays, kernel, push);
}
