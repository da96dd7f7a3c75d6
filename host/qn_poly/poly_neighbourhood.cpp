#include "qn_poly/poly_neighbourhood.h"

#include <algorithm>
#include <cstdint>

#include "qn_poly/poly_crease_scope.h"
#include "qn_poly/poly_edge_buckets.h"
#include "qn_sys/sys_thread.h"

namespace {

constexpr unsigned int none = 0xFFFFFFFF;

// Buckets of more halves pair through slots: comparing all pairs costs the square.
constexpr std::ptrdiff_t max_compared_halves = 16;
constexpr unsigned int vertices_per_task = 16384;

// What the bucket under work has seen of the edge to one higher vertex.
struct EdgeSlot {
    unsigned int low = none;  // the bucket that wrote the slot
    unsigned int first = 0;
    unsigned int second = 0;  // none until the edge has two corners, first again once it has more
};

// link(a, b) for the two halves of every edge that has just two.
template <class Link>
void pair_by_comparing(const PolyHalfEdge* begin, const PolyHalfEdge* end, const Link& link) {
    unsigned int seen = 0;  // bits of the halves whose edge has come up
    const auto count = static_cast<unsigned int>(end - begin);
    for (unsigned int i = 0; i < count; ++i) {
        if (((seen >> i) & 1u) != 0) continue;
        unsigned int partners = 0, partner = 0;
        for (unsigned int j = i + 1; j < count; ++j) {
            const bool is_same = begin[j].high == begin[i].high;
            partners += is_same ? 1u : 0u;
            partner = is_same ? j : partner;
            seen |= (is_same ? 1u : 0u) << j;
        }
        if (partners == 1) link(begin[i].corner, begin[partner].corner);
    }
}

// Links the halves of every edge that has just two. Buckets are apart, so that many may be paired at once.
template <class Link>
void pair_halves(const PolyEdgeBuckets& buckets, unsigned int vertex_count, const Link& link) {
    const unsigned int tasks = vertex_count / vertices_per_task + 1;
    const auto pair_range = [&](unsigned int task, unsigned int) {
        const unsigned int first = task * vertices_per_task;
        const unsigned int last = vertex_count - first < vertices_per_task ? vertex_count : first + vertices_per_task;
        buckets.for_each_bucket(first, last, [&](unsigned int, const PolyHalfEdge* begin, const PolyHalfEdge* end) {
            if (end - begin <= max_compared_halves) pair_by_comparing(begin, end, link);
        });
    };
    if (tasks == 1)
        pair_range(0, 0);
    else
        sys_parallel_for(tasks, pair_range);

    // One slot per higher vertex, for whichever bucket is at work.
    CoreArray<EdgeSlot> slots;
    buckets.for_each_bucket([&](unsigned int low, const PolyHalfEdge* half, const PolyHalfEdge* end) {
        if (end - half <= max_compared_halves) return;
        if (slots.is_empty()) slots.resize(vertex_count);
        const PolyHalfEdge* const begin = half;
        for (; half != end; ++half) {
            EdgeSlot& slot = slots[half->high];
            if (slot.low != low)
                slot = {low, half->corner, none};
            else
                slot.second = slot.second == none ? half->corner : slot.first;
        }
        for (half = begin; half != end; ++half) {
            const EdgeSlot& slot = slots[half->high];
            if (slot.first == half->corner && slot.second != none && slot.second != slot.first)
                link(slot.first, slot.second);
        }
    });
}

// One slice on a small mesh, a few of them, as even as can be, on large ones and many threads.
CoreArray<PolySlice> make_slices(unsigned int polygon_count, const CoreBasicArray<unsigned int>& polygon_offsets,
                                 unsigned int corner_count) {
    constexpr unsigned int max_slice_count = 8, min_slice_size = 65536;
    const unsigned int most = std::min(max_slice_count, corner_count / min_slice_size);
    const unsigned int count = most < 2 ? 1 : std::min(most, SysThreadTaskManager().get_thread_count());
    CoreArray<PolySlice> slices;
    const auto corner_of = [&](unsigned int p) { return p < polygon_count ? polygon_offsets[p] : corner_count; };
    for (unsigned int s = 0, first = 0; s < count; ++s) {
        const auto end = static_cast<unsigned int>(std::uint64_t{polygon_count} * (s + 1) / count);
        slices.add({first, end, corner_of(first), corner_of(end)});
        first = end;
    }
    return slices;
}

}  // namespace

void compute_polygons_neighbourhood(CoreArray<unsigned int>& neighbour_polygons,
                                    CoreArray<unsigned int>& neighbour_edges,
                                    CoreArray<unsigned char>& edge_smooth_flags,
                                    const CoreBasicArray<unsigned int>& polygon_indices,
                                    const CoreBasicArray<unsigned int>& polygon_counts,
                                    const CoreBasicArray<unsigned int>& polygon_offsets,
                                    const unsigned int& vertex_count, AppProgressBar* progress) {
    const unsigned int corner_count = polygon_indices.get_count();
    neighbour_polygons.resize(corner_count);
    neighbour_edges.resize(corner_count);
    edge_smooth_flags.resize(corner_count);

    const bool is_all_quads =
        std::all_of(polygon_counts.begin(), polygon_counts.end(), [](unsigned int count) { return count == 4; });
    CoreArray<unsigned int> corner_polygons(is_all_quads ? 0 : corner_count);
    const PolyEdgeBuckets buckets(
        polygon_indices.get_data(), polygon_counts, vertex_count,
        make_slices(polygon_counts.get_count(), polygon_offsets, corner_count),
        [&](const PolySlice& slice) {
            const unsigned int first = slice.first_corner, count = slice.end_corner - first;
            std::fill_n(neighbour_polygons.get_data() + first, count, none);
            std::fill_n(neighbour_edges.get_data() + first, count, none);
            std::fill_n(edge_smooth_flags.get_data() + first, count, static_cast<unsigned char>(1));
            if (is_all_quads) return;
            for (unsigned int p = slice.first_polygon; p < slice.end_polygon; ++p)
                std::fill_n(corner_polygons.get_data() + polygon_offsets[p], polygon_counts[p], p);
        },
        [progress] {
            if (progress != nullptr) progress->set_value(0.3f);
        });
    if (progress != nullptr) progress->set_value(0.6f);

    const auto link_by = [&](const auto& polygon_of) {
        pair_halves(buckets, vertex_count, [&](unsigned int a, unsigned int b) {
            const unsigned int polygon_a = polygon_of(a), polygon_b = polygon_of(b);
            neighbour_polygons[a] = polygon_b;
            neighbour_edges[a] = b - polygon_offsets[polygon_b];
            neighbour_polygons[b] = polygon_a;
            neighbour_edges[b] = a - polygon_offsets[polygon_a];
        });
    };
    if (is_all_quads)
        link_by([](unsigned int corner) { return corner / 4; });
    else
        link_by([&](unsigned int corner) { return corner_polygons[corner]; });

    const CoreBasicArray<unsigned char>* const creases = PolyCreaseScope::get_current();
    if (creases != nullptr && creases->get_count() == corner_count) {
        for (unsigned int c = 0; c < corner_count; ++c) {
            if ((*creases)[c] == 0) continue;
            edge_smooth_flags[c] = 0;
            if (neighbour_polygons[c] != none)
                edge_smooth_flags[polygon_offsets[neighbour_polygons[c]] + neighbour_edges[c]] = 0;
        }
    }
    if (progress != nullptr) progress->set_value(1.0f);
}
