// Frusta against a patch at a fixed number of levels: sub-patches are culled by their boxes, leaves tested by their
// four corners.
#include <limits>

#include "qn_ctx/ctx_eval.h"
#include "qn_geometry/geometry_frustum_ctx.h"
#include "sds/intersection/bezier_intersection.h"
#include "sds/intersection/overflow_log.h"
#include "sds/intersection/patch_node.h"

namespace {

using Vec3d = GMathVec3<double>;
using sds::NodePool;
using sds::PatchBox;
using sds::PatchNode;

enum SelectionMode { touch = 0, inside = 1 };

struct FrustumScratch {
    NodePool pool;
};

// Planes against boxes, in single precision. The corner that reaches farthest inwards decides, with FLT_EPSILON to
// spare.
struct BoxPlanes {
    alignas(16) float normal[3][8];
    alignas(16) float offset[8];

    explicit BoxPlanes(const GeometryFrustum& frustum) {
        for (unsigned int i = 0; i < 8; ++i) set(i, GeometryPlane{{0, 0, 0}, 1.0});  // holds every box
        for (unsigned int i = 0; i < frustum.side_count; ++i) set(i, frustum.sides[i]);
        set(4, frustum.near_plane);
        set(5, frustum.far_plane);
    }

    bool is_outside(const PatchBox& box) const {
        const SimdFloat4 limit(-std::numeric_limits<float>::epsilon());
        int outside = 0;
        for (unsigned int i = 0; i < 8; i += 4) {
            SimdFloat4 distance(0.0f);
            for (unsigned int axis = 0; axis < 3; ++axis) {
                const SimdFloat4 n = SimdFloat4::load(normal[axis] + i);
                distance = distance + n * select_positive(n, SimdFloat4(box.max[axis]), SimdFloat4(box.min[axis]));
            }
            outside |= less_equal_mask(distance + SimdFloat4::load(offset + i), limit);
        }
        return outside != 0;
    }

private:
    void set(unsigned int i, const GeometryPlane& plane) {
        for (unsigned int axis = 0; axis < 3; ++axis) normal[axis][i] = static_cast<float>(plane.normal[axis]);
        offset[i] = static_cast<float>(plane.offset);
    }
};

bool is_inside(const GeometryPlane& plane, const Vec3d& p) { return plane.get_distance(p) >= 0.0; }

bool any_corner_inside(const GeometryPlane& plane, const Vec3d* corners) {
    for (unsigned int k = 0; k < 4; ++k)
        if (is_inside(plane, corners[k])) return true;
    return false;
}

bool is_inside_all_sides(const GeometryFrustum& frustum, const Vec3d& p) {
    for (unsigned int i = 0; i < frustum.side_count; ++i)
        if (!is_inside(frustum.sides[i], p)) return false;
    return true;
}

// Not all four corners behind one plane: a cell may touch the frustum without a corner in it.
bool leaf_touches(const GeometryFrustum& frustum, const Vec3d* corners) {
    bool some_inside = false;
    for (unsigned int k = 0; k < 4 && !some_inside; ++k) some_inside = is_inside_all_sides(frustum, corners[k]);
    if (!some_inside)
        for (unsigned int i = 0; i < frustum.side_count; ++i)
            if (!any_corner_inside(frustum.sides[i], corners)) return false;
    return any_corner_inside(frustum.near_plane, corners) && any_corner_inside(frustum.far_plane, corners);
}

bool leaf_is_inside(const GeometryFrustum& frustum, const Vec3d* corners) {
    for (unsigned int k = 0; k < 4; ++k)
        if (!is_inside_all_sides(frustum, corners[k]) || !is_inside(frustum.near_plane, corners[k]) ||
            !is_inside(frustum.far_plane, corners[k]))
            return false;
    return true;
}

// Visits the nodes; the context's counter and partial flag take the outcome.
void traverse(NodePool& pool, const sds::FixedDepthSplit& rule, GeometryFrustumCtx& ctx, int mode) {
    const GeometryFrustum& frustum = *ctx.get_frustum();
    const BoxPlanes planes(frustum);
    unsigned int index = 0;
    float entry = 0.0f;
    do {
        for (;;) {
            PatchNode& node = pool[index];
            if (rule.is_leaf(node) || !sds::split(rule, pool, node)) {
                Vec3d corners[4];
                for (unsigned int k = 0; k < 4; ++k) corners[k] = Vec3d(node.get_point(sds::grid_corners[k]));
                pool.release(index);
                if (mode == inside ? leaf_is_inside(frustum, corners) : leaf_touches(frustum, corners))
                    ++ctx.selected_count;
                else
                    ctx.partial_flag = 1;
                if (mode == inside ? ctx.partial_flag != 0 : ctx.selected_count != 0) return;
                break;
            }
            const unsigned int first = node.children[0];
            const unsigned int second = node.children[1];
            pool.release(index);
            const bool first_outside = planes.is_outside(sds::compute_box(pool[first]));
            const bool second_outside = planes.is_outside(sds::compute_box(pool[second]));
            if (!first_outside) {
                if (second_outside) {
                    ctx.partial_flag |= ctx.cull_marker;
                    pool.release(second);
                } else {
                    pool.push(second, 0.0f);
                }
                index = first;
                continue;
            }
            ctx.partial_flag |= ctx.cull_marker;
            pool.release(first);
            if (second_outside) {
                pool.release(second);
                break;
            }
            index = second;
        }
    } while (pool.pop(index, entry));
}

}  // namespace

void frustum_bezier_intersection(const CtxEval& ctx, const unsigned int&, const GMathVec3<float>* controls,
                                 GeometryFrustumCtx& frustum, const unsigned int& count) {
    if (ctx.get_thread() == nullptr || frustum.get_frustum() == nullptr) return;
    NodePool& pool = ctx.get_thread()->get_scratch().acquire<FrustumScratch>().pool;
    sds::set_root(pool[pool.begin()], sds::ControlLanes(controls));

    const unsigned int saved_count = frustum.selected_count;
    const unsigned char saved_flag = frustum.partial_flag;
    frustum.selected_count = 0;
    frustum.partial_flag = 0;
    const int mode = frustum.get_mode();
    traverse(pool, sds::FixedDepthSplit{2 * count}, frustum, mode);

    if (mode == inside) {
        // Every cell of the full grid must have been seen and found inside.
        frustum.selected_count = saved_count + (frustum.selected_count == 1u << ((2 * count) & 31u) ? 1u : 0u);
        frustum.partial_flag = static_cast<unsigned char>(saved_flag | frustum.partial_flag);
    } else {
        frustum.selected_count = saved_count + (frustum.selected_count != 0 ? 1u : 0u);
        frustum.partial_flag = saved_flag;
    }
    // Under the name of the rays' routine that halves by the same rule.
    sds::log_overflows("estimate", pool.get_overflow_count());
}
