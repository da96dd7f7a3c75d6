// RefinedTopology: a control cage refined where one bicubic patch per quad would not be its limit surface.
//
// Quads that are not regular are split, level by level, until their children are or the depth is reached; each level is
// kept only around such quads (feature-adaptive subdivision: Niessner, Loop, Meyer, DeRose 2012). Regular quads of any
// level are exactly one patch each; what remains irregular at the last level becomes an approximating patch, a leaf.
#pragma once

#include "qn_app_base/app_progress_bar.h"
#include "sds/refinement/patch_places.h"
#include "sds/refinement/refinement_level.h"

namespace sds {

// Built by one thread, then read by any number. What is thrown, std::bad_alloc or AppCancelled, leaves it empty.
class RefinedTopology {
public:
    // The arrays of `cage` are not needed afterwards. `positions` holds one per vertex and is only read when
    // `options.error` is above 0: it then decides how deep every vertex is refined. One step of progress per level.
    void build(const RefinementCage& cage, const RefinementOptions& options,
               const CoreBasicArray<GMathVec3<float>>& positions, AppProgressBar* progress = nullptr);
    void clear();
    // Frees all but the places: enough for patches that are built and never change. Values can be refined again only
    // after another build.
    void drop_levels();
    bool has_levels() const { return !m_levels.is_empty(); }
    // Whether the levels serve RefinedPatches only, on one thread.
    bool has_siblings() const { return has_levels() && m_levels[m_levels.get_count() - 1].has_siblings; }

    const PatchPlaces& get_places() const { return m_places; }
    // Vertices of the cage.
    unsigned int get_vertex_count() const { return m_vertex_count; }
    bool has_smooth_triangles() const { return m_smooth_triangles; }
    // The first level is the cage's. None after drop_levels.
    unsigned int get_level_count() const { return m_levels.get_count(); }
    const RefinementLevel& get_level(unsigned int i) const { return m_levels[i]; }
    size_t get_memory_size() const;

private:
    void list_patches();
    // How many patches every candidate has, in place of their indices; returns the number of all.
    unsigned int count_patches();
    // From numbers of patches to indices, of the cage's polygons and of their children where these are user quads.
    void list_quads();
    void list_polygons();
    void list_children(unsigned int level);

    PatchPlaces m_places;
    CoreArray<RefinementLevel> m_levels;
    unsigned int m_vertex_count = 0;
    bool m_smooth_triangles = false;
};

}  // namespace sds
