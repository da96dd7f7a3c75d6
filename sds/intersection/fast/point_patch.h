// Patches that are points as far as their coordinates tell. For the kernels of one instruction set.
#pragma once

#include "sds/intersection/fast/depth_patch.h"
#include "sds/intersection/fast/hit_list.h"
#include "sds/intersection/fast/limit_roots.h"

namespace sds {

namespace {

// False for nearly all patches, by one difference.
inline bool may_be_point(const SimdFloat8* rows, float edge_slack) {
    const SimdFloat8 zero(0.0f), across = rows[0] - rows[3];
    return edge_slack > 0.0f && less_equal_mask(max(across, zero - across), SimdFloat8(edge_slack)) == 255;
}

// A patch no larger than the ray's edge slack, in the plane and along the ray, is one hit wherever it comes as near to
// the ray: every one of its parts and cells would be met too, and would say the same. False for others, and nothing
// done. `cell` is the size that the hit is reported with.
[[gnu::noinline]] inline bool trace_point(const SimdFloat8* rows, const float (*controls)[16], const RaySpace& ray,
                                          float cell, RayHits& hits) {
    const SimdFloat8 slack(ray.edge_slack);
    const SimdFloat8 low = group_min(min(min(rows[0], rows[1]), min(rows[2], rows[3])));
    const SimdFloat8 high = group_max(max(max(rows[0], rows[1]), max(rows[2], rows[3])));
    if (less_equal_mask(high - low, slack) != 255) return false;
    const DepthPatch depths(controls, ray);
    SimdFloat8 t[4];
    depths.store_rows(t);
    float steepest = 0.0f, nearest[8], farthest[8];
    group_min(min(min(t[0], t[1]), min(t[2], t[3]))).store(nearest);
    group_max(max(max(t[0], t[1]), max(t[2], t[3]))).store(farthest);
    for (unsigned int axis = 0; axis < 3; ++axis) steepest = greatest(steepest, __builtin_fabsf(ray.along[axis]));
    if (!(farthest[0] - nearest[0] <= ray.edge_slack * steepest)) return false;
    if ((less_equal_mask(low, slack) & less_equal_mask(SimdFloat8(0.0f) - slack, high)) != 255) return true;
    const PlaneJet jet = evaluate_plane(rows, 0.5f, 0.5f);
    add_hit(ray, hits, depths.evaluate(0.5f, 0.5f), 0.5f, 0.5f, cell, jet.p_s * jet.q_t - jet.p_t * jet.q_s <= 0.0f);
    return true;
}

}  // namespace

}  // namespace sds
