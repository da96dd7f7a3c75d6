// The edges of a polygon mesh by lower vertex, made by one counting sort: linear for any input.
#pragma once

#include <algorithm>
#include <span>

#include "qn_core/core_array.h"

// Half of an edge, in the bucket of its lower vertex: where it goes and the face-corner it belongs to.
struct PolyHalfEdge {
    unsigned int high;
    unsigned int corner;
};

class PolyEdgeBuckets {
public:
    // Sorts the edges of all polygons but those with an index 0xFFFFFFFF and edges from a vertex to itself.
    PolyEdgeBuckets(const unsigned int* indices, const CoreBasicArray<unsigned int>& polygon_counts,
                    unsigned int vertex_count)
        : m_ends(vertex_count, 0u) {
        for_each_side(indices, polygon_counts, [this](unsigned int, unsigned int low, unsigned int) { ++m_ends[low]; });
        unsigned int total = 0;
        for (unsigned int& place : m_ends) {
            const unsigned int count = place;
            place = total;
            total += count;
        }
        m_halves.resize(total);
        // Every place moves on to where the next bucket begins.
        for_each_side(indices, polygon_counts, [this](unsigned int corner, unsigned int low, unsigned int high) {
            m_halves[m_ends[low]++] = {high, corner};
        });
    }

    // Calls visit(lower vertex, first half, end) for every vertex; halves come in the order of their face-corners.
    template <class Visit>
    void for_each_bucket(Visit&& visit) const {
        unsigned int begin = 0;
        for (unsigned int low = 0; low < m_ends.get_count(); ++low) {
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
    // use(face-corner, lower vertex, higher vertex).
    template <class Use>
    static void for_each_side(const unsigned int* indices, const CoreBasicArray<unsigned int>& polygon_counts,
                              Use&& use) {
        unsigned int offset = 0;
        for (const unsigned int count : polygon_counts) {
            bool is_void = false;
            for (unsigned int j = 0; j < count; ++j) is_void |= indices[offset + j] == 0xFFFFFFFF;
            for (unsigned int j = 0; j < count && !is_void; ++j) {
                const unsigned int a = indices[offset + j];
                const unsigned int b = indices[offset + (j + 1 == count ? 0 : j + 1)];
                if (a != b) use(offset + j, std::min(a, b), std::max(a, b));
            }
            offset += count;
        }
    }

    CoreArray<unsigned int> m_ends;
    CoreArray<PolyHalfEdge> m_halves;
};
