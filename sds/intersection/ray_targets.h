// Where a ray's current far distance stands: in its record, or in its path when the context collects hits in a map.
#pragma once

#include "sds/intersection/ray_state.h"

namespace sds {

struct RecordFar {
    static double get(GeometryRaytraceCtx& rays, unsigned int i) { return rays.get_tfar(i); }
};

struct PathFar {
    static double get(GeometryRaytraceCtx& rays, unsigned int i) {
        return rays.get_intersection_path(i).get_distance();
    }
};

// The far distance from the moved origin; for a finished ray, where it begins.
template <class FarSource>
float local_far(GeometryRaytraceCtx& rays, const RayState& ray) {
    return rays.is_ray_finished(ray.index) ? ray.entry_bound : ray.to_local_far(FarSource::get(rays, ray.index));
}

inline constexpr double duplicate_separation = 0.0001;
inline constexpr unsigned int no_sub_element = 0xFFFFFFFF;

}  // namespace sds
