#include <gmock/gmock.h>

#include <cmath>
#include <random>

#include "../build_options.h"
#include "support/recorders.h"

namespace {

using sds_test::BuiltSurface;
using sds_test::to_core_array;
using sds_test::Vec3f;
using sds_test::ZooMesh;
using Mode = SdsMeshGeometry::InterpolationMode;

constexpr Mode all_modes[] = {Mode::all_fixed, Mode::corners_fixed, Mode::all_smoothed, Mode::borders_fixed};

void expect_near(const Vec3f& a, const Vec3f& b, float tolerance) {
    for (unsigned int i = 0; i < 3; ++i) EXPECT_NEAR(a[i], b[i], tolerance) << "axis " << i;
}

TEST(SubdivisionPositions, LoneTriangle) {
    const BuiltSurface surface(sds_test::zoo_mesh("lone_triangle"), sds_test::with_mode(Mode::all_smoothed));
    const CoreArray<Vec3f>& p = surface.geometry.get_vertices();
    const float third = 1.0f / 3.0f;
    EXPECT_EQ(p[6], Vec3f(third, third, 0));
    EXPECT_EQ(p[3], Vec3f(0.5f, 0, 0));
    EXPECT_EQ(p[4], Vec3f(0.5f, 0.5f, 0));
    EXPECT_EQ(p[0], Vec3f(0.125f, 0.125f, 0));  // (2 (0,0) + (.5,0) + (0,.5)) / 4
    EXPECT_EQ(p[1], Vec3f(0.75f, 0.125f, 0));
}

// Affine maps and constants pass through every rule, since the weights of each add up to 1.
TEST(SubdivisionPositions, AffineInvariantOnTheZoo) {
    for (const ZooMesh& cage : sds_test::mesh_zoo())
        for (const Mode mode : all_modes) {
            SCOPED_TRACE(cage.name + " mode " + std::to_string(static_cast<unsigned int>(mode)));
            const auto map = [](const Vec3f& p) {
                return Vec3f(2 * p[0] - p[1] + 3, p[2] + 0.5f * p[0] - 1, p[1] - 0.25f * p[2] + 2);
            };
            ZooMesh moved = cage;
            for (Vec3f& p : moved.positions) p = map(p);
            const BuiltSurface a(cage, sds_test::with_mode(mode)), b(moved, sds_test::with_mode(mode));
            std::vector<bool> used(a.geometry.get_vertices().get_count(), false);
            for (const unsigned int v : a.base.get_quad_indices()) used[v] = true;
            for (unsigned int v = 0; v < used.size(); ++v) {
                if (!used[v]) continue;
                SCOPED_TRACE(v);
                expect_near(b.geometry.get_vertices()[v], map(a.geometry.get_vertices()[v]), 2e-5f);
                if (mode == Mode::all_fixed) continue;
                expect_near(b.geometry.get_bezier_corners()[v], map(a.geometry.get_bezier_corners()[v]), 2e-5f);
            }
        }
}

// A vertex on two sharp edges follows them alone: (6 P + A + B) / 8 with their far ends A and B.
TEST(SubdivisionPositions, CreaseVerticesFollowTheirTwoSharpEdges) {
    unsigned int seen = 0;
    for (const ZooMesh& cage : sds_test::mesh_zoo()) {
        if (cage.is_all_quads() || cage.is_in(sds_test::opposite_winding)) continue;
        SCOPED_TRACE(cage.name);
        const BuiltSurface surface(cage, sds_test::with_mode(Mode::all_smoothed));
        const sds_test::CageAdjacency adjacency(cage);
        std::vector<std::vector<unsigned int>> ends(cage.positions.size());
        for (unsigned int c = 0; c < cage.indices.size(); ++c) {
            if (!adjacency.is_sharp(c) || (adjacency.opposite(c) < c)) continue;
            ends[adjacency.start[c]].push_back(adjacency.end[c]);
            ends[adjacency.end[c]].push_back(adjacency.start[c]);
        }
        for (unsigned int v = 0; v < ends.size(); ++v) {
            if (ends[v].size() != 2) continue;
            ++seen;
            SCOPED_TRACE(v);
            expect_near(surface.geometry.get_vertices()[v],
                        (cage.positions[v] * 6.0f + cage.positions[ends[v][0]] + cage.positions[ends[v][1]]) * 0.125f,
                        1e-6f);
        }
    }
    EXPECT_GT(seen, 5u);
}

TEST(SubdivisionPositions, LinearStepIsBilinear) {
    for (const ZooMesh& cage : sds_test::mesh_zoo()) {
        if (cage.is_all_quads()) continue;
        SCOPED_TRACE(cage.name);
        const BuiltSurface surface(cage, sds_test::with_mode(Mode::all_fixed));
        const CoreArray<Vec3f>& p = surface.geometry.get_vertices();
        const std::vector<unsigned int> offsets = cage.polygon_offsets();
        for (unsigned int i = 0; i < cage.counts.size(); ++i) {
            Vec3f mean(0, 0, 0);
            for (unsigned int c = offsets[i]; c < offsets[i + 1]; ++c) {
                const Vec3f& a = cage.positions[cage.indices[c]];
                const Vec3f& b = cage.positions[cage.indices[c + 1 == offsets[i + 1] ? offsets[i] : c + 1]];
                const unsigned int* quad = surface.base.get_quad_indices(c);
                EXPECT_EQ(p[quad[0]], a);
                EXPECT_EQ(p[quad[1]], (a + b) * 0.5f);
                mean += a;
            }
            expect_near(p[surface.base.get_subdivision()->first_face_point + i],
                        mean * (1.0f / static_cast<float>(cage.counts[i])), 1e-6f);
        }
    }
}

TEST(SubdivisionPositions, SecondArrayFollowsTheSameWeightsToTheBit) {
    for (const ZooMesh& cage : sds_test::mesh_zoo()) {
        if (cage.is_all_quads()) continue;
        SCOPED_TRACE(cage.name);
        const BuiltSurface surface(cage);
        const SdsMeshBase::TopologyContext context = surface.context();
        std::mt19937 random(5);
        std::uniform_real_distribution<float> uniform(-1, 1);
        std::vector<Vec3f> other;
        for (size_t i = 0; i < cage.positions.size(); ++i)
            other.emplace_back(uniform(random), uniform(random), uniform(random));
        const unsigned int count = surface.base.get_subdivision()->vertex_rings.get_count();
        CoreArray<Vec3f> a(count, {0, 0, 0}), b(count, {0, 0, 0}), a2(count, {0, 0, 0}), b2(count, {0, 0, 0});
        for (const bool linear : {false, true}) {
            SdsMeshBase::compute_subdivision_positions(to_core_array(cage.positions), context, a.get_data(), linear,
                                                       nullptr);
            SdsMeshBase::compute_subdivision_positions(to_core_array(other), context, b.get_data(), linear, nullptr);
            SdsMeshBase::compute_subdivision_positions(to_core_array(cage.positions), to_core_array(other), context,
                                                       a2.get_data(), b2.get_data(), linear, nullptr);
            for (unsigned int v = 0; v < count; ++v) {
                EXPECT_EQ(a[v], a2[v]) << v;
                EXPECT_EQ(b[v], b2[v]) << v;
            }
        }
    }
}

TEST(SubdivisionPositions, VoidPolygonsLeaveTheirFacePointsAlone) {
    constexpr unsigned int none = 0xFFFFFFFF;
    const CoreArray<unsigned int> indices = to_core_array(std::vector<unsigned int>{0, 1, 2, none, none, none});
    const CoreArray<unsigned int> counts(2, 3u);
    SdsMeshBase base;
    CoreArray<CoreString> names;
    names.add("body");
    base.set(3, indices, counts, CoreArray<unsigned int>(2, 0u), names, nullptr);
    CoreArray<SdsMeshBase::VertexInfo> infos = base.get_vertex_infos();
    const SdsMeshBase::TopologyContext context{&base.get_quad_indices(), &infos, nullptr, nullptr, &base.get_edges(),
                                               base.get_subdivision()};
    const unsigned int count = base.get_subdivision()->vertex_rings.get_count();
    CoreArray<Vec3f> out(count, {7, 7, 7});
    SdsMeshBase::compute_subdivision_positions(to_core_array(std::vector<Vec3f>{{0, 0, 0}, {3, 0, 0}, {0, 3, 0}}),
                                               context, out.get_data(), false, nullptr);
    EXPECT_EQ(out[count - 2], Vec3f(1, 1, 0));
    EXPECT_EQ(out[count - 1], Vec3f(7, 7, 7));
}

TEST(SubdivisionPositions, ReportsFacesThenEdgesThenVertices) {
    struct Steps : AppProgressBar {
        unsigned int count = 0;
        std::vector<unsigned int> done;
        void set_step_count(const unsigned int& n) override { count = n; }
        void step(const unsigned int& n) override { done.push_back(n); }
    } steps;
    const BuiltSurface surface(sds_test::zoo_mesh("lone_triangle"));
    CoreArray<Vec3f> out(7, {0, 0, 0});
    SdsMeshBase::compute_subdivision_positions(to_core_array(sds_test::zoo_mesh("lone_triangle").positions),
                                               surface.context(), out.get_data(), false, &steps);
    EXPECT_EQ(steps.count, 7u);
    EXPECT_THAT(steps.done, testing::ElementsAre(7, 4, 5, 6, 1, 2, 3));
}

TEST(LimitCorners, LoneQuadCornerIsACubicBSplineEnd) {
    const BuiltSurface surface(sds_test::zoo_mesh("lone_quad"), sds_test::with_mode(Mode::all_smoothed));
    const CoreArray<Vec3f>& p = surface.geometry.get_vertices();
    for (unsigned int k = 0; k < 4; ++k)
        expect_near(surface.geometry.get_bezier_corners()[k],
                    (p[k] * 4.0f + p[(k + 1) % 4] + p[(k + 3) % 4]) * (1.0f / 6.0f), 1e-7f);
}

TEST(LimitCorners, KeptAndThreeSharpEdgedVerticesStay) {
    for (const Mode mode : all_modes) {
        if (mode == Mode::all_fixed) continue;
        for (const ZooMesh& cage : sds_test::mesh_zoo()) {
            SCOPED_TRACE(cage.name);
            const BuiltSurface surface(cage, sds_test::with_mode(mode));
            const auto& infos = surface.geometry.get_vertex_infos();
            std::vector<bool> used(infos.get_count(), false);
            for (const unsigned int v : surface.base.get_quad_indices()) used[v] = true;
            for (unsigned int v = 0; v < infos.get_count(); ++v) {
                if (!infos[v].is_kept() && infos[v].get_sharp_edge_count() != 3 && used[v]) continue;
                EXPECT_EQ(surface.geometry.get_bezier_corners()[v], surface.geometry.get_vertices()[v]) << v;
                if (infos[v].is_fixed() && v < cage.positions.size()) {
                    EXPECT_EQ(surface.geometry.get_vertices()[v], cage.positions[v]) << v;
                }
            }
        }
    }
}

TEST(LimitCorners, SecondKeepBitIsHonoured) {
    const BuiltSurface surface(sds_test::zoo_mesh("cube"));
    CoreArray<SdsMeshBase::VertexInfo> infos = surface.geometry.get_vertex_infos();
    SdsMeshBase::TopologyContext context = surface.context();
    context.vertex_infos = &infos;
    Vec3f corner;
    const unsigned int v = surface.base.get_quad_indices()[0];
    SdsMeshBase::compute_bezier_corner(context, 0, surface.geometry.get_vertices().get_data(), corner);
    EXPECT_FALSE(corner == surface.geometry.get_vertices()[v]);
    infos[v].bits = 4;
    SdsMeshBase::compute_bezier_corner(context, 0, surface.geometry.get_vertices().get_data(), corner);
    EXPECT_EQ(corner, surface.geometry.get_vertices()[v]);
}

// Whichever corner a limit point is computed from, it is the same point.
TEST(LimitCorners, DoNotDependOnTheCorner) {
    for (const ZooMesh& cage : sds_test::mesh_zoo()) {
        if (cage.is_in(sds_test::nonmanifold_vertex) || cage.is_in(sds_test::opposite_winding)) continue;
        SCOPED_TRACE(cage.name);
        const BuiltSurface surface(cage, sds_test::with_mode(Mode::all_smoothed));
        const SdsMeshBase& base = surface.base;
        for (unsigned int e = 0; e < base.get_quad_indices().get_count(); ++e) {
            const unsigned int v = base.get_quad_indices()[e];
            Vec3f corner;
            SdsMeshBase::compute_bezier_corner(surface.context(), e, surface.geometry.get_vertices().get_data(),
                                               corner);
            expect_near(corner, surface.geometry.get_bezier_corners()[v], 2e-6f);
        }
    }
}

}  // namespace
