// The search for rays that a few halvings of a patch do not settle: those that graze a fold, run along the surface or
// meet one that is nearly a line or a point. For the kernels of one instruction set.
//
// Nearest parts come first, so that a full list of hits ends the search early; the longer of two sides is halved, so
// that a sliver costs no more than a square; and what is below the rounding of its own coordinates is not halved.
#pragma once

#include "sds/intersection/fast/flat_cells.h"
#include "sds/intersection/fast/limit_leaf.h"

namespace sds {

namespace {

// What is left after these is a hit only if it converges.
constexpr unsigned int max_deep_splits = 256;
constexpr unsigned int max_deep_windows = 64;
constexpr unsigned int max_touches = 16;
// Cells of 2^-24 are the finest that single-precision patch coordinates tell apart.
constexpr unsigned int max_cell_level = 24;
// The finest parts are 2^-18 of the patch either way.
constexpr unsigned int point_level = 18;

// Where a part lies in its patch: place a of 2^a_level along the lanes, b of 2^b_level along the rows.
struct DeepPlace {
    unsigned int a, b, a_level, b_level;
    bool swapped;  // a is v
};

inline Range get_range(const DeepPlace& place) {
    const float a_size = 1.0f / static_cast<float>(1u << place.a_level);
    const float b_size = 1.0f / static_cast<float>(1u << place.b_level);
    const auto a = static_cast<float>(place.a), b = static_cast<float>(place.b);
    return {a * a_size, b * b_size, (a + 1.0f) * a_size, (b + 1.0f) * b_size, place.swapped};
}

// A part of the patch with the distances of its control points along the ray, in both groups of lanes.
struct DeepPlane {
    SimdFloat8 rows[4], depths[4];
    DeepPlace place;
    float nearest, farthest;

    void start(const float (*controls)[16], const RaySpace& ray) {
        transform_to_plane(controls, ray, rows);
        DepthPatch(controls, ray).store_rows(depths);
        place = {0, 0, 0, 0, false};
        set_bounds();
    }
    void set_bounds() {
        float low[8], high[8];
        group_min(min(min(depths[0], depths[1]), min(depths[2], depths[3]))).store(low);
        group_max(max(max(depths[0], depths[1]), max(depths[2], depths[3]))).store(high);
        nearest = low[0];
        farthest = high[0];
    }
};

inline SimdFloat8 absolute(SimdFloat8 a) { return max(a, SimdFloat8(0.0f) - a); }
inline SimdFloat8 largest_of(const SimdFloat8* rows) {
    return group_max(max(max(absolute(rows[0]), absolute(rows[1])), max(absolute(rows[2]), absolute(rows[3]))));
}

// True when all control points lie on one side of the origin across one of the two directions in which the patch runs:
// a sharper test than the box, for patches that lie askew in the plane. The slack is above the rounding of the
// products and of what is halved from here on, and above what a root may lie outside its part.
inline bool passes_beside(const SimdFloat8* rows, float edge_slack) {
    float first[8], last[8];
    rows[0].store(first);
    rows[3].store(last);
    const float ep = (first[3] - first[0]) + (last[3] - last[0]), eq = (first[7] - first[4]) + (last[7] - last[4]);
    const float dp = (last[0] - first[0]) + (last[3] - first[3]), dq = (last[4] - first[4]) + (last[7] - first[7]);
    // Across d in the first group, across e in the second.
    const SimdFloat8 own(dq, ep), other(-dp, -eq);
    SimdFloat8 low, high;
    for (unsigned int i = 0; i < 4; ++i) {
        const SimdFloat8 across = rows[i] * own + swap_groups(rows[i]) * other;
        low = i == 0 ? across : min(low, across);
        high = i == 0 ? across : max(high, across);
    }
    const SimdFloat8 largest = largest_of(rows), wide = absolute(own), wide_other = absolute(other);
    const SimdFloat8 slack = (largest * wide + swap_groups(largest) * wide_other) * SimdFloat8(0x1p-17f) +
                             SimdFloat8(edge_slack) * (wide + wide_other);
    return (less_equal_mask(group_min(low), slack) & less_equal_mask(SimdFloat8(0.0f) - slack, group_max(high))) != 255;
}

// Lengths of the longest sides of control nets: along the lanes and along the rows.
struct NetSizes {
    float a, b;

