// Whether a last level may do without faces: its patches then follow from the points around the refined quads.
#include "sds/refinement/level_kernels/level_kernels.h"
#include "sds/refinement/level_step.h"

namespace sds {

namespace {

// Whether the faces at the vertex of face-corner c are one closed fan in which all wind the same way.
bool is_closed_fan(const RefinementLevel& level, unsigned int c) {
    const unsigned int v = level.corner_vertices[c], valence = level.valences[v];
    unsigned int h = c;
    for (unsigned int i = 1; i <= valence; ++i) {
        h = level.edges.opposite_edges[level.previous_corner(h)];
        if (h == none || level.corner_vertices[h] != v) return false;
        if (h == c) return i == valence;
    }
    return false;
}

// Whether a face is a quad between smooth edges whose neighbors wind as it does.
bool is_plain_quad(const RefinementLevel& level, unsigned int f) {
    const unsigned int begin = level.face_begin(f);
    if (level.face_end(f) - begin != 4) return false;
    for (unsigned int c = begin; c < begin + 4; ++c) {
        const unsigned int v = level.corner_vertices[c], o = level.edges.opposite_edges[c];
        if (o == none || level.corner_vertices[o] == v || level.sharp_vertex(v) != nullptr) return false;
        if (level.valences[v] == 4) continue;
        if (level.valences[v] > max_leaf_valence || !is_closed_fan(level, c)) return false;
    }
    return true;
}

}  // namespace

bool are_siblings(const RefinementLevel& coarse) {
    for (const unsigned int e : coarse.sharp_edges)
        if (coarse.edge_marks[e] == RefinementLevel::nonmanifold_mark) return false;
    for (const unsigned int f : coarse.refined_faces)
        if (!is_plain_quad(coarse, f)) return false;
    return true;
}

}  // namespace sds
