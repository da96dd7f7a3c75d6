// Eight single-precision lanes: two groups of four. Shuffles stay inside their group, so that the two groups run the
// same computation on two coordinates. AVX2 where the translation unit is compiled for it (with twice the registers
// where it is compiled for AVX-512VL), else two SSE2 vectors, else plain arrays with the same bits.
//
// Everything is forced inline and lives in a namespace named after the instruction set: code of one never reaches
// callers of another.
#pragma once

#if defined(QN_SIMD_SCALAR) || !defined(__SSE2__)
#define QN_SIMD_NAMESPACE simd_scalar
#elif defined(__AVX512VL__)
#define QN_SIMD_NAMESPACE simd_avx512
#include <immintrin.h>
#elif defined(__AVX2__)
#define QN_SIMD_NAMESPACE simd_avx2
#include <immintrin.h>
#else
#define QN_SIMD_NAMESPACE simd_sse2
#include <emmintrin.h>
#endif

#define QN_SIMD_INLINE inline __attribute__((always_inline))

namespace QN_SIMD_NAMESPACE {

#if defined(__AVX2__) && !defined(QN_SIMD_SCALAR)

struct SimdFloat8 {
    __m256 v;

    QN_SIMD_INLINE SimdFloat8() = default;
    QN_SIMD_INLINE SimdFloat8(__m256 x) : v(x) {}
    QN_SIMD_INLINE explicit SimdFloat8(float s) : v(_mm256_set1_ps(s)) {}
    // The first four lanes from `low`, the others from `high`; any address.
    QN_SIMD_INLINE SimdFloat8(const float* low, const float* high)
        : v(_mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(low)), _mm_loadu_ps(high), 1)) {}
    // Three floats each at any address, the fourth lanes 0. Nothing beyond them is read.
    QN_SIMD_INLINE static SimdFloat8 load3(const float* low, const float* high) {
        const __m128i lanes = _mm_setr_epi32(-1, -1, -1, 0);
        return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_maskload_ps(low, lanes)), _mm_maskload_ps(high, lanes),
                                    1);
    }
    // `low` in the first four lanes, `high` in the others.
    QN_SIMD_INLINE SimdFloat8(float low, float high) : v(_mm256_setr_ps(low, low, low, low, high, high, high, high)) {}
    QN_SIMD_INLINE void store(float* p) const { _mm256_storeu_ps(p, v); }
    // The first four lanes to `low`, the others to `high`.
    QN_SIMD_INLINE void store(float* low, float* high) const {
        _mm_storeu_ps(low, _mm256_castps256_ps128(v));
        _mm_storeu_ps(high, _mm256_extractf128_ps(v, 1));
    }
    // Three lanes of each group.
    QN_SIMD_INLINE void store3(float* low, float* high) const {
        store3(_mm256_castps256_ps128(v), low);
        store3(_mm256_extractf128_ps(v, 1), high);
    }
    QN_SIMD_INLINE static void store3(__m128 lanes, float* p) {
        _mm_storel_pi(reinterpret_cast<__m64*>(p), lanes);
        _mm_store_ss(p + 2, _mm_movehl_ps(lanes, lanes));
    }
};

