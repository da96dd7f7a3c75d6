#include "qn_gmath/gmath_half.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

#define IMATH_HALF_NO_LOOKUP_TABLE
#include <Imath/half.h>

namespace {

float to_float(unsigned int half) { return GMathHalfFloatConverter::s_conv_htof[half]; }

void expect_rounding(float value) {
    const unsigned int half = GMathHalfFloatConverter::from_float(value);
    if (std::isnan(value))
        EXPECT_TRUE(std::isnan(to_float(half)));
    else
        ASSERT_EQ(half, Imath::half(value).bits()) << value;
}

// Every half, the floats beside it, and those at and beside the middle to the next one.
TEST(GMathHalf, ReadsAndRoundsLikeAnotherLibrary) {
    constexpr float infinity = std::numeric_limits<float>::infinity();
    for (unsigned int half = 0; half < 65536; ++half) {
        Imath::half other;
        other.setBits(static_cast<std::uint16_t>(half));
        const float value = to_float(half);
        ASSERT_EQ(std::isnan(value), other.isNan()) << half;
        if (!other.isNan()) {
            ASSERT_EQ(std::bit_cast<std::uint32_t>(value), std::bit_cast<std::uint32_t>(float{other}));
        }
        const float middle = 0.5f * value + 0.5f * to_float((half + 1) % 65536);
        for (const float at : {value, middle})
            for (const float towards : {at, -infinity, infinity}) expect_rounding(std::nextafter(at, towards));
    }
    for (const float value : {65519.996f, 65520.0f, -3e38f, std::numeric_limits<float>::denorm_min()})
        expect_rounding(value);
}

}  // namespace
