// The control points of two patches. For the kernels of one instruction set.
#pragma once

#include "qn_simd/simd_float8.h"
#include "sds/mesh_geometry/pair_kernels/pair_kernels.h"

namespace sds {

namespace {

using QN_SIMD_NAMESPACE::SimdFloat8;

// By row and column of the control grid.
using ControlPair = SimdFloat8[4][4];

constexpr unsigned int turn(unsigned int k, unsigned int by) { return (k + by) & 3u; }

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

// Weights of the points that an edge point is made of, one per corner in the lanes: the corner itself, the edge's other
// end, and, on a smooth edge, the vertices beside them, of which those beside the corner count twice. Sharp edges take
// 2 : 1 of their ends.
struct EdgeWeights {
    SimdFloat8 own[4], far[4], is_smooth[4], reciprocal[4];

    // `sharp` is 1 in the lanes of the corners whose edge is sharp. All weights are small integers: exact.
    EdgeWeights(SimdFloat8 edge_weights, SimdFloat8 sharp) {
        const SimdFloat8 one(1.0f), smooth = one - sharp;
        const SimdFloat8 own_weight = edge_weights * smooth + (sharp + sharp);
        spread(own_weight, own);
        spread(one + SimdFloat8(3.0f) * smooth, far);
        spread(smooth, is_smooth);
        spread(one / (own_weight + (one + SimdFloat8(9.0f) * smooth)), reciprocal);
    }
};

inline SimdFloat8 load_pair(const float* points, unsigned int first, unsigned int second) {
    return SimdFloat8::load3(points + 3 * static_cast<unsigned long>(first),
                             points + 3 * static_cast<unsigned long>(second));
}

// smooth_controls on two patches at once, to the same bits; with `is_local`, relative to the quads' first vertices,
// which it returns.
template <bool is_local>
inline SimdFloat8 compute_controls(const PatchArrays& surface, const unsigned int* primitives, ControlPair& grid) {
    // Grid places of each corner's point, of the edge points that leave it and arrive at it, and of its interior point.
    constexpr unsigned char corner_places[4] = {0, 3, 15, 12}, leaving_places[4] = {1, 7, 14, 8};
    constexpr unsigned char arriving_places[4] = {4, 2, 11, 13}, interior_places[4] = {5, 6, 10, 9};
    SimdFloat8* const controls = &grid[0][0];
    const unsigned int* const quads[2] = {surface.quads + 4 * static_cast<unsigned long>(primitives[0]),
                                          surface.quads + 4 * static_cast<unsigned long>(primitives[1])};
    const SdsMeshBase::BezierPatch& a = surface.patches[primitives[0]];
    const SdsMeshBase::BezierPatch& b = surface.patches[primitives[1]];
    const SimdFloat8 origin = load_pair(surface.vertices, quads[0][0], quads[1][0]);
    const auto place = [&](SimdFloat8 point) {
        if constexpr (is_local)
            return point - origin;
        else
            return point;
    };
    SimdFloat8 q[4];
    for (unsigned int k = 0; k < 4; ++k) {
        q[k] = place(load_pair(surface.vertices, quads[0][k], quads[1][k]));
        controls[corner_places[k]] = place(load_pair(surface.corners, quads[0][k], quads[1][k]));
    }

    const SimdFloat8 edge_weights(a.edge_weights, b.edge_weights);
    const unsigned int sharp_a = a.sharp_edges & 15u, sharp_b = b.sharp_edges & 15u;
    const EdgeWeights leaving(edge_weights, SimdFloat8(bit_lanes.lanes[sharp_a], bit_lanes.lanes[sharp_b]));
    const EdgeWeights arriving(edge_weights, SimdFloat8(bit_lanes.lanes[((sharp_a << 1) | (sharp_a >> 3)) & 15u],
                                                        bit_lanes.lanes[((sharp_b << 1) | (sharp_b >> 3)) & 15u]));
    for (unsigned int k = 0; k < 4; ++k) {
        const unsigned int next = turn(k, 1);
        // Sharp edges have no use for a neighbour and may have none.
        const bool is_sharp_a = ((sharp_a >> k) & 1u) != 0, is_sharp_b = ((sharp_b >> k) & 1u) != 0;
        const auto neighbour = [&](unsigned int i) {
            return place(load_pair(surface.vertices, is_sharp_a ? quads[0][0] : a.neighbour_vertices[2 * k + i],
                                   is_sharp_b ? quads[1][0] : b.neighbour_vertices[2 * k + i]));
        };
        const SimdFloat8 beside = neighbour(0) + q[turn(k, 3)], beside_next = neighbour(1) + q[turn(k, 2)];
        const auto edge_point = [&](const EdgeWeights& w, unsigned int corner, SimdFloat8 own, SimdFloat8 far,
                                    SimdFloat8 near_side, SimdFloat8 far_side) {
            // Chosen, not weighted: what lies beside a sharp edge may be NaN or overflow.
            const SimdFloat8 ends = own * w.own[corner] + far * w.far[corner];
            const SimdFloat8 all = (ends + (near_side + near_side)) + far_side;
            return select_positive(w.is_smooth[corner], all, ends) * w.reciprocal[corner];
        };
        controls[leaving_places[k]] = edge_point(leaving, k, q[k], q[next], beside, beside_next);
        controls[arriving_places[next]] = edge_point(arriving, next, q[next], q[k], beside_next, beside);
    }

    const SimdFloat8 corner_weights(a.corner_weights, b.corner_weights);
    SimdFloat8 own[4], reciprocal[4];
    spread(corner_weights, own);
    spread(SimdFloat8(1.0f) / (corner_weights + SimdFloat8(5.0f)), reciprocal);
    const SimdFloat8 across[2] = {(q[1] + q[3]) * SimdFloat8(2.0f), (q[0] + q[2]) * SimdFloat8(2.0f)};
    for (unsigned int k = 0; k < 4; ++k)
        controls[interior_places[k]] = ((across[k & 1u] + q[k] * own[k]) + q[turn(k, 2)]) * reciprocal[k];
    return origin;
}

// Controls that are stored; with `is_local`, relative to the first of them, which it returns.
template <bool is_local>
inline SimdFloat8 load_controls(const PatchArrays& surface, const unsigned int* primitives, ControlPair& grid) {
    constexpr unsigned char order[16] = {0, 1, 7, 4, 3, 2, 6, 5, 13, 14, 10, 11, 12, 15, 9, 8};
    const unsigned int first[2] = {16 * primitives[0], 16 * primitives[1]};
    const SimdFloat8 origin = load_pair(surface.controls, first[0], first[1]);
    for (unsigned int i = 0; i < 16; ++i) {
        const SimdFloat8 point = load_pair(surface.controls, first[0] + order[i], first[1] + order[i]);
        (&grid[0][0])[i] = is_local ? point - origin : point;
    }
    return origin;
}

// linear_controls on two quads at once, to the same bits.
inline void compute_linear_controls(const PatchArrays& surface, const unsigned int* primitives, ControlPair& grid) {
    const unsigned int* const quads[2] = {surface.quads + 4 * static_cast<unsigned long>(primitives[0]),
                                          surface.quads + 4 * static_cast<unsigned long>(primitives[1])};
    const SimdFloat8 one_third(1.0f / 3.0f), two_thirds(2.0f / 3.0f);
    const auto between = [&](SimdFloat8 near_end, SimdFloat8 far_end) {
        return near_end * two_thirds + far_end * one_third;
    };
    constexpr unsigned char rows[4] = {0, 0, 3, 3}, columns[4] = {0, 3, 3, 0};
    for (unsigned int k = 0; k < 4; ++k)
        grid[rows[k]][columns[k]] = load_pair(surface.vertices, quads[0][k], quads[1][k]);
    for (unsigned int r = 0; r < 4; r += 3) {
        grid[r][1] = between(grid[r][0], grid[r][3]);
        grid[r][2] = between(grid[r][3], grid[r][0]);
    }
    for (unsigned int c = 0; c < 4; ++c) {
        grid[1][c] = between(grid[0][c], grid[3][c]);
        grid[2][c] = between(grid[3][c], grid[0][c]);
    }
}

}  // namespace

}  // namespace sds
