// Points of moving surfaces against the boxes that the renderer's hierarchy is built from.
#pragma once

#include <cstdint>

#include "oracles/moving_surface.h"
#include "render/scene.h"

namespace sds_test {

struct MotionBoundsCheck {
    std::uint64_t points = 0;
    std::uint64_t outside = 0;            // of the blend of the two boxes beside the point's time
    std::uint64_t outside_hierarchy = 0;  // of that blend in the single-precision boxes of the hierarchy
    double growth = 0.0;                  // mean diagonal of the blended box against the patch's own at that time
};

// Samples `points` random points of random patches at random times while the shutter is open. The answer does not
// depend on the number of threads.
MotionBoundsCheck check_motion_bounds(const MovingSurface& surface, const sds_render::Shutter& shutter,
                                      std::uint64_t points);

}  // namespace sds_test
