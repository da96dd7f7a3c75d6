// The faces of the next level. Children keep their parent's frame:
//
//        3 ------ e2 ------ 2       child c has its corner c at the parent's vertex c, corner c + 1 at the edge point
//        |  c3    |    c2   |       of edge c, corner c + 2 at the face point, and corner c + 3 at the edge point of
//        e3 ----- f ------ e1       edge c - 1 (mod 4).
//        |  c0    |    c1   |
//        0 ------ e0 ------ 1
//
// Those of a level of polygons begin at their own vertex instead, as the quads that users see do.
#include <algorithm>

#include "sds/common/listed_walks.h"
#include "sds/refinement/level_step.h"

namespace sds {

namespace {

// Numbers the children: those of refined faces first, all others after them.
void number_children(RefinementLevel& coarse, RefinementLevel& fine, StepScratch& scratch) {
    coarse.first_children.resize(coarse.candidate_count);
    scratch.corner_children.resize(coarse.corner_vertices.get_count());
    const unsigned int* vertices = coarse.corner_vertices.get_data();
    const unsigned int* vertex_children = coarse.vertex_children.get_data();
    unsigned int* first_children = coarse.first_children.get_data();
    unsigned int* corner_children = scratch.corner_children.get_data();
    unsigned int candidate = 0;
    coarse.for_each_face(coarse.refined_faces, [&](unsigned int f, unsigned int begin, auto corner_count) {
        first_children[f] = candidate / 4;
        for (unsigned int j = 0; j < corner_count; ++j) corner_children[begin + j] = candidate + 4 * j;
        candidate += 4 * corner_count;
    });
    unsigned int room = 1;  // what is written behind the last does not count
    for (const unsigned int f : scratch.supporting) room += coarse.face_end(f) - coarse.face_begin(f);
    scratch.supporting_corners.resize(room);
    unsigned int* corners = scratch.supporting_corners.get_data();
    unsigned int count = 0;
    // Siblings need no support.
    if (!fine.has_siblings)
        coarse.for_each_face(scratch.supporting, [&](unsigned int, unsigned int begin, auto corner_count) {
            for (unsigned int c = begin; c < begin + corner_count; ++c) {
                const unsigned int has_child = vertex_children[vertices[c]] != none ? 1 : 0;
                corners[count] = c;
                corner_children[c] = (candidate + 4 * count) | (has_child - 1);
                count += has_child;
            }
        });
    scratch.supporting_corners.resize(count);
    fine.face_count = candidate / 4 + count;
}

// Makes children and joins them along their edges. The edges inside a coarse face are those between the children of two
// neighboring corners of it; of the two halves of its edges, the face across has the other side at the same vertices.
// is_quads is the coarse level's: children of quads keep their parent's frame.
template <bool is_quads>
class ChildMaker {
public:
    ChildMaker(const RefinementLevel& coarse, RefinementLevel& fine, bool has_corner_edges, const StepScratch& scratch)
        : m_coarse(coarse),
          m_corners(coarse.corner_vertices.get_data()),
          m_coarse_opposites(coarse.edges.opposite_edges.get_data()),
          m_edges(coarse.corner_edges.get_data()),
          m_vertex_children(coarse.vertex_children.get_data()),
          m_edge_children(coarse.edge_children.get_data()),
          m_face_children(coarse.face_children.get_data()),
          m_edge_ends(coarse.edge_ends.get_data()),
          m_edge_halves(coarse.edge_halves.get_data()),
          m_corner_children(scratch.corner_children.get_data()) {
        fine.corner_vertices.resize(4 * fine.face_count);
        fine.corner_edges.resize(has_corner_edges ? 4 * fine.face_count : 0);
        fine.edges.opposite_edges.resize(4 * fine.face_count);
        m_corner_vertices = fine.corner_vertices.get_data();
        m_corner_edges = has_corner_edges ? fine.corner_edges.get_data() : nullptr;
        m_opposites = fine.edges.opposite_edges.get_data();
        m_edge_corners = fine.edge_corners.get_data();
        std::fill(fine.corner_edges.begin(), fine.corner_edges.end(), none);
    }

