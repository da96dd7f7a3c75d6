// Rays that both sides trace, and our side of tracing them.
#pragma once

#include <vector>

#include "render/scene.h"

namespace sds_bench {

struct Ray {
    GMathVec3<double> origin{0, 0, 0};
    GMathVec3<double> direction{0, 0, 1};  // unit
    double time = 0.0;
};
using RaySet = std::vector<Ray>;

// Rays of a camera that frames the scene, pixels in blocks of 4 x 2, so that eight in a row make a packet.
RaySet make_primary_rays(const sds_render::Scene& scene, unsigned int side);
// Rays from the sphere around the box towards places inside it, in no order.
RaySet make_random_rays(const GMathBbox3<double>& box, unsigned int count);
// The same rays, each at a time of its own in [0, 1).
RaySet make_moving_rays(const RaySet& rays);

struct TraceResult {
    size_t hits = 0;
    double distance = 0.0;

    void add(double t) {
        ++hits;
        distance += t;
    }
};

TraceResult trace_single(const sds_render::Scene& scene, sds_render::RenderThread& thread, const RaySet& rays,
                         size_t begin, size_t end);
TraceResult trace_packets(const sds_render::Scene& scene, sds_render::RenderThread& thread, const RaySet& rays,
                          size_t begin, size_t end);
TraceResult trace_occlusion(const sds_render::Scene& scene, sds_render::RenderThread& thread, const RaySet& rays,
                            size_t begin, size_t end);
// Distance of every ray's hit, infinite without.
std::vector<double> find_distances(const sds_render::Scene& scene, sds_render::RenderThread& thread,
                                   const RaySet& rays);

// How two sides' answers differ.
struct AnswerDifference {
    double hit_share = 0.0;     // difference of the hit counts over the rays
    double median_depth = 0.0;  // of |t - t'| over rays that both hit
    double outliers = 0.0;      // share of those rays beyond the tolerance
};
AnswerDifference compare_distances(const std::vector<double>& a, const std::vector<double>& b, double tolerance);

}  // namespace sds_bench
