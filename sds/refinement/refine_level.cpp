// The step from one level to the next: a refined face gets all of its children, every other face at one of its vertices
// those that touch such a vertex (level_children.cpp).
#include <algorithm>

#include "sds/common/kept_scratch.h"
#include "sds/common/listed_walks.h"
#include "sds/refinement/level_step.h"

namespace sds {

namespace {

// Vertices of refined faces come first among the next level's, and keep their valences. Lists of faces are made without
// branches, since which faces are refined is hard to foretell.
void number_vertices(RefinementLevel& coarse, RefinementLevel& fine, StepScratch& scratch) {
    const FaceState* states = coarse.states.get_data();
    unsigned int count = 0;
    coarse.refined_faces.resize(coarse.candidate_count);
    unsigned int* refined = coarse.refined_faces.get_data();
    for (unsigned int f = 0; f < coarse.candidate_count; ++f) {
        refined[count] = f;
        count += states[f] == FaceState::refined ? 1 : 0;
    }
    coarse.refined_faces.resize(count);

    coarse.vertex_children.resize(coarse.vertex_count);
    unsigned int* children = coarse.vertex_children.get_data();
    std::fill(children, children + coarse.vertex_count, none);
    const unsigned int* corners = coarse.corner_vertices.get_data();
    fine.candidate_count = 0;
    coarse.for_each_face(coarse.refined_faces, [&](unsigned int, unsigned int begin, auto corner_count) {
        fine.candidate_count += corner_count;
        for (unsigned int j = 0; j < corner_count; ++j) children[corners[begin + j]] = 0;
    });
    fine.valences.resize(std::min(fine.candidate_count, coarse.vertex_count) + 1);
    unsigned int* valences = fine.valences.get_data();
    unsigned int next = 0;
    for (unsigned int v = 0, end = coarse.vertex_count; v < end; ++v) {
        const unsigned int has_child = children[v] == 0 ? 1 : 0;
        valences[next] = coarse.valences[v];
        children[v] = next | (has_child - 1);  // none where there is no child
        next += has_child;
    }
    fine.vertex_count = coarse.vertex_child_count = next;

    coarse.touched_faces.resize(coarse.face_count);
    scratch.supporting.resize(coarse.face_count);
    unsigned int *touched = coarse.touched_faces.get_data(), *supporting = scratch.supporting.get_data();
    unsigned int touched_count = 0, supporting_count = 0;
    coarse.for_each_face([&](unsigned int f, unsigned int begin, auto corner_count) {
        unsigned int all = none;
        for (unsigned int j = 0; j < corner_count; ++j) all &= children[corners[begin + j]];
        touched[touched_count] = f;
        supporting[supporting_count] = f;
        const unsigned int is_touched = all != none ? 1 : 0;
        touched_count += is_touched;
        supporting_count += is_touched & (states[f] != FaceState::refined ? 1 : 0);
    });
    coarse.touched_faces.resize(touched_count);
    scratch.supporting.resize(supporting_count);
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
        const unsigned int e = m_count++;
        if (sharpness > 0.0f) m_fine.sharp_edges.add(e);
        m_ends[2 * size_t{e}] = start;
        m_ends[2 * size_t{e} + 1] = end;
        m_sharpness[e] = sharpness;
        m_marks[e] = marks;
        return e;
    }
    // The two halves of a smooth edge; returns the first.
    unsigned int add_smooth(unsigned int start, unsigned int middle, unsigned int end) {
        const unsigned int e = m_count;
        m_count += 2;
        m_ends[2 * size_t{e}] = start;
        m_ends[2 * size_t{e} + 2] = end;
        m_ends[2 * size_t{e} + 1] = m_ends[2 * size_t{e} + 3] = middle;
        m_sharpness[e] = m_sharpness[e + 1] = 0.0f;
        m_marks[e] = m_marks[e + 1] = 0;
        return e;
    }
    void end() {
        m_fine.edge_count = m_count;
        m_fine.edge_sharpness.resize(m_count);
        m_fine.edge_marks.resize(m_count);
        m_fine.edge_ends.resize(2 * m_count);
        m_fine.edge_corners.assign(m_count, none);
    }

private:
    RefinementLevel& m_fine;
    unsigned int* m_ends;
    float* m_sharpness;
    unsigned char* m_marks;
    unsigned int m_count = 0;
};

// Finds where a patch has finer ones across an edge, whose halves it hands them, and numbers these edges. is_quads is
// the level's, here and below.
template <bool is_quads>
void find_handing_corners(RefinementLevel& coarse, const CoreArray<unsigned int>& supporting) {
    const FaceState* states = coarse.states.get_data();
    const unsigned int* opposites = coarse.edges.opposite_edges.get_data();
    // Patches have four corners.
    coarse.handing_corners.resize(4 * supporting.get_count());
    unsigned int* corners = coarse.handing_corners.get_data();
    unsigned int count = 0;
    for (const unsigned int f : supporting) {
        if (states[f] != FaceState::emitted && states[f] != FaceState::leaf) continue;
        const unsigned int begin = is_quads ? 4 * f : coarse.offsets[f];
        for (unsigned int c = begin; c < begin + 4; ++c) {
            const unsigned int o = opposites[c];
            corners[count] = c;
            if (o != none)
                count += states[is_quads ? quad_of(o) : coarse.corner_faces[o]] == FaceState::refined ? 1 : 0;
            else
                count += coarse.edge_marks[coarse.corner_edges[c]] == RefinementLevel::nonmanifold_mark ? 1 : 0;
        }
    }
    coarse.handing_corners.resize(count);

    unsigned int e = coarse.edge_count;
    const unsigned int room = e + count;
    coarse.edge_corners.resize(room);
    coarse.edge_ends.resize(2 * room);
    unsigned int *corner_edges = coarse.corner_edges.get_data(), *edge_corners = coarse.edge_corners.get_data();
    unsigned int* ends = coarse.edge_ends.get_data();
    for_each_where(
        count, [=](unsigned int i) { return corner_edges[corners[i]] == none; },
        [&](unsigned int i) {
            const unsigned int c = corners[i];
            edge_corners[e] = c;
            corner_edges[c] = corner_edges[opposites[c]] = e;
            ends[2 * e] = coarse.edge_start(c);
            ends[2 * e + 1] = coarse.edge_end(c);
            ++e;
        });
    coarse.edge_corners.resize(e);
    coarse.edge_ends.resize(2 * e);
    coarse.edge_sharpness.resize(e);
    coarse.edge_marks.resize(e);
    std::fill(coarse.edge_sharpness.begin() + coarse.edge_count, coarse.edge_sharpness.end(), 0.0f);
    std::fill(coarse.edge_marks.begin() + coarse.edge_count, coarse.edge_marks.end(), static_cast<unsigned char>(0));
    coarse.edge_count = e;
}

// Numbers all other edges that get a point, from `first_point` on.
template <bool is_quads>
void number_smooth_edges(RefinementLevel& coarse, const CoreArray<unsigned int>& touched, unsigned int first_point) {
    unsigned int count = coarse.edge_count;
    unsigned int room = count + 1;
    for (const unsigned int f : touched) room += coarse.face_end(f) - coarse.face_begin(f);
    coarse.edge_corners.resize(room);
    unsigned int* edge_corners = coarse.edge_corners.get_data();
    unsigned int* corner_edges = coarse.corner_edges.get_data();
    const unsigned int* opposites = coarse.edges.opposite_edges.get_data();
    const unsigned int* vertices = coarse.corner_vertices.get_data();
    const unsigned int* children = coarse.vertex_children.get_data();
    // Without a branch, which every other edge would take: the lower of its two face-corners tells. What is written
    // behind the last edge does not count.
    const auto list = [&](unsigned int c, bool has_point) {
        edge_corners[count] = c;
        count += (has_point & (c < opposites[c]) & (corner_edges[c] == none)) ? 1 : 0;
    };
    for (const unsigned int f : touched) {
        const unsigned int begin = is_quads ? 4 * f : coarse.offsets[f];
        const unsigned int end = is_quads ? 4 * f + 4 : coarse.offsets[f + 1];
        if (end - begin != 4) {
            for (unsigned int c = begin; c < end; ++c)
                list(c, (children[vertices[c]] & children[coarse.edge_end(c)]) != none);
            continue;
        }
        unsigned int found[4];
        for (unsigned int j = 0; j < 4; ++j) found[j] = children[vertices[begin + j]];
#pragma GCC unroll 4
        for (unsigned int j = 0; j < 4; ++j) list(begin + j, (found[j] & found[(j + 1) & 3u]) != none);
    }
    coarse.edge_corners.resize(count);
    for (unsigned int e = coarse.edge_count; e < count; ++e) {
        const unsigned int c = edge_corners[e];
        corner_edges[c] = corner_edges[opposites[c] == none ? c : opposites[c]] = e;
    }
    coarse.edge_children.resize(count);
    for (unsigned int e = coarse.edge_count; e < count; ++e) coarse.edge_children[e] = first_point++;
    coarse.edge_count = count;
}

// Points of edges and faces, and the halves of the edges that are sharp or handed.
template <bool is_quads>
void split_edges(RefinementLevel& coarse, RefinementLevel& fine, StepScratch& scratch, bool chaikin) {
    const CoreArray<unsigned int>& touched = coarse.touched_faces;
    const unsigned int former_count = scratch.first_handed_edge = coarse.edge_count;
    find_handing_corners<is_quads>(coarse, scratch.supporting);
    const unsigned int halved_count = coarse.edge_count;
    coarse.edge_halves.resize(2 * halved_count);
    coarse.edge_children.resize(halved_count);
    unsigned int *halves = coarse.edge_halves.get_data(), *edge_children = coarse.edge_children.get_data();
    const unsigned int *vertex_children = coarse.vertex_children.get_data(), *ends = coarse.edge_ends.get_data();
    const unsigned int first_point = fine.vertex_count;
    unsigned int next = first_point;
    EdgeAdder adder(fine, 2 * halved_count);
    const auto has_point = [&](unsigned int e) {
        const unsigned int is_there = (vertex_children[ends[2 * e]] & vertex_children[ends[2 * e + 1]]) != none ? 1 : 0;
        edge_children[e] = next | (is_there - 1);
        next += is_there;
        halves[2 * e] = halves[2 * e + 1] = none;
        return is_there != 0;
    };
    const auto add_half = [&](unsigned int e, unsigned int end) {
        const unsigned int v = ends[2 * e + end];
        if (vertex_children[v] == none) return;
        halves[2 * e + end] =
            adder.add(vertex_children[v], edge_children[e],
                      half_sharpness(coarse, coarse.edge_sharpness[e], v, chaikin), coarse.edge_marks[e]);
    };
    for_each_where(former_count, has_point, [&](unsigned int e) {
        add_half(e, 0);
        add_half(e, 1);
    });
    // Those that are handed to finer patches have all of it.
    for (unsigned int e = former_count; e < halved_count; ++e) {
        const unsigned int point = edge_children[e] = next++;
        halves[2 * e] = adder.add_smooth(vertex_children[ends[2 * e]], point, vertex_children[ends[2 * e + 1]]);
        halves[2 * e + 1] = halves[2 * e] + 1;
    }
    adder.end();
    number_smooth_edges<is_quads>(coarse, touched, next);
    next += coarse.edge_count - halved_count;

    const unsigned int first_center = next;
    coarse.face_children.resize(coarse.face_count);
    for (const unsigned int f : touched) coarse.face_children[f] = next++;
    fine.vertex_count = next;

    fine.valences.resize(fine.vertex_count);
    std::fill(fine.valences.get_data() + first_point, fine.valences.get_data() + fine.vertex_count, 4u);
    const auto has_border_point = [&](unsigned int i) {
        const unsigned int e = coarse.sharp_edges[i];
        const bool has_child = coarse.edge_children[e] != none;
        const bool is_border = coarse.edge_marks[e] == RefinementLevel::border_mark;
        return has_child & is_border;
    };
    for_each_where(coarse.sharp_edges.get_count(), has_border_point,
                   [&](unsigned int i) { fine.valences[coarse.edge_children[coarse.sharp_edges[i]]] = 2; });
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
    if (border_rule == BorderRule::fixed)
        for (const unsigned int e : coarse.sharp_edges) {
            if (coarse.edge_children[e] == none || (coarse.edge_marks[e] & RefinementLevel::border_mark) == 0) continue;
            SharpVertex tagged;
            tagged.vertex = coarse.edge_children[e];
            tagged.sharpness = infinite_sharpness;
            fine.tagged_vertices.add(tagged);
        }
    const unsigned int *sharp = coarse.sharp_edges.get_data(), *halves = coarse.edge_halves.get_data();
    const auto half_of = [=](unsigned int i) { return 2 * size_t{sharp[i / 2]} + i % 2; };
    for_each_where(
        2 * coarse.sharp_edges.get_count(), [=](unsigned int i) { return halves[half_of(i)] != none; },
        [&](unsigned int i) {
            const size_t half = half_of(i);
            const unsigned int index = coarse.sharp_indices[coarse.edge_ends[half]];
            SharpnessStep& step = steps[index];
            const float child = fine.edge_sharpness[halves[half]];
            if (child > 0.0f && step.child_edge_count < 2)
                coarse.sharp_vertices[index].child_ends[step.child_edge_count] = coarse.edge_ends[half ^ 1u];
            step.add_edge(coarse.edge_sharpness[half / 2], child);
        });
    for (unsigned int i = 0; i < steps.get_count(); ++i) coarse.sharp_vertices[i].mask = vertex_mask(steps[i]);
}

}  // namespace

void refine_level(RefinementLevel& coarse, RefinementLevel& fine, const RefinementOptions& options) {
    fine.depth = coarse.depth + 1;
    KeptScratch<StepScratch> scratch;
    number_vertices(coarse, fine, *scratch);
    const bool is_last = fine.depth >= static_cast<int>(std::min(options.depth, RefinementOptions::max_depth));
    const auto split = coarse.is_quads() ? &split_edges<true> : &split_edges<false>;
    split(coarse, fine, *scratch, options.chaikin);
    fine.has_siblings = is_last && options.may_have_siblings && !(options.error > 0.0) && are_siblings(coarse);
    make_children(coarse, fine, is_last, options.border_rule, *scratch);
    step_sharp_vertices(coarse, fine, options.border_rule, scratch->sharpness);
    coarse.has_step = true;
    complete_level(fine);
}

}  // namespace sds
