// Refined geometries: samples, motion, updates, boxes and failures.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "../surface_checks.h"
#include "oracles/moving_surface.h"
#include "oracles/refined_surface.h"
#include "qn_ctx/ctx_eval.h"
#include "sds/refinement/leaf_patches.h"
#include "sds/refinement/level_kernels/level_kernels.h"
#include "sds/refinement/value_rules.h"

namespace {

using namespace sds_test;
using Mode = SdsMeshGeometry::InterpolationMode;
using LoaderPointer = CoreSharedPointer<SdsMeshGeometry::SampleLoader, CoreSharedCounter>;

BuiltSurface::Options refined_to(unsigned int depth) {
    BuiltSurface::Options options;
    options.refinement.depth = depth;
    return options;
}

// Smooth, creased, with n-gons, borders and darts.
std::vector<ZooMesh> some_cages() {
    std::vector<ZooMesh> cages{make_cut_torus()};
    for (const char* name : {"cube", "prism7_uvs", "cube_two_darts", "sheet_dart", "quad_fan5"})
        cages.push_back(zoo_mesh(name));
    return cages;
}

GeometrySample sample_in(const SdsMeshGeometry& geometry, const GeometryFragment& fragment) {
    const CtxShader shader;
    GeometrySample sample;
    geometry.compute_fragment_sample(CtxEval(shader), fragment, sample);
    return sample;
}

std::vector<Vec3f> to_vectors(const Vec3f* first, size_t count) { return {first, first + count}; }

std::vector<Vec3f> nets_of(const SdsMeshGeometry& geometry, unsigned int patch) {
    std::vector<Vec3f> nets(24);
    geometry.get_bezier_tangents(patch, nets.data());
    return nets;
}

// All that positions enter, to the bit.
void expect_same_surface(const SdsMeshGeometry& a, const SdsMeshGeometry& b) {
    ASSERT_EQ(a.get_patch_count(), b.get_patch_count());
    EXPECT_EQ(controls_of(a), controls_of(b));
    for (unsigned int p = 0; p < a.get_patch_count(); ++p) ASSERT_EQ(nets_of(a, p), nets_of(b, p)) << p;
    EXPECT_EQ(a.get_bbox().get_min(), b.get_bbox().get_min());
    EXPECT_EQ(a.get_bbox().get_max(), b.get_bbox().get_max());
    EXPECT_EQ(std::memcmp(&a.get_area_record(), &b.get_area_record(), sizeof(SdsMeshGeometry::AreaRecord)), 0);
}

constexpr double grid[] = {0.0, 0.28125, 0.5, 1.0};

// Positions, derivatives and normals are those of the limit, on edges too; second derivatives those of its patches.
TEST(RefinedGeometry, SamplesOfEmittedPatchesAreTheLimit) {
    std::vector<TaggedCage> cages;
    for (const ZooMesh& mesh : some_cages()) cages.push_back(tag_cage(mesh));
    cages.push_back(tag_cage(zoo_mesh("torus")));
    const std::vector<unsigned int>& quad = cages.back().mesh.indices;
    sharpen(cages.back(), {quad[0], quad[1], quad[2]}, 1.7f);
    for (const TaggedCage& cage : cages) {
        const OpenSubdivOracle oracle(cage, 8);
        for (const unsigned int depth : {1u, 3u}) {
            SCOPED_TRACE(cage.mesh.name + " at depth " + std::to_string(depth));
            BuiltSurface::Options options;
            options.refinement = refinement_of(cage, depth);
            const BuiltSurface surface(cage.mesh, options);
            const RefinedSurface exact(cage, depth);
            ASSERT_TRUE(surface.geometry.is_refined());
            ASSERT_EQ(surface.mesh.get_primitive_count(), exact.get_patch_count());
            EXPECT_EQ(controls_of(surface.geometry),
                      to_vectors(exact.patches.get_controls(), 16 * exact.get_patch_count()));
            double worst = 0.0, worst_derivative = 0.0, worst_angle = 0.0, worst_second = 0.0, worst_point = 0.0;
            for (unsigned int p = 0; p < exact.get_patch_count(); ++p)
                for (const double u : grid)
                    for (const double v : grid) {
                        const GeometrySample sample = sample_in(surface.geometry, {p, u, v});
                        const SdsMeshGeometry::LimitPlace at{p, static_cast<float>(u), static_cast<float>(v)};
                        SdsMeshGeometry::LimitPoint point;
                        surface.geometry.compute_limit_points(&at, 1, &point);
                        worst_point =
                            std::max({worst_point, (Vec3d(point.position) - sample.get_geometric_position()).length(),
                                      (Vec3d(point.du) - sample.get_geometric_dpdu()).length(),
                                      (Vec3d(point.dv) - sample.get_geometric_dpdv()).length()});
                        if (surface.geometry.get_places().get_patch(p).is_leaf()) continue;
                        const GeometryPlace place = surface.mesh.get_primitive_place(p, u, v);
                        const SurfacePoint limit = oracle.evaluate(place.face, place.u, place.v);
                        Vec3d du = sample.get_geometric_dpdu(), dv = sample.get_geometric_dpdv();
                        place.turn_to_face(du, dv);
                        worst = std::max(worst, (sample.get_geometric_position() - limit.position).length());
                        worst_derivative =
                            std::max({worst_derivative, (du - limit.du).length(), (dv - limit.dv).length()});
                        const double angle = angle_between(sample.get_smoothing_normal(), limit.normal_direction());
                        if (std::isfinite(angle)) worst_angle = std::max(worst_angle, angle);
                        // Differences of derivatives, which a bicubic patch has exactly over a short way.
                        if (u == 1.0 || v == 1.0) continue;
                        constexpr double h = 1.0 / 4096.0;
                        const SurfacePoint a = exact.evaluate(p, u, v), b = exact.evaluate(p, u + h, v),
                                           c = exact.evaluate(p, u, v + h);
                        const double scale = h * place.derivative_scale;
                        worst_second =
                            std::max({worst_second, (sample.get_d2pduu() - (b.du - a.du) * (1.0 / scale)).length(),
                                      (sample.get_d2pduv() - (c.du - a.du) * (1.0 / scale)).length(),
                                      (sample.get_d2pdvv() - (c.dv - a.dv) * (1.0 / scale)).length()});
                    }
            EXPECT_LE(worst, 1e-6 * exact.diagonal);
            EXPECT_LE(worst_derivative, 2e-5 * exact.diagonal);
            EXPECT_LE(worst_angle, 0.02);
            EXPECT_LE(worst_second, 1e-3 * exact.diagonal);
            EXPECT_LE(worst_point, 4e-6 * exact.diagonal);
        }
    }
}

// At any time the surface is that of the moved cage, and its velocity what it moves by.
TEST(RefinedGeometry, MovesWithItsCage) {
    for (const ZooMesh& cage : some_cages()) {
        SCOPED_TRACE(cage.name);
        BuiltSurface::Options options = refined_to(2);
        for (const Vec3f& p : cage.positions) options.motion_vectors.push_back({p[1], p[2] * 0.5f, -p[0]});
        const BuiltSurface moving(cage, options);
        constexpr double time = 0.37;
        ZooMesh moved_cage = cage;
        for (size_t i = 0; i < cage.positions.size(); ++i)
            moved_cage.positions[i] += options.motion_vectors[i] * static_cast<float>(time);
        const BuiltSurface there(moved_cage, refined_to(2));
        ASSERT_EQ(moving.geometry.get_patch_count(), there.geometry.get_patch_count());
        const double diagonal = moving.get_diagonal();
        const CtxShader shader;
        const CtxEval ctx(shader);
        GMathBbox3<double> all = GMathBbox3<double>::empty();
        for (unsigned int p = 0; p < there.geometry.get_patch_count(); ++p) {
            GMathBbox3<double> at_time, expected;
            moving.geometry.compute_primitive_bbox_at(ctx, p, time, at_time);
            there.geometry.compute_primitive_bbox(ctx, p, expected);
            expect_near(at_time.get_min(), expected.get_min(), 1e-6 * diagonal);
            expect_near(at_time.get_max(), expected.get_max(), 1e-6 * diagonal);
            all.grow(at_time);
            const GeometrySample a = sample_in(moving.geometry, {p, 0.3, 0.6, time, 0.1});
            const GeometrySample b = sample_in(there.geometry, {p, 0.3, 0.6});
            expect_near(a.get_smoothing_position(), b.get_geometric_position(), 1e-6 * diagonal);
            // The tangents at a dart are turned into a plane, which is not linear in the positions.
            EXPECT_LE(angle_between(a.get_smoothing_normal(), b.get_geometric_normal()), cage.is_in(dart) ? 0.2 : 0.02);
            const GeometrySample rest = sample_in(moving.geometry, {p, 0.3, 0.6});
            expect_near(a.get_geometric_position_dt() * time,
                        b.get_geometric_position() - rest.get_geometric_position(), 2e-6 * diagonal);
        }
        expect_near(Vec3d(moving.geometry.get_bbox_at(ctx, time).get_max()), all.get_max(), 1e-6 * diagonal);
    }
}

struct PoseLoader : SdsMeshGeometry::SampleLoader {
    const ZooMesh& cage;
    std::vector<unsigned int> loads{0, 0, 0};
    explicit PoseLoader(const ZooMesh& c) : cage(c) {}
    void get_positions(const GMathTimeSampling&, const unsigned int& sample, Vec3f* out) override {
        ++loads[sample];
        std::ranges::copy(pose_at(cage, 0.5 * sample), out);
    }
};

// Samples are refined from the cage's positions in them, once each, and when they are asked for.
TEST(RefinedGeometry, TimeSamplesAreSurfacesOfTheirCages) {
    for (const ZooMesh& cage : some_cages()) {
        SCOPED_TRACE(cage.name);
        BuiltSurface surface(cage, refined_to(2));
        auto* loader = new PoseLoader(cage);
        const double times[] = {0.0, 1.0, 2.0};
        surface.geometry.set_positions_sampling(
            GMathTimeSampling(CoreBasicArray<double>(3, const_cast<double*>(times))), LoaderPointer(loader));
        EXPECT_EQ(loader->loads, (std::vector<unsigned int>{0, 0, 0}));
        std::vector<std::unique_ptr<BuiltSurface>> stills;
        for (unsigned int i = 0; i < 3; ++i) {
            ZooMesh posed = cage;
            posed.positions = pose_at(cage, 0.5 * i);
            stills.push_back(std::make_unique<BuiltSurface>(posed, refined_to(2)));
        }
        const size_t before = surface.geometry.get_memory_size();
        const double diagonal = surface.get_diagonal();
        for (unsigned int p = 0; p < surface.geometry.get_patch_count(); ++p) {
            Vec3f sampled[16], expected[16], next[16];
            surface.geometry.get_bezier_controls_sample(p, 1, sampled);
            stills[1]->geometry.get_bezier_controls(p, expected);
            ASSERT_EQ(to_vectors(sampled, 16), to_vectors(expected, 16)) << p;
            surface.geometry.get_bezier_controls_at(p, 1.25, sampled);
            stills[2]->geometry.get_bezier_controls(p, next);
            for (unsigned int i = 0; i < 16; ++i)
                expect_near(sampled[i], expected[i] * 0.75f + next[i] * 0.25f, 1e-6 * diagonal);
            const GeometrySample a = sample_in(surface.geometry, {p, 0.3, 0.6, 1.0, 0.5});
            const GeometrySample b = sample_in(stills[1]->geometry, {p, 0.3, 0.6});
            EXPECT_EQ(a.get_smoothing_position(), b.get_geometric_position());
            EXPECT_LE(angle_between(a.get_smoothing_normal(), b.get_geometric_normal()), 1e-4);
            const GeometrySample c = sample_in(stills[2]->geometry, {p, 0.3, 0.6});
            expect_near(a.get_geometric_position_dt(), c.get_geometric_position() - b.get_geometric_position(),
                        2e-6 * diagonal);
        }
        EXPECT_EQ(loader->loads, (std::vector<unsigned int>{0, 1, 1}));
        EXPECT_GE(surface.geometry.get_memory_size(), before + 2 * 192 * surface.geometry.get_patch_count());

        // Samples of a copy are its own, those of an assigned geometry shared.
        const SdsMeshGeometry copy(surface.geometry);
        Vec3f controls[16], expected[16];
        copy.get_bezier_controls_sample(0, 2, controls);
        stills[2]->geometry.get_bezier_controls(0, expected);
        EXPECT_EQ(to_vectors(controls, 16), to_vectors(expected, 16));
        SdsMeshGeometry assigned;
        assigned = surface.geometry;
        assigned.get_bezier_controls_sample(0, 2, controls);
        EXPECT_EQ(to_vectors(controls, 16), to_vectors(expected, 16));
        assigned.get_bezier_controls_sample(0, 0, controls);
        stills[0]->geometry.get_bezier_controls(0, expected);
        EXPECT_EQ(to_vectors(controls, 16), to_vectors(expected, 16));
    }
}

// New positions, another mode, another base, more motion: what is there before leaves no trace.
TEST(RefinedGeometry, UpdatesEqualFreshBuilds) {
    for (const float error : {0.0f, 1e-3f})
        for (const ZooMesh& cage : some_cages()) {
            SCOPED_TRACE(cage.name);
            BuiltSurface::Options options = refined_to(3);
            options.refinement.error = error;
            BuiltSurface surface(cage, options);
            const auto build = [&](SdsMeshGeometry& geometry, double share, Mode mode, bool moves) {
                const CoreArray<Vec3f> positions = to_core_array(pose_at(cage, share));
                geometry.set(surface.base, positions, moves ? positions : CoreArray<Vec3f>(), mode, nullptr);
            };
            const SdsMeshGeometry copy(surface.geometry);
            const std::vector<Vec3f> former = controls_of(copy);
            for (const auto& [share, mode, moves] :
                 {std::tuple{0.5, Mode::corners_fixed, false}, std::tuple{1.0, Mode::corners_fixed, true},
                  std::tuple{0.2, Mode::borders_fixed, false}, std::tuple{0.2, Mode::all_fixed, false},
                  std::tuple{0.7, Mode::corners_fixed, false}}) {
                build(surface.geometry, share, mode, moves);
                SdsMeshGeometry fresh;
                build(fresh, share, mode, moves);
                EXPECT_EQ(fresh.is_refined(), mode != Mode::all_fixed);
                expect_same_surface(surface.geometry, fresh);
            }
            EXPECT_EQ(controls_of(copy), former);
        }
}

// Holes and borders that are open have no patches; the areas are those of the others.
// Also where patches far from the origin store nets, fractional creases blend leaves, and many quads share a vertex.
TEST(RefinedGeometry, ThreadsGiveTheSameBits) {
    std::vector<TaggedCage> cages{tag_cage(make_torus(24, 16)), tag_cage(make_pole(40)), tag_cage(make_sheet(12))};
    const std::vector<unsigned int> quad(cages[0].mesh.indices.begin(), cages[0].mesh.indices.begin() + 4);
    sharpen(cages[0], {quad[0], quad[1], quad[2]}, 4.3f);
    cages.push_back(cages[0]);
    for (Vec3f& p : cages.back().mesh.positions) p += Vec3f(3000.0f, 0.0f, 0.0f);
    for (const TaggedCage& cage : cages) {
        SCOPED_TRACE(cage.mesh.name);
        sds::RefinedTopology topology;
        build_topology(cage, 3, topology);
        const CoreArray<Vec3f> positions = to_core_array(cage.mesh.positions);
        for (const auto storage : {sds::NetStorage::where_needed, sds::NetStorage::all}) {
            sds::RefinedPatches alone, together;
            alone.build(topology, positions, storage);
            SysThreadArena(4).execute([&] {
                SysThreadTaskManager tasks;
                together.build(topology, positions, storage, nullptr, &tasks);
            });
            const size_t patches = alone.get_patch_count();
            ASSERT_EQ(patches, together.get_patch_count());
            ASSERT_EQ(alone.get_net_count(), together.get_net_count());
            EXPECT_EQ(to_vectors(alone.get_controls(), 16 * patches),
                      to_vectors(together.get_controls(), 16 * patches));
            EXPECT_EQ(to_vectors(alone.get_nets(), 24 * size_t{alone.get_net_count()}),
                      to_vectors(together.get_nets(), 24 * size_t{alone.get_net_count()}));
            for (unsigned int p = 0; p < patches; ++p)
                EXPECT_EQ(alone.get_net_places().find(p), together.get_net_places().find(p));
        }
        // The kernels round what is computed for other values too; inner controls are nobody else's, and nets are not
        // handed on.
        const RefinedSurface exact(cage, 3);
        for (size_t c = 2; c < exact.controls.size(); c += 4)
            ASSERT_EQ(exact.patches.get_controls()[c], Vec3f(exact.controls[c])) << c;
        for (unsigned int p = 0; p < exact.get_patch_count(); ++p) {
            const Vec3f* nets = exact.patches.get_nets() + exact.patches.get_net_places().find(p);
            for (unsigned int i = 0; i < 24; ++i) {
                const Vec3d expected = i < 12 ? (&exact.nets[p].u[0][0])[i] : (&exact.nets[p].v[0][0])[i - 12];
                ASSERT_EQ(nets[i], Vec3f(expected)) << p << " " << i;
            }
        }
    }
}

// On smooth cages whose one level has emitted faces that nothing is handed to.
TEST(RefinedGeometry, InstructionSetsGiveTheSameBits) {
    for (const ZooMesh& mesh : {make_torus(13, 9), make_cut_torus()}) {
        SCOPED_TRACE(mesh.name);
        const RefinedSurface surface(tag_cage(mesh), 0);
        const sds::RefinementLevel& level = surface.topology.get_level(0);
        std::vector<double> points(3 * mesh.positions.size() + 1);
        for (unsigned int i = 0; i + 1 < points.size(); ++i)
            points[i] = static_cast<double>(mesh.positions[i / 3][i % 3]);
        for (const sds::LevelKernels* const* set = sds::get_all_level_kernels(); *set != nullptr; ++set) {
            std::vector<double> limits(4 * mesh.positions.size());
            std::vector<unsigned char> is_known(mesh.positions.size()), is_handed(mesh.positions.size());
            std::vector<Vec3f> controls(16 * size_t{surface.get_patch_count()});
            std::vector<unsigned int> short_faces(surface.get_patch_count());
            sds::LevelFaces faces{};
            faces.states = reinterpret_cast<const unsigned char*>(level.states.get_data());
            faces.patches = level.face_patches.get_data();
            faces.offsets = level.is_quads() ? nullptr : level.offsets.get_data();
            faces.slots = level.corner_slots.get_data();
            faces.edge_bits = level.edges.quad_edge_flags.get_data();
            faces.vertices = level.corner_vertices.get_data();
            faces.opposites = level.edges.opposite_edges.get_data();
            faces.points = points.data();
            faces.limits = limits.data();
            faces.is_known = is_known.data();
            faces.is_handed = is_handed.data();
            faces.controls = controls[0].get_data();
            faces.emitted = static_cast<unsigned char>(sds::FaceState::emitted);
            (*set)->compute_controls(faces, 0, level.candidate_count, short_faces.data());
            for (unsigned int f = 0; f < level.candidate_count; ++f) {
                if (level.states[f] != sds::FaceState::emitted) continue;
                const size_t first = 16 * size_t{level.face_patches[f]};
                EXPECT_EQ(std::memcmp(&controls[first], surface.patches.get_controls() + first, 16 * sizeof(Vec3f)), 0);
            }
        }
    }
}

// On a cage without sharp edges, whose levels have vertices of several valences.
TEST(RefinedGeometry, KernelsOfPointsFollowTheRulesOfAnyValue) {
    using Components = sds::ValueComponents<double, 3>;
    sds::RefinedTopology topology;
    const ZooMesh mesh = make_cut_torus();
    build_topology(tag_cage(mesh), 2, topology);
    sds::LevelValues<Components> values, next;
    for (const Vec3f& p : mesh.positions) values.points.add({{double{p[0]}, double{p[1]}, double{p[2]}}});
    for (unsigned int i = 0; i + 1 < topology.get_level_count(); ++i) {
        const sds::RefinementLevel& level = topology.get_level(i);
        const sds::RefinementLevel& fine = topology.get_level(i + 1);
        const CoreArray<unsigned int>& faces = level.touched_faces;
        sds::sum_neighbors(level, values, faces);
        sds::refine_values(level, fine, false, values, next);
        for (const sds::LevelKernels* const* set = sds::get_all_level_kernels(); *set != nullptr; ++set) {
            sds::LevelValues<Vec3d> points;
            points.reserve(level.face_count, level.vertex_count);
            points.face_points.resize(level.face_count);
            points.sums.resize(level.vertex_count + sds::spare_sums);
            for (const Components& p : values.points) points.points.add({p.c[0], p.c[1], p.c[2]});
            for (const bool has_child_sums : {false, true}) {
                points.has_child_sums = has_child_sums;
                std::vector<double> out(3 * size_t{fine.vertex_count} + 1);
                sds::LevelPoints view = sds::get_level_points(level, points);
                view.fine_points = out.data();
                (*set)->sum_neighbors(view, faces.get_data(), faces.get_count());
                EXPECT_TRUE((*set)->refine_points(view));
                EXPECT_EQ(std::memcmp(out.data(), next.points.get_data(), (out.size() - 1) * sizeof(double)), 0) << i;
            }
        }
        values.points.swap(next.points);
    }

    // Leaves, whatever their limit points, are the same by all sets.
    const sds::RefinementLevel& last = topology.get_level(topology.get_level_count() - 1);
    sds::LeafWeights weights[sds::max_leaf_valence + 1] = {};
    for (unsigned int n = 1; n <= sds::max_leaf_valence; ++n)
        weights[n] = {sds::closed_fan_weights<sds::ExactTrig>(n).edge,
                      sds::closed_fan_weights<sds::ExactTrig>(n).diagonal, sds::turn_cosine<sds::ExactTrig>(n)};
    std::vector<double> limits(4 * size_t{last.vertex_count}, 0.25);
    const std::vector<unsigned char> is_handed(last.vertex_count);
    std::vector<unsigned char> is_known(last.vertex_count, sds::fan_limit);
    values.points.reserve(last.vertex_count + 1);
    sds::LevelFaces faces{};
    faces.is_handed = is_handed.data();
    faces.is_known = is_known.data();
    faces.vertices = last.corner_vertices.get_data();
    faces.opposites = last.edges.opposite_edges.get_data();
    faces.points = &values.points.get_data()->c[0];
    faces.limits = limits.data();
    faces.kinds = last.vertex_kinds.get_data();
    faces.valences = last.valences.get_data();
    faces.leaf_weights = weights;
    unsigned int leaves = 0;
    for (unsigned int f = 0; f < last.candidate_count; ++f) {
        if (last.states[f] != sds::FaceState::leaf) continue;
        ++leaves;
        float first[48 + 72] = {};
        const sds::LevelKernels* const* sets = sds::get_all_level_kernels();
        EXPECT_TRUE((*sets)->compute_leaf(faces, f, first, first + 48));
        for (const sds::LevelKernels* const* set = sets + 1; *set != nullptr; ++set) {
            float out[48 + 72] = {};
            EXPECT_TRUE((*set)->compute_leaf(faces, f, out, out + 48));
            EXPECT_EQ(std::memcmp(out, first, sizeof out), 0) << f;
        }
    }
    EXPECT_GT(leaves, 0u);
}

TEST(RefinedGeometry, HolesHaveNoPatches) {
    for (const char* name : {"cube", "prism7_uvs", "sheet_dart"})
        for (const bool opens : {false, true}) {
            TaggedCage cage = tag_cage(zoo_mesh(name));
            SCOPED_TRACE(cage.mesh.name);
            cage.holes.assign(cage.mesh.counts.size(), 0);
            cage.holes[1] = opens ? 0 : 1;
            if (opens) cage.boundary = OpenSubdivBoundary::none;
            BuiltSurface::Options options;
            options.refinement = refinement_of(cage, 2);
            const BuiltSurface surface(cage.mesh, options), whole(cage.mesh, refined_to(2));
            std::vector<bool> is_hole(surface.get_quad_count(), false);
            const CageAdjacency adjacency(cage.mesh);
            std::vector<bool> on_border(cage.mesh.positions.size(), false);
            for (unsigned int c = 0; c < adjacency.start.size(); ++c)
                if (adjacency.sides[c].size() == 1) on_border[adjacency.start[c]] = on_border[adjacency.end[c]] = true;
            for (unsigned int q = 0; q < surface.get_quad_count(); ++q) {
                const unsigned int polygon = surface.base.get_primitive_polygon_id(q);
                is_hole[q] = cage.holes[polygon] != 0;
                for (unsigned int c = 0; c < adjacency.start.size() && opens; ++c)
                    if (adjacency.polygon[c] == polygon && on_border[adjacency.start[c]]) is_hole[q] = true;
            }
            double area = 0.0;
            const CtxShader shader;
            const CtxEval ctx(shader);
            const auto identity = GMathMatrix4x4<double>();
            for (unsigned int p = 0; p < whole.geometry.get_patch_count(); ++p)
                if (!is_hole[whole.mesh.get_primitive_quad(p)])
                    area += whole.geometry.estimate_primitive_area(ctx, p, identity);
            EXPECT_NEAR(surface.geometry.estimate_area(ctx, identity), area, 1e-3 * area + 1e-12);
            for (unsigned int q = 0; q < surface.get_quad_count(); ++q)
                EXPECT_EQ(surface.mesh.find_primitive(q, 0.25, 0.75).primitive == sds::none, is_hole[q]) << q;
        }
}

// Settings of depth 0 change nothing, nor do any in bilinear mode.
TEST(RefinedGeometry, DepthZeroIsTheSurfaceWithoutRefinement) {
    for (const ZooMesh& cage : some_cages())
        for (const Mode mode : {Mode::corners_fixed, Mode::all_fixed}) {
            BuiltSurface::Options options{.mode = mode, .motion_vectors = cage.positions};
            const BuiltSurface plain(cage, options);
            options.refinement = refinement_of(tag_cage(cage), mode == Mode::all_fixed ? 3 : 0);
            options.refinement.edge_sharpness.assign(static_cast<unsigned int>(cage.indices.size()), 5.0f);
            options.refinement.holes.assign(static_cast<unsigned int>(cage.counts.size()), 1);
            const BuiltSurface set(cage, options);
            EXPECT_FALSE(set.geometry.is_refined());
            EXPECT_EQ(set.geometry.get_memory_size(), plain.geometry.get_memory_size());
            EXPECT_EQ(set.base.get_memory_size() == plain.base.get_memory_size(), mode != Mode::all_fixed);
            expect_same_surface(set.geometry, plain.geometry);
            const GeometryPlace place = set.mesh.get_primitive_place(1, 0.25, 0.5);
            EXPECT_EQ(place.face, 1u);
            EXPECT_EQ(set.mesh.find_primitive(1, 0.25, 0.5).v, 0.5);
        }
}

}  // namespace
