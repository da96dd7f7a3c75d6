// What both kernel families promise alike, at fixed levels and on the limit surface.
#include <algorithm>
#include <limits>

#include "one_patch.h"

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
                         name_of_choice);

TEST_P(Kernels, AgreeWithTheOracleOnRandomPatches) {
    for (unsigned int seed = 0; seed < 20; ++seed) {
        // On the limit surface the reference kernel's leaves are points of a box that a grazing ray leaves late.
        const double tolerance = GetParam().count == limit && GetParam().family == reference_kernels ? 3e-5 : 2e-6;
        const HitAgreement agreement =
            compare_patch(make_random_patch(seed), GetParam().family, GetParam().count, 1000, tolerance);
        EXPECT_EQ(agreement.wrong, 0u) << "seed " << seed << ", worst t " << agreement.worst_t;
        EXPECT_GT(agreement.hits, 100u);
        EXPECT_LT(agreement.silhouettes, 10u);
    }
}

TEST_P(Kernels, ReportPatchCoordinatesNotGridCoordinates) {
    const PatchControls patch = make_random_patch(3, 0.05f);
    for (const double u : {0.1, 0.3, 0.8})
        for (const double v : {0.2, 0.6, 0.9}) {
            const Vec3d target = RayOracle({patch}, GetParam().count).point(0, u, v);
            const GeometryRay ray = m_bench.trace(patch, make_ray(target + Vec3d{0, 0, 2}, {0, 0, -1}));
            EXPECT_NEAR(ray.hit.u, u, 1e-4);
            EXPECT_NEAR(ray.hit.v, v, 1e-4);
            EXPECT_NEAR(ray.hit.t, 2.0, 1e-5);
        }
}

TEST_P(Kernels, DistancesCountInLengthsOfTheDirection) {
    for (const double length : {1e-12, 1e-3, 1.0, 40.0, 1e9}) {
        const GeometryRay ray =
            m_bench.trace(make_flat_patch(), make_ray({0.3, 0.4, 5.0}, Vec3d{0.1, 0.05, -1.0} * length));
        ASSERT_EQ(ray.hit.primitive, 0u) << length;
        EXPECT_NEAR(ray.hit.t * length, 5.0, 1e-5) << length;
    }
}

TEST_P(Kernels, FarOriginsSeeTheSamePatch) {
    const PatchControls patch = make_random_patch(5);
    const Vec3d target = RayOracle({patch}, GetParam().count).point(0, 0.37, 0.61);
    const Vec3d direction = Vec3d{0.3, -0.2, -1.0} * (1.0 / Vec3d{0.3, -0.2, -1.0}.length());
    const GeometryRay near = m_bench.trace(patch, make_ray(target - direction * 2.0, direction));
    ASSERT_EQ(near.hit.primitive, 0u);
    for (const double distance : {1e3, 1e6, 1e8}) {
        const GeometryRay far = m_bench.trace(patch, make_ray(target - direction * distance, direction));
        ASSERT_EQ(far.hit.primitive, 0u) << distance;
        EXPECT_NEAR(far.hit.t - distance, near.hit.t - 2.0, 2e-5 + 4e-16 * distance);
        EXPECT_NEAR(far.hit.u, near.hit.u, 1e-4);
    }
}

TEST_P(Kernels, RangeIsHalfOpen) {
    const PatchControls patch = make_flat_patch();
    const auto trace = [&](double near, double far) {
        GeometryRay ray = make_ray({0.3, 0.4, 1.0}, {0, 0, -1});
        ray.tnear = near;
        ray.tfar = far;
        return m_bench.trace(patch, ray).hit.primitive == 0;
    };
    EXPECT_TRUE(trace(0.0, infinity));
    EXPECT_TRUE(trace(1.0, 2.0));
    EXPECT_TRUE(trace(-infinity, infinity));
    EXPECT_TRUE(trace(0.999, 1.001));
    EXPECT_FALSE(trace(0.0, 1.0));
    EXPECT_FALSE(trace(1.001, 2.0));
    EXPECT_FALSE(trace(2.0, 0.5)) << "an empty range";
    EXPECT_FALSE(trace(0.0, -infinity));
}

TEST_P(Kernels, NegativeDistancesAreReachable) {
    GeometryRay ray = make_ray({0.3, 0.4, 1.0}, {0, 0, 1});
    EXPECT_EQ(m_bench.trace(make_flat_patch(), ray).hit.primitive, no_primitive);
    for (const double near : {-1.0, -1.5, -1e6, -infinity}) {
        ray.tnear = near;
        const GeometryRay traced = m_bench.trace(make_flat_patch(), ray);
        ASSERT_EQ(traced.hit.primitive, 0u) << near;
        EXPECT_NEAR(traced.hit.t, -1.0, 1e-6);
    }
}

TEST_P(Kernels, MeaninglessRaysHitNothing) {
    const PatchControls patch = make_random_patch(1);
    for (unsigned int axis = 0; axis < 3; ++axis)
        for (const double bad : {nan, infinity, -infinity}) {
            GeometryRay ray = make_ray({0.5, 0.5, 1.0}, {0, 0, -1});
            ray.origin[axis] = bad;
            EXPECT_EQ(m_bench.trace(patch, ray).hit.primitive, no_primitive);
            ray = make_ray({0.5, 0.5, 1.0}, {0, 0, -1});
            ray.direction[axis] = bad;
            EXPECT_EQ(m_bench.trace(patch, ray).hit.primitive, no_primitive);
        }
    EXPECT_EQ(m_bench.trace(patch, make_ray({0.5, 0.5, 0.0}, {0, 0, 0})).hit.primitive, no_primitive);
    GeometryRay ray = make_ray({0.5, 0.5, 1.0}, {0, 0, -1});
    ray.tnear = nan;
    EXPECT_EQ(m_bench.trace(patch, ray).hit.primitive, no_primitive);
    ray.tnear = 0.0;
    ray.tfar = nan;
    EXPECT_EQ(m_bench.trace(patch, ray).hit.primitive, no_primitive);
}

