#include "sds/refinement/refined_topology.h"

#include <algorithm>
#include <memory>
#include <numeric>
#include <utility>

#include "sds/common/progress.h"
#include "sds/refinement/depth_per_vertex.h"

namespace sds {

void RefinedTopology::build(const RefinementCage& cage, const RefinementOptions& options,
                            const CoreBasicArray<GMathVec3<float>>& positions, AppProgressBar* progress) {
    clear();
    CoreArray<RefinementLevel> levels(1);
    levels[0] = take_level();
    make_cage_level(cage, options, levels[0]);
    const auto depth = static_cast<int>(std::min(options.depth, RefinementOptions::max_depth));
    levels.reserve(static_cast<unsigned int>(depth) + 2);
    // The last step is the list's.
    const auto step_count = static_cast<unsigned int>(depth - levels[0].depth) + 2;
    progress_steps(progress, step_count);
    progress_step(progress, 0);
    std::unique_ptr<DepthPerVertex> depths;
    if (options.error > 0.0) depths = std::make_unique<DepthPerVertex>(positions, levels[0].vertex_count, options);
    for (;;) {
        RefinementLevel& level = levels[levels.get_count() - 1];
        const bool is_last = level.depth >= depth;
        classify(level, is_last);
        if (depths) depths->stop(level);
        bool is_refined = false;
        for (unsigned int f = 0; f < level.candidate_count && !is_refined && !is_last; ++f)
            is_refined = level.states[f] == FaceState::refined;
        progress_step(progress, levels.get_count());
        if (!is_refined) break;
        levels.resize(levels.get_count() + 1);
        levels[levels.get_count() - 1] = take_level();
        refine_level(levels[levels.get_count() - 2], levels[levels.get_count() - 1], options);
        if (depths) depths->refine(levels[levels.get_count() - 2], levels[levels.get_count() - 1]);
    }
    m_levels.swap(levels);
    m_vertex_count = cage.vertex_count;
    m_smooth_triangles = options.smooth_triangles;
    try {
        list_patches();
        progress_step(progress, step_count);
    } catch (...) {
        clear();
        throw;
    }
}

void RefinedTopology::drop_levels() {
    for (unsigned int i = m_levels.get_count(); i-- != 0;) give_level(std::move(m_levels[i]));
    m_levels.clear();
}

void RefinedTopology::clear() {
    m_places = PatchPlaces();
    m_levels.clear();
    m_vertex_count = 0;
}

unsigned int RefinedTopology::count_patches() {
    for (unsigned int i = m_levels.get_count(); i-- != 0;) {
        RefinementLevel& level = m_levels[i];
        unsigned int* counts = level.face_patches.get_data();
        const FaceState* states = level.states.get_data();
        // Candidates below the first level are no holes.
        if (i != 0)
            std::fill(counts, counts + level.candidate_count, 1u);
        else
            for (unsigned int f = 0; f < level.candidate_count; ++f) counts[f] = states[f] == FaceState::hole ? 0 : 1;
        if (level.refined_faces.is_empty()) continue;
        const unsigned int* children = m_levels[i + 1].face_patches.get_data();
        for (const unsigned int f : level.refined_faces) {
            const unsigned int* own = children + level.first_children[f];
            counts[f] = level.is_quads() ? own[0] + own[1] + own[2] + own[3]
                                         : std::accumulate(own, own + level.face_end(f) - level.face_begin(f), 0u);
        }
    }
    const CoreArray<unsigned int>& counts = m_levels[0].face_patches;
    return std::accumulate(counts.begin(), counts.end(), 0u);
}

void RefinedTopology::list_quads() {
    RefinementLevel& cage = m_levels[0];
    unsigned int* patches = cage.face_patches.get_data();
    unsigned int patch = 0;
    for (unsigned int f = 0; f < cage.face_count; ++f) {
        m_places.put_patch(patch, {f, 0, 0, 0, cage.states[f] == FaceState::leaf});
        const unsigned int count = patches[f];
        patches[f] = patch;
        patch += count;
        m_places.end_quads(1, patch);
    }
}

void RefinedTopology::list_polygons() {
    RefinementLevel& cage = m_levels[0];
    const FaceState* states = cage.states.get_data();
    const unsigned int* offsets = cage.offsets.get_data();
    unsigned int* patches = cage.face_patches.get_data();
    const unsigned int face_count = cage.face_count;
    unsigned int patch = 0;
    for (unsigned int f = 0; f < face_count; ++f) {
        if (states[f] == FaceState::emitted) {
            const unsigned int begin = f, first = patch;
            do patches[f++] = patch++;
            while (f < face_count && states[f] == FaceState::emitted);
            m_places.put_covering_patches(first, offsets + begin, f-- - begin);
        } else if (states[f] == FaceState::refined) {
            RefinementLevel& fine = m_levels[1];
            const unsigned int first_child = cage.first_children[f] - offsets[f];
            for (unsigned int quad = offsets[f]; quad < offsets[f + 1]; ++quad) {
                const unsigned int child = first_child + quad, count = fine.face_patches[child];
                m_places.put_patch(patch, {quad, 0, 0, 0, fine.states[child] == FaceState::leaf});
                fine.face_patches[child] = patch;
                patch += count;
                m_places.end_quads(1, patch);
            }
        } else {
            m_places.end_quads(offsets[f + 1] - offsets[f], patch);
        }
    }
}

// Without branches, since which quads are refined is hard to foretell: every child is put where its patches begin, as
// if it were one, and a refined one is found there by the next level, whose children replace it. Children c of a square
// run around it, hence 0, 1, 3, 2 in the order of the quadtree.
void RefinedTopology::list_children(unsigned int level_index) {
    const RefinementLevel& level = m_levels[level_index];
    unsigned int* fine_patches = m_levels[level_index + 1].face_patches.get_data();
    const FaceState* fine_states = m_levels[level_index + 1].states.get_data();
    for (const unsigned int f : level.refined_faces) {
        unsigned int* patches = fine_patches + level.first_children[f];
        const FaceState* states = fine_states + level.first_children[f];
        unsigned int patch = level.face_patches[f];
        const RefinedPatch square = m_places.get_patch(patch);
        const auto put = [&](unsigned int c, unsigned int dx, unsigned int dy) {
            m_places.put_patch(patch, square.get_child(dx, dy, states[c] == FaceState::leaf));
            const unsigned int count = patches[c];
            patches[c] = patch;
            patch += count;
        };
        put(0, 0, 0);
        put(1, 1, 0);
        put(3, 0, 1);
        put(2, 1, 1);
    }
}

void RefinedTopology::list_patches() {
    const bool is_quads = m_levels[0].is_quads();
    unsigned int leaf_count = 0;
    for (const RefinementLevel& level : m_levels)
        for (unsigned int f = 0; f < level.candidate_count; ++f)
            leaf_count += level.states[f] == FaceState::leaf ? 1 : 0;
    const unsigned int patch_count = count_patches();
    m_places.start(is_quads ? m_levels[0].face_count : m_levels[0].corner_vertices.get_count(), patch_count,
                   leaf_count);
    if (is_quads)
        list_quads();
    else
        list_polygons();
    for (unsigned int i = is_quads ? 0 : 1; i + 1 < m_levels.get_count(); ++i) list_children(i);
}

size_t RefinedTopology::get_memory_size() const {
    size_t size = sizeof(RefinedTopology) + m_places.get_memory_size();
    for (const RefinementLevel& level : m_levels) size += sizeof(RefinementLevel) + level.get_memory_size();
    return size;
}

}  // namespace sds
