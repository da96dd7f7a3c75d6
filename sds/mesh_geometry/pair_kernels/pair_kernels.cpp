#include "sds/mesh_geometry/pair_kernels/pair_kernels.h"

#include "sds/common/instruction_set.h"

namespace sds {

namespace {

const KernelTables<PairKernels>& tables() {
    static const KernelTables<PairKernels> instance(baseline_pair_kernels, avx2_pair_kernels, avx512_pair_kernels);
    return instance;
}

}  // namespace

const PairKernels& get_pair_kernels() { return *tables().best; }
const PairKernels* const* get_all_pair_kernels() { return tables().list; }

}  // namespace sds
