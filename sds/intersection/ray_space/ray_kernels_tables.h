// The kernel tables of this build, one per instruction set.
#pragma once

#include "sds/intersection/ray_space/ray_kernels.h"

namespace sds {

extern const RayKernels baseline_ray_kernels;
// Null when the build has none.
extern const RayKernels* const avx2_ray_kernels;
extern const RayKernels* const avx512_ray_kernels;

}  // namespace sds
