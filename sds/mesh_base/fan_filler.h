// The fans of a range of quads, each walked once.
#pragma once

#include "sds/mesh_base/sds_mesh_base.h"

namespace sds {

// Fills the fans of all corners of the quads [first, end), each as analyse_vertex_local_topology does. A fan is written
// to all of its corners in the range when the first of them is met, which keeps huge valences linear.
class FanFiller {
public:
    using EdgesTopology = SdsMeshBase::EdgesTopology;
    using VertexLocalTopology = SdsMeshBase::VertexLocalTopology;

    FanFiller(const EdgesTopology& edges, VertexLocalTopology* out, unsigned int first, unsigned int end)
        : m_edges(edges), m_out(out), m_begin(4 * first), m_size(4 * (end - first)), m_states(end - first, 0) {}

    // Quads are to be asked for in order, the first one first. True when all corners of the quad lie inside smooth fans
    // of four.
    bool fill(unsigned int quad) {
        unsigned char& state = m_states[quad - quad_of(m_begin)];
        for (unsigned int e = 4 * quad; (state & all_filled) != all_filled; ++e)
            if ((state >> corner_of(e) & 1u) == 0 && !fill_small_fan(e)) fill_fan(e);
        return state == (all_filled | all_regular);
    }

private:
    // A bit for each corner of a quad that is filled, and for each whose fan is regular.
    static constexpr unsigned char all_filled = 0x0F, all_regular = 0xF0;
    static constexpr unsigned int filled = 0x01, regular = 0x10;
    static constexpr unsigned int max_small_valence = 8;

    unsigned int next_around_vertex(unsigned int h) const { return next_in_quad(m_edges.opposite_edges[h]); }

    void write(unsigned int h, const VertexLocalTopology& fan, unsigned int mark) {
        if (h - m_begin >= m_size) return;
        m_out[h] = fan;
        m_states[quad_of(h - m_begin)] |= static_cast<unsigned char>(mark << corner_of(h));
    }

    // True, and the fan of e is written, when it is not large and the two sides of its edges agree: nearly always.
    bool fill_small_fan(unsigned int e) {
        const unsigned int* const opposite = m_edges.opposite_edges.get_data();
        unsigned int fan[max_small_valence];
        unsigned int count = 0, h = e;
        do {
            if (count == max_small_valence) return false;
            fan[count++] = h;
            const unsigned int across = opposite[h];
            if (across == none || m_edges.is_crease(h)) return fill_open_fan(fan, count);
            h = next_in_quad(across);
        } while (h != e);
        const unsigned int mark = count == 4 ? filled | regular : filled;
        for (unsigned int i = 0; i < count; ++i) write(fan[i], {true, fan[i], fan[i], count}, mark);
        return true;
    }

    // The fan of fan[0], of which `count` are found, up to the sharp half-edge that leaves last.
    bool fill_open_fan(unsigned int* fan, unsigned int count) {
        const unsigned int* const opposite = m_edges.opposite_edges.get_data();
        const unsigned int last = fan[count - 1];
        unsigned int first = fan[0];
        for (unsigned int i = 0; i + 1 < count; ++i)
            if (!is_agreed(fan[i])) return false;
        while (!m_edges.is_sharp(previous_in_quad(first))) {
            const unsigned int arriving = previous_in_quad(first);
            if (count == max_small_valence || !is_agreed(arriving)) return false;
            fan[count++] = first = opposite[arriving];
        }
        const unsigned int arriving = previous_in_quad(first);
        const bool is_closed = opposite[last] == arriving && opposite[arriving] == last;
        for (unsigned int i = 0; i < count; ++i) write(fan[i], {is_closed, first, last, count}, filled);
        return true;
    }

    // Of a half-edge that is not sharp.
    bool is_agreed(unsigned int h) const {
        const unsigned int across = m_edges.opposite_edges[h];
        return m_edges.opposite_edges[across] == h && !m_edges.is_crease(across);
    }

    void fill_fan(unsigned int e) {
        VertexLocalTopology fan;
        SdsMeshBase::analyse_vertex_local_topology(m_edges, e, fan);
        if (fan.closed && !m_edges.is_sharp(fan.last_edge)) {
            unsigned int h = e;
            do {
                write(h, {true, h, h, fan.valence}, filled);
                h = next_around_vertex(h);
            } while (h != e);
        } else {
            for_each_in_fan(e, fan, [&](unsigned int h) { write(h, fan, filled); });
        }
    }

    // Calls use(h) for e and the half-edges on both sides of it whose walks meet the same ends as those of e: all
    // corners of its fan, but for edges whose two sides differ.
    template <class Use>
    void for_each_in_fan(unsigned int e, const VertexLocalTopology& fan, Use&& use) const {
        const CoreArray<unsigned int>& opposite = m_edges.opposite_edges;
        // From h over its own edge, when no walk of either direction would stop there.
        const auto is_joined = [&](unsigned int h) {
            const unsigned int o = opposite[h];
            return !m_edges.is_sharp(h) && !m_edges.is_sharp(o) && opposite[o] == h;
        };
        unsigned int h = e, count = 1;
        use(h);
        for (; h != fan.last_edge && count < fan.valence && is_joined(h); ++count) use(h = next_around_vertex(h));
        for (h = e; h != fan.first_edge && count < fan.valence; ++count) {
            const unsigned int before = opposite[previous_in_quad(h)];
            if (before == none || !is_joined(before) || next_around_vertex(before) != h) break;
            use(h = before);
        }
    }

    const EdgesTopology& m_edges;
    VertexLocalTopology* m_out;
    unsigned int m_begin, m_size;  // half-edges
    CoreArray<unsigned char> m_states;
};

}  // namespace sds
