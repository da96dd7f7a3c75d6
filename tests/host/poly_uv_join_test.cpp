#include "qn_poly/poly_uv_join.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <numeric>
#include <random>
#include <vector>

#include "oracles/built_surface.h"

using namespace sds_test;

namespace {

using Indices = std::vector<unsigned int>;

constexpr unsigned int none = 0xFFFFFFFF;

PolyUvJoin join(const ZooMesh& cage) {
    return poly_join_uvs(static_cast<unsigned int>(cage.positions.size()), to_core_array(cage.counts),
                         to_core_array(cage.indices), to_core_array(cage.uv_points), to_core_array(cage.uv_indices));
}

ZooMesh with_uvs(ZooMesh cage, std::vector<Vec3f> points, Indices indices) {
    cage.groups |= uvs;
    cage.uv_points = std::move(points);
    cage.uv_indices = std::move(indices);
    return cage;
}

// One UV point per vertex, at places that no rule keeps by chance.
ZooMesh with_vertex_uvs(ZooMesh cage) {
    std::vector<Vec3f> points;
    for (const Vec3f& p : cage.positions)
        points.emplace_back(0.3f * p[0] + 0.11f * p[2] * p[1], 0.4f * p[1] - 0.07f * p[2] * p[2], 0.01f * p[0]);
    Indices indices = cage.indices;
    return with_uvs(std::move(cage), std::move(points), std::move(indices));
}

// A point of its own for every mapped face-corner.
ZooMesh without_indices(ZooMesh cage) {
    std::vector<Vec3f> points;
    for (unsigned int& i : cage.uv_indices) {
        if (i == none) continue;
        points.push_back(cage.uv_points[i]);
        i = static_cast<unsigned int>(points.size()) - 1;
    }
    cage.uv_points = std::move(points);
    return cage;
}

// The classes of joined face-corners by flooding over all pairs of an edge's sides, and from them what the map has to
// be: no two classes share a point, and every corner keeps its value.
void expect_joined_classes(const ZooMesh& cage) {
    const CageAdjacency mesh(cage);
    std::map<unsigned int, unsigned int> uses;
    for (const unsigned int i : cage.uv_indices) ++uses[i];
    uses.erase(none);
    const bool is_unindexed = std::all_of(uses.begin(), uses.end(), [](const auto& use) { return use.second == 1; });
    Indices classes(cage.indices.size());
    std::iota(classes.begin(), classes.end(), 0u);
    const auto is_equal = [&](unsigned int a, unsigned int b) {
        const unsigned int i = cage.uv_indices[a], j = cage.uv_indices[b];
        return i != none && j != none && (cage.uv_points[i] - cage.uv_points[j]).length() == 0.0f;
    };
    const auto unite = [&](unsigned int a, unsigned int b, bool by_value) {
        const unsigned int i = cage.uv_indices[a], j = cage.uv_indices[b];
        if (cage.indices[a] != cage.indices[b] || i == none || j == none || (i != j && !by_value)) return;
        const auto [low, high] = std::minmax({classes[a], classes[b]});
        std::replace(classes.begin(), classes.end(), high, low);
    };
    const Indices fans = count_fans(mesh, cage.positions.size());
    std::map<std::pair<unsigned int, unsigned int>, unsigned int> first_at;  // vertex and point of several fans
    for (unsigned int c = 0; c < cage.indices.size(); ++c)
        if (fans[mesh.start[c]] > 1)
            unite(first_at.try_emplace({mesh.start[c], cage.uv_indices[c]}, c).first->second, c, false);
    for (unsigned int c = 0; c < cage.indices.size(); ++c) {
        if (mesh.start[c] == mesh.end[c]) unite(c, mesh.next[c], is_unindexed && is_equal(c, mesh.next[c]));
        const unsigned int d = mesh.start[c] == mesh.end[c] ? none : mesh.opposite(c);
        if (d == none) continue;
        const bool is_turned = mesh.start[c] == mesh.start[d];
        const unsigned int at_start = is_turned ? d : mesh.next[d], at_end = is_turned ? mesh.next[d] : d;
        const bool by_value = is_unindexed && is_equal(c, at_start) && is_equal(mesh.next[c], at_end);
        unite(c, at_start, by_value);
        unite(mesh.next[c], at_end, by_value);
    }

    const PolyUvJoin found = join(cage);
    std::map<unsigned int, unsigned int> point_of, class_of;
    for (unsigned int c = 0; c < cage.indices.size(); ++c) {
        if (cage.uv_indices[c] == none) {
            ASSERT_EQ(found.indices[c], none);
            continue;
        }
        ASSERT_LT(found.indices[c], found.sources.get_count());
        ASSERT_EQ(point_of.try_emplace(classes[c], found.indices[c]).first->second, found.indices[c]) << c;
        ASSERT_EQ(class_of.try_emplace(found.indices[c], classes[c]).first->second, classes[c]) << c;
        const Vec3f moved = cage.uv_points[found.sources[found.indices[c]]] - cage.uv_points[cage.uv_indices[c]];
        ASSERT_EQ(moved.length(), 0.0f);
    }
    ASSERT_EQ(found.sources.get_count() - found.split_points + found.welded_points, cage.uv_points.size());
    ASSERT_EQ(found.sources.get_count() - class_of.size(), cage.uv_points.size() - uses.size()) << "points of no use";
}

// The same rows at places that are apart; seams within a sheet stay, with indices and without.
TEST(PolyUvJoin, ChartsStayApartAndSeamsWhereTheyAre) {
    // The bottom has the top's rows, wound against it; the sides are a strip of their own.
    const ZooMesh folded = with_uvs(zoo_mesh("cube"), std::vector<Vec3f>(14),
                                    {0, 3, 2, 1, 0, 1, 2, 3, 4, 6, 7, 5, 6, 8, 9, 7, 8, 10, 11, 9, 10, 12, 13, 11});
    EXPECT_EQ(join(folded).split_points, 4u);
    expect_joined_classes(folded);
    // Mirrored halves, parted by a column without UVs.
    ZooMesh sheet = with_vertex_uvs(make_sheet(5));
    for (unsigned int c = 0; c < sheet.indices.size(); ++c) {
        const unsigned int row = sheet.indices[c] / 6, column = sheet.indices[c] % 6, quad_column = c / 4 % 5;
        sheet.uv_indices[c] = quad_column == 2 ? none : 6 * row + std::min(column, 5 - column);
    }
    EXPECT_EQ(join(sheet).split_points, 18u);
    expect_joined_classes(sheet);
    // A seam within a sheet, from its border to the middle.
    ZooMesh slit = with_vertex_uvs(make_sheet(4));
    for (const unsigned int v : {2u, 7u}) {
        slit.uv_points.push_back(slit.uv_points[v] + Vec3f(0.1f, 0, 0));
        for (unsigned int c = 0; c < slit.indices.size(); ++c)
            if (slit.indices[c] == v && c / 4 % 4 > 1)
                slit.uv_indices[c] = static_cast<unsigned int>(slit.uv_points.size()) - 1;
    }
    EXPECT_FALSE(join(slit).is_changed());
    EXPECT_EQ(join(without_indices(slit)).welded_points, 64u - 27u);
    expect_joined_classes(without_indices(slit));
}

// One row for many places: sectors and fans of a vertex, edges of three polygons, polygons that pass a vertex twice.
TEST(PolyUvJoin, PlacesAreTheFansOfTheMesh) {
    const std::vector<Vec3f> square{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
    // Two quads that meet in a vertex alone, which they share, as they do its place on the mesh.
    expect_joined_classes(with_uvs(zoo_mesh("bow_tie"), square, {0, 1, 2, 3, 0, 1, 2, 3}));
    // Neighbors of opposite winding share the edge's points: 1 0 4 5 leaves vertex 1 as 0 1 2 3 arrives.
    const ZooMesh turned =
        make_mesh({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, -1, 0}, {1, -1, 0}}, {{0, 1, 2, 3}, {0, 1, 5, 4}});
    EXPECT_FALSE(join(with_uvs(turned, turned.positions, turned.indices)).is_changed());
    // Two sectors of one vertex on the same row, with another row on both sides between them: 0 and 1 in turns.
    const ZooMesh fan = zoo_mesh("pole8");
    Indices sectors(fan.indices.size(), none);
    for (unsigned int t = 0; t < 8; ++t) {
        sectors[3 * t] = t / 2 % 2;
        sectors[3 * t + 1] = 2 + t;
        sectors[3 * t + 2] = 2 + (t + 1) % 8;
    }
    const PolyUvJoin parted = join(with_uvs(fan, std::vector<Vec3f>(10), sectors));
    EXPECT_EQ(parted.split_points, 2u);
    for (unsigned int t = 0; t < 8; ++t) EXPECT_EQ(parted.indices[3 * t], t < 4 ? t / 2 : 8 + t / 2) << t;
    // A row that no corner uses stays; one for all corners of a mesh is one for each vertex.
    const ZooMesh cube = zoo_mesh("cube");
    const PolyUvJoin single = join(with_uvs(cube, std::vector<Vec3f>(2), Indices(24, 1)));
    EXPECT_EQ(single.sources.get_count(), 9u);
    EXPECT_EQ(single.split_points, 7u);

    for (const ZooMesh* cage : all_cages()) {
        SCOPED_TRACE(cage->name);
        if (cage->indices.size() > 4000) continue;  // the brute force is quadratic
        if (cage->is_in(uvs)) expect_joined_classes(*cage);
        expect_joined_classes(with_vertex_uvs(*cage));
        expect_joined_classes(without_indices(with_vertex_uvs(*cage)));
        // Few rows, taken at random by corners and by vertices.
        std::mt19937 random(static_cast<unsigned int>(cage->indices.size()));
        Indices by_corner, by_vertex;
        for (size_t v = 0; v < cage->positions.size(); ++v)
            by_vertex.push_back(static_cast<unsigned int>(random() % 5));
        for (const unsigned int v : cage->indices)
            by_corner.push_back(random() % 9 == 0   ? none
                                : random() % 3 == 0 ? static_cast<unsigned int>(random() % 5)
                                                    : by_vertex[v]);
        expect_joined_classes(with_uvs(*cage, std::vector<Vec3f>(5, Vec3f(1, 2, 3)), by_corner));
    }
}

// Polygons that pass an edge or a vertex twice, many at an edge.
TEST(PolyUvJoin, RandomPolygons) {
    for (unsigned int seed = 0; seed < 200; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        const auto below = [&random](unsigned int n) { return static_cast<unsigned int>(random() % n); };
        const unsigned int vertex_count = 4 + seed % 40;
        std::vector<std::vector<unsigned int>> polygons(1 + seed % 32);
        for (auto& polygon : polygons)
            for (unsigned int k = 3 + below(3); k > 0; --k) polygon.push_back(below(vertex_count));
        ZooMesh soup = with_vertex_uvs(make_mesh(std::vector<Vec3f>(vertex_count), polygons));
        expect_joined_classes(soup);
        expect_joined_classes(without_indices(soup));
        for (unsigned int& i : soup.uv_indices) i = below(8) == 0 ? none : i % 4;
        expect_joined_classes(soup);
    }
}

// Any number of polygons at a vertex; the work is linear, or this would take hours.
TEST(PolyUvJoin, HugePoles) {
    constexpr unsigned int n = 100000;
    const ZooMesh pole = make_pole(n);
    const ZooMesh loose = without_indices(with_vertex_uvs(pole));
    const PolyUvJoin welded = join(loose);
    EXPECT_EQ(welded.sources.get_count(), n + 1);
    EXPECT_EQ(welded.welded_points, 3 * n - 1);
    // All triangles on three rows: at the pole they are joined, elsewhere a row is on one side of an edge only, but for
    // the n-gon below, which has one of its own.
    Indices stacked(4 * size_t{n}, 3);
    for (unsigned int c = 0; c < 3 * n; ++c) stacked[c] = c % 3;
    const PolyUvJoin split = join(with_uvs(pole, std::vector<Vec3f>(4), stacked));
    EXPECT_EQ(split.sources.get_count(), 1 + 3 * n);
}

}  // namespace
