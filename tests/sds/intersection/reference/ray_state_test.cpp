#include "sds/intersection/reference/ray_state.h"

#include "../one_patch.h"

namespace sds_test {
namespace {

using Wide = __int128;

// A distance along a ray as an exact fraction with a positive denominator.
struct Fraction {
    Wide numerator;
    Wide denominator;
    bool operator<=(const Fraction& other) const {
        return numerator * other.denominator <= other.numerator * denominator;
    }
};

// Coordinates are whole numbers over 4096, below 2^24: floats hold them, 128-bit integers compare exactly. The box's
// sides are rounded from one point of the ray, so that the ray touches the box or passes it by a hair. Along some axes
// it does not move.
TEST(SlabTest, NeverLosesARayThatTouchesTheBox) {
    std::mt19937_64 random(3);
    constexpr int largest = (1 << 24) - 1;
    std::uniform_int_distribution<int> whole(-largest, largest);
    std::uniform_int_distribution<int> shrink(0, 20);
    unsigned int touching = 0;
    unsigned int missing = 0;
    for (unsigned int i = 0; i < 2000000; ++i) {
        int o[3], d[3], low[3], high[3];
        const double t = std::ldexp(static_cast<double>(whole(random)), -24 - shrink(random) / 4);
        for (unsigned int axis = 0; axis < 3; ++axis) {
            o[axis] = whole(random) >> shrink(random);
            d[axis] = whole(random) >> shrink(random) / 2;
            if (random() % 8 == 0) d[axis] = 0;
            const double at = std::clamp(o[axis] + t * d[axis], -1.0 * largest, 1.0 * largest);
            const int near = static_cast<int>(std::floor(at)) + static_cast<int>(random() % 2);
            const int far =
                std::clamp(near + (random() % 2 == 0 ? 1 : -1) * (whole(random) >> shrink(random)), -largest, largest);
            low[axis] = std::min(near, far);
            high[axis] = std::max(near, far);
        }
        Fraction entry{-1, 0}, exit{1, 0};
        bool is_beside = false, moves = false;
        for (unsigned int axis = 0; axis < 3; ++axis) {
            if (d[axis] == 0) {
                is_beside = is_beside || o[axis] < low[axis] || o[axis] > high[axis];
                continue;
            }
            const int sign = d[axis] < 0 ? -1 : 1;
            const Fraction in{Wide((d[axis] < 0 ? high : low)[axis] - o[axis]) * sign, Wide(d[axis]) * sign};
            const Fraction out{Wide((d[axis] < 0 ? low : high)[axis] - o[axis]) * sign, Wide(d[axis]) * sign};
            if (!moves || entry <= in) entry = in;
            if (!moves || out <= exit) exit = out;
            moves = true;
        }
        if (!moves) continue;
        const double scale = 1.0 / 4096.0;
        sds::RayState state;
        sds::PatchBox box;
        state.set_direction(GMathVec3<float>(Vec3d(d[0], d[1], d[2]) * scale));
        for (unsigned int axis = 0; axis < 3; ++axis) {
            state.origin[axis] = static_cast<float>(o[axis] * scale);
            box.min[axis] = static_cast<float>(low[axis] * scale);
            box.max[axis] = static_cast<float>(high[axis] * scale);
        }
        float computed = -std::numeric_limits<float>::max();
        const bool hit = sds::slab_test(state, box, std::numeric_limits<float>::max(), computed);
        if (!is_beside && entry <= exit) {
            ++touching;
            ASSERT_TRUE(hit) << "case " << i;
        } else {
            missing += hit ? 0 : 1;
        }
    }
    EXPECT_GT(touching, 200000u);
    EXPECT_GT(missing, 200000u) << "the test does not let everything pass";
}

TEST(RayState, NarrowingBoundsTheDouble) {
    std::mt19937_64 random(5);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    for (unsigned int i = 0; i < 100000; ++i) {
        const double x = std::ldexp(unit(random), static_cast<int>(random() % 80) - 40);
        const float low = sds::narrow_down(x), high = sds::narrow_up(x);
        ASSERT_LE(static_cast<double>(low), x);
        ASSERT_GE(static_cast<double>(high), x);
        ASSERT_LE(high, std::nextafter(low, std::numeric_limits<float>::infinity()));
    }
    EXPECT_EQ(sds::narrow_down(0.5), 0.5f);
    EXPECT_EQ(sds::narrow_up(0.5), 0.5f);
    EXPECT_EQ(sds::narrow_up(std::numeric_limits<double>::infinity()), std::numeric_limits<float>::infinity());
    EXPECT_TRUE(std::isnan(sds::narrow_up(std::numeric_limits<double>::quiet_NaN())));
}

}  // namespace
}  // namespace sds_test
