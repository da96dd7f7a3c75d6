// Meshes that break others: sizes, topology and numbers. Each is refused with a typed finding or built to a finite
// surface.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>

#include "battery/examine.h"

namespace sds_test {
namespace {

using enum PolyFindingCode;
using Polygon = std::vector<unsigned int>;
using Codes = std::vector<PolyFindingCode>;

constexpr unsigned int none = 0xFFFFFFFF;

const std::vector<Vec3f> square{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};

ZooMesh with(const char* zoo_name, void (*change)(ZooMesh&)) {
    ZooMesh mesh = zoo_mesh(zoo_name);
    change(mesh);
    mesh.corner_creases.resize(mesh.indices.size(), 0);
    return mesh;
}

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

// n x m quads whose second ends meet the first ones upside down.
ZooMesh klein_bottle(unsigned int n, unsigned int m) {
    std::vector<Vec3f> positions;
    std::vector<Polygon> polygons;
    for (unsigned int i = 0; i < n; ++i)
        for (unsigned int j = 0; j < m; ++j) {
            const float x = 0.8f * static_cast<float>(i), y = static_cast<float>(j);
            positions.emplace_back(std::sin(x) + 0.3f * y, std::cos(x) - 0.2f * y * y, std::sin(y + x));
            const bool last = i + 1 == n;
            const auto next = [&](unsigned int row) { return last ? (m - row) % m : (i + 1) * m + row % m; };
            polygons.push_back({i * m + j, next(j), next(j + 1), i * m + (j + 1) % m});
        }
    return make_mesh(std::move(positions), polygons);
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

// `pages` quads on one edge.
ZooMesh book(unsigned int pages) {
    std::vector<Vec3f> positions{{0, 0, 0}, {0, 0, 1}};
    std::vector<Polygon> polygons;
    for (unsigned int i = 0; i < pages; ++i) {
        const unsigned int v = 2 + 2 * i;
        const Vec3f outer = on_circle(i, pages);
        positions.push_back(outer);
        positions.push_back(outer + Vec3f(0, 0, 1));
        polygons.push_back({0, v, v + 1, 1});
    }
    return make_mesh(std::move(positions), polygons);
}

struct Case {
    const char* name;
    ZooMesh mesh;
    Codes expected;
};

void examine_all(const std::vector<Case>& cases) {
    for (const Case& each : cases) {
        SCOPED_TRACE(each.name);
        examine(each.mesh, each.expected);
    }
}

TEST(Battery, Sizes) {
    examine_all({
        {"empty", {}, {no_polygons}},
        {"one vertex", make_mesh({{0, 0, 0}}, {}), {no_polygons, unused_vertex}},
        {"polygon without vertices", make_mesh({}, {{0, 1, 2}}), {index_out_of_range}},
        {"one triangle", zoo_mesh("lone_triangle"), {}},
        {"one quad", zoo_mesh("lone_quad"), {}},
        {"no corners", make_mesh(square, {{}, {0, 1, 2}}), {small_polygon}},
        {"one corner", make_mesh(square, {{0}, {1, 2, 3}}), {small_polygon}},
        {"two corners", make_mesh(square, {{0, 1}, {1, 2, 3}}), {small_polygon}},
        {"counts too small", with("cube", [](ZooMesh& m) { m.counts.pop_back(); }), {wrong_count}},
        {"counts too large", with("cube", [](ZooMesh& m) { m.counts[0] = 5; }), {wrong_count}},
        {"sum beyond 32 bits", with("cube", [](ZooMesh& m) { m.counts[0] = m.counts[1] = 0x80000002; }), {wrong_count}},
        {"index -1", with("cube", [](ZooMesh& m) { m.indices[5] = none; }), {void_polygon}},
        {"index beyond", with("cube", [](ZooMesh& m) { m.indices[5] = 8; }), {index_out_of_range}},
        {"index far beyond", with("cube", [](ZooMesh& m) { m.indices[5] = 0x80000000; }), {index_out_of_range}},
    });
}

TEST(Battery, Topology) {
    const auto twice = [](ZooMesh& m) {
        m.counts.push_back(4);
        m.indices.insert(m.indices.end(), m.indices.begin(), m.indices.begin() + 4);
    };
    const auto twice_flipped = [](ZooMesh& m) {
        m.counts.push_back(4);
        m.indices.insert(m.indices.end(), m.indices.rend() - 4, m.indices.rend());
    };
    examine_all({
        {"Klein bottle", klein_bottle(9, 5), {opposite_winding}},
        {"torus of period 1", make_torus(1, 1), {repeated_vertex}},
        {"torus of periods 1 and 5", make_torus(1, 5), {repeated_vertex, nonmanifold_vertex}},
        {"torus of period 2", make_torus(2, 2), {nonmanifold_edge}},
        {"torus of periods 2 and 7", make_torus(2, 7), {nonmanifold_edge}},
        {"torus of period 3", make_torus(3, 3), {}},
        {"cubes sharing a face",
         with("cube",
              [](ZooMesh& m) {
                  for (unsigned int v = 4; v < 8; ++v) m.positions.push_back(m.positions[v] + Vec3f(0, 0, 2));
                  const auto corners = m.indices;
                  for (const unsigned int v : corners) m.indices.push_back(v + 4);
                  m.counts.insert(m.counts.end(), 6, 4);
              }),
         {nonmanifold_edge}},
        {"cubes sharing a vertex",
         with("cube",
              [](ZooMesh& m) {
                  for (unsigned int v = 1; v < 8; ++v) m.positions.push_back(m.positions[v] + Vec3f(2, 2, 2));
                  const auto corners = m.indices;
                  for (const unsigned int v : corners) m.indices.push_back(v == 0 ? 6 : v + 7);
                  m.counts.insert(m.counts.end(), 6, 4);
              }),
         {nonmanifold_vertex}},
        {"bow-tie",
         make_mesh({{-1, -1, 0}, {0, 0, 0}, {-1, 1, 0}, {1, 1, 0}, {1, -1, 0}}, {{0, 1, 2}, {1, 4, 3}}),
         {nonmanifold_vertex}},
        {"face twice", with("cube", twice), {nonmanifold_edge}},
        {"face twice, flipped", with("cube", twice_flipped), {nonmanifold_edge}},
        {"only a face, twice", with("lone_quad", twice), {opposite_winding}},
        {"only a face, twice, flipped", with("lone_quad", twice_flipped), {}},
        {"edge with 5 faces", book(5), {nonmanifold_edge}},
        {"edge with 1000 faces", book(1000), {nonmanifold_edge}},
        {"corner twice in a row", make_mesh(square, {{0, 1, 1, 2}, {0, 2, 3}}), {repeated_vertex}},
        {"one vertex thrice", make_mesh(square, {{0, 0, 0}, {0, 1, 2, 3}}), {repeated_vertex, nonmanifold_vertex}},
        {"spike", make_mesh(square, {{0, 1, 2, 3, 2}}), {repeated_vertex}},
        {"there and back", make_mesh(square, {{0, 1, 0, 1}}), {repeated_vertex, unused_vertex, nonmanifold_edge}},
        {"valence 1 and 2", make_mesh(square, {{0, 1, 2}, {0, 2, 3}}), {}},
        {"loose quads", loose_quads(100000), {}},
    });
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
        Codes found;
        findings.for_each([&found](PolyFindingCode code) { found.push_back(code); });
        examine(*mesh, found);
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
            Codes expected;
            check_cage(zoo_mesh(name)).for_each([&expected](PolyFindingCode code) { expected.push_back(code); });
            if (scale == 1e30f) expected.push_back(value_too_large);
            examine(mesh, expected);
            if (scale != 1e-20f) continue;
            for (Vec3f& p : mesh.positions) p = p + Vec3f(1e6f, -1e6f, 1e6f);
            examine(mesh, expected);
        }
    examine(with("torus",
                 [](ZooMesh& m) {
                     for (Vec3f& p : m.positions) p = p + Vec3f(1e6f, 1e6f, 1e6f);
                 }),
            {});
    examine(with("torus",
                 [](ZooMesh& m) {
                     for (size_t i = 0; i < m.positions.size(); i += 2) m.positions[i] = {0, 0, 1e18f};
                 }),
            {});
}

}  // namespace
}  // namespace sds_test
