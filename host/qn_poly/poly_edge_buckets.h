// The edges of a polygon mesh by lower vertex, made by one counting sort: linear for any input.
#pragma once

#include <algorithm>

#include "qn_core/core_array.h"

// Half of an edge, in the bucket of its lower vertex: where it goes and the face-corner it belongs to.
struct PolyHalfEdge {
    unsigned int high;
    unsigned int corner;
};

class PolyEdgeBuckets {
public:
    // Sorts the edges of all polygons but those with an index 0xFFFFFFFF and edges from a vertex to itself.
    // meet(polygon, face-corner) is called for each; after_counting() in the middle of the work.
    template <class Meet, class AfterCounting>
    PolyEdgeBuckets(const unsigned int* indices, const CoreBasicArray<unsigned int>& polygon_counts,
                    unsigned int vertex_count, Meet&& meet, AfterCounting&& after_counting)
        : m_ends(vertex_count + 1u, 0u) {
        const auto for_each_edge = [&](auto&& use) {
            unsigned int offset = 0;
            for (unsigned int p = 0; p < polygon_counts.get_count(); offset += polygon_counts[p++]) {
                const unsigned int count = polygon_counts[p];
                bool is_void = false;
                for (unsigned int j = 0; j < count; ++j) is_void |= indices[offset + j] == 0xFFFFFFFF;
                if (is_void) continue;
                for (unsigned int j = 0; j < count; ++j) {
                    const unsigned int a = indices[offset + j];
                    const unsigned int b = indices[offset + (j + 1 == count ? 0 : j + 1)];
                    if (a != b) use(p, offset + j, std::min(a, b), std::max(a, b));
                }
            }
        };
        for_each_edge([&](unsigned int p, unsigned int c, unsigned int low, unsigned int) {
            meet(p, c);
            ++m_ends[low + 1];
        });
        for (unsigned int v = 0; v < vertex_count; ++v) m_ends[v + 1] += m_ends[v];
        after_counting();
        // Each end then stands where the next bucket begins.
        m_halves.resize(m_ends[vertex_count]);
        for_each_edge([&](unsigned int, unsigned int c, unsigned int low, unsigned int high) {
            m_halves[m_ends[low]++] = {high, c};
        });
    }

    // Calls visit(lower vertex, first half, end) for every vertex; halves come in the order of their face-corners.
    template <class Visit>
    void for_each_bucket(Visit&& visit) const {
        for_each_bucket(0, m_ends.get_count() - 1, visit);
    }
    // The same for the vertices first_vertex to end_vertex.
    template <class Visit>
    void for_each_bucket(unsigned int first_vertex, unsigned int end_vertex, Visit&& visit) const {
        unsigned int begin = first_vertex == 0 ? 0 : m_ends[first_vertex - 1];
        for (unsigned int low = first_vertex; low < end_vertex; ++low) {
            visit(low, m_halves.get_data() + begin, m_halves.get_data() + m_ends[low]);
            begin = m_ends[low];
        }
    }

private:
    CoreArray<unsigned int> m_ends;
    CoreArray<PolyHalfEdge> m_halves;
};
