// Which faces of a level are regular.
#include <cmath>
#include <cstring>

#include "sds/common/listed_walks.h"
#include "sds/refinement/refinement_level.h"

namespace sds {

namespace {

void add_sharp_edge(SharpVertex& vertex, unsigned int v, float s, unsigned int far_end) {
    vertex.vertex = v;
    if (vertex.edge_count < 2) vertex.ends[vertex.edge_count] = far_end;
    ++vertex.edge_count;
    if (is_infinitely_sharp(s)) {
        if (vertex.infinite_count < 2) vertex.infinite_ends[vertex.infinite_count] = far_end;
        ++vertex.infinite_count;
    } else {
        ++vertex.fractional.count;
        vertex.fractional.sum += s;
        vertex.fractional_weight += remaining_weight(s);
    }
}

void gather_sharp_vertices(RefinementLevel& level) {
    if (level.sharp_edges.is_empty() && level.tagged_vertices.is_empty()) return;
    level.sharp_indices.assign(level.vertex_count, none);
    unsigned int* indices = level.sharp_indices.get_data();
    const unsigned int* ends = level.edge_ends.get_data();
    // Whether a vertex was met before is hard to foretell.
    unsigned int count = 0;
    const auto number = [&](unsigned int v) {
        const unsigned int index = indices[v], is_known = 0u - (index != none ? 1u : 0u);
        indices[v] = (index & is_known) | (count & ~is_known);
        count += 1 + is_known;
    };
    for (const unsigned int e : level.sharp_edges) {
        number(ends[2 * size_t{e}]);
        number(ends[2 * size_t{e} + 1]);
    }
    for (const SharpVertex& tagged : level.tagged_vertices) number(tagged.vertex);
    level.sharp_vertices.resize(count);
    SharpVertex* vertices = level.sharp_vertices.get_data();
    for (const unsigned int e : level.sharp_edges) {
        const unsigned int v = ends[2 * size_t{e}], w = ends[2 * size_t{e} + 1];
        add_sharp_edge(vertices[indices[v]], v, level.edge_sharpness[e], w);
        add_sharp_edge(vertices[indices[w]], w, level.edge_sharpness[e], v);
    }
    for (const SharpVertex& tagged : level.tagged_vertices) {
        SharpVertex& vertex = vertices[indices[tagged.vertex]];
        vertex.vertex = tagged.vertex;
        vertex.sharpness = std::max(vertex.sharpness, tagged.sharpness);
    }
}

void flag_creases(RefinementLevel& level) {
    level.edges.quad_edge_flags.assign(level.face_count, static_cast<unsigned char>(0));
    const auto flag = [&level](unsigned int h) {
        const unsigned int f = level.face_of(h);
        const unsigned int k = h - level.face_begin(f);
        unsigned char& flags = level.edges.quad_edge_flags[f];
        if (k < 4) flags = static_cast<unsigned char>(flags | 1u << k);
    };
    for (const unsigned int e : level.sharp_edges) {
        const unsigned int h = level.edge_corners[e];
        if (!is_infinitely_sharp(level.edge_sharpness[e]) || h == none) continue;
        flag(h);
        if (const unsigned int o = level.edges.opposite_edges[h]; o != none) flag(o);
    }
}

void find_vertex_kinds(RefinementLevel& level) {
    level.vertex_kinds.resize(level.vertex_count);
    const unsigned int* valences = level.valences.get_data();
    unsigned char* kinds = level.vertex_kinds.get_data();
    static_assert(RefinementLevel::regular_vertex == 0);
    for (unsigned int v = 0, count = level.vertex_count; v < count; ++v)
        kinds[v] = static_cast<unsigned char>((valences[v] != 4) * RefinementLevel::irregular_vertex);
    for (const SharpVertex& vertex : level.sharp_vertices) {
        unsigned char& kind = level.vertex_kinds[vertex.vertex];
        if (vertex.is_fractional())
            kind = RefinementLevel::irregular_vertex;
        else if (vertex.is_corner())
            kind = RefinementLevel::corner_vertex;
        else
            kind = vertex.infinite_count == 2 ? RefinementLevel::crease_vertex : RefinementLevel::irregular_vertex;
    }
    if (level.is_quads()) return;
    level.for_each_face([&](unsigned int, unsigned int begin, unsigned int count) {
        if (count == 4) return;
        for (unsigned int j = 0; j < count; ++j)
            kinds[level.corner_vertices[begin + j]] = RefinementLevel::irregular_vertex;
    });
}

// See find_regular_corners. Where creases run is hard to foretell, hence without branches.
template <bool is_quads>
unsigned int find_regular_corners_of(const RefinementLevel& level, unsigned int begin) {
    const unsigned int* vertices = level.corner_vertices.get_data();
    const unsigned int* opposites = level.edges.opposite_edges.get_data();
    const unsigned char* slots = level.corner_slots.get_data();
    const unsigned char* flags = level.edges.quad_edge_flags.get_data();
    // Edges of three polygons are flagged on one of them only, but have nothing across.
    const auto is_border = [opposites](unsigned int c) { return opposites[c] == none ? 1u : 0u; };
    unsigned int ahead = flags[is_quads ? quad_of(begin) : level.corner_faces[begin]];  // of corner k: edge k
    for (unsigned int k = 0; k < 4; ++k) ahead |= is_border(begin + k) << k;
    ahead &= 15u;
    const unsigned int behind = (ahead << 1 | ahead >> 3) & 15u;
    unsigned int regular = 0;
#pragma GCC unroll 4
    for (unsigned int k = 0; k < 4; ++k) {
        // Whether exactly two quads lie between two sharp edges: the face across the smooth one ends at a sharp one.
        // Around crease vertices that face is a quad.
        const unsigned int v = vertices[begin + k];
        const unsigned int smooth = begin + ((k + 3 * (ahead >> k & 1u)) & 3u);
        const unsigned int o = opposites[smooth] == none ? smooth : opposites[smooth];
        const unsigned int slot = is_quads ? o & 3u : slots[o] & 3u;
        const unsigned int next_slot = (slot + (vertices[o] == v ? 3 : 1)) & 3u;
        const unsigned int next = is_quads || slots[o] != RefinementLevel::no_slot ? o - slot + next_slot : o;
        const unsigned int face = is_quads ? quad_of(o) : level.corner_faces[o];
        const unsigned int is_half_turn = (ahead ^ behind) >> k & (flags[face] >> next_slot | is_border(next)) & 1u;
        const unsigned int of_kinds = 1u << RefinementLevel::regular_vertex |
                                      is_half_turn << RefinementLevel::crease_vertex |
                                      ((ahead & behind) >> k & 1u) << RefinementLevel::corner_vertex;
        regular |= (of_kinds >> level.vertex_kinds[v] & 1u) << k;
    }
    return regular;
}

}  // namespace

float remaining_weight(float s) { return is_infinitely_sharp(s) ? 1.0f : 1.0f - std::exp2(-s); }

void add_edge(RefinementLevel& level, unsigned int c, float sharpness, unsigned char marks) {
    const unsigned int e = level.edge_count++;
    level.corner_edges[c] = e;
    if (const unsigned int o = level.edges.opposite_edges[c]; o != none) level.corner_edges[o] = e;
    level.edge_corners.add(c);
    level.edge_ends.add(level.edge_start(c));
    level.edge_ends.add(level.edge_end(c));
    level.edge_sharpness.add(sharpness);
    level.edge_marks.add(marks);
    if (sharpness > 0.0f) level.sharp_edges.add(e);
}

void complete_level(RefinementLevel& level) {
    gather_sharp_vertices(level);
    flag_creases(level);
    find_vertex_kinds(level);
    level.face_patches.resize(level.candidate_count);
}

unsigned int find_regular_corners(const RefinementLevel& level, unsigned int quad) {
    return level.is_quads() ? find_regular_corners_of<true>(level, 4 * quad)
                            : find_regular_corners_of<false>(level, level.offsets[quad]);
}

void classify(RefinementLevel& level, bool is_last) {
    FaceState* states = level.states.get_data();
    // Most levels know them from the step.
    if (std::memchr(states, static_cast<int>(FaceState::support), level.candidate_count) == nullptr) return;
    const unsigned int* vertices = level.corner_vertices.get_data();
    const unsigned char* kinds = level.vertex_kinds.get_data();
    const FaceState state_of[2] = {is_last ? FaceState::leaf : FaceState::refined, FaceState::emitted};
    // Sharp faces are hard to foretell, others only need a look at the kinds of their vertices.
    const unsigned int* offsets = level.is_quads() ? nullptr : level.offsets.get_data();
    const auto is_sharp = [=](unsigned int f) {
        const unsigned int* v = vertices + (offsets == nullptr ? 4 * f : offsets[f]);
        // Corners of polygons are irregular.
        const unsigned int last = offsets == nullptr || offsets[f + 1] - offsets[f] == 4 ? 3 : 0;
        const unsigned int all = kinds[v[0]] | kinds[v[1]] | kinds[v[2]] | kinds[v[last]];
        static_assert(RefinementLevel::regular_vertex == 0);
        const bool is_open = states[f] == FaceState::support;
        states[f] = is_open ? state_of[all == 0] : states[f];
        return is_open & (all != 0) & ((all & RefinementLevel::irregular_vertex) == 0);
    };
    for_each_where(level.candidate_count, is_sharp,
                   [&](unsigned int f) { states[f] = state_of[find_regular_corners(level, f) == 15]; });
}

}  // namespace sds
