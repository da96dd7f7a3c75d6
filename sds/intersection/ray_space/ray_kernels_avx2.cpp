#include "sds/intersection/ray_space/ray_kernels_tables.h"

#if defined(__AVX2__) && !defined(QN_SIMD_SCALAR)

#include "qn_simd/simd_float8.h"
#include "sds/intersection/ray_space/ray_kernels.h"

namespace sds {

#include "sds/intersection/ray_space/ray_kernels_body.inl"

static constexpr RayKernels avx2_kernels = {"AVX2", &estimate, &adaptive};
extern const RayKernels* const avx2_ray_kernels = &avx2_kernels;

}  // namespace sds

#else

namespace sds {

extern const RayKernels* const avx2_ray_kernels = nullptr;

}  // namespace sds

#endif
