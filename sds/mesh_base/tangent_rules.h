// Limit tangents at vertices and the derivative vectors of irregular patch edges, apart from storage and precision.
//
// `position(w)` returns the quad-mesh vertex w, as a vector of any type or in lanes, which is the type of all that is
// computed from it. Trig is that of fan_weights.h. Corners are those of quads that are not void; where a void quad
// beside them lacks a vertex, it counts as if it stood at the corner.
#pragma once

#include <algorithm>
#include <bit>
#include <cassert>
#include <cmath>
#include <type_traits>

#include "sds/common/control_grid.h"
#include "sds/common/net_slots.h"
#include "sds/mesh_base/fan_weights.h"
#include "sds/mesh_base/sds_mesh_base.h"

namespace sds {

template <class Vec>
struct VecTangents {
    Vec t1;  // along the corner's half-edge e
    Vec t2;  // along the half-edge that arrives before it, pointing away from the vertex
};

template <class Real>
using TangentPair = VecTangents<GMathVec3<Real>>;

// What `position` returns, by value.
template <class Position>
using PositionVec = std::decay_t<std::invoke_result_t<const Position&, unsigned int>>;

// The tangents along all edges of a fan, which are numbered as the walk h -> opposite(prev(h)) meets them:
//     edge i has the tangent x cos(i step) + y sin(i step)
template <class Real>
struct FanFrame {
    GMathVec3<Real> x, y;
    Real step;

