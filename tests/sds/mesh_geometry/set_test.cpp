#include <gmock/gmock.h>

#include <cstring>
#include <memory>

#include "../build_options.h"
#include "qn_ctx/ctx_eval.h"
#include "qn_sys/sys_thread.h"
#include "support/recorders.h"

namespace {

using sds_test::BuiltSurface;
using sds_test::RecordingProgress;
using sds_test::to_core_array;
using sds_test::Vec3f;
using sds_test::ZooMesh;
using testing::ElementsAre;
using Mode = SdsMeshGeometry::InterpolationMode;

// The tasks of the geometry's build alone.
std::vector<std::pair<std::string, float>> geometry_tasks(const BuiltSurface& surface, const ZooMesh& cage, Mode mode,
                                                          const std::vector<Vec3f>& motion, RecordingProgress& bar) {
    SdsMeshGeometry geometry;
    geometry.set(surface.base, to_core_array(cage.positions), to_core_array(motion), mode, &bar);
    EXPECT_EQ(bar.open, 0u);
    EXPECT_THAT(bar.values, ElementsAre(0.0f, 1.0f));
    return bar.at_depth(0);
}

TEST(GeometrySet, SmoothTasksInOrder) {
    for (const char* name : {"cube", "tetrahedron"}) {
        const ZooMesh& cage = sds_test::zoo_mesh(name);
        const BuiltSurface surface(cage);
        for (const Mode mode : {Mode::corners_fixed, Mode::all_smoothed, Mode::borders_fixed, Mode(17)}) {
            RecordingProgress bar;
            EXPECT_THAT(
                geometry_tasks(surface, cage, mode, {}, bar),
                ElementsAre(std::pair("compute subdivision positions", 0.1f),
                            std::pair("analyse vertices topology", 0.2f),
                            std::pair("prepare tangent computation", 0.1f), std::pair("compute bezier topology", 0.1f),
                            std::pair("compute bezier corners", 0.2f), std::pair("compute bezier tangents", 0.2f),
                            std::pair("update bbox and area", 0.1f)));
        }
    }
}

TEST(GeometrySet, MotionSplitsTheCornerTask) {
    const ZooMesh& cage = sds_test::zoo_mesh("cube");
    const BuiltSurface surface(cage);
    RecordingProgress bar;
    EXPECT_THAT(
        geometry_tasks(surface, cage, Mode::corners_fixed, cage.positions, bar),
        ElementsAre(std::pair("compute subdivision positions", 0.1f), std::pair("analyse vertices topology", 0.2f),
                    std::pair("prepare tangent computation", 0.1f), std::pair("compute bezier topology", 0.1f),
                    std::pair("compute bezier corners", 0.1f), std::pair("compute bezier corners motion vectors", 0.1f),
                    std::pair("compute bezier tangents", 0.2f), std::pair("update bbox and area", 0.1f)));
}

TEST(GeometrySet, LinearTasksAddUpToSevenTenths) {
    const ZooMesh& cage = sds_test::zoo_mesh("tetrahedron");
    const BuiltSurface surface(cage);
    for (const std::vector<Vec3f>& motion : {std::vector<Vec3f>(), cage.positions}) {
        RecordingProgress bar;
        EXPECT_THAT(
            geometry_tasks(surface, cage, Mode::all_fixed, motion, bar),
            ElementsAre(std::pair("compute subdivision positions", 0.1f), std::pair("analyse vertices topology", 0.2f),
                        std::pair("prepare tangent computation", 0.1f), std::pair("update bbox and area", 0.3f)));
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
    for (const ZooMesh& cage : sds_test::mesh_zoo()) {
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

TEST(GeometrySet, ABaseBuiltAnewIsAnotherTopology) {
    const ZooMesh& cube = sds_test::zoo_mesh("cube");
    BuiltSurface surface(cube);
    SdsMeshGeometry geometry;
    geometry.set(surface.base, to_core_array(cube.positions), {}, Mode::corners_fixed, nullptr);
    // The same object, now of one quad less.
    std::vector<unsigned int> counts = cube.counts, indices = cube.indices, groups(counts.size() - 1, 0);
    counts.pop_back();
    indices.resize(indices.size() - 4);
    surface.base.set(static_cast<unsigned int>(cube.positions.size()), to_core_array(indices), to_core_array(counts),
                     to_core_array(groups), {}, nullptr);
    geometry.set(surface.base, to_core_array(cube.positions), {}, Mode::corners_fixed, nullptr);
    SdsMeshGeometry fresh;
    fresh.set(surface.base, to_core_array(cube.positions), {}, Mode::corners_fixed, nullptr);
    EXPECT_EQ(bytes_of(geometry), bytes_of(fresh));
}

TEST(GeometrySet, ThreadsStartAtOneHundredTwentyEightQuads) {
    ZooMesh cage;
    for (const unsigned int quads : {127u, 128u}) {
        cage.positions.clear();
        cage.counts.assign(quads, 4);
        cage.indices.clear();
        for (unsigned int i = 0; i <= quads; ++i)
            for (const float y : {0.0f, 1.0f}) cage.positions.emplace_back(static_cast<float>(i), y, 0.0f);
        for (unsigned int i = 0; i < quads; ++i)
            for (const unsigned int v : {2 * i, 2 * i + 2, 2 * i + 3, 2 * i + 1}) cage.indices.push_back(v);
        cage.corner_creases.assign(cage.indices.size(), 0);
        const BuiltSurface surface(cage);
        RecordingProgress bar;
        geometry_tasks(surface, cage, Mode::corners_fixed, {}, bar);
        for (const char* label : {"analyse vertices topology", "compute bezier tangents", "update bbox and area"}) {
            const RecordingProgress::Task& task = *bar.find(label);
            EXPECT_EQ(task.increments > 0, quads == 128) << label;
            EXPECT_EQ(task.steps > 0, quads == 127) << label;
            if (quads == 128) {
                EXPECT_NEAR(task.shares, 1.0, 1e-5) << label;
            }
        }
    }
}

TEST(GeometrySet, MotionVectorsOfAnotherCountAreIgnored) {
    const ZooMesh& cage = sds_test::zoo_mesh("tetrahedron");
    const BuiltSurface still(cage), moving(cage, sds_test::with_motion(cage.positions));
    EXPECT_FALSE(still.geometry.has_motion_vectors());
    EXPECT_TRUE(moving.geometry.has_motion_vectors());
    EXPECT_TRUE(moving.geometry.is_animated());
    // Motion vectors equal to the positions follow the same rules.
    for (unsigned int v = 0; v < moving.geometry.get_vertices().get_count(); ++v)
        EXPECT_EQ(moving.geometry.get_motion_vectors()[v], moving.geometry.get_vertices()[v]);
    for (const size_t count : {size_t{1}, cage.positions.size() - 1, cage.positions.size() + 1}) {
        const BuiltSurface other(cage, sds_test::with_motion(std::vector<Vec3f>(count, {1, 0, 0})));
        EXPECT_FALSE(other.geometry.has_motion_vectors());
        EXPECT_FALSE(other.geometry.is_animated());
    }
}

TEST(GeometrySet, ModeZeroHasNoSmoothParts) {
    const BuiltSurface surface(sds_test::zoo_mesh("tetrahedron"), sds_test::with_mode(Mode::all_fixed));
    EXPECT_TRUE(surface.geometry.get_bezier_patches().is_empty());
    EXPECT_TRUE(surface.geometry.get_bezier_corners().is_empty());
    EXPECT_TRUE(surface.geometry.get_bezier_tangents_array().is_empty());
    const SdsBezierMesh& view = surface.geometry.get_bezier_mesh();
    EXPECT_EQ(view.get_patch_vertices(0), surface.geometry.get_vertices().get_data());
    Vec3f c[16];
    surface.geometry.get_bezier_controls(0, c);
    EXPECT_EQ(c[8], surface.geometry.get_vertices()[surface.base.get_quad_indices()[2]]);
    // Setting it again as a smooth one, and back, leaves nothing behind.
    SdsMeshGeometry again;
    const CoreArray<Vec3f> positions = to_core_array(sds_test::zoo_mesh("tetrahedron").positions);
    again.set(surface.base, positions, positions, Mode::corners_fixed, nullptr);
    again.set(surface.base, positions, {}, Mode::all_fixed, nullptr);
    EXPECT_FALSE(again.has_motion_vectors());
    Vec3f d[16];
    again.get_bezier_controls(0, d);
    for (unsigned int i = 0; i < 16; ++i) EXPECT_EQ(c[i], d[i]);
}

TEST(GeometrySet, UnknownModeKeepsTheInfosOfTheBase) {
    const BuiltSurface surface(sds_test::zoo_mesh("sheet_dart"), sds_test::with_mode(Mode(4)));
    ASSERT_EQ(surface.geometry.get_vertex_infos().get_count(), surface.base.get_vertex_infos().get_count());
    for (unsigned int v = 0; v < surface.base.get_vertex_infos().get_count(); ++v)
        EXPECT_EQ(surface.geometry.get_vertex_infos()[v].bits, surface.base.get_vertex_infos()[v].bits);
    EXPECT_EQ(surface.geometry.get_bezier_patches().get_count(), surface.quad_count());
}

TEST(GeometrySet, EmptyMesh) {
    const BuiltSurface surface(ZooMesh{});
    EXPECT_EQ(surface.quad_count(), 0u);
    EXPECT_EQ(surface.geometry.get_bbox().get_min(), Vec3f(0, 0, 0));
    EXPECT_EQ(surface.geometry.get_bbox().get_max(), Vec3f(0, 0, 0));
}

// Every array that the build fills, to the bit.
template <class T>
void expect_same_bits(const CoreBasicArray<T>& a, const CoreBasicArray<T>& b, const char* what) {
    ASSERT_EQ(a.get_count(), b.get_count()) << what;
    if (a.get_count() == 0) return;
    EXPECT_EQ(std::memcmp(static_cast<const void*>(a.get_data()), b.get_data(), sizeof(T) * a.get_count()), 0) << what;
}

TEST(GeometrySet, OneThreadAndManyThreadsGiveTheSameBits) {
    std::vector<ZooMesh> cages{sds_test::make_torus(40, 20), sds_test::make_sheet(24), sds_test::make_pole(150)};
    for (const ZooMesh& cage : sds_test::mesh_zoo())
        if (cage.indices.size() >= 128) cages.push_back(cage);
    for (const ZooMesh& cage : cages)
        for (const Mode mode : {Mode::all_fixed, Mode::corners_fixed}) {
            SCOPED_TRACE(cage.name);
            const auto build = [&](unsigned int threads) {
                std::unique_ptr<BuiltSurface> surface;
                BuiltSurface::Options options = sds_test::with_mode(mode);
                options.motion_vectors = cage.positions;
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
            for (unsigned int e = 0; e < a.get_local_topologies().get_count(); ++e) {
                EXPECT_EQ(a.get_local_topologies()[e].closed, b.get_local_topologies()[e].closed);
                EXPECT_EQ(a.get_local_topologies()[e].first_edge, b.get_local_topologies()[e].first_edge);
                EXPECT_EQ(a.get_local_topologies()[e].last_edge, b.get_local_topologies()[e].last_edge);
                EXPECT_EQ(a.get_local_topologies()[e].valence, b.get_local_topologies()[e].valence);
            }
        }
}

class GeometryCopies : public testing::Test {
protected:
    static std::vector<Vec3f> controls(const SdsMeshGeometry& geometry) {
        std::vector<Vec3f> all(16 * size_t{geometry.get_base()->get_primitive_count()});
        for (unsigned int q = 0; q < geometry.get_base()->get_primitive_count(); ++q)
            geometry.get_bezier_controls(q, &all[16 * size_t{q}]);
        return all;
    }
    const ZooMesh& m_cage = sds_test::zoo_mesh("prism5_crease_loop");
    BuiltSurface m_surface{m_cage, sds_test::with_motion(m_cage.positions)};
};

TEST_F(GeometryCopies, CopyConstructorIsIndependent) {
    auto source = std::make_unique<SdsMeshGeometry>();
    source->set(m_surface.base, to_core_array(m_cage.positions), to_core_array(m_cage.positions), Mode::corners_fixed,
                nullptr);
    const std::vector<Vec3f> expected = controls(*source);
    const SdsMeshGeometry copy(*source);
    EXPECT_NE(copy.get_vertices().get_data(), source->get_vertices().get_data());
    EXPECT_EQ(copy.get_bezier_mesh().get_quad_vertices(0), copy.get_vertices().get_data());
    EXPECT_EQ(copy.get_bezier_mesh().get_patch_vertices(0), copy.get_bezier_corners().get_data());
    source.reset();
    EXPECT_EQ(controls(copy), expected);
    EXPECT_TRUE(copy.has_motion_vectors());
    Vec3f c[16];
    copy.get_bezier_controls_at(0, 1.0, c);
    for (unsigned int i = 0; i < 3; ++i) EXPECT_NEAR(c[0][i], 2 * expected[0][i], 1e-5f);
}

TEST_F(GeometryCopies, CopyOfAnEmptyGeometry) {
    const SdsMeshGeometry empty;
    SdsMeshGeometry copy(empty);
    EXPECT_EQ(copy.get_base(), nullptr);
    EXPECT_EQ(copy.get_bezier_mesh().get_patch_count(), 0u);
    copy = empty;
    EXPECT_EQ(copy.get_vertices().get_count(), 0u);
}

TEST_F(GeometryCopies, AssignmentSharesTheViewUntilTheNextSet) {
    SdsMeshGeometry target;
    target = m_surface.geometry;
    EXPECT_EQ(target.get_bezier_mesh().get_quad_vertices(0), m_surface.geometry.get_vertices().get_data());
    EXPECT_NE(target.get_vertices().get_data(), m_surface.geometry.get_vertices().get_data());
    EXPECT_EQ(target.get_interpolation_mode(), m_surface.geometry.get_interpolation_mode());
    EXPECT_EQ(controls(target), controls(m_surface.geometry));
    target = *&target;
    EXPECT_EQ(controls(target), controls(m_surface.geometry));
    target.set(m_surface.base, to_core_array(m_cage.positions), {}, Mode::corners_fixed, nullptr);
    EXPECT_EQ(target.get_bezier_mesh().get_quad_vertices(0), target.get_vertices().get_data());
    EXPECT_EQ(controls(target), controls(m_surface.geometry));
}

TEST_F(GeometryCopies, MemoryCountsWhatIsHeld) {
    const SdsMeshGeometry empty;
    const size_t quads = m_surface.quad_count(), vertices = m_surface.geometry.get_vertices().get_count();
    const size_t least = quads * sizeof(SdsMeshBase::BezierPatch) + vertices * 4 * sizeof(Vec3f);
    EXPECT_GE(m_surface.geometry.get_memory_size(), empty.get_memory_size() + least);
    EXPECT_LE(m_surface.geometry.get_memory_size(), empty.get_memory_size() + 6 * least);
}

}  // namespace
