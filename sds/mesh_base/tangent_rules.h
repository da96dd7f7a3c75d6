// Limit tangents at vertices and the derivative vectors of irregular patch edges, apart from storage and precision.
//
// `position(w)` returns the quad-mesh vertex w, as a vector of any type or in lanes, which is the type of all that is
// computed from it. Trig gives cosines: TableTrig the process-wide single-precision table, ExactTrig the library's, for
// double-precision checks. Corners are those of quads that are not void; where a void quad beside them lacks a vertex,
// it counts as if it stood at the corner.
#pragma once

#include <algorithm>
#include <cassert>
#include <cmath>
#include <type_traits>

#include "sds/common/control_grid.h"
#include "sds/common/net_slots.h"
#include "sds/mesh_base/cosine_table.h"
#include "sds/mesh_base/sds_mesh_base.h"

namespace sds {

struct TableTrig {
    using Real = float;
    static constexpr float pi = 3.1415927f;
    static constexpr float third = 0.33333334f;
    static float cosine(float x) { return lookup_cosine(x); }
    static float sine(float x) { return lookup_sine(x); }
};

struct ExactTrig {
    using Real = double;
    static constexpr double pi = 3.14159265358979323846;
    static constexpr double third = 1.0 / 3.0;
    static double cosine(double x) { return std::cos(x); }
    static double sine(double x) { return std::sin(x); }
};

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

// Fans of more quads have one frame for all their corners: a sum per corner would cost the square of the valence.
inline constexpr unsigned int max_summed_valence = 32;

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

// Tangents of the limit surface in a closed fan of n quads (Halstead, Kass, DeRose 1993, appendix A): the eigenvectors
// of the subdivision matrix to the subdominant eigenvalue, scaled so that valence 4 gives the derivatives of the
// B-spline. At angle x an edge neighbor weighs edge * cos(x) and a diagonal neighbor diagonal * cos(x).
template <class Trig>
struct ClosedFanScale {
    using Real = typename Trig::Real;
    Real half_step, edge, diagonal;

