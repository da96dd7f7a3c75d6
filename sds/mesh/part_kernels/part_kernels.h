// Boxes of the parts of patches, one coordinate at a time.
//
// The kernels are compiled once per instruction set and chosen at run time (sds/common/kernel_set.h). All sets give the
// same bits.
#pragma once

#include "sds/intersection/fast/patch_parts.h"

namespace sds {

// Least and greatest coordinates of the parts [v][u].
struct PartBounds {
    float low[4][4], high[4][4];
};

struct PartKernels {
    // Those of the parts' control points; `coords` is one coordinate of a patch's control points in grid order.
    void (*find_bounds)(const float* coords, PartBounds& bounds);

    // Sets the boxes along one axis. They take in, by `margin`, the rounding of points, of the ray and of the test that
    // they are for, and hits that kernels accept beside a part.
    void (*set_boxes)(const PartBounds& bounds, float margin, unsigned int axis, PartBoxes& boxes);
};

// The table of the best instruction set that the processor has.
const PartKernels& get_part_kernels();
// The tables that this build and processor have, baseline first; null ends the list.
const PartKernels* const* get_all_part_kernels();

namespace baseline {
extern const PartKernels part_kernels;
}
// In builds with QN_WIDE_KERNELS.
namespace avx2 {
extern const PartKernels part_kernels;
}
namespace avx512 {
extern const PartKernels part_kernels;
}

}  // namespace sds
