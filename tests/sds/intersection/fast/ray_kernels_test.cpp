// The fast kernels' instruction sets against each other, and the work that a ray costs at worst.
#include "sds/intersection/fast/ray_kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <tuple>

#include "oracles/built_surface.h"
#include "qn_geometry/geometry_raytrace_ctx.h"
#include "sds/common/control_grid.h"

namespace {

using namespace sds_test;

TEST(RaySpace, InstructionSetsGiveTheSameBits) {
    const BuiltSurface surface(make_torus(6, 5));
    const sds::RayKernels* const* all = sds::get_all_ray_kernels();
    ASSERT_NE(all[0], nullptr);
    std::mt19937 random(1);
    std::normal_distribution<double> normal;
    const GMathBbox3<double> box(surface.geometry.get_bbox());
    unsigned int hit_count = 0;
    for (unsigned int i = 0; i < 4000; ++i) {
        const auto beside = [&](double radii) {
            const Vec3d offset(normal(random), normal(random), normal(random));
            return box.get_center() + offset * (0.5 * radii * box.get_diagonal() / offset.length());
        };
        GeometryRay record;
        record.origin = beside(3.0);
        record.direction = beside(0.5) - record.origin;
        const GeometryRaytraceData data;
        GeometryRaytraceCtx rays(&record, 1, data);
        const GeometryRaySpace& space = rays.get_ray_space(0);
        const sds::RaySpace ray{space.origin, space.across, space.along, space.shift, record.tnear, record.tfar, 0.0f};
        Vec3f controls[16];
        surface.geometry.get_bezier_controls(i % surface.get_quad_count(), controls);
        float grid[3][16];
        for (unsigned int place = 0; place < 16; ++place)
            for (unsigned int axis = 0; axis < 3; ++axis) grid[axis][place] = controls[sds::grid_order[place]][axis];
        for (unsigned int other = 1; all[other] != nullptr; ++other)
            for (const unsigned int depth : {0u, 4u, 99u}) {
                sds::RayHits a{}, b{};
                if (depth == 99u) {
                    all[0]->adaptive(grid, ray, a);
                    all[other]->adaptive(grid, ray, b);
                } else {
                    all[0]->estimate(grid, ray, depth, a);
                    all[other]->estimate(grid, ray, depth, b);
                }
                ASSERT_EQ(a.count, b.count);
                hit_count += a.count;
                for (unsigned int h = 0; h < a.count; ++h) {
                    const auto &x = a.hits[h], &y = b.hits[h];
                    EXPECT_EQ(std::tie(x.t, x.u, x.v, x.side), std::tie(y.t, y.u, y.v, y.side));
                }
            }
    }
    if (all[1] != nullptr) {
        EXPECT_GT(hit_count, 300u);
    }
}

using Grid = float[3][16];

// A gently curved unit patch around the origin, across z.
void set_bowl(Grid& grid) {
    for (unsigned int place = 0; place < 16; ++place) {
        const float x = static_cast<float>(place % 4) / 3.0f - 0.5f, y = static_cast<float>(place / 4) / 3.0f - 0.5f;
        grid[0][place] = x;
        grid[1][place] = y;
        grid[2][place] = 0.3f * (x * x + y * y);
    }
}

struct Spoiled {
    const char* name;
    void (*spoil)(Grid& grid);
};

void scale_axis(Grid& grid, unsigned int axis, float factor) {
    for (float& x : grid[axis]) x *= factor;
}

// What a ray along an axis could halve without end. The z axis meets them all, those with a fold where they are folded.
const Spoiled spoiled_patches[] = {
    {"plain", [](Grid&) {}},
    {"point",
     [](Grid& g) {
         for (auto& axis : g) std::fill(std::begin(axis), std::end(axis), 0.0f);
     }},
    {"line along the ray", [](Grid& g) { scale_axis(g, 0, 0.0f), scale_axis(g, 1, 0.0f), scale_axis(g, 2, 1e3f); }},
    {"line across the ray", [](Grid& g) { scale_axis(g, 1, 0.0f), scale_axis(g, 2, 0.0f); }},
    {"edge-on", [](Grid& g) { scale_axis(g, 2, 0.0f); }},
    {"folded",
     [](Grid& g) {
         for (float& x : g[0]) x = x * x - 1.0f / 12.0f;
     }},
    {"folded twice",
     [](Grid& g) {
         for (float& x : g[0]) x = x * x - 1.0f / 12.0f;
         for (float& y : g[1]) y = y * y - 1.0f / 12.0f;
     }},
    {"sliver",
     [](Grid& g) {
         for (unsigned int i = 0; i < 16; ++i) g[1][i] = g[0][i] + 1e-5f * g[1][i];
     }},
    {"tiny",
     [](Grid& g) {
         for (unsigned int axis : {0u, 1u, 2u}) scale_axis(g, axis, 1e-42f);
     }},
    {"small",
     [](Grid& g) {
         for (unsigned int axis : {0u, 1u, 2u}) scale_axis(g, axis, 1e-22f);
     }},
    {"huge",
     [](Grid& g) {
         for (unsigned int axis : {0u, 1u, 2u}) scale_axis(g, axis, 1e18f);
     }},
    {"a vertex far away", [](Grid& g) { g[0][5] = 1e18f; }},
};

// Adds the hits of a ray with a patch; level 0 is the limit surface.
void trace(const Grid& grid, const Vec3d& direction, float slack, unsigned int level, sds::RayHits& hits) {
    GeometryRay record;
    record.direction = direction;
    record.origin = direction * -3.0;
    const GeometryRaytraceData data;
    GeometryRaytraceCtx rays(&record, 1, data);
    const GeometryRaySpace& space = rays.get_ray_space(0);
    const sds::RaySpace ray{space.origin, space.across, space.along, space.shift, record.tnear, record.tfar, slack};
    if (level == 0)
        sds::get_ray_kernels().adaptive(grid, ray, hits);
    else
        sds::get_ray_kernels().estimate(grid, ray, level, hits);
}

TEST(RaySpace, PatchesBelowTheirRoundingAreOneHit) {
    constexpr float slack = 1e-6f;
    const Vec3d directions[] = {{0, 0, 1}, {1, 0, 0}, {0.6, 0, 0.8}};
    for (const float size : {0.0f, 1e-8f, 0.3f * slack, 4.0f * slack})
        for (const float beside : {0.0f, 0.5f * slack, 9.0f * slack})
            for (const Vec3d& direction : directions)
                for (const unsigned int level : {0u, 1u, 3u, 6u, 24u}) {
                    SCOPED_TRACE(testing::Message() << size << ' ' << beside << ' ' << direction[0] << ' ' << level);
                    Grid grid;
                    set_bowl(grid);
                    for (unsigned int axis : {0u, 1u, 2u}) scale_axis(grid, axis, size);
                    for (float& y : grid[1]) y += beside;
                    sds::RayHits hits{};
                    trace(grid, direction, slack, level, hits);
                    if (beside > size + slack) {
                        EXPECT_EQ(hits.count, 0u);
                        continue;
                    }
                    ASSERT_GT(hits.count, 0u);
                    if (size <= slack) {
                        EXPECT_EQ(hits.count, 1u);
                        EXPECT_NEAR(hits.hits[0].t, 0.0f, size + slack);
                        EXPECT_EQ(hits.step_count, 0u);
                    }
                }
}

TEST(RaySpace, WorkOfARayAtAPatchIsBounded) {
    // Plain rays take up to a dozen.
    constexpr unsigned int most_steps = 400;
    const Vec3d directions[] = {{0, 0, 1}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}, {1, 1e-7, 0}, {1, 1, 1}, {0.3, 0.2, 1}};
    for (const Spoiled& patch : spoiled_patches)
        for (const Vec3d& direction : directions)
            for (const float slack : {0.0f, 1e-6f})
                for (const unsigned int level : {0u, 3u, 7u, 12u, 24u}) {
                    Grid grid;
                    set_bowl(grid);
                    patch.spoil(grid);
                    sds::RayHits hits{};
                    trace(grid, direction, slack, level, hits);
                    EXPECT_LE(hits.step_count, most_steps) << patch.name << ' ' << direction[1] << ' ' << level;
                    if (level == 0 && direction[0] == 0.0 && direction[2] == 1.0) {
                        EXPECT_GT(hits.count, 0u) << patch.name;
                    }
                }
}

}  // namespace
