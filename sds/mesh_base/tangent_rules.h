// Limit tangents at vertices and the derivative vectors of irregular patch edges, apart from storage and precision.
//
// `position(w)` returns the quad-mesh vertex w. Trig gives cosines: TableTrig the process-wide single-precision table,
// ExactTrig the library's, for double-precision checks.
#pragma once

#include <cmath>
#include <vector>

#include "sds/common/control_grid.h"
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

template <class Real>
struct TangentPair {
    GMathVec3<Real> t1;  // along the corner's half-edge e
    GMathVec3<Real> t2;  // along the half-edge that arrives before it, pointing away from the vertex
};

// Weights of the edge (E) and diagonal (F) neighbours of a closed fan.
template <class Real>
struct FanWeights {
    static constexpr unsigned int small_valence = 32;

    explicit FanWeights(unsigned int n) {
        if (n > small_valence) {
            m_heap.resize(2 * size_t{n});
            edge = m_heap.data();
        } else {
            edge = m_stack;
        }
        diagonal = edge + n;
    }
    FanWeights(const FanWeights&) = delete;
    FanWeights& operator=(const FanWeights&) = delete;

    Real* edge;
    Real* diagonal;

private:
    Real m_stack[2 * small_valence];
    std::vector<Real> m_heap;
};

// Tangents of the limit surface in a closed fan of `valence` quads (Halstead, Kass, DeRose 1993, appendix A): the
// eigenvectors of the subdivision matrix to the subdominant eigenvalue, scaled so that valence 4 gives the derivatives
// of the B-spline.
template <class Trig, class Position>
TangentPair<typename Trig::Real> vertex_tangents(const unsigned int* quad_indices,
                                                 const SdsMeshBase::EdgesTopology& edges, unsigned int e,
                                                 unsigned int valence, const Position& position) {
    using Real = typename Trig::Real;
    const Real inverse = Real(1) / static_cast<Real>(valence);
    const Real a = inverse * Trig::pi;
    const Real c = Trig::cosine(a);
    const Real k = Real(1) / (std::sqrt(c * c + Real(4)) * static_cast<Real>(valence));
    FanWeights<Real> weights(valence);
    Real angle = 0;
    for (unsigned int i = 0; i < valence; ++i, angle += Real(2) * a) {
        weights.edge[i] = Trig::cosine(angle) * (k * c + inverse);
        weights.diagonal[i] = Trig::cosine(angle + a) * k;
    }
    TangentPair<Real> t{{0, 0, 0}, {0, 0, 0}};
    const GMathVec3<Real> vertex = position(quad_indices[e]);
    unsigned int h = e;
    unsigned int i = 0;
    do {
        const unsigned int j = i == 0 ? 0 : valence - i;
        const GMathVec3<Real> ahead = position(quad_indices[next_in_quad(h)]) - vertex;
        const GMathVec3<Real> diagonal = position(quad_indices[turn_in_quad(h, 2)]) - vertex;
        const GMathVec3<Real> behind = position(quad_indices[previous_in_quad(h)]) - vertex;
        t.t1 += ahead * weights.edge[i] + diagonal * weights.diagonal[i];
        t.t2 += behind * weights.edge[j] + diagonal * weights.diagonal[j];
        h = edges.opposite_edges[previous_in_quad(h)];
        ++i;
    } while (h != e && i < valence);
    return t;
}

