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
    Vec normal, dndu{0, 0, 0}, dndv{0, 0, 0};
    if (square > noise && square > 0.0 && std::isfinite(square)) {
        const double inverse = 1.0 / std::sqrt(square);
        normal = n * inverse;
        const Vec nu = d2pduu.cross(dpdv) + dpdu.cross(d2pduv);
        const Vec nv = d2pduv.cross(dpdv) + dpdu.cross(d2pdvv);
        dndu = (nu - normal * normal.dot(nu)) * inverse;
        dndv = (nv - normal * normal.dot(nv)) * inverse;
    } else {
        const double fallback = m_fallback.length();
        normal = fallback > 0.0 && std::isfinite(fallback) ? m_fallback * (1.0 / fallback) : Vec(0, 0, 1);
    }
    // Both from registers: a copy would wait for what has just been stored.
    m_normal = m_smoothing_normal = normal;
    m_dndu = m_smoothing_dndu = dndu;
    m_dndv = m_smoothing_dndv = dndv;
    m_smoothing_position = position;
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
