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
// AVX-512 instructions on vectors of 256 bits.
inline bool processor_has_avx512() {
#if defined(__x86_64__)
    return __builtin_cpu_supports("avx512vl") != 0 && __builtin_cpu_supports("avx512dq") != 0;
#else
    return false;
#endif
}

// The kernel tables of one kind that this build and processor have, baseline first and null at the end; the last is the
// best.
template <class Kernels>
struct KernelTables {
    const Kernels* list[4];
    const Kernels* best;

    // `avx2` and `avx512` are null when the build has none.
    KernelTables(const Kernels& baseline, const Kernels* avx2, const Kernels* avx512)
        : list{&baseline, nullptr, nullptr, nullptr}, best(&baseline) {
        unsigned int count = 1;
        if (avx2 != nullptr && processor_has_avx2()) list[count++] = best = avx2;
        if (avx512 != nullptr && processor_has_avx512()) list[count] = best = avx512;
    }
};

}  // namespace sds
