// Patches of leaves that touch nothing sharp, in lanes: what LeafPatches computes, with the same bits. For the kernels
// of one instruction set.
#pragma once

#include "sds/common/net_slots.h"
#include "sds/common/smooth_controls.h"
#include "sds/refinement/level_kernels/face_corners.h"
#include "sds/refinement/level_kernels/ring_points.h"

namespace sds {

namespace {

// The valences at the corners of a leaf between smooth edges.
struct LeafCorners {
    unsigned int valences[4];

    // False unless the quads at every corner are one smooth fan in which all wind the same way.
    bool find(const LevelFaces& level, unsigned int face) {
        unsigned int others = 0;  // gathered first: where a leaf is irregular is hard to foretell
        for (unsigned int k = 0; k < 4; ++k) {
            const unsigned int e = 4 * face + k, v = level.vertices[e], o = level.opposites[e];
            if (o == no_corner || level.vertices[o] == v) return false;
            valences[k] = level.valences[v];
            others |= (level.kinds[v] != 0 ? 1u : 0u) & ((level.is_known[v] & fan_limit) == 0 ? 1u : 0u);
        }
        return others == 0;
    }
};

// The leaf as smooth_controls asks for it.
class LeafSource {
public:
    using Value = SimdDouble4;

    LeafSource(const RingPoints& points, const SimdDouble4 (&limits)[4], const LeafCorners& corners)
        : m_points(points), m_limits(limits), m_corners(corners) {}

    SimdDouble4 quad(unsigned int k) const { return m_points.quad[k]; }
    SimdDouble4 corner(unsigned int k) const { return m_limits[k]; }
    SimdDouble4 neighbour(unsigned int k, unsigned int i) const {
        return i == 0 ? m_points.starts[k] : m_points.ends[k];
    }
    EdgeShares<SimdDouble4> leaving(unsigned int k) const {
        const double n = valence(k);
        return {SimdDouble4(n + n), SimdDouble4(4.0), SimdDouble4(1.0 / (n + n + 10.0))};
    }
    EdgeShares<SimdDouble4> arriving(unsigned int k) const { return leaving(k); }
    SimdDouble4 interior_weight(unsigned int k) const { return SimdDouble4(valence(k)); }
    SimdDouble4 interior_reciprocal(unsigned int k) const { return SimdDouble4(1.0 / (valence(k) + 5.0)); }

private:
    double valence(unsigned int k) const { return static_cast<double>(m_corners.valences[k]); }

    const RingPoints& m_points;
    const SimdDouble4 (&m_limits)[4];
    const LeafCorners& m_corners;
};

// Derivative nets in lanes, as DerivativeNets has them.
struct LeafNets {
    SimdDouble4 u[4][3], v[3][4];

    explicit LeafNets(const SimdDouble4* controls) {
        for (unsigned int r = 0; r < 4; ++r)
            for (unsigned int i = 0; i < 3; ++i) {
                u[r][i] = controls[grid_order[4 * r + i + 1]] - controls[grid_order[4 * r + i]];
                v[i][r] = controls[grid_order[4 * i + r + 4]] - controls[grid_order[4 * i + r]];
            }
    }
    void store(float* out) const {
        for (unsigned int i = 0; i < 12; ++i, out += 3) (&u[0][0])[i].store_rounded4(out);
        for (unsigned int i = 0; i < 11; ++i, out += 3) (&v[0][0])[i].store_rounded4(out);
        v[2][3].store_rounded3(out);
    }
};

// A closed fan of quads, met one after the other: the edge that leaves the vertex in a quad, the quad's far corner, and
// the edge that arrives.
struct QuadFan {
    const LevelFaces& level;
    unsigned int h;

