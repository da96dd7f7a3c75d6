// The surface as user geometry of Embree: its tree finds the patch, the surface decides whether the ray hits it.
#include <embree3/rtcore.h>

#include <cstdio>
#include <limits>

#include "cube_surface.h"

namespace {

void give_bounds(const RTCBoundsFunctionArguments* arguments) {
    const SdsMesh& mesh = *static_cast<const SdsMesh*>(arguments->geometryUserPtr);
    const CtxShader shader;
    GMathBbox3<double> box;
    mesh.compute_primitive_bbox(CtxEval(shader), arguments->primID, box);
    const GMathVec3<float> low(box.get_min()), high(box.get_max());
    *arguments->bounds_o = {low[0], low[1], low[2], 0.0f, high[0], high[1], high[2], 0.0f};
}

void intersect(const RTCIntersectFunctionNArguments* arguments) {
    if (arguments->valid[0] == 0) return;  // rays come one by one from rtcIntersect1
    const SdsMesh& mesh = *static_cast<const SdsMesh*>(arguments->geometryUserPtr);
    RTCRayHit& query = *reinterpret_cast<RTCRayHit*>(arguments->rayhit);
    thread_local CtxThread thread;
    const CtxShader shader;

    GeometryRay ray;
    ray.origin = {query.ray.org_x, query.ray.org_y, query.ray.org_z};
    ray.direction = {query.ray.dir_x, query.ray.dir_y, query.ray.dir_z};
    ray.tnear = query.ray.tnear;
    ray.tfar = query.ray.tfar;
    GeometryRaytraceCtx rays(&ray, 1, GeometryRaytraceData());
    mesh.intersect_primitive(CtxEval(shader, &thread), arguments->primID, rays);
    if (ray.hit.primitive == 0xFFFFFFFF) return;

    query.ray.tfar = static_cast<float>(ray.hit.t);
    query.hit.geomID = arguments->geomID;
    query.hit.primID = arguments->primID;
    query.hit.instID[0] = arguments->context->instID[0];
    query.hit.u = static_cast<float>(ray.hit.u);
    query.hit.v = static_cast<float>(ray.hit.v);
}

}  // namespace

int main() {
    CubeSurface cube;
    RTCDevice device = rtcNewDevice(nullptr);
    RTCScene scene = rtcNewScene(device);
    rtcSetSceneFlags(scene, RTC_SCENE_FLAG_ROBUST);  // no ray slips between two boxes
    RTCGeometry geometry = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_USER);
    rtcSetGeometryUserPrimitiveCount(geometry, cube.mesh.get_primitive_count());
    rtcSetGeometryUserData(geometry, &cube.mesh);
    rtcSetGeometryBoundsFunction(geometry, give_bounds, nullptr);
    rtcSetGeometryIntersectFunction(geometry, intersect);
    rtcCommitGeometry(geometry);
    rtcAttachGeometry(scene, geometry);
    rtcReleaseGeometry(geometry);
    rtcCommitScene(scene);

    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    RTCRayHit query{};
    query.ray = {0.1f, 0.2f, 5.0f, 0.0f, 0.0f, 0.0f, -1.0f, 0.0f, std::numeric_limits<float>::infinity(), ~0u, 0, 0};
    query.hit.geomID = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(scene, &context, &query);
    rtcReleaseScene(scene);
    rtcReleaseDevice(device);

    std::printf("quad %u at (%.4f, %.4f), t = %.4f\n", query.hit.primID, static_cast<double>(query.hit.u),
                static_cast<double>(query.hit.v), static_cast<double>(query.ray.tfar));
    return query.hit.geomID == 0 && query.hit.primID == 1 ? 0 : 1;
}
