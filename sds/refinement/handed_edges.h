// What coarse patches hand down to finer ones, so that every shared edge has the same bits on both sides whatever the
// levels: the halves of an edge's control points, and limit points.
//
// In exact arithmetic the finer patches have those very controls; rounded independently they differ by a unit or two in
// the last place, which a ray would see as a crack. Halving is the same from both ends, hence the sides need not agree
// on a direction, and kernels that halve a coarse edge meet the same numbers.
#pragma once

#include "qn_gmath/gmath_vec.h"
#include "qn_simd/simd_float4.h"
#include "sds/common/kept_scratch.h"
#include "sds/refinement/regular_patches.h"

namespace sds {

class HandedEdges {
public:
    using Vec3f = GMathVec3<float>;

    // Levels come in order, `fine` null at the last.
    void begin_level(const RefinementLevel& level, const RefinementLevel* fine);
    // Whether a vertex of the level has a point that was handed to it, and these points, four numbers each: the corners
    // that its patches are to have.
    const unsigned char* get_has_point() const { return m_here.has_point.get_data(); }
    const float* get_points() const { return m_here.points.is_empty() ? nullptr : m_here.points[0].numbers; }
    // Puts the edges that were handed to the level in place of its patches' own, sixteen `controls` a patch, and hands
    // on those that finer patches share, and the limit points that patches touch.
    void end_level(const PatchLimits<GMathVec3<double>>& limits, Vec3f* controls);

private:
    // The fourth number means nothing.
    struct alignas(16) Point {
        float numbers[4];
    };
    // The two inner control points, from the first of an edge's ends to the second. At these, vertices have points.
    struct Edge {
        Point controls[2];
    };
    struct Level {
        // Per edge with a number before the step; whether it was handed down; and a list of these.
        CoreArray<Edge> edges;
        CoreArray<unsigned char> has_edge;
        CoreArray<unsigned int> handed_edges;
        // Per vertex.
        CoreArray<Point> points;
        CoreArray<unsigned char> has_point;
        void start(const RefinementLevel& level);
        size_t get_memory_size() const;
    };
    struct Levels {
        Level here;
        Level below;
        size_t largest = 0;  // bytes of a level
        size_t get_memory_size() const { return 2 * largest; }
    };

    class Hander;

    void take_edges(Vec3f* controls) const;
    void hand_edges(const Vec3f* controls);
    void hand_points(const PatchLimits<GMathVec3<double>>& limits);
    static SimdFloat4 load(const Point& point) { return SimdFloat4::load(point.numbers); }
    static void store(SimdFloat4 lanes, Point& point) { lanes.store(point.numbers); }

    const RefinementLevel* m_level = nullptr;
    const RefinementLevel* m_fine = nullptr;
    KeptScratch<Levels> m_scratch;
    Level& m_here = m_scratch->here;
    Level& m_below = m_scratch->below;
};

}  // namespace sds
