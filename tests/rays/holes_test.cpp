// No ray slips through a closed surface, from inside or from outside, near or far, wherever it is aimed.
#include <gtest/gtest.h>

#include <span>

#include "oracles/moving_holes.h"
#include "qn_sys/sys_thread.h"
#include "render/scene.h"

namespace sds_test {
namespace {

constexpr unsigned int rays_per_aim = 400;

enum class Route { fast, reference, renderer };

std::string name_of_cage(const ::testing::TestParamInfo<const ZooMesh*>& info) { return case_name(info.param->name); }

class Holes : public ::testing::TestWithParam<const ZooMesh*> {
protected:
    // Adds up all aims and distances; no rays where the surface is too thin to tell inside from outside.
    static HoleCounts count(const ZooMesh& cage, unsigned int level, Route route, unsigned int depth = 0,
                            unsigned int ray_count = rays_per_aim) {
        BuiltSurface::Options options;
        options.level = level;
        options.refinement.depth = depth;
        const BuiltSurface surface(cage, options);
        const RayOracle oracle(surface.mesh);
        const std::vector<Vec3d> inside = find_inside_points(oracle, 8);
        HoleCounts counts;
        if (inside.empty()) return counts;
        const PatchTracer tracer(surface.mesh, oracle, route == Route::fast ? fast_kernels : reference_kernels);
        sds_render::Scene scene;
        scene.add(surface.mesh);
        scene.commit();
        std::vector<std::unique_ptr<sds_render::RenderThread>> threads;
        for (unsigned int i = 0; i < sys_max_worker_count(); ++i)
            threads.push_back(std::make_unique<sds_render::RenderThread>(scene.get_shader_ctx()));
        const auto trace = [&](GeometryRay& ray, unsigned int worker) {
            if (route == Route::renderer)
                scene.intersect(ray, *threads[worker]);
            else
                tracer.trace(ray, worker);
        };
        for (const double diagonals : {0.0, 1.0, 10.0, 1000.0})
            for (const Aim aim : depth == 0 ? std::span<const Aim>(all_aims) : std::span<const Aim>(refined_aims))
                counts += count_holes(oracle, trace, inside, aim, diagonals, ray_count);
        return counts;
    }
};

INSTANTIATE_TEST_SUITE_P(ClosedCages, Holes,
                         ::testing::ValuesIn(cages_in(closed, nonmanifold_edge | nonmanifold_vertex | huge_valence)),
                         name_of_cage);

TEST_P(Holes, NoneAtAnyLevel) {
    for (const unsigned int level : {0u, 1u, 2u, 4u, 6u})
        for (const Route route : {Route::fast, Route::reference}) {
            const HoleCounts counts = count(*GetParam(), level, route);
            EXPECT_GT(counts.rays, 0u) << "no point is well inside";
            EXPECT_EQ(counts.lost, 0u) << "level " << level << ", route " << static_cast<int>(route);
            EXPECT_EQ(counts.late, 0u) << "level " << level << ", route " << static_cast<int>(route);
            EXPECT_LE(counts.grazing, counts.rays / 200);
        }
}

// Patches of several levels meet in parts of edges.
TEST_P(Holes, NoneInRefinedSurfaces) {
    for (const unsigned int depth : {1u, 2u, 3u})
        for (const unsigned int level : {0u, 1u, 2u, 3u})
            for (const Route route : {Route::fast, Route::reference, Route::renderer}) {
                const HoleCounts counts = count(*GetParam(), level, route, depth, 30);
                EXPECT_GT(counts.rays, 0u);
                EXPECT_EQ(counts.lost + counts.late, 0u)
                    << "depth " << depth << ", level " << level << ", route " << static_cast<int>(route);
            }
}

TEST_P(Holes, NoneThroughTheRenderer) {
    for (const unsigned int level : {0u, 3u}) {
        const HoleCounts counts = count(*GetParam(), level, Route::renderer);
        EXPECT_EQ(counts.lost + counts.late, 0u) << "level " << level;
    }
}

// Positions there are told apart to 1/64 at a radius of 2: hits are as coarse, but none is lost.
TEST_P(Holes, NoneFarFromTheOrigin) {
    const ZooMesh cage = moved(*GetParam(), {148376, 1234, -223423}, 2.0);
    std::uint64_t rays = 0;
    for (const unsigned int level : {0u, 3u}) {
        const HoleCounts fast = count(cage, level, Route::fast);
        const HoleCounts reference = count(cage, level, Route::reference);
        const HoleCounts renderer = count(cage, level, Route::renderer);
        EXPECT_EQ(fast.lost + reference.lost + renderer.lost, 0u) << "level " << level;
        EXPECT_LE(renderer.late, fast.late) << "the hierarchy keeps a primitive from a ray, level " << level;
        rays += fast.rays;
    }
    if (rays == 0) GTEST_SKIP() << "too thin there to tell inside from outside";
}

TEST(MovingHoles, NoneAtAnyTime) {
    for (const char* name : {"cube", "torus", "prism5_crease_loop"})
        for (const CageMotion motion : all_cage_motions)
            for (const unsigned int level : {0u, 1u, 3u, 6u}) {
                SCOPED_TRACE(testing::Message() << name << ", " << name_of(motion) << ", level " << level);
                const MovingHoles holes = count_moving_holes(zoo_mesh(name), motion, level, 2, 40);
                EXPECT_EQ(holes.times, 2u) << "no point is well inside";
                EXPECT_EQ(holes.fast.lost + holes.fast.late, 0u);
                EXPECT_EQ(holes.scene.lost + holes.scene.late, 0u);
                EXPECT_LE(holes.total().grazing, holes.total().rays / 200);
            }
}

TEST(MovingHoles, NoneInRefinedSurfaces) {
    for (const char* name : {"cube", "torus_dart", "prism5_crease_loop"})
        for (const CageMotion motion : all_cage_motions)
            for (const unsigned int level : {0u, 2u}) {
                SCOPED_TRACE(testing::Message() << name << ", " << name_of(motion) << ", level " << level);
                const MovingHoles holes = count_moving_holes(zoo_mesh(name), motion, level, 2, 100, {}, 2);
                EXPECT_EQ(holes.total().lost + holes.total().late, 0u);
            }
}

}  // namespace
}  // namespace sds_test