    template <class Trig>
    GMathVec3<Real> tangent(unsigned int i) const {
        const Real angle = static_cast<Real>(i) * step;
        return x * Trig::cosine(angle) + y * Trig::sine(angle);
    }
};

template <class Vec>
Vec zero_vec() {
    return Vec(GMathVec3<float>(0, 0, 0));
}

// A vector as one of another type; lanes become others by way of three scalars.
template <class To, class From>
To convert_vec(const From& from) {
    if constexpr (std::is_constructible_v<To, const From&>)
        return To(from);
    else
        return To(GMathVec3<float>(from));
}

// Where vertex w stands, seen from `vertex`.
template <class Vec, class Position>
Vec offset_of(const Position& position, unsigned int w, const Vec& vertex) {
    if (w == none) return zero_vec<Vec>();
    return Vec(position(w)) - vertex;
}

// The frame of a closed fan whose edge 0 is e; visit(h, i) tells the number of each corner's own half-edge.
template <class Trig, class Position, class Visit>
FanFrame<typename Trig::Real> closed_fan_frame(const unsigned int* quad_indices,
                                               const SdsMeshBase::EdgesTopology& edges, unsigned int e,
                                               unsigned int valence, const Position& position, Visit&& visit) {
    using Real = typename Trig::Real;
    using Vec = GMathVec3<Real>;
    const ClosedFanScale<Trig> scale(valence);
    FanFrame<Real> frame{{0, 0, 0}, {0, 0, 0}, Real(2) * scale.half_step};
    const Vec vertex = position(quad_indices[e]);
    unsigned int h = e;
    for (unsigned int i = 0; i < valence; ++i) {
        visit(h, i);
        const Real angle = static_cast<Real>(i) * frame.step;
        const Vec ahead = offset_of(position, quad_indices[next_in_quad(h)], vertex) * scale.edge;
        const Vec diagonal = offset_of(position, quad_indices[turn_in_quad(h, 2)], vertex) * scale.diagonal;
        frame.x += ahead * Trig::cosine(angle) + diagonal * Trig::cosine(angle + scale.half_step);
        frame.y += ahead * Trig::sine(angle) + diagonal * Trig::sine(angle + scale.half_step);
        h = edges.opposite_edges[previous_in_quad(h)];
    }
    return frame;
}

// Tangents at the corner of half-edge e of a closed fan, summed in the order that starts there.
template <class Trig, class Position>
VecTangents<PositionVec<Position>> summed_vertex_tangents(const unsigned int* quad_indices,
                                                          const SdsMeshBase::EdgesTopology& edges, unsigned int e,
                                                          unsigned int valence, const Position& position) {
    using Vec = PositionVec<Position>;
    assert(valence > 0 && valence <= max_summed_valence);
    const ClosedFanWeights<Trig>& weights = closed_fan_weights<Trig>(valence);
    VecTangents<Vec> t{zero_vec<Vec>(), zero_vec<Vec>()};
    const Vec vertex = position(quad_indices[e]);
    unsigned int h = e;
    unsigned int i = 0;
    do {
        const unsigned int j = i == 0 ? 0 : valence - i;
        const Vec ahead = offset_of(position, quad_indices[next_in_quad(h)], vertex);
        const Vec diagonal = offset_of(position, quad_indices[turn_in_quad(h, 2)], vertex);
        const Vec behind = offset_of(position, quad_indices[previous_in_quad(h)], vertex);
        t.t1 += ahead * weights.edge[i] + diagonal * weights.diagonal[i];
        t.t2 += behind * weights.edge[j] + diagonal * weights.diagonal[j];
        h = edges.opposite_edges[previous_in_quad(h)];
        ++i;
    } while (h != e && i < valence);
    return t;
}

// Whether the far ends of two sharp edges lie the same way, and span nothing.
template <class Vec>
bool point_the_same_way(const Vec& a, const Vec& b) {
    if constexpr (requires { b.cross(a); }) {
        using Real = std::decay_t<decltype(a[0])>;
        return b.cross(a).length_squared() < Real(0.0001) && b.dot(a) >= Real(0);
    } else {
        return point_the_same_way(GMathVec3<float>(a), GMathVec3<float>(b));
    }
}

template <class Vec>
struct FanAxes {
    Vec x, y;
};

// The axes of the frame of an open fan of m > 1 quads between two sharp edges (Biermann, Levin, Zorin 2000): x along
// the sharp edges, y across them; the leaving sharp edge is number 0, the arriving one number m. visit(h, i) as above.
// All is seen from vertex `v`: over neighbors of opposite winding the corners of one fan lie at different vertices.
template <class Weights, class Position, class Visit>
auto open_fan_axes(const unsigned int* quad_indices, const SdsMeshBase::EdgesTopology& edges, unsigned int v,
                   const SdsMeshBase::VertexLocalTopology& fan, const Weights& weights, const Position& position,
                   Visit&& visit) {
    using Real = typename Weights::Real;
    using Vec = PositionVec<Position>;
    const Vec vertex = position(v);

    // Far ends of the two sharp edges. Where they span nothing, each gives way a little to its quad's diagonal.
    const Vec first_diagonal = offset_of(position, quad_indices[turn_in_quad(fan.first_edge, 2)], vertex);
    const Vec last_diagonal = offset_of(position, quad_indices[turn_in_quad(fan.last_edge, 2)], vertex);
    Vec end_a = offset_of(position, quad_indices[next_in_quad(fan.last_edge)], vertex);
    Vec end_b = offset_of(position, quad_indices[previous_in_quad(fan.first_edge)], vertex);
    if (point_the_same_way(end_a, end_b)) {
        end_a = end_a * Real(0.9) + last_diagonal * Real(0.1);
        end_b = end_b * Real(0.9) + first_diagonal * Real(0.1);
    }

    // Sum over the fan, from the arriving sharp edge (angle pi) to the leaving one (angle 0).
    FanAxes<Vec> axes{(end_a - end_b) * Real(0.5), (end_a + end_b) * weights.end};
    unsigned int k = fan.valence;
    // A void quad may end the walk before it comes to the leaving edge.
    for (unsigned int h = fan.first_edge; h != fan.last_edge && k > 0 && !edges.is_border(h);
         h = next_in_quad(edges.opposite_edges[h])) {
        visit(h, k - 1);
        axes.y += offset_of(position, quad_indices[next_in_quad(h)], vertex) * weights.edge(k - 1) +
                  offset_of(position, quad_indices[turn_in_quad(h, 2)], vertex) * weights.diagonal(k);
        --k;
    }
    visit(fan.last_edge, 0u);
    axes.y += last_diagonal * weights.diagonal(k);
    return axes;
}

// The frame of a fan of more than max_summed_valence quads in double precision: a sum of so many terms needs it. `e` is
// any corner of an open fan at the same vertex; a closed one must always be given the same for the same bits.
template <class Position, class Visit>
FanFrame<double> great_fan_frame(const unsigned int* quad_indices, const SdsMeshBase::EdgesTopology& edges,
                                 unsigned int e, const SdsMeshBase::VertexLocalTopology& fan, const Position& position,
                                 Visit&& visit) {
    const auto exact_position = [&position](unsigned int w) { return convert_vec<GMathVec3<double>>(position(w)); };
    if (fan.closed) return closed_fan_frame<ExactTrig>(quad_indices, edges, e, fan.valence, exact_position, visit);
    const OpenFanScale<ExactTrig> scale(fan.valence);
    const auto axes = open_fan_axes(quad_indices, edges, quad_indices[e], fan, scale, exact_position, visit);
    return {axes.x, axes.y, scale.step};
}

// The tangents at the corner whose own half-edge is number i of a great fan. Two corners that share the edge i + 1 get
// the same bits for it.
template <class Real>
TangentPair<Real> great_fan_tangents(const FanFrame<double>& frame, const SdsMeshBase::VertexLocalTopology& fan,
                                     unsigned int i) {
    const unsigned int next = fan.closed && i + 1 == fan.valence ? 0 : i + 1;
    return {GMathVec3<Real>(frame.tangent<ExactTrig>(i)), GMathVec3<Real>(frame.tangent<ExactTrig>(next))};
}

// The half-edge that the frame of e's great fan starts at: of a closed one the least of all around that a quad has
// which is not void.
inline unsigned int great_fan_start(const unsigned int* quad_indices, const SdsMeshBase::EdgesTopology& edges,
                                    unsigned int e, const SdsMeshBase::VertexLocalTopology& fan) {
    unsigned int start = e;
    if (fan.closed)
        for (unsigned int i = 0, h = e; i < fan.valence; ++i) {
            if (!is_void_quad(quad_indices + (h & ~3u))) start = std::min(start, h);
            h = edges.opposite_edges[previous_in_quad(h)];
        }
    return start;
}

// The tangents at one corner of a great fan, by a walk around all of it.
template <class Real, class Position>
VecTangents<PositionVec<Position>> great_fan_tangents(const unsigned int* quad_indices,
                                                      const SdsMeshBase::EdgesTopology& edges, unsigned int e,
                                                      const SdsMeshBase::VertexLocalTopology& fan,
                                                      const Position& position) {
    const unsigned int start = great_fan_start(quad_indices, edges, e, fan);
    unsigned int number = 0;
    const FanFrame<double> frame =
        great_fan_frame(quad_indices, edges, start, fan, position,
                        [&number, e](unsigned int h, unsigned int i) { number = h == e ? i : number; });
    const TangentPair<Real> t = great_fan_tangents<Real>(frame, fan, number);
    using Vec = PositionVec<Position>;
    return {convert_vec<Vec>(t.t1), convert_vec<Vec>(t.t2)};
}

// The limit tangents at the corner of half-edge e in its closed fan.
template <class Trig, class Position>
VecTangents<PositionVec<Position>> vertex_tangents(const unsigned int* quad_indices,
                                                   const SdsMeshBase::EdgesTopology& edges, unsigned int e,
                                                   const SdsMeshBase::VertexLocalTopology& fan,
                                                   const Position& position) {
    if (fan.valence > max_summed_valence)
        return great_fan_tangents<typename Trig::Real>(quad_indices, edges, e, fan, position);
    return summed_vertex_tangents<Trig>(quad_indices, edges, e, fan.valence, position);
}

// The limit tangents at the corner of half-edge e in its open fan. A lone corner's point to the middles of the edges
// across.
template <class Trig, class Position>
VecTangents<PositionVec<Position>> corner_tangents(const unsigned int* quad_indices,
                                                   const SdsMeshBase::EdgesTopology& edges, unsigned int e,
                                                   const SdsMeshBase::VertexLocalTopology& fan,
                                                   const Position& position) {
    using Real = typename Trig::Real;
    using Vec = PositionVec<Position>;
    if (fan.valence > max_summed_valence)
        return great_fan_tangents<typename Trig::Real>(quad_indices, edges, e, fan, position);
    if (fan.valence == 1) {
        const Vec vertex = position(quad_indices[e]);
        const Vec diagonal = position(quad_indices[turn_in_quad(e, 2)]);
        return {(position(quad_indices[next_in_quad(e)]) + diagonal) * Real(0.5) - vertex,
                (position(quad_indices[previous_in_quad(e)]) + diagonal) * Real(0.5) - vertex};
    }
    unsigned int number = 0;
    const OpenFanWeights<Trig>& weights = open_fan_weights<Trig>(fan.valence);
    const FanAxes<Vec> axes =
        open_fan_axes(quad_indices, edges, quad_indices[e], fan, weights, position,
                      [&number, e](unsigned int h, unsigned int i) { number = h == e ? i : number; });
    return {weights.tangent(axes.x, axes.y, number), weights.tangent(axes.x, axes.y, number + 1)};
}

// The limit tangents at the corner of half-edge e.
template <class Trig, class Position>
VecTangents<PositionVec<Position>> limit_tangents(const unsigned int* quad_indices,
                                                  const SdsMeshBase::EdgesTopology& edges, unsigned int e,
                                                  const SdsMeshBase::VertexLocalTopology& fan,
                                                  const Position& position) {
    return fan.closed ? vertex_tangents<Trig>(quad_indices, edges, e, fan, position)
                      : corner_tangents<Trig>(quad_indices, edges, e, fan, position);
}

// The derivative nets of a patch: differences of its control grid P[row][column] (before the factor 3), u along the
// columns.
//     U[r][i] = P[r][i + 1] - P[r][i]  (4 x 3)        V[r][c] = P[r + 1][c] - P[r][c]  (3 x 4)
template <class Vec>
struct DerivativeNets {
    Vec u[4][3];
    Vec v[3][4];

