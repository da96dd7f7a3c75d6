// The place and the derivatives of a control net. For the kernels of one instruction set.
#pragma once

#include "qn_simd/simd_double4.h"
#include "qn_simd/simd_float8.h"
#include "sds/common/cubic_basis.h"

namespace sds {

namespace {

using QN_SIMD_NAMESPACE::SimdDouble4;
using QN_SIMD_NAMESPACE::SimdFloat8;

// The weights of a value, its first and its second derivative, one a lane. Made in registers: lanes that are stored one
// by one are slow to load together.
struct NetWeights {
    SimdDouble4 value, first, second;

    QN_SIMD_INLINE explicit NetWeights(double t) {
        constexpr double degree = 3.0;
        const CubicBasis<double> cubic(t);
        const QuadraticBasis<double> quadratic(t);
        const double s = 1.0 - t, *const b = cubic.b, *const q = quadratic.b;
        value = SimdDouble4(b[0], b[1], b[2], b[3]);
        first = SimdDouble4(degree) * (SimdDouble4(0.0, q[0], q[1], q[2]) - SimdDouble4(q[0], q[1], q[2], 0.0));
        second = SimdDouble4(6.0) * SimdDouble4(s, t - 2.0 * s, s - 2.0 * t, t);
    }
};

// Columns blended along v with the weights of the value, the first and the second derivative, then along u.
void evaluate_net(const float (*controls)[4], double u, double v, double* out) {
    const NetWeights wu(u), wv(v);
    double value_u[4], first_u[4], second_u[4], value_v[4], first_v[4], second_v[4];
    wu.value.store4(value_u), wu.first.store4(first_u), wu.second.store4(second_u);
    wv.value.store4(value_v), wv.first.store4(first_v), wv.second.store4(second_v);
    SimdDouble4 place[4], uu[4], uv[4], vv[4];
    for (unsigned int c = 0; c < 4; ++c) {
        SimdDouble4 value(0.0), first(0.0), second(0.0);
        for (unsigned int r = 0; r < 4; ++r) {
            const SimdDouble4 point(controls[grid_order[4 * r + c]]);
            value = value + point * SimdDouble4(value_v[r]);
            first = first + point * SimdDouble4(first_v[r]);
            second = second + point * SimdDouble4(second_v[r]);
        }
        place[c] = value * SimdDouble4(value_u[c]);
        uu[c] = value * SimdDouble4(second_u[c]);
        uv[c] = first * SimdDouble4(first_u[c]);
        vv[c] = second * SimdDouble4(value_u[c]);
    }
    const auto sum = [](const SimdDouble4* a) { return (a[0] + a[1]) + (a[2] + a[3]); };
    sum(place).store3(out);
    sum(uu).store3(out + 3);
    sum(uv).store3(out + 6);
    sum(vv).store3(out + 9);
}

// Two rows of a net at a time, in the two groups.
void evaluate_slopes(const float (*nets)[4], float u, float v, double* out) {
    const CubicBasis<float> cubic_u(u), cubic_v(v);
    const QuadraticBasis<float> quadratic_u(u), quadratic_v(v);
    const float *const cu = cubic_u.b, *const cv = cubic_v.b, *const qu = quadratic_u.b, *const qv = quadratic_v.b;
    const auto along_u = [&](const float(*a)[4], const float(*b)[4]) {
        return SimdFloat8(a[0], b[0]) * SimdFloat8(qu[0]) + SimdFloat8(a[1], b[1]) * SimdFloat8(qu[1]) +
               SimdFloat8(a[2], b[2]) * SimdFloat8(qu[2]);
    };
    const auto along_v = [&](const float(*a)[4], const float(*b)[4]) {
        return SimdFloat8(a[0], b[0]) * SimdFloat8(cu[0]) + SimdFloat8(a[1], b[1]) * SimdFloat8(cu[1]) +
               SimdFloat8(a[2], b[2]) * SimdFloat8(cu[2]) + SimdFloat8(a[3], b[3]) * SimdFloat8(cu[3]);
    };
    const SimdFloat8 u01 = along_u(nets, nets + 3) * SimdFloat8(cv[0], cv[1]);
    const SimdFloat8 u23 = along_u(nets + 6, nets + 9) * SimdFloat8(cv[2], cv[3]);
    const SimdFloat8 v01 = along_v(nets + 12, nets + 16) * SimdFloat8(qv[0], qv[1]);
    const SimdFloat8 v22 = along_v(nets + 20, nets + 20) * SimdFloat8(qv[2]);
    // The sums stand in the first group.
    float du[8], dv[8];
    (((u01 + swap_groups(u01)) + u23) + swap_groups(u23)).store(du);
    ((v01 + swap_groups(v01)) + v22).store(dv);
    const SimdDouble4 degree(3.0);
    (SimdDouble4(du) * degree).store3(out);
    (SimdDouble4(dv) * degree).store3(out + 3);
}

}  // namespace

}  // namespace sds
