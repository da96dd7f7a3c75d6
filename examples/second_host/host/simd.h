// Groups of four lanes as plain arrays, which the compiler may turn into vectors.
#pragma once

#include <algorithm>
#include <cmath>

#define QN_SIMD_NAMESPACE lanes
#define QN_SIMD_INLINE inline

namespace lanes {

template <int N>
struct Lanes {
    float v[N];

    Lanes() = default;
    explicit Lanes(float s) { std::fill_n(v, N, s); }
    Lanes(float a, float b, float c, float d) requires(N == 4) : v{a, b, c, d} {}
    Lanes(const float* low, const float* high) requires(N == 8) {
        std::copy_n(low, 4, v);
        std::copy_n(high, 4, v + 4);
    }
    Lanes(float low, float high) requires(N == 8) : v{low, low, low, low, high, high, high, high} {}
    static Lanes load(const float* p) {
        Lanes r;
        std::copy_n(p, N, r.v);
        return r;
    }
    static Lanes load8(const float* p) { return load(p); }
    static Lanes load8(const unsigned char* p) {
        return make([&](int i) { return float(p[i]); });
    }
    static Lanes load_unaligned(const float* p) { return load(p); }
    // Three floats, the last lane 0.
    static Lanes load3(const float* p) requires(N == 4) { return {p[0], p[1], p[2], 0.0f}; }
    static Lanes load3(const float* low, const float* high) requires(N == 8) {
        return make([&](int i) { return i % 4 == 3 ? 0.0f : (i < 4 ? low[i] : high[i - 4]); });
    }
    void store3(float* low, float* high) const requires(N == 8) {
        std::copy_n(v, 3, low);
        std::copy_n(v + 4, 3, high);
    }
    void store3(float* p) const { std::copy_n(v, 3, p); }
    void store(float* p) const { std::copy_n(v, N, p); }
    void store(float* low, float* high) const requires(N == 8) {
        std::copy_n(v, 4, low);
        std::copy_n(v + 4, 4, high);
    }
    void store_unaligned(float* p) const { store(p); }

    template <class Lane>
    static Lanes make(Lane&& lane) {
        Lanes r;
        for (int i = 0; i < N; ++i) r.v[i] = lane(i);
        return r;
    }
    friend Lanes operator+(const Lanes& a, const Lanes& b) {
        return make([&](int i) { return a.v[i] + b.v[i]; });
    }
    friend Lanes operator-(const Lanes& a, const Lanes& b) {
        return make([&](int i) { return a.v[i] - b.v[i]; });
    }
    friend Lanes operator*(const Lanes& a, const Lanes& b) {
        return make([&](int i) { return a.v[i] * b.v[i]; });
    }
    friend Lanes operator/(const Lanes& a, const Lanes& b) {
        return make([&](int i) { return a.v[i] / b.v[i]; });
    }
    // The second operand where the comparison fails.
    friend Lanes min(const Lanes& a, const Lanes& b) {
        return make([&](int i) { return a.v[i] < b.v[i] ? a.v[i] : b.v[i]; });
    }
    friend Lanes max(const Lanes& a, const Lanes& b) {
        return make([&](int i) { return a.v[i] > b.v[i] ? a.v[i] : b.v[i]; });
    }
    friend Lanes select_positive(const Lanes& a, const Lanes& b, const Lanes& c) {
        return make([&](int i) { return a.v[i] > 0.0f ? b.v[i] : c.v[i]; });
    }
    friend int less_equal_mask(const Lanes& a, const Lanes& b) {
        int mask = 0;
        for (int i = 0; i < N; ++i) mask |= int(a.v[i] <= b.v[i]) << i;
        return mask;
    }
    // Of each group.
    friend void transpose(Lanes& a, Lanes& b, Lanes& c, Lanes& d) {
        Lanes* rows[4] = {&a, &b, &c, &d};
        for (int g = 0; g < N; g += 4)
            for (int r = 0; r < 4; ++r)
                for (int k = r + 1; k < 4; ++k) std::swap(rows[r]->v[g + k], rows[k]->v[g + r]);
    }
};

using SimdFloat8 = Lanes<8>;

// Lane i of a group takes its lane order[i].
inline SimdFloat8 shuffle(const SimdFloat8& a, const int (&order)[4]) {
    return SimdFloat8::make([&](int i) { return a.v[(i & 4) + order[i & 3]]; });
}
inline SimdFloat8 next_lanes(const SimdFloat8& a) { return shuffle(a, {1, 2, 3, 3}); }
inline SimdFloat8 first_lanes(const SimdFloat8& a) { return shuffle(a, {0, 1, 2, 2}); }
inline SimdFloat8 swap_pairs(const SimdFloat8& a) { return shuffle(a, {2, 3, 0, 1}); }
inline SimdFloat8 swap_neighbors(const SimdFloat8& a) { return shuffle(a, {1, 0, 3, 2}); }
inline SimdFloat8 swap_last(const SimdFloat8& a) { return shuffle(a, {0, 1, 3, 2}); }
inline SimdFloat8 rotate_axes(const SimdFloat8& a) { return shuffle(a, {1, 2, 0, 3}); }
// Every lane of a group becomes its lane k.
template <int k>
SimdFloat8 broadcast_lane(const SimdFloat8& a) {
    return shuffle(a, {k, k, k, k});
}
inline SimdFloat8 swap_groups(const SimdFloat8& a) {
    return SimdFloat8::make([&](int i) { return a.v[i ^ 4]; });
}
// In each group four lanes by their numbers there, those of b 4 higher.
inline SimdFloat8 shuffle(const SimdFloat8& a, const SimdFloat8& b, const int (&order)[4]) {
    return SimdFloat8::make([&](int i) {
        const int lane = order[i & 3];
        return (lane < 4 ? a : b).v[(i & 4) + (lane & 3)];
    });
}
inline SimdFloat8 zip_low(const SimdFloat8& a, const SimdFloat8& b) { return shuffle(a, b, {0, 4, 1, 5}); }
inline SimdFloat8 zip_high(const SimdFloat8& a, const SimdFloat8& b) { return shuffle(a, b, {2, 6, 3, 7}); }
inline SimdFloat8 even_lanes(const SimdFloat8& a, const SimdFloat8& b) { return shuffle(a, b, {0, 2, 4, 6}); }
inline SimdFloat8 odd_lanes(const SimdFloat8& a, const SimdFloat8& b) { return shuffle(a, b, {1, 3, 5, 7}); }
// Every lane becomes the least, the greatest of its group.
inline SimdFloat8 group_min(const SimdFloat8& a) {
    const SimdFloat8 pairs = min(a, swap_pairs(a));
    return min(pairs, swap_neighbors(pairs));
}
inline SimdFloat8 group_max(const SimdFloat8& a) {
    const SimdFloat8 pairs = max(a, swap_pairs(a));
    return max(pairs, swap_neighbors(pairs));
}

// Lane k of a group: fold(the four lanes of that group of the k-th vector), halves 0 2 and 1 3 first.
template <class Fold>
inline SimdFloat8 fold_four(const SimdFloat8& a, const SimdFloat8& b, const SimdFloat8& c, const SimdFloat8& d,
                            Fold&& fold) {
    const SimdFloat8* const vectors[4] = {&a, &b, &c, &d};
    return SimdFloat8::make([&](int i) {
        const float* g = vectors[i & 3]->v + (i & 4);
        return fold(fold(g[0], g[2]), fold(g[1], g[3]));
    });
}
inline SimdFloat8 min_of_four(const SimdFloat8& a, const SimdFloat8& b, const SimdFloat8& c, const SimdFloat8& d) {
    return fold_four(a, b, c, d, [](float x, float y) { return x < y ? x : y; });
}
inline SimdFloat8 max_of_four(const SimdFloat8& a, const SimdFloat8& b, const SimdFloat8& c, const SimdFloat8& d) {
    return fold_four(a, b, c, d, [](float x, float y) { return x > y ? x : y; });
}
inline SimdFloat8 sum_of_four(const SimdFloat8& a, const SimdFloat8& b, const SimdFloat8& c, const SimdFloat8& d) {
    return fold_four(a, b, c, d, [](float x, float y) { return x + y; });
}

struct SimdDouble4 {
    double v[4];

