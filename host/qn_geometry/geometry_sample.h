// The differential surface at one fragment.
//
// Units: derivatives are per patch parameter (u and v run over [0, 1] on a patch), the time derivative per unit of
// time, positions in object space. All normals have unit length and follow the right hand: normal = dP/du x dP/dv,
// normalized.
//
//   geometric part   what the surface's own first and second derivatives say
//   smoothing part   the normal field to shade with, continuous where the surface is smooth
//
// A sample is plain data: one thread writes it, copies are free.
#pragma once

#include "qn_core/core_export.h"
#include "qn_gmath/gmath_vec.h"

class QN_EXPORT GeometrySample {
public:
    using Vec = GMathVec3<double>;

    // Sets the geometric part from the position, the two first derivatives and the three second derivatives, in this
    // order. The derivatives of the normal follow from
    //     N = Pu x Pv,  Nu = Puu x Pv + Pu x Puv,  dn/du = (Nu - n (n . Nu)) / |N|
    // (do Carmo, Differential Geometry of Curves and Surfaces, 3-3) and are zero where |N| is zero. There the normal
    // keeps the direction of `fallback_normal` when one was set before, else +z: it is never NaN for finite input. The
    // smoothing part becomes a copy of the geometric one.
    void init_surface(const Vec& position, const Vec& dpdu, const Vec& dpdv, const Vec& d2pduu, const Vec& d2pduv,
                      const Vec& d2pdvv);

    // A direction that stands in for the normal where the derivatives are parallel or zero. Any length; zero means
    // none. Set it before init_surface.
    void set_fallback_normal(const Vec& normal) { m_fallback = normal; }

    // Sets the smoothing part: position, unit normal and the normal's derivatives.
    void set_smoothing(const Vec& position, const Vec& normal, const Vec& dndu, const Vec& dndv);

    // Velocity of the geometric position, per unit of time. `has_position_dt` tells that it was set since init_surface.
    void set_geometric_position_dt(const Vec& dpdt);

    const Vec& get_geometric_position() const { return m_position; }
    const Vec& get_geometric_dpdu() const { return m_dpdu; }
    const Vec& get_geometric_dpdv() const { return m_dpdv; }
    const Vec& get_geometric_normal() const { return m_normal; }
    const Vec& get_geometric_dndu() const { return m_dndu; }
    const Vec& get_geometric_dndv() const { return m_dndv; }
    const Vec& get_d2pduu() const { return m_d2pduu; }
    const Vec& get_d2pduv() const { return m_d2pduv; }
    const Vec& get_d2pdvv() const { return m_d2pdvv; }
    const Vec& get_smoothing_position() const { return m_smoothing_position; }
    const Vec& get_smoothing_normal() const { return m_smoothing_normal; }
    const Vec& get_smoothing_dndu() const { return m_smoothing_dndu; }
    const Vec& get_smoothing_dndv() const { return m_smoothing_dndv; }
    const Vec& get_geometric_position_dt() const { return m_dpdt; }
    bool has_position_dt() const { return m_has_dpdt; }

private:
    Vec m_position{0, 0, 0}, m_dpdu{0, 0, 0}, m_dpdv{0, 0, 0}, m_normal{0, 0, 1}, m_dndu{0, 0, 0}, m_dndv{0, 0, 0};
    Vec m_d2pduu{0, 0, 0}, m_d2pduv{0, 0, 0}, m_d2pdvv{0, 0, 0};
    Vec m_smoothing_position{0, 0, 0}, m_smoothing_normal{0, 0, 1}, m_smoothing_dndu{0, 0, 0},
        m_smoothing_dndv{0, 0, 0};
    Vec m_dpdt{0, 0, 0};
    Vec m_fallback{0, 0, 0};
    bool m_has_dpdt = false;
};
