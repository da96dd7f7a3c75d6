// One level of a local refinement: the quads that are still being refined, the ring that supports them, and which
// vertices of the next level they make. Topology only; values are carried along by value_rules.h.
//
// A level holds its candidates first, the children of all quads refined one level up, and after them the support: the
// children that those quads' neighbors have at shared vertices. Rings around the candidates' vertices are complete,
// rings around the outer vertices of the support are not, and nothing ever asks for them.
//
// The polygons of a cage that are not all quads are a level too, of depth -1; its children are the quads that users
// see. Cages of quads begin at depth 0.
#pragma once

#include "sds/mesh_base/sds_mesh_base.h"
#include "sds/refinement/refinement_cage.h"
#include "sds/refinement/sharpness_rules.h"

namespace sds {

enum class FaceState : unsigned char {
    support,
    emitted,  // regular: exactly one bicubic patch
    refined,
    leaf,  // irregular, and not refined any more
    hole,  // in its neighbors' rings, but no surface itself
};

// A vertex that is sharp itself or has a sharp edge.
struct SharpVertex {
    unsigned int vertex = none;
    float sharpness = 0.0f;
    unsigned int edge_count = 0;
    unsigned int infinite_count = 0;
    FractionalEdges fractional;
    float fractional_weight = 0.0f;  // summed over the fractional edges, see remaining_weight
    // Far ends of the first two sharp edges, and of the first two infinitely sharp ones.
    unsigned int ends[2] = {none, none};
    unsigned int infinite_ends[2] = {none, none};
    // Of the step to the next level, when it has this vertex: the edges that are still sharp after it.
    unsigned int child_ends[2] = {none, none};
    VertexMask mask;

    bool is_fractional() const { return fractional.count != 0 || sds::is_fractional(sharpness); }
    bool is_corner() const { return is_infinitely_sharp(sharpness) || infinite_count > 2; }
    bool is_dart() const { return infinite_count == 1 && !is_fractional() && !is_corner(); }
};

// How much of an infinitely sharp crease is left in one of sharpness s that is not refined any further: it would stay
// for s levels, and its fold halves with every level.
float remaining_weight(float s);

struct RefinementLevel {
    static constexpr unsigned char border_mark = 1;       // an edge of one polygon of the cage, or part of one
    static constexpr unsigned char nonmanifold_mark = 2;  // an edge of three polygons or more

    static constexpr unsigned char no_slot = 255;

    // What is around a vertex with respect to the quads at it.
    enum VertexKind : unsigned char {
        regular_vertex = 0,
        crease_vertex = 1,
        corner_vertex = 2,
        irregular_vertex = 4,  // no other kind has this bit
    };

    int depth = 0;
    unsigned int face_count = 0;
    unsigned int candidate_count = 0;
    unsigned int vertex_count = 0;
    unsigned int edge_count = 0;

    // Of polygons: where their corners begin, with the number of corners as last entry, and the polygon of each corner.
    // Empty for quads, whose face-corners are half-edges.
    CoreArray<unsigned int> offsets;
    CoreArray<unsigned int> corner_faces;
    CoreArray<unsigned char> corner_slots;  // per corner: its number in its quad, no_slot in other polygons

    // Per face-corner: vertex, number of the edge that leaves it, the face-corner across. Only edges that are sharp or
    // shared with coarser patches have a number before the step, and those that get a point afterwards. No corner knows
    // the number at a last level without fractional edges and edges of three quads: there the creases tell.
    CoreArray<unsigned int> corner_vertices;
    CoreArray<unsigned int> corner_edges;
    SdsMeshBase::EdgesTopology edges;  // creases are the infinitely sharp edges; of polygons, the first four
    CoreArray<FaceState> states;
    CoreArray<unsigned int> face_patches;  // of candidates that are patches: index in the flat list

    // Per edge: one of its face-corners.
    CoreArray<unsigned int> edge_corners;
    // Per edge with a number before the step or handed to finer patches; the other ones are smooth.
    CoreArray<unsigned int> edge_ends;  // two vertices
    CoreArray<float> edge_sharpness;
    CoreArray<unsigned char> edge_marks;
    CoreArray<unsigned int> sharp_edges;  // those with sharpness above 0

    // Per vertex.
    CoreArray<unsigned int> valences;  // faces
    CoreArray<unsigned char> vertex_kinds;
    CoreArray<unsigned int> sharp_indices;  // in sharp_vertices, or none; empty when there are none
    CoreArray<SharpVertex> sharp_vertices;
    CoreArray<SharpVertex> tagged_vertices;  // vertex and sharpness of the vertices that are sharp themselves

    // The step to the next level: vertices of it, none where the step makes no such point.
    CoreArray<unsigned int> vertex_children;  // the first vertex_child_count ones
    CoreArray<unsigned int> edge_children;
    CoreArray<unsigned int> touched_faces;   // those with a point in the next level, in increasing order
    CoreArray<unsigned int> face_children;   // per face, of touched ones
    CoreArray<unsigned int> refined_faces;   // in increasing order
    CoreArray<unsigned int> first_children;  // of refined faces: the first of as many candidates as they have corners
    // Of the edges that had numbers before the step and those that are handed to finer patches, which come first: their
    // parts at their two ends, edges of the next level or none.
    CoreArray<unsigned int> edge_halves;
    CoreArray<unsigned int> handing_corners;  // face-corners of patches with refined faces across
    unsigned int vertex_child_count = 0;
    bool has_step = false;
    // Whether all faces are children of quads between smooth edges, whose patches kernels make from what is around the
    // quad: then corners and what is across are known beside coarser patches only, and nothing is across there.
    bool has_siblings = false;
    size_t kept_size = 0;  // bytes of the arrays' storage when it was given back last

