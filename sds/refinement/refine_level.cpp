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
#include <algorithm>

#include "sds/common/array_bytes.h"
#include "sds/refinement/kept_scratch.h"
#include "sds/refinement/refinement_level.h"

namespace sds {

namespace {

// The faces of a level that the step makes a point of, in order.
using TouchedFaces = CoreArray<unsigned int>;

struct StepScratch {
    TouchedFaces touched;
    // Per face-corner of the coarse level, the edge from its edge point to the face point, where both are.
    CoreArray<unsigned int> inner_edges;
    CoreArray<SharpnessStep> sharpness;

    size_t get_memory_size() const { return bytes_of(touched) + bytes_of(inner_edges) + bytes_of(sharpness); }
};

// Vertices of refined faces come first among the next level's.
void number_vertices(RefinementLevel& coarse, RefinementLevel& fine, TouchedFaces& touched) {
    coarse.vertex_children.resize(coarse.vertex_count);
    unsigned int* children = coarse.vertex_children.get_data();
    std::fill(children, children + coarse.vertex_count, none);
    const unsigned int* corners = coarse.corner_vertices.get_data();
    const FaceState* states = coarse.states.get_data();
    unsigned int refined_count = 0;
    coarse.for_each_face([&](unsigned int f, unsigned int begin, auto count) {
        if (states[f] != FaceState::refined) return;
        ++refined_count;
        for (unsigned int j = 0; j < count; ++j) children[corners[begin + j]] = 0;
    });
    unsigned int next = 0;
    for (unsigned int v = 0; v < coarse.vertex_count; ++v)
        if (children[v] != none) children[v] = next++;
    fine.vertex_count = next;

    touched.resize(0);
    touched.reserve(4 * refined_count);
    coarse.for_each_face([&](unsigned int f, unsigned int begin, auto count) {
        for (unsigned int j = 0; j < count; ++j)
            if (children[corners[begin + j]] != none) return touched.add(f);
    });
}

float half_sharpness(const RefinementLevel& coarse, float s, unsigned int end, bool chaikin) {
    if (s == 0.0f) return 0.0f;
    if (!chaikin) return child_sharpness(s);
    return chaikin_child_sharpness(s, coarse.sharp_vertex(end)->fractional);
}

// Adds the edges of the next level, whose arrays have room for all of them.
class EdgeAdder {
public:
    EdgeAdder(RefinementLevel& fine, unsigned int capacity) : m_fine(fine) {
        fine.edge_sharpness.resize(capacity);
        fine.edge_marks.resize(capacity);
        fine.edge_ends.resize(2 * capacity);
        m_ends = fine.edge_ends.get_data();
        m_sharpness = fine.edge_sharpness.get_data();
        m_marks = fine.edge_marks.get_data();
    }
    unsigned int add(unsigned int start, unsigned int end, float sharpness, unsigned char marks) {
        const unsigned int e = m_fine.edge_count++;
        if (sharpness > 0.0f) m_fine.sharp_edges.add(e);
        m_ends[2 * e] = start;
        m_ends[2 * e + 1] = end;
        m_sharpness[e] = sharpness;
        m_marks[e] = marks;
        return e;
    }
    void end() {
        m_fine.edge_sharpness.resize(m_fine.edge_count);
        m_fine.edge_marks.resize(m_fine.edge_count);
        m_fine.edge_ends.resize(2 * m_fine.edge_count);
    }

private:
    RefinementLevel& m_fine;
    unsigned int* m_ends;
    float* m_sharpness;
    unsigned char* m_marks;
};

// Points of edges and faces, and the edges between them and the vertices. Those that lie inside coarse faces are smooth
// and have a number only when another step may split them.
void split_edges(RefinementLevel& coarse, RefinementLevel& fine, StepScratch& scratch, bool has_unnumbered,
                 bool has_inner_edges, bool chaikin) {
    const TouchedFaces& touched = scratch.touched;
    unsigned int corner_count = 0;
    for (const unsigned int f : touched) corner_count += coarse.face_end(f) - coarse.face_begin(f);
    if (has_unnumbered) {
        const unsigned int room = coarse.edge_count + corner_count;
        coarse.edge_corners.reserve(room);
        coarse.edge_ends.reserve(2 * room);
        coarse.edge_sharpness.reserve(room);
        coarse.edge_marks.reserve(room);
        for (const unsigned int f : touched)
            for (unsigned int c = coarse.face_begin(f), end = coarse.face_end(f); c < end; ++c)
                if (coarse.corner_edges[c] == none) add_edge(coarse, c, 0.0f, 0);
    }
    // Two halves and one inner edge for every corner at most.
    EdgeAdder adder(fine, (has_inner_edges ? 3 : 2) * corner_count);
    coarse.edge_children.resize(coarse.edge_count);
    coarse.edge_halves.resize(2 * coarse.edge_count);
    coarse.face_children.resize(coarse.face_count);
    std::fill(coarse.face_children.begin(), coarse.face_children.end(), none);
    scratch.inner_edges.resize(has_inner_edges ? coarse.corner_edges.get_count() : 0);
    unsigned int* inner_edges = scratch.inner_edges.get_data();

    const unsigned int* corner_edges = coarse.corner_edges.get_data();
    const unsigned int* vertex_children = coarse.vertex_children.get_data();
    const unsigned int* edge_ends = coarse.edge_ends.get_data();
    unsigned int* edge_children = coarse.edge_children.get_data();
    unsigned int* edge_halves = coarse.edge_halves.get_data();
    const float* coarse_sharpness = coarse.edge_sharpness.get_data();
    const unsigned char* coarse_marks = coarse.edge_marks.get_data();
    unsigned int next = fine.vertex_count;
    for (unsigned int e = 0; e < coarse.edge_count; ++e) {
        const unsigned int ends[2] = {edge_ends[2 * e], edge_ends[2 * e + 1]};
        const unsigned int children[2] = {vertex_children[ends[0]], vertex_children[ends[1]]};
        edge_children[e] = edge_halves[2 * e] = edge_halves[2 * e + 1] = none;
        if ((children[0] & children[1]) == none) continue;
        const unsigned int point = edge_children[e] = next++;
        const float s = coarse_sharpness[e];
        for (unsigned int i = 0; i < 2; ++i)
            if (children[i] != none)
                edge_halves[2 * e + i] =
                    adder.add(children[i], point, half_sharpness(coarse, s, ends[i], chaikin), coarse_marks[e]);
    }
    for (const unsigned int f : touched) {
        const unsigned int center = coarse.face_children[f] = next++;
        if (!has_inner_edges) continue;
        for (unsigned int c = coarse.face_begin(f), end = coarse.face_end(f); c < end; ++c)
            if (const unsigned int point = edge_children[corner_edges[c]]; point != none)
                inner_edges[c] = adder.add(point, center, 0.0f, 0);
    }
    fine.vertex_count = next;
    adder.end();
}

// Adds children and joins them along their edges. The edges inside a coarse face are those between the children of two
// neighboring corners of it.
class ChildMaker {
public:
    ChildMaker(const RefinementLevel& coarse, RefinementLevel& fine, const CoreArray<unsigned int>& inner_edges)
        : m_corners(coarse.corner_vertices.get_data()),
          m_edges(coarse.corner_edges.get_data()),
          m_vertex_children(coarse.vertex_children.get_data()),
          m_edge_children(coarse.edge_children.get_data()),
          m_face_children(coarse.face_children.get_data()),
          m_edge_ends(coarse.edge_ends.get_data()),
          m_edge_halves(coarse.edge_halves.get_data()),
          m_inner_edges(inner_edges.is_empty() ? nullptr : inner_edges.get_data()),
          m_turned(coarse.is_quads() ? 1 : 0) {
        fine.corner_vertices.resize(4 * fine.face_count);
        fine.corner_edges.resize(4 * fine.face_count);
        fine.edges.opposite_edges.resize(4 * fine.face_count);
        fine.edge_corners.assign(fine.edge_count, none);
        fine.valences.assign(fine.vertex_count, 0u);
        m_corner_vertices = fine.corner_vertices.get_data();
        m_corner_edges = fine.corner_edges.get_data();
        m_opposites = fine.edges.opposite_edges.get_data();
        m_edge_corners = fine.edge_corners.get_data();
        m_edge_marks = fine.edge_marks.get_data();
        m_valences = fine.valences.get_data();
    }

