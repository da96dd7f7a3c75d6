// A cube's limit surface from plain arrays, and a ray against it.
#include <cstdio>

#include "qn_ctx/ctx_eval.h"
#include "sds/mesh/sds_mesh.h"

int main() {
    CoreArray<GMathVec3<float>> positions(8);
    for (unsigned int i = 0; i < 8; ++i)
        positions[i] = {i & 1 ? 1.0f : -1.0f, i & 2 ? 1.0f : -1.0f, i & 4 ? 1.0f : -1.0f};
    unsigned int indices[] = {0, 2, 3, 1, 4, 5, 7, 6, 0, 1, 5, 4, 2, 6, 7, 3, 0, 4, 6, 2, 1, 3, 7, 5};
    const CoreArray<unsigned int> counts(6, 4), groups(6, 0);
    const CoreArray<CoreString> group_names(1, "cube");

    SdsMeshBase base;  // topology
    base.set(8, {24, indices}, counts, groups, group_names, nullptr);
    SdsMeshGeometry geometry;  // positions, patches, boxes
    geometry.set(base, positions, {}, SdsMeshGeometry::InterpolationMode::corners_fixed, nullptr);
    SdsMeshMaps maps;  // no UVs, no colors
    maps.set(base, counts, {}, {}, SdsMeshMaps::InterpolationMode::corners_fixed, nullptr);
    SdsMesh surface;  // level 0: the limit surface itself
    surface.set(geometry, maps, 0, nullptr);

    const CtxShader shader;
    CtxThread thread;
    const CtxEval ctx(shader, &thread);
    GeometryRay ray;
    ray.origin = {0.1, 0.2, 5.0};
    ray.direction = {0.0, 0.0, -1.0};
    GeometryRaytraceCtx rays(&ray, 1, GeometryRaytraceData());
    for (unsigned int q = 0; q < surface.get_primitive_count(); ++q) surface.intersect_primitive(ctx, q, rays);

    GeometrySample sample;
    surface.compute_fragment_sample(ctx, {ray.hit.primitive, ray.hit.u, ray.hit.v, 0.0, 0.0}, sample);
    const GMathVec3<double>& n = sample.get_smoothing_normal();
    std::printf("quad %u at (%.3f, %.3f), t = %.4f, normal (%.3f, %.3f, %.3f)\n", ray.hit.primitive, ray.hit.u,
                ray.hit.v, ray.hit.t, n[0], n[1], n[2]);
    return ray.hit.primitive == 0xFFFFFFFF ? 1 : 0;
}
