// Between the ray context and the ray-space kernels.
#pragma once

#include "qn_gmath/gmath_vec.h"

class CtxEval;
class GeometryRaytraceCtx;

namespace sds {

// The rays of the range against the limit surface of a patch; returns how many splits and hits found no room.
unsigned int trace_limit_surface(const CtxEval& ctx, unsigned int primitive, const GMathVec3<float>* controls,
                                 GeometryRaytraceCtx& rays);

// The same against the flat cells of `count` levels.
unsigned int trace_flat_cells(const CtxEval& ctx, unsigned int primitive, const GMathVec3<float>* controls,
                              GeometryRaytraceCtx& rays, unsigned int count);

}  // namespace sds
