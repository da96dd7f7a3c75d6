// The control points of one patch from its quad and its neighbors, for any value and precision. `vertex(w)` returns
// quad-mesh vertex w, `corner(w)` its limit point; controls in corner order.
#pragma once

#include "sds/common/smooth_controls.h"
#include "sds/common/value_ops.h"
#include "sds/mesh_base/sds_mesh_base.h"

namespace sds {

// A patch's record and its points as smooth_controls asks for them.
template <class V, class Vertex, class Corner>
class PatchSource {
public:
    using Value = V;
    using Scalar = typename ValueOps<Value>::Scalar;

    PatchSource(const unsigned int* quad_vertices, const SdsMeshBase::BezierPatch& patch, const Vertex& vertex,
                const Corner& corner_of)
        : m_quad(quad_vertices), m_patch(patch), m_vertex(vertex), m_corner(corner_of) {
        for (unsigned int k = 0; k < 4; ++k)
            m_edge_reciprocals[k] = Scalar(1) / (Scalar(patch.edge_weights[k]) + Scalar(10));
        for (unsigned int k = 0; k < 4; ++k)
            m_interior_reciprocals[k] = Scalar(1) / (Scalar(patch.corner_weights[k]) + Scalar(5));
    }

    Value quad(unsigned int k) const { return m_vertex(m_quad[k]); }
    Value corner(unsigned int k) const { return m_corner(m_quad[k]); }
    Value neighbour(unsigned int k, unsigned int i) const { return m_vertex(m_patch.neighbour_vertices[2 * k + i]); }
    bool is_sharp(unsigned int k) const { return ((m_patch.sharp_edges >> k) & 1u) != 0; }
    static constexpr EdgeShares<Scalar> sharp_shares{Scalar(2), Scalar(1), Scalar(1) / Scalar(3)};
    EdgeShares<Scalar> leaving(unsigned int k) const {
        return {Scalar(m_patch.edge_weights[k]), Scalar(4), m_edge_reciprocals[k]};
    }
    EdgeShares<Scalar> arriving(unsigned int k) const { return leaving(k); }
    Scalar interior_weight(unsigned int k) const { return Scalar(m_patch.corner_weights[k]); }
    Scalar interior_reciprocal(unsigned int k) const { return m_interior_reciprocals[k]; }

private:
    const unsigned int* m_quad;
    const SdsMeshBase::BezierPatch& m_patch;
    const Vertex& m_vertex;
    const Corner& m_corner;
    Scalar m_edge_reciprocals[4], m_interior_reciprocals[4];
};

template <class Value, class Vertex, class Corner>
inline void smooth_controls(const unsigned int* quad, const SdsMeshBase::BezierPatch& patch, const Vertex& vertex,
                            const Corner& corner, Value* out) {
    const PatchSource<Value, Vertex, Corner> source(quad, patch, vertex, corner);
    smooth_controls(source, [out](unsigned int i) -> Value& { return out[i]; });
}

template <class Value, class Vertex>
inline void linear_controls(const unsigned int* quad, const Vertex& vertex, Value* out) {
    using Scalar = typename ValueOps<Value>::Scalar;
    const Value q[4] = {vertex(quad[0]), vertex(quad[1]), vertex(quad[2]), vertex(quad[3])};
    fill_linear_grid(
        q, Scalar(1) / Scalar(3), Scalar(2) / Scalar(3),
        [out](unsigned int row, unsigned int column) -> Value& { return out[grid_order[4 * row + column]]; });
}

}  // namespace sds
