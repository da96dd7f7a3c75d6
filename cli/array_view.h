#pragma once

#include "qn_core/core_array.h"

#include <span>
#include <vector>

namespace sds_cli {

/// The elements as the host's array type, for readers only; they must outlive the view.
template <class T>
CoreBasicArray<T> view_of(std::span<const T> values) {
    return {static_cast<unsigned int>(values.size()), const_cast<T*>(values.data())};
}
template <class T>
CoreBasicArray<T> view_of(const std::vector<T>& values) {
    return view_of(std::span<const T>(values));
}

}  // namespace sds_cli
