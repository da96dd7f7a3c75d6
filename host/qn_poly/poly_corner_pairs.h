// Face-corners on both sides of edges, found in one pass.
//
// Every vertex has a few slots for the edges that it is the lower vertex of, each with the higher vertex and the first
// face-corner on the edge. A corner either finds its edge there and is paired, or takes the next free slot. Edges
// beyond the slots, rare but at poles, are sorted at the end.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <vector>

#include "qn_core/core_array.h"
#include "qn_sys/sys_thread.h"

class PolyCornerPairs {
public:
    // For every face-corner into partners[corner]: the corner across its edge, or none where an edge has not just two,
    // goes from a vertex to itself, or belongs to a polygon with an index 0xFFFFFFFF. False, and `partners` without
    // meaning, on a mesh with so many edges at poles that sorting them would not be linear.
    static bool find(const unsigned int* indices, const CoreBasicArray<unsigned int>& polygon_counts,
                     const CoreBasicArray<unsigned int>& polygon_offsets, unsigned int corner_count,
                     unsigned int vertex_count, bool is_all_quads, unsigned int* partners) {
        static thread_local CoreArray<Slots> kept;  // its first touch costs more than its use
        CoreArray<Slots> slots;
        slots.swap(kept);
        slots.resize(vertex_count);
        const Mesh mesh{indices,      polygon_counts, polygon_offsets, corner_count,
                        vertex_count, is_all_quads,   slots.get_data()};
        const unsigned int tasks =
            corner_count < min_threaded_corners ? 1 : std::min(max_tasks, SysThreadTaskManager().get_thread_count());
        const bool is_good = tasks == 1 ? find_alone(mesh, partners) : find_together(mesh, tasks, partners);
        if (sizeof(Slots) * size_t{vertex_count} <= max_kept_bytes) kept.swap(slots);
        return is_good;
    }

private:
    static constexpr unsigned int none = 0xFFFFFFFF;
    static constexpr unsigned int slot_count = 4;
    static constexpr unsigned int min_threaded_corners = 131072, max_tasks = 8;
    static constexpr size_t max_kept_bytes = size_t{8} << 20;

    struct Slots {
        unsigned int high[slot_count];
        unsigned int corner[slot_count];  // none once the edge has more than two corners
    };
    struct Mesh {
        const unsigned int* indices;
        const CoreBasicArray<unsigned int>& counts;
        const CoreBasicArray<unsigned int>& offsets;
        unsigned int corner_count, vertex_count;
        bool is_all_quads;
        Slots* slots;

        // Of the polygons that are the task's.
        unsigned int begin_of(unsigned int task, unsigned int tasks) const {
            return static_cast<unsigned int>(std::uint64_t{counts.get_count()} * task / tasks);
        }
    };
    struct Side {
        unsigned int low, high, corner;
    };

    // Which task pairs the edges whose lower vertex is in a run of vertices; no other task writes to their slots. Tasks
    // share the polygons too: where polygons that follow each other are neighbors, a run belongs to the task that meets
    // its vertices, and hardly any edge is met by another one.
    class Owners {
    public:
        Owners(const Mesh& mesh, unsigned int tasks) : m_owners(mesh.vertex_count / run_size + 1, 0) {
            unsigned int samples = 0, strangers = 0;
            const auto for_each_sample = [&](const auto& use) {
                for (unsigned int task = tasks; task-- != 0;)
                    for (unsigned int p = mesh.begin_of(task, tasks); p < mesh.begin_of(task + 1, tasks); p += step) {
                        const unsigned int vertex = mesh.indices[mesh.is_all_quads ? 4 * p : mesh.offsets[p]];
                        if (vertex != none) use(m_owners[vertex / run_size], static_cast<unsigned char>(task));
                    }
            };
            for_each_sample([](unsigned char& owner, unsigned char task) { owner = task; });
            for_each_sample([&](unsigned char owner, unsigned char task) {
                ++samples;
                strangers += owner != task ? 1 : 0;
            });
            m_is_local = strangers < samples / 4;
            const std::uint64_t runs = m_owners.get_count();
            for (unsigned int i = 0; i < runs && !m_is_local; ++i)
                m_owners[i] = static_cast<unsigned char>(i * tasks / runs);
        }
        unsigned int get(unsigned int vertex) const { return m_owners[vertex / run_size]; }
        // False where polygons come in no order: then it is better that every task meets all of them.
        bool is_local() const { return m_is_local; }

    private:
        static constexpr unsigned int run_size = 256;
        static constexpr unsigned int step = 32;  // polygons: far fewer than touch a run
        CoreArray<unsigned char> m_owners;
        bool m_is_local = true;
    };

    PolyCornerPairs(const Mesh& mesh, unsigned int* partners) : m_slots(mesh.slots), m_partners(partners) {}
    PolyCornerPairs(const Mesh& mesh, unsigned int* partners, const Owners& owners, unsigned int task,
                    unsigned char* taken)
        : m_slots(mesh.slots), m_partners(partners), m_owners(&owners), m_task(task), m_taken(taken) {}

    static bool find_alone(const Mesh& mesh, unsigned int* partners) {
        constexpr Slots cleared{{none, none, none, none}, {none, none, none, none}};
        std::fill_n(mesh.slots, mesh.vertex_count, cleared);
        PolyCornerPairs pairs(mesh, partners);
        pairs.add_polygons<true>(mesh, 0, mesh.counts.get_count());
        return pairs.pair_rest(mesh);
    }

