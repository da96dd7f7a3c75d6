// Four double-precision lanes: one AVX vector where the translation unit is compiled for it, else two SSE2 vectors,
// else a plain array with the same bits. Forced inline and named by instruction set, as SimdFloat8 is.
#pragma once

#include "qn_simd/simd_float8.h"

namespace QN_SIMD_NAMESPACE {

#if defined(__AVX2__) && !defined(QN_SIMD_SCALAR)

struct SimdDouble4 {
    __m256d v;

    QN_SIMD_INLINE SimdDouble4() = default;
    QN_SIMD_INLINE SimdDouble4(__m256d x) : v(x) {}
    QN_SIMD_INLINE explicit SimdDouble4(double s) : v(_mm256_set1_pd(s)) {}
    // Three numbers at any address, the last lane 0. Nothing beyond them is read or written.
    QN_SIMD_INLINE static SimdDouble4 load3(const double* p) {
        return _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_loadu_pd(p)), _mm_load_sd(p + 2), 1);
    }
    QN_SIMD_INLINE void store3(double* p) const {
        _mm_storeu_pd(p, _mm256_castpd256_pd128(v));
        _mm_store_sd(p + 2, _mm256_extractf128_pd(v, 1));
    }
    // The first three rounded to single precision, to any address.
    QN_SIMD_INLINE void store_rounded3(float* p) const { SimdFloat8::store3(_mm256_cvtpd_ps(v), p); }
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

    QN_SIMD_INLINE SimdDouble4() = default;
    QN_SIMD_INLINE SimdDouble4(__m128d l, __m128d h) : low(l), high(h) {}
    QN_SIMD_INLINE explicit SimdDouble4(double s) : low(_mm_set1_pd(s)), high(_mm_set1_pd(s)) {}
    QN_SIMD_INLINE static SimdDouble4 load3(const double* p) { return {_mm_loadu_pd(p), _mm_load_sd(p + 2)}; }
    QN_SIMD_INLINE void store3(double* p) const {
        _mm_storeu_pd(p, low);
        _mm_store_sd(p + 2, high);
    }
    QN_SIMD_INLINE void store_rounded3(float* p) const {
        _mm_storel_pi(reinterpret_cast<__m64*>(p), _mm_cvtpd_ps(low));
        _mm_store_ss(p + 2, _mm_cvtpd_ps(high));
    }
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

    SimdDouble4() = default;
    SimdDouble4(double a, double b, double c, double d) : v{a, b, c, d} {}
    explicit SimdDouble4(double s) : v{s, s, s, s} {}
    static SimdDouble4 load3(const double* p) { return {p[0], p[1], p[2], 0.0}; }
    void store3(double* p) const {
        for (int i = 0; i < 3; ++i) p[i] = v[i];
    }
    void store_rounded3(float* p) const {
        for (int i = 0; i < 3; ++i) p[i] = static_cast<float>(v[i]);
    }
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
