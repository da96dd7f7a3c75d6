#include "sds/intersection/reference/trace_reference.h"

#include <algorithm>
#include <cmath>

#include "qn_ctx/ctx_eval.h"
#include "sds/intersection/hit_slots.h"
#include "sds/intersection/overflow_log.h"
#include "sds/intersection/reference/traversal.h"

namespace {

using Vec3f = GMathVec3<float>;
using Vec3d = GMathVec3<double>;
using sds::PatchNode;
using sds::RayState;

// With a map, rays of the range share their splits, this many at once.
constexpr unsigned int max_ray_batch = 16;

struct Scratch {
    sds::NodePool pool;
    RayState rays[max_ray_batch];
    sds::HitSlots slots[max_ray_batch];
};

// Rays that go through a patch together.
struct Batch {
    const CtxEval& ctx;
    unsigned int primitive;
    GeometryRaytraceCtx& rays;
    Scratch& scratch;
    unsigned int count;

    // A ray's far distance now, from the moved origin; of a finished ray, where it begins.
    float get_far(unsigned int i) const {
        const RayState& ray = scratch.rays[i];
        if (rays.is_ray_finished(ray.index)) return ray.entry_bound;
        return ray.to_local_far(rays.get_data().map == nullptr ? rays.get_tfar(ray.index)
                                                               : rays.get_intersection_path(ray.index).get_distance());
    }

    // `du` and `dv` are the size of the cell that was hit.
    bool push(const RayState& ray, double u, double v, double du, double dv, double t) const {
        return rays.push_intersection(ctx, ray.index, primitive, u, v, 0.0, sds::no_sub_element, du, dv, 0.0,
                                      ray.to_ray(t), sds::duplicate_separation, GeometryMediumDescriptor(), nullptr);
    }
};

// A leaf of the limit surface: its point at the parametric center, and the tangents there.
struct LeafCenter {
    Vec3f point;
    Vec3f along_rows;
    Vec3f along_columns;

    explicit LeafCenter(const PatchNode& node) {
        // Rows at one half: weights 1/8, 3/8, 3/8, 1/8 for points; (p3 + p2 - p1 - p0) * 3/4 for derivatives.
        Vec3f row_points[4];
        Vec3f row_tangents[4];
        for (unsigned int r = 0; r < 4; ++r) {
            const Vec3f p0 = node.get_point(4 * r), p1 = node.get_point(4 * r + 1), p2 = node.get_point(4 * r + 2),
                        p3 = node.get_point(4 * r + 3);
            row_points[r] = blend(p0, p1, p2, p3);
            row_tangents[r] = (p3 + p2 - p1 - p0) * 0.75f;
        }
        point = blend(row_points[0], row_points[1], row_points[2], row_points[3]);
        along_rows = blend(row_tangents[0], row_tangents[1], row_tangents[2], row_tangents[3]);
        along_columns = (row_points[3] + row_points[2] - row_points[1] - row_points[0]) * 0.75f;
    }

private:
    static Vec3f blend(const Vec3f& p0, const Vec3f& p1, const Vec3f& p2, const Vec3f& p3) {
        return (p0 + p3) * 0.125f + (p1 + p2) * 0.375f;
    }
};

// Leaves that are nearly points. Hits wait in slots until the traversal has ended.
class PointLeaf {
public:
    explicit PointLeaf(const Batch& batch) : m_batch(batch) {
        for (unsigned int i = 0; i < batch.count; ++i) batch.scratch.slots[i].clear();
    }

    bool operator()(const PatchNode& node) const {
        const LeafCenter center(node);
        for (unsigned int i = 0; i < m_batch.count; ++i) {
            // A leaf that some ray of the batch enters is no hit for those that pass it by.
            const RayState& ray = m_batch.scratch.rays[i];
            float entry = ray.entry_bound;
            if (sds::slab_test(ray, node.box, m_batch.get_far(i), entry))
                intersect(node, center, ray, m_batch.scratch.slots[i]);
        }
        return false;
    }

