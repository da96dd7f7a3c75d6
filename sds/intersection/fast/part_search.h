// Boxes that a ray comes near to. For the kernels of one instruction set.
#pragma once

#include "sds/intersection/fast/patch_parts.h"
#include "sds/intersection/fast/plane_patch.h"

namespace sds {

namespace {

// A ray as boxes see it, from the center of what they are in: lengths along it, by `scale` of the ray's own, per length
// along each axis.
struct BoxRay {
    float origin[3], slope[3];
    unsigned int near_side[3];  // the side of a box that the ray enters by
    float begin, end;           // where hits count, and a little more
    double scale;

    BoxRay() = default;
    BoxRay(const RaySpace& ray, const float* center) {
        // A component this much smaller than the largest changes nothing over the length of the object.
        constexpr float least_share = 0x1p-24f;
        float along[3] = {ray.along[0], ray.along[1], ray.along[2]};
        float square = along[0] * along[0] + along[1] * along[1] + along[2] * along[2];
        scale = 1.0;
        if (!(square > 0x1p-60f && square < 0x1p60f)) [[unlikely]]
            shorten(along, square);
        const float least =
            least_share * greatest(greatest(magnitude(along[0]), magnitude(along[1])), magnitude(along[2]));
        for (unsigned int axis = 0; axis < 3; ++axis) {
            origin[axis] = ray.origin[axis] - center[axis];
            slope[axis] = square / __builtin_copysignf(greatest(magnitude(along[axis]), least), along[axis]);
            near_side[axis] = __builtin_signbit(along[axis]) ? 1u : 0u;
        }
        const auto near = static_cast<float>((ray.near - ray.shift) * scale);
        begin = near - rounding * magnitude(near);
        set_end(ray.far - ray.shift);
    }
    void set_end(double far) {
        constexpr float least = -0x1p100f;
        const float last = greatest(static_cast<float>(far * scale), least);
        end = last + rounding * magnitude(last);
    }

private:
    static constexpr float rounding = 0x1p-20f;

    static float magnitude(float x) { return __builtin_fabsf(x); }
    static float greatest(float a, float b) { return a > b ? a : b; }
    // Makes the square one that single precision holds.
    void shorten(float* along, float& square) {
        const float largest = greatest(greatest(magnitude(along[0]), magnitude(along[1])), magnitude(along[2]));
        scale = 1.0 / static_cast<double>(largest);
        square = 0.0f;
        for (unsigned int axis = 0; axis < 3; ++axis) {
            along[axis] = static_cast<float>(static_cast<double>(along[axis]) * scale);
            square += along[axis] * along[axis];
        }
    }
};

// Where the ray enters and leaves eight boxes, in its own range. `get_sides(axis, side)` loads them.
template <class GetSides>
[[gnu::always_inline]] inline void clip(const BoxRay& ray, const GetSides& get_sides, SimdFloat8& near,
                                        SimdFloat8& far) {
    near = SimdFloat8(ray.begin);
    far = SimdFloat8(ray.end);
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const SimdFloat8 origin(ray.origin[axis]), slope(ray.slope[axis]);
        near = max(near, (get_sides(axis, ray.near_side[axis]) - origin) * slope);
        far = min(far, (get_sides(axis, 1 - ray.near_side[axis]) - origin) * slope);
    }
}

// Parts whose boxes the ray meets between two places, as bits.
[[gnu::always_inline]] inline unsigned int find_parts(const PartBoxes& boxes, const BoxRay& ray, float begin,
                                                      float end) {
    SimdFloat8 near[2] = {SimdFloat8(begin), SimdFloat8(begin)};
    SimdFloat8 far[2] = {SimdFloat8(end), SimdFloat8(end)};
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const SimdFloat8 step(boxes.step[axis] * ray.slope[axis]);
        const SimdFloat8 start((boxes.origin[axis] - ray.origin[axis]) * ray.slope[axis]);
        const unsigned char* enter = boxes.sides[axis][ray.near_side[axis]];
        const unsigned char* leave = boxes.sides[axis][1 - ray.near_side[axis]];
        for (unsigned int h = 0; h < 2; ++h) {
            near[h] = max(near[h], SimdFloat8::load8(enter + 8 * h) * step + start);
            far[h] = min(far[h], SimdFloat8::load8(leave + 8 * h) * step + start);
        }
    }
    return static_cast<unsigned int>(less_equal_mask(near[0], far[0])) |
           static_cast<unsigned int>(less_equal_mask(near[1], far[1])) << 8;
}

}  // namespace

}  // namespace sds
