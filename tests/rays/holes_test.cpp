// No ray slips through a closed surface, from inside or from outside, near or far, wherever it is aimed.
#include <gtest/gtest.h>

#include "support/ray_checks.h"

namespace sds_test {
namespace {

constexpr unsigned int rays_per_aim = 400;

std::string name_of_cage(const ::testing::TestParamInfo<const ZooMesh*>& info) { return case_name(info.param->name); }

class Holes : public ::testing::TestWithParam<const ZooMesh*> {
protected:
    // Adds up all aims and distances.
    static HoleCounts count(const ZooMesh& cage, unsigned int level, KernelFamily family) {
        BuiltSurface::Options options;
        options.level = level;
        const BuiltSurface surface(cage, options);
        const unsigned int splits = level - (surface.base.get_base_tessellation_level() ? 1u : 0u);
        const RayOracle oracle(surface.geometry, level == 0 ? RayOracle::limit_surface : splits);
        const std::vector<Vec3d> inside = find_inside_points(oracle, 8);
        EXPECT_FALSE(inside.empty()) << "no point is well inside";
        HoleCounts counts;
        if (inside.empty()) return counts;
        const PatchTracer tracer(surface.mesh, oracle, family);
        for (const double diagonals : {0.0, 1.0, 10.0, 1000.0})
            for (const Aim aim : all_aims)
                counts += count_holes(
                    oracle, [&](GeometryRay& ray, unsigned int worker) { tracer.trace(ray, worker); }, inside, aim,
                    diagonals, rays_per_aim);
        return counts;
    }
};

INSTANTIATE_TEST_SUITE_P(ClosedCages, Holes,
                         ::testing::ValuesIn(cages_in(closed, nonmanifold_edge | nonmanifold_vertex | huge_valence)),
                         name_of_cage);

TEST_P(Holes, NoneAtAnyLevel) {
    for (const unsigned int level : {0u, 1u, 2u, 4u, 6u})
        for (const KernelFamily family : {fast_kernels, reference_kernels}) {
            const HoleCounts counts = count(*GetParam(), level, family);
            EXPECT_EQ(counts.lost, 0u) << "level " << level << ", kernels " << family;
            EXPECT_EQ(counts.late, 0u) << "level " << level << ", kernels " << family;
            EXPECT_LE(counts.grazing, counts.rays / 200);
        }
}

// Positions there are told apart to 1/64 at a radius of 2: hits are as coarse, but none is lost.
TEST_P(Holes, NoneFarFromTheOrigin) {
    const ZooMesh cage = moved(*GetParam(), {148376, 1234, -223423}, 2.0);
    for (const unsigned int level : {0u, 3u})
        for (const KernelFamily family : {fast_kernels, reference_kernels})
            EXPECT_EQ(count(cage, level, family).lost, 0u) << "level " << level << ", kernels " << family;
}

}  // namespace
}  // namespace sds_test
