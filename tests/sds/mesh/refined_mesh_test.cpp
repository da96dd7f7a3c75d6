// A refined surface seen by patch: places on the quads, and what belongs to those.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "../surface_checks.h"
#include "oracles/refined_surface.h"
#include "qn_ctx/ctx_eval.h"

namespace {

using namespace sds_test;

const CtxShader shader;

struct RefinedPair {
    BuiltSurface plain, refined;

    RefinedPair(const ZooMesh& cage, unsigned int depth, unsigned int level = 0)
        : plain(cage), refined(cage, options(depth, level)) {}
    static BuiltSurface::Options options(unsigned int depth, unsigned int level) {
        BuiltSurface::Options options;
        options.level = level;
        options.refinement.depth = depth;
        return options;
    }
};

std::vector<ZooMesh> some_cages() {
    std::vector<ZooMesh> cages{make_cut_torus()};
    for (const char* name : {"cube", "prism7_uvs", "cube_uv_islands", "prism5_crease_loop", "quad_fan5"})
        cages.push_back(zoo_mesh(name));
    return cages;
}

constexpr double inside[] = {0.0625, 0.40625, 0.8125};

// To the quads and back, turned patches too, and everything that belongs to quads as it is there.
TEST(RefinedMesh, PlacesAndWhatBelongsToThem) {
    bool has_turned = false;
    for (const ZooMesh& cage : some_cages())
        for (const unsigned int depth : {1u, 3u}) {
            SCOPED_TRACE(cage.name);
            const RefinedPair surfaces(cage, depth);
            const SdsMesh &plain = surfaces.plain.mesh, &refined = surfaces.refined.mesh;
            const GeometryObject& object = refined;
            EXPECT_GT(refined.get_primitive_count(), plain.get_primitive_count() / 4);
            CoreArray<unsigned int> indices;
            refined.get_primitive_indices(indices);
            ASSERT_EQ(indices.get_count(), 4 * refined.get_primitive_count());
            for (unsigned int p = 0; p < refined.get_primitive_count(); ++p)
                for (const double u : inside)
                    for (const double v : inside) {
                        const GeometryPlace place = object.get_primitive_place(p, u, v);
                        const SdsMesh::PrimitivePlace back = refined.find_primitive(place.face, place.u, place.v);
                        EXPECT_EQ(back.primitive, p);
                        EXPECT_EQ(back.u, u);
                        EXPECT_EQ(back.v, v);
                        EXPECT_EQ(back.turns, place.turns);
                        EXPECT_EQ(back.derivative_scale, place.derivative_scale);
                        has_turned |= place.turns == 3;
                        Vec3d du{1, 2, 3}, dv{-4, 5, 6};
                        place.turn_to_face(du, dv);
                        place.turn_to_primitive(du, dv);
                        EXPECT_EQ(du, Vec3d(1, 2, 3));
                        EXPECT_EQ(dv, Vec3d(-4, 5, 6));
                        // The quad's bilinear place runs along the patch's u as much as the scale says.
                        const GeometryPlace beside = refined.get_primitive_place(p, u + 1.0 / 1024.0, v);
                        EXPECT_EQ(std::hypot(beside.u - place.u, beside.v - place.v) * place.derivative_scale,
                                  1.0 / 1024.0);
                        EXPECT_EQ(refined.get_primitive_polygon_id(p), plain.get_primitive_polygon_id(place.face));
                        EXPECT_EQ(refined.get_primitive_shading_group_index(p), 0u);
                        if (plain.get_uv_map_count() == 0) continue;
                        ASSERT_EQ(refined.is_primitive_uv_mapped(p, 0), plain.is_primitive_uv_mapped(place.face, 0));
                        if (!plain.is_primitive_uv_mapped(place.face, 0)) continue;
                        Vec3d uv, uv_du, uv_dv, expected, expected_du, expected_dv;
                        const CtxEval ctx(shader);
                        refined.compute_fragment_uvw(ctx, {p, u, v}, 0, uv, uv_du, uv_dv);
                        plain.compute_fragment_uvw(ctx, {place.face, place.u, place.v}, 0, expected, expected_du,
                                                   expected_dv);
                        place.turn_to_face(uv_du, uv_dv);
                        EXPECT_EQ(uv, expected);
                        EXPECT_EQ(uv_du, expected_du);
                        EXPECT_EQ(uv_dv, expected_dv);
                        // Along edge 1.
                        refined.compute_edge_uvw(ctx, p, 1, 0, v, uv);
                        refined.compute_fragment_uvw(ctx, {p, 1.0, v}, 0, expected, expected_du, expected_dv);
                        EXPECT_EQ(uv, expected);
                    }
        }
    EXPECT_TRUE(has_turned);
}

// An edge of a patch shows what the quads' edge shows that it is part of, which its middle lies on.
TEST(RefinedMesh, EdgesAreVisibleAndCreasedAsThoseOfTheQuads) {
    for (const ZooMesh& cage : some_cages()) {
        SCOPED_TRACE(cage.name);
        const RefinedPair surfaces(cage, 2);
        const SdsMesh &plain = surfaces.plain.mesh, &refined = surfaces.refined.mesh;
        unsigned int creases = 0;
        for (unsigned int p = 0; p < refined.get_primitive_count(); ++p)
            for (unsigned int k = 0; k < 4; ++k) {
                const double u[] = {0.25, 1.0, 0.25, 0.0}, v[] = {0.0, 0.25, 1.0, 0.25};
                const GeometryPlace at = refined.get_primitive_place(p, u[k], v[k]);
                const unsigned int edge = at.v == 0.0 ? 0 : at.u == 1.0 ? 1 : at.v == 1.0 ? 2 : at.u == 0.0 ? 3 : 4;
                EXPECT_EQ(refined.is_primitive_edge_visible(p, k), plain.is_primitive_edge_visible(at.face, edge));
                EXPECT_EQ(refined.is_primitive_edge_crease(p, k), plain.is_primitive_edge_crease(at.face, edge));
                creases += refined.is_primitive_edge_crease(p, k) ? 1 : 0;
            }
        EXPECT_EQ(creases != 0, cage.is_in(crease)) << "creases";
    }
}

// Cells of one size on the quads: both sides of an edge have the same corners, and samples lie on them.
TEST(RefinedMesh, CellsMeetAcrossLevels) {
    for (const ZooMesh& cage : some_cages())
        for (const unsigned int level : {1u, 4u}) {
            SCOPED_TRACE(cage.name);
            const RefinedPair surfaces(cage, 2, level);
            const SdsMesh& mesh = surfaces.refined.mesh;
            const double cells = std::exp2(std::max(level - (cage.is_all_quads() ? 0u : 1u), 2u));
            for (unsigned int p = 0; p < mesh.get_primitive_count(); ++p) {
                const double side = std::exp2(mesh.get_cell_level(p));
                const GeometryPlace origin = mesh.get_primitive_place(p, 0.0, 0.0);
                EXPECT_EQ(side * origin.derivative_scale, cells);
                GeometrySample sample, corner;
                mesh.compute_fragment_sample(CtxEval(shader), {p, 1.0, 0.5 / side}, sample);
                mesh.get_geometry()->compute_fragment_sample(CtxEval(shader), {p, 1.0, 0.0}, corner);
                GeometrySample next;
                mesh.get_geometry()->compute_fragment_sample(CtxEval(shader), {p, 1.0, 1.0 / side}, next);
                expect_near(sample.get_geometric_position(),
                            (corner.get_geometric_position() + next.get_geometric_position()) * 0.5,
                            1e-6 * surfaces.refined.get_diagonal());
                EXPECT_EQ(mesh.get_cell_corner(p, 0.99), 1.0 - 1.0 / side);
            }
        }
}

// A frustum over half of the surface selects what lies there, and marks the vertices of the quads.
TEST(RefinedMesh, FrustaSelectPatches) {
    const ZooMesh cage = make_cut_torus();
    constexpr int touch = 0, mark = 2;
    CtxThread thread;
    const CtxEval eval(shader, &thread);
    for (const unsigned int level : {0u, 2u}) {
        const RefinedPair surfaces(cage, 2, level);
        const SdsMesh& mesh = surfaces.refined.mesh;
        GeometryFrustum frustum;
        frustum.side_count = 1;
        frustum.sides[0].normal = {1, 0, 0};
        frustum.sides[0].offset = 0.0;
        for (unsigned int p = 0; p < mesh.get_primitive_count(); ++p) {
            GMathBbox3<double> box;
            mesh.compute_primitive_bbox(CtxEval(shader), p, box);
            GeometryFrustumCtx ctx(&touch, &frustum);
            mesh.intersect_primitive(eval, p, ctx);
            if (box.get_min()[0] <= 0.0 && box.get_max()[0] >= 0.0) continue;
            EXPECT_EQ(ctx.selected_count != 0, box.get_min()[0] > 0.0) << p;
        }
        std::vector<unsigned char> marks(surfaces.refined.base.get_vertex_infos().get_count(), 0);
        GeometryFrustumCtx ctx(&mark, &frustum);
        ctx.vertex_marks = marks.data();
        mesh.intersect_primitive(eval, mesh.get_primitive_count() - 1, ctx);
        EXPECT_EQ(std::count(marks.begin(), marks.end(), 1), 4);
    }
}

// Groups keep to the polygons: their boxes and areas are those of their own patches.
TEST(RefinedMesh, GroupsAreThoseOfThePolygons) {
    const ZooMesh cage = make_cut_torus();
    SdsMeshBase base;
    SdsRefinement refinement;
    refinement.depth = 2;
    base.set_refinement(refinement);
    CoreArray<unsigned int> groups(static_cast<unsigned int>(cage.counts.size()), 0u);
    for (unsigned int i = 0; i < groups.get_count(); ++i) groups[i] = i % 3;
    CoreArray<CoreString> names(3);
    base.set(static_cast<unsigned int>(cage.positions.size()), to_core_array(cage.indices), to_core_array(cage.counts),
             groups, names, nullptr);
    SdsMeshGeometry geometry;
    geometry.set(base, to_core_array(cage.positions), {}, SdsMeshGeometry::InterpolationMode::corners_fixed, nullptr);
    SdsMeshMaps maps;
    maps.set(base, to_core_array(cage.counts), {}, {}, SdsMeshMaps::InterpolationMode::corners_fixed, nullptr);
    SdsMesh mesh;
    mesh.set(geometry, maps, 0, nullptr);
    double areas[3] = {};
    GMathBbox3<double> boxes[3] = {GMathBbox3<double>::empty(), GMathBbox3<double>::empty(),
                                   GMathBbox3<double>::empty()};
    const CtxEval ctx(shader);
    const GMathMatrix4x4<double> identity;
    for (unsigned int p = 0; p < mesh.get_primitive_count(); ++p) {
        const unsigned int group = mesh.get_primitive_polygon_id(p) % 3;
        ASSERT_EQ(mesh.get_primitive_shading_group_index(p), group);
        GMathBbox3<double> box;
        mesh.compute_primitive_bbox(ctx, p, box);
        boxes[group].grow(box);
        areas[group] += mesh.estimate_primitive_area(ctx, p, identity);
    }
    for (unsigned int g = 0; g < 3; ++g) {
        EXPECT_EQ(mesh.get_shading_group_bbox(g).get_min(), boxes[g].get_min());
        EXPECT_EQ(mesh.get_shading_group_bbox(g).get_max(), boxes[g].get_max());
        EXPECT_NEAR(mesh.estimate_shading_group_area(ctx, g, identity), areas[g], 1e-4 * areas[g]);
    }
}

}  // namespace
