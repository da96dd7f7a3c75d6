// The reference kernel family: subdivision in space with tests on boxes.
#pragma once

class CtxEval;
class GeometryRaytraceCtx;

namespace sds {

struct ControlLanes;

// The rays of the range against the limit surface of a patch. Logs how many splits were refused.
void trace_limit_reference(const CtxEval& ctx, unsigned int primitive, const ControlLanes& controls,
                           GeometryRaytraceCtx& rays);

// The same against the flat cells of `level_count` levels.
void trace_cells_reference(const CtxEval& ctx, unsigned int primitive, const ControlLanes& controls,
                           unsigned int level_count, GeometryRaytraceCtx& rays);

}  // namespace sds
