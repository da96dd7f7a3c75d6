// Long patches that lie aslant in their boxes, in slices with boxes of their own.
#pragma once

#include "sds/common/control_lanes.h"
#include "sds/mesh/ray_tree_build.h"

namespace sds {

// A patch between planes at even steps across its long direction. Its points are sums of its controls with weights that
// are not negative and add to 1, and so are the corners of its flat cells: what holds for the controls' distances from
// a line along that direction holds for them.
class SliverSlices {
public:
    static constexpr unsigned int max_count = 64;

    // As many slices, a power of two, as make the sum of their boxes' surfaces less by a good part each time; 1 where
    // even that many gain little, as in patches that are as wide as long, lie along an axis, or are bent.
    SliverSlices(const ControlLanes& controls, unsigned int most);

    unsigned int get_count() const { return m_count; }

    // Adds the slices' boxes, each `pad` larger along each axis on either side.
    void add_items(const float* pad, unsigned int patch, CoreArray<TreeItem>& items) const;

private:
    float m_direction[3];
    float m_begin, m_length;          // along the direction, from the first control
    float m_origin[3];                // the first control
    float m_least[3], m_greatest[3];  // of the controls' distances from the line, by axis
    float m_low[3], m_high[3];        // of the controls
    unsigned int m_count = 1;

    float get_area(unsigned int count) const;
};

}  // namespace sds
