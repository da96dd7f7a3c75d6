#include "qn_geometry/geometry_intersection_map.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <vector>

#include "qn_geometry/geometry_raytrace_ctx.h"

namespace {

GeometryHit hit(double t, unsigned int primitive) { return {primitive, 0xFFFFFFFF, 0.0, 0.0, t}; }

std::vector<double> distances(const GeometryIntersectionPath& path) {
    std::vector<double> all;
    for (const GeometryHit& h : path.get_hits()) all.push_back(h.t);
    return all;
}

TEST(GeometryIntersectionPath, KeepsTheNearestInOrder) {
    for (unsigned int seed = 0; seed < 50; ++seed) {
        std::mt19937 random(seed);
        std::uniform_real_distribution<double> uniform(0.0, 10.0);
        const unsigned int capacity = 1 + seed % 5;
        GeometryIntersectionPath path;
        path.reset(capacity, 8.0);
        std::vector<double> given;
        for (unsigned int i = 0; i < 20; ++i) {
            const double t = uniform(random);
            path.add(hit(t, i), 0.01);
            if (t < 8.0) given.push_back(t);
        }
        std::sort(given.begin(), given.end());
        given.resize(std::min<size_t>(capacity, given.size()));
        ASSERT_EQ(distances(path), given);
        EXPECT_EQ(path.get_distance(), given.size() == capacity ? given.back() : 8.0);
    }
}

TEST(GeometryIntersectionPath, HitsWithinTheSeparationAreOneCrossing) {
    GeometryIntersectionPath path;
    path.reset(4, 100.0);
    EXPECT_TRUE(path.add(hit(5.0, 1), 0.1));
    EXPECT_FALSE(path.add(hit(5.05, 1), 0.1));  // the farther of one crossing
    EXPECT_TRUE(path.add(hit(5.05, 2), 0.1));   // another primitive is another crossing
    EXPECT_TRUE(path.add(hit(5.2, 1), 0.1));
    EXPECT_EQ(distances(path), (std::vector<double>{5.0, 5.05, 5.2}));
    EXPECT_TRUE(path.add(hit(4.95, 2), 0.15));  // the nearer stays, and moves to its place
    EXPECT_EQ(distances(path), (std::vector<double>{4.95, 5.0, 5.2}));
    EXPECT_EQ(path.get_hits()[0].primitive, 2u);
}

TEST(GeometryIntersectionPath, FarDistanceAndNanAreRefused) {
    GeometryIntersectionPath path;
    path.reset(2, 3.0);
    EXPECT_FALSE(path.add(hit(3.0, 0), 0.1));
    EXPECT_FALSE(path.add(hit(std::numeric_limits<double>::quiet_NaN(), 0), 0.1));
    EXPECT_TRUE(path.add(hit(1.0, 0), 0.1));
    EXPECT_EQ(path.get_distance(), 3.0);
    EXPECT_TRUE(path.add(hit(2.0, 1), 0.1));
    EXPECT_EQ(path.get_distance(), 2.0);
    EXPECT_FALSE(path.add(hit(2.0, 2), 0.1));
    path.reset(2, 3.0);
    EXPECT_EQ(path.get_hits().get_count(), 0u);
    EXPECT_EQ(path.get_distance(), 3.0);
}

TEST(RaytraceCtx, ReferenceShiftIsThePlaceNearestToThePoint) {
    GeometryRay ray;
    ray.origin = {1e6, 0, 0};
    ray.direction = {-2, 0, 0};
    const GeometryRaytraceData data;
    GeometryRaytraceCtx rays(&ray, 1, data);
    rays.set_reference_point({1.0, 5.0, 0.0});
    EXPECT_DOUBLE_EQ(rays.get_reference_shift(0), (1e6 - 1.0) / 2.0);
    ray.direction = {0, 0, 0};
    EXPECT_EQ(rays.get_reference_shift(0), 0.0);
}

}  // namespace
