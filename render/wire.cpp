#include "render/wire.h"

#include <algorithm>
#include <cmath>

namespace sds_render {

double get_wire_coverage(const SurfacePoint& point, const Camera& camera, double width) {
    double ux, uy, vx, vy;
    camera.get_pixel_step(point.position, point.sample.get_geometric_dpdu(), ux, uy);
    camera.get_pixel_step(point.position, point.sample.get_geometric_dpdv(), vx, vy);
    // Pixels across a unit of u, measured at right angles to the lines of constant u, and likewise for v.
    const double area = std::fabs(ux * vy - uy * vx);
    const double across_u = area / std::hypot(vx, vy);
    const double across_v = area / std::hypot(ux, uy);

    const GeometryFragment& at = point.fragment;
    const double pixels[4] = {at.v * across_v, (1.0 - at.u) * across_u, (1.0 - at.v) * across_v, at.u * across_u};
    double coverage = 0.0;
    for (unsigned int edge = 0; edge < 4; ++edge) {
        const double inside = 0.5 * width - pixels[edge];  // NaN where the patch has no extent: no line
        if (!(inside > -0.5) || !point.object->is_primitive_edge_visible(at.primitive, edge)) continue;
        coverage = std::max(coverage, clamp_unit(inside + 0.5));
    }
    return coverage;
}

}  // namespace sds_render
