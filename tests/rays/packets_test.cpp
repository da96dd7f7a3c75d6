// Surfaces in the renderer's scene: packets, single rays, occlusion and the scene-less way to the same patches agree.
#include <gtest/gtest.h>

#include <random>

#include "render/scene.h"
#include "support/ray_checks.h"

namespace sds_test {
namespace {

using sds_render::RenderThread;
using sds_render::Scene;

constexpr unsigned int no_primitive = 0xFFFFFFFF;

class Packets : public ::testing::TestWithParam<const char*> {
protected:
    // Rays of one packet: from one place through neighbouring points, or all over.
    static std::vector<GeometryRay> make_rays(const RayOracle& oracle, unsigned int count, bool is_coherent,
                                              std::mt19937_64& random) {
        std::uniform_real_distribution<double> unit(0.0, 1.0);
        const auto in_box = [&] {
            Vec3d p;
            for (unsigned int axis = 0; axis < 3; ++axis)
                p[axis] = oracle.bbox().get_min()[axis] +
                          unit(random) * (oracle.bbox().get_max()[axis] - oracle.bbox().get_min()[axis]);
            return p;
        };
        const Vec3d eye = in_box() + Vec3d{0.3, 0.4, 1.0} * (2.0 * oracle.diagonal());
        const Vec3d centre = in_box();
        std::vector<GeometryRay> rays(count);
        for (GeometryRay& ray : rays) {
            const Vec3d target = is_coherent ? centre + (in_box() - centre) * 0.03 : in_box();
            ray.origin = is_coherent ? eye : in_box();
            ray.direction = target - ray.origin;
        }
        return rays;
    }
};

INSTANTIATE_TEST_SUITE_P(Cages, Packets, ::testing::Values("assets/body", "assets/turned", "assets/knot"),
                         [](const auto& cage) { return case_name(cage.param); });

TEST_P(Packets, FindWhatSingleRaysFind) {
    const ZooMesh* cage = nullptr;
    for (const ZooMesh& candidate : cages_on_disk())
        if (candidate.name == GetParam()) cage = &candidate;
    ASSERT_NE(cage, nullptr);
    for (const unsigned int level : {0u, 2u, 4u}) {
        BuiltSurface::Options options;
        options.level = level;
        const BuiltSurface surface(*cage, options);
        const RayOracle oracle(surface.geometry, RayOracle::limit_surface);
        const PatchTracer direct(surface.mesh, oracle, fast_kernels);
        Scene scene;
        scene.add(surface.mesh);
        scene.commit();
        RenderThread thread(scene.get_shader_ctx());
        std::mt19937_64 random(level);
        unsigned int hits = 0;
        for (unsigned int round = 0; round < 400; ++round) {
            const unsigned int count = 1 + round % RenderThread::packet_size;
            const std::vector<GeometryRay> rays = make_rays(oracle, count, round % 2 == 0, random);
            std::vector<GeometryRay> together = rays;
            std::vector<unsigned int> objects(count);
            scene.intersect_packet(together.data(), count, thread, objects.data());
            for (unsigned int i = 0; i < count; ++i) {
                GeometryRay single = rays[i], shadow = rays[i], plain = rays[i];
                const bool is_hit = scene.intersect(single, thread);
                direct.trace(plain, 0);
                ASSERT_EQ(plain.hit.primitive != no_primitive, is_hit) << "level " << level << ", round " << round;
                ASSERT_EQ(together[i].hit.primitive != no_primitive, is_hit)
                    << "level " << level << ", round " << round;
                EXPECT_EQ(objects[i] != no_primitive, is_hit);
                EXPECT_EQ(scene.occluded(shadow, thread), is_hit);
                if (!is_hit) continue;
                ++hits;
                const double tolerance = 1e-5 * (1.0 + single.hit.t);
                EXPECT_NEAR(together[i].hit.t, single.hit.t, tolerance);
                EXPECT_NEAR(plain.hit.t, single.hit.t, tolerance);
            }
        }
        EXPECT_GT(hits, 500u);
    }
}

}  // namespace
}  // namespace sds_test