    // All children of a quad.
    template <unsigned int turned>
    void add_four(unsigned int f, unsigned int begin) {
        const unsigned int center = m_face_children[f];
        const unsigned int first = 4 * m_count;
        m_count += 4;
        m_valences[center] = 4;
        unsigned int points[4], starts[4], ends[4];  // of the four edges; halves at their two ends
        for (unsigned int j = 0; j < 4; ++j) {
            const unsigned int e = m_edges[begin + j];
            const unsigned int is_forward = m_edge_ends[2 * e] == m_corners[begin + j] ? 1 : 0;
            points[j] = m_edge_children[e];
            starts[j] = m_edge_halves[2 * e + 1 - is_forward];
            ends[j] = m_edge_halves[2 * e + is_forward];
        }
#pragma GCC unroll 4
        for (unsigned int j = 0; j < 4; ++j) {
            const unsigned int behind = (j + 3) & 3u, next = (j + 1) & 3u;
            const auto corner = [&](unsigned int k) { return first + 4 * j + ((k + turned * j) & 3u); };
            const unsigned int vertex = m_vertex_children[m_corners[begin + j]];
            m_corner_vertices[corner(0)] = vertex;
            m_corner_vertices[corner(1)] = points[j];
            m_corner_vertices[corner(2)] = center;
            m_corner_vertices[corner(3)] = points[behind];
            ++m_valences[vertex];
            m_valences[points[j]] += 2;
            // Inner edge j is the second of child j and the third of child j + 1.
            join_inside(begin + j, corner(1), first + 4 * next + ((2 + turned * next) & 3u));
            join(corner(0), starts[j]);
            join(corner(3), ends[behind]);
        }
    }

