// The step from one level to the next: a refined face gets all of its children, every other face at one of its vertices
// those that touch such a vertex (level_children.cpp).
#include <algorithm>

#include "sds/common/kept_scratch.h"
#include "sds/refinement/level_step.h"

namespace sds {

namespace {

// Vertices of refined faces come first among the next level's, and keep their valences.
void number_vertices(RefinementLevel& coarse, RefinementLevel& fine, TouchedFaces& touched) {
    coarse.vertex_children.resize(coarse.vertex_count);
    unsigned int* children = coarse.vertex_children.get_data();
    std::fill(children, children + coarse.vertex_count, none);
    const unsigned int* corners = coarse.corner_vertices.get_data();
    const FaceState* states = coarse.states.get_data();
    unsigned int candidate_count = 0;
    coarse.for_each_face([&](unsigned int f, unsigned int begin, auto count) {
        if (states[f] != FaceState::refined) return;
        candidate_count += count;
        for (unsigned int j = 0; j < count; ++j) children[corners[begin + j]] = 0;
    });
    fine.valences.resize(std::min(candidate_count, coarse.vertex_count) + 1);
    unsigned int* valences = fine.valences.get_data();
    unsigned int next = 0;
    for (unsigned int v = 0; v < coarse.vertex_count; ++v) {
        const bool has_child = children[v] == 0;
        valences[next] = coarse.valences[v];
        children[v] = has_child ? next : none;
        next += has_child ? 1 : 0;
    }
    fine.vertex_count = next;
    fine.candidate_count = candidate_count;

    touched.resize(coarse.face_count);
    unsigned int touched_count = 0;
    coarse.for_each_face([&](unsigned int f, unsigned int begin, auto count) {
        unsigned int all = none;
        for (unsigned int j = 0; j < count; ++j) all &= children[corners[begin + j]];
        touched[touched_count] = f;
        touched_count += all != none ? 1 : 0;
    });
    touched.resize(touched_count);
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
        m_fine.edge_corners.assign(m_fine.edge_count, none);
    }

private:
    RefinementLevel& m_fine;
    unsigned int* m_ends;
    float* m_sharpness;
    unsigned char* m_marks;
};

// Where a patch has finer ones across an edge, whose halves it hands them.
void find_handing_corners(RefinementLevel& coarse, const TouchedFaces& touched) {
    const FaceState* states = coarse.states.get_data();
    const unsigned int* opposites = coarse.edges.opposite_edges.get_data();
    for (const unsigned int f : touched) {
        if (states[f] != FaceState::emitted && states[f] != FaceState::leaf) continue;
        for (unsigned int c = coarse.face_begin(f), end = coarse.face_end(f); c < end; ++c) {
            const unsigned int o = opposites[c];
            if (o != none ? states[coarse.face_of(o)] == FaceState::refined
                          : coarse.edge_marks[coarse.corner_edges[c]] == RefinementLevel::nonmanifold_mark)
                coarse.handing_corners.add(c);
        }
    }
}

// Points of edges and faces, and the edges between them and the vertices. Of a last level only those have a number that
// are sharp or handed; of others not those that lie inside coarse faces whose edge point is missing.
void split_edges(RefinementLevel& coarse, RefinementLevel& fine, StepScratch& scratch, bool has_unnumbered,
                 bool is_last, bool chaikin) {
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
    find_handing_corners(coarse, touched);
    coarse.edge_children.resize(coarse.edge_count);
    coarse.edge_halves.resize(2 * coarse.edge_count);
    std::fill(coarse.edge_halves.begin(), coarse.edge_halves.end(), none);
    coarse.face_children.resize(coarse.face_count);
    std::fill(coarse.face_children.begin(), coarse.face_children.end(), none);

    const unsigned int* corner_edges = coarse.corner_edges.get_data();
    const unsigned int* vertex_children = coarse.vertex_children.get_data();
    const unsigned int* edge_ends = coarse.edge_ends.get_data();
    unsigned int* edge_children = coarse.edge_children.get_data();
    unsigned int* edge_halves = coarse.edge_halves.get_data();
    const unsigned int first_point = fine.vertex_count;
    unsigned int next = first_point;
    for (unsigned int e = 0; e < coarse.edge_count; ++e) {
        const bool has_point = (vertex_children[edge_ends[2 * e]] & vertex_children[edge_ends[2 * e + 1]]) != none;
        edge_children[e] = has_point ? next : none;
        next += has_point ? 1 : 0;
    }

    // Two halves and one inner edge for every corner at most.
    EdgeAdder adder(fine, is_last ? 2 * (coarse.sharp_edges.get_count() + coarse.handing_corners.get_count() +
                                         coarse.handed_edges.get_count())
                                  : 3 * corner_count);
    const auto add_halves = [&](unsigned int e) {
        const unsigned int point = edge_children[e];
        if (point == none || (edge_halves[2 * e] & edge_halves[2 * e + 1]) != none) return;
        for (unsigned int i = 0; i < 2; ++i) {
            const unsigned int end = edge_ends[2 * e + i];
            if (const unsigned int child = vertex_children[end]; child != none)
                edge_halves[2 * e + i] = adder.add(
                    child, point, half_sharpness(coarse, coarse.edge_sharpness[e], end, chaikin), coarse.edge_marks[e]);
        }
    };
    if (is_last) {
        for (const unsigned int e : coarse.sharp_edges) add_halves(e);
        for (const unsigned int e : coarse.handed_edges) add_halves(e);
        for (const unsigned int c : coarse.handing_corners) add_halves(corner_edges[c]);
    } else {
        for (unsigned int e = 0; e < coarse.edge_count; ++e) add_halves(e);
        const auto hand = [&](unsigned int e) {
            for (const unsigned int half : {edge_halves[2 * e], edge_halves[2 * e + 1]})
                if (half != none) fine.handed_edges.add(half);
        };
        for (const unsigned int e : coarse.handed_edges) hand(e);
        for (const unsigned int c : coarse.handing_corners) hand(corner_edges[c]);
    }

    const unsigned int first_center = next;
    for (const unsigned int f : touched) coarse.face_children[f] = next++;
    fine.vertex_count = next;
    if (!is_last) {
        scratch.inner_edges.resize(coarse.corner_edges.get_count());
        for (const unsigned int f : touched)
            for (unsigned int c = coarse.face_begin(f), end = coarse.face_end(f); c < end; ++c)
                if (const unsigned int point = edge_children[corner_edges[c]]; point != none)
                    scratch.inner_edges[c] = adder.add(point, coarse.face_children[f], 0.0f, 0);
    }
    adder.end();

    fine.valences.resize(fine.vertex_count);
    std::fill(fine.valences.get_data() + first_point, fine.valences.get_data() + fine.vertex_count, 4u);
    for (const unsigned int e : coarse.sharp_edges)
        if (edge_children[e] != none && coarse.edge_marks[e] == RefinementLevel::border_mark)
            fine.valences[edge_children[e]] = 2;
    if (!coarse.is_quads())
        for (unsigned int i = 0; i < touched.get_count(); ++i)
            fine.valences[first_center + i] = coarse.face_end(touched[i]) - coarse.face_begin(touched[i]);
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
    split_edges(coarse, fine, *scratch, is_cage, is_last, options.chaikin);
    make_children(coarse, fine, is_last, *scratch);
    step_sharp_vertices(coarse, fine, options.border_rule, scratch->sharpness);
    coarse.has_step = true;
    complete_level(fine);
}

}  // namespace sds
