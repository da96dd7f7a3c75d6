// Any values at the cage's vertices, carried down the levels of a refinement to control points of its patches.
#pragma once

#include <algorithm>
#include <cstring>

#include "sds/common/kept_scratch.h"
#include "sds/common/progress.h"
#include "sds/mesh_base/task_chunks.h"
#include "sds/refinement/leaf_patches.h"
#include "sds/refinement/refined_topology.h"

namespace sds {

// The faces that sums are needed of where a level has leaves: those with a point in the next level, and those around
// the irregular corners of leaves, whose limit points need the sums of all of them.
inline void find_summed_faces(const RefinementLevel& level, const CoreArray<unsigned int>& leaves,
                              CoreArray<unsigned char>& leaf_vertices, CoreArray<unsigned int>& faces) {
    leaf_vertices.assign(level.vertex_count, static_cast<unsigned char>(0));
    for (const unsigned int f : leaves)
        for (unsigned int c = 4 * f; c < 4 * f + 4; ++c) {
            const unsigned int v = level.corner_vertices[c];
            leaf_vertices[v] = level.vertex_kinds[v] != RefinementLevel::regular_vertex;
        }
    const auto is_at_leaf = [&](unsigned int f) {
        const unsigned int* v = level.corner_vertices.get_data() + 4 * size_t{f};
        const unsigned char* marks = leaf_vertices.get_data();
        return (marks[v[0]] | marks[v[1]] | marks[v[2]] | marks[v[3]]) != 0;
    };
    faces.resize(0);
    const unsigned int *touched = level.touched_faces.begin(), *end = level.touched_faces.end();
    for (unsigned int f = 0; f < level.face_count; ++f) {
        const bool is_touched = touched != end && *touched == f;
        touched += is_touched ? 1 : 0;
        if (is_touched || is_at_leaf(f)) faces.add(f);
    }
}

// The values of two levels at a time, and what a level's patches need of them.
template <class Value>
struct VisitScratch {
    LevelValues<Value> values;
    LevelValues<Value> next;
    CoreArray<unsigned int> leaves;
    CoreArray<unsigned int> fresh_corners;  // of leaves
    CoreArray<unsigned char> leaf_vertices;
    CoreArray<unsigned int> summed_faces;
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
        next.points.reserve(vertex_count + 1);
        limits.reserve(vertex_count);
        bytes = size_t{face_count} * (sizeof(Value) + 24) + size_t{vertex_count} * (6 * sizeof(Value) + 1);
    }
    size_t get_memory_size() const { return bytes; }

    size_t bytes = 0;  // about
};

// body(begin, end) over parts of so many faces, on the manager's threads when there is one and enough to do.
template <class Body>
void run_faces(SysThreadTaskManager* tasks, unsigned int count, const Body& body) {
    constexpr unsigned int min_threaded_faces = 256;
    const auto work = [&body](const WorkRange& range) { body(range.begin, range.end); };
    run_tasks<RangeTask<decltype(work)>>(count >= min_threaded_faces ? tasks : nullptr, count, 4, nullptr, work);
}

inline bool has_any(const RefinementLevel& level, FaceState state) {
    static_assert(sizeof state == 1);
    return level.candidate_count != 0 &&
           std::memchr(level.states.get_data(), static_cast<int>(state), level.candidate_count) != nullptr;
}

// The candidates that are in a state, in increasing order. Which ones are is hard to foretell, so that each is written
// over the last until it counts.
inline void list_faces(const RefinementLevel& level, FaceState state, CoreArray<unsigned int>& faces) {
    const FaceState* states = level.states.get_data();
    faces.resize(level.candidate_count + 1);
    unsigned int* found = faces.get_data();
    unsigned int count = 0;
    for (unsigned int f = 0; f < level.candidate_count; ++f) {
        found[count] = f;
        count += states[f] == state ? 1 : 0;
    }
    faces.resize(count);
}

// `sum()` forms the sums around leaves' irregular vertices, where they are not there yet: most limit points do without.
template <class Value, class Sink, class Sum>
void visit_leaves(const RefinementLevel& level, VisitScratch<Value>& scratch, const RegularPatches<Value>& regular,
                  Sink& sink, SysThreadTaskManager* tasks, const Sum& sum) {
    const LevelValues<Value>& values = scratch.values;
    PatchLimits<Value>& limits = scratch.limits;
    const CoreArray<unsigned int>& faces = scratch.leaves;
    LeafPatches leaves(level);
    unsigned int largest_valence = 0;
    // The corners that ask for a limit point first, each written over the last until it counts.
    scratch.fresh_corners.resize(4 * faces.get_count() + 1);
    unsigned int* fresh_corners = scratch.fresh_corners.get_data();
    unsigned int fresh_count = 0;
    for (const unsigned int f : faces)
        for (unsigned int e = 4 * f; e < 4 * f + 4; ++e) {
            const unsigned int v = level.corner_vertices[e];
            largest_valence = std::max(largest_valence, level.valences[v]);
            fresh_corners[fresh_count] = e;
            fresh_count += limits.touch(v) ? 0 : 1;
        }
    bool has_sums = false;
    for (unsigned int i = 0; i < fresh_count; ++i) {
        const unsigned int e = fresh_corners[i], v = level.corner_vertices[e];
        if (level.vertex_kinds[v] == RefinementLevel::regular_vertex) {
            limits.set(v, regular.limit_at(quad_of(e), corner_of(e)));
            continue;
        }
        Value limit;
        if (level.sharp_vertex(v) == nullptr && find_fan_limit(level, values, e, limit)) {
            limits.set_of_fan(v, limit);
            continue;
        }
        if (!has_sums && leaves.needs_sums(e)) {
            sum();
            has_sums = true;
        }
        limits.set(v, leaves.limit_at(e, values));
    }
    sink.begin_leaves(level, faces);
    const auto visit = [&](LeafPatches& own, unsigned int begin, unsigned int end) {
        constexpr unsigned int ahead = 8;
        for (unsigned int i = begin; i < std::min(begin + ahead, end); ++i)
            sink.expect_leaf(level.face_patches[faces[i]]);
        for (unsigned int i = begin; i < end; ++i) {
            if (i + ahead < end) sink.expect_leaf(level.face_patches[faces[i + ahead]]);
            const unsigned int f = faces[i];
            if (sink.add_smooth_leaf(f, level.face_patches[f])) continue;
            Value controls[16];
            own.compute(f, values, limits, controls);
            sink.add_leaf(f, level.face_patches[f], controls, values, own);
        }
    };
    // A great fan belongs to the face that meets it first.
    if (tasks == nullptr || largest_valence >= LeafPatches::great_valence)
        visit(leaves, 0, faces.get_count());
    else
        run_faces(tasks, faces.get_count(), [&](unsigned int begin, unsigned int end) {
            LeafPatches own(level);
            visit(own, begin, end);
        });
}

