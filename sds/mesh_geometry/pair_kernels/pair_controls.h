// The control points of two patches. For the kernels of one instruction set.
#pragma once

#include "qn_simd/simd_float8.h"
#include "sds/common/smooth_controls.h"
#include "sds/mesh_geometry/pair_kernels/pair_kernels.h"

namespace sds {

namespace {

using QN_SIMD_NAMESPACE::SimdFloat8;

// By row and column of the control grid.
using ControlPair = SimdFloat8[4][4];

// Lane k is 1 where bit k is set.
struct BitLanes {
    float lanes[16][4];

    constexpr BitLanes() : lanes{} {
        for (unsigned int bits = 0; bits < 16; ++bits)
            for (unsigned int k = 0; k < 4; ++k) lanes[bits][k] = ((bits >> k) & 1u) != 0 ? 1.0f : 0.0f;
    }
};
constexpr BitLanes bit_lanes;

inline void spread(SimdFloat8 a, SimdFloat8* lanes) {
    lanes[0] = broadcast_lane<0>(a);
    lanes[1] = broadcast_lane<1>(a);
    lanes[2] = broadcast_lane<2>(a);
    lanes[3] = broadcast_lane<3>(a);
}

// EdgeShares of edges that are smooth in one patch and sharp in the other.
struct EdgeSharesPair : EdgeShares<SimdFloat8> {
    SimdFloat8 is_smooth;

    // Chosen, not weighted: what lies beside a sharp edge may be NaN or overflow.
    SimdFloat8 join(SimdFloat8 ends, SimdFloat8 near_side, SimdFloat8 far_side) const {
        return select_positive(is_smooth, add_sides(ends, near_side, far_side), ends);
    }
};

// The shares of one edge at each corner, the corners in the lanes.
struct EdgeSharesOfCorners {
    SimdFloat8 own[4], far[4], is_smooth[4], reciprocal[4];

    // `sharp` is 1 in the lanes of the corners whose edge is sharp. All weights are small integers: exact.
    EdgeSharesOfCorners(SimdFloat8 edge_weights, SimdFloat8 sharp) {
        const SimdFloat8 one(1.0f), smooth = one - sharp;
        const SimdFloat8 own_weight = edge_weights * smooth + (sharp + sharp);
        spread(own_weight, own);
        spread(one + SimdFloat8(3.0f) * smooth, far);
        spread(smooth, is_smooth);
        spread(one / (own_weight + (one + SimdFloat8(9.0f) * smooth)), reciprocal);
    }
    EdgeSharesPair get(unsigned int k) const { return {{own[k], far[k], reciprocal[k]}, is_smooth[k]}; }
};

inline SimdFloat8 load_pair(const float* points, unsigned int first, unsigned int second) {
    return SimdFloat8::load3(points + 3 * static_cast<unsigned long>(first),
                             points + 3 * static_cast<unsigned long>(second));
}

// The points of two patches; with `is_local`, relative to the quads' first vertices.
template <bool is_local>
class PairPoints {
public:
    using Value = SimdFloat8;

    PairPoints(const PatchArrays& surface, const unsigned int* primitives)
        : m_vertices(surface.vertices),
          m_corners(surface.corners),
          m_quads{surface.quads + 4 * static_cast<unsigned long>(primitives[0]),
                  surface.quads + 4 * static_cast<unsigned long>(primitives[1])},
          m_a(surface.patches[primitives[0]]),
          m_b(surface.patches[primitives[1]]),
          m_origin(load_pair(surface.vertices, m_quads[0][0], m_quads[1][0])) {}

    SimdFloat8 get_origin() const { return m_origin; }
    SimdFloat8 quad(unsigned int k) const { return load(m_vertices, m_quads[0][k], m_quads[1][k]); }
    SimdFloat8 corner(unsigned int k) const { return load(m_corners, m_quads[0][k], m_quads[1][k]); }

protected:
    SimdFloat8 load(const float* points, unsigned int first, unsigned int second) const {
        const SimdFloat8 point = load_pair(points, first, second);
        if constexpr (is_local)
            return point - m_origin;
        else
            return point;
    }

    const float* const m_vertices;
    const float* const m_corners;
    const unsigned int* const m_quads[2];
    const SdsMeshBase::BezierPatch& m_a;
    const SdsMeshBase::BezierPatch& m_b;
    const SimdFloat8 m_origin;
};

// Two patches whose corners all lie in closed fans of four quads, as smooth_controls asks for them.
template <bool is_local>
class RegularPairSource : public PairPoints<is_local> {
public:
    using Points = PairPoints<is_local>;
    using Points::Points;

    static bool holds(const PatchArrays& surface, const unsigned int* primitives) {
        unsigned int bits = 0;
        for (unsigned int i = 0; i < 2; ++i)
            bits |= (surface.infos[primitives[i]].irregular & 0xFFu) | surface.patches[primitives[i]].sharp_edges;
        return bits == 0;
    }

    SimdFloat8 neighbour(unsigned int k, unsigned int i) const {
        return Points::load(Points::m_vertices, Points::m_a.neighbour_vertices[2 * k + i],
                            Points::m_b.neighbour_vertices[2 * k + i]);
    }
    static EdgeShares<SimdFloat8> leaving(unsigned int) {
        return {SimdFloat8(8.0f), SimdFloat8(4.0f), SimdFloat8(1.0f / 18.0f)};
    }
    static EdgeShares<SimdFloat8> arriving(unsigned int k) { return leaving(k); }
    static SimdFloat8 interior_weight(unsigned int) { return SimdFloat8(4.0f); }
    static SimdFloat8 interior_reciprocal(unsigned int) { return SimdFloat8(1.0f / 9.0f); }
};

// Any two patches likewise.
template <bool is_local>
class PairSource : public PairPoints<is_local> {
public:
    using Points = PairPoints<is_local>;

