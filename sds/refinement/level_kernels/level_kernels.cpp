#include "sds/refinement/level_kernels/level_kernels.h"

#include "sds/common/instruction_set.h"

namespace sds {

namespace {

const KernelTables<LevelKernels>& tables() {
#ifdef QN_WIDE_KERNELS
    static const KernelTables<LevelKernels> instance(baseline::level_kernels, &avx2::level_kernels,
                                                     &avx512::level_kernels);
#else
    static const KernelTables<LevelKernels> instance(baseline::level_kernels, nullptr, nullptr);
#endif
    return instance;
}

}  // namespace

const LevelKernels& get_level_kernels() { return *tables().best; }
const LevelKernels* const* get_all_level_kernels() { return tables().list; }

}  // namespace sds
