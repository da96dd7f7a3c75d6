// Hits on whole surfaces against double-precision oracles: the figures that `rays` prints, as floors.
#include <gtest/gtest.h>

#include <array>

#include "oracles/ray_checks.h"

namespace sds_test {
namespace {

constexpr unsigned int rays_per_level = 1500;

struct Case {
    const ZooMesh* cage;
    KernelFamily family;

    friend void PrintTo(const Case& c, std::ostream* out) {
        *out << c.cage->name << (c.family == fast_kernels ? ", fast" : ", reference");
    }
};

std::vector<Case> all_cases() {
    std::vector<Case> cases;
    for (const ZooMesh* cage : cages_in(0, huge_valence))
        for (const KernelFamily family : {fast_kernels, reference_kernels}) cases.push_back({cage, family});
    return cases;
}

std::string name_of_case(const ::testing::TestParamInfo<Case>& info) {
    return case_name(info.param.cage->name) + (info.param.family == fast_kernels ? "_fast" : "_reference");
}

class Agreement : public ::testing::TestWithParam<Case> {
protected:
    // Hits of the built cage at a level against the oracle's.
    HitAgreement compare(unsigned int level, double tolerance, unsigned int depth = 0) const {
        BuiltSurface::Options options;
        options.level = level;
        options.refinement.depth = depth;
        const BuiltSurface surface(*GetParam().cage, options);
        const RayOracle oracle(surface.mesh);
        const PatchTracer tracer(surface.mesh, oracle, GetParam().family);
        // Polygons that pass a vertex twice have patches without area. Halving the longer side of one may leave its box
        // as it was, which is where the reference family stops: its leaf is then as large as the patch.
        const CtxShader shader;
        const CtxEval ctx(shader, nullptr);
        const auto identity = GMathMatrix4x4<double>::scale(1.0, 1.0, 1.0);
        const double least_area = 1e-8 * surface.get_diagonal() * surface.get_diagonal();
        std::uint64_t without_area = 0;
        HitAgreement agreement = compare_hits(
            oracle, [&](GeometryRay& ray, unsigned int worker) { tracer.trace(ray, worker); }, rays_per_level,
            tolerance,
            [&](const GeometryRay& ray, const Crossing&) {
                const unsigned int primitive = ray.hit.primitive;
                without_area += GetParam().family == reference_kernels && primitive != sds::none &&
                                surface.mesh.estimate_primitive_area(ctx, primitive, identity) < least_area;
            });
        EXPECT_LE(without_area, 5u);
        agreement.wrong -= without_area;
        return agreement;
    }
};

INSTANTIATE_TEST_SUITE_P(Cages, Agreement, ::testing::ValuesIn(all_cases()), name_of_case);

TEST_P(Agreement, FlatCellsAreHitWhereTheOracleHitsThem) {
    for (const unsigned int level : {1u, 2u, 3u, 5u}) {
        const HitAgreement agreement = compare(level, 1e-5);
        EXPECT_EQ(agreement.wrong, 0u) << "level " << level << ", worst t " << agreement.worst_t;
        EXPECT_LE(agreement.silhouettes, rays_per_level / 100) << "level " << level;
    }
}

TEST_P(Agreement, LimitPatchesAreHitWhereTheOracleHitsThem) {
    // The reference kernel's leaves are points in boxes of 1e-6 times max(3, |center|), seen at low angles too.
    const bool is_fast = GetParam().family == fast_kernels;
    const HitAgreement agreement = compare(0, is_fast ? 2e-6 : 1e-4);
    EXPECT_EQ(agreement.wrong, 0u) << "worst t " << agreement.worst_t;
    EXPECT_LE(agreement.silhouettes, rays_per_level / 100);
    if (is_fast) {
        // A few where sheets touch or patches are tiny.
        EXPECT_LE(agreement.uv_beyond, rays_per_level / 300);
    }
}

// Patches of several sizes, and cells of one size on them: what a ray meets is as near.
TEST_P(Agreement, RefinedSurfacesAreHitWhereTheOracleHitsThem) {
    const bool is_fast = GetParam().family == fast_kernels;
    for (const unsigned int depth : {1u, 3u}) {
        for (const unsigned int level : {0u, 2u}) {
            const HitAgreement agreement = compare(level, level != 0 ? 1e-5 : is_fast ? 2e-6 : 1e-4, depth);
            EXPECT_EQ(agreement.wrong, 0u)
                << "depth " << depth << ", level " << level << ", worst t " << agreement.worst_t;
            EXPECT_LE(agreement.silhouettes, rays_per_level / 100) << "depth " << depth << ", level " << level;
        }
    }
}

}  // namespace
}  // namespace sds_test
