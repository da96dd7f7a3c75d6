#include <gmock/gmock.h>

#include "oracles/built_surface.h"

namespace {

using sds_test::BuiltSurface;
using sds_test::CageAdjacency;
using sds_test::ZooMesh;

// Border and crease edges at each vertex, capped at 3, counted edge by edge.
std::vector<unsigned int> sharp_counts(const ZooMesh& cage, const CageAdjacency& adjacency) {
    std::vector<unsigned int> counts(cage.positions.size(), 0);
    for (unsigned int c = 0; c < cage.indices.size(); ++c) {
        const unsigned int o = adjacency.opposite(c);
        const bool once = o == CageAdjacency::none || c < o;
        if (!once || !adjacency.is_sharp(c)) continue;
        for (const unsigned int v : {adjacency.start[c], adjacency.end[c]}) counts[v] = std::min(3u, counts[v] + 1);
    }
    return counts;
}

TEST(ImportQuads, KeepsPolygonsAndFindsTheirEdges) {
    for (const ZooMesh& cage : sds_test::mesh_zoo()) {
        if (!cage.is_all_quads()) continue;
        SCOPED_TRACE(cage.name);
        const BuiltSurface surface(cage);
        const SdsMeshBase& base = surface.base;
        const CageAdjacency adjacency(cage);
        ASSERT_EQ(base.get_primitive_count(), cage.counts.size());
        const std::vector<unsigned int> sharp = sharp_counts(cage, adjacency);
        for (unsigned int e = 0; e < cage.indices.size(); ++e) {
            EXPECT_EQ(base.get_quad_indices()[e], cage.indices[e]);
            EXPECT_EQ(base.get_edges().opposite_edges[e], adjacency.opposite(e)) << e;
            EXPECT_EQ(base.is_edge_crease(e), adjacency.is_crease[e] != 0) << e;
            EXPECT_EQ(base.is_edge_sharp(e), adjacency.is_sharp(e)) << e;
        }
        // Where a neighbour winds the other way, an interior crease raises one of its ends twice and the other not at
        // all.
        if (cage.is_in(sds_test::opposite_winding)) continue;
        for (unsigned int v = 0; v < sharp.size(); ++v)
            EXPECT_EQ(base.get_vertex_infos()[v].bits, sharp[v]) << "vertex " << v;
    }
}

}  // namespace
