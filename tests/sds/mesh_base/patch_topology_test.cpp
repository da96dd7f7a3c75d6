#include <gmock/gmock.h>

#include "sds/mesh_base/sds_mesh_base.h"
#include "support/recorders.h"

namespace {

using namespace sds_test;

constexpr unsigned int none = 0xFFFFFFFF;

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

}  // namespace
