// Four double-precision lanes.
#pragma once

#include "qn_simd/simd_set.h"

namespace QN_SIMD_NAMESPACE {

struct SimdDouble4 {
    Double4 v;

    QN_SIMD_INLINE SimdDouble4() = default;
    QN_SIMD_INLINE SimdDouble4(Double4 x) : v(x) {}
    QN_SIMD_INLINE explicit SimdDouble4(double s) : v(join_doubles(s, s, s, s)) {}
    QN_SIMD_INLINE SimdDouble4(double a, double b, double c, double d) : v(join_doubles(a, b, c, d)) {}
    // Three numbers at any address, the last lane 0. Nothing beyond them is read or written.
    QN_SIMD_INLINE static SimdDouble4 load3(const double* p) { return join_doubles(p[0], p[1], p[2], 0.0); }
    QN_SIMD_INLINE static SimdDouble4 load4(const double* p) { return load_doubles(p); }
    QN_SIMD_INLINE void store4(double* p) const { store_doubles(p, v); }
    QN_SIMD_INLINE void store3(double* p) const { store_doubles3(p, v); }
    // The first three rounded to single precision, to any address.
    QN_SIMD_INLINE void store_rounded3(float* p) const { store_rounded_doubles3(p, v); }
    QN_SIMD_INLINE void store_rounded4(float* p) const { store(p, round_lanes(v)); }
    // Four floats at any address, widened.
    QN_SIMD_INLINE explicit SimdDouble4(const float* p) : v(widen(load(p))) {}
    // Three floats at any address, widened, the last lane 0. Nothing beyond them is read.
    QN_SIMD_INLINE static SimdDouble4 widen3(const float* p) { return widen(QN_SIMD_NAMESPACE::load3(p)); }
    // (0 + 1) + 2.
    QN_SIMD_INLINE double sum3() const { return add_lanes3(v); }
    // (0 + 1) + (2 + 3).
    QN_SIMD_INLINE double sum() const { return add_lanes(v); }
};

QN_SIMD_INLINE SimdDouble4 operator+(SimdDouble4 a, SimdDouble4 b) { return a.v + b.v; }
QN_SIMD_INLINE SimdDouble4 operator-(SimdDouble4 a, SimdDouble4 b) { return a.v - b.v; }
QN_SIMD_INLINE SimdDouble4 operator*(SimdDouble4 a, SimdDouble4 b) { return a.v * b.v; }
QN_SIMD_INLINE SimdDouble4 operator/(SimdDouble4 a, SimdDouble4 b) { return a.v / b.v; }
// Lane i becomes the sum() of the i-th vector.
QN_SIMD_INLINE SimdDouble4 sum_of_four(SimdDouble4 a, SimdDouble4 b, SimdDouble4 c, SimdDouble4 d) {
    return add_lanes_of_four(a.v, b.v, c.v, d.v);
}
QN_SIMD_INLINE SimdDouble4 sqrt(SimdDouble4 a) { return take_root(a.v); }
QN_SIMD_INLINE SimdDouble4 abs(SimdDouble4 a) { return clear_sign(a.v); }

}  // namespace QN_SIMD_NAMESPACE
