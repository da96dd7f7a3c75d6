#include "io/usda/scene.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace sds_usda {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using Floats = std::vector<float>;
using Indices = std::vector<std::uint32_t>;

template <class T>
std::string list(const std::vector<T>& values, std::size_t components = 1) {
    std::ostringstream text;
    text << "[";
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (i % components == 0) text << (components > 1 ? "(" : "");
        text << values[i] << (components > 1 && (i + 1) % components == 0 ? ")," : ",");
    }
    text << "]";
    return text.str();
}

// Two quads side by side.
const Floats positions{0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 2, 0, 0.5f, 2, 1, -1e-3f};
const Indices counts{4, 4}, corners{0, 1, 2, 3, 1, 4, 5, 2};

std::string quads(const std::string& body = "", const std::string& points = "") {
    return "#usda 1.0\ndef Mesh \"m\" {\n" +
           (points.empty() ? "point3f[] points = " + list(positions, 3) + "\n" : points) +
           "int[] faceVertexCounts = " + list(counts) + "\nint[] faceVertexIndices = " + list(corners) + "\n" + body +
           "\n}\n";
}

/// The scene of `text` with exactly these findings, in the order of the text.
UsdScene scene_of(const std::string& text, const std::vector<UsdFindingCode>& expected = {}) {
    UsdSceneResult result = read_usd_scene(text);
    std::vector<std::string> codes, found;
    for (const UsdFindingCode code : expected) codes.emplace_back(to_name(code));
    for (const UsdFinding& finding : result.findings.entries()) found.emplace_back(to_name(finding.code));
    EXPECT_THAT(found, ElementsAreArray(codes)) << text;
    EXPECT_TRUE(result.scene) << text;
    return result.scene.value_or(UsdScene{});
}

UsdMesh mesh_of(const std::string& body, const std::vector<UsdFindingCode>& expected = {}) {
    UsdScene scene = scene_of(quads(body), expected);
    return scene.meshes.empty() ? UsdMesh{} : std::move(scene.meshes.front());
}

TEST(UsdMesh, HasEveryArrayOfTheSchema) {
    const UsdMesh mesh = mesh_of(
        "vector3f[] velocities = " + list(positions, 3) + "\nvector3f[] accelerations = " + list(positions, 3) + R"(
        int[] holeIndices = [1]
        int[] creaseIndices = [0, 1, 2, 5, 4]
        int[] creaseLengths = [3, 2]
        float[] creaseSharpnesses = [1.5, 10, -2]  # one per edge; one per chain is as good
        int[] cornerIndices = [0, 5]
        float[] cornerSharpnesses = [2, 10]
        float3[] extent = [(0, 0, 0), (1, 1, 1)]
        uniform bool doubleSided = 1
        normal3f[] normals = [(0, 0, 1)]
        float userProperties:x = 3)",
        {UsdFindingCode::negative_sharpness, UsdFindingCode::ignored_normals, UsdFindingCode::ignored_attribute});
    EXPECT_EQ(mesh.points.values, positions);
    EXPECT_THAT(mesh.points.times, IsEmpty());
    EXPECT_EQ(mesh.velocities.values, positions);
    EXPECT_EQ(mesh.accelerations.values, positions);
    EXPECT_EQ(mesh.counts, counts);
    EXPECT_EQ(mesh.indices, corners);
    EXPECT_THAT(mesh.hole_indices, ElementsAre(1));
    EXPECT_THAT(mesh.crease_indices, ElementsAre(0, 1, 2, 5, 4));
    EXPECT_THAT(mesh.crease_lengths, ElementsAre(3, 2));
    EXPECT_THAT(mesh.crease_sharpnesses, ElementsAre(1.5f, 10, -2));
    EXPECT_THAT(mesh.corner_indices, ElementsAre(0, 5));
    EXPECT_THAT(mesh.corner_sharpnesses, ElementsAre(2, 10));
    EXPECT_TRUE(mesh.is_double_sided);
}

template <class Enum, std::size_t n>
void expect_words(const std::string& name, const std::array<std::string_view, n>& words, Enum UsdMesh::*member,
                  Enum otherwise) {
    EXPECT_EQ(mesh_of("").*member, otherwise) << name;
    for (std::size_t i = 0; i < n; ++i)
        EXPECT_EQ(mesh_of("uniform token " + name + " = \"" + std::string(words[i]) + "\"").*member,
                  static_cast<Enum>(i))
            << words[i];
}

TEST(UsdMesh, KnowsTheWordsOfTheSchema) {
    expect_words("subdivisionScheme", scheme_words, &UsdMesh::scheme, SubdivisionScheme::catmull_clark);
    expect_words("interpolateBoundary", boundary_words, &UsdMesh::interpolate_boundary,
                 InterpolateBoundary::edge_and_corner);
    expect_words("faceVaryingLinearInterpolation", face_varying_words, &UsdMesh::face_varying_linear,
                 FaceVaryingLinear::corners_plus1);
    expect_words("triangleSubdivisionRule", triangle_words, &UsdMesh::triangle_rule, TriangleRule::catmull_clark);
    EXPECT_TRUE(mesh_of("uniform token orientation = 'leftHanded'").is_left_handed);
    EXPECT_FALSE(mesh_of("uniform token orientation = 'rightHanded'").is_left_handed);
    for (const char* name : {"interpolateBoundary", "faceVaryingLinearInterpolation", "orientation", "visibility"})
        mesh_of(std::string("token ") + name + " = \"odd\"", {UsdFindingCode::unknown_token});
}

