// Bodies of the pair kernels. Included once per instruction set, inside the namespace of that set: no templates or
// inline functions of other headers are used here, so that the linker cannot hand one set's copy to another's caller.

namespace {

using QN_SIMD_NAMESPACE::SimdDouble4;
using QN_SIMD_NAMESPACE::SimdFloat8;

#include "sds/mesh_geometry/pair_kernels/pair_controls.inl"

#include "sds/mesh_geometry/pair_kernels/limit_points_body.inl"
#include "sds/mesh_geometry/pair_kernels/patch_sums_body.inl"

}  // namespace
