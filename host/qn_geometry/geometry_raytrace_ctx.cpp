#include "qn_geometry/geometry_raytrace_ctx.h"

#include <cmath>

double GeometryRaytraceCtx::get_reference_shift(const unsigned int& i) const {
    const GeometryRay& ray = m_rays[i];
    const double shift = (m_reference_point - ray.origin).dot(ray.direction) / ray.direction.length_squared();
    return std::isfinite(shift) ? shift : 0.0;
}

bool GeometryRaytraceCtx::push_intersection(const CtxEval&, const unsigned int& i, const unsigned int& primitive,
                                            const double& u, const double& v, const double&,
                                            const unsigned int& sub_element, const double&, const double&,
                                            const double&, const double& t, const double& separation,
                                            const GeometryMediumDescriptor&, const void*) {
    GeometryRay& ray = m_rays[i];
    if (ray.is_finished || !(t >= ray.tnear && t < ray.tfar)) return false;
    const GeometryHit hit{primitive, sub_element, u, v, t};
    if (m_data->map != nullptr) {
        if (!m_data->map->get_path(i).add(hit, separation)) return false;
        if (!(t < ray.hit.t)) return true;
        ray.hit = hit;
        if (ray.mode == GeometryRayMode::any) ray.is_finished = true;
        return true;
    }
    ray.hit = hit;
    ray.tfar = t;
    if (ray.mode == GeometryRayMode::any) ray.is_finished = true;
    return true;
}

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
