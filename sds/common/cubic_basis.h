// Bernstein bases of degree three and two (Farin, Curves and Surfaces for CAGD, 5.1).
#pragma once

#include "sds/common/control_grid.h"

namespace sds {

// The weights of degree two at t.
template <class Real>
struct QuadraticBasis {
    Real b[3];

    [[gnu::always_inline]] explicit constexpr QuadraticBasis(Real t) {
        const Real s = Real(1) - t;
        b[0] = s * s;
        b[1] = Real(2) * t * s;
        b[2] = t * t;
    }
};

// Those of degree three. They come with their products grouped in three ways, which differ in the last bits: as they
// are, from squares that are there already, and symmetric. All inlined where they are used: kernel_set.h.
template <class Real>
struct CubicBasis {
    Real b[4];

    [[gnu::always_inline]] explicit constexpr CubicBasis(Real t) {
        const Real s = Real(1) - t;
        b[0] = s * s * s;
        b[1] = Real(3) * t * s * s;
        b[2] = Real(3) * t * t * s;
        b[3] = t * t * t;
    }
    [[gnu::always_inline]] constexpr CubicBasis(Real t, const QuadraticBasis<Real>& squares) {
        const Real s = Real(1) - t;
        b[0] = squares.b[0] * s;
        b[1] = Real(3) * t * squares.b[0];
        b[2] = Real(3) * squares.b[2] * s;
        b[3] = squares.b[2] * t;
    }
    // Those at 1 - t, where that is exact, are the same bits in reverse order.
    [[gnu::always_inline]] static constexpr CubicBasis make_symmetric(Real t) {
        const Real s = Real(1) - t;
        CubicBasis basis(t);
        basis.b[1] = Real(3) * (t * (s * s));
        basis.b[2] = Real(3) * ((t * t) * s);
        return basis;
    }
};

template <class Real, class Value>
constexpr Value cubic_sum(const CubicBasis<Real>& w, const Value& a, const Value& b, const Value& c, const Value& d) {
    return a * w.b[0] + b * w.b[1] + c * w.b[2] + d * w.b[3];
}

template <class Real, class Value>
constexpr Value quadratic_sum(const QuadraticBasis<Real>& w, const Value& a, const Value& b, const Value& c) {
    return a * w.b[0] + b * w.b[1] + c * w.b[2];
}

// The patch point at the bases' parameters: four rows in u, then combined in v. `controls` in corner order.
template <class Real, class Value>
constexpr Value evaluate_patch(const Value* controls, const CubicBasis<Real>& u, const CubicBasis<Real>& v) {
    Value rows[4];
    for (unsigned int r = 0; r < 4; ++r) {
        const unsigned char* row = grid_order + 4 * r;
        rows[r] = cubic_sum(u, controls[row[0]], controls[row[1]], controls[row[2]], controls[row[3]]);
    }
    return cubic_sum(v, rows[0], rows[1], rows[2], rows[3]);
}

// Value and first derivatives, per patch parameter.
template <class Value>
struct PatchJet {
    Value value;
    Value du;
    Value dv;
};

template <class Real, class Value>
constexpr PatchJet<Value> evaluate_jet(const Value* controls, Real u, Real v) {
    const CubicBasis<Real> cu(u);
    const CubicBasis<Real> cv(v);
    const QuadraticBasis<Real> qu(u);
    const QuadraticBasis<Real> qv(v);
    Value rows[4];
    Value row_slopes[4];
    for (unsigned int r = 0; r < 4; ++r) {
        const unsigned char* row = grid_order + 4 * r;
        const Value& p0 = controls[row[0]];
        const Value& p1 = controls[row[1]];
        const Value& p2 = controls[row[2]];
        const Value& p3 = controls[row[3]];
        rows[r] = cubic_sum(cu, p0, p1, p2, p3);
        row_slopes[r] = quadratic_sum(qu, p1 - p0, p2 - p1, p3 - p2);
    }
    return {cubic_sum(cv, rows[0], rows[1], rows[2], rows[3]),
            cubic_sum(cv, row_slopes[0], row_slopes[1], row_slopes[2], row_slopes[3]) * Real(3),
            quadratic_sum(qv, rows[1] - rows[0], rows[2] - rows[1], rows[3] - rows[2]) * Real(3)};
}

}  // namespace sds
