#include "qn_geometry/geometry_point_cloud.h"

#include <gtest/gtest.h>

#include "qn_geometry/geometry_position_array.h"
#include "qn_poly/poly_mesh.h"

namespace {

using Vec3f = GMathVec3<float>;

// Point i of sample s stands at (s, i, loads so far).
struct CountingLoader : GeometryPointCloud::SampleLoader {
    unsigned int loads = 0;
    unsigned int count;
    bool* destroyed = nullptr;

    explicit CountingLoader(unsigned int n) : count(n) {}
    ~CountingLoader() override {
        if (destroyed != nullptr) *destroyed = true;
    }
    void load(const GMathTimeSampling&, const unsigned int& sample, Vec3f* out) override {
        ++loads;
        for (unsigned int i = 0; i < count; ++i)
            out[i] = {static_cast<float>(sample), static_cast<float>(i), static_cast<float>(loads)};
    }
};
using LoaderPointer = CoreSharedPointer<GeometryPointCloud::SampleLoader, CoreSharedCounter>;

GMathTimeSampling three_times() {
    CoreArray<double> times;
    for (const double t : {0.0, 0.5, 1.0}) times.add(t);
    return GMathTimeSampling(times);
}

TEST(GeometryPointCloud, InitKeepsNothingOfBefore) {
    const Vec3f points[2] = {{1, 2, 3}, {4, 5, 6}};
    const Vec3f velocities[2] = {{1, 0, 0}, {0, 1, 0}};
    const float radii[2] = {0.5f, 0.25f};
    GeometryPointCloud cloud;
    cloud.init(2, points, radii, velocities);
    EXPECT_EQ(cloud.get_positions()[1], points[1]);
    EXPECT_EQ(cloud.get_radii()[1], 0.25f);
    EXPECT_EQ(cloud.get_velocities()[1], velocities[1]);
    cloud.init(2, false, true, true);
    EXPECT_TRUE(cloud.get_radii().is_empty());
    for (unsigned int i = 0; i < 2; ++i) {
        EXPECT_EQ(cloud.get_positions()[i], Vec3f(0, 0, 0));
        EXPECT_EQ(cloud.get_velocities()[i], Vec3f(0, 0, 0));
    }
    cloud.init(0, nullptr, nullptr, nullptr);
    EXPECT_TRUE(cloud.is_empty());
    EXPECT_FALSE(cloud.has_velocities());
}

TEST(GeometryPointCloud, SamplesAreLoadedOnceAndTheLoaderGoesWithItsLastCloud) {
    bool destroyed = false;
    {
        GeometryPointCloud cloud;
        cloud.init(4, false, false, true);
        auto* loader = new CountingLoader(4);
        loader->destroyed = &destroyed;
        cloud.init_sampling(three_times(), LoaderPointer(loader));
        const size_t before = cloud.get_memory_size();
        EXPECT_EQ(loader->loads, 0u);
        const Vec3f* sample = cloud.get_sample_positions(2);
        EXPECT_EQ(sample[3], Vec3f(2, 3, 1));
        EXPECT_EQ(cloud.get_sample_positions(2), sample);
        EXPECT_EQ(loader->loads, 1u);
        EXPECT_EQ(cloud.get_memory_size(), before + 4 * sizeof(Vec3f));

        // A copy shares the loader and loads for itself.
        GeometryPointCloud copy(cloud);
        EXPECT_EQ(copy.get_sample_positions(2)[3], Vec3f(2, 3, 2));
        copy = *&copy;
        cloud.init(0, false, false, true);
        EXPECT_FALSE(cloud.has_sampling());
        EXPECT_FALSE(destroyed);
        cloud = copy;
        EXPECT_EQ(cloud.get_sample_positions(2)[3], Vec3f(2, 3, 3));
    }
    EXPECT_TRUE(destroyed);
}

TEST(GeometryPositionArray, BlendsItsSources) {
    const Vec3f a[2] = {{1, 0, 0}, {0, 2, 0}}, b[2] = {{3, 0, 0}, {0, 0, 4}};
    const Vec3f* arrays[4] = {a, b, nullptr, nullptr};
    const float weights[4] = {0.25f, 0.5f, 0, 0};
    const GeometryPositionArray both(2, 2, arrays, weights);
    EXPECT_EQ(both[0], Vec3f(1.75f, 0, 0));
    EXPECT_EQ(both[1], Vec3f(0, 0.5f, 2));
    EXPECT_EQ(GeometryPositionArray(2, 0, arrays, weights).get_count(), 0u);
}

TEST(PolyMesh, SamplesFallBackToTheRestPoints) {
    PolyMesh mesh;
    const Vec3f points[3] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    mesh.get_point_cloud().init(3, points, nullptr, nullptr);
    CoreArray<unsigned int> counts, indices;
    for (const unsigned int c : {3u, 0u, 2u}) counts.add(c);
    for (const unsigned int v : {0u, 1u, 2u, 1u, 0u}) indices.add(v);
    mesh.set_polygons(counts, indices, {});
    EXPECT_EQ(mesh.get_polygon_offsets()[2], 3u);
    EXPECT_EQ(mesh.get_sample_positions(5)[1], points[1]);
    mesh.get_point_cloud().init_sampling(three_times(), LoaderPointer(new CountingLoader(3)));
    EXPECT_EQ(mesh.get_sample_positions(2)[1], Vec3f(2, 1, 1));
}

}  // namespace
