#include <gmock/gmock.h>

#include <cstring>
#include <random>

#include "../surface_checks.h"
#include "qn_sys/sys_thread.h"

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

CoreArray<Fan> all_fans(const Edges& edges) {
    CoreArray<Fan> fans(edges.opposite_edges.get_count());
    SdsMeshBase::analyse_vertices_local_topology(edges, fans, false, nullptr);
    return fans;
}

// Fans, tangent infos and patches in one pass over the quads against one step after the other.
void expect_steps(const Edges& edges, const CoreArray<Fan>& fans, SysThreadTaskManager* tasks) {
    const unsigned int edge_count = fans.get_count(), quad_count = edge_count / 4;
    CoreArray<unsigned int> vertices(edge_count);
    for (unsigned int e = 0; e < edge_count; ++e) vertices[e] = e % 29 == 28 ? 0xFFFFFFFF : e;
    CoreArray<SdsMeshBase::PatchTangentInfo> infos(quad_count, {}), expected_infos(quad_count, {});
    CoreArray<SdsMeshBase::BezierPatch> patches(quad_count), expected(quad_count);
    CoreArray<Fan> found(edge_count);
    CoreArray<unsigned int> first_edges(edge_count);
    const SdsMeshBase::SurfaceTopology topology =
        SdsMeshBase::compute_surface_topology({&vertices, nullptr, found.get_data(), nullptr, &edges, nullptr}, found,
                                              infos, patches, first_edges, tasks, nullptr);
    EXPECT_EQ(topology.tangent_count, SdsMeshBase::compute_tangent_infos(quad_count, fans.get_data(),
                                                                         expected_infos.get_data(), false, nullptr));
    EXPECT_EQ(SdsMeshBase::assign_tangent_offsets(quad_count, infos.get_data()), topology.tangent_count);
    EXPECT_EQ(topology.has_great_fans,
              std::any_of(fans.begin(), fans.end(), [](const Fan& fan) { return fan.valence > 32; }));
    SdsMeshBase::compute_bezier_topology({&vertices, nullptr, fans.get_data(), nullptr, &edges, nullptr}, expected,
                                         nullptr);
    for (unsigned int e = 0; e < edge_count; ++e) {
        expect_equal(found[e], fans[e], e);
        EXPECT_EQ(first_edges[e], vertices[e]) << "each leaves a vertex of its own";
    }
    EXPECT_EQ(std::memcmp(infos.get_data(), expected_infos.get_data(), sizeof(infos[0]) * quad_count), 0);
    EXPECT_EQ(std::memcmp(patches.get_data(), expected.get_data(), sizeof(patches[0]) * quad_count), 0);
}

// The analysis of all corners at once, on threads, and of each alone.
void expect_walks(const Edges& edges, SysThreadTaskManager& tasks) {
    const CoreArray<Fan> fans = all_fans(edges);
    CoreArray<Fan> threaded(fans.get_count());
    SdsMeshBase::analyse_vertices_local_topology(edges, threaded, false, tasks, nullptr);
    for (unsigned int e = 0; e < fans.get_count(); ++e) {
        Fan alone;
        SdsMeshBase::analyse_vertex_local_topology(edges, e, alone);
        for (const Fan& fan : {fans[e], threaded[e], alone}) expect_equal(fan, walk(edges, e), e);
    }
    expect_steps(edges, fans, nullptr);
    expect_steps(edges, fans, &tasks);
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
        const bool is_plain = seed < cages.size();
        for (unsigned char& flags : edges.quad_edge_flags)
            for (unsigned int k = 0; k < 4; ++k)
                if (!is_plain && random() % rarity == 0) flags = static_cast<unsigned char>(flags ^ 1u << k);
        expect_walks(edges, tasks);
    }
}

// Any pairing of half-edges whatever, with any creases, such as non-orientable soups give: walks must end, and the
// analysis of all corners must agree with that of each.
TEST(VertexFans, EndOnRandomPairings) {
    SysThreadTaskManager tasks;
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
        expect_walks(edges, tasks);
    }
}

}  // namespace
