// The sixteen control points of one patch from its quad and its neighbours (Loop and Schaefer 2008, section 3), for any
// value and precision. `vertex(w)` returns quad-mesh vertex w, `corner(w)` its limit point; controls in corner order.
#pragma once

#include "sds/common/control_grid.h"
#include "sds/common/value_ops.h"
#include "sds/mesh_base/sds_mesh_base.h"

namespace sds {

// Smooth patch. Each edge point's sums are formed in an order that does not depend on the side from which the edge is
// seen, so that two patches that share a smooth edge compute its points to the same bits.
template <class Value, class Vertex, class Corner>
inline void smooth_controls(const unsigned int* quad, const SdsMeshBase::BezierPatch& patch, const Vertex& vertex,
                            const Corner& corner, Value* out) {
    using Scalar = typename ValueOps<Value>::Scalar;
    const Value q[4] = {vertex(quad[0]), vertex(quad[1]), vertex(quad[2]), vertex(quad[3])};

    Scalar edge_reciprocals[4], corner_reciprocals[4];
    for (unsigned int k = 0; k < 4; ++k) edge_reciprocals[k] = Scalar(1) / (Scalar(patch.edge_weights[k]) + Scalar(10));
    for (unsigned int k = 0; k < 4; ++k)
        corner_reciprocals[k] = Scalar(1) / (Scalar(patch.corner_weights[k]) + Scalar(5));

    const Value across13 = (q[1] + q[3]) * Scalar(2);
    const Value across02 = (q[0] + q[2]) * Scalar(2);
    for (unsigned int k = 0; k < 4; ++k) {
        const Scalar weight = Scalar(patch.corner_weights[k]);
        const Value& across = (k & 1u) == 0 ? across13 : across02;
        out[interior_control(k)] = (across + q[k] * weight + q[(k + 2) & 3u]) * corner_reciprocals[k];
    }

    for (unsigned int k = 0; k < 4; ++k) {
        const unsigned int next = (k + 1) & 3u;
        const Value& a = q[k];
        const Value& b = q[next];
        Value& next_to_a = out[leaving_edge_control(k)];
        Value& next_to_b = out[arriving_edge_control(next)];
        if (((patch.sharp_edges >> k) & 1u) != 0) {
            constexpr Scalar third = Scalar(1) / Scalar(3);
            next_to_a = (a * Scalar(2) + b) * third;
            next_to_b = (b * Scalar(2) + a) * third;
        } else {
            const Value beside_a = vertex(patch.neighbour_vertices[2 * k]) + q[(k + 3) & 3u];
            const Value beside_b = vertex(patch.neighbour_vertices[2 * k + 1]) + q[(k + 2) & 3u];
            next_to_a = (a * Scalar(patch.edge_weights[k]) + b * Scalar(4) + beside_a * Scalar(2) + beside_b) *
                        edge_reciprocals[k];
            next_to_b = (b * Scalar(patch.edge_weights[next]) + a * Scalar(4) + beside_b * Scalar(2) + beside_a) *
                        edge_reciprocals[next];
        }
    }

    for (unsigned int k = 0; k < 4; ++k) out[corner_control(k)] = corner(quad[k]);
}

// Bilinear patch as a bicubic one.
template <class Value, class Vertex>
inline void linear_controls(const unsigned int* quad, const Vertex& vertex, Value* out) {
    using Scalar = typename ValueOps<Value>::Scalar;
    const Scalar one_third = Scalar(1) / Scalar(3);
    const Scalar two_thirds = Scalar(2) / Scalar(3);
    for (unsigned int k = 0; k < 4; ++k) out[corner_control(k)] = vertex(quad[k]);
    for (unsigned int k = 0; k < 4; ++k) {
        const Value& q = out[corner_control(k)];
        out[leaving_edge_control(k)] = q * two_thirds + out[corner_control((k + 1) & 3u)] * one_third;
        out[arriving_edge_control(k)] = q * two_thirds + out[corner_control((k + 3) & 3u)] * one_third;
    }
    out[2] = out[1] * two_thirds + out[15] * one_third;
    out[6] = out[7] * two_thirds + out[9] * one_third;
    out[10] = out[9] * two_thirds + out[7] * one_third;
    out[14] = out[15] * two_thirds + out[1] * one_third;
}

}  // namespace sds
