// Where each polygon's corners begin, whether all have four, and whether any has no vertex.
#pragma once

#include <algorithm>

#include "qn_core/core_array.h"
#include "sds/common/half_edge.h"

namespace sds {

// offsets[i] = sum of the counts before polygon i.
inline CoreArray<unsigned int> polygon_offsets(const CoreBasicArray<unsigned int>& counts) {
    CoreArray<unsigned int> offsets(counts.get_count());
    unsigned int offset = 0;
    for (unsigned int i = 0; i < counts.get_count(); ++i) {
        offsets[i] = offset;
        offset += counts[i];
    }
    return offsets;
}

// Without a branch per number.
template <class T>
bool are_all(const T* numbers, unsigned int count, T value) {
    T others = 0;
    for (unsigned int i = 0; i < count; ++i) others = static_cast<T>(others | (numbers[i] ^ value));
    return others == 0;
}

inline bool has_only_quads(const unsigned int* counts, unsigned int count) {
    constexpr unsigned int block = 4096;
    for (unsigned int first = 0; first < count; first += block)
        if (!are_all(counts + first, std::min(block, count - first), 4u)) return false;
    return true;
}
inline bool has_only_quads(const CoreBasicArray<unsigned int>& counts) {
    return has_only_quads(counts.get_data(), counts.get_count());
}

// Without a branch per number.
inline bool has_none(const CoreBasicArray<unsigned int>& numbers) {
    const unsigned int* const data = numbers.get_data();
    unsigned int found = 0;
    for (unsigned int i = 0, count = numbers.get_count(); i < count; ++i) found += data[i] == none ? 1u : 0u;
    return found != 0;
}

}  // namespace sds
