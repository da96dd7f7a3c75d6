// What the processor can do beyond what the build asks for.
#pragma once

namespace sds {

inline bool processor_has_avx2() {
#if defined(__x86_64__)
    return __builtin_cpu_supports("avx2") != 0;
#else
    return false;
#endif
}

// The kernel tables of one kind that this build and processor have, baseline first and null at the end; the last is the
// best.
template <class Kernels>
struct KernelTables {
    const Kernels* list[3];
    const Kernels* best;

    // `avx2` is null when the build has none.
    KernelTables(const Kernels& baseline, const Kernels* avx2) : list{&baseline, nullptr, nullptr}, best(&baseline) {
        if (avx2 != nullptr && processor_has_avx2()) list[1] = best = avx2;
    }
};

}  // namespace sds
