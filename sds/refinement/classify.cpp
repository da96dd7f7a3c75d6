// Which faces of a level are regular.
#include <cmath>

#include "sds/refinement/refinement_level.h"

namespace sds {

namespace {

SharpVertex& sharp_vertex_at(RefinementLevel& level, unsigned int v) {
    unsigned int& index = level.sharp_indices[v];
    if (index == none) {
        index = level.sharp_vertices.get_count();
        SharpVertex vertex;
        vertex.vertex = v;
        level.sharp_vertices.add(vertex);
    }
    return level.sharp_vertices[index];
}

void add_sharp_edge(SharpVertex& vertex, float s, unsigned int far_end) {
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
    for (const unsigned int e : level.sharp_edges)
        for (unsigned int i = 0; i < 2; ++i)
            add_sharp_edge(sharp_vertex_at(level, level.edge_ends[2 * e + i]), level.edge_sharpness[e],
                           level.edge_ends[2 * e + 1 - i]);
    for (const SharpVertex& tagged : level.tagged_vertices) {
        SharpVertex& vertex = sharp_vertex_at(level, tagged.vertex);
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
    static_assert(RefinementLevel::regular_vertex == 0 && RefinementLevel::irregular_vertex == 3);
    for (unsigned int v = 0, count = level.vertex_count; v < count; ++v)
        kinds[v] = static_cast<unsigned char>((valences[v] != 4) * 3);
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

// Whether exactly two quads lie between the two sharp edges on both sides of corner c.
bool is_half_turn(const RefinementLevel& level, unsigned int c) {
    const unsigned int behind = level.previous_corner(c);
    const bool is_ahead_sharp = level.is_infinite_at(c);
    if (is_ahead_sharp == level.is_infinite_at(behind)) return false;
    const unsigned int smooth = is_ahead_sharp ? behind : c;
    if (level.edges.opposite_edges[smooth] == none) return false;
    return level.is_infinite_at(level.turn_around(level.corner_vertices[c], smooth).edge);
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

bool is_regular_corner(const RefinementLevel& level, unsigned int c) {
    switch (level.vertex_kinds[level.corner_vertices[c]]) {
        case RefinementLevel::regular_vertex:
            return true;
        case RefinementLevel::crease_vertex:
            return is_half_turn(level, c);
        case RefinementLevel::corner_vertex:
            return level.is_infinite_at(c) && level.is_infinite_at(level.previous_corner(c));
        default:
            return false;
    }
}

bool is_regular(const RefinementLevel& level, unsigned int face) {
    const unsigned int begin = level.face_begin(face);
    if (level.face_end(face) - begin != 4) return false;
    for (unsigned int j = 0; j < 4; ++j)
        if (!is_regular_corner(level, begin + j)) return false;
    return true;
}

void classify(RefinementLevel& level, bool is_last) {
    const unsigned int* vertices = level.corner_vertices.get_data();
    const unsigned char* kinds = level.vertex_kinds.get_data();
    FaceState* states = level.states.get_data();
    const FaceState irregular = is_last ? FaceState::leaf : FaceState::refined;
    const auto set_state = [&](unsigned int f, unsigned int begin, auto count) {
        if (states[f] != FaceState::support) return;
        const unsigned int* v = vertices + begin;
        // Corners of other polygons are irregular.
        const bool is_smooth = count == 4 && (kinds[v[0]] | kinds[v[1]] | kinds[v[2]] | kinds[v[3]]) == 0;
        static_assert(RefinementLevel::regular_vertex == 0);
        states[f] = is_smooth || is_regular(level, f) ? FaceState::emitted : irregular;
    };
    level.for_each_face(set_state, level.candidate_count);
}

}  // namespace sds
