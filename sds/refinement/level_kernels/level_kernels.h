// Points of levels, and control points of their patches straight to their rounded places: what value_rules.h,
// RegularPatches and LeafPatches compute, with the same bits, for points only.
//
// The kernels are plain functions on plain records, compiled once per instruction set and chosen at run time
// (sds/common/kernel_set.h). All sets give the same bits.
#pragma once

namespace sds {

constexpr unsigned int max_leaf_valence = 32;
// In LevelFaces::is_known, of a vertex with so many faces at most: its faces are one closed fan between smooth edges in
// which all wind the same way.
constexpr unsigned char fan_limit = 4;
// Sums that LevelPoints has room for behind the last one.
constexpr unsigned int spare_sums = 16;

// What the points around a smooth vertex count in its tangents, by the edges that lead to them, and the cosine of the
// angle between two edges.
struct LeafWeights {
    const double *edge, *diagonal;
    double turn_cosine;
};

// Views of a level, its points and its patches.
struct LevelFaces {
    const unsigned char* states;     // per face
    const unsigned int* patches;     // per face
    const unsigned int* offsets;     // per face: its first face-corner; null when all faces are quads
    const unsigned char* slots;      // per face-corner: its number in its quad; null as well
    const unsigned char* edge_bits;  // per face: the edges that are infinitely sharp
    const unsigned int* vertices;    // per face-corner
    const unsigned int* opposites;   // per face-corner, or none
    const double* points;            // three per vertex, and one more that may be read
    double* limits;                  // four per vertex, where known; the fourth means nothing
    unsigned char* is_known;         // per vertex, not 0 for those that are not between smooth edges; 1 afterwards
                                     // where it was 0
    bool has_limits;                 // whether those of the regular faces' vertices all are, which several threads need
    const unsigned char* is_handed;  // per vertex: 1 where coarser patches have rounded its limit point, or 0
    const float* handed;             // these points, four numbers per vertex; the fourth means nothing
    float* controls;                 // sixteen points a patch
    float* nets;                     // where net offsets count from
    unsigned int* net_offsets;       // per patch
    double shortest_squared;         // of an edge whose patch needs no nets
    unsigned char emitted;           // the state of regular faces
    // Of leaves only, which are quads.
    const unsigned char* kinds;       // per vertex, 0 for regular ones
    const unsigned int* valences;     // per vertex
    const LeafWeights* leaf_weights;  // per valence up to max_leaf_valence
};

// The step that made a level, on the side of the coarser one.
struct LevelStep {
    const unsigned char* states;         // per face
    const unsigned int* refined_faces;   // in increasing order
    const unsigned int* first_children;  // of refined faces
    unsigned int refined_count;
    unsigned char refined;          // the state of refined faces
    unsigned char leaf;             // the state of leaves, of the level
    const unsigned int* offsets;    // per face and one more: its first face-corner; null when all faces are quads
    const unsigned int* faces;      // per face-corner, null as well
    const unsigned int* vertices;   // per face-corner
    const unsigned int* opposites;  // per face-corner
    const unsigned int* edges;      // per face-corner, where the edge has a child
    const unsigned int* valences;   // per vertex
    const unsigned int *vertex_children, *edge_children, *face_children;  // those around refined faces are there
};

// What of the siblings is computed.
constexpr unsigned int regular_siblings = 1, sibling_leaves = 2, regular_sibling_nets = 4;

// Views of a level with its step, and of the points around it. Arrays of points hold one number more than
// their points have.
struct LevelPoints {
    unsigned int face_count, edge_count, vertex_count;
    const unsigned int* offsets;    // per face and one more: its first face-corner; null when all faces are quads
    const unsigned int* faces;      // per face-corner, null as well
    const unsigned int* vertices;   // per face-corner
    const unsigned int* opposites;  // per face-corner, not none beside edges of sharpness 0
    const unsigned int* valences;   // per vertex
    const unsigned int* edge_corners;
    unsigned int own_edge_count;    // the first edges, which have ends and sharpness; the others are smooth
    const unsigned int* edge_ends;  // two per such edge
    const float* edge_sharpness;    // per such edge
    float infinite_sharpness;
    const unsigned int *vertex_children, *edge_children;  // or none, in increasing order
    unsigned int touched_count;
    const unsigned int* touched_faces;  // those with a child
    const unsigned int* face_children;  // of these, in increasing order
    const double* points;               // three per vertex
    double* face_points;                // three per face
    unsigned int sum_count;
    const unsigned int* sum_indices;  // per vertex, none for those without sums; null when all have sums, in order
    double* sums;         // eight each: three over edges, three over faces, and a number after each; spare_sums more
    double* fine_points;  // of the next level
};

struct LevelKernels {
    // The limit points of the vertices whose first face-corner, first[v], belongs to the emitted faces begin to end.
    void (*compute_limits)(const LevelFaces& level, const unsigned int* first, unsigned int begin, unsigned int end);
    // The patches of the emitted faces begin to end, and limit points where they are not known. Lists the faces whose
    // patches need nets and returns how many there are.
    unsigned int (*compute_controls)(const LevelFaces& level, unsigned int begin, unsigned int end,
                                     unsigned int* short_faces);
    // The controls of a leaf, 48 floats, from limit points that are known, and its nets, 72 floats, where not null.
    // False, with nothing written, unless its corners are regular or fans.
    bool (*compute_leaf)(const LevelFaces& level, unsigned int face, float* controls, float* nets);
    // The given parts of a level of siblings. Leaves have nets where they have a net offset; the net offset of a
    // regular patch that needs nets becomes 0, of another none, and their nets come by another call. Limit points are
    // made where they are not known. Returns how many regular patches need nets.
    unsigned int (*compute_siblings)(const LevelFaces& level, const LevelStep& step, unsigned int parts);
    // Face points of the given faces, in increasing order, and the sums of their vertices over these faces. Needs
    // neither edges nor children.
    void (*sum_neighbors)(const LevelPoints& level, const unsigned int* faces, unsigned int count);
    // The next level's points by the rules of smooth vertices, and of smooth or infinitely sharp edges. False when
    // there are other edges.
    bool (*refine_points)(const LevelPoints& level);
};

// The table of the best instruction set that the processor has.
const LevelKernels& get_level_kernels();
// The tables that this build and processor have, baseline first; null ends the list.
const LevelKernels* const* get_all_level_kernels();

namespace baseline {
extern const LevelKernels level_kernels;
}
// In builds with QN_WIDE_KERNELS.
namespace avx2 {
extern const LevelKernels level_kernels;
}
namespace avx512 {
extern const LevelKernels level_kernels;
}

}  // namespace sds