QN_SIMD_INLINE SimdFloat8 operator+(SimdFloat8 a, SimdFloat8 b) { return _mm256_add_ps(a.v, b.v); }
QN_SIMD_INLINE SimdFloat8 operator-(SimdFloat8 a, SimdFloat8 b) { return _mm256_sub_ps(a.v, b.v); }
QN_SIMD_INLINE SimdFloat8 operator*(SimdFloat8 a, SimdFloat8 b) { return _mm256_mul_ps(a.v, b.v); }
QN_SIMD_INLINE SimdFloat8 operator/(SimdFloat8 a, SimdFloat8 b) { return _mm256_div_ps(a.v, b.v); }
QN_SIMD_INLINE SimdFloat8 min(SimdFloat8 a, SimdFloat8 b) { return _mm256_min_ps(a.v, b.v); }
QN_SIMD_INLINE SimdFloat8 max(SimdFloat8 a, SimdFloat8 b) { return _mm256_max_ps(a.v, b.v); }
// Lane-wise: where a > 0 take b, else c.
QN_SIMD_INLINE SimdFloat8 select_positive(SimdFloat8 a, SimdFloat8 b, SimdFloat8 c) {
    return _mm256_blendv_ps(c.v, b.v, _mm256_cmp_ps(a.v, _mm256_setzero_ps(), _CMP_GT_OQ));
}
QN_SIMD_INLINE int less_equal_mask(SimdFloat8 a, SimdFloat8 b) {
    return _mm256_movemask_ps(_mm256_cmp_ps(a.v, b.v, _CMP_LE_OQ));
}
// Lane i of each group becomes lane (i + 1), the last keeps its place: 1 2 3 3. The second form is 0 1 2 2.
QN_SIMD_INLINE SimdFloat8 next_lanes(SimdFloat8 a) { return _mm256_permute_ps(a.v, _MM_SHUFFLE(3, 3, 2, 1)); }
QN_SIMD_INLINE SimdFloat8 first_lanes(SimdFloat8 a) { return _mm256_permute_ps(a.v, _MM_SHUFFLE(2, 2, 1, 0)); }
QN_SIMD_INLINE SimdFloat8 swap_pairs(SimdFloat8 a) { return _mm256_permute_ps(a.v, _MM_SHUFFLE(1, 0, 3, 2)); }
QN_SIMD_INLINE SimdFloat8 swap_neighbours(SimdFloat8 a) { return _mm256_permute_ps(a.v, _MM_SHUFFLE(2, 3, 0, 1)); }
// 0 1 3 2.
QN_SIMD_INLINE SimdFloat8 swap_last(SimdFloat8 a) { return _mm256_permute_ps(a.v, _MM_SHUFFLE(2, 3, 1, 0)); }
// 1 2 0 3: the next axis of a vector in three lanes.
QN_SIMD_INLINE SimdFloat8 rotate_axes(SimdFloat8 a) { return _mm256_permute_ps(a.v, _MM_SHUFFLE(3, 0, 2, 1)); }
// Every lane of a group becomes its lane k.
template <int k>
QN_SIMD_INLINE SimdFloat8 broadcast_lane(SimdFloat8 a) {
    return _mm256_permute_ps(a.v, _MM_SHUFFLE(k, k, k, k));
}
// The two groups change places.
QN_SIMD_INLINE SimdFloat8 swap_groups(SimdFloat8 a) { return _mm256_permute2f128_ps(a.v, a.v, 1); }
// Transposes the 4 x 4 blocks of both groups.
QN_SIMD_INLINE void transpose(SimdFloat8& a, SimdFloat8& b, SimdFloat8& c, SimdFloat8& d) {
    const __m256 ab_low = _mm256_unpacklo_ps(a.v, b.v), ab_high = _mm256_unpackhi_ps(a.v, b.v);
    const __m256 cd_low = _mm256_unpacklo_ps(c.v, d.v), cd_high = _mm256_unpackhi_ps(c.v, d.v);
    a.v = _mm256_shuffle_ps(ab_low, cd_low, _MM_SHUFFLE(1, 0, 1, 0));
    b.v = _mm256_shuffle_ps(ab_low, cd_low, _MM_SHUFFLE(3, 2, 3, 2));
    c.v = _mm256_shuffle_ps(ab_high, cd_high, _MM_SHUFFLE(1, 0, 1, 0));
    d.v = _mm256_shuffle_ps(ab_high, cd_high, _MM_SHUFFLE(3, 2, 3, 2));
}

// Lanes 0 1 (2 3) of each group of a, then those of b.
QN_SIMD_INLINE SimdFloat8 low_pairs(SimdFloat8 a, SimdFloat8 b) {
    return _mm256_shuffle_ps(a.v, b.v, _MM_SHUFFLE(1, 0, 1, 0));
}
QN_SIMD_INLINE SimdFloat8 high_pairs(SimdFloat8 a, SimdFloat8 b) {
    return _mm256_shuffle_ps(a.v, b.v, _MM_SHUFFLE(3, 2, 3, 2));
}
// Lanes 0 1 (2 3) of each group of a and b, one of a and one of b in turn.
QN_SIMD_INLINE SimdFloat8 zip_low(SimdFloat8 a, SimdFloat8 b) { return _mm256_unpacklo_ps(a.v, b.v); }
QN_SIMD_INLINE SimdFloat8 zip_high(SimdFloat8 a, SimdFloat8 b) { return _mm256_unpackhi_ps(a.v, b.v); }

