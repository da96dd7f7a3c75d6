#include "sds/mesh_geometry/limit_points/limit_kernels.h"

#if defined(__AVX2__) && !defined(QN_SIMD_SCALAR)

#include "qn_simd/simd_float8.h"

namespace sds {

#include "sds/mesh_geometry/limit_points/limit_kernels_body.inl"

static constexpr LimitKernels avx2_kernels = {"AVX2", &compute_pair};
extern const LimitKernels* const avx2_limit_kernels = &avx2_kernels;

}  // namespace sds

#else

namespace sds {

extern const LimitKernels* const avx2_limit_kernels = nullptr;

}  // namespace sds

#endif
