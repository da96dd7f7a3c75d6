// Polygons before their subdivision step, and what is known of their edges.
#pragma once

#include "sds/common/half_edge.h"

namespace sds {

struct PolygonNeighbors {
    const CoreBasicArray<unsigned int>& indices;
    const CoreBasicArray<unsigned int>& counts;
    const CoreBasicArray<unsigned int>& offsets;
    // Per face-corner: the polygon across, or none, and the number of the edge there; whether the edge is no crease.
    CoreArray<unsigned int> neighbour_polygons;
    CoreArray<unsigned int> neighbour_edges;
    CoreArray<unsigned char> edge_smooth_flags;

    // The face-corner of the neighbor that shares c's edge, none on borders.
    unsigned int opposite_corner(unsigned int c) const {
        const unsigned int neighbour = neighbour_polygons[c];
        return neighbour == none ? none : offsets[neighbour] + neighbour_edges[c];
    }
    bool is_void(unsigned int polygon) const {
        for (unsigned int j = 0; j < counts[polygon]; ++j)
            if (indices[offsets[polygon] + j] == none) return true;
        return false;
    }
};

}  // namespace sds