    SimdDouble4 ahead(unsigned int) const { return load_point(level, level.vertices[next_corner(h)]); }
    SimdDouble4 diagonal(unsigned int) const { return load_point(level, level.vertices[far_corner(h)]); }
    SimdDouble4 behind(unsigned int) const { return load_point(level, level.vertices[previous_corner(h)]); }
    void turn() { h = level.opposites[previous_corner(h)]; }
};

// The tangents of a vertex at the first quad of a fan, as summed_vertex_tangents has them.
template <class Fan>
void sum_tangents(const LeafWeights& weights, unsigned int valence, SimdDouble4 vertex, Fan fan, SimdDouble4& t1,
                  SimdDouble4& t2) {
    t1 = t2 = SimdDouble4(0.0);
    for (unsigned int i = 0, j = 0; i < valence; ++i, j = valence - i) {
        const SimdDouble4 ahead = fan.ahead(i) - vertex;
        const SimdDouble4 diagonal = fan.diagonal(i) - vertex;
        const SimdDouble4 behind = fan.behind(i) - vertex;
        t1 = t1 + (ahead * SimdDouble4(weights.edge[i]) + diagonal * SimdDouble4(weights.diagonal[i]));
        t2 = t2 + (behind * SimdDouble4(weights.edge[j]) + diagonal * SimdDouble4(weights.diagonal[j]));
        fan.turn();
    }
}

// Replaces the entries of irregular corner k, the first of a fan, as replace_irregular_entries does.
template <class Fan>
[[gnu::always_inline]] inline void replace_corner(const LeafWeights& weights, unsigned int valence, unsigned int k,
                                                  const RingPoints& points, const Fan& fan, LeafNets& nets) {
    // Corners at which u and v run along the tangents, and against them.
    constexpr double third = 1.0 / 3.0;
    constexpr double u_thirds[4] = {third, -third, -third, third}, v_thirds[4] = {third, third, -third, -third};
    // The first runs along the edge that leaves the corner, the second against the one that arrives.
    SimdDouble4 tangents[2];
    sum_tangents(weights, valence, points.quad[k], fan, tangents[0], tangents[1]);
    const unsigned int turned = k & 1u;
    (&nets.u[0][0])[net_slots[k][0]] = tangents[turned] * SimdDouble4(u_thirds[k]);
    (&nets.v[0][0])[net_slots[k][1] - 12] = tangents[turned ^ 1u] * SimdDouble4(v_thirds[k]);
}

// The entries of an edge that touches an irregular corner, likewise; all corners have been replaced.
[[gnu::always_inline]] inline void bend_edge(unsigned int k, double start_cosine, double end_cosine, LeafNets& nets) {
    const SimdDouble4 third(1.0 / 3.0);
    bend_across_edge(
        nets, k, [](SimdDouble4 vector, int sign) { return vector * SimdDouble4(static_cast<double>(sign)); },
        [&](SimdDouble4 u0, SimdDouble4 u1, SimdDouble4 u2, SimdDouble4& first, SimdDouble4& second) {
            first = (u1 * SimdDouble4(2.0 * start_cosine) - u0 * SimdDouble4(end_cosine)) * third;
            second = (u2 * SimdDouble4(start_cosine) - u1 * SimdDouble4(2.0 * end_cosine)) * third;
        });
}

[[gnu::always_inline]] inline void make_leaf_controls(const RingPoints& points, const SimdDouble4 (&limits)[4],
                                                      const LeafCorners& corners, SimdDouble4 (&controls)[16]) {
    smooth_controls(LeafSource(points, limits, corners),
                    [&controls](unsigned int i) -> SimdDouble4& { return controls[i]; });
}

// `vertices` are the quad's.
[[gnu::always_inline]] inline void store_leaf_controls(const LevelFaces& level, const unsigned int* vertices,
                                                       const SimdDouble4 (&controls)[16], float* out) {
    const CornerRounder rounder(level);
    for (unsigned int i = 0; i < 15; ++i)
        if (i % 4 != 0)
            controls[i].store_rounded4(out + 3 * i);
        else
            rounder.store(vertices[i / 4], controls[i], out + 3 * i);
    controls[15].store_rounded3(out + 45);
}

[[gnu::flatten]] bool compute_smooth_leaf(const LevelFaces& level, unsigned int face, float* controls_out,
                                          float* nets_out) {
    LeafCorners corners;
    if (!corners.find(level, face)) return false;
    const unsigned int* vertices = level.vertices + 4 * size_t{face};
    RingPoints points;
    SimdDouble4 limits[4];
    for (unsigned int k = 0; k < 4; ++k) {
        const unsigned int o = level.opposites[4 * size_t{face} + k];
        points.quad[k] = load_point(level, vertices[k]);
        points.starts[k] = load_point(level, level.vertices[far_corner(o)]);
        points.ends[k] = load_point(level, level.vertices[previous_corner(o)]);
        limits[k] = load_limit(level, vertices[k]);
    }
    SimdDouble4 controls[16];
    make_leaf_controls(points, limits, corners, controls);
    store_leaf_controls(level, vertices, controls, controls_out);
    if (nets_out == nullptr) return true;
    LeafNets nets(controls);
    double cosines[4];
    unsigned int corner_bits = 0;
    for (unsigned int k = 0; k < 4; ++k) {
        cosines[k] = level.leaf_weights[corners.valences[k]].turn_cosine;
        corner_bits |= (corners.valences[k] != 4 ? 1u : 0u) << k;
    }
    unsigned int edge_bits = (corner_bits | corner_bits >> 1 | corner_bits << 3) & 15u;
    for (; corner_bits != 0; corner_bits &= corner_bits - 1) {
        const auto k = static_cast<unsigned int>(__builtin_ctz(corner_bits));
        const unsigned int valence = corners.valences[k];
        replace_corner(level.leaf_weights[valence], valence, k, points, QuadFan{level, 4 * face + k}, nets);
    }
    for (; edge_bits != 0; edge_bits &= edge_bits - 1) {
        const auto k = static_cast<unsigned int>(__builtin_ctz(edge_bits));
        bend_edge(k, cosines[k], cosines[(k + 1) & 3u], nets);
    }
    nets.store(nets_out);
    return true;
}

}  // namespace

}  // namespace sds
