// Control points of patches that a thread's rays met recently. Rays that follow each other meet the same patches, and
// making the sixteen points anew from quads and neighbors takes as long as a third of an intersection.
#pragma once

#include "sds/common/control_lanes.h"
#include "sds/mesh_geometry/sds_mesh_geometry.h"

namespace sds {

// Of one thread. Patches have one place each, which others share; 2,048 of them are 400 KB, which the second-level
// cache of a core holds.
class ControlCache {
public:
    // Of a patch at rest; valid until the next call.
    const ControlLanes& get(const SdsMeshGeometry& geometry, unsigned int primitive) {
        const std::uint64_t stamp = geometry.get_positions_stamp();
        const std::uint64_t key = (stamp << 32) + primitive;
        const std::uint64_t place = (primitive + stamp * 0x9E37u) % place_count;
        ControlLanes& lanes = m_lanes[place];
        if (m_keys[place] != key || stamp == 0) {
            GMathVec3<float> controls[16];
            geometry.get_bezier_controls(primitive, controls);
            lanes.set(controls);
            m_keys[place] = stamp != 0 ? key : 0;
        }
        return lanes;
    }

private:
    static constexpr unsigned int place_count = 2048;

    std::uint64_t m_keys[place_count] = {};
    ControlLanes m_lanes[place_count];
};

}  // namespace sds
