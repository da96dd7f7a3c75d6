#include "one_patch.h"

namespace sds_test {
namespace {

constexpr unsigned int limit = RayOracle::limit_surface;

// Every leaf of the reference kernel is a point within its box; across the ray the box is of the order of the
// tolerance, 1e-6 of max(3, |centre|), and a ray at a low angle stays in it for tolerance / cosine.
TEST(Adaptive, ReferenceLeavesAreAsSmallAsTheirTolerance) {
    for (unsigned int seed = 100; seed < 110; ++seed) {
        const PatchControls patch = make_random_patch(seed, 0.15f);
        const RayOracle oracle({patch}, limit);
        KernelBench bench(reference_kernels);
        std::mt19937_64 random(seed);
        std::uniform_real_distribution<double> unit(0.0, 1.0);
        for (unsigned int i = 0; i < 300; ++i) {
            const Vec3d target = oracle.point(0, unit(random), unit(random));
            const Vec3d origin = target + Vec3d{unit(random) - 0.5, unit(random) - 0.5, 1.0};
            const GeometryRay ray = bench.trace(patch, make_ray(origin, target - origin));
            const Crossing expected = oracle.find_nearest(origin, target - origin, 0.0, 1e9);
            ASSERT_EQ(ray.hit.primitive, 0u);
            EXPECT_NEAR(ray.hit.t, expected.t, 1e-5 / expected.cosine) << "seed " << seed << ", ray " << i;
        }
    }
}

// Lines inside the patch: a border is a silhouette, where rounding decides. One crossing is one hit, whichever parts
// of the patch find it.
TEST(Adaptive, EdgesAndCornersOfPartsAreHitOnce) {
    for (const KernelFamily family : {fast_kernels, reference_kernels})
        for (unsigned int seed = 0; seed < 10; ++seed) {
            const PatchControls patch = make_random_patch(seed, 0.1f);
            const RayOracle oracle({patch}, limit);
            KernelBench bench(family);
            for (int k = 1; k < 16; ++k)
                for (int j = 1; j < 16; ++j) {
                    const Vec3d target = oracle.point(0, k / 16.0, j / 16.0);
                    const GeometryRay ray =
                        bench.trace(patch, make_ray({0.5, 0.4, 3.0}, target - Vec3d{0.5, 0.4, 3.0}));
                    EXPECT_EQ(ray.hit.primitive, 0u);
                    EXPECT_LE(ray.hit.t, 1.0 + 1e-4);
                }
            std::mt19937_64 random(seed);
            std::uniform_real_distribution<double> unit(0.2, 0.8);
            for (unsigned int i = 0; i < 5; ++i) {
                const Vec3d origin = oracle.point(0, unit(random), unit(random)) + Vec3d{0, 0, 2};
                EXPECT_EQ(bench.collect(patch, make_ray(origin, {0, 0, -1}), 8).size(), 1u) << "seed " << seed;
            }
        }
}

// The tolerance follows the distance from the coordinates' origin: a patch far out is still hit, and where it is.
TEST(Adaptive, PatchesFarFromTheOriginAreHit) {
    const Vec3f offset(148376.0f, 1234.0f, -223423.0f);
    for (const KernelFamily family : {fast_kernels, reference_kernels}) {
        PatchControls patch = make_random_patch(8, 0.1f);
        for (Vec3f& control : patch) control = control * 4.0f + offset;
        const RayOracle oracle({patch}, limit);
        KernelBench bench(family);
        bench.reference_point = Vec3d(offset) + Vec3d{2, 2, 0};
        for (int k = 1; k < 8; ++k) {
            const Vec3d target = oracle.point(0, k / 8.0, 0.3 + 0.05 * k);
            const GeometryRay ray = bench.trace(patch, make_ray(target + Vec3d{0.3, 0.2, 500}, {-0.3, -0.2, -500}));
            ASSERT_EQ(ray.hit.primitive, 0u);
            EXPECT_NEAR(ray.hit.t * 500, 500.0, 0.5);
        }
    }
}

}  // namespace
}  // namespace sds_test
