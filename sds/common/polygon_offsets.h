// Where each polygon's corners begin, and whether all have four.
#pragma once

#include <algorithm>

#include "qn_core/core_array.h"

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

// Blocks are looked at without a branch.
inline bool has_only_quads(const CoreBasicArray<unsigned int>& counts) {
    constexpr unsigned int block = 4096;
    for (unsigned int first = 0; first < counts.get_count(); first += block) {
        const unsigned int size = std::min(block, counts.get_count() - first);
        unsigned int others = 0;
        for (unsigned int i = 0; i < size; ++i) others |= counts[first + i] ^ 4u;
        if (others != 0) return false;
    }
    return true;
}

}  // namespace sds
