// Four double-precision lanes.
#pragma once

#include "qn_simd/simd_set.h"

namespace QN_SIMD_NAMESPACE {

struct SimdDouble4 {
    Double4 v;

    QN_SIMD_INLINE SimdDouble4(Double4 x) : v(x) {}
    // Four floats at any address, widened.
    QN_SIMD_INLINE explicit SimdDouble4(const float* p) : v(widen(load(p))) {}
    // (0 + 1) + (2 + 3).
    QN_SIMD_INLINE double sum() const { return add_lanes(v); }
};

QN_SIMD_INLINE SimdDouble4 operator+(SimdDouble4 a, SimdDouble4 b) { return a.v + b.v; }
QN_SIMD_INLINE SimdDouble4 operator-(SimdDouble4 a, SimdDouble4 b) { return a.v - b.v; }
QN_SIMD_INLINE SimdDouble4 operator*(SimdDouble4 a, SimdDouble4 b) { return a.v * b.v; }
QN_SIMD_INLINE SimdDouble4 sqrt(SimdDouble4 a) { return take_root(a.v); }
QN_SIMD_INLINE SimdDouble4 abs(SimdDouble4 a) { return clear_sign(a.v); }

}  // namespace QN_SIMD_NAMESPACE
