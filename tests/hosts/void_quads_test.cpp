// Polygons with corners that have no vertex, through every stage and over both hosts. The reference host leaves the
// edges of such polygons unpaired, the second one pairs those whose ends are there.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "host_calls.h"

namespace {

using Vec3f = GMathVec3<float>;
using Vec3d = GMathVec3<double>;
using Mode = SdsMeshGeometry::InterpolationMode;

constexpr unsigned int none = 0xFFFFFFFF;
constexpr float height = 5.0f;

// n x n unit quads at one height, whose middle one lacks the corners in the bit mask `lost`. With `cut` the first quad
// is two triangles, so that the build takes its subdivision step.
struct Sheet {
    CoreArray<Vec3f> positions;
    CoreArray<unsigned int> counts, indices;

    Sheet(unsigned int n, unsigned int lost, bool cut) {
        for (unsigned int j = 0; j <= n; ++j)
            for (unsigned int i = 0; i <= n; ++i) positions.add({static_cast<float>(i), static_cast<float>(j), height});
        for (unsigned int q = 0; q < n * n; ++q) {
            const unsigned int v = q / n * (n + 1) + q % n;
            const unsigned int quad[4] = {v, v + 1, v + n + 2, v + n + 1};
            if (q == 0 && cut) {
                for (const unsigned int k : {0u, 1u, 2u, 0u, 2u, 3u}) indices.add(quad[k]);
                counts.add(3);
                counts.add(3);
                continue;
            }
            counts.add(4);
            const bool is_middle = q == n * n / 2;
            for (unsigned int k = 0; k < 4; ++k) indices.add(is_middle && (lost >> k & 1u) != 0 ? none : quad[k]);
        }
    }
};

struct Surface {
    SdsMeshBase base;
    SdsMeshGeometry geometry;
    SdsMeshMaps maps;
    SdsMesh mesh;

    // The map's indices may lack corners that the mesh has.
    Surface(const Sheet& sheet, const Sheet& uvs, unsigned int mode, bool moves) {
        base.set(sheet.positions.get_count(), sheet.indices, sheet.counts,
                 CoreArray<unsigned int>(sheet.counts.get_count(), 0), CoreArray<CoreString>(1, "sheet"), nullptr);
        const CoreArray<Vec3f> still, motion(sheet.positions.get_count(), Vec3f(0.0f, 0.0f, 1.0f));
        geometry.set(base, sheet.positions, moves ? motion : still, Mode(mode % 4), nullptr);
        const GeometryUvMap map{"uv", uvs.positions, uvs.indices};
        const GeometryColorMap colors{
            "colour", CoreArray<GMathVec4<unsigned char>>(uvs.positions.get_count(), {51, 102, 153, 255}), uvs.indices};
        maps.set(base, sheet.counts, CoreArray<GeometryUvMap>(1, map), CoreArray<GeometryColorMap>(1, colors),
                 SdsMeshMaps::InterpolationMode(mode), nullptr);
    }
};

bool is_near(const Vec3d& a, const Vec3d& b) { return (a - b).length() < 1e-5; }

class VoidQuads : public testing::Test {
protected:
    const CtxShader shader;
    CtxThread thread;
    const CtxEval ctx{shader, &thread};

