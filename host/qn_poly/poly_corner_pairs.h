// Face-corners on both sides of edges, found in one pass.
//
// Every vertex has a few slots for the edges that it is the lower vertex of, each with the higher vertex and the first
// face-corner on the edge. A corner either finds its edge there and is paired, or takes the next free slot. Edges
// beyond the slots, rare but at poles, are sorted at the end.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <type_traits>

#include "qn_core/core_array.h"
#include "qn_sys/sys_thread.h"

class PolyCornerPairs {
public:
    // For every face-corner into partners[corner]: the corner across its edge, or none where an edge has not just two,
    // goes from a vertex to itself, or belongs to a polygon with an index 0xFFFFFFFF. False, and `partners` without
    // meaning, on a mesh with so many edges at poles that sorting them would not be linear.
    static bool find(const unsigned int* indices, const CoreBasicArray<unsigned int>& polygon_counts,
                     unsigned int corner_count, unsigned int vertex_count, bool is_all_quads, unsigned int* partners) {
        static thread_local CoreArray<Slots> kept;  // its first touch costs more than its use
        CoreArray<Slots> slots;
        slots.swap(kept);
        slots.resize(vertex_count);
        std::atomic<bool> is_good{true};
        // Tasks own vertices: each meets all polygons and leaves the edges of others alone.
        const unsigned int tasks =
            corner_count < min_threaded_corners ? 1 : std::min(max_tasks, SysThreadTaskManager().get_thread_count());
        const auto run = [&](unsigned int task, unsigned int) {
            const auto at = [&](unsigned int t) {
                return static_cast<unsigned int>(std::uint64_t{vertex_count} * t / tasks);
            };
            PolyCornerPairs pairs(slots.get_data(), at(task), at(task + 1), task == 0, partners);
            const auto walk = [&](auto is_whole) {
                if (is_all_quads)
                    pairs.add_quads<is_whole>(indices, polygon_counts.get_count());
                else
                    pairs.add_polygons<is_whole>(indices, polygon_counts);
            };
            if (tasks == 1)
                walk(std::true_type());
            else
                walk(std::false_type());
            if (!pairs.pair_rest(corner_count / 64 + 64)) is_good = false;
        };
        if (tasks == 1)
            run(0, 0);
        else
            sys_parallel_for(tasks, run);
        if (sizeof(Slots) * size_t{vertex_count} <= max_kept_bytes) kept.swap(slots);
        return is_good;
    }

private:
    static constexpr unsigned int none = 0xFFFFFFFF;
    static constexpr unsigned int slot_count = 4;
    static constexpr unsigned int min_threaded_corners = 131072, max_tasks = 8;
    static constexpr size_t max_kept_bytes = size_t{8} << 20;

    struct Slots {
        unsigned int high[slot_count];    // none where free
        unsigned int corner[slot_count];  // none once the edge has more than two corners
    };
    struct Side {
        unsigned int low, high, corner;
    };

    PolyCornerPairs(Slots* slots, unsigned int first_vertex, unsigned int end_vertex, bool is_first,
                    unsigned int* partners)
        : m_slots(slots),
          m_first(first_vertex),
          m_count(end_vertex - first_vertex),
          m_is_first(is_first),
          m_partners(partners) {
        constexpr Slots empty{{none, none, none, none}, {none, none, none, none}};
        std::fill_n(m_slots + first_vertex, m_count, empty);
    }

    template <bool is_whole>
    void add_quads(const unsigned int* indices, unsigned int count) {
        for (unsigned int q = 0; q < count; ++q) add_quad<is_whole>(indices + 4 * size_t{q}, 4 * q);
    }
    template <bool is_whole>
    void add_quad(const unsigned int* v, unsigned int corner) {
        if (v[0] == none || v[1] == none || v[2] == none || v[3] == none) {
            if (m_is_first) std::fill_n(m_partners + corner, 4, none);
            return;
        }
        // Most quads are one task's alone.
        if constexpr (!is_whole)
            if (std::max(std::max(v[0], v[1]), std::max(v[2], v[3])) < m_first ||
                std::min(std::min(v[0], v[1]), std::min(v[2], v[3])) >= m_first + m_count)
                return;
        for (unsigned int k = 0; k < 4; ++k) add<is_whole>(corner + k, v[k], v[(k + 1) & 3u]);
    }
    template <bool is_whole>
    void add_polygons(const unsigned int* indices, const CoreBasicArray<unsigned int>& counts) {
        unsigned int offset = 0;
        for (unsigned int p = 0; p < counts.get_count(); offset += counts[p++]) {
            const unsigned int count = counts[p];
            const unsigned int* v = indices + offset;
            if (count == 4) {
                add_quad<is_whole>(v, offset);
                continue;
            }
            if (std::find(v, v + count, none) != v + count) {
                if (m_is_first) std::fill_n(m_partners + offset, count, none);
                continue;
            }
            for (unsigned int j = 0; j < count; ++j) add<is_whole>(offset + j, v[j], v[j + 1 == count ? 0 : j + 1]);
        }
    }

    template <bool is_whole>
    void add(unsigned int corner, unsigned int a, unsigned int b) {
        const unsigned int low = std::min(a, b), high = std::max(a, b);
        if (!is_whole && low - m_first >= m_count) return;
        if (a == b) {
            m_partners[corner] = none;
            return;
        }
        Slots& slots = m_slots[low];
        // Free slots come last, so that the first match or else the first free one is that of the edge.
        unsigned int slot = 0;
        while (slot != slot_count && slots.high[slot] != high && slots.high[slot] != none) ++slot;
        if (slot == slot_count) {
            m_partners[corner] = none;
            m_rest.add({low, high, corner});
            return;
        }
        if (slots.high[slot] == none) {
            slots.high[slot] = high;
            slots.corner[slot] = corner;
            m_partners[corner] = none;
            return;
        }
        const unsigned int other = slots.corner[slot];
        if (other == none || m_partners[other] != none) {
            m_partners[corner] = none;
            if (other == none) return;
            m_partners[m_partners[other]] = none;
            m_partners[other] = none;
            slots.corner[slot] = none;
            return;
        }
        m_partners[corner] = other;
        m_partners[other] = corner;
    }

    // The edges that found no slot.
    bool pair_rest(unsigned int most) {
        if (m_rest.get_count() > most) return false;
        std::sort(m_rest.begin(), m_rest.end(), [](const Side& x, const Side& y) {
            return x.low != y.low ? x.low < y.low : x.high != y.high ? x.high < y.high : x.corner < y.corner;
        });
        for (const Side* side = m_rest.begin(); side != m_rest.end();) {
            const Side* const first = side;
            while (side != m_rest.end() && side->low == first->low && side->high == first->high) ++side;
            if (side - first != 2) continue;
            m_partners[first[0].corner] = first[1].corner;
            m_partners[first[1].corner] = first[0].corner;
        }
        return true;
    }

    Slots* m_slots;
    unsigned int m_first, m_count;
    bool m_is_first;
    unsigned int* m_partners;
    CoreArray<Side> m_rest;
};
