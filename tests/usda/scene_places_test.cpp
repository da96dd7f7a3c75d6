#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "io/usda/scene_source.h"

namespace sds_usda {
namespace {

constexpr UsdMeshOptions refined{sds_model::FractionalSharpness::exact, true};

// Arcs within a layer and instancers, against the same prims written where they stand.
TEST(ScenePlaces, WhatIsBroughtStandsWhereItsCopiesWould) {
    const std::string leaf =
        "point3f[] points = [(0, 0, 0), (1, 0, 0), (1, 1, 0), (0, 1, 0)]; int[] faceVertexCounts = [4]; int[] "
        "faceVertexIndices = [0, 1, 2, 3]; ";
    const std::string other =
        "point3f[] points = [(0, 0, 0), (2, 0, 0), (2, 2, 0)]; int[] faceVertexCounts = [3]; "
        "int[] faceVertexIndices = [0, 1, 2]; ";
    const std::string ops = "uniform token[] xformOpOrder = ";
    const std::string shift = "double3 xformOp:translate = (1, 2, 0); " + ops + "['xformOp:translate']; ";
    const std::string tree = "def Mesh 'Leaf' { " + leaf +
                             "} def Xform 'Top' { float xformOp:rotateZ.timeSamples = { 0: 0, "
                             "4: 90 }; " +
                             ops + "['xformOp:rotateZ']; def Mesh 'Leaf' { " + leaf + shift + "} } ";
    const std::string world =
        "def Xform 'World' { double3 xformOp:translate.timeSamples = { 0: (0, 0, 0), 4: (0, 0, 8) }; " + ops +
        "['xformOp:translate']; ";
    const std::string scaled = "float3 xformOp:scale = (2, 2, 3); " + ops + "['xformOp:scale']; ";
    const std::string brought =
        "#usda 1.0\nclass Xform 'Tree' { " + shift + tree + "}\nover 'Far' { def Mesh 'Leaf' { " + leaf + "} }\n" +
        world + "def 'A' (references = </Tree>) {} def 'B' (instanceable = true; prepend references = [</Tree>]) { " +
        scaled +
        "} def Xform 'C' (inherits = </Tree>) { token visibility = 'invisible' } def Mesh 'D' (references = "
        "</Far/Leaf>) "
        "{ } def PointInstancer 'P' { rel prototypes = [</Tree>, <Own>]; int[] protoIndices = [1, 0, 0, 1]; point3f[] "
        "positions.timeSamples = { 0: [(1, 0, 0), (0, 1, 0), (9, 9, 9), (0, 0, 1)], 4: [(5, 0, 0), (0, 1, 0), (9, 9, "
        "9), (0, 0, 1)] }; quath[] orientations = [(1, 0, 0, 0), (0.5, 0.5, 0.5, 0.5), (1, 0, 0, 0), (0, 0, 0, 1)]; "
        "float3[] scales = [(1, 1, 1), (1, 2, 3), (1, 1, 1), (2, 2, 2)]; int64[] ids = [7, 6, 5, 4]; int64[] "
        "invisibleIds = [5]; def Mesh 'Own' { " +
        other + shift + "} def Mesh 'Unused' { " + leaf + "} } }";
    const auto copy = [&](const std::string& position, const std::string& turn, const std::string& scale,
                          const std::string& prim) {
        static int count = 0;
        return "def Xform 'i" + std::to_string(count++) + "' { double3 xformOp:translate" + position +
               "; quatf xformOp:orient = " + turn + "; float3 xformOp:scale = " + scale + "; " + ops +
               "['xformOp:translate', 'xformOp:orient', 'xformOp:scale']; " + prim + " } ";
    };
    const std::string own = "def Mesh 'Own' { " + other + shift + "}",
                      whole = "def Xform 'Tree' { " + shift + tree + "}";
    const std::string copies = "#usda 1.0\n" + world + "def Xform 'A' { " + shift + tree + "} def Xform 'B' { " +
                               scaled + tree + "} def Mesh 'D' { " + leaf + "} " +
                               copy(".timeSamples = { 0: (1, 0, 0), 4: (5, 0, 0) }", "(1, 0, 0, 0)", "(1, 1, 1)", own) +
                               copy(" = (0, 1, 0)", "(0.5, 0.5, 0.5, 0.5)", "(1, 2, 3)", whole) +
                               copy(" = (0, 0, 1)", "(0, 0, 0, 1)", "(2, 2, 2)", own) + "}";
    const UsdSceneResult found = read_usd_scene(brought), expected = read_usd_scene(copies);
    for (const UsdFinding& finding : found.findings.get_entries()) ADD_FAILURE() << to_text(finding, "brought");
    ASSERT_TRUE(found.scene && expected.scene);
    for (const UsdFrame& frame : {UsdFrame{1.0}, UsdFrame{1.0, -0.5, 2.0}}) {
        const SceneSource a = make_scene_source(*found.scene, frame, refined, "layer"),
                          b = make_scene_source(*expected.scene, frame, refined, "layer");
        EXPECT_EQ(a.meshes.size(), 2u);
        std::vector<std::string> names;
        ASSERT_EQ(a.instances.size(), b.instances.size());
        for (std::size_t i = 0; i < a.instances.size(); ++i) {
            names.push_back(a.instances[i].name);
            EXPECT_EQ(a.instances[i].mesh, b.instances[i].mesh) << names.back();
            for (double time = frame.open; time <= frame.close; time += 0.31)
                for (unsigned int n = 0; n < 16; ++n)
                    EXPECT_NEAR(a.instances[i].transform.at(time)[n / 4][n % 4],
                                b.instances[i].transform.at(time)[n / 4][n % 4], 1e-6)
                        << names.back();
        }
        EXPECT_EQ(names, (std::vector<std::string>{"/World/A/Leaf", "/World/A/Top/Leaf", "/World/B/Leaf",
                                                   "/World/B/Top/Leaf", "/World/D", "/World/P[0]", "/World/P[1]/Leaf",
                                                   "/World/P[1]/Top/Leaf", "/World/P[3]"}));
    }
}

// Places go along velocities; what cannot be brought is told of, and nothing is brought for ever.
TEST(ScenePlaces, InstancersHaveVelocitiesAndLimits) {
    const std::string leaf =
        "def Mesh 'Leaf' { point3f[] points = [(0, 0, 0), (1, 0, 0), (1, 1, 0)]; int[] "
        "faceVertexCounts = [3]; int[] faceVertexIndices = [0, 1, 2] } ";
    const auto read = [&](const std::string& body) { return read_usd_scene("#usda 1.0\n" + leaf + body); };
    const auto instancer = [&](const std::string& body) {
        return "def PointInstancer 'P' { rel prototypes = </Leaf>; int[] protoIndices = [0]; point3f[] positions = "
               "[(0, 0, "
               "4)]; " +
               body + " }";
    };
    const UsdSceneResult moving = read(instancer("vector3f[] velocities = [(12, 0, 0)]"));
    const SceneSource source = make_scene_source(*moving.scene, {0.0, 0.0, 4.0, 24.0}, refined, "layer");
    ASSERT_EQ(source.instances.size(), 2u);
    EXPECT_NEAR(source.instances[1].transform.at(4.0)[3][0], 2.0, 1e-12);
    EXPECT_EQ(source.instances[1].transform.at(4.0)[3][2], 4.0);

    const std::pair<std::string, UsdFindingCode> broken[] = {
        {instancer("float3[] scales = [(1, 1, 1), (1, 1, 1)]"), UsdFindingCode::bad_instancer},
        {instancer("point3f[] positions = [(0, inf, 0)]"), UsdFindingCode::bad_instancer},
        {instancer("int[] protoIndices = [-1]"), UsdFindingCode::bad_instancer},
        {instancer("float[] ids = [1]"), UsdFindingCode::bad_instancer},
        {instancer("rel prototypes = </Left>"), UsdFindingCode::bad_instancer},
        {instancer("int[] protoIndices = None"), UsdFindingCode::bad_instancer},
        {"def 'a' (references = </b>) {}", UsdFindingCode::composition_arc},
        {"def 'a' { def 'b' (references = </a>) {} }", UsdFindingCode::composition_arc},
        {"def Mesh 'a' (references = </Leaf>) { point3f[] points = [] }", UsdFindingCode::composition_arc},
        {"def 'a' (references = </Leaf>) { int x = 1 }", UsdFindingCode::ignored_override},
        {"def 'a' (references = </Leaf>) { over 'b' {} }", UsdFindingCode::ignored_override},
        {"def 'a' (references = @far.usda@</Leaf>) {}", UsdFindingCode::composition_arc},
    };
    for (const auto& [text, code] : broken) {
        const UsdSceneResult result = read(text);
        ASSERT_TRUE(result.scene) << text;
        const auto& entries = result.findings.get_entries();
        EXPECT_TRUE(std::any_of(entries.begin(), entries.end(), [&](const UsdFinding& f) {
            return f.code == code && f.line > 1;
        })) << text;
        EXPECT_LE(make_scene_source(*result.scene, {}, refined, "layer").instances.size(), 2u) << text;
    }

    // a ring, and ten times ten times and so on
    std::string chain = "def 'a' { def 'x' (references = </b>) {} }\ndef 'b' { def 'x' (references = </a>) {} }\n";
    for (int level = 0; level < 9; ++level) {
        chain += "class 'c" + std::to_string(level) + "' {";
        for (int i = 0; i < 10; ++i)
            chain += " def 'p" + std::to_string(i) + "' (references = </c" + std::to_string(level + 1) + ">) {}";
        chain += " }\n";
    }
    chain += "class 'c9' {}\n";
    const SceneSource ring = make_scene_source(*read(chain).scene, {}, refined, "layer");
    EXPECT_EQ(ring.instances.size(), 1u);
    EXPECT_FALSE(ring.findings[0].has_errors());
    const SceneSource burst =
        make_scene_source(*read(chain + "def 'go' (references = </c0>) {}").scene, {}, refined, "l");
    EXPECT_TRUE(burst.findings[0].has_errors());
}

}  // namespace
}  // namespace sds_usda
