// What a shader reads at a hit: UVs with their derivatives, and a property of the host's polygon mesh.
#include <cstdio>

#include "cube_surface.h"
#include "sds/mesh_property/sds_mesh_property.h"

int main() {
    // Every face of the cube shows the whole unit square: four UV points, four indices per polygon.
    GeometryUvMap square;
    square.name = "uv";
    for (const float v : {0.0f, 1.0f})
        for (const float u : {0.0f, 1.0f}) square.vertices.add({u, v, 0.0f});
    for (unsigned int face = 0; face < 6; ++face)
        for (const unsigned int point : {0u, 1u, 3u, 2u}) square.indices.add(point);
    const CubeSurface cube(CoreArray<GeometryUvMap>(1, square));

    // A temperature per vertex: 0 on the lower four, 100 on the upper four.
    PolyMesh polygons;
    polygons.set_polygons(cube.counts, cube.indices, {});
    PolyMeshProperty temperature(polygons, "temperature", PolyMeshProperty::Type::per_vertex,
                                 ResourceProperty::Type::float32, 1);
    ResourceProperty values("temperature");
    values.init(ResourceProperty::Type::float32, 1, 8);
    for (unsigned int i = 0; i < 8; ++i) {
        const float value = i & 4 ? 100.0f : 0.0f;
        values.set_item_values(i, &value, 1);
    }
    temperature.set_values(GMathTimeSampling(), CoreArray<ResourceProperty>(1, values));
    SdsMeshProperty property(cube.mesh, temperature);
    if (!property.init(0, &values)) return 1;

    const CtxShader shader;
    CtxThread thread;
    const CtxEval ctx(shader, &thread);
    GeometryRay ray;
    ray.origin = {5.0, 0.2, 0.3};
    ray.direction = {-1.0, 0.0, 0.0};
    GeometryRaytraceCtx rays(&ray, 1, GeometryRaytraceData());
    for (unsigned int q = 0; q < cube.mesh.get_primitive_count(); ++q) cube.mesh.intersect_primitive(ctx, q, rays);
    if (ray.hit.primitive == 0xFFFFFFFF) return 1;

    const GeometryFragment hit{ray.hit.primitive, ray.hit.u, ray.hit.v, 0.0, 0.0};
    GMathVec3<double> uvw, duvw_du, duvw_dv;
    if (!cube.mesh.is_primitive_uv_mapped(hit.primitive, 0)) return 1;
    cube.mesh.compute_fragment_uvw(ctx, hit, 0, uvw, duvw_du, duvw_dv);
    double value, along_u, along_v;
    property.evaluate(ctx, hit, 0, &value, &along_u, &along_v, nullptr, 1);

    std::printf("quad %u: uv (%.4f, %.4f), temperature %.2f, changing by (%.2f, %.2f) along the patch\n", hit.primitive,
                uvw[0], uvw[1], value, along_u, along_v);
    return value > 50.0 && value < 100.0 ? 0 : 1;
}
