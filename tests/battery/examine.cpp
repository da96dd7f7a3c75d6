#include "battery/examine.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string_view>

#include "qn_ctx/ctx_eval.h"
#include "qn_geometry/geometry_raytrace_ctx.h"
#include "qn_sys/sys_thread.h"

namespace sds_test {

namespace {

void expect_finite(const CoreBasicArray<Vec3f>& vectors, const char* what) {
    for (unsigned int i = 0; i < vectors.get_count(); ++i) ASSERT_TRUE(vectors[i].is_finite()) << what << " " << i;
}

void expect_finite(const SdsMesh& mesh, const GeometryFragment& fragment, Vec3d& position) {
    const CtxShader shader;
    GeometrySample sample;
    mesh.compute_fragment_sample(CtxEval(shader), fragment, sample);
    position = sample.get_geometric_position();
    for (const Vec3d& v :
         {position, sample.get_geometric_dpdu(), sample.get_geometric_dpdv(), sample.get_geometric_normal(),
          sample.get_smoothing_normal(), sample.get_geometric_dndu(), sample.get_geometric_dndv()})
        ASSERT_TRUE(v.is_finite()) << "quad " << fragment.primitive << " at " << fragment.u << ", " << fragment.v;
}

// Three rays at a point of one primitive: what they hit is a place on it.
void expect_sane_hits(const SdsMesh& mesh, unsigned int primitive, const Vec3d& target, double size) {
    const CtxShader shader;
    CtxThread thread;
    const CtxEval ctx(shader, &thread);
    GeometryRay rays[3];
    for (unsigned int axis = 0; axis < 3; ++axis) {
        rays[axis].direction = {axis == 0 ? 1.0 : 0.1, axis == 1 ? 1.0 : 0.2, axis == 2 ? 1.0 : -0.1};
        rays[axis].origin = target - rays[axis].direction * size;
    }
    for (const unsigned int family : primitive == 0 ? std::vector{0u, 1u} : std::vector{0u})
        for (GeometryRay& original : rays) {
            GeometryRay ray = original;
            GeometryRaytraceData data;
            data.kernel_family = family;
            GeometryRaytraceCtx range(&ray, 1, data);
            range.set_reference_point(target);
            mesh.intersect_primitive(ctx, primitive, range);
            if (ray.hit.primitive == 0xFFFFFFFF) continue;
            EXPECT_EQ(ray.hit.primitive, primitive);
            EXPECT_TRUE(ray.hit.u >= 0 && ray.hit.u <= 1 && ray.hit.v >= 0 && ray.hit.v <= 1 &&
                        std::isfinite(ray.hit.t))
                << "quad " << primitive;
        }
}

}  // namespace

std::uint64_t hash_of(const BuiltSurface& surface) {
    std::uint64_t hash = 0;
    const auto add = [&hash]<class T>(const CoreBasicArray<T>& array) {
        const auto* bytes = reinterpret_cast<const char*>(array.get_data());
        hash = 31 * hash + std::hash<std::string_view>{}({bytes, sizeof(T) * array.get_count()});
    };
    add(surface.base.get_quad_indices());
    add(surface.base.get_edges().opposite_edges);
    add(surface.base.get_edges().quad_edge_flags);
    add(surface.geometry.get_vertices());
    add(surface.geometry.get_motion_vectors());
    add(surface.geometry.get_vertex_infos());
    add(surface.geometry.get_tangent_infos());
    add(surface.geometry.get_bezier_patches());
    add(surface.geometry.get_bezier_corners());
    add(surface.geometry.get_bezier_tangents_array());
    for (unsigned int p = 0; surface.geometry.is_refined() && p < surface.geometry.get_patch_count(); ++p) {
        Vec3f points[16 + 24];
        surface.geometry.get_bezier_controls(p, points);
        surface.geometry.get_bezier_tangents(p, points + 16);
        add(CoreBasicArray<Vec3f>(40, points));
    }
    for (unsigned int m = 0; m < surface.maps.get_uv_map_count(); ++m) {
        add(surface.maps.get_uv_map(m).vertices);
        add(surface.maps.get_uv_map(m).corners);
    }
    return hash;
}

PolyFindings check_cage(const ZooMesh& mesh) {
    PolyFindings findings;
    const CoreArray<unsigned int> counts = to_core_array(mesh.counts), groups(counts.get_count(), 0u);
    poly_check_mesh({to_core_array(mesh.positions), counts, to_core_array(mesh.indices),
                     to_core_array(mesh.corner_creases), groups, 1},
                    findings);
    if (mesh.is_in(uvs) && !findings.has_errors())
        poly_check_uvs(to_core_array(mesh.uv_points), to_core_array(mesh.uv_indices), counts, findings);
    return findings;
}

void expect_finite(const BuiltSurface& surface) {
    expect_finite(surface.geometry.get_vertices(), "vertex");
    expect_finite(surface.geometry.get_bezier_corners(), "limit corner");
    expect_finite(surface.geometry.get_bezier_tangents_array(), "tangent");
    for (unsigned int m = 0; m < surface.maps.get_uv_map_count(); ++m) {
        expect_finite(surface.maps.get_uv_map(m).vertices, "UV vertex");
        expect_finite(surface.maps.get_uv_map(m).corners, "UV limit corner");
    }
    const CtxShader shader;
    EXPECT_TRUE(std::isfinite(surface.geometry.estimate_area(CtxEval(shader), {})));
    const GMathBbox3<double> box = surface.mesh.get_bbox();
    if (surface.get_quad_count() != 0) {
        EXPECT_TRUE(box.get_min().is_finite() && box.get_max().is_finite());
    }

    const double size = (box.get_max() - box.get_min()).length();
    const unsigned int step = 1 + surface.get_quad_count() / 20;
    for (unsigned int q = 0; q < surface.get_quad_count(); q += step)
        for (const double u : {0.0, 0.3, 1.0})
            for (const double v : {0.0, 0.7, 1.0}) {
                Vec3d position;
                expect_finite(surface.mesh, {q, u, v, 0.0, 0.0}, position);
                if (::testing::Test::HasFatalFailure()) return;
                if (u == 0.3) expect_sane_hits(surface.mesh, q, position, size);
                if (surface.maps.is_primitive_uv_mapped(q, 0)) {
                    Vec3d uvw, du, dv;
                    surface.maps.compute_fragment_uvw(CtxEval(shader), {q, u, v, 0.0, 0.0}, 0, uvw, du, dv);
                    ASSERT_TRUE(uvw.is_finite() && du.is_finite() && dv.is_finite()) << "UV of quad " << q;
                }
            }
}

void examine(const ZooMesh& mesh, const std::vector<PolyFindingCode>& expected) {
    const PolyFindings findings = check_cage(mesh);
    for (unsigned int c = 0; c < poly_finding_code_count; ++c) {
        const auto code = static_cast<PolyFindingCode>(c);
        const bool is_expected = std::find(expected.begin(), expected.end(), code) != expected.end();
        EXPECT_EQ(findings.count(code) != 0, is_expected) << poly_finding_text(code).name;
    }
    if (findings.has_errors()) return;
    using Mode = SdsMeshGeometry::InterpolationMode;
    for (const Mode mode : {Mode::corners_fixed, Mode::all_smoothed, Mode::all_fixed}) {
        SCOPED_TRACE("mode " + std::to_string(static_cast<int>(mode)));
        BuiltSurface::Options options;
        options.mode = mode;
        options.level = mode == Mode::all_smoothed ? 2 : 0;
        if (mode != Mode::all_smoothed) options.motion_vectors = mesh.positions;
        std::uint64_t hashes[2];
        for (unsigned int i = 0; i < 2; ++i) {
            SysThreadArena arena(i == 0 ? 1 : 4);
            arena.execute([&] {
                const BuiltSurface surface(mesh, options);
                hashes[i] = hash_of(surface);
                if (i == 0) expect_finite(surface);
            });
        }
        EXPECT_EQ(hashes[0], hashes[1]) << "one thread and four";
        if (mesh.counts.size() > 10000) break;
    }
}

}  // namespace sds_test
