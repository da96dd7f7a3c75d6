// Control points of regular faces, for any value: those of control_rules.h with the weights of a regular quad, which
// are the same between smooth edges, on creases and at corners, and the same bits on an edge shared with a leaf.
#pragma once

#include <algorithm>

#include "sds/common/control_grid.h"
#include "sds/refinement/value_lanes.h"
#include "sds/refinement/value_rules.h"

namespace sds {

// The limit points of the vertices that patches of a level touch, each computed once.
template <class Value>
class PatchLimits {
    struct Slot {
        // Points take four lanes, so that they can be read by one load as soon as they were written by one store.
        alignas(std::is_same_v<Value, GMathVec3<double>> ? 32 : alignof(Value)) Value value;
    };

public:
    void reserve(unsigned int vertex_count) {
        m_limits.reserve(vertex_count);
        m_known.reserve(vertex_count);
    }
    void start(unsigned int vertex_count) {
        m_limits.resize(vertex_count);
        m_known.resize(vertex_count);
        std::fill(m_known.begin(), m_known.end(), static_cast<unsigned char>(0));
    }
    bool is_known(unsigned int v) const { return m_known[v] != 0; }
    // Of a vertex that a patch touches, or may touch.
    void set(unsigned int v, const Value& limit) { set(v, limit, touched); }
    void set_untouched(unsigned int v, const Value& limit) { set(v, limit, untouched); }
    // Of one whose faces are a fan as the kernels of leaves know it.
    void set_of_fan(unsigned int v, const Value& limit) { set(v, limit, touched | fan_limit); }
    // Returns whether the point was known; it is to be set otherwise.
    bool touch(unsigned int v) {
        const bool was_known = is_known(v);
        m_known[v] |= touched;
        return was_known;
    }
    bool is_touched(unsigned int v) const { return (m_known[v] & touched) != 0; }
    const Value& get(unsigned int v) const { return m_limits[v].value; }
    Slot* get_data() { return m_limits.get_data(); }
    unsigned char* get_known() { return m_known.get_data(); }

    static constexpr unsigned char touched = 1, untouched = 2;

private:
    void set(unsigned int v, const Value& limit, unsigned char known) {
        m_known[v] = known;
        m_limits[v].value = limit;
    }

    CoreArray<Slot> m_limits;
    CoreArray<unsigned char> m_known;  // bits
};

template <class Value>
class RegularPatches {
public:
    using Scalar = typename ValueOps<Value>::Scalar;
    using Access = ValueLanes<Value>;
    using Lanes = typename Access::Type;

    // `values` needs its points, and nothing else.
    RegularPatches(const RefinementLevel& level, const LevelValues<Value>& values, PatchLimits<Value>& limits)
        : m_level(level),
          m_values(values),
          m_limits(limits),
          m_neighbors{level.corner_vertices.get_data(), level.edges.opposite_edges.get_data(), level.offsets.get_data(),
                      level.corner_faces.get_data(), values.points.get_data()} {}

    // Calls put(control, lanes) for all sixteen.
    template <class Put>
    void compute(unsigned int face, const Put& put) {
        if (m_level.is_quads())
            compute<true>(face, 4 * face, put);
        else
            compute<false>(face, m_level.offsets[face], put);
    }

    // The limit point of corner k of a face of a level of quads, a regular vertex.
    Value limit_at(unsigned int face, unsigned int k) const {
        return regular_limit(4 * face, k, m_neighbors.template beside<true>(4 * face + k),
                             m_neighbors.template beside<true>(4 * face + ((k + 3) & 3u)),
                             opposite_diagonal<true>(4 * face + k));
    }

private:
    // Ends of the edges of the face across a face-corner's edge that leave its two ends.
    struct Beside {
        unsigned int start, end;
    };
    // Used as a local copy: what `this` points to would be read again after every store of lanes.
    struct Neighbors {
        const unsigned int* vertices;
        const unsigned int* opposites;
        const unsigned int* offsets;
        const unsigned int* corner_faces;
        const Value* points;

        Lanes load(unsigned int v) const { return Access::load(points[v]); }
        template <bool is_quads>
        unsigned int begin_of(unsigned int c) const {
            return is_quads ? c & ~3u : offsets[corner_faces[c]];
        }
        template <bool is_quads>
        Beside beside(unsigned int c) const {
            const unsigned int o = opposites[c];
            const unsigned int begin = begin_of<is_quads>(o);
            const Beside found = {vertices[begin + ((o - begin + 2) & 3u)], vertices[begin + ((o - begin + 3) & 3u)]};
            if (vertices[o] != vertices[c]) return found;
            return {found.end, found.start};  // a neighbor that winds the other way
        }
    };

