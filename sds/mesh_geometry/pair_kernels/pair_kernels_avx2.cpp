#include "sds/mesh_geometry/pair_kernels/pair_kernels.h"

#if defined(__AVX2__) && !defined(QN_SIMD_SCALAR)

#include "qn_simd/simd_double4.h"
#include "qn_simd/simd_float8.h"
#include "sds/mesh_geometry/third_weights.h"

namespace sds {

#include "sds/mesh_geometry/pair_kernels/pair_kernels_body.inl"

static constexpr PairKernels avx2_kernels = {"AVX2", &compute_limit_points, &add_patches};
extern const PairKernels* const avx2_pair_kernels = &avx2_kernels;

}  // namespace sds

#else

namespace sds {

extern const PairKernels* const avx2_pair_kernels = nullptr;

}  // namespace sds

#endif
