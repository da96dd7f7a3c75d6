// The one way to a ray kernel.
#pragma once

#include "sds/common/control_lanes.h"

class CtxEval;
class GeometryRaytraceCtx;

namespace sds {

// In place of a level: the limit patch itself.
inline constexpr unsigned int limit_surface = 0xFFFFFFFF;

// The rays of the range against the 2^level x 2^level flat cells of a patch, by the kernels that the context asks for.
// Does nothing on a thread without scratch. Where patches share parts of edges, `shared_extent` is the largest
// coordinate of the surface: in the plane across a ray their points are not the same to the bit there, and patches and
// cells are wider by as much.
void trace_patch(const CtxEval& ctx, unsigned int primitive, const ControlLanes& controls, unsigned int level,
                 GeometryRaytraceCtx& rays, float shared_extent = 0.0f);

}  // namespace sds