    // `controls` in corner order.
    template <class Control>
    explicit DerivativeNets(const Control* controls) {
        const auto grid = [controls](unsigned int r, unsigned int c) { return Vec(controls[grid_order[4 * r + c]]); };
        for (unsigned int r = 0; r < 4; ++r)
            for (unsigned int i = 0; i < 3; ++i) {
                u[r][i] = grid(r, i + 1) - grid(r, i);
                v[i][r] = grid(i + 1, r) - grid(i, r);
            }
    }

    // The two entries of corner k (bit k) or of edge k (bit 4 + k).
    Vec& entry(unsigned int bit, unsigned int i) { return get_net_slot(*this, net_slots[bit][i]); }
};

// Replaces the entries of irregular corners and edges. tangents_at(e, fan) returns the limit tangents of a corner.
//
// Two patches share an edge with one along-edge tangent u(t), quadratic, and have cross tangents v(t) and v'(t), cubic.
// Their tangent planes agree along the whole edge when v + v' = 2 c(t) u(t) with c linear from c0 = cos(2 pi / n0) to
// -c1 = -cos(2 pi / n1), the relation that the limit tangents satisfy at both ends (Loop and Schaefer 2008, section 4).
// The inner control differences d1, d2 of the two sides are opposite, the shared edge points being the middles of the
// interior points on both sides, so each side takes half of the right hand's Bernstein coefficients:
//     v1 = d1 + (2 c0 u1 - c1 u0) / 3        v2 = d2 + (c0 u2 - 2 c1 u1) / 3
// Sharp edges join nothing and keep their differences. Quad k's edges by rotation: along runs from corner k to k + 1,
// across points in.
template <class Trig, class TangentsAt, class Vec>
void replace_irregular_entries(const SdsMeshBase::EdgesTopology& edges, unsigned int q, unsigned int irregular,
                               const SdsMeshBase::VertexLocalTopology* fans, const TangentsAt& tangents_at,
                               DerivativeNets<Vec>& nets) {
    using Real = typename Trig::Real;
    // Which of t1, t2 lies along u, the other one being along v, and their signs.
    static constexpr struct {
        unsigned int u_tangent;
        int u_sign;
        int v_sign;
    } corner_frames[4] = {{0, 1, 1}, {1, -1, 1}, {0, -1, -1}, {1, 1, -1}};

    Real cosines[4] = {};
    unsigned int smooth_edges = 0;
    for (unsigned int k = 0; k < 4; ++k) {
        cosines[k] = turn_cosine<Trig>(fans[k].valence << (fans[k].closed ? 0 : 1));
        smooth_edges |= (edges.is_sharp(4 * q + k) ? 0u : 1u) << k;
    }
    // By bits, since where a patch is irregular is hard to foretell.
    for (unsigned int corners = irregular & 15u; corners != 0; corners &= corners - 1) {
        const auto k = static_cast<unsigned int>(std::countr_zero(corners));
        const VecTangents<Vec> t = tangents_at(4 * q + k, fans[k]);
        const Vec* const tangents[2] = {&t.t1, &t.t2};
        const auto& frame = corner_frames[k];
        nets.entry(k, 0) = *tangents[frame.u_tangent] * (static_cast<Real>(frame.u_sign) * Trig::third);
        nets.entry(k, 1) = *tangents[frame.u_tangent ^ 1u] * (static_cast<Real>(frame.v_sign) * Trig::third);
    }
    for (unsigned int bent = irregular >> 4 & smooth_edges; bent != 0; bent &= bent - 1) {
        const auto k = static_cast<unsigned int>(std::countr_zero(bent));
        const Real c0 = cosines[k];
        const Real c1 = cosines[(k + 1) & 3u];
        bend_across_edge(
            nets, k, [](const Vec& vector, int sign) { return vector * static_cast<Real>(sign); },
            [c0, c1](const Vec& u0, const Vec& u1, const Vec& u2, Vec& first, Vec& second) {
                first = (u1 * (Real(2) * c0) - u0 * c1) * Trig::third;
                second = (u2 * c0 - u1 * (Real(2) * c1)) * Trig::third;
            });
    }
}

}  // namespace sds
