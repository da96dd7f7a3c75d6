#include "sds/intersection/fast/ray_kernels.h"

#include "sds/common/instruction_set.h"

namespace sds {

namespace {

const KernelTables<RayKernels>& tables() {
#ifdef QN_WIDE_KERNELS
    static const KernelTables<RayKernels> instance(baseline::ray_kernels, &avx2::ray_kernels, &avx512::ray_kernels);
#else
    static const KernelTables<RayKernels> instance(baseline::ray_kernels, nullptr, nullptr);
#endif
    return instance;
}

}  // namespace

const RayKernels& get_ray_kernels() { return *tables().best; }
const RayKernels* const* get_all_ray_kernels() { return tables().list; }

}  // namespace sds
