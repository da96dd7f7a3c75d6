// The cages of assets/ keep the promises that pictures and examples rely on; real cages outside the project are read
// when they are there.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "io/json.h"
#include "io/obj/read_obj.h"
#include "model/cage_edges.h"

namespace sds_io {

using namespace sds_model;
namespace {

struct EdgeCounts {
    std::size_t all = 0, borders = 0, creases = 0;

    explicit EdgeCounts(const ControlCage& cage) {
        CageEdges(cage).for_each_edge([&](std::span<const std::uint32_t> sides) {
            ++all;
            borders += sides.size() == 1;
            creases += cage.corner_creases[sides[0]];
        });
    }
};

TEST(Assets, EachTriesWhatItIsMadeFor) {
    const auto load = [](const char* name) {
        const std::filesystem::path path = std::filesystem::path(QN_SOURCE_DIR) / "assets" / name;
        const ReadObjResult result = read_obj(path.string());
        EXPECT_TRUE(result.findings.entries().empty()) << name << to_json(result.findings).dump(1);
        return result.cage.value_or(ControlCage{});
    };
    const ControlCage body = load("body.obj"), turned = load("turned.obj"), sheet = load("sheet.obj"),
                      knot = load("knot.obj"), seams = load("seams.obj");
    for (const ControlCage* closed : {&body, &turned, &knot, &seams}) EXPECT_EQ(EdgeCounts(*closed).borders, 0u);
    EXPECT_TRUE(body.is_all_quads());

    EXPECT_FALSE(turned.is_all_quads());
    EXPECT_GT(EdgeCounts(turned).creases, 0u);
    EXPECT_GT(turned.group_names.size(), 2u);

    EXPECT_TRUE(sheet.is_all_quads());
    EXPECT_TRUE(sheet.has_colours());
    EXPECT_EQ(sheet.vertex_count() + sheet.polygon_count(), EdgeCounts(sheet).all) << "a disk with one hole";

    EXPECT_TRUE(knot.is_all_quads());
    EXPECT_EQ(knot.vertex_count() + knot.polygon_count(), EdgeCounts(knot).all) << "a ring closed on itself";

    EXPECT_GT(seams.uv_count(), seams.vertex_count()) << "seams split UV points";
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
        EXPECT_EQ(result.polygon_lines.size(), result.cage->polygon_count());
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
    EXPECT_EQ(EdgeCounts(*bishop.cage).creases, 224u);
}

}  // namespace
}  // namespace sds_io
