// The fast kernels against the reference family, and their instruction sets against each other.
#include "sds/intersection/ray_space/ray_kernels.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "qn_ctx/ctx_eval.h"
#include "qn_geometry/geometry_raytrace_ctx.h"
#include "sds/common/control_grid.h"
#include "sds/intersection/bezier_intersection.h"
#include "support/built_surface.h"

namespace {

using namespace sds_test;

enum Family : unsigned int { fast = 0, reference = 1 };

struct Tracer {
    CtxShader shader;
    CtxThread thread;
    CtxEval ctx{shader, &thread};

    GeometryHit trace(const BuiltSurface& surface, const GeometryRay& from, Family family) {
        GeometryRay ray = from;
        GeometryRaytraceData data;
        data.kernel_family = family;
        GeometryRaytraceCtx rays(&ray, 1, data);
        for (unsigned int q = 0; q < surface.quad_count(); ++q) surface.mesh.intersect_primitive(ctx, q, rays);
        return ray.hit;
    }
};

GeometryRay random_ray(const BuiltSurface& surface, std::mt19937& random) {
    std::normal_distribution<double> normal;
    const GMathBbox3<double> box(surface.geometry.get_bbox());
    const double radius = 0.5 * box.get_diagonal();
    const auto direction = [&] {
        const Vec3d d(normal(random), normal(random), normal(random));
        return d * (1.0 / d.length());
    };
    GeometryRay ray;
    ray.origin = box.get_center() + direction() * (3.0 * radius);
    ray.direction = box.get_center() + direction() * (0.7 * radius * std::fabs(normal(random))) - ray.origin;
    return ray;
}

TEST(RaySpace, InstructionSetsGiveTheSameBits) {
    const BuiltSurface surface(make_torus(6, 5));
    const sds::RayKernels* const* all = sds::get_all_ray_kernels();
    ASSERT_NE(all[0], nullptr);
    std::mt19937 random(1);
    unsigned int hit_count = 0;
    for (unsigned int i = 0; i < 4000; ++i) {
        GeometryRay record = random_ray(surface, random);
        const GeometryRaytraceData data;
        GeometryRaytraceCtx rays(&record, 1, data);
        const GeometryRaySpace& space = rays.get_ray_space(0);
        sds::RaySpace ray;
        for (unsigned int axis = 0; axis < 3; ++axis) {
            ray.origin[axis] = space.origin[axis];
            ray.across[0][axis] = space.across[0][axis];
            ray.across[1][axis] = space.across[1][axis];
            ray.along[axis] = space.along[axis];
        }
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
                    EXPECT_EQ(a.hits[h].t, b.hits[h].t);
                    EXPECT_EQ(a.hits[h].u, b.hits[h].u);
                    EXPECT_EQ(a.hits[h].v, b.hits[h].v);
                    EXPECT_EQ(a.hits[h].side, b.hits[h].side);
                }
            }
    }
    if (all[1] != nullptr) {
        EXPECT_GT(hit_count, 300u);
    }
}

// Same primitive, distance and place; where the two differ the ray must be within rounding of an edge or a silhouette.
TEST(RaySpace, HitsAreThoseOfTheReferenceFamily) {
    for (const unsigned int level : {0u, 1u, 3u, 5u}) {
        for (const ZooMesh& cage : {make_torus(7, 6), make_pole(7), make_sheet(4)}) {
            BuiltSurface::Options options;
            options.level = level;
            const BuiltSurface surface(cage, options);
            Tracer tracer;
            std::mt19937 random(level + 1);
            unsigned int differences = 0, hits = 0;
            const unsigned int ray_count = level == 0 ? 1500 : 3000;
            for (unsigned int i = 0; i < ray_count; ++i) {
                const GeometryRay ray = random_ray(surface, random);
                const GeometryHit a = tracer.trace(surface, ray, fast);
                const GeometryHit b = tracer.trace(surface, ray, reference);
                hits += b.primitive != 0xFFFFFFFFu;
                if ((a.primitive == 0xFFFFFFFFu) != (b.primitive == 0xFFFFFFFFu)) {
                    ++differences;
                    continue;
                }
                if (b.primitive == 0xFFFFFFFFu) continue;
                // The reference reduces a leaf of about 3e-6 to its centre; a grazing ray slides along it.
                const double tolerance = level == 0 ? 1e-5 : 2e-6;
                const double distance = ray.direction.length();
                if (std::fabs(a.t - b.t) * distance > tolerance * (surface.diagonal() + distance)) {
                    ++differences;
                } else if (a.primitive == b.primitive) {
                    const double place = level == 0 ? 2e-4 : 1e-4;
                    if (std::fabs(a.u - b.u) > place || std::fabs(a.v - b.v) > place) ++differences;
                }
            }
            EXPECT_GT(hits, ray_count / 4) << cage.name;
            EXPECT_LE(differences, ray_count / 300) << cage.name << " level " << level;
        }
    }
}

