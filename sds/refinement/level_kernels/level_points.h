// Points of the next level, in lanes: what value_rules.h computes for any value, with the same bits. For the kernels of
// one instruction set.
//
// Points go out in the order of their numbers, four lanes at a time: the fourth is overwritten by the next.
#pragma once

#include "qn_simd/simd_double4.h"
#include "sds/common/listed_walks.h"
#include "sds/refinement/level_kernels/face_corners.h"
#include "sds/refinement/level_kernels/level_kernels.h"

namespace sds {

namespace {

using QN_SIMD_NAMESPACE::SimdDouble4;

constexpr unsigned int sum_stride = 8;

// Where the sums of vertices are. What is summed at vertices that have none goes to a few places behind the others, in
// turn, so that additions seldom wait for each other.
class SumPlaces {
public:
    explicit SumPlaces(const LevelPoints& level)
        : m_sums(level.sums), m_indices(level.sum_indices), m_count(level.sum_count) {}

    template <bool has_indices>
    [[gnu::always_inline]] double* find(unsigned int v) const {
        if (!has_indices) return m_sums + sum_stride * size_t{v};
        const unsigned int i = m_indices[v], spare = m_count + v % spare_sums;
        return m_sums + sum_stride * size_t{i < spare ? i : spare};
    }
    // Of the vertices of some faces.
    template <bool has_indices, class ForEachVertex>
    [[gnu::always_inline]] void clear(bool are_most, const ForEachVertex& for_each_vertex) const {
        const SimdDouble4 zero(0.0);
        const auto clear = [zero](double* sum) {
            zero.store4(sum);
            zero.store4(sum + 4);
        };
        if (has_indices || are_most)
            for (size_t i = 0; i < m_count + spare_sums; ++i) clear(m_sums + sum_stride * i);
        else
            for_each_vertex([&](unsigned int v) { clear(find<false>(v)); });
    }

private:
    double* m_sums;
    const unsigned int* m_indices;
    unsigned int m_count;
};

template <bool has_indices>
void sum_polygons(const LevelPoints& level, const unsigned int* faces, unsigned int count) {
    const SumPlaces places(level);
    const auto load = [&level](unsigned int v) { return SimdDouble4::load4(level.points + 3 * size_t{v}); };
    places.clear<has_indices>(false, [&](const auto& clear) {
        for (unsigned int i = 0; i < count; ++i)
            for (unsigned int c = level.offsets[faces[i]]; c < level.offsets[faces[i] + 1]; ++c)
                clear(level.vertices[c]);
    });
    for (unsigned int i = 0; i < count; ++i) {
        const unsigned int begin = level.offsets[faces[i]], end = level.offsets[faces[i] + 1];
        SimdDouble4 center(0.0);
        for (unsigned int c = begin; c < end; ++c) center = center + load(level.vertices[c]);
        if (begin != end) center = center / SimdDouble4(static_cast<double>(end - begin));
        center.store4(level.face_points + 3 * size_t{faces[i]});
        for (unsigned int c = begin, behind = end - 1; c < end; behind = c++) {
            const unsigned int ahead = c + 1 == end ? begin : c + 1;
            double* sum = places.find<has_indices>(level.vertices[c]);
            (SimdDouble4::load4(sum) + load(level.vertices[ahead]) + load(level.vertices[behind])).store4(sum);
            (SimdDouble4::load4(sum + 4) + center).store4(sum + 4);
        }
    }
}

template <bool has_indices>
void sum_quads(const LevelPoints& level, const unsigned int* faces, unsigned int count) {
    const SumPlaces places(level);
    const SimdDouble4 quarter(0.25);
    // Mostly all vertices, in order.
    places.clear<has_indices>(2 * count > level.vertex_count, [&](const auto& clear) {
        for (unsigned int i = 0; i < count; ++i)
            for (unsigned int k = 0; k < 4; ++k) clear(level.vertices[4 * size_t{faces[i]} + k]);
    });
    for (unsigned int i = 0; i < count; ++i) {
        const unsigned int* quad = level.vertices + 4 * size_t{faces[i]};
        const auto load = [&level](unsigned int v) { return SimdDouble4::load4(level.points + 3 * size_t{v}); };
        const SimdDouble4 ac = load(quad[0]) + load(quad[2]), bd = load(quad[1]) + load(quad[3]);
        const SimdDouble4 center = (ac + bd) * quarter;
        center.store4(level.face_points + 3 * size_t{faces[i]});
        for (unsigned int k = 0; k < 4; ++k) {
            double* sum = places.find<has_indices>(quad[k]);
            (SimdDouble4::load4(sum) + ((k & 1u) == 0 ? bd : ac)).store4(sum);
            (SimdDouble4::load4(sum + 4) + center).store4(sum + 4);
        }
    }
}

void sum_neighbors(const LevelPoints& level, const unsigned int* faces, unsigned int count) {
    const auto sum = level.offsets != nullptr
                         ? level.sum_indices != nullptr ? &sum_polygons<true> : &sum_polygons<false>
                     : level.sum_indices != nullptr ? &sum_quads<true>
                                                    : &sum_quads<false>;
    sum(level, faces, count);
}

bool refine_points(const LevelPoints& level) {
    constexpr unsigned int no_point = 0xFFFFFFFF;
    const auto load = [](const double* points, unsigned int i) { return SimdDouble4::load4(points + 3 * size_t{i}); };
    const auto store = [&level](unsigned int i, SimdDouble4 point) { point.store4(level.fine_points + 3 * size_t{i}); };
    const SimdDouble4 half(0.5), quarter(0.25);
    for_each_with_child(level.vertex_children, level.vertex_count, [&](unsigned int v) {
        const double n = static_cast<double>(level.valences[v]);
        const double inverse = 1.0 / n;
        const unsigned int place = level.sum_indices != nullptr ? level.sum_indices[v] : v;
        const double* sum = level.sums + sum_stride * size_t{place};
        store(level.vertex_children[v],
              load(level.points, v) * SimdDouble4((n - 2.0) * inverse) +
                  (SimdDouble4::load4(sum) * half + SimdDouble4::load4(sum + 4)) * SimdDouble4(inverse * inverse));
    });
    const bool is_quads = level.offsets == nullptr;
    const auto store_smooth = [&](unsigned int e, SimdDouble4 ends) {
        const unsigned int c = level.edge_corners[e];
        const unsigned int o = level.opposites[c];
        const SimdDouble4 faces = load(level.face_points, is_quads ? c >> 2 : level.faces[c]) +
                                  load(level.face_points, is_quads ? o >> 2 : level.faces[o]);
        store(level.edge_children[e], is_quads ? (ends + faces) * quarter : ends * quarter + faces * quarter);
    };
    bool is_complete = true;
    for (unsigned int e = 0; e < level.own_edge_count; ++e) {
        const unsigned int child = level.edge_children[e];
        if (child == no_point) continue;
        const SimdDouble4 ends =
            load(level.points, level.edge_ends[2 * size_t{e}]) + load(level.points, level.edge_ends[2 * size_t{e} + 1]);
        const float sharpness = level.edge_sharpness[e];
        if (sharpness == 0.0f)
            store_smooth(e, ends);
        else if (sharpness >= level.infinite_sharpness)
            store(child, ends * half);
        else
            is_complete = false;
    }
    for (unsigned int e = level.own_edge_count; e < level.edge_count; ++e) {
        const unsigned int c = level.edge_corners[e];
        const unsigned int next = is_quads ? next_corner(c) : PolygonFaces{level.offsets, level.faces}.next(c);
        store_smooth(e, load(level.points, level.vertices[c]) + load(level.points, level.vertices[next]));
    }
    for (unsigned int i = 0; i < level.touched_count; ++i) {
        const unsigned int f = level.touched_faces[i];
        store(level.face_children[f], load(level.face_points, f));
    }
    return is_complete;
}

}  // namespace

}  // namespace sds
