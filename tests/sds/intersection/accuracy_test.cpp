// Where the kernels hit one patch.
#include "one_patch.h"
#include "support/recorders.h"

namespace sds_test {
namespace {

constexpr unsigned int limit = RayOracle::limit_surface;

TEST(KernelFamilies, AgreeWithTheOracleOnRandomPatches) {
    for (const KernelFamily family : {fast_kernels, reference_kernels})
        for (const unsigned int count : {0u, 1u, 2u, 3u, 4u, 5u, 6u, limit}) {
            SCOPED_TRACE(testing::PrintToString(KernelChoice{family, count}));
            // On the limit surface the reference kernel's leaves are points of a box that a grazing ray leaves late.
            const bool is_coarse = count == limit && family == reference_kernels;
            for (unsigned int seed = 0; seed < 15; ++seed) {
                const HitAgreement agreement =
                    compare_patch(make_random_patch(seed), family, count, 1000, is_coarse ? 3e-5 : 2e-6);
                EXPECT_EQ(agreement.wrong, 0u) << "seed " << seed << ", worst t " << agreement.worst_t;
                EXPECT_GT(agreement.hits, 100u);
                EXPECT_LT(agreement.silhouettes, 10u);
                if (!is_coarse) {
                    EXPECT_LT(agreement.worst_uv, 1e-4) << "seed " << seed;
                }
            }
        }
}

// Lines inside the patch, between its parts or its cells and along their diagonals: a border is a silhouette, where
// rounding decides. One crossing is one hit, whichever parts find it.
TEST(KernelFamilies, LinesBetweenPartsAreHitOnce) {
    for (const KernelFamily family : {fast_kernels, reference_kernels})
        for (const unsigned int count : {0u, 1u, 2u, 3u, 4u, 5u, limit}) {
            SCOPED_TRACE(testing::PrintToString(KernelChoice{family, count}));
            const unsigned int n = count == limit ? 16 : 1u << count;
            std::mt19937_64 random(count);
            std::uniform_real_distribution<double> unit(0.0, 1.0);
            for (unsigned int seed = 0; seed < 5; ++seed) {
                const PatchControls patch = make_random_patch(seed, 0.1f);
                const RayOracle oracle({patch}, count);
                KernelBench bench(family, count);
                for (unsigned int i = 0; i < 200; ++i) {
                    const double along = 0.1 + 0.8 * unit(random);
                    const double line = std::floor(1 + unit(random) * (n - 1)) / n;
                    const double u = i % 2 == 0 || count == 0 ? along : line;
                    const double v = i % 2 == 0 ? along : (i % 4 == 1 ? along : std::floor(1 + along * (n - 1)) / n);
                    const Vec3d target = oracle.point(0, u, v);
                    const Vec3d origin = target + Vec3d{0.3 * unit(random), 0.3 * unit(random), 1.0 + unit(random)};
                    const GeometryRay ray = make_ray(origin, target - origin);
                    EXPECT_EQ(bench.trace(patch, ray).hit.primitive, 0u) << "ray " << i;
                    EXPECT_EQ(bench.collect(patch, ray, 8).size(), 1u) << "ray " << i;
                }
            }
        }
}

// A patch far smaller than the rounding of the boxes' distances: the ray passes for meeting every box, so one sibling
// waits per split and the pool runs out. The corner that the ray hits is visited first and ends the search.
TEST(PoolExhaustion, ACoarserCellIsHitAndLoggedAndThePoolServesTheNextCall) {
    const PatchControls patch = make_patch([](unsigned int column, unsigned int row) {
        return Vec3f((static_cast<float>(column) - 3.0f) * 1e-9f, (static_cast<float>(row) - 3.0f) * 1e-9f, 0.0f);
    });
    GeometryRay start = make_ray({-1.0, -0.5, 1.0}, {1, 0.5, -1});
    start.mode = GeometryRayMode::any;
    KernelBench bench(reference_kernels, 70);
    bench.reference_point = start.origin;
    const GeometryRay flat = make_ray({0.3, 0.4, 1.0}, {0, 0, -1});
    for (const unsigned int level : {1u, 2u}) {
        LogCapture log(level);
        const GeometryRay ray = bench.trace(patch, start);
        EXPECT_EQ(ray.hit.primitive, 0u);
        EXPECT_NEAR(ray.hit.u, 1.0, 1e-6);
        EXPECT_NEAR(ray.hit.v, 1.0, 1e-6);
        std::vector<LogCapture::Line> expected{
            {2, "sds.ray_bezier_intersection_estimate: 1 intersections skipped because of stack overflows\n"}};
        if (level < 2) expected.clear();
        EXPECT_EQ(log.lines, expected);
        log.lines.clear();
        EXPECT_EQ(KernelBench(reference_kernels, 5).trace(make_flat_patch(), flat).hit.primitive, 0u);
        EXPECT_EQ(bench.trace(make_flat_patch(), make_ray({3.0, 0.4, 1.0}, {0, 0, -1})).hit.primitive, no_primitive);
        EXPECT_TRUE(log.lines.empty());
    }
}

// A ray along a ruling of a saddle, and rays within a tilted plane, hit wherever they are in the patch: first where
// they begin, in it or before it. What no kernel gets to is no hit and told in a line.
TEST(KernelFamilies, RaysInTheSurfaceHitItWhereTheyBegin) {
    const auto bilinear = [](auto&& height) {
        return make_patch([&](unsigned int column, unsigned int row) {
            const double u = column / 3.0, v = row / 3.0;
            return Vec3f(Vec3d{u, v, height(u, v)});
        });
    };
    const PatchControls saddle = bilinear([](double u, double v) { return (v - 0.5) * (u - 0.3); });
    const PatchControls plane = bilinear([](double, double v) { return v - 0.5; });
    for (const KernelFamily family : {fast_kernels, reference_kernels}) {
        SCOPED_TRACE(family == fast_kernels ? "fast" : "reference");
        KernelBench bench(family);
        const auto check = [&](const PatchControls& patch, const Vec3d& origin, const Vec3d& direction, double t) {
            SCOPED_TRACE(testing::Message() << origin[0] << " " << origin[1] << " towards " << direction[0]);
            LogCapture log(2);
            const GeometryHit hit = bench.trace(patch, make_ray(origin, direction)).hit;
            ASSERT_EQ(hit.primitive, 0u);
            EXPECT_NEAR(hit.t, t, 1e-5);
            const Vec3d place = RayOracle({patch}, limit).limit_point(0, hit.u, hit.v);
            EXPECT_LT((origin + direction * hit.t - place).length(), 1e-5);
            ASSERT_EQ(log.lines.size(), 1u);
            const bool speaks_of_a_pool = log.lines[0].text.find("stack overflows") != std::string::npos;
            EXPECT_EQ(speaks_of_a_pool, family == reference_kernels) << log.lines[0].text;
        };
        for (const double start : {-1.0, 0.1, 0.3, 0.5, 0.7}) {
            check(saddle, {start, 0.5, 0.0}, {1, 0, 0}, start < 0.0 ? -start : 0.0);
            check(saddle, {1.0 - start, 0.5, 0.0}, {-1, 0, 0}, start < 0.0 ? -start : 0.0);
            check(plane, {start, 0.5, 0.0}, {1, 0, 0}, start < 0.0 ? -start : 0.0);
            // At a slant the fast kernels see the plane tilted by its rounding.
            if (start > 0.0 && family == reference_kernels) check(plane, {0.5, start, start - 0.5}, {1, 1, 1}, 0.0);
        }
    }
}

}  // namespace
}  // namespace sds_test
