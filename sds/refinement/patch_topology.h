// What the control points of a face of a level depend on besides values.
#pragma once

#include "sds/refinement/refinement_level.h"

namespace sds {

// With the weights of a regular quad, which are the same between smooth edges, on creases and at corners.
inline SdsMeshBase::BezierPatch regular_patch(const RefinementLevel& level, unsigned int face) {
    SdsMeshBase::BezierPatch patch;
    patch.sharp_edges = 0;
    const unsigned int begin = level.face_begin(face);
    for (unsigned int k = 0; k < 4; ++k) {
        patch.edge_weights[k] = 8.0f;
        patch.corner_weights[k] = 4.0f;
        const unsigned int c = begin + k;
        const unsigned int o = level.edges.opposite_edges[c];
        if (o == none || level.is_infinite_at(c)) patch.sharp_edges |= 1u << k;
        if (o == none) {
            patch.neighbour_vertices[2 * k] = patch.neighbour_vertices[2 * k + 1] = none;
            continue;
        }
        // The corners before and after the shared edge in the neighbor; one that winds the other way has them swapped.
        const unsigned int after = level.corner_vertices[level.next_corner(level.next_corner(o))];
        const unsigned int before = level.corner_vertices[level.previous_corner(o)];
        const bool is_flipped = level.corner_vertices[o] == level.corner_vertices[c];
        patch.neighbour_vertices[2 * k] = is_flipped ? before : after;
        patch.neighbour_vertices[2 * k + 1] = is_flipped ? after : before;
    }
    return patch;
}

}  // namespace sds
