#include "render/scene.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "test_objects.h"

namespace sds_render {
namespace {

using render_test::CountingCloud;
using render_test::Expected;
using render_test::find_nearest;
using render_test::FlatGrid;
using render_test::make_rays;
using render_test::make_spheres;
using render_test::SceneOf;
using render_test::SphereCloud;

constexpr double infinity = std::numeric_limits<double>::infinity();

TEST(Scene, OffersTheFirstOfEqualPrimitivesOnly) {
    std::vector<render_test::Sphere> spheres(100);
    spheres[50].radius = 0.5;
    const CountingCloud cloud(spheres);
    const SceneOf scene(cloud, Shutter{});
    RenderThread thread(scene.get_shader_ctx());
    GeometryRay ray;
    ray.origin = {0.1, 0.2, -5.0};
    ASSERT_TRUE(scene.intersect(ray, thread));
    EXPECT_EQ(ray.hit.primitive, 0u);
    EXPECT_LE(cloud.offer_count, 2u);
}

// Traces the rays one by one, in packets of every size, and for occlusion, and compares with `find_nearest`.
// `tolerance` is a distance.
void expect_nearest_hits(const SphereCloud& cloud, const Scene& scene, const std::vector<GeometryRay>& rays,
                         double tolerance) {
    RenderThread thread(scene.get_shader_ctx());
    unsigned int hit_count = 0;
    const auto expect_hit = [&](const GeometryRay& ray, unsigned int object, const Expected& expected, size_t i) {
        ASSERT_EQ(ray.hit.primitive != no_index, expected.primitive != no_index) << "ray " << i;
        if (expected.primitive == no_index) return;
        ASSERT_NEAR((ray.hit.t - expected.t) * ray.direction.length(), 0.0, tolerance) << "ray " << i;
        ASSERT_EQ(ray.hit.primitive, expected.primitive) << "ray " << i;
        ASSERT_EQ(ray.tfar, ray.hit.t) << "ray " << i;
        ASSERT_EQ(object, 0u) << "ray " << i;
    };
    std::vector<Expected> expected;
    for (size_t i = 0; i < rays.size(); ++i) {
        expected.push_back(find_nearest(cloud, rays[i]));
        hit_count += expected[i].primitive != no_index ? 1 : 0;
        GeometryRay ray = rays[i];
        unsigned int object = no_index;
        scene.intersect(ray, thread, &object);
        ASSERT_NO_FATAL_FAILURE(expect_hit(ray, object, expected[i], i));
        GeometryRay shadow = rays[i];
        ASSERT_EQ(scene.occluded(shadow, thread), expected[i].primitive != no_index) << "ray " << i;
    }
    EXPECT_GT(hit_count, rays.size() / 16) << "the rays should not all miss";
    EXPECT_LT(hit_count, rays.size()) << "nor all hit";

    unsigned int width = 1;
    for (size_t begin = 0; begin < rays.size(); begin += width, width = width % RenderThread::packet_size + 1) {
        GeometryRay packet[RenderThread::packet_size];
        unsigned int objects[RenderThread::packet_size];
        width = std::min(width, static_cast<unsigned int>(rays.size() - begin));
        std::copy_n(rays.begin() + static_cast<std::ptrdiff_t>(begin), width, packet);
        scene.intersect_packet(packet, width, thread, objects);
        for (unsigned int i = 0; i < width; ++i)
            ASSERT_NO_FATAL_FAILURE(expect_hit(packet[i], objects[i], expected[begin + i], begin + i));
        std::copy_n(rays.begin() + static_cast<std::ptrdiff_t>(begin), width, packet);
        scene.occluded_packet(packet, width, thread);
        for (unsigned int i = 0; i < width; ++i)
            ASSERT_EQ(packet[i].hit.primitive != no_index, expected[begin + i].primitive != no_index) << begin + i;
    }
    EXPECT_EQ(thread.hit_count, 4u * hit_count);
    EXPECT_EQ(thread.ray_count, 4u * rays.size());
}
void expect_nearest_hits(const SphereCloud& cloud, const Shutter& shutter, const std::vector<GeometryRay>& rays,
                         double tolerance) {
    expect_nearest_hits(cloud, SceneOf(cloud, shutter), rays, tolerance);
}

TEST(Scene, FindsTheNearestHitAtAnySizeAndDistance) {
    const struct {
        const char* name;
        Vec3 center;
        double size;
        double distance;
    } cases[] = {
        {"at the origin", {0, 0, 0}, 1.0, 3.0},      {"far from the origin", {148376, 1234, -223423}, 2.0, 3.0},
        {"seen from afar", {10, -20, 30}, 1.0, 1e5}, {"tiny", {0, 0, 0}, 1e-25, 3.0},
        {"huge", {1e24, -1e24, 2e24}, 1e25, 3.0},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        const SphereCloud cloud(make_spheres(200, each.center, each.size));
        const double tolerance = 1e-8 * each.size * each.distance + 1e-9 * each.center.length();
        expect_nearest_hits(cloud, Shutter{}, make_rays(4000, each.center, each.size, each.distance), tolerance);
    }
}

// Frames of other spheres in the same scene: some that stood in one place part, one vanishes and comes back, their
// number changes.
TEST(Scene, FollowsItsObjectsFromFrameToFrame) {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    for (const HierarchyUse use : {HierarchyUse::refitted, HierarchyUse::still}) {
        SphereCloud cloud(std::vector<render_test::Sphere>(200));
        Scene scene;
        scene.add(cloud);
        scene.commit(use);
        for (const double size : {1.0, 3.0, 0.2, 1.5, 1e-3}) {
            SCOPED_TRACE(size);
            const Vec3 center{10 * size, 0, -size};
            std::vector<render_test::Sphere> spheres = make_spheres(size == 1.5 ? 150 : 200, center, size);
            if (size == 0.2) spheres[17].center[0] = nan;
            cloud.set_spheres(spheres);
            scene.update();
            expect_nearest_hits(cloud, scene, make_rays(1000, center, size, 3.0), 3e-8 * size + 1e-9 * center.length());
            EXPECT_TRUE(scene.get_bbox().contains(spheres[0].center));
            EXPECT_LT(scene.get_radius(), 3.0 * size);
        }
    }
}

TEST(Scene, TiesGoToTheSmallerObjectThenPrimitive) {
    const FlatGrid first(16), second(16);
    Scene scene;
    scene.add(first);
    EXPECT_EQ(scene.add(second), 1u);
    scene.commit();
    RenderThread thread(scene.get_shader_ctx());
    // Slanted rays, exact in binary, into the corner of four squares: the last square's box comes first on their way.
    for (unsigned int line = 1; line < 16; ++line) {
        GeometryRay rays[8];
        unsigned int objects[8];
        for (unsigned int i = 0; i < 8; ++i) {
            const double corner = line / 16.0, slant = 1.0 / (1u << i);
            rays[i].origin = {corner + slant, corner + slant, 1.0};
            rays[i].direction = {-slant, -slant, -1.0};
        }
        GeometryRay singles[8];
        std::copy_n(rays, 8, singles);
        scene.intersect_packet(rays, 8, thread, objects);
        for (unsigned int i = 0; i < 8; ++i) {
            unsigned int object = no_index;
            ASSERT_TRUE(scene.intersect(singles[i], thread, &object));
            EXPECT_EQ(singles[i].hit.primitive, (line - 1) * 17) << i;
            EXPECT_EQ(rays[i].hit.primitive, (line - 1) * 17) << i;
            EXPECT_EQ(object, 0u);
            EXPECT_EQ(objects[i], 0u);
        }
    }
}

TEST(Scene, RaysWithoutSenseHitNothing) {
    const SphereCloud cloud({{{0, 0, 0}, 1.0}});
    const SceneOf scene(cloud);
    RenderThread thread(scene.get_shader_ctx());
    const double nan = std::numeric_limits<double>::quiet_NaN();
    std::vector<GeometryRay> rays(10);
    rays[0].direction = {0, 0, 0};
    rays[1].direction = {nan, 0, 1};
    rays[2].direction = {0, 0, infinity};
    rays[3].origin = {nan, 0, 0};
    rays[4].origin = {0, -infinity, 0};
    rays[5].tnear = nan;
    rays[6].tfar = nan;
    rays[7].tnear = 0.9, rays[7].tfar = 0.5;
    rays[8].tnear = 5.0;
    rays[9].tfar = -2.0;
    unsigned int objects[10];
    std::vector<GeometryRay> packet = rays;
    scene.intersect_packet(packet.data(), 10, thread, objects);
    for (size_t i = 0; i < rays.size(); ++i) {
        GeometryRay single = rays[i], shadow = rays[i];
        EXPECT_FALSE(scene.intersect(single, thread)) << i;
        EXPECT_FALSE(scene.occluded(shadow, thread)) << i;
        EXPECT_EQ(objects[i], no_index) << i;
    }
    GeometryRay backwards;  // a window before the origin is a window
    backwards.tnear = -infinity;
    backwards.tfar = 0.0;
    EXPECT_TRUE(scene.intersect(backwards, thread));
    EXPECT_DOUBLE_EQ(backwards.hit.t, -1.0);
}

TEST(Scene, LeavesOutPrimitivesWithoutABox) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const SphereCloud cloud({{{nan, 0, 0}, 1.0}, {{0, 0, 0}, 1.0}, {{5, 0, 0}, -1.0}, {{0, infinity, 0}, 1.0}});
    const SphereCloud nothing({{{nan, nan, nan}, 1.0}}), empty({});
    Scene scene;
    scene.add(empty);
    scene.add(nothing);
    scene.add(cloud);
    scene.commit();
    RenderThread thread(scene.get_shader_ctx());
    GeometryRay ray;
    unsigned int object = no_index;
    ASSERT_TRUE(scene.intersect(ray, thread, &object));
    EXPECT_EQ(object, 2u);
    EXPECT_EQ(ray.hit.primitive, 1u);
    EXPECT_EQ(scene.get_bbox().get_max()[0], 1.0);

