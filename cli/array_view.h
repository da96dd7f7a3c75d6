#pragma once

#include "qn_core/core_array.h"

#include <vector>

namespace sds_cli {

/// The vector's elements as the host's array type, for readers only; the vector must outlive the view.
template <class T>
CoreBasicArray<T> view_of(const std::vector<T>& values) {
    return {static_cast<unsigned int>(values.size()), const_cast<T*>(values.data())};
}

}  // namespace sds_cli