    explicit ClosedFanScale(unsigned int n) {
        const Real inverse = Real(1) / static_cast<Real>(n);
        half_step = inverse * Trig::pi;
        const Real c = Trig::cosine(half_step);
        diagonal = Real(1) / (std::sqrt(c * c + Real(4)) * static_cast<Real>(n));
        edge = diagonal * c + inverse;
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

// The weights of neighbor i of a closed fan in its first tangent.
template <class Trig>
struct ClosedFanWeights {
    using Real = typename Trig::Real;
    Real edge[max_summed_valence]{}, diagonal[max_summed_valence]{};

    ClosedFanWeights() = default;
    explicit ClosedFanWeights(unsigned int valence) {
        const ClosedFanScale<Trig> scale(valence);
        Real angle = 0;
        for (unsigned int i = 0; i < valence; ++i, angle += Real(2) * scale.half_step) {
            edge[i] = Trig::cosine(angle) * scale.edge;
            diagonal[i] = Trig::cosine(angle + scale.half_step) * scale.diagonal;
        }
    }
};

// Of all summed valences, made once: cosines took half of the time of a tangent.
template <class Trig>
const ClosedFanWeights<Trig>& closed_fan_weights(unsigned int valence) {
    struct Table {
        ClosedFanWeights<Trig> at[max_summed_valence + 1];
        Table() {
            for (unsigned int n = 1; n <= max_summed_valence; ++n) at[n] = ClosedFanWeights<Trig>(n);
        }
    };
    static const Table table;
    return table.at[valence];
}

// Cosine of the angle of one of `turns` quads around a vertex.
template <class Trig>
typename Trig::Real turn_cosine(unsigned int turns) {
    using Real = typename Trig::Real;
    constexpr unsigned int table_size = 2 * max_summed_valence + 1;
    struct Table {
        Real at[table_size];
        Table() {
            at[0] = Real(1);  // no fan has none
            for (unsigned int n = 1; n < table_size; ++n) at[n] = compute(n);
        }
        static Real compute(unsigned int n) { return Trig::cosine(Real(2) * Trig::pi / static_cast<Real>(n)); }
    };
    static const Table table;
    return turns < table_size ? table.at[turns] : Table::compute(turns);
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

// The weights in the cross tangent of an open fan of m > 1 quads. Edge k is k steps from the leaving sharp edge.
template <class Trig>
struct OpenFanScale {
    using Real = typename Trig::Real;
    Real step, r, end;  // `end` weighs the far ends of both sharp edges

    explicit OpenFanScale(unsigned int m) {
        step = Real(1) / static_cast<Real>(m) * Trig::pi;
        const Real c = Trig::cosine(step);
        r = Real(3) * static_cast<Real>(m) + c;
        end = -((Real(2) * c + Real(1)) * std::sqrt(c + Real(1))) / (std::sqrt(Real(1) - c) * r);
    }
    Real sine(int k) const { return Trig::sine(static_cast<Real>(k) * step); }
    // Of the far end of edge k, and of the diagonal between the edges k - 1 and k.
    Real edge(unsigned int k) const { return Real(4) * sine(static_cast<int>(k)) / r; }
    Real diagonal(unsigned int k) const { return (sine(static_cast<int>(k) - 1) + sine(static_cast<int>(k))) / r; }
};

// The same, and the cosines and sines of the edges' angles, ready.
template <class Trig>
struct OpenFanWeights {
    using Real = typename Trig::Real;
    Real step{}, end{};
    Real edges[max_summed_valence + 1]{}, diagonals[max_summed_valence + 1]{};
    Real cosines[max_summed_valence + 1]{}, sines[max_summed_valence + 1]{};

    OpenFanWeights() = default;
    explicit OpenFanWeights(unsigned int m) {
        const OpenFanScale<Trig> scale(m);
        step = scale.step;
        end = scale.end;
        for (unsigned int k = 0; k <= m; ++k) {
            edges[k] = scale.edge(k);
            diagonals[k] = scale.diagonal(k);
            cosines[k] = Trig::cosine(static_cast<Real>(k) * step);
            sines[k] = scale.sine(static_cast<int>(k));
        }
    }
    Real edge(unsigned int k) const { return edges[k]; }
    Real diagonal(unsigned int k) const { return diagonals[k]; }
    template <class Vec>
    Vec tangent(const Vec& x, const Vec& y, unsigned int i) const {
        return x * cosines[i] + y * sines[i];
    }
};

// Of all summed valences, made once.
template <class Trig>
const OpenFanWeights<Trig>& open_fan_weights(unsigned int valence) {
    struct Table {
        OpenFanWeights<Trig> at[max_summed_valence + 1];
        Table() {
            for (unsigned int m = 2; m <= max_summed_valence; ++m) at[m] = OpenFanWeights<Trig>(m);
        }
    };
    static const Table table;
    return table.at[valence];
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
        great_fan_frame(quad_indices, edges, start, fan, position, [&number, e](unsigned int h, unsigned int i) {
            if (h == e) number = i;
        });
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
    const FanAxes<Vec> axes = open_fan_axes(quad_indices, edges, quad_indices[e], fan, weights, position,
                                            [&number, e](unsigned int h, unsigned int i) {
                                                if (h == e) number = i;
                                            });
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
    // Which of t1, t2 lies along u and along v at each corner, and its sign.
    static constexpr struct {
        int u_tangent;
        int u_sign;
        int v_sign;
    } corner_frames[4] = {{1, 1, 1}, {2, -1, 1}, {1, -1, -1}, {2, 1, -1}};

    Real cosines[4] = {};
    for (unsigned int k = 0; k < 4; ++k) {
        const SdsMeshBase::VertexLocalTopology& fan = fans[k];
        const unsigned int turns = fan.closed ? fan.valence : 2 * fan.valence;
        cosines[k] = turn_cosine<Trig>(turns);
        if (((irregular >> k) & 1u) == 0) continue;
        const VecTangents<Vec> t = tangents_at(4 * q + k, fan);
        const auto& frame = corner_frames[k];
        const Vec& tu = frame.u_tangent == 1 ? t.t1 : t.t2;
        const Vec& tv = frame.u_tangent == 1 ? t.t2 : t.t1;
        nets.entry(k, 0) = tu * (static_cast<Real>(frame.u_sign) * Trig::third);
        nets.entry(k, 1) = tv * (static_cast<Real>(frame.v_sign) * Trig::third);
    }

    for (unsigned int k = 0; k < 4; ++k) {
        if (((irregular >> (4 + k)) & 1u) == 0 || edges.is_sharp(4 * q + k)) continue;
        const Real c0 = cosines[k];
        const Real c1 = cosines[(k + 1) & 3u];
        Vec u0, u1, u2;  // along the edge, in its direction
        switch (k) {
            case 0:
                u0 = nets.u[0][0], u1 = nets.u[0][1], u2 = nets.u[0][2];
                break;
            case 1:
                u0 = nets.v[0][3], u1 = nets.v[1][3], u2 = nets.v[2][3];
                break;
            case 2:
                u0 = -nets.u[3][2], u1 = -nets.u[3][1], u2 = -nets.u[3][0];
                break;
            default:
                u0 = -nets.v[2][0], u1 = -nets.v[1][0], u2 = -nets.v[0][0];
                break;
        }
        const Vec first = (u1 * (Real(2) * c0) - u0 * c1) * Trig::third;
        const Vec second = (u2 * c0 - u1 * (Real(2) * c1)) * Trig::third;
        switch (k) {
            case 0:
                nets.v[0][1] += first, nets.v[0][2] += second;
                break;
            case 1:
                nets.u[1][2] -= first, nets.u[2][2] -= second;
                break;
            case 2:
                nets.v[2][2] -= first, nets.v[2][1] -= second;
                break;
            default:
                nets.u[2][0] += first, nets.u[1][0] += second;
                break;
        }
    }
}

}  // namespace sds
