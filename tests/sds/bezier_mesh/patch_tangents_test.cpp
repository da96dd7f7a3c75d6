// Limit tangents, against closed forms in double precision.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "../build_options.h"
#include "sds/mesh_base/cosine_table.h"

namespace {

using sds_test::BuiltSurface;
using sds_test::Vec3d;
using sds_test::Vec3f;
using sds_test::ZooMesh;
using Mode = SdsMeshGeometry::InterpolationMode;

constexpr double pi = std::numbers::pi;

void expect_near(const Vec3d& a, const Vec3d& b, double tolerance) {
    for (unsigned int i = 0; i < 3; ++i) EXPECT_NEAR(a[i], b[i], tolerance) << "axis " << i;
}

TEST(CosineLookup, StaysNearTheCosine) {
    const SdsMeshBase base;
    for (int i = -4000; i <= 4000; ++i) {
        const float x = static_cast<float>(i) * 0.0051f;
        EXPECT_NEAR(sds::lookup_cosine(x), std::cos(static_cast<double>(x)), 7e-6) << x;
        EXPECT_NEAR(sds::lookup_sine(x), std::sin(static_cast<double>(x)), 7e-6) << x;
    }
    for (const float x : {0.0f, 3.1415927f, -3.1415927f, 6.2831855f, 1.5707964f, 3.1415925f, 6.283185f})
        EXPECT_NEAR(sds::lookup_cosine(x), std::cos(static_cast<double>(x)), 7e-6) << x;
}

// k quads around an interior vertex, given as rings of edge and diagonal neighbours.
struct Fan {
    ZooMesh cage;
    Fan(unsigned int k, bool is_open) {
        // vertex 0, edge neighbours 1 ..., diagonals after them
        const unsigned int edge_count = is_open ? k + 1 : k;
        const auto bump = [](double x) { return static_cast<float>(x); };
        cage.positions.emplace_back(0.1f, -0.05f, 0.2f);
        for (unsigned int i = 0; i < edge_count; ++i) {
            const double a = (is_open ? pi : 2 * pi) * i / k;
            cage.positions.emplace_back(bump(std::cos(a) * (1 + 0.1 * i)), bump(std::sin(a)),
                                        bump(0.3 * std::sin(3 * a + 1)));
        }
        for (unsigned int i = 0; i < k; ++i) {
            const double a = (is_open ? pi : 2 * pi) * (i + 0.5) / k;
            cage.positions.emplace_back(bump(1.5 * std::cos(a)), bump(1.4 * std::sin(a) + 0.1 * i),
                                        bump(0.2 * std::cos(2 * a)));
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
            Vec3f t1, t2;
            const auto& record = surface.geometry.get_local_topologies()[4 * q];
            ASSERT_TRUE(record.closed);
            SdsMeshBase::compute_vertex_tangents(surface.geometry.get_bezier_mesh(), surface.base.get_edges(), 4 * q,
                                                 record, t1, t2);
            expect_near(Vec3d(t1), expected1, 3e-5);
            expect_near(Vec3d(t2), expected2, 3e-5);
        }
    }
}

TEST(VertexTangents, ValenceFourGivesTheBSplineDerivative) {
    const Fan fan(4, false);
    const BuiltSurface surface(fan.cage);
    Vec3f t1, t2;
    SdsMeshBase::compute_vertex_tangents(surface.geometry.get_bezier_mesh(), surface.base.get_edges(), 0,
                                         surface.geometry.get_local_topologies()[0], t1, t2);
    // Row weights 1 4 1 of the spline across, central difference along: edges 1 to 4 at 0, 90, 180, 270 degrees.
    const auto slope = [&](unsigned int right, unsigned int left, unsigned int d0, unsigned int d1, unsigned int d2,
                           unsigned int d3) {
        return ((fan.at(right) - fan.at(left)) * 4.0 + fan.at(d0) + fan.at(d1) - fan.at(d2) - fan.at(d3)) *
               (1.0 / 12.0);
    };
    const Vec3d along1 = slope(1, 3, 5, 8, 6, 7), along2 = slope(2, 4, 5, 6, 7, 8);
    // Same direction, and one scale for both.
    const double scale = Vec3d(t1).length() / along1.length();
    expect_near(Vec3d(t1), along1 * scale, 2e-5);
    expect_near(Vec3d(t2), along2 * scale, 2e-5);
    EXPECT_NEAR(scale, 1.0, 1e-4);
}

TEST(CornerTangents, LoneCornerPointsToTheMiddles) {
    const BuiltSurface surface(sds_test::zoo_mesh("lone_quad"));
    const CoreArray<Vec3f>& p = surface.geometry.get_vertices();
    for (unsigned int k = 0; k < 4; ++k) {
        Vec3f t1, t2;
        SdsMeshBase::compute_corner_tangents(surface.geometry.get_bezier_mesh(), surface.base.get_edges(), k,
                                             surface.geometry.get_local_topologies()[k], t1, t2);
        const Vec3f far = p[(k + 2) % 4];
        EXPECT_EQ(t1, (p[(k + 1) % 4] + far) * 0.5f - p[k]);
        EXPECT_EQ(t2, (p[(k + 3) % 4] + far) * 0.5f - p[k]);
    }
}

TEST(CornerTangents, OpenFanMatchesTheClosedForm) {
    for (const unsigned int m : {2u, 3u, 4u, 7u, 40u}) {
        const Fan fan(m, true);
        const BuiltSurface surface(fan.cage, sds_test::with_mode(Mode::all_smoothed));
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
            Vec3f t1, t2;
            const auto& record = surface.geometry.get_local_topologies()[4 * q];
            ASSERT_EQ(record.valence, m);
            SdsMeshBase::compute_corner_tangents(surface.geometry.get_bezier_mesh(), surface.base.get_edges(), 4 * q,
                                                 record, t1, t2);
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
    const BuiltSurface surface(fan.cage, sds_test::with_mode(Mode::all_smoothed));
    Vec3f t1, t2;
    SdsMeshBase::compute_corner_tangents(surface.geometry.get_bezier_mesh(), surface.base.get_edges(), 0,
                                         surface.geometry.get_local_topologies()[0], t1, t2);
    // Ends 0.9 (1,0,0) + 0.1 of each diagonal, half their difference.
    expect_near(Vec3d(t1), Vec3d(0, 0.1, 0), 1e-5);
}

// Great fans are walked once for all their corners; one quad alone gives the same bits.
TEST(PatchTangents, OneQuadGivesTheBitsOfAllQuads) {
    for (const ZooMesh& cage : {Fan(40, false).cage, Fan(40, true).cage, sds_test::zoo_mesh("pole64"),
                                sds_test::zoo_mesh("quad_fan6_crease")}) {
        SCOPED_TRACE(cage.name + " " + std::to_string(cage.counts.size()));
        const BuiltSurface surface(cage, sds_test::with_mode(Mode::all_smoothed));
        for (unsigned int q = 0; q < surface.quad_count(); ++q) {
            const SdsMeshBase::PatchTangentInfo& info = surface.geometry.get_tangent_infos()[q];
            Vec3f tangents[16];
            SdsMeshBase::compute_bezier_tangents(surface.geometry.get_bezier_mesh(), surface.base.get_edges(), q, info,
                                                 surface.geometry.get_local_topologies().get_data() + 4 * size_t{q},
                                                 tangents);
            const int count = 2 * __builtin_popcount(info.irregular & 0xFFu);
            for (int i = 0; i < count; ++i)
                ASSERT_EQ(tangents[i], surface.geometry.get_bezier_tangents_array()[info.tangent_offset + i])
                    << "quad " << q << " vector " << i;
        }
    }
}

// Two corners of a great fan that share an edge have the same tangent along it, bit for bit.
TEST(VertexTangents, GreatFansShareTheBitsOfAnEdge) {
    for (const bool is_open : {false, true}) {
        const unsigned int n = 40;
        const Fan fan(n, is_open);
        const BuiltSurface surface(fan.cage, sds_test::with_mode(Mode::all_smoothed));
        const auto& fans = surface.geometry.get_local_topologies();
        const auto tangents = [&](unsigned int q) {
            Vec3f t1, t2;
            (is_open ? SdsMeshBase::compute_corner_tangents : SdsMeshBase::compute_vertex_tangents)(
                surface.geometry.get_bezier_mesh(), surface.base.get_edges(), 4 * q, fans[4 * q], t1, t2);
            return std::make_pair(t1, t2);
        };
        for (unsigned int q = 0; q + 1 < n; ++q) EXPECT_EQ(tangents(q).second, tangents(q + 1).first) << q;
        if (!is_open) {
            EXPECT_EQ(tangents(n - 1).second, tangents(0).first);
        }
    }
}

TEST(PatchTangents, RegularCornersAndEdgesStoreNothing) {
    const BuiltSurface surface(sds_test::zoo_mesh("torus"));
    Vec3f sentinel(9, 9, 9);
    SdsMeshBase::compute_bezier_tangents(surface.geometry.get_bezier_mesh(), surface.base.get_edges(), 0,
                                         surface.geometry.get_tangent_infos()[0],
                                         surface.geometry.get_local_topologies().get_data(), &sentinel);
    EXPECT_EQ(sentinel, Vec3f(9, 9, 9));
}

// Two patches that share a smooth edge span one tangent plane along all of it.
TEST(PatchTangents, TangentPlanesAgreeAcrossSmoothEdges) {
    for (const ZooMesh& cage : sds_test::mesh_zoo()) {
        if (cage.is_in(sds_test::opposite_winding) || cage.is_in(sds_test::nonmanifold_vertex) ||
            cage.is_in(sds_test::huge_valence))
            continue;
        SCOPED_TRACE(cage.name);
        const BuiltSurface surface(cage);
        const auto normal_at = [&](unsigned int e, double t) {
            GeometrySample sample;
            surface.geometry.compute_edge_sample(e / 4, e & 3u, t, false, sample);
            return sample.get_smoothing_normal();
        };
        for (unsigned int e = 0; e < 4 * surface.quad_count(); ++e) {
            if (surface.base.is_edge_sharp(e)) continue;
            const unsigned int o = surface.base.get_edges().opposite_edges[e];
            if (o < e) continue;
            // A dart or crease end has one limit normal per side.
            bool smooth_ends = true;
            for (const unsigned int h : {e, sds::next_in_quad(e)})
                smooth_ends &= surface.base.get_vertex_infos()[surface.base.get_quad_indices()[h]].bits == 0;
            if (!smooth_ends) continue;
            for (const double t : {0.0, 0.2, 0.5, 0.85, 1.0}) {
                const Vec3d a = normal_at(e, t), b = normal_at(o, 1.0 - t);
                EXPECT_GT(a.dot(b), 1.0 - 2e-6) << "edge " << e << " at " << t;
            }
        }
    }
}

}  // namespace