    static bool find_together(const Mesh& mesh, unsigned int tasks, unsigned int* partners) {
        const Owners owners(mesh, tasks);
        CoreArray<unsigned char> taken(mesh.vertex_count, static_cast<unsigned char>(0));
        std::vector<PolyCornerPairs> all;
        for (unsigned int task = 0; task < tasks; ++task)
            all.push_back(PolyCornerPairs(mesh, partners, owners, task, taken.get_data()));
        sys_parallel_for(tasks, [&](unsigned int task, unsigned int) {
            if (owners.is_local())
                all[task].add_polygons<false>(mesh, mesh.begin_of(task, tasks), mesh.begin_of(task + 1, tasks));
            else
                all[task].add_polygons<false>(mesh, 0, mesh.counts.get_count());
        });
        std::atomic<bool> is_good{true};
        sys_parallel_for(tasks, [&](unsigned int task, unsigned int) {
            for (const PolyCornerPairs& other : all)
                if (&other != &all[task])
                    for (const Side& side : other.m_foreign)
                        if (owners.get(side.low) == task) all[task].add<false>(side.corner, side.low, side.high);
            if (!all[task].pair_rest(mesh)) is_good = false;
        });
        return is_good;
    }

    // The edges of the polygons [begin, end); `is_alone` where no other task has polygons.
    template <bool is_alone>
    void add_polygons(const Mesh& mesh, unsigned int begin, unsigned int end) {
        const unsigned int* const indices = mesh.indices;
        if (mesh.is_all_quads) {
            for (unsigned int q = begin; q < end; ++q) add_quad<is_alone>(indices + 4 * size_t{q}, 4 * q);
            return;
        }
        for (unsigned int p = begin; p < end; ++p) {
            const unsigned int offset = mesh.offsets[p], count = mesh.counts[p];
            const unsigned int* const v = indices + offset;
            if (count == 4)
                add_quad<is_alone>(v, offset);
            else if (std::find(v, v + count, none) != v + count)
                clear_polygon(offset, count);
            else
                for (unsigned int j = 0; j < count; ++j) add<is_alone>(offset + j, v[j], v[j + 1 == count ? 0 : j + 1]);
        }
    }
    template <bool is_alone>
    void add_quad(const unsigned int* v, unsigned int corner) {
        if (v[0] == none || v[1] == none || v[2] == none || v[3] == none) {
            clear_polygon(corner, 4);
            return;
        }
        for (unsigned int k = 0; k < 4; ++k) add<is_alone>(corner + k, v[k], v[(k + 1) & 3u]);
    }

    __attribute__((noinline)) void clear_polygon(unsigned int corner, unsigned int count) {
        // Where every task meets it, the first does.
        if (m_task == 0 || m_owners->is_local()) std::fill_n(m_partners + corner, count, none);
    }

    template <bool is_alone>
    void add(unsigned int corner, unsigned int a, unsigned int b) {
        unsigned int* const partners = m_partners;
        const unsigned int low = std::min(a, b), high = std::max(a, b);
        if (!is_alone && m_owners->get(low) != m_task) {
            if (m_owners->is_local()) add_foreign(low, high, corner);
            return;
        }
        if (a == b) {
            partners[corner] = none;
            return;
        }
        // Of a vertex the taken slots come first, and an edge has the first one that holds it. Several tasks count what
        // is taken, since clearing slots costs memory traffic, which they share; a lone one clears, since counting
        // costs it more.
        Slots& slots = m_slots[low];
        const unsigned int end = is_alone ? slot_count : m_taken[low];
        unsigned int slot = 0;
        while (slot != end && slots.high[slot] != high && (!is_alone || slots.high[slot] != none)) ++slot;
        if (slot == slot_count) {
            partners[corner] = none;
            return add_rest(low, high, corner);
        }
        if (is_alone ? slots.high[slot] == none : slot == end) {
            slots.high[slot] = high;
            slots.corner[slot] = corner;
            partners[corner] = none;
            if (!is_alone) m_taken[low] = static_cast<unsigned char>(slot + 1);
            return;
        }
        const unsigned int other = slots.corner[slot];
        if (other == none || partners[other] != none) return unpair(slots.corner[slot], corner);
        partners[corner] = other;
        partners[other] = corner;
    }
    // What is rare stays out of the loop, which has few registers.
    __attribute__((noinline)) void add_foreign(unsigned int low, unsigned int high, unsigned int corner) {
        m_foreign.add({low, high, corner});
    }
    __attribute__((noinline)) void add_rest(unsigned int low, unsigned int high, unsigned int corner) {
        m_rest.add({low, high, corner});
    }
    // An edge of more than two.
    __attribute__((noinline)) void unpair(unsigned int& first, unsigned int corner) {
        m_partners[corner] = none;
        if (first == none) return;
        m_partners[m_partners[first]] = none;
        m_partners[first] = none;
        first = none;
    }

    // The edges that found no slot.
    bool pair_rest(const Mesh& mesh) {
        if (m_rest.get_count() > mesh.corner_count / 64 + 64) return false;
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
    unsigned int* m_partners;
    CoreArray<Side> m_rest;  // edges that found no slot
    // With other tasks.
    const Owners* m_owners = nullptr;
    unsigned int m_task = 0;
    unsigned char* m_taken = nullptr;  // slots of each vertex
    CoreArray<Side> m_foreign;         // edges of other tasks, which this one met
};
