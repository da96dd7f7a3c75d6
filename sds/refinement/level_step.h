// What the parts of a step from one level to the next share.
#pragma once

#include "sds/common/array_bytes.h"
#include "sds/refinement/refinement_level.h"

namespace sds {

struct StepScratch {
    // The faces of a level that the step makes a point of and that are not refined, in order.
    CoreArray<unsigned int> supporting;
    // The face-corners of supporting faces whose vertex has a child, in the order of these children.
    CoreArray<unsigned int> supporting_corners;
    // Per face-corner of touched faces: the first face-corner of the face of the next level there, or none.
    CoreArray<unsigned int> corner_children;
    CoreArray<SharpnessStep> sharpness;
    // Edges of the coarser level from here on are only handed to finer patches: each has both halves.
    unsigned int first_handed_edge = 0;

    size_t get_memory_size() const {
        return bytes_of(supporting) + bytes_of(supporting_corners) + bytes_of(corner_children) + bytes_of(sharpness);
    }
};

// Whether the children of all refined faces may be siblings.
bool are_siblings(const RefinementLevel& coarse);

// Makes the faces of the next level and joins them. Both levels have all their vertices, and `fine` the edges that have
// numbers; `fine` knows whether it has siblings.
void make_children(RefinementLevel& coarse, RefinementLevel& fine, bool is_last, BorderRule border_rule,
                   StepScratch& scratch);

}  // namespace sds
