// Which values of a map stay where they are, in the words that interchange formats have for it. A map is refined as a
// surface of its own, the chart: polygons joined where both ends of an edge have the same value on both sides. What the
// rules say of seams is then what a border rule says of the chart's borders, and a few corners besides.
#pragma once

#include "sds/refinement/refinement_cage.h"

namespace sds {

enum class FaceVaryingRule : unsigned char {
    all_smooth,     // seams are smooth curves, their corners turn
    corners_only,   // a value of one polygon stays
    corners_plus1,  // and the values where three or more meet at a vertex
    corners_plus2,  // and the ends of seams, and both values of a vertex where one is of one polygon
    boundaries,     // seams and borders stay where they are
    all,            // nothing is smoothed: bilinear patches, no refinement
};

// What there is around one value of a vertex.
struct ValueSurroundings {
    bool is_on_seam = false;       // or on a border of the mesh
    bool is_seam_end = false;      // the vertex's only value, though a seam ends there
    unsigned int face_count = 0;   // of this value
    unsigned int value_count = 0;  // of the vertex
    bool has_lone_value = false;   // a value of the vertex is of one polygon
};

constexpr bool is_fixed_value(FaceVaryingRule rule, const ValueSurroundings& around) {
    if (rule == FaceVaryingRule::all) return true;
    if (rule == FaceVaryingRule::all_smooth || !around.is_on_seam) return false;
    const bool is_corner = around.face_count == 1;
    const bool is_junction = around.value_count > 2;
    switch (rule) {
        case FaceVaryingRule::corners_only:
            return is_corner;
        case FaceVaryingRule::corners_plus1:
            return is_corner || is_junction;
        case FaceVaryingRule::corners_plus2:
            return is_corner || is_junction || around.is_seam_end || (around.value_count == 2 && around.has_lone_value);
        default:
            return true;
    }
}

// For the refinement of a chart, together with the sharpness below. `all` is not refined at all.
constexpr BorderRule chart_border_rule(FaceVaryingRule rule) {
    if (rule == FaceVaryingRule::all_smooth) return BorderRule::edge_only;
    if (rule == FaceVaryingRule::boundaries || rule == FaceVaryingRule::all) return BorderRule::fixed;
    return BorderRule::edge_and_corner;
}

// The sharpness of a chart's vertices, infinite or 0, for its RefinementCage. `mesh` and `chart` have the same
// polygons; indices of `chart` are values, none where a polygon is not mapped, and its opposite corners are those of
// the values. A value that several vertices of the mesh share counts for the first.
CoreArray<float> chart_vertex_sharpness(const RefinementCage& mesh, const RefinementCage& chart, FaceVaryingRule rule);

}  // namespace sds
