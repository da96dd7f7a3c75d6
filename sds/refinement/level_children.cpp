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

#include "sds/refinement/level_step.h"

namespace sds {

namespace {

// Numbers the children: those of refined faces first, all others after them.
void number_children(RefinementLevel& coarse, RefinementLevel& fine, StepScratch& scratch) {
    coarse.first_children.resize(coarse.candidate_count);
    scratch.corner_children.resize(coarse.corner_vertices.get_count());
    const unsigned int* vertices = coarse.corner_vertices.get_data();
    const unsigned int* vertex_children = coarse.vertex_children.get_data();
    unsigned int* corner_children = scratch.corner_children.get_data();
    unsigned int candidate = 0;
    for (const unsigned int f : coarse.refined_faces) {
        coarse.first_children[f] = candidate / 4;
        for (unsigned int c = coarse.face_begin(f), end = coarse.face_end(f); c < end; ++c, candidate += 4)
            corner_children[c] = candidate;
    }
    unsigned int corner_count = 1;  // what is written behind the last does not count
    for (const unsigned int f : scratch.supporting) corner_count += coarse.face_end(f) - coarse.face_begin(f);
    scratch.supporting_corners.resize(corner_count);
    unsigned int* corners = scratch.supporting_corners.get_data();
    unsigned int count = 0;
    // Siblings need no support.
    if (!fine.has_siblings)
        for (const unsigned int f : scratch.supporting)
            for (unsigned int c = coarse.face_begin(f), end = coarse.face_end(f); c < end; ++c) {
                corners[count] = c;
                corner_children[c] = candidate + 4 * count;
                count += vertex_children[vertices[c]] != none ? 1 : 0;
            }
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
        const unsigned int center = m_face_children[f];
        const unsigned int first = m_corner_children[begin];
        unsigned int points[4];
        unsigned int starts[4], ends[4];  // across the halves of edge j
#pragma GCC unroll 4
        for (unsigned int j = 0; j < 4; ++j) {
            points[j] = m_edge_children[m_edges[begin + j]];
            starts[j] = find_across_start(begin + j);
            ends[j] = find_across_end(begin + j);
        }
#pragma GCC unroll 4
        for (unsigned int j = 0; j < 4; ++j) {
            const unsigned int behind = (j + 3) & 3u, next = (j + 1) & 3u;
            const auto corner = [first](unsigned int child, unsigned int k) {
                return first + 4 * child + ((k + (is_quads ? child : 0)) & 3u);
            };
            m_corner_vertices[corner(j, 0)] = m_vertex_children[m_corners[begin + j]];
            m_corner_vertices[corner(j, 1)] = points[j];
            m_corner_vertices[corner(j, 2)] = center;
            m_corner_vertices[corner(j, 3)] = points[behind];
            m_opposites[corner(j, 0)] = starts[j];
            m_opposites[corner(j, 1)] = corner(next, 2);
            m_opposites[corner(j, 2)] = corner(behind, 1);
            m_opposites[corner(j, 3)] = ends[behind];
        }
    }

    // The child at face-corner c, alone or beside others.
    void add_one(unsigned int c) const {
        const unsigned int f = is_quads ? quad_of(c) : m_coarse.face_of(c),
                           begin = is_quads ? 4 * f : m_coarse.offsets[f];
        const unsigned int next = is_quads ? next_in_quad(c) : m_coarse.next_corner(c);
        const unsigned int behind = is_quads ? previous_in_quad(c) : m_coarse.previous_corner(c);
        const unsigned int corners[4] = {child_corner(begin, c, 0), child_corner(begin, c, 1),
                                         child_corner(begin, c, 2), child_corner(begin, c, 3)};
        m_corner_vertices[corners[0]] = m_vertex_children[m_corners[c]];
        m_corner_vertices[corners[1]] = m_edge_children[m_edges[c]];
        m_corner_vertices[corners[2]] = m_face_children[f];
        m_corner_vertices[corners[3]] = m_edge_children[m_edges[behind]];
        // Numbers of children that are not there are read, but not used.
        const unsigned int ahead_corner = child_corner(begin, next, 2), former_corner = child_corner(begin, behind, 1);
        m_opposites[corners[0]] = find_across_start(c);
        m_opposites[corners[1]] = ahead_corner | get_missing(next);
        m_opposites[corners[2]] = former_corner | get_missing(behind);
        m_opposites[corners[3]] = find_across_end(behind);
    }

    // Numbers the halves of the edge at a face-corner of a touched face.
    void set_halves(unsigned int c) const {
        const unsigned int begin = m_coarse.face_begin(m_coarse.face_of(c));
        const Halves own = find_halves(c);
        if (own.start != none) set_edge(child_corner(begin, c, 0), own.start);
        if (own.end != none) set_edge(child_corner(begin, m_coarse.next_corner(c), 3), own.end);
    }

    // The same of a refined face whose children are siblings.
    void set_sibling_halves(unsigned int c) const {
        const unsigned int begin = m_coarse.face_begin(m_coarse.face_of(c));
        const unsigned int start = child_corner(begin, c, 0), end = child_corner(begin, m_coarse.next_corner(c), 3);
        set_halves(c);
        m_corner_vertices[start] = m_vertex_children[m_corners[c]];
        m_corner_vertices[end] = m_edge_children[m_edges[c]];
        m_opposites[start] = m_opposites[end] = none;
    }

private:
    // What belongs to the half of an edge at its face-corner's vertex, and to the other.
    struct Halves {
        unsigned int start, end;
    };

