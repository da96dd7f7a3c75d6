// Moving patches stay inside the boxes that the renderer gives its hierarchy.
#include <gtest/gtest.h>

#include "oracles/motion_checks.h"

namespace sds_test {
namespace {

constexpr std::uint64_t points_per_surface = 4000;

TEST(MotionBounds, HoldEveryPointWhileTheShutterIsOpen) {
    for (const char* name : {"cube", "torus", "sheet_dart", "prism5_crease_loop", "strip"})
        for (const CageMotion motion : all_cage_motions)
            for (const unsigned int level : {0u, 3u})
                for (const sds_render::Shutter& shutter : {sds_render::Shutter{0.0, 1.0}, {0.25, 0.9}, {-0.5, 0.4}}) {
                    SCOPED_TRACE(testing::Message() << name << ", " << name_of(motion) << ", level " << level
                                                    << ", shutter " << shutter.open << " " << shutter.close);
                    const MovingSurface surface(zoo_mesh(name), motion, level);
                    const MotionBoundsCheck check = check_motion_bounds(surface, shutter, points_per_surface);
                    EXPECT_EQ(check.points, points_per_surface);
                    EXPECT_EQ(check.outside, 0u);
                    EXPECT_EQ(check.outside_hierarchy, 0u);
                    // Not by being huge.
                    EXPECT_LT(check.growth, 3.0);
                }
}

}  // namespace
}  // namespace sds_test
