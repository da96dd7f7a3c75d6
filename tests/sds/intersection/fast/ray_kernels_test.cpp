// The fast kernels' instruction sets against each other.
#include "sds/intersection/fast/ray_kernels.h"

#include <gtest/gtest.h>

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
        surface.geometry.get_bezier_controls(i % surface.quad_count(), controls);
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

}  // namespace