    // None where the vertex of face-corner c has no child, which is hard to foretell, 0 elsewhere.
    unsigned int get_missing(unsigned int c) const { return 0u - (m_vertex_children[m_corners[c]] == none ? 1u : 0u); }
    // Corner k, as in the figure, of the child at face-corner c of the face that begins at `begin`.
    unsigned int child_corner(unsigned int begin, unsigned int c, unsigned int k) const {
        return m_corner_children[c] + ((k + (is_quads ? c - begin : 0)) & 3u);
    }
    // The face-corners of children across the halves of the edge at c, which exist where the child on this side does.
    // Across, the half at the edge's own corner belongs to the child there; turned as the children of quads are, both
    // halves have the number that the edge has in its face.
    unsigned int find_across_start(unsigned int c) const {
        const unsigned int o = m_coarse_opposites[c];
        if (o == none) return none;
        return is_same_way(o, c) ? half_at_start(o) : half_at_end(o);
    }
    unsigned int find_across_end(unsigned int c) const {
        const unsigned int o = m_coarse_opposites[c];
        if (o == none) return none;
        return is_same_way(o, c) ? half_at_end(o) : half_at_start(o);
    }
    // Whether a neighbor winds the other way than faces that fit together.
    bool is_same_way(unsigned int o, unsigned int c) const { return m_corners[o] == m_corners[c]; }
    unsigned int half_at_start(unsigned int c) const { return m_corner_children[c] + (is_quads ? c & 3u : 0); }
    unsigned int half_at_end(unsigned int c) const {
        if constexpr (is_quads) return m_corner_children[next_in_quad(c)] + (c & 3u);
        return m_corner_children[m_coarse.next_corner(c)] + 3;
    }
    Halves find_halves(unsigned int c) const {
        const unsigned int e = m_edges[c];
        const unsigned int* halves = m_edge_halves + 2 * size_t{e};
        const unsigned int is_backward = m_edge_ends[2 * size_t{e}] == m_corners[c] ? 0 : 1;
        return {halves[is_backward], halves[1 - is_backward]};
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

// The states of a quad's children follow from its corners where nothing is fractional: a child is as regular as its
// parent's corner. Others wait for their level.
void set_states(const RefinementLevel& coarse, RefinementLevel& fine, bool is_last, BorderRule border_rule,
                const CoreArray<unsigned int>& refined) {
    const FaceState irregular = is_last ? FaceState::leaf : FaceState::refined;
    fine.states.assign(fine.face_count, FaceState::support);
    FaceState* states = fine.states.get_data();
    const unsigned int* vertices = coarse.corner_vertices.get_data();
    const unsigned int* valences = coarse.valences.get_data();
    const unsigned int* sharp = coarse.sharp_indices.is_empty() ? nullptr : coarse.sharp_indices.get_data();
    // Points of borders that are fixed are corners; and what lies beside polygons is not irregular any more.
    const bool may_be_sharp = coarse.is_quads() && border_rule != BorderRule::fixed;
    const auto is_fractional_vertex = [&](unsigned int v) {
        return sharp[v] != none && coarse.sharp_vertices[sharp[v]].is_fractional();
    };
    for (const unsigned int f : refined) {
        const unsigned int begin = coarse.face_begin(f);
        if (coarse.face_end(f) - begin != 4) continue;
        const unsigned int* v = vertices + begin;
        FaceState* own = states + coarse.first_children[f];
        if (sharp == nullptr || (sharp[v[0]] & sharp[v[1]] & sharp[v[2]] & sharp[v[3]]) == none) {
            for (unsigned int j = 0; j < 4; ++j) own[j] = valences[v[j]] == 4 ? FaceState::emitted : irregular;
        } else if (may_be_sharp && !is_fractional_vertex(v[0]) && !is_fractional_vertex(v[1]) &&
                   !is_fractional_vertex(v[2]) && !is_fractional_vertex(v[3])) {
            for (unsigned int j = 0; j < 4; ++j)
                own[j] = is_regular_corner(coarse, begin + j) ? FaceState::emitted : irregular;
        }
    }
}

template <bool is_quads>
void make_children_of(const RefinementLevel& coarse, RefinementLevel& fine, bool is_last, const StepScratch& scratch) {
    bool has_nonmanifold = false, has_fractional = false;
    for (const unsigned int e : coarse.sharp_edges)
        has_nonmanifold |= coarse.edge_marks[e] == RefinementLevel::nonmanifold_mark;
    for (const unsigned int e : fine.sharp_edges) has_fractional |= !is_infinitely_sharp(fine.edge_sharpness[e]);
    const ChildMaker<is_quads> maker(coarse, fine, !is_last || has_nonmanifold || has_fractional, scratch);
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
    for (unsigned int e = 0; 2 * e < coarse.edge_halves.get_count(); ++e) {
        const unsigned int c = coarse.edge_corners[e];
        if (c == none || coarse.edge_children[e] == none) continue;
        maker.set_halves(c);
        if (const unsigned int o = coarse.edges.opposite_edges[c]; o != none) maker.set_halves(o);
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
