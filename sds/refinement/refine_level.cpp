// The step from one level to the next. A refined face gets all of its children, every other face at one of its
// vertices those that touch such a vertex. Children keep their parent's frame:
//
//        3 ------ e2 ------ 2       child c has its corner c at the parent's vertex c, corner c + 1 at the edge point
//        |  c3    |    c2   |       of edge c, corner c + 2 at the face point, and corner c + 3 at the edge point of
//        e3 ----- f ------ e1       edge c - 1 (mod 4).
//        |  c0    |    c1   |
//        0 ------ e0 ------ 1
//
// Those of a level of polygons begin at their own vertex instead, as the quads that users see do.
#include "sds/refinement/refinement_level.h"

namespace sds {

namespace {

// Vertices, then edge points, then face points, of what touches a vertex of a refined face.
void number_points(RefinementLevel& coarse, RefinementLevel& fine) {
    coarse.vertex_children.assign(coarse.vertex_count, none);
    coarse.for_each_face([&](unsigned int f, unsigned int begin, auto count) {
        if (coarse.states[f] != FaceState::refined) return;
        for (unsigned int j = 0; j < count; ++j) coarse.vertex_children[coarse.corner_vertices[begin + j]] = 0;
    });
    unsigned int next = 0;
    for (unsigned int& child : coarse.vertex_children)
        if (child != none) child = next++;

    coarse.edge_children.resize(coarse.edge_count);
    for (unsigned int e = 0; e < coarse.edge_count; ++e) {
        const unsigned int* ends = coarse.edge_ends.get_data() + 2 * size_t{e};
        const bool is_touched = coarse.vertex_children[ends[0]] != none || coarse.vertex_children[ends[1]] != none;
        coarse.edge_children[e] = is_touched ? next++ : none;
    }

    coarse.face_children.resize(coarse.face_count);
    coarse.for_each_face([&](unsigned int f, unsigned int begin, auto count) {
        bool is_touched = false;
        for (unsigned int j = 0; j < count; ++j)
            is_touched |= coarse.vertex_children[coarse.corner_vertices[begin + j]] != none;
        coarse.face_children[f] = is_touched ? next++ : none;
    });
    fine.vertex_count = next;
}

void add_edge(RefinementLevel& fine, unsigned int start, unsigned int end, float sharpness, unsigned char marks) {
    if (sharpness > 0.0f) fine.sharp_edges.add(fine.edge_sharpness.get_count());
    fine.edge_ends.add(start);
    fine.edge_ends.add(end);
    fine.edge_sharpness.add(sharpness);
    fine.edge_marks.add(marks);
}

float half_sharpness(const RefinementLevel& coarse, float s, unsigned int end, bool chaikin) {
    if (s == 0.0f) return 0.0f;
    if (!chaikin) return child_sharpness(s);
    return chaikin_child_sharpness(s, coarse.sharp_vertex(end)->fractional);
}

// Halves of the edges first.
void split_edges(RefinementLevel& coarse, RefinementLevel& fine, bool chaikin) {
    coarse.edge_halves.assign(2 * coarse.edge_count, none);
    for (unsigned int e = 0; e < coarse.edge_count; ++e) {
        const unsigned int point = coarse.edge_children[e];
        if (point == none) continue;
        for (unsigned int i = 0; i < 2; ++i) {
            const unsigned int end = coarse.edge_ends[2 * e + i];
            if (coarse.vertex_children[end] == none) continue;
            coarse.edge_halves[2 * e + i] = fine.edge_sharpness.get_count();
            add_edge(fine, coarse.vertex_children[end], point,
                     half_sharpness(coarse, coarse.edge_sharpness[e], end, chaikin), coarse.edge_marks[e]);
        }
    }
}

// Edges from edge points to face points: returns one number per face-corner of the coarse level.
CoreArray<unsigned int> add_inner_edges(const RefinementLevel& coarse, RefinementLevel& fine) {
    CoreArray<unsigned int> inner_edges(coarse.corner_edges.get_count());
    coarse.for_each_face([&](unsigned int f, unsigned int begin, auto count) {
        if (coarse.face_children[f] == none) return;
        for (unsigned int j = 0; j < count; ++j) {
            const unsigned int point = coarse.edge_children[coarse.corner_edges[begin + j]];
            if (point == none) continue;
            inner_edges[begin + j] = fine.edge_sharpness.get_count();
            add_edge(fine, point, coarse.face_children[f], 0.0f, 0);
        }
    });
    return inner_edges;
}

class ChildMaker {
public:
    ChildMaker(const RefinementLevel& coarse, RefinementLevel& fine, const CoreArray<unsigned int>& inner_edges)
        : m_coarse(coarse), m_fine(fine), m_inner_edges(inner_edges) {}

    // The child at corner j of a face.
    void add(unsigned int f, unsigned int begin, unsigned int count, unsigned int j) {
        const unsigned int c = begin + j;
        const unsigned int p = begin + (j == 0 ? count - 1 : j - 1);
        const unsigned int v = m_coarse.corner_vertices[c];
        const unsigned int ahead = m_coarse.corner_edges[c];
        const unsigned int behind = m_coarse.corner_edges[p];
        const unsigned int vertices[4] = {m_coarse.vertex_children[v], m_coarse.edge_children[ahead],
                                          m_coarse.face_children[f], m_coarse.edge_children[behind]};
        const unsigned int edges[4] = {half_at(ahead, v), m_inner_edges[c], m_inner_edges[p], half_at(behind, v)};
        const unsigned int turn = m_coarse.is_quads() ? j : 0;
        const unsigned int first = 4 * m_count++;
        for (unsigned int k = 0; k < 4; ++k) {
            m_fine.corner_vertices[first + ((k + turn) & 3u)] = vertices[k];
            m_fine.corner_edges[first + ((k + turn) & 3u)] = edges[k];
        }
    }