    template <bool is_quads, class Put>
    void compute(unsigned int face, unsigned int begin, const Put& put) {
        const Neighbors around = m_neighbors;
        const auto load = [&around](unsigned int v) { return around.load(v); };
        const unsigned int* quad = around.vertices + begin;
        const Lanes q[4] = {load(quad[0]), load(quad[1]), load(quad[2]), load(quad[3])};
        const Lanes q4[4] = {q[0] * Scalar(4), q[1] * Scalar(4), q[2] * Scalar(4), q[3] * Scalar(4)};
        const Lanes across[2] = {(q[1] + q[3]) * Scalar(2), (q[0] + q[2]) * Scalar(2)};
#pragma GCC unroll 4
        for (unsigned int k = 0; k < 4; ++k)
            put(interior_control(k), (across[k & 1u] + q4[k] + q[(k + 2) & 3u]) * (Scalar(1) / Scalar(9)));

        Beside besides[4] = {};
        const unsigned int sharp = m_level.edges.quad_edge_flags[face];
#pragma GCC unroll 4
        for (unsigned int k = 0; k < 4; ++k) {
            const unsigned int next = (k + 1) & 3u;
            if (((sharp >> k) & 1u) != 0 || around.opposites[begin + k] == none) {
                constexpr Scalar third = Scalar(1) / Scalar(3);
                put(leaving_edge_control(k), (q[k] * Scalar(2) + q[next]) * third);
                put(arriving_edge_control(next), (q[next] * Scalar(2) + q[k]) * third);
                continue;
            }
            besides[k] = around.template beside<is_quads>(begin + k);
            const Lanes a = load(besides[k].start) + q[(k + 3) & 3u];
            const Lanes b = load(besides[k].end) + q[(k + 2) & 3u];
            constexpr Scalar share = Scalar(1) / Scalar(18);
            put(leaving_edge_control(k), (q4[k] * Scalar(2) + q4[next] + a * Scalar(2) + b) * share);
            put(arriving_edge_control(next), (q4[next] * Scalar(2) + q4[k] + b * Scalar(2) + a) * share);
        }

#pragma GCC unroll 4
        for (unsigned int k = 0; k < 4; ++k) {
            const unsigned int v = quad[k];
            if (!m_limits.is_known(v)) {
                if (m_level.vertex_kinds[v] == RefinementLevel::regular_vertex)
                    m_limits.set(v, regular_limit(begin, k, besides[k], besides[(k + 3) & 3u],
                                                  opposite_diagonal<is_quads>(begin + k)));
                else
                    m_limits.set(v, limit_point(m_level, m_values, v));
            }
            put(corner_control(k), Access::load(m_limits.get(v)));
        }
    }

    // Of corner k, with what is beside its edge k and beside the one before.
    Value regular_limit(unsigned int begin, unsigned int k, const Beside& ahead, const Beside& behind,
                        unsigned int opposite) const {
        const Neighbors& around = m_neighbors;
        const unsigned int* quad = around.vertices + begin;
        const Lanes edges = around.load(quad[(k + 1) & 3u]) + around.load(quad[(k + 3) & 3u]) +
                            around.load(ahead.start) + around.load(behind.end);
        const Lanes diagonals = around.load(quad[(k + 2) & 3u]) + around.load(ahead.end) + around.load(behind.start) +
                                around.load(opposite);
        Value limit;
        Access::store((around.load(quad[k]) * Scalar(16) + edges * Scalar(4) + diagonals) * (Scalar(1) / Scalar(36)),
                      limit);
        return limit;
    }

    // The last of a regular vertex's eight neighbors, that of the face opposite to face-corner c.
    template <bool is_quads>
    unsigned int opposite_diagonal(unsigned int c) const {
        const unsigned int v = m_neighbors.vertices[c];
        const unsigned int corner = m_level.turn_around(v, m_level.turn_around(v, c).edge).corner;
        const unsigned int begin = m_neighbors.template begin_of<is_quads>(corner);
        return m_neighbors.vertices[begin + ((corner - begin + 2) & 3u)];
    }

    const RefinementLevel& m_level;
    const LevelValues<Value>& m_values;
    PatchLimits<Value>& m_limits;
    Neighbors m_neighbors;
};

}  // namespace sds
