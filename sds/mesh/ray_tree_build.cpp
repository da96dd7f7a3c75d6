#include "sds/mesh/ray_tree_build.h"

#include <algorithm>
#include <limits>

#include "qn_simd/simd_float4.h"

namespace sds {

namespace {

constexpr unsigned int bin_count = 16;
// From here on ranges are halved by count.
constexpr unsigned int last_sorted_depth = 36;

// A box as the least of its low sides and of its high sides' opposites.
struct Bounds {
    SimdFloat4 low{std::numeric_limits<float>::infinity()}, negative_high{std::numeric_limits<float>::infinity()};

    Bounds() = default;
    explicit Bounds(const TreeItem& item)
        : low(SimdFloat4::load3(item.low)), negative_high(SimdFloat4(0.0f) - SimdFloat4::load3(item.high)) {}
    void grow(const Bounds& other) {
        low = min(low, other.low);
        negative_high = min(negative_high, other.negative_high);
    }
    // Half the surface.
    float get_area() const {
        float s[4];
        (SimdFloat4(0.0f) - (low + negative_high)).store_unaligned(s);
        return s[0] * s[1] + s[1] * s[2] + s[2] * s[0];
    }
};

struct ItemRange {
    unsigned int begin, end;
    Bounds bounds;
    float area;

    unsigned int get_count() const { return end - begin; }
};

// Where to divide a range: what lies in lower bins, and the bounds of both sides.
struct Split {
    unsigned int axis, bin;
    float cost = std::numeric_limits<float>::infinity();
    Bounds before, after;
};

// Items by their centers along one axis.
struct Bins {
    Bounds bounds[bin_count];
    unsigned int counts[bin_count] = {};
};

// The bin of an item along each axis, from twice its center. Bins are in the middle of the range that they divide.
struct BinScale {
    SimdFloat4 low, scale;

    void find(const TreeItem& item, int* bins) const {
        float places[4];
        const SimdFloat4 center = SimdFloat4::load3(item.low) + SimdFloat4::load3(item.high);
        min((center - low) * scale, SimdFloat4(static_cast<float>(bin_count - 1))).store_unaligned(places);
        for (unsigned int axis = 0; axis < 3; ++axis) bins[axis] = static_cast<int>(places[axis]);
    }
};

class TreeBuilder {
public:
    TreeBuilder(CoreArray<TreeItem>& items, CoreArray<RayTreeNode>& nodes) : m_items(items), m_nodes(nodes) {}

    void build() { build_node(make_range(0, m_items.get_count()), 0); }

private:
    ItemRange make_range(unsigned int begin, unsigned int end) const {
        ItemRange range{begin, end, {}, 0.0f};
        for (unsigned int i = begin; i < end; ++i) range.bounds.grow(Bounds(m_items[i]));
        range.area = range.bounds.get_area();
        return range;
    }

    unsigned int build_node(const ItemRange& whole, unsigned int depth) {
        const unsigned int index = m_nodes.get_count();
        m_nodes.add(RayTreeNode{});
        ItemRange ranges[RayTreeNode::width] = {whole};
        unsigned int count = 1;
        const bool by_count = depth >= last_sorted_depth;
        while (count < RayTreeNode::width) {
            const auto size = [by_count](const ItemRange& r) {
                return r.get_count() < 2 ? -1.0f : by_count ? static_cast<float>(r.get_count()) : r.area;
            };
            ItemRange* largest = std::max_element(
                ranges, ranges + count, [&](const ItemRange& a, const ItemRange& b) { return size(a) < size(b); });
            if (largest->get_count() < 2) break;
            divide(*largest, by_count, ranges[count++]);
        }
        for (unsigned int i = 0; i < RayTreeNode::width; ++i) {
            // Far outside, and turned round.
            constexpr float nowhere = 1e30f;
            float low[4] = {nowhere, nowhere, nowhere}, negative_high[4] = {nowhere, nowhere, nowhere};
            unsigned int child = 0;
            if (i < count) {
                ranges[i].bounds.low.store_unaligned(low);
                ranges[i].bounds.negative_high.store_unaligned(negative_high);
                child = ranges[i].get_count() == 1 ? RayTreeNode::leaf_flag | m_items[ranges[i].begin].patch
                                                   : build_node(ranges[i], depth + 1);
            }
            RayTreeNode& node = m_nodes[index];
            node.children[i] = child;
            for (unsigned int axis = 0; axis < 3; ++axis) {
                node.sides[axis][0][i] = low[axis];
                node.sides[axis][1][i] = -negative_high[axis];
            }
        }
        return index;
    }

