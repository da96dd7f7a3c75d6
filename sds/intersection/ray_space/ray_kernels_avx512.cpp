#include "sds/intersection/ray_space/ray_kernels_tables.h"

#if defined(__AVX512VL__) && !defined(QN_SIMD_SCALAR)

#include "qn_simd/simd_float8.h"
#include "sds/intersection/ray_space/ray_kernels.h"

namespace sds {

#include "sds/intersection/ray_space/ray_kernels_body.inl"

static constexpr RayKernels avx512_kernels = {"AVX-512VL", &estimate, &adaptive};
extern const RayKernels* const avx512_ray_kernels = &avx512_kernels;

}  // namespace sds

#else

namespace sds {

extern const RayKernels* const avx512_ray_kernels = nullptr;

}  // namespace sds

#endif