    // All children of a quad.
    void add_four(unsigned int f, unsigned int begin) const {
        const unsigned int center = m_face_children[f], first = m_corner_children[begin];
        const unsigned int* corners = m_corners + begin;
        unsigned int *vertices = m_corner_vertices + first, *opposites = m_opposites + first;
        const auto at = [](unsigned int child, unsigned int k) {
            return 4 * child + ((k + (is_quads ? child : 0)) & 3u);
        };
#pragma GCC unroll 4
        for (unsigned int j = 0; j < 4; ++j) {
            const unsigned int next = (j + 1) & 3u;
            const unsigned int point = m_edge_children[(m_edges + begin)[j]];
            const Halves across = find_across((m_coarse_opposites + begin)[j], corners[j]);
            vertices[at(j, 0)] = m_vertex_children[corners[j]];
            vertices[at(j, 1)] = vertices[at(next, 3)] = point;
            vertices[at(j, 2)] = center;
            opposites[at(j, 0)] = across.start;
            opposites[at(next, 3)] = across.end;
            opposites[at(j, 1)] = first + at(next, 2);
            opposites[at(next, 2)] = first + at(j, 1);
        }
    }

    // The child at face-corner c, alone or beside others.
    void add_one(unsigned int c) const {
        const unsigned int next = is_quads ? next_in_quad(c) : m_coarse.next_corner(c);
        const unsigned int behind = is_quads ? previous_in_quad(c) : m_coarse.previous_corner(c);
        unsigned int *vertices = m_corner_vertices + m_corner_children[c],
                     *opposites = m_opposites + m_corner_children[c];
        const unsigned int slots[4] = {slot_of(c), (slot_of(c) + 1) & 3u, (slot_of(c) + 2) & 3u, (slot_of(c) + 3) & 3u};
        vertices[slots[0]] = m_vertex_children[m_corners[c]];
        vertices[slots[1]] = m_edge_children[m_edges[c]];
        vertices[slots[2]] = m_face_children[is_quads ? quad_of(c) : m_coarse.face_of(c)];
        vertices[slots[3]] = m_edge_children[m_edges[behind]];
        opposites[slots[0]] = find_across(m_coarse_opposites[c], m_corners[c]).start;
        opposites[slots[1]] = m_corner_children[next] | slots[is_quads ? 3 : 2];
        opposites[slots[2]] = m_corner_children[behind] | slots[is_quads ? 0 : 1];
        opposites[slots[3]] = find_across(m_coarse_opposites[behind], m_corners[behind]).end;
    }

    // Numbers the halves of the edge at a face-corner of a touched face.
    void set_halves(unsigned int c) const {
        const unsigned int* halves = m_edge_halves + 2 * size_t{m_edges[c]};
        const unsigned int backward = is_backward(c);
        if (const unsigned int start = halves[backward]; start != none) set_edge(half_at_start(c), start);
        if (const unsigned int end = halves[1 - backward]; end != none) set_edge(half_at_end(c), end);
    }
    // The same where both are there.
    void set_both_halves(unsigned int c) const {
        const unsigned int* halves = m_edge_halves + 2 * size_t{m_edges[c]};
        const unsigned int backward = is_backward(c);
        set_edge(half_at_start(c), halves[backward]);
        set_edge(half_at_end(c), halves[1 - backward]);
    }