    bool is_quads() const { return offsets.is_empty(); }
    unsigned int face_begin(unsigned int f) const { return is_quads() ? 4 * f : offsets[f]; }
    unsigned int face_end(unsigned int f) const { return is_quads() ? 4 * f + 4 : offsets[f + 1]; }
    unsigned int face_of(unsigned int c) const { return is_quads() ? quad_of(c) : corner_faces[c]; }
    unsigned int next_corner(unsigned int c) const {
        if (is_quads()) return next_in_quad(c);
        return c + 1 == face_end(face_of(c)) ? face_begin(face_of(c)) : c + 1;
    }
    unsigned int previous_corner(unsigned int c) const {
        if (is_quads()) return previous_in_quad(c);
        return c == face_begin(face_of(c)) ? face_end(face_of(c)) - 1 : c - 1;
    }
    unsigned int edge_start(unsigned int c) const { return corner_vertices[c]; }
    unsigned int edge_end(unsigned int c) const { return corner_vertices[next_corner(c)]; }
    // The face-corner at vertex v of the face across edge c, which touches v, and that face's other edge at v.
    struct Turn {
        unsigned int corner;
        unsigned int edge;
    };
    Turn turn_around(unsigned int v, unsigned int c) const {
        const unsigned int o = edges.opposite_edges[c];
        if (corner_vertices[o] != v) return {next_corner(o), next_corner(o)};
        return {o, previous_corner(o)};  // a neighbor that winds the other way
    }
    float sharpness_at(unsigned int c) const {
        if (corner_edges.is_empty()) return edges.is_crease(c) ? infinite_sharpness : 0.0f;
        const unsigned int edge = corner_edges[c];  // or none
        return edge < edge_sharpness.get_count() ? edge_sharpness[edge] : 0.0f;
    }
    bool is_infinite_at(unsigned int c) const { return is_infinitely_sharp(sharpness_at(c)); }
    const SharpVertex* sharp_vertex(unsigned int v) const {
        if (sharp_indices.is_empty() || sharp_indices[v] == none) return nullptr;
        return &sharp_vertices[sharp_indices[v]];
    }
    // Whether the step has halves of an edge at all, and both.
    bool is_halved(unsigned int edge) const {
        return edge < edge_halves.get_count() / 2 && edge_children[edge] != none;
    }
    bool has_halves(unsigned int edge) const {
        return edge < edge_halves.get_count() / 2 && edge_halves[2 * edge] != none && edge_halves[2 * edge + 1] != none;
    }

    // body(face, first corner, number of corners), of the first `count` faces: the last is a constant for quads.
    template <class Body>
    void for_each_face(Body&& body, unsigned int count) const {
        if (is_quads()) {
            for (unsigned int f = 0; f < count; ++f) body(f, 4 * f, std::integral_constant<unsigned int, 4>());
        } else {
            for (unsigned int f = 0; f < count; ++f) body(f, offsets[f], offsets[f + 1] - offsets[f]);
        }
    }
    template <class Body>
    void for_each_face(Body&& body) const {
        for_each_face(body, face_count);
    }
    // The same of the faces of a list.
    template <class Body>
    void for_each_face(const CoreArray<unsigned int>& faces, Body&& body) const {
        if (is_quads()) {
            for (const unsigned int f : faces) body(f, 4 * f, std::integral_constant<unsigned int, 4>());
        } else {
            for (const unsigned int f : faces) body(f, offsets[f], offsets[f + 1] - offsets[f]);
        }
    }

    size_t get_memory_size() const;
    // Empties all arrays but keeps their storage.
    void restart();
};

// Levels that later builds of this thread may use the storage of.
RefinementLevel take_level();
void give_level(RefinementLevel&& level) noexcept;

// The polygons of a cage as the first level, up to its classification.
void make_cage_level(const RefinementCage& cage, const RefinementOptions& options, RefinementLevel& level);

// Numbers the edge that leaves face-corner c of a cage's level.
void add_edge(RefinementLevel& level, unsigned int c, float sharpness, unsigned char marks);

// Gathers what is sharp and finds the kind of every vertex. `level` has its corners with their opposites, the edges'
// own arrays, and valences.
void complete_level(RefinementLevel& level);

// At which face-corners of a quad the rules are those of a bicubic patch: bit k for corner k. A candidate with all four
// is exactly one such patch.
unsigned int find_regular_corners(const RefinementLevel& level, unsigned int quad);

// Sets the states of candidates that have none yet (`support`): emitted, or refined or leaf.
void classify(RefinementLevel& level, bool is_last);

// The step from one level, whose states are set, to the next, up to its classification.
void refine_level(RefinementLevel& coarse, RefinementLevel& fine, const RefinementOptions& options);

}  // namespace sds