    SimdDouble4() = default;
    // Four floats.
    explicit SimdDouble4(const float* p) { std::copy_n(p, 4, v); }
    explicit SimdDouble4(double s) { std::fill_n(v, 4, s); }
    SimdDouble4(double a, double b, double c, double d) : v{a, b, c, d} {}
    static SimdDouble4 load3(const double* p) {
        return make([&](int i) { return i < 3 ? p[i] : 0.0; });
    }
    static SimdDouble4 load4(const double* p) {
        return make([&](int i) { return p[i]; });
    }
    static SimdDouble4 widen3(const float* p) {
        return make([&](int i) { return i < 3 ? static_cast<double>(p[i]) : 0.0; });
    }
    void store3(double* p) const { std::copy_n(v, 3, p); }
    void store4(double* p) const { std::copy_n(v, 4, p); }
    void store_rounded3(float* p) const {
        for (int i = 0; i < 3; ++i) p[i] = static_cast<float>(v[i]);
    }
    void store_rounded4(float* p) const {
        for (int i = 0; i < 4; ++i) p[i] = static_cast<float>(v[i]);
    }
    template <class Lane>
    static SimdDouble4 make(Lane&& lane) {
        SimdDouble4 r;
        for (int i = 0; i < 4; ++i) r.v[i] = lane(i);
        return r;
    }
    double sum3() const { return (v[0] + v[1]) + v[2]; }
    double sum() const { return (v[0] + v[1]) + (v[2] + v[3]); }
    friend SimdDouble4 operator+(const SimdDouble4& a, const SimdDouble4& b) {
        return make([&](int i) { return a.v[i] + b.v[i]; });
    }
    friend SimdDouble4 operator-(const SimdDouble4& a, const SimdDouble4& b) {
        return make([&](int i) { return a.v[i] - b.v[i]; });
    }
    friend SimdDouble4 operator*(const SimdDouble4& a, const SimdDouble4& b) {
        return make([&](int i) { return a.v[i] * b.v[i]; });
    }
    friend SimdDouble4 operator/(const SimdDouble4& a, const SimdDouble4& b) {
        return make([&](int i) { return a.v[i] / b.v[i]; });
    }
    friend SimdDouble4 sum_of_four(const SimdDouble4& a, const SimdDouble4& b, const SimdDouble4& c,
                                   const SimdDouble4& d) {
        return make([&](int i) { return (i == 0 ? a : i == 1 ? b : i == 2 ? c : d).sum(); });
    }
    friend SimdDouble4 sqrt(const SimdDouble4& a) {
        return make([&](int i) { return std::sqrt(a.v[i]); });
    }
    friend SimdDouble4 abs(const SimdDouble4& a) {
        return make([&](int i) { return std::fabs(a.v[i]); });
    }
};

}  // namespace lanes

using SimdFloat4 = lanes::Lanes<4>;

inline SimdFloat4 previous_lanes(const SimdFloat4& a) { return {a.v[0], a.v[0], a.v[1], a.v[2]}; }
inline float horizontal_min(const SimdFloat4& a) { return *std::min_element(a.v, a.v + 4); }
inline float horizontal_max(const SimdFloat4& a) { return *std::max_element(a.v, a.v + 4); }
