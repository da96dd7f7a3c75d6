#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>

#include "io/usda/scene.h"
#include "support/scratch_folder.h"

namespace sds_usda {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Point = std::array<double, 3>;
using Motion = std::function<Point(Point)>;

constexpr const char* mesh_body =
    "point3f[] points = [(0,0,0),(1,0,0),(0,1,0)]; int[] faceVertexCounts = [3]; int[] faceVertexIndices = [0,1,2]\n";

// Rotations as quaternions act on points: v + 2w(u x v) + 2u x (u x v).
Point rotated(const Point& axis, double degrees, const Point& v) {
    const double half = degrees * std::numbers::pi / 360;
    const double w = std::cos(half), s = std::sin(half);
    const Point u{s * axis[0], s * axis[1], s * axis[2]};
    const auto cross = [](const Point& a, const Point& b) {
        return Point{a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
    };
    const Point uv = cross(u, v), uuv = cross(u, uv);
    return {v[0] + 2 * (w * uv[0] + uuv[0]), v[1] + 2 * (w * uv[1] + uuv[1]), v[2] + 2 * (w * uv[2] + uuv[2])};
}

Point about(char letter, double degrees, const Point& v) {
    Point axis{};
    axis[static_cast<std::size_t>(letter - 'X')] = 1;
    return rotated(axis, degrees, v);
}

Point moved(const Point& by, const Point& v) { return {v[0] + by[0], v[1] + by[1], v[2] + by[2]}; }

Point by_matrix(const Matrix4& m, const Point& p) {
    Point out{};
    for (std::size_t j = 0; j < 3; ++j) out[j] = p[0] * m[j] + p[1] * m[4 + j] + p[2] * m[8 + j] + m[12 + j];
    return out;
}

UsdScene scene_of(const std::string& text, std::size_t finding_count = 0) {
    UsdSceneResult result = read_usd_scene("#usda 1.0\n" + text);
    EXPECT_EQ(result.findings.get_entries().size(), finding_count) << text;
    for (const UsdFinding& finding : result.findings.get_entries())
        if (finding_count == 0) ADD_FAILURE() << to_text(finding, "scene");
    EXPECT_TRUE(result.scene);
    return result.scene.value_or(UsdScene{});
}

UsdScene mesh_with(const std::string& body, std::size_t finding_count = 0) {
    return scene_of("def Mesh \"m\" {\n" + (mesh_body + body) + "\n}\n", finding_count);
}

/// A scene of tests/usda/moving.
UsdScene read_moving(const std::string& name) {
    const std::string text = ScratchFolder::read(QN_SOURCE_DIR "/tests/usda/moving/" + name + ".usda");
    return scene_of(text.substr(text.find('\n') + 1));
}

void expect_motion(const UsdScene& scene, std::uint32_t node, double time, const Motion& motion) {
    const Matrix4 matrix = world_matrix(scene, node, time);
    for (const Point& p : {Point{0, 0, 0}, Point{1, 2, 3}, Point{-4, 0.5, 7}}) {
        const Point wanted = motion(p), found = by_matrix(matrix, p);
        for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(found[i], wanted[i], 1e-12) << i;
    }
}

TEST(UsdTransforms, EveryOpMovesPoints) {
    const auto check = [](const std::string& type, const std::string& op, const std::string& value,
                          const Motion& motion) {
        SCOPED_TRACE(op);
        const std::string body = type + " xformOp:" + op + " = " + value;
        const UsdScene scene = mesh_with(body + "\nuniform token[] xformOpOrder = [\"xformOp:" + op + "\"]");
        expect_motion(scene, scene.meshes.at(0).node, 0, motion);
    };
    check("double3", "translate", "(1, 2, 3)", [](Point p) { return moved({1, 2, 3}, p); });
    check("float3", "translate:pivot", "(1, 2, 3)", [](Point p) { return moved({1, 2, 3}, p); });
    check("double", "translateY", "2", [](Point p) { return moved({0, 2, 0}, p); });
    check("half3", "scale", "(2, 3, -4)", [](Point p) { return Point{2 * p[0], 3 * p[1], -4 * p[2]}; });
    check("float", "scaleZ", "5", [](Point p) { return Point{p[0], p[1], 5 * p[2]}; });
    for (const char letter : {'X', 'Y', 'Z'})
        check("float", std::string("rotate") + letter, "37", [letter](Point p) { return about(letter, 37, p); });
    for (const std::string order : {"XYZ", "XZY", "YXZ", "YZX", "ZXY", "ZYX"})
        check("double3", "rotate" + order, "(10, -25, 70)", [order](Point p) {
            constexpr double degrees[] = {10, -25, 70};
            for (const char letter : order) p = about(letter, degrees[letter - 'X'], p);
            return p;
        });
    // cos and sin of half of 2 atan(1/2), times 2: the length of a quaternion does not matter
    check("quatd", "orient", "(2, 0, 0, 1)",
          [](Point p) { return about('Z', 2 * std::atan(0.5) * 180 / std::numbers::pi, p); });
    check("matrix4d", "transform", "((0, 1, 0, 0), (-1, 0, 0, 0), (0, 0, 1, 0), (5, 6, 7, 1))", [](Point p) {
        return moved({5, 6, 7}, about('Z', 90, p));
    });
}

TEST(UsdTransforms, OpsApplyFromTheLastToTheFirst) {
    const UsdScene scene = read_moving("order");
    const Motion inner = [](Point p) {
        p = moved({-1, -2, -3}, p);
        p = about('X', 30, {2 * p[0], 2 * p[1], 2 * p[2]});
        return moved({101, 2, 3}, p);
    };
    EXPECT_EQ(prim_path(scene, scene.meshes.at(0).node), "/a/b/in");
    expect_motion(scene, scene.meshes[0].node, 0, inner);
    expect_motion(scene, scene.meshes.at(1).node, 0, [](Point p) { return p; });
    EXPECT_THAT(transform_times(scene, scene.meshes[0].node), IsEmpty());
    EXPECT_EQ(world_transform(scene, scene.meshes[0].node).get_sample_count(), 1u);
}

TEST(UsdTransforms, SamplesAreInterpolated) {
    const UsdScene scene = read_moving("samples");
    const std::uint32_t node = scene.meshes.at(0).node;
    EXPECT_THAT(transform_times(scene, node), ElementsAre(10, 14, 18, 20));
    const auto at = [](double x, double about_z, double about_x) {
        return [=](const Point& p) { return moved({x, 0, 0}, about('Z', about_z, about('X', about_x, p))); };
    };
    expect_motion(scene, node, 0, at(0, 0, 0));
    expect_motion(scene, node, 11, at(1, 22.5, 0));
    expect_motion(scene, node, 15, at(5, 90, 90));
    expect_motion(scene, node, 99, at(10, 90, 0));
    const Timed<double> all = world_transform(scene, node);
    ASSERT_EQ(all.get_sample_count(), 4u);
    const Matrix4 third = world_matrix(scene, node, 18);
    EXPECT_TRUE(std::equal(third.begin(), third.end(), all.sample(2).begin()));
}

TEST(UsdTransforms, OpsThatCannotBeFollowedAreNamed) {
    for (const char* body : {
             "uniform token[] xformOpOrder = ['xformOp:translate']",
             "float xformOp:twist = 1; uniform token[] xformOpOrder = ['xformOp:twist']",
             "float3 xformOp:scale = (1, 0, 1); uniform token[] xformOpOrder = ['!invert!xformOp:scale']",
             "float3 xformOp:scale = (1, nan, 1); uniform token[] xformOpOrder = ['xformOp:scale']",
         }) {
        const UsdScene scene = mesh_with(body, body[0] == 'f' && std::string_view(body).find("twist") < 20 ? 2 : 1);
        expect_motion(scene, scene.meshes.at(0).node, 0, [](Point p) { return p; });
    }
}

TEST(UsdTransforms, VisibilityAndPurposeComeFromAbove) {
    const UsdScene scene = read_moving("visibility");
    const std::uint32_t m = scene.meshes.at(0).node, n = scene.meshes.at(1).node;
    for (const auto& [time, visible] : {std::pair{0.0, true}, {4.9, true}, {5.0, false}, {7.9, false}, {8.0, true}}) {
        EXPECT_EQ(is_visible(scene, m, time), visible) << time;
        EXPECT_FALSE(is_visible(scene, n, time));
    }
    EXPECT_EQ(scene.nodes[m].purpose, Purpose::proxy);
    EXPECT_EQ(scene.nodes[n].purpose, Purpose::guide);
}

}  // namespace
}  // namespace sds_usda
