#include "bench/support/ray_sets.h"

#include <cmath>
#include <random>

#include "bench/support/timing.h"
#include "render/framing.h"

namespace sds_bench {

namespace {

using Vec3d = GMathVec3<double>;
using sds_render::RenderThread;
using sds_render::Scene;

}  // namespace

RaySet make_primary_rays(const Scene& scene, unsigned int side) {
    const sds_render::Camera camera = sds_render::frame_scene(scene, {}, side, side);
    RaySet rays;
    for (unsigned int y = 0; y + 2 <= side; y += 2)
        for (unsigned int x = 0; x + 4 <= side; x += 4)
            for (unsigned int i = 0; i < 8; ++i) {
                const GeometryRay ray = camera.camera_ray(x + i % 4 + 0.5, y + i / 4 + 0.5);
                rays.push_back({ray.origin, ray.direction, 0.0});
            }
    return rays;
}

RaySet make_random_rays(const GMathBbox3<double>& box, unsigned int count) {
    std::mt19937_64 random(count);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const double radius = 0.5 * box.get_diagonal();
    RaySet rays;
    for (unsigned int i = 0; i < count; ++i) {
        const double z = 2.0 * unit(random) - 1.0, angle = 6.283185307179586 * unit(random);
        const double r = std::sqrt(1.0 - z * z);
        const Vec3d origin = box.get_center() + Vec3d(r * std::cos(angle), r * std::sin(angle), z) * radius;
        Vec3d target;
        for (unsigned int a = 0; a < 3; ++a)
            target[a] = box.get_min()[a] + unit(random) * (box.get_max()[a] - box.get_min()[a]);
        rays.push_back({origin, sds_render::normalized(target - origin), 0.0});
    }
    return rays;
}

RaySet make_moving_rays(const RaySet& rays) {
    std::mt19937_64 random(rays.size());
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    RaySet moving = rays;
    for (Ray& ray : moving) ray.time = unit(random);
    return moving;
}

TraceResult trace_single(const Scene& scene, RenderThread& thread, const RaySet& rays, size_t begin, size_t end) {
    TraceResult result;
    GeometryRay ray;
    for (size_t i = begin; i < end; ++i) {
        ray.start(rays[i].origin, rays[i].direction, rays[i].time);
        if (scene.intersect(ray, thread)) result.add(ray.hit.t);
    }
    return result;
}

TraceResult trace_packets(const Scene& scene, RenderThread& thread, const RaySet& rays, size_t begin, size_t end) {
    TraceResult result;
    GeometryRay packet[8];
    unsigned int objects[8];
    for (size_t first = begin; first + 8 <= end; first += 8) {
        for (size_t i = 0; i < 8; ++i)
            packet[i].start(rays[first + i].origin, rays[first + i].direction, rays[first + i].time);
        scene.intersect_packet(packet, 8, thread, objects);
        for (size_t i = 0; i < 8; ++i)
            if (objects[i] != sds_render::no_index) result.add(packet[i].hit.t);
    }
    return result;
}

TraceResult trace_occlusion(const Scene& scene, RenderThread& thread, const RaySet& rays, size_t begin, size_t end) {
    TraceResult result;
    GeometryRay ray;
    for (size_t i = begin; i < end; ++i) {
        ray.start(rays[i].origin, rays[i].direction, rays[i].time);
        if (scene.occluded(ray, thread)) result.add(0.0);
    }
    return result;
}

std::vector<double> find_distances(const Scene& scene, RenderThread& thread, const RaySet& rays) {
    std::vector<double> distances;
    GeometryRay ray;
    for (const Ray& source : rays) {
        ray.start(source.origin, source.direction, source.time);
        distances.push_back(scene.intersect(ray, thread) ? ray.hit.t : std::numeric_limits<double>::infinity());
    }
    return distances;
}

AnswerDifference compare_distances(const std::vector<double>& a, const std::vector<double>& b, double tolerance) {
    double difference = 0.0;
    size_t far = 0;
    std::vector<double> depths;
    for (size_t i = 0; i < a.size(); ++i) {
        difference += (std::isfinite(a[i]) ? 1.0 : 0.0) - (std::isfinite(b[i]) ? 1.0 : 0.0);
        if (!std::isfinite(a[i]) || !std::isfinite(b[i])) continue;
        depths.push_back(std::fabs(a[i] - b[i]));
        far += depths.back() > tolerance ? 1 : 0;
    }
    AnswerDifference out;
    out.hit_share = std::fabs(difference) / static_cast<double>(a.size());
    out.outliers = depths.empty() ? 1.0 : static_cast<double>(far) / static_cast<double>(depths.size());
    out.median_depth = median_of(std::move(depths));
    return out;
}

}  // namespace sds_bench
