// The ray kernels of one instruction set.
#include "sds/common/kernel_set.h"
#include "sds/intersection/fast/flat_cells.h"
#include "sds/intersection/fast/limit_roots.h"
#include "sds/intersection/fast/ray_kernels.h"

namespace sds {

namespace {

// Cells of 2^-24 are the finest that single-precision patch coordinates tell apart.
constexpr unsigned int max_cell_level = 24;

// A patch seen exactly edge-on meets the ray along a curve and would be split without end. A ray that grazes a fold
// needs some thousand splits: within rounding of the fold every sub-patch holds the origin. Others need a handful;
// after `few_splits` the search begins anew, the nearest first.
constexpr unsigned int few_splits = 1024;
constexpr unsigned int max_splits = 16384;
// Sub-patches halved this often, to 2^-18 either way, are taken as points on the limit surface.
constexpr unsigned int point_depth = 36;

inline float clamp_unit(float x) { return x < 0.0f ? 0.0f : (x > 1.0f ? 1.0f : x); }

// Windows of 4 x 4 cells are looked at as a whole, without a branch: which of two halves a ray enters is as good as
// random to the processor's branch predictor. Above them two splits at a time: the four tests of a quartering share one
// branch. The quarters of each level wait in their own place; nothing is moved.
void estimate(const float (*controls)[16], const RaySpace& ray, unsigned int level_count, RayHits& hits) {
    struct Level {
        SimdFloat8 quarters[4][4];
        unsigned int pending;  // quarters still to be visited, as bits
        unsigned int i, j;     // of the first quarter
    };
    SimdFloat8 rows[4];
    transform_to_plane(controls, ray, rows);
    if (!comes_near_origin(rows, SimdFloat8(ray.edge_slack))) return;
    const unsigned int level_last = level_count < max_cell_level ? level_count : max_cell_level;
    if (level_last < level_count) ++hits.unsettled_count;
    if (level_last <= window_level) return intersect_window({0, 0, level_last}, rows, controls, ray, hits);
    Level levels[max_cell_level - window_level];
    const unsigned int last = level_last - window_level;
    const SkewedPatch skewed(rows, ray.edge_slack);
    if (!skewed.comes_near_origin()) return;
    const SimdFloat8* node = skewed.rows;
    unsigned int depth = 0, i = 0, j = 0;
    for (;;) {
        Level* level = levels + depth;
        quarter(node, level->quarters);
        level->pending = find_origin(level->quarters, skewed.slack);
        level->i = 2 * i;
        level->j = 2 * j;
        ++depth;
        if (depth == last) {
            while (level->pending != 0) {
                const unsigned int k = take_lowest_bit(level->pending);
                const unsigned int first_i = (level->i + k / 2) * window_size,
                                   first_j = (level->j + k % 2) * window_size;
                intersect_window({first_i, first_j, level_last}, rows, controls, ray, hits);
            }
        }
        while (level->pending == 0) {
            if (--depth == 0) return;
            level = levels + depth - 1;
        }
        const unsigned int k = take_lowest_bit(level->pending);
        node = level->quarters[k];
        i = level->i + k / 2;
        j = level->j + k % 2;
    }
}

// Decides sub-patches that hold the origin. False when one must be split, which needs `may_split`. A wide one takes in
// the ray's edge slack.
template <bool is_wide>
struct LimitLeaf {
    const float (*controls)[16];
    const RaySpace& ray;
    RayHits& hits;

