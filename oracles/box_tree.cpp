#include "oracles/box_tree.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace sds_test {

namespace {

BoxTree::Box widened(const BoxTree::Box& box, double margin) {
    BoxTree::Vec3d low = box.get_min();
    BoxTree::Vec3d high = box.get_max();
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const double pad = margin + 1e-15 * (std::fabs(low[axis]) + std::fabs(high[axis]));
        low[axis] -= pad;
        high[axis] += pad;
    }
    return {low, high};
}

}  // namespace

BoxTree::BoxTree(const std::vector<Box>& boxes, double margin) : m_items(boxes.size()) {
    std::iota(m_items.begin(), m_items.end(), 0u);
    std::vector<Box> wide;
    for (const Box& box : boxes) wide.push_back(widened(box, margin));
    if (boxes.empty()) return;
    m_nodes.reserve(2 * boxes.size());
    m_nodes.emplace_back();
    build(0, 0, static_cast<std::uint32_t>(boxes.size()), wide);
    for (const std::uint32_t item : m_items) m_boxes.push_back(wide[item]);
}

void BoxTree::build(std::uint32_t node, std::uint32_t first, std::uint32_t count, const std::vector<Box>& boxes) {
    Box all = Box::empty();
    Box centers = Box::empty();
    for (std::uint32_t i = first; i < first + count; ++i) {
        all.grow(boxes[m_items[i]]);
        centers.grow(boxes[m_items[i]].get_center());
    }
    if (count <= 4) {
        m_nodes[node] = {all, first, count};
        return;
    }
    const Vec3d extent = centers.get_max() - centers.get_min();
    unsigned int axis = extent[1] > extent[0] ? 1 : 0;
    if (extent[2] > extent[axis]) axis = 2;
    const std::uint32_t half = count / 2;
    std::nth_element(
        m_items.begin() + first, m_items.begin() + first + half, m_items.begin() + first + count,
        [&](std::uint32_t a, std::uint32_t b) { return boxes[a].get_center()[axis] < boxes[b].get_center()[axis]; });
    const auto child = static_cast<std::uint32_t>(m_nodes.size());
    m_nodes.resize(m_nodes.size() + 2);
    m_nodes[node] = {all, child, 0};
    build(child, first, half, boxes);
    build(child + 1, first + half, count - half, boxes);
}

}  // namespace sds_test
