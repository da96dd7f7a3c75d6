#include "sds/refinement/regular_kernels/regular_kernels.h"

#include "sds/common/instruction_set.h"

namespace sds {

namespace {

const KernelTables<RegularKernels>& tables() {
#ifdef QN_WIDE_KERNELS
    static const KernelTables<RegularKernels> instance(baseline::regular_kernels, &avx2::regular_kernels,
                                                       &avx512::regular_kernels);
#else
    static const KernelTables<RegularKernels> instance(baseline::regular_kernels, nullptr, nullptr);
#endif
    return instance;
}

}  // namespace

const RegularKernels& get_regular_kernels() { return *tables().best; }
const RegularKernels* const* get_all_regular_kernels() { return tables().list; }

}  // namespace sds
