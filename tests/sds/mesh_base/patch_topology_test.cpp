#include <gmock/gmock.h>

#include "support/built_surface.h"
#include "support/recorders.h"

namespace {

using namespace sds_test;

constexpr unsigned int none = 0xFFFFFFFF;

TEST(PatchTopology, NeighboursWeightsAndSharpEdgesOnTheZoo) {
    for (const ZooMesh& cage : mesh_zoo()) {
        SCOPED_TRACE(cage.name);
        const BuiltSurface surface(cage);
        const SdsMeshBase& base = surface.base;
        for (unsigned int q = 0; q < base.get_primitive_count(); ++q) {
            const SdsMeshBase::BezierPatch& patch = surface.geometry.get_bezier_patches()[q];
            for (unsigned int k = 0; k < 4; ++k) {
                const unsigned int e = 4 * q + k;
                EXPECT_EQ((patch.sharp_edges >> k) & 1u, base.is_edge_sharp(e) ? 1u : 0u);
                const unsigned int a = patch.neighbour_vertices[2 * k], b = patch.neighbour_vertices[2 * k + 1];
                if (base.is_edge_border(e)) {
                    EXPECT_EQ(a, none);
                    EXPECT_EQ(b, none);
                    continue;
                }
                // The neighbour quad, walked from this edge's start, is start, a, b, end when it winds the same way.
                const unsigned int o = base.get_edges().opposite_edges[e];
                const unsigned int* other = base.get_quad_indices(o / 4);
                std::vector<unsigned int> ring(other, other + 4);
                std::rotate(ring.begin(), ring.begin() + (o & 3u), ring.end());
                const bool same_winding = ring[0] == base.get_quad_indices()[sds::next_in_quad(e)];
                EXPECT_EQ(a, ring[2]);
                EXPECT_EQ(b, ring[3]);
                if (same_winding) {
                    EXPECT_EQ(ring[1], base.get_quad_indices()[e]);
                }
            }
            EXPECT_EQ(patch.sharp_edges >> 4, 0u);
        }
    }
}

TEST(PatchTopology, OpenFansOfThreeAndMoreWeighTheirDoubleValence) {
    SdsMeshBase::VertexLocalTopology fans[4] = {{false, 0, 0, 1}, {false, 0, 0, 3}, {true, 2, 2, 7}, {false, 0, 0, 2}};
    SdsMeshBase::EdgesTopology edges;
    edges.opposite_edges.assign(4, none);
    edges.quad_edge_flags.assign(1, 0);
    CoreArray<unsigned int> quad(4, 0u);
    const SdsMeshBase::TopologyContext context{&quad, nullptr, fans, nullptr, &edges, nullptr};
    SdsMeshBase::BezierPatch patch;
    SdsMeshBase::compute_bezier_topology(context, 0, patch);
    EXPECT_THAT(patch.edge_weights, testing::ElementsAre(4.0f, 12.0f, 14.0f, 8.0f));
    EXPECT_THAT(patch.corner_weights, testing::ElementsAre(4.0f, 6.0f, 7.0f, 4.0f));
}

TEST(TangentInfos, IrregularCornerMarksItsTwoEdgesAndLinearHasNone) {
    SdsMeshBase::PatchTangentInfo infos[2] = {{77, 0xABCDEF42u}, {88, 0x100u}};
    SdsMeshBase::VertexLocalTopology fans[8];
    for (unsigned int k = 0; k < 4; ++k) {
        std::fill(fans, fans + 8, SdsMeshBase::VertexLocalTopology{true, 0, 0, 4});
        fans[k] = {true, k, k, 3};
        fans[4 + k] = {false, 0, 0, 4};
        EXPECT_EQ(SdsMeshBase::compute_tangent_infos(2, fans, infos, false, nullptr), 12u);
        const unsigned int bits = 1u << k | 1u << (4 + k) | 1u << (4 + (k + 3) % 4);
        EXPECT_EQ(infos[0].irregular, 0xABCDEF00u | bits);
        EXPECT_EQ(infos[1].irregular, 0x100u | bits);
        EXPECT_EQ(infos[0].tangent_offset, 0u);
        EXPECT_EQ(infos[1].tangent_offset, 6u);
    }
    RecordingProgress progress;
    EXPECT_EQ(SdsMeshBase::compute_tangent_infos(2, fans, infos, true, &progress), 0u);
    EXPECT_EQ(infos[0].irregular, 0xABCDEF00u);
    EXPECT_EQ(infos[1].tangent_offset, 0u);
    EXPECT_EQ(progress.tasks[0].step_count, 2u);
    EXPECT_EQ(progress.tasks[0].steps, 2u);
}

TEST(TangentInfos, OffsetsFollowOneAnotherOnTheZoo) {
    for (const ZooMesh& cage : mesh_zoo()) {
        SCOPED_TRACE(cage.name);
        const BuiltSurface surface(cage);
        unsigned int offset = 0;
        for (const SdsMeshBase::PatchTangentInfo& info : surface.geometry.get_tangent_infos()) {
            EXPECT_EQ(info.tangent_offset, offset);
            for (unsigned int bit = 0; bit < 8; ++bit) offset += 2 * ((info.irregular >> bit) & 1u);
        }
        EXPECT_EQ(surface.geometry.get_bezier_tangents_array().get_count(), offset);
    }
}

}  // namespace
