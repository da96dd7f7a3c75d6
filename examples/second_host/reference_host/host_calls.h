// What a program does in the reference host's own way.
#pragma once

#include <string>

#include "qn_ctx/ctx_eval.h"
#include "qn_poly/poly_crease_scope.h"
#include "sds/mesh_property/sds_mesh_property.h"

class Creases {
public:
    void add(unsigned int a, unsigned int b) {
        m_ends.add(a);
        m_ends.add(b);
    }
    template <class Work>
    void apply(const CoreArray<unsigned int>& counts, const CoreArray<unsigned int>& indices, Work&& work) const {
        CoreArray<unsigned char> flags(indices.get_count(), 0);
        unsigned int first = 0;
        for (const unsigned int count : counts) {
            for (unsigned int k = 0; k < count; ++k)
                flags[first + k] = has(indices[first + k], indices[first + (k + 1) % count]);
            first += count;
        }
        const PolyCreaseScope scope(flags);
        work();
    }

private:
    bool has(unsigned int a, unsigned int b) const {
        for (unsigned int i = 0; i < m_ends.get_count(); i += 2)
            if ((m_ends[i] == a && m_ends[i + 1] == b) || (m_ends[i] == b && m_ends[i + 1] == a)) return true;
        return false;
    }
    CoreArray<unsigned int> m_ends;
};

class HostProperty {
public:
    HostProperty(const CoreArray<unsigned int>& counts, const CoreArray<unsigned int>& indices,
                 const ResourceProperty& values)
        : m_property(m_mesh, values.get_name(), PolyMeshProperty::Type::per_vertex, values.get_type(),
                     values.get_extent()) {
        m_mesh.set_polygons(counts, indices, {});
        m_property.set_values(GMathTimeSampling(), CoreArray<ResourceProperty>(1, values));
    }
    const PolyMeshProperty& get() const { return m_property; }

private:
    PolyMesh m_mesh;
    PolyMeshProperty m_property;
};

// The value and its derivatives along u and v.
inline GMathVec3<double> evaluate(const SdsMeshProperty& property, const CtxEval& ctx,
                                  const GeometryFragment& fragment) {
    GMathVec3<double> out;
    property.evaluate(ctx, fragment, 0, &out[0], &out[1], &out[2], nullptr, 1);
    return out;
}

inline std::string trace(const SdsMesh& mesh, const CtxEval& ctx, const GMathVec3<double>& origin,
                         const GMathVec3<double>& direction) {
    GeometryRay ray;
    ray.origin = origin;
    ray.direction = direction;
    GeometryRaytraceCtx rays(&ray, 1, GeometryRaytraceData());
    for (unsigned int q = 0; q < mesh.get_primitive_count(); ++q) mesh.intersect_primitive(ctx, q, rays);
    char text[100];
    std::snprintf(text, sizeof text, "hit %d %.3f %.3f %.3f", static_cast<int>(ray.hit.primitive), ray.hit.u, ray.hit.v,
                  ray.hit.t);
    return text;
}

inline unsigned int count_beyond(const SdsMesh& mesh, const CtxEval& ctx, double x) {
    GeometryFrustum half_space;
    half_space.side_count = 1;
    half_space.sides[0] = {{1, 0, 0}, -x};
    const int mode = 1;
    GeometryFrustumCtx selection(&mode, &half_space);
    for (unsigned int q = 0; q < mesh.get_primitive_count(); ++q) mesh.intersect_primitive(ctx, q, selection);
    return selection.selected_count;
}
