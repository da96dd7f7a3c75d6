// The loops that carry one ray or a few through the nodes of a patch, composed of a split rule, a leaf test and a
// source of the rays' current far distance.
#pragma once

#include <algorithm>
#include <limits>
#include <utility>

#include "sds/intersection/ray_state.h"

namespace sds {

// Rays that the multi-ray loop carries at once; longer ranges go through in batches.
inline constexpr unsigned int max_ray_batch = 16;

// Splits after which the nodes that are left are dropped and counted. Rays at a surface need some hundreds; one that
// runs within a patch, or meets one that has collapsed to a line or point, would visit every node of the finest level.
inline constexpr unsigned int max_splits = 1u << 17;

// What a call keeps in the thread's scratch.
struct IntersectionScratch {
    NodePool pool;
    RayState rays[max_ray_batch];
};

// Goes through the nodes, the nearer child first. is_behind(entry) tells whether a hit nearer than `entry` is known to
// all rays, which skips a node; enter(box, entry) whether any ray enters a box, and sets where;
// leaf(node) returns true to stop.
template <class Rule, class IsBehind, class Enter, class Leaf>
void traverse_nodes(NodePool& pool, float entry, const Rule& rule, IsBehind&& is_behind, Enter&& enter, Leaf&& leaf) {
    unsigned int index = 0;
    unsigned int splits_left = max_splits;
    do {
        for (;;) {
            PatchNode& node = pool[index];
            if (is_behind(entry)) {
                pool.release(index);
                break;
            }
            const bool is_leaf = rule.is_leaf(node);
            if (!is_leaf && splits_left == 0) {
                // Far from converged: no hit, unlike the coarser leaf of a pool without room.
                pool.count_refusal();
                pool.release(index);
                break;
            }
            if (is_leaf || !split(rule, pool, node)) {
                const bool stop = leaf(node);
                pool.release(index);
                if (stop) return;
                break;
            }
            --splits_left;
            unsigned int first = node.children[0];
            unsigned int second = node.children[1];
            pool.release(index);
            float first_entry, second_entry;
            const bool hits_first = enter(get_box(pool[first]), first_entry);
            const bool hits_second = enter(get_box(pool[second]), second_entry);
            if (hits_first && hits_second) {
                // On a tie the second is visited first.
                if (!(second_entry > first_entry)) {
                    std::swap(first, second);
                    std::swap(first_entry, second_entry);
                }
                pool.push(second, second_entry);
            } else if (hits_first) {
                pool.release(second);
            } else {
                pool.release(first);
                if (!hits_second) {
                    pool.release(second);
                    break;
                }
                first = second;
                first_entry = second_entry;
            }
            index = first;
            entry = first_entry;
        }
    } while (pool.pop(index, entry));
}

// One ray. far() is its current far distance from the moved origin; leaf(node) returns true to stop.
template <class Rule, class Far, class Leaf>
void traverse_ray(NodePool& pool, const RayState& ray, const Rule& rule, Far&& far, Leaf&& leaf) {
    const auto is_behind = [&](float entry) { return !(far() > entry); };
    const auto enter = [&](const PatchBox& box, float& entry) {
        entry = ray.entry_bound;
        return slab_test(ray, box, far(), entry);
    };
    traverse_nodes(pool, ray.entry_bound, rule, is_behind, enter, leaf);
}

// Several rays together: a child is visited when any of them enters it, ordered by the nearest entry. far(i) is ray i's
// current far distance, not above its begin for a finished ray; leaf(node) tests all of them.
template <class Rule, class Far, class Leaf>
void traverse_rays(NodePool& pool, const RayState* rays, unsigned int count, const Rule& rule, Far&& far, Leaf&& leaf) {
    constexpr float largest = std::numeric_limits<float>::max();
    const auto is_behind = [&](float entry) {
        for (unsigned int i = 0; i < count; ++i)
            if (far(i) > entry) return false;
        return true;
    };
    const auto enter = [&](const PatchBox& box, float& nearest) {
        bool any = false;
        nearest = largest;
        for (unsigned int i = 0; i < count; ++i) {
            float entry = rays[i].entry_bound;
            if (slab_test(rays[i], box, far(i), entry)) {
                nearest = std::min(nearest, entry);
                any = true;
            }
        }
        return any;
    };
    traverse_nodes(pool, -largest, rule, is_behind, enter, leaf);
}

}  // namespace sds
