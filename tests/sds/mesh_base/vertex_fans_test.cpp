#include <gmock/gmock.h>

#include <random>

#include "../surface_checks.h"
#include "qn_sys/sys_thread.h"
#include "support/recorders.h"

namespace {

using namespace sds_test;
using Fan = SdsMeshBase::VertexLocalTopology;
using Edges = SdsMeshBase::EdgesTopology;

void expect_equal(const Fan& a, const Fan& b, unsigned int e) {
    EXPECT_EQ(a.closed, b.closed) << e;
    EXPECT_EQ(a.first_edge, b.first_edge) << e;
    EXPECT_EQ(a.last_edge, b.last_edge) << e;
    EXPECT_EQ(a.valence, b.valence) << e;
}

unsigned int next_leaving(const Edges& edges, unsigned int h) { return sds::next_in_quad(edges.opposite_edges[h]); }

// What the walks of a corner meet, step by step: forward to the first sharp half-edge that leaves, back to the first
// sharp one that arrives. Where nothing arrives sharp the fan is the ring, cut at the edge that leaves.
Fan walk(const Edges& edges, unsigned int e) {
    std::vector<unsigned int> ahead{e}, behind;
    while (!edges.is_sharp(ahead.back())) {
        const unsigned int h = next_leaving(edges, ahead.back());
        if (h == e) return {true, e, e, static_cast<unsigned int>(ahead.size())};
        ahead.push_back(h);
    }
    const unsigned int last = ahead.back();
    unsigned int first = e;
    while (!edges.is_sharp(sds::previous_in_quad(first))) {
        first = edges.opposite_edges[sds::previous_in_quad(first)];
        behind.push_back(first);
        if (first == e) return {true, next_leaving(edges, last), last, static_cast<unsigned int>(behind.size())};
    }
    return {edges.opposite_edges[last] == sds::previous_in_quad(first), first, last,
            static_cast<unsigned int>(ahead.size() + behind.size())};
}

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

// The analysis of all corners at once, and of each alone.
void expect_fans_hold(const Edges& edges) {
    const CoreArray<Fan> fans = all_fans(edges);
    for (unsigned int e = 0; e < fans.get_count(); ++e) {
        expect_fan_holds(edges, fans[e], e);
        Fan alone;
        SdsMeshBase::analyse_vertex_local_topology(edges, e, alone);
        expect_equal(fans[e], alone, e);
    }
}

TEST(VertexFans, HoldOnTheZoo) {
    for (const ZooMesh& cage : mesh_zoo()) {
        SCOPED_TRACE(cage.name);
        expect_fans_hold(BuiltSurface(cage).base.get_edges());
    }
}

void expect_walks(const Edges& edges, SysThreadTaskManager& tasks) {
    const CoreArray<Fan> fans = all_fans(edges);
    CoreArray<Fan> threaded(fans.get_count());
    SdsMeshBase::analyse_vertices_local_topology(edges, threaded, false, tasks, nullptr);
    for (unsigned int e = 0; e < fans.get_count(); ++e) {
        Fan alone;
        SdsMeshBase::analyse_vertex_local_topology(edges, e, alone);
        for (const Fan& fan : {fans[e], threaded[e], alone}) expect_equal(fan, walk(edges, e), e);
    }
}

// A crease flag on one side of an edge only ends the walks of one direction: corners that lie in one fan for some do
// not for others.
TEST(VertexFans, OneSidedFlags) {
    SysThreadTaskManager tasks;
    Edges edges = BuiltSurface(zoo_mesh("cube")).base.get_edges();
    edges.quad_edge_flags[2] |= 2;
    expect_walks(edges, tasks);
    // At the vertex that the flagged half-edge leaves its fan ends as at a dart; at the other it is not seen.
    const unsigned int flagged = 4 * 2 + 1, beyond = edges.opposite_edges[flagged];
    Fan fan;
    SdsMeshBase::analyse_vertex_local_topology(edges, next_leaving(edges, flagged), fan);
    expect_equal(fan, {true, next_leaving(edges, flagged), flagged, 3}, flagged);
    SdsMeshBase::analyse_vertex_local_topology(edges, beyond, fan);
    expect_equal(fan, {true, beyond, beyond, 3}, beyond);

    std::vector<ZooMesh> cages = mesh_zoo();
    cages.push_back(make_torus(8, 7));
    for (unsigned int seed = 0; seed < 40 * cages.size(); ++seed) {
        const ZooMesh& cage = cages[seed % cages.size()];
        if (cage.counts.size() > 400) continue;
        SCOPED_TRACE(cage.name + " " + std::to_string(seed));
        edges = BuiltSurface(cage).base.get_edges();
        std::mt19937 random(seed);
        const unsigned int rarity = 2 + seed % 23;
        for (unsigned char& flags : edges.quad_edge_flags)
            for (unsigned int k = 0; k < 4; ++k)
                if (random() % rarity == 0) flags = static_cast<unsigned char>(flags ^ 1u << k);
        expect_walks(edges, tasks);
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
        expect_fans_hold(edges);
    }
}

TEST(VertexFans, ThreadsGiveTheSameAndReportOncePerChunk) {
    const struct {
        ZooMesh cage;
        unsigned int threads;
        unsigned int chunks;  // ceil(n / max(16, ceil(n / (4 threads)))) with n corners
    } cases[] = {
        {zoo_mesh("lone_triangle"), 8, 1},
        {make_torus(20, 10), 1, 4},
        {make_torus(20, 10), 4, 16},
        {make_torus(5, 4), 8, 5},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.cage.name);
        const BuiltSurface surface(c.cage);
        const Edges& edges = surface.base.get_edges();
        RecordingProgress alone, progress;
        const CoreArray<Fan> expected = all_fans(edges, &alone);
        for (const unsigned int steps : {alone.tasks[0].step_count, alone.tasks[0].steps, alone.tasks[0].last_step})
            EXPECT_EQ(steps, expected.get_count());
        CoreArray<Fan> fans(expected.get_count());
        SysThreadArena(c.threads).execute([&] {
            SysThreadTaskManager tasks;
            SdsMeshBase::analyse_vertices_local_topology(edges, fans, false, tasks, &progress);
        });
        for (unsigned int e = 0; e < fans.get_count(); ++e) expect_equal(fans[e], expected[e], e);
        EXPECT_EQ(progress.tasks[0].increments, c.chunks);
        EXPECT_NEAR(progress.tasks[0].shares, 1.0, 1e-5);
        EXPECT_EQ(progress.tasks[0].steps, 0u);
        SdsMeshBase::analyse_vertices_local_topology(edges, fans, true, nullptr);
        for (unsigned int e = 0; e < fans.get_count(); ++e) expect_equal(fans[e], {false, e, e, 1}, e);
    }
}

// A walk per corner would be quadratic in the valence.
TEST(VertexFans, HugeValence) {
    const unsigned int n = 100000;
    SdsMeshBase base;
    set_base(base, make_pole(n));
    unsigned int at_pole = 0;
    for (const Fan& fan : all_fans(base.get_edges())) at_pole += fan.closed && fan.valence == n ? 1 : 0;
    EXPECT_EQ(at_pole, 2 * n);  // the pole and the face point of the polygon that closes it
}

}  // namespace
