// Scenes of layers through every command.
#include <gmock/gmock.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "sds_process.h"

namespace sds_cli {
namespace {

using testing::HasSubstr;

// A cube at the origin, the same cube turned about z and 4 to the right, moving up by 6 from code 1 to code 3; a guide.
constexpr const char* cube_text =
    "point3f[] points = [(-1, -1, -1), (1, -1, -1), (1, 1, -1), (-1, 1, -1), (-1, -1, 1), (1, -1, 1), (1, 1, 1), (-1, "
    "1, 1)]; int[] faceVertexCounts = [4, 4, 4, 4, 4, 4]; int[] faceVertexIndices = [0, 3, 2, 1, 4, 5, 6, 7, 0, 1, 5, "
    "4, 1, 2, 6, 5, 2, 3, 7, 6, 3, 0, 4, 7]; float[] primvars:heat = [0, 1, 2, 3, 4, 5, 6, 7] (interpolation = "
    "'vertex'); ";

std::string scene_text() {
    return std::string("#usda 1.0\n(startTimeCode = 1; endTimeCode = 3; upAxis = 'Z')\ndef Mesh \"still\" { ") +
           cube_text +
           "}\ndef Xform \"car\" { float xformOp:rotateZ = 90; double3 xformOp:translate.timeSamples = { 1: (4, 0, 0), "
           "3: (4, 0, 6) }; uniform token[] xformOpOrder = ['xformOp:translate', 'xformOp:rotateZ']\n def Mesh "
           "\"body\" { " +
           cube_text + "}\n def Mesh \"hint\" { uniform token purpose = 'guide'; " + cube_text +
           "} }\ndef Camera \"eye\" { double3 xformOp:translate = (2, 0, 30); uniform token[] xformOpOrder = "
           "['xformOp:translate']; double shutter:close = 1 }\ndef Sphere "
           "\"ball\" {}\n";
}

class Scenes : public InFolder {
protected:
    const std::string scene = folder.write("scene.usda", scene_text());
};

TEST_F(Scenes, InfoNamesMeshesAndTheirPlaces) {
    const SdsRun run = run_sds(folder, {"info", scene, "--json"});
    EXPECT_SUCCESS(run);
    EXPECT_THAT(run.err, HasSubstr("unknown schema"));
    const auto info = nlohmann::json::parse(run.out);
    EXPECT_EQ(info["up"], "z");
    EXPECT_EQ(info["cameras"], nlohmann::json({"/eye"}));
    ASSERT_EQ(info["meshes"].size(), 1u);  // one build for both
    const auto& places = info["meshes"][0]["instances"];
    ASSERT_EQ(places.size(), 2u);
    EXPECT_EQ(places[0]["path"], "/still");
    EXPECT_EQ(places[1]["path"], "/car/body");
    EXPECT_EQ(places[1]["transform"][3], nlohmann::json({4.0, 0.0, 0.0, 1.0}));
    EXPECT_EQ(info["findings"][0]["code"], "unknown_schema");
    EXPECT_GT(info["findings"][0]["line"], 1);
    const SdsRun text = run_sds(folder, {"info", scene, "--quiet"});
    EXPECT_THAT(text.out, HasSubstr("mesh /still, 2 places"));
    EXPECT_TRUE(text.err.empty());
}

// The one cube's hits are those of the other, moved and turned.
TEST_F(Scenes, IntersectSaysWhichMeshWasHitAndWhere) {
    const std::vector<double> rays{0,       0,   10, 0, 0, -1, 0, INFINITY, 0, 4,   0,   10, 0, 0, -1, 0, INFINITY, 0,
                                   4,       0,   10, 0, 0, -1, 0, INFINITY, 1, 0.3, 0.2, 10, 0, 0, -1, 0, INFINITY, 0,
                                   4 - 0.2, 0.3, 10, 0, 0, -1, 0, INFINITY, 0, 9,   9,   9,  0, 0, -1, 0, INFINITY, 0};
    write_doubles(folder.path("r.npy"), rays, 9);
    const SdsRun run = run_sds(
        folder, {"intersect", scene, "--rays", folder.path("r.npy"), "--hits", folder.path("h.npy"), "--samples"});
    EXPECT_SUCCESS(run);
    EXPECT_EQ(run.out, "0 /still 2\n1 /car/body 3\n");
    const std::vector<double> hits = read_doubles(folder.path("h.npy"), {6, 20});
    const auto row = [&](std::size_t ray) { return &hits[20 * ray]; };
    EXPECT_EQ(row(0)[4], 0.0);
    EXPECT_EQ(row(1)[4], 1.0);
    EXPECT_EQ(row(5)[4], -1.0);
    EXPECT_NEAR(row(1)[3], row(0)[3], 1e-9);
    EXPECT_NEAR(row(2)[3], row(0)[3] - 3.0, 1e-9);  // a code later
    EXPECT_EQ(row(4)[0], row(3)[0]);
    EXPECT_NEAR(row(4)[1], row(3)[1], 1e-6);
    EXPECT_NEAR(row(4)[3], row(3)[3], 1e-6);
    for (std::size_t v = 0; v < 5; ++v) {  // position and four vectors
        const double shift = v == 0 ? 4.0 : 0.0;
        const double *a = row(3) + 5 + 3 * v, *b = row(4) + 5 + 3 * v;
        EXPECT_NEAR(b[0], shift - a[1], 1e-5) << v;
        EXPECT_NEAR(b[1], a[0], 1e-5) << v;
        EXPECT_NEAR(b[2], a[2], 1e-5) << v;
    }
}

TEST_F(Scenes, SelectListsQuadsBehindPaths) {
    const std::string right = folder.write("f.json", R"({"sides": [[1, 0, 0, -2]], "near": [0, 0, 1, 50]})");
    const SdsRun run = run_sds(folder, {"select", scene, "--frustum", right, "--mode", "inside", "--quiet"});
    EXPECT_SUCCESS(run);
    EXPECT_EQ(run.out, "/car/body 0\n/car/body 1\n/car/body 2\n/car/body 3\n/car/body 4\n/car/body 5\n");
}

TEST_F(Scenes, ExportWritesTheMeshThatIsMeant) {
    const SdsRun unclear = run_sds(folder, {"export", scene, "--patches", folder.path("p.npy"), "--quiet"});
    EXPECT_EQ(unclear.code, 2);
    EXPECT_THAT(unclear.err, HasSubstr("there are /still, /car/body"));
    EXPECT_SUCCESS(run_sds(folder, {"export", scene, "--prim", "/car/body", "--tessellation", folder.path("t.usda"),
                                    "--cage", folder.path("c.obj"), "--quiet"}));
    EXPECT_THAT(ScratchFolder::read(folder.path("c.obj")), HasSubstr("v -1 -1 -1\n"));
    const SdsRun flat = run_sds(folder, {"info", folder.path("t.usda"), "--json"});
    EXPECT_SUCCESS(flat);
    const auto box = nlohmann::json::parse(flat.out)["meshes"][0]["bbox"];
    EXPECT_NEAR(box["min"][0].get<double>() + box["max"][0].get<double>(), 8.0, 1e-5);  // in the scene's space

    EXPECT_SUCCESS(run_sds(folder, {"export", scene, "--tessellation", folder.path("all.usda"), "--quiet"}));
    const SdsRun all = run_sds(folder, {"info", folder.path("all.usda"), "--json"});
    EXPECT_EQ(nlohmann::json::parse(all.out)["meshes"].size(), 2u);

    for (const char* flag : {"--tessellation", "--cage"}) {
        const SdsRun unknown = run_sds(folder, {"export", cube, flag, folder.path("x.ply")});
        EXPECT_EQ(unknown.code, 2);
        EXPECT_THAT(unknown.err, HasSubstr("ends neither with .obj nor with .usda"));
    }
}

// A cage as an OBJ file and as the layer made from it.
TEST_F(Scenes, LayersOfCagesHaveTheirSurfaces) {
    for (const std::string& cage : {cube, sheet}) {
        const std::string layer = folder.path("cage.usda"), first = folder.path("a.npy"), second = folder.path("b.npy");
        EXPECT_SUCCESS(run_sds(folder, {"export", cage, "--cage", layer, "--samples", "3", first}));
        EXPECT_SUCCESS(run_sds(folder, {"export", layer, "--samples", "3", second}));
        EXPECT_EQ(ScratchFolder::read(first), ScratchFolder::read(second));
    }
}

// Properties of a cage as primvars of a layer, of every kind.
TEST_F(Scenes, LayersOfCagesHaveTheirProperties) {
    const std::string sidecar = folder.write("p.json", R"([
        {"name": "heat", "kind": "vertex", "type": "float64", "values": [0.5, 1, 2, 3, 4, 5, 6, 7e-5]},
        {"name": "six", "kind": "constant", "type": "uint8", "extent": 6, "values": [1, 2, 3, 4, 5, 255]},
        {"name": "flow", "kind": "uniform", "type": "float16", "extent": 3,
         "values": [[1, 2, 3], [1, 2, 3], [1, 2, 3], [1, 2, 3], [4, 5, 6], [7, 8, 9]]},
        {"name": "seam", "kind": "vertex", "type": "int64", "values": [1, 2, 9007199254740993],
         "indices": [0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2, 0, 1, 2]},
        {"name": "moving", "kind": "varying", "type": "float32", "times": [0, 2],
         "values": [[0, 1, 2, 3, 4, 5, 6, 7], [1, 1, 1, 1, 1, 1, 1, 1]]}])");
    const std::string layer = folder.path("cage.usda"), out = folder.path("p.npy");
    EXPECT_SUCCESS(run_sds(folder, {"export", cube, "--properties", sidecar, "--cage", layer}));
    for (const std::string name : {"heat", "six", "flow", "seam", "moving"}) {
        EXPECT_SUCCESS(
            run_sds(folder, {"export", cube, "--properties", sidecar, "--property", name, out, "--time", "1.5"}));
        const std::string expected = ScratchFolder::read(out);
        EXPECT_SUCCESS(run_sds(folder, {"export", layer, "--frame", "1.5", "--property", name, out}));
        EXPECT_EQ(ScratchFolder::read(out), expected) << name;
    }
}

TEST_F(Scenes, TheirBuildIsForeseen) {
    const auto peak = [&](const std::string& file) {
        const SdsRun run = run_sds(folder, {"info", file, "--estimate", "--json", "--quiet"});
        EXPECT_SUCCESS(run);
        return nlohmann::json::parse(run.out)["bytes"]["total"].get<std::size_t>();
    };
    const std::string one = folder.write("one.usda", std::string("#usda 1.0\ndef Mesh \"one\" { ") + cube_text + "}");
    EXPECT_EQ(peak(scene), peak(one));  // one build for both places
    const SdsRun refused = run_sds(folder, {"info", scene, "--estimate", "--memory-limit", "1K", "--quiet"});
    EXPECT_EQ(refused.code, 1);
}

TEST_F(Scenes, RenderTakesCamerasLightsAndColors) {
    const auto render = [&](std::vector<std::string> more) {
        more.insert(more.begin(), {"render", scene, "--width", "32", "--height", "24", "--samples", "2", "--quiet"});
        return run_sds(folder, more);
    };
    EXPECT_SUCCESS(render({"--camera", "/eye", "--aov", "P", "-o", folder.path("a.jpg")}));
    EXPECT_EQ(ScratchFolder::read(folder.path("a.jpg")).substr(0, 2), "\xFF\xD8");
    EXPECT_EQ(ScratchFolder::read(folder.path("a.P.jpg")).substr(0, 2), "\xFF\xD8");
    EXPECT_SUCCESS(render({"--sun", "20", "50", "--color-by", "heat", "-o", folder.path("b.exr")}));
    EXPECT_SUCCESS(render({"--environment", folder.path("b.exr"), "--position", "0", "-9", "3", "--shutter", "0", "2",
                           "-o", folder.path("c.png")}));
    const std::pair<std::vector<std::string>, const char*> refused[] = {
        {{"--camera", "/eve"}, "no camera '/eve'; there are /eye"},
        {{"--color-by", "cold"}, "no property 'cold'; known are heat"},
        {{"--environment", cube}, "cube.obj"},
        {{"--position", "0", "0", "3", "--up-vector", "0", "0", "1"}, "looks along its up axis"},
        {{"--motion", cube}, "--motion belongs to OBJ cages"},
        {{"-o", "x.gif"}, ".jpg"},
    };
    for (const auto& [arguments, words] : refused) {
        std::vector<std::string> more = arguments;
        if (more.front() != "-o") more.insert(more.end(), {"-o", folder.path("d.png")});
        const SdsRun run = render(more);
        EXPECT_EQ(run.code, 2) << words;
        EXPECT_THAT(run.err, HasSubstr(words));
    }
    EXPECT_EQ(run_sds(folder, {"info", cube, "--frame", "1"}).code, 2);
}

TEST_F(Scenes, BrokenLayersAreRefusedWithTheirPlace) {
    const std::string broken = folder.write("broken.usda", "#usda 1.0\ndef Mesh \"m\" {\n  int[] x = [1, 2\n}\n");
    const SdsRun run = run_sds(folder, {"info", broken, "--json"});
    EXPECT_EQ(run.code, 2);
    EXPECT_THAT(run.err, HasSubstr("broken.usda:4:1: error"));
    EXPECT_EQ(nlohmann::json::parse(run.out)["findings"][0]["line"], 4);
    const std::string arcs = folder.write("arcs.usda", scene_text() + "def \"r\" (references = @x.usd@) {}\n");
    EXPECT_THAT(run_sds(folder, {"info", arcs}).err, HasSubstr("flatten first"));
}

}  // namespace
}  // namespace sds_cli
