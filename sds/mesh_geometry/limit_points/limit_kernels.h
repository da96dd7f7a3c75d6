// Points of the limit surface by the pair: two samples, each on a patch of its own, in the two groups of lanes.
//
// The kernels are plain functions on plain records, compiled once per instruction set from limit_kernels_body.inl and
// chosen at run time.
#pragma once

#include "sds/mesh_base/sds_mesh_base.h"

namespace sds {

// A surface of smooth patches at rest: four vertices and one record a patch, three floats a vertex, corner or tangent.
struct LimitSurface {
    const unsigned int* quads;
    const SdsMeshBase::BezierPatch* patches;
    const SdsMeshBase::PatchTangentInfo* infos;
    const float* vertices;
    const float* corners;
    const float* tangents;  // null when no patch has any
};

struct LimitPlaces {
    unsigned int primitives[2];
    float u[2];
    float v[2];
};

struct LimitKernels {
    const char* name;
    // Writes twelve floats to points[i] for sample i: position, derivatives per patch parameter, unit normal. Returns
    // in bit i whether sample i has derivatives that single precision does not tell from rounding or from parallel
    // ones: its normal means nothing then.
    unsigned int (*compute_pair)(const LimitSurface& surface, const LimitPlaces& places, float* const* points);
};

// The table of the best instruction set that the processor has.
const LimitKernels& get_limit_kernels();
// The tables that this build and processor have, baseline first; null ends the list.
const LimitKernels* const* get_all_limit_kernels();

extern const LimitKernels baseline_limit_kernels;
// Null when the build has none.
extern const LimitKernels* const avx2_limit_kernels;

}  // namespace sds
