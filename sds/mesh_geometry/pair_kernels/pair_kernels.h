// Patches by the pair: the same work on two patches, in the two groups of lanes.
//
// The kernels are plain functions on plain records, compiled once per instruction set and chosen at run time
// (sds/common/kernel_set.h). All sets give the same bits.
#pragma once

#include "sds/mesh_base/sds_mesh_base.h"
#include "sds/refinement/net_places.h"

namespace sds {

// Patches at rest: four vertices and one record a patch, three floats a vertex, corner or tangent.
struct PatchArrays {
    const unsigned int* quads;
    const SdsMeshBase::BezierPatch* patches;  // null: bilinear, without corners
    const SdsMeshBase::PatchTangentInfo* infos;
    const float* vertices;
    const float* corners;
    const float* tangents;  // null when no patch has any
    // Of a refined surface, else null, and then instead of all above: sixteen controls a patch, and per patch where its
    // 24 vectors of derivative nets begin, or none.
    const float* controls = nullptr;
    NetPlaces net_places = {};
    const float* nets = nullptr;
    // Where controls of smooth patches are ready: LocalControls of every patch. Else null.
    const struct LocalControls* local = nullptr;
};

// The controls of a patch relative to its quad's first vertex, in grid order, and that vertex; fourth lanes are 0.
struct alignas(16) LocalControls {
    float grid[16][4];
    float origin[4];
};

struct PlacePair {
    unsigned int primitives[2];
    float u[2];
    float v[2];
};

// What limit corners are computed from: the fans around vertices, three floats a vertex.
struct CornerArrays {
    const unsigned int* quads;
    const unsigned int* opposite_edges;
    const SdsMeshBase::VertexInfo* infos;
    const SdsMeshBase::VertexLocalTopology* fans;
    const SdsMeshBase::PatchTangentInfo* tangent_infos;
    const unsigned int* first_edges;  // per vertex the least half-edge that leaves it, or none
    const float* points;
};

// What the control points of patches add up to.
struct PatchSums {
    float low[3], high[3];  // their box
    double areas[4];        // projected on the planes x, y and z, and true
};

struct PairKernels {
    // Smooth patches only. Writes twelve floats to points[i] for sample i: position, derivatives per patch parameter,
    // unit normal. Returns in bit i whether sample i has derivatives that single precision does not tell from rounding
    // or from parallel ones: its normal means nothing then.
    unsigned int (*compute_limit_points)(const PatchArrays& surface, const PlacePair& places, float* const* points);

    // Of two smooth patches, what compute_limit_points makes of them on its way.
    void (*compute_local_controls)(const PatchArrays& surface, const unsigned int* primitives,
                                   LocalControls* const* out);

    // The place and the second derivatives uu, uv and vv of a net at (u, v), three numbers each. `controls` in corner
    // order.
    void (*evaluate_net)(const float (*controls)[4], double u, double v, double* out);
    // The first derivatives du and dv from derivative nets (sds/common/net_slots.h), three numbers each, summed in
    // single precision.
    void (*evaluate_slopes)(const float (*nets)[4], float u, float v, double* out);

    // Adds the boxes, or the areas, of the patches begin to end to the sums of their groups, in order. Coordinates that
    // are not finite are left out of the boxes with their points, and cells without a finite area of the areas.
    void (*add_boxes)(const PatchArrays& surface, const unsigned int* groups, unsigned int begin, unsigned int end,
                      PatchSums* sums);
    void (*add_areas)(const PatchArrays& surface, const unsigned int* groups, unsigned int begin, unsigned int end,
                      PatchSums* sums);

    // Writes the boxes of the patches begin to end, least and greatest coordinates, six numbers each: those of single
    // patches, to the bit.
    void (*compute_boxes)(const PatchArrays& surface, unsigned int begin, unsigned int end, double* boxes);

    // Writes the limit corners of the vertices begin to end, up to the first one that is neither kept in place nor has
    // a whole fan without sharp edges and void quads around it: returns that one, or the end. Vertices that are kept,
    // or that no quad has, are where their corners are.
    unsigned int (*compute_corners)(const CornerArrays& mesh, unsigned int begin, unsigned int end, float* corners);
};

// The table of the best instruction set that the processor has.
const PairKernels& get_pair_kernels();
// The tables that this build and processor have, baseline first; null ends the list.
const PairKernels* const* get_all_pair_kernels();

namespace baseline {
extern const PairKernels pair_kernels;
}
// In builds with QN_WIDE_KERNELS.
namespace avx2 {
extern const PairKernels pair_kernels;
}
namespace avx512 {
extern const PairKernels pair_kernels;
}

}  // namespace sds
