#include "qn_simd/simd_float8.h"
#include "sds/mesh_geometry/limit_points/limit_kernels.h"

namespace sds {

#include "sds/mesh_geometry/limit_points/limit_kernels_body.inl"

extern const LimitKernels baseline_limit_kernels = {"baseline", &compute_pair};

}  // namespace sds
