// Charts: values with indices of their own on the polygons of a cage (UV maps, indexed properties), refined as a
// surface beside that of the positions. Its seams are its borders; creases and sharp vertices are the
// cage's. Holes have values.
#pragma once

#include "sds/refinement/refined_topology.h"

namespace sds {

// Views only.
struct Chart {
    const SdsMeshBase::ControlCage& cage;
    unsigned int value_count;
    // Per face-corner of the cage: its value, none where a polygon has none; and the face-corner that has both ends'
    // values across its edge, or none.
    const CoreBasicArray<unsigned int>& indices;
    const CoreBasicArray<unsigned int>& opposite_corners;

    // The two surfaces side by side, for the face-varying rules.
    RefinementCage mesh_view() const {
        return {cage.vertex_count, cage.polygon_counts, cage.polygon_indices, cage.opposite_corners, {}, {}, {}};
    }
    RefinementCage chart_view() const {
        return {value_count, cage.polygon_counts, indices, opposite_corners, {}, {}, {}};
    }
};

// What the settings of a cage's refinement say of any values on it; the border rule is the caller's.
RefinementOptions get_refinement_options(const SdsRefinement& settings);

// `fixed` marks values that stay, by infinite sharpness, or is empty; sharp vertices of the cage are added to it.
// `points` holds one per value and is read only where an error decides the depth.
void refine_chart(const Chart& chart, BorderRule border_rule, CoreArray<float> fixed,
                  const CoreBasicArray<GMathVec3<float>>& points, RefinedTopology& topology,
                  AppProgressBar* progress = nullptr);

}  // namespace sds
