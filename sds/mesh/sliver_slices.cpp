#include "sds/mesh/sliver_slices.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <utility>

#include "sds/common/control_grid.h"

namespace sds {

namespace {

// Half a box's surface.
float get_half_area(const float* size) { return size[0] * size[1] + size[1] * size[2] + size[2] * size[0]; }

// From one corner of a patch to the one that is farthest from any.
void find_long_way(const ControlLanes& controls, float* way) {
    float longest = -1.0f;
    for (const auto& [from, to] : {std::pair{0, 1}, {1, 2}, {2, 3}, {3, 0}, {0, 2}, {1, 3}}) {
        float between[3], square = 0.0f;
        for (unsigned int axis = 0; axis < 3; ++axis) {
            between[axis] = controls.coords[axis][grid_corners[to]] - controls.coords[axis][grid_corners[from]];
            square += between[axis] * between[axis];
        }
        if (!(square > longest)) continue;
        longest = square;
        std::copy_n(between, 3, way);
    }
}

}  // namespace

SliverSlices::SliverSlices(const ControlLanes& controls, unsigned int most) {
    constexpr float least_gain = 0.3f, least_gain_together = 0.6f;
    float way[3] = {};
    find_long_way(controls, way);
    const float length = std::sqrt(way[0] * way[0] + way[1] * way[1] + way[2] * way[2]);
    if (!(length > 0.0f && std::isfinite(length))) return;
    float along[16] = {}, size[3];
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const float* const coords = controls.coords[axis];
        m_origin[axis] = coords[0];
        m_direction[axis] = way[axis] / length;
        for (unsigned int i = 0; i < 16; ++i) along[i] += m_direction[axis] * (coords[i] - m_origin[axis]);
        const auto [low, high] = std::minmax_element(coords, coords + 16);
        m_low[axis] = *low;
        m_high[axis] = *high;
        size[axis] = *high - *low;
    }
    const auto [begin, end] = std::minmax_element(along, along + 16);
    m_begin = *begin;
    m_length = *end - *begin;
    for (unsigned int axis = 0; axis < 3; ++axis) {
        float beside[16];
        for (unsigned int i = 0; i < 16; ++i)
            beside[i] = controls.coords[axis][i] - m_origin[axis] - m_direction[axis] * along[i];
        const auto [least, greatest] = std::minmax_element(beside, beside + 16);
        m_least[axis] = *least;
        m_greatest[axis] = *greatest;
    }
    unsigned int count = 1;
    while (2 * count <= std::min(most, max_count) && get_area(2 * count) < (1.0f - least_gain) * get_area(count))
        count *= 2;
    if (get_area(count) < (1.0f - least_gain_together) * get_half_area(size)) m_count = count;
}

float SliverSlices::get_area(unsigned int count) const {
    float size[3];
    for (unsigned int axis = 0; axis < 3; ++axis)
        size[axis] =
            std::fabs(m_direction[axis]) * m_length / static_cast<float>(count) + (m_greatest[axis] - m_least[axis]);
    return static_cast<float>(count) * get_half_area(size);
}

void SliverSlices::add_items(const float* pad, unsigned int patch, CoreArray<TreeItem>& items) const {
    const auto get_plane = [this](unsigned int i) {
        return m_begin + m_length * (static_cast<float>(i) / static_cast<float>(m_count));
    };
    for (unsigned int i = 0; i < m_count; ++i) {
        TreeItem item{{}, {}, patch};
        for (unsigned int axis = 0; axis < 3; ++axis) {
            const float first = m_direction[axis] * get_plane(i), last = m_direction[axis] * get_plane(i + 1);
            const float low = m_origin[axis] + (std::min(first, last) + m_least[axis]);
            const float high = m_origin[axis] + (std::max(first, last) + m_greatest[axis]);
            item.low[axis] = std::max(low, m_low[axis]) - pad[axis];
            item.high[axis] = std::min(high, m_high[axis]) + pad[axis];
        }
        items.add(item);
    }
}

}  // namespace sds
