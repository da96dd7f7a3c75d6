// Where each polygon's corners begin.
#pragma once

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

}  // namespace sds
