// Where a refinement may stop before its last level: decided per irregular vertex, from positions.
//
// All quads around a vertex stop together. From level 1 on an irregular quad has one irregular vertex, and its other
// corners are regular, so an edge between a quad that stops and one that goes on has two regular ends and is the same
// curve on both sides. Quads that stopped one by one would tear.
#pragma once

#include "sds/refinement/value_rules.h"

namespace sds {

class DepthPerVertex {
public:
    DepthPerVertex(const CoreBasicArray<GMathVec3<float>>& positions, unsigned int vertex_count,
                   const RefinementOptions& options);

    // Turns refined faces of a classified level into leaves.
    void stop(RefinementLevel& level);
    // Carries the positions on.
    void refine(const RefinementLevel& level, const RefinementLevel& fine);

private:
    using Vec3d = GMathVec3<double>;

    bool is_close(const RefinementLevel& level, unsigned int v) const;

    LevelValues<Vec3d> m_values;
    LevelValues<Vec3d> m_next;
    CoreArray<double> m_longest_edges;  // squared, per vertex
    double m_error;
    bool m_smooth_triangles;
};

}  // namespace sds
