// The cages of assets/ keep the promises that pictures and examples rely on; real cages outside the project are read
// when they are there.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>

#include "io/json.h"
#include "io/obj/read_obj.h"
#include "model/array_view.h"
#include "qn_poly/poly_edge_buckets.h"

namespace sds_io {

using namespace sds_model;
namespace {

struct EdgeCounts {
    std::size_t all = 0, borders = 0, creases = 0;

    explicit EdgeCounts(const ControlCage& cage) {
        PolyEdgeBuckets edges(cage.polygon_indices.data(), view_of(cage.polygon_counts),
                              static_cast<unsigned int>(cage.get_vertex_count()));
        edges.sort();
        edges.for_each_edge([&](unsigned int, std::span<const PolyHalfEdge> sides) {
            ++all;
            borders += sides.size() == 1;
            creases += cage.corner_creases[sides[0].corner];
        });
    }
};

TEST(Assets, EachTriesWhatItIsMadeFor) {
    const auto load = [](const char* name) {
        const std::filesystem::path path = std::filesystem::path(QN_SOURCE_DIR) / "assets" / name;
        const ReadObjResult result = read_obj(path.string());
        EXPECT_TRUE(result.findings.get_entries().empty()) << name << to_json(result.findings).dump(1);
        return result.cage.value_or(ControlCage{});
    };
    const ControlCage body = load("body.obj"), turned = load("turned.obj"), sheet = load("sheet.obj"),
                      knot = load("knot.obj"), seams = load("seams.obj");
    const ReadObjOptions exact{.fractional = FractionalSharpness::exact, .is_refined = true};
    const ReadObjResult robot_file = read_obj(QN_SOURCE_DIR "/assets/robot.obj", exact);
    EXPECT_TRUE(robot_file.findings.get_entries().empty());
    const ControlCage robot = robot_file.cage.value_or(ControlCage{});
    EXPECT_TRUE(robot.is_all_quads());
    EXPECT_EQ(EdgeCounts(robot).creases, 0u);
    EXPECT_EQ(std::set<float>(robot.corner_sharpness.begin(), robot.corner_sharpness.end()).size(), 8u);
    for (const ControlCage* closed : {&body, &turned, &knot, &robot, &seams})
        EXPECT_EQ(EdgeCounts(*closed).borders, 0u);
    EXPECT_TRUE(body.is_all_quads());

    EXPECT_FALSE(turned.is_all_quads());
    EXPECT_GT(EdgeCounts(turned).creases, 0u);
    EXPECT_GT(turned.group_names.size(), 2u);

    EXPECT_TRUE(sheet.is_all_quads());
    EXPECT_TRUE(sheet.has_colors());
    EXPECT_EQ(sheet.get_vertex_count() + sheet.get_polygon_count(), EdgeCounts(sheet).all) << "a disk with one hole";

    EXPECT_TRUE(knot.is_all_quads());
    EXPECT_EQ(knot.get_vertex_count() + knot.get_polygon_count(), EdgeCounts(knot).all) << "a ring closed on itself";

    EXPECT_GT(seams.get_uv_count(), seams.get_vertex_count()) << "seams split UV points";
    EXPECT_GT(EdgeCounts(seams).creases, 0u);
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
        EXPECT_EQ(result.polygon_lines.size(), result.cage->get_polygon_count());
        // This one has polygons that pass a vertex twice.
        const bool has_repeats = entry.path().stem() == "nonman_edges";
        EXPECT_EQ(result.findings.count(FindingCode::repeated_vertex), has_repeats ? 14u : 0u);
        if (!has_repeats) {
            EXPECT_EQ(result.findings.count(FindingCode::opposite_winding), 0u);
        }
    }
    const ReadObjResult bishop = read_obj((meshes / "bishop.obj").string());
    if (!bishop.cage) GTEST_SKIP() << "no bishop there";
    EXPECT_EQ(bishop.cage->get_polygon_count(), 968u);
    EXPECT_EQ(EdgeCounts(*bishop.cage).creases, 224u);
}

}  // namespace
}  // namespace sds_io