    void examine(Surface& surface, const Sheet& sheet, unsigned int level) {
        SdsMesh& mesh = surface.mesh;
        mesh.set(surface.geometry, surface.maps, level, nullptr);
        double area = 0.0;
        for (unsigned int q = 0; q < mesh.get_primitive_count(); ++q) {
            SCOPED_TRACE(q);
            Vec3f controls[16], nets[24];
            const SdsMeshGeometry::LimitPlace places[2] = {{2, 0.5f, 0.5f}, {q, 0.25f, 0.5f}};
            SdsMeshGeometry::LimitPoint points[2];
            surface.geometry.get_bezier_controls_at(q, 0.5, controls);
            surface.geometry.get_bezier_tangents(q, nets);
            surface.geometry.compute_limit_points(places, 2, points);
            GMathBbox3<double> box;
            mesh.compute_primitive_bbox(ctx, q, box);
            GeometrySample sample;
            const GeometryFragment fragment{q, 0.25, 0.5, 0.0, 0.0};
            mesh.compute_fragment_sample(ctx, fragment, sample);
            area += mesh.estimate_primitive_area(ctx, q, GMathMatrix4x4<double>());
            EXPECT_NEAR(points[0].position[2], height, 1e-5);
            if (surface.base.is_primitive_void(q)) {
                EXPECT_TRUE(std::isnan(controls[0][0]) && std::isnan(nets[0][0]) && std::isnan(points[1].position[0]));
                EXPECT_GT(box.get_min()[0], box.get_max()[0]);
                mesh.compute_primitive_bbox_at(ctx, q, 0.5, box);
                EXPECT_GT(box.get_min()[0], box.get_max()[0]);
                EXPECT_EQ(sample.get_geometric_position(), Vec3d(0, 0, 0));
            } else {
                // A flat sheet stays flat, and upright, whatever is missing beside a quad.
                const double moved = height + (surface.geometry.has_motion_vectors() ? 0.5 : 0.0);
                for (const Vec3f& control : controls) EXPECT_NEAR(control[2], moved, 1e-5);
                EXPECT_TRUE(is_near(Vec3d(points[1].normal), Vec3d(0, 0, 1)));
                EXPECT_TRUE(is_near(sample.get_smoothing_normal(), Vec3d(0, 0, 1)));
                EXPECT_LE(box.get_min()[0], box.get_max()[0]);
                EXPECT_GE(box.get_min()[0], -1e-5);
            }
            if (mesh.is_primitive_uv_mapped(q, 0)) {
                Vec3d uvw, du, dv;
                mesh.compute_fragment_uvw(ctx, fragment, 0, uvw, du, dv);
                EXPECT_NEAR(uvw[2], height, 1e-5);
            }
            GMathVec4<float> color;
            mesh.compute_fragment_color(ctx, fragment, 0, color);
            EXPECT_GE(color[3], 0.0f);
        }
        const double whole = mesh.estimate_area(ctx, GMathMatrix4x4<double>());
        EXPECT_NEAR(whole, area, 1e-4 * area);
        for (unsigned int axis = 0; axis < 3; ++axis) {
            EXPECT_TRUE(std::isfinite(mesh.get_bbox().get_min()[axis]));
            EXPECT_LE(mesh.get_bbox().get_min()[axis], mesh.get_bbox().get_max()[axis]);
        }
        // Through the middle, and through the last quad of the first row.
        const double middle = 0.5 * (std::sqrt(static_cast<double>(sheet.positions.get_count())) - 1.0);
        const bool has_hole = std::find(sheet.indices.begin(), sheet.indices.end(), none) != sheet.indices.end();
        const Vec3d down(0, 0, -1);
        EXPECT_EQ(trace(mesh, ctx, Vec3d(middle + 0.1, middle - 0.2, 9), down).find("hit -1") == 0, has_hole);
        EXPECT_NE(trace(mesh, ctx, Vec3d(2 * middle - 0.4, 0.6, 9), down).find("4.000"), std::string::npos);
        unsigned int present = 0;
        for (unsigned int q = 0; q < mesh.get_primitive_count(); ++q)
            present += surface.base.is_primitive_void(q) ? 0 : 1;
        EXPECT_EQ(count_beyond(mesh, ctx, -9.0), present);
    }
};

// Small sheets are built on the calling thread, large ones on many; fans around lost corners are open and closed.
TEST_F(VoidQuads, AreSkippedByEveryStage) {
    for (const unsigned int n : {3u, 13u})
        for (const unsigned int lost : {1u, 2u, 4u, 8u, 5u, 7u, 15u})
            for (const bool cut : {false, true})
                for (unsigned int mode = 0; mode < 7; ++mode) {
                    SCOPED_TRACE(testing::Message()
                                 << n << " x " << n << ", lost " << lost << ", cut " << cut << ", mode " << mode);
                    const Sheet whole(n, 0, cut), holed(n, lost, cut);
                    Surface hole(holed, holed, mode, mode > 3), unmapped(whole, holed, mode, mode > 3);
                    for (const unsigned int level : {0u, 2u}) {
                        examine(hole, holed, level);
                        examine(unmapped, whole, level);
                    }
                }
}

// Four void quads around one lost corner, with half an edge between each two.
TEST_F(VoidQuads, MayMeetAtTheLostCorner) {
    Sheet sheet(3, 0, false);
    for (unsigned int& v : sheet.indices)
        if (v == 5) v = none;
    for (unsigned int mode = 0; mode < 4; ++mode) {
        Surface surface(sheet, sheet, mode, false);
        EXPECT_TRUE(surface.base.is_primitive_void(0) && surface.base.is_primitive_void(4));
        EXPECT_FALSE(surface.base.is_primitive_void(2));
        examine(surface, sheet, 0);
    }
}

TEST_F(VoidQuads, KeepPropertiesAround) {
    for (const bool cut : {false, true}) {
        const Sheet sheet(3, 1, cut);
        Surface surface(sheet, sheet, 1, false);
        surface.mesh.set(surface.geometry, surface.maps, 0, nullptr);
        ResourceProperty values("five");
        values.init(ResourceProperty::Type::float32, 1, sheet.positions.get_count());
        const float five = 5.0f;
        for (unsigned int v = 0; v < values.get_item_count(); ++v) values.set_item_values(v, &five, 1);
        const HostProperty source(sheet.counts, sheet.indices, values);
        SdsMeshProperty property(surface.mesh, source.get());
        ASSERT_TRUE(property.init(0, &values));
        for (unsigned int q = 0; q < surface.mesh.get_primitive_count(); ++q) {
            const double value = evaluate(property, ctx, {q, 0.3, 0.6, 0.0, 0.0})[0];
            if (!surface.base.is_primitive_void(q)) {  // those have none
                EXPECT_EQ(value, 5.0) << q;
            }
        }
    }
}

}  // namespace
