// WebAssembly's vectors of 128 bits.
#pragma once

#include "qn_simd/simd_set.h"

#if defined(__wasm_simd128__) && !defined(QN_SIMD_SCALAR)
#include <wasm_simd128.h>

namespace QN_SIMD_NAMESPACE {

QN_SIMD_INLINE int less_equal_bits(Float4 a, Float4 b) {
    return static_cast<int>(
        wasm_i32x4_bitmask(wasm_f32x4_le(reinterpret_cast<v128_t>(a), reinterpret_cast<v128_t>(b))));
}
QN_SIMD_INLINE Double2 widen_low(Float4 a) {
    return reinterpret_cast<Double2>(wasm_f64x2_promote_low_f32x4(reinterpret_cast<v128_t>(a)));
}
QN_SIMD_INLINE Double2 widen_high(Float4 a) { return widen_low(__builtin_shufflevector(a, a, 2, 3, 2, 3)); }
QN_SIMD_INLINE Double2 take_root(Double2 a) {
    return reinterpret_cast<Double2>(wasm_f64x2_sqrt(reinterpret_cast<v128_t>(a)));
}

}  // namespace QN_SIMD_NAMESPACE

#endif
