// Layers against the same meshes given as arrays, to the last bit of their surfaces.
#include "io/usda/scene_source.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>

#include "io/obj/read_obj.h"
#include "io/usda/write_cage.h"
#include "model/sample_grid.h"
#include "model/uv_join.h"

namespace sds_usda {
namespace {

using sds_model::ControlCage;
using sds_model::MeshSource;
using sds_model::Surface;
using sds_model::SurfaceModes;
using Indices = std::vector<std::uint32_t>;

// A quad between a pentagon and a triangle, and a quad beside it:
//
//      5---4---3
//     /    |   | \         //
//    6     |   |  2
//     \    |   | /         //
//      7---0---1---8
//              |   |
//              10--9
const std::vector<float> points{0, 0,  0,    1,    0,  0.2f, 1.5f, 0.5f, 0, 1, 1, 0.1f, 0,    1, 0.3f, -1, 1,
                                0, -2, 0.5f, 0.4f, -1, 0,    0.1f, 2,    0, 0, 2, -1,   0.2f, 1, -1,   0};
const Indices counts{4, 5, 3, 4}, indices{0, 1, 3, 4, 0, 4, 5, 6, 7, 1, 2, 3, 10, 9, 8, 1};

constexpr const char* mesh_begin = R"(#usda 1.0
def Mesh "m"
{
    point3f[] points = [(0, 0, 0), (1, 0, 0.2), (1.5, 0.5, 0), (1, 1, 0.1), (0, 1, 0.3), (-1, 1, 0), (-2, 0.5, 0.4),
        (-1, 0, 0.1), (2, 0, 0), (2, -1, 0.2), (1, -1, 0)]
    int[] faceVertexCounts = [4, 5, 3, 4]
    int[] faceVertexIndices = [0, 1, 3, 4, 0, 4, 5, 6, 7, 1, 2, 3, 10, 9, 8, 1]
)";

MeshSource make_arrays() {
    MeshSource source;
    ControlCage& cage = source.cage;
    cage.positions = points;
    cage.polygon_counts = counts;
    cage.polygon_indices = indices;
    cage.corner_creases.assign(indices.size(), 0);
    cage.polygon_groups.assign(counts.size(), 0);
    cage.group_names = {"default"};
    return source;
}

constexpr UsdMeshOptions refined{sds_model::FractionalSharpness::exact, true};

MeshSource read_one(const std::string& text, const UsdFrame& frame = {}) {
    const UsdSceneResult read = read_usd_scene(text);
    for (const UsdFinding& finding : read.findings.get_entries())
        EXPECT_NE(severity_of(finding.code), UsdSeverity::error) << to_text(finding, "layer");
    if (!read.scene) return make_arrays();
    SceneSource source = make_scene_source(*read.scene, frame, refined, "layer");
    EXPECT_EQ(source.meshes.size(), 1u);
    EXPECT_FALSE(source.findings.front().has_errors());
    return std::move(source.meshes.front());
}

SurfaceModes modes_of(const MeshSource& source) {
    SurfaceModes modes;
    modes.depth = 2;
    return follow_rules(modes, source.cage.rules, false, false);
}

// Bits: NaN, where there is no surface, is NaN's equal.
template <class T>
void expect_same_bits(const std::vector<T>& a, const std::vector<T>& b) {
    ASSERT_EQ(a.size(), b.size());
    for (std::size_t i = 0; i < a.size(); ++i) ASSERT_TRUE(a[i] == b[i] || (a[i] != a[i] && b[i] != b[i])) << i;
}

void expect_same_surfaces(const MeshSource& found, const MeshSource& expected, const SurfaceModes& modes,
                          double time = 0.0) {
    const std::unique_ptr<Surface> a = build_surface(found, modes_of(found), nullptr);
    const std::unique_ptr<Surface> b = build_surface(expected, modes, nullptr);
    expect_same_bits(patch_controls(*a, time), patch_controls(*b, time));
    expect_same_bits(sample_surface(*a, 2, time), sample_surface(*b, 2, time));
    ASSERT_EQ(a->get_maps().get_uv_map_count(), b->get_maps().get_uv_map_count());
    for (unsigned int m = 0; m < a->get_maps().get_uv_map_count(); ++m)
        expect_same_bits(sample_uvs(*a, 2, m), sample_uvs(*b, 2, m));
    EXPECT_EQ(found.cage.group_names, expected.cage.group_names);
    EXPECT_EQ(found.cage.polygon_groups, expected.cage.polygon_groups);
    EXPECT_EQ(found.cage.vertex_colors, expected.cage.vertex_colors);
    EXPECT_EQ(found.cage.color_indices, expected.cage.color_indices);
    ASSERT_EQ(found.properties.size(), expected.properties.size());
    const SdsMesh mesh_a = a->make_mesh(0), mesh_b = b->make_mesh(0);
    const sds_model::MeshProperties of_a(found.properties, found.cage, mesh_a),
        of_b(expected.properties, expected.cage, mesh_b);
    for (std::size_t p = 0; p < found.properties.size(); ++p) {
        EXPECT_EQ(found.properties[p].name, expected.properties[p].name);
        expect_same_bits(sample_property(mesh_a, of_a.get_all()[p], 2, time),
                         sample_property(mesh_b, of_b.get_all()[p], 2, time));
    }
}

std::uint32_t corner_of(std::uint32_t a, std::uint32_t b) {
    for (std::uint32_t f = 0, first = 0; f < counts.size(); first += counts[f++])
        for (std::uint32_t k = 0; k < counts[f]; ++k)
            if (indices[first + k] == a && indices[first + (k + 1) % counts[f]] == b) return first + k;
    return 0xFFFFFFFFu;
}

void set_sharpness(ControlCage& cage, std::uint32_t a, std::uint32_t b, float sharpness) {
    for (const std::uint32_t corner : {corner_of(a, b), corner_of(b, a)}) {
        if (corner == 0xFFFFFFFFu) continue;
        if (sharpness >= 10.0f) {
            cage.corner_creases[corner] = 1;
        } else {
            cage.corner_sharpness.resize(indices.size());
            cage.corner_sharpness[corner] = sharpness;
        }
    }
}

void add_uvs(MeshSource& source, const std::vector<float>& uvw, const Indices& corners) {
    source.further_uvs.push_back({"st", uvw, corners});
    join_uvs(source.cage.view(), source.further_uvs.back());
}

struct AttributeCase {
    const char* name;
    const char* text;
    std::function<void(MeshSource&, SurfaceModes&)> arrays;
};

using PositionMode = SdsMeshGeometry::InterpolationMode;
using UvMode = SdsMeshMaps::InterpolationMode;

constexpr const char* chart_text =
    "texCoord2f[] primvars:st = [(0, 0), (1, 0), (1, 1), (0, 1), (0.3, 0.7)] (interpolation = 'faceVarying')\n"
    "int[] primvars:st:indices = [0, 1, 2, 3, 0, 3, 2, 1, 4, 1, 4, 2, 3, 1, 4, 1]\n";
const std::vector<float> chart_points{0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0.3f, 0.7f, 0};
const Indices chart_corners{0, 1, 2, 3, 0, 3, 2, 1, 4, 1, 4, 2, 3, 1, 4, 1};

const AttributeCase cases[] = {
    {"nothing", "", [](MeshSource&, SurfaceModes&) {}},
    {"normals", "normal3f[] normals = [(0, 0, 1)]", [](MeshSource&, SurfaceModes&) {}},
    {"scheme bilinear", "uniform token subdivisionScheme = 'bilinear'",
     [](MeshSource&, SurfaceModes& modes) {
         modes.positions = PositionMode::all_fixed;
         modes.uvs = UvMode::all_fixed;
     }},
    {"scheme none", "uniform token subdivisionScheme = 'none'",
     [](MeshSource&, SurfaceModes& modes) {
         modes.positions = PositionMode::all_fixed;
         modes.uvs = UvMode::all_fixed;
     }},
    {"boundary none", "uniform token interpolateBoundary = 'none'",
     [](MeshSource&, SurfaceModes& modes) { modes.open_borders = true; }},
    {"boundary edgeOnly", "uniform token interpolateBoundary = 'edgeOnly'",
     [](MeshSource&, SurfaceModes& modes) { modes.positions = PositionMode::all_smoothed; }},
    {"triangles smooth", "uniform token triangleSubdivisionRule = 'smooth'",
     [](MeshSource&, SurfaceModes& modes) { modes.smooth_triangles = true; }},
    {"left-handed", "uniform token orientation = 'leftHanded'",
     [](MeshSource& source, SurfaceModes&) {
         auto first = source.cage.polygon_indices.begin();
         for (const std::uint32_t count : counts) {
             std::reverse(first + 1, first + count);
             first += count;
         }
     }},
    {"holes", "int[] holeIndices = [2]",
     [](MeshSource& source, SurfaceModes&) {
         source.cage.holes = {0, 0, 1, 0};
     }},
    {"creases",
     "int[] creaseIndices = [0, 4, 1, 3, 2]\nint[] creaseLengths = [2, 3]\nfloat[] creaseSharpnesses = [10, 2.5]",
     [](MeshSource& source, SurfaceModes&) {
         set_sharpness(source.cage, 0, 4, 10);
         set_sharpness(source.cage, 1, 3, 2.5f);
         set_sharpness(source.cage, 3, 2, 2.5f);
     }},
    {"creases by edge, one of them lost",
     "int[] creaseIndices = [0, 4, 8, 1, 3]\nint[] creaseLengths = [3, 2]\nfloat[] creaseSharpnesses = [1.5, 3, 10]",
     [](MeshSource& source, SurfaceModes&) {
         set_sharpness(source.cage, 0, 4, 1.5f);
         set_sharpness(source.cage, 1, 3, 10);
     }},
    {"corners", "int[] cornerIndices = [4, 0]\nfloat[] cornerSharpnesses = [inf, 1.25]",
     [](MeshSource& source, SurfaceModes&) {
         source.cage.vertex_sharpness.assign(points.size() / 3, 0.0f);
         source.cage.vertex_sharpness[4] = 10.0f;
         source.cage.vertex_sharpness[0] = 1.25f;
     }},
    {"UVs by corner", chart_text,
     [](MeshSource& source, SurfaceModes&) { add_uvs(source, chart_points, chart_corners); }},
    {"UVs by vertex",
     "texCoord2d[] primvars:st = [(0, 0), (1, 0), (1.5, 0.5), (1, 1), (0, 1), (-1, 1), (-2, 0.5), (-1, 0), (2, 0), "
     "(2, -1), (1, -1)] (interpolation = 'vertex')",
     [](MeshSource& source, SurfaceModes&) {
         std::vector<float> flat = points;
         for (std::size_t i = 2; i < flat.size(); i += 3) flat[i] = 0.0f;
         add_uvs(source, flat, indices);
     }},
    {"UVs by vertex, linear",
     "texCoord2f[] primvars:st = [(0, 0), (1, 0), (1.5, 0.5), (1, 1), (0, 1), (-1, 1), (-2, 0.5), (-1, 0), (2, 0), "
     "(2, -1), (1, -1)] (interpolation = 'varying')",
     [](MeshSource& source, SurfaceModes& modes) {
         std::vector<float> flat = points;
         for (std::size_t i = 2; i < flat.size(); i += 3) flat[i] = 0.0f;
         add_uvs(source, flat, indices);
         modes.uvs = UvMode::all_fixed;
     }},
    {"a color of the mesh", "color3f[] primvars:displayColor = [(0, 0.5, 1)]",
     [](MeshSource& source, SurfaceModes&) {
         source.cage.vertex_colors = {0, 128, 255, 255};
         source.cage.color_indices.assign(indices.size(), 0);
     }},
    {"colors by face",
     "color3f[] primvars:displayColor = [(1, 0, 0), (0, 1, 0)] (interpolation = 'uniform')\n"
     "int[] primvars:displayColor:indices = [0, 1, 1, 0]",
     [](MeshSource& source, SurfaceModes&) {
         source.cage.vertex_colors = {255, 0, 0, 255, 0, 255, 0, 255};
         source.cage.color_indices = {0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0};
     }},
    {"subsets",
     "def GeomSubset 'back' { int[] indices = [1, 3]; uniform token familyName = 'materialBind' }\n"
     "def GeomSubset 'other' { int[] indices = [0, 1, 2, 3]; uniform token familyName = 'other' }",
     [](MeshSource& source, SurfaceModes&) {
         source.cage.polygon_groups = {0, 1, 0, 1};
         source.cage.group_names = {"default", "back"};
     }},
};

TEST(SceneSource, EveryAttributeIsThatOfTheArrays) {
    for (const AttributeCase& each : cases) {
        SCOPED_TRACE(each.name);
        MeshSource expected = make_arrays();
        SurfaceModes modes;
        modes.depth = 2;
        modes.uvs = UvMode::corners_plus1;  // the schema's default
        each.arrays(expected, modes);
        ASSERT_NO_FATAL_FAILURE(
            expect_same_surfaces(read_one(std::string(mesh_begin) + each.text + "\n}\n"), expected, modes));
    }
}

TEST(SceneSource, EveryRuleOfUvsIsAMode) {
    const std::pair<const char*, UvMode> rules[] = {
        {"cornersPlus1", UvMode::corners_plus1}, {"cornersPlus2", UvMode::corners_plus2},
        {"none", UvMode::all_smoothed},          {"cornersOnly", UvMode::corners_fixed},
        {"boundaries", UvMode::borders_fixed},   {"all", UvMode::all_fixed},
    };
    for (const auto& [word, mode] : rules) {
        SCOPED_TRACE(word);
        MeshSource expected = make_arrays();
        SurfaceModes modes;
        modes.depth = 2;
        modes.uvs = mode;
        add_uvs(expected, chart_points, chart_corners);
        ASSERT_NO_FATAL_FAILURE(
            expect_same_surfaces(read_one(std::string(mesh_begin) + chart_text +
                                          "uniform token faceVaryingLinearInterpolation = '" + word + "'\n}\n"),
                                 expected, modes));
    }
}

sds_model::PropertySource make_property(PolyMeshProperty::Type kind, const std::vector<float>& values,
                                        unsigned int extent, const Indices& corners = {}) {
    sds_model::PropertySource source;
    source.name = "x";
    source.kind = kind;
    source.type = ResourceProperty::Type::float32;
    source.extent = extent;
    source.indices = corners;
    source.samples.emplace_back(CoreString("x"));
    source.samples[0].init(source.type, extent, static_cast<unsigned int>(values.size() / extent));
    for (unsigned int i = 0; i < values.size() / extent; ++i)
        source.samples[0].set_item_values(i, &values[std::size_t{i} * extent], extent);
    return source;
}

TEST(SceneSource, PrimvarsOfAllInterpolationsAreProperties) {
    using Kind = PolyMeshProperty::Type;
    std::vector<float> per_vertex, per_corner;
    for (std::size_t i = 0; i < indices.size(); ++i) per_corner.push_back(static_cast<float>(i));
    for (std::size_t i = 0; i < points.size() / 3; ++i) per_vertex.push_back(static_cast<float>(i % 3));
    Indices own(indices.size());
    for (std::uint32_t i = 0; i < own.size(); ++i) own[i] = i;
    const std::string by_vertex =
        "float[] primvars:x = [0, 1, 2]\nint[] primvars:x:indices = [0, 1, 2, 0, 1, 2, 0, 1, "
        "2, 0, 1]\n";
    const std::pair<std::string, sds_model::PropertySource> properties[] = {
        {"float2[] primvars:x = [(1, 2)] (interpolation = 'constant')", make_property(Kind::constant, {1, 2}, 2)},
        {"float[] primvars:x = [1, 2, 3, 4] (interpolation = 'uniform')",
         make_property(Kind::per_polygon, {1, 2, 3, 4}, 1)},
        {"float[] primvars:x = [0, 1, 2] (interpolation = 'vertex')\nint[] primvars:x:indices = [0, 1, 2, 0, 1, 2, 0, "
         "1, 2, 0, 1]",
         make_property(Kind::per_vertex, per_vertex, 1)},
        {"float[] primvars:x = [0, 1, 2] (interpolation = 'varying')\nint[] primvars:x:indices = [0, 1, 2, 0, 1, 2, 0, "
         "1, 2, 0, 1]",
         make_property(Kind::varying, per_vertex, 1)},
        {"float[] primvars:x = [0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15] (interpolation = 'faceVarying')",
         make_property(Kind::per_vertex, per_corner, 1, own)},
    };
    for (const auto& [text, property] : properties) {
        SCOPED_TRACE(text);
        MeshSource expected = make_arrays();
        expected.properties.push_back(property);
        SurfaceModes modes;
        modes.depth = 2;
        ASSERT_NO_FATAL_FAILURE(
            expect_same_surfaces(read_one(std::string(mesh_begin) + text + "\n}\n"), expected, modes));
    }
}

// Between samples reals are blended and whole numbers hold; outside of a span there is one value.
TEST(SceneSource, PrimvarsMove) {
    const std::string text = std::string(mesh_begin) +
                             "float[] primvars:heat.timeSamples = { 10: [0, 1, 2, 3], 14: [4, 1, 2, 11], 20: [0, 0, 0, "
                             "0] } (interpolation = 'uniform')\n"
                             "double3 primvars:flow.timeSamples = { 10: (0, 0, 0), 14: (4, 8, 0) }\n"
                             "int primvars:step.timeSamples = { 10: 1, 12: 2, 14: 3 }\n"
                             "float[] primvars:ragged.timeSamples = { 10: [1, 2], 14: [1, 2, 3] }\n}";
    const UsdSceneResult read = read_usd_scene(text);
    ASSERT_TRUE(read.scene);
    ASSERT_EQ(read.findings.get_entries().size(), 1u);
    EXPECT_EQ(read.findings.get_entries()[0].code, UsdFindingCode::held_primvar);
    EXPECT_EQ(read.findings.get_entries()[0].count, 2u);  // step and ragged
    const MeshSource moving = read_one(text, {12.5, -1.0, 3.0}), still = read_one(text, {12.5});
    ASSERT_EQ(moving.properties.size(), 4u);
    EXPECT_EQ(moving.properties[0].times, (std::vector<double>{-1.0, 1.5, 3.0}));
    const auto value = [](const sds_model::PropertySource& source, std::size_t sample, unsigned int item) {
        return *source.samples[sample].get_item_values<float>(item);
    };
    EXPECT_FLOAT_EQ(value(moving.properties[0], 0, 3), 6.0f);
    EXPECT_FLOAT_EQ(value(moving.properties[0], 1, 3), 11.0f);
    EXPECT_FLOAT_EQ(value(moving.properties[0], 2, 3), 8.25f);
    EXPECT_EQ(moving.properties[1].samples[1].get_item_values<double>(0)[1], 8.0);
    for (const MeshSource* source : {&moving, &still}) {
        EXPECT_TRUE(source->properties[2].times.empty());
        EXPECT_EQ(*source->properties[2].samples[0].get_item_values<std::int32_t>(0), 2);
        EXPECT_EQ(source->properties[3].extent, 2u);
    }
    EXPECT_TRUE(still.properties[0].times.empty());
    EXPECT_FLOAT_EQ(value(still.properties[0], 0, 3), 8.0f);
}

// Samples, velocities and accelerations against the points at each time.
TEST(SceneSource, PointsMove) {
    const std::string faces = "; int[] faceVertexCounts = [4]; int[] faceVertexIndices = [0, 1, 2, 3]";
    const std::string square = "[(0, 0, 0), (1, 0, 0), (1, 1, 0), (0, 1, 0)]",
                      lifted = "[(0, 0, 4), (1, 0, 8), (1, 1, 0), (0, 1, 0)]";
    const std::string text[] = {
        "#usda 1.0\ndef Mesh 'm' { point3f[] points.timeSamples = { 10: " + square + ", 14: " + lifted + " } " + faces +
            " }",
        "#usda 1.0\n(timeCodesPerSecond = 4)\ndef Mesh 'm' { point3f[] points.timeSamples = { 10: " + square +
            " }; vector3f[] velocities = " + lifted + " " + faces + " }",
        "#usda 1.0\n(timeCodesPerSecond = 1)\ndef Mesh 'm' { point3f[] points.timeSamples = { 10: " + square +
            " }; vector3f[] velocities = [(0, 0, 0), (0, 0, 0), (0, 0, 0), (0, 0, 0)]; vector3f[] accelerations = " +
            lifted + " " + faces + " }"};
    const auto rise = [](std::size_t which, double code) {
        const double since = code - 10;
        return which == 0 ? std::clamp(since / 4, 0.0, 1.0) : which == 1 ? since / 4 : 0.5 * since * since;
    };
    for (std::size_t which = 0; which < 3; ++which) {
        UsdFrame frame{11.0, -1.0, 2.0};
        frame.codes_per_second = read_usd_scene(text[which]).scene->time_codes_per_second;
        const MeshSource source = read_one(text[which], frame);
        const double x_rate = which == 1 ? 1.0 : 0.0;  // velocities move points along x and y too
        EXPECT_FLOAT_EQ(source.cage.positions[2], static_cast<float>(4 * rise(which, 11.0)));
        EXPECT_FLOAT_EQ(source.cage.positions[3],
                        static_cast<float>(1 + x_rate * rise(which, 11.0) + (which == 2 ? 0.5 : 0.0)));
        ASSERT_GE(source.motion.times.size(), 3u);
        EXPECT_EQ(source.motion.times.front(), -1.0);
        EXPECT_EQ(source.motion.times.back(), 2.0);
        for (std::size_t s = 0; s < source.motion.times.size(); ++s)
            EXPECT_FLOAT_EQ(source.motion.samples[s][5],
                            static_cast<float>(8 * rise(which, 11.0 + source.motion.times[s])))
                << which << " " << s;
        EXPECT_TRUE(read_one(text[which], {11.0}).motion.times.empty());
    }
}

TEST(SceneSource, EqualMeshesAreOneWithTransformsThatAreFollowed) {
    const std::string mesh =
        " { float xformOp:rotateZ.timeSamples = { 0: 0, 10: 180 }; double3 xformOp:translate = (5, 0, 0); uniform "
        "token[] xformOpOrder = ['xformOp:translate', 'xformOp:rotateZ']; point3f[] points = [(0, 0, 0), (1, 0, 0), "
        "(1, 1, 0), (0, 1, 0)]; int[] faceVertexCounts = [4]; int[] faceVertexIndices = [0, 1, 2, 3]; ";
    const UsdSceneResult read = read_usd_scene(
        "#usda 1.0\ndef Xform 'a' { def Mesh 'm'" + mesh + "} }\ndef Mesh 'n'" + mesh + "}\ndef Mesh 'o'" + mesh +
        "int[] holeIndices = []; uniform token orientation = 'leftHanded' }\ndef Mesh 'proxy'" + mesh +
        "uniform token purpose = 'proxy' }\ndef Mesh 'gone'" + mesh + "token visibility = 'invisible' }");
    ASSERT_TRUE(read.scene);
    const SceneSource source = make_scene_source(*read.scene, {2.0, 0.0, 5.0}, refined, "layer");
    ASSERT_EQ(source.meshes.size(), 2u);
    ASSERT_EQ(source.instances.size(), 3u);
    EXPECT_EQ(source.instances[0].name, "/a/m");
    EXPECT_EQ(source.instances[1].name, "/n");
    EXPECT_EQ(source.instances[1].mesh, 0u);
    EXPECT_EQ(source.instances[2].mesh, 1u);
    for (double time = 0.0; time <= 5.0; time += 0.17) {
        const Matrix4 real = world_matrix(*read.scene, read.scene->meshes[1].node, 2.0 + time);
        const sds_render::Matrix4 found = source.instances[1].transform.at(time);
        for (unsigned int i = 0; i < 15; ++i) EXPECT_NEAR(found[i / 4][i % 4], real[i], 2e-5) << time;
    }
}

// An OBJ cage with its tags, through the text of a layer.
TEST(SceneSource, CagesOfFilesComeBackBitByBit) {
    unsigned int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(QN_SOURCE_DIR "/assets")) {
        if (entry.path().extension() != ".obj") continue;
        SCOPED_TRACE(entry.path().string());
        sds_io::ReadObjResult read = sds_io::read_obj(entry.path().string(), {refined.fractional, true});
        ASSERT_TRUE(read.cage);
        ControlCage& cage = *read.cage;
        // what the files have none of
        cage.vertex_sharpness.assign(cage.get_vertex_count(), 0.0f);
        cage.vertex_sharpness[1] = 2.25f;
        cage.holes.assign(cage.get_polygon_count(), 0);
        cage.holes[0] = 1;
        cage.corner_sharpness.clear();
        join_uvs(cage);
        SurfaceModes modes;
        modes.depth = 2;
        modes.smooth_triangles = count % 2 == 1;
        std::string text;
        const UsdaCage written("cage", cage, {}, modes);
        write_usda({&written.get_mesh(), 1}, {}, [&](std::string_view bytes) { text += bytes; });

        MeshSource expected;
        expected.cage = cage;
        ASSERT_NO_FATAL_FAILURE(expect_same_surfaces(read_one(text), expected, modes));
        ++count;
    }
    EXPECT_GE(count, 5u);
}

}  // namespace
}  // namespace sds_usda
