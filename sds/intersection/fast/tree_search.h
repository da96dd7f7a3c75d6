// Rays through a hierarchy of patches. For the kernels of one instruction set.
#pragma once

#include "sds/intersection/fast/kept_cells.h"
#include "sds/intersection/fast/part_search.h"

namespace sds {

namespace {

// What waits: the bits of the distance from the ray's begin at which it enters, not below 0, above what it enters. The
// bits of such numbers sort as the numbers.
using TreeEntry = unsigned long long;

inline TreeEntry make_entry(float distance, unsigned int child) {
    unsigned int bits = 0;
    __builtin_memcpy(&bits, &distance, sizeof bits);
    return TreeEntry{bits} << 32 | child;
}

class TreeStack {
public:
    // Entries that begin behind the limit are dropped; a negative one drops all.
    void set_limit(float distance) {
        if (distance < 0.0f) m_count = 0;
        m_limit = make_entry(distance, 0xFFFFFFFF);
    }
    // False when nothing is left.
    [[gnu::always_inline]] bool pop(TreeEntry& entry) {
        do {
            if (m_count == 0) return false;
            entry = m_entries[--m_count];
        } while (entry > m_limit);
        return true;
    }
    // Returns the nearest of get_entry(i) for every bit i of `found`, which is not 0; the others wait.
    template <class GetEntry>
    [[gnu::always_inline]] TreeEntry push(unsigned int found, const GetEntry& get_entry) {
        TreeEntry nearest = get_entry(take_lowest_bit(found));
        if (found == 0) return nearest;
        const TreeEntry second = get_entry(take_lowest_bit(found));
        TreeEntry* const base = m_entries + m_count;
        base[0] = second > nearest ? second : nearest;
        nearest = second > nearest ? nearest : second;
        TreeEntry* end = base + 1;
        while (found != 0) {
            TreeEntry entry = get_entry(take_lowest_bit(found));
            if (entry < nearest) {
                *end++ = nearest;
                nearest = entry;
                continue;
            }
            TreeEntry* place = end++;
            for (; place > base && place[-1] < entry; --place) *place = place[-1];
            *place = entry;
        }
        m_count = static_cast<unsigned int>(end - m_entries);
        return nearest;
    }

private:
    TreeEntry m_limit = ~TreeEntry{0};
    unsigned int m_count = 0;
    TreeEntry m_entries[RayTree::stack_size];
};

// Random rays wait for memory more than they compute: what they are about to look at is asked for ahead of it.
[[gnu::always_inline]] inline void prefetch_child(const RayTree& tree, unsigned int child) {
    constexpr unsigned int line = 64;
    const bool is_leaf = (child & RayTreeNode::leaf_flag) != 0;
    const auto* bytes = is_leaf ? reinterpret_cast<const char*>(tree.boxes + (child & ~RayTreeNode::leaf_flag))
                                : reinterpret_cast<const char*>(tree.nodes + child);
    for (unsigned int k = 0; k < sizeof(PartBoxes); k += line) __builtin_prefetch(bytes + k);
    if (is_leaf) return;
    for (unsigned int k = sizeof(PartBoxes); k < sizeof(RayTreeNode); k += line) __builtin_prefetch(bytes + k);
}
[[gnu::always_inline]] inline void prefetch_controls(const RayTree& tree, unsigned int patch) {
    if (tree.controls == nullptr) return;
    const float* controls = tree.controls + 48ul * patch;
    for (unsigned int k = 0; k < 48; k += 16) __builtin_prefetch(controls + k);
}

// The hits of a ray with one patch. `kept_level` is that of the cells that the tree keeps, 0 where it keeps none.
template <unsigned int kept_level>
[[gnu::always_inline]] inline void intersect_leaf(const RayTree& tree, unsigned int patch, const RaySpace& ray,
                                                  const BoxRay& box_ray, const TreeSink& sink, RayHits& hits) {
    if constexpr (kept_level == 0) {
        prefetch_controls(tree, patch);
        // Roots are found from the parts, which must not depend on what was met before.
        const unsigned int parts = find_parts(tree.boxes[patch], box_ray, -__builtin_inff(), __builtin_inff());
        if (parts != 0) sink.trace(sink.self, patch, parts, ray, hits);
    } else {
        const float* corners = tree.cells + static_cast<unsigned long>(get_kept_size(kept_level)) * patch;
        for (unsigned int parts = find_parts(tree.boxes[patch], box_ray, box_ray.begin, box_ray.end); parts != 0;)
            intersect_kept_part<kept_level>(corners, box_ray.origin, take_lowest_bit(parts), ray, hits);
    }
}

// One ray; its far end comes nearer with every hit that the sink takes.
template <unsigned int kept_level>
void trace_tree_ray(const RayTree& tree, RaySpace& ray, const TreeSink& sink, unsigned int slot, RayHits& hits) {
    BoxRay box_ray(ray, tree.center);
    TreeStack stack;
    stack.set_limit(box_ray.end - box_ray.begin);
    TreeEntry entry = 0;
    for (;;) {
        const auto child = static_cast<unsigned int>(entry);
        if ((child & RayTreeNode::leaf_flag) == 0) {
            const RayTreeNode& node = tree.nodes[child];
            SimdFloat8 near, far;
            clip(
                box_ray,
                [&](unsigned int axis, unsigned int side) { return SimdFloat8::load8(node.sides[axis][side]); }, near,
                far);
            const auto found = static_cast<unsigned int>(less_equal_mask(near, far));
            if (found != 0) {
                float distances[8];
                (near - SimdFloat8(box_ray.begin)).store(distances);
                entry = stack.push(found, [&](unsigned int i) {
                    prefetch_child(tree, node.children[i]);
                    return make_entry(distances[i], node.children[i]);
                });
                continue;
            }
        } else {
            hits.count = 0;
            const unsigned int patch = child & ~RayTreeNode::leaf_flag;
            intersect_leaf<kept_level>(tree, patch, ray, box_ray, sink, hits);
            if (hits.count != 0) {
                ray.far = sink.take(sink.self, slot, patch, hits);
                box_ray.set_end(ray.far - ray.shift);
                stack.set_limit(box_ray.end - box_ray.begin);
            }
        }
        if (!stack.pop(entry)) return;
    }
}

// Eight rays as lanes, and what bounds them all.
struct RayPacket {
    float origin[3][8], slope[3][8], begin[8], end[8];
    float origin_low[3], origin_high[3], slope_low[3], slope_high[3], first_begin, last_end;
    unsigned int near_side[3];

