// The first level of a refinement: the cage's polygons with numbered edges, and what their borders, tags and
// irregularities make sharp.
#include <algorithm>
#include <cstdint>

#include "sds/common/listed_walks.h"
#include "sds/common/polygon_offsets.h"
#include "sds/refinement/refinement_level.h"

namespace sds {

namespace {

bool is_void(const RefinementCage& cage, unsigned int begin, unsigned int end) {
    for (unsigned int c = begin; c < end; ++c)
        if (cage.polygon_indices[c] == none) return true;
    return false;
}

// Into the storage that the array has.
void copy(const CoreBasicArray<unsigned int>& from, CoreArray<unsigned int>& to) {
    to.resize(from.get_count());
    std::copy(from.begin(), from.end(), to.begin());
}

// Void polygons become holes around one more vertex that nothing else touches.
void replace_void_polygons(const RefinementCage& cage, RefinementLevel& level) {
    ++level.vertex_count;
    for (unsigned int f = 0; f < level.face_count; ++f) {
        const unsigned int begin = level.face_begin(f);
        const unsigned int end = level.face_end(f);
        if (!is_void(cage, begin, end)) continue;
        level.states[f] = FaceState::hole;
        for (unsigned int c = begin; c < end; ++c) level.corner_vertices[c] = cage.vertex_count;
    }
}

void copy_polygons(const RefinementCage& cage, RefinementLevel& level) {
    const unsigned int face_count = cage.polygon_counts.get_count();
    const unsigned int corner_count = cage.polygon_indices.get_count();
    level.face_count = level.candidate_count = face_count;
    level.vertex_count = cage.vertex_count;
    copy(cage.polygon_indices, level.corner_vertices);
    level.states.assign(face_count, FaceState::support);
    if (has_only_quads(cage.polygon_counts)) {
        level.depth = 0;
    } else {
        level.depth = -1;
        level.offsets.resize(face_count + 1);
        level.corner_faces.resize(corner_count);
        level.corner_slots.resize(corner_count);
        const unsigned int* counts = cage.polygon_counts.get_data();
        unsigned int* offsets = level.offsets.get_data();
        unsigned int* faces = level.corner_faces.get_data();
        unsigned char* slots = level.corner_slots.get_data();
        unsigned int offset = 0;
        for (unsigned int f = 0; f < face_count; ++f) {
            offsets[f] = offset;
            if (counts[f] == 4) {
                for (unsigned int k = 0; k < 4; ++k) {
                    faces[offset + k] = f;
                    slots[offset + k] = static_cast<unsigned char>(k);
                }
                offset += 4;
            } else {
                for (const unsigned int end = offset + counts[f]; offset < end; ++offset) {
                    faces[offset] = f;
                    slots[offset] = RefinementLevel::no_slot;
                }
            }
        }
        offsets[face_count] = offset;
    }
    for (unsigned int f = 0; f < cage.holes.get_count(); ++f)
        if (cage.holes[f] != 0) level.states[f] = FaceState::hole;
    if (has_none(cage.polygon_indices)) replace_void_polygons(cage, level);
}

// The face-corners whose edge is tagged or has one polygon, and those of the latter, in order.
struct SharpCorners {
    CoreArray<unsigned int> sharp, borders;
};

SharpCorners find_sharp_corners(const RefinementCage& cage) {
    const unsigned int corner_count = cage.polygon_indices.get_count();
    const unsigned int* opposites = cage.opposite_corners.get_data();
    const float* sharpness = cage.edge_sharpness.is_empty() ? nullptr : cage.edge_sharpness.get_data();
    SharpCorners corners;
    if (sharpness == nullptr && !has_none(cage.opposite_corners)) return corners;
    // What is written behind the last does not count.
    corners.sharp.resize(corner_count + 1);
    unsigned int* sharp = corners.sharp.get_data();
    unsigned int count = 0;
    const auto list = [&](auto is_sharp) {
        for (unsigned int c = 0; c < corner_count; ++c) {
            sharp[count] = c;
            count += is_sharp(c) ? 1 : 0;
        }
    };
    if (sharpness == nullptr)
        list([=](unsigned int c) { return opposites[c] == none; });
    else
        list([=](unsigned int c) { return (opposites[c] == none) | (sharpness[c] > 0.0f); });
    corners.sharp.resize(count);
    corners.borders.resize(count + 1);
    unsigned int border_count = 0;
    for (const unsigned int c : corners.sharp) {
        corners.borders[border_count] = c;
        border_count += opposites[c] == none ? 1 : 0;
    }
    corners.borders.resize(border_count);
    return corners;
}

// Border face-corners that run along the same two vertices belong to one edge of three polygons or more: per
// face-corner the first of them, or none; empty when there are none.
CoreArray<unsigned int> find_nonmanifold_edges(const CoreArray<unsigned int>& borders, const RefinementLevel& level) {
    CoreArray<unsigned int> first_of_edge;
    CoreArray<unsigned char> border_ends(level.vertex_count, static_cast<unsigned char>(0));
    const auto count_end = [&](unsigned int v) {
        if (border_ends[v] < 3) ++border_ends[v];
    };
    for (const unsigned int c : borders) {
        count_end(level.edge_start(c));
        count_end(level.edge_end(c));
    }
    struct Half {
        unsigned int low, high, corner;
    };
    CoreArray<Half> halves;
    for (const unsigned int c : borders) {
        const unsigned int a = level.edge_start(c);
        const unsigned int b = level.edge_end(c);
        if (a != b && border_ends[a] > 2 && border_ends[b] > 2) halves.add({std::min(a, b), std::max(a, b), c});
    }
    if (halves.is_empty()) return first_of_edge;
    std::sort(halves.begin(), halves.end(), [](const Half& a, const Half& b) {
        return a.low != b.low ? a.low < b.low : a.high != b.high ? a.high < b.high : a.corner < b.corner;
    });
    first_of_edge.assign(level.corner_vertices.get_count(), none);
    for (unsigned int i = 1; i < halves.get_count(); ++i) {
        if (halves[i].low != halves[i - 1].low || halves[i].high != halves[i - 1].high) continue;
        const unsigned int first = first_of_edge[halves[i - 1].corner];
        first_of_edge[halves[i].corner] = first == none ? halves[i - 1].corner : first;
        first_of_edge[halves[i - 1].corner] = first == none ? halves[i - 1].corner : first;
    }
    return first_of_edge;
}

float clean_sharpness(float s, const RefinementOptions& options) {
    if (!(s > 0.0f)) return 0.0f;
    return s >= options.infinite_from ? infinite_sharpness : std::min(s, infinite_sharpness);
}

// Only the sharp ones: the step numbers others where it needs them.
void number_sharp_edges(const RefinementCage& cage, const RefinementOptions& options, const SharpCorners& corners,
                        RefinementLevel& level) {
    level.corner_edges.assign(level.corner_vertices.get_count(), none);
    const CoreArray<unsigned int> first_of_edge = find_nonmanifold_edges(corners.borders, level);
    for (const unsigned int c : corners.sharp) {
        const unsigned int o = cage.opposite_corners[c];
        const float s = cage.edge_sharpness.is_empty() ? 0.0f : clean_sharpness(cage.edge_sharpness[c], options);
        const unsigned int first = first_of_edge.is_empty() ? none : first_of_edge[c];
        const unsigned int twin = o != none ? o : first;
        if (twin != none && level.corner_edges[twin] != none) {
            const unsigned int e = level.corner_edges[c] = level.corner_edges[twin];
            level.edge_sharpness[e] = std::max(level.edge_sharpness[e], s);
        } else {
            add_edge(level, c, o == none ? infinite_sharpness : s,
                     o != none       ? static_cast<unsigned char>(0)
                     : first != none ? RefinementLevel::nonmanifold_mark
                                     : RefinementLevel::border_mark);
        }
    }
}

void tag_vertex(RefinementLevel& level, unsigned int v, float s) {
    SharpVertex tagged;
    tagged.vertex = v;
    tagged.sharpness = s;
    level.tagged_vertices.add(tagged);
}

// Whether the faces at vertex v, of which c is one's face-corner, are one fan.
bool is_one_fan(const RefinementLevel& level, unsigned int v, unsigned int c) {
    const unsigned int valence = level.valences[v];
    const unsigned int sides[2] = {c, level.previous_corner(c)};
    unsigned int count = 1;
    for (const unsigned int side : sides) {
        unsigned int edge = side;
        while (level.edges.opposite_edges[edge] != none && count <= valence) {
            const RefinementLevel::Turn turn = level.turn_around(v, edge);
            if (turn.corner == c) return count == valence;
            ++count;
            edge = turn.edge;
        }
    }
    return count == valence;
}

// Steps around a vertex through quads that wind the same way, with a face-corner's place in its quad.
struct QuadSteps {
    const unsigned int *vertices, *opposites;
    const unsigned char* slots;  // null where all faces are quads

