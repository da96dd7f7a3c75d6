// Every operation of the SIMD types, once per instruction set of this build.
#pragma once

namespace sds_test {

inline constexpr unsigned int lane_input_count = 32;
inline constexpr unsigned int lane_result_count = 286;

// Takes `lane_input_count` floats and writes the bits of `lane_result_count` lanes; what arithmetic made NaN is one
// NaN.
using LaneOperations = void (*)(const float* in, unsigned int* out);

extern const LaneOperations scalar_lanes, baseline_lanes;
// Null when the build has none.
extern const LaneOperations avx2_lanes, avx512_lanes;

}  // namespace sds_test
