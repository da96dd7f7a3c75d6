// Fans of quads around quad corners. Both moves stay on one vertex v:
//
//         next(h) = the half-edge after opposite(h)      prev(h) = the half-edge before h, which arrives at v
//
//              .-----.-----.
//              | next(h)   |         next(h) leaves v in the quad across h;
//              |  .^       |         opposite(prev(h)) leaves v in the quad on the other side.
//              .---v--h--> .
//              |   ^prev(h)|
//              .---.-------.
//
// next is a permutation of the half-edges as long as nothing is sharp, so a walk either returns to its start or ends at
// a sharp half-edge, and the walk back from there ends at the other side of the same fan. The walk forward looks at the
// half-edges that leave, the walk back at those that arrive: where the two sides of an edge differ in their flag, the
// corners of what would be one fan have different ones.
#include "sds/mesh_base/fan_filler.h"
#include "sds/mesh_base/task_chunks.h"

namespace {

using EdgesTopology = SdsMeshBase::EdgesTopology;
using VertexLocalTopology = SdsMeshBase::VertexLocalTopology;

unsigned int next_around_vertex(const EdgesTopology& edges, unsigned int h) {
    return sds::next_in_quad(edges.opposite_edges[h]);
}

struct AnalyseVerticesTopology {
    const EdgesTopology& edges;
    VertexLocalTopology* out;

    void operator()(const sds::WorkRange& range) const {
        const unsigned int first = sds::quad_of(range.begin), end = sds::quad_of(range.end);
        sds::FanFiller filler(edges, out, first, end);
        for (unsigned int q = first; q < end; ++q) {
            filler.fill(q);
            range.step_quad(q);
        }
    }
};
using AnalyseVerticesTopologyTask = sds::RangeTask<AnalyseVerticesTopology>;

void fill_trivial(CoreArray<VertexLocalTopology>& out, AppProgressBar* progress) {
    sds::for_each_entry(nullptr, out.get_count(), progress, [&out](unsigned int e) { out[e] = {false, e, e, 1}; });
}

}  // namespace

void SdsMeshBase::analyse_vertex_local_topology(const EdgesTopology& edges, const unsigned int& e,
                                                VertexLocalTopology& out) {
    unsigned int count = 1;
    unsigned int last = e;
    while (!edges.is_sharp(last)) {
        last = next_around_vertex(edges, last);
        if (last == e) {
            out = {true, e, e, count};
            return;
        }
        ++count;
    }
    unsigned int first = e;
    unsigned int steps = 0;
    while (!edges.is_sharp(sds::previous_in_quad(first))) {
        first = edges.opposite_edges[sds::previous_in_quad(first)];
        ++steps;
        if (first != e) continue;
        // All the way round: nothing that arrives is sharp. The fan is the whole ring, cut at the edge that leaves.
        if (!edges.is_border(last)) first = next_around_vertex(edges, last);
        count = 0;
        break;
    }
    count += steps;
    const unsigned int arriving = sds::previous_in_quad(first);
    out = {edges.opposite_edges[last] == arriving && edges.opposite_edges[arriving] == last, first, last, count};
}

void SdsMeshBase::analyse_vertices_local_topology(const EdgesTopology& edges, CoreArray<VertexLocalTopology>& out,
                                                  const bool& linear, SysThreadTaskManager* tasks,
                                                  AppProgressBar* progress) {
    if (linear)
        fill_trivial(out, progress);
    else
        sds::run_tasks<AnalyseVerticesTopologyTask>(tasks, out.get_count(), 4, progress, {edges, out.get_data()});
}
