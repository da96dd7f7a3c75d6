// The view: sources, selection of the control routine, and the controls themselves.
#include <gmock/gmock.h>

#include <random>

#include "../build_options.h"
#include "sds/bezier_mesh/sds_bezier_mesh.h"
#include "sds/common/control_grid.h"

namespace {

using sds_test::BuiltSurface;
using sds_test::Vec3f;
using sds_test::ZooMesh;
using testing::ElementsAre;
using Mode = SdsMeshGeometry::InterpolationMode;

void expect_near(const Vec3f& a, const Vec3f& b, float tolerance) {
    for (unsigned int i = 0; i < 3; ++i) EXPECT_NEAR(a[i], b[i], tolerance) << "axis " << i;
}

std::vector<Vec3f> random_points(unsigned int count, unsigned int seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> uniform(-1, 1);
    std::vector<Vec3f> points;
    for (unsigned int i = 0; i < count; ++i) points.emplace_back(uniform(random), uniform(random), uniform(random));
    return points;
}

// A quad with neighbours on all sides: 16 vertices of a 4 x 4 grid, row by row, the quad in the middle.
struct RegularQuad {
    unsigned int quad[4] = {5, 6, 10, 9};
    SdsMeshBase::BezierPatch patch{{1, 2, 7, 11, 14, 13, 8, 4}, {8, 8, 8, 8}, {4, 4, 4, 4}, 0};
};

// Inside a regular grid the patch is the uniform bicubic B-spline, converted.
TEST(BezierControls, RegularPatchIsTheBSpline) {
    const RegularQuad regular;
    const std::vector<Vec3f> p = random_points(16, 1);
    // B-spline to Bezier, one direction: rows of the conversion for the four control points.
    const double m[4][4] = {{1, 4, 1, 0}, {0, 4, 2, 0}, {0, 2, 4, 0}, {0, 1, 4, 1}};
    std::vector<Vec3f> corners = p;
    for (const auto& [v, row, column] : {std::tuple(5u, 0u, 0u), {6u, 0u, 3u}, {10u, 3u, 3u}, {9u, 3u, 0u}}) {
        GMathVec3<double> sum(0, 0, 0);
        for (unsigned int i = 0; i < 4; ++i)
            for (unsigned int j = 0; j < 4; ++j)
                sum += GMathVec3<double>(p[4 * i + j]) * (m[row][i] * m[column][j] / 36.0);
        corners[v] = Vec3f(sum);
    }
    const SdsBezierMesh mesh(1, 16, regular.quad, &regular.patch, p.data(), corners.data(), nullptr);
    Vec3f controls[16];
    mesh.get_patch_controls(0, controls);
    for (unsigned int row = 0; row < 4; ++row)
        for (unsigned int column = 0; column < 4; ++column) {
            GMathVec3<double> sum(0, 0, 0);
            for (unsigned int i = 0; i < 4; ++i)
                for (unsigned int j = 0; j < 4; ++j)
                    sum += GMathVec3<double>(p[4 * i + j]) * (m[row][i] * m[column][j] / 36.0);
            SCOPED_TRACE(testing::Message() << "row " << row << " column " << column);
            expect_near(controls[sds::grid_order[4 * row + column]], Vec3f(sum), 5e-7f);
        }
}

TEST(BezierControls, SharpEdgesAreThirdsOfTheQuadVertices) {
    RegularQuad regular;
    const std::vector<Vec3f> p = random_points(16, 2), corners = random_points(16, 3);
    std::fill(std::begin(regular.patch.neighbour_vertices), std::end(regular.patch.neighbour_vertices), 0xFFFFFFFF);
    std::fill(std::begin(regular.patch.edge_weights), std::end(regular.patch.edge_weights), 4.0f);
    regular.patch.sharp_edges = 0xF;
    const SdsBezierMesh mesh(1, 16, regular.quad, &regular.patch, p.data(), corners.data(), nullptr);
    Vec3f c[16];
    mesh.get_patch_controls(0, c);
    for (unsigned int k = 0; k < 4; ++k) {
        const Vec3f &q = p[regular.quad[k]], &next = p[regular.quad[(k + 1) % 4]], &far = p[regular.quad[(k + 2) % 4]],
                    &previous = p[regular.quad[(k + 3) % 4]];
        EXPECT_EQ(c[4 * k], corners[regular.quad[k]]);
        EXPECT_EQ(c[4 * k + 1], (q * 2.0f + next) * 0.33333334f);
        EXPECT_EQ(c[4 * k + 3], (q * 2.0f + previous) * 0.33333334f);
        expect_near(c[4 * k + 2], (q * 4.0f + (next + previous) * 2.0f + far) * (1.0f / 9.0f), 3e-7f);
    }
}

// Turning the quad's corners by one turns the controls by four places, whatever the record.
TEST(BezierControls, FollowARotationOfTheCorners) {
    const std::vector<Vec3f> p = random_points(16, 4), corners = random_points(16, 5);
    for (const unsigned int sharp : {0u, 1u, 6u, 9u, 15u}) {
        RegularQuad a;
        a.patch = {{1, 2, 7, 11, 14, 13, 8, 4}, {6, 8, 12, 10}, {3, 4, 6, 5}, sharp};
        RegularQuad b = a;
        for (unsigned int k = 0; k < 4; ++k) {
            b.quad[k] = a.quad[(k + 1) % 4];
            b.patch.edge_weights[k] = a.patch.edge_weights[(k + 1) % 4];
            b.patch.corner_weights[k] = a.patch.corner_weights[(k + 1) % 4];
            for (unsigned int i = 0; i < 2; ++i)
                b.patch.neighbour_vertices[2 * k + i] = a.patch.neighbour_vertices[2 * ((k + 1) % 4) + i];
        }
        b.patch.sharp_edges = sharp >> 1 | (sharp & 1u) << 3;
        Vec3f ca[16], cb[16];
        SdsBezierMesh(1, 16, a.quad, &a.patch, p.data(), corners.data(), nullptr).get_patch_controls(0, ca);
        SdsBezierMesh(1, 16, b.quad, &b.patch, p.data(), corners.data(), nullptr).get_patch_controls(0, cb);
        for (unsigned int i = 0; i < 16; ++i) EXPECT_EQ(cb[i], ca[(i + 4) % 16]) << i;
        SdsBezierMesh(1, 16, a.quad, nullptr, p.data(), nullptr, nullptr).get_patch_controls(0, ca);
        SdsBezierMesh(1, 16, b.quad, nullptr, p.data(), nullptr, nullptr).get_patch_controls(0, cb);
        for (unsigned int i = 0; i < 16; ++i) expect_near(cb[i], ca[(i + 4) % 16], 3e-7f);
    }
}

// Two patches of one smooth edge must agree to the bit, or rays slip through.
TEST(BezierControls, NeighboursShareTheirEdgePointsToTheBit) {
    for (const ZooMesh& cage : sds_test::mesh_zoo())
        for (const Mode mode : {Mode::corners_fixed, Mode::all_smoothed}) {
            if (cage.is_in(sds_test::opposite_winding)) continue;
            SCOPED_TRACE(cage.name);
            const BuiltSurface surface(cage, sds_test::with_mode(mode));
            std::vector<Vec3f> controls(16 * size_t{surface.quad_count()});
            for (unsigned int q = 0; q < surface.quad_count(); ++q)
                surface.geometry.get_bezier_controls(q, &controls[16 * size_t{q}]);
            for (unsigned int e = 0; e < 4 * surface.quad_count(); ++e) {
                const unsigned int o = surface.base.get_edges().opposite_edges[e];
                if (o == 0xFFFFFFFF) continue;
                const auto at = [&](unsigned int h, unsigned int j) { return controls[4 * h + j]; };
                EXPECT_EQ(at(e, 0), at(sds::next_in_quad(o), 0)) << e;
                EXPECT_EQ(at(e, 1), at(sds::next_in_quad(o), 3)) << e;
                EXPECT_EQ(at(sds::next_in_quad(e), 3), at(o, 1)) << e;
            }
        }
}

TEST(BezierControls, LinearPatchIsTheBilinearSurface) {
    const std::vector<Vec3f> p = random_points(4, 6), corners = random_points(4, 7);
    const unsigned int quad[4] = {0, 1, 2, 3};
    const SdsBezierMesh mesh(1, 4, quad, nullptr, p.data(), corners.data(), nullptr);
    Vec3f c[16];
    mesh.get_patch_controls(0, c);
    for (unsigned int row = 0; row < 4; ++row)
        for (unsigned int column = 0; column < 4; ++column) {
            const float u = static_cast<float>(column) / 3, v = static_cast<float>(row) / 3;
            expect_near(c[sds::grid_order[4 * row + column]],
                        (p[0] * (1 - u) + p[1] * u) * (1 - v) + (p[3] * (1 - u) + p[2] * u) * v, 4e-7f);
        }
    EXPECT_EQ(c[0], p[0]);
}

TEST(BezierMeshSources, BlendIsTheBlendOfTheControls) {
    const RegularQuad regular;
    const std::vector<Vec3f> p = random_points(16, 8), pc = random_points(16, 9), q = random_points(16, 10),
                             qc = random_points(16, 11);
    for (const bool smooth : {true, false}) {
        const SdsMeshBase::BezierPatch* patch = smooth ? &regular.patch : nullptr;
        SdsBezierMesh blend(1, 16, regular.quad, patch, nullptr);
        EXPECT_EQ(blend.get_source_count(), 0u);
        blend.add_vertices(p.data(), pc.data(), 0.25f);
        Vec3f first[16], second[16], both[16];
        blend.get_patch_controls(0, first);  // alone, its weight is not read
        Vec3f plain[16];
        SdsBezierMesh(1, 16, regular.quad, patch, p.data(), pc.data(), nullptr).get_patch_controls(0, plain);
        for (unsigned int i = 0; i < 16; ++i) EXPECT_EQ(first[i], plain[i]);
        blend.add_vertices(q.data(), qc.data(), 0.75f);
        blend.get_patch_controls(0, both);
        SdsBezierMesh(1, 16, regular.quad, patch, q.data(), qc.data(), nullptr).get_patch_controls(0, second);
        for (unsigned int i = 0; i < 16; ++i) expect_near(both[i], first[i] * 0.25f + second[i] * 0.75f, 5e-7f);
        expect_near(blend.get_quad_vertices()[5], p[5] * 0.25f + q[5] * 0.75f, 1e-7f);
        expect_near(blend.get_patch_vertices()[5], pc[5] * 0.25f + qc[5] * 0.75f, 1e-7f);
        blend.add_vertices(p.data(), nullptr, -1.0f);
        blend.add_vertices(p.data(), nullptr, 1.0f);  // four sources, the last two cancel
        blend.get_patch_controls(0, second);
        for (unsigned int i = 0; i < 16; ++i) expect_near(both[i], second[i], 1e-6f);

        blend.set_vertices(p.data(), pc.data());
        EXPECT_EQ(blend.get_source_count(), 1u);
        EXPECT_EQ(blend.get_weight(0), 1.0f);
        blend.get_patch_controls(0, second);
        for (unsigned int i = 0; i < 16; ++i) EXPECT_EQ(second[i], plain[i]);
    }
}

TEST(BezierMeshSources, ArraysStandForPointersAndEmptyOnesForNone) {
    const RegularQuad regular;
    CoreArray<unsigned int> quads, none;
    for (const unsigned int v : regular.quad) quads.add(v);
    quads.add(0);  // not a whole quad
    CoreArray<SdsMeshBase::BezierPatch> records(1, regular.patch);
    const CoreArray<Vec3f> p = sds_test::to_core_array(random_points(16, 12));
    const SdsBezierMesh mesh(quads, records, p, {}, none);
    EXPECT_EQ(mesh.get_patch_count(), 1u);
    EXPECT_EQ(mesh.get_vertex_count(), 16u);
    EXPECT_EQ(mesh.get_patch_vertices(0), mesh.get_quad_vertices(0));
    EXPECT_EQ(mesh.get_patch(0), records.get_data());

    const SdsBezierMesh linear(quads, {}, p, p, none);
    EXPECT_EQ(linear.get_patch(0), nullptr);

    // Arrays that were emptied keep their storage, and are empty all the same.
    CoreArray<Vec3f> emptied = p;
    emptied.resize(0);
    records.resize(0);
    CoreArray<unsigned int> emptied_indices(4, 0u);
    emptied_indices.resize(0);
    const SdsBezierMesh from_emptied(quads, records, p, emptied, emptied_indices);
    EXPECT_EQ(from_emptied.get_patch_vertices(0), p.get_data());
    EXPECT_EQ(from_emptied.get_patch(0), nullptr);
}

TEST(BezierMeshSources, RecordsAreFoundThroughTheirIndices) {
    const unsigned int quads[8] = {0, 1, 2, 3, 3, 2, 1, 0}, records[2] = {1, 0};
    const SdsMeshBase::BezierPatch patches[2] = {};
    const std::vector<Vec3f> p = random_points(4, 13);
    const SdsBezierMesh mesh(2, 4, quads, patches, p.data(), nullptr, records);
    EXPECT_EQ(mesh.get_patch(0), patches + 1);
    EXPECT_EQ(mesh.get_patch(1), patches);
}

TEST(BezierMeshSources, DefaultViewIsEmpty) {
    const SdsBezierMesh view;
    EXPECT_EQ(view.get_patch_count(), 0u);
    EXPECT_EQ(view.get_source_count(), 0u);
    EXPECT_EQ(view.get_quad_vertices().get_count(), 0u);
    EXPECT_EQ(view.get_patch(3), nullptr);
    const CoreClassInfo& info = view.get_class_info();
    EXPECT_EQ(&info, CoreClassInfo::find("SdsBezierMesh"));
}

}  // namespace
