#include "qn_geometry/geometry_intersection_path.h"

#include <cmath>
#include <utility>

void GeometryIntersectionPath::reset(const unsigned int& capacity, const double& tfar) {
    m_hits.resize(0);
    m_hits.reserve(capacity + 1);
    m_capacity = capacity;
    m_far = tfar;
    m_distance = tfar;
}

bool GeometryIntersectionPath::add(const GeometryHit& hit, const double& separation) {
    if (!(hit.t < m_distance)) return false;
    for (unsigned int i = 0; i < m_hits.get_count(); ++i) {
        GeometryHit& kept = m_hits[i];
        if (kept.primitive != hit.primitive || !(std::fabs(kept.t - hit.t) <= separation)) continue;
        if (!(hit.t < kept.t)) return false;
        kept = hit;
        for (unsigned int j = i; j > 0 && m_hits[j].t < m_hits[j - 1].t; --j) std::swap(m_hits[j], m_hits[j - 1]);
        update_distance();
        return true;
    }
    m_hits.add(hit);
    for (unsigned int j = m_hits.get_count() - 1; j > 0 && m_hits[j].t < m_hits[j - 1].t; --j)
        std::swap(m_hits[j], m_hits[j - 1]);
    if (m_hits.get_count() > m_capacity) m_hits.resize(m_capacity);
    update_distance();
    return true;
}

void GeometryIntersectionPath::update_distance() {
    m_distance = m_hits.get_count() == m_capacity ? m_hits[m_capacity - 1].t : m_far;
}
