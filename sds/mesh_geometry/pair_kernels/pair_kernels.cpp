#include "sds/mesh_geometry/pair_kernels/pair_kernels.h"

#include "sds/common/instruction_set.h"

namespace sds {

namespace {

const KernelTables<PairKernels>& tables() {
#ifdef QN_WIDE_KERNELS
    static const KernelTables<PairKernels> instance(baseline::pair_kernels, &avx2::pair_kernels, &avx512::pair_kernels);
#else
    static const KernelTables<PairKernels> instance(baseline::pair_kernels, nullptr, nullptr);
#endif
    return instance;
}

}  // namespace

const PairKernels& get_pair_kernels() { return *tables().best; }
const PairKernels* const* get_all_pair_kernels() { return tables().list; }

}  // namespace sds
