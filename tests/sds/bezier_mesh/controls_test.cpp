// The view: sources, selection of the control routine, and the controls themselves.
#include <random>

#include "../surface_checks.h"
#include "sds/bezier_mesh/sds_bezier_mesh.h"

namespace {

using namespace sds_test;

std::vector<Vec3f> random_points(unsigned int count, unsigned int seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> uniform(-1, 1);
    std::vector<Vec3f> points;
    for (unsigned int i = 0; i < count; ++i) points.emplace_back(uniform(random), uniform(random), uniform(random));
    return points;
}

// A quad with neighbors on all sides: 16 vertices of a 4 x 4 grid, row by row, the quad in the middle.
struct RegularQuad {
    unsigned int quad[4] = {5, 6, 10, 9};
    SdsMeshBase::BezierPatch patch{{1, 2, 7, 11, 14, 13, 8, 4}, {8, 8, 8, 8}, {4, 4, 4, 4}, 0};
};

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

TEST(BezierMeshSources, BlendIsTheBlendOfTheControls) {
    const RegularQuad regular;
    const std::vector<Vec3f> p = random_points(16, 8), pc = random_points(16, 9), q = random_points(16, 10),
                             qc = random_points(16, 11);
    for (const bool smooth : {true, false}) {
        const SdsMeshBase::BezierPatch* patch = smooth ? &regular.patch : nullptr;
        SdsBezierMesh blend(1, 16, regular.quad, patch, nullptr);
        blend.add_vertices(p.data(), pc.data(), 0.25f);
        Vec3f first[16], second[16], both[16], plain[16];
        blend.get_patch_controls(0, first);  // alone, its weight is not read
        SdsBezierMesh(1, 16, regular.quad, patch, p.data(), pc.data(), nullptr).get_patch_controls(0, plain);
        SdsBezierMesh(1, 16, regular.quad, patch, q.data(), qc.data(), nullptr).get_patch_controls(0, second);
        blend.add_vertices(q.data(), qc.data(), 0.75f);
        blend.add_vertices(p.data(), nullptr, -1.0f);
        blend.add_vertices(p.data(), nullptr, 1.0f);  // four sources, the last two cancel
        blend.get_patch_controls(0, both);
        expect_near(blend.get_quad_vertices()[5], p[5] * 0.25f + q[5] * 0.75f, 1e-7f);
        blend.set_vertices(p.data(), pc.data());
        EXPECT_EQ(blend.get_source_count(), 1u);
        EXPECT_EQ(blend.get_weight(0), 1.0f);
        Vec3f again[16];
        blend.get_patch_controls(0, again);
        for (unsigned int i = 0; i < 16; ++i) {
            EXPECT_EQ(first[i], plain[i]);
            EXPECT_EQ(again[i], plain[i]);
            expect_near(both[i], plain[i] * 0.25f + second[i] * 0.75f, 1e-6f);
        }
    }
}

TEST(BezierMeshSources, ArraysStandForPointersAndEmptyOnesForNone) {
    const RegularQuad regular;
    CoreArray<unsigned int> quads, none;
    for (const unsigned int v : regular.quad) quads.add(v);
    quads.add(0);  // not a whole quad
    CoreArray<SdsMeshBase::BezierPatch> records(1, regular.patch);
    const CoreArray<Vec3f> p = to_core_array(random_points(16, 12));
    const SdsBezierMesh mesh(quads, records, p, {}, none);
    EXPECT_EQ(mesh.get_patch_count(), 1u);
    EXPECT_EQ(mesh.get_vertex_count(), 16u);
    EXPECT_EQ(mesh.get_patch_vertices(0), mesh.get_quad_vertices(0));
    EXPECT_EQ(mesh.get_patch(0), records.get_data());

    EXPECT_EQ(SdsBezierMesh(quads, {}, p, p, none).get_patch(0), nullptr);
    EXPECT_EQ(SdsBezierMesh().get_patch(3), nullptr);
    // Records are found through indices of their own.
    const SdsMeshBase::BezierPatch patches[2] = {};
    const unsigned int two_quads[8] = {0, 1, 2, 3, 3, 2, 1, 0}, crossed[2] = {1, 0};
    for (const unsigned int q : {0u, 1u})
        EXPECT_EQ(SdsBezierMesh(2, 16, two_quads, patches, p.get_data(), nullptr, crossed).get_patch(q),
                  patches + 1 - q);

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

}  // namespace
