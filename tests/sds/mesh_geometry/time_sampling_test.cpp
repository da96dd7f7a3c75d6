#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <latch>
#include <thread>

#include "../surface_checks.h"
#include "qn_poly/poly_mesh.h"

namespace {

using namespace sds_test;
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
        std::ranges::copy(cage_at(*cage, sample), out);
        std::this_thread::yield();
        inside.fetch_sub(1);
    }
};

class TimeSampling : public testing::TestWithParam<std::tuple<const char*, Mode>> {
protected:
    static constexpr unsigned int sample_count = 3;
    static constexpr double sample_times[sample_count] = {0.0, 0.5, 2.0};
    TimeSampling()
        : m_cage(zoo_mesh(std::get<0>(GetParam()))),
          m_surface(m_cage, {.mode = std::get<1>(GetParam())}),
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
    template <class... Shutter>
    std::vector<Vec3f> controls_at(unsigned int q, double time, const Shutter&... shutter) const {
        std::vector<Vec3f> controls(16);
        m_surface.geometry.get_bezier_controls_at(q, time, shutter..., controls.data());
        return controls;
    }
    // Arrays that a sample takes: its vertices and, unless it is linear, its corners.
    static unsigned int arrays_per_sample() { return std::get<1>(GetParam()) == Mode::all_fixed ? 1 : 2; }

    const ZooMesh& m_cage;
    BuiltSurface m_surface;
    Loader* m_loader;
};

INSTANTIATE_TEST_SUITE_P(, TimeSampling,
                         testing::Combine(testing::Values("cube", "prism5_crease_loop", "sheet_dart"),
                                          testing::Values(Mode::all_fixed, Mode::corners_fixed)));

TEST_P(TimeSampling, OnASampleItIsTheSurfaceOfThatCageAndOutsideTheEnd) {
    for (unsigned int s = 0; s < sample_count; ++s) {
        const std::vector<Vec3f> expected = controls_of_sample(1, s);
        std::vector<Vec3f> direct(16);
        m_surface.geometry.get_bezier_controls_sample(1, s, direct.data());
        EXPECT_EQ(direct, expected);
        for (const double offset : {0.0, -2e-5, 2e-5}) {
            EXPECT_EQ(m_surface.geometry.get_bezier_mesh_at(sample_times[s] + offset).get_source_count(), 1u);
            EXPECT_EQ(controls_at(1, sample_times[s] + offset), expected);
        }
    }
    EXPECT_EQ(controls_at(1, 77.0), controls_of_sample(1, 2));
    EXPECT_EQ(controls_at(1, -77.0), controls_of_sample(1, 0));
}

TEST_P(TimeSampling, VerticesAreThoseOfTheView) {
    for (const double t : {-1.0, 0.0, 0.2, 0.5, 1.9, 3.0}) {
        const GeometryPositionArray vertices = m_surface.geometry.get_vertices_at(t);
        const SdsBezierMesh mesh = m_surface.geometry.get_bezier_mesh_at(t);
        ASSERT_EQ(vertices.get_count(), m_surface.geometry.get_vertices().get_count());
        for (unsigned int v = 0; v < vertices.get_count(); ++v)
            EXPECT_EQ(vertices[v], mesh.get_quad_vertices()[v]) << t;
    }
}

TEST_P(TimeSampling, NothingIsLoadedBeforeItIsNeededAndEachOnce) {
    SdsMeshGeometry& geometry = m_surface.geometry;
    for (const auto& loads : m_loader->loads) EXPECT_EQ(loads, 0u);
    const size_t before = geometry.get_memory_size();
    const unsigned int changes = geometry.get_memory_change_count();
    (void)geometry.get_bezier_mesh_at(0.5);
    for (unsigned int s = 0; s < sample_count; ++s) EXPECT_EQ(m_loader->loads[s], s == 1 ? 1u : 0u);
    EXPECT_EQ(geometry.get_memory_size(),
              before + arrays_per_sample() * geometry.get_vertices().get_count() * sizeof(Vec3f));
    EXPECT_EQ(geometry.get_memory_change_count(), changes + arrays_per_sample());
    for (unsigned int i = 0; i < 5; ++i) (void)geometry.get_bezier_mesh_at(1.1);
    EXPECT_EQ(m_loader->loads[1], 1u);
    EXPECT_EQ(m_loader->loads[2], 1u);

    // A copy loads for itself.
    const SdsMeshGeometry copy(geometry);
    std::vector<Vec3f> copied(16);
    copy.get_bezier_controls_at(0, 1.25, copied.data());
    EXPECT_EQ(m_loader->loads[1], 2u);
    EXPECT_EQ(copied, controls_at(0, 1.25));
}

