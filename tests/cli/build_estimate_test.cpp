#include "model/build_estimate.h"

#include <gmock/gmock.h>

#include <map>
#include <nlohmann/json.hpp>

#include "io/obj/read_obj.h"
#include "sds_process.h"

namespace sds_cli {

using namespace sds_model;

namespace {

using Json = nlohmann::json;

// What is predicted against what the built surface then holds: sizes that follow from counts to the byte, tangents
// nearly so.
TEST(BuildEstimate, PredictsTheArraysOfTheSurface) {
    for (const std::string& text : {std::string(cube_obj), std::string(sheet_obj), grid_obj(40), grid_obj(40, 7)})
        for (const SurfaceModes& modes :
             {SurfaceModes{}, SurfaceModes{.positions = SdsMeshGeometry::InterpolationMode::all_fixed},
              SurfaceModes{.depth = 2}}) {
            const ControlCage cage = read_obj_text(text, "cage.obj").cage.value();
            const BuildEstimate estimate = estimate_build(cage, {}, false, modes);
            const Surface surface(cage, {}, {}, modes, nullptr);
            std::map<std::string, std::size_t> predicted;
            for (const ArraySize& size : estimate.arrays) predicted[size.name] = size.bytes;
            std::size_t total = 0;
            for (const ArraySize& size : array_sizes(surface)) {
                const std::string& name = size.name;
                total += size.bytes;
                const double found = static_cast<double>(size.bytes), expected = static_cast<double>(predicted[name]);
                if (name == "tangents")
                    EXPECT_NEAR(expected, found, 0.05 * found) << name;
                else if (name.starts_with("uv map"))
                    EXPECT_LE(found, expected) << name;
                else
                    EXPECT_EQ(found, expected) << name;
            }
            EXPECT_NEAR(static_cast<double>(estimate.bytes), static_cast<double>(total),
                        0.2 * static_cast<double>(total));
        }
}

TEST(BuildEstimate, StagesAreThoseOfABuild) {
    const ControlCage cage = read_obj_text(grid_obj(60), "cage.obj").cage.value();
    const Surface surface(cage, {}, {}, {}, nullptr);
    const std::vector<Stage> stages = estimate_stages(cage, {});
    ASSERT_EQ(stages.size(), surface.get_stages().size());
    for (std::size_t i = 0; i < stages.size(); ++i) EXPECT_EQ(stages[i].label, surface.get_stages()[i].label);
}

TEST(BuildEstimate, LimitStopsEveryBuildingCommand) {
    const ScratchFolder folder;
    const std::string mesh = folder.write("sheet.obj", grid_obj(40, 7)), out = folder.path("out.npy");
    const SdsRun estimated = run_sds(folder, {"info", mesh, "--estimate", "--json"});
    EXPECT_SUCCESS(estimated);
    const auto peak = Json::parse(estimated.out)["bytes"]["peak"].get<std::size_t>();
    const auto exported = [&](const std::string& limit) {
        return run_sds(folder, {"export", mesh, "--patches", out, "--quiet", "--memory-limit", limit});
    };
    const SdsRun refused = exported(std::to_string(peak - 1));
    EXPECT_EQ(refused.code, 1);
    EXPECT_THAT(refused.err, testing::HasSubstr("more than the limit"));
    EXPECT_FALSE(std::filesystem::exists(out));
    EXPECT_SUCCESS(exported(std::to_string(peak)));
    EXPECT_SUCCESS(exported("1G"));
}

}  // namespace
}  // namespace sds_cli
