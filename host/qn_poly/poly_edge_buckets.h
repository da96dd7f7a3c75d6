// The edges of a polygon mesh by lower vertex, made by one counting sort: linear for any input.
#pragma once

#include <algorithm>
#include <span>

#include "qn_core/core_array.h"
#include "qn_sys/sys_thread.h"

// Half of an edge, in the bucket of its lower vertex: where it goes and the face-corner it belongs to.
struct PolyHalfEdge {
    unsigned int high;
    unsigned int corner;
};

// A run of a mesh's polygons and of their face-corners.
struct PolySlice {
    unsigned int first_polygon, end_polygon;
    unsigned int first_corner, end_corner;
};

class PolyEdgeBuckets {
public:
    // Sorts the edges of all polygons but those with an index 0xFFFFFFFF and edges from a vertex to itself.
    PolyEdgeBuckets(const unsigned int* indices, const CoreBasicArray<unsigned int>& polygon_counts,
                    unsigned int vertex_count)
        : PolyEdgeBuckets(
              indices, polygon_counts, vertex_count, CoreArray<PolySlice>(1, {0, polygon_counts.get_count(), 0, 0}),
              [](const PolySlice&) {}, [] {}) {}
    // The same by slices that make up the mesh in order, which may all be at work at once; each counts in an array of
    // its own, of one number per vertex. meet(slice) is called before a slice is counted, after_counting() in the
    // middle of the work.
    template <class Meet, class AfterCounting>
    PolyEdgeBuckets(const unsigned int* indices, const CoreBasicArray<unsigned int>& polygon_counts,
                    unsigned int vertex_count, const CoreBasicArray<PolySlice>& slices, const Meet& meet,
                    const AfterCounting& after_counting) {
        const unsigned int slice_count = slices.get_count();
        // Of every slice: how many halves each bucket gets from it, then where the next of them goes.
        CoreArray<CoreArray<unsigned int>> places(slice_count);
        for_each(slice_count, [&](unsigned int s) {
            meet(slices[s]);
            places[s].assign(vertex_count, 0u);
            unsigned int* counts = places[s].get_data();
            for_each_side(indices, polygon_counts, slices[s],
                          [counts](unsigned int, unsigned int low, unsigned int) { ++counts[low]; });
        });
        m_halves.resize(set_places(places, vertex_count));
        after_counting();
        for_each(slice_count, [&](unsigned int s) {
            unsigned int* next = places[s].get_data();
            for_each_side(indices, polygon_counts, slices[s],
                          [&, next](unsigned int corner, unsigned int low, unsigned int high) {
                              m_halves[next[low]++] = {high, corner};
                          });
        });
        // The last slice's places stand where the next bucket begins.
        if (slice_count != 0) m_ends.swap(places[slice_count - 1]);
    }

    // Calls visit(lower vertex, first half, end) for every vertex; halves come in the order of their face-corners.
    template <class Visit>
    void for_each_bucket(Visit&& visit) const {
        for_each_bucket(0, m_ends.get_count(), visit);
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

    // Orders the halves of every bucket by higher vertex, then by face-corner, which for_each_edge and find need.
    void sort() {
        for_each_bucket([this](unsigned int, const PolyHalfEdge* begin, const PolyHalfEdge* end) {
            PolyHalfEdge* first = m_halves.get_data() + (begin - m_halves.get_data());
            std::sort(first, first + (end - begin), [](const PolyHalfEdge& a, const PolyHalfEdge& b) {
                return a.high != b.high ? a.high < b.high : a.corner < b.corner;
            });
        });
    }

    // Calls visit(lower vertex, halves) once per edge: its sides in the order of their face-corners.
    template <class Visit>
    void for_each_edge(Visit&& visit) const {
        for_each_bucket([&visit](unsigned int low, const PolyHalfEdge* half, const PolyHalfEdge* end) {
            while (half != end) {
                const PolyHalfEdge* const first = half;
                while (half != end && half->high == first->high) ++half;
                visit(low, std::span(first, half));
            }
        });
    }

    // The sides of the edge between two vertices, in either direction; none where no polygon has it.
    std::span<const PolyHalfEdge> find(unsigned int a, unsigned int b) const {
        const auto [low, high] = std::minmax(a, b);
        if (low >= m_ends.get_count()) return {};
        const PolyHalfEdge* const halves = m_halves.get_data();
        const auto sides =
            std::equal_range(halves + (low == 0 ? 0 : m_ends[low - 1]), halves + m_ends[low], PolyHalfEdge{high, 0},
                             [](const PolyHalfEdge& x, const PolyHalfEdge& y) { return x.high < y.high; });
        return {sides.first, sides.second};
    }

private:
    template <class Body>
    static void for_each(unsigned int count, Body&& body) {
        if (count == 1)
            body(0);
        else
            sys_parallel_for(count, [&](unsigned int i, unsigned int) { body(i); });
    }

    // use(face-corner, lower vertex, higher vertex).
    template <class Use>
    static void for_each_side(const unsigned int* indices, const CoreBasicArray<unsigned int>& polygon_counts,
                              const PolySlice& slice, Use&& use) {
        unsigned int offset = slice.first_corner;
        for (unsigned int p = slice.first_polygon; p < slice.end_polygon; offset += polygon_counts[p++]) {
            const unsigned int count = polygon_counts[p];
            bool is_void = false;
            for (unsigned int j = 0; j < count; ++j) is_void |= indices[offset + j] == 0xFFFFFFFF;
            if (is_void) continue;
            for (unsigned int j = 0; j < count; ++j) {
                const unsigned int a = indices[offset + j];
                const unsigned int b = indices[offset + (j + 1 == count ? 0 : j + 1)];
                if (a != b) use(offset + j, std::min(a, b), std::max(a, b));
            }
        }
    }

    // Turns counts into places: buckets by vertex, within a bucket by slice. Returns how many there are.
    static unsigned int set_places(CoreArray<CoreArray<unsigned int>>& places, unsigned int vertex_count) {
        constexpr unsigned int block_size = 16384;
        const unsigned int block_count = vertex_count / block_size + 1;
        const auto for_each_count = [&](unsigned int block, auto&& use) {
            const unsigned int first = block * block_size;
            const unsigned int end = first + std::min(block_size, vertex_count - first);
            for (unsigned int v = first; v < end; ++v)
                for (CoreArray<unsigned int>& counts : places) use(counts[v]);
        };
        CoreArray<unsigned int> block_places(block_count, 0u);
        for_each(block_count, [&](unsigned int block) {
            for_each_count(block, [&](unsigned int count) { block_places[block] += count; });
        });
        unsigned int total = 0;
        for (unsigned int& place : block_places) {
            const unsigned int count = place;
            place = total;
            total += count;
        }
        for_each(block_count, [&](unsigned int block) {
            unsigned int place = block_places[block];
            for_each_count(block, [&](unsigned int& count) {
                const unsigned int next = place + count;
                count = place;
                place = next;
            });
        });
        return total;
    }

    CoreArray<unsigned int> m_ends;
    CoreArray<PolyHalfEdge> m_halves;
};
