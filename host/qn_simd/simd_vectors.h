// Lanes over the compiler's vectors: Float4, and Float8 and Double4 as one vector where the set has such wide ones,
// else as two. The few operations that the compilers have no words for come from the set's own header.
#pragma once

#include "qn_simd/simd_set.h"

#if !defined(QN_SIMD_SCALAR)

namespace QN_SIMD_NAMESPACE {

using Float4 __attribute__((vector_size(16))) = float;
using Double2 __attribute__((vector_size(16))) = double;
using Long2 __attribute__((vector_size(16))) = long long;
using Float2 __attribute__((vector_size(8))) = float;

}  // namespace QN_SIMD_NAMESPACE

#if defined(__AVX2__)
#include "qn_simd/simd_avx2.h"
#elif defined(__SSE2__)
#include "qn_simd/simd_sse2.h"
#elif defined(__ARM_NEON)
#include "qn_simd/simd_neon.h"
#else
#include "qn_simd/simd_wasm.h"
#endif

namespace QN_SIMD_NAMESPACE {

QN_SIMD_INLINE Float4 load(const float* p) {
    Float4 v;
    __builtin_memcpy(&v, p, sizeof v);
    return v;
}
QN_SIMD_INLINE Float4 load_bytes(const unsigned char* p) {
    using Byte4 __attribute__((vector_size(4))) = unsigned char;
    using Int4 __attribute__((vector_size(16))) = int;
    Byte4 bytes;
    __builtin_memcpy(&bytes, p, sizeof bytes);
    return __builtin_convertvector(__builtin_convertvector(bytes, Int4), Float4);
}
QN_SIMD_INLINE void store(float* p, Float4 v) { __builtin_memcpy(p, &v, sizeof v); }
QN_SIMD_INLINE void store3(float* p, Float4 v) {
    const Long2 pairs = reinterpret_cast<Long2>(v);
    const long long first = pairs[0];
    __builtin_memcpy(p, &first, sizeof first);
    p[2] = v[2];
}

// Four lanes out of those of a, 0 to 3, and b, 4 to 7.
template <int... k>
QN_SIMD_INLINE Float4 shuffle(Float4 a, Float4 b) {
    return __builtin_shufflevector(a, b, k...);
}
// Where a < b, take x, else y.
QN_SIMD_INLINE Float4 choose_less(Float4 a, Float4 b, Float4 x, Float4 y) { return a < b ? x : y; }

#if defined(__AVX2__)

QN_SIMD_INLINE Float8 load8(const float* p) {
    Float8 v;
    __builtin_memcpy(&v, p, sizeof v);
    return v;
}
template <int... k>
QN_SIMD_INLINE Float8 shuffle(Float8 a, Float8 b) {
    return __builtin_shufflevector(a, b, (k + (k & 4))..., (k + (k & 4) + 4)...);
}
QN_SIMD_INLINE Float8 choose_less(Float8 a, Float8 b, Float8 x, Float8 y) { return a < b ? x : y; }
QN_SIMD_INLINE Float8 swap_halves(Float8 v) { return __builtin_shufflevector(v, v, 4, 5, 6, 7, 0, 1, 2, 3); }
QN_SIMD_INLINE Float8 fill(float low, float high) { return Float8{low, low, low, low, high, high, high, high}; }
QN_SIMD_INLINE Double4 join_doubles(double a, double b, double c, double d) { return Double4{a, b, c, d}; }
QN_SIMD_INLINE Double4 load_doubles(const double* p) {
    Double4 v;
    __builtin_memcpy(&v, p, sizeof v);
    return v;
}
QN_SIMD_INLINE void store_doubles(double* p, Double4 v) { __builtin_memcpy(p, &v, sizeof v); }
QN_SIMD_INLINE Float4 round_lanes(Double4 v) { return __builtin_convertvector(v, Float4); }

#else

QN_SIMD_INLINE Float4 load3(const float* p) {
    Long2 first{};
    __builtin_memcpy(&first, p, 8);
    return shuffle<0, 1, 4, 5>(reinterpret_cast<Float4>(first), Float4{p[2], 0.0f, 0.0f, 0.0f});
}

template <class Vector>
struct TwoVectors {
    Vector low, high;