TEST_P(Kernels, NanControlsGiveNoHit) {
    for (unsigned int k = 0; k < 16; ++k) {
        PatchControls patch = make_random_patch(1);
        patch[k][k % 3] = std::numeric_limits<float>::quiet_NaN();
        const GeometryRay ray = m_bench.trace(patch, make_ray({0.5, 0.5, 3.0}, {0.01, 0.02, -1}));
        EXPECT_TRUE(ray.hit.primitive == no_primitive || std::isfinite(ray.hit.t)) << "control " << k;
    }
}

TEST_P(Kernels, APatchWithoutExtentIsNoTrap) {
    const PatchControls point = make_patch([](unsigned int, unsigned int) { return Vec3f(0.25f, 0.5f, 1.0f); });
    const PatchControls line =
        make_patch([](unsigned int column, unsigned int) { return Vec3f(static_cast<float>(column), 0.5f, 0.5f); });
    m_bench.trace(point, make_ray({0.25, 0.5, 5.0}, {0, 0, -1}));
    m_bench.trace(line, make_ray({1.3, 0.5, 5.0}, {0, 0, -1}));
    m_bench.trace(line, make_ray({-1.0, 0.5, 0.5}, {1, 0, 0}));
    m_bench.trace(make_flat_patch(), make_ray({-1.0, 0.41, 0.0}, {1, 0, 0}));
}

TEST_P(Kernels, AFinishedRayStaysAsItIs) {
    GeometryRay ray = make_ray({0.3, 0.4, 1.0}, {0, 0, -1});
    ray.is_finished = true;
    for (const unsigned int capacity : {0u, 2u}) {
        std::vector<GeometryRay> rays{ray, ray, make_ray({0.3, 0.4, 1.0}, {0, 0, -1})};
        m_bench.trace(make_flat_patch(), rays, capacity);
        EXPECT_EQ(rays[0].hit.primitive, no_primitive);
        EXPECT_EQ(rays[1].hit.primitive, no_primitive);
        EXPECT_EQ(rays[2].hit.primitive, 0u);
    }
}

TEST_P(Kernels, AnyHitFinishesTheRay) {
    GeometryRay ray = make_ray({0.45, 0.3, -1.0}, {0, 0, 1});
    ray.mode = GeometryRayMode::any;
    for (const unsigned int capacity : {0u, 4u}) {
        std::vector<GeometryRay> rays{ray, make_ray({9, 9, 9}, {0, 0, 1})};
        m_bench.trace(make_folded_patch(), rays, capacity);
        EXPECT_TRUE(rays[0].is_finished);
        EXPECT_EQ(rays[0].hit.primitive, 0u);
        EXPECT_FALSE(rays[1].is_finished);
        if (capacity != 0) {
            EXPECT_EQ(m_bench.map->get_path(0).get_hits().get_count(), 1u) << "nothing after the first hit";
        }
    }
}

TEST_P(Kernels, AMapCollectsEveryCrossingInOrder) {
    const std::vector<double> expected = find_fold_places(0.45);
    ASSERT_EQ(expected.size(), 3u);
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
}

TEST_P(Kernels, NearestOfSeveralCrossingsIsKept) {
    const std::vector<double> places = find_fold_places(0.45);
    EXPECT_NEAR(m_bench.trace(make_folded_patch(), make_ray({0.45, 0.3, -1.0}, {0, 0, 1})).hit.u, places[0],
                m_tolerance);
    EXPECT_NEAR(m_bench.trace(make_folded_patch(), make_ray({0.45, 0.3, 3.0}, {0, 0, -1})).hit.u, places[2],
                m_tolerance);
    GeometryRay ray = make_ray({0.45, 0.3, -1.0}, {0, 0, 1});
    ray.tnear = 1.0 + 0.5 * (places[0] + places[1]);
    EXPECT_NEAR(m_bench.trace(make_folded_patch(), ray).hit.u, places[1], m_tolerance);
}

TEST_P(Kernels, StartNodeIsRestored) {
    m_bench.trace(make_flat_patch(), make_ray({0.3, 0.4, 1.0}, {0, 0, -1}));
    EXPECT_EQ(m_bench.start_node, 7u);
}

TEST_P(Kernels, WithoutScratchNothingHappens) {
    const CtxEval bare(m_bench.shader);
    GeometryRay ray = make_ray({0.3, 0.4, 1.0}, {0, 0, -1});
    GeometryRaytraceCtx context(&ray, 1, m_bench.data);
    context.set_start_node(5);
    m_bench.run(bare, make_flat_patch(), context);
    EXPECT_EQ(ray.hit.primitive, no_primitive);
    EXPECT_EQ(context.get_start_node(), 5u);
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

TEST_P(Kernels, PartsOfARangeLeaveTheOtherRaysAlone) {
    std::vector<GeometryRay> rays(6, make_ray({0.3, 0.4, 1.0}, {0, 0, -1}));
    GeometryRaytraceCtx context(rays.data(), 6, m_bench.data);
    context.set_ray_range(2, 4);
    m_bench.run(m_bench.eval, make_flat_patch(), context);
    for (unsigned int i = 0; i < 6; ++i)
        EXPECT_EQ(rays[i].hit.primitive, i >= 2 && i <= 4 ? 0u : no_primitive) << "ray " << i;
}

}  // namespace
}  // namespace sds_test
