#include "sds/intersection/ray_space/ray_kernels.h"

#include "sds/intersection/ray_space/ray_kernels_tables.h"

namespace sds {

namespace {

bool processor_has_avx2() {
#if defined(__x86_64__)
    return __builtin_cpu_supports("avx2") != 0;
#else
    return false;
#endif
}

struct Tables {
    const RayKernels* list[3] = {&baseline_ray_kernels, nullptr, nullptr};
    const RayKernels* best = &baseline_ray_kernels;

    Tables() {
        if (avx2_ray_kernels == nullptr || !processor_has_avx2()) return;
        list[1] = avx2_ray_kernels;
        best = avx2_ray_kernels;
    }
};

const Tables& tables() {
    static const Tables instance;
    return instance;
}

}  // namespace

const RayKernels& get_ray_kernels() { return *tables().best; }
const RayKernels* const* get_all_ray_kernels() { return tables().list; }

}  // namespace sds
