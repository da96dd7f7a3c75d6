// The rules that give new vertices and limit points their values, apart from any storage: one set of templates for
// positions, pairs of positions, UVs and property components, in single or double precision.
//
// `source(w)` returns the value of control (or quad-mesh) vertex w; `target` has get(w) and set(w, value) for the
// values of the step.
#pragma once

#include "sds/common/value_ops.h"
#include "sds/mesh_base/sds_mesh_base.h"

namespace sds {

// The ring of half-edges that leave vertex w of the subdivided mesh.
struct Ring {
    const unsigned int* edges;
    unsigned int count;
    Ring(const SdsMeshBase::SubdivisionTopology& subdivision, unsigned int w)
        : edges(subdivision.ring_edges.get_data() + subdivision.vertex_rings[w].offset),
          count(subdivision.vertex_rings[w].count) {}
    const unsigned int* begin() const { return edges; }
    const unsigned int* end() const { return edges + count; }
};

// Mean of the polygon's corners; nothing when none of them is valid.
template <class Value, class Source, class Target>
void set_face_point(const SdsMeshBase::TopologyContext& context, unsigned int w, const Source& source, Target& target) {
    using Scalar = typename ValueOps<Value>::Scalar;
    const unsigned int* quad_indices = context.quad_indices->get_data();
    Value sum = ValueOps<Value>::zero();
    unsigned int count = 0;
    for (const unsigned int h : Ring(*context.subdivision, w)) {
        const unsigned int u = quad_indices[h - 2];
        if (u == none) continue;
        sum = sum + source(u);
        ++count;
    }
    if (count != 0) target.set(w, ValueOps<Value>::divide(sum, static_cast<Scalar>(count)));
}

// The middle of the edge, drawn to the two face points when the edge is smooth.
template <class Value, class Source, class Target>
void set_edge_point(const SdsMeshBase::TopologyContext& context, unsigned int w, bool linear, const Source& source,
                    Target& target) {
    using Scalar = typename ValueOps<Value>::Scalar;
    const unsigned int* quad_indices = context.quad_indices->get_data();
    const SdsMeshBase::EdgesTopology& edges = *context.edges;
    const Ring ring(*context.subdivision, w);
    if (ring.count == 0) return;
    const unsigned int h = corner_of(ring.edges[0]) == 1 || ring.count < 2 ? ring.edges[0] : ring.edges[1];
    const unsigned int o = edges.opposite_edges[h];
    if (o == none) return;
    const Value ends = source(quad_indices[h - 1]) + source(quad_indices[o - 2]);
    const unsigned int g = h - 1;
    if (!linear && !edges.is_sharp(g)) {
        // The half-edge before the opposite one starts at the neighbor's face point when both polygons wind the same
        // way, and at another vertex of its when they do not, which then takes the part of the face point. Where there
        // is no such vertex the edge stays straight.
        const unsigned int across = edges.opposite_edges[g] - 1;
        const unsigned int face = across == none ? none : quad_indices[across];
        if (face != none) {
            target.set(w, (ends + target.get(quad_indices[h + 1]) + target.get(face)) * Scalar(0.25));
            return;
        }
    }
    target.set(w, ends * Scalar(0.5));
}

// Catmull and Clark's vertex rule; crease vertices follow their two sharp edges, corners and kept vertices stay.
template <class Value, class Source, class Target>
void set_vertex_point(const SdsMeshBase::TopologyContext& context, unsigned int w, const Source& source,
                      Target& target) {
    using Scalar = typename ValueOps<Value>::Scalar;
    const unsigned int* quad_indices = context.quad_indices->get_data();
    const SdsMeshBase::EdgesTopology& edges = *context.edges;
    const SdsMeshBase::VertexInfo info = (*context.vertex_infos)[w];
    const Ring ring(*context.subdivision, w);
    const unsigned int n = ring.count;
    const unsigned int s = info.get_sharp_edge_count();
    const Value p = source(w);
    if (info.is_kept() || s == 3 || (s < 2 && n < 2)) {
        target.set(w, p);
    } else if (s < 2 && n > 2) {
        const Scalar inverse = Scalar(1) / static_cast<Scalar>(n);
        Value sum = p * static_cast<Scalar>(n - 2);
        for (const unsigned int h : ring) {
            const unsigned int o = edges.opposite_edges[h + 1];
            sum = sum + (target.get(quad_indices[h + 2]) + source(quad_indices[o - 2])) * inverse;
        }
        target.set(w, sum * inverse);
    } else if (s < 2) {
        const Value next0 = target.get(quad_indices[ring.edges[0] + 1]);
        const Value next1 = target.get(quad_indices[ring.edges[1] + 1]);
        target.set(w, (p * Scalar(2) + next0 + next1) * Scalar(0.25));
    } else {
        Value sum = p * Scalar(2);
        Scalar weight = 2;
        for (const unsigned int h : ring) {
            if (edges.is_sharp(h)) {
                sum = sum + target.get(quad_indices[h + 1]);
                weight += Scalar(1);
            }
            // Creases have been added by the quad on whose side they leave w.
            if (edges.is_border(h + 3)) {
                sum = sum + target.get(quad_indices[h + 3]);
                weight += Scalar(1);
            }
        }
        target.set(w, ValueOps<Value>::divide(sum, weight));
    }
}

// The whole step. Edge points need the face points, control vertices need both. after_vertex(w) follows each vertex.
template <class Value, class Source, class Target, class AfterVertex>
void subdivide_values(const SdsMeshBase::TopologyContext& context, bool linear, const Source& source, Target& target,
                      AfterVertex&& after_vertex) {
    const SdsMeshBase::SubdivisionTopology& subdivision = *context.subdivision;
    for (unsigned int w = subdivision.first_face_point; w < subdivision.vertex_rings.get_count(); ++w) {
        set_face_point<Value>(context, w, source, target);
        after_vertex(w);
    }
    for (unsigned int w = subdivision.first_edge_point; w < subdivision.first_face_point; ++w) {
        set_edge_point<Value>(context, w, linear, source, target);
        after_vertex(w);
    }
    for (unsigned int w = 0; w < subdivision.first_edge_point; ++w) {
        set_vertex_point<Value>(context, w, source, target);
        after_vertex(w);
    }
}

// Where the vertex that half-edge e leaves comes to lie on the limit; `source` gives the quad-mesh vertices.
template <class Value, class Source>
Value limit_point(const SdsMeshBase::TopologyContext& context, unsigned int e, const Source& source) {
    using Scalar = typename ValueOps<Value>::Scalar;
    const unsigned int* quad_indices = context.quad_indices->get_data();
    const unsigned int v = quad_indices[e];
    const SdsMeshBase::VertexInfo info = (*context.vertex_infos)[v];
    const Value p = source(v);
    if (info.is_kept() || info.get_sharp_edge_count() == 3) return p;
    const SdsMeshBase::VertexLocalTopology& fan = context.local_topologies[e];
    if (fan.closed) {
        // (n^2 P + 4 sum of edge neighbors + sum of diagonal neighbors) / (n (n + 5)); a neighbor that a void quad
        // lacks takes its weight with it.
        const auto n = static_cast<Scalar>(fan.valence);
        Value sum = p * (n * n);
        Scalar weight = Scalar(5) * n + n * n;
        unsigned int h = fan.first_edge;
        do {
            const unsigned int edge = quad_indices[next_in_quad(h)], diagonal = quad_indices[turn_in_quad(h, 2)];
            if (edge != none && diagonal != none) {
                sum = sum + source(edge) * Scalar(4) + source(diagonal);
            } else {
                if (edge != none) sum = sum + source(edge) * Scalar(4);
                if (diagonal != none) sum = sum + source(diagonal);
                weight -= (edge == none ? Scalar(4) : Scalar(0)) + (diagonal == none ? Scalar(1) : Scalar(0));
            }
            h = next_in_quad(context.edges->opposite_edges[h]);
        } while (h != fan.first_edge);
        return ValueOps<Value>::divide(sum, weight);
    }
    const unsigned int u = quad_indices[previous_in_quad(fan.first_edge)];
    const unsigned int t = quad_indices[next_in_quad(fan.last_edge)];
    if (u == none || t == none) return p;  // the side of a void quad
    return (p * Scalar(4) + source(u) + source(t)) * (Scalar(1) / Scalar(6));
}

}  // namespace sds
