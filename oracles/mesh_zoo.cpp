#include "oracles/mesh_zoo.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <stdexcept>

namespace sds_test {

namespace {

constexpr double pi = 3.14159265358979323846;
using Polygon = std::vector<unsigned int>;

ZooMesh named(const std::string& name, ZooMesh mesh) {
    mesh.name = name;
    mesh.groups = find_groups(mesh);
    return mesh;
}

// Creases along the chain a, b, c, ...
ZooMesh with_crease(ZooMesh mesh, const Polygon& chain) {
    const CageAdjacency cage(mesh);
    for (size_t i = 0; i + 1 < chain.size(); ++i)
        for (unsigned int c = 0; c < mesh.indices.size(); ++c)
            if ((cage.start[c] == chain[i] && cage.end[c] == chain[i + 1]) ||
                (cage.start[c] == chain[i + 1] && cage.end[c] == chain[i]))
                mesh.corner_creases[c] = 1;
    return mesh;
}

ZooMesh with_flipped_polygon(ZooMesh mesh, unsigned int polygon) {
    const unsigned int first = mesh.get_polygon_offsets()[polygon];
    std::reverse(mesh.indices.begin() + first, mesh.indices.begin() + first + mesh.counts[polygon]);
    return mesh;
}

// Every polygon its own UV island when `islands`, else one UV per vertex.
ZooMesh with_uvs(ZooMesh mesh, bool islands) {
    for (unsigned int c = 0; c < mesh.indices.size(); ++c) {
        const GMathVec3<float>& p = mesh.positions[mesh.indices[c]];
        const GMathVec3<float> uv(0.3f * p[0] + 0.11f * p[2], 0.4f * p[1] - 0.07f * p[2], 0.0f);
        if (islands) {
            mesh.uv_indices.push_back(c);
            mesh.uv_points.push_back(uv);
        } else {
            mesh.uv_indices.push_back(mesh.indices[c]);
        }
    }
    if (!islands)
        for (const GMathVec3<float>& p : mesh.positions)
            mesh.uv_points.emplace_back(0.3f * p[0] + 0.11f * p[2], 0.4f * p[1] - 0.07f * p[2], 0.0f);
    return mesh;
}

GMathVec3<float> point(double x, double y, double z) {
    return {static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)};
}

ZooMesh cube() {
    return make_mesh(
        {{-1, -1, -1}, {1, -1, -1}, {1, 1, -1}, {-1, 1, -1}, {-1, -1, 1}, {1, -1, 1}, {1, 1, 1}, {-1, 1, 1}},
        {{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 1, 5, 4}, {1, 2, 6, 5}, {2, 3, 7, 6}, {3, 0, 4, 7}});
}

ZooMesh tetrahedron() {
    return make_mesh({{1, 1, 1}, {-1, -1, 1}, {-1, 1, -1}, {1, -1, -1}}, {{0, 2, 1}, {0, 1, 3}, {0, 3, 2}, {1, 2, 3}});
}

// n sides, capped by two n-gons.
ZooMesh prism(unsigned int n) {
    std::vector<GMathVec3<float>> positions;
    for (unsigned int ring = 0; ring < 2; ++ring)
        for (unsigned int i = 0; i < n; ++i) {
            const double a = 2.0 * pi * i / n;
            positions.push_back(point((1.0 + 0.2 * ring) * std::cos(a), (1.0 + 0.2 * ring) * std::sin(a), 1.5 * ring));
        }
    std::vector<Polygon> polygons;
    Polygon top, bottom;
    for (unsigned int i = 0; i < n; ++i) {
        const unsigned int j = (i + 1) % n;
        polygons.push_back({i, j, n + j, n + i});
        top.push_back(n + i);
        bottom.push_back(n - 1 - i);
    }
    polygons.push_back(top);
    polygons.push_back(bottom);
    return make_mesh(std::move(positions), polygons);
}

ZooMesh moebius_strip(unsigned int n) {
    std::vector<GMathVec3<float>> positions;
    std::vector<Polygon> polygons;
    for (unsigned int i = 0; i < n; ++i) {
        const double a = 2.0 * pi * i / n;
        for (const double s : {-0.4, 0.0, 0.4})
            positions.push_back(point((1.0 + s * std::cos(a / 2)) * std::cos(a),
                                      (1.0 + s * std::cos(a / 2)) * std::sin(a), s * std::sin(a / 2)));
    }
    for (unsigned int i = 0; i < n; ++i)
        for (unsigned int s = 0; s < 2; ++s) {
            const bool last = i + 1 == n;
            const auto far = [&](unsigned int row) { return last ? 2 - row : 3 * (i + 1) + row; };
            polygons.push_back({3 * i + s, far(s), far(s + 1), 3 * i + s + 1});
        }
    return make_mesh(std::move(positions), polygons);
}

// k quads around one vertex in the middle: an open disc.
ZooMesh quad_fan(unsigned int k) {
    std::vector<GMathVec3<float>> positions{{0, 0, 0.5f}};
    std::vector<Polygon> polygons;
    for (unsigned int i = 0; i < 2 * k; ++i) {
        const double a = pi * i / k;
        const double r = i % 2 == 0 ? 1.0 : 1.3;
        positions.push_back(point(r * std::cos(a), r * std::sin(a), 0.1 * std::cos(2 * a)));
    }
    for (unsigned int i = 0; i < k; ++i) polygons.push_back({0, 2 * i + 1, 2 * i + 2, i + 1 == k ? 1 : 2 * i + 3});
    return make_mesh(std::move(positions), polygons);
}

ZooMesh two_cubes_on_an_edge() {
    ZooMesh mesh = cube();
    // The second cube's vertices 0 and 4 are the first one's 2 and 6.
    const auto second = [](unsigned int v) { return v == 0 ? 2u : v == 4 ? 6u : 8 + v - (v > 4 ? 2 : 1); };
    for (unsigned int v = 0; v < 8; ++v)
        if (v != 0 && v != 4) mesh.positions.push_back(mesh.positions[v] + GMathVec3<float>(2, 2, 0));
    const size_t corner_count = mesh.indices.size();
    for (size_t c = 0; c < corner_count; ++c) mesh.indices.push_back(second(mesh.indices[c]));
    mesh.counts.insert(mesh.counts.end(), 6, 4);
    mesh.corner_creases.assign(mesh.indices.size(), 0);
    return mesh;
}

std::vector<ZooMesh> make_zoo() {
    std::vector<ZooMesh> zoo;
    const auto add = [&zoo](const char* name, ZooMesh mesh) { zoo.push_back(named(name, std::move(mesh))); };

    add("cube", cube());
    add("cube_uv_islands", with_uvs(cube(), true));
    add("cube_two_darts", with_crease(cube(), {0, 1}));
    add("cube_crease_loop", with_crease(cube(), {4, 5, 6, 7, 4}));
    add("cube_crease_corner", with_crease(with_crease(cube(), {4, 5, 6, 7, 4}), {6, 2}));
    add("cube_ten_creases", with_crease(cube(), {0, 1, 2, 3, 0, 4, 5, 6, 7, 4}));
    add("cube_flipped_face", with_flipped_polygon(cube(), 1));
    add("tetrahedron", tetrahedron());
    add("tetrahedron_dart", with_crease(tetrahedron(), {0, 1}));
    add("torus", make_torus(8, 6));
    add("torus_dart", with_crease(make_torus(8, 6), {0, 6, 12, 18}));
    add("torus_crease_loop", with_crease(make_torus(8, 6), {0, 6, 12, 18, 24, 30, 36, 42, 0}));
    add("prism3", prism(3));
    add("prism5_crease_loop", with_crease(prism(5), {5, 6, 7, 8, 9, 5}));
    add("prism7_uvs", with_uvs(prism(7), false));

    const std::vector<GMathVec3<float>> square{{0, 0, 0}, {1, 0, 0}, {1, 1, 0.3f}, {0, 1, 0}};
    add("lone_quad", make_mesh(square, {{0, 1, 2, 3}}));
    add("lone_triangle", make_mesh({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{0, 1, 2}}));
    add("lone_pentagon",
        make_mesh({{0, 0, 0}, {1, 0, 0}, {1.4f, 1, 0.2f}, {0.5f, 1.6f, 0}, {-0.3f, 1, 0.1f}}, {{0, 1, 2, 3, 4}}));
    add("strip",
        make_mesh({{0, 0, 0}, {0, 1, 0}, {1, 0, 0.3f}, {1, 1, 0.2f}, {2, 0, 0}, {2, 1, 0.1f}, {3, 0, -0.4f}, {3, 1, 0}},
                  {{0, 2, 3, 1}, {2, 4, 5, 3}, {4, 6, 7, 5}}));
    add("sheet", make_sheet(5));
    add("sheet_dart", with_crease(make_sheet(5), {13, 14, 15}));
    add("sheet_crease_across", with_crease(make_sheet(5), {2, 8, 14, 20, 26, 32}));
    add("sheet_flipped_face", with_flipped_polygon(make_sheet(5), 12));
    add("sheet_uv_islands", with_uvs(make_sheet(4), true));
    add("quad_fan3", quad_fan(3));
    add("quad_fan5", quad_fan(5));
    add("quad_fan6_crease", with_crease(quad_fan(6), {5, 0, 9}));
    add("moebius_strip", moebius_strip(9));

    for (const unsigned int n : {8u, 64u, 1000u}) zoo.push_back(make_pole(n));
    add("bow_tie", make_mesh({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0.2f}, {-1, 0, 0}, {-1, -1, 0}, {0, -1, 0.2f}},
                             {{0, 1, 2, 3}, {0, 4, 5, 6}}));
    add("two_cubes_on_an_edge", two_cubes_on_an_edge());
    add("three_pages", make_mesh({{0, 0, 0},
                                  {0, 1, 0},
                                  {1, 0, 0},
                                  {1, 1, 0},
                                  {-0.5f, 0, 0.8f},
                                  {-0.5f, 1, 0.8f},
                                  {-0.5f, 0, -0.8f},
                                  {-0.5f, 1, -0.8f}},
                                 {{0, 2, 3, 1}, {0, 4, 5, 1}, {1, 7, 6, 0}}));
    // Two quads that share two neighboring edges: vertex 1 has valence two inside the surface.
    add("valence_two", make_mesh({{0, 0, 0}, {1, 0, 0.2f}, {1, 1, 0}, {0, 1, 0}, {2, 0, 0}, {0.5f, -1, 0}},
                                 {{0, 1, 2, 3}, {1, 0, 4, 2}}));