    // The same of a refined face whose children are siblings.
    void set_sibling_halves(unsigned int c) const {
        const unsigned int start = half_at_start(c), end = half_at_end(c);
        set_halves(c);
        m_corner_vertices[start] = m_vertex_children[m_corners[c]];
        m_corner_vertices[end] = m_edge_children[m_edges[c]];
        m_opposites[start] = m_opposites[end] = none;
    }

private:
    // Where the child at face-corner c has its corner 0; the others follow.
    static unsigned int slot_of(unsigned int c) { return is_quads ? c & 3u : 0; }
    // The face-corners of children at the two halves of the edge at c: turned as the children of quads are, both have
    // the number that the edge has in its face. None where a vertex has no child.
    unsigned int half_at_start(unsigned int c) const { return m_corner_children[c] | slot_of(c); }
    unsigned int half_at_end(unsigned int c) const {
        return is_quads ? m_corner_children[next_in_quad(c)] | slot_of(c)
                        : m_corner_children[m_coarse.next_corner(c)] | 3u;
    }
    // The face-corners of children across the halves of an edge, which exist where the child on this side does: o is
    // the face-corner across, v the vertex at which the edge starts on this side.
    struct Halves {
        unsigned int start, end;
    };
    Halves find_across(unsigned int o, unsigned int v) const {
        if (o == none) return {none, none};
        const Halves halves{half_at_start(o), half_at_end(o)};
        // Else a neighbor that winds the other way than faces that fit together.
        return m_corners[o] != v ? Halves{halves.end, halves.start} : halves;
    }
    // 0 where the edge at c begins at its first vertex, else 1.
    unsigned int is_backward(unsigned int c) const {
        return m_edge_ends[2 * size_t{m_edges[c]}] == m_corners[c] ? 0 : 1;
    }
    void set_edge(unsigned int corner, unsigned int e) const {
        if (m_corner_edges != nullptr) m_corner_edges[corner] = e;
        m_edge_corners[e] = corner;
    }