TEST_P(TimeSampling, NewSamplingDropsTheOldOne) {
    bool destroyed = false;
    m_loader->destroyed = &destroyed;
    EXPECT_TRUE(m_surface.geometry.is_animated());
    (void)m_surface.geometry.get_bezier_mesh_at(0.5);
    auto* next = new Loader(m_cage, 1);
    m_surface.geometry.set_positions_sampling(times({5.0}), LoaderPointer(next));
    EXPECT_TRUE(destroyed);
    (void)controls_at(0, 9.0);
    EXPECT_EQ(next->loads[0], 1u);
    m_surface.geometry.set_positions_sampling(times({}), LoaderPointer());
    EXPECT_FALSE(m_surface.geometry.is_animated());
    (void)controls_at(0, 9.0);
}

// Large enough for threads to meet inside the computation of the corners.
TEST(TimeSamplingThreads, ConcurrentReadersLoadEachSampleOnce) {
    const ZooMesh cage = make_torus(120, 80);
    constexpr unsigned int thread_count = 8, sample_count = 3;
    for (const Mode mode : {Mode::all_fixed, Mode::corners_fixed}) {
        BuiltSurface surface(cage, {.mode = mode});
        auto* loader = new Loader(cage, sample_count);
        surface.geometry.set_positions_sampling(times({0.0, 0.5, 2.0}), LoaderPointer(loader));
        const unsigned int changes = surface.geometry.get_memory_change_count();
        std::pair<const Vec3f*, const Vec3f*> arrays[thread_count][sample_count];
        std::latch start(thread_count);
        {
            std::vector<std::jthread> threads;
            for (unsigned int t = 0; t < thread_count; ++t)
                threads.emplace_back([&, t] {
                    start.arrive_and_wait();
                    for (unsigned int i = 0; i < sample_count; ++i) {
                        const unsigned int s = (i + t / 4) % sample_count;  // four at each
                        const SdsBezierMesh mesh = surface.geometry.get_bezier_mesh_sample(s);
                        arrays[t][s] = {mesh.get_patch_vertices(0), mesh.get_quad_vertices(0)};
                    }
                });
        }
        for (unsigned int s = 0; s < sample_count; ++s) {
            EXPECT_EQ(loader->loads[s], 1u);
            for (unsigned int t = 1; t < thread_count; ++t) EXPECT_EQ(arrays[t][s], arrays[0][s]);
        }
        EXPECT_FALSE(loader->overlapped);
        EXPECT_EQ(surface.geometry.get_memory_change_count(),
                  changes + (mode == Mode::all_fixed ? 1 : 2) * sample_count);
    }
}

TEST(PolyMeshLoader, GivesTheMeshesOwnSamples) {
    static const ZooMesh& cage = zoo_mesh("tetrahedron");
    struct CloudLoader : GeometryPointCloud::SampleLoader {
        void load(const GMathTimeSampling&, const unsigned int& sample, Vec3f* out) override {
            std::ranges::copy(cage_at(cage, sample), out);
        }
    };
    const CoreArray<Vec3f> rest = to_core_array(cage.positions);
    const GMathTimeSampling sampling = times({0.0, 1.0});
    PolyMesh mesh;
    mesh.get_point_cloud().init(rest.get_count(), rest.get_data(), nullptr, nullptr);
    mesh.get_point_cloud().init_sampling(
        sampling, CoreSharedPointer<GeometryPointCloud::SampleLoader, CoreSharedCounter>(new CloudLoader));
    BuiltSurface surface(cage), expected(cage);
    surface.geometry.set_positions_sampling(sampling, LoaderPointer(new SdsMeshGeometry::PolyMeshSampleLoader(mesh)));
    expected.geometry.set_positions_sampling(sampling, LoaderPointer(new Loader(cage, 2)));
    for (unsigned int s : {0u, 1u}) {
        Vec3f a[16], b[16];
        surface.geometry.get_bezier_controls_sample(2, s, a);
        expected.geometry.get_bezier_controls_sample(2, s, b);
        EXPECT_THAT(a, testing::ElementsAreArray(b));
    }
}

}  // namespace
