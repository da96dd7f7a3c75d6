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
#include <algorithm>

#include "sds/mesh_base/sds_mesh_base.h"
#include "sds/mesh_base/task_chunks.h"

namespace {

using EdgesTopology = SdsMeshBase::EdgesTopology;
using VertexLocalTopology = SdsMeshBase::VertexLocalTopology;

unsigned int next_around_vertex(const EdgesTopology& edges, unsigned int h) {
    return sds::next_in_quad(edges.opposite_edges[h]);
}

// Fills what [begin, end) holds of the fan of half-edge e, and returns true, when nothing is sharp around its vertex
// and the fan is not large: nearly always.
bool fill_smooth_fan(const EdgesTopology& edges, VertexLocalTopology* out, unsigned int begin, unsigned int end,
                     unsigned int e) {
    constexpr unsigned int max_valence = 8;
    unsigned int fan[max_valence];
    unsigned int count = 0;
    for (unsigned int h = e; count == 0 || h != e; h = next_around_vertex(edges, h)) {
        if (count == max_valence || edges.is_sharp(h)) return false;
        fan[count++] = h;
    }
    for (unsigned int i = 0; i < count; ++i)
        if (fan[i] >= begin && fan[i] < end) out[fan[i]] = {true, fan[i], fan[i], count};
    return true;
}

// Calls use(h) for e and the half-edges on both sides of it whose walks meet the same ends as those of e: all corners
// of its fan, but for edges whose two sides differ.
template <class Use>
void for_each_in_fan(const EdgesTopology& edges, unsigned int e, const VertexLocalTopology& fan, Use&& use) {
    // From h over its own edge, when no walk of either direction would stop there.
    const auto is_joined = [&edges](unsigned int h) {
        const unsigned int o = edges.opposite_edges[h];
        return !edges.is_sharp(h) && !edges.is_sharp(o) && edges.opposite_edges[o] == h;
    };
    unsigned int h = e, count = 1;
    use(h);
    for (; h != fan.last_edge && count < fan.valence && is_joined(h); ++count) use(h = next_around_vertex(edges, h));
    for (h = e; h != fan.first_edge && count < fan.valence; ++count) {
        const unsigned int before = edges.opposite_edges[sds::previous_in_quad(h)];
        if (before == sds::none || !is_joined(before) || next_around_vertex(edges, before) != h) break;
        use(h = before);
    }
}

// Fills the entries of a range, each as analyse_vertex_local_topology does. A fan is walked once and written to all of
// its corners in the range, which keeps huge valences linear.
struct AnalyseVerticesTopology {
    const EdgesTopology& edges;
    VertexLocalTopology* out;

    void operator()(const sds::WorkRange& range) const {
        const auto has = [&range](unsigned int h) { return h >= range.begin && h < range.end; };
        for (unsigned int e = range.begin; e < range.end; ++e) out[e].valence = 0;
        for (unsigned int e = range.begin; e < range.end; ++e) {
            if (out[e].valence == 0 && !fill_smooth_fan(edges, out, range.begin, range.end, e)) fill_fan(e, has);
            range.step(e);
        }
    }

private:
    template <class Has>
    void fill_fan(unsigned int e, const Has& has) const {
        VertexLocalTopology fan;
        SdsMeshBase::analyse_vertex_local_topology(edges, e, fan);
        if (fan.closed && !edges.is_sharp(fan.last_edge)) {
            unsigned int h = e;
            do {
                if (has(h)) out[h] = {true, h, h, fan.valence};
                h = next_around_vertex(edges, h);
            } while (h != e);
        } else {
            for_each_in_fan(edges, e, fan, [&](unsigned int h) {
                if (has(h)) out[h] = fan;
            });
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
