// Values refined like positions: properties, and maps as charts under the face-varying rules.
#include <gtest/gtest.h>

#include <numeric>
#include <random>

#include "oracles/built_surface.h"
#include "oracles/refined_surface.h"
#include "qn_ctx/ctx_eval.h"
#include "qn_poly/poly_neighbourhood.h"
#include "sds/common/polygon_offsets.h"
#include "sds/mesh_maps/refined_map.h"
#include "sds/refinement/face_varying_rules.h"
#include "sds/refinement/patch_values.h"

using namespace sds_test;

namespace {

using sds::FaceVaryingRule;

// The arrays that a RefinementCage views: those of a mesh, or of its map.
struct OwnedCage {
    CoreArray<unsigned int> counts, indices, opposites;
    CoreArray<float> edge_sharpness, vertex_sharpness;
    unsigned int vertex_count;

    OwnedCage(const ZooMesh& mesh, const std::vector<unsigned int>& of_indices, size_t of_vertices)
        : counts(to_core_array(mesh.counts)),
          indices(to_core_array(of_indices)),
          vertex_count(static_cast<unsigned int>(of_vertices)) {
        for (const unsigned char crease : mesh.corner_creases) edge_sharpness.add(crease != 0 ? 10.0f : 0.0f);
        const CoreArray<unsigned int> offsets = sds::polygon_offsets(counts);
        CoreArray<unsigned int> polygons, slots;
        CoreArray<unsigned char> smooth;
        compute_polygons_neighbourhood(polygons, slots, smooth, indices, counts, offsets, vertex_count, nullptr);
        opposites = sds::opposite_corners(polygons, slots, offsets);
    }
    sds::RefinementCage view() const {
        return {vertex_count, counts, indices, opposites, edge_sharpness, vertex_sharpness, {}};
    }
};

struct RefinedChart {
    sds::RefinedTopology topology;
    std::vector<Vec3d> controls;