#elif defined(__SSE2__) && !defined(QN_SIMD_SCALAR)

struct SimdFloat8 {
    __m128 low, high;

    QN_SIMD_INLINE SimdFloat8() = default;
    QN_SIMD_INLINE SimdFloat8(__m128 l, __m128 h) : low(l), high(h) {}
    QN_SIMD_INLINE explicit SimdFloat8(float s) : low(_mm_set1_ps(s)), high(_mm_set1_ps(s)) {}
    QN_SIMD_INLINE SimdFloat8(const float* l, const float* h) : low(_mm_loadu_ps(l)), high(_mm_loadu_ps(h)) {}
    QN_SIMD_INLINE SimdFloat8(float l, float h) : low(_mm_set1_ps(l)), high(_mm_set1_ps(h)) {}
    QN_SIMD_INLINE static SimdFloat8 load3(const float* l, const float* h) { return {load3(l), load3(h)}; }
    QN_SIMD_INLINE static __m128 load3(const float* p) {
        return _mm_movelh_ps(_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))),
                             _mm_load_ss(p + 2));
    }
    QN_SIMD_INLINE void store(float* p) const { store(p, p + 4); }
    QN_SIMD_INLINE void store(float* l, float* h) const {
        _mm_storeu_ps(l, low);
        _mm_storeu_ps(h, high);
    }
    QN_SIMD_INLINE void store3(float* l, float* h) const {
        store3(low, l);
        store3(high, h);
    }
    QN_SIMD_INLINE static void store3(__m128 lanes, float* p) {
        _mm_storel_pi(reinterpret_cast<__m64*>(p), lanes);
        _mm_store_ss(p + 2, _mm_movehl_ps(lanes, lanes));
    }
};

