// Rays against the limit patch: leaves are nearly points.
#include <algorithm>
#include <cmath>

#include "qn_ctx/ctx_eval.h"
#include "sds/common/control_lanes.h"
#include "sds/intersection/hit_slots.h"
#include "sds/intersection/overflow_log.h"
#include "sds/intersection/ray_targets.h"
#include "sds/intersection/reference.h"
#include "sds/intersection/traversal.h"

namespace {

using Vec3f = GMathVec3<float>;
using sds::PatchNode;
using sds::RayState;

struct AdaptiveScratch {
    sds::IntersectionScratch base;
    sds::HitSlots slots[sds::max_ray_batch];
};

// Point and tangents of a leaf at its parametric centre.
struct LeafCentre {
    Vec3f point;
    Vec3f along_rows;
    Vec3f along_columns;

    explicit LeafCentre(const PatchNode& node) {
        // Rows at one half: weights 1/8, 3/8, 3/8, 1/8 for points; (p3 + p2 - p1 - p0) * 3/4 for derivatives.
        Vec3f row_points[4];
        Vec3f row_tangents[4];
        for (unsigned int r = 0; r < 4; ++r) {
            const Vec3f p0 = node.get_point(4 * r), p1 = node.get_point(4 * r + 1), p2 = node.get_point(4 * r + 2),
                        p3 = node.get_point(4 * r + 3);
            row_points[r] = blend(p0, p1, p2, p3);
            row_tangents[r] = (p3 + p2 - p1 - p0) * 0.75f;
        }
        point = blend(row_points[0], row_points[1], row_points[2], row_points[3]);
        along_rows = blend(row_tangents[0], row_tangents[1], row_tangents[2], row_tangents[3]);
        along_columns = (row_points[3] + row_points[2] - row_points[1] - row_points[0]) * 0.75f;
    }

private:
    static Vec3f blend(const Vec3f& p0, const Vec3f& p1, const Vec3f& p2, const Vec3f& p3) {
        return (p0 + p3) * 0.125f + (p1 + p2) * 0.375f;
    }
};

void intersect_leaf(const GeometryRaytraceCtx& rays, sds::NodePool& pool, const PatchNode& node,
                    const LeafCentre& centre, const RayState& ray, sds::HitSlots& slots) {
    const Vec3f scaled = ray.direction * (1.0f / ray.direction.length_squared());
    const float t = (centre.point - ray.origin).dot(scaled);
    const double ray_t = ray.to_ray(static_cast<double>(t));
    if (!(ray_t >= rays.get_tnear(ray.index) && ray_t < rays.get_tfar(ray.index))) return;
    const Vec3f normal = centre.along_rows.cross(centre.along_columns);
    const bool facing = normal.dot(ray.direction) <= 0.0f;
    const unsigned int side = (facing ? 1u : 0u) ^ node.direction;
    const float a = (node.range[0] + node.range[2]) * 0.5f;
    const float b = (node.range[1] + node.range[3]) * 0.5f;
    const bool swapped = node.direction != 0;
    slots.add(side, t, swapped ? b : a, swapped ? a : b, pool.get_node_index(node));
}

void flush_slots(const CtxEval& ctx, unsigned int primitive, GeometryRaytraceCtx& rays,
                 const sds::IntersectionScratch& scratch, const RayState& ray, const sds::HitSlots& slots) {
    slots.flush(static_cast<float>(sds::duplicate_separation), [&](const sds::HitSlots::Entry& entry) {
        const bool accepted = rays.push_intersection(ctx, ray.index, primitive, static_cast<double>(entry.u),
                                                     static_cast<double>(entry.v), 0.0, sds::no_sub_element, 0.0, 0.0,
                                                     0.0, ray.to_ray(static_cast<double>(entry.t)),
                                                     sds::duplicate_separation, GeometryMediumDescriptor(), nullptr);
        if (accepted && rays.is_ray_finished(ray.index))
            rays.set_occluder(ray.index, {primitive, entry.node, &scratch});
    });
}

float get_tolerance(const sds::PatchBox& box) {
    float centre = 0.0f;
    for (unsigned int axis = 0; axis < 3; ++axis) centre += std::fabs((box.min[axis] + box.max[axis]) * 0.5f);
    return std::max(3.0f, centre) * GMath<float>::s_epsilon;
}

template <class FarSource>
void trace_single(const CtxEval& ctx, unsigned int primitive, AdaptiveScratch& scratch,
                  const sds::ControlLanes& controls, GeometryRaytraceCtx& rays, unsigned int i,
                  unsigned int& overflow_count) {
    if (rays.is_ray_finished(i)) return;
    sds::NodePool& pool = scratch.base.pool;
    RayState& ray = scratch.base.rays[0];
    sds::HitSlots& slots = scratch.slots[0];
    ray.set(rays, i);
    slots.clear();
    PatchNode& root = pool[pool.begin()];
    sds::set_root(root, controls);
    sds::traverse_ray(
        pool, ray, sds::AdaptiveSplit{get_tolerance(sds::get_box(root))},
        [&] { return sds::local_far<FarSource>(rays, ray); },
        [&](const PatchNode& node) {
            intersect_leaf(rays, pool, node, LeafCentre(node), ray, slots);
            return false;
        });
    flush_slots(ctx, primitive, rays, scratch.base, ray, slots);
    overflow_count += pool.get_overflow_count();
}

void trace_batch(const CtxEval& ctx, unsigned int primitive, AdaptiveScratch& scratch,
                 const sds::ControlLanes& controls, GeometryRaytraceCtx& rays, unsigned int first, unsigned int count,
                 unsigned int& overflow_count) {
    sds::NodePool& pool = scratch.base.pool;
    RayState* states = scratch.base.rays;
    for (unsigned int i = 0; i < count; ++i) {
        states[i].set(rays, first + i);
        scratch.slots[i].clear();
    }
    PatchNode& root = pool[pool.begin()];
    sds::set_root(root, controls);
    sds::traverse_rays(
        pool, states, count, sds::AdaptiveSplit{get_tolerance(sds::get_box(root))},
        [&](unsigned int i) { return sds::local_far<sds::PathFar>(rays, states[i]); },
        [&](const PatchNode& node) {
            const LeafCentre centre(node);
            for (unsigned int i = 0; i < count; ++i) {
                // A leaf that some ray of the batch enters is no hit for those that pass it by.
                float entry = states[i].entry_bound;
                if (!sds::slab_test(states[i], node.box, sds::local_far<sds::PathFar>(rays, states[i]), entry))
                    continue;
                intersect_leaf(rays, pool, node, centre, states[i], scratch.slots[i]);
            }
            return false;
        });
    for (unsigned int i = 0; i < count; ++i)
        flush_slots(ctx, primitive, rays, scratch.base, states[i], scratch.slots[i]);
    overflow_count += pool.get_overflow_count();
}

}  // namespace

void sds::trace_limit_reference(const CtxEval& ctx, unsigned int primitive, const ControlLanes& controls,
                                GeometryRaytraceCtx& rays) {
    auto& scratch = ctx.get_thread()->get_scratch().acquire<AdaptiveScratch>();
    const unsigned int first = rays.get_first_ray();
    const unsigned int ray_count = rays.get_last_ray() - first + 1;
    unsigned int overflow_count = 0;
    if (rays.get_data().map == nullptr) {
        for (unsigned int i = 0; i < ray_count; ++i)
            trace_single<sds::RecordFar>(ctx, primitive, scratch, controls, rays, first + i, overflow_count);
    } else if (ray_count == 1) {
        trace_single<sds::PathFar>(ctx, primitive, scratch, controls, rays, first, overflow_count);
    } else {
        for (unsigned int i = 0; i < ray_count; i += sds::max_ray_batch)
            trace_batch(ctx, primitive, scratch, controls, rays, first + i, std::min(sds::max_ray_batch, ray_count - i),
                        overflow_count);
    }
    log_overflows("adaptive", overflow_count);
}
