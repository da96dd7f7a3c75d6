// Four single-precision lanes with comparison masks. Baseline SSE2 on x86-64; the scalar twin gives the same bits
// everywhere and is chosen with QN_SIMD_SCALAR or where SSE2 is missing.
//
// min and max follow the instruction: when the comparison fails (equal or NaN), the second operand is the result.
#pragma once

#if defined(__SSE2__) && !defined(QN_SIMD_SCALAR)
#define QN_SIMD_SSE2 1
#include <emmintrin.h>
#else
#define QN_SIMD_SSE2 0
#endif

#if QN_SIMD_SSE2

class SimdFloat4 {
public:
    SimdFloat4() = default;
    SimdFloat4(__m128 v) : m_v(v) {}
    explicit SimdFloat4(float s) : m_v(_mm_set1_ps(s)) {}
    SimdFloat4(float a, float b, float c, float d) : m_v(_mm_setr_ps(a, b, c, d)) {}

    // `p` must be aligned to 16 bytes; the `_unaligned` forms take any address.
    static SimdFloat4 load(const float* p) { return _mm_load_ps(p); }
    static SimdFloat4 load_unaligned(const float* p) { return _mm_loadu_ps(p); }
    // Three floats at any address; the last lane is 0. Nothing beyond them is read or written.
    static SimdFloat4 load3(const float* p) {
        return _mm_movelh_ps(_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))),
                             _mm_load_ss(p + 2));
    }
    void store3(float* p) const {
        _mm_storel_pi(reinterpret_cast<__m64*>(p), m_v);
        _mm_store_ss(p + 2, _mm_movehl_ps(m_v, m_v));
    }
    void store(float* p) const { _mm_store_ps(p, m_v); }
    void store_unaligned(float* p) const { _mm_storeu_ps(p, m_v); }

    friend SimdFloat4 operator+(SimdFloat4 a, SimdFloat4 b) { return _mm_add_ps(a.m_v, b.m_v); }
    friend SimdFloat4 operator-(SimdFloat4 a, SimdFloat4 b) { return _mm_sub_ps(a.m_v, b.m_v); }
    friend SimdFloat4 operator*(SimdFloat4 a, SimdFloat4 b) { return _mm_mul_ps(a.m_v, b.m_v); }
    friend SimdFloat4 min(SimdFloat4 a, SimdFloat4 b) { return _mm_min_ps(a.m_v, b.m_v); }
    friend SimdFloat4 max(SimdFloat4 a, SimdFloat4 b) { return _mm_max_ps(a.m_v, b.m_v); }

    // Bit i is set when lane i compares true; NaN compares false.
    friend int less_equal_mask(SimdFloat4 a, SimdFloat4 b) { return _mm_movemask_ps(_mm_cmple_ps(a.m_v, b.m_v)); }
    // Lane-wise: where a > 0 take b, else c.
    friend SimdFloat4 select_positive(SimdFloat4 a, SimdFloat4 b, SimdFloat4 c) {
        const __m128 mask = _mm_cmpgt_ps(a.m_v, _mm_setzero_ps());
        return _mm_or_ps(_mm_and_ps(mask, b.m_v), _mm_andnot_ps(mask, c.m_v));
    }
    friend void transpose(SimdFloat4& a, SimdFloat4& b, SimdFloat4& c, SimdFloat4& d) {
        _MM_TRANSPOSE4_PS(a.m_v, b.m_v, c.m_v, d.m_v);
    }
    // 0 0 1 2.
    friend SimdFloat4 previous_lanes(SimdFloat4 a) { return _mm_shuffle_ps(a.m_v, a.m_v, _MM_SHUFFLE(2, 1, 0, 0)); }
    friend float horizontal_min(SimdFloat4 a) {
        const __m128 t = _mm_min_ps(a.m_v, _mm_movehl_ps(a.m_v, a.m_v));
        return _mm_cvtss_f32(_mm_min_ss(t, _mm_shuffle_ps(t, t, 1)));
    }
    friend float horizontal_max(SimdFloat4 a) {
        const __m128 t = _mm_max_ps(a.m_v, _mm_movehl_ps(a.m_v, a.m_v));
        return _mm_cvtss_f32(_mm_max_ss(t, _mm_shuffle_ps(t, t, 1)));
    }

