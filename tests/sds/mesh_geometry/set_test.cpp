#include <gmock/gmock.h>

#include <cstring>
#include <memory>

#include "../surface_checks.h"
#include "qn_ctx/ctx_eval.h"
#include "qn_sys/sys_thread.h"
#include "support/recorders.h"

namespace {

using namespace sds_test;
using testing::ElementsAre;
using Mode = SdsMeshGeometry::InterpolationMode;

using Tasks = std::vector<std::pair<std::string, float>>;

// The tasks of the geometry's build alone.
Tasks geometry_tasks(const BuiltSurface& surface, const ZooMesh& cage, Mode mode, const std::vector<Vec3f>& motion,
                     RecordingProgress& bar) {
    SdsMeshGeometry geometry;
    geometry.set(surface.base, to_core_array(cage.positions), to_core_array(motion), mode, &bar);
    EXPECT_EQ(bar.open, 0u);
    EXPECT_THAT(bar.values, ElementsAre(0.0f, 1.0f));
    return bar.at_depth(0);
}

// Linear tasks add up to seven tenths.
TEST(GeometrySet, TasksInOrder) {
    const Tasks first{{"compute subdivision positions", 0.1f},
                      {"analyse vertices topology", 0.2f},
                      {"prepare tangent computation", 0.1f}};
    Tasks linear = first, still = first, moving = first;
    linear.emplace_back("update bbox and area", 0.3f);
    still.insert(still.end(), {{"compute bezier topology", 0.1f}, {"compute bezier corners", 0.2f}});
    moving.insert(moving.end(), {{"compute bezier topology", 0.1f},
                                 {"compute bezier corners", 0.1f},
                                 {"compute bezier corners motion vectors", 0.1f}});
    for (Tasks* tasks : {&still, &moving})
        tasks->insert(tasks->end(), {{"compute bezier tangents", 0.2f}, {"update bbox and area", 0.1f}});
    for (const char* name : {"cube", "tetrahedron"}) {
        const ZooMesh& cage = zoo_mesh(name);
        const BuiltSurface surface(cage);
        for (const Mode mode :
             {Mode::all_fixed, Mode::corners_fixed, Mode::all_smoothed, Mode::borders_fixed, Mode(17)})
            for (const bool moves : {false, true}) {
                RecordingProgress bar;
                EXPECT_EQ(geometry_tasks(surface, cage, mode, moves ? cage.positions : std::vector<Vec3f>(), bar),
                          mode == Mode::all_fixed ? linear : (moves ? moving : still));
            }
    }
}

// Everything that positions enter, as bytes.
std::vector<unsigned char> bytes_of(const SdsMeshGeometry& geometry) {
    std::vector<unsigned char> bytes;
    const auto add = [&bytes](const void* data, size_t size) {
        const auto* first = static_cast<const unsigned char*>(data);
        bytes.insert(bytes.end(), first, first + size);
    };
    Vec3f points[24];
    for (unsigned int q = 0; q < geometry.get_base()->get_primitive_count(); ++q) {
        geometry.get_bezier_controls(q, points);
        add(points, 16 * sizeof(Vec3f));
        geometry.get_bezier_tangents(q, points);
        add(points, sizeof(points));
    }
    const GMathBbox3<float> box = geometry.get_bbox();
    add(&box, sizeof(box));
    const double area = geometry.estimate_area(CtxEval(CtxShader()), GMathMatrix4x4<double>());
    add(&area, sizeof(area));
    return bytes;
}

TEST(GeometrySet, NewPositionsAreWhatAFreshGeometryHas) {
    for (const ZooMesh& cage : mesh_zoo()) {
        const BuiltSurface surface(cage);
        std::vector<Vec3f> moved = cage.positions;
        for (size_t i = 0; i < moved.size(); ++i)
            moved[i] = moved[i] * 1.5f + Vec3f(0.1f * static_cast<float>(i % 7), 0, 0.3f);
        const auto set = [&](SdsMeshGeometry& geometry, const SdsMeshBase& base, Mode mode) {
            geometry.set(base, to_core_array(moved), {}, mode, nullptr);
        };
        for (const Mode mode : {Mode::corners_fixed, Mode::borders_fixed, Mode::all_fixed}) {
            SdsMeshGeometry fresh, again, copy;
            set(fresh, surface.base, mode);
            const std::vector<unsigned char> expected = bytes_of(fresh);
            again.set(surface.base, to_core_array(cage.positions), to_core_array(cage.positions), mode, nullptr);
            copy = again;
            set(again, surface.base, mode);
            EXPECT_EQ(bytes_of(again), expected) << cage.name;
            const SdsMeshBase other_base(surface.base);
            set(copy, other_base, mode);
            EXPECT_EQ(bytes_of(copy), expected) << cage.name << ", copies of both";
            set(again, surface.base, Mode::all_smoothed);
            set(again, surface.base, mode);
            EXPECT_EQ(bytes_of(again), expected) << cage.name << ", after another mode";
        }
    }
}

// On one thread and on several: what stays is reported as what is made.
TEST(GeometrySet, NewPositionsReportWhatAFirstBuildReports) {
    for (const ZooMesh& cage : {zoo_mesh("cube"), make_torus(20, 10)})
        for (const Mode mode : {Mode::all_fixed, Mode::corners_fixed}) {
            const BuiltSurface surface(cage);
            SdsMeshGeometry geometry;
            RecordingProgress first, again;
            for (RecordingProgress* bar : {&first, &again})
                geometry.set(surface.base, to_core_array(cage.positions), {}, mode, bar);
            ASSERT_EQ(again.tasks.size(), first.tasks.size());
            for (size_t i = 0; i < first.tasks.size(); ++i) {
                const RecordingProgress::Task &a = first.tasks[i], &b = again.tasks[i];
                EXPECT_EQ(b.label, a.label);
                EXPECT_EQ(b.step_count, a.step_count) << a.label;
                EXPECT_EQ(b.steps, a.steps) << a.label;
                EXPECT_EQ(b.last_step, a.last_step) << a.label;
                EXPECT_NEAR(b.shares, a.shares, 1e-5) << a.label;
            }
        }
}

TEST(GeometrySet, ABaseBuiltAnewIsAnotherTopology) {
    ZooMesh cage = zoo_mesh("cube");
    SdsMeshBase base;
    SdsMeshGeometry geometry, fresh;
    set_base(base, cage);
    geometry.set(base, to_core_array(cage.positions), {}, Mode::corners_fixed, nullptr);
    // The same object, now of one quad less.
    cage.counts.pop_back();
    cage.indices.resize(cage.indices.size() - 4);
    set_base(base, cage);
    geometry.set(base, to_core_array(cage.positions), {}, Mode::corners_fixed, nullptr);
    fresh.set(base, to_core_array(cage.positions), {}, Mode::corners_fixed, nullptr);
    EXPECT_EQ(bytes_of(geometry), bytes_of(fresh));
}

TEST(GeometrySet, UnknownModeKeepsTheInfosOfTheBase) {
    const BuiltSurface surface(zoo_mesh("sheet_dart"), {.mode = Mode(4)});
    ASSERT_EQ(surface.geometry.get_vertex_infos().get_count(), surface.base.get_vertex_infos().get_count());
    for (unsigned int v = 0; v < surface.base.get_vertex_infos().get_count(); ++v)
        EXPECT_EQ(surface.geometry.get_vertex_infos()[v].bits, surface.base.get_vertex_infos()[v].bits);
    EXPECT_EQ(surface.geometry.get_bezier_patches().get_count(), surface.quad_count());
}

// Every array that the build fills, to the bit.
template <class T>
void expect_same_bits(const CoreBasicArray<T>& a, const CoreBasicArray<T>& b, const char* what) {
    ASSERT_EQ(a.get_count(), b.get_count()) << what;
    if (a.get_count() == 0) return;
    EXPECT_EQ(std::memcmp(static_cast<const void*>(a.get_data()), b.get_data(), sizeof(T) * a.get_count()), 0) << what;
}

TEST(GeometrySet, OneThreadAndManyThreadsGiveTheSameBits) {
    std::vector<ZooMesh> cages{make_torus(40, 20), make_sheet(24), make_pole(150)};
    for (const ZooMesh& cage : mesh_zoo())
        if (cage.indices.size() >= 128) cages.push_back(cage);
    for (const ZooMesh& cage : cages)
        for (const Mode mode : {Mode::all_fixed, Mode::corners_fixed}) {
            SCOPED_TRACE(cage.name);
            const auto build = [&](unsigned int threads) {
                std::unique_ptr<BuiltSurface> surface;
                const BuiltSurface::Options options{.mode = mode, .motion_vectors = cage.positions};
                SysThreadArena(threads).execute([&] { surface = std::make_unique<BuiltSurface>(cage, options); });
                return surface;
            };
            const auto one = build(1), four = build(4);
            const SdsMeshGeometry &a = one->geometry, &b = four->geometry;
            expect_same_bits(a.get_vertices(), b.get_vertices(), "vertices");
            expect_same_bits(a.get_motion_vectors(), b.get_motion_vectors(), "motion vectors");
            expect_same_bits(a.get_vertex_infos(), b.get_vertex_infos(), "vertex infos");
            expect_same_bits(a.get_tangent_infos(), b.get_tangent_infos(), "tangent infos");
            expect_same_bits(a.get_bezier_patches(), b.get_bezier_patches(), "patches");
            expect_same_bits(a.get_bezier_corners(), b.get_bezier_corners(), "corners");
            expect_same_bits(a.get_bezier_tangents_array(), b.get_bezier_tangents_array(), "tangents");
            EXPECT_EQ(a.get_bbox().get_min(), b.get_bbox().get_min());
            EXPECT_EQ(a.get_bbox().get_max(), b.get_bbox().get_max());
            const auto &ra = a.get_area_record(), &rb = b.get_area_record();
            EXPECT_FLOAT_EQ(ra.x, rb.x);
            EXPECT_FLOAT_EQ(ra.y, rb.y);
            EXPECT_FLOAT_EQ(ra.z, rb.z);
            EXPECT_NEAR(ra.blend, rb.blend, 1e-5f);
        }
}

TEST(GeometryCopies, CopyStandsAloneAndAssignmentSharesTheViewUntilTheNextSet) {
    const ZooMesh& cage = zoo_mesh("prism5_crease_loop");
    const BuiltSurface surface(cage, {.motion_vectors = cage.positions});
    auto source = std::make_unique<SdsMeshGeometry>();
    source->set(surface.base, to_core_array(cage.positions), to_core_array(cage.positions), Mode::corners_fixed,
                nullptr);
    const std::vector<Vec3f> expected = controls_of(*source);
    const SdsMeshGeometry copy(*source);
    EXPECT_NE(copy.get_vertices().get_data(), source->get_vertices().get_data());
    EXPECT_EQ(copy.get_bezier_mesh().get_patch_vertices(0), copy.get_bezier_corners().get_data());
    source.reset();
    EXPECT_EQ(controls_of(copy), expected);
    Vec3f c[16];
    copy.get_bezier_controls_at(0, 1.0, c);
    expect_near(c[0], expected[0] * 2.0f, 1e-5);

    SdsMeshGeometry target;
    target = surface.geometry;
    target = *&target;
    EXPECT_EQ(target.get_bezier_mesh().get_quad_vertices(0), surface.geometry.get_vertices().get_data());
    EXPECT_EQ(controls_of(target), expected);
    target.set(surface.base, to_core_array(cage.positions), {}, Mode::corners_fixed, nullptr);
    EXPECT_EQ(target.get_bezier_mesh().get_quad_vertices(0), target.get_vertices().get_data());
    EXPECT_EQ(controls_of(target), expected);

    EXPECT_EQ(SdsMeshGeometry(SdsMeshGeometry()).get_bezier_mesh().get_patch_count(), 0u);
    target = SdsMeshGeometry();
    EXPECT_EQ(target.get_vertices().get_count(), 0u);
}

}  // namespace
