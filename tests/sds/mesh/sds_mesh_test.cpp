#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "../surface_checks.h"
#include "oracles/ray_checks.h"
#include "oracles/surface_errors.h"
#include "qn_ctx/ctx_eval.h"
#include "sds/intersection/bezier_intersection.h"
#include "support/recorders.h"

namespace {

using namespace sds_test;

const CtxShader shader;

TEST(SdsMesh, LevelsAndScales) {
    const ZooMesh &quads = zoo_mesh("cube"), &step = zoo_mesh("tetrahedron");
    const struct {
        const ZooMesh& cage;
        unsigned int level;
        float scale;
    } cases[] = {{quads, 0, 1.0f}, {quads, 1, 2.0f}, {quads, 5, 32.0f},
                 {step, 1, 1.0f},  {step, 3, 4.0f},  {step, 0, -2147483648.0f}};
    for (const auto& c : cases) {
        const BuiltSurface surface(c.cage, {.level = c.level});
        EXPECT_EQ(surface.mesh.get_level_scale(), c.scale);
        EXPECT_EQ(surface.mesh.get_level_scale_inv(), 1.0f / c.scale);
    }
    EXPECT_EQ(SdsMesh().get_level_scale(), 0.0f);
}

TEST(SdsMesh, IndicesAreACopyAndInnerEdgesAreHidden) {
    const BuiltSurface surface(zoo_mesh("prism5_crease_loop"));
    CoreArray<unsigned int> indices(3, 9u);
    surface.mesh.get_primitive_indices(indices);
    ASSERT_EQ(indices.get_count(), 4 * surface.get_quad_count());
    EXPECT_NE(indices.get_data(), surface.base.get_quad_indices().get_data());
    for (unsigned int e = 0; e < indices.get_count(); ++e) {
        EXPECT_EQ(surface.mesh.is_primitive_edge_visible(e / 4, e % 4), e % 4 == 0 || e % 4 == 3);
        EXPECT_EQ(surface.mesh.is_primitive_edge_crease(e / 4, e % 4), surface.base.is_edge_crease(e));
    }
}

// A thread keeps control points from ray to ray: never those of another mesh, or of former positions.
TEST(SdsMeshRays, MeetTheSurfaceAsItIsNow) {
    CtxThread kept;
    const auto nearest = [](const SdsMesh& mesh, CtxThread& thread, unsigned int family) {
        GeometryRay ray;
        ray.origin = {0.1, -0.2, 9.0};
        ray.direction = {0.01, 0.02, -1.0};
        GeometryRaytraceData data;
        data.kernel_family = family;
        GeometryRaytraceCtx rays(&ray, 1, data);
        for (unsigned int i = 0; i < mesh.get_primitive_count(); ++i)
            mesh.intersect_primitive(CtxEval(shader, &thread), i, rays);
        return ray.tfar;
    };
    const auto check = [&](const SdsMesh& mesh) {
        CtxThread fresh;
        const double t = nearest(mesh, kept, fast_kernels);
        EXPECT_LT(t, 9.0);
        EXPECT_EQ(t, nearest(mesh, fresh, fast_kernels));
        EXPECT_NEAR(t, nearest(mesh, fresh, reference_kernels), 1e-4);
        return t;
    };
    const ZooMesh& cage = zoo_mesh("cube");
    for (const unsigned int level : {0u, 3u}) {
        const BuiltSurface other(zoo_mesh("tetrahedron"), {.level = level});
        BuiltSurface surface(cage, {.level = level});
        const double t = check(surface.mesh);
        EXPECT_NE(check(other.mesh), t);
        EXPECT_EQ(check(surface.mesh), t);
        CoreArray<Vec3f> larger(surface.geometry.get_vertices());
        for (Vec3f& point : larger) point = point * 1.5f;
        const SdsMeshGeometry former(surface.geometry);
        surface.geometry.set(surface.base, larger, {}, surface.geometry.get_interpolation_mode(), nullptr);
        EXPECT_LT(check(surface.mesh), t);
        surface.mesh.set(former, surface.maps, level, nullptr);
        EXPECT_EQ(check(surface.mesh), t);
    }
}

TEST(SdsMeshFrustum, ModesTwoAndThreeMarkTheFourVertices) {
    const BuiltSurface surface(zoo_mesh("tetrahedron"));
    CtxThread thread;
    const CtxEval ctx(shader, &thread);
    const GeometryFrustum everything;
    for (const int mode : {2, 3, 4, -1}) {
        std::vector<unsigned char> marks(surface.geometry.get_vertices().get_count(), 0);
        GeometryFrustumCtx frustum(&mode, &everything);
        frustum.vertex_marks = marks.data();
        frustum.partial_flag = 8;
        surface.mesh.intersect_primitive(ctx, 5, frustum);
        std::vector<unsigned char> expected(marks.size(), 0);
        if (mode == 2 || mode == 3)
            for (unsigned int k = 0; k < 4; ++k) expected[surface.base.get_quad_indices(5)[k]] = 1;
        EXPECT_EQ(marks, expected) << mode;
        EXPECT_EQ(frustum.selected_count, 0u);
        EXPECT_EQ(frustum.partial_flag, 8);
    }
}

// Whatever the kernels, at fixed levels the host's tree is taken from its root while they run.
TEST(SdsMeshRays, StartNodeIsTheRootDuringAFixedLevelAndThenAsBefore) {
    struct NodeCapture : LogCapture {
        explicit NodeCapture(const GeometryRaytraceCtx& context) : LogCapture(2), rays(context) {}
        void write(const unsigned int&, const CoreString&) override { nodes.push_back(rays.get_start_node()); }
        const GeometryRaytraceCtx& rays;
        std::vector<unsigned int> nodes;
    };
    // Finer than the kernels go, which they say in a line.
    const BuiltSurface surface(zoo_mesh("cube"), {.level = 30});
    CtxThread thread;
    const CtxEval ctx(shader, &thread);
    GeometryRay ray;
    ray.start({0.1, 0.2, 9.0}, {0, 0, -1});
    GeometryRaytraceCtx rays(&ray, 1, GeometryRaytraceData());
    rays.set_start_node(7);
    NodeCapture log(rays);
    for (unsigned int q = 0; q < surface.get_quad_count(); ++q) surface.mesh.intersect_primitive(ctx, q, rays);
    EXPECT_NE(ray.hit.primitive, 0xFFFFFFFFu);
    ASSERT_FALSE(log.nodes.empty());
    for (const unsigned int node : log.nodes) EXPECT_EQ(node, 0u);
    EXPECT_EQ(rays.get_start_node(), 7u);
}

// The level that the frustum sees: one plane that cuts off a bump which only enough cells notice.
TEST(SdsMeshFrustum, LevelsCountTheStepThatTheBaseTook) {
    for (const char* name : {"cube", "tetrahedron"})
        for (const unsigned int level : {0u, 1u, 2u, 4u}) {
            SCOPED_TRACE(testing::Message() << name << " level " << level);
            const BuiltSurface surface(zoo_mesh(name), {.level = level});
            const unsigned int taken = surface.base.get_base_tessellation_level() ? 1 : 0;
            CtxThread thread;
            const CtxEval ctx(shader, &thread);
            const int inside = 1;
            for (unsigned int i = 0; i < 60; ++i) {
                GeometryFrustum frustum;
                frustum.side_count = 1;
                frustum.sides[0] = {{0.3, -0.4, -1}, 0.6 + 0.01 * i};
                GeometryFrustumCtx found(&inside, &frustum), expected(&inside, &frustum);
                for (unsigned int q = 0; q < surface.get_quad_count(); ++q) {
                    Vec3f controls[16];
                    surface.geometry.get_bezier_controls(q, controls);
                    surface.mesh.intersect_primitive(ctx, q, found);
                    frustum_bezier_intersection(ctx, q, controls, expected, (level == 0 ? 3 : level) - taken);
                    EXPECT_EQ(found.selected_count, expected.selected_count);
                }
            }
        }
}

TEST(SdsMeshSample, LevelZeroAndForeignPrimitivesGoToTheLimit) {
    const BuiltSurface adaptive(zoo_mesh("cube")), cells(zoo_mesh("cube"), {.level = 2});
    const CtxEval ctx(shader);
    GeometrySample sample;
    adaptive.mesh.compute_fragment_sample(ctx, {2, 0.3, 0.8, 0, 0}, sample);
    EXPECT_EQ(sample.get_geometric_position(), sample_at(adaptive.geometry, 2, 0.3, 0.8).get_geometric_position());
    GeometrySample untouched;
    untouched.init_surface({9, 9, 9}, {1, 0, 0}, {0, 1, 0}, {0, 0, 0}, {0, 0, 0}, {0, 0, 0});
    cells.mesh.compute_fragment_sample(ctx, {6, 0.3, 0.8, 0, 0}, untouched);
    EXPECT_EQ(untouched.get_geometric_position(), Vec3d(9, 9, 9));
}

// At a fixed level the sample lies on the flat triangle between three limit points of the cell.
TEST(SdsMeshSample, CellSamplesAreFlatBetweenLimitPoints) {
    for (const char* name : {"cube", "tetrahedron", "torus"}) {
        const BuiltSurface surface(zoo_mesh(name), {.level = 2});
        const CtxEval ctx(shader);
        const double s = static_cast<double>(surface.mesh.get_level_scale());
        const auto limit = [&](unsigned int q, double u, double v) {
            return sample_at(surface.geometry, q, u, v).get_geometric_position();
        };
        for (unsigned int q = 0; q < surface.get_quad_count(); q += 3)
            for (const double u : {0.0, 0.1, 0.25, 0.6, 0.99, 1.0})
                for (const double v : {0.0, 0.2, 0.5, 0.74, 1.0}) {
                    SCOPED_TRACE(testing::Message() << name << " quad " << q << " at " << u << ", " << v);
                    GeometrySample sample;
                    surface.mesh.compute_fragment_sample(ctx, {q, u, v, 0, 0}, sample);
                    const double u0 = std::min(std::floor(u * s), s - 1) / s,
                                 v0 = std::min(std::floor(v * s), s - 1) / s;
                    const double x = (u - u0) * s, y = (v - v0) * s, h = 1 / s;
                    const Vec3d c0 = limit(q, u0, v0), c2 = limit(q, u0 + h, v0 + h);
                    const Vec3d side = x >= y ? limit(q, u0 + h, v0) : limit(q, u0, v0 + h);
                    const Vec3d du = x >= y ? side - c0 : c2 - side, dv = x >= y ? c2 - side : side - c0;
                    const Vec3d n = du.cross(dv) * (1.0 / du.cross(dv).length());
                    const Vec3d p = c0 + du * x + dv * y;
                    expect_near(sample.get_geometric_position(), p, 2e-6);
                    expect_near(sample.get_geometric_dpdu(), du * s, 2e-5);
                    expect_near(sample.get_geometric_dpdv(), dv * s, 2e-5);
                    expect_near(sample.get_geometric_normal(), n, 1e-4);
                    expect_near(sample.get_smoothing_normal(),
                                sample_at(surface.geometry, q, u, v).get_smoothing_normal(), 1e-9);
                }
    }
}

// Texture stays with the flat cell that a fragment lies on.
TEST(SdsMeshSample, TextureIsThatOfTheCellsCorner) {
    const BuiltSurface surface(zoo_mesh("sheet_uv_islands"), {.level = 2});
    const CtxEval ctx(shader);
    const auto uvw_at = [&](const auto& source, double u, double v) {
        Vec3d uvw, du, dv;
        source.compute_fragment_uvw(ctx, {0, u, v, 0, 0}, 0, uvw, du, dv);
        return uvw;
    };
    for (const double u : {0.0, 0.2, 0.25, 0.6, 0.999})
        for (const double v : {0.0, 0.3, 0.7})
            EXPECT_EQ(uvw_at(surface.mesh, u, v), uvw_at(surface.maps, std::floor(u * 4) / 4, std::floor(v * 4) / 4));
}

}  // namespace
