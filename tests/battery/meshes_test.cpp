// Meshes that break others: sizes, topology and numbers. Each is refused with a typed finding or built to a finite
// surface.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <numbers>
#include <sstream>

#include "battery/examine.h"

namespace sds_test {
namespace {

using enum PolyFindingCode;
using Polygon = std::vector<unsigned int>;
using Codes = std::vector<PolyFindingCode>;

const std::vector<Vec3f> square{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};

// Positions on a circle or any curve: point(i) for i in [0, n), one polygon through all.
template <class Point>
ZooMesh lone_ngon(unsigned int n, Point&& point) {
    std::vector<Vec3f> positions;
    Polygon polygon;
    for (unsigned int i = 0; i < n; ++i) {
        positions.push_back(point(i));
        polygon.push_back(i);
    }
    return make_mesh(std::move(positions), {polygon});
}

Vec3f on_circle(unsigned int i, unsigned int n) {
    const double a = 2.0 * std::numbers::pi * i / n;
    return {static_cast<float>(std::cos(a)), static_cast<float>(std::sin(a)), 0.0f};
}

// Every quad apart from the others.
ZooMesh loose_quads(unsigned int count) {
    ZooMesh mesh;
    for (unsigned int i = 0; i < count; ++i) {
        for (const Vec3f& corner : square) {
            mesh.positions.push_back(corner +
                                     Vec3f(2.0f * static_cast<float>(i % 300), 0, static_cast<float>(i / 300)));
            mesh.indices.push_back(static_cast<unsigned int>(mesh.indices.size()));
        }
        mesh.counts.push_back(4);
    }
    mesh.corner_creases.assign(mesh.indices.size(), 0);
    return mesh;
}

// One of tests/cages/odd: vertices, polygons and, in a comment, the names of what the checker finds.
ZooMesh read_odd(const std::filesystem::path& path, std::string& finds) {
    std::vector<Vec3f> positions;
    std::vector<Polygon> polygons;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line.substr(1));
        if (line.starts_with("# finds:")) finds = line.substr(8);
        if (line[0] == 'v') words >> positions.emplace_back()[0] >> positions.back()[1] >> positions.back()[2];
        if (line[0] == 'f') polygons.emplace_back();
        for (unsigned int v = 0; line[0] == 'f' && words >> v;) polygons.back().push_back(v - 1);
    }
    return make_mesh(std::move(positions), polygons);
}

Codes find_codes(const ZooMesh& mesh) {
    Codes codes;
    check_cage(mesh).for_each([&codes](PolyFindingCode code) { codes.push_back(code); });
    return codes;
}

TEST(Battery, OddMeshes) {
    unsigned int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(QN_SOURCE_DIR "/tests/cages/odd")) {
        SCOPED_TRACE(entry.path().string());
        std::string expected, found;
        const ZooMesh mesh = read_odd(entry.path(), expected);
        const Codes codes = find_codes(mesh);
        for (const PolyFindingCode code : codes) found += std::string(" ") + poly_finding_text(code).name;
        EXPECT_EQ(found, expected);
        examine(mesh, codes);
        ++count;
    }
    EXPECT_GE(count, 15u);
    // Tori that meet themselves.
    examine(make_torus(1, 1), {repeated_vertex});
    examine(make_torus(1, 5), {repeated_vertex, nonmanifold_vertex});
    examine(make_torus(2, 2), {nonmanifold_edge});
    examine(make_torus(2, 7), {nonmanifold_edge});
    examine(make_torus(3, 3), {});
    examine(loose_quads(100000), {});
}

TEST(Battery, TheZoo) {
    for (const ZooMesh* mesh : all_cages()) {
        SCOPED_TRACE(mesh->name);
        const PolyFindings findings = check_cage(*mesh);
        EXPECT_FALSE(findings.has_errors());
        EXPECT_EQ(findings.count(PolyFindingCode::nonmanifold_edge) != 0, mesh->is_in(sds_test::nonmanifold_edge));
        if (!mesh->is_in(sds_test::nonmanifold_edge)) {
            EXPECT_EQ(findings.count(PolyFindingCode::nonmanifold_vertex) != 0,
                      mesh->is_in(sds_test::nonmanifold_vertex));
        }
        examine(*mesh, find_codes(*mesh));
    }
}

TEST(Battery, PolesAndPolygonsOfAnySize) {
    for (const unsigned int n : {3u, 4u, 5u, 31u, 32u, 33u, 1000u, 100000u}) {
        SCOPED_TRACE(n);
        examine(make_pole(n), {});
        examine(lone_ngon(n, [n](unsigned int i) { return on_circle(i, n); }), {});
    }
}

TEST(Battery, PolygonsWithoutAnArea) {
    for (const unsigned int n : {3u, 4u, 7u, 50u}) {
        SCOPED_TRACE(n);
        examine(lone_ngon(n, [](unsigned int) { return Vec3f(1, 2, 3); }), {});
        examine(lone_ngon(n, [](unsigned int i) { return Vec3f(static_cast<float>(i), 0, 0); }), {});
        // Concave: every other corner is pulled in; and a star that crosses itself.
        examine(lone_ngon(n, [n](unsigned int i) { return on_circle(i, n) * (i % 2 == 0 ? 1.0f : 0.2f); }), {});
        examine(lone_ngon(n, [n](unsigned int i) { return on_circle(2 * i, n); }), {});
    }
}

TEST(Battery, Numbers) {
    using Limits = std::numeric_limits<float>;
    for (const float bad : {Limits::quiet_NaN(), Limits::infinity(), -Limits::infinity()})
        for (unsigned int axis = 0; axis < 3; ++axis) {
            ZooMesh mesh = zoo_mesh("prism5_crease_loop");
            mesh.positions[4][axis] = bad;
            examine(mesh, {non_finite_value});
        }
    for (const char* name : {"cube_crease_corner", "quad_fan5", "pole8", "moebius_strip", "three_pages"})
        for (const float scale : {-0.0f, 1e-45f, 1e-38f, 1e-30f, 1e-20f, 1e15f, 1e17f, 1e30f}) {
            SCOPED_TRACE(std::string(name) + " at " + std::to_string(std::log10(scale)));
            ZooMesh mesh = zoo_mesh(name);
            for (Vec3f& p : mesh.positions) p = p * scale;
            Codes expected = find_codes(zoo_mesh(name));
            if (scale == 1e30f) expected.push_back(value_too_large);
            examine(mesh, expected);
            if (scale != 1e-20f) continue;
            for (Vec3f& p : mesh.positions) p = p + Vec3f(1e6f, -1e6f, 1e6f);
            examine(mesh, expected);
        }
    ZooMesh far = zoo_mesh("torus"), spiked = far;
    for (Vec3f& p : far.positions) p = p + Vec3f(1e6f, 1e6f, 1e6f);
    for (size_t i = 0; i < spiked.positions.size(); i += 2) spiked.positions[i] = {0, 0, 1e18f};
    examine(far, {});
    examine(spiked, {});
}

}  // namespace
}  // namespace sds_test
