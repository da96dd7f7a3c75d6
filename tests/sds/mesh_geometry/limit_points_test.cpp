// Many points of the limit at once against the same points one by one, and instruction sets against each other.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

#include "../surface_checks.h"
#include "oracles/surface_errors.h"
#include "sds/mesh_geometry/pair_kernels/pair_kernels.h"

namespace {

using namespace sds_test;
using Mode = SdsMeshGeometry::InterpolationMode;
using Place = SdsMeshGeometry::LimitPlace;
using Point = SdsMeshGeometry::LimitPoint;

// Corners, edges and places inside, quads in no order.
std::vector<Place> make_places(unsigned int quad_count, unsigned int count) {
    std::mt19937 random(quad_count);
    constexpr float special[] = {0.0f, 0.25f, 0.5f, 1.0f};
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    std::vector<Place> places(count);
    for (unsigned int i = 0; i < count; ++i)
        places[i] = {static_cast<unsigned int>(random() % quad_count),
                     i % 3 == 0 ? special[random() % 4] : unit(random),
                     i % 5 == 0 ? special[random() % 4] : unit(random)};
    return places;
}

void expect_samples(const BuiltSurface& surface, const std::vector<Place>& places, double offset) {
    std::vector<Point> points(places.size());
    surface.geometry.compute_limit_points(places.data(), static_cast<unsigned int>(places.size()), points.data());
    const double size = surface.get_diagonal();
    for (size_t i = 0; i < places.size(); ++i) {
        const Place& place = places[i];
        SCOPED_TRACE(testing::Message() << "quad " << place.primitive << " at " << place.u << " " << place.v);
        const GeometrySample sample = sample_at(surface.geometry, place.primitive, place.u, place.v);
        const auto distance = [](const Vec3d& a, const Vec3f& b) { return (a - Vec3d(b)).length(); };
        EXPECT_LE(distance(sample.get_geometric_position(), points[i].position), 1e-6 * size + 1e-7 * offset);
        EXPECT_LE(distance(sample.get_geometric_dpdu(), points[i].du), 2e-6 * size);
        EXPECT_LE(distance(sample.get_geometric_dpdv(), points[i].dv), 2e-6 * size);
        // The normal turns by the derivatives' rounding over what of them stands across each other.
        const Vec3d du = sample.get_geometric_dpdu(), dv = sample.get_geometric_dpdv();
        const double across = du.cross(dv).length();
        const double turn = across > 0.0 ? 4e-6 * du.length() * dv.length() / across : 0.0;
        const double shortest = std::min(du.length(), dv.length());
        EXPECT_LE(distance(sample.get_geometric_normal(), points[i].normal),
                  1e-5 + turn + (shortest > 0.0 ? 1e-6 * size / shortest : 0.0));
    }
}

TEST(LimitPoints, AreTheSamplesAtRest) {
    for (const ZooMesh& cage : mesh_zoo())
        for (const Mode mode : {Mode::all_fixed, Mode::corners_fixed}) {
            SCOPED_TRACE(cage.name);
            const BuiltSurface surface(cage, {.mode = mode});
            expect_samples(surface, make_places(surface.get_quad_count(), 201), 0.0);
        }
}

TEST(LimitPoints, CollapsedPatchesHaveTheSamplesNormals) {
    ZooMesh cage = zoo_mesh("torus");
    // All of one polygon in a point, so that patches around it lose one derivative or both.
    for (unsigned int c = 1; c < 4; ++c) cage.positions[cage.indices[c]] = cage.positions[cage.indices[0]];
    const BuiltSurface surface(cage);
    std::vector<Place> places;
    for (unsigned int q = 0; q < surface.get_quad_count(); ++q)
        for (const float u : {0.0f, 0.5f, 1.0f}) places.push_back({q, u, 1.0f - u});
    expect_samples(surface, places, 0.0);
}

TEST(LimitPoints, AnyCountAndNone) {
    const BuiltSurface surface(zoo_mesh("torus"));
    const std::vector<Place> places = make_places(surface.get_quad_count(), 40);
    std::vector<Point> all(places.size());
    surface.geometry.compute_limit_points(places.data(), 40, all.data());
    for (const unsigned int count : {0u, 1u, 2u, 7u}) {
        std::vector<Point> some(count);  // exact size: nothing is written beyond
        surface.geometry.compute_limit_points(places.data(), count, some.data());
        EXPECT_TRUE(count == 0 || std::memcmp(some.data(), all.data(), count * sizeof(Point)) == 0) << count;
    }
}

// A small surface's controls are made once a thread, for the surface that was read last, and not for a single point.
TEST(LimitPoints, SurfacesInTurnAndInMotionHaveTheirOwn) {
    ZooMesh cage = zoo_mesh("cube");
    const BuiltSurface first(cage);
    for (Vec3f& p : cage.positions) p = p * 2.0f + Vec3f(0.5f, p[2], 0.0f);
    BuiltSurface second(cage);
    const std::vector<Place> places = make_places(first.get_quad_count(), 101);
    for (unsigned int round = 0; round < 4; ++round) {
        if (round == 3)
            second.geometry.set(second.base, first.geometry.get_vertices(), {}, Mode::corners_fixed, nullptr);
        const SdsMeshGeometry& geometry = round % 2 == 0 ? first.geometry : second.geometry;
        std::vector<Point> together(places.size());
        geometry.compute_limit_points(places.data(), static_cast<unsigned int>(places.size()), together.data());
        for (size_t i = 0; i < places.size(); ++i) {
            Point alone;
            geometry.compute_limit_points(&places[i], 1, &alone);
            EXPECT_EQ(std::memcmp(&alone, &together[i], sizeof alone), 0) << "round " << round << ", place " << i;
        }
    }
}

TEST(LimitPoints, InstructionSetsAgreeToTheBit) {
    const BuiltSurface surface(zoo_mesh("cube_crease_corner"));
    const SdsMeshGeometry& geometry = surface.geometry;
    const auto& tangents = geometry.get_bezier_tangents_array();
    const sds::PatchArrays source{
        geometry.get_bezier_mesh().get_vertex_indices(), geometry.get_bezier_patches().get_data(),
        geometry.get_tangent_infos().get_data(),         geometry.get_vertices()[0].get_data(),
        geometry.get_bezier_corners()[0].get_data(),     tangents.is_empty() ? nullptr : tangents[0].get_data()};
    const std::vector<Place> places = make_places(surface.get_quad_count(), 200);
    const sds::PairKernels* const* tables = sds::get_all_pair_kernels();
    for (const sds::PairKernels* const* other = tables + 1; *other != nullptr; ++other)
        for (size_t i = 0; i < places.size(); i += 2) {
            const Place &a = places[i], &b = places[i + 1];
            const sds::PlacePair pair{{a.primitive, b.primitive}, {a.u, b.u}, {a.v, b.v}};
            float points[2][2][12];
            float* const first[2] = {points[0][0], points[0][1]};
            float* const second[2] = {points[1][0], points[1][1]};
            EXPECT_EQ((*tables)->compute_limit_points(source, pair, first),
                      (*other)->compute_limit_points(source, pair, second));
            EXPECT_EQ(std::memcmp(points[0], points[1], sizeof(points[0])), 0)
                << "set " << other - sds::get_all_pair_kernels() << ", pair " << i;
        }
}

}  // namespace
