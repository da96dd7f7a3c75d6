// What the roads from a ray context to the kernels and back have in common.
#pragma once

#include <algorithm>
#include <cmath>
#include <limits>

#include "qn_geometry/geometry_raytrace_ctx.h"
#include "sds/common/log_line.h"
#include "sds/intersection/fast/ray_kernels.h"
#include "sds/intersection/hit_slots.h"

namespace sds {

// False for a ray without a finite origin or a usable direction, which would cost a patch its whole depth in NaN.
inline bool can_meet(const GeometryRaySpace& space) {
    const float sum = (space.origin[0] + space.origin[1] + space.origin[2]) + space.along[0];
    return std::fabs(sum) <= std::numeric_limits<float>::max();
}

inline bool push_hit(const CtxEval& ctx, unsigned int primitive, GeometryRaytraceCtx& rays, unsigned int i, double t,
                     float u, float v, float cell) {
    const double size = rays.get_data().hit_detail == 1 ? static_cast<double>(cell) : 0.0;
    return rays.push_intersection(ctx, i, primitive, static_cast<double>(u), static_cast<double>(v), 0.0,
                                  no_sub_element, size, size, 0.0, t, duplicate_separation, GeometryMediumDescriptor(),
                                  nullptr);
}

// Coordinates of an edge and of its halves, rounded and moved into the plane apart from each other, differ by a few
// units in the last place of what they are made from.
inline float find_edge_slack(const GeometryRaySpace& space, float extent) {
    float slack = 0.0f;
    if (extent > 0.0f)
        for (const auto& across : space.across) {
            float sum = 0.0f;
            for (unsigned int axis = 0; axis < 3; ++axis)
                sum += std::fabs(across[axis]) * (extent + std::fabs(space.origin[axis]));
            slack = std::max(slack, sum);
        }
    return slack * 0x1p-22f;
}

inline void log_limits(const char* routine, const RayHits& hits) {
    if ((hits.dropped_count | hits.unsettled_count) == 0) return;
    log_line(log_level_statistics, "sds.ray_bezier_intersection_", routine, ": ", hits.unsettled_count,
             " parts of the patch not settled, ", hits.dropped_count, " hits or parts behind ", RayHits::capacity,
             " nearer hits left out\n");
}

// Flat cells are no nodes of the host's tree: hits on them are reported as from its root.
class StartNodeScope {
public:
    explicit StartNodeScope(GeometryRaytraceCtx& rays) : m_rays(rays), m_former(rays.get_start_node()) {
        rays.set_start_node(0);
    }
    ~StartNodeScope() { m_rays.set_start_node(m_former); }
    StartNodeScope(const StartNodeScope&) = delete;
    StartNodeScope& operator=(const StartNodeScope&) = delete;

private:
    GeometryRaytraceCtx& m_rays;
    unsigned int m_former;
};

// Sets the rays' reference point for the duration of a call.
class ReferencePointScope {
public:
    ReferencePointScope(GeometryRaytraceCtx& rays, const GMathVec3<double>& point)
        : m_rays(rays), m_former(rays.get_reference_point()) {
        rays.set_reference_point(point);
    }
    ~ReferencePointScope() { m_rays.set_reference_point(m_former); }
    ReferencePointScope(const ReferencePointScope&) = delete;
    ReferencePointScope& operator=(const ReferencePointScope&) = delete;

private:
    GeometryRaytraceCtx& m_rays;
    GMathVec3<double> m_former;
};

}  // namespace sds
