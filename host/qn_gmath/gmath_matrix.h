// 4x4 matrix of an affine map, row-vector convention: p' = p * M, basis vectors in rows 0 to 2, translation in row 3.
#pragma once

#include "qn_gmath/gmath_vec.h"

template <class T>
class GMathMatrix4x4 {
public:
    GMathMatrix4x4() = default;  // identity

    const T* operator[](const unsigned int& row) const { return m_m[row]; }
    T* operator[](const unsigned int& row) { return m_m[row]; }

    static GMathMatrix4x4 scale(const T& x, const T& y, const T& z) {
        GMathMatrix4x4 m;
        m[0][0] = x;
        m[1][1] = y;
        m[2][2] = z;
        return m;
    }

    GMathVec3<T> get_row(const unsigned int& row) const { return {m_m[row][0], m_m[row][1], m_m[row][2]}; }

    // The vector times the upper 3x3 part; the translation is ignored.
    GMathVec3<T> transform_vector(const GMathVec3<T>& v) const {
        return get_row(0) * v[0] + get_row(1) * v[1] + get_row(2) * v[2];
    }

    // Lengths of the three basis vectors, formed after dividing by the largest absolute entry so that no square
    // overflows.
    GMathVec3<T> get_scales() const {
        T largest = 0;
        for (unsigned int r = 0; r < 3; ++r)
            for (unsigned int c = 0; c < 3; ++c) largest = std::fmax(largest, std::fabs(m_m[r][c]));
        if (!(largest > 0)) return {0, 0, 0};
        const T inverse = T(1) / largest;
        return {(get_row(0) * inverse).length() * largest, (get_row(1) * inverse).length() * largest,
                (get_row(2) * inverse).length() * largest};
    }

private:
    T m_m[4][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}};
};
