// Rays and fragments that no renderer should send.
#include <gtest/gtest.h>

#include <cmath>

#include "battery/examine.h"
#include "qn_ctx/ctx_eval.h"
#include "qn_geometry/geometry_raytrace_ctx.h"

namespace sds_test {
namespace {

struct RayCase {
    const char* name;
    Vec3d origin, direction;
    // The bulging sheet is met once, at t between 1 and 3 for a direction of length 1.
    bool hits = true;
    bool fast_only = false;  // beyond what the reference kernels' single precision takes
};

const RayCase ray_cases[] = {
    {"long direction", {0.45, 0.55, 2}, {0, 0, -1e15}},
    {"short direction", {0.45, 0.55, 2}, {0, 0, -1e-15}},
    {"longest direction", {0.45, 0.55, 2}, {0, 0, -9.99e29}, true, true},
    {"shortest direction", {0.45, 0.55, 2}, {0, 0, -1.01e-30}, true, true},
    {"beyond the longest", {0.45, 0.55, 2}, {0, 0, -1.01e30}, false, true},
    {"beyond the shortest", {0.45, 0.55, 2}, {0, 0, -9.9e-31}, false, true},
    {"denormal direction", {0.45, 0.55, 2}, {0, 0, -5e-324}, false},
    {"-0 in the direction", {0.45, 0.55, 2}, {-0.0, -0.0, -1}},
    {"far away", {0.45, 0.55, 1e9}, {0, 0, -1}},
};

TEST(BatteryRays, EndInAHitThatCanBeOrInNone) {
    for (const unsigned int level : {0u, 1u, 4u}) {
        const BuiltSurface surface(zoo_mesh("sheet"), {.level = level});
        const CtxShader shader;
        CtxThread thread;
        const CtxEval ctx(shader, &thread);
        for (const RayCase& each : ray_cases)
            for (const unsigned int family : {0u, 1u}) {
                if (each.fast_only && family != 0) continue;
                SCOPED_TRACE(std::string(each.name) + ", level " + std::to_string(level) + ", kernels " +
                             std::to_string(family));
                GeometryRay ray;
                ray.origin = each.origin;
                ray.direction = each.direction;
                GeometryRaytraceData data;
                data.kernel_family = family;
                GeometryRaytraceCtx range(&ray, 1, data);
                for (unsigned int q = 0; q < surface.get_quad_count(); ++q)
                    surface.mesh.intersect_primitive(ctx, q, range);
                ASSERT_EQ(ray.hit.primitive != 0xFFFFFFFF, each.hits);
                if (!each.hits) continue;
                GeometrySample sample;
                surface.mesh.compute_fragment_sample(ctx, {ray.hit.primitive, ray.hit.u, ray.hit.v, 0, 0}, sample);
                const Vec3d place = each.origin + each.direction * ray.hit.t;
                EXPECT_LE((sample.get_geometric_position() - place).length(), 1e-5 + 1e-15 * each.origin[2]);
            }
    }
}

// Whatever time a fragment or ray is at, a moving surface answers with numbers; before the first sample and after the
// last the surface stands still.
TEST(BatteryRays, AnyTimeOfAMovingSurface) {
    const ZooMesh& cage = zoo_mesh("torus");
    const BuiltSurface surface(cage, {.motion_vectors = std::vector<Vec3f>(cage.positions.size(), {0.1f, 0, 0})});
    CtxShader shader;
    const double times[] = {0.0, 1.0};
    shader.get_motion_blur().set_time_sampling(
        GMathTimeSampling(CoreBasicArray<double>(2, const_cast<double*>(times))));
    for (const double time : {0.0, -0.0, 0.5, -1e30, 1e30, 5e-324, std::nan("")}) {
        GeometrySample sample;
        surface.mesh.compute_fragment_sample(CtxEval(shader), {3, 0.5, 0.5, time, 0}, sample);
        const Vec3d p = sample.get_geometric_position();
        EXPECT_TRUE(std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2])) << "time " << time;
        EXPECT_TRUE(std::isfinite(sample.get_smoothing_normal()[0])) << "time " << time;
    }
}

}  // namespace
}  // namespace sds_test