private:
    __m128 m_v;
};

#else

class SimdFloat4 {
public:
    SimdFloat4() = default;
    explicit SimdFloat4(float s) : m_v{s, s, s, s} {}
    SimdFloat4(float a, float b, float c, float d) : m_v{a, b, c, d} {}

    static SimdFloat4 load(const float* p) { return {p[0], p[1], p[2], p[3]}; }
    static SimdFloat4 load_unaligned(const float* p) { return load(p); }
    static SimdFloat4 load3(const float* p) { return {p[0], p[1], p[2], 0.0f}; }
    void store3(float* p) const {
        for (int i = 0; i < 3; ++i) p[i] = m_v[i];
    }
    void store(float* p) const {
        for (int i = 0; i < 4; ++i) p[i] = m_v[i];
    }
    void store_unaligned(float* p) const { store(p); }

    friend SimdFloat4 operator+(SimdFloat4 a, SimdFloat4 b) {
        for (int i = 0; i < 4; ++i) a.m_v[i] += b.m_v[i];
        return a;
    }
    friend SimdFloat4 operator-(SimdFloat4 a, SimdFloat4 b) {
        for (int i = 0; i < 4; ++i) a.m_v[i] -= b.m_v[i];
        return a;
    }
    friend SimdFloat4 operator*(SimdFloat4 a, SimdFloat4 b) {
        for (int i = 0; i < 4; ++i) a.m_v[i] *= b.m_v[i];
        return a;
    }
    friend SimdFloat4 min(SimdFloat4 a, SimdFloat4 b) {
        for (int i = 0; i < 4; ++i) a.m_v[i] = a.m_v[i] < b.m_v[i] ? a.m_v[i] : b.m_v[i];
        return a;
    }
    friend SimdFloat4 max(SimdFloat4 a, SimdFloat4 b) {
        for (int i = 0; i < 4; ++i) a.m_v[i] = a.m_v[i] > b.m_v[i] ? a.m_v[i] : b.m_v[i];
        return a;
    }
    friend int less_equal_mask(SimdFloat4 a, SimdFloat4 b) {
        int mask = 0;
        for (int i = 0; i < 4; ++i) mask |= (a.m_v[i] <= b.m_v[i] ? 1 : 0) << i;
        return mask;
    }
    friend SimdFloat4 select_positive(SimdFloat4 a, SimdFloat4 b, SimdFloat4 c) {
        for (int i = 0; i < 4; ++i) a.m_v[i] = a.m_v[i] > 0.0f ? b.m_v[i] : c.m_v[i];
        return a;
    }
    friend void transpose(SimdFloat4& a, SimdFloat4& b, SimdFloat4& c, SimdFloat4& d) {
        SimdFloat4* rows[4] = {&a, &b, &c, &d};
        for (int r = 0; r < 4; ++r)
            for (int k = r + 1; k < 4; ++k) {
                const float t = rows[r]->m_v[k];
                rows[r]->m_v[k] = rows[k]->m_v[r];
                rows[k]->m_v[r] = t;
            }
    }
    friend SimdFloat4 previous_lanes(SimdFloat4 a) { return {a.m_v[0], a.m_v[0], a.m_v[1], a.m_v[2]}; }
    friend float horizontal_min(SimdFloat4 a) {
        const float t0 = a.m_v[0] < a.m_v[2] ? a.m_v[0] : a.m_v[2];
        const float t1 = a.m_v[1] < a.m_v[3] ? a.m_v[1] : a.m_v[3];
        return t0 < t1 ? t0 : t1;
    }
    friend float horizontal_max(SimdFloat4 a) {
        const float t0 = a.m_v[0] > a.m_v[2] ? a.m_v[0] : a.m_v[2];
        const float t1 = a.m_v[1] > a.m_v[3] ? a.m_v[1] : a.m_v[3];
        return t0 > t1 ? t0 : t1;
    }

private:
    float m_v[4];
};

#endif
