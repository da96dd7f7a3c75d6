#include <gmock/gmock.h>

#include <map>
#include <random>
#include <set>

#include "oracles/built_surface.h"
#include "support/recorders.h"

namespace {

using namespace sds_test;
using testing::ElementsAre;

constexpr unsigned int none = 0xFFFFFFFF;

struct Step {
    CoreArray<unsigned int> quads;
    CoreArray<SdsMeshBase::VertexInfo> infos;
    SdsMeshBase::EdgesTopology edges;
    SdsMeshBase::SubdivisionTopology record;

    Step(std::vector<unsigned int> counts, const std::vector<unsigned int>& indices, unsigned int vertex_count) {
        CoreArray<unsigned int> offsets;
        for (unsigned int offset = 0; const unsigned int count : counts) {
            offsets.add(offset);
            offset += count;
        }
        SdsMeshBase::subdivide(to_core_array(indices), to_core_array(counts), offsets, vertex_count, quads, infos,
                               edges, record, nullptr);
    }
    std::vector<unsigned int> quad(unsigned int q) const {
        return {quads.get_data() + 4 * q, quads.get_data() + 4 * q + 4};
    }
};

// Everything that the record says about the quads, for every cage that needs the step.
TEST(Subdivide, RecordHoldsTogetherOnTheZoo) {
    for (const ZooMesh& cage : mesh_zoo()) {
        SCOPED_TRACE(cage.name);
        const Step step(cage.counts, cage.indices, static_cast<unsigned int>(cage.positions.size()));
        const CageAdjacency adjacency(cage);
        const auto corner_count = static_cast<unsigned int>(cage.indices.size());
        ASSERT_EQ(step.quads.get_count(), 4 * corner_count);

        std::set<unsigned int> edge_points;
        unsigned int highest = step.record.first_edge_point;
        for (unsigned int c = 0; c < corner_count; ++c) {
            EXPECT_THAT(step.quad(c), ElementsAre(cage.indices[c], step.quads[4 * c + 1],
                                                  step.record.first_face_point + adjacency.polygon[c],
                                                  step.quads[4 * adjacency.previous[c] + 1]));
            EXPECT_EQ(step.record.quad_parents[c], adjacency.polygon[c]);
            // Numbered in the order in which edges are met; one number for both sides.
            const unsigned int point = step.quads[4 * c + 1];
            EXPECT_LE(point, highest);
            if (point == highest) ++highest;
            edge_points.insert(point);
            if (adjacency.opposite(c) != none) {
                EXPECT_EQ(point, step.quads[4 * adjacency.opposite(c) + 1]);
            }
        }
        EXPECT_EQ(highest, step.record.first_face_point);
        EXPECT_EQ(edge_points.size(), step.record.first_face_point - step.record.first_edge_point);

        // Opposites are mutual and lie between the same vertices.
        for (unsigned int h = 0; h < 4 * corner_count; ++h) {
            const unsigned int o = step.edges.opposite_edges[h];
            const bool parent_half = h % 4 == 0 || h % 4 == 3;
            const unsigned int parent = h % 4 == 0 ? h / 4 : adjacency.previous[h / 4];
            EXPECT_EQ(o == none, parent_half && adjacency.is_border(parent)) << h;
            if (o == none) continue;
            EXPECT_EQ(step.edges.opposite_edges[o], h);
            const std::set<unsigned int> here{step.quads[h], step.quads[sds::next_in_quad(h)]};
            const std::set<unsigned int> there{step.quads[o], step.quads[sds::next_in_quad(o)]};
            EXPECT_EQ(here, there) << h;
        }

        // Rings list the half-edges that leave each vertex, in increasing order.
        std::map<unsigned int, std::vector<unsigned int>> leaving;
        for (unsigned int h = 0; h < 4 * corner_count; ++h) leaving[step.quads[h]].push_back(h);
        ASSERT_EQ(step.record.vertex_rings.get_count(), step.record.first_face_point + cage.counts.size());
        for (unsigned int v = 0; v < step.record.vertex_rings.get_count(); ++v) {
            const SdsMeshBase::RingSpan span = step.record.vertex_rings[v];
            const unsigned int* ring = step.record.ring_edges.get_data() + span.offset;
            EXPECT_EQ(std::vector<unsigned int>(ring, ring + span.count), leaving[v]) << v;
        }
    }
}

TEST(Subdivide, HalvesOfCreasesStayCreasesAndInnerEdgesAreHidden) {
    for (const ZooMesh& cage : mesh_zoo()) {
        if (cage.is_all_quads()) continue;
        SCOPED_TRACE(cage.name);
        const BuiltSurface surface(cage);
        const CageAdjacency adjacency(cage);
        for (unsigned int c = 0; c < cage.indices.size(); ++c) {
            const unsigned int expected = 0x90u | (adjacency.is_crease[c] != 0 ? 1u : 0u) |
                                          (adjacency.is_crease[adjacency.previous[c]] != 0 ? 8u : 0u);
            EXPECT_EQ(surface.base.get_edges().quad_edge_flags[c], expected) << c;
            for (unsigned int k = 0; k < 4; ++k) {
                EXPECT_EQ(surface.base.is_primitive_edge_crease(c, k), ((expected >> k) & 1u) != 0);
                EXPECT_EQ(surface.base.is_primitive_edge_visible(c, k), ((expected >> (4 + k)) & 1u) != 0);
            }
            for (const unsigned int k : {4u, 5u, 7u, 31u}) EXPECT_FALSE(surface.base.is_primitive_edge_crease(c, k));
        }
    }
}

TEST(Subdivide, NeighbourOfOppositeWindingIsLinkedSilently) {
    LogCapture log(3);
    const Step step({3, 3}, {0, 1, 2, 0, 1, 3}, 4);
    EXPECT_TRUE(log.lines.empty());
    EXPECT_EQ(step.edges.opposite_edges[0], 12u);
    EXPECT_EQ(step.edges.opposite_edges[7], 19u);
    EXPECT_EQ(step.quads[1], step.quads[13]);
    EXPECT_EQ(step.infos[0].get_sharp_edge_count(), 2u);
}

TEST(Subdivide, PolygonsThatUseAnEdgeTwiceStayInBounds) {
    // Polygons of any size, with vertices at random: most edges fit nothing.
    for (unsigned int seed = 0; seed < 200; ++seed) {
        std::mt19937 random(seed);
        const unsigned int vertex_count = 3 + seed % 6;
        std::vector<unsigned int> counts, indices;
        for (unsigned int p = 0; p < 1 + seed % 7; ++p) {
            counts.push_back(1 + static_cast<unsigned int>(random() % 6));
            for (unsigned int j = 0; j < counts.back(); ++j)
                indices.push_back(random() % 9 == 0 ? none : static_cast<unsigned int>(random() % vertex_count));
        }
        LogCapture log(1);
        const Step step(counts, indices, vertex_count);
        for (unsigned int h = 0; h < step.quads.get_count(); ++h) {
            const unsigned int o = step.edges.opposite_edges[h];
            ASSERT_TRUE(o == none || o < step.quads.get_count());
            if (o != none) {
                ASSERT_EQ(step.edges.opposite_edges[o], h) << "seed " << seed;
            }
            ASSERT_TRUE(step.quads[h] == none || step.quads[h] < step.infos.get_count());
        }
    }
}

}  // namespace
