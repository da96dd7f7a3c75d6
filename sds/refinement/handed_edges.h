// What coarse patches hand down to finer ones, so that every shared edge has the same bits on both sides whatever the
// levels: the halves of an edge's control points, and limit points.
//
// In exact arithmetic the finer patches have those very controls; rounded independently they differ by a unit or two in
// the last place, which a ray would see as a crack. Halving is the same from both ends, hence the sides need not agree
// on a direction, and kernels that halve a coarse edge meet the same numbers.
#pragma once

#include "qn_gmath/gmath_vec.h"
#include "sds/refinement/kept_scratch.h"
#include "sds/refinement/regular_patches.h"

namespace sds {

class HandedEdges {
public:
    using Vec3f = GMathVec3<float>;

    // Levels come in order, `fine` null at the last.
    void begin_level(const RefinementLevel& level, const RefinementLevel* fine);
    // Whether anything is handed to or from the level.
    bool concerns_level() const { return !m_is_first || m_fine != nullptr; }
    // Puts what was handed to a patch of the level in place of its own controls, and hands on the edges that finer
    // patches share with it.
    void exchange(unsigned int face, Vec3f* controls);
    // Hands on the limit points that patches of the level touch.
    void end_level(const PatchLimits<GMathVec3<double>>& limits);

private:
    struct Edge {
        unsigned int edge;   // of the level
        unsigned int start;  // vertex
        Vec3f controls[4];
    };
    struct Level {
        CoreArray<unsigned int> edge_indices;  // in edges, or none
        CoreArray<Edge> edges;
        CoreArray<unsigned char> has_point;
        CoreArray<Vec3f> points;
        void start(const RefinementLevel& level);
        size_t get_memory_size() const;
    };
    struct Levels {
        Level here;
        Level below;
        size_t largest = 0;  // bytes of a level
        size_t get_memory_size() const { return 2 * largest; }
    };

    bool is_finer_across(unsigned int c) const;
    void hand_point(unsigned int child, const Vec3f& point);
    void hand_halves(unsigned int edge, unsigned int start, const Vec3f* controls);

    const RefinementLevel* m_level = nullptr;
    const RefinementLevel* m_fine = nullptr;
    bool m_is_first = true;  // nothing was handed to it
    KeptScratch<Levels> m_scratch;
    Level& m_here = m_scratch->here;
    Level& m_below = m_scratch->below;
};

}  // namespace sds
