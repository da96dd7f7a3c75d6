#include "sds/mesh_base/control_opposites.h"

namespace sds {

// The quads know their neighbors already: those of the step lie behind each other along the halves of an edge.
CoreArray<unsigned int> control_opposites(const CoreBasicArray<unsigned int>& quad_indices,
                                          const SdsMeshBase::EdgesTopology& edges, bool is_subdivided) {
    CoreArray<unsigned int> opposites(is_subdivided ? quad_indices.get_count() / 4 : quad_indices.get_count());
    const auto is_void = [&](unsigned int c) {
        return is_void_quad(quad_indices.get_data() + 4 * size_t{is_subdivided ? c : quad_of(c)});
    };
    for (unsigned int c = 0; c < opposites.get_count(); ++c) {
        unsigned int& opposite = opposites[c];
        opposite = none;
        if (is_void(c)) continue;
        if (is_subdivided) {
            const unsigned int ahead = edges.opposite_edges[4 * size_t{c}];
            if (ahead == none) continue;
            // The half that begins at a corner of the polygon across has that corner's number; where the two wind the
            // same way it is the one behind.
            const unsigned int next = quad_of(edges.opposite_edges[4 * size_t{c} + 1]);
            const unsigned int behind = edges.opposite_edges[4 * size_t{next} + 3];
            opposite = quad_of(corner_of(ahead) == 0 ? ahead : behind);
        } else {
            opposite = edges.opposite_edges[c];
        }
        if (opposite != none && is_void(opposite)) opposite = none;
    }
    return opposites;
}

}  // namespace sds