    RefinedChart(const ZooMesh& mesh, FaceVaryingRule rule, unsigned int depth) {
        const OwnedCage base(mesh, mesh.indices, mesh.positions.size());
        OwnedCage chart(mesh, mesh.uv_indices, mesh.uv_points.size());
        chart.vertex_sharpness = sds::chart_vertex_sharpness(base.view(), chart.view(), rule);
        sds::RefinementOptions options;
        options.depth = depth;
        options.border_rule = sds::chart_border_rule(rule);
        topology.build(chart.view(), options, {});
        CoreArray<Vec3d> values;
        for (const Vec3f& uv : mesh.uv_points) values.add(Vec3d(uv));
        controls.resize(16 * size_t{topology.get_places().get_patch_count()});
        sds::compute_patch_values(topology, values, [&](unsigned int patch, const Vec3d* c) {
            std::copy_n(c, 16, controls.begin() + 16 * static_cast<std::ptrdiff_t>(patch));
        });
    }
};

// The mesh with a map cut along random edges: seams end, meet and turn.
ZooMesh cut_map(ZooMesh mesh, unsigned int seed) {
    std::mt19937 random(seed);
    const CageAdjacency adjacency(mesh);
    std::vector<unsigned int> values(mesh.indices.size());
    std::iota(values.begin(), values.end(), 0u);
    const auto find = [&](unsigned int c) {
        while (values[c] != c) c = values[c] = values[values[c]];
        return c;
    };
    for (unsigned int c = 0; c < values.size(); ++c) {
        const unsigned int o = adjacency.opposite(c);
        if (o == CageAdjacency::none || o < c || random() % 4 == 0) continue;
        values[find(c)] = find(adjacency.next[o]);
        values[find(adjacency.next[c])] = find(o);
    }
    std::vector<unsigned int> numbers(values.size(), CageAdjacency::none);
    mesh.uv_points.clear();
    mesh.uv_indices.clear();
    for (unsigned int c = 0; c < values.size(); ++c) {
        unsigned int& number = numbers[find(c)];
        if (number == CageAdjacency::none) {
            number = static_cast<unsigned int>(mesh.uv_points.size());
            const auto draw = [&] { return static_cast<float>(random() % 1024) / 1024.0f; };
            const float u = draw();
            mesh.uv_points.emplace_back(u, draw(), 0.0f);
        }
        mesh.uv_indices.push_back(number);
    }
    mesh.groups = find_groups(mesh);
    return mesh;
}

// Regular patches of charts, which are most of them from level 2 on.
TEST(RefinedValues, ChartsFollowTheFaceVaryingRules) {
    const std::pair<FaceVaryingRule, OpenSubdivOracle::FaceVarying> rules[] = {
        {FaceVaryingRule::all_smooth, OpenSubdivOracle::FaceVarying::linear_none},
        {FaceVaryingRule::corners_only, OpenSubdivOracle::FaceVarying::corners_only},
        {FaceVaryingRule::corners_plus1, OpenSubdivOracle::FaceVarying::corners_plus1},
        {FaceVaryingRule::corners_plus2, OpenSubdivOracle::FaceVarying::corners_plus2},
        {FaceVaryingRule::boundaries, OpenSubdivOracle::FaceVarying::boundaries}};
    std::vector<ZooMesh> meshes;
    for (unsigned int seed = 0; seed < 3; ++seed) {
        meshes.push_back(cut_map(make_torus(6, 5), seed));
        meshes.push_back(cut_map(make_sheet(4), seed));
        meshes.push_back(cut_map(make_pole(7), seed));
        meshes.push_back(cut_map(zoo_mesh("cube_two_darts"), seed));
    }
    for (const auto& [rule, library_rule] : rules) {
        size_t compared = 0;
        for (const ZooMesh& mesh : meshes) {
            SCOPED_TRACE(mesh.name + ", " + OpenSubdivOracle::name_of(library_rule));
            const OpenSubdivOracle oracle(mesh,
                                          rule == FaceVaryingRule::all_smooth
                                              ? OpenSubdivOracle::Boundary::edge_only
                                              : OpenSubdivOracle::Boundary::edge_and_corner,
                                          library_rule);
            for (const unsigned int depth : {1u, 3u}) {
                const RefinedChart chart(mesh, rule, depth);
                const sds::PatchPlaces& places = chart.topology.get_places();
                double worst = 0.0;
                for (unsigned int p = 0; p < places.get_patch_count(); ++p) {
                    if (places.get_patch(p).is_leaf()) continue;
                    ++compared;
                    for (const double s : {0.0, 0.25, 1.0})
                        for (const double t : {0.0, 0.625, 1.0}) {
                            const sds::QuadPoint at = places.find_quad(p, s, t);
                            const Vec3d point =
                                sds::evaluate_patch(chart.controls.data() + 16 * size_t{p}, sds::CubicBasis<double>(s),
                                                    sds::CubicBasis<double>(t));
                            worst =
                                std::max(worst, (point - oracle.evaluate_uv(at.quad, at.u, at.v).position).length());
                        }
                }
                EXPECT_LE(worst, 1e-13) << "depth " << depth;
            }
        }
        EXPECT_GT(compared, 3000u);
    }
}

// Maps of a mesh with semi-sharp creases and sharp vertices, as the module builds them: textures turn where the surface
// does.
TEST(RefinedValues, MapsFollowSharpnessAsTheLibraryDoes) {
    using FaceVarying = OpenSubdivOracle::FaceVarying;
    using UvMode = SdsMeshMaps::InterpolationMode;
    const std::pair<UvMode, FaceVarying> rules[] = {{UvMode::corners_fixed, FaceVarying::corners_only},
                                                    {UvMode::corners_plus1, FaceVarying::corners_plus1},
                                                    {UvMode::corners_plus2, FaceVarying::corners_plus2},
                                                    {UvMode::borders_fixed, FaceVarying::boundaries},
                                                    {UvMode::all_fixed, FaceVarying::linear_all}};
    static const CtxShader shader;
    const CtxEval ctx(shader);
    std::vector<TaggedCage> cages;
    for (const unsigned int seed : {3u, 4u})
        for (const ZooMesh& mesh : {make_torus(6, 5), make_sheet(4), make_cut_torus(), make_pole(7)}) {
            cages.push_back(tag_cage(cut_map(mesh, seed)));
            cages.back().vertex_sharpness.assign(mesh.positions.size(), 0.0f);
            cages.back().vertex_sharpness[7] = seed == 3 ? 10.0f : 1.3f;
            const std::vector<unsigned int>& quad = mesh.indices;
            sharpen(cages.back(), {quad[8], quad[9], quad[10]}, 1.7f);
        }
    for (const TaggedCage& cage : cages)
        for (const auto& [mode, rule] : rules) {
            SCOPED_TRACE(cage.mesh.name + ", " + OpenSubdivOracle::name_of(rule));
            const OpenSubdivOracle oracle(cage, 9, rule);
            BuiltSurface::Options options;
            options.uv_mode = mode;
            options.refinement = refinement_of(cage, 3);
            options.refinement.refine_maps = true;
            const BuiltSurface surface(cage.mesh, options);
            const SdsMeshMaps::RefinedMap* map = surface.maps.get_uv_map(0).refined.get();
            ASSERT_EQ(map == nullptr, mode == UvMode::all_fixed);
            const unsigned int count = map != nullptr ? map->get_patch_count() : surface.get_quad_count();
            double worst = 0.0, worst_derivative = 0.0;
            for (unsigned int p = 0; p < count; ++p) {
                if (map != nullptr && map->get_places().get_patch(p).is_leaf()) continue;
                for (const double s : {0.0625, 0.25, 0.875})
                    for (const double t : {0.125, 0.625}) {
                        sds::QuadPoint at{p, s, t, 0};
                        if (map != nullptr) at = map->get_places().find_quad(p, s, t);
                        const SurfacePoint limit = oracle.evaluate_uv(at.quad, at.u, at.v);
                        Vec3d uvw, du, dv;
                        surface.maps.compute_fragment_uvw(ctx, {at.quad, at.u, at.v, 0, 0}, 0, uvw, du, dv);
                        worst = std::max(worst, (uvw - limit.position).length());
                        worst_derivative =
                            std::max({worst_derivative, (du - limit.du).length(), (dv - limit.dv).length()});
                    }
            }
            EXPECT_LE(worst, 1e-6);
            EXPECT_LE(worst_derivative, 2e-5);
        }
}

// Polygons without a map are cut out: the others are refined as if they were all there is.
TEST(RefinedValues, UnmappedPolygonsAreCutOut) {
    for (ZooMesh mesh : {make_torus(7, 5), make_pole(9)}) {
        mesh = cut_map(mesh, 5);
        ZooMesh cut = mesh;
        cut.counts.clear(), cut.indices.clear(), cut.uv_indices.clear(), cut.corner_creases.clear();
        for (unsigned int p = 0, c = 0; p < mesh.counts.size(); c += mesh.counts[p++]) {
            if (p % 4 == 2) {
                mesh.uv_indices[c + 1] = sds::none;
                continue;
            }
            cut.counts.push_back(mesh.counts[p]);
            for (unsigned int j = c; j < c + mesh.counts[p]; ++j) {
                cut.indices.push_back(mesh.indices[j]);
                cut.uv_indices.push_back(mesh.uv_indices[j]);
                cut.corner_creases.push_back(0);
            }
        }
        for (const FaceVaryingRule rule : {FaceVaryingRule::corners_only, FaceVaryingRule::boundaries}) {
            const RefinedChart chart(mesh, rule, 2), expected(cut, rule, 2);
            ASSERT_EQ(chart.controls.size(), expected.controls.size());
            double worst = 0.0;
            for (size_t i = 0; i < chart.controls.size(); ++i)
                worst = std::max(worst, (chart.controls[i] - expected.controls[i]).length());
            EXPECT_LE(worst, 1e-15);
        }
    }
}

// Cancelled at every step it reports, a build leaves nothing, and goes through the next time.
TEST(RefinedValues, CancelledBuildsAreEmpty) {
    struct Bar : AppProgressBar {
        int calls_left;
        explicit Bar(int calls) : calls_left(calls) {}
        bool is_cancelled() override { return --calls_left < 0; }
    };
    const ZooMesh& mesh = zoo_mesh("cube_two_darts");
    const OwnedCage cage(mesh, mesh.indices, mesh.positions.size());
    const CoreArray<Vec3f> positions = to_core_array(mesh.positions);
    sds::RefinementOptions options;
    options.depth = 3;
    int cancelled = 0;
    for (int calls = 0;; ++calls) {
        sds::RefinedTopology topology;
        sds::RefinedPatches patches;
        Bar bar(calls);
        try {
            topology.build(cage.view(), options, positions, &bar);
            patches.build(topology, positions, sds::NetStorage::all, &bar);
            EXPECT_EQ(patches.get_patch_count(), topology.get_places().get_patch_count());
            topology.drop_levels();
            EXPECT_FALSE(topology.has_levels());
            break;
        } catch (const AppCancelled&) {
            ++cancelled;
            EXPECT_TRUE(topology.get_places().get_patch_count() == 0 || topology.has_levels());
            EXPECT_EQ(patches.get_patch_count() + patches.get_net_count(), 0u);
        }
    }
    EXPECT_GE(cancelled, 8);
}

}  // namespace
