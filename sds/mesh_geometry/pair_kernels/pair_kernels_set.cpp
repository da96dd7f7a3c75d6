// The pair kernels of one instruction set.
#include "sds/common/kernel_set.h"
#include "sds/mesh_geometry/pair_kernels/limit_corners.h"
#include "sds/mesh_geometry/pair_kernels/limit_points_pair.h"
#include "sds/mesh_geometry/pair_kernels/net_point.h"
#include "sds/mesh_geometry/pair_kernels/pair_kernels.h"
#include "sds/mesh_geometry/pair_kernels/patch_sums_pair.h"

namespace sds {

const PairKernels QN_KERNEL_SET::pair_kernels = {
    &compute_limit_points, &compute_local_controls, &evaluate_net, &evaluate_slopes, &add_boxes, &add_areas,
    &compute_boxes,        &compute_smooth_corners};

}  // namespace sds
