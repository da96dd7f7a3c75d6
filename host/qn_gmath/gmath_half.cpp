#include "qn_gmath/gmath_half.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <memory>

namespace {

float half_to_float(std::uint32_t half) {
    const std::uint32_t sign = (half & 0x8000u) << 16;
    const std::uint32_t exponent = (half >> 10) & 0x1Fu;
    const std::uint32_t mantissa = half & 0x3FFu;
    if (exponent == 0x1F) return std::bit_cast<float>(sign | 0x7F800000u | (mantissa << 13));
    if (exponent == 0) {
        const float magnitude = std::ldexp(static_cast<float>(mantissa), -24);
        return sign != 0 ? -magnitude : magnitude;
    }
    return std::bit_cast<float>(sign | ((exponent + 112u) << 23) | (mantissa << 13));
}

const float* build_table() {
    static const std::unique_ptr<float[]> table = [] {
        auto values = std::make_unique<float[]>(65536);
        for (std::uint32_t half = 0; half < 65536; ++half) values[half] = half_to_float(half);
        return values;
    }();
    return table.get();
}

}  // namespace

const float* const GMathHalfFloatConverter::s_conv_htof = build_table();

unsigned short GMathHalfFloatConverter::from_float(const float& value) {
    const auto bits = std::bit_cast<std::uint32_t>(value);
    const std::uint32_t sign = (bits >> 16) & 0x8000u;
    const float magnitude = std::fabs(value);
    if (std::isnan(value)) return static_cast<unsigned short>(sign | 0x7E00u);
    if (magnitude >= 65520.0f) return static_cast<unsigned short>(sign | 0x7C00u);
    if (magnitude == 0.0f) return static_cast<unsigned short>(sign);  // has no exponent
    int exponent = 0;
    std::frexp(magnitude, &exponent);
    // Unit of the result: 2^(e-11) for normal halves with value in [2^(e-1), 2^e), 2^-24 for subnormal ones.
    const int unit = exponent - 11 > -24 ? exponent - 11 : -24;
    const auto steps = static_cast<std::uint32_t>(std::nearbyint(std::ldexp(magnitude, -unit)));
    return static_cast<unsigned short>(sign | (static_cast<std::uint32_t>(unit + 24) * 1024u + steps));
}
