#include "qn_poly/poly_neighbourhood.h"

#include <algorithm>
#include <atomic>

#include "qn_poly/poly_corner_pairs.h"
#include "qn_poly/poly_crease_scope.h"
#include "qn_poly/poly_edge_buckets.h"
#include "qn_sys/sys_thread.h"

namespace {

constexpr unsigned int none = 0xFFFFFFFF;

// Buckets of more halves pair through slots: comparing all pairs costs the square.
constexpr std::ptrdiff_t max_compared_halves = 16;

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

// The partners of all face-corners by sorted edges: linear for any input.
void pair_by_sorting(const PolyEdgeBuckets& buckets, unsigned int vertex_count, CoreArray<unsigned int>& partners) {
    partners.assign(partners.get_count(), none);
    const auto link = [&partners](unsigned int a, unsigned int b) {
        partners[a] = b;
        partners[b] = a;
    };
    // One slot per higher vertex, for whichever bucket is at work.
    CoreArray<EdgeSlot> slots;
    buckets.for_each_bucket([&](unsigned int low, const PolyHalfEdge* half, const PolyHalfEdge* end) {
        if (end - half <= max_compared_halves) return pair_by_comparing(half, end, link);
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

constexpr unsigned int run_size = 65536;

unsigned int get_run_count(unsigned int count) { return count / run_size + (count % run_size != 0 ? 1 : 0); }

// use(first, end) for runs of run_size of [0, count), on all threads when there are many.
template <class Use>
void for_each_run(unsigned int count, const Use& use) {
    const auto use_run = [&](unsigned int i, unsigned int) {
        const unsigned int first = i * run_size;
        use(first, first + std::min(run_size, count - first));
    };
    const unsigned int run_count = get_run_count(count);
    if (run_count > 2) return sys_parallel_for(run_count, use_run);
    for (unsigned int i = 0; i < run_count; ++i) use_run(i, 0);
}

// Blocks are looked at without a branch.
bool has_only_quads(const CoreBasicArray<unsigned int>& counts) {
    std::atomic<bool> has_others{false};
    for_each_run(counts.get_count(), [&](unsigned int first, unsigned int end) {
        constexpr unsigned int block = 4096;
        for (; first < end && !has_others; first += std::min(block, end - first)) {
            unsigned int others = 0;
            for (unsigned int i = 0, size = std::min(block, end - first); i < size; ++i)
                others |= counts[first + i] ^ 4u;
            if (others != 0) has_others = true;
        }
    });
    return !has_others;
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

    const bool is_all_quads = has_only_quads(polygon_counts);
    if (progress != nullptr) progress->set_value(0.3f);
    CoreArray<unsigned int>& partners = neighbour_edges;  // at first
    if (!PolyCornerPairs::find(polygon_indices.get_data(), polygon_counts, polygon_offsets, corner_count, vertex_count,
                               is_all_quads, partners.get_data()))
        pair_by_sorting(PolyEdgeBuckets(polygon_indices.get_data(), polygon_counts, vertex_count), vertex_count,
                        partners);
    if (progress != nullptr) progress->set_value(0.6f);

    const CoreBasicArray<unsigned char>* creases = PolyCreaseScope::get_current();
    if (creases != nullptr && creases->get_count() != corner_count) creases = nullptr;
    // Runs of corners with a crease among them, which most have not.
    CoreArray<unsigned char> has_creases(get_run_count(corner_count), static_cast<unsigned char>(0));
    CoreArray<unsigned int> corner_polygons(is_all_quads ? 0 : corner_count);
    if (!is_all_quads)
        for (unsigned int p = 0, count = polygon_counts.get_count(); p < count; ++p) {
            unsigned int* const corners = corner_polygons.get_data() + polygon_offsets[p];
            if (polygon_counts[p] == 4)
                std::fill_n(corners, 4, p);
            else
                std::fill_n(corners, polygon_counts[p], p);
        }
    for_each_run(corner_count, [&](unsigned int first, unsigned int end) {
        unsigned int* const polygons = neighbour_polygons.get_data();
        unsigned int* const edges = neighbour_edges.get_data();
        const unsigned int* const offsets = polygon_offsets.get_data();
        const unsigned int* const polygon_of = corner_polygons.get_data();
        if (is_all_quads)
            for (unsigned int c = first; c < end; ++c) {
                const unsigned int partner = partners[c];
                polygons[c] = partner == none ? none : partner / 4;
                edges[c] = partner == none ? none : partner & 3u;
            }
        else
            for (unsigned int c = first; c < end; ++c) {
                const unsigned int partner = partners[c];
                polygons[c] = partner == none ? none : polygon_of[partner];
                edges[c] = partner == none ? none : partner - offsets[polygons[c]];
            }
        std::fill(edge_smooth_flags.begin() + first, edge_smooth_flags.begin() + end, static_cast<unsigned char>(1));
        unsigned char bits = 0;
        if (creases != nullptr)
            for (unsigned int c = first; c < end; ++c) bits |= (*creases)[c];
        has_creases[first / run_size] = bits;
    });

    for (unsigned int run = 0; run < has_creases.get_count(); ++run) {
        if (has_creases[run] == 0) continue;
        const unsigned int first = run * run_size, end = first + std::min(run_size, corner_count - first);
        // Listed first, since which corners have creases is hard to foretell.
        constexpr unsigned int block = 64;
        unsigned int sharp[block];
        for (unsigned int c = first; c < end;) {
            unsigned int count = 0;
            for (const unsigned int block_end = std::min(c + block, end); c < block_end; ++c) {
                sharp[count] = c;
                count += (*creases)[c] != 0 ? 1 : 0;
            }
            for (unsigned int i = 0; i < count; ++i) {
                const unsigned int polygon = neighbour_polygons[sharp[i]];
                edge_smooth_flags[sharp[i]] = 0;
                if (polygon != none) edge_smooth_flags[polygon_offsets[polygon] + neighbour_edges[sharp[i]]] = 0;
            }
        }
    }
    if (progress != nullptr) progress->set_value(1.0f);
}
