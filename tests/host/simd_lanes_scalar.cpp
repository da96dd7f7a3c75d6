#ifndef QN_SIMD_SCALAR
#define QN_SIMD_SCALAR 1
#endif
#include "simd_lanes_body.inl"

namespace sds_test {

extern const LaneOperations scalar_lanes = &run_all;

}  // namespace sds_test
