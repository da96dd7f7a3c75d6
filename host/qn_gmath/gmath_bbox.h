// Axis-aligned box. Empty boxes have min = +largest and max = -largest; growing an empty box by a point gives that
// point.
#pragma once

#include <limits>

#include "qn_gmath/gmath_vec.h"

template <class T>
class GMathBbox3 {
public:
    GMathBbox3() = default;
    GMathBbox3(const GMathVec3<T>& min, const GMathVec3<T>& max) : m_min(min), m_max(max) {}
    template <class U>
    explicit GMathBbox3(const GMathBbox3<U>& other) : m_min(other.get_min()), m_max(other.get_max()) {}

    static GMathBbox3 empty(const T& largest = std::numeric_limits<T>::max()) {
        return {{largest, largest, largest}, {-largest, -largest, -largest}};
    }

    const GMathVec3<T>& get_min() const { return m_min; }
    const GMathVec3<T>& get_max() const { return m_max; }
    GMathVec3<T> get_center() const { return (m_min + m_max) * T(0.5); }
    T get_diagonal() const { return (m_max - m_min).length(); }
    bool is_empty() const { return !(m_min[0] <= m_max[0] && m_min[1] <= m_max[1] && m_min[2] <= m_max[2]); }
    bool contains(const GMathVec3<T>& p) const {
        return p[0] >= m_min[0] && p[0] <= m_max[0] && p[1] >= m_min[1] && p[1] <= m_max[1] && p[2] >= m_min[2] &&
               p[2] <= m_max[2];
    }

    void grow(const GMathVec3<T>& p) {
        for (unsigned int i = 0; i < 3; ++i) {
            if (p[i] < m_min[i]) m_min[i] = p[i];
            if (p[i] > m_max[i]) m_max[i] = p[i];
        }
    }
    void grow(const GMathBbox3& other) {
        for (unsigned int i = 0; i < 3; ++i) {
            if (other.m_min[i] < m_min[i]) m_min[i] = other.m_min[i];
            if (other.m_max[i] > m_max[i]) m_max[i] = other.m_max[i];
        }
    }

private:
    GMathVec3<T> m_min{0, 0, 0};
    GMathVec3<T> m_max{0, 0, 0};
};
