// What every x86-64 processor has.
#pragma once

#include "qn_simd/simd_set.h"

#if defined(__SSE2__) && !defined(__AVX2__) && !defined(QN_SIMD_SCALAR)
#include <emmintrin.h>

namespace QN_SIMD_NAMESPACE {

QN_SIMD_INLINE int less_equal_bits(Float4 a, Float4 b) { return _mm_movemask_ps(_mm_cmple_ps(a, b)); }
QN_SIMD_INLINE Double2 widen_low(Float4 a) { return _mm_cvtps_pd(a); }
QN_SIMD_INLINE Double2 widen_high(Float4 a) { return _mm_cvtps_pd(_mm_movehl_ps(a, a)); }
QN_SIMD_INLINE Double2 take_root(Double2 a) { return _mm_sqrt_pd(a); }

}  // namespace QN_SIMD_NAMESPACE

#endif
