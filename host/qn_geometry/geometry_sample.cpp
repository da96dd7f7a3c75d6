#include "qn_geometry/geometry_sample.h"

void GeometrySample::init_surface(const Vec& position, const Vec& dpdu, const Vec& dpdv, const Vec& d2pduu,
                                  const Vec& d2pduv, const Vec& d2pdvv) {
    m_position = position;
    m_dpdu = dpdu;
    m_dpdv = dpdv;
    m_d2pduu = d2pduu;
    m_d2pduv = d2pduv;
    m_d2pdvv = d2pdvv;
    m_has_dpdt = false;

    const Vec n = dpdu.cross(dpdv);
    const double square = n.length_squared();
    // Relative to the derivatives' own size: below it the cross product is rounding, not a direction.
    const double noise = 1e-24 * dpdu.length_squared() * dpdv.length_squared();
    if (square > noise && square > 0.0 && std::isfinite(square)) {
        const double inverse = 1.0 / std::sqrt(square);
        m_normal = n * inverse;
        const Vec nu = d2pduu.cross(dpdv) + dpdu.cross(d2pduv);
        const Vec nv = d2pduv.cross(dpdv) + dpdu.cross(d2pdvv);
        m_dndu = (nu - m_normal * m_normal.dot(nu)) * inverse;
        m_dndv = (nv - m_normal * m_normal.dot(nv)) * inverse;
    } else {
        const double fallback = m_fallback.length();
        m_normal = fallback > 0.0 && std::isfinite(fallback) ? m_fallback * (1.0 / fallback) : Vec(0, 0, 1);
        m_dndu = m_dndv = Vec(0, 0, 0);
    }
    m_smoothing_position = m_position;
    m_smoothing_normal = m_normal;
    m_smoothing_dndu = m_dndu;
    m_smoothing_dndv = m_dndv;
}

void GeometrySample::set_smoothing(const Vec& position, const Vec& normal, const Vec& dndu, const Vec& dndv) {
    m_smoothing_position = position;
    m_smoothing_normal = normal;
    m_smoothing_dndu = dndu;
    m_smoothing_dndv = dndv;
}

void GeometrySample::set_geometric_position_dt(const Vec& dpdt) {
    m_dpdt = dpdt;
    m_has_dpdt = true;
}
