#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>

#include "../surface_checks.h"
#include "oracles/surface_errors.h"
#include "qn_ctx/ctx_eval.h"
#include "qn_sys/sys_thread.h"
#include "sds/mesh_geometry/patch_arrays.h"

namespace {

using namespace sds_test;
using Mode = SdsMeshGeometry::InterpolationMode;
using Matrix = GMathMatrix4x4<double>;

const CtxShader shader;
const CtxEval ctx(shader);

bool same(const GMathBbox3<float>& a, const GMathBbox3<float>& b) {
    return a.get_min() == b.get_min() && a.get_max() == b.get_max();
}

struct Grouped {
    SdsMeshBase base;
    SdsMeshGeometry geometry;

    Grouped(const ZooMesh& cage, const std::vector<unsigned int>& groups, unsigned int group_count, Mode mode) {
        CoreArray<CoreString> names;
        for (unsigned int g = 0; g < group_count; ++g) names.add(CoreString(std::to_string(g)));
        base.set(static_cast<unsigned int>(cage.positions.size()), to_core_array(cage.indices),
                 to_core_array(cage.counts), to_core_array(groups), names, nullptr);
        geometry.set(base, to_core_array(cage.positions), {}, mode, nullptr);
    }
};

// The squares of areas leave single precision on both sides long before the areas do.
TEST(Area, AnySizeKeepsItsDigits) {
    for (const float size : {1e-18f, 1e-10f, 1e10f, 1e18f}) {
        ZooMesh cage = zoo_mesh("cube");
        for (Vec3f& p : cage.positions) p = p * size;
        const auto area = [](const ZooMesh& mesh) { return BuiltSurface(mesh).geometry.estimate_area(ctx, Matrix()); };
        const double expected = area(zoo_mesh("cube")) * double{size} * double{size};
        // Below the blend's own epsilon the least area stands for the area.
        EXPECT_NEAR(area(cage), expected, size < 1.0f ? 0.5 * expected : 1e-5 * expected) << size;
    }
}

TEST(Area, FlatQuadUnderAScale) {
    const BuiltSurface flat(make_cage({4}, {0, 1, 2, 3}, {{0, 0, 0}, {2, 0, 0}, {2, 3, 0}, {0, 3, 0}}),
                            {.mode = Mode::all_fixed});
    const auto& record = flat.geometry.get_area_record();
    EXPECT_EQ(record.x, 0.0f);
    EXPECT_EQ(record.y, 0.0f);
    EXPECT_NEAR(record.z, 6.0f, 1e-5f);
    EXPECT_EQ(record.blend, 0.0f);
    EXPECT_NEAR(flat.geometry.estimate_area(ctx, Matrix()), 6.0, 1e-5);
    EXPECT_NEAR(flat.geometry.estimate_area(ctx, Matrix::scale(2, 3, 4)), 36.0, 1e-4);
    EXPECT_NEAR(flat.geometry.estimate_area(ctx, Matrix::scale(-2, 3, 4)), 36.0, 1e-4);
    Matrix moved = Matrix::scale(2, 3, 4);
    moved[3][0] = 1e6;
    EXPECT_EQ(flat.geometry.estimate_area(ctx, moved), flat.geometry.estimate_area(ctx, Matrix::scale(2, 3, 4)));
    EXPECT_NEAR(flat.geometry.estimate_primitive_area(ctx, 0, moved), 36.0, 1e-4);
}

TEST(Area, IdentityGivesTheSummedAreaOfTheZoo) {
    for (const ZooMesh& cage : mesh_zoo())
        for (const Mode mode : {Mode::all_fixed, Mode::corners_fixed}) {
            SCOPED_TRACE(cage.name);
            const BuiltSurface surface(cage, {.mode = mode});
            double sum = 0.0;
            for (unsigned int q = 0; q < surface.get_quad_count(); ++q)
                sum += surface.geometry.estimate_primitive_area(ctx, q, Matrix());
            EXPECT_NEAR(surface.geometry.estimate_area(ctx, Matrix()), sum, 2e-5 * sum);
            const auto& record = surface.geometry.get_area_record();
            EXPECT_GE(record.blend, -1e-4f);
            EXPECT_LE(record.blend, 1.0f + 1e-4f);
            // Any scale stays between the bounds that the projections give.
            const Matrix m = Matrix::scale(0.5, 2.0, 3.0);
            const double x = 6.0 * record.x, y = 1.5 * record.y, z = 1.0 * record.z;
            EXPECT_GE(surface.geometry.estimate_area(ctx, m), std::sqrt(x * x + y * y + z * z) * (1 - 1e-4));
            EXPECT_LE(surface.geometry.estimate_area(ctx, m), (x + y + z) * (1 + 1e-4));
        }
}

// Many groups on few patches too: the threads' private rows must not mix.
TEST(Bounds, GroupsHoldTheControlPointsOfTheirPatches) {
    for (const ZooMesh& cage : {zoo_mesh("cube"), zoo_mesh("tetrahedron"), make_torus(30, 20)})
        for (const Mode mode : {Mode::all_fixed, Mode::corners_fixed}) {
            SCOPED_TRACE(cage.name);
            const unsigned int group_count = cage.counts.size() > 100 ? 37 : 4;  // the last one is empty
            std::vector<unsigned int> groups;
            for (unsigned int p = 0; p < cage.counts.size(); ++p) groups.push_back(p * 7 % (group_count - 1));
            std::unique_ptr<Grouped> surface;
            SysThreadArena(4).execute([&] { surface = std::make_unique<Grouped>(cage, groups, group_count, mode); });
            const SdsMeshGeometry& geometry = surface->geometry;
            std::vector<GMathBbox3<float>> boxes(group_count, GMathBbox3<float>::empty());
            std::vector<double> areas(group_count, 0.0);
            const unsigned int quad_count = surface->base.get_primitive_count();
            std::vector<GMathBbox3<double>> together(quad_count);
            geometry.compute_primitive_bboxes(0, quad_count, together.data());
            geometry.compute_primitive_bboxes(quad_count / 2, 1, &together[quad_count / 2]);
            for (unsigned int q = 0; q < quad_count; ++q) {
                const unsigned int group = surface->base.get_primitive_shading_group_index(q);
                Vec3f controls[16];
                geometry.get_bezier_controls(q, controls);
                areas[group] += geometry.estimate_primitive_area(ctx, q, Matrix());
                GMathBbox3<double> box;
                geometry.compute_primitive_bbox(ctx, q, box);
                EXPECT_EQ(std::memcmp(&box, &together[q], sizeof box), 0) << q;
                for (const Vec3f& p : controls) {
                    boxes[group].grow(p);
                    EXPECT_TRUE(box.contains(Vec3d(p)));
                }
            }
            GMathBbox3<float> all = GMathBbox3<float>::empty();
            for (unsigned int g = 0; g < group_count; ++g) {
                EXPECT_TRUE(same(geometry.get_shading_group_bbox(g), boxes[g])) << g;
                EXPECT_NEAR(geometry.estimate_shading_group_area(ctx, g, Matrix()), areas[g], 2e-5 * areas[g] + 1e-12);
                all.grow(boxes[g]);
            }
            EXPECT_TRUE(geometry.get_shading_group_bbox(group_count - 1).is_empty());
            EXPECT_TRUE(same(geometry.get_bbox(), all));
        }
}

// NaN, and numbers whose sums overflow: every finite control point is in the box, and nothing else, by every
// instruction set, on patches that are computed and on refined ones.
TEST(Bounds, HoldTheFiniteControlPoints) {
    const float wild[] = {std::numeric_limits<float>::quiet_NaN(), 3e38f, -3e38f, 1.2e38f};
    std::vector<ZooMesh> cages = mesh_zoo();
    cages.push_back(make_sheet(3));
    for (unsigned int seed = 0; seed < 8 * cages.size(); ++seed) {
        ZooMesh cage = cages[seed % cages.size()];
        if (cage.positions.size() > 2000) continue;
        SCOPED_TRACE(cage.name + " " + std::to_string(seed));
        std::mt19937 random(seed);
        for (unsigned int i = 0; i < 1 + seed % 3; ++i)
            cage.positions[random() % cage.positions.size()][static_cast<unsigned int>(random() % 3)] =
                wild[random() % 4];
        for (const Mode mode : {Mode::all_fixed, Mode::corners_fixed, Mode::all_smoothed}) {
            BuiltSurface::Options options{.mode = mode};
            options.refinement.depth = seed & 1u;
            const BuiltSurface broken(cage, options);
            const unsigned int patch_count = broken.geometry.get_patch_count();
            GMathBbox3<float> expected = GMathBbox3<float>::empty();
            for (const Vec3f& p : controls_of(broken.geometry))
                if (p.is_finite()) expected.grow(p);
            EXPECT_TRUE(same(broken.geometry.get_bbox(), expected));
            const CoreArray<unsigned int> groups(patch_count, 0u);
            for (const sds::PairKernels* const* kernels = sds::get_all_pair_kernels(); *kernels != nullptr; ++kernels) {
                constexpr float largest = std::numeric_limits<float>::max();
                sds::PatchSums sums{{largest, largest, largest}, {-largest, -largest, -largest}, {0, 0, 0, 0}};
                for (const auto add : {(*kernels)->add_boxes, (*kernels)->add_areas})
                    add(sds::get_patch_arrays(broken.geometry), groups.get_data(), 0, patch_count, &sums);
                for (unsigned int axis = 0; axis < 3; ++axis) {
                    EXPECT_EQ(sums.low[axis], expected.get_min()[axis])
                        << "table " << kernels - sds::get_all_pair_kernels();
                    EXPECT_EQ(sums.high[axis], expected.get_max()[axis])
                        << "table " << kernels - sds::get_all_pair_kernels();
                }
                for (const double area : sums.areas) EXPECT_TRUE(std::isfinite(area));
            }
        }
    }
}

TEST(Bounds, NoPointsGiveZeroBoxesAndRecords) {
    const Grouped empty(ZooMesh{}, {}, 2, Mode::corners_fixed);
    for (const GMathBbox3<float>& box : {empty.geometry.get_bbox(), empty.geometry.get_shading_group_bbox(1)})
        EXPECT_TRUE(same(box, {{0, 0, 0}, {0, 0, 0}}));
    EXPECT_EQ(empty.geometry.estimate_shading_group_area(ctx, 1, Matrix()), 0.0);
    EXPECT_EQ(empty.geometry.estimate_area(ctx, Matrix()), 0.0);
}

TEST(Bounds, BoxAtATimeFollowsTheVertices) {
    const ZooMesh cage = make_sheet(4);
    const BuiltSurface still(cage), moving(cage, {.motion_vectors = std::vector<Vec3f>(25, {1, 0, 2})});
    EXPECT_TRUE(same(still.geometry.get_bbox_at(ctx, 5.0), still.geometry.get_bbox()));
    EXPECT_TRUE(same(moving.geometry.get_bbox_at(ctx, 1e-8), moving.geometry.get_bbox()));
    // Within the shutter, beyond it, and without one.
    CtxShader shuttered;
    shuttered.get_motion_blur().set_time_sampling(GMathTimeSampling(to_core_array(std::vector<double>{0.0, 1.0})));
    for (const CtxEval& frame : {ctx, CtxEval(shuttered)})
        for (const float time : {-1.0f, 0.5f, 2.0f}) {
            const Vec3f way = Vec3f(1, 0, 2) * time;
            GMathBbox3<float> vertices = GMathBbox3<float>::empty();
            for (const Vec3f& p : moving.geometry.get_vertices()) vertices.grow(p + way);
            EXPECT_TRUE(same(moving.geometry.get_bbox_at(frame, time), vertices)) << time;
            GMathBbox3<double> rest, then;
            moving.geometry.compute_primitive_bbox(frame, 3, rest);
            moving.geometry.compute_primitive_bbox_at(frame, 3, time, then);
            for (unsigned int i = 0; i < 3; ++i) {
                EXPECT_NEAR(then.get_min()[i], rest.get_min()[i] + static_cast<double>(way[i]), 1e-5);
                EXPECT_NEAR(then.get_max()[i], rest.get_max()[i] + static_cast<double>(way[i]), 1e-5);
            }
        }
}

}  // namespace
