// A ray as the kernels see it.
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>

#include "qn_geometry/geometry_raytrace_ctx.h"
#include "qn_gmath/gmath.h"
#include "sds/intersection/patch_node.h"

namespace sds {

// The nearest floats that bound a double from below and from above.
inline float narrow_down(double x) {
    const auto f = static_cast<float>(x);
    return static_cast<double>(f) > x ? std::nextafter(f, -std::numeric_limits<float>::infinity()) : f;
}
inline float narrow_up(double x) {
    const auto f = static_cast<float>(x);
    return static_cast<double>(f) < x ? std::nextafter(f, std::numeric_limits<float>::infinity()) : f;
}

// The origin is first moved along the ray, in double precision, to the place nearest to the context's reference point,
// and only then narrowed: the same narrowed ray for every patch of an object, so that neighbors agree on their shared
// edge, and one whose rounding does not grow with the distance it came from. Distances count from the moved origin;
// `shift` takes them back.
struct RayState {
    GMathVec3<float> origin;
    GMathVec3<float> direction;
    GMathVec3<float> inverse_direction;  // 0 along an axis that the ray does not move on
    double shift;
    float entry_bound;  // where the ray begins, a little before tnear; NaN keeps it out of every box
    unsigned int index;

    void set(const GeometryRaytraceCtx& rays, unsigned int i) {
        const GeometryRay& ray = rays.get_ray(i);
        index = i;
        shift = rays.get_reference_shift(i);
        origin = GMathVec3<float>(ray.origin + ray.direction * shift);
        set_direction(GMathVec3<float>(ray.direction));
        // Outwards for a negative tnear too.
        constexpr double begin_slack = 1.0 - static_cast<double>(GMath<float>::s_one_minus_epsilon);
        entry_bound = narrow_down(ray.tnear - std::fabs(ray.tnear) * begin_slack - shift);
        // The box test drops a NaN distance of a single axis: a ray that is not finite would pass for meeting every
        // box.
        if (!(origin.is_finite() && direction.is_finite())) entry_bound = std::numeric_limits<float>::quiet_NaN();
    }

    void set_direction(const GMathVec3<float>& d) {
        direction = d;
        for (unsigned int axis = 0; axis < 3; ++axis) {
            const float inverse = 1.0f / d[axis];
            inverse_direction[axis] = std::isinf(inverse) ? 0.0f : inverse;
        }
    }

    // A distance on the original ray as one from the moved origin, rounded up.
    float to_local_far(double t) const { return narrow_up(t - shift); }
    double to_ray(double local) const { return local + shift; }
};

// True when the ray meets the box between `entry` (in: the ray's begin, out: where it enters) and `far`.
//
// In exact arithmetic the test is entry <= exit. Each computed distance fl(fl(side - o) * fl(1 / d)) has a relative
// error of at most 3u (1 + O(u)), u = 2^-24, so a box that the ray just touches may come out with entry above exit by
// 3u (|entry| + |exit|). Where both have the same sign and entry <= exit exactly:
//     0 <= entry <= exit:  entry' - exit' <= 3u (entry + exit) <= 6u |exit'| (1 + O(u))
//     entry <= exit <= 0:  entry' <= entry (1 - 3u) and exit' >= exit (1 + 3u), and entry <= exit gives entry' - exit'
//     <= 6u |exit|
// and with different signs rounding, which keeps signs, cannot exchange them. Widening exit by 8u |exit| therefore
// loses no ray. (A factor on exit alone would narrow a negative one.) On an axis along which the ray does not move it
// is between the sides, or on one, all the way or nowhere. NaN as `entry` gives false.
inline bool slab_test(const RayState& ray, const PatchBox& box, float far, float& entry) {
    float exit = far;
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const float inverse = ray.inverse_direction[axis];
        if (inverse == 0.0f) {
            if (!(box.min[axis] <= ray.origin[axis] && ray.origin[axis] <= box.max[axis])) return false;
            continue;
        }
        const float t0 = (box.min[axis] - ray.origin[axis]) * inverse;
        const float t1 = (box.max[axis] - ray.origin[axis]) * inverse;
        entry = std::max(entry, std::min(t0, t1));
        exit = std::min(exit, std::max(t0, t1));
    }
    constexpr float eight_u = 4.0f * std::numeric_limits<float>::epsilon();
    return entry <= exit + std::fabs(exit) * eight_u;
}

}  // namespace sds
