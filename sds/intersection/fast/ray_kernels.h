// The fast kernel family: patches in the plane across the ray.
//
// Two vectors across the ray turn the sixteen control points into plane points (p, q); the ray is the origin of that
// plane, and "the ray meets the box" becomes "the box of (p, q) holds the origin": signs only, no rounding in the test.
// Distance along the ray is evaluated from the whole patch where a hit is found. Patches that share an edge transform
// its control points to the same bits and halve it to the same bits, so no ray slips between them.
//
// The kernels are plain functions on plain records, compiled once per instruction set and chosen at run time
// (sds/common/kernel_set.h).
#pragma once

#include "sds/intersection/fast/patch_parts.h"

namespace sds {

// A ray as the kernels see it: origin near the object, two vectors across the direction, and the direction divided by
// its squared length. These are pointers to the owner's numbers, which were stored one by one a moment ago: a processor
// forwards such stores to loads of one number, and stalls on a wider load.
struct RaySpace {
    const float* origin;
    const float (*across)[3];
    const float* along;
    double shift;      // added to distances from the origin
    double near, far;  // sums in [near, far) are hits
    // How far plane points of patches that share a part of an edge may lie apart there: patches and cells are as much
    // wider. 0 where patches share whole edges, to the same bits.
    float edge_slack;
};

struct RayHit {
    float t;  // along the ray, from the origin
    float u;
    float v;
    float cell;          // size of the flat cell in patch coordinates, 0 on the limit surface
    unsigned char side;  // 1 when the surface faces the ray: (dP/du x dP/dv) . direction <= 0
    unsigned char part;  // of the patch, on kept cells
};

struct RayHits {
    static constexpr unsigned int capacity = 32;

    RayHit hits[capacity];
    unsigned int count;
    // Added up over rays.
    unsigned int step_count;     // halvings, and windows of flat cells
    unsigned int dropped_count;  // hits, and sub-patches that may hold some, behind a full list of nearer ones
    unsigned int
        unsettled_count;  // sub-patches left when the splits ran out, and patches at coarser levels than asked for
};

// What a search of a hierarchy calls.
struct TreeSink {
    void* self;
    // Adds the ray's hits with those parts of a patch; where the hierarchy keeps no cells.
    void (*trace)(void* self, unsigned int patch, unsigned int parts, const RaySpace& ray, RayHits& hits);
    // Takes a patch's hits, one or more, of ray `slot`. Returns where the ray ends from now on, as RaySpace::far.
    double (*take)(void* self, unsigned int slot, unsigned int patch, const RayHits& hits);
};

// Those that trace a patch add to `hits`, whose counts the caller sets to 0.
struct RayKernels {
    // Flat cells, 2^level_count each way. `controls` are the sixteen points in grid order, x y z each:
    // controls[axis][place].
    void (*estimate)(const float (*controls)[16], const RaySpace& ray, unsigned int level_count, RayHits& hits);
    // The limit surface.
    void (*adaptive)(const float (*controls)[16], const RaySpace& ray, RayHits& hits);
    // The same in the given parts of the patch and, where that takes no longer, in others. Hits of flat cells are the
    // same to the bit; roots of the limit surface come from another start.
    void (*estimate_parts)(const float (*controls)[16], const RaySpace& ray, unsigned int level_count,
                           unsigned int parts, RayHits& hits);
    void (*adaptive_parts)(const float (*controls)[16], const RaySpace& ray, unsigned int parts, RayHits& hits);

    // One ray, number `slot`, through a hierarchy; its far end changes. `hits` is room; its sums go on.
    void (*trace_tree)(const RayTree& tree, RaySpace& ray, const TreeSink& sink, unsigned int slot, RayHits& hits);
    // Up to eight, numbered as they stand. False, and nothing done, where they do not run the
    // same way.
    bool (*trace_tree_packet)(const RayTree& tree, RaySpace* rays, unsigned int count, const TreeSink& sink,
                              RayHits& hits);
};

// The table of the best instruction set that the processor has.
const RayKernels& get_ray_kernels();
// The tables that this build and processor have, baseline first; null ends the list.
const RayKernels* const* get_all_ray_kernels();

namespace baseline {
extern const RayKernels ray_kernels;
}
// In builds with QN_WIDE_KERNELS.
namespace avx2 {
extern const RayKernels ray_kernels;
}
namespace avx512 {
extern const RayKernels ray_kernels;
}

}  // namespace sds
