// The checker in front of the module: every code, its place, and the limits.
#include "qn_poly/poly_check.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "qn_poly/poly_mesh_property.h"

namespace {

using enum PolyFindingCode;
using Vec3f = GMathVec3<float>;

constexpr unsigned int none = 0xFFFFFFFF;
constexpr float nan = std::numeric_limits<float>::quiet_NaN();

template <class T>
CoreBasicArray<T> view(const std::vector<T>& items) {
    return {static_cast<unsigned int>(items.size()), const_cast<T*>(items.data())};
}

// Two quads over six vertices.
struct Mesh {
    std::vector<Vec3f> positions{{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {0, 1, 0}, {1, 1, 0}, {2, 1, 0}};
    std::vector<unsigned int> counts{4, 4}, indices{0, 1, 4, 3, 1, 2, 5, 4}, groups{0, 0};
    std::vector<unsigned char> creases;

    PolyFindings check() const {
        PolyFindings findings;
        poly_check_mesh({view(positions), view(counts), view(indices), view(creases), view(groups), 1}, findings);
        return findings;
    }
};

// The mesh's findings are `count` of `code` alone, first at that place.
void expect_only(const PolyFindings& findings, PolyFindingCode code, const PolyPlace& place, std::uint64_t count = 1) {
    SCOPED_TRACE(poly_finding_text(code).name);
    EXPECT_EQ(findings.count(code), count);
    findings.for_each([&](PolyFindingCode other) { EXPECT_EQ(other, code) << findings.to_text(other).get_data(); });
    const PolyPlace& first = findings.first(code);
    EXPECT_EQ(first.array, place.array);
    EXPECT_EQ(first.polygon, place.polygon);
    EXPECT_EQ(first.corner, place.corner);
    EXPECT_EQ(first.item, place.item);
    EXPECT_EQ(findings.has_errors(), poly_finding_text(code).severity == PolySeverity::error);
}

template <class Change>
PolyFindings check_changed(Change&& change) {
    Mesh mesh;
    change(mesh);
    return mesh.check();
}

TEST(PolyCheck, FindsNothingInAGoodMesh) {
    EXPECT_TRUE(Mesh().check().is_empty());
    EXPECT_TRUE(check_changed([](Mesh& m) { m.creases.assign(8, 1); }).is_empty());
}

TEST(PolyCheck, ErrorsHaveCodeAndPlace) {
    using enum PolyArray;
    expect_only(check_changed([](Mesh& m) { m = {{}, {}, {}, {}, {}}; }), no_polygons, {});
    expect_only(check_changed([](Mesh& m) {
                    m.counts = {4, 2, 2}, m.groups = {0, 0, 0};
                }),
                small_polygon, {polygons, 1, none, none}, 2);
    expect_only(check_changed([](Mesh& m) { m.counts = {4, 5}; }), wrong_count, {polygons, none, none, 8});
    expect_only(check_changed([](Mesh& m) { m.counts = {4, 0xFFFFFFFF}; }), wrong_count, {polygons, none, none, 8});
    // Whose sum is that of the corners in 32 bits.
    expect_only(check_changed([](Mesh& m) {
                    m.counts = {0x80000004, 0x80000004};
                }),
                wrong_count, {polygons, none, none, 8});
    expect_only(check_changed([](Mesh& m) { m.creases = {1}; }), wrong_count, {creases, none, none, 1});
    expect_only(check_changed([](Mesh& m) { m.groups = {0}; }), wrong_count, {groups, none, none, 1});
    expect_only(check_changed([](Mesh& m) { m.groups = {0, 1}; }), index_out_of_range, {groups, 1, none, 1});
    expect_only(check_changed([](Mesh& m) { m.indices[6] = 6; }), index_out_of_range, {polygons, 1, 6, 6});
    expect_only(check_changed([](Mesh& m) { m.indices[5] = 0xFFFFFFFE; }), index_out_of_range,
                {polygons, 1, 5, 0xFFFFFFFE});
    expect_only(check_changed([](Mesh& m) { m.indices[5] = none; }), void_polygon, {polygons, 1, 5, none});
    expect_only(check_changed([](Mesh& m) { m.positions[2][1] = nan; }), non_finite_value, {positions, none, none, 2});
    expect_only(check_changed([](Mesh& m) { m.positions[4][2] = -1e30f; }), value_too_large,
                {positions, none, none, 4});
}

TEST(PolyCheck, WarningsAndNotesHaveCodeAndPlace) {
    using enum PolyArray;
    expect_only(check_changed([](Mesh& m) {
                    m.indices = {0, 1, 4, 3, 1, 2, 5, 4, 4}, m.counts = {4, 5};
                }),
                repeated_vertex, {polygons, 1, 8, 4});
    expect_only(check_changed([](Mesh& m) { m.indices = {0, 1, 4, 3, 1, 4, 5, 2}; }), opposite_winding,
                {polygons, 1, 4, none});
    expect_only(check_changed([](Mesh& m) {
                    m.indices = {0, 1, 4, 3, 4, 1, 5, 2, 4}, m.counts = {3, 3, 3}, m.groups = {0, 0, 0};
                }),
                nonmanifold_vertex, {polygons, 2, 8, 4});
    expect_only(check_changed([](Mesh& m) { m.positions.emplace_back(3, 3, 3), m.positions.emplace_back(4, 4, 4); }),
                unused_vertex, {positions, none, none, 6}, 2);
    Mesh pages;
    pages.counts = {4, 4, 3};
    pages.indices = {0, 1, 4, 3, 1, 2, 5, 4, 4, 1, 5};
    pages.groups = {0, 0, 0};
    const PolyFindings findings = pages.check();
    EXPECT_EQ(findings.count(nonmanifold_edge), 1u);
    EXPECT_EQ(findings.first(nonmanifold_edge).corner, 8u);
    EXPECT_FALSE(findings.has_errors());
}

// At the limit and just beyond. Counts are refused before any array is read.
TEST(PolyCheck, Limits) {
    Mesh mesh;
    mesh.positions[0] = {poly_max_coordinate, -poly_max_coordinate, 0};
    EXPECT_TRUE(mesh.check().is_empty());
    mesh.positions[0][1] = std::nextafter(poly_max_coordinate, HUGE_VALF);
    EXPECT_EQ(mesh.check().count(value_too_large), 1u);

    const auto check_sizes = [](unsigned int vertices, unsigned int polygons, unsigned int corners) {
        PolyFindings findings;
        poly_check_polygons(vertices, {polygons, nullptr}, {corners, nullptr}, findings);
        return findings.count(too_many_elements);
    };
    EXPECT_EQ(check_sizes(poly_max_elements, 0, 0), 0u);
    EXPECT_EQ(check_sizes(poly_max_elements + 1, 0, 0), 1u);
    EXPECT_EQ(check_sizes(0, poly_max_elements + 1, 0), 1u);
    EXPECT_EQ(check_sizes(0, 0, 0xFFFFFFFF), 1u);
}

TEST(PolyCheck, UvMaps) {
    const Mesh mesh;
    const auto check = [&mesh](const std::vector<Vec3f>& points, const std::vector<unsigned int>& indices) {
        PolyFindings findings;
        poly_check_uvs(view(points), view(indices), view(mesh.counts), findings);
        return findings;
    };
    const std::vector<Vec3f> points{{0, 0, 0}, {1, 0, 0}};
    EXPECT_TRUE(check(points, {0, 1, 1, 0, none, none, none, none}).is_empty());
    expect_only(check(points, {0, 1, 1, 0, 0, none, none, none}), half_mapped_polygon, {PolyArray::uvs, 1, none, none});
    expect_only(check(points, {0, 1, 1, 0, 0, 1, 1, 2}), index_out_of_range, {PolyArray::uvs, 1, 7, 2});
    expect_only(check(points, {0, 1}), wrong_count, {PolyArray::uvs, none, none, 2});
    expect_only(check({{0, nan, 0}}, {0, 0, 0, 0, 0, 0, 0, 0}), non_finite_value, {PolyArray::uvs, none, none, 0});
}

TEST(PolyCheck, ColorsMotionAndTimes) {
    const auto colors = [](unsigned int count, const std::vector<unsigned int>& indices) {
        PolyFindings findings;
        poly_check_colors(count, view(indices), 6, 8, findings);
        return findings;
    };
    EXPECT_TRUE(colors(6, {}).is_empty());
    EXPECT_TRUE(colors(1, {0, 0, 0, 0, 0, 0, 0, 0}).is_empty());
    expect_only(colors(5, {}), wrong_count, {PolyArray::colors, none, none, 5});
    expect_only(colors(1, {0, 0, 0, 0, 0, 0, 0, 1}), index_out_of_range, {PolyArray::colors, none, 7, 1});

    PolyFindings motion;
    poly_check_vectors(view(std::vector<Vec3f>{{0, 0, 0}}), 2, PolyArray::motion, motion);
    expect_only(motion, wrong_count, {PolyArray::motion, none, none, 1});

    const auto times = [](const std::vector<double>& values) {
        PolyFindings findings;
        poly_check_times(view(values), findings);
        return findings;
    };
    EXPECT_TRUE(times({-1.0, 0.0, 0.5}).is_empty());
    expect_only(times({0.0, 0.5, 0.5}), times_not_increasing, {PolyArray::sample_times, none, none, 2});
    expect_only(times({0.5, 0.0}), times_not_increasing, {PolyArray::sample_times, none, none, 1});
    expect_only(times({0.0, HUGE_VAL}), non_finite_value, {PolyArray::sample_times, none, none, 1});
}

TEST(PolyCheck, Properties) {
    using Kind = PolyMeshProperty::Type;
    const Mesh source;
    PolyMesh mesh;
    mesh.set_polygons(view(source.counts), view(source.indices), {});
    const auto check = [&](Kind kind, const std::vector<unsigned int>& item_counts, const std::vector<double>& times,
                           const std::vector<unsigned int>& indices) {
        PolyMeshProperty property(mesh, CoreString("heat"), kind, ResourceProperty::Type::float32, 2);
        std::vector<ResourceProperty> samples(item_counts.size());
        for (size_t s = 0; s < samples.size(); ++s) samples[s].init(ResourceProperty::Type::float32, 2, item_counts[s]);
        property.set_values(GMathTimeSampling(view(times)), view(samples));
        property.set_indices(view(indices));
        PolyFindings findings;
        poly_check_property(property, 6, findings);
        return findings;
    };
    EXPECT_TRUE(check(Kind::per_vertex, {6}, {}, {}).is_empty());
    EXPECT_TRUE(check(Kind::per_polygon, {2, 2}, {0, 1}, {}).is_empty());
    EXPECT_TRUE(check(Kind::constant, {1}, {}, {}).is_empty());
    EXPECT_TRUE(check(Kind::per_vertex, {1}, {}, {0, 0, 0, 0, 0, 0, 0, 0}).is_empty());
    for (const auto& findings : {check(Kind::per_vertex, {5}, {}, {}), check(Kind::per_polygon, {6}, {}, {}),
                                 check(Kind::constant, {0}, {}, {}), check(Kind::per_vertex, {6, 5}, {0, 1}, {}),
                                 check(Kind::per_vertex, {6}, {0, 1}, {}), check(Kind::per_vertex, {}, {}, {}),
                                 check(Kind::per_vertex, {1}, {}, {0})}) {
        EXPECT_EQ(findings.count(wrong_count), 1u);
        EXPECT_TRUE(findings.has_errors());
    }
    expect_only(check(Kind::per_vertex, {2}, {}, {0, 0, 0, 0, 0, 0, 0, 2}), index_out_of_range,
                {PolyArray::property_indices, none, 7, 2});
}

TEST(PolyCheck, TextNamesCauseAndPlace) {
    Mesh mesh;
    mesh.indices[6] = mesh.indices[7] = 9;
    EXPECT_EQ(mesh.check().to_text(index_out_of_range),
              CoreString("error: index out of range (polygons, polygon 1, corner 6, 9), refused; 2 cases, first here"));
}

}  // namespace
