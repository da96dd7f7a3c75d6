// Control points of patches that a thread's rays met recently. Rays that follow each other meet the same patches, and
// making the sixteen points anew from quads and neighbors takes as long as a third of an intersection.
#pragma once

#include "sds/common/control_lanes.h"
#include "sds/mesh_geometry/pair_kernels/pair_kernels.h"
#include "sds/mesh_geometry/sds_mesh_geometry.h"

namespace sds {

// Of one thread. Patches have one place each, which others share; 2,048 of them are 400 KB, which the second-level
// cache of a core holds.
class ControlCache {
public:
    // Of a patch at rest; valid until the next call.
    const ControlLanes& get(const SdsMeshGeometry& geometry, unsigned int primitive) {
        // Those of a refined surface are stored: rays among more of them than there are places meet few of them again.
        if (geometry.is_refined() && geometry.get_patch_count() > place_count) {
            set(geometry, primitive, m_last);
            return m_last;
        }
        const std::uint64_t stamp = geometry.get_positions_stamp();
        const std::uint64_t key = (stamp << 32) + primitive;
        const std::uint64_t place = (primitive + stamp * 0x9E37u) % place_count;
        ControlLanes& lanes = m_lanes[place];
        if (m_keys[place] != key || stamp == 0) {
            set(geometry, primitive, lanes);
            m_keys[place] = stamp != 0 ? key : 0;
        }
        return lanes;
    }

private:
    static constexpr unsigned int place_count = 2048;

    static void set(const SdsMeshGeometry& geometry, unsigned int primitive, ControlLanes& lanes) {
        using Vec3f = GMathVec3<float>;
        if (geometry.is_refined()) {
            // Stored ones straight from their place: loads would wait for the stores of a copy.
            const Vec3f* controls = reinterpret_cast<const Vec3f*>(geometry.get_refined_arrays().controls);
            return lanes.set(controls + 16 * size_t{primitive});
        }
        PointLanes controls[16];
        geometry.get_bezier_controls(primitive, controls);
        lanes.set(controls);
    }

    std::uint64_t m_keys[place_count] = {};
    ControlLanes m_lanes[place_count];
    ControlLanes m_last;
};

}  // namespace sds