TEST(UsdMesh, HasItsPointsOverTime) {
    Floats later = positions;
    for (float& value : later) value += 1;
    const std::string points = "point3f[] points = []\npoint3f[] points.timeSamples = {\n8: " + list(later, 3) +
                               ",\n2.5: " + list(positions, 3) + ",\n}\n";
    const UsdScene scene = scene_of(quads("", points));
    const UsdMesh& mesh = scene.meshes.at(0);
    EXPECT_THAT(mesh.points.times, ElementsAre(2.5, 8));
    EXPECT_THAT(mesh.points.sample(0), ElementsAreArray(positions));
    EXPECT_THAT(mesh.points.sample(1), ElementsAreArray(later));
    EXPECT_EQ(mesh_of("int[] holeIndices.timeSamples = { 1: [1], 2: [0, 1] }", {UsdFindingCode::changing_topology})
                  .hole_indices,
              Indices{1});
}

TEST(UsdPrimvars, AllInterpolationsWithAndWithoutIndices) {
    const std::size_t places[] = {1, 2, 6, 6, 8};
    for (std::size_t i = 0; i < interpolation_words.size(); ++i) {
        const std::string word(interpolation_words[i]);
        Floats uvs;
        Indices indices;
        for (std::size_t k = 0; k < places[i]; ++k) {
            uvs.insert(uvs.end(), {static_cast<float>(k) / 16, static_cast<float>(i)});
            indices.push_back(static_cast<std::uint32_t>(k % 2));
        }
        const std::string metadata = " ( interpolation = \"" + word + "\" )\n";
        const UsdMesh mesh = mesh_of("texCoord2f[] primvars:st = " + list(uvs, 2) + metadata +
                                     "color3f[] primvars:displayColor = [(1, 0, 0), (0, 1, 0)]" + metadata +
                                     "int[] primvars:displayColor:indices = " + list(indices) +
                                     "\nstring[] primvars:tag = ['a', \"b\"]" + metadata +
                                     "int[] primvars:tag:indices = " + list(indices));
        ASSERT_EQ(mesh.primvars.size(), 3u) << word;
        EXPECT_EQ(mesh.primvars[0].type_name, "texCoord2f");
        EXPECT_EQ(mesh.primvars[0].interpolation, static_cast<Interpolation>(i));
        EXPECT_EQ(std::get<Timed<float>>(mesh.primvars[0].values).values, uvs);
        EXPECT_EQ(mesh.primvars[1].name, "displayColor");
        EXPECT_EQ(mesh.primvars[1].components, 3u);
        EXPECT_EQ(mesh.primvars[1].indices.values, indices);
        EXPECT_THAT(std::get<Timed<std::string>>(mesh.primvars[2].values).values, ElementsAre("a", "b"));
    }
    const UsdMesh mesh = mesh_of(R"(float[] primvars:w = [1, 2, 3, 4] (interpolation = "uniform"; elementSize = 2)
        double primvars:d.timeSamples = { 1: 5, 2: 6 }
        int primvars:i = 7)");
    ASSERT_EQ(mesh.primvars.size(), 3u);
    EXPECT_EQ(mesh.primvars[0].element_size, 2u);
    EXPECT_EQ(mesh.primvars[1].interpolation, Interpolation::constant);
    EXPECT_THAT(std::get<Timed<double>>(mesh.primvars[1].values).sample(1), ElementsAre(6));
    EXPECT_THAT(std::get<Timed<std::int32_t>>(mesh.primvars[2].values).values, ElementsAre(7));
}

TEST(UsdPrimvars, ThoseThatDoNotFitAreLeftOut) {
    for (const char* body : {
             "float[] primvars:x = [1, 2] (interpolation = 'vertex')",
             "float[] primvars:x = [1, 2] (interpolation = 'sideways')",
             "float[] primvars:x = [1, 2, 3, 4, 5] (interpolation = 'uniform'; elementSize = 2)",
             "float[] primvars:x = [1, 2] (interpolation = 'uniform'; elementSize = 0)",
             "float[] primvars:x = [1, 2] (interpolation = 'uniform')\nint[] primvars:x:indices = [0, 2]",
             "float[] primvars:x = [1, 2] (interpolation = 'uniform')\nint[] primvars:x:indices = [-1, 0]",
             "float[] primvars:x = [1, 2] (interpolation = 'uniform')\nint[] primvars:x:indices = [1]",
             "float[] primvars:x.timeSamples = { 1: [1], 2: [1, 2] } (interpolation = 'uniform')\n"
             "int[] primvars:x:indices = [0, 1]",
         })
        EXPECT_THAT(mesh_of(body, {UsdFindingCode::bad_primvar}).primvars, IsEmpty());
    scene_of(quads() + "def Xform \"x\" { float primvars:a = 1 }", {UsdFindingCode::ignored_primvar});
}

