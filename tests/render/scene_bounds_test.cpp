#include "render/scene_bounds.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace sds_render {
namespace {

// A position that is less than 1e-4 of the way from a sample stands on it: the blend of the boxes at the ends has to
// hold that one too, and to be little larger than it needs to.
TEST(SceneBounds, MovingBoxesHoldPositionsThatSnapToASample) {
    constexpr double way = 1000.0;
    const PrimitiveBounds bounds = compute_box_bounds(1, {0.0, 1.0}, [](unsigned int, double time) {
        const Vec3 low{way * time, 0.0, -way * time};
        return Bbox3(low, low + Vec3{1, 1, 1});
    });
    ASSERT_EQ(bounds.step_count, 2u);
    for (const unsigned int end : {0u, 1u})
        for (unsigned int axis = 0; axis < 3; ++axis) {
            const Bbox3 &here = bounds.get(end, 0), &there = bounds.get(1 - end, 0);
            const double low = here.get_min()[axis] + 1e-4 * (there.get_min()[axis] - here.get_min()[axis]);
            const double high = here.get_max()[axis] + 1e-4 * (there.get_max()[axis] - here.get_max()[axis]);
            const double at = axis == 1 ? 0.0 : (axis == 0 ? way : -way) * end;
            EXPECT_LE(low, at);
            EXPECT_GE(high, at + 1.0);
            EXPECT_GE(here.get_min()[axis], at - 2e-4 * way);
            EXPECT_LE(here.get_max()[axis], at + 1.0 + 2e-4 * way);
        }
}

TEST(UnitSpace, NarrowBoxesHoldThePaddedOnes) {
    std::mt19937 random(5);
    std::uniform_real_distribution<double> place(-1.0, 1.0);
    for (unsigned int i = 0; i < 2000; ++i) {
        const Vec3 a{place(random), place(random), place(random)}, b{place(random), place(random), place(random)};
        Bbox3 box(a, a);
        box.grow(b * std::pow(10.0, i % 5 - 4.0));
        const UnitSpace space(Bbox3({-3, -1, -2}, {2, 2, 2}));
        float lower[3], upper[3];
        space.narrow(box, lower, upper);
        const Bbox3 padded = space.pad(box);
        for (unsigned int axis = 0; axis < 3; ++axis) {
            const auto in_unit_space = [&](double x) { return (x - space.get_center()[axis]) / space.get_radius(); };
            const double low = in_unit_space(padded.get_min()[axis]), high = in_unit_space(padded.get_max()[axis]);
            ASSERT_LE(static_cast<double>(lower[axis]), low + 1e-15) << i;
            ASSERT_GE(static_cast<double>(upper[axis]), high - 1e-15) << i;
            EXPECT_NEAR(static_cast<double>(lower[axis]), low, 3e-7);
            EXPECT_NEAR(static_cast<double>(upper[axis]), high, 3e-7);
        }
    }
}

}  // namespace
}  // namespace sds_render
