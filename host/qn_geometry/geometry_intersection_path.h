// The nearest hits of one ray.
#pragma once

#include <limits>

#include "qn_core/core_array.h"
#include "qn_core/core_export.h"

struct GeometryHit {
    unsigned int primitive = 0xFFFFFFFF;
    unsigned int sub_element = 0xFFFFFFFF;
    double u = 0.0;
    double v = 0.0;
    double t = std::numeric_limits<double>::infinity();
};

// The nearest `capacity` hits of one ray.
class QN_EXPORT GeometryIntersectionPath {
public:
    // Empties the path: at most `capacity` (at least 1) hits nearer than `tfar`. Storage is kept.
    void reset(const unsigned int& capacity, const double& tfar);

    // Hits at this distance or beyond are of no use: the far distance, or the farthest kept hit once the path is full.
    const double& get_distance() const { return m_distance; }

    const CoreBasicArray<GeometryHit>& get_hits() const { return m_hits; }

    // Keeps the hit in order of distance. A hit of the same primitive within `separation` of a kept one is the same
    // crossing: the nearer of the two stays. Returns true when the path changed.
    bool add(const GeometryHit& hit, const double& separation);

private:
    void update_distance();

    CoreArray<GeometryHit> m_hits;
    unsigned int m_capacity = 1;
    double m_far = std::numeric_limits<double>::infinity();
    double m_distance = std::numeric_limits<double>::infinity();
};