    const SceneOf bare(nothing);
    EXPECT_TRUE(bare.get_bbox().is_empty());
    GeometryRay lost;
    EXPECT_FALSE(bare.intersect(lost, thread));
}

// From a thousandth of the square's size away to a hundred thousand times it.
TEST(Scene, FlatBoxesAndSharedEdgesLoseNoRay) {
    const FlatGrid grid(16);
    const SceneOf scene(grid);
    RenderThread thread(scene.get_shader_ctx());
    std::mt19937 random(7);
    std::uniform_int_distribution<int> line(1, 15);
    std::uniform_real_distribution<double> place(0.001, 0.999);
    for (int i = 0; i < 20000; ++i) {
        const Vec3 target{i % 2 == 0 ? line(random) / 16.0 : place(random), line(random) / 16.0, 0};
        GeometryRay ray;
        ray.origin = target + Vec3{place(random), place(random) - 0.5, 0.2 + place(random)} * std::pow(10.0, i % 9 - 3);
        ray.direction = target - ray.origin;
        ASSERT_TRUE(scene.intersect(ray, thread)) << i;
        ASSERT_NEAR(ray.hit.t, 1.0, 1e-12) << i;  // the direction ends on the target
    }
}

class MovingScene : public testing::TestWithParam<std::vector<double>> {};

TEST_P(MovingScene, FindsTheNearestHitAtEveryTime) {
    const Vec3 center{1000, 0, -2000};
    SphereCloud cloud(make_spheres(60, center, 1.0));
    std::vector<Vec3> offsets;
    std::mt19937 random(3);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    for (size_t i = 0; i < GetParam().size(); ++i) offsets.push_back({unit(random), unit(random), unit(random)});
    cloud.set_path(GetParam(), offsets);

    for (const Shutter& shutter : {Shutter{0.2, 0.9}, Shutter{-1.0, 2.0}, Shutter{0.5, 0.5}, Shutter{0.5, 0.5001}}) {
        SCOPED_TRACE(testing::Message() << "shutter " << shutter.open << " " << shutter.close);
        std::vector<GeometryRay> rays = make_rays(4000, center, 1.5, 3.0);
        for (size_t i = 0; i < rays.size(); ++i) {
            // Runs of equal times, as packets of one pixel may have, and times at the bends themselves.
            const double at = static_cast<double>(i / 3 % 101) / 100.0;
            rays[i].time = shutter.open + at * (shutter.close - shutter.open);
            const double bend = GetParam()[i % GetParam().size()];
            if (i % 7 == 0 && bend >= shutter.open && bend <= shutter.close) rays[i].time = bend;
        }
        expect_nearest_hits(cloud, shutter, rays, 1e-7);
    }
}

INSTANTIATE_TEST_SUITE_P(Paths, MovingScene,
                         testing::Values(std::vector<double>{0.0, 1.0}, std::vector<double>{0.0, 0.25, 0.5, 0.75, 1.0},
                                         std::vector<double>{0.0, 0.31, 0.33, 0.34, 0.8, 1.0},
                                         std::vector<double>{0.4, 0.6}));

TEST(Scene, GivesTheFrameItsMotionTimes) {
    SphereCloud cloud({{{0, 0, 0}, 1.0}});
    cloud.set_path({0.0, 0.5, 1.0}, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
    const SceneOf blurred(cloud, {0.25, 1.0}), still(cloud, {0.25, 0.25});
    const GMathTimeSampling& times = blurred.get_shader_ctx().get_motion_blur().get_time_sampling();
    ASSERT_EQ(times.get_sample_count(), 3u);
    EXPECT_EQ(times.get_sample_time(0), 0.25);
    EXPECT_EQ(times.get_sample_time(1), 0.5);
    EXPECT_EQ(times.get_sample_time(2), 1.0);
    EXPECT_EQ(still.get_shader_ctx().get_motion_blur().get_time_sampling().get_sample_count(), 0u);

    // Time 0, at which an object stands as it was built.
    cloud.set_path({-0.5, 0.5}, {{0, 0, 0}, {1, 0, 0}});
    const SceneOf around(cloud, {-0.25, 0.25});
    const GMathTimeSampling& with_rest = around.get_shader_ctx().get_motion_blur().get_time_sampling();
    ASSERT_EQ(with_rest.get_sample_count(), 3u);
    EXPECT_EQ(with_rest.get_sample_time(1), 0.0);
}

}  // namespace
}  // namespace sds_render
