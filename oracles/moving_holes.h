// Rays against a closed surface that moves, at random times, counted like those against one that stands still.
#pragma once

#include "oracles/moving_surface.h"
#include "oracles/ray_checks.h"

namespace sds_test {

struct MovingHoles {
    HoleCounts fast;   // straight to the patches
    HoleCounts scene;  // through the renderer's hierarchy, its shutter open from 0 to 1
    unsigned int times = 0;

    HoleCounts total() const {
        HoleCounts both = fast;
        return both += scene;
    }
};

// `time_count` random times in [0, 1], the first of them 1/3, where a motion has a bend or not; at each of them
// `rays_per_aim` rays for every aim from inside and from 1, 10 and 1000 diagonals away, both ways. The oracle is made
// of the controls at that time. The surface is refined to `depth`. `times` counts those at which the surface has an
// inside.
MovingHoles count_moving_holes(const ZooMesh& cage, CageMotion motion, unsigned int level, unsigned int time_count,
                               std::uint64_t rays_per_aim, const FaultReport& report = {}, unsigned int depth = 0);

}  // namespace sds_test