    // The children at those of a face's corners whose vertices have some.
    void add_some(unsigned int f, unsigned int begin, unsigned int count) {
        const unsigned int center = m_face_children[f];
        const unsigned int last = begin + count - 1;
        unsigned int first_child = none, former = none;  // the children at corner 0 and at the corner before
        unsigned int behind = last;
        for (unsigned int c = begin; c <= last; behind = c++) {
            const unsigned int vertex = m_vertex_children[m_corners[c]];
            if (vertex == none) {
                former = none;
                continue;
            }
            const unsigned int child = 4 * m_count++;
            const unsigned int turn = m_turned * (c - begin);
            const auto corner = [&](unsigned int k) { return child + ((k + turn) & 3u); };
            const unsigned int ahead_point = m_edge_children[m_edges[c]];
            const unsigned int behind_point = m_edge_children[m_edges[behind]];
            m_corner_vertices[corner(0)] = vertex;
            m_corner_vertices[corner(1)] = ahead_point;
            m_corner_vertices[corner(2)] = center;
            m_corner_vertices[corner(3)] = behind_point;
            ++m_valences[vertex];
            ++m_valences[ahead_point];
            ++m_valences[center];
            ++m_valences[behind_point];
            join(corner(0), half_at(m_edges[c], m_corners[c]));
            join(corner(3), half_at(m_edges[behind], m_corners[c]));
            if (former != none)
                join_inside(behind, former, corner(2));
            else
                end_inside(behind, corner(2));
            end_inside(c, corner(1));
            former = corner(1);
            if (c == begin) first_child = corner(2);
        }
        if (former != none && first_child != none) join_inside(last, former, first_child);
    }

    unsigned int count() const { return m_count; }

private:
    // The first that comes has none across until the second does.
    void join(unsigned int corner, unsigned int e) {
        const unsigned int former = m_edge_corners[e];
        const unsigned int other = m_edge_marks[e] == 0 ? former : none;
        const bool is_joined = other != none;
        m_corner_edges[corner] = e;
        m_edge_corners[e] = former == none ? corner : former;
        m_opposites[corner] = other;
        m_opposites[is_joined ? other : corner] = is_joined ? corner : none;
    }
    // The edge inside a face that begins at the point of its face-corner c's edge.
    void join_inside(unsigned int c, unsigned int corner, unsigned int other) {
        end_inside(c, corner);
        const unsigned int e = m_corner_edges[other] = m_corner_edges[corner];
        if (e != none) m_edge_corners[e] = corner;
        m_opposites[corner] = other;
        m_opposites[other] = corner;
    }
    void end_inside(unsigned int c, unsigned int corner) {
        const unsigned int e = m_corner_edges[corner] = m_inner_edges != nullptr ? m_inner_edges[c] : none;
        if (e != none) m_edge_corners[e] = corner;
        m_opposites[corner] = none;
    }
    unsigned int half_at(unsigned int edge, unsigned int v) const {
        return m_edge_halves[2 * edge + (m_edge_ends[2 * edge] == v ? 0 : 1)];
    }

