// Four single-precision lanes with comparison masks; simd_set.h has the rules for NaN and equal lanes.
#pragma once

#include "qn_simd/simd_set.h"

namespace QN_SIMD_NAMESPACE {

class SimdFloat4 {
public:
    QN_SIMD_INLINE SimdFloat4() = default;
    QN_SIMD_INLINE SimdFloat4(Float4 v) : m_v(v) {}
    QN_SIMD_INLINE explicit SimdFloat4(float s) : m_v{s, s, s, s} {}
    QN_SIMD_INLINE SimdFloat4(float a, float b, float c, float d) : m_v{a, b, c, d} {}

    // `p` must be aligned to 16 bytes; the `_unaligned` forms take any address.
    QN_SIMD_INLINE static SimdFloat4 load(const float* p) { return load_unaligned(aligned(p)); }
    QN_SIMD_INLINE static SimdFloat4 load_unaligned(const float* p) { return QN_SIMD_NAMESPACE::load(p); }
    QN_SIMD_INLINE void store(float* p) const { store_unaligned(aligned(p)); }
    QN_SIMD_INLINE void store_unaligned(float* p) const { QN_SIMD_NAMESPACE::store(p, m_v); }
    // Three floats at any address; the last lane is 0. Nothing beyond them is read or written.
    QN_SIMD_INLINE static SimdFloat4 load3(const float* p) { return QN_SIMD_NAMESPACE::load3(p); }
    QN_SIMD_INLINE void store3(float* p) const { QN_SIMD_NAMESPACE::store3(p, m_v); }

    QN_SIMD_INLINE friend SimdFloat4 operator+(SimdFloat4 a, SimdFloat4 b) { return a.m_v + b.m_v; }
    QN_SIMD_INLINE friend SimdFloat4 operator-(SimdFloat4 a, SimdFloat4 b) { return a.m_v - b.m_v; }
    QN_SIMD_INLINE friend SimdFloat4 operator*(SimdFloat4 a, SimdFloat4 b) { return a.m_v * b.m_v; }
    QN_SIMD_INLINE friend SimdFloat4 min(SimdFloat4 a, SimdFloat4 b) { return choose_less(a.m_v, b.m_v, a.m_v, b.m_v); }
    QN_SIMD_INLINE friend SimdFloat4 max(SimdFloat4 a, SimdFloat4 b) { return choose_less(b.m_v, a.m_v, a.m_v, b.m_v); }

    // Bit i is set when lane i compares true.
    QN_SIMD_INLINE friend int less_equal_mask(SimdFloat4 a, SimdFloat4 b) { return less_equal_bits(a.m_v, b.m_v); }
    // Lane-wise: where a > 0 take b, else c.
    QN_SIMD_INLINE friend SimdFloat4 select_positive(SimdFloat4 a, SimdFloat4 b, SimdFloat4 c) {
        return choose_less(Float4{}, a.m_v, b.m_v, c.m_v);
    }
    QN_SIMD_INLINE friend void transpose(SimdFloat4& a, SimdFloat4& b, SimdFloat4& c, SimdFloat4& d) {
        transpose_lanes(a.m_v, b.m_v, c.m_v, d.m_v);
    }
    // 0 0 1 2.
    QN_SIMD_INLINE friend SimdFloat4 previous_lanes(SimdFloat4 a) { return shuffle<0, 0, 1, 2>(a.m_v, a.m_v); }
    QN_SIMD_INLINE friend float horizontal_min(SimdFloat4 a) {
        const Float4 pairs = min(a, shuffle<2, 3, 2, 3>(a.m_v, a.m_v)).m_v;
        return pairs[0] < pairs[1] ? pairs[0] : pairs[1];
    }
    QN_SIMD_INLINE friend float horizontal_max(SimdFloat4 a) {
        const Float4 pairs = max(a, shuffle<2, 3, 2, 3>(a.m_v, a.m_v)).m_v;
        return pairs[0] > pairs[1] ? pairs[0] : pairs[1];
    }

private:
    template <class Float>
    QN_SIMD_INLINE static Float* aligned(Float* p) {
        return static_cast<Float*>(__builtin_assume_aligned(p, 16));
    }

    Float4 m_v;
};

}  // namespace QN_SIMD_NAMESPACE

using QN_SIMD_NAMESPACE::SimdFloat4;