    return zoo;
}

}  // namespace

ZooMesh make_mesh(std::vector<GMathVec3<float>> positions, const std::vector<Polygon>& polygons) {
    ZooMesh mesh;
    mesh.positions = std::move(positions);
    for (const Polygon& polygon : polygons) {
        mesh.counts.push_back(static_cast<unsigned int>(polygon.size()));
        mesh.indices.insert(mesh.indices.end(), polygon.begin(), polygon.end());
    }
    mesh.corner_creases.assign(mesh.indices.size(), 0);
    return mesh;
}

ZooMesh make_torus(unsigned int n, unsigned int m) {
    std::vector<GMathVec3<float>> positions;
    std::vector<Polygon> polygons;
    for (unsigned int i = 0; i < n; ++i)
        for (unsigned int j = 0; j < m; ++j) {
            const double a = 2.0 * pi * i / n;
            const double b = 2.0 * pi * j / m;
            const double r = 2.0 + 0.7 * std::cos(b) + 0.1 * std::cos(3 * a);
            positions.push_back(point(r * std::cos(a), r * std::sin(a), 0.7 * std::sin(b)));
            const unsigned int i1 = (i + 1) % n;
            const unsigned int j1 = (j + 1) % m;
            polygons.push_back({m * i + j, m * i1 + j, m * i1 + j1, m * i + j1});
        }
    return named("torus" + std::to_string(n) + "x" + std::to_string(m), make_mesh(std::move(positions), polygons));
}