// Gives every patch's exact controls to the sink, level by level, the leaves of a level last:
//     sink.begin_level(level, next level or null)
//     sink.add_regular(level, values, limits, regular), for all emitted faces at once
//     sink.begin_leaves(level, faces), where it has any
//     sink.expect_leaf(patch), for leaves that come soon
//     sink.add_smooth_leaf(face, patch), on the manager's threads when there is one: whether the sink has a way of its
//     own sink.add_leaf(face, patch, 16 controls, values of the level, leaves) for the other leaves, likewise
//     sink.end_level(limits)
// `value_at(v)` is the value of the cage's vertex v. One step of progress per level.
template <class Value, class ValueAt, class Sink>
void visit_patches(const RefinedTopology& topology, const ValueAt& value_at, Sink& sink,
                   AppProgressBar* progress = nullptr, SysThreadTaskManager* tasks = nullptr) {
    const unsigned int level_count = topology.get_level_count();
    if (level_count == 0) return;
    KeptScratch<VisitScratch<Value>> scratch;
    scratch->reserve(topology);
    LevelValues<Value>& values = scratch->values;
    LevelValues<Value>& next = scratch->next;
    PatchLimits<Value>& limits = scratch->limits;
    values.points.resize(topology.get_level(0).vertex_count);
    Value* const points = values.points.get_data();
    const unsigned int point_count = values.points.get_count();
    const unsigned int given_count = std::min(point_count, topology.get_vertex_count());
    for (unsigned int v = 0; v < given_count; ++v) points[v] = value_at(v);
    std::fill(points + given_count, points + point_count, ValueOps<Value>::zero());

    progress_steps(progress, level_count);
    for (unsigned int i = 0; i < level_count; ++i) {
        const RefinementLevel& level = topology.get_level(i);
        const RefinementLevel* fine = level.has_step ? &topology.get_level(i + 1) : nullptr;
        const bool has_leaves = !level.has_siblings && has_any(level, FaceState::leaf);
        if (has_leaves) list_faces(level, FaceState::leaf, scratch->leaves);
        const auto sum = [&] {
            if (has_leaves) find_summed_faces(level, scratch->leaves, scratch->leaf_vertices, scratch->summed_faces);
            const CoreArray<unsigned int>& faces = has_leaves ? scratch->summed_faces : level.touched_faces;
            if (!faces.is_empty()) sum_neighbors(level, values, faces, !has_leaves);
        };
        if (fine != nullptr) sum();
        if (fine != nullptr) refine_values(level, *fine, topology.has_smooth_triangles() && i == 0, values, next);

        sink.begin_level(level, fine);
        limits.start(level.vertex_count);
        RegularPatches<Value> regular(level, values, limits);
        sink.add_regular(level, values, limits, regular);
        if (has_leaves)
            visit_leaves(level, *scratch, regular, sink, tasks, [&] {
                if (fine == nullptr) sum();
            });
        sink.end_level(limits);
        values.points.swap(next.points);
        progress_step(progress, i + 1);
    }
}

// Passes the controls of every patch on to a sink(patch, controls).
template <class Value, class Sink>
struct ControlsVisitor {
    using Access = ValueLanes<Value>;
    const Sink& sink;
    CoreArray<unsigned int> faces = {};

    void begin_level(const RefinementLevel&, const RefinementLevel*) {}
    void end_level(const PatchLimits<Value>&) {}
    void begin_leaves(const RefinementLevel&, const CoreArray<unsigned int>&) {}
    static void expect_leaf(unsigned int) {}
    static bool add_smooth_leaf(unsigned int, unsigned int) { return false; }
    void add_regular(const RefinementLevel& level, const LevelValues<Value>&, PatchLimits<Value>&,
                     RegularPatches<Value>& regular) {
        list_faces(level, FaceState::emitted, faces);
        for (const unsigned int f : faces) {
            Value controls[16];
            regular.compute(
                f, [&](unsigned int i, const typename Access::Type& lanes) { Access::store(lanes, controls[i]); });
            const Value* begin = controls;
            sink(level.face_patches[f], begin);
        }
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