QN_SIMD_INLINE SimdFloat8 operator+(SimdFloat8 a, SimdFloat8 b) {
    return {_mm_add_ps(a.low, b.low), _mm_add_ps(a.high, b.high)};
}
QN_SIMD_INLINE SimdFloat8 operator-(SimdFloat8 a, SimdFloat8 b) {
    return {_mm_sub_ps(a.low, b.low), _mm_sub_ps(a.high, b.high)};
}
QN_SIMD_INLINE SimdFloat8 operator*(SimdFloat8 a, SimdFloat8 b) {
    return {_mm_mul_ps(a.low, b.low), _mm_mul_ps(a.high, b.high)};
}
QN_SIMD_INLINE SimdFloat8 operator/(SimdFloat8 a, SimdFloat8 b) {
    return {_mm_div_ps(a.low, b.low), _mm_div_ps(a.high, b.high)};
}
QN_SIMD_INLINE SimdFloat8 min(SimdFloat8 a, SimdFloat8 b) {
    return {_mm_min_ps(a.low, b.low), _mm_min_ps(a.high, b.high)};
}
QN_SIMD_INLINE SimdFloat8 max(SimdFloat8 a, SimdFloat8 b) {
    return {_mm_max_ps(a.low, b.low), _mm_max_ps(a.high, b.high)};
}
QN_SIMD_INLINE SimdFloat8 select_positive(SimdFloat8 a, SimdFloat8 b, SimdFloat8 c) {
    const __m128 low = _mm_cmpgt_ps(a.low, _mm_setzero_ps()), high = _mm_cmpgt_ps(a.high, _mm_setzero_ps());
    return {_mm_or_ps(_mm_and_ps(low, b.low), _mm_andnot_ps(low, c.low)),
            _mm_or_ps(_mm_and_ps(high, b.high), _mm_andnot_ps(high, c.high))};
}
QN_SIMD_INLINE int less_equal_mask(SimdFloat8 a, SimdFloat8 b) {
    return _mm_movemask_ps(_mm_cmple_ps(a.low, b.low)) | _mm_movemask_ps(_mm_cmple_ps(a.high, b.high)) << 4;
}
QN_SIMD_INLINE SimdFloat8 next_lanes(SimdFloat8 a) {
    return {_mm_shuffle_ps(a.low, a.low, _MM_SHUFFLE(3, 3, 2, 1)),
            _mm_shuffle_ps(a.high, a.high, _MM_SHUFFLE(3, 3, 2, 1))};
}
QN_SIMD_INLINE SimdFloat8 first_lanes(SimdFloat8 a) {
    return {_mm_shuffle_ps(a.low, a.low, _MM_SHUFFLE(2, 2, 1, 0)),
            _mm_shuffle_ps(a.high, a.high, _MM_SHUFFLE(2, 2, 1, 0))};
}
QN_SIMD_INLINE SimdFloat8 swap_pairs(SimdFloat8 a) {
    return {_mm_shuffle_ps(a.low, a.low, _MM_SHUFFLE(1, 0, 3, 2)),
            _mm_shuffle_ps(a.high, a.high, _MM_SHUFFLE(1, 0, 3, 2))};
}
QN_SIMD_INLINE SimdFloat8 swap_neighbours(SimdFloat8 a) {
    return {_mm_shuffle_ps(a.low, a.low, _MM_SHUFFLE(2, 3, 0, 1)),
            _mm_shuffle_ps(a.high, a.high, _MM_SHUFFLE(2, 3, 0, 1))};
}
QN_SIMD_INLINE SimdFloat8 swap_last(SimdFloat8 a) {
    return {_mm_shuffle_ps(a.low, a.low, _MM_SHUFFLE(2, 3, 1, 0)),
            _mm_shuffle_ps(a.high, a.high, _MM_SHUFFLE(2, 3, 1, 0))};
}
QN_SIMD_INLINE SimdFloat8 rotate_axes(SimdFloat8 a) {
    return {_mm_shuffle_ps(a.low, a.low, _MM_SHUFFLE(3, 0, 2, 1)),
            _mm_shuffle_ps(a.high, a.high, _MM_SHUFFLE(3, 0, 2, 1))};
}
template <int k>
QN_SIMD_INLINE SimdFloat8 broadcast_lane(SimdFloat8 a) {
    return {_mm_shuffle_ps(a.low, a.low, _MM_SHUFFLE(k, k, k, k)),
            _mm_shuffle_ps(a.high, a.high, _MM_SHUFFLE(k, k, k, k))};
}
QN_SIMD_INLINE SimdFloat8 swap_groups(SimdFloat8 a) { return {a.high, a.low}; }
QN_SIMD_INLINE void transpose(SimdFloat8& a, SimdFloat8& b, SimdFloat8& c, SimdFloat8& d) {
    _MM_TRANSPOSE4_PS(a.low, b.low, c.low, d.low);
    _MM_TRANSPOSE4_PS(a.high, b.high, c.high, d.high);
}
QN_SIMD_INLINE SimdFloat8 low_pairs(SimdFloat8 a, SimdFloat8 b) {
    return {_mm_movelh_ps(a.low, b.low), _mm_movelh_ps(a.high, b.high)};
}
QN_SIMD_INLINE SimdFloat8 high_pairs(SimdFloat8 a, SimdFloat8 b) {
    return {_mm_movehl_ps(b.low, a.low), _mm_movehl_ps(b.high, a.high)};
}
QN_SIMD_INLINE SimdFloat8 zip_low(SimdFloat8 a, SimdFloat8 b) {
    return {_mm_unpacklo_ps(a.low, b.low), _mm_unpacklo_ps(a.high, b.high)};
}
QN_SIMD_INLINE SimdFloat8 zip_high(SimdFloat8 a, SimdFloat8 b) {
    return {_mm_unpackhi_ps(a.low, b.low), _mm_unpackhi_ps(a.high, b.high)};
}

#else

struct SimdFloat8 {
    float v[8];

