#include "qn_poly/poly_neighbourhood.h"

#include <algorithm>

#include "qn_poly/poly_crease_scope.h"

namespace {

constexpr unsigned int none = 0xFFFFFFFF;

thread_local const CoreBasicArray<unsigned char>* current_creases = nullptr;

// Half of an edge, in the bucket of its lower vertex: where it goes and the face-corner it belongs to.
struct HalfEdge {
    unsigned int high;
    unsigned int corner;
};

// What the bucket under work has seen of the edge to one higher vertex.
struct EdgeSlot {
    unsigned int low = none;  // the bucket that wrote the slot
    unsigned int first = 0;
    unsigned int second = 0;  // none until the edge has two corners, first again once it has more
};

}  // namespace

PolyCreaseScope::PolyCreaseScope(const CoreBasicArray<unsigned char>& face_corner_creases)
    : m_former(current_creases), m_flags(face_corner_creases) {
    current_creases = &m_flags;
}
PolyCreaseScope::~PolyCreaseScope() { current_creases = m_former; }
const CoreBasicArray<unsigned char>* PolyCreaseScope::get_current() { return current_creases; }

void compute_polygons_neighbourhood(CoreArray<unsigned int>& neighbour_polygons,
                                    CoreArray<unsigned int>& neighbour_edges,
                                    CoreArray<unsigned char>& edge_smooth_flags,
                                    const CoreBasicArray<unsigned int>& polygon_indices,
                                    const CoreBasicArray<unsigned int>& polygon_counts,
                                    const CoreBasicArray<unsigned int>& polygon_offsets,
                                    const unsigned int& vertex_count, AppProgressBar* progress) {
    const unsigned int corner_count = polygon_indices.get_count();
    const unsigned int polygon_count = polygon_counts.get_count();
    neighbour_polygons.assign(corner_count, none);
    neighbour_edges.assign(corner_count, none);

    // Bucket sizes: edges per lower vertex. Corners of void polygons and edges from a vertex to itself stay out.
    CoreArray<unsigned int> bucket_ends(vertex_count + 1u, 0u);
    CoreArray<unsigned int> corner_polygons(corner_count);
    const unsigned int* indices = polygon_indices.get_data();
    const auto for_each_edge = [&](auto&& use) {
        for (unsigned int p = 0; p < polygon_count; ++p) {
            const unsigned int offset = polygon_offsets[p];
            const unsigned int count = polygon_counts[p];
            bool is_void = false;
            for (unsigned int j = 0; j < count; ++j) is_void |= indices[offset + j] == none;
            if (is_void) continue;
            for (unsigned int j = 0; j < count; ++j) {
                const unsigned int a = indices[offset + j];
                const unsigned int b = indices[offset + (j + 1 == count ? 0 : j + 1)];
                if (a != b) use(p, offset + j, std::min(a, b), std::max(a, b));
            }
        }
    };
    for_each_edge([&](unsigned int p, unsigned int c, unsigned int low, unsigned int) {
        corner_polygons[c] = p;
        ++bucket_ends[low + 1];
    });
    for (unsigned int v = 0; v < vertex_count; ++v) bucket_ends[v + 1] += bucket_ends[v];
    if (progress != nullptr) progress->set_value(0.3f);

    // Fill the buckets; each end then stands where the next bucket begins.
    CoreArray<HalfEdge> halves(bucket_ends[vertex_count]);
    for_each_edge([&](unsigned int, unsigned int c, unsigned int low, unsigned int high) {
        halves[bucket_ends[low]++] = {high, c};
    });
    if (progress != nullptr) progress->set_value(0.6f);

    // Pair within each bucket through one slot per higher vertex.
    CoreArray<EdgeSlot> slots(vertex_count, EdgeSlot{});
    unsigned int begin = 0;
    const auto link = [&](unsigned int c, unsigned int other) {
        neighbour_polygons[c] = corner_polygons[other];
        neighbour_edges[c] = other - polygon_offsets[corner_polygons[other]];
    };
    for (unsigned int low = 0; low < vertex_count; ++low) {
        const unsigned int end = bucket_ends[low];
        for (unsigned int i = begin; i < end; ++i) {
            const unsigned int c = halves[i].corner;
            EdgeSlot& slot = slots[halves[i].high];
            if (slot.low != low) {
                slot = {low, c, none};
            } else if (slot.second == none) {
                slot.second = c;
                link(slot.first, c);
                link(c, slot.first);
            } else if (slot.second != slot.first) {
                neighbour_polygons[slot.first] = neighbour_edges[slot.first] = none;
                neighbour_polygons[slot.second] = neighbour_edges[slot.second] = none;
                slot.second = slot.first;
            }
        }
        begin = end;
    }

    edge_smooth_flags.assign(corner_count, 1);
    if (current_creases != nullptr && current_creases->get_count() == corner_count) {
        for (unsigned int c = 0; c < corner_count; ++c) {
            if ((*current_creases)[c] == 0) continue;
            edge_smooth_flags[c] = 0;
            if (neighbour_polygons[c] != none)
                edge_smooth_flags[polygon_offsets[neighbour_polygons[c]] + neighbour_edges[c]] = 0;
        }
    }
    if (progress != nullptr) progress->set_value(1.0f);
}
