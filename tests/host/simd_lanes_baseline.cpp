#include "simd_lanes_body.inl"

namespace sds_test {

extern const LaneOperations baseline_lanes = &run_all;

}  // namespace sds_test
