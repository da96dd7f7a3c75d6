#include <gmock/gmock.h>

#include <atomic>
#include <latch>
#include <thread>

#include "../build_options.h"
#include "qn_ctx/ctx_eval.h"
#include "qn_poly/poly_mesh.h"

namespace {

using sds_test::BuiltSurface;
using sds_test::to_core_array;
using sds_test::Vec3f;
using sds_test::ZooMesh;
using Mode = SdsMeshGeometry::InterpolationMode;
using LoaderPointer = CoreSharedPointer<SdsMeshGeometry::SampleLoader, CoreSharedCounter>;

GMathTimeSampling times(std::vector<double> t) {
    return GMathTimeSampling(CoreBasicArray<double>(static_cast<unsigned int>(t.size()), t.data()));
}

// The cage in sample s: stretched and shifted so that every sample differs.
std::vector<Vec3f> cage_at(const ZooMesh& cage, unsigned int sample) {
    std::vector<Vec3f> points;
    const auto s = static_cast<float>(sample);
    for (const Vec3f& p : cage.positions) points.emplace_back(p[0] * (1 + s) + s, p[1] - s * p[0], p[2] + 0.5f * s * s);
    return points;
}

struct Loader : SdsMeshGeometry::SampleLoader {
    const ZooMesh* cage;
    std::vector<std::atomic<unsigned int>> loads;
    std::atomic<unsigned int> inside{0};
    std::atomic<bool> overlapped{false};
    bool* destroyed = nullptr;