    QN_SIMD_INLINE friend TwoVectors operator+(TwoVectors a, TwoVectors b) { return {a.low + b.low, a.high + b.high}; }
    QN_SIMD_INLINE friend TwoVectors operator-(TwoVectors a, TwoVectors b) { return {a.low - b.low, a.high - b.high}; }
    QN_SIMD_INLINE friend TwoVectors operator*(TwoVectors a, TwoVectors b) { return {a.low * b.low, a.high * b.high}; }
    QN_SIMD_INLINE friend TwoVectors operator/(TwoVectors a, TwoVectors b) { return {a.low / b.low, a.high / b.high}; }
};
using Float8 = TwoVectors<Float4>;
using Double4 = TwoVectors<Double2>;

template <class Vector>
QN_SIMD_INLINE TwoVectors<Vector> join(Vector low, Vector high) {
    return {low, high};
}
template <class Vector>
QN_SIMD_INLINE Vector get_low(TwoVectors<Vector> v) {
    return v.low;
}
template <class Vector>
QN_SIMD_INLINE Vector get_high(TwoVectors<Vector> v) {
    return v.high;
}
template <int... k>
QN_SIMD_INLINE Float8 shuffle(Float8 a, Float8 b) {
    return {shuffle<k...>(a.low, b.low), shuffle<k...>(a.high, b.high)};
}
QN_SIMD_INLINE Float8 choose_less(Float8 a, Float8 b, Float8 x, Float8 y) {
    return {choose_less(a.low, b.low, x.low, y.low), choose_less(a.high, b.high, x.high, y.high)};
}
QN_SIMD_INLINE int less_equal_bits(Float8 a, Float8 b) {
    return less_equal_bits(a.low, b.low) | less_equal_bits(a.high, b.high) << 4;
}
QN_SIMD_INLINE Float8 load8(const float* p) { return {load(p), load(p + 4)}; }
QN_SIMD_INLINE Float8 load8(const unsigned char* p) { return {load_bytes(p), load_bytes(p + 4)}; }
QN_SIMD_INLINE Float8 swap_halves(Float8 v) { return {v.high, v.low}; }
QN_SIMD_INLINE Float8 fill(float low, float high) {
    return {Float4{low, low, low, low}, Float4{high, high, high, high}};
}
QN_SIMD_INLINE Double4 join_doubles(double a, double b, double c, double d) { return {Double2{a, b}, Double2{c, d}}; }
QN_SIMD_INLINE Double4 load_doubles(const double* p) {
    Double4 v;
    __builtin_memcpy(&v.low, p, sizeof v.low);
    __builtin_memcpy(&v.high, p + 2, sizeof v.high);
    return v;
}
QN_SIMD_INLINE void store_doubles(double* p, Double4 v) {
    __builtin_memcpy(p, &v.low, sizeof v.low);
    __builtin_memcpy(p + 2, &v.high, sizeof v.high);
}
QN_SIMD_INLINE Float4 round_lanes(Double4 v) {
    const Float2 low = __builtin_convertvector(v.low, Float2), high = __builtin_convertvector(v.high, Float2);
    return __builtin_shufflevector(low, high, 0, 1, 2, 3);
}
QN_SIMD_INLINE Double4 widen(Float4 a) { return {widen_low(a), widen_high(a)}; }
QN_SIMD_INLINE Double4 take_root(Double4 a) { return {take_root(a.low), take_root(a.high)}; }
QN_SIMD_INLINE Double4 clear_sign(Double4 a) {
    constexpr long long rest = 0x7FFFFFFFFFFFFFFF;
    const Long2 low = reinterpret_cast<Long2>(a.low) & rest, high = reinterpret_cast<Long2>(a.high) & rest;
    return {reinterpret_cast<Double2>(low), reinterpret_cast<Double2>(high)};
}

#endif

QN_SIMD_INLINE void store_doubles3(double* p, Double4 v) {
    const Double2 low = get_low(v);
    __builtin_memcpy(p, &low, sizeof low);
    p[2] = get_high(v)[0];
}
QN_SIMD_INLINE void store_rounded_doubles3(float* p, Double4 v) {
    const Float2 low = __builtin_convertvector(get_low(v), Float2);
    __builtin_memcpy(p, &low, sizeof low);
    p[2] = static_cast<float>(get_high(v)[0]);
}
// (0 + 1) + 2.
QN_SIMD_INLINE double add_lanes3(Double4 v) {
    const Double2 low = get_low(v);
    return (low[0] + low[1]) + get_high(v)[0];
}
// (0 + 1) + (2 + 3).
QN_SIMD_INLINE double add_lanes(Double4 v) {
    const Double2 low = get_low(v), high = get_high(v);
    const Double2 pairs = __builtin_shufflevector(low, high, 0, 2) + __builtin_shufflevector(low, high, 1, 3);
    return pairs[0] + pairs[1];
}
QN_SIMD_INLINE Double4 add_lanes_of_four(Double4 a, Double4 b, Double4 c, Double4 d) {
#if defined(__AVX2__)
    const Double4 ab = __builtin_shufflevector(a, b, 0, 4, 2, 6) + __builtin_shufflevector(a, b, 1, 5, 3, 7);
    const Double4 cd = __builtin_shufflevector(c, d, 0, 4, 2, 6) + __builtin_shufflevector(c, d, 1, 5, 3, 7);
    return __builtin_shufflevector(ab, cd, 0, 1, 4, 5) + __builtin_shufflevector(ab, cd, 2, 3, 6, 7);
#else
    return join_doubles(add_lanes(a), add_lanes(b), add_lanes(c), add_lanes(d));
#endif
}

}  // namespace QN_SIMD_NAMESPACE

#endif
