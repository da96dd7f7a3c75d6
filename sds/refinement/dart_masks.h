// Exact limits at darts, where one sharp edge ends in a smooth ring.
//
// The points around a dart go over into those of the next level by a matrix of their own: that of a smooth vertex, but
// for the edge point on the sharp edge, which is its middle. Its left eigenvectors are the masks of the limit point and
// of the tangent plane; unlike a smooth vertex's they have no closed form.
#pragma once

#include "qn_core/core_array.h"
#include "sds/common/value_ops.h"
#include "sds/refinement/refinement_level.h"

namespace sds {

// Weights of the vertex, then of its n edges' ends from the sharp edge on, then of the n diagonals; diagonal i lies
// between the ends i and i + 1. The limit's add up to 1, the tangents' to 0: one tangent along the sharp edge's
// symmetry and one across it.
struct DartMask {
    CoreArray<double> limit, along, across;
};

// Above this a dart is as good as smooth, and the eigenvalues are too close to be told apart.
inline constexpr unsigned int max_dart_valence = 32;

// Made when first asked for, then kept. Any thread.
const DartMask& dart_mask(unsigned int valence);

// The weighted sum of the ring of the vertex at half-edge h, which leaves it along the sharp edge.
template <class Value>
Value sum_dart_ring(const RefinementLevel& level, unsigned int h, unsigned int valence,
                    const CoreArray<double>& weights, const Value* points) {
    using Scalar = typename ValueOps<Value>::Scalar;
    const unsigned int* vertices = level.corner_vertices.get_data();
    Value sum = points[vertices[h]] * static_cast<Scalar>(weights[0]);
    for (unsigned int i = 0; i < valence; ++i) {
        sum = sum + points[vertices[next_in_quad(h)]] * static_cast<Scalar>(weights[1 + i]) +
              points[vertices[turn_in_quad(h, 2)]] * static_cast<Scalar>(weights[1 + valence + i]);
        if (i + 1 < valence) h = level.edges.opposite_edges[previous_in_quad(h)];
    }
    return sum;
}

}  // namespace sds
