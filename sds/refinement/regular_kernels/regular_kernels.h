// Control points of the regular faces of a level, straight to their rounded places: what RegularPatches computes, with
// the same bits, for points only.
//
// The kernels are plain functions on plain records, compiled once per instruction set and chosen at run time
// (sds/common/kernel_set.h). All sets give the same bits.
#pragma once

namespace sds {

// Views of a level, its points and its patches.
struct RegularFaces {
    const unsigned char* states;     // per face
    const unsigned int* patches;     // per face
    const unsigned int* offsets;     // per face: its first face-corner; null when all faces are quads
    const unsigned int* faces;       // per face-corner, null as well
    const unsigned char* edge_bits;  // per face: the edges that are infinitely sharp
    const unsigned int* vertices;    // per face-corner
    const unsigned int* opposites;   // per face-corner, or none
    const double* points;            // three per vertex, and one more that may be read
    double* limits;                  // four per vertex, where known; the fourth means nothing
    unsigned char* is_known;         // per vertex, not 0 for those that are not between smooth edges; 1 afterwards
    float* controls;                 // sixteen points a patch
    unsigned int* net_offsets;       // per patch
    double shortest_squared;         // of an edge whose patch needs no nets
    unsigned char emitted;           // the state of regular faces
};

struct RegularKernels {
    // The limit points of the vertices whose first face-corner, first[v], belongs to the emitted faces begin to end.
    void (*compute_limits)(const RegularFaces& level, const unsigned int* first, unsigned int begin, unsigned int end);
    // The patches of the emitted faces begin to end, and limit points where they are not known. The net offset of a
    // patch that needs nets becomes 0, of another none. Returns how many need them.
    unsigned int (*compute_controls)(const RegularFaces& level, unsigned int begin, unsigned int end);
};

// The table of the best instruction set that the processor has.
const RegularKernels& get_regular_kernels();
// The tables that this build and processor have, baseline first; null ends the list.
const RegularKernels* const* get_all_regular_kernels();

namespace baseline {
extern const RegularKernels regular_kernels;
}
// In builds with QN_WIDE_KERNELS.
namespace avx2 {
extern const RegularKernels regular_kernels;
}
namespace avx512 {
extern const RegularKernels regular_kernels;
}

}  // namespace sds
