#pragma once

#include "qn_geometry/geometry_raytrace_ctx.h"

#include <string>
#include <vector>

namespace sds_io {

struct RayFile {
    std::vector<GeometryRay> rays;
    std::size_t idle_count = 0;  ///< rays that are not finite or have no direction; tfar may be infinite
    std::size_t first_idle = 0;  ///< row of the first of them
};

/// Reads rays from an .npy file of float64 rows (ox oy oz dx dy dz tnear tfar [time]). Throws InputError for another
/// element type or shape.
RayFile read_rays(const std::string& path);

}  // namespace sds_io
