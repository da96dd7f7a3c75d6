// From the ray context through a hierarchy of patches, and back.
#pragma once

#include "sds/common/control_lanes.h"
#include "sds/intersection/fast/patch_parts.h"

class CtxEval;
class GeometryRaytraceCtx;

namespace sds {

// What a search asks of the surface where the hierarchy keeps no cells.
class TreeSurface {
public:
    // Valid until the next call.
    virtual const ControlLanes& get_controls(const CtxEval& ctx, unsigned int patch) const = 0;
    // Levels of flat cells; limit_surface for all patches or none.
    virtual unsigned int get_level(unsigned int patch) const = 0;

protected:
    ~TreeSurface() = default;
};

// The nearest hit of each ray of the range, or any, in what the hierarchy holds; rays have no map. `shared_extent` as
// in trace_patch. Does nothing on a thread without scratch.
void trace_tree(const CtxEval& ctx, const RayTree& tree, const TreeSurface& surface, bool is_limit, float shared_extent,
                GeometryRaytraceCtx& rays);

}  // namespace sds
