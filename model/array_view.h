#pragma once

#include "qn_core/core_array.h"
#include "qn_gmath/gmath_vec.h"

#include <span>
#include <vector>

namespace sds_model {

/// The elements as the host's array type, for readers only; they must outlive the view.
template <class T>
CoreBasicArray<T> view_of(std::span<const T> values) {
    return {static_cast<unsigned int>(values.size()), const_cast<T*>(values.data())};
}
template <class T>
CoreBasicArray<T> view_of(const std::vector<T>& values) {
    return view_of(std::span<const T>(values));
}

/// x y z triples as points.
inline CoreBasicArray<GMathVec3<float>> points_view(std::span<const float> xyz) {
    static_assert(sizeof(GMathVec3<float>) == 3 * sizeof(float));
    auto* points = reinterpret_cast<GMathVec3<float>*>(const_cast<float*>(xyz.data()));
    return {static_cast<unsigned int>(xyz.size() / 3), points};
}

}  // namespace sds_model
