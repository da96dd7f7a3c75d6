// Edge lines of a constant width in pixels.
#pragma once

#include "render/camera.h"
#include "render/surface_point.h"

namespace sds_render {

// Share, in [0, 1], that lines of `width` pixels along the visible edges of the point's primitive cover around the
// point, to first order in the patch coordinates.
//
//            edge 2
//       v=1 3------2
//  edge 3   |      |  edge 1
//       v=0 0------1
//          u=0    u=1
//            edge 0
double get_wire_coverage(const SurfacePoint& point, const Camera& camera, double width);

}  // namespace sds_render