// Tangents in an open fan of m quads between two sharp edges (Biermann, Levin, Zorin 2000): one along the sharp edges,
// one across them, turned to the directions of the corner's own two edges, which stand at K pi / m and (K + 1) pi / m.
template <class Trig, class Position>
TangentPair<typename Trig::Real> corner_tangents(const unsigned int* quad_indices,
                                                 const SdsMeshBase::EdgesTopology& edges, unsigned int e,
                                                 const SdsMeshBase::VertexLocalTopology& fan,
                                                 const Position& position) {
    using Real = typename Trig::Real;
    using Vec = GMathVec3<Real>;
    const Vec vertex = position(quad_indices[e]);
    const unsigned int m = fan.valence;
    if (m == 1) {
        const Vec diagonal = position(quad_indices[turn_in_quad(e, 2)]);
        return {(position(quad_indices[next_in_quad(e)]) + diagonal) * Real(0.5) - vertex,
                (position(quad_indices[previous_in_quad(e)]) + diagonal) * Real(0.5) - vertex};
    }

    // Weights of the cross tangent.
    const Real step = Real(1) / static_cast<Real>(m) * Trig::pi;
    const Real c = Trig::cosine(step);
    const Real r = Real(3) * static_cast<Real>(m) + c;
    const Real end_weight = -((Real(2) * c + Real(1)) * std::sqrt(c + Real(1))) / (std::sqrt(Real(1) - c) * r);

    // Far ends of the two sharp edges. When both point the same way they span nothing: each gives way a little to its
    // quad's diagonal.
    const Vec first_diagonal = position(quad_indices[turn_in_quad(fan.first_edge, 2)]) - vertex;
    const Vec last_diagonal = position(quad_indices[turn_in_quad(fan.last_edge, 2)]) - vertex;
    Vec end_a = position(quad_indices[next_in_quad(fan.last_edge)]) - vertex;
    Vec end_b = position(quad_indices[previous_in_quad(fan.first_edge)]) - vertex;
    const Vec& da = end_a;
    const Vec& db = end_b;
    if (db.cross(da).length_squared() < Real(0.0001) && db.dot(da) >= Real(0)) {
        end_a = end_a * Real(0.9) + last_diagonal * Real(0.1);
        end_b = end_b * Real(0.9) + first_diagonal * Real(0.1);
    }

    // Sum over the fan, from the arriving sharp edge (angle pi) to the leaving one (angle 0).
    const Vec along = (end_a - end_b) * Real(0.5);
    Vec across = (end_a + end_b) * end_weight;
    unsigned int place = 0;  // K of the corner's own half-edge
    unsigned int k = m;
    Real s_previous = Trig::sine(static_cast<Real>(m) * step);
    for (unsigned int h = fan.first_edge; h != fan.last_edge && k > 0; h = next_in_quad(edges.opposite_edges[h])) {
        --k;
        const Real s_k = Trig::sine(static_cast<Real>(k) * step);
        across += (position(quad_indices[next_in_quad(h)]) - vertex) * (Real(4) * s_k / r) +
                  (position(quad_indices[turn_in_quad(h, 2)]) - vertex) * ((s_k + s_previous) / r);
        if (h == e) place = k;
        s_previous = s_k;
    }
    const Real s_last = Trig::sine((static_cast<Real>(k) - Real(1)) * step);
    across += last_diagonal * ((s_last + s_previous) / r);

    const Real angle1 = static_cast<Real>(place) * step;
    const Real angle2 = static_cast<Real>(place + 1) * step;
    return {along * Trig::cosine(angle1) + across * Trig::sine(angle1),
            along * Trig::cosine(angle2) + across * Trig::sine(angle2)};
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

    // The two entries that belong to corner k (first along u, then along v) and to edge k, in the order in which they
    // are stored.
    Vec& corner_entry(unsigned int k, unsigned int i) {
        Vec* const entries[4][2] = {
            {&u[0][0], &v[0][0]}, {&u[0][2], &v[0][3]}, {&u[3][2], &v[2][3]}, {&u[3][0], &v[2][0]}};
        return *entries[k][i];
    }
    Vec& edge_entry(unsigned int k, unsigned int i) {
        Vec* const entries[4][2] = {
            {&v[0][1], &v[0][2]}, {&u[1][2], &u[2][2]}, {&v[2][1], &v[2][2]}, {&u[1][0], &u[2][0]}};
        return *entries[k][i];
    }
};

// Replaces the entries of irregular corners and edges.
//
// Two patches share an edge with one along-edge tangent u(t), quadratic, and have cross tangents v(t) and v'(t), cubic.
// Their tangent planes agree along the whole edge when v + v' = 2 c(t) u(t) with c linear from c0 = cos(2 pi / n0) to
// -c1 = -cos(2 pi / n1), the relation that the limit tangents satisfy at both ends (Loop and Schaefer 2008, section 4).
// The inner control differences d1, d2 of the two sides are opposite, the shared edge points being the middles of the
// interior points on both sides, so each side takes half of the right hand's Bernstein coefficients:
//     v1 = d1 + (2 c0 u1 - c1 u0) / 3        v2 = d2 + (c0 u2 - 2 c1 u1) / 3
// Sharp edges join nothing and keep their differences. Quad k's edges by rotation: along runs from corner k to k + 1,
// across points in.
template <class Trig, class Position>
void replace_irregular_entries(const unsigned int* quad_indices, const SdsMeshBase::EdgesTopology& edges,
                               unsigned int q, unsigned int irregular, const SdsMeshBase::VertexLocalTopology* fans,
                               const Position& position, DerivativeNets<GMathVec3<typename Trig::Real>>& nets) {
    using Real = typename Trig::Real;
    using Vec = GMathVec3<Real>;
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
        cosines[k] = Trig::cosine(Real(2) * Trig::pi / static_cast<Real>(turns));
        if (((irregular >> k) & 1u) == 0) continue;
        const unsigned int e = 4 * q + k;
        const TangentPair<Real> t = fan.closed ? vertex_tangents<Trig>(quad_indices, edges, e, fan.valence, position)
                                               : corner_tangents<Trig>(quad_indices, edges, e, fan, position);
        const auto& frame = corner_frames[k];
        const Vec& tu = frame.u_tangent == 1 ? t.t1 : t.t2;
        const Vec& tv = frame.u_tangent == 1 ? t.t2 : t.t1;
        nets.corner_entry(k, 0) = tu * (static_cast<Real>(frame.u_sign) * Trig::third);
        nets.corner_entry(k, 1) = tv * (static_cast<Real>(frame.v_sign) * Trig::third);
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
