#include "qn_simd/simd_double4.h"
#include "qn_simd/simd_float8.h"
#include "sds/mesh_geometry/pair_kernels/pair_kernels.h"
#include "sds/mesh_geometry/third_weights.h"

namespace sds {

#include "sds/mesh_geometry/pair_kernels/pair_kernels_body.inl"

extern const PairKernels baseline_pair_kernels = {"baseline", &compute_limit_points, &add_patches};

}  // namespace sds
