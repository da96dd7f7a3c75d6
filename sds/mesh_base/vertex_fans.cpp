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

#include "qn_sys/sys_thread.h"
#include "sds/common/progress.h"
#include "sds/mesh_base/sds_mesh_base.h"
#include "sds/mesh_base/task_chunks.h"

namespace {

using EdgesTopology = SdsMeshBase::EdgesTopology;
using VertexLocalTopology = SdsMeshBase::VertexLocalTopology;

unsigned int next_around_vertex(const EdgesTopology& edges, unsigned int h) {
    return sds::next_in_quad(edges.opposite_edges[h]);
}

void set_trivial(unsigned int e, VertexLocalTopology& out) { out = {false, e, e, 1}; }

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

// Fills the entries [begin, end), each as analyse_vertex_local_topology does. A fan is walked once and written to all
// of its corners in the range, which keeps huge valences linear.
template <class AfterEntry>
void analyse_range(const EdgesTopology& edges, VertexLocalTopology* out, unsigned int begin, unsigned int end,
                   AfterEntry&& after_entry) {
    for (unsigned int e = begin; e < end; ++e) out[e].valence = 0;
    for (unsigned int e = begin; e < end; ++e) {
        if (out[e].valence == 0 && !fill_smooth_fan(edges, out, begin, end, e)) {
            VertexLocalTopology fan;
            SdsMeshBase::analyse_vertex_local_topology(edges, e, fan);
            if (fan.closed && !edges.is_sharp(fan.last_edge)) {
                unsigned int h = e;
                do {
                    if (h >= begin && h < end) out[h] = {true, h, h, fan.valence};
                    h = next_around_vertex(edges, h);
                } while (h != e);
            } else {
                for_each_in_fan(edges, e, fan, [&](unsigned int h) {
                    if (h >= begin && h < end) out[h] = fan;
                });
            }
        }
        after_entry(e);
    }
}

class AnalyseVerticesTopologyTask : public SysThreadTask {
public:
    AnalyseVerticesTopologyTask() = default;
    AnalyseVerticesTopologyTask(const EdgesTopology& edges, VertexLocalTopology* out, unsigned int begin,
                                unsigned int end, AppProgressBar* progress, float share)
        : m_edges(&edges), m_out(out), m_begin(begin), m_end(end), m_progress(progress), m_share(share) {}

    void run(const unsigned int&) override {
        analyse_range(*m_edges, m_out, m_begin, m_end, [](unsigned int) {});
        sds::progress_increment(m_progress, static_cast<float>(m_end - m_begin) * m_share);
    }

private:
    const EdgesTopology* m_edges = nullptr;
    VertexLocalTopology* m_out = nullptr;
    unsigned int m_begin = 0;
    unsigned int m_end = 0;
    AppProgressBar* m_progress = nullptr;
    float m_share = 0.0f;
};

void fill_trivial(CoreArray<VertexLocalTopology>& out, AppProgressBar* progress) {
    sds::progress_steps(progress, out.get_count());
    for (unsigned int e = 0; e < out.get_count(); ++e) {
        set_trivial(e, out[e]);
        sds::progress_step(progress, e + 1);
    }
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
                                                  const bool& linear, SysThreadTaskManager& tasks,
                                                  AppProgressBar* progress) {
    if (linear) {
        fill_trivial(out, progress);
        return;
    }
    const float share = 1.0f / static_cast<float>(out.get_count());
    sds::run_chunked<AnalyseVerticesTopologyTask>(tasks, out.get_count(), 4, [&](unsigned int begin, unsigned int end) {
        return AnalyseVerticesTopologyTask(edges, out.get_data(), begin, end, progress, share);
    });
}

void SdsMeshBase::analyse_vertices_local_topology(const EdgesTopology& edges, CoreArray<VertexLocalTopology>& out,
                                                  const bool& linear, AppProgressBar* progress) {
    if (linear) {
        fill_trivial(out, progress);
        return;
    }
    sds::progress_steps(progress, out.get_count());
    analyse_range(edges, out.get_data(), 0, out.get_count(),
                  [&](unsigned int e) { sds::progress_step(progress, e + 1); });
}
