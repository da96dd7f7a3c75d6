// Fixed-level rays: every leaf is the flat quad of its four corners.
#include <algorithm>

#include "qn_ctx/ctx_eval.h"
#include "sds/common/control_lanes.h"
#include "sds/intersection/overflow_log.h"
#include "sds/intersection/ray_targets.h"
#include "sds/intersection/reference.h"
#include "sds/intersection/traversal.h"

namespace {

using Vec3d = GMathVec3<double>;
using sds::PatchNode;
using sds::RayState;

// A triangle of a cell, from corner c0 to two further ones.
struct CellTriangle {
    unsigned char second;  // grid places
    unsigned char third;
    bool upper;  // false: (c0, c1, c2), true: (c0, c2, c3)
};

constexpr CellTriangle cell_triangles[2] = {{sds::grid_corners[1], sds::grid_corners[2], false},
                                            {sds::grid_corners[2], sds::grid_corners[3], true}};

struct TriangleHit {
    double t, b1, b2;
};

// Moeller and Trumbore 1997, both faces. Coordinates are single precision, differences and products double: in single
// precision a cell that is small against its distance from the origin lets rays slip between its triangles.
bool intersect_triangle(const RayState& ray, const Vec3d& c0, const Vec3d& c1, const Vec3d& c2, TriangleHit& hit) {
    constexpr double epsilon = static_cast<double>(GMath<float>::s_epsilon);
    const Vec3d direction(ray.direction);
    const Vec3d e1 = c1 - c0;
    const Vec3d e2 = c2 - c0;
    const Vec3d p = direction.cross(e2);
    const double det = e1.dot(p);
    if (det == 0.0) return false;
    const Vec3d s = Vec3d(ray.origin) - c0;
    hit.b1 = s.dot(p) / det;
    if (!(hit.b1 >= -epsilon && hit.b1 <= 1.0 + epsilon)) return false;
    const Vec3d q = s.cross(e1);
    hit.b2 = direction.dot(q) / det;
    if (!(hit.b2 >= -epsilon && hit.b1 + hit.b2 <= 1.0 + epsilon)) return false;
    hit.t = e2.dot(q) / det;
    return true;
}

double clamped_blend(double w, float a, float b) {
    return std::clamp((1.0 - w) * static_cast<double>(a) + w * static_cast<double>(b), 0.0, 1.0);
}

struct EstimateLeaf {
    const CtxEval& ctx;
    unsigned int primitive;
    GeometryRaytraceCtx& rays;

    void intersect(const PatchNode& node, const RayState& ray) const {
        const float* r = node.range;
        const Vec3d c0(node.get_point(sds::grid_corners[0]));
        for (const CellTriangle& triangle : cell_triangles) {
            TriangleHit hit;
            if (!intersect_triangle(ray, c0, Vec3d(node.get_point(triangle.second)),
                                    Vec3d(node.get_point(triangle.third)), hit))
                continue;
            const double sum = hit.b1 + hit.b2;
            const double a = clamped_blend(triangle.upper ? hit.b1 : sum, r[0], r[2]);
            const double b = clamped_blend(triangle.upper ? sum : hit.b2, r[1], r[3]);
            // The cell's size in patch coordinates, for hosts that filter by it.
            const bool detailed = rays.get_data().hit_detail == 1;
            const double da = detailed ? static_cast<double>(r[2] - r[0]) : 0.0;
            const double db = detailed ? static_cast<double>(r[3] - r[1]) : 0.0;
            const bool swapped = node.direction != 0;
            rays.push_intersection(ctx, ray.index, primitive, swapped ? b : a, swapped ? a : b, 0.0,
                                   sds::no_sub_element, swapped ? db : da, swapped ? da : db, 0.0, ray.to_ray(hit.t),
                                   sds::duplicate_separation, GeometryMediumDescriptor(), nullptr);
        }
    }
};

template <class FarSource>
void trace_single(sds::IntersectionScratch& scratch, const sds::ControlLanes& controls, const EstimateLeaf& leaf,
                  unsigned int i, const sds::FixedDepthSplit& split, unsigned int& overflow_count) {
    GeometryRaytraceCtx& rays = leaf.rays;
    if (rays.is_ray_finished(i)) return;
    RayState& ray = scratch.rays[0];
    ray.set(rays, i);
    sds::set_root(scratch.pool[scratch.pool.begin()], controls);
    sds::traverse_ray(
        scratch.pool, ray, split, [&] { return sds::local_far<FarSource>(rays, ray); },
        [&](const PatchNode& node) {
            leaf.intersect(node, ray);
            return rays.is_ray_finished(i);
        });
    overflow_count += scratch.pool.get_overflow_count();
}

void trace_batch(sds::IntersectionScratch& scratch, const sds::ControlLanes& controls, const EstimateLeaf& leaf,
                 unsigned int first, unsigned int count, const sds::FixedDepthSplit& split,
                 unsigned int& overflow_count) {
    GeometryRaytraceCtx& rays = leaf.rays;
    for (unsigned int i = 0; i < count; ++i) scratch.rays[i].set(rays, first + i);
    sds::set_root(scratch.pool[scratch.pool.begin()], controls);
    sds::traverse_rays(
        scratch.pool, scratch.rays, count, split,
        [&](unsigned int i) { return sds::local_far<sds::PathFar>(rays, scratch.rays[i]); },
        [&](const PatchNode& node) {
            bool all_finished = true;
            for (unsigned int i = 0; i < count; ++i) {
                if (!rays.is_ray_finished(first + i)) leaf.intersect(node, scratch.rays[i]);
                all_finished = all_finished && rays.is_ray_finished(first + i);
            }
            return all_finished;
        });
    overflow_count += scratch.pool.get_overflow_count();
}

}  // namespace

void sds::trace_cells_reference(const CtxEval& ctx, unsigned int primitive, const ControlLanes& controls,
                                unsigned int level_count, GeometryRaytraceCtx& rays) {
    auto& scratch = ctx.get_thread()->get_scratch().acquire<sds::IntersectionScratch>();
    const EstimateLeaf leaf{ctx, primitive, rays};
    const sds::FixedDepthSplit split{2 * level_count};
    const unsigned int first = rays.get_first_ray();
    const unsigned int ray_count = rays.get_last_ray() - first + 1;
    unsigned int overflow_count = 0;
    if (rays.get_data().map == nullptr) {
        for (unsigned int i = 0; i < ray_count; ++i)
            trace_single<sds::RecordFar>(scratch, controls, leaf, first + i, split, overflow_count);
    } else if (ray_count == 1) {
        trace_single<sds::PathFar>(scratch, controls, leaf, first, split, overflow_count);
    } else {
        for (unsigned int i = 0; i < ray_count; i += sds::max_ray_batch)
            trace_batch(scratch, controls, leaf, first + i, std::min(sds::max_ray_batch, ray_count - i), split,
                        overflow_count);
    }
    log_overflows("estimate", overflow_count);
}
