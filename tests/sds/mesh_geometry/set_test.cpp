#include <gtest/gtest.h>

#include <cstring>

#include "../surface_checks.h"
#include "qn_ctx/ctx_eval.h"

namespace {

using namespace sds_test;
using Mode = SdsMeshGeometry::InterpolationMode;

// Everything that positions enter, as bytes.
std::vector<unsigned char> bytes_of(const SdsMeshGeometry& geometry) {
    std::vector<unsigned char> bytes;
    const auto add = [&bytes](const void* data, size_t size) {
        const auto* first = static_cast<const unsigned char*>(data);
        bytes.insert(bytes.end(), first, first + size);
    };
    Vec3f points[24];
    for (unsigned int q = 0; q < geometry.get_base()->get_primitive_count(); ++q) {
        geometry.get_bezier_controls(q, points);
        add(points, 16 * sizeof(Vec3f));
        geometry.get_bezier_tangents(q, points);
        add(points, sizeof(points));
    }
    const GMathBbox3<float> box = geometry.get_bbox();
    add(&box, sizeof(box));
    const double area = geometry.estimate_area(CtxEval(CtxShader()), GMathMatrix4x4<double>());
    add(&area, sizeof(area));
    return bytes;
}

TEST(GeometrySet, NewPositionsAreWhatAFreshGeometryHas) {
    for (const ZooMesh& cage : mesh_zoo()) {
        const BuiltSurface surface(cage);
        std::vector<Vec3f> moved = cage.positions;
        for (size_t i = 0; i < moved.size(); ++i)
            moved[i] = moved[i] * 1.5f + Vec3f(0.1f * static_cast<float>(i % 7), 0, 0.3f);
        const auto set = [&](SdsMeshGeometry& geometry, const SdsMeshBase& base, Mode mode) {
            geometry.set(base, to_core_array(moved), {}, mode, nullptr);
        };
        for (const Mode mode : {Mode::corners_fixed, Mode::borders_fixed, Mode::all_fixed}) {
            SdsMeshGeometry fresh, again, copy;
            set(fresh, surface.base, mode);
            const std::vector<unsigned char> expected = bytes_of(fresh);
            again.set(surface.base, to_core_array(cage.positions), to_core_array(cage.positions), mode, nullptr);
            copy = again;
            set(again, surface.base, mode);
            EXPECT_EQ(bytes_of(again), expected) << cage.name;
            const SdsMeshBase other_base(surface.base);
            set(copy, other_base, mode);
            EXPECT_EQ(bytes_of(copy), expected) << cage.name << ", copies of both";
            set(again, surface.base, Mode::all_smoothed);
            set(again, surface.base, mode);
            EXPECT_EQ(bytes_of(again), expected) << cage.name << ", after another mode";
        }
    }
}

TEST(GeometrySet, ABaseBuiltAnewIsAnotherTopology) {
    ZooMesh cage = zoo_mesh("cube");
    SdsMeshBase base;
    SdsMeshGeometry geometry, fresh;
    set_base(base, cage);
    geometry.set(base, to_core_array(cage.positions), {}, Mode::corners_fixed, nullptr);
    // The same object, now of one quad less.
    cage.counts.pop_back();
    cage.indices.resize(cage.indices.size() - 4);
    set_base(base, cage);
    geometry.set(base, to_core_array(cage.positions), {}, Mode::corners_fixed, nullptr);
    fresh.set(base, to_core_array(cage.positions), {}, Mode::corners_fixed, nullptr);
    EXPECT_EQ(bytes_of(geometry), bytes_of(fresh));
}

TEST(GeometrySet, UnknownModeKeepsTheInfosOfTheBase) {
    const BuiltSurface surface(zoo_mesh("sheet_dart"), {.mode = Mode(4)});
    ASSERT_EQ(surface.geometry.get_vertex_infos().get_count(), surface.base.get_vertex_infos().get_count());
    for (unsigned int v = 0; v < surface.base.get_vertex_infos().get_count(); ++v)
        EXPECT_EQ(surface.geometry.get_vertex_infos()[v].bits, surface.base.get_vertex_infos()[v].bits);
    EXPECT_EQ(surface.geometry.get_bezier_patches().get_count(), surface.get_quad_count());
}

}  // namespace
