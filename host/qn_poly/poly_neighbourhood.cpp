#include "qn_poly/poly_neighbourhood.h"

#include "qn_poly/poly_crease_scope.h"
#include "qn_poly/poly_edge_buckets.h"

namespace {

constexpr unsigned int none = 0xFFFFFFFF;

thread_local const CoreBasicArray<unsigned char>* current_creases = nullptr;

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
    neighbour_polygons.assign(corner_count, none);
    neighbour_edges.assign(corner_count, none);

    CoreArray<unsigned int> corner_polygons(corner_count);
    const PolyEdgeBuckets buckets(
        polygon_indices.get_data(), polygon_counts, vertex_count,
        [&corner_polygons](unsigned int p, unsigned int c) { corner_polygons[c] = p; },
        [progress] {
            if (progress != nullptr) progress->set_value(0.3f);
        });
    if (progress != nullptr) progress->set_value(0.6f);

    // Pair within each bucket through one slot per higher vertex.
    CoreArray<EdgeSlot> slots(vertex_count, EdgeSlot{});
    const auto link = [&](unsigned int c, unsigned int other) {
        neighbour_polygons[c] = corner_polygons[other];
        neighbour_edges[c] = other - polygon_offsets[corner_polygons[other]];
    };
    buckets.for_each_bucket([&](unsigned int low, const PolyHalfEdge* half, const PolyHalfEdge* end) {
        for (; half != end; ++half) {
            const unsigned int c = half->corner;
            EdgeSlot& slot = slots[half->high];
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
    });

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
