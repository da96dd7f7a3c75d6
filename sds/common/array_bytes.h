// Bytes that an array's elements take, for memory reports.
#pragma once

#include "qn_core/core_array.h"

namespace sds {

template <class T>
size_t bytes_of(const CoreBasicArray<T>& array) {
    return sizeof(T) * array.get_count();
}

}  // namespace sds
