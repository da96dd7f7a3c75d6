#include "qn_ctx/ctx_eval.h"
#include "qn_geometry/geometry_fragment.h"
#include "qn_geometry/geometry_raytrace_ctx.h"
#include "qn_geometry/geometry_sample.h"
#include "sds/mesh/sds_mesh.h"
#include "sds/mesh_base/sds_mesh_base.h"
#include "sds/mesh_geometry/sds_mesh_geometry.h"
#include "sds/mesh_maps/sds_mesh_maps.h"

void use_library(unsigned int vertex_count, const CoreBasicArray<unsigned int>& indices,
                 const CoreArray<unsigned int>& counts, const CoreArray<unsigned int>& groups,
                 const CoreArray<CoreString>& group_names, const CoreArray<GMathVec3<float>>& positions,
                 const CoreArray<GeometryUvMap>& uv_maps, const CoreArray<GeometryColorMap>& color_maps,
                 const CtxEval& ctx, unsigned int quad, GeometryRaytraceCtx& rays, const GeometryFragment& fragment,
                 GeometrySample& sample) {
    // block
}
