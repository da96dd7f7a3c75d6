#include "qn_simd/simd_float8.h"
#include "sds/intersection/ray_space/ray_kernels.h"
#include "sds/intersection/ray_space/ray_kernels_tables.h"

namespace sds {

#include "sds/intersection/ray_space/ray_kernels_body.inl"

extern const RayKernels baseline_ray_kernels = {"baseline", &estimate, &adaptive};

}  // namespace sds
