#include <cmath>

#include "fuzz/byte_source.h"
#include "fuzz/targets.h"
#include "qn_ctx/ctx_eval.h"
#include "qn_geometry/geometry_frustum_ctx.h"
#include "qn_geometry/geometry_raytrace_ctx.h"
#include "sds/intersection/bezier_intersection.h"

namespace {

GMathVec3<double> take_vector(sds_fuzz::ByteSource& bytes) {
    const float x = bytes.number(), y = bytes.number(), z = bytes.number();
    return GMathVec3<double>(GMathVec3<float>(x, y, z));
}

}  // namespace

void sds_fuzz::trace_patch_bytes(const std::uint8_t* data, std::size_t size) {
    ByteSource bytes(data, size);
    const unsigned int choice = bytes.take<std::uint8_t>();
    GMathVec3<float> controls[16];
    for (GMathVec3<float>& point : controls) point = GMathVec3<float>(take_vector(bytes));

    const CtxShader shader;
    CtxThread thread;
    const CtxEval ctx(shader, &thread);
    constexpr unsigned int ray_count = 3;
    GeometryRay rays[ray_count];
    for (GeometryRay& ray : rays) {
        ray.origin = take_vector(bytes);
        ray.direction = take_vector(bytes);
        ray.mode = (choice & 64u) != 0 ? GeometryRayMode::any : GeometryRayMode::closest;
    }
    rays[1].tnear = static_cast<double>(bytes.number());
    rays[1].tfar = static_cast<double>(bytes.number());
    GeometryRaytraceData trace;
    trace.kernel_family = choice & 1u;
    GeometryRaytraceCtx range(rays, ray_count, trace);
    const unsigned int level = (choice >> 1) & 7u;
    if (level == 0)
        ray_bezier_intersection_adaptive(ctx, 5, controls, range);
    else
        ray_bezier_intersection_estimate(ctx, 5, controls, range, level - 1);
    for (const GeometryRay& ray : rays) {
        if (ray.hit.primitive == 0xFFFFFFFF) continue;
        require(ray.hit.primitive == 5 && std::isfinite(ray.hit.t) && ray.hit.t >= ray.tnear);
        require(ray.hit.u >= 0 && ray.hit.u <= 1 && ray.hit.v >= 0 && ray.hit.v <= 1);
    }

    GeometryFrustum frustum;
    frustum.side_count = bytes.take<std::uint8_t>() % 5u;
    for (GeometryPlane& plane : frustum.sides) plane = {take_vector(bytes), static_cast<double>(bytes.number())};
    const int mode = (choice >> 4) & 1;
    GeometryFrustumCtx selection(&mode, &frustum);
    frustum_bezier_intersection(ctx, 5, controls, selection, level);
    require(selection.selected_count <= 1);
}
