#include "sds/intersection/ray_space/ray_kernels.h"

#include "sds/common/instruction_set.h"
#include "sds/intersection/ray_space/ray_kernels_tables.h"

namespace sds {

namespace {

const KernelTables<RayKernels>& tables() {
    static const KernelTables<RayKernels> instance(baseline_ray_kernels, avx2_ray_kernels, avx512_ray_kernels);
    return instance;
}

}  // namespace

const RayKernels& get_ray_kernels() { return *tables().best; }
const RayKernels* const* get_all_ray_kernels() { return tables().list; }

}  // namespace sds
