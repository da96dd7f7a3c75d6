// What the control points of a leaf depend on besides values.
#pragma once

#include <algorithm>

#include "sds/refinement/refinement_level.h"

namespace sds {

// Of a leaf, by its corners' fans in one reading of the level's sharpness. Nothing lies beside sharp edges. Without
// branches, since which edges are sharp is hard to foretell.
inline SdsMeshBase::BezierPatch leaf_patch(const RefinementLevel& level, unsigned int face,
                                           const SdsMeshBase::VertexLocalTopology (&fans)[4],
                                           const SdsMeshBase::EdgesTopology& edges) {
    SdsMeshBase::BezierPatch patch;
    patch.sharp_edges = 0;
    const unsigned int* vertices = level.corner_vertices.get_data();
    for (unsigned int k = 0; k < 4; ++k) {
        const auto n = static_cast<float>(fans[k].valence);
        const unsigned int is_closed = fans[k].closed ? 1 : 0;
        const float corner_weights[2] = {std::max(4.0f, n + n), n}, edge_factors[2] = {4.0f, 2.0f};
        patch.edge_weights[k] = edge_factors[is_closed] * n;
        patch.corner_weights[k] = corner_weights[is_closed];
        const unsigned int c = 4 * face + k;
        patch.sharp_edges |= (edges.is_sharp(c) ? 1u : 0u) << k;
        // The corners before and after the shared edge in the neighbor; one that winds the other way has them swapped.
        const unsigned int o = edges.is_border(c) ? c : edges.opposite_edges[c];
        const unsigned int is_flipped = vertices[o] == vertices[c] ? 1 : 0;
        patch.neighbour_vertices[2 * k + is_flipped] = vertices[turn_in_quad(o, 2)];
        patch.neighbour_vertices[2 * k + 1 - is_flipped] = vertices[previous_in_quad(o)];
    }
    return patch;
}

}  // namespace sds