    // `group_count` 2 takes both groups of lanes, 1 the first.
    NetSizes(const SimdFloat8* r, unsigned int group_count) {
        SimdFloat8 e(0.0f);
        for (unsigned int i = 0; i < 4; ++i) e = max(e, absolute(next_lanes(r[i]) - first_lanes(r[i])));
        const SimdFloat8 d = max(max(absolute(r[1] - r[0]), absolute(r[2] - r[1])), absolute(r[3] - r[2]));
        float along[8], across[8];
        group_max(e).store(along);
        group_max(d).store(across);
        a = group_count == 2 ? greatest(along[0], along[4]) : along[0];
        b = group_count == 2 ? greatest(across[0], across[4]) : across[0];
    }
    float get_longest() const { return greatest(a, b); }
};

// What the coordinates of a patch are good for: points are rounded in proportion to their distance from the ray's
// origin. Parts are taken as points no finer than 2^-18 of the patch.
struct DeepNoise {
    float rounding;  // in the plane
    float plane;     // a part that is no larger, in the plane and along the ray, is a point
    float touch;     // a patch this near to the ray touches it
    float speed;     // lengths of the plane in one of the ray

    DeepNoise(const DeepPlane& root, const RaySpace& ray) {
        float planes[8];
        largest_of(root.rows).store(planes);
        float steepest = 0.0f;
        for (unsigned int axis = 0; axis < 3; ++axis)
            steepest = greatest(steepest, greatest(-ray.along[axis], ray.along[axis]));
        speed = 1.0f / steepest;
        const float reach = (planes[0] + planes[4]) + greatest(-root.nearest, root.farthest) * speed;
        const float size = NetSizes(root.rows, 2).get_longest() + NetSizes(root.depths, 1).get_longest() * speed;
        rounding = 0x1p-22f * reach;
        plane = greatest(rounding, 0x1p-19f * size);
        touch = greatest(rounding, 0x1p-17f * size) + ray.edge_slack;
    }
};

// How a part is halved: along the lanes, along the rows, or not at all when it is a point.
enum class DeepSplit { along_lanes, along_rows, none };

inline DeepSplit choose_split(const DeepPlane& part, const DeepNoise& noise) {
    const NetSizes plane(part.rows, 2), depth(part.depths, 1);
    const float a = greatest(plane.a, depth.a * noise.speed), b = greatest(plane.b, depth.b * noise.speed);
    const bool may_a = part.place.a_level < point_level && a > noise.plane;
    const bool may_b = part.place.b_level < point_level && b > noise.plane;
    if (may_a && (!may_b || a >= b)) return DeepSplit::along_lanes;
    return may_b ? DeepSplit::along_rows : DeepSplit::none;
}

inline void halve_part(const DeepPlane& part, DeepSplit way, DeepPlane* halves) {
    const SimdFloat8 *r = part.rows, *t = part.depths;
    DeepPlace place = part.place;
    if (way == DeepSplit::along_lanes) {
        halve(r[0], r[1], r[2], r[3], halves[0].rows, halves[1].rows);
        halve(t[0], t[1], t[2], t[3], halves[0].depths, halves[1].depths);
        place = {place.b, 2 * place.a, place.b_level, place.a_level + 1, !place.swapped};
    } else {
        halve_rows(r[0], r[1], r[2], r[3], halves[0].rows, halves[1].rows);
        halve_rows(t[0], t[1], t[2], t[3], halves[0].depths, halves[1].depths);
        place = {place.a, 2 * place.b, place.a_level, place.b_level + 1, place.swapped};
    }
    halves[0].place = halves[1].place = place;
    ++halves[1].place.b;
}

// Adds the halves that come as near to the origin as the slack, the nearer on top.
inline void push_halves(const DeepPlane& part, DeepSplit way, DeepPlane* stack, unsigned int& count, SimdFloat8 slack) {
    DeepPlane halves[2];
    halve_part(part, way, halves);
    for (DeepPlane& half : halves) half.set_bounds();
    const unsigned int found = find_origin(halves[0].rows, halves[1].rows, SimdFloat8(0.0f) - slack, slack);
    const unsigned int later = halves[1].nearest < halves[0].nearest ? 0 : 1;
    if ((found >> later & 1) != 0) stack[count++] = halves[later];
    if ((found >> (1 - later) & 1) != 0) stack[count++] = halves[1 - later];
}

// The part of the ray in which hits count.
struct DepthRange {
    float slack, begin, end;

