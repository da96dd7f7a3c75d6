// Vectors, boxes, matrices, sample times, half floats.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <vector>

template <class T>
struct GMath {
    static constexpr T s_epsilon = T(1e-6);
    static constexpr T s_one_minus_epsilon = T(1) - s_epsilon;
};

inline bool gmath_isfinitef(const float& x) { return std::isfinite(x); }
inline bool gmath_isfinited(const double& x) { return std::isfinite(x); }

template <class T>
struct GMathVec3 : std::array<T, 3> {
    GMathVec3() = default;
    constexpr GMathVec3(T x, T y, T z) : std::array<T, 3>{x, y, z} {}
    template <class U>
    constexpr explicit GMathVec3(const GMathVec3<U>& v) : GMathVec3(T(v[0]), T(v[1]), T(v[2])) {}

    const T* get_data() const { return this->data(); }
    T* get_data() { return this->data(); }
    friend constexpr GMathVec3 operator+(const GMathVec3& a, const GMathVec3& b) {
        return {a[0] + b[0], a[1] + b[1], a[2] + b[2]};
    }
    friend constexpr GMathVec3 operator-(const GMathVec3& a, const GMathVec3& b) {
        return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
    }
    friend constexpr GMathVec3 operator-(const GMathVec3& a) { return {-a[0], -a[1], -a[2]}; }
    friend constexpr GMathVec3 operator*(const GMathVec3& a, T s) { return {a[0] * s, a[1] * s, a[2] * s}; }
    friend constexpr GMathVec3 operator*(T s, const GMathVec3& a) { return a * s; }
    constexpr GMathVec3& operator+=(const GMathVec3& b) { return *this = *this + b; }
    constexpr GMathVec3& operator-=(const GMathVec3& b) { return *this = *this - b; }
    constexpr GMathVec3& operator*=(T s) { return *this = *this * s; }

    constexpr T dot(const GMathVec3& b) const { return (*this)[0] * b[0] + (*this)[1] * b[1] + (*this)[2] * b[2]; }
    constexpr GMathVec3 cross(const GMathVec3& b) const {
        const GMathVec3& a = *this;
        return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
    }
    constexpr T length_squared() const { return dot(*this); }
    T length() const { return std::sqrt(length_squared()); }
    bool is_finite() const {
        return std::isfinite((*this)[0]) && std::isfinite((*this)[1]) && std::isfinite((*this)[2]);
    }
};

template <class T>
struct GMathVec4 : std::array<T, 4> {
    GMathVec4() = default;
    constexpr GMathVec4(T x, T y, T z, T w) : std::array<T, 4>{x, y, z, w} {}
};

template <class T>
class GMathBbox3 {
public:
    GMathBbox3() : GMathBbox3({0, 0, 0}, {0, 0, 0}) {}
    GMathBbox3(const GMathVec3<T>& min, const GMathVec3<T>& max) : m_min(min), m_max(max) {}
    template <class U>
    explicit GMathBbox3(const GMathBbox3<U>& box) : m_min(box.get_min()), m_max(box.get_max()) {}
    static GMathBbox3 empty(T largest = std::numeric_limits<T>::max()) {
        return {{largest, largest, largest}, {-largest, -largest, -largest}};
    }

    const GMathVec3<T>& get_min() const { return m_min; }
    const GMathVec3<T>& get_max() const { return m_max; }
    GMathVec3<T> get_center() const { return (m_min + m_max) * T(0.5); }
    void grow(const GMathVec3<T>& p) { grow(GMathBbox3(p, p)); }
    void grow(const GMathBbox3& box) {
        for (unsigned int i = 0; i < 3; ++i) {
            m_min[i] = std::min(m_min[i], box.m_min[i]);
            m_max[i] = std::max(m_max[i], box.m_max[i]);
        }
    }

private:
    GMathVec3<T> m_min, m_max;
};

template <class T>
class GMathMatrix4x4 {
public:
    const T* operator[](unsigned int row) const { return m_rows[row].data(); }
    T* operator[](unsigned int row) { return m_rows[row].data(); }
    GMathVec3<T> get_row(unsigned int r) const { return {m_rows[r][0], m_rows[r][1], m_rows[r][2]}; }
    GMathVec3<T> get_scales() const { return {get_row(0).length(), get_row(1).length(), get_row(2).length()}; }
    GMathVec3<T> transform_vector(const GMathVec3<T>& v) const {
        return get_row(0) * v[0] + get_row(1) * v[1] + get_row(2) * v[2];
    }

private:
    std::array<std::array<T, 4>, 4> m_rows{{{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}}};
};

class GMathTimeSampling {
public:
    GMathTimeSampling() = default;
    explicit GMathTimeSampling(std::vector<double> times) : m_times(std::move(times)) {}
    unsigned int get_sample_count() const { return static_cast<unsigned int>(m_times.size()); }
    const double& get_sample_time(unsigned int sample) const { return m_times[sample]; }
    // The sample before `time` and the fraction of the way to the next one, clamped.
    void get_span(const double& time, unsigned int& sample, double& fraction) const {
        sample = 0;
        fraction = 0.0;
        if (m_times.size() < 2 || !(time > m_times.front())) return;
        const auto next = std::upper_bound(m_times.begin() + 1, m_times.end() - 1, time);
        sample = static_cast<unsigned int>(next - m_times.begin()) - 1;
        fraction = std::min((time - next[-1]) / (next[0] - next[-1]), 1.0);
    }

private:
    std::vector<double> m_times;
};

struct GMathHalfFloatConverter {
    static const float* const s_conv_htof;  // value of each bit pattern
    static unsigned short from_float(const float& value);
};
