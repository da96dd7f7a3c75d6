#include "qn_simd/simd_double4.h"
#include "qn_simd/simd_float8.h"
#include "sds/mesh_geometry/pair_kernels/pair_kernels.h"
#include "sds/mesh_geometry/third_weights.h"

namespace sds {

namespace {

using QN_SIMD_NAMESPACE::SimdDouble4;
using QN_SIMD_NAMESPACE::SimdFloat8;

#include "sds/mesh_geometry/pair_kernels/pair_controls.inl"

#include "sds/mesh_geometry/pair_kernels/limit_points_body.inl"
#include "sds/mesh_geometry/pair_kernels/patch_sums_body.inl"

}  // namespace

extern const PairKernels baseline_pair_kernels = {"baseline", &compute_limit_points, &add_patches};

}  // namespace sds
