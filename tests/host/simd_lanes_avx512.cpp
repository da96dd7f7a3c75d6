#include "simd_lanes.h"

#if defined(__AVX512VL__)
#include "simd_lanes_body.inl"
#define QN_TEST_LANES &run_all
#else
#define QN_TEST_LANES nullptr
#endif

namespace sds_test {

extern const LaneOperations avx512_lanes = QN_TEST_LANES;

}  // namespace sds_test