    // Moves items so that both sides have some, and makes `range` the first of them.
    void divide(ItemRange& range, bool by_count, ItemRange& second) {
        TreeItem* const first = m_items.get_data() + range.begin;
        TreeItem* const last = m_items.get_data() + range.end;
        if (range.get_count() == 2) return set_sides(range, range.begin + 1, second);
        SimdFloat4 low(std::numeric_limits<float>::infinity()), high = SimdFloat4(0.0f) - low;
        for (const TreeItem* item = first; item != last; ++item) {
            const SimdFloat4 center = SimdFloat4::load3(item->low) + SimdFloat4::load3(item->high);
            low = min(low, center);
            high = max(high, center);
        }
        float extents[4], scales[4] = {};
        (high - low).store_unaligned(extents);
        // All in one place along an axis: nothing to choose from.
        for (unsigned int axis = 0; axis < 3; ++axis)
            if (extents[axis] > std::numeric_limits<float>::min())
                scales[axis] = static_cast<float>(bin_count) * 0.999f / extents[axis];
        if (!by_count) {
            const BinScale scale{low, SimdFloat4::load_unaligned(scales)};
            const Split split = find_split(range, scale);
            if (split.cost < std::numeric_limits<float>::infinity()) {
                const TreeItem* const middle = std::partition(first, last, [&](const TreeItem& item) {
                    int bins[3];
                    scale.find(item, bins);
                    return bins[split.axis] < static_cast<int>(split.bin);
                });
                const auto at = static_cast<unsigned int>(middle - m_items.get_data());
                second = {at, range.end, split.after, split.after.get_area()};
                range = {range.begin, at, split.before, split.before.get_area()};
                return;
            }
        }
        const auto axis = static_cast<unsigned int>(std::max_element(extents, extents + 3) - extents);
        TreeItem* const middle = first + (last - first) / 2;
        std::nth_element(first, middle, last, [axis](const TreeItem& a, const TreeItem& b) {
            const float a_center = a.low[axis] + a.high[axis], b_center = b.low[axis] + b.high[axis];
            return a_center != b_center ? a_center < b_center : a.patch < b.patch;
        });
        set_sides(range, static_cast<unsigned int>(middle - m_items.get_data()), second);
    }
    void set_sides(ItemRange& range, unsigned int middle, ItemRange& second) const {
        second = make_range(middle, range.end);
        range = make_range(range.begin, middle);
    }

    Split find_split(const ItemRange& range, const BinScale& scale) const {
        Bins bins[3];
        for (unsigned int i = range.begin; i < range.end; ++i) {
            int at[3];
            scale.find(m_items[i], at);
            const Bounds bounds(m_items[i]);
            for (unsigned int axis = 0; axis < 3; ++axis) {
                bins[axis].bounds[at[axis]].grow(bounds);
                ++bins[axis].counts[at[axis]];
            }
        }
        Split best;
        for (unsigned int axis = 0; axis < 3; ++axis) choose_bin(bins[axis], axis, range.get_count(), best);
        return best;
    }
    // Takes the axis' best split when it is better.
    static void choose_bin(const Bins& bins, unsigned int axis, unsigned int count, Split& best) {
        if (bins.counts[0] == count) return;
        Bounds befores[bin_count], after;
        float costs[bin_count];
        unsigned int before_count = 0, after_count = 0;
        for (unsigned int b = 1; b < bin_count; ++b) {
            befores[b] = befores[b - 1];
            befores[b].grow(bins.bounds[b - 1]);
            before_count += bins.counts[b - 1];
            costs[b] = before_count != 0 ? befores[b].get_area() * static_cast<float>(before_count) : 0.0f;
        }
        for (unsigned int b = bin_count - 1; b != 0; --b) {
            if (bins.counts[b] == 0) continue;
            after.grow(bins.bounds[b]);
            after_count += bins.counts[b];
            if (after_count == count) break;
            const float cost = costs[b] + after.get_area() * static_cast<float>(after_count);
            if (cost < best.cost) best = {axis, b, cost, befores[b], after};
        }
    }

    CoreArray<TreeItem>& m_items;
    CoreArray<RayTreeNode>& m_nodes;
};

}  // namespace

void build_ray_tree(CoreArray<TreeItem>& items, CoreArray<RayTreeNode>& nodes) {
    nodes.clear();
    TreeBuilder(items, nodes).build();
}

}  // namespace sds