    const unsigned int* m_corners;
    const unsigned int* m_edges;
    const unsigned int* m_vertex_children;
    const unsigned int* m_edge_children;
    const unsigned int* m_face_children;
    const unsigned int* m_edge_ends;
    const unsigned int* m_edge_halves;
    const unsigned int* m_inner_edges;  // null: they have no numbers
    unsigned int m_turned;              // whether children keep their parent's frame
    unsigned int* m_corner_vertices;
    unsigned int* m_corner_edges;
    unsigned int* m_opposites;
    unsigned int* m_edge_corners;
    unsigned int* m_valences;
    const unsigned char* m_edge_marks;
    unsigned int m_count = 0;
};

QuadPlace child_place(const RefinementLevel& coarse, unsigned int f, unsigned int begin, unsigned int j) {
    if (!coarse.is_quads()) return {begin + j, 0, 0};
    const QuadPlace& parent = coarse.places[f];
    return {parent.quad, static_cast<unsigned short>(2 * parent.x + (j == 1 || j == 2 ? 1 : 0)),
            static_cast<unsigned short>(2 * parent.y + (j >= 2 ? 1 : 0))};
}

void make_children(RefinementLevel& coarse, RefinementLevel& fine, const TouchedFaces& touched,
                   const CoreArray<unsigned int>& inner_edges) {
    const unsigned int* vertices = coarse.corner_vertices.get_data();
    const auto is_child = [&](unsigned int c) { return coarse.vertex_children[vertices[c]] != none; };
    unsigned int candidates = 0;
    unsigned int support = 0;
    for (const unsigned int f : touched) {
        const unsigned int begin = coarse.face_begin(f), end = coarse.face_end(f);
        if (coarse.states[f] == FaceState::refined) {
            candidates += end - begin;
        } else {
            for (unsigned int c = begin; c < end; ++c) support += is_child(c) ? 1 : 0;
        }
    }
    fine.candidate_count = candidates;
    fine.face_count = candidates + support;
    fine.states.assign(fine.face_count, FaceState::support);
    fine.places.resize(candidates);
    coarse.first_children.assign(coarse.candidate_count, none);

    ChildMaker maker(coarse, fine, inner_edges);
    for (const unsigned int f : touched) {
        if (coarse.states[f] != FaceState::refined) continue;
        const unsigned int begin = coarse.face_begin(f), count = coarse.face_end(f) - begin;
        coarse.first_children[f] = maker.count();
        for (unsigned int j = 0; j < count; ++j) fine.places[maker.count() + j] = child_place(coarse, f, begin, j);
        if (count != 4)
            maker.add_some(f, begin, count);
        else if (coarse.is_quads())
            maker.add_four<1>(f, begin);
        else
            maker.add_four<0>(f, begin);
    }
    for (const unsigned int f : touched) {
        if (coarse.states[f] == FaceState::refined) continue;
        maker.add_some(f, coarse.face_begin(f), coarse.face_end(f) - coarse.face_begin(f));
    }
}

// Sharp vertices of the next level, and the masks of the sharp ones of this.
void step_sharp_vertices(RefinementLevel& coarse, RefinementLevel& fine, BorderRule border_rule,
                         CoreArray<SharpnessStep>& steps) {
    if (coarse.sharp_vertices.is_empty()) return;
    steps.resize(coarse.sharp_vertices.get_count());
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

void refine_level(RefinementLevel& coarse, RefinementLevel& fine, bool is_cage, const RefinementOptions& options) {
    fine.depth = coarse.depth + 1;
    KeptScratch<StepScratch> scratch;
    number_vertices(coarse, fine, scratch->touched);
    const bool is_last = fine.depth >= static_cast<int>(std::min(options.depth, RefinementOptions::max_depth));
    split_edges(coarse, fine, *scratch, is_cage, !is_last, options.chaikin);
    make_children(coarse, fine, scratch->touched, scratch->inner_edges);
    step_sharp_vertices(coarse, fine, options.border_rule, scratch->sharpness);
    coarse.has_step = true;
    complete_level(fine);
}

}  // namespace sds