    unsigned int count() const { return m_count; }

private:
    unsigned int half_at(unsigned int edge, unsigned int v) const {
        return m_coarse.edge_halves[2 * edge + (m_coarse.edge_ends[2 * edge] == v ? 0 : 1)];
    }

    const RefinementLevel& m_coarse;
    RefinementLevel& m_fine;
    const CoreArray<unsigned int>& m_inner_edges;
    unsigned int m_count = 0;
};

QuadPlace child_place(const RefinementLevel& coarse, unsigned int f, unsigned int begin, unsigned int j) {
    if (!coarse.is_quads()) return {begin + j, 0, 0};
    const QuadPlace& parent = coarse.places[f];
    return {parent.quad, static_cast<unsigned short>(2 * parent.x + (j == 1 || j == 2 ? 1 : 0)),
            static_cast<unsigned short>(2 * parent.y + (j >= 2 ? 1 : 0))};
}

void make_children(RefinementLevel& coarse, RefinementLevel& fine, const CoreArray<unsigned int>& inner_edges) {
    unsigned int candidates = 0;
    unsigned int support = 0;
    coarse.for_each_face([&](unsigned int f, unsigned int begin, auto count) {
        if (coarse.states[f] == FaceState::refined) {
            candidates += count;
        } else if (coarse.face_children[f] != none) {
            for (unsigned int j = 0; j < count; ++j)
                support += coarse.vertex_children[coarse.corner_vertices[begin + j]] != none ? 1 : 0;
        }
    });
    fine.candidate_count = candidates;
    fine.face_count = candidates + support;
    fine.corner_vertices.resize(4 * fine.face_count);
    fine.corner_edges.resize(4 * fine.face_count);
    fine.states.assign(fine.face_count, FaceState::support);
    fine.places.resize(candidates);
    coarse.first_children.assign(coarse.candidate_count, none);

    ChildMaker maker(coarse, fine, inner_edges);
    coarse.for_each_face([&](unsigned int f, unsigned int begin, auto count) {
        if (coarse.states[f] != FaceState::refined) return;
        coarse.first_children[f] = maker.count();
        for (unsigned int j = 0; j < count; ++j) {
            fine.places[maker.count()] = child_place(coarse, f, begin, j);
            maker.add(f, begin, count, j);
        }
    });
    coarse.for_each_face([&](unsigned int f, unsigned int begin, auto count) {
        if (coarse.states[f] == FaceState::refined || coarse.face_children[f] == none) return;
        for (unsigned int j = 0; j < count; ++j)
            if (coarse.vertex_children[coarse.corner_vertices[begin + j]] != none) maker.add(f, begin, count, j);
    });
}

// Sharp vertices of the next level, and the masks of the sharp ones of this.
void step_sharp_vertices(RefinementLevel& coarse, RefinementLevel& fine, BorderRule border_rule) {
    if (coarse.sharp_vertices.is_empty()) return;
    CoreArray<SharpnessStep> steps(coarse.sharp_vertices.get_count());
    for (unsigned int i = 0; i < coarse.sharp_vertices.get_count(); ++i) {
        const SharpVertex& vertex = coarse.sharp_vertices[i];
        const unsigned int child = coarse.vertex_children[vertex.vertex];
        steps[i] = {};
        steps[i].sharpness = vertex.sharpness;
        steps[i].child_sharpness = child_sharpness(vertex.sharpness);
        if (child != none && steps[i].child_sharpness > 0.0f) {
            SharpVertex tagged;
            tagged.vertex = child;
            tagged.sharpness = steps[i].child_sharpness;
            fine.tagged_vertices.add(tagged);
        }
    }
    for (const unsigned int e : coarse.sharp_edges) {
        if (coarse.edge_children[e] == none) continue;
        if (border_rule == BorderRule::fixed && (coarse.edge_marks[e] & RefinementLevel::border_mark) != 0) {
            SharpVertex tagged;
            tagged.vertex = coarse.edge_children[e];
            tagged.sharpness = infinite_sharpness;
            fine.tagged_vertices.add(tagged);
        }
        for (unsigned int i = 0; i < 2; ++i) {
            const unsigned int half = coarse.edge_halves[2 * e + i];
            if (half == none) continue;
            const unsigned int index = coarse.sharp_indices[coarse.edge_ends[2 * e + i]];
            SharpnessStep& step = steps[index];
            const float child = fine.edge_sharpness[half];
            if (child > 0.0f && step.child_edge_count < 2)
                coarse.sharp_vertices[index].child_ends[step.child_edge_count] = coarse.edge_ends[2 * e + 1 - i];
            step.add_edge(coarse.edge_sharpness[e], child);
        }
    }
    for (unsigned int i = 0; i < steps.get_count(); ++i) coarse.sharp_vertices[i].mask = vertex_mask(steps[i]);
}

}  // namespace

void refine_level(RefinementLevel& coarse, RefinementLevel& fine, const RefinementOptions& options) {
    fine.depth = coarse.depth + 1;
    number_points(coarse, fine);
    // Halves and inner edges together are at most four to a face-corner, and about two.
    fine.edge_sharpness.reserve(2 * fine.vertex_count);
    fine.edge_marks.reserve(2 * fine.vertex_count);
    fine.edge_ends.reserve(4 * fine.vertex_count);
    split_edges(coarse, fine, options.chaikin);
    const CoreArray<unsigned int> inner_edges = add_inner_edges(coarse, fine);
    fine.edge_count = fine.edge_sharpness.get_count();
    make_children(coarse, fine, inner_edges);
    step_sharp_vertices(coarse, fine, options.border_rule);
    coarse.has_step = true;
    complete_level(fine);
}

}  // namespace sds
