#include <algorithm>

#include "qn_poly/poly_neighbourhood.h"
#include "sds/common/array_bytes.h"
#include "sds/common/kept_scratch.h"
#include "sds/common/listed_walks.h"
#include "sds/common/polygon_offsets.h"
#include "sds/common/progress.h"
#include "sds/mesh_base/sds_mesh_base.h"
#include "sds/mesh_base/task_chunks.h"

using sds::none;

namespace {

// What the host says of the quads' edges and only the import reads.
struct Neighbourhood {
    CoreArray<unsigned int> neighbour_edges;
    CoreArray<unsigned char> edge_smooth_flags;

    size_t get_memory_size() const { return sds::bytes_of(neighbour_edges) + sds::bytes_of(edge_smooth_flags); }
};

// Counts the quad's sharp edges at their vertices; returns its creases as bits.
unsigned int count_sharp_edges(const SdsMeshBase::EdgesTopology& edges, const CoreArray<unsigned int>& quad_indices,
                               unsigned int q, const unsigned char* smooth,
                               CoreArray<SdsMeshBase::VertexInfo>& vertex_infos) {
    unsigned int creases = 0;
    for (unsigned int k = 0; k < 4; ++k) {
        const unsigned int e = 4 * q + k;
        const unsigned int crease = smooth[k] == 0 ? 1 : 0;
        creases |= crease << k;
        const unsigned int v = quad_indices[e];
        if (v == none) continue;
        // Both ends of a border are counted here, as no quad across it counts them; of a crease only the start.
        const bool is_border = edges.is_border(e);
        vertex_infos[v].raise_sharp_edge_count(is_border | (crease != 0));
        if (!is_border) continue;
        const unsigned int end = quad_indices[sds::next_in_quad(e)];
        if (end != none) vertex_infos[end].raise_sharp_edge_count(true);
    }
    return creases;
}

// Flags of a quad without borders and creases.
constexpr unsigned char plain_quad = 0xF0;
constexpr unsigned int min_threaded_quads = 16384;

// Quads whose flags are looked at together.
constexpr unsigned int block_size = 64;

// Turns neighbor polygons, which stand in opposite_edges, into half-edges, and flags the plain quads; others get 0.
// Copies the indices on the way.
void join_neighbors(const CoreArray<unsigned int>& neighbour_edges, const CoreArray<unsigned char>& edge_smooth_flags,
                    const CoreBasicArray<unsigned int>& polygon_indices, CoreArray<unsigned int>& quad_indices,
                    SdsMeshBase::EdgesTopology& edges) {
    const auto join = [&](unsigned int q) {
        unsigned int* opposite = edges.opposite_edges.get_data() + 4 * size_t{q};
        const unsigned int* slot = neighbour_edges.get_data() + 4 * size_t{q};
        const unsigned char* smooth = edge_smooth_flags.get_data() + 4 * size_t{q};
        unsigned int is_plain = 1;
        for (unsigned int k = 0; k < 4; ++k) {
            const bool has_neighbor = opposite[k] != none;
            is_plain &= static_cast<unsigned int>(has_neighbor) & static_cast<unsigned int>(smooth[k] != 0);
            opposite[k] = has_neighbor ? 4 * opposite[k] + slot[k] : none;
        }
        edges.quad_edge_flags[q] = static_cast<unsigned char>(is_plain * plain_quad);
    };
    const auto work = [&](const sds::WorkRange& range) {
        const unsigned int first = 4 * range.begin, end = 4 * range.end;
        std::copy(polygon_indices.begin() + first, polygon_indices.begin() + end, quad_indices.begin() + first);
        for (unsigned int q = range.begin; q < range.end; ++q) join(q);
    };
    const unsigned int quad_count = edges.quad_edge_flags.get_count();
    const auto manager = quad_count >= min_threaded_quads ? std::make_unique<SysThreadTaskManager>() : nullptr;
    sds::run_tasks<sds::RangeTask<decltype(work)>>(manager.get(), quad_count, 4, nullptr, work);
}

}  // namespace

void SdsMeshBase::import_quads(const CoreBasicArray<unsigned int>& polygon_indices,
                               const CoreBasicArray<unsigned int>& polygon_counts,
                               const CoreBasicArray<unsigned int>& polygon_offsets, const unsigned int& vertex_count,
                               CoreArray<unsigned int>& quad_indices, CoreArray<VertexInfo>& vertex_infos,
                               EdgesTopology& edges, AppProgressBar* progress) {
    const unsigned int quad_count = polygon_counts.get_count();
    quad_indices.resize(0);
    quad_indices.resize(polygon_indices.get_count());
    sds::KeptScratch<Neighbourhood> scratch;
    auto& [neighbour_edges, edge_smooth_flags] = *scratch;
    {
        const sds::ProgressTask task(progress, "compute polygons neighbourhood", 0.5f);
        compute_polygons_neighbourhood(edges.opposite_edges, neighbour_edges, edge_smooth_flags, polygon_indices,
                                       polygon_counts, polygon_offsets, vertex_count, progress);
        edges.quad_edge_flags.resize(quad_count);
        join_neighbors(neighbour_edges, edge_smooth_flags, polygon_indices, quad_indices, edges);
    }

    vertex_infos.assign(vertex_count, VertexInfo{});
    const unsigned char* const smooth = edge_smooth_flags.get_data();
    const sds::ProgressTask task(progress, "compute creases", 0.5f);
    sds::progress_steps(progress, quad_count);
    for (unsigned int first = 0; first < quad_count; first += block_size) {
        const unsigned int end = std::min(first + block_size, quad_count);
        if (progress == nullptr && sds::are_all(edges.quad_edge_flags.get_data() + first, end - first, plain_quad))
            continue;
        sds::for_each_where(
            end - first, [&](unsigned int i) { return edges.quad_edge_flags[first + i] != plain_quad; },
            [&](unsigned int i) {
                const unsigned int q = first + i;
                edges.quad_edge_flags[q] = static_cast<unsigned char>(
                    plain_quad | count_sharp_edges(edges, quad_indices, q, smooth + 4 * size_t{q}, vertex_infos));
            });
        if (progress != nullptr)
            for (unsigned int q = first; q < end; ++q) progress->step(q + 1);
    }
}
