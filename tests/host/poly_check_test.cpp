// The checker in front of the module: every code, its place, and the limits.
#include "qn_poly/poly_check.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <sstream>
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

// All texts, in the order of the codes.
std::string text_of(const PolyFindings& findings) {
    std::string text;
    findings.for_each(
        [&](PolyFindingCode code) { text += (text.empty() ? "" : " + ") + findings.to_text(code).to_std(); });
    EXPECT_EQ(findings.has_errors(), text.find("error: ") != text.npos);
    return text;
}

// With what words like "counts 4 5; corner 6 9" say; a position is given by its y.
Mesh changed(const std::string& changes) {
    Mesh mesh;
    std::istringstream parts(changes);
    for (std::string part, key, word; std::getline(parts, part, ';');) {
        std::istringstream words(part);
        words >> key;
        std::vector<unsigned int> numbers;
        while (words >> word) numbers.push_back(static_cast<unsigned int>(std::strtoul(word.c_str(), nullptr, 10)));
        if (key == "corner") mesh.indices.at(numbers.at(0)) = numbers.at(1);
        if (key == "position") {
            mesh.positions.resize(std::max<size_t>(mesh.positions.size(), numbers.at(0) + 1));
            mesh.positions[numbers[0]][1] = std::strtof(word.c_str(), nullptr);
        }
        if (key == "positions") mesh.positions.clear();
        if (key == "counts") mesh.counts = numbers;
        if (key == "indices") mesh.indices = numbers;
        if (key == "groups") mesh.groups = numbers;
        if (key == "creases") mesh.creases.assign(numbers.begin(), numbers.end());
    }
    return mesh;
}

// Lines of poly_findings.txt: what is wrong with the mesh, and all that is said of it.
TEST(PolyCheck, NamesCauseAndPlace) {
    std::ifstream file(QN_SOURCE_DIR "/tests/host/poly_findings.txt");
    unsigned int count = 0;
    for (std::string line; std::getline(file, line); ++count) {
        const size_t end = line.find(" => ");
        EXPECT_EQ(text_of(changed(line.substr(0, end)).check()), line.substr(end + 4)) << line;
    }
    EXPECT_GT(count, 15u);
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
    EXPECT_EQ(text_of(check(points, {0, 1, 1, 0, 0, none, none, none})),
              "warning: polygon with UVs at some corners only (uvs, polygon 1), left unmapped");
    EXPECT_EQ(text_of(check(points, {0, 1, 1, 0, 0, 1, 1, 2})),
              "error: index out of range (uvs, polygon 1, corner 7, 2), refused");
    EXPECT_EQ(text_of(check(points, {0, 1})), "error: array of the wrong length (uvs, 2), refused");
    EXPECT_EQ(text_of(check({{0, nan, 0}}, {0, 0, 0, 0, 0, 0, 0, 0})),
              "error: NaN or infinite number (uvs, 0), refused");
}

TEST(PolyCheck, ColorsMotionAndTimes) {
    const auto colors = [](unsigned int count, const std::vector<unsigned int>& indices) {
        PolyFindings findings;
        poly_check_colors(count, view(indices), 6, 8, findings);
        return findings;
    };
    EXPECT_TRUE(colors(6, {}).is_empty());
    EXPECT_TRUE(colors(1, {0, 0, 0, 0, 0, 0, 0, 0}).is_empty());
    EXPECT_EQ(text_of(colors(5, {})), "error: array of the wrong length (colors, 5), refused");
    EXPECT_EQ(text_of(colors(1, {0, 0, 0, 0, 0, 0, 0, 1})), "error: index out of range (colors, corner 7, 1), refused");

    PolyFindings motion;
    poly_check_vectors(view(std::vector<Vec3f>{{0, 0, 0}}), 2, PolyArray::motion, motion);
    EXPECT_EQ(text_of(motion), "error: array of the wrong length (motion, 1), refused");

    const auto times = [](const std::vector<double>& values) {
        PolyFindings findings;
        poly_check_times(view(values), findings);
        return findings;
    };
    EXPECT_TRUE(times({-1.0, 0.0, 0.5}).is_empty());
    EXPECT_EQ(text_of(times({0.0, 0.5, 0.5})),
              "error: time not later than the one before it (sample times, 2), refused");
    EXPECT_EQ(text_of(times({0.5, 0.0})), "error: time not later than the one before it (sample times, 1), refused");
    EXPECT_EQ(text_of(times({0.0, HUGE_VAL})), "error: NaN or infinite number (sample times, 1), refused");
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
    EXPECT_EQ(text_of(check(Kind::per_vertex, {2}, {}, {0, 0, 0, 0, 0, 0, 0, 2})),
              "error: index out of range (property indices, corner 7, 2), refused");
}

}  // namespace
