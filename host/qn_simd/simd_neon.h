// ARM64. Its minimum and maximum instructions treat NaN in their own way and are not used.
#pragma once

#include "qn_simd/simd_set.h"

#if defined(__aarch64__) && defined(__ARM_NEON) && !defined(QN_SIMD_SCALAR)
#include <arm_neon.h>

namespace QN_SIMD_NAMESPACE {

QN_SIMD_INLINE int less_equal_bits(Float4 a, Float4 b) {
    const uint32x4_t lanes{1, 2, 4, 8};
    return static_cast<int>(vaddvq_u32(vandq_u32(vcleq_f32(a, b), lanes)));
}
QN_SIMD_INLINE Double2 widen_low(Float4 a) { return vcvt_f64_f32(vget_low_f32(a)); }
QN_SIMD_INLINE Double2 widen_high(Float4 a) { return vcvt_high_f64_f32(a); }
QN_SIMD_INLINE Double2 take_root(Double2 a) { return vsqrtq_f64(a); }

}  // namespace QN_SIMD_NAMESPACE

#endif
