// UV maps through the build: classification at seams, patches, copies, look-up on edges.
#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <set>

#include "../surface_checks.h"
#include "oracles/refined_surface.h"
#include "qn_ctx/ctx_eval.h"
#include "sds/common/cubic_basis.h"
#include "support/recorders.h"

namespace {

using namespace sds_test;
using testing::ElementsAre;
using Mode = SdsMeshMaps::InterpolationMode;

constexpr unsigned int none = 0xFFFFFFFF;
const CtxShader shader;
const CtxEval ctx(shader);

// The cage with its own points as its map.
ZooMesh map_positions(ZooMesh cage) {
    cage.groups |= uvs;
    cage.uv_points = cage.positions;
    cage.uv_indices = cage.indices;
    return cage;
}

// The UV vertices that a mode keeps.
std::set<unsigned int> fixed_by(const ZooMesh& cage, Mode mode) {
    const BuiltSurface surface(cage, {.uv_mode = mode});
    const auto& infos = surface.maps.get_uv_map(0).vertex_infos;
    std::set<unsigned int> fixed;
    for (unsigned int v = 0; v < infos.get_count(); ++v)
        if (infos[v].is_fixed()) fixed.insert(v);
    return fixed;
}

// Two quads side by side, 0 1 2 3 and 1 4 5 2, whose map parts them along the shared edge.
TEST(UvVertexRules, SeamBetweenTwoQuads) {
    ZooMesh cage =
        make_cage({4, 4}, {0, 1, 2, 3, 1, 4, 5, 2}, {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {2, 0, 0}, {2, 1, 0}});
    ZooMesh whole = map_positions(cage);
    cage.groups = uvs;
    for (unsigned int c = 0; c < 8; ++c) {
        cage.uv_points.push_back(cage.positions[cage.indices[c]] + Vec3f(c < 4 ? 0.0f : 10.0f, 0, 0));
        cage.uv_indices.push_back(c);
    }
    const std::set<unsigned int> all{0, 1, 2, 3, 4, 5, 6, 7}, seam{1, 2, 4, 7};
    const std::pair<Mode, std::set<unsigned int>> expected[] = {
        {Mode::all_fixed, all},
        {Mode::corners_fixed, all},  // every UV vertex is a corner of its island
        {Mode::all_smoothed, {}},
        {Mode::borders_fixed, all},
        {Mode::smoothed_seam_corners_fixed, seam},  // the outer ones are corners of the mesh too
        {Mode::smoothed_seams_fixed, seam},
        {Mode::corners_and_seams_fixed, all},
        {Mode::corners_plus1, all},
        {Mode::corners_plus2, all},
        {Mode(9), {}},
    };
    for (const auto& [mode, fixed] : expected)
        EXPECT_EQ(fixed_by(cage, mode), fixed) << static_cast<unsigned int>(mode);
    for (const Mode mode : {Mode::smoothed_seams_fixed, Mode::smoothed_seam_corners_fixed})
        EXPECT_TRUE(fixed_by(whole, mode).empty());
}

// A seam that runs straight through a sheet: its inner vertices lie on it, only its ends are corners.
TEST(UvVertexRules, OnlyTurnsOfASeamAreSeamCorners) {
    ZooMesh cage = map_positions(make_sheet(4));
    // The right half uses copies of the middle column's vertices.
    std::set<unsigned int> on_seam, ends;
    for (unsigned int row = 0; row < 5; ++row) {
        const unsigned int v = 5 * row + 2, copy = 25 + row;
        cage.uv_points.push_back(cage.positions[v]);
        for (unsigned int c = 0; c < cage.indices.size(); ++c) {
            const auto quad = cage.indices.begin() + c / 4 * 4;
            const bool is_right = std::any_of(quad, quad + 4, [](unsigned int w) { return w % 5 > 2; });
            if (is_right && cage.indices[c] == v) cage.uv_indices[c] = copy;
        }
        on_seam.insert({v, copy});
        if (row % 4 == 0) ends.insert({v, copy});
    }
    EXPECT_EQ(fixed_by(cage, Mode::smoothed_seams_fixed), on_seam);
    EXPECT_EQ(fixed_by(cage, Mode::smoothed_seam_corners_fixed), ends);
}

TEST(UvMaps, LookUpAgreesWithEdgesAndDifferences) {
    for (const char* name : {"cube_uv_islands", "prism7_uvs", "sheet_uv_islands"})
        for (const Mode mode : {Mode::all_fixed, Mode::corners_fixed, Mode::all_smoothed}) {
            SCOPED_TRACE(name);
            const BuiltSurface surface(zoo_mesh(name), {.uv_mode = mode});
            const auto at = [&](unsigned int q, double u, double v) {
                Vec3d uvw, du, dv;
                surface.maps.compute_fragment_uvw(ctx, {q, u, v, 0, 0}, 0, uvw, du, dv);
                return uvw;
            };
            for (unsigned int q = 0; q < surface.get_quad_count(); ++q) {
                for (const double t : {0.0, 0.3, 1.0}) {
                    const Vec3d expected[] = {at(q, t, 0), at(q, 1, t), at(q, 1 - t, 1), at(q, 0, 1 - t)};
                    for (unsigned int k = 0; k < 4; ++k) {
                        Vec3d on_edge(0, 0, 0);
                        surface.maps.compute_edge_uvw(ctx, q, k, 0, t, on_edge);
                        expect_near(on_edge, expected[k], 2e-6);
                    }
                }
                Vec3d untouched(7, 7, 7), uvw, du, dv;
                surface.maps.compute_edge_uvw(ctx, q, 4, 0, 0.5, untouched);
                EXPECT_EQ(untouched, Vec3d(7, 7, 7));
                surface.maps.compute_fragment_uvw(ctx, {q, 0.4, 0.7, 0, 0}, 0, uvw, du, dv);
                const double h = 0.01;
                expect_near(du, (at(q, 0.4 + h, 0.7) - at(q, 0.4 - h, 0.7)) * (0.5 / h), 2e-3);
                expect_near(dv, (at(q, 0.4, 0.7 + h) - at(q, 0.4, 0.7 - h)) * (0.5 / h), 2e-3);
            }
        }
}

// The map of the cage's own points is the surface itself, whatever road it takes.
TEST(UvMaps, MapOfThePositionsIsTheSurface) {
    for (const ZooMesh& cage : mesh_zoo()) {
        SCOPED_TRACE(cage.name);
        const BuiltSurface surface(map_positions(cage));
        for (unsigned int q = 0; q < surface.get_quad_count(); ++q) {
            EXPECT_TRUE(surface.maps.is_primitive_uv_mapped(q, 0));
            Vec3f a[16], b[16];
            surface.geometry.get_bezier_controls(q, a);
            surface.maps.get_bezier_controls(0, q, b);
            for (unsigned int i = 0; i < 16; ++i) EXPECT_EQ(a[i], b[i]) << "quad " << q << " control " << i;
        }
    }
}

// A refined map is the surface of its chart, cut out as a mesh: at every depth, and asked by quads or by patches.
TEST(UvMaps, RefinedMapsAreTheSurfacesOfTheirCharts) {
    std::vector<ZooMesh> cages{make_cut_torus()};
    for (const ZooMesh& cage : mesh_zoo()) cages.push_back(cage.is_in(uvs) ? cage : map_positions(cage));
    const std::pair<Mode, SdsMeshGeometry::InterpolationMode> modes[] = {
        {Mode::corners_fixed, SdsMeshGeometry::InterpolationMode::corners_fixed},
        {Mode::all_smoothed, SdsMeshGeometry::InterpolationMode::all_smoothed}};
    for (const ZooMesh& cage : cages)
        for (const auto& [mode, geometry_mode] : modes)
            for (const unsigned int depth : {1u, 3u}) {
                SCOPED_TRACE(cage.name + " at depth " + std::to_string(depth));
                if (std::find(cage.uv_indices.begin(), cage.uv_indices.end(), none) != cage.uv_indices.end()) continue;
                TaggedCage tagged = tag_cage(cage);
                for (size_t c = 0; c < tagged.edge_sharpness.size(); c += 7) tagged.edge_sharpness[c] = 1.7f;
                ZooMesh chart = cage;
                chart.indices = cage.uv_indices;
                chart.positions = cage.uv_points;
                BuiltSurface::Options options;
                options.mode = geometry_mode;
                options.uv_mode = mode;
                options.refinement = refinement_of(tagged, depth);
                options.refinement.refine_maps = true;
                // Both sides of an edge of the mesh say its sharpness, which a chart may have one of.
                CageAdjacency adjacency(cage);
                for (unsigned int c = 0; c < options.refinement.edge_sharpness.get_count(); ++c)
                    for (const unsigned int side : adjacency.sides[c])
                        options.refinement.edge_sharpness[c] =
                            std::max(options.refinement.edge_sharpness[c], tagged.edge_sharpness[side]);
                const BuiltSurface surface(cage, options);
                const BuiltSurface expected(chart, options);
                const SdsMeshMaps copy(surface.maps);
                ASSERT_TRUE(surface.maps.is_uv_map_refined(0));
                double worst = 0.0, worst_derivative = 0.0;
                for (unsigned int p = 0; p < surface.mesh.get_primitive_count(); ++p)
                    for (const double u : {0.0, 0.3125, 1.0})
                        for (const double v : {0.0, 0.5625}) {
                            const GeometryFragment at{p, u, v, 0, 0};
                            const GeometryPlace place = surface.mesh.get_primitive_place(p, u, v);
                            ASSERT_TRUE(surface.mesh.is_primitive_uv_mapped(p, 0));
                            Vec3d uvw, du, dv, same, same_du, same_dv;
                            copy.compute_fragment_uvw(ctx, {place.face, place.u, place.v, 0, 0}, 0, same, same_du,
                                                      same_dv);
                            surface.mesh.compute_fragment_uvw(ctx, at, 0, uvw, du, dv);
                            EXPECT_EQ(uvw, same);
                            place.turn_to_face(du, dv);
                            expect_near(du, same_du, 1e-9 * (1.0 + du.length()));
                            const auto patch = expected.mesh.find_primitive(place.face, place.u, place.v);
                            Vec3f controls[16];
                            expected.geometry.get_bezier_controls(patch.primitive, controls);
                            const auto jet =
                                sds::evaluate_jet(controls, static_cast<float>(patch.u), static_cast<float>(patch.v));
                            Vec3d limit_du(jet.du), limit_dv(jet.dv);
                            GeometryPlace frame;
                            frame.turns = patch.turns;
                            frame.derivative_scale = patch.derivative_scale;
                            frame.turn_to_face(limit_du, limit_dv);
                            worst = std::max(worst, (uvw - Vec3d(jet.value)).length());
                            worst_derivative =
                                std::max({worst_derivative, (du - limit_du).length(), (dv - limit_dv).length()});
                        }
                EXPECT_LE(worst, 1e-6 * expected.get_diagonal());
                EXPECT_LE(worst_derivative, 4e-5 * expected.get_diagonal());
            }
}

TEST(UvMaps, UnmappedQuadsShiftThePatchesAfterThem) {
    for (const bool subdivided : {false, true}) {
        ZooMesh cage = make_sheet(3);
        if (subdivided) {
            cage.counts.push_back(3);
            for (const unsigned int v : {0u, 1u, 4u}) cage.indices.push_back(v + 16);
            for (const float x : {0.0f, 1.0f, 2.0f, 3.0f, 4.0f}) cage.positions.emplace_back(x, x * x, 9.0f);
            cage.corner_creases.assign(cage.indices.size(), 0);
        }
        cage = map_positions(cage);
        cage.uv_indices[4 * 1 + 2] = none;
        cage.uv_indices[4 * 4 + 0] = none;
        const BuiltSurface surface(cage);
        const SdsMeshMaps::SdsUvMap& map = surface.maps.get_uv_map(0);
        unsigned int mapped = 0;
        for (unsigned int q = 0; q < surface.get_quad_count(); ++q) {
            const unsigned int polygon = surface.base.get_primitive_polygon_id(q);
            const bool is_mapped = polygon != 1 && polygon != 4;
            EXPECT_EQ(map.patch_indices[q], mapped);
            EXPECT_EQ(surface.maps.is_primitive_uv_mapped(q, 0), is_mapped) << q;
            if (!is_mapped) continue;
            ++mapped;
            Vec3f c[16];
            surface.maps.get_bezier_controls(0, q, c);
            EXPECT_EQ(c[0], map.corners[map.quad_indices[4 * q]]);
        }
        EXPECT_EQ(map.patches.get_count(), mapped);
        EXPECT_FALSE(surface.maps.is_primitive_uv_mapped(surface.get_quad_count(), 0));
    }
}

}  // namespace
