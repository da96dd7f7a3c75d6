#include <gmock/gmock.h>

#include <random>

#include "qn_sys/sys_thread.h"
#include "support/built_surface.h"
#include "support/recorders.h"

namespace {

using sds_test::BuiltSurface;
using sds_test::ZooMesh;
using Fan = SdsMeshBase::VertexLocalTopology;
using Edges = SdsMeshBase::EdgesTopology;

void expect_equal(const Fan& a, const Fan& b, unsigned int e) {
    EXPECT_EQ(a.closed, b.closed) << e;
    EXPECT_EQ(a.first_edge, b.first_edge) << e;
    EXPECT_EQ(a.last_edge, b.last_edge) << e;
    EXPECT_EQ(a.valence, b.valence) << e;
}

unsigned int next_leaving(const Edges& edges, unsigned int h) { return sds::next_in_quad(edges.opposite_edges[h]); }

// A fan as the chain of corners it passes, from the arriving sharp edge to the leaving one.
void expect_fan_holds(const Edges& edges, const Fan& fan, unsigned int e) {
    ASSERT_GE(fan.valence, 1u);
    bool passes_e = false;
    unsigned int h = fan.first_edge;
    for (unsigned int i = 0; i < fan.valence; ++i) {
        passes_e |= h == e;
        if (i + 1 == fan.valence) break;
        ASSERT_FALSE(edges.is_sharp(h)) << "corner " << e;
        h = next_leaving(edges, h);
    }
    EXPECT_TRUE(passes_e) << e;
    const unsigned int arriving = sds::previous_in_quad(fan.first_edge);
    if (fan.closed && !edges.is_sharp(h)) {
        EXPECT_EQ(fan.first_edge, e);
        EXPECT_EQ(fan.last_edge, e);
        EXPECT_EQ(next_leaving(edges, h), e);
    } else {
        EXPECT_EQ(h, fan.last_edge) << e;
        EXPECT_TRUE(edges.is_sharp(fan.last_edge)) << e;
        EXPECT_TRUE(edges.is_sharp(arriving)) << e;
        EXPECT_EQ(fan.closed, edges.opposite_edges[fan.last_edge] == arriving) << e;
    }
}

CoreArray<Fan> all_fans(const Edges& edges, AppProgressBar* progress = nullptr) {
    CoreArray<Fan> fans(edges.opposite_edges.get_count());
    SdsMeshBase::analyse_vertices_local_topology(edges, fans, false, progress);
    return fans;
}

TEST(VertexFans, HoldOnTheZoo) {
    for (const ZooMesh& cage : sds_test::mesh_zoo()) {
        SCOPED_TRACE(cage.name);
        const BuiltSurface surface(cage);
        const Edges& edges = surface.base.get_edges();
        const CoreArray<Fan> fans = all_fans(edges);
        for (unsigned int e = 0; e < fans.get_count(); ++e) {
            expect_fan_holds(edges, fans[e], e);
            Fan alone;
            SdsMeshBase::analyse_vertex_local_topology(edges, e, alone);
            expect_equal(fans[e], alone, e);
        }
    }
}

// Any pairing of half-edges whatever, with any creases, such as non-orientable soups give: walks must end, and the
// analysis of all corners must agree with that of each.
TEST(VertexFans, EndOnRandomPairings) {
    for (unsigned int seed = 0; seed < 300; ++seed) {
        std::mt19937 random(seed);
        const unsigned int quads = 1 + seed % 40;
        Edges edges;
        edges.opposite_edges.assign(4 * quads, 0xFFFFFFFF);
        edges.quad_edge_flags.assign(quads, 0);
        std::vector<unsigned int> free;
        for (unsigned int e = 0; e < 4 * quads; ++e) free.push_back(e);
        std::shuffle(free.begin(), free.end(), random);
        while (free.size() > seed % 7 + 1) {
            const unsigned int a = free.back(), b = free[free.size() - 2];
            free.resize(free.size() - 2);
            edges.opposite_edges[a] = b;
            edges.opposite_edges[b] = a;
            if (random() % 5 != 0) continue;
            for (const unsigned int e : {a, b})
                edges.quad_edge_flags[e / 4] = static_cast<unsigned char>(edges.quad_edge_flags[e / 4] | 1u << e % 4);
        }
        SCOPED_TRACE(seed);
        const CoreArray<Fan> fans = all_fans(edges);
        for (unsigned int e = 0; e < 4 * quads; ++e) {
            expect_fan_holds(edges, fans[e], e);
            Fan alone;
            SdsMeshBase::analyse_vertex_local_topology(edges, e, alone);
            expect_equal(fans[e], alone, e);
        }
    }
}

TEST(VertexFans, RegularInteriorVertexIsAFullRing) {
    const BuiltSurface surface(sds_test::zoo_mesh("torus"));
    const CoreArray<Fan> fans = all_fans(surface.base.get_edges());
    for (unsigned int e = 0; e < fans.get_count(); ++e) expect_equal(fans[e], {true, e, e, 4}, e);
}

TEST(VertexFans, BordersBoundTheFan) {
    const BuiltSurface quad(sds_test::zoo_mesh("lone_quad"));
    const CoreArray<Fan> corners = all_fans(quad.base.get_edges());
    for (unsigned int e = 0; e < 4; ++e) expect_equal(corners[e], {false, e, e, 1}, e);

    // Quads 0 1 2 3 and 1 4 5 2: the shared vertices 1 and 2 see both quads from either corner.
    ZooMesh strip;
    strip.counts = {4, 4};
    strip.indices = {0, 1, 2, 3, 1, 4, 5, 2};
    strip.positions.assign(6, {0, 0, 0});
    strip.corner_creases.assign(8, 0);
    const BuiltSurface surface(strip);
    const CoreArray<Fan> fans = all_fans(surface.base.get_edges());
    for (const unsigned int e : {1u, 4u}) expect_equal(fans[e], {false, 1, 4, 2}, e);
    for (const unsigned int e : {2u, 7u}) expect_equal(fans[e], {false, 7, 2, 2}, e);
}

TEST(VertexFans, DartClosesOverItsOneSharpEdge) {
    for (const char* name : {"torus_dart", "sheet_dart", "cube_two_darts", "tetrahedron_dart"}) {
        SCOPED_TRACE(name);
        const BuiltSurface surface(sds_test::zoo_mesh(name));
        const SdsMeshBase& base = surface.base;
        const CoreArray<Fan> fans = all_fans(base.get_edges());
        std::vector<unsigned int> quads_at(base.get_vertex_infos().get_count(), 0);
        for (const unsigned int v : base.get_quad_indices()) ++quads_at[v];
        unsigned int darts = 0;
        for (unsigned int e = 0; e < fans.get_count(); ++e) {
            const unsigned int v = base.get_quad_indices()[e];
            if (base.get_vertex_infos()[v].get_sharp_edge_count() != 1) continue;
            ++darts;
            EXPECT_TRUE(fans[e].closed);
            EXPECT_EQ(fans[e].valence, quads_at[v]);
            EXPECT_TRUE(base.is_edge_crease(fans[e].last_edge));
            EXPECT_EQ(base.get_quad_indices()[fans[e].last_edge], v);
            EXPECT_EQ(fans[e].first_edge, next_leaving(base.get_edges(), fans[e].last_edge));
        }
        EXPECT_GT(darts, 0u);
    }
}

TEST(VertexFans, LinearRecordsAreTrivial) {
    const BuiltSurface surface(sds_test::zoo_mesh("torus"));
    CoreArray<Fan> fans(surface.base.get_quad_indices().get_count());
    SdsMeshBase::analyse_vertices_local_topology(surface.base.get_edges(), fans, true, nullptr);
    for (unsigned int e = 0; e < fans.get_count(); ++e) expect_equal(fans[e], {false, e, e, 1}, e);
}

TEST(VertexFans, ThreadedAnalysisGivesTheSameAndReportsOncePerChunk) {
    const struct {
        ZooMesh cage;
        unsigned int threads;
        unsigned int chunks;  // ceil(n / max(16, ceil(n / (4 threads)))) with n corners
    } cases[] = {
        {sds_test::zoo_mesh("lone_triangle"), 8, 1},
        {sds_test::make_torus(20, 10), 1, 4},
        {sds_test::make_torus(20, 10), 4, 16},
        {sds_test::make_torus(5, 4), 8, 5},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.cage.name);
        const BuiltSurface surface(c.cage);
        const Edges& edges = surface.base.get_edges();
        const CoreArray<Fan> expected = all_fans(edges);
        CoreArray<Fan> fans(expected.get_count());
        sds_test::RecordingProgress progress;
        SysThreadArena(c.threads).execute([&] {
            SysThreadTaskManager tasks;
            SdsMeshBase::analyse_vertices_local_topology(edges, fans, false, tasks, &progress);
        });
        for (unsigned int e = 0; e < fans.get_count(); ++e) expect_equal(fans[e], expected[e], e);
        EXPECT_EQ(progress.tasks[0].increments, c.chunks);
        EXPECT_NEAR(progress.tasks[0].shares, 1.0, 1e-5);
        EXPECT_EQ(progress.tasks[0].steps, 0u);
    }
}