    const RefinementLevel& m_coarse;
    const unsigned int* m_corners;
    const unsigned int* m_coarse_opposites;
    const unsigned int* m_edges;
    const unsigned int* m_vertex_children;
    const unsigned int* m_edge_children;
    const unsigned int* m_face_children;
    const unsigned int* m_edge_ends;
    const unsigned int* m_edge_halves;
    const unsigned int* m_corner_children;
    unsigned int* m_corner_vertices;
    unsigned int* m_corner_edges;
    unsigned int* m_opposites;
    unsigned int* m_edge_corners;
};

// Whether a level has any vertex whose rules may change with the step.
bool has_fractional_vertices(const RefinementLevel& level) {
    for (const SharpVertex& vertex : level.sharp_vertices)
        if (vertex.is_fractional()) return true;
    return false;
}

// The states of a quad's children follow from its corners where nothing is fractional: a child is as regular as its
// parent's corner. Others wait for their level.
void set_states(const RefinementLevel& coarse, RefinementLevel& fine, bool is_last, BorderRule border_rule,
                const CoreArray<unsigned int>& refined) {
    const FaceState state_of[2] = {is_last ? FaceState::leaf : FaceState::refined, FaceState::emitted};
    fine.states.assign(fine.face_count, FaceState::support);
    FaceState* states = fine.states.get_data();
    const unsigned int* vertices = coarse.corner_vertices.get_data();
    const unsigned int* valences = coarse.valences.get_data();
    const unsigned int* sharp = coarse.sharp_indices.is_empty() ? nullptr : coarse.sharp_indices.get_data();
    // Points of borders that are fixed are corners; and what lies beside polygons is not irregular any more.
    const bool may_be_sharp = coarse.is_quads() && border_rule != BorderRule::fixed;
    const bool has_fractional = may_be_sharp && has_fractional_vertices(coarse);
    // Sets the states around smooth vertices.
    const auto is_sharp = [&](unsigned int i) {
        const unsigned int f = refined[i], begin = coarse.face_begin(f);
        if (coarse.face_end(f) - begin != 4) return false;
        const unsigned int* v = vertices + begin;
        FaceState* own = states + coarse.first_children[f];
        for (unsigned int j = 0; j < 4; ++j) own[j] = state_of[valences[v[j]] == 4];
        return sharp != nullptr && (sharp[v[0]] & sharp[v[1]] & sharp[v[2]] & sharp[v[3]]) != none;
    };
    for_each_where(refined.get_count(), is_sharp, [&](unsigned int i) {
        const unsigned int f = refined[i];
        FaceState* own = states + coarse.first_children[f];
        const auto is_fractional = [&](unsigned int k) {
            const SharpVertex* vertex = coarse.sharp_vertex(vertices[4 * f + k]);
            return vertex != nullptr && vertex->is_fractional();
        };
        if (!may_be_sharp ||
            (has_fractional && (is_fractional(0) || is_fractional(1) || is_fractional(2) || is_fractional(3)))) {
            std::fill(own, own + 4, FaceState::support);
            return;
        }
        const unsigned int regular = find_regular_corners(coarse, f);
        for (unsigned int j = 0; j < 4; ++j) own[j] = state_of[regular >> j & 1u];
    });
}

template <bool is_quads>
void make_children_of(const RefinementLevel& coarse, RefinementLevel& fine, bool is_last, const StepScratch& scratch) {
    bool has_nonmanifold = false, has_fractional = false;
    for (const unsigned int e : coarse.sharp_edges)
        has_nonmanifold |= coarse.edge_marks[e] == RefinementLevel::nonmanifold_mark;
    for (const unsigned int e : fine.sharp_edges) has_fractional |= !is_infinitely_sharp(fine.edge_sharpness[e]);
    const bool has_corner_edges = !is_last || has_nonmanifold || has_fractional;
    const ChildMaker<is_quads> maker(coarse, fine, has_corner_edges, scratch);
    for (const unsigned int f : coarse.refined_faces) {
        const unsigned int begin = is_quads ? 4 * f : coarse.offsets[f];
        const unsigned int end = is_quads ? 4 * f + 4 : coarse.offsets[f + 1];
        if (end - begin == 4)
            maker.add_four(f, begin);
        else
            for (unsigned int c = begin; c < end; ++c) maker.add_one(c);
    }
    for (const unsigned int c : scratch.supporting_corners) maker.add_one(c);
    if (has_nonmanifold) {
        std::fill(fine.valences.begin(), fine.valences.end(), 0u);
        for (const unsigned int v : fine.corner_vertices) ++fine.valences[v];
    }
    const unsigned int *points = coarse.edge_children.get_data(), *corners = coarse.edge_corners.get_data();
    for_each_where(
        scratch.first_handed_edge, [=](unsigned int e) { return (points[e] != none) & (corners[e] != none); },
        [&](unsigned int e) {
            const unsigned int c = corners[e], o = coarse.edges.opposite_edges[c];
            if (has_corner_edges || o == none) maker.set_halves(c);
            if (o != none) maker.set_halves(o);
        });
    for (unsigned int e = scratch.first_handed_edge, end = coarse.edge_halves.get_count() / 2; e < end; ++e) {
        if (has_corner_edges) maker.set_both_halves(corners[e]);
        maker.set_both_halves(coarse.edges.opposite_edges[corners[e]]);
    }
    if (!has_nonmanifold) return;
    for (const unsigned int f : coarse.touched_faces)
        for (unsigned int c = coarse.face_begin(f), end = coarse.face_end(f); c < end; ++c)
            if (coarse.is_halved(coarse.corner_edges[c])) maker.set_halves(c);
}

// Children that are siblings need to be found from the edges that coarser patches hand them, and nothing else.
template <bool is_quads>
void find_sibling_halves(const RefinementLevel& coarse, RefinementLevel& fine, const StepScratch& scratch) {
    const ChildMaker<is_quads> maker(coarse, fine, false, scratch);
    for (unsigned int e = 0; 2 * e < coarse.edge_halves.get_count(); ++e) {
        const unsigned int c = coarse.edge_corners[e];
        if (c == none || coarse.edge_children[e] == none) continue;
        for (const unsigned int side : {c, coarse.edges.opposite_edges[c]})
            if (side != none && coarse.states[coarse.face_of(side)] == FaceState::refined)
                maker.set_sibling_halves(side);
    }
}

}  // namespace

void make_children(RefinementLevel& coarse, RefinementLevel& fine, bool is_last, BorderRule border_rule,
                   StepScratch& scratch) {
    number_children(coarse, fine, scratch);
    set_states(coarse, fine, is_last, border_rule, coarse.refined_faces);
    if (fine.has_siblings) {
        const auto find = coarse.is_quads() ? &find_sibling_halves<true> : &find_sibling_halves<false>;
        return find(coarse, fine, scratch);
    }
    const auto make = coarse.is_quads() ? &make_children_of<true> : &make_children_of<false>;
    make(coarse, fine, is_last, scratch);
}

}  // namespace sds