TEST(RaySpace, PacketsFindWhatSingleRaysFind) {
    for (const unsigned int level : {0u, 2u, 4u}) {
        BuiltSurface::Options options;
        options.level = level;
        const BuiltSurface surface(make_torus(7, 6), options);
        Tracer tracer;
        std::mt19937 random(3);
        for (unsigned int batch = 0; batch < 60; ++batch) {
            constexpr unsigned int count = 11;
            std::vector<GeometryRay> rays(count);
            GeometryIntersectionMap map(count);
            for (unsigned int i = 0; i < count; ++i) {
                rays[i] = random_ray(surface, random);
                if (i != 0 && batch % 2 == 0) {
                    rays[i] = rays[0];
                    rays[i].direction += Vec3d(0.01 * i, 0.005 * i, 0.0);
                }
                map.get_path(i).reset(1, rays[i].tfar);
            }
            GeometryRaytraceData data;
            data.map = &map;
            GeometryRaytraceCtx context(rays.data(), count, data);
            for (unsigned int q = 0; q < surface.quad_count(); ++q)
                surface.mesh.intersect_primitive(tracer.ctx, q, context);
            for (unsigned int i = 0; i < count; ++i) {
                GeometryRay plain;
                plain.origin = rays[i].origin;
                plain.direction = rays[i].direction;
                const GeometryHit single = tracer.trace(surface, plain, fast);
                const bool found = !map.get_path(i).get_hits().is_empty();
                ASSERT_EQ(found, single.primitive != 0xFFFFFFFFu) << "level " << level;
                if (found) {
                    EXPECT_NEAR(map.get_path(i).get_hits()[0].t, single.t, 2e-6);
                }
            }
        }
    }
}

TEST(RaySpace, AnEdgeOnPatchEndsAndRaysWithoutSenseHitNothing) {
    ZooMesh flat = make_sheet(1);
    for (Vec3f& p : flat.positions) p[2] = 0.0f;
    Tracer tracer;
    for (const unsigned int level : {0u, 5u}) {
        BuiltSurface::Options options;
        options.level = level;
        const BuiltSurface surface(flat, options);
        const Vec3d centre = GMathBbox3<double>(surface.geometry.get_bbox()).get_center();
        GeometryRay ray;
        ray.origin = centre - Vec3d(10, 0, 0);
        ray.direction = {1, 0, 0};
        tracer.trace(surface, ray, fast);  // returns at all
        for (const Vec3d& direction : {Vec3d(0, 0, 0), Vec3d(std::nan(""), 0, 1), Vec3d(0, 0, HUGE_VAL)}) {
            ray.direction = direction;
            EXPECT_EQ(tracer.trace(surface, ray, fast).primitive, 0xFFFFFFFFu);
            EXPECT_EQ(tracer.trace(surface, ray, reference).primitive, 0xFFFFFFFFu);
        }
        ray.origin = centre + Vec3d(0.01, 0.02, 5);
        ray.direction = {0, 0, -1e-40};
        const GeometryHit hit = tracer.trace(surface, ray, fast);
        EXPECT_TRUE(hit.primitive == 0xFFFFFFFFu || std::isfinite(hit.u));
        ray.direction = {0, 0, -1};
        ray.tnear = 6;
        EXPECT_EQ(tracer.trace(surface, ray, fast).primitive, 0xFFFFFFFFu);
        ray.tnear = 5.5;
        ray.tfar = 4.5;
        EXPECT_EQ(tracer.trace(surface, ray, fast).primitive, 0xFFFFFFFFu);
        ray.tnear = -7;
        ray.tfar = 7;
        EXPECT_NEAR(tracer.trace(surface, ray, fast).t, 5.0, 1e-5);
    }
}

}  // namespace
