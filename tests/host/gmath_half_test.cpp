#include "qn_gmath/gmath_half.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

namespace {

float to_float(unsigned int half) { return GMathHalfFloatConverter::s_conv_htof[half]; }

TEST(GMathHalf, EveryHalfKeepsItsMeaning) {
    for (unsigned int half = 0; half < 65536; ++half) {
        const int exponent = static_cast<int>((half >> 10) & 31u);
        const double mantissa = half & 1023u;
        const double sign = half >= 32768 ? -1.0 : 1.0;
        if (exponent == 31) {
            EXPECT_EQ(std::isnan(to_float(half)), mantissa != 0.0) << half;
            if (mantissa == 0.0) {
                EXPECT_EQ(to_float(half), sign * std::numeric_limits<double>::infinity()) << half;
            }
            continue;
        }
        const double value = exponent == 0 ? std::ldexp(mantissa, -24) : std::ldexp(1024.0 + mantissa, exponent - 25);
        ASSERT_EQ(to_float(half), sign * value) << half;
        ASSERT_EQ(std::signbit(to_float(half)), half >= 32768) << half;
    }
}

TEST(GMathHalf, EveryHalfComesBack) {
    for (unsigned int half = 0; half < 65536; ++half) {
        const float value = to_float(half);
        const unsigned int back = GMathHalfFloatConverter::from_float(value);
        if (std::isnan(value)) {
            EXPECT_TRUE(std::isnan(to_float(back))) << half;
        } else {
            EXPECT_EQ(back, half);
        }
    }
}

// Between two neighbouring halves: below, at and above the middle, where the tie goes to the even one.
TEST(GMathHalf, RoundsToNearestEven) {
    for (unsigned int half = 0; half + 1 < 0x7C00; ++half) {
        const float low = to_float(half), high = to_float(half + 1);
        const float middle = 0.5f * (low + high);
        const float infinity = std::numeric_limits<float>::infinity();
        ASSERT_EQ(GMathHalfFloatConverter::from_float(middle), (half & 1u) == 0 ? half : half + 1) << half;
        ASSERT_EQ(GMathHalfFloatConverter::from_float(std::nextafter(middle, 0.0f)), half) << half;
        ASSERT_EQ(GMathHalfFloatConverter::from_float(std::nextafter(middle, infinity)), half + 1) << half;
        ASSERT_EQ(GMathHalfFloatConverter::from_float(-std::nextafter(middle, infinity)), 0x8000u | (half + 1)) << half;
    }
    EXPECT_EQ(GMathHalfFloatConverter::from_float(65519.996f), 0x7BFFu);
    EXPECT_EQ(GMathHalfFloatConverter::from_float(65520.0f), 0x7C00u);
    EXPECT_EQ(GMathHalfFloatConverter::from_float(-3e38f), 0xFC00u);
    EXPECT_EQ(GMathHalfFloatConverter::from_float(std::numeric_limits<float>::denorm_min()), 0u);
}

}  // namespace
