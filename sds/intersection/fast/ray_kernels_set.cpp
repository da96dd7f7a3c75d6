// The ray kernels of one instruction set.
#include "sds/common/kernel_set.h"
#include "sds/intersection/fast/deep_search.h"
#include "sds/intersection/fast/flat_cells.h"
#include "sds/intersection/fast/limit_leaf.h"
#include "sds/intersection/fast/point_patch.h"
#include "sds/intersection/fast/ray_kernels.h"
#include "sds/intersection/fast/tree_search.h"

namespace sds {

namespace {

// Most rays need a handful of splits of a patch, and those that graze a fold some hundreds; a search that takes longer
// begins anew, the nearest first.
constexpr unsigned int few_splits = 128;
// A patch this many times longer than wide in the plane is searched anew much sooner: halved both ways in turn, it
// stays a sliver. So is one that is smaller there than the rounding of its points.
constexpr unsigned int sliver_splits = 8;
constexpr float sliver_aspect = 32.0f;
// The same for windows of flat cells: a ray along the surface would meet thousands at the finest levels.
constexpr unsigned int few_windows = 128;
// Sub-patches halved this often, to 2^-18 either way, are taken as points on the limit surface.
constexpr unsigned int point_depth = 2 * point_level;

// Two halvings each way make a patch's parts.
constexpr unsigned int part_level = 2;

// Quarters that have one of the parts, bit k for parts 4 k to 4 k + 3.
inline unsigned int find_quarters(unsigned int parts) {
    const unsigned int pairs = parts | parts >> 1, any = (pairs | pairs >> 2) & 0x1111u;
    return (any | any >> 3 | any >> 6 | any >> 9) & 15u;
}

// Windows of 4 x 4 cells are looked at as a whole, without a branch: which of two halves a ray enters is as good as
// random to the processor's branch predictor. Above them two splits at a time: the four tests of a quartering share one
// branch. The quarters of each level wait in their own place; nothing is moved.
template <bool is_guided>
inline void estimate_in(const float (*controls)[16], const RaySpace& ray, unsigned int level_count, unsigned int parts,
                        RayHits& hits) {
    struct Level {
        SimdFloat8 quarters[4][4];
        unsigned int pending;  // quarters still to be visited, as bits
        unsigned int i, j;     // of the first quarter
    };
    SimdFloat8 rows[4];
    transform_to_plane(controls, ray, rows);
    if (!is_guided && !comes_near_origin(rows, SimdFloat8(ray.edge_slack))) return;
    const unsigned int level_last = level_count < max_cell_level ? level_count : max_cell_level;
    if (level_last < level_count) ++hits.unsettled_count;
    if (may_be_point(rows, ray.edge_slack) &&
        trace_point(rows, controls, ray, 1.0f / static_cast<float>(1u << level_last), hits))
        return;
    if (level_last <= window_level) return intersect_window({0, 0, level_last}, rows, controls, ray, hits);
    if (is_guided && level_last <= part_level + window_level) {
        // Windows are quarters or parts.
        for (unsigned int left = level_last == part_level + window_level ? parts : find_quarters(parts); left != 0;) {
            const unsigned int part = take_lowest_bit(left);
            ++hits.step_count;
            intersect_window({get_part_u(part) * window_size, get_part_v(part) * window_size, level_last}, rows,
                             controls, ray, hits);
        }
        return;
    }
    Level levels[max_cell_level - window_level];
    const unsigned int last = level_last - window_level;
    const SkewedPatch skewed(rows, ray.edge_slack);
    if (!skewed.comes_near_origin()) return;
    const SimdFloat8* node = skewed.rows;
    const unsigned int dropped_before = hits.dropped_count;
    unsigned int depth = 0, i = 0, j = 0, window_count = 0;
    for (;;) {
        Level* level = levels + depth;
        quarter(node, level->quarters);
        level->pending = find_origin(level->quarters, skewed.slack);
        if (is_guided && depth == 0) level->pending &= find_quarters(parts);
        if (is_guided && depth == 1) level->pending &= parts >> (8 * i + 4 * j);
        level->i = 2 * i;
        level->j = 2 * j;
        ++depth;
        if (depth == last) {
            while (level->pending != 0) {
                ++hits.step_count;
                if (++window_count > few_windows) {
                    hits.count = 0;
                    hits.dropped_count = dropped_before;
                    return search_windows(controls, ray, level_last, hits);
                }
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

void estimate(const float (*controls)[16], const RaySpace& ray, unsigned int level_count, RayHits& hits) {
    estimate_in<false>(controls, ray, level_count, all_parts, hits);
}
void estimate_parts(const float (*controls)[16], const RaySpace& ray, unsigned int level_count, unsigned int parts,
                    RayHits& hits) {
    estimate_in<true>(controls, ray, level_count, parts, hits);
}

// A sub-patch that waits for its turn. Splitting ends at `point_depth`, with one more waiting per split.
struct StackedPlane {
    SimdFloat8 rows[4];
    Path path;
};

// True for a patch that is much longer than wide in the plane, or no more than a point there.
template <bool is_wide>
[[gnu::noinline]] bool needs_care(const LimitLeaf<is_wide>& leaf) {
    DeepPlane root;
    root.start(leaf.controls, leaf.ray);
    const NetSizes sizes(root.rows, 2);
    return sizes.a > sliver_aspect * sizes.b || sizes.b > sliver_aspect * sizes.a ||
           sizes.get_longest() <= DeepNoise(root, leaf.ray).plane;
}

// Goes through the sub-patches that hold the origin; false when a few splits were not enough. Rows and path live in
// registers from split to split: only the second of two halves goes through memory.
template <bool is_wide>
[[gnu::always_inline]] inline bool traverse_plane(const LimitLeaf<is_wide>& leaf, const SimdFloat8* from, Path path) {
    StackedPlane stack[point_depth];
    unsigned int stack_count = 0;
    SimdFloat8 rows[4] = {from[0], from[1], from[2], from[3]};
    if (leaf.find(rows, rows) == 0) return true;
    unsigned int split_count = 0;
    for (;;) {
        if (!leaf(rows, path, path.depth >= point_depth, true)) {
            if (split_count == 0 && passes_beside(rows, leaf.ray.edge_slack)) return true;
            ++split_count;
            ++leaf.hits.step_count;
            if (split_count == few_splits || (split_count == sliver_splits && needs_care(leaf))) return false;
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

// Replaces rows by those of a quarter, k as quarter() counts them.
inline void take_quarter(SimdFloat8* rows, unsigned int k) {
    for (unsigned int bit = 2; bit != 0; bit >>= 1) {
        SimdFloat8 halves[2][4];
        halve(rows[0], rows[1], rows[2], rows[3], halves[0], halves[1]);
        const SimdFloat8* half = halves[(k & bit) != 0 ? 1 : 0];
        for (unsigned int r = 0; r < 4; ++r) rows[r] = half[r];
    }
}

// Starts at the quarters that have some of the parts, or at the part where it is the only one.
template <bool is_wide>
inline bool traverse_parts(const LimitLeaf<is_wide>& root, const SimdFloat8* rows, unsigned int parts) {
    LimitLeaf<is_wide> leaf = root;
    for (unsigned int quarters = find_quarters(parts); quarters != 0;) {
        const unsigned int k = take_lowest_bit(quarters), inside = parts >> (4 * k) & 15u;
        SimdFloat8 start[4] = {rows[0], rows[1], rows[2], rows[3]};
        take_quarter(start, k);
        Path path{k / 2, k % 2, 2};
        if ((inside & (inside - 1)) == 0) {
            const auto part = static_cast<unsigned int>(__builtin_ctz(inside));
            take_quarter(start, part);
            path = {2 * path.a + part / 2, 2 * path.b + part % 2, 4};
        }
        // As far outside in the patch's coordinates as from the patch on.
        leaf.root_slack = root_slack * static_cast<float>(1u << path.depth / 2);
        if (!traverse_plane(leaf, start, path)) return false;
    }
    return true;
}

template <bool is_wide, bool is_guided>
inline void trace_limit(const float (*controls)[16], const RaySpace& ray, unsigned int parts, RayHits& hits) {
    const LimitLeaf<is_wide> leaf{controls, ray, hits};
    const unsigned int dropped_before = hits.dropped_count;
    SimdFloat8 rows[4];
    transform_to_plane(controls, ray, rows);
    if constexpr (is_wide)
        if (may_be_point(rows, ray.edge_slack) && trace_point(rows, controls, ray, 0.0f, hits)) return;
    if (is_guided ? traverse_parts(leaf, rows, parts) : traverse_plane(leaf, rows, {0, 0, 0})) return;
    hits.count = 0;
    hits.dropped_count = dropped_before;
    search_nearest_first(leaf);
}

template <bool is_guided>
inline void trace_limit(const float (*controls)[16], const RaySpace& ray, unsigned int parts, RayHits& hits) {
    if (ray.edge_slack == 0.0f)
        trace_limit<false, is_guided>(controls, ray, parts, hits);
    else
        trace_limit<true, is_guided>(controls, ray, parts, hits);
}

void adaptive(const float (*controls)[16], const RaySpace& ray, RayHits& hits) {
    trace_limit<false>(controls, ray, all_parts, hits);
}
void adaptive_parts(const float (*controls)[16], const RaySpace& ray, unsigned int parts, RayHits& hits) {
    trace_limit<true>(controls, ray, parts, hits);
}

}  // namespace

const RayKernels QN_KERNEL_SET::ray_kernels = {&estimate,       &adaptive,   &estimate_parts,
                                               &adaptive_parts, &trace_tree, &trace_tree_packet};

}  // namespace sds
