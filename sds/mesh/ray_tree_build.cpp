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
    // Twice the center.
    SimdFloat4 get_center() const { return low - negative_high; }
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

// Up to this many items are sorted by their bins: most bins of so few are empty.
constexpr unsigned int max_listed_count = 8;

// Places of items along each axis in bins, from twice their centers. Bins are in the middle of the range that they
// divide.
struct BinScale {
    SimdFloat4 low, scale;

    SimdFloat4 get_places(const Bounds& bounds) const {
        return min((bounds.get_center() - low) * scale, SimdFloat4(static_cast<float>(bin_count - 1)));
    }
    void find(const Bounds& bounds, int* bins) const {
        float places[4];
        get_places(bounds).store_unaligned(places);
        for (unsigned int axis = 0; axis < 4; ++axis) bins[axis] = static_cast<int>(places[axis]);
    }
};

class TreeBuilder {
public:
    TreeBuilder(const CoreArray<TreeItem>& items, CoreArray<RayTreeNode>& nodes) : m_items(items), m_nodes(nodes) {
        const unsigned int count = items.get_count();
        m_bounds.resize(count);
        m_order.resize(count);
        m_moved.resize(count);
        for (unsigned int i = 0; i < count; ++i) {
            m_bounds[i] = Bounds(items[i]);
            m_order[i] = i;
        }
    }

    void build() { build_node(make_range(0, m_items.get_count()), 0); }

private:
    ItemRange make_range(unsigned int begin, unsigned int end) const {
        ItemRange range{begin, end, {}, 0.0f};
        for (unsigned int i = begin; i < end; ++i) range.bounds.grow(m_bounds[m_order[i]]);
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
                child = ranges[i].get_count() == 1 ? RayTreeNode::leaf_flag | m_items[m_order[ranges[i].begin]].patch
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
        if (range.get_count() == 2) return set_sides(range, range.begin + 1, second);
        SimdFloat4 low(std::numeric_limits<float>::infinity()), high = SimdFloat4(0.0f) - low;
        for (unsigned int i = range.begin; i < range.end; ++i) {
            const SimdFloat4 center = m_bounds[m_order[i]].get_center();
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
                const unsigned int at = move_second(range, scale, split);
                second = {at, range.end, split.after, split.after.get_area()};
                range = {range.begin, at, split.before, split.before.get_area()};
                return;
            }
        }
        const auto axis = static_cast<unsigned int>(std::max_element(extents, extents + 3) - extents);
        unsigned int* const first = m_order.get_data() + range.begin;
        const unsigned int half = range.get_count() / 2;
        std::nth_element(first, first + half, first + range.get_count(), [&](unsigned int a, unsigned int b) {
            const TreeItem &x = m_items[a], &y = m_items[b];
            const float x_center = x.low[axis] + x.high[axis], y_center = y.low[axis] + y.high[axis];
            return x_center != y_center ? x_center < y_center : x.patch < y.patch;
        });
        set_sides(range, range.begin + half, second);
    }
    // Moves what is beyond the split to the end of the range, both sides in the order that they had, and returns where
    // it begins. Which side an item is on cannot be foreseen: nothing branches there.
    unsigned int move_second(const ItemRange& range, const BinScale& scale, const Split& split) {
        const SimdFloat4 bin(static_cast<float>(split.bin));
        unsigned int kept = range.begin, moved = 0;
        for (unsigned int i = range.begin; i < range.end; ++i) {
            const unsigned int item = m_order[i];
            const int beyond = less_equal_mask(bin, scale.get_places(m_bounds[item]));
            const unsigned int is_second = static_cast<unsigned int>(beyond) >> split.axis & 1u;
            m_order[kept] = m_moved[moved] = item;
            kept += 1 - is_second;
            moved += is_second;
        }
        std::copy_n(m_moved.get_data(), moved, m_order.get_data() + kept);
        return kept;
    }
    void set_sides(ItemRange& range, unsigned int middle, ItemRange& second) const {
        second = make_range(middle, range.end);
        range = make_range(range.begin, middle);
    }

    Split find_split(const ItemRange& range, const BinScale& scale) const {
        if (range.get_count() <= max_listed_count) return find_split_of_few(range, scale);
        Bins bins[3];
        for (unsigned int i = range.begin; i < range.end; ++i) {
            const Bounds& bounds = m_bounds[m_order[i]];
            int at[4];
            scale.find(bounds, at);
            for (unsigned int axis = 0; axis < 3; ++axis) {
                bins[axis].bounds[at[axis]].grow(bounds);
                ++bins[axis].counts[at[axis]];
            }
        }
        Split best;
        for (unsigned int axis = 0; axis < 3; ++axis) choose_bin(bins[axis], axis, range.get_count(), best);
        return best;
    }
    // The same split as by bins.
    Split find_split_of_few(const ItemRange& range, const BinScale& scale) const {
        const unsigned int count = range.get_count();
        Bounds bounds[max_listed_count];
        int at[max_listed_count][4];
        for (unsigned int i = 0; i < count; ++i) {
            bounds[i] = m_bounds[m_order[range.begin + i]];
            scale.find(bounds[i], at[i]);
        }
        Split best;
        if (count == 0) return best;
        for (unsigned int axis = 0; axis < 3; ++axis) {
            // Items in the order of their bins.
            unsigned int order[max_listed_count] = {};
            for (unsigned int i = 1; i < count; ++i) {
                unsigned int place = i;
                for (; place != 0 && at[order[place - 1]][axis] > at[i][axis]; --place) order[place] = order[place - 1];
                order[place] = i;
            }
            if (at[order[0]][axis] == at[order[count - 1]][axis]) continue;
            Bounds befores[max_listed_count], after;
            for (unsigned int i = 1; i < count; ++i) {
                befores[i] = befores[i - 1];
                befores[i].grow(bounds[order[i - 1]]);
            }
            for (unsigned int i = count - 1; i != 0; --i) {
                after.grow(bounds[order[i]]);
                const int bin = at[order[i]][axis];
                if (at[order[i - 1]][axis] == bin) continue;
                const float cost =
                    befores[i].get_area() * static_cast<float>(i) + after.get_area() * static_cast<float>(count - i);
                if (cost < best.cost) best = {axis, static_cast<unsigned int>(bin), cost, befores[i], after};
            }
        }
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
            // No split is before an empty bin.
            costs[b] = before_count != 0 && bins.counts[b] != 0
                           ? befores[b].get_area() * static_cast<float>(before_count)
                           : 0.0f;
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

    const CoreArray<TreeItem>& m_items;
    CoreArray<RayTreeNode>& m_nodes;
    CoreArray<Bounds> m_bounds;                // of the items
    CoreArray<unsigned int> m_order, m_moved;  // items by their ranges, and those on their way
};

}  // namespace

void build_ray_tree(const CoreArray<TreeItem>& items, CoreArray<RayTreeNode>& nodes) {
    nodes.clear();
    TreeBuilder(items, nodes).build();
}

}  // namespace sds
