// Four double-precision lanes: one AVX vector where the translation unit is compiled for it, else two SSE2 vectors,
// else a plain array with the same bits. Forced inline and named by instruction set, as SimdFloat8 is.
#pragma once

#include "qn_simd/simd_float8.h"

namespace QN_SIMD_NAMESPACE {

#if defined(__AVX2__) && !defined(QN_SIMD_SCALAR)

struct SimdDouble4 {
    __m256d v;

    QN_SIMD_INLINE SimdDouble4(__m256d x) : v(x) {}
    // Four floats at any address, widened.
    QN_SIMD_INLINE explicit SimdDouble4(const float* p) : v(_mm256_cvtps_pd(_mm_loadu_ps(p))) {}
    // (0 + 1) + (2 + 3).
    QN_SIMD_INLINE double sum() const {
        const __m128d low = _mm256_castpd256_pd128(v), high = _mm256_extractf128_pd(v, 1);
        const __m128d pairs = _mm_add_pd(_mm_unpacklo_pd(low, high), _mm_unpackhi_pd(low, high));
        return _mm_cvtsd_f64(_mm_add_sd(pairs, _mm_unpackhi_pd(pairs, pairs)));
    }
};

QN_SIMD_INLINE SimdDouble4 operator+(SimdDouble4 a, SimdDouble4 b) { return _mm256_add_pd(a.v, b.v); }
QN_SIMD_INLINE SimdDouble4 operator-(SimdDouble4 a, SimdDouble4 b) { return _mm256_sub_pd(a.v, b.v); }
QN_SIMD_INLINE SimdDouble4 operator*(SimdDouble4 a, SimdDouble4 b) { return _mm256_mul_pd(a.v, b.v); }
QN_SIMD_INLINE SimdDouble4 sqrt(SimdDouble4 a) { return _mm256_sqrt_pd(a.v); }
QN_SIMD_INLINE SimdDouble4 abs(SimdDouble4 a) { return _mm256_andnot_pd(_mm256_set1_pd(-0.0), a.v); }

#elif defined(__SSE2__) && !defined(QN_SIMD_SCALAR)

struct SimdDouble4 {
    __m128d low, high;

    QN_SIMD_INLINE SimdDouble4(__m128d l, __m128d h) : low(l), high(h) {}
    QN_SIMD_INLINE explicit SimdDouble4(const float* p) {
        const __m128 floats = _mm_loadu_ps(p);
        low = _mm_cvtps_pd(floats);
        high = _mm_cvtps_pd(_mm_movehl_ps(floats, floats));
    }
    QN_SIMD_INLINE double sum() const {
        const __m128d pairs = _mm_add_pd(_mm_unpacklo_pd(low, high), _mm_unpackhi_pd(low, high));
        return _mm_cvtsd_f64(_mm_add_sd(pairs, _mm_unpackhi_pd(pairs, pairs)));
    }
};

QN_SIMD_INLINE SimdDouble4 operator+(SimdDouble4 a, SimdDouble4 b) {
    return {_mm_add_pd(a.low, b.low), _mm_add_pd(a.high, b.high)};
}
QN_SIMD_INLINE SimdDouble4 operator-(SimdDouble4 a, SimdDouble4 b) {
    return {_mm_sub_pd(a.low, b.low), _mm_sub_pd(a.high, b.high)};
}
QN_SIMD_INLINE SimdDouble4 operator*(SimdDouble4 a, SimdDouble4 b) {
    return {_mm_mul_pd(a.low, b.low), _mm_mul_pd(a.high, b.high)};
}
QN_SIMD_INLINE SimdDouble4 sqrt(SimdDouble4 a) { return {_mm_sqrt_pd(a.low), _mm_sqrt_pd(a.high)}; }
QN_SIMD_INLINE SimdDouble4 abs(SimdDouble4 a) {
    const __m128d sign = _mm_set1_pd(-0.0);
    return {_mm_andnot_pd(sign, a.low), _mm_andnot_pd(sign, a.high)};
}

#else

struct SimdDouble4 {
    double v[4];

    SimdDouble4(double a, double b, double c, double d) : v{a, b, c, d} {}
    explicit SimdDouble4(const float* p) : v{p[0], p[1], p[2], p[3]} {}
    double sum() const { return (v[0] + v[1]) + (v[2] + v[3]); }
};

QN_SIMD_INLINE SimdDouble4 operator+(SimdDouble4 a, SimdDouble4 b) {
    return {a.v[0] + b.v[0], a.v[1] + b.v[1], a.v[2] + b.v[2], a.v[3] + b.v[3]};
}
QN_SIMD_INLINE SimdDouble4 operator-(SimdDouble4 a, SimdDouble4 b) {
    return {a.v[0] - b.v[0], a.v[1] - b.v[1], a.v[2] - b.v[2], a.v[3] - b.v[3]};
}
QN_SIMD_INLINE SimdDouble4 operator*(SimdDouble4 a, SimdDouble4 b) {
    return {a.v[0] * b.v[0], a.v[1] * b.v[1], a.v[2] * b.v[2], a.v[3] * b.v[3]};
}
QN_SIMD_INLINE SimdDouble4 sqrt(SimdDouble4 a) {
    return {__builtin_sqrt(a.v[0]), __builtin_sqrt(a.v[1]), __builtin_sqrt(a.v[2]), __builtin_sqrt(a.v[3])};
}
QN_SIMD_INLINE SimdDouble4 abs(SimdDouble4 a) {
    return {__builtin_fabs(a.v[0]), __builtin_fabs(a.v[1]), __builtin_fabs(a.v[2]), __builtin_fabs(a.v[3])};
}

#endif

}  // namespace QN_SIMD_NAMESPACE
