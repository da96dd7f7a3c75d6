// The cages of assets/ keep the promises that pictures and examples rely on; real cages outside the project are read
// when they are there.
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>

#include "cli/cage_edges.h"
#include "cli/read_obj.h"

namespace sds_cli {
namespace {

std::filesystem::path asset(const std::string& name) { return std::filesystem::path(QN_SOURCE_DIR) / "assets" / name; }

struct CageFacts {
    std::size_t edges = 0, borders = 0, creases = 0;
    std::map<std::size_t, std::size_t> vertices_by_valence;  // valence = edges at the vertex
    double volume = 0.0;                                     // positive for outward winding

    explicit CageFacts(const ControlCage& cage) {
        const CageEdges table(cage);
        std::vector<std::size_t> valences(cage.vertex_count(), 0);
        table.for_each_edge([&](std::span<const std::uint32_t> sides) {
            ++edges;
            borders += sides.size() == 1;
            creases += cage.corner_creases[sides[0]];
            ++valences[table.start(sides[0])];
            ++valences[table.end(sides[0])];
        });
        for (const std::size_t valence : valences) ++vertices_by_valence[valence];
        std::size_t first = 0;
        for (const std::uint32_t count : cage.polygon_counts) {
            for (std::size_t k = 1; k + 1 < count; ++k) volume += tetrahedron(cage, first, first + k, first + k + 1);
            first += count;
        }
    }

    static double tetrahedron(const ControlCage& cage, std::size_t i, std::size_t j, std::size_t k) {
        const auto at = [&](std::size_t corner, std::size_t axis) -> double {
            return cage.positions[3 * cage.polygon_indices[corner] + axis];
        };
        double sum = 0.0;
        for (std::size_t x = 0; x < 3; ++x) {
            const std::size_t y = (x + 1) % 3, z = (x + 2) % 3;
            sum += at(i, x) * (at(j, y) * at(k, z) - at(j, z) * at(k, y));
        }
        return sum / 6.0;
    }
};

/// Reads an asset, which must be free of findings.
ControlCage load(const std::string& name) {
    const ReadObjResult result = read_obj(asset(name).string());
    EXPECT_TRUE(result.findings.entries().empty()) << name << to_json(result.findings).dump(1);
    return result.cage.value_or(ControlCage{});
}

TEST(Assets, ClosedCagesAreClosedAndWoundOutward) {
    for (const char* name : {"body.obj", "turned.obj", "knot.obj", "seams.obj"}) {
        SCOPED_TRACE(name);
        const CageFacts facts(load(name));
        EXPECT_EQ(facts.borders, 0u);
        EXPECT_GT(facts.volume, 0.0);
    }
}

TEST(Assets, EachTriesWhatItIsMadeFor) {
    const ControlCage body = load("body.obj"), turned = load("turned.obj"), sheet = load("sheet.obj"),
                      knot = load("knot.obj"), seams = load("seams.obj");
    EXPECT_TRUE(body.is_all_quads());
    const auto body_valences = CageFacts(body).vertices_by_valence;
    EXPECT_GT(body_valences.at(5), 0u);
    EXPECT_GT(body_valences.at(4), body.vertex_count() * 4 / 5);

    EXPECT_FALSE(turned.is_all_quads());
    EXPECT_GT(CageFacts(turned).creases, 0u);
    EXPECT_GT(turned.group_names.size(), 2u);

    const CageFacts sheet_facts(sheet);
    EXPECT_TRUE(sheet.is_all_quads());
    EXPECT_TRUE(sheet.has_colours());
    EXPECT_GT(sheet_facts.borders, 0u);
    EXPECT_EQ(sheet.vertex_count() + sheet.polygon_count(), sheet_facts.edges) << "a disk with one hole";

    const auto knot_valences = CageFacts(knot).vertices_by_valence;
    EXPECT_TRUE(knot.is_all_quads());
    EXPECT_EQ(knot_valences.at(3), knot_valences.at(5)) << "a ring closed on itself";
    EXPECT_EQ(knot_valences.size(), 3u);

    EXPECT_TRUE(seams.has_uvs());
    EXPECT_GT(seams.uv_count(), seams.vertex_count()) << "seams split UV points";
    EXPECT_GT(CageFacts(seams).creases, 0u);
    for (const float x : seams.uv_points) EXPECT_TRUE(x >= 0.0f && x <= 1.0f);
}

TEST(Assets, UvChartsKeepTheirOrientation) {
    const ControlCage seams = load("seams.obj");
    for (std::size_t c = 0; c < seams.corner_count(); c += 4) {
        const auto uv = [&](std::size_t k) { return &seams.uv_points[3 * seams.uv_indices[c + k]]; };
        const float area =
            (uv(2)[0] - uv(0)[0]) * (uv(3)[1] - uv(1)[1]) - (uv(3)[0] - uv(1)[0]) * (uv(2)[1] - uv(0)[1]);
        EXPECT_GT(area, 0.0f) << "face-corner " << c;
    }
}

TEST(RealCages, AreReadWhole) {
    const char* folder = std::getenv("QN_MESHES");
    const std::filesystem::path meshes =
        folder ? std::filesystem::path(folder) : std::filesystem::path(QN_SOURCE_DIR) / "../shared/meshes";
    if (!std::filesystem::is_directory(meshes))
        GTEST_SKIP() << "no cages at " << meshes << "; name a folder in QN_MESHES";
    for (const auto& entry : std::filesystem::directory_iterator(meshes)) {
        if (entry.path().extension() != ".obj") continue;
        SCOPED_TRACE(entry.path().string());
        const ReadObjResult result = read_obj(entry.path().string());
        ASSERT_TRUE(result.cage) << to_json(result.findings).dump(1);
        const ControlCage& cage = *result.cage;
        EXPECT_EQ(cage.polygon_offsets().back(), cage.corner_count());
        EXPECT_EQ(result.polygon_lines.size(), cage.polygon_count());
        // This one has polygons that pass a vertex twice.
        const bool has_repeats = entry.path().stem() == "nonman_edges";
        EXPECT_EQ(result.findings.count(FindingCode::repeated_vertex), has_repeats ? 14u : 0u);
        if (!has_repeats) {
            EXPECT_EQ(result.findings.count(FindingCode::opposite_winding), 0u);
        }
    }
    const ReadObjResult bishop = read_obj((meshes / "bishop.obj").string());
    if (!bishop.cage) GTEST_SKIP() << "no bishop there";
    EXPECT_EQ(bishop.cage->polygon_count(), 968u);
    EXPECT_EQ(CageFacts(*bishop.cage).creases, 224u);
}

}  // namespace
}  // namespace sds_cli
