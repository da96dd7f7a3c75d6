// Surfaces in the renderer's scene: packets, single rays, occlusion and the scene-less way to the same patches agree.
#include <gtest/gtest.h>

#include <random>

#include "oracles/ray_checks.h"
#include "render/scene.h"

namespace sds_test {
namespace {

using sds_render::RenderThread;
using sds_render::Scene;

class Packets : public ::testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(Cages, Packets, ::testing::Values("assets/body", "assets/turned", "assets/knot"),
                         [](const auto& cage) { return case_name(cage.param); });

TEST_P(Packets, FindWhatSingleRaysFind) {
    const ZooMesh* cage = nullptr;
    for (const ZooMesh& candidate : cages_on_disk())
        if (candidate.name == GetParam()) cage = &candidate;
    ASSERT_NE(cage, nullptr);
    for (const unsigned int level : {0u, 2u, 4u}) {
        const BuiltSurface surface(*cage, {.level = level});
        const RayOracle oracle(surface.geometry, RayOracle::limit_surface);
        const PatchTracer direct(surface.mesh, oracle, fast_kernels);
        Scene scene;
        scene.add(surface.mesh);
        scene.commit();
        RenderThread thread(scene.get_shader_ctx());
        std::mt19937_64 random(level);
        std::uniform_real_distribution<double> unit(0.0, 1.0);
        const auto in_box = [&] {
            Vec3d p = oracle.bbox().get_min();
            for (unsigned int a = 0; a < 3; ++a) p[a] += unit(random) * (oracle.bbox().get_max()[a] - p[a]);
            return p;
        };
        unsigned int hits = 0;
        for (unsigned int round = 0; round < 400; ++round) {
            SCOPED_TRACE(testing::Message() << "level " << level << ", round " << round);
            // From one place through neighbouring points, or all over.
            const unsigned int count = 1 + round % RenderThread::packet_size;
            const Vec3d eye = in_box() + Vec3d{0.3, 0.4, 1.0} * (2.0 * oracle.diagonal()), center = in_box();
            std::vector<GeometryRay> rays(count);
            for (GeometryRay& ray : rays) {
                ray.origin = round % 2 == 0 ? eye : in_box();
                ray.direction = (round % 2 == 0 ? center + (in_box() - center) * 0.03 : in_box()) - ray.origin;
            }
            std::vector<GeometryRay> together = rays;
            std::vector<unsigned int> objects(count);
            scene.intersect_packet(together.data(), count, thread, objects.data());
            for (unsigned int i = 0; i < count; ++i) {
                GeometryRay single = rays[i], shadow = rays[i], plain = rays[i];
                const bool is_hit = scene.intersect(single, thread);
                direct.trace(plain, 0);
                EXPECT_EQ(objects[i] != 0xFFFFFFFF, is_hit);
                EXPECT_EQ(scene.occluded(shadow, thread), is_hit);
                hits += is_hit ? 1 : 0;
                for (const GeometryRay& other : {together[i], plain}) {
                    ASSERT_EQ(other.hit.primitive != 0xFFFFFFFF, is_hit);
                    if (is_hit) {
                        EXPECT_NEAR(other.hit.t, single.hit.t, 1e-5 * (1.0 + single.hit.t));
                    }
                }
            }
        }
        EXPECT_GT(hits, 500u);
    }
}

}  // namespace
}  // namespace sds_test
