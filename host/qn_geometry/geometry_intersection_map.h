// Hits kept per ray, nearest first.
#pragma once

#include "qn_geometry/geometry_intersection_path.h"

// One path per ray of a context.
class QN_EXPORT GeometryIntersectionMap {
public:
    explicit GeometryIntersectionMap(const unsigned int& ray_count) : m_paths(ray_count) {}

    GeometryIntersectionPath& get_path(const unsigned int& ray) { return m_paths[ray]; }
    const GeometryIntersectionPath& get_path(const unsigned int& ray) const { return m_paths[ray]; }

private:
    CoreArray<GeometryIntersectionPath> m_paths;
};
