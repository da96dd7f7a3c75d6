#include "sds/refinement/refined_topology.h"

#include <memory>
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
        classify(level, level.depth >= depth);
        if (depths) depths->stop(level);
        bool is_refined = false;
        for (unsigned int f = 0; f < level.candidate_count && !is_refined; ++f)
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

inline void RefinedTopology::list_face(unsigned int level_index, unsigned int face, const RefinedPatch& place) {
    RefinementLevel& level = m_levels[level_index];
    const FaceState state = level.states[face];
    if (state == FaceState::refined) {
        list_children(level_index, face, place);
    } else if (state == FaceState::emitted || state == FaceState::leaf) {
        level.face_patches[face] = m_places.get_patch_count();
        m_places.add_patch({place, state == FaceState::leaf});
    }
}

// Depth first, which is the order of the quadtree; children c of a square run around it, hence 0, 1, 3, 2.
void RefinedTopology::list_children(unsigned int level_index, unsigned int face, const RefinedPatch& place) {
    const unsigned int first = m_levels[level_index].first_children[face];
    RefinementLevel& fine = m_levels[level_index + 1];
    const FaceState* states = fine.states.get_data() + first;
    const auto is_patch = [states](unsigned int c) { return states[c] != FaceState::refined ? 1u : 0u; };
    // Candidates below the first level are no holes.
    if ((is_patch(0) & is_patch(1) & is_patch(2) & is_patch(3)) != 0) {
        const unsigned int patch = m_places.get_patch_count();
        unsigned int* patches = fine.face_patches.get_data() + first;
        patches[0] = patch;
        patches[1] = patch + 1;
        patches[3] = patch + 2;
        patches[2] = patch + 3;
        const auto is_leaf = [states](unsigned int c) { return states[c] == FaceState::leaf; };
        m_places.add_four_patches(place, {is_leaf(0), is_leaf(1), is_leaf(3), is_leaf(2)});
        return;
    }
    list_face(level_index + 1, first, place.get_child(0, 0));
    list_face(level_index + 1, first + 1, place.get_child(1, 0));
    list_face(level_index + 1, first + 3, place.get_child(0, 1));
    list_face(level_index + 1, first + 2, place.get_child(1, 1));
}

void RefinedTopology::list_patches() {
    unsigned int patch_count = 0;
    for (const RefinementLevel& level : m_levels) {
        const FaceState* states = level.states.get_data();
        for (unsigned int f = 0, count = level.candidate_count; f < count; ++f)
            patch_count += (states[f] == FaceState::emitted ? 1u : 0u) + (states[f] == FaceState::leaf ? 1u : 0u);
    }
    RefinementLevel& cage = m_levels[0];
    m_places.start(cage.is_quads() ? cage.face_count : cage.corner_vertices.get_count(), patch_count);
    if (cage.is_quads()) {
        for (unsigned int f = 0; f < cage.face_count; ++f) {
            list_face(0, f, {f, 0, 0, 0, false});
            m_places.end_quads(1);
        }
        return;
    }
    const FaceState* states = cage.states.get_data();
    const unsigned int* offsets = cage.offsets.get_data();
    unsigned int* face_patches = cage.face_patches.get_data();
    const unsigned int face_count = cage.face_count;
    for (unsigned int f = 0; f < face_count; ++f) {
        if (states[f] == FaceState::emitted) {
            const unsigned int begin = f, patch = m_places.get_patch_count();
            while (f + 1 < face_count && states[f + 1] == FaceState::emitted) ++f;
            for (unsigned int i = begin; i <= f; ++i) face_patches[i] = patch + (i - begin);
            m_places.add_covering_patches(offsets + begin, f + 1 - begin);
        } else if (states[f] == FaceState::refined) {
            for (unsigned int j = 0; j < offsets[f + 1] - offsets[f]; ++j) {
                list_face(1, cage.first_children[f] + j, {offsets[f] + j, 0, 0, 0, false});
                m_places.end_quads(1);
            }
        } else {
            m_places.end_quads(offsets[f + 1] - offsets[f]);
        }
    }
}

size_t RefinedTopology::get_memory_size() const {
    size_t size = sizeof(RefinedTopology) + m_places.get_memory_size();
    for (const RefinementLevel& level : m_levels) size += sizeof(RefinementLevel) + level.get_memory_size();
    return size;
}

}  // namespace sds
