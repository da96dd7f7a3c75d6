// A patch in the plane across a ray: its halves and quarters, and which of them hold the ray. For the kernels of one
// instruction set.
#pragma once

#include "qn_simd/simd_float8.h"
#include "sds/intersection/fast/ray_kernels.h"

namespace sds {

namespace {

using QN_SIMD_NAMESPACE::SimdFloat8;

// `bits` is not 0.
inline unsigned int take_lowest_bit(unsigned int& bits) {
    const auto place = static_cast<unsigned int>(__builtin_ctz(bits));
    bits &= bits - 1;
    return place;
}

// Where a sub-patch lies in its patch. Its rows of lanes run along a, the rows follow each other along b; each split
// halves a and stores the halves transposed, so that a and b change places. `a` and `b` count cells of their own size:
// depth / 2 halvings along a, (depth + 1) / 2 along b.
struct Path {
    unsigned int a, b, depth;
};

// A path's place in patch coordinates.
struct Range {
    float a_min, b_min, a_max, b_max;
    bool swapped;  // a is v
};

inline void transform_to_plane(const float (*controls)[16], const RaySpace& ray, SimdFloat8* rows) {
    const SimdFloat8 origin_x(ray.origin[0]), origin_y(ray.origin[1]), origin_z(ray.origin[2]);
    const SimdFloat8 across_x(ray.across[0][0], ray.across[1][0]);
    const SimdFloat8 across_y(ray.across[0][1], ray.across[1][1]);
    const SimdFloat8 across_z(ray.across[0][2], ray.across[1][2]);
    for (unsigned int r = 0; r < 4; ++r) {
        const SimdFloat8 x(controls[0] + 4 * r, controls[0] + 4 * r);
        const SimdFloat8 y(controls[1] + 4 * r, controls[1] + 4 * r);
        const SimdFloat8 z(controls[2] + 4 * r, controls[2] + 4 * r);
        rows[r] = (x - origin_x) * across_x + (y - origin_y) * across_y + (z - origin_z) * across_z;
    }
}

// Which of two sub-patches come as near to the origin as `high`, in bits 0 and 1: both groups of lanes have one at or
// below it and one at or above `low`, which is its opposite. NaN fails.
inline unsigned int find_origin(const SimdFloat8* r, const SimdFloat8* s, SimdFloat8 low, SimdFloat8 high) {
    unsigned int lanes = static_cast<unsigned int>(less_equal_mask(min(min(r[0], r[1]), min(r[2], r[3])), high)) |
                         static_cast<unsigned int>(less_equal_mask(low, max(max(r[0], r[1]), max(r[2], r[3])))) << 8 |
                         static_cast<unsigned int>(less_equal_mask(min(min(s[0], s[1]), min(s[2], s[3])), high)) << 16 |
                         static_cast<unsigned int>(less_equal_mask(low, max(max(s[0], s[1]), max(s[2], s[3])))) << 24;
    // Any lane of each group of four.
    lanes |= lanes >> 1;
    lanes |= lanes >> 2;
    lanes &= 0x11111111u;
    return ((lanes & 0xffffu) == 0x1111u ? 1u : 0u) | (lanes >> 16 == 0x1111u ? 2u : 0u);
}

// Which of two sub-patches hold the origin.
inline unsigned int find_origin(const SimdFloat8* r, const SimdFloat8* s) {
    const SimdFloat8 zero(0.0f);
    return find_origin(r, s, zero, zero);
}

// Which of four sub-patches come within `slack` of the origin, in bits 0 to 3.
inline unsigned int find_origin(const SimdFloat8 (*nodes)[4], SimdFloat8 slack) {
    SimdFloat8 low[4], high[4];
    for (unsigned int i = 0; i < 4; ++i) {
        const SimdFloat8* r = nodes[i];
        low[i] = min(min(r[0], r[1]), min(r[2], r[3]));
        high[i] = max(max(r[0], r[1]), max(r[2], r[3]));
    }
    const int found = less_equal_mask(min_of_four(low[0], low[1], low[2], low[3]), slack) &
                      less_equal_mask(SimdFloat8(0.0f) - slack, max_of_four(high[0], high[1], high[2], high[3]));
    return static_cast<unsigned int>(found & (found >> 4)) & 15u;
}

// De Casteljau at one half along the rows. Symmetric: a reversed edge halves to the same bits. Sums wait for their
// factor, a power of two, until the end: the same bits sooner.
inline void halve_rows(SimdFloat8 p0, SimdFloat8 p1, SimdFloat8 p2, SimdFloat8 p3, SimdFloat8* first,
                       SimdFloat8* second) {
    const SimdFloat8 m01 = p0 + p1;
    const SimdFloat8 m12 = p1 + p2;
    const SimdFloat8 m23 = p2 + p3;
    const SimdFloat8 a = m01 + m12;
    const SimdFloat8 b = m12 + m23;
    const SimdFloat8 half(0.5f), quarter(0.25f), eighth(0.125f);
    const SimdFloat8 mid = (a + b) * eighth;
    first[0] = p0, first[1] = m01 * half, first[2] = a * quarter, first[3] = mid;
    second[0] = mid, second[1] = b * quarter, second[2] = m23 * half, second[3] = p3;
}

// The same along the lanes, halves stored transposed.
inline void halve(SimdFloat8 p0, SimdFloat8 p1, SimdFloat8 p2, SimdFloat8 p3, SimdFloat8* first, SimdFloat8* second) {
    transpose(p0, p1, p2, p3);
    halve_rows(p0, p1, p2, p3, first, second);
}

// Both ways: four quarters in order (a, b) = (first, first), (first, second), (second, first), (second, second), rows
// along a and lanes along b where the rows of the whole ran along b.
inline void quarter(const SimdFloat8* rows, SimdFloat8 (*quarters)[4]) {
    SimdFloat8 first[4], second[4];
    halve(rows[0], rows[1], rows[2], rows[3], first, second);
    halve(first[0], first[1], first[2], first[3], quarters[0], quarters[1]);
    halve(second[0], second[1], second[2], second[3], quarters[2], quarters[3]);
}

// The path of a node's first half; the second's has b one greater.
inline Path get_first_half(const Path& path) { return {path.b, 2 * path.a, path.depth + 1}; }

inline Range get_range(const Path& path) {
    const float a_size = 1.0f / static_cast<float>(1u << path.depth / 2);
    const float b_size = 1.0f / static_cast<float>(1u << (path.depth + 1) / 2);
    const auto a = static_cast<float>(path.a), b = static_cast<float>(path.b);
    return {a * a_size, b * b_size, (a + 1.0f) * a_size, (b + 1.0f) * b_size, (path.depth & 1) != 0};
}

}  // namespace

}  // namespace sds