    void finish() const {
        for (unsigned int i = 0; i < m_batch.count; ++i) {
            const RayState& ray = m_batch.scratch.rays[i];
            m_batch.scratch.slots[i].flush(
                static_cast<float>(sds::duplicate_separation), [&](const sds::HitSlots::Entry& entry) {
                    const bool accepted = m_batch.push(ray, static_cast<double>(entry.u), static_cast<double>(entry.v),
                                                       0.0, 0.0, static_cast<double>(entry.t));
                    if (accepted && m_batch.rays.is_ray_finished(ray.index))
                        m_batch.rays.set_occluder(ray.index, {m_batch.primitive, entry.node, &m_batch.scratch});
                });
        }
    }

private:
    void intersect(const PatchNode& node, const LeafCenter& center, const RayState& ray, sds::HitSlots& slots) const {
        const Vec3f scaled = ray.direction * (1.0f / ray.direction.length_squared());
        const float t = (center.point - ray.origin).dot(scaled);
        const double ray_t = ray.to_ray(static_cast<double>(t));
        if (!(ray_t >= m_batch.rays.get_tnear(ray.index) && ray_t < m_batch.rays.get_tfar(ray.index))) return;
        const Vec3f normal = center.along_rows.cross(center.along_columns);
        const bool facing = normal.dot(ray.direction) <= 0.0f;
        const unsigned int side = (facing ? 1u : 0u) ^ node.direction;
        const float a = (node.range[0] + node.range[2]) * 0.5f;
        const float b = (node.range[1] + node.range[3]) * 0.5f;
        const bool swapped = node.direction != 0;
        slots.add(side, t, swapped ? b : a, swapped ? a : b, m_batch.scratch.pool.get_node_index(node));
    }

    const Batch& m_batch;
};

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

// Leaves of a fixed level: the flat quad of their corners, cut into two triangles.
class CellLeaf {
public:
    explicit CellLeaf(const Batch& batch) : m_batch(batch) {}

    bool operator()(const PatchNode& node) const {
        bool all_finished = true;
        for (unsigned int i = 0; i < m_batch.count; ++i) {
            const RayState& ray = m_batch.scratch.rays[i];
            if (!m_batch.rays.is_ray_finished(ray.index)) intersect(node, ray);
            all_finished = all_finished && m_batch.rays.is_ray_finished(ray.index);
        }
        return all_finished;
    }

    void finish() const {}

private:
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
            const bool detailed = m_batch.rays.get_data().hit_detail == 1;
            const double da = detailed ? static_cast<double>(r[2] - r[0]) : 0.0;
            const double db = detailed ? static_cast<double>(r[3] - r[1]) : 0.0;
            const bool swapped = node.direction != 0;
            m_batch.push(ray, swapped ? b : a, swapped ? a : b, swapped ? db : da, swapped ? da : db, hit.t);
        }
    }

    const Batch& m_batch;
};

// The rays of the range, by the split rule that make_rule(root) gives.
template <class Leaf, class MakeRule>
void trace(const CtxEval& ctx, unsigned int primitive, const sds::ControlLanes& controls, GeometryRaytraceCtx& rays,
           const char* routine, const MakeRule& make_rule) {
    auto& scratch = ctx.get_thread()->get_scratch().acquire<Scratch>();
    const unsigned int batch_size = rays.get_data().map == nullptr ? 1 : max_ray_batch;
    const unsigned int end = rays.get_last_ray() + 1;
    unsigned int refused_count = 0;
    for (unsigned int first = rays.get_first_ray(); first < end; first += batch_size) {
        const Batch batch{ctx, primitive, rays, scratch, std::min(batch_size, end - first)};
        for (unsigned int i = 0; i < batch.count; ++i) scratch.rays[i].set(rays, first + i);
        PatchNode& root = scratch.pool[scratch.pool.begin()];
        sds::set_root(root, controls);
        const Leaf leaf(batch);
        sds::traverse(
            scratch.pool, scratch.rays, batch.count, make_rule(root), [&](unsigned int i) { return batch.get_far(i); },
            leaf);
        leaf.finish();
        refused_count += scratch.pool.get_overflow_count();
    }
    sds::log_overflows(routine, refused_count);
}

float get_tolerance(const sds::PatchBox& box) {
    float center = 0.0f;
    for (unsigned int axis = 0; axis < 3; ++axis) center += std::fabs((box.min[axis] + box.max[axis]) * 0.5f);
    return std::max(3.0f, center) * GMath<float>::s_epsilon;
}

}  // namespace

void sds::trace_limit_reference(const CtxEval& ctx, unsigned int primitive, const ControlLanes& controls,
                                GeometryRaytraceCtx& rays) {
    trace<PointLeaf>(ctx, primitive, controls, rays, "adaptive",
                     [](PatchNode& root) { return AdaptiveSplit{get_tolerance(get_box(root))}; });
}

void sds::trace_cells_reference(const CtxEval& ctx, unsigned int primitive, const ControlLanes& controls,
                                unsigned int level_count, GeometryRaytraceCtx& rays) {
    trace<CellLeaf>(ctx, primitive, controls, rays, "estimate",
                    [level_count](const PatchNode&) { return FixedDepthSplit{2 * level_count}; });
}
