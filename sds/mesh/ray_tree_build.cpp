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

struct Split {
    unsigned int axis, bin;
    float cost;
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
            const unsigned int middle = divide(*largest, by_count);
            ranges[count++] = make_range(middle, largest->end);
            *largest = make_range(largest->begin, middle);
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

    // Twice the center.
    static float get_center(const TreeItem& item, unsigned int axis) { return item.low[axis] + item.high[axis]; }

    // Moves items so that either side of the returned one has some.
    unsigned int divide(const ItemRange& range, bool by_count) {
        float low[3], high[3];
        for (unsigned int axis = 0; axis < 3; ++axis) low[axis] = high[axis] = get_center(m_items[range.begin], axis);
        for (unsigned int i = range.begin + 1; i < range.end; ++i)
            for (unsigned int axis = 0; axis < 3; ++axis) {
                const float center = get_center(m_items[i], axis);
                low[axis] = std::min(low[axis], center);
                high[axis] = std::max(high[axis], center);
            }
        TreeItem* const first = m_items.get_data() + range.begin;
        TreeItem* const last = m_items.get_data() + range.end;
        Split best{0, 0, std::numeric_limits<float>::infinity()};
        float scale[3];
        if (!by_count)
            for (unsigned int axis = 0; axis < 3; ++axis) {
                // All in one place along the axis: nothing to choose from.
                scale[axis] = high[axis] > low[axis] ? static_cast<float>(bin_count) / (high[axis] - low[axis]) : 0.0f;
                if (scale[axis] > 0.0f && scale[axis] < std::numeric_limits<float>::max())
                    find_split(range, axis, low[axis], scale[axis], best);
            }
        TreeItem* middle = first;
        if (best.cost < std::numeric_limits<float>::infinity())
            middle = std::partition(first, last, [&](const TreeItem& item) {
                return find_bin(item, best.axis, low[best.axis], scale[best.axis]) < best.bin;
            });
        if (middle == first || middle == last) {
            const unsigned int axis = find_longest(low, high);
            middle = first + (last - first) / 2;
            std::nth_element(first, middle, last, [axis](const TreeItem& a, const TreeItem& b) {
                const float a_center = get_center(a, axis), b_center = get_center(b, axis);
                return a_center != b_center ? a_center < b_center : a.patch < b.patch;
            });
        }
        return static_cast<unsigned int>(middle - m_items.get_data());
    }
    static unsigned int find_longest(const float* low, const float* high) {
        unsigned int longest = 0;
        for (unsigned int axis = 1; axis < 3; ++axis)
            if (high[axis] - low[axis] > high[longest] - low[longest]) longest = axis;
        return longest;
    }
    static unsigned int find_bin(const TreeItem& item, unsigned int axis, float low, float scale) {
        const auto bin = static_cast<unsigned int>((get_center(item, axis) - low) * scale);
        return std::min(bin, bin_count - 1);
    }

    // Takes the axis' best split when it is better.
    void find_split(const ItemRange& range, unsigned int axis, float low, float scale, Split& best) const {
        Bounds bins[bin_count];
        unsigned int counts[bin_count] = {};
        for (unsigned int i = range.begin; i < range.end; ++i) {
            const unsigned int bin = find_bin(m_items[i], axis, low, scale);
            bins[bin].grow(Bounds(m_items[i]));
            ++counts[bin];
        }
        float costs[bin_count];
        Bounds before, after;
        unsigned int before_count = 0, after_count = 0;
        for (unsigned int b = 1; b < bin_count; ++b) {
            before.grow(bins[b - 1]);
            before_count += counts[b - 1];
            costs[b] = before_count != 0 ? before.get_area() * static_cast<float>(before_count) : 0.0f;
        }
        for (unsigned int b = bin_count - 1; b != 0; --b) {
            after.grow(bins[b]);
            after_count += counts[b];
            if (after_count == 0 || after_count == range.get_count()) continue;
            const float cost = costs[b] + after.get_area() * static_cast<float>(after_count);
            if (cost < best.cost) best = {axis, b, cost};
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
