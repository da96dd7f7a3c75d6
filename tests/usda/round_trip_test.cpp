#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <random>

#include "io/usda/scene.h"
#include "io/usda/write_layer.h"

namespace sds_usda {
namespace {

using testing::ElementsAreArray;
using Indices = std::vector<std::uint32_t>;

UsdScene through_text(const std::vector<UsdaMesh>& meshes, const UsdaStage& stage = {}) {
    std::string text;
    write_usda(meshes, stage, [&](std::string_view bytes) { text += bytes; });
    UsdSceneResult result = read_usd_scene(text);
    for (const UsdFinding& finding : result.findings.get_entries()) ADD_FAILURE() << to_text(finding, "written");
    return result.scene.value_or(UsdScene{});
}

std::vector<float> random_floats(std::size_t count, std::uint32_t seed) {
    std::mt19937 random(seed);
    std::vector<float> values;
    while (values.size() < count) {
        const auto value = std::bit_cast<float>(static_cast<std::uint32_t>(random()));
        if (std::isfinite(value)) values.push_back(value);
    }
    return values;
}

void expect_same_bits(std::span<const float> a, std::span<const float> b) {
    ASSERT_EQ(a.size(), b.size());
    for (std::size_t i = 0; i < a.size(); ++i)
        ASSERT_EQ(std::bit_cast<std::uint32_t>(a[i]), std::bit_cast<std::uint32_t>(b[i])) << i;
}

TEST(UsdRoundTrip, KeepsEveryBitOfEverything) {
    const std::vector<float> points = random_floats(30000, 1), uvw = random_floats(300, 2),
                             colours = random_floats(30000, 3);
    Indices counts(2500, 4), indices, uv_indices;
    for (std::uint32_t c = 0; c < 10000; ++c) {
        indices.push_back(c * 7919 % 10000);
        uv_indices.push_back(c % 5 == 0 ? no_element : c % 100);
    }
    const Indices holes{3, 2499}, chains{0, 1, 2, 9, 8}, lengths{3, 2}, corners{4};
    const std::vector<float> sharpnesses{0.1f, INFINITY}, corner_sharpnesses{1e-30f};
    Indices groups(2500);
    for (std::uint32_t f = 0; f < 2500; ++f) groups[f] = f % 3;
    const std::vector<std::string> names{"body", "1st \"door\"\n", "body "};
    UsdaMesh mesh{"\xC3\xA4 b", points, counts, indices};
    mesh.scheme = SubdivisionScheme::bilinear;
    mesh.interpolate_boundary = InterpolateBoundary::edge_only;
    mesh.face_varying_linear = FaceVaryingLinear::boundaries;
    mesh.triangle_rule = TriangleRule::smooth;
    mesh.is_left_handed = true;
    mesh.hole_indices = holes;
    mesh.crease_indices = chains;
    mesh.crease_lengths = lengths;
    mesh.crease_sharpnesses = sharpnesses;
    mesh.corner_indices = corners;
    mesh.corner_sharpnesses = corner_sharpnesses;
    mesh.primvars.push_back({"st", "texCoord2f", Interpolation::face_varying, 2, 3, uvw, uv_indices});
    mesh.primvars.push_back({"displayColor", "color3f", Interpolation::vertex, 3, 3, colours});
    mesh.polygon_groups = groups;
    mesh.group_names = names;

    const UsdScene scene = through_text({mesh, mesh}, {UpAxis::z, 0.3});
    EXPECT_EQ(scene.up_axis, UpAxis::z);
    EXPECT_EQ(scene.meters_per_unit, 0.3);
    ASSERT_EQ(scene.meshes.size(), 2u);
    EXPECT_NE(prim_path(scene, scene.meshes[0].node), prim_path(scene, scene.meshes[1].node));
    const UsdMesh& read = scene.meshes[1];
    expect_same_bits(read.points.values, points);
    EXPECT_EQ(read.counts, counts);
    EXPECT_EQ(read.indices, indices);
    EXPECT_EQ(read.scheme, mesh.scheme);
    EXPECT_EQ(read.interpolate_boundary, mesh.interpolate_boundary);
    EXPECT_EQ(read.face_varying_linear, mesh.face_varying_linear);
    EXPECT_EQ(read.triangle_rule, mesh.triangle_rule);
    EXPECT_TRUE(read.is_left_handed);
    EXPECT_EQ(read.hole_indices, holes);
    EXPECT_EQ(read.crease_indices, chains);
    EXPECT_EQ(read.crease_lengths, lengths);
    EXPECT_EQ(read.crease_sharpnesses, sharpnesses);
    EXPECT_EQ(read.corner_indices, corners);
    expect_same_bits(read.corner_sharpnesses, corner_sharpnesses);

    ASSERT_EQ(read.primvars.size(), 2u);
    const std::vector<float>& st = std::get<Timed<float>>(read.primvars[0].values).values;
    ASSERT_EQ(st.size(), 202u);  // and zeros for the corners without
    for (std::size_t i = 0; i < 100; ++i) expect_same_bits({&st[2 * i], 2}, {&uvw[3 * i], 2});
    for (std::size_t c = 0; c < uv_indices.size(); ++c)
        ASSERT_EQ(read.primvars[0].indices.values[c], uv_indices[c] == no_element ? 100 : uv_indices[c]);
    expect_same_bits(std::get<Timed<float>>(read.primvars[1].values).values, colours);

    ASSERT_EQ(read.subsets.size(), 3u);
    for (std::uint32_t g = 0; g < 3; ++g) {
        EXPECT_EQ(read.subsets[g].name, names[g]);
        for (std::size_t i = 0; i < read.subsets[g].faces.size(); ++i) ASSERT_EQ(read.subsets[g].faces[i], 3 * i + g);
    }
}

}  // namespace
}  // namespace sds_usda
