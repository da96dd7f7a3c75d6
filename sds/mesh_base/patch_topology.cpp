#include <algorithm>
#include <atomic>

#include "sds/common/progress.h"
#include "sds/mesh_base/fan_filler.h"
#include "sds/mesh_base/fan_weights.h"
#include "sds/mesh_base/task_chunks.h"

using sds::none;

void SdsMeshBase::compute_bezier_topology(const TopologyContext& context, const unsigned int& q, BezierPatch& patch) {
    const EdgesTopology& edges = *context.edges;
    const unsigned int* quad_indices = context.quad_indices->get_data();
    patch.sharp_edges = 0;
    for (unsigned int k = 0; k < 4; ++k) {
        const unsigned int e = 4 * q + k;
        const unsigned int o = edges.opposite_edges[e];
        patch.neighbour_vertices[2 * k] = o == none ? none : quad_indices[sds::turn_in_quad(o, 2)];
        patch.neighbour_vertices[2 * k + 1] = o == none ? none : quad_indices[sds::turn_in_quad(o, 3)];
        const VertexLocalTopology& fan = context.local_topologies[e];
        const auto n = static_cast<float>(fan.valence);
        patch.edge_weights[k] = fan.closed ? n + n : 4.0f * n;
        patch.corner_weights[k] = fan.closed ? n : std::max(4.0f, n + n);
        // A void neighbor that lacks one of the two gives the edge nothing to join.
        const bool is_joined = patch.neighbour_vertices[2 * k] != none && patch.neighbour_vertices[2 * k + 1] != none;
        if (!is_joined || edges.is_sharp(e)) patch.sharp_edges |= 1u << k;
    }
}

void SdsMeshBase::compute_bezier_topology(const TopologyContext& context, CoreArray<BezierPatch>& patches,
                                          SysThreadTaskManager* tasks, AppProgressBar* progress) {
    sds::for_each_entry(tasks, patches.get_count(), progress,
                        [&](unsigned int q) { compute_bezier_topology(context, q, patches[q]); });
}

namespace {

// A quad's irregular corners (bits 0-3) and edges (bits 4-7).
unsigned int find_irregular(const SdsMeshBase::VertexLocalTopology* fans) {
    unsigned int bits = 0;
    for (unsigned int k = 0; k < 4; ++k) {
        // A dart is irregular at any valence: the sharp edge that ends there bends its patches. Without branches, since
        // which corners are is hard to foretell.
        const bool is_dart = fans[k].first_edge != fans[k].last_edge;
        bits |= (static_cast<unsigned int>(!fans[k].closed) | static_cast<unsigned int>(fans[k].valence != 4) |
                 static_cast<unsigned int>(is_dart))
                << k;
    }
    // An irregular corner makes the edges on both of its sides irregular.
    const unsigned int next = bits >> 1 | bits << 3;
    return bits | (bits | (next & 15u)) << 4;
}

constexpr unsigned char bit_counts[16] = {0, 1, 1, 2, 1, 2, 2, 3, 1, 2, 2, 3, 2, 3, 3, 4};

// Two vectors for each irregular corner and edge.
unsigned int count_tangents(unsigned int irregular) {
    return 2u * (bit_counts[irregular & 15u] + bit_counts[(irregular >> 4) & 15u]);
}

}  // namespace

unsigned int SdsMeshBase::assign_tangent_offsets(const unsigned int& quad_count, PatchTangentInfo* infos) {
    unsigned int total = 0;
    for (unsigned int q = 0; q < quad_count; ++q) {
        infos[q].tangent_offset = total;
        total += count_tangents(infos[q].irregular);
    }
    return total;
}

unsigned int SdsMeshBase::compute_tangent_infos(const unsigned int& quad_count, const VertexLocalTopology* topologies,
                                                PatchTangentInfo* infos, const bool& linear,
                                                SysThreadTaskManager* tasks, AppProgressBar* progress) {
    sds::for_each_entry(tasks, quad_count, progress, [&](unsigned int q) {
        infos[q].irregular = (infos[q].irregular & ~0xFFu) | (linear ? 0u : find_irregular(topologies + 4 * size_t{q}));
    });
    return assign_tangent_offsets(quad_count, infos);
}

