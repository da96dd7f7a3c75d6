// IEEE 754 binary16 to binary32.
#pragma once

#include "qn_core/core_export.h"

struct QN_EXPORT GMathHalfFloatConverter {
    // The float value of each of the 65,536 half bit patterns. NaN payloads keep their upper bits.
    static const float* const s_conv_htof;

    // Nearest half, ties to even; overflow gives infinity.
    static unsigned short from_float(const float& value);
};