    DepthRange(const DeepPlane& root, const RaySpace& ray)
        // Halving and evaluating round a distance by some units of the last place of the largest.
        : slack(0x1p-18f * greatest(-root.nearest, root.farthest)),
          begin(static_cast<float>(ray.near - ray.shift) - slack),
          end(static_cast<float>(ray.far - ray.shift) + slack) {}

    // True for a part outside, or behind the last hit of a full list.
    bool leaves_out(const DeepPlane& part, RayHits& hits) const {
        if (part.farthest < begin || part.nearest > end) return true;
        if (hits.count != RayHits::capacity || !(part.nearest > hits.hits[find_farthest(hits)].t - slack)) return false;
        ++hits.dropped_count;
        return true;
    }
};

// Where the patch passes the ray by at less than single precision can tell from a hit: one, if there is no other.
struct Touch {
    DeepPlace place;
    float s, t, det;
    bool is_found;

    // The first, which is the nearest, stays.
    template <class Leaf>
    void seek(const Leaf& leaf, const DeepPlane& part, float reach) {
        if (is_found || !find_graze(part.rows, reach, s, t)) return;
        place = part.place;
        det = leaf.find_determinant(part.rows, s, t);
        is_found = true;
    }
};

template <bool is_wide>
[[gnu::noinline]] void search_nearest_first(const LimitLeaf<is_wide>& leaf) {
    const RaySpace& ray = leaf.ray;
    DeepPlane stack[2 * point_level + 1];
    unsigned int stack_count = 1, splits_left = max_deep_splits, touches_left = max_touches;
    stack[0].start(leaf.controls, ray);
    const DeepNoise noise(stack[0], ray);
    const DepthRange range(stack[0], ray);
    Touch touch{};
    while (stack_count != 0) {
        const DeepPlane part = stack[--stack_count];
        if (range.leaves_out(part, leaf.hits)) continue;
        if (passes_beside(part.rows, ray.edge_slack + noise.rounding)) {
            // Within rounding of a fold there may be a root or none.
            if (touches_left != 0 && !passes_beside(part.rows, noise.touch)) {
                --touches_left;
                touch.seek(leaf, part, noise.touch);
            }
            continue;
        }
        const DeepSplit way = choose_split(part, noise);
        if (leaf(part.rows, part.place, way == DeepSplit::none, splits_left != 0)) {
            if (splits_left == 0) touch.seek(leaf, part, noise.touch);
            continue;
        }
        --splits_left;
        ++leaf.hits.step_count;
        push_halves(part, way, stack, stack_count, SimdFloat8(is_wide ? ray.edge_slack : 0.0f));
    }
    if (leaf.hits.count == 0 && touch.is_found) leaf.add(touch.place, touch.s, touch.t, touch.det);
}

// The windows of a patch's flat cells, 2^level each way, the nearest first, in the same bounds.
[[gnu::noinline]] inline void search_windows(const float (*controls)[16], const RaySpace& ray, unsigned int level,
                                             RayHits& hits) {
    const unsigned int window_depth = 2 * (level - window_level);
    SimdFloat8 rows[4];
    transform_to_plane(controls, ray, rows);
    DeepPlane stack[2 * max_cell_level + 1];
    unsigned int stack_count = 1, windows_left = max_deep_windows;
    stack[0].start(controls, ray);
    const DepthRange range(stack[0], ray);
    while (stack_count != 0) {
        const DeepPlane part = stack[--stack_count];
        if (range.leaves_out(part, hits) || passes_beside(part.rows, ray.edge_slack)) continue;
        const unsigned int depth = part.place.a_level + part.place.b_level;
        if (depth < window_depth) {
            push_halves(part, DeepSplit::along_lanes, stack, stack_count, SimdFloat8(ray.edge_slack));
            continue;
        }
        if (windows_left == 0) {
            hits.unsettled_count += stack_count + 1;
            return;
        }
        --windows_left;
        ++hits.step_count;
        intersect_window({part.place.a * window_size, part.place.b * window_size, level}, rows, controls, ray, hits);
    }
}

}  // namespace

}  // namespace sds
