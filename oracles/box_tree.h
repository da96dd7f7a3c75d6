// A plain hierarchy of boxes in double precision, for tests that need their own way to the patches a ray may meet.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "qn_gmath/gmath_bbox.h"

namespace sds_test {

class BoxTree {
public:
    using Vec3d = GMathVec3<double>;
    using Box = GMathBbox3<double>;

    // Items are numbered as in `boxes`. Each box is widened by `margin`, at least a few units in the last place.
    BoxTree(const std::vector<Box>& boxes, double margin);

    // Calls visit(item) for the items whose box the ray meets between `near` and `far`, roughly the nearest first;
    // visit returns the new far distance. Distances count in lengths of the direction.
    template <class Visit>
    void trace(const Vec3d& origin, const Vec3d& direction, double near, double far, Visit&& visit) const {
        if (m_nodes.empty()) return;
        const Vec3d inverse{1.0 / direction[0], 1.0 / direction[1], 1.0 / direction[2]};
        std::pair<std::uint32_t, double> stack[64];
        unsigned int count = 0;
        double entry;
        if (enters(m_nodes[0].box, origin, inverse, near, far, entry)) stack[count++] = {0, entry};
        while (count != 0) {
            const auto [index, node_entry] = stack[--count];
            if (node_entry > far) continue;
            const Node& node = m_nodes[index];
            if (node.count != 0) {
                for (std::uint32_t i = node.first; i < node.first + node.count; ++i)
                    if (enters(m_boxes[i], origin, inverse, near, far, entry)) far = visit(m_items[i]);
                continue;
            }
            double entries[2];
            bool hits[2];
            for (unsigned int c = 0; c < 2; ++c)
                hits[c] = enters(m_nodes[node.first + c].box, origin, inverse, near, far, entries[c]);
            const unsigned int nearer = hits[1] && (!hits[0] || entries[1] < entries[0]) ? 1 : 0;
            if (hits[1 - nearer]) stack[count++] = {node.first + 1 - nearer, entries[1 - nearer]};
            if (hits[nearer]) stack[count++] = {node.first + nearer, entries[nearer]};
        }
    }

private:
    struct Node {
        Box box;
        std::uint32_t first;  // child, or item of a leaf
        std::uint32_t count;  // items of a leaf, 0 otherwise
    };

    void build(std::uint32_t node, std::uint32_t first, std::uint32_t count, const std::vector<Box>& boxes);

    static bool enters(const Box& box, const Vec3d& origin, const Vec3d& inverse, double near, double far,
                       double& entry) {
        for (unsigned int axis = 0; axis < 3; ++axis) {
            const double t0 = (box.get_min()[axis] - origin[axis]) * inverse[axis];
            const double t1 = (box.get_max()[axis] - origin[axis]) * inverse[axis];
            // Written so that 0 * infinity, a ray in the plane of a side, leaves the interval as it is.
            const double low = t0 < t1 ? t0 : t1;
            const double high = t0 < t1 ? t1 : t0;
            if (low > near) near = low;
            if (high < far) far = high;
        }
        entry = near;
        return near <= far;
    }

    std::vector<Node> m_nodes;
    std::vector<std::uint32_t> m_items;
    std::vector<Box> m_boxes;  // in the order of m_items
};

}  // namespace sds_test