TEST(UsdMesh, HasItsSubsetsOfFaces) {
    const UsdMesh mesh = mesh_of(R"(
        def GeomSubset "left" { uniform token elementType = "face"; uniform token familyName = "f"; int[] indices = [0] }
        def GeomSubset "all" ( displayName = "All of it" ) { int[] indices = [1, 0] }
        def GeomSubset "points" { uniform token elementType = "point"; int[] indices = [0] }
        def GeomSubset "none" { int[] indices = [2] })",
                                 {UsdFindingCode::bad_subset});
    ASSERT_EQ(mesh.subsets.size(), 2u);
    EXPECT_EQ(mesh.subsets[0].name, "left");
    EXPECT_EQ(mesh.subsets[0].family, "f");
    EXPECT_EQ(mesh.subsets[0].faces, Indices{0});
    EXPECT_EQ(mesh.subsets[1].name, "All of it");
    EXPECT_THAT(mesh.subsets[1].faces, ElementsAre(1, 0));
}

TEST(UsdScene, KnowsItsStageAndCameras) {
    std::string text = quads();
    EXPECT_EQ(scene_of(text).meters_per_unit, 0.01);
    EXPECT_EQ(scene_of(text).start_time_code, std::nullopt);
    text.insert(10, R"(( upAxis = "Z"; metersPerUnit = 1; startTimeCode = 1; endTimeCode = 48; framesPerSecond = 25
        defaultPrim = "m" )
        def Camera "far" { float focalLength.timeSamples = { 1: 35, 9: 70 }; float2 clippingRange = (0.1, 100)
            token projection = "orthographic"; float horizontalAperture = 36; double shutter:open = -0.25 }
)");
    const UsdScene scene = scene_of(text);
    EXPECT_EQ(scene.up_axis, UpAxis::z);
    EXPECT_EQ(scene.meters_per_unit, 1.0);
    EXPECT_EQ(scene.time_codes_per_second, 25.0);
    EXPECT_EQ(scene.start_time_code, 1.0);
    EXPECT_EQ(scene.end_time_code, 48.0);
    EXPECT_EQ(scene.default_prim, "m");
    const UsdCamera& camera = scene.cameras.at(0);
    EXPECT_EQ(prim_path(scene, camera.node), "/far");
    EXPECT_TRUE(camera.is_orthographic);
    EXPECT_THAT(camera.focal_length.values, ElementsAre(35, 70));
    EXPECT_THAT(camera.horizontal_aperture.values, ElementsAre(36));
    EXPECT_THAT(camera.vertical_aperture.values, ElementsAre(15.2908));
    EXPECT_THAT(camera.clipping_range.sample(0), ElementsAre(static_cast<double>(0.1f), 100));
    EXPECT_THAT(camera.shutter_open.values, ElementsAre(-0.25));
}

TEST(UsdScene, LeavesOutWithAWordWhatItCannotTake) {
    using enum UsdFindingCode;
    const std::string rest = R"(
class Mesh "template" (inherits = </x>) {}
def Mesh "off" (active = false) {}
over "o" (add references = @a@) {}
def "arcs" ( payload = @p.usda@; prepend inherits = </template>; specializes = None; delete references = @a@ ) {}
def Sphere "s" {}
def Sphere "t" { def Cube "u" { def Scope "v" {} } }
def PointInstancer "i" { def Mesh "prototype" {} }
def Mesh "empty" {}
)";
    const UsdScene scene =
        scene_of(quads() + rest, {undefined_prim, composition_arc, composition_arc, composition_arc, unknown_schema,
                                  unknown_schema, unknown_schema, missing_attribute});
    EXPECT_EQ(scene.meshes.size(), 1u);
    EXPECT_EQ(prim_path(scene, static_cast<std::uint32_t>(scene.nodes.size() - 2)), "/t/u/v");
}

/// Comments wherever blanks may be, and other ends of lines, change nothing.
TEST(UsdScene, DoesNotDependOnBlanks) {
    const std::string plain = quads("float[] primvars:x = [1, 2] (\n interpolation = 'uniform' )\n");
    std::string commented, windows;
    for (const char c : plain) {
        commented += c;
        if ((c == ',' || c == '(' || c == '[' || c == '{' || c == '=') && commented.size() > 10)
            commented += " /* ] , ) */ # ]\n // )\n";
        windows += c == '\n' ? "\r\n" : std::string(1, c);
    }
    for (const std::string& text : {commented, windows, "\xEF\xBB\xBF" + plain}) {
        const UsdScene scene = scene_of(text);
        EXPECT_EQ(scene.meshes.at(0).points.values, positions);
        EXPECT_EQ(scene.meshes[0].indices, corners);
        EXPECT_EQ(scene.meshes[0].primvars.size(), 1u);
    }
}

}  // namespace
}  // namespace sds_usda
