// What the program refuses, and how it says so.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "sds_process.h"

namespace sds_cli {
namespace {

using testing::AllOf;
using testing::HasSubstr;

using Program = InFolder;

TEST_F(Program, RefusesWrongUsage) {
    const std::string png = folder.path("out.png"), npy = folder.path("out.npy");
    const std::vector<std::vector<std::string>> wrong = {
        {},
        {"paint"},
        {"info"},
        {"info", cube, "--nonsense"},
        {"info", cube, "--interpolation", "round"},
        {"info", cube, "--uv-interpolation", "9"},
        {"info", cube, "--threads", "-1"},
        {"render", cube},
        {"render", cube, "-o", folder.path("out.gif")},
        {"render", cube, "-o", png, "--level", "13"},
        {"render", cube, "-o", png, "--level", "-1"},
        {"render", cube, "-o", png, "--width", "0"},
        {"render", cube, "-o", png, "--samples", "0"},
        {"render", cube, "-o", png, "--view", "35"},
        {"render", cube, "-o", png, "--view", "35 nan"},
        {"render", cube, "-o", png, "--aov", "N,smell"},
        {"render", cube, "-o", png, "--shutter", "1", "0"},
        {"render", cube, "-o", png, "--map", "1", "--checker"},
        {"render", cube, "-o", png, "--times", "0", "1"},
        {"render", cube, "-o", png, "--time-samples", cube, cube, "--times", "1", "1"},
        {"render", cube, "-o", png, "--time-samples", cube, cube, "--times", "0"},
        {"render", cube, "-o", png, "--time-samples", cube, cube, "--times", "0", "inf"},
        {"render", cube, "-o", png, "--time-samples", cube, "--motion", cube},
        {"export", cube},
        {"export", cube, "--samples", "0", npy},
        {"export", cube, "--samples", "x", npy},
        {"export", cube, "--patches", npy, "--time", "nan"},
        {"export", cube, "--uv", "2", npy, "--map", "1"},
        {"export", cube, "--tessellation", folder.path("out.obj"), "--level", "0"},
        {"intersect", cube, "--hits", npy},
        {"select", cube, "--frustum", cube, "--mode", "near"},
    };
    for (const auto& arguments : wrong) {
        const SdsRun run = run_sds(folder, arguments);
        EXPECT_EQ(run.code, 2) << testing::PrintToString(arguments) << run.err;
        EXPECT_FALSE(run.err.empty()) << testing::PrintToString(arguments);
    }
    EXPECT_EQ(folder.file_count(), 2u) << "nothing was written";
}

TEST_F(Program, RefusesUnusableMeshesWithPlaceAndReason) {
    const std::string out = folder.path("out.npy");
    const std::string points = "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\n";
    const std::pair<std::string, const char*> bad[] = {
        {points + "f 1 2 3 5\n", ":5: error: vertex index out of range (index 5 of 4)"},
        {"v 0 0 nan\n" + points + "f 1 2 3\n", ":1: error: NaN or infinite number"},
        {points + "f 1 2 3\nv 1e19 0 0\n", "error: coordinate beyond 1e18 (vertex 5)"},
        {points, "no polygon"},
        {"", "the file is empty"},
    };
    for (const auto& [text, reason] : bad) {
        const std::string mesh = folder.write("bad.obj", text);
        const SdsRun run = run_sds(folder, {"export", mesh, "--patches", out});
        EXPECT_EQ(run.code, 2) << reason;
        EXPECT_THAT(run.err, AllOf(HasSubstr(mesh), HasSubstr(reason)));
        EXPECT_FALSE(std::filesystem::exists(out));
    }
    EXPECT_EQ(run_sds(folder, {"info", folder.path("missing.obj")}).code, 2);
    // The same check on every file that joins the mesh.
    const std::string bad_mesh = folder.write("bad.obj", "v 0 0 nan\nf 1 1 1\n");
    for (const char* option : {"--uv-map", "--motion", "--time-samples"})
        EXPECT_EQ(run_sds(folder, {"export", cube, option, bad_mesh, "--patches", out}).code, 2) << option;
    EXPECT_FALSE(std::filesystem::exists(out));
}

TEST_F(Program, RefusesFilesOfOtherPolygons) {
    const std::string out = folder.path("out.npy");
    std::string text = cube_obj;
    const std::string more = folder.write("more.obj", "v 5 5 5\n" + text);
    const std::string turned =
        folder.write("turned.obj", text.replace(text.find("f 5/1 6/2 7/3 8/4"), 17, "f 6/1 7/2 8/3 5/4"));
    const std::string bare = folder.write("bare.obj", text.substr(0, text.find("vt")) + "f 1 4 3 2\n");
    for (const char* option : {"--motion", "--time-samples", "--uv-map"}) {
        SdsRun run = run_sds(folder, {"export", cube, option, more, "--patches", out});
        EXPECT_EQ(run.code, 2);
        EXPECT_THAT(run.err, AllOf(HasSubstr(more), HasSubstr("9 vertices"), HasSubstr("has 8"))) << option;
        run = run_sds(folder, {"export", cube, option, turned, "--patches", out});
        EXPECT_EQ(run.code, 2);
        EXPECT_THAT(run.err, HasSubstr(turned + ":14: polygon 2 differs")) << option;
        run = run_sds(folder, {"export", cube, option, bare, "--patches", out});
        EXPECT_EQ(run.code, 2);
        EXPECT_THAT(run.err, AllOf(HasSubstr("1 polygons"), HasSubstr("has 6"))) << option;
    }
}

TEST_F(Program, RefusesUnusableRaysFrustaAndTextures) {
    const std::string out = folder.path("out.npy");
    const std::string rays = folder.path("rays.npy");
    write_doubles(rays, std::vector<double>(21, 1.0), 7);
    EXPECT_THAT(run_sds(folder, {"intersect", cube, "--rays", rays, "--hits", out}).err, HasSubstr("shape (3, 7)"));
    const std::size_t shape[] = {1, 8};
    write_npy<float>(rays, shape, std::vector<float>(8, 1.0f));
    EXPECT_EQ(run_sds(folder, {"intersect", cube, "--rays", rays, "--hits", out}).code, 2);
    EXPECT_EQ(run_sds(folder, {"intersect", cube, "--rays", cube, "--hits", out}).code, 2);
    for (const char* text : {"", "[]", "{\"side\": []}", "{\"near\": [0, 0, 1]}", "{\"near\": [0, 0, 1, \"a\"]}",
                             "{\"sides\": [[1,0,0,0],[1,0,0,0],[1,0,0,0],[1,0,0,0],[1,0,0,0]]}",
                             "{\"far\": [0, 0, 1, 1e999]}", "{\"far\": [0, 0, 1, 2]"}) {
        const std::string frustum = folder.write("frustum.json", text);
        const SdsRun run = run_sds(folder, {"select", cube, "--frustum", frustum, "--mode", "touch"});
        EXPECT_EQ(run.code, 2) << text;
        EXPECT_THAT(run.err, HasSubstr(frustum)) << text;
    }
    EXPECT_EQ(run_sds(folder, {"render", cube, "--texture", cube, "-o", folder.path("a.png")}).code, 2);
    EXPECT_FALSE(std::filesystem::exists(folder.path("a.png")));
    EXPECT_FALSE(std::filesystem::exists(out));
}

TEST_F(Program, FailsWhereItCannotWrite) {
    EXPECT_EQ(run_sds(folder, {"render", cube, "-o", folder.path("missing/a.png")}).code, 1);
    EXPECT_EQ(run_sds(folder, {"export", cube, "--patches", folder.path("missing/a.npy")}).code, 1);
    std::filesystem::create_directory(folder.path("folder.png"));
    EXPECT_EQ(run_sds(folder, {"render", cube, "-o", folder.path("folder.png")}).code, 1);
    EXPECT_EQ(run_sds(folder, {"export", cube, "--patches", "/dev/full"}).code, 1);
}

TEST_F(Program, SaysWhatItFoundUnlessQuiet) {
    const std::string mesh = folder.write("a.obj", std::string(cube_obj) + "v 9 9 9\nt crease 2/1/0 0 1 3.5\n");
    const SdsRun loud = run_sds(folder, {"info", mesh, "--fractional", "sharp"});
    EXPECT_SUCCESS(loud);
    EXPECT_THAT(run_sds(folder, {"info", mesh}).err, Not(HasSubstr("sharpness")));
    EXPECT_THAT(loud.err, AllOf(HasSubstr(mesh + ":20: warning: edge of fractional sharpness"),
                                HasSubstr(mesh + ": note: vertex that no polygon uses (vertex 9)")));
    EXPECT_EQ(run_sds(folder, {"info", mesh, "--quiet"}).err, "");
    const auto creases = [&](const char* choice) {
        const SdsRun run = run_sds(folder, {"info", mesh, "--quiet", "--json", "--fractional", choice});
        return nlohmann::json::parse(run.out)["vertices"]["dart"].get<int>();
    };
    EXPECT_EQ(creases("sharp"), 2);
    EXPECT_EQ(creases("drop"), 0);
}

TEST_F(Program, JsonHoldsNamesOfAnyBytes) {
    const std::string mesh = folder.write("caf\xe9.obj", "usemtl caf\xe9\nmtllib \xe9.mtl\n" + std::string(cube_obj));
    const SdsRun run = run_sds(folder, {"info", mesh, "--json"});
    EXPECT_SUCCESS(run);
    EXPECT_EQ(nlohmann::json::parse(run.out)["shading_groups"], nlohmann::json::array({"caf\u00e9"}));
}

}  // namespace
}  // namespace sds_cli
