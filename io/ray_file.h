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

/// Reads rays, rows of ox oy oz dx dy dz [tnear tfar [time]], all of one length: an .npy file of float64 or float32, or
/// lines of text between blanks or commas, where '#' begins a comment; "-" is standard input. Without tnear and tfar
/// they are 0 and infinite. Throws InputError for another element type or shape, with the line in a text, and
/// MemoryLimitError before an .npy file takes more than `limit` bytes, those of its rays among them; 0 is no limit.
RayFile read_rays(const std::string& path, std::size_t limit = 0);

}  // namespace sds_io