    [[gnu::always_inline]] bool operator()(const SimdFloat8* rows, const Path& path, bool may_split) const {
        float s = 0.5f, t = 0.5f, det = 0.0f;
        if (path.depth < point_depth) {
            if (may_split) {
                const SlopeBounds slopes(rows);
                if (!slopes.is_injective()) return false;
                const PlaneJet centre = evaluate_plane(rows, 0.5f, 0.5f);
                if (is_wide ? slopes.excludes_root_near(centre.p, centre.q, ray.edge_slack)
                            : slopes.excludes_root(centre.p, centre.q))
                    return true;
                if (!find_root<is_wide>(rows, centre, ray.edge_slack, s, t, det)) return false;
            } else {
                // A root that is found anyway, unproven to be the only one, or none.
                ++hits.unsettled_count;
                if (!find_root<is_wide>(rows, evaluate_plane(rows, 0.5f, 0.5f), ray.edge_slack, s, t, det)) return true;
            }
        }
        if (det == 0.0f) {
            const PlaneJet jet = evaluate_plane(rows, s, t);
            det = jet.p_s * jet.q_t - jet.p_t * jet.q_s;
        }
        const Range range = get_range(path);
        const float a = clamp_unit(range.a_min + (range.a_max - range.a_min) * s);
        const float b = clamp_unit(range.b_min + (range.b_max - range.b_min) * t);
        const float u = range.swapped ? b : a;
        const float v = range.swapped ? a : b;
        add_hit(ray, hits, DepthPatch(controls, ray).evaluate(u, v), u, v, 0.0f, (det <= 0.0f) != range.swapped);
        return true;
    }
    [[gnu::always_inline]] unsigned int find(const SimdFloat8* first, const SimdFloat8* second) const {
        if constexpr (is_wide)
            return find_origin(first, second, SimdFloat8(-ray.edge_slack), SimdFloat8(ray.edge_slack));
        else
            return find_origin(first, second);
    }
};

// A sub-patch that waits for its turn. Splitting ends at `point_depth`, with one more waiting per split.
struct StackedPlane {
    SimdFloat8 rows[4];
    Path path;
};

// Goes through the sub-patches that hold the origin; false when a few splits were not enough. Rows and path live in
// registers from split to split: only the second of two halves goes through memory.
template <bool is_wide>
inline bool traverse_plane(const LimitLeaf<is_wide>& leaf) {
    StackedPlane stack[point_depth];
    unsigned int stack_count = 0;
    SimdFloat8 rows[4];
    transform_to_plane(leaf.controls, leaf.ray, rows);
    if (leaf.find(rows, rows) == 0) return true;
    Path path{0, 0, 0};
    unsigned int splits_left = few_splits;
    for (;;) {
        if (!leaf(rows, path, true)) {
            if (--splits_left == 0) return false;
            SimdFloat8 first[4], second[4];
            halve(rows[0], rows[1], rows[2], rows[3], first, second);
            const unsigned int found = leaf.find(first, second);
            path = get_first_half(path);
            if ((found & 1) != 0) {
                if ((found & 2) != 0) {
                    StackedPlane& top = stack[stack_count++];
                    for (unsigned int r = 0; r < 4; ++r) top.rows[r] = second[r];
                    top.path = {path.a, path.b + 1, path.depth};
                }
                for (unsigned int r = 0; r < 4; ++r) rows[r] = first[r];
                continue;
            }
            if (found != 0) {
                for (unsigned int r = 0; r < 4; ++r) rows[r] = second[r];
                ++path.b;
                continue;
            }
        }
        if (stack_count == 0) return true;
        const StackedPlane& top = stack[--stack_count];
        for (unsigned int r = 0; r < 4; ++r) rows[r] = top.rows[r];
        path = top.path;
    }
}

// A sub-patch with the distances of its control points along the ray, in both groups of lanes.
struct DeepPlane {
    SimdFloat8 rows[4], depths[4];
    Path path;
    float nearest, farthest;

    void set_bounds() {
        float low[8], high[8];
        group_min(min(min(depths[0], depths[1]), min(depths[2], depths[3]))).store(low);
        group_max(max(max(depths[0], depths[1]), max(depths[2], depths[3]))).store(high);
        nearest = low[0];
        farthest = high[0];
    }
};

// The same for rays that lie in the surface, or all but lie in it, and find hits without end: the nearest sub-patches
// first, and none outside the ray's range or beyond the last hit of a full list.
template <bool is_wide>
[[gnu::noinline]] void traverse_nearest_first(const LimitLeaf<is_wide>& leaf) {
    DeepPlane stack[point_depth + 1];
    unsigned int stack_count = 1, splits_left = max_splits;
    transform_to_plane(leaf.controls, leaf.ray, stack[0].rows);
    DepthPatch(leaf.controls, leaf.ray).store_rows(stack[0].depths);
    stack[0].path = {0, 0, 0};
    stack[0].set_bounds();
    // Halving and evaluating round a distance by some units of the last place of the largest.
    const float slack = 1e-5f * greatest(-stack[0].nearest, stack[0].farthest);
    const float begin = static_cast<float>(leaf.ray.near - leaf.ray.shift) - slack;
    const float end = static_cast<float>(leaf.ray.far - leaf.ray.shift) + slack;
    while (stack_count != 0) {
        const DeepPlane plane = stack[--stack_count];
        if (plane.farthest < begin || plane.nearest > end) continue;
        if (leaf.hits.count == RayHits::capacity && plane.nearest > leaf.hits.hits[find_farthest(leaf.hits)].t) {
            ++leaf.hits.dropped_count;
            continue;
        }
        if (leaf(plane.rows, plane.path, splits_left != 0)) continue;
        --splits_left;
        DeepPlane halves[2];
        halve(plane.rows[0], plane.rows[1], plane.rows[2], plane.rows[3], halves[0].rows, halves[1].rows);
        halve(plane.depths[0], plane.depths[1], plane.depths[2], plane.depths[3], halves[0].depths, halves[1].depths);
        halves[0].path = halves[1].path = get_first_half(plane.path);
        ++halves[1].path.b;
        for (DeepPlane& half : halves) half.set_bounds();
        const unsigned int found = leaf.find(halves[0].rows, halves[1].rows);
        const unsigned int later = halves[1].nearest < halves[0].nearest ? 0 : 1;
        if ((found >> later & 1) != 0) stack[stack_count++] = halves[later];
        if ((found >> (1 - later) & 1) != 0) stack[stack_count++] = halves[1 - later];
    }
}

template <bool is_wide>
void trace_limit(const float (*controls)[16], const RaySpace& ray, RayHits& hits) {
    const LimitLeaf<is_wide> leaf{controls, ray, hits};
    const unsigned int dropped_before = hits.dropped_count;
    if (traverse_plane(leaf)) return;
    hits.count = 0;
    hits.dropped_count = dropped_before;
    traverse_nearest_first(leaf);
}

void adaptive(const float (*controls)[16], const RaySpace& ray, RayHits& hits) {
    if (ray.edge_slack == 0.0f)
        trace_limit<false>(controls, ray, hits);
    else
        trace_limit<true>(controls, ray, hits);
}

}  // namespace

const RayKernels QN_KERNEL_SET::ray_kernels = {&estimate, &adaptive};

}  // namespace sds
