// What both kernel families promise alike, at fixed levels and on the limit surface.
#include <algorithm>
#include <limits>

#include "one_patch.h"
#include "sds/intersection/fast/ray_kernels.h"

namespace sds_test {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr unsigned int limit = RayOracle::limit_surface;

class Kernels : public ::testing::TestWithParam<KernelChoice> {
protected:
    KernelBench m_bench{GetParam().family, GetParam().count};
    // How far a hit may be from the limit surface, whose size is 1.
    double m_tolerance = GetParam().count == limit ? 2e-5 : 2.0 * std::pow(0.25, GetParam().count);
};

INSTANTIATE_TEST_SUITE_P(All, Kernels,
                         ::testing::Values(KernelChoice{fast_kernels, 3}, KernelChoice{fast_kernels, 5},
                                           KernelChoice{fast_kernels, limit}, KernelChoice{reference_kernels, 3},
                                           KernelChoice{reference_kernels, 5}, KernelChoice{reference_kernels, limit}),
                         ::testing::PrintToStringParamName());

TEST_P(Kernels, RangeIsHalfOpenAndMayBeNegative) {
    const auto trace = [&](double direction, double near, double far) {
        GeometryRay ray = make_ray({0.3, 0.4, 1.0}, {0, 0, direction});
        ray.tnear = near;
        ray.tfar = far;
        const GeometryHit hit = m_bench.trace(make_flat_patch(), ray).hit;
        if (hit.primitive == 0) {
            EXPECT_NEAR(hit.t, -direction, 1e-6);
        }
        return hit.primitive == 0;
    };
    for (const auto& [near, far] : {std::pair(0.0, infinity), {1.0, 2.0}, {-infinity, infinity}, {0.999, 1.001}})
        EXPECT_TRUE(trace(-1, near, far)) << near << " to " << far;
    for (const auto& [near, far] : {std::pair(0.0, 1.0), {1.001, 2.0}, {2.0, 0.5}, {0.0, -infinity}})
        EXPECT_FALSE(trace(-1, near, far)) << near << " to " << far;
    for (const double near : {-1.0, -1.5, -1e6, -infinity}) EXPECT_TRUE(trace(1, near, infinity)) << near;
    EXPECT_FALSE(trace(1, 0.0, infinity));
}

// Straight down on the border, which is a side of every box there, far from the place that rays are moved to.
TEST_P(Kernels, BordersAreHitByRaysInThePlaneOfABox) {
    PatchControls patch = make_flat_patch();
    for (Vec3f& p : patch) p[2] = 2.0f;
    for (const double side : {0.0, 1.0})
        for (const double along : {0.0, 0.3, 0.5, 0.77, 1.0})
            for (const double sign : {1.0, -1.0})
                for (const bool is_u : {true, false}) {
                    SCOPED_TRACE(testing::Message() << side << " " << along << " " << sign << " " << is_u);
                    const Vec3d place = is_u ? Vec3d{side, along, 2.0} : Vec3d{along, side, 2.0};
                    const GeometryRay ray =
                        m_bench.trace(patch, make_ray(place + Vec3d{0, 0, 3.0 * sign}, {0.0, -0.0, -sign}));
                    ASSERT_EQ(ray.hit.primitive, 0u);
                    EXPECT_NEAR(ray.hit.t, 3.0, 1e-6);
                    EXPECT_NEAR(ray.hit.u, place[0], 2e-6);
                    EXPECT_NEAR(ray.hit.v, place[1], 2e-6);
                }
}

TEST_P(Kernels, MeaninglessRaysHitNothing) {
    const GeometryRay good = make_ray({0.5, 0.5, 1.0}, {0, 0, -1});
    std::vector<GeometryRay> rays(4, good);
    rays[0].direction = {0, 0, 0};
    rays[1].tnear = nan;
    rays[2].tfar = nan;
    rays[3].is_finished = true;
    for (unsigned int axis = 0; axis < 3; ++axis)
        for (const double bad : {nan, infinity, -infinity}) {
            rays.insert(rays.end(), 2, good);
            rays.end()[-1].origin[axis] = bad;
            rays.end()[-2].direction[axis] = bad;
        }
    for (const unsigned int capacity : {0u, 2u}) {
        std::vector<GeometryRay> traced = rays;
        traced.push_back(good);
        m_bench.trace(make_flat_patch(), traced, capacity);
        for (size_t i = 0; i < rays.size(); ++i) {
            EXPECT_EQ(traced[i].hit.primitive, no_primitive) << "ray " << i;
            EXPECT_EQ(m_bench.trace(make_flat_patch(), rays[i]).hit.primitive, no_primitive) << "ray " << i;
        }
        EXPECT_EQ(traced.back().hit.primitive, 0u);
    }
}

TEST_P(Kernels, NanControlsGiveNoHit) {
    for (unsigned int k = 0; k < 16; ++k) {
        PatchControls patch = make_random_patch(1);
        patch[k][k % 3] = std::numeric_limits<float>::quiet_NaN();
        const GeometryRay ray = m_bench.trace(patch, make_ray({0.5, 0.5, 3.0}, {0.01, 0.02, -1}));
        EXPECT_TRUE(ray.hit.primitive == no_primitive || std::isfinite(ray.hit.t)) << "control " << k;
    }
}

TEST_P(Kernels, AnyHitFinishesTheRay) {
    GeometryRay ray = make_ray({0.45, 0.3, 3.0}, {0, 0, -1});
    ray.mode = GeometryRayMode::any;
    for (const unsigned int capacity : {0u, 4u}) {
        std::vector<GeometryRay> rays{ray, make_ray({9, 9, 9}, {0, 0, 1})};
        m_bench.trace(make_folded_patch(), rays, capacity);
        EXPECT_TRUE(rays[0].is_finished);
        // Only the adaptive kernels remember what it was.
        const GeometryOccluder& occluder = rays[0].occluder;
        EXPECT_EQ(occluder.primitive, GetParam().count == limit ? 0u : no_primitive);
        EXPECT_EQ(occluder.traversal != nullptr, GetParam().count == limit);
        if (GetParam().family == fast_kernels && GetParam().count == limit) {
            const auto& leaf = static_cast<const sds::RayHits*>(occluder.traversal)->hits[occluder.node];
            EXPECT_EQ(static_cast<double>(leaf.u), rays[0].hit.u);
            EXPECT_EQ(static_cast<double>(leaf.v), rays[0].hit.v);
        }
        EXPECT_EQ(rays[0].hit.primitive, 0u);
        EXPECT_FALSE(rays[1].is_finished);
        if (capacity != 0) {
            EXPECT_EQ(m_bench.map->get_path(0).get_hits().get_count(), 1u) << "nothing after the first hit";
        }
    }
}

TEST_P(Kernels, AMapCollectsEveryCrossingInOrder) {
    // Where 9 u (1 - u)^2 - 6 u^2 (1 - u) + u^3 is 0.45.
    constexpr double expected[] = {0.058882910267242, 0.516691468418816, 0.924425621313942};
    const GeometryRay ray = make_ray({0.45, 0.3, -1.0}, {0, 0, 1});
    const std::vector<GeometryHit> hits = m_bench.collect(make_folded_patch(), ray, 8);
    ASSERT_EQ(hits.size(), 3u);
    for (unsigned int i = 0; i < 3; ++i) {
        EXPECT_NEAR(hits[i].u, expected[i], m_tolerance);
        EXPECT_NEAR(hits[i].v, 0.3, 1e-5);
        EXPECT_NEAR(hits[i].t, 1.0 + hits[i].u, 1e-5);
    }
    const std::vector<GeometryHit> nearest = m_bench.collect(make_folded_patch(), ray, 2);
    ASSERT_EQ(nearest.size(), 2u);
    EXPECT_EQ(nearest[1].t, hits[1].t);
    // Without a map the nearest of them is kept.
    const auto trace = [&](double z, double direction, double near) {
        GeometryRay single = make_ray({0.45, 0.3, z}, {0, 0, direction});
        single.tnear = near;
        return m_bench.trace(make_folded_patch(), single).hit.u;
    };
    EXPECT_NEAR(trace(-1, 1, 0.0), expected[0], m_tolerance);
    EXPECT_NEAR(trace(3, -1, 0.0), expected[2], m_tolerance);
    EXPECT_NEAR(trace(-1, 1, 1.0 + 0.5 * (expected[0] + expected[1])), expected[1], m_tolerance);
}

// Down to sizes whose products a float cannot hold, a small patch is hit where the same one of size 1 is.
TEST_P(Kernels, SmallPatchesAreHitAsLargeOnesAre) {
    if (GetParam().family == reference_kernels && GetParam().count == limit)
        GTEST_SKIP() << "its smallest parts have a size of their own";
    const Vec3d direction{0.2, -0.1, -1.0}, reference = m_bench.reference_point;
    for (unsigned int seed = 0; seed < 20; ++seed) {
        const PatchControls patch = make_random_patch(seed, 0.1f);
        const GeometryRay ray = make_ray(Vec3d{0.3 + 0.02 * seed, 0.6, 0.0} - direction * 1.5, direction);
        m_bench.reference_point = reference;
        const GeometryHit expected = m_bench.trace(patch, ray).hit;
        ASSERT_EQ(expected.primitive, 0u);
        for (const double scale : {0x1p-20, 0x1p-30, 0x1p-60}) {
            PatchControls small = patch;
            for (Vec3f& p : small) p *= static_cast<float>(scale);
            m_bench.reference_point = reference * scale;
            const GeometryHit hit = m_bench.trace(small, make_ray(ray.origin * scale, direction)).hit;
            ASSERT_EQ(hit.primitive, 0u) << seed << " at " << scale;
            EXPECT_NEAR(hit.t / scale, expected.t, 1e-5) << seed << " at " << scale;
            EXPECT_NEAR(hit.u, expected.u, 1e-5) << seed << " at " << scale;
            EXPECT_NEAR(hit.v, expected.v, 1e-5) << seed << " at " << scale;
        }
    }
}

// Ranges of rays share their splits; every ray must find what it finds alone.
TEST_P(Kernels, RangesFindWhatSingleRaysFind) {
    for (unsigned int count = 2; count <= 40; ++count)
        for (const bool is_coherent : {true, false}) {
            std::mt19937_64 random(count);
            std::uniform_real_distribution<double> unit(0.0, 1.0);
            const PatchControls patch = make_random_patch(count);
            std::vector<GeometryRay> rays;
            for (unsigned int i = 0; i < count; ++i) {
                const Vec3d target{unit(random), unit(random), 0.1 * unit(random)};
                const Vec3d origin = is_coherent
                                         ? Vec3d{0.5, 0.4, 3.0}
                                         : target + Vec3d{unit(random) - 0.5, unit(random) - 0.5, unit(random) - 0.5};
                rays.push_back(make_ray(origin, target - origin));
                if (i % 7 == 3) rays.back().mode = GeometryRayMode::any;
            }
            std::vector<GeometryRay> together = rays;
            m_bench.trace(patch, together, 3);
            std::vector<GeometryRay> without_map = rays;
            m_bench.trace(patch, without_map);
            for (unsigned int i = 0; i < count; ++i) {
                m_bench.data.map = nullptr;
                const GeometryRay alone = m_bench.trace(patch, rays[i]);
                EXPECT_EQ(together[i].hit.primitive, alone.hit.primitive) << count << " rays, ray " << i;
                EXPECT_EQ(without_map[i].hit.t, alone.hit.t);
                if (alone.hit.primitive == no_primitive || alone.mode == GeometryRayMode::any) continue;
                EXPECT_NEAR(together[i].hit.t, alone.hit.t, 1e-5) << count << " rays, ray " << i;
            }
        }
}

TEST_P(Kernels, PartsOfARangeLeaveTheRestAlone) {
    std::vector<GeometryRay> rays(6, make_ray({0.3, 0.4, 1.0}, {0, 0, -1}));
    GeometryRaytraceCtx context(rays.data(), 6, m_bench.data);
    context.set_start_node(5);
    m_bench.run(CtxEval(m_bench.shader), make_flat_patch(), context);  // nothing happens without scratch
    for (const GeometryRay& ray : rays) EXPECT_EQ(ray.hit.primitive, no_primitive);
    context.set_ray_range(2, 4);
    m_bench.run(m_bench.eval, make_flat_patch(), context);
    for (unsigned int i = 0; i < 6; ++i)
        EXPECT_EQ(rays[i].hit.primitive, i >= 2 && i <= 4 ? 0u : no_primitive) << "ray " << i;
    EXPECT_EQ(context.get_start_node(), 5u);
}

}  // namespace
}  // namespace sds_test
