// Eight single-precision lanes: two groups of four. Shuffles stay inside their group, so that the two groups run the
// same computation on two coordinates. simd_set.h has the rules for NaN and equal lanes.
#pragma once

#include "qn_simd/simd_set.h"

namespace QN_SIMD_NAMESPACE {

struct SimdFloat8 {
    Float8 v;

    QN_SIMD_INLINE SimdFloat8() = default;
    QN_SIMD_INLINE SimdFloat8(Float8 x) : v(x) {}
    QN_SIMD_INLINE explicit SimdFloat8(float s) : v(fill(s, s)) {}
    // `low` in the first four lanes, `high` in the others.
    QN_SIMD_INLINE SimdFloat8(float low, float high) : v(fill(low, high)) {}
    // The first four lanes from `low`, the others from `high`; any address.
    QN_SIMD_INLINE SimdFloat8(const float* low, const float* high) : v(join(load(low), load(high))) {}
    // Eight floats, or bytes made into floats, that follow each other; any address.
    QN_SIMD_INLINE static SimdFloat8 load8(const float* p) { return QN_SIMD_NAMESPACE::load8(p); }
    QN_SIMD_INLINE static SimdFloat8 load8(const unsigned char* p) { return QN_SIMD_NAMESPACE::load8(p); }
    // Three floats each at any address, the fourth lanes 0. Nothing beyond them is read.
    QN_SIMD_INLINE static SimdFloat8 load3(const float* low, const float* high) {
        return join(QN_SIMD_NAMESPACE::load3(low), QN_SIMD_NAMESPACE::load3(high));
    }
    QN_SIMD_INLINE void store(float* p) const { store(p, p + 4); }
    // The first four lanes to `low`, the others to `high`.
    QN_SIMD_INLINE void store(float* low, float* high) const {
        QN_SIMD_NAMESPACE::store(low, get_low(v));
        QN_SIMD_NAMESPACE::store(high, get_high(v));
    }
    // Three lanes of each group.
    QN_SIMD_INLINE void store3(float* low, float* high) const {
        QN_SIMD_NAMESPACE::store3(low, get_low(v));
        QN_SIMD_NAMESPACE::store3(high, get_high(v));
    }
};

QN_SIMD_INLINE SimdFloat8 operator+(SimdFloat8 a, SimdFloat8 b) { return a.v + b.v; }
QN_SIMD_INLINE SimdFloat8 operator-(SimdFloat8 a, SimdFloat8 b) { return a.v - b.v; }
QN_SIMD_INLINE SimdFloat8 operator*(SimdFloat8 a, SimdFloat8 b) { return a.v * b.v; }
QN_SIMD_INLINE SimdFloat8 operator/(SimdFloat8 a, SimdFloat8 b) { return a.v / b.v; }
QN_SIMD_INLINE SimdFloat8 min(SimdFloat8 a, SimdFloat8 b) { return choose_less(a.v, b.v, a.v, b.v); }
QN_SIMD_INLINE SimdFloat8 max(SimdFloat8 a, SimdFloat8 b) { return choose_less(b.v, a.v, a.v, b.v); }
// Lane-wise: where a > 0 take b, else c.
QN_SIMD_INLINE SimdFloat8 select_positive(SimdFloat8 a, SimdFloat8 b, SimdFloat8 c) {
    return choose_less(Float8{}, a.v, b.v, c.v);
}
// Bit i is set when lane i compares true.
QN_SIMD_INLINE int less_equal_mask(SimdFloat8 a, SimdFloat8 b) { return less_equal_bits(a.v, b.v); }

// Lanes of each group, as listed.
template <int... k>
QN_SIMD_INLINE SimdFloat8 shuffle(SimdFloat8 a) {
    return shuffle<k...>(a.v, a.v);
}
// Lane i of each group becomes lane (i + 1), the last keeps its place. The second form is 0 1 2 2.
QN_SIMD_INLINE SimdFloat8 next_lanes(SimdFloat8 a) { return shuffle<1, 2, 3, 3>(a); }
QN_SIMD_INLINE SimdFloat8 first_lanes(SimdFloat8 a) { return shuffle<0, 1, 2, 2>(a); }
QN_SIMD_INLINE SimdFloat8 swap_pairs(SimdFloat8 a) { return shuffle<2, 3, 0, 1>(a); }
QN_SIMD_INLINE SimdFloat8 swap_neighbors(SimdFloat8 a) { return shuffle<1, 0, 3, 2>(a); }
QN_SIMD_INLINE SimdFloat8 swap_last(SimdFloat8 a) { return shuffle<0, 1, 3, 2>(a); }
// The next axis of a vector in three lanes.
QN_SIMD_INLINE SimdFloat8 rotate_axes(SimdFloat8 a) { return shuffle<1, 2, 0, 3>(a); }
// Every lane of a group becomes its lane k.
template <int k>
QN_SIMD_INLINE SimdFloat8 broadcast_lane(SimdFloat8 a) {
    return shuffle<k, k, k, k>(a);
}
// The two groups change places.
QN_SIMD_INLINE SimdFloat8 swap_groups(SimdFloat8 a) { return swap_halves(a.v); }
// Lanes 0 1 (2 3) of each group of a, then those of b.
QN_SIMD_INLINE SimdFloat8 low_pairs(SimdFloat8 a, SimdFloat8 b) { return shuffle<0, 1, 4, 5>(a.v, b.v); }
QN_SIMD_INLINE SimdFloat8 high_pairs(SimdFloat8 a, SimdFloat8 b) { return shuffle<2, 3, 6, 7>(a.v, b.v); }
// Lanes 0 1 (2 3) of each group of a and b, one of a and one of b in turn.
QN_SIMD_INLINE SimdFloat8 zip_low(SimdFloat8 a, SimdFloat8 b) { return shuffle<0, 4, 1, 5>(a.v, b.v); }
QN_SIMD_INLINE SimdFloat8 zip_high(SimdFloat8 a, SimdFloat8 b) { return shuffle<2, 6, 3, 7>(a.v, b.v); }
// Lanes 0 2 (1 3) of each group of a, then those of b.
QN_SIMD_INLINE SimdFloat8 even_lanes(SimdFloat8 a, SimdFloat8 b) { return shuffle<0, 2, 4, 6>(a.v, b.v); }
QN_SIMD_INLINE SimdFloat8 odd_lanes(SimdFloat8 a, SimdFloat8 b) { return shuffle<1, 3, 5, 7>(a.v, b.v); }
// Transposes the 4 x 4 blocks of both groups.
QN_SIMD_INLINE void transpose(SimdFloat8& a, SimdFloat8& b, SimdFloat8& c, SimdFloat8& d) {
    transpose_lanes(a.v, b.v, c.v, d.v);
}

// Every lane becomes the least (greatest) of its group.
QN_SIMD_INLINE SimdFloat8 group_min(SimdFloat8 a) {
    const SimdFloat8 pairs = min(a, swap_pairs(a));
    return min(pairs, swap_neighbors(pairs));
}
QN_SIMD_INLINE SimdFloat8 group_max(SimdFloat8 a) {
    const SimdFloat8 pairs = max(a, swap_pairs(a));
    return max(pairs, swap_neighbors(pairs));
}
// Lane i of each group becomes the least (greatest) of that group of the i-th vector.
QN_SIMD_INLINE SimdFloat8 min_of_four(const SimdFloat8& a, const SimdFloat8& b, const SimdFloat8& c,
                                      const SimdFloat8& d) {
    const SimdFloat8 ab = min(zip_low(a, b), zip_high(a, b)), cd = min(zip_low(c, d), zip_high(c, d));
    return min(low_pairs(ab, cd), high_pairs(ab, cd));
}
QN_SIMD_INLINE SimdFloat8 max_of_four(const SimdFloat8& a, const SimdFloat8& b, const SimdFloat8& c,
                                      const SimdFloat8& d) {
    const SimdFloat8 ab = max(zip_low(a, b), zip_high(a, b)), cd = max(zip_low(c, d), zip_high(c, d));
    return max(low_pairs(ab, cd), high_pairs(ab, cd));
}
// Lane i of each group becomes the sum of that group of the i-th vector.
QN_SIMD_INLINE SimdFloat8 sum_of_four(const SimdFloat8& a, const SimdFloat8& b, const SimdFloat8& c,
                                      const SimdFloat8& d) {
    const SimdFloat8 ab = zip_low(a, b) + zip_high(a, b), cd = zip_low(c, d) + zip_high(c, d);
    return low_pairs(ab, cd) + high_pairs(ab, cd);
}

}  // namespace QN_SIMD_NAMESPACE