TEST(VertexFans, SingleThreadReportsEveryCorner) {
    const BuiltSurface surface(sds_test::zoo_mesh("torus"));
    sds_test::RecordingProgress progress;
    const CoreArray<Fan> fans = all_fans(surface.base.get_edges(), &progress);
    EXPECT_EQ(progress.tasks[0].step_count, fans.get_count());
    EXPECT_EQ(progress.tasks[0].steps, fans.get_count());
    EXPECT_EQ(progress.tasks[0].last_step, fans.get_count());
}

// A walk per corner would be quadratic in the valence.
TEST(VertexFans, HugeValence) {
    const unsigned int n = 100000;
    const ZooMesh cage = sds_test::make_pole(n);
    SdsMeshBase base;
    base.set(static_cast<unsigned int>(cage.positions.size()), sds_test::to_core_array(cage.indices),
             sds_test::to_core_array(cage.counts),
             CoreArray<unsigned int>(static_cast<unsigned int>(cage.counts.size()), 0u), {}, nullptr);
    unsigned int at_pole = 0;
    for (const Fan& fan : all_fans(base.get_edges())) at_pole += fan.closed && fan.valence == n ? 1 : 0;
    EXPECT_EQ(at_pole, 2 * n);  // the pole and the face point of the polygon that closes it
}

}  // namespace