    Loader(const ZooMesh& c, unsigned int samples) : cage(&c), loads(samples) {}
    ~Loader() override {
        if (destroyed != nullptr) *destroyed = true;
    }
    void get_positions(const GMathTimeSampling&, const unsigned int& sample, Vec3f* out) override {
        if (inside.fetch_add(1) != 0) overlapped = true;
        ++loads[sample];
        const std::vector<Vec3f> points = cage_at(*cage, sample);
        std::copy(points.begin(), points.end(), out);
        std::this_thread::yield();
        inside.fetch_sub(1);
    }
};

void expect_near(const Vec3f* a, const Vec3f* b, unsigned int count, float tolerance) {
    for (unsigned int i = 0; i < count; ++i)
        for (unsigned int axis = 0; axis < 3; ++axis)
            EXPECT_NEAR(a[i][axis], b[i][axis], tolerance) << "point " << i << " axis " << axis;
}

class TimeSampling : public testing::TestWithParam<std::tuple<const char*, Mode>> {
protected:
    static constexpr unsigned int sample_count = 3;
    TimeSampling()
        : m_cage(sds_test::zoo_mesh(std::get<0>(GetParam()))),
          m_surface(m_cage, sds_test::with_mode(std::get<1>(GetParam()))),
          m_loader(new Loader(m_cage, sample_count)) {
        m_surface.geometry.set_positions_sampling(times({0.0, 0.5, 2.0}), LoaderPointer(m_loader));
    }
    // The controls of a surface that was built on a sample's cage outright.
    std::vector<Vec3f> controls_of_sample(unsigned int q, unsigned int sample) const {
        SdsMeshGeometry still;
        still.set(m_surface.base, to_core_array(cage_at(m_cage, sample)), {}, std::get<1>(GetParam()), nullptr);
        std::vector<Vec3f> controls(16);
        still.get_bezier_controls(q, controls.data());
        return controls;
    }
    const ZooMesh& m_cage;
    BuiltSurface m_surface;
    Loader* m_loader;
};

INSTANTIATE_TEST_SUITE_P(, TimeSampling,
                         testing::Combine(testing::Values("cube", "prism5_crease_loop", "sheet_dart"),
                                          testing::Values(Mode::all_fixed, Mode::corners_fixed)));

TEST_P(TimeSampling, OnASampleItIsTheSurfaceOfThatCage) {
    const double at[] = {0.0, 0.5, 2.0};
    for (unsigned int s = 0; s < sample_count; ++s)
        for (const double offset : {0.0, -2e-5, 2e-5}) {
            const SdsBezierMesh mesh = m_surface.geometry.get_bezier_mesh_at(at[s] + offset);
            EXPECT_EQ(mesh.get_source_count(), 1u);
            Vec3f c[16], d[16];
            m_surface.geometry.get_bezier_controls_at(1, at[s] + offset, c);
            m_surface.geometry.get_bezier_controls_sample(1, s, d);
            const std::vector<Vec3f> expected = controls_of_sample(1, s);
            for (unsigned int i = 0; i < 16; ++i) {
                EXPECT_EQ(c[i], expected[i]);
                EXPECT_EQ(d[i], expected[i]);
            }
        }
}

TEST_P(TimeSampling, BetweenSamplesItIsTheBlendAndOutsideTheEnd) {
    const SdsBezierMesh middle = m_surface.geometry.get_bezier_mesh_at(1.25);
    EXPECT_EQ(middle.get_source_count(), 2u);
    EXPECT_EQ(middle.get_weight(0), 0.5f);
    EXPECT_EQ(middle.get_weight(1), 0.5f);
    const std::vector<Vec3f> before = controls_of_sample(0, 1), after = controls_of_sample(0, 2);
    std::vector<Vec3f> expected(16);
    for (unsigned int i = 0; i < 16; ++i) expected[i] = (before[i] + after[i]) * 0.5f;
    Vec3f c[16];
    middle.get_patch_controls(0, c);
    expect_near(c, expected.data(), 16, 1e-5f);
    m_surface.geometry.get_bezier_controls_at(0, 77.0, c);
    for (unsigned int i = 0; i < 16; ++i) EXPECT_EQ(c[i], after[i]);
    m_surface.geometry.get_bezier_controls_at(0, -77.0, c);
    const std::vector<Vec3f> first = controls_of_sample(0, 0);
    for (unsigned int i = 0; i < 16; ++i) EXPECT_EQ(c[i], first[i]);
}

TEST_P(TimeSampling, VerticesAreTheQuadVerticesOfTheMesh) {
    for (const double t : {-1.0, 0.0, 0.2, 0.5, 1.9, 3.0}) {
        const GeometryPositionArray vertices = m_surface.geometry.get_vertices_at(t);
        const SdsBezierMesh mesh = m_surface.geometry.get_bezier_mesh_at(t);
        ASSERT_EQ(vertices.get_count(), m_surface.geometry.get_vertices().get_count());
        for (unsigned int v = 0; v < vertices.get_count(); ++v)
            EXPECT_EQ(vertices[v], mesh.get_quad_vertices()[v]) << t;
    }
}

// A shutter agrees at its own times and is linear between them, whatever samples lie inside.
TEST_P(TimeSampling, ShutterIsLinearBetweenItsTimes) {
    const SdsMeshGeometry& geometry = m_surface.geometry;
    const GMathTimeSampling shutter = times({0.2, 1.8});
    Vec3f open[16], close[16], c[16], d[16];
    geometry.get_bezier_controls_at(0, 0.2, open);
    geometry.get_bezier_controls_at(0, 1.8, close);
    for (const double t : {0.2, 0.5, 1.0, 1.8, 5.0, -5.0}) {
        geometry.get_bezier_controls_at(0, t, shutter, c);
        const float f = std::min(1.0f, std::max(0.0f, static_cast<float>((t - 0.2) / 1.6)));
        for (unsigned int i = 0; i < 16; ++i) d[i] = open[i] * (1 - f) + close[i] * f;
        expect_near(c, d, 16, 1e-5f);
    }
    EXPECT_LE(geometry.get_bezier_mesh_at(1.0, shutter).get_source_count(), SdsBezierMesh::max_source_count);
    for (const GMathTimeSampling& none : {times({}), times({0.7})}) {
        geometry.get_bezier_controls_at(0, 1.0, none, c);
        geometry.get_bezier_controls_at(0, 1.0, d);
        for (unsigned int i = 0; i < 16; ++i) EXPECT_EQ(c[i], d[i]);
    }
}

TEST_P(TimeSampling, NothingIsLoadedBeforeItIsNeededAndEachOnce) {
    SdsMeshGeometry& geometry = m_surface.geometry;
    for (const auto& loads : m_loader->loads) EXPECT_EQ(loads, 0u);
    const size_t before = geometry.get_memory_size();
    const unsigned int changes = geometry.get_memory_change_count();
    (void)geometry.get_bezier_mesh_at(0.5);
    EXPECT_EQ(m_loader->loads[0], 0u);
    EXPECT_EQ(m_loader->loads[1], 1u);
    EXPECT_EQ(m_loader->loads[2], 0u);
    const size_t vertex_bytes = geometry.get_vertices().get_count() * sizeof(Vec3f);
    const bool linear = std::get<1>(GetParam()) == Mode::all_fixed;
    EXPECT_EQ(geometry.get_memory_size(), before + (linear ? 1 : 2) * vertex_bytes);
    EXPECT_EQ(geometry.get_memory_change_count(), changes + (linear ? 1 : 2));
    for (unsigned int i = 0; i < 5; ++i) (void)geometry.get_bezier_mesh_at(1.1);
    EXPECT_EQ(m_loader->loads[1], 1u);
    EXPECT_EQ(m_loader->loads[2], 1u);
    EXPECT_TRUE(geometry.is_animated());
    EXPECT_TRUE(geometry.has_positions_sampling());
}

TEST_P(TimeSampling, NewSamplingDropsTheOldOne) {
    bool destroyed = false;
    m_loader->destroyed = &destroyed;
    (void)m_surface.geometry.get_bezier_mesh_at(0.5);
    const ZooMesh& other = sds_test::zoo_mesh(std::get<0>(GetParam()));
    auto* next = new Loader(other, 1);
    m_surface.geometry.set_positions_sampling(times({5.0}), LoaderPointer(next));
    EXPECT_TRUE(destroyed);
    Vec3f c[16];
    m_surface.geometry.get_bezier_controls_at(0, 9.0, c);
    EXPECT_EQ(next->loads[0], 1u);
    m_surface.geometry.set_positions_sampling(times({}), LoaderPointer());
    EXPECT_FALSE(m_surface.geometry.is_animated());
    m_surface.geometry.get_bezier_controls_at(0, 9.0, c);
}

TEST_P(TimeSampling, CopyLoadsForItself) {
    (void)m_surface.geometry.get_bezier_mesh_at(0.5);
    const SdsMeshGeometry copy(m_surface.geometry);
    Vec3f c[16], d[16];
    copy.get_bezier_controls_at(0, 1.25, c);
    EXPECT_EQ(m_loader->loads[1], 2u);
    m_surface.geometry.get_bezier_controls_at(0, 1.25, d);
    for (unsigned int i = 0; i < 16; ++i) EXPECT_EQ(c[i], d[i]);
}

TEST_P(TimeSampling, ConcurrentReadersLoadEachSampleOnce) {
    const SdsMeshGeometry& geometry = m_surface.geometry;
    constexpr unsigned int thread_count = 8;
    const Vec3f* corners[thread_count][sample_count];
    const Vec3f* vertices[thread_count][sample_count];
    std::latch start(thread_count);
    const unsigned int changes = geometry.get_memory_change_count();
    {
        std::vector<std::jthread> threads;
        for (unsigned int t = 0; t < thread_count; ++t)
            threads.emplace_back([&, t] {
                start.arrive_and_wait();
                Vec3f c[16];
                geometry.get_bezier_controls_at(0, 1.0, c);
                for (unsigned int i = 0; i < sample_count; ++i) {
                    const unsigned int s = (i + t) % sample_count;
                    const SdsBezierMesh mesh = geometry.get_bezier_mesh_sample(s);
                    corners[t][s] = mesh.get_patch_vertices(0);
                    vertices[t][s] = mesh.get_quad_vertices(0);
                }
            });
    }
    for (unsigned int s = 0; s < sample_count; ++s) {
        EXPECT_EQ(m_loader->loads[s], 1u);
        for (unsigned int t = 1; t < thread_count; ++t) {
            EXPECT_EQ(corners[t][s], corners[0][s]);
            EXPECT_EQ(vertices[t][s], vertices[0][s]);
        }
    }
    EXPECT_FALSE(m_loader->overlapped);
    const unsigned int per_sample = std::get<1>(GetParam()) == Mode::all_fixed ? 1 : 2;
    EXPECT_EQ(geometry.get_memory_change_count(), changes + per_sample * sample_count);
}

// Large enough for threads to meet inside the computation of the corners.
TEST(TimeSamplingCorners, ConcurrentReadersComputeThemOnce) {
    const ZooMesh cage = sds_test::make_torus(120, 80);
    BuiltSurface surface(cage);
    for (unsigned int round = 0; round < 5; ++round) {
        surface.geometry.set_positions_sampling(times({0.0}), LoaderPointer(new Loader(cage, 1)));
        const unsigned int changes = surface.geometry.get_memory_change_count();
        std::latch start(8);
        {
            std::vector<std::jthread> threads;
            for (unsigned int t = 0; t < 8; ++t)
                threads.emplace_back([&] {
                    start.arrive_and_wait();
                    (void)surface.geometry.get_bezier_mesh_sample(0);
                });
        }
        EXPECT_EQ(surface.geometry.get_memory_change_count(), changes + 2);  // the positions and the corners
    }
}

TEST(MotionVectors, AddTheirTimeToTheRestPatch) {
    for (const char* name : {"cube", "tetrahedron", "sheet_dart"})
        for (const Mode mode : {Mode::all_fixed, Mode::corners_fixed}) {
            SCOPED_TRACE(name);
            const ZooMesh& cage = sds_test::zoo_mesh(name);
            std::vector<Vec3f> motion;
            for (const Vec3f& p : cage.positions) motion.emplace_back(p[1], -p[0] + 1, p[2] * 0.5f);
            BuiltSurface::Options options = sds_test::with_mode(mode);
            options.motion_vectors = motion;
            const BuiltSurface surface(cage, options);
            ZooMesh later = cage;
            for (size_t i = 0; i < motion.size(); ++i) later.positions[i] += motion[i];
            const BuiltSurface arrived(later, sds_test::with_mode(mode));
            Vec3f rest[16], zero[16], one[16], expected[16], half[16];
            for (unsigned int q = 0; q < surface.quad_count(); ++q) {
                surface.geometry.get_bezier_controls(q, rest);
                surface.geometry.get_bezier_controls_at(q, 0.0, zero);
                surface.geometry.get_bezier_controls_at(q, 1.0, one);
                surface.geometry.get_bezier_controls_at(q, -0.5, half);
                arrived.geometry.get_bezier_controls(q, expected);
                expect_near(zero, rest, 16, 0.0f);
                expect_near(one, expected, 16, 1e-5f);
                for (unsigned int i = 0; i < 16; ++i) expected[i] = rest[i] * 1.5f - one[i] * 0.5f;
                expect_near(half, expected, 16, 1e-5f);
            }
        }
}

TEST(PolyMeshLoader, GivesTheMeshesOwnSamples) {
    const ZooMesh& cage = sds_test::zoo_mesh("tetrahedron");
    struct CloudLoader : GeometryPointCloud::SampleLoader {
        void load(const GMathTimeSampling&, const unsigned int& sample, Vec3f* out) override {
            const std::vector<Vec3f> points = cage_at(sds_test::zoo_mesh("tetrahedron"), sample);
            std::copy(points.begin(), points.end(), out);
        }
    };
    PolyMesh mesh;
    const CoreArray<Vec3f> rest = to_core_array(cage.positions);
    mesh.get_point_cloud().init(rest.get_count(), rest.get_data(), nullptr, nullptr);
    const GMathTimeSampling sampling = times({0.0, 1.0});
    mesh.get_point_cloud().init_sampling(
        sampling, CoreSharedPointer<GeometryPointCloud::SampleLoader, CoreSharedCounter>(new CloudLoader));
    BuiltSurface surface(cage), moved_by_hand(cage);
    surface.geometry.set_positions_sampling(sampling, LoaderPointer(new SdsMeshGeometry::PolyMeshSampleLoader(mesh)));
    moved_by_hand.geometry.set_positions_sampling(sampling, LoaderPointer(new Loader(cage, 2)));
    Vec3f a[16], b[16];
    surface.geometry.get_bezier_controls_at(2, 0.75, a);
    moved_by_hand.geometry.get_bezier_controls_at(2, 0.75, b);
    for (unsigned int i = 0; i < 16; ++i) EXPECT_EQ(a[i], b[i]);
}

}  // namespace
