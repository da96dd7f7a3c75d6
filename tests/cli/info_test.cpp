#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "model/stage_timer.h"
#include "sds_process.h"

namespace sds_cli {
namespace {

using Json = nlohmann::json;

Json info_of(const ScratchFolder& folder, const std::string& mesh, const std::vector<std::string>& more = {}) {
    const SdsRun run = run_sds(folder, {"info", mesh, "--json"}, more);
    EXPECT_SUCCESS(run);
    return Json::parse(run.out);
}

using Info = InFolder;

TEST_F(Info, CountsWhatACubeIs) {
    const Json info = info_of(folder, cube, {"--uv", cube});
    EXPECT_EQ(info["polygons"], 6);
    EXPECT_EQ(info["control_vertices"], 8);
    EXPECT_EQ(info["quads"], 6);
    EXPECT_EQ(info["subdivision_step"], false);
    EXPECT_EQ(info["vertices"], Json::parse(R"({"smooth":8,"dart":0,"crease":0,"corner":0,"border":0})"));
    EXPECT_EQ(info["patches"], Json::parse(R"({"regular":0,"boundary":0,"irregular":6})"));
    EXPECT_EQ(info["valences"], Json::parse(R"({"3":8})"));
    ASSERT_EQ(info["uv_maps"].size(), 2u);
    EXPECT_EQ(info["uv_maps"][1]["name"], "cube");
    EXPECT_EQ(info["uv_maps"][0]["unmapped_quads"], 0);
    EXPECT_EQ(info["findings"], Json::array());
    EXPECT_EQ(info["isolation"], Json::parse(R"({"depth":2,"patches":96,"leaves":24,"levels":{"2":96}})"));
    EXPECT_GT(info["bytes"]["refined patches"], 96 * 192);
    const Json plain = info_of(folder, cube, {"--isolation", "0"});
    EXPECT_GT(plain["bytes"]["patches"], 6 * 64);
    EXPECT_FALSE(plain.contains("isolation"));
    // All twelve edges of the map have two polygons on different points, but for those that agree by chance.
    EXPECT_GT(info["uv_maps"][0]["seam_edges"], 0);
    // Bilinear patches are the cage itself.
    const Json flat = info_of(folder, cube, {"--interpolation", "linear"});
    EXPECT_EQ(flat["bbox"], Json::parse(R"({"min":[-1.0,-1.0,-1.0],"max":[1.0,1.0,1.0]})"));
    EXPECT_NEAR(flat["area"].get<double>(), 24.0, 1e-4);
    EXPECT_EQ(info_of(folder, cube, {"--interpolation", "bilinear"})["area"], flat["area"]);
    EXPECT_EQ(info_of(folder, cube, {"--interpolation", "0"})["area"], flat["area"]);
}

// A 4 x 4 grid: 9 inner vertices, 4 corners, 12 others on the border; 4 inner patches.
TEST_F(Info, TellsBordersCornersAndRegularPatches) {
    const std::string mesh = folder.write("grid.obj", grid_obj(5) + "t crease 2/1/0 11 12 inf\n");
    const Json info = info_of(folder, mesh);
    // The crease runs from a dart on the left inside to the center.
    EXPECT_EQ(info["vertices"], Json::parse(R"({"smooth":7,"dart":2,"crease":0,"corner":4,"border":12})"));
    EXPECT_EQ(info["patches"]["irregular"], 6);
    EXPECT_EQ(info["patches"]["boundary"], 10);
    EXPECT_EQ(info["valences"], Json::parse(R"({"2":4,"3":12,"4":9})"));
    const Json smooth = info_of(folder, mesh, {"--interpolation", "smooth"});
    EXPECT_EQ(smooth["vertices"]["corner"], 0);
    EXPECT_EQ(smooth["vertices"]["border"], 16);
}

TEST_F(Info, DescribesTheStepAndTheMap) {
    const std::string mesh =
        folder.write("sheet.obj", std::string(sheet_obj) + "vt 0 0\nvt 1 0\nvt 0 1\nf 1/1 8/2 9/3\n");
    const Json info = info_of(folder, mesh);
    EXPECT_EQ(info["subdivision_step"], true);
    EXPECT_EQ(info["quads"], 5 + 3 + 3 + 4 + 3);
    EXPECT_EQ(info["uv_maps"][0]["unmapped_quads"], 15);
    EXPECT_GE(info["vertices"]["crease"], 1);
    double total = 0.0;
    for (const Json& stage : info["stages"])
        if (stage["depth"] == 0) total += stage["seconds"].get<double>();
    EXPECT_DOUBLE_EQ(total, info["build_seconds"].get<double>());
}

// One point per face-corner becomes one per vertex; the cube's six squares lie on the same four points.
TEST_F(Info, CountsTheUvPointsThatReadingAddsAndTakesAway) {
    const std::string loose = folder.write("loose.obj",
                                           "v 0 0 0\nv 1 0 0\nv 2 0 0\nv 0 1 0\nv 1 1 0\nv 2 1 0\n"
                                           "vt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\nvt 1 0\nvt 2 0\nvt 2 1\nvt 1 1\n"
                                           "f 1/1 2/2 5/3 4/4\nf 2/5 3/6 6/7 5/8\n");
    const Json map = info_of(folder, loose, {"--uv", loose})["uv_maps"][1];
    EXPECT_EQ(map, Json::parse(R"({"name":"loose","points":6,"seam_edges":0,"unmapped_quads":0,"welded_points":2})"));
    EXPECT_THAT(run_sds(folder, {"info", loose}).out, testing::HasSubstr("0 quads not mapped, 2 points welded\n"));
    EXPECT_GT(info_of(folder, cube)["uv_maps"][0]["split_points"], 0);
    EXPECT_THAT(run_sds(folder, {"info", cube}).out, testing::HasSubstr(" points split off\n"));
}

TEST_F(Info, CoversTheWholeMotion) {
    const std::string next = folder.write("next.obj", moved(cube_obj, 4.0));
    EXPECT_EQ(info_of(folder, cube)["motion"], nullptr);
    const Json vectors = info_of(folder, cube, {"--motion", next, "--interpolation", "linear"});
    EXPECT_EQ(vectors["bbox"]["max"], Json::parse("[5.0, 1.0, 1.0]"));
    EXPECT_EQ(vectors["motion"]["kind"], "vectors");
    const Json samples = info_of(folder, cube, {"--time-samples", cube, next, cube, "--interpolation", "linear"});
    EXPECT_EQ(samples["bbox"]["max"], Json::parse("[5.0, 1.0, 1.0]"));
    EXPECT_EQ(samples["motion"]["times"], Json::parse("[0.0, 0.5, 1.0]"));
}

TEST_F(Info, PrintsTheFindingsOfARefusedMesh) {
    const std::string bad = folder.write("bad.obj", "v 0 0 0\nv 1 0 0\nf 1 1 2\nf 1 2 9\n");
    const SdsRun refused = run_sds(folder, {"info", bad, "--json"});
    EXPECT_EQ(refused.code, 2);
    const Json findings = Json::parse(refused.out)["findings"];
    ASSERT_EQ(findings.size(), 2u);
    EXPECT_EQ(findings[0]["first"], bad + ":4");
    EXPECT_EQ(findings[1]["code"], "repeated_vertex");
    // Whatever else is refused is named too.
    const SdsRun other = run_sds(folder, {"info", cube, "--json", "--properties", bad});
    EXPECT_EQ(other.code, 2);
    EXPECT_THAT(Json::parse(other.out)["error"].get<std::string>(), testing::HasSubstr(bad));
}

TEST(StageTimer, TimesNestedTasksAndPassesThemOn) {
    AppProgressBar front;
    sds_model::StageTimer timer(&front);
    timer.begin_task("outer", 0.5f, false);
    timer.begin_task("inner", 0.5f, false);
    EXPECT_EQ(front.get_label().to_std(), "inner");
    timer.set_step_count(2);
    timer.step(1);
    EXPECT_FLOAT_EQ(front.get_position(), 0.125f);
    timer.end_task();
    timer.increment(0.5f);
    timer.end_task();
    timer.begin_task("last", 0.5f, false);
    timer.set_value(1.0f);
    EXPECT_FLOAT_EQ(front.get_position(), 1.0f);
    timer.end_task();
    ASSERT_EQ(timer.get_stages().size(), 3u);
    EXPECT_EQ(timer.get_stages()[1].label, "inner");
    EXPECT_EQ(timer.get_stages()[1].depth, 1u);
    EXPECT_EQ(timer.get_stages()[2].depth, 0u);
    EXPECT_LE(timer.get_stages()[1].seconds, timer.get_stages()[0].seconds);
}

}  // namespace
}  // namespace sds_cli
