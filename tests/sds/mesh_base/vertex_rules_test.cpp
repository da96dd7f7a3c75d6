#include <gmock/gmock.h>

#include <algorithm>
#include <set>

#include "../surface_checks.h"

namespace {

using namespace sds_test;
using testing::ElementsAre;

using Rule = void (*)(const CoreBasicArray<unsigned int>&, const SdsMeshBase::EdgesTopology&,
                      CoreArray<SdsMeshBase::VertexInfo>&);

struct Quads {
    CoreArray<unsigned int> indices;
    CoreArray<SdsMeshBase::VertexInfo> infos;
    SdsMeshBase::EdgesTopology edges;

    Quads(const std::vector<unsigned int>& corners, unsigned int vertex_count) {
        const CoreArray<unsigned int> counts(static_cast<unsigned int>(corners.size()) / 4, 4u);
        CoreArray<unsigned int> offsets;
        for (unsigned int q = 0; q < counts.get_count(); ++q) offsets.add(4 * q);
        SdsMeshBase::import_quads(to_core_array(corners), counts, offsets, vertex_count, indices, infos, edges,
                                  nullptr);
    }
    std::vector<bool> fixed_by(Rule rule, bool before = false) {
        for (SdsMeshBase::VertexInfo& info : infos) info.set_fixed(before);
        rule(indices, edges, infos);
        std::vector<bool> fixed;
        for (const SdsMeshBase::VertexInfo& info : infos) fixed.push_back(info.is_fixed());
        return fixed;
    }
};

TEST(VertexRules, TouchOnlyTheFixedBitOfUsedVertices) {
    for (const Rule rule : {&SdsMeshBase::set_all_vertices_as_fixed, &SdsMeshBase::set_all_vertices_as_smoothed,
                            &SdsMeshBase::set_border_vertices_as_fixed, &SdsMeshBase::set_corner_vertices_as_fixed}) {
        Quads quads({0, 1, 2, 3, 1, 4, 5, 2, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF}, 8);
        std::vector<unsigned int> before;
        for (SdsMeshBase::VertexInfo& info : quads.infos) {
            info.bits |= 4 | 0xF0;
            before.push_back(info.bits);
        }
        rule(quads.indices, quads.edges, quads.infos);
        for (unsigned int v = 0; v < 8; ++v) EXPECT_EQ(quads.infos[v].bits & ~8u, before[v] & ~8u);
        for (const unsigned int unused : {6u, 7u}) EXPECT_EQ(quads.infos[unused].bits, before[unused]);
    }
}

TEST(VertexRules, CornersOfAStrip) {
    Quads strip({0, 1, 2, 3, 1, 4, 5, 2}, 6);
    for (const bool before : {false, true})
        EXPECT_THAT(strip.fixed_by(&SdsMeshBase::set_corner_vertices_as_fixed, before),
                    ElementsAre(true, false, false, true, true, true));
    EXPECT_THAT(strip.fixed_by(&SdsMeshBase::set_all_vertices_as_fixed), testing::Each(true));
    EXPECT_THAT(strip.fixed_by(&SdsMeshBase::set_all_vertices_as_smoothed, true), testing::Each(false));
}

// Vertex 0 is a lone corner of one quad and lies between two quads of another sheet: the last visit decides.
TEST(VertexRules, LastCornerDecidesWhereTwoSheetsTouch) {
    const std::vector<unsigned int> lone{0, 1, 2, 3};
    const std::vector<unsigned int> pair{4, 5, 6, 0, 0, 6, 7, 8};
    std::vector<unsigned int> lone_last = pair, lone_first = lone;
    lone_last.insert(lone_last.end(), lone.begin(), lone.end());
    lone_first.insert(lone_first.end(), pair.begin(), pair.end());
    EXPECT_TRUE(Quads(lone_last, 9).fixed_by(&SdsMeshBase::set_corner_vertices_as_fixed)[0]);
    EXPECT_FALSE(Quads(lone_first, 9).fixed_by(&SdsMeshBase::set_corner_vertices_as_fixed)[0]);
    EXPECT_TRUE(Quads(lone_first, 9).fixed_by(&SdsMeshBase::set_border_vertices_as_fixed)[0]);
}

// Creases are no borders: a vertex between two of them stays free, though the last quad, which decides, has nothing
// but creases.
TEST(VertexRules, CreasesFixNothing) {
    ZooMesh cage = zoo_mesh("cube");
    for (unsigned int k = 0; k < 4; ++k) cage.corner_creases[cage.corner_creases.size() - 1 - k] = 1;
    for (const auto mode :
         {SdsMeshGeometry::InterpolationMode::corners_fixed, SdsMeshGeometry::InterpolationMode::borders_fixed}) {
        const BuiltSurface surface(cage, {.mode = mode});
        EXPECT_TRUE(surface.base.is_edge_crease(4 * 5));
        for (const SdsMeshBase::VertexInfo& info : surface.geometry.get_vertex_infos()) EXPECT_FALSE(info.is_fixed());
    }
}

TEST(VertexRules, BorderRuleFixesExactlyTheVerticesOfBorders) {
    for (const ZooMesh& cage : mesh_zoo()) {
        SCOPED_TRACE(cage.name);
        const BuiltSurface surface(cage, {.mode = SdsMeshGeometry::InterpolationMode::borders_fixed});
        const SdsMeshBase& base = surface.base;
        std::vector<bool> expected(base.get_vertex_infos().get_count(), false);
        for (unsigned int e = 0; e < base.get_quad_indices().get_count(); ++e)
            if (base.is_edge_border(e))
                for (const unsigned int h : {e, sds::next_in_quad(e)}) expected[base.get_quad_indices()[h]] = true;
        for (unsigned int v = 0; v < expected.size(); ++v)
            EXPECT_EQ(surface.geometry.get_vertex_infos()[v].is_fixed(), expected[v]) << v;
    }
}

// Each polygon begun at every one of its corners in turn.
ZooMesh turn_polygons(ZooMesh cage, unsigned int corners) {
    const std::vector<unsigned int> offsets = cage.get_polygon_offsets();
    const auto turn = [&](auto& values) {
        for (size_t p = 0; p < cage.counts.size() && !values.empty(); ++p) {
            const auto first = values.begin() + offsets[p];
            std::rotate(first, first + corners % cage.counts[p], first + cage.counts[p]);
        }
    };
    turn(cage.indices);
    turn(cage.corner_creases);
    turn(cage.uv_indices);
    return cage;
}

TEST(VertexInfo, CountsTheSharpEdgesAtAVertexWhereverPolygonsBegin) {
    for (const ZooMesh& cage : mesh_zoo()) {
        if (cage.is_in(nonmanifold_edge)) continue;
        for (unsigned int corners = 0; corners < 4; ++corners) {
            SCOPED_TRACE(cage.name + " turned by " + std::to_string(corners));
            const ZooMesh turned = turn_polygons(cage, corners);
            const CageAdjacency adjacency(turned);
            std::vector<std::set<unsigned int>> ends(turned.positions.size());  // of the sharp edges at a vertex
            for (unsigned int c = 0; c < turned.indices.size(); ++c) {
                if (!adjacency.is_sharp(c)) continue;
                ends[adjacency.start[c]].insert(adjacency.end[c]);
                ends[adjacency.end[c]].insert(adjacency.start[c]);
            }
            const BuiltSurface surface(turned);
            for (unsigned int v = 0; v < ends.size(); ++v)
                EXPECT_EQ(surface.base.get_vertex_infos()[v].get_sharp_edge_count(),
                          std::min<size_t>(ends[v].size(), 3))
                    << v;
        }
    }
}

}  // namespace
