// AVX2, and AVX-512VL, which adds registers and is left to the compiler.
#pragma once

#include "qn_simd/simd_set.h"

#if defined(__AVX2__) && !defined(QN_SIMD_SCALAR)
#include <immintrin.h>

namespace QN_SIMD_NAMESPACE {

using Float8 __attribute__((vector_size(32))) = float;
using Double4 __attribute__((vector_size(32))) = double;

QN_SIMD_INLINE Float8 join(Float4 low, Float4 high) { return _mm256_set_m128(high, low); }
QN_SIMD_INLINE Float4 get_low(Float8 v) { return _mm256_castps256_ps128(v); }
QN_SIMD_INLINE Float4 get_high(Float8 v) { return _mm256_extractf128_ps(v, 1); }
QN_SIMD_INLINE Double2 get_low(Double4 v) { return _mm256_castpd256_pd128(v); }
QN_SIMD_INLINE Double2 get_high(Double4 v) { return _mm256_extractf128_pd(v, 1); }
QN_SIMD_INLINE Float8 load8(const unsigned char* p) {
    return _mm256_cvtepi32_ps(_mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))));
}
QN_SIMD_INLINE Float4 load3(const float* p) { return _mm_maskload_ps(p, _mm_setr_epi32(-1, -1, -1, 0)); }
QN_SIMD_INLINE int less_equal_bits(Float4 a, Float4 b) { return _mm_movemask_ps(_mm_cmp_ps(a, b, _CMP_LE_OQ)); }
QN_SIMD_INLINE int less_equal_bits(Float8 a, Float8 b) { return _mm256_movemask_ps(_mm256_cmp_ps(a, b, _CMP_LE_OQ)); }
QN_SIMD_INLINE Double4 widen(Float4 a) { return _mm256_cvtps_pd(a); }
QN_SIMD_INLINE Double4 take_root(Double4 a) { return _mm256_sqrt_pd(a); }
QN_SIMD_INLINE Double4 clear_sign(Double4 a) { return _mm256_andnot_pd(_mm256_set1_pd(-0.0), a); }

}  // namespace QN_SIMD_NAMESPACE

#endif