    // Whether the faces at vertex v, of which c is one's face-corner, certainly are one fan.
    bool is_fan(unsigned int v, unsigned int c, unsigned int valence) const {
        unsigned int corner = c;
        const auto turn = [&] {
            const unsigned int o = opposites[corner];
            if (o == none || vertices[o] == v) return false;
            const unsigned int slot = slots != nullptr ? slots[o] : o & 3u;
            if (slot == RefinementLevel::no_slot) return false;
            corner = o - slot + ((slot + 1) & 3u);
            return corner != c;
        };
        if (valence == 4) return turn() && turn() && turn();
        for (unsigned int i = 1; i < valence; ++i)
            if (!turn()) return false;
        return true;
    }
    // The same for four faces where all are quads, without branches.
    bool is_fan_of_four(unsigned int v, unsigned int c) const {
        unsigned int corner = c, is_known = 1;
        std::uint64_t has_returned = 0;  // in the highest bit
#pragma GCC unroll 3
        for (unsigned int i = 0; i < 3; ++i) {
            const unsigned int across = opposites[corner], has_none = 0u - (across == none ? 1u : 0u);
            const unsigned int o = (across & ~has_none) | (corner & has_none);  // then at v
            is_known &= vertices[o] != v ? 1u : 0u;
            corner = next_in_quad(o);
            has_returned |= std::uint64_t{corner ^ c} - 1;
        }
        return (is_known & ~static_cast<unsigned int>(has_returned >> 63)) != 0;
    }
};

// A vertex where several fans meet stays, and so does one on edges of three polygons or more, unless exactly two such
// edges run through it as a crease.
void fix_nonmanifold_vertices(RefinementLevel& level) {
    CoreArray<unsigned char> nonmanifold_ends;
    for (const unsigned int e : level.sharp_edges) {
        if (level.edge_marks[e] != RefinementLevel::nonmanifold_mark) continue;
        if (nonmanifold_ends.is_empty()) nonmanifold_ends.assign(level.vertex_count, static_cast<unsigned char>(0));
        for (unsigned int i = 0; i < 2; ++i) {
            unsigned char& ends = nonmanifold_ends[level.edge_ends[2 * e + i]];
            if (ends < 3) ++ends;
        }
    }
    level.valences.assign(level.vertex_count, 0u);
    CoreArray<unsigned int> some_corners(level.vertex_count, 0u);
    const QuadSteps steps{level.corner_vertices.get_data(), level.edges.opposite_edges.get_data(),
                          level.is_quads() ? nullptr : level.corner_slots.get_data()};
    unsigned int* valences = level.valences.get_data();
    unsigned int* corners = some_corners.get_data();
    const unsigned int corner_count = level.corner_vertices.get_count();
    if (corner_count == 0) return;
    for (unsigned int c = 0; c < corner_count; ++c) {
        const unsigned int v = steps.vertices[c];
        corners[v] = c;
        ++valences[v];
    }
    const auto fix = [&](unsigned int v) {
        const unsigned char ends = nonmanifold_ends.is_empty() ? 0 : nonmanifold_ends[v];
        if (ends == 2 || valences[v] == 0) return;
        if (ends != 0 || (!steps.is_fan(v, corners[v], valences[v]) && !is_one_fan(level, v, corners[v])))
            tag_vertex(level, v, infinite_sharpness);
    };
    if (level.is_quads() && nonmanifold_ends.is_empty()) {
        const auto is_unclear = [=](unsigned int v) {
            return !((valences[v] == 4) & steps.is_fan_of_four(v, corners[v]));
        };
        for_each_where(level.vertex_count, is_unclear, fix);
    } else {
        for (unsigned int v = 0; v < level.vertex_count; ++v) fix(v);
    }
}

void apply_border_rule(const RefinementCage& cage, const RefinementOptions& options,
                       const CoreArray<unsigned int>& borders, RefinementLevel& level) {
    if (options.border_rule == BorderRule::edge_only || borders.is_empty()) return;
    CoreArray<unsigned char> border_vertices(level.vertex_count, static_cast<unsigned char>(0));
    for (const unsigned int c : borders) {
        const bool is_tagged = !cage.edge_sharpness.is_empty() && is_infinitely_sharp(cage.edge_sharpness[c]);
        if (options.border_rule == BorderRule::open && is_tagged) continue;
        border_vertices[level.edge_start(c)] = border_vertices[level.edge_end(c)] = 1;
    }
    if (options.border_rule == BorderRule::open) {
        for (unsigned int c = 0; c < level.corner_vertices.get_count(); ++c)
            if (border_vertices[level.corner_vertices[c]] != 0) level.states[level.face_of(c)] = FaceState::hole;
        return;
    }
    const bool is_fixed = options.border_rule == BorderRule::fixed;
    const auto stays = [&](unsigned int v) {
        const bool is_at_border = border_vertices[v] != 0, is_alone = level.valences[v] == 1;
        return is_at_border & (is_fixed | is_alone);
    };
    for_each_where(level.vertex_count, stays, [&](unsigned int v) { tag_vertex(level, v, infinite_sharpness); });
}

}  // namespace

CoreArray<unsigned int> opposite_corners(const CoreBasicArray<unsigned int>& neighbour_polygons,
                                         const CoreBasicArray<unsigned int>& neighbour_edges,
                                         const CoreBasicArray<unsigned int>& polygon_offsets) {
    CoreArray<unsigned int> opposites(neighbour_polygons.get_count());
    for (unsigned int c = 0; c < opposites.get_count(); ++c)
        opposites[c] =
            neighbour_polygons[c] == none ? none : polygon_offsets[neighbour_polygons[c]] + neighbour_edges[c];
    return opposites;
}

void make_cage_level(const RefinementCage& cage, const RefinementOptions& options, RefinementLevel& level) {
    copy_polygons(cage, level);
    copy(cage.opposite_corners, level.edges.opposite_edges);
    const SharpCorners corners = find_sharp_corners(cage);
    number_sharp_edges(cage, options, corners, level);
    for (unsigned int v = 0; v < cage.vertex_sharpness.get_count(); ++v)
        if (const float s = clean_sharpness(cage.vertex_sharpness[v], options); s > 0.0f) tag_vertex(level, v, s);
    fix_nonmanifold_vertices(level);
    apply_border_rule(cage, options, corners.borders, level);
    complete_level(level);
}

}  // namespace sds
