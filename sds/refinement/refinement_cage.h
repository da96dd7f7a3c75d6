// What a refinement starts from: the polygons of a control cage, how they hang together, and what is sharp.
#pragma once

#include "qn_core/core_array.h"

namespace sds {

// Views only: the arrays are the caller's and may go away after the build. "Face-corner c" stands for the edge from it
// to the next corner of its polygon.
struct RefinementCage {
    unsigned int vertex_count = 0;
    // Corners per polygon; vertices of all polygons, one polygon after the other. A polygon that holds the index
    // 0xFFFFFFFF is void: it has no patches and its neighbors end there.
    CoreBasicArray<unsigned int> polygon_counts;
    CoreBasicArray<unsigned int> polygon_indices;
    // Per face-corner: the one other face-corner of the same edge, whatever its direction, or 0xFFFFFFFF.
    CoreBasicArray<unsigned int> opposite_corners;
    // Per face-corner, or empty when nothing is sharp. An edge is as sharp as the sharper of its two sides; from 10 on
    // it is infinitely sharp. Negative numbers and NaN count as 0.
    CoreBasicArray<float> edge_sharpness;
    // Per vertex, or empty.
    CoreBasicArray<float> vertex_sharpness;
    // Per polygon, non-zero where it is a hole, or empty.
    CoreBasicArray<unsigned char> holes;
};

enum class BorderRule : unsigned char {
    edge_only,        // borders are creases, their corners turn
    edge_and_corner,  // and a vertex of one polygon only stays where it is
    fixed,            // all border vertices stay, those of the steps too
    open,             // no surface in polygons that touch a border, but for borders that are tagged infinitely sharp
};

struct RefinementOptions {
    static constexpr unsigned int max_depth = 10;

    // Steps after the quads that users see: the polygons of a cage of quads, those after one step otherwise. At most
    // max_depth.
    unsigned int depth = 0;
    // Where above 0, quads around an irregular vertex stop being refined when the control point is this close to its
    // limit, as a share of the diagonal of the cage's box; the surface is then off by about a tenth of it there.
    double error = 0.0;
    BorderRule border_rule = BorderRule::edge_and_corner;
    bool chaikin = false;           // how fractional edges decay
    bool smooth_triangles = false;  // triangles weigh more in the edge points of the first step
    // Sharpness from here on is taken as infinite: what lies above 7 differs from it by less than a thousandth of the
    // cage, within the crease, and costs twice the patches with every unit.
    float infinite_from = 7.0f;
    // The levels serve RefinedPatches only, on one thread: then the last one may do with siblings (RefinementLevel).
    // Ignored where `error` is above 0.
    bool may_have_siblings = false;
};

// The opposite corners of polygons whose neighbors are known as pairs of polygon and slot.
CoreArray<unsigned int> opposite_corners(const CoreBasicArray<unsigned int>& neighbour_polygons,
                                         const CoreBasicArray<unsigned int>& neighbour_edges,
                                         const CoreBasicArray<unsigned int>& polygon_offsets);

}  // namespace sds
