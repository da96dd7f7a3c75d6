// The decision about a sub-patch of the limit surface. For the kernels of one instruction set.
#pragma once

#include "sds/intersection/fast/depth_patch.h"
#include "sds/intersection/fast/hit_list.h"
#include "sds/intersection/fast/limit_roots.h"

namespace sds {

namespace {

inline float clamp_unit(float x) { return x < 0.0f ? 0.0f : (x > 1.0f ? 1.0f : x); }

// Decides sub-patches that hold the origin. False when one must be split, which needs `may_split`. A wide one takes in
// the ray's edge slack.
template <bool is_wide>
struct LimitLeaf {
    const float (*controls)[16];
    const RaySpace& ray;
    RayHits& hits;
    // How far outside a sub-patch a root counts as inside, in the sub-patch's coordinates.
    float root_slack = sds::root_slack;

    // `is_point` says that the sub-patch is as good as a point: it is a hit if it holds no root that can be proven.
    template <class Place>
    [[gnu::always_inline]] bool operator()(const SimdFloat8* rows, const Place& place, bool is_point,
                                           bool may_split) const {
        float s = 0.5f, t = 0.5f, det = 0.0f;
        if (!is_point) {
            if (may_split) {
                const SlopeBounds slopes(rows);
                if (!slopes.is_injective()) return false;
                const PlaneJet center = evaluate_plane(rows, 0.5f, 0.5f);
                if (is_wide ? slopes.excludes_root_near(center.p, center.q, ray.edge_slack)
                            : slopes.excludes_root(center.p, center.q))
                    return true;
                if (!find_root<is_wide>(rows, center, root_slack, ray.edge_slack, s, t, det)) return false;
            } else {
                // A root that is found anyway, unproven to be the only one, or none.
                ++hits.unsettled_count;
                if (!find_root<is_wide>(rows, evaluate_plane(rows, 0.5f, 0.5f), root_slack, ray.edge_slack, s, t, det))
                    return true;
            }
        }
        if (det == 0.0f) det = find_determinant(rows, s, t);
        add(place, s, t, det);
        return true;
    }
    template <class Place>
    [[gnu::always_inline]] void add(const Place& place, float s, float t, float det) const {
        const Range range = get_range(place);
        const float a = clamp_unit(range.a_min + (range.a_max - range.a_min) * s);
        const float b = clamp_unit(range.b_min + (range.b_max - range.b_min) * t);
        const float u = range.swapped ? b : a;
        const float v = range.swapped ? a : b;
        add_hit(ray, hits, DepthPatch(controls, ray).evaluate(u, v), u, v, 0.0f, (det <= 0.0f) != range.swapped);
    }
    static float find_determinant(const SimdFloat8* rows, float s, float t) {
        const PlaneJet jet = evaluate_plane(rows, s, t);
        return jet.p_s * jet.q_t - jet.p_t * jet.q_s;
    }
    [[gnu::always_inline]] unsigned int find(const SimdFloat8* first, const SimdFloat8* second) const {
        if constexpr (is_wide)
            return find_origin(first, second, SimdFloat8(-ray.edge_slack), SimdFloat8(ray.edge_slack));
        else
            return find_origin(first, second);
    }
};

}  // namespace

}  // namespace sds
