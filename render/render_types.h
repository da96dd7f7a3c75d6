// Short names that the renderer's headers share.
#pragma once

#include "qn_gmath/gmath_bbox.h"
#include "qn_gmath/gmath_vec.h"

namespace sds_render {

using Vec3 = GMathVec3<double>;
using Bbox3 = GMathBbox3<double>;
// Linear RGB, Rec. 709 primaries, 1 is diffuse white.
using Color = GMathVec3<float>;

inline constexpr unsigned int no_index = 0xFFFFFFFF;

inline Vec3 normalized(const Vec3& v) {
    const double length = v.length();
    return length > 0.0 ? v * (1.0 / length) : v;
}

inline Color multiply(const Color& a, const Color& b) { return {a[0] * b[0], a[1] * b[1], a[2] * b[2]}; }
inline Color mix(const Color& a, const Color& b, float t) { return a * (1.0f - t) + b * t; }

inline double clamp_unit(double x) { return x > 0.0 ? (x < 1.0 ? x : 1.0) : 0.0; }

// 0 below `low`, 1 above `high`, a cubic with flat ends between.
inline double smooth_step(double low, double high, double x) {
    const double t = clamp_unit((x - low) / (high - low));
    return t * t * (3.0 - 2.0 * t);
}

}  // namespace sds_render
