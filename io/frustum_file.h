#pragma once

#include "qn_geometry/geometry_frustum_ctx.h"

#include <string>
#include <string_view>

namespace sds_io {

/// Reads a frustum from a JSON file: {"sides": [[nx, ny, nz, d], ...], "near": [...], "far": [...]}. A point p is
/// inside when n . p + d >= 0 for every plane. Up to four sides; each key may be missing and then holds every point.
/// Throws InputError.
GeometryFrustum read_frustum(const std::string& path);

/// The same for text in memory; `name` stands for the file in messages.
GeometryFrustum read_frustum_text(std::string_view text, const std::string& name);

}  // namespace sds_io