ZooMesh make_sheet(unsigned int n) {
    std::vector<GMathVec3<float>> positions;
    std::vector<Polygon> polygons;
    for (unsigned int i = 0; i <= n; ++i)
        for (unsigned int j = 0; j <= n; ++j) {
            const double x = static_cast<double>(j) / n;
            const double y = static_cast<double>(i) / n;
            positions.push_back(point(x + 0.05 * std::sin(7 * y), y, 0.4 * std::sin(3 * x) * std::cos(4 * y)));
            if (i == n || j == n) continue;
            const unsigned int v = (n + 1) * i + j;
            polygons.push_back({v, v + 1, v + n + 2, v + n + 1});
        }
    return named("sheet" + std::to_string(n), make_mesh(std::move(positions), polygons));
}

ZooMesh make_pole(unsigned int n) {
    std::vector<GMathVec3<float>> positions{{0, 0, 1}};
    std::vector<Polygon> polygons;
    Polygon base;
    for (unsigned int i = 0; i < n; ++i) {
        const double a = 2.0 * pi * i / n;
        positions.push_back(point(std::cos(a), std::sin(a), 0.1 * std::cos(3 * a)));
        polygons.push_back({0, 1 + i, 1 + (i + 1) % n});
        base.push_back(n - i);
    }
    polygons.push_back(base);
    return named("pole" + std::to_string(n), make_mesh(std::move(positions), polygons));
}

const std::vector<ZooMesh>& mesh_zoo() {
    static const std::vector<ZooMesh> zoo = make_zoo();
    return zoo;
}

const ZooMesh& zoo_mesh(const std::string& name) {
    for (const ZooMesh& mesh : mesh_zoo())
        if (mesh.name == name) return mesh;
    throw std::out_of_range("no zoo mesh named " + name);
}

std::vector<const ZooMesh*> all_cages() {
    std::vector<const ZooMesh*> cages;
    for (const ZooMesh& mesh : mesh_zoo()) cages.push_back(&mesh);
    for (const ZooMesh& mesh : cages_on_disk()) cages.push_back(&mesh);
    return cages;
}

std::vector<const ZooMesh*> cages_in(unsigned int with, unsigned int without) {
    std::vector<const ZooMesh*> cages = all_cages();
    std::erase_if(cages, [&](const ZooMesh* m) { return (m->groups & with) != with || (m->groups & without) != 0; });
    return cages;
}

std::string case_name(const std::string& mesh_name) {
    std::string name = mesh_name;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; }, '_');
    return name;
}

}  // namespace sds_test
