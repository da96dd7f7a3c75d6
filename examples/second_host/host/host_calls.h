// What a program does in this host's own way.
#pragma once

#include "host/poly.h"
#include "sds/mesh_property/sds_mesh_property.h"

class Creases {
public:
    void add(unsigned int a, unsigned int b) { m_pairs.emplace_back(a, b); }
    template <class Work>
    void apply(const CoreArray<unsigned int>&, const CoreArray<unsigned int>&, Work&& work) const {
        second_host_creases = m_pairs;
        work();
        second_host_creases.clear();
    }

private:
    std::vector<std::pair<unsigned int, unsigned int>> m_pairs;
};

class HostProperty {
public:
    HostProperty(const CoreArray<unsigned int>& counts, const CoreArray<unsigned int>& indices,
                 const ResourceProperty& values)
        : m_mesh(counts, indices), m_property(m_mesh, PolyMeshProperty::Type::per_vertex, values) {}
    const PolyMeshProperty& get() const { return m_property; }

private:
    PolyMesh m_mesh;
    PolyMeshProperty m_property;
};

inline GMathVec3<double> evaluate(const SdsMeshProperty& property, const CtxEval& ctx,
                                  const GeometryFragment& fragment) {
    GMathVec3<double> out;
    property.evaluate(property, ctx, fragment, 0, &out[0], &out[1], &out[2], nullptr, 1);
    return out;
}

inline std::string trace(const SdsMesh& mesh, const CtxEval& ctx, const GMathVec3<double>& origin,
                         const GMathVec3<double>& direction) {
    GeometryRay ray;
    ray.origin = origin;
    ray.direction = direction;
    GeometryRaytraceCtx rays(ray);
    for (unsigned int q = 0; q < mesh.get_primitive_count(); ++q) mesh.intersect_primitive(ctx, q, rays);
    char text[100];
    std::snprintf(text, sizeof text, "hit %d %.3f %.3f %.3f", static_cast<int>(ray.primitive), ray.u, ray.v, ray.tfar);
    return text;
}

inline unsigned int count_beyond(const SdsMesh& mesh, const CtxEval& ctx, double x) {
    GeometryFrustumCtx selection;
    selection.mode = 1;
    selection.frustum.side_count = 1;
    selection.frustum.sides[0] = {{1, 0, 0}, -x};
    for (unsigned int q = 0; q < mesh.get_primitive_count(); ++q) mesh.intersect_primitive(ctx, q, selection);
    return selection.selected_count;
}
