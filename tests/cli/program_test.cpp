// What the program refuses, and how it says so.
#include <gmock/gmock.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "sds_process.h"

namespace sds_cli {
namespace {

using testing::AllOf;
using testing::HasSubstr;

using Program = InFolder;

// Lines of refusals.txt: a command, behind "=>" what it says, and in front the exit code where it is not 2.
TEST_F(Program, RefusesAndWritesNothing) {
    // 37,837 x 37,837 texels in 56 bytes.
    folder.write(
        "bomb.png",
        std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\x93\xcd\0\0\x93\xcd\x08\x02\0\0\0\x0a\x0b\x98\xca\0\0\0\x0b"
                    "IDATxxxxxxxxxxx\x45\x9d\xa2\xf5",
                    56));
    std::ifstream lines(QN_SOURCE_DIR "/tests/cli/refusals.txt");
    for (std::string line; std::getline(lines, line);) {
        const int code = line.starts_with("1: ") ? 1 : 2;
        const std::size_t end = line.find(" => ");
        std::string said = end == line.npos ? "" : line.substr(end + 4);
        for (std::size_t at; (at = said.find("\\n")) != said.npos;) said.replace(at, 2, "\n");
        const SdsRun run = run_shell(folder, line.substr(code == 1 ? 3 : 0, end - (code == 1 ? 3 : 0)));
        EXPECT_EQ(run.code, code) << line << run.err;
        EXPECT_FALSE(run.err.empty()) << line;
        EXPECT_THAT(run.err, HasSubstr(said)) << line;
        EXPECT_EQ(run.out, "") << line;
        ASSERT_EQ(folder.file_count(), 3u) << line << " has written";
    }
}

// The same check on every file that joins the mesh.
TEST_F(Program, RefusesUnusableFilesBesideTheMesh) {
    const std::string bad_mesh = folder.write("bad.obj", "v 0 0 nan\nf 1 1 1\n"), out = folder.path("out.npy");
    for (const char* option : {"--uv-map", "--motion", "--time-samples"})
        EXPECT_EQ(run_sds(folder, {"export", cube, option, bad_mesh, "--patches", out}).code, 2) << option;
    const std::string rays = folder.path("rays.npy");
    write_doubles(rays, std::vector<double>(21, 1.0), 7);
    EXPECT_THAT(run_sds(folder, {"intersect", cube, "--rays", rays, "--hits", out}).err, HasSubstr("shape (3, 7)"));
    const std::size_t shape[] = {1, 8};
    write_npy<std::int32_t>(rays, shape, std::vector<std::int32_t>(8, 1));
    EXPECT_EQ(run_sds(folder, {"intersect", cube, "--rays", rays, "--hits", out}).code, 2);
    EXPECT_FALSE(std::filesystem::exists(out));
}

TEST_F(Program, RefusesFilesOfOtherPolygons) {
    const std::string out = folder.path("out.npy");
    std::string text = cube_obj;
    const std::string more = folder.write("more.obj", "v 5 5 5\n" + text);
    const std::string turned =
        folder.write("turned.obj", text.replace(text.find("f 5/1 6/2 7/3 8/4"), 17, "f 6/1 7/2 8/3 5/4"));
    const std::string bare = folder.write("bare.obj", text.substr(0, text.find("vt")) + "f 1 4 3 2\n");
    const std::pair<std::string, std::vector<std::string>> cases[] = {{more, {more, "9 vertices", "has 8"}},
                                                                      {turned, {turned + ":14: polygon 2 differs"}},
                                                                      {bare, {"1 polygons", "has 6"}}};
    for (const char* option : {"--motion", "--time-samples", "--uv-map"})
        for (const auto& [file, said] : cases) {
            const SdsRun run = run_sds(folder, {"export", cube, option, file, "--patches", out});
            EXPECT_EQ(run.code, 2) << option;
            for (const std::string& words : said) EXPECT_THAT(run.err, HasSubstr(words)) << option;
        }
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
