// Values at the points of a local refinement, for any value that has + and * : positions, maps, properties. Nothing
// here decides anything, so the same levels carry any number of value sets with the same weights.
#pragma once

#include "sds/common/value_ops.h"
#include "sds/refinement/level_kernels/level_kernels.h"
#include "sds/refinement/refinement_level.h"
#include "sds/refinement/value_lanes.h"

namespace sds {

// Values that have kernels of their own.
template <class Value>
inline constexpr bool is_point = std::is_same_v<Value, GMathVec3<double>>;

// The values of one level and what its rules need of them.
template <class Value>
struct LevelValues {
    // What is around a vertex: `edges` is summed over the two edges of every face, so that an edge between two faces
    // counts twice; `faces` over the face points.
    // Points take four lanes each.
    struct Sums {
        alignas(is_point<Value> ? 32 : alignof(Value)) Value edges;
        alignas(is_point<Value> ? 32 : alignof(Value)) Value faces;
    };
    CoreArray<Value> points;
    CoreArray<Value> face_points;
    CoreArray<Sums> sums;         // per vertex, or by the children of vertices that have one
    bool has_child_sums = false;  // the latter; of points only

    void reserve(unsigned int face_count, unsigned int vertex_count) {
        points.reserve(vertex_count + 1);  // kernels read and write one number behind the last
        face_points.reserve(face_count + 1);
        sums.reserve(vertex_count + spare_sums);
    }
    const Sums& sum_at(const RefinementLevel& level, unsigned int v) const {
        return sums[has_child_sums ? level.vertex_children[v] : v];
    }
};

// A level as the kernels of points see it; the sums have been resized.
inline LevelPoints get_level_points(const RefinementLevel& level, LevelValues<GMathVec3<double>>& values) {
    LevelPoints view{};
    view.face_count = level.face_count;
    view.edge_count = level.edge_count;
    view.vertex_count = level.vertex_count;
    view.offsets = level.is_quads() ? nullptr : level.offsets.get_data();
    view.faces = level.is_quads() ? nullptr : level.corner_faces.get_data();
    view.vertices = level.corner_vertices.get_data();
    view.opposites = level.edges.opposite_edges.get_data();
    view.valences = level.valences.get_data();
    view.edge_corners = level.edge_corners.get_data();
    view.own_edge_count = level.edge_sharpness.get_count();
    view.edge_ends = level.edge_ends.get_data();
    view.edge_sharpness = level.edge_sharpness.get_data();
    view.infinite_sharpness = infinite_sharpness;
    view.vertex_children = level.vertex_children.get_data();
    view.edge_children = level.edge_children.get_data();
    view.touched_count = level.touched_faces.get_count();
    view.touched_faces = level.touched_faces.get_data();
    view.face_children = level.face_children.get_data();
    view.points = reinterpret_cast<const double*>(values.points.get_data());
    view.face_points = reinterpret_cast<double*>(values.face_points.get_data());
    view.sum_count = values.has_child_sums ? level.vertex_child_count : level.vertex_count;
    view.sum_indices = values.has_child_sums ? level.vertex_children.get_data() : nullptr;
    view.sums = reinterpret_cast<double*>(values.sums.get_data());
    static_assert(sizeof(LevelValues<GMathVec3<double>>::Sums) == 8 * sizeof(double));
    return view;
}

// Face points and sums from the points, of the given faces, in increasing order, and of the vertices that have no
// others; or of points only of the vertices with a child, which takes less memory.
template <class Value>
void sum_neighbors(const RefinementLevel& level, LevelValues<Value>& values, const CoreBasicArray<unsigned int>& faces,
                   bool has_child_sums = false) {
    using Scalar = typename ValueOps<Value>::Scalar;
    using Sums = typename LevelValues<Value>::Sums;
    values.reserve(level.face_count, level.vertex_count);
    values.face_points.resize(level.face_count);
    values.has_child_sums = is_point<Value> && has_child_sums;
    values.sums.resize((values.has_child_sums ? level.vertex_child_count : level.vertex_count) + spare_sums);
    if constexpr (is_point<Value>)
        return get_level_kernels().sum_neighbors(get_level_points(level, values), faces.get_data(), faces.get_count());
    const Value* points = values.points.get_data();
    Sums* sums = values.sums.get_data();
    for (const unsigned int f : faces)
        for (unsigned int c = level.face_begin(f), end = level.face_end(f); c < end; ++c)
            sums[level.corner_vertices[c]] = {ValueOps<Value>::zero(), ValueOps<Value>::zero()};
    for (const unsigned int f : faces) {
        const unsigned int begin = level.face_begin(f);
        const unsigned int count = level.face_end(f) - begin;
        const unsigned int* corners = level.corner_vertices.get_data() + begin;
        if (count == 4 && level.is_quads()) {
            const Value& a = points[corners[0]];
            const Value& b = points[corners[1]];
            const Value& c = points[corners[2]];
            const Value& d = points[corners[3]];
            const Value ac = a + c;
            const Value bd = b + d;
            const Value center = (ac + bd) * Scalar(0.25);
            values.face_points[f] = center;
            for (unsigned int k = 0; k < 4; ++k) {
                Sums& sum = sums[corners[k]];
                sum.edges = sum.edges + ((k & 1u) == 0 ? bd : ac);
                sum.faces = sum.faces + center;
            }
        } else {
            Value center = ValueOps<Value>::zero();
            for (unsigned int j = 0; j < count; ++j) center = center + points[corners[j]];
            if (count != 0) center = ValueOps<Value>::divide(center, static_cast<Scalar>(count));
            values.face_points[f] = center;
            for (unsigned int j = 0; j < count; ++j) {
                Sums& sum = sums[corners[j]];
                sum.edges = sum.edges + points[corners[j + 1 == count ? 0 : j + 1]] +
                            points[corners[j == 0 ? count - 1 : j - 1]];
                sum.faces = sum.faces + center;
            }
        }
    }
}

template <class Value>
void sum_neighbors(const RefinementLevel& level, LevelValues<Value>& values) {
    CoreArray<unsigned int> all(level.face_count);
    for (unsigned int f = 0; f < level.face_count; ++f) all[f] = f;
    sum_neighbors(level, values, all);
}

// Weights in smooth edge points: of the two ends and of the two face points.
struct EdgeWeights {
    double end, face;
};

// Triangles may weigh more, which keeps surfaces of triangles from undulating (Stam and Loop 2003).
inline EdgeWeights smooth_edge_weights(unsigned int size0, unsigned int size1, bool smooth_triangles) {
    constexpr double triangle_weight = 0.470;
    if (!smooth_triangles || (size0 != 3 && size1 != 3)) return {0.25, 0.25};
    const double face = 0.5 * ((size0 == 3 ? triangle_weight : 0.25) + (size1 == 3 ? triangle_weight : 0.25));
    return {0.5 * (1.0 - 2.0 * face), face};
}

// Points of the next level. `values` is complete where the step makes points; `next` gets its points.
template <class Value>
void refine_values(const RefinementLevel& level, const RefinementLevel& fine, bool smooth_triangles,
                   LevelValues<Value>& values, LevelValues<Value>& next) {
    using Scalar = typename ValueOps<Value>::Scalar;
    next.points.reserve(fine.vertex_count + 1);
    next.points.resize(fine.vertex_count);
    const Value* points = values.points.get_data();
    Value* out = next.points.get_data();

    const auto edge_point = [&](unsigned int e) {
        const unsigned int c = level.edge_corners[e];
        const bool is_own = e < level.edge_sharpness.get_count();
        const Value ends = is_own ? points[level.edge_ends[2 * e]] + points[level.edge_ends[2 * e + 1]]
                                  : points[level.edge_start(c)] + points[level.edge_end(c)];
        const float s = is_own ? level.edge_sharpness[e] : 0.0f;
        Scalar crease = 1;
        if (!is_infinitely_sharp(s)) {
            const auto half = [&](unsigned int i) {
                const unsigned int h = level.edge_halves[2 * e + i];
                return h == none ? 0.0f : fine.edge_sharpness[h];
            };
            crease = s > 0.0f ? static_cast<Scalar>(edge_crease_weight(s, half(0), half(1))) : Scalar(0);
        }
        if (crease == Scalar(1)) return Value(ends * Scalar(0.5));
        const unsigned int f0 = level.face_of(c);
        const unsigned int f1 = level.face_of(level.edges.opposite_edges[c]);
        const Value faces = values.face_points[f0] + values.face_points[f1];
        Value smooth;
        if (level.is_quads()) {
            smooth = (ends + faces) * Scalar(0.25);
        } else {
            const EdgeWeights w = smooth_edge_weights(level.face_end(f0) - level.face_begin(f0),
                                                      level.face_end(f1) - level.face_begin(f1), smooth_triangles);
            smooth = ends * static_cast<Scalar>(w.end) + faces * static_cast<Scalar>(w.face);
        }
        return crease == Scalar(0) ? smooth : ends * (Scalar(0.5) * crease) + smooth * (Scalar(1) - crease);
    };
    // (n - 2) / n V + mean of the edges' ends / n + mean of the face points / n (Catmull and Clark 1978).
    const auto smooth_point = [&](unsigned int v) {
        const auto n = static_cast<Scalar>(level.valences[v]);
        const Scalar inverse = Scalar(1) / n;
        const auto& sum = values.sum_at(level, v);
        return points[v] * ((n - Scalar(2)) * inverse) + (sum.edges * Scalar(0.5) + sum.faces) * (inverse * inverse);
    };

    bool has_kernel = false;
    if constexpr (is_point<Value>) {
        has_kernel = level.is_quads() || !smooth_triangles;
        if (has_kernel) {
            LevelPoints view = get_level_points(level, values);
            view.fine_points = reinterpret_cast<double*>(out);
            if (!get_level_kernels().refine_points(view))
                for (const unsigned int e : level.sharp_edges)
                    if (level.edge_children[e] != none) out[level.edge_children[e]] = edge_point(e);
        }
    }
    if (!has_kernel) {
        for (const unsigned int f : level.touched_faces) out[level.face_children[f]] = values.face_points[f];
        for (unsigned int e = 0; e < level.edge_count; ++e)
            if (level.edge_children[e] != none) out[level.edge_children[e]] = edge_point(e);
        for (unsigned int v = 0; v < level.vertex_count; ++v)
            if (level.vertex_children[v] != none) out[level.vertex_children[v]] = smooth_point(v);
    }
    for (const SharpVertex& vertex : level.sharp_vertices) {
        const unsigned int v = vertex.vertex;
        if (level.vertex_children[v] == none) continue;
        const VertexMask& mask = vertex.mask;
        if (mask.smooth == 1.0) continue;
        const auto crease_point = [&](const unsigned int* ends) {
            return points[v] * Scalar(0.75) + (points[ends[0]] + points[ends[1]]) * Scalar(0.125);
        };
        Value point = points[v] * static_cast<Scalar>(mask.corner);
        if (mask.crease != 0.0) point = point + crease_point(vertex.ends) * static_cast<Scalar>(mask.crease);
        if (mask.child_crease != 0.0)
            point = point + crease_point(vertex.child_ends) * static_cast<Scalar>(mask.child_crease);
        if (mask.smooth != 0.0) point = point + smooth_point(v) * static_cast<Scalar>(mask.smooth);
        out[level.vertex_children[v]] = point;
    }
}

// (n^2 V + 4 sum of the edges' ends + sum of the diagonals) / (n (n + 5)), with the diagonals expressed by face points
// (Halstead, Kass, DeRose 1993). Of quads.
template <class Value>
Value smooth_limit(const RefinementLevel& level, const LevelValues<Value>& values, unsigned int v) {
    using Scalar = typename ValueOps<Value>::Scalar;
    const auto n = static_cast<Scalar>(level.valences[v]);
    const auto& sum = values.sums[v];
    return (values.points[v] * (n * n - n) + sum.edges + sum.faces * Scalar(4)) * (Scalar(1) / (n * (n + Scalar(5))));
}

// The same of the vertex at half-edge e, summed around it in the order of the faces, as they were all summed. False
// unless its faces are one fan of up to 32 in which all wind the same way.
template <class Value>
bool find_fan_limit(const RefinementLevel& level, const LevelValues<Value>& values, unsigned int e, Value& limit) {
    using Access = ValueLanes<Value>;
    using Scalar = typename ValueOps<Value>::Scalar;
    const unsigned int* vertices = level.corner_vertices.get_data();
    const unsigned int* opposites = level.edges.opposite_edges.get_data();
    const unsigned int v = vertices[e], valence = level.valences[v];
    constexpr unsigned int most = 32;
    if (valence > most) return false;
    unsigned int fan[most];
    unsigned int count = 0;
    unsigned int h = e;
    do {
        unsigned int last = h;
        for (unsigned int i = 0; i < count; ++i) {
            const unsigned int other = fan[i];
            fan[i] = std::min(other, last);
            last = std::max(other, last);
        }
        fan[count++] = last;
        h = opposites[previous_in_quad(h)];
        if (h == none || vertices[h] != v) return false;
    } while (h != e && count < valence);
    if (h != e || count != valence) return false;
    typename Access::Type edges = Access::load(ValueOps<Value>::zero()), faces = edges;
    for (unsigned int i = 0; i < count; ++i) {
        const unsigned int* quad = vertices + (fan[i] & ~3u);
        const auto load = [&](unsigned int k) { return Access::load(values.points[quad[k]]); };
        const typename Access::Type pairs[2] = {load(1) + load(3), load(0) + load(2)};
        edges = edges + pairs[fan[i] & 1u];
        faces = faces + (pairs[1] + pairs[0]) * Scalar(0.25);
    }
    const auto n = static_cast<Scalar>(valence);
    Access::store((Access::load(values.points[v]) * (n * n - n) + edges + faces * Scalar(4)) *
                      (Scalar(1) / (n * (n + Scalar(5)))),
                  limit);
    return true;
}

template <class Value>
Value crease_limit(const LevelValues<Value>& values, unsigned int v, const unsigned int* ends) {
    using Scalar = typename ValueOps<Value>::Scalar;
    return (values.points[v] * Scalar(4) + values.points[ends[0]] + values.points[ends[1]]) * (Scalar(1) / Scalar(6));
}

// What is left of the fractional sharpness around a vertex, as a share of infinite sharpness.
inline float fractional_share(const SharpVertex& vertex) {
    if (is_fractional(vertex.sharpness)) return remaining_weight(vertex.sharpness);
    if (vertex.fractional.count == 0) return 1.0f;
    return vertex.fractional_weight / static_cast<float>(vertex.fractional.count);
}

// The limit point of a sharp vertex of a level of quads, with its fractional edges taken as infinitely sharp or as
// smooth.
template <class Value>
Value limit_point(const RefinementLevel& level, const LevelValues<Value>& values, const SharpVertex& vertex,
                  bool is_hard) {
    const float sharpness = is_hard || is_infinitely_sharp(vertex.sharpness) ? vertex.sharpness : 0.0f;
    switch (vertex_rule(sharpness, is_hard ? vertex.edge_count : vertex.infinite_count)) {
        case VertexRule::corner:
            return values.points[vertex.vertex];
        case VertexRule::crease:
            return crease_limit(values, vertex.vertex, is_hard ? vertex.ends : vertex.infinite_ends);
        default:
            return smooth_limit(level, values, vertex.vertex);
    }
}

// The limit point with the blend of both that stands for what is left of fractional sharpness.
template <class Value>
Value limit_point(const RefinementLevel& level, const LevelValues<Value>& values, const SharpVertex& vertex) {
    using Scalar = typename ValueOps<Value>::Scalar;
    if (!vertex.is_fractional()) return limit_point(level, values, vertex, true);
    const auto w = static_cast<Scalar>(fractional_share(vertex));
    return limit_point(level, values, vertex, true) * w + limit_point(level, values, vertex, false) * (Scalar(1) - w);
}

// Of any vertex of a level of quads.
template <class Value>
Value limit_point(const RefinementLevel& level, const LevelValues<Value>& values, unsigned int v) {
    const SharpVertex* vertex = level.sharp_vertex(v);
    return vertex != nullptr ? limit_point(level, values, *vertex) : smooth_limit(level, values, v);
}

}  // namespace sds
