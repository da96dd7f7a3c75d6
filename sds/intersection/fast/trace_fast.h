// Between the ray context and the ray-space kernels.
#pragma once

class CtxEval;
class GeometryRaytraceCtx;

namespace sds {

struct ControlLanes;

// The rays of the range against the limit surface of a patch. Logs which of its limits it met. `shared_extent` is 0, or
// the largest coordinate of a surface whose patches share parts of edges.
void trace_limit_fast(const CtxEval& ctx, unsigned int primitive, const ControlLanes& controls, float shared_extent,
                      GeometryRaytraceCtx& rays);

// The same against the flat cells of `level_count` levels.
void trace_cells_fast(const CtxEval& ctx, unsigned int primitive, const ControlLanes& controls,
                      unsigned int level_count, float shared_extent, GeometryRaytraceCtx& rays);

}  // namespace sds
