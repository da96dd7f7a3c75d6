// Positions blended from up to four arrays.
#pragma once

#include "qn_core/core_array.h"
#include "qn_gmath/gmath_vec.h"

// A view: position i = sum over the sources of weight x array[i]. The arrays outlive it; it may be read from many
// threads.
class GeometryPositionArray {
public:
    GeometryPositionArray() = default;
    // `arrays` and `weights` have four slots, of which `source_count` (1 to 4, or 0 for no positions) are read.
    GeometryPositionArray(const unsigned int& count, const unsigned int& source_count,
                          const GMathVec3<float>* const* arrays, const float* weights)
        : m_count(source_count != 0 ? count : 0), m_source_count(source_count) {
        for (unsigned int s = 0; s < source_count; ++s) {
            m_arrays[s] = arrays[s];
            m_weights[s] = weights[s];
        }
    }

    const unsigned int& get_count() const { return m_count; }
    const unsigned int& get_source_count() const { return m_source_count; }
    GMathVec3<float> operator[](const unsigned int& i) const {
        GMathVec3<float> sum = m_arrays[0][i] * m_weights[0];
        for (unsigned int s = 1; s < m_source_count; ++s) sum += m_arrays[s][i] * m_weights[s];
        return sum;
    }

private:
    unsigned int m_count = 0;
    unsigned int m_source_count = 0;
    const GMathVec3<float>* m_arrays[4] = {};
    float m_weights[4] = {};
};