    SimdFloat8() = default;
    explicit SimdFloat8(float s) : v{s, s, s, s, s, s, s, s} {}
    SimdFloat8(const float* l, const float* h) : v{l[0], l[1], l[2], l[3], h[0], h[1], h[2], h[3]} {}
    SimdFloat8(float l, float h) : v{l, l, l, l, h, h, h, h} {}
    static SimdFloat8 load3(const float* l, const float* h) {
        SimdFloat8 r(0.0f);
        for (int i = 0; i < 3; ++i) r.v[i] = l[i], r.v[i + 4] = h[i];
        return r;
    }
    void store(float* p) const { store(p, p + 4); }
    void store(float* l, float* h) const {
        for (int i = 0; i < 4; ++i) l[i] = v[i], h[i] = v[i + 4];
    }
    void store3(float* l, float* h) const {
        for (int i = 0; i < 3; ++i) l[i] = v[i], h[i] = v[i + 4];
    }
    // Lane i takes lane order[i & 3] of its group.
    SimdFloat8 shuffle(const int (&order)[4]) const {
        SimdFloat8 r;
        for (int i = 0; i < 8; ++i) r.v[i] = v[(i & 4) + order[i & 3]];
        return r;
    }
};

QN_SIMD_INLINE SimdFloat8 operator+(SimdFloat8 a, SimdFloat8 b) {
    for (int i = 0; i < 8; ++i) a.v[i] += b.v[i];
    return a;
}
QN_SIMD_INLINE SimdFloat8 operator-(SimdFloat8 a, SimdFloat8 b) {
    for (int i = 0; i < 8; ++i) a.v[i] -= b.v[i];
    return a;
}
QN_SIMD_INLINE SimdFloat8 operator*(SimdFloat8 a, SimdFloat8 b) {
    for (int i = 0; i < 8; ++i) a.v[i] *= b.v[i];
    return a;
}
QN_SIMD_INLINE SimdFloat8 operator/(SimdFloat8 a, SimdFloat8 b) {
    for (int i = 0; i < 8; ++i) a.v[i] /= b.v[i];
    return a;
}
QN_SIMD_INLINE SimdFloat8 select_positive(SimdFloat8 a, SimdFloat8 b, SimdFloat8 c) {
    for (int i = 0; i < 8; ++i) c.v[i] = a.v[i] > 0.0f ? b.v[i] : c.v[i];
    return c;
}
QN_SIMD_INLINE SimdFloat8 min(SimdFloat8 a, SimdFloat8 b) {
    for (int i = 0; i < 8; ++i) a.v[i] = a.v[i] < b.v[i] ? a.v[i] : b.v[i];
    return a;
}
QN_SIMD_INLINE SimdFloat8 max(SimdFloat8 a, SimdFloat8 b) {
    for (int i = 0; i < 8; ++i) a.v[i] = a.v[i] > b.v[i] ? a.v[i] : b.v[i];
    return a;
}
QN_SIMD_INLINE int less_equal_mask(SimdFloat8 a, SimdFloat8 b) {
    int mask = 0;
    for (int i = 0; i < 8; ++i) mask |= (a.v[i] <= b.v[i] ? 1 : 0) << i;
    return mask;
}
QN_SIMD_INLINE SimdFloat8 next_lanes(SimdFloat8 a) { return a.shuffle({1, 2, 3, 3}); }
QN_SIMD_INLINE SimdFloat8 first_lanes(SimdFloat8 a) { return a.shuffle({0, 1, 2, 2}); }
QN_SIMD_INLINE SimdFloat8 swap_pairs(SimdFloat8 a) { return a.shuffle({2, 3, 0, 1}); }
QN_SIMD_INLINE SimdFloat8 swap_neighbours(SimdFloat8 a) { return a.shuffle({1, 0, 3, 2}); }
QN_SIMD_INLINE SimdFloat8 swap_last(SimdFloat8 a) { return a.shuffle({0, 1, 3, 2}); }
QN_SIMD_INLINE SimdFloat8 rotate_axes(SimdFloat8 a) { return a.shuffle({1, 2, 0, 3}); }
template <int k>
QN_SIMD_INLINE SimdFloat8 broadcast_lane(SimdFloat8 a) {
    return a.shuffle({k, k, k, k});
}
QN_SIMD_INLINE SimdFloat8 swap_groups(SimdFloat8 a) {
    SimdFloat8 r;
    for (int i = 0; i < 8; ++i) r.v[i] = a.v[i ^ 4];
    return r;
}
QN_SIMD_INLINE void transpose(SimdFloat8& a, SimdFloat8& b, SimdFloat8& c, SimdFloat8& d) {
    SimdFloat8* rows[4] = {&a, &b, &c, &d};
    for (int g = 0; g < 8; g += 4)
        for (int r = 0; r < 4; ++r)
            for (int k = r + 1; k < 4; ++k) {
                const float t = rows[r]->v[g + k];
                rows[r]->v[g + k] = rows[k]->v[g + r];
                rows[k]->v[g + r] = t;
            }
}
// Lane i of each group: lane[i] of that group of source[which[i]].
QN_SIMD_INLINE SimdFloat8 pick_lanes(const SimdFloat8 (&source)[2], const int (&which)[4], const int (&lane)[4]) {
    SimdFloat8 r;
    for (int i = 0; i < 8; ++i) r.v[i] = source[which[i & 3]].v[(i & 4) + lane[i & 3]];
    return r;
}
QN_SIMD_INLINE SimdFloat8 low_pairs(SimdFloat8 a, SimdFloat8 b) {
    return pick_lanes({a, b}, {0, 0, 1, 1}, {0, 1, 0, 1});
}
QN_SIMD_INLINE SimdFloat8 high_pairs(SimdFloat8 a, SimdFloat8 b) {
    return pick_lanes({a, b}, {0, 0, 1, 1}, {2, 3, 2, 3});
}
QN_SIMD_INLINE SimdFloat8 zip_low(SimdFloat8 a, SimdFloat8 b) { return pick_lanes({a, b}, {0, 1, 0, 1}, {0, 0, 1, 1}); }
QN_SIMD_INLINE SimdFloat8 zip_high(SimdFloat8 a, SimdFloat8 b) {
    return pick_lanes({a, b}, {0, 1, 0, 1}, {2, 2, 3, 3});
}

