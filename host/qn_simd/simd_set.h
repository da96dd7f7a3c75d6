// The instruction set that a translation unit is compiled for, as lanes to build the public types from.
//
// One meaning on every set, to the last bit:
//     min(a, b) is a < b ? a : b and max(a, b) is a > b ? a : b: with equal lanes (0 and -0) or NaN the second operand
//     comparisons with NaN are false; so are their bits in a mask, and choices take what follows "else"
//     abs clears the sign; shuffles, loads, stores and choices keep all bits of a NaN
//     a sum is rounded after every addition, in the order that its function states
// Sign and payload of a NaN that arithmetic makes are the processor's own.
//
// Everything is forced inline and lives in a namespace named after the set: code of one never reaches callers of
// another. QN_SIMD_SCALAR chooses plain arrays, as does a processor that is not known here.
#pragma once

#define QN_SIMD_INLINE inline __attribute__((always_inline))

#if defined(QN_SIMD_SCALAR)
#define QN_SIMD_NAMESPACE simd_scalar
#elif defined(__AVX512VL__)
#define QN_SIMD_NAMESPACE simd_avx512
#elif defined(__AVX2__)
#define QN_SIMD_NAMESPACE simd_avx2
#elif defined(__SSE2__)
#define QN_SIMD_NAMESPACE simd_sse2
#elif defined(__aarch64__) && defined(__ARM_NEON) && !defined(__AARCH64EB__)
#define QN_SIMD_NAMESPACE simd_neon
#elif defined(__wasm_simd128__)
#define QN_SIMD_NAMESPACE simd_wasm
#else
#define QN_SIMD_SCALAR 1
#define QN_SIMD_NAMESPACE simd_scalar
#endif

#if defined(QN_SIMD_SCALAR)
#include "qn_simd/simd_arrays.h"
#else
#include "qn_simd/simd_vectors.h"
#endif

namespace QN_SIMD_NAMESPACE {

// The 4 x 4 block of each group of four lanes.
template <class Lanes>
QN_SIMD_INLINE void transpose_lanes(Lanes& a, Lanes& b, Lanes& c, Lanes& d) {
    const Lanes ab_low = shuffle<0, 4, 1, 5>(a, b), ab_high = shuffle<2, 6, 3, 7>(a, b);
    const Lanes cd_low = shuffle<0, 4, 1, 5>(c, d), cd_high = shuffle<2, 6, 3, 7>(c, d);
    a = shuffle<0, 1, 4, 5>(ab_low, cd_low);
    b = shuffle<2, 3, 6, 7>(ab_low, cd_low);
    c = shuffle<0, 1, 4, 5>(ab_high, cd_high);
    d = shuffle<2, 3, 6, 7>(ab_high, cd_high);
}

}  // namespace QN_SIMD_NAMESPACE