    PairSource(const PatchArrays& surface, const unsigned int* primitives)
        : Points(surface, primitives),
          m_sharp{Points::m_a.sharp_edges & 15u, Points::m_b.sharp_edges & 15u},
          m_leaving(SimdFloat8(Points::m_a.edge_weights, Points::m_b.edge_weights),
                    SimdFloat8(bit_lanes.lanes[m_sharp[0]], bit_lanes.lanes[m_sharp[1]])),
          m_arriving(SimdFloat8(Points::m_a.edge_weights, Points::m_b.edge_weights),
                     SimdFloat8(bit_lanes.lanes[next_bits(m_sharp[0])], bit_lanes.lanes[next_bits(m_sharp[1])])) {
        const SimdFloat8 weights(Points::m_a.corner_weights, Points::m_b.corner_weights);
        spread(weights, m_interior_weights);
        spread(SimdFloat8(1.0f) / (weights + SimdFloat8(5.0f)), m_interior_reciprocals);
    }

    // A sharp edge has no use for a neighbor and may have none.
    SimdFloat8 neighbour(unsigned int k, unsigned int i) const {
        const auto find = [&](const SdsMeshBase::BezierPatch& patch, unsigned int sharp, const unsigned int* quad) {
            return ((sharp >> k) & 1u) != 0 ? quad[0] : patch.neighbour_vertices[2 * k + i];
        };
        return Points::load(Points::m_vertices, find(Points::m_a, m_sharp[0], Points::m_quads[0]),
                            find(Points::m_b, m_sharp[1], Points::m_quads[1]));
    }
    EdgeSharesPair leaving(unsigned int k) const { return m_leaving.get(k); }
    EdgeSharesPair arriving(unsigned int k) const { return m_arriving.get(k); }
    SimdFloat8 interior_weight(unsigned int k) const { return m_interior_weights[k]; }
    SimdFloat8 interior_reciprocal(unsigned int k) const { return m_interior_reciprocals[k]; }

private:
    // The bits of four edges, each at its end corner's place.
    static unsigned int next_bits(unsigned int edges) { return ((edges << 1) | (edges >> 3)) & 15u; }

    const unsigned int m_sharp[2];
    const EdgeSharesOfCorners m_leaving, m_arriving;
    SimdFloat8 m_interior_weights[4], m_interior_reciprocals[4];
};

// The controls of two smooth patches, to the same bits as those of one; with `is_local`, relative to the quads' first
// vertices, which it returns.
template <bool is_local>
inline SimdFloat8 compute_controls(const PatchArrays& surface, const unsigned int* primitives, ControlPair& grid) {
    const auto fill = [&grid](const auto& source) {
        smooth_controls(source, [&grid](unsigned int i) -> SimdFloat8& { return (&grid[0][0])[grid_places[i]]; });
        return source.get_origin();
    };
    if (RegularPairSource<is_local>::holds(surface, primitives))
        return fill(RegularPairSource<is_local>(surface, primitives));
    return fill(PairSource<is_local>(surface, primitives));
}

// Controls that are stored; with `is_local`, relative to the first of them, which it returns.
template <bool is_local>
inline SimdFloat8 load_controls(const PatchArrays& surface, const unsigned int* primitives, ControlPair& grid) {
    const unsigned int first[2] = {16 * primitives[0], 16 * primitives[1]};
    const SimdFloat8 origin = load_pair(surface.controls, first[0], first[1]);
    for (unsigned int i = 0; i < 16; ++i) {
        const SimdFloat8 point = load_pair(surface.controls, first[0] + grid_order[i], first[1] + grid_order[i]);
        (&grid[0][0])[i] = is_local ? point - origin : point;
    }
    return origin;
}

// Local controls that are ready; returns their origin.
inline SimdFloat8 load_ready_controls(const PatchArrays& surface, const unsigned int* primitives, ControlPair& grid) {
    const LocalControls &a = surface.local[primitives[0]], &b = surface.local[primitives[1]];
    for (unsigned int i = 0; i < 16; ++i) (&grid[0][0])[i] = SimdFloat8(a.grid[i], b.grid[i]);
    return SimdFloat8(a.origin, b.origin);
}

// The controls of two bilinear patches, to the same bits as those of one.
inline void compute_linear_controls(const PatchArrays& surface, const unsigned int* primitives, ControlPair& grid) {
    const unsigned int* const quads[2] = {surface.quads + 4 * static_cast<unsigned long>(primitives[0]),
                                          surface.quads + 4 * static_cast<unsigned long>(primitives[1])};
    SimdFloat8 q[4];
    for (unsigned int k = 0; k < 4; ++k) q[k] = load_pair(surface.vertices, quads[0][k], quads[1][k]);
    fill_linear_grid(q, SimdFloat8(1.0f / 3.0f), SimdFloat8(2.0f / 3.0f),
                     [&grid](unsigned int row, unsigned int column) -> SimdFloat8& { return grid[row][column]; });
}

}  // namespace

}  // namespace sds
