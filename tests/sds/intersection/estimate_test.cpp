#include "one_patch.h"
#include "support/recorders.h"

namespace sds_test {
namespace {

class Estimate : public ::testing::TestWithParam<KernelFamily> {};

INSTANTIATE_TEST_SUITE_P(Families, Estimate, ::testing::Values(fast_kernels, reference_kernels),
                         [](const auto& choice) {
                             return std::string(choice.param == fast_kernels ? "Fast" : "Reference");
                         });

TEST_P(Estimate, NoLevelsAreTheTwoTrianglesOfTheCorners) {
    // One corner raised: above the triangle without it the surface stays flat, whatever the inner controls do.
    PatchControls patch = make_random_patch(2);
    patch[sds::corner_control(0)] = {0, 0, 0};
    patch[sds::corner_control(1)] = {1, 0, 0.5f};
    patch[sds::corner_control(2)] = {1, 1, 0};
    patch[sds::corner_control(3)] = {0, 1, 0};
    KernelBench bench(GetParam(), 0);
    const auto height = [&](double x, double y) {
        const GeometryRay ray = bench.trace(patch, make_ray({x, y, 2.0}, {0, 0, -1}));
        EXPECT_EQ(ray.hit.primitive, 0u);
        EXPECT_NEAR(ray.hit.u, x, 1e-6);
        EXPECT_NEAR(ray.hit.v, y, 1e-6);
        return 2.0 - ray.hit.t;
    };
    EXPECT_NEAR(height(0.3, 0.7), 0.0, 1e-6);
    EXPECT_NEAR(height(0.75, 0.25), 0.25, 1e-6);
    EXPECT_NEAR(height(0.9, 0.4), 0.25, 1e-6);
}

TEST_P(Estimate, RaysThroughTheDiagonalAndTheGridHit) {
    const PatchControls patch = make_random_patch(4, 0.1f);
    for (unsigned int count = 0; count <= 5; ++count) {
        const RayOracle cells({patch}, count);
        KernelBench bench(GetParam(), count);
        std::mt19937_64 random(count);
        std::uniform_real_distribution<double> unit(0.0, 1.0);
        for (unsigned int i = 0; i < 500; ++i) {
            const unsigned int n = 1u << count;
            const double on_line = std::floor(unit(random) * (n - 1) + 1) / n;
            const double along = unit(random);
            const Vec3d target = i % 2 == 0 ? cells.point(0, along, along)
                                            : (count == 0 ? cells.point(0, 0.5, 0.5) : cells.point(0, on_line, along));
            const Vec3d origin = target + Vec3d{unit(random) - 0.5, unit(random) - 0.5, 1.0 + unit(random)};
            const GeometryRay ray = make_ray(origin, target - origin);
            EXPECT_EQ(bench.trace(patch, ray).hit.primitive, 0u) << count << " levels, ray " << i;
            EXPECT_EQ(bench.collect(patch, ray, 4).size(), 1u) << "one crossing, whichever triangles it touches";
        }
    }
}

// A patch far smaller than the rounding of the boxes' distances: the ray passes for meeting every box, so one sibling
// waits per split and the pool runs out. The corner that the ray hits is visited first and ends the search.
class PoolExhaustion : public ::testing::Test {
protected:
    PoolExhaustion() {
        m_bench.reference_point = m_ray.origin;
        m_ray.mode = GeometryRayMode::any;
    }
    GeometryRay trace() { return m_bench.trace(m_patch, m_ray); }

    const PatchControls m_patch = make_patch([](unsigned int column, unsigned int row) {
        return Vec3f((static_cast<float>(column) - 3.0f) * 1e-9f, (static_cast<float>(row) - 3.0f) * 1e-9f, 0.0f);
    });
    GeometryRay m_ray = make_ray({-1.0, -0.5, 1.0}, {1, 0.5, -1});
    KernelBench m_bench{reference_kernels, 70};
};

TEST_F(PoolExhaustion, ACoarserCellIsHitAndLoggedAndThePoolServesTheNextCall) {
    const GeometryRay flat = make_ray({0.3, 0.4, 1.0}, {0, 0, -1});
    for (const unsigned int level : {1u, 2u}) {
        LogCapture log(level);
        const GeometryRay ray = trace();
        EXPECT_EQ(ray.hit.primitive, 0u);
        EXPECT_NEAR(ray.hit.u, 1.0, 1e-6);
        EXPECT_NEAR(ray.hit.v, 1.0, 1e-6);
        std::vector<LogCapture::Line> expected{
            {2, "sds.ray_bezier_intersection_estimate: 1 intersections skipped because of stack overflows\n"}};
        if (level < 2) expected.clear();
        EXPECT_EQ(log.lines, expected);
        log.lines.clear();
        EXPECT_EQ(KernelBench(reference_kernels, 5).trace(make_flat_patch(), flat).hit.primitive, 0u);
        EXPECT_EQ(m_bench.trace(make_flat_patch(), make_ray({3.0, 0.4, 1.0}, {0, 0, -1})).hit.primitive, no_primitive);
        EXPECT_TRUE(log.lines.empty());
    }
}

}  // namespace
}  // namespace sds_test