namespace {

// compute_bezier_topology for a quad whose corners lie inside smooth fans of four. False beside void quads.
bool compute_regular_topology(const unsigned int* quad_indices, const unsigned int* opposite_edges, unsigned int q,
                              SdsMeshBase::BezierPatch& patch) {
    const unsigned int* const opposite = opposite_edges + 4 * size_t{q};
    unsigned int all = 0;
    for (unsigned int k = 0; k < 4; ++k) {
        const unsigned int* const across = quad_indices + (opposite[k] & ~3u);
        const unsigned int start = across[(opposite[k] + 2) & 3u], end = across[(opposite[k] + 3) & 3u];
        patch.neighbour_vertices[2 * k] = start;
        patch.neighbour_vertices[2 * k + 1] = end;
        all |= start | end;
        patch.edge_weights[k] = 8.0f;
        patch.corner_weights[k] = 4.0f;
    }
    patch.sharp_edges = 0;
    return all >> 31 == 0;  // what is none has the highest bit, and hardly anything else
}

}  // namespace

void SdsMeshBase::find_first_edges(const CoreBasicArray<unsigned int>& quad_indices,
                                   CoreArray<unsigned int>& first_edges) {
    std::fill(first_edges.begin(), first_edges.end(), none);
    // The last one written is the least.
    for (unsigned int first = quad_indices.get_count(); first != 0;) {
        first -= 4;
        const unsigned int* const quad = quad_indices.get_data() + first;
        const bool is_void = sds::is_void_quad(quad);
        for (unsigned int k = 4; k-- > 0;)
            if (!is_void || quad[k] != none) first_edges[quad[k]] = first + k;
    }
}

SdsMeshBase::SurfaceTopology SdsMeshBase::compute_surface_topology(
    const TopologyContext& context, CoreArray<VertexLocalTopology>& fans, CoreArray<PatchTangentInfo>& infos,
    CoreArray<BezierPatch>& patches, CoreArray<unsigned int>& first_edges, SysThreadTaskManager* tasks,
    AppProgressBar* progress) {
    const unsigned int quad_count = context.quad_indices->get_count() / 4;
    const unsigned int* const quads = context.quad_indices->get_data();
    const unsigned int* const opposite = context.edges->opposite_edges.get_data();
    std::atomic<unsigned int> tangent_count{0};
    std::atomic<bool> has_great_fans{false};
    const auto work = [&](const sds::WorkRange& range) {
        const unsigned int first = sds::quad_of(range.begin), end = sds::quad_of(range.end);
        sds::FanFiller filler(*context.edges, fans.get_data(), first, end);
        unsigned int count = 0, max_valence = 0;
        for (unsigned int q = first; q < end; ++q) {
            if (filler.fill(q)) {
                infos[q].irregular = 0;
                if (!compute_regular_topology(quads, opposite, q, patches[q]))
                    compute_bezier_topology(context, q, patches[q]);
            } else {
                const VertexLocalTopology* const corners = fans.get_data() + 4 * size_t{q};
                infos[q].irregular = find_irregular(corners);
                count += count_tangents(infos[q].irregular);
                for (unsigned int k = 0; k < 4; ++k) max_valence = std::max(max_valence, corners[k].valence);
                compute_bezier_topology(context, q, patches[q]);
            }
            range.step_quad(q);
        }
        tangent_count += count;
        if (max_valence > sds::max_summed_valence) has_great_fans = true;
    };
    sds::run_tasks<sds::RangeTask<decltype(work)>>(tasks, 4 * quad_count, sds::tasks_per_thread(quad_count), progress,
                                                   work, [&] { find_first_edges(*context.quad_indices, first_edges); });
    return {tangent_count, has_great_fans};
}
