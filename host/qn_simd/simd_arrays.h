// The scalar twin: lanes as plain arrays, one operation after the other.
#pragma once

#include "qn_simd/simd_set.h"

#if defined(QN_SIMD_SCALAR)

namespace QN_SIMD_NAMESPACE {

template <class T, int n>
struct Array {
    T lane[n];

    // Lane i becomes make(i).
    template <class Make>
    static Array fill(Make&& make) {
        Array r;
        for (int i = 0; i < n; ++i) r.lane[i] = make(i);
        return r;
    }
    T operator[](int i) const { return lane[i]; }

    friend Array operator+(const Array& a, const Array& b) {
        return fill([&](int i) { return a[i] + b[i]; });
    }
    friend Array operator-(const Array& a, const Array& b) {
        return fill([&](int i) { return a[i] - b[i]; });
    }
    friend Array operator*(const Array& a, const Array& b) {
        return fill([&](int i) { return a[i] * b[i]; });
    }
    friend Array operator/(const Array& a, const Array& b) {
        return fill([&](int i) { return a[i] / b[i]; });
    }
    friend Array choose_less(const Array& a, const Array& b, const Array& x, const Array& y) {
        return fill([&](int i) { return a[i] < b[i] ? x[i] : y[i]; });
    }
    friend int less_equal_bits(const Array& a, const Array& b) {
        int bits = 0;
        for (int i = 0; i < n; ++i) bits |= (a[i] <= b[i] ? 1 : 0) << i;
        return bits;
    }
};
using Float4 = Array<float, 4>;
using Float8 = Array<float, 8>;
using Double4 = Array<double, 4>;

inline Float4 load(const float* p) { return {p[0], p[1], p[2], p[3]}; }
inline Float8 load8(const float* p) {
    return Float8::fill([&](int i) { return p[i]; });
}
inline Float8 load8(const unsigned char* p) {
    return Float8::fill([&](int i) { return static_cast<float>(p[i]); });
}
inline Float4 load3(const float* p) { return {p[0], p[1], p[2], 0.0f}; }
inline void store(float* p, const Float4& v) {
    for (int i = 0; i < 4; ++i) p[i] = v[i];
}
inline void store3(float* p, const Float4& v) {
    for (int i = 0; i < 3; ++i) p[i] = v[i];
}
inline Double4 join_doubles(double a, double b, double c, double d) { return {a, b, c, d}; }
inline Double4 load_doubles(const double* p) { return {p[0], p[1], p[2], p[3]}; }
inline void store_doubles(double* p, const Double4& v) {
    for (int i = 0; i < 4; ++i) p[i] = v[i];
}
inline Float4 round_lanes(const Double4& v) {
    return Float4::fill([&](int i) { return static_cast<float>(v[i]); });
}
inline void store_doubles3(double* p, const Double4& v) {
    for (int i = 0; i < 3; ++i) p[i] = v[i];
}
inline void store_rounded_doubles3(float* p, const Double4& v) {
    for (int i = 0; i < 3; ++i) p[i] = static_cast<float>(v[i]);
}
inline Float8 join(const Float4& low, const Float4& high) {
    return Float8::fill([&](int i) { return i < 4 ? low[i] : high[i - 4]; });
}
inline Float4 get_low(const Float8& v) { return load(v.lane); }
inline Float4 get_high(const Float8& v) { return load(v.lane + 4); }
inline Float8 swap_halves(const Float8& v) { return join(get_high(v), get_low(v)); }
inline Float8 fill(float low, float high) { return {low, low, low, low, high, high, high, high}; }
// Four lanes out of those of a, 0 to 3, and b, 4 to 7; in each group of four.
template <int... k, int n>
Array<float, n> shuffle(const Array<float, n>& a, const Array<float, n>& b) {
    constexpr int order[4] = {k...};
    return Array<float, n>::fill([&](int i) { return (order[i & 3] < 4 ? a : b)[(i & 4) + (order[i & 3] & 3)]; });
}

inline Double4 widen(const Float4& a) {
    return Double4::fill([&](int i) { return static_cast<double>(a[i]); });
}
inline Double4 take_root(const Double4& a) {
    return Double4::fill([&](int i) { return __builtin_sqrt(a[i]); });
}
inline Double4 clear_sign(const Double4& a) {
    return Double4::fill([&](int i) { return __builtin_fabs(a[i]); });
}
inline double add_lanes3(const Double4& v) { return (v[0] + v[1]) + v[2]; }
inline double add_lanes(const Double4& v) { return (v[0] + v[1]) + (v[2] + v[3]); }
inline Double4 add_lanes_of_four(const Double4& a, const Double4& b, const Double4& c, const Double4& d) {
    return {add_lanes(a), add_lanes(b), add_lanes(c), add_lanes(d)};
}

}  // namespace QN_SIMD_NAMESPACE

#endif
