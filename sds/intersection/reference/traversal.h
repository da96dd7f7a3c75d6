// The loop that carries rays through the nodes of a patch, composed of a split rule and a leaf test.
#pragma once

#include <algorithm>
#include <limits>
#include <utility>

#include "sds/intersection/reference/ray_state.h"

namespace sds {

// Splits after which the nodes that are left are dropped and counted. Rays at a surface need some hundreds; one that
// runs within a patch, or meets one that has collapsed to a line or point, would visit every node of the finest level.
inline constexpr unsigned int max_splits = 1u << 17;

// From the pool's root through the nodes that any ray enters, the nearer child first, by the nearest entry of all rays.
// far(i) is ray i's current far distance from the moved origin, not above its begin for a finished ray; leaf(node)
// tests all of them and returns true to stop.
template <class Rule, class Far, class Leaf>
void traverse(NodePool& pool, const RayState* rays, unsigned int count, const Rule& rule, Far&& far, Leaf&& leaf) {
    constexpr float largest = std::numeric_limits<float>::max();
    // Hits nearer than `entry` are known to all rays.
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
    unsigned int index = 0;
    float entry = count == 1 ? rays[0].entry_bound : -largest;
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

}  // namespace sds
