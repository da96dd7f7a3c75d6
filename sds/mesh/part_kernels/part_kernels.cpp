#include "sds/mesh/part_kernels/part_kernels.h"

#include "sds/common/instruction_set.h"

namespace sds {

namespace {

const KernelTables<PartKernels>& tables() {
#ifdef QN_WIDE_KERNELS
    static const KernelTables<PartKernels> instance(baseline::part_kernels, &avx2::part_kernels, &avx512::part_kernels);
#else
    static const KernelTables<PartKernels> instance(baseline::part_kernels, nullptr, nullptr);
#endif
    return instance;
}

}  // namespace

const PartKernels& get_part_kernels() { return *tables().best; }
const PartKernels* const* get_all_part_kernels() { return tables().list; }

}  // namespace sds