#endif

// Every lane becomes the least (greatest) of its group.
QN_SIMD_INLINE SimdFloat8 group_min(SimdFloat8 a) {
    const SimdFloat8 pairs = min(a, swap_pairs(a));
    return min(pairs, swap_neighbours(pairs));
}
QN_SIMD_INLINE SimdFloat8 group_max(SimdFloat8 a) {
    const SimdFloat8 pairs = max(a, swap_pairs(a));
    return max(pairs, swap_neighbours(pairs));
}
// Lane i of each group becomes the least (greatest) of that group of the i-th vector.
QN_SIMD_INLINE SimdFloat8 min_of_four(const SimdFloat8& a, const SimdFloat8& b, const SimdFloat8& c,
                                      const SimdFloat8& d) {
    const SimdFloat8 ab = min(zip_low(a, b), zip_high(a, b)), cd = min(zip_low(c, d), zip_high(c, d));
    return min(low_pairs(ab, cd), high_pairs(ab, cd));
}
QN_SIMD_INLINE SimdFloat8 max_of_four(const SimdFloat8& a, const SimdFloat8& b, const SimdFloat8& c,
                                      const SimdFloat8& d) {
    const SimdFloat8 ab = max(zip_low(a, b), zip_high(a, b)), cd = max(zip_low(c, d), zip_high(c, d));
    return max(low_pairs(ab, cd), high_pairs(ab, cd));
}
// Lane i of each group becomes the sum of that group of the i-th vector.
QN_SIMD_INLINE SimdFloat8 sum_of_four(const SimdFloat8& a, const SimdFloat8& b, const SimdFloat8& c,
                                      const SimdFloat8& d) {
    const SimdFloat8 ab = zip_low(a, b) + zip_high(a, b), cd = zip_low(c, d) + zip_high(c, d);
    return low_pairs(ab, cd) + high_pairs(ab, cd);
}

}  // namespace QN_SIMD_NAMESPACE
