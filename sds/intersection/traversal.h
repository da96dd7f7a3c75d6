// The loops that carry one ray or a few through the nodes of a patch, composed of a split rule, a leaf test and a
// source of the rays' current far distance.
#pragma once

#include <utility>

#include "sds/intersection/ray_state.h"

namespace sds {

// Rays that the multi-ray loop carries at once; longer ranges go through in batches.
inline constexpr unsigned int max_ray_batch = 16;

// Splits after which the nodes that are left are taken as leaves. Rays at a surface need some hundreds; one within a
// patch that has collapsed to a line or point would visit every node of the finest level.
inline constexpr unsigned int max_splits = 1u << 17;

// What a call keeps in the thread's scratch.
struct IntersectionScratch {
    NodePool pool;
    RayState rays[max_ray_batch];
};

// One ray. far() is its current far distance from the moved origin; leaf(node) returns true to stop. With PruneByFar a
// node is skipped when a hit nearer than its entry is already known.
template <bool PruneByFar, class Split, class Far, class Leaf>
void traverse_ray(NodePool& pool, const RayState& ray, const Split& split, Far&& far, Leaf&& leaf) {
    unsigned int index = 0;
    unsigned int splits_left = max_splits;
    float entry = ray.entry_bound;
    do {
        for (;;) {
            PatchNode& node = pool[index];
            if (PruneByFar && !(far() > entry)) {
                pool.release(index);
                break;
            }
            if (splits_left == 0 || !split(pool, node)) {
                const bool stop = leaf(node);
                pool.release(index);
                if (stop) return;
                break;
            }
            --splits_left;
            unsigned int first = node.children[0];
            unsigned int second = node.children[1];
            pool.release(index);
            float first_entry = ray.entry_bound;
            float second_entry = ray.entry_bound;
            const float limit = far();
            const bool hits_first = slab_test(ray, get_box(pool[first]), limit, first_entry);
            const bool hits_second = slab_test(ray, get_box(pool[second]), limit, second_entry);
            if (hits_first && hits_second) {
                // The nearer is visited first; on a tie it is the second.
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

// Several rays together: a child is visited when any of them enters it, ordered by the nearest entry. far(i) is ray i's
// current far distance, not above its begin for a finished ray; leaf(node) tests all of them.
template <bool PruneByFar, class Split, class Far, class Leaf>
void traverse_rays(NodePool& pool, const RayState* rays, unsigned int count, const Split& split, Far&& far,
                   Leaf&& leaf) {
    const auto enter = [&](const PatchBox& box, float& nearest) {
        bool any = false;
        nearest = std::numeric_limits<float>::max();
        for (unsigned int i = 0; i < count; ++i) {
            float entry = rays[i].entry_bound;
            if (slab_test(rays[i], box, far(i), entry)) {
                nearest = std::min(nearest, entry);
                any = true;
            }
        }
        return any;
    };
    const auto is_behind_all = [&](float entry) {
        for (unsigned int i = 0; i < count; ++i)
            if (far(i) > entry) return false;
        return true;
    };
    unsigned int index = 0;
    unsigned int splits_left = max_splits;
    float entry = -std::numeric_limits<float>::max();
    do {
        for (;;) {
            PatchNode& node = pool[index];
            if (PruneByFar && is_behind_all(entry)) {
                pool.release(index);
                break;
            }
            if (splits_left == 0 || !split(pool, node)) {
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
