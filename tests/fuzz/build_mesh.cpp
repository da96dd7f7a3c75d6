#include <cmath>
#include <vector>

#include "fuzz/byte_source.h"
#include "fuzz/targets.h"
#include "qn_ctx/ctx_eval.h"
#include "qn_geometry/geometry_raytrace_ctx.h"
#include "qn_poly/poly_check.h"
#include "qn_poly/poly_crease_scope.h"
#include "sds/mesh/sds_mesh.h"

namespace {

using Vec3f = GMathVec3<float>;
using sds_fuzz::ByteSource;
using sds_fuzz::require;

struct Input {
    CoreArray<Vec3f> positions, motion, uv_points;
    CoreArray<unsigned int> counts, indices, groups, uv_indices;
    CoreArray<unsigned char> creases;

    // Indices are bytes, so that small meshes connect; 255 is none.
    explicit Input(ByteSource& bytes) {
        const auto flags = bytes.take<std::uint8_t>();
        const auto index = [&bytes] {
            const unsigned int i = bytes.take<std::uint8_t>();
            return i == 255 ? 0xFFFFFFFF : i;
        };
        const unsigned int vertex_count = bytes.take<std::uint8_t>() % 64u;
        for (unsigned int v = 0; v < vertex_count; ++v) positions.add({bytes.number(), bytes.number(), bytes.number()});
        const unsigned int polygon_count = bytes.take<std::uint8_t>() % 48u;
        unsigned int corner_count = 0;
        for (unsigned int p = 0; p < polygon_count; ++p) {
            counts.add(bytes.take<std::uint8_t>() % 12u);
            corner_count += counts[p];
            groups.add(bytes.take<std::uint8_t>() % 3u);
        }
        if ((flags & 1u) != 0) corner_count += bytes.take<std::int8_t>() & 1;
        for (unsigned int c = 0; c < corner_count; ++c) indices.add(index());
        if ((flags & 2u) != 0)
            for (unsigned int c = 0; c < corner_count; ++c) creases.add(bytes.take<std::uint8_t>() & 1u);
        if ((flags & 4u) != 0)
            for (unsigned int v = 0; v < vertex_count; ++v)
                motion.add({bytes.number(), bytes.number(), bytes.number()});
        if ((flags & 8u) != 0) {
            const unsigned int uv_count = bytes.take<std::uint8_t>();
            for (unsigned int i = 0; i < uv_count; ++i) uv_points.add({bytes.number(), bytes.number(), 0.0f});
            for (unsigned int c = 0; c < corner_count; ++c) uv_indices.add(index());
        }
    }

    bool is_good() const {
        PolyFindings findings;
        poly_check_mesh({positions, counts, indices, creases, groups, 2}, findings);
        if (!motion.is_empty()) poly_check_vectors(motion, positions.get_count(), PolyArray::motion, findings);
        if (!uv_indices.is_empty()) poly_check_uvs(uv_points, uv_indices, counts, findings);
        findings.for_each([&findings](PolyFindingCode code) { require(!findings.to_text(code).is_empty()); });
        return !findings.has_errors();
    }
};

bool is_finite(const GMathVec3<double>& v) { return std::isfinite(v[0]) && std::isfinite(v[1]) && std::isfinite(v[2]); }

}  // namespace

void sds_fuzz::build_mesh_bytes(const std::uint8_t* data, std::size_t size) {
    ByteSource bytes(data, size);
    const unsigned int modes = bytes.take<std::uint8_t>();
    const Input input(bytes);
    if (!input.is_good()) return;

    const PolyCreaseScope creases(input.creases);
    SdsMeshBase base;
    CoreArray<CoreString> names(2);
    base.set(input.positions.get_count(), input.indices, input.counts, input.groups, names, nullptr);
    SdsMeshGeometry geometry;
    geometry.set(base, input.positions, input.motion, static_cast<SdsMeshGeometry::InterpolationMode>(modes % 4u),
                 nullptr);
    CoreArray<GeometryUvMap> uv_maps;
    if (!input.uv_indices.is_empty()) uv_maps.add({CoreString("uv"), input.uv_points, input.uv_indices});
    SdsMeshMaps maps;
    maps.set(base, input.counts, uv_maps, {}, static_cast<SdsMeshMaps::InterpolationMode>((modes >> 2) % 7u), nullptr);
    SdsMesh mesh;
    mesh.set(geometry, maps, (modes >> 5) % 5u, nullptr);

    CtxShader shader;
    CtxThread thread;
    const CtxEval ctx(shader, &thread);
    require(std::isfinite(mesh.estimate_area(ctx, {})));
    GeometryRay ray;
    for (unsigned int axis = 0; axis < 3; ++axis) {
        ray.origin[axis] = static_cast<double>(bytes.number());
        ray.direction[axis] = static_cast<double>(bytes.number());
    }
    GeometryRaytraceData trace;
    trace.kernel_family = bytes.take<std::uint8_t>() & 1u;
    GeometryRaytraceCtx range(&ray, 1, trace);
    for (unsigned int q = 0; q < base.get_primitive_count(); ++q) {
        GeometrySample sample;
        mesh.compute_fragment_sample(ctx, {q, 0.25, 0.75, 0.5, 0.0}, sample);
        require(is_finite(sample.get_geometric_position()) && is_finite(sample.get_geometric_normal()) &&
                is_finite(sample.get_smoothing_normal()) && is_finite(sample.get_geometric_dndu()));
        if (maps.is_primitive_uv_mapped(q, 0)) {
            GMathVec3<double> uvw, du, dv;
            maps.compute_fragment_uvw(ctx, {q, 0.0, 1.0, 0.0, 0.0}, 0, uvw, du, dv);
            require(is_finite(uvw) && is_finite(du) && is_finite(dv));
        }
        if (q < 8) mesh.intersect_primitive(ctx, q, range);
    }
    if (ray.hit.primitive == 0xFFFFFFFF) return;
    require(ray.hit.primitive < base.get_primitive_count() && std::isfinite(ray.hit.t));
    require(ray.hit.u >= 0 && ray.hit.u <= 1 && ray.hit.v >= 0 && ray.hit.v <= 1);
}