    // False for rays that do not run the same way along every axis.
    bool set(const BoxRay* rays, unsigned int count) {
        for (unsigned int axis = 0; axis < 3; ++axis) near_side[axis] = rays[0].near_side[axis];
        for (unsigned int i = 0; i < 8; ++i) {
            const BoxRay& ray = rays[i < count ? i : 0];
            for (unsigned int axis = 0; axis < 3; ++axis) {
                if (ray.near_side[axis] != near_side[axis]) return false;
                origin[axis][i] = ray.origin[axis];
                slope[axis][i] = ray.slope[axis];
            }
            begin[i] = ray.begin;
            end[i] = i < count ? ray.end : -__builtin_inff();
        }
        for (unsigned int axis = 0; axis < 3; ++axis) {
            set_bounds(origin[axis], origin_low[axis], origin_high[axis]);
            set_bounds(slope[axis], slope_low[axis], slope_high[axis]);
        }
        float unused = 0.0f;
        set_bounds(begin, first_begin, unused);
        update_end();
        return true;
    }
    void update_end() {
        float unused = 0.0f;
        set_bounds(end, unused, last_end);
    }

    // Where the first ray may enter each of eight boxes and the last one leave it: with the sides in between, products
    // are bounded by those of the ends.
    [[gnu::always_inline]] void clip_all(const RayTreeNode& node, SimdFloat8& near, SimdFloat8& far) const {
        near = SimdFloat8(first_begin);
        far = SimdFloat8(last_end);
        for (unsigned int axis = 0; axis < 3; ++axis) {
            const unsigned int side = near_side[axis];
            const SimdFloat8 low(slope_low[axis]), high(slope_high[axis]);
            const SimdFloat8 enter = SimdFloat8::load8(node.sides[axis][side]) -
                                     SimdFloat8(side == 0 ? origin_high[axis] : origin_low[axis]);
            const SimdFloat8 leave = SimdFloat8::load8(node.sides[axis][1 - side]) -
                                     SimdFloat8(side == 0 ? origin_low[axis] : origin_high[axis]);
            near = max(near, min(enter * low, enter * high));
            far = min(far, max(leave * low, leave * high));
        }
    }
    // The rays that meet one of the boxes.
    [[gnu::always_inline]] unsigned int find_rays(const RayTreeNode& node, unsigned int child) const {
        SimdFloat8 near = SimdFloat8::load8(begin), far = SimdFloat8::load8(end);
        for (unsigned int axis = 0; axis < 3; ++axis) {
            const SimdFloat8 from = SimdFloat8::load8(origin[axis]), by = SimdFloat8::load8(slope[axis]);
            near = max(near, (SimdFloat8(node.sides[axis][near_side[axis]][child]) - from) * by);
            far = min(far, (SimdFloat8(node.sides[axis][1 - near_side[axis]][child]) - from) * by);
        }
        return static_cast<unsigned int>(less_equal_mask(near, far));
    }

private:
    static void set_bounds(const float* lanes, float& low, float& high) {
        const SimdFloat8 a = SimdFloat8::load8(lanes), b = swap_groups(a);
        float least[8], greatest_of[8];
        group_min(min(a, b)).store(least);
        group_max(max(a, b)).store(greatest_of);
        low = least[0];
        high = greatest_of[0];
    }
};

// Up to eight rays that run the same way: a node is looked at once for all, a patch's box by eight at a time. False,
// and nothing done, for rays that do not.
template <unsigned int kept_level>
bool trace_tree_rays(const RayTree& tree, RaySpace* rays, unsigned int count, const TreeSink& sink, RayHits& hits) {
    BoxRay box_rays[8];
    for (unsigned int i = 0; i < count; ++i) box_rays[i] = BoxRay(rays[i], tree.center);
    RayPacket packet;
    if (!packet.set(box_rays, count)) return false;
    TreeStack stack;
    stack.set_limit(packet.last_end - packet.first_begin);
    TreeEntry entry = 0;
    for (;;) {
        const auto child = static_cast<unsigned int>(entry);
        if ((child & RayTreeNode::leaf_flag) == 0) {
            const RayTreeNode& node = tree.nodes[child];
            SimdFloat8 near, far;
            packet.clip_all(node, near, far);
            const auto found = static_cast<unsigned int>(less_equal_mask(near, far));
            if (found != 0) {
                float distances[8];
                (near - SimdFloat8(packet.first_begin)).store(distances);
                entry = stack.push(found, [&](unsigned int i) {
                    const unsigned int below = node.children[i];
                    // Leaves are found again by their box.
                    const bool is_leaf = (below & RayTreeNode::leaf_flag) != 0;
                    return make_entry(distances[i],
                                      is_leaf ? RayTreeNode::leaf_flag | (child * RayTreeNode::width + i) : below);
                });
                continue;
            }
        } else {
            const unsigned int place = child & ~RayTreeNode::leaf_flag;
            const RayTreeNode& node = tree.nodes[place / RayTreeNode::width];
            const unsigned int patch = node.children[place % RayTreeNode::width] & ~RayTreeNode::leaf_flag;
            bool is_hit = false;
            for (unsigned int found = packet.find_rays(node, place % RayTreeNode::width); found != 0;) {
                const unsigned int i = take_lowest_bit(found);
                hits.count = 0;
                intersect_leaf<kept_level>(tree, patch, rays[i], box_rays[i], sink, hits);
                if (hits.count == 0) continue;
                rays[i].far = sink.take(sink.self, i, patch, hits);
                box_rays[i].set_end(rays[i].far - rays[i].shift);
                packet.end[i] = box_rays[i].end;
                is_hit = true;
            }
            if (is_hit) {
                packet.update_end();
                stack.set_limit(packet.last_end - packet.first_begin);
            }
        }
        if (!stack.pop(entry)) return true;
    }
}

void trace_tree(const RayTree& tree, RaySpace& ray, const TreeSink& sink, unsigned int slot, RayHits& hits) {
    if (tree.cells == nullptr) return trace_tree_ray<0>(tree, ray, sink, slot, hits);
    if (tree.cell_level == 3) return trace_tree_ray<3>(tree, ray, sink, slot, hits);
    trace_tree_ray<2>(tree, ray, sink, slot, hits);
}
bool trace_tree_packet(const RayTree& tree, RaySpace* rays, unsigned int count, const TreeSink& sink, RayHits& hits) {
    if (tree.cells == nullptr) return trace_tree_rays<0>(tree, rays, count, sink, hits);
    if (tree.cell_level == 3) return trace_tree_rays<3>(tree, rays, count, sink, hits);
    return trace_tree_rays<2>(tree, rays, count, sink, hits);
}

}  // namespace

}  // namespace sds
