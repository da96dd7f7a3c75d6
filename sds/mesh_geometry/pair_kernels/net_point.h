// The place and the second derivatives of a control net in double precision. For the kernels of one instruction set.
#pragma once

#include "qn_simd/simd_double4.h"
#include "sds/common/cubic_basis.h"

namespace sds {

namespace {

using QN_SIMD_NAMESPACE::SimdDouble4;

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

// One coordinate of the sixteen points at a time: columns, one a lane, blended along v with the weights of the value,
// the first and the second derivative, then along u.
void evaluate_net(const float (*coords)[16], double u, double v, double* out) {
    const NetWeights wu(u), wv(v);
    double value_v[4], first_v[4], second_v[4];
    wv.value.store4(value_v);
    wv.first.store4(first_v);
    wv.second.store4(second_v);
    // Of each axis the place, then uu, uv and vv.
    double sums[3][4];
    for (unsigned int axis = 0; axis < 3; ++axis) {
        SimdDouble4 value(0.0), first(0.0), second(0.0);
        for (unsigned int r = 0; r < 4; ++r) {
            const SimdDouble4 row(coords[axis] + 4 * r);
            value = value + row * SimdDouble4(value_v[r]);
            first = first + row * SimdDouble4(first_v[r]);
            second = second + row * SimdDouble4(second_v[r]);
        }
        sum_of_four(wu.value * value, wu.second * value, wu.first * first, wu.value * second).store4(sums[axis]);
    }
    for (unsigned int i = 0; i < 4; ++i) SimdDouble4(sums[0][i], sums[1][i], sums[2][i], 0.0).store3(out + 3 * i);
}

}  // namespace

}  // namespace sds
