// Limit tangents, against closed forms in double precision.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <tuple>

#include "../surface_checks.h"
#include "sds/mesh_base/cosine_table.h"

namespace {

using namespace sds_test;
using Mode = SdsMeshGeometry::InterpolationMode;
using Edges = SdsMeshBase::EdgesTopology;

constexpr double pi = std::numbers::pi;

TEST(CosineLookup, StaysNearTheCosine) {
    const SdsMeshBase base;
    for (int i = -4000; i <= 4000; ++i) {
        const float x = static_cast<float>(i) * 0.0051f;
        EXPECT_NEAR(sds::lookup_cosine(x), std::cos(static_cast<double>(x)), 7e-6) << x;
        EXPECT_NEAR(sds::lookup_sine(x), std::sin(static_cast<double>(x)), 7e-6) << x;
    }
    for (unsigned int k = 0; k <= 512; ++k)
        EXPECT_NEAR(SdsMeshBase::get_cos_table()[k], std::cos(k * pi / 512.0), 6.1e-8);
    for (const float x : {0.0f, 3.1415927f, -3.1415927f, 6.2831855f, 1.5707964f, 3.1415925f, 6.283185f})
        EXPECT_NEAR(sds::lookup_cosine(x), std::cos(static_cast<double>(x)), 7e-6) << x;
}

// k quads around an interior vertex, given as rings of edge and diagonal neighbors.
struct Fan {
    ZooMesh cage;
    Fan(unsigned int k, bool is_open) {
        // vertex 0, edge neighbors 1 ..., diagonals after them
        const unsigned int edge_count = is_open ? k + 1 : k;
        cage.positions.emplace_back(0.1f, -0.05f, 0.2f);
        for (unsigned int i = 0; i < edge_count; ++i) {
            const double a = (is_open ? pi : 2 * pi) * i / k;
            cage.positions.push_back(Vec3f(Vec3d(std::cos(a) * (1 + 0.1 * i), std::sin(a), 0.3 * std::sin(3 * a + 1))));
        }
        for (unsigned int i = 0; i < k; ++i) {
            const double a = (is_open ? pi : 2 * pi) * (i + 0.5) / k;
            cage.positions.push_back(
                Vec3f(Vec3d(1.5 * std::cos(a), 1.4 * std::sin(a) + 0.1 * i, 0.2 * std::cos(2 * a))));
        }
        for (unsigned int i = 0; i < k; ++i) {
            cage.counts.push_back(4);
            for (const unsigned int v : {0u, 1 + i, 1 + edge_count + i, 1 + (i + 1) % edge_count})
                cage.indices.push_back(v);
        }
        cage.corner_creases.assign(cage.indices.size(), 0);
    }
    Vec3d at(unsigned int v) const { return Vec3d(cage.positions[v]); }
};

// Both tangents at a face-corner, by the rule of its fan.
std::pair<Vec3f, Vec3f> tangents_at(const BuiltSurface& surface, unsigned int corner) {
    const auto& fan = surface.geometry.get_local_topologies()[corner];
    std::pair<Vec3f, Vec3f> tangents;
    (fan.closed ? SdsMeshBase::compute_vertex_tangents : SdsMeshBase::compute_corner_tangents)(
        surface.geometry.get_bezier_mesh(), surface.base.get_edges(), corner, fan, tangents.first, tangents.second);
    return tangents;
}

// Subdominant eigenvectors of the closed fan; valence 4 gives the derivatives of the cubic B-spline.
TEST(VertexTangents, ClosedFanMatchesTheEigenvectors) {
    for (const unsigned int n : {3u, 4u, 5u, 6u, 7u, 12u, 40u}) {
        SCOPED_TRACE(n);
        const Fan fan(n, false);
        const BuiltSurface surface(fan.cage);
        const double a = pi / n, c = std::cos(a), k = 1.0 / (std::sqrt(c * c + 4) * n);
        for (unsigned int q = 0; q < n; ++q) {
            Vec3d expected1(0, 0, 0), expected2(0, 0, 0);
            for (unsigned int i = 0; i < n; ++i) {
                const double from1 = 2 * a * (static_cast<double>(i) - q), from2 = from1 - 2 * a;
                expected1 += fan.at(1 + i) * (std::cos(from1) * (k * c + 1.0 / n)) +
                             fan.at(1 + n + i) * (std::cos(from1 + a) * k);
                expected2 += fan.at(1 + i) * (std::cos(from2) * (k * c + 1.0 / n)) +
                             fan.at(1 + n + i) * (std::cos(from2 + a) * k);
            }
            const auto [t1, t2] = tangents_at(surface, 4 * q);
            expect_near(Vec3d(t1), expected1, 3e-5);
            expect_near(Vec3d(t2), expected2, 3e-5);
        }
    }
}

TEST(CornerTangents, OpenFanMatchesTheClosedForm) {
    for (const unsigned int m : {2u, 3u, 4u, 7u, 40u}) {
        const Fan fan(m, true);
        const BuiltSurface surface(fan.cage, {.mode = Mode::all_smoothed});
        const double step = pi / m, c = std::cos(step), r = 3 * m + c;
        // From the edge at angle 0 (vertex 1) to the one at pi (vertex 1 + m).
        const Vec3d v = fan.at(0), first = fan.at(1), last = fan.at(1 + m);
        Vec3d along = (first - last) * 0.5;
        Vec3d across =
            (first + last) * (-(2 * c + 1) * std::sqrt(1 + c) / (std::sqrt(1 - c) * r)) + v * (-4 * std::sin(step) / r);
        for (unsigned int i = 1; i < m; ++i) across += fan.at(1 + i) * (4 * std::sin(i * step) / r);
        for (unsigned int i = 0; i < m; ++i)
            across += fan.at(2 + m + i) * ((std::sin(i * step) + std::sin((i + 1) * step)) / r);
        for (unsigned int q = 0; q < m; ++q) {
            SCOPED_TRACE(std::to_string(m) + " quads, quad " + std::to_string(q));
            const auto [t1, t2] = tangents_at(surface, 4 * q);
            expect_near(Vec3d(t1), along * std::cos(q * step) + across * std::sin(q * step), 3e-5);
            expect_near(Vec3d(t2), along * std::cos((q + 1) * step) + across * std::sin((q + 1) * step), 3e-5);
        }
    }
}

// Both sharp edges point the same way: without the guard the tangent along them vanishes.
TEST(CornerTangents, FoldedSharpEdgesStillSpan) {
    Fan fan(2, true);
    fan.cage.positions[0] = {0, 0, 0};
    fan.cage.positions[1] = {1, 0, 0};
    fan.cage.positions[3] = {1, 0, 0};
    fan.cage.positions[4] = {1, 1, 0};
    fan.cage.positions[5] = {1, -1, 0};
    const BuiltSurface surface(fan.cage, {.mode = Mode::all_smoothed});
    // Ends 0.9 (1,0,0) + 0.1 of each diagonal, half their difference.
    expect_near(tangents_at(surface, 0).first, Vec3f(0, 0.1f, 0), 1e-5);
}

// The last quad of a fan turned over, which keeps its edges: a walk over it goes on at another vertex.
ZooMesh turn_last_quad(ZooMesh cage) {
    std::reverse(cage.indices.end() - 4, cage.indices.end());
    cage.name += " turned";
    return cage;
}

// Over a neighbor of opposite winding the corners of one fan lie at different vertices: each has its tangents there.
TEST(CornerTangents, AreSeenFromTheCornersOwnVertex) {
    const std::vector<Vec3f> p{{0, 0, 0}, {1, 0, 0.2f}, {1.1f, 1, 0}, {0, 1, 0.3f}, {2.2f, 0, 0}, {2, 1.2f, 0.5f}};
    const BuiltSurface surface(make_cage({4, 4}, {0, 1, 2, 3, 1, 2, 5, 4}, p), {.mode = Mode::all_smoothed});
    // Corner 1 of the first quad, at vertex 1, and corner 1 of the second, at vertex 2, have one fan of two quads.
    for (const auto& [corner, v, half_turns] : {std::tuple(1u, 1u, 1), {5u, 2u, 0}}) {
        const auto& fan = surface.geometry.get_local_topologies()[corner];
        ASSERT_EQ(fan.first_edge, 1u);
        ASSERT_EQ(fan.last_edge, 5u);
        const Vec3d along = (Vec3d(p[5]) - Vec3d(p[0])) * 0.5;
        const Vec3d across = (Vec3d(p[5]) + Vec3d(p[0])) * (-1.0 / 6) + Vec3d(p[2]) * (4.0 / 6) +
                             (Vec3d(p[3]) + Vec3d(p[4])) * (1.0 / 6) - Vec3d(p[v]) * (4.0 / 6);
        const auto [t1, t2] = tangents_at(surface, corner);
        expect_near(Vec3d(t1), half_turns != 0 ? across : along, 1e-5);
        expect_near(Vec3d(t2), half_turns != 0 ? -along : across, 1e-5);
    }
}

// Great fans are walked once for all their corners; one quad alone gives the same bits, over neighbors of opposite
// winding, with crease flags on one side only and from weighted positions too.
TEST(PatchTangents, OneQuadGivesTheBitsOfAllQuads) {
    for (const ZooMesh& cage : {Fan(40, false).cage, Fan(40, true).cage, turn_last_quad(Fan(40, true).cage),
                                turn_last_quad(Fan(40, false).cage), zoo_mesh("pole64"), zoo_mesh("quad_fan6_crease")})
        for (unsigned int seed = 0; seed < 8; ++seed) {
            SCOPED_TRACE(cage.name + " " + std::to_string(cage.counts.size()) + " " + std::to_string(seed));
            const BuiltSurface surface(cage, {.mode = Mode::all_smoothed});
            Edges edges = surface.base.get_edges();
            std::mt19937 random(seed);
            for (unsigned char& flags : edges.quad_edge_flags)
                if (seed != 0 && random() % (4 * seed) == 0)
                    flags = static_cast<unsigned char>(flags ^ 1u << random() % 4);
            SdsBezierMesh mesh = surface.geometry.get_bezier_mesh();
            SdsBezierMesh weighted(surface.get_quad_count(), mesh.get_vertex_count(), mesh.get_vertex_indices(),
                                   mesh.get_patch(0), nullptr);
            weighted.add_vertices(mesh.get_quad_vertices(0), mesh.get_patch_vertices(0), 0.37f);
            if (seed % 2 != 0) mesh = weighted;

            CoreArray<SdsMeshBase::VertexLocalTopology> fans(4 * surface.get_quad_count());
            CoreArray<SdsMeshBase::PatchTangentInfo> infos(surface.get_quad_count(), {});
            SdsMeshBase::analyse_vertices_local_topology(edges, fans, false, nullptr);
            CoreArray<Vec3f> all(SdsMeshBase::compute_tangent_infos(surface.get_quad_count(), fans.get_data(),
                                                                    infos.get_data(), false, nullptr));
            SdsMeshBase::compute_bezier_tangents(mesh, edges, infos, fans, all.get_data(), nullptr);
            for (unsigned int q = 0; q < surface.get_quad_count(); ++q) {
                const SdsMeshBase::PatchTangentInfo& info = infos[q];
                Vec3f tangents[16];
                SdsMeshBase::compute_bezier_tangents(mesh, edges, q, info, fans.get_data() + 4 * size_t{q}, tangents);
                const int count = 2 * __builtin_popcount(info.irregular & 0xFFu);
                for (int i = 0; i < count; ++i)
                    ASSERT_EQ(tangents[i], all[info.tangent_offset + i]) << "quad " << q << " vector " << i;
            }
        }
}

}  // namespace
