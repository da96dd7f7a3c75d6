// Between the ray context and the ray-space kernels.
#pragma once

class CtxEval;
class GeometryRaytraceCtx;

namespace sds {

struct ControlLanes;

// The rays of the range against the limit surface of a patch. Logs how many splits and hits found no room.
void trace_limit_surface(const CtxEval& ctx, unsigned int primitive, const ControlLanes& controls,
                         GeometryRaytraceCtx& rays);

// The same against the flat cells of `count` levels.
void trace_flat_cells(const CtxEval& ctx, unsigned int primitive, const ControlLanes& controls,
                      GeometryRaytraceCtx& rays, unsigned int count);

}  // namespace sds
