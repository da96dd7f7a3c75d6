// Any values at the cage's vertices, carried down the levels of a refinement to control points of its patches.
#pragma once

#include <algorithm>

#include "sds/common/array_bytes.h"
#include "sds/common/progress.h"
#include "sds/refinement/kept_scratch.h"
#include "sds/refinement/leaf_patches.h"
#include "sds/refinement/refined_topology.h"

namespace sds {

// Marks the faces around the irregular corners of leaves, whose limit points need the sums of all of them.
inline void mark_leaf_rings(const RefinementLevel& level, CoreArray<unsigned char>& is_marked) {
    CoreArray<unsigned char> vertices(level.vertex_count, static_cast<unsigned char>(0));
    const auto is_irregular = [&](unsigned int v) { return level.vertex_kinds[v] != RefinementLevel::regular_vertex; };
    for (unsigned int f = 0; f < level.candidate_count; ++f) {
        if (level.states[f] != FaceState::leaf) continue;
        for (unsigned int c = 4 * f; c < 4 * f + 4; ++c)
            if (is_irregular(level.corner_vertices[c])) vertices[level.corner_vertices[c]] = 1;
    }
    is_marked.resize(level.face_count);
    for (unsigned int f = 0; f < level.face_count; ++f) {
        const unsigned int* v = level.corner_vertices.get_data() + 4 * size_t{f};
        is_marked[f] = vertices[v[0]] | vertices[v[1]] | vertices[v[2]] | vertices[v[3]];
    }
}

// The values of two levels at a time, and what a level's patches need of them.
template <class Value>
struct VisitScratch {
    LevelValues<Value> values;
    LevelValues<Value> next;
    CoreArray<unsigned char> leaf_rings;
    PatchLimits<Value> limits;

    // For the largest level at once: arrays that grow from level to level would be touched anew each time.
    void reserve(const RefinedTopology& topology) {
        unsigned int face_count = 0;
        unsigned int vertex_count = 0;
        for (unsigned int i = 0; i < topology.get_level_count(); ++i) {
            face_count = std::max(face_count, topology.get_level(i).face_count);
            vertex_count = std::max(vertex_count, topology.get_level(i).vertex_count);
        }
        values.reserve(face_count, vertex_count);
        next.points.reserve(vertex_count);
        limits.reserve(vertex_count);
    }
    size_t get_memory_size() const {
        return values.get_memory_size() + next.get_memory_size() + bytes_of(leaf_rings) + limits.get_memory_size();
    }
};

template <class Value, class Sink>
void visit_leaves(const RefinementLevel& level, const LevelValues<Value>& values, const RegularPatches<Value>& regular,
                  PatchLimits<Value>& limits, Sink& sink) {
    LeafPatches leaves(level);
    for (unsigned int f = 0; f < level.candidate_count; ++f) {
        if (level.states[f] != FaceState::leaf) continue;
        for (unsigned int k = 0; k < 4; ++k) {
            const unsigned int v = level.corner_vertices[4 * f + k];
            if (limits.is_known(v)) continue;
            const bool is_regular = level.vertex_kinds[v] == RefinementLevel::regular_vertex;
            limits.set(v, is_regular ? regular.limit_at(f, k) : leaves.limit_at(4 * f + k, values));
        }
        Value controls[16];
        leaves.compute(f, values, limits, controls);
        sink.add_leaf(f, level.face_patches[f], controls, values, leaves);
    }
}

// Gives every patch's exact controls to the sink, level by level, the leaves of a level last:
//     sink.begin_level(level, next level or null)
//     sink.add_regular(face, patch, compute), where compute(put) calls put(control, lanes) for all sixteen
//     sink.add_leaf(face, patch, 16 controls, values of the level, leaves)
//     sink.end_level()
// `value_at(v)` is the value of the cage's vertex v. One step of progress per level.
template <class Value, class ValueAt, class Sink>
void visit_patches(const RefinedTopology& topology, const ValueAt& value_at, Sink& sink,
                   AppProgressBar* progress = nullptr) {
    const unsigned int level_count = topology.get_level_count();
    if (level_count == 0) return;
    KeptScratch<VisitScratch<Value>> scratch;
    scratch->reserve(topology);
    auto& [values, next, leaf_rings, limits] = *scratch;
    values.points.resize(topology.get_level(0).vertex_count);
    for (unsigned int v = 0; v < values.points.get_count(); ++v)
        values.points[v] = v < topology.get_vertex_count() ? value_at(v) : ValueOps<Value>::zero();

    progress_steps(progress, level_count);
    for (unsigned int i = 0; i < level_count; ++i) {
        const RefinementLevel& level = topology.get_level(i);
        const RefinementLevel* fine = level.has_step ? &topology.get_level(i + 1) : nullptr;
        const FaceState* states = level.states.get_data();
        const bool has_leaves =
            std::find(states, states + level.candidate_count, FaceState::leaf) != states + level.candidate_count;
        if (has_leaves) mark_leaf_rings(level, leaf_rings);
        if (fine != nullptr || has_leaves)
            sum_neighbours(level, values, [&](unsigned int f) {
                return (fine != nullptr && level.face_children[f] != none) || (has_leaves && leaf_rings[f] != 0);
            });
        if (fine != nullptr) refine_values(level, *fine, topology.has_smooth_triangles() && i == 0, values, next);

        sink.begin_level(level, fine);
        limits.start(level.vertex_count);
        RegularPatches<Value> regular(level, values, limits);
        for (unsigned int f = 0; f < level.candidate_count; ++f)
            if (states[f] == FaceState::emitted)
                sink.add_regular(f, level.face_patches[f], [&](const auto& put) { regular.compute(f, put); });
        if (has_leaves) visit_leaves(level, values, regular, limits, sink);
        sink.end_level();
        values.points.swap(next.points);
        progress_step(progress, i + 1);
    }
}

// Passes the controls of every patch on to a sink(patch, controls).
template <class Value, class Sink>
struct ControlsVisitor {
    using Access = ValueLanes<Value>;
    const Sink& sink;

    void begin_level(const RefinementLevel&, const RefinementLevel*) {}
    void end_level() {}
    template <class Compute>
    void add_regular(unsigned int, unsigned int patch, const Compute& compute) {
        Value controls[16];
        compute([&](unsigned int i, const typename Access::Type& lanes) { Access::store(lanes, controls[i]); });
        const Value* begin = controls;
        sink(patch, begin);
    }
    void add_leaf(unsigned int, unsigned int patch, const Value* controls, const LevelValues<Value>&, LeafPatches&) {
        sink(patch, controls);
    }
};

// The sixteen controls of every patch in its own frame, in no order of patches: sink(patch, controls). `values` holds
// one per vertex of the cage that the topology was built of; positions, maps and properties follow the same weights.
// Edges between levels agree but for rounding.
template <class Value, class Sink>
void compute_patch_values(const RefinedTopology& topology, const CoreBasicArray<Value>& values, const Sink& sink,
                          AppProgressBar* progress = nullptr) {
    ControlsVisitor<Value, Sink> visitor{sink};
    visit_patches<Value>(
        topology, [&](unsigned int v) -> const Value& { return values[v]; }, visitor, progress);
}

}  // namespace sds
