#include <gmock/gmock.h>

#include <random>

#include "../surface_checks.h"
#include "support/recorders.h"

namespace {

using namespace sds_test;
using Mode = SdsMeshGeometry::InterpolationMode;

constexpr Mode all_modes[] = {Mode::all_fixed, Mode::corners_fixed, Mode::all_smoothed, Mode::borders_fixed};

// Affine maps and constants pass through every rule, since the weights of each add up to 1.
TEST(SubdivisionPositions, AffineInvariantOnTheZoo) {
    for (const ZooMesh& cage : mesh_zoo())
        for (const Mode mode : all_modes) {
            SCOPED_TRACE(cage.name + " mode " + std::to_string(static_cast<unsigned int>(mode)));
            const auto map = [](const Vec3f& p) {
                return Vec3f(2 * p[0] - p[1] + 3, p[2] + 0.5f * p[0] - 1, p[1] - 0.25f * p[2] + 2);
            };
            ZooMesh moved = cage;
            for (Vec3f& p : moved.positions) p = map(p);
            const BuiltSurface a(cage, {.mode = mode}), b(moved, {.mode = mode});
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

TEST(SubdivisionPositions, SecondArrayFollowsTheSameWeightsToTheBit) {
    for (const ZooMesh& cage : mesh_zoo()) {
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
    SdsMeshBase base;
    set_base(base, make_cage({3, 3}, {0, 1, 2, none, none, none}, 3));
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
    const BuiltSurface surface(zoo_mesh("lone_triangle"));
    CoreArray<Vec3f> out(7, {0, 0, 0});
    SdsMeshBase::compute_subdivision_positions(to_core_array(zoo_mesh("lone_triangle").positions), surface.context(),
                                               out.get_data(), false, &steps);
    EXPECT_EQ(steps.count, 7u);
    EXPECT_THAT(steps.done, testing::ElementsAre(7, 4, 5, 6, 1, 2, 3));
}

TEST(LimitCorners, KeptAndThreeSharpEdgedVerticesStay) {
    for (const Mode mode : all_modes) {
        if (mode == Mode::all_fixed) continue;
        for (const ZooMesh& cage : mesh_zoo()) {
            SCOPED_TRACE(cage.name);
            const BuiltSurface surface(cage, {.mode = mode});
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
    const BuiltSurface surface(zoo_mesh("cube"));
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
    for (const ZooMesh& cage : mesh_zoo()) {
        if (cage.is_in(nonmanifold_vertex) || cage.is_in(opposite_winding)) continue;
        SCOPED_TRACE(cage.name);
        const BuiltSurface surface(cage, {.mode = Mode::all_smoothed});
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
