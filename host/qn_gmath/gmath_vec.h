// Small vectors. Plain aggregates: default construction leaves them uninitialized, all operations are component-wise.
#pragma once

#include <cmath>
#include <type_traits>

template <class T>
class GMathVec3 {
public:
    GMathVec3() = default;
    constexpr GMathVec3(const T& x, const T& y, const T& z) : m_v{x, y, z} {}
    template <class U>
    constexpr explicit GMathVec3(const GMathVec3<U>& other)
        : m_v{static_cast<T>(other[0]), static_cast<T>(other[1]), static_cast<T>(other[2])} {}

    constexpr const T& operator[](const unsigned int& i) const { return m_v[i]; }
    constexpr T& operator[](const unsigned int& i) { return m_v[i]; }
    constexpr const T* get_data() const { return m_v; }
    constexpr T* get_data() { return m_v; }

    constexpr GMathVec3& operator+=(const GMathVec3& b) { return *this = *this + b; }
    constexpr GMathVec3& operator-=(const GMathVec3& b) { return *this = *this - b; }
    constexpr GMathVec3& operator*=(const T& s) { return *this = *this * s; }

    friend constexpr GMathVec3 operator+(const GMathVec3& a, const GMathVec3& b) {
        return {a[0] + b[0], a[1] + b[1], a[2] + b[2]};
    }
    friend constexpr GMathVec3 operator-(const GMathVec3& a, const GMathVec3& b) {
        return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
    }
    friend constexpr GMathVec3 operator-(const GMathVec3& a) { return {-a[0], -a[1], -a[2]}; }
    friend constexpr GMathVec3 operator*(const GMathVec3& a, const T& s) { return {a[0] * s, a[1] * s, a[2] * s}; }
    friend constexpr GMathVec3 operator*(const T& s, const GMathVec3& a) { return a * s; }
    friend constexpr bool operator==(const GMathVec3& a, const GMathVec3& b) {
        return a[0] == b[0] && a[1] == b[1] && a[2] == b[2];
    }

    constexpr T dot(const GMathVec3& b) const { return m_v[0] * b[0] + m_v[1] * b[1] + m_v[2] * b[2]; }
    constexpr GMathVec3 cross(const GMathVec3& b) const {
        return {m_v[1] * b[2] - m_v[2] * b[1], m_v[2] * b[0] - m_v[0] * b[2], m_v[0] * b[1] - m_v[1] * b[0]};
    }
    constexpr T length_squared() const { return dot(*this); }
    T length() const { return std::sqrt(length_squared()); }
    bool is_finite() const { return std::isfinite(m_v[0]) && std::isfinite(m_v[1]) && std::isfinite(m_v[2]); }

private:
    T m_v[3];
};

template <class T>
class GMathVec4 {
public:
    GMathVec4() = default;
    constexpr GMathVec4(const T& x, const T& y, const T& z, const T& w) : m_v{x, y, z, w} {}

    constexpr const T& operator[](const unsigned int& i) const { return m_v[i]; }
    constexpr T& operator[](const unsigned int& i) { return m_v[i]; }
    friend constexpr bool operator==(const GMathVec4& a, const GMathVec4& b) {
        return a[0] == b[0] && a[1] == b[1] && a[2] == b[2] && a[3] == b[3];
    }

private:
    T m_v[4];
};
