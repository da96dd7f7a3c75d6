// The place and the second derivatives of a control net in double precision. For the kernels of one instruction set.
#pragma once

#include "qn_simd/simd_double4.h"
#include "sds/common/cubic_basis.h"

namespace sds {

namespace {

using QN_SIMD_NAMESPACE::SimdDouble4;

// The weights of a value, its first and its second derivative.
struct NetWeights {
    double value[4], first[4], second[4];

    explicit NetWeights(double t) {
        constexpr double degree = 3.0;
        const CubicBasis<double> cubic(t);
        const QuadraticBasis<double> quadratic(t);
        const double s = 1.0 - t;
        for (unsigned int i = 0; i < 4; ++i) {
            value[i] = cubic.b[i];
            first[i] = degree * ((i > 0 ? quadratic.b[i - 1] : 0.0) - (i < 3 ? quadratic.b[i] : 0.0));
        }
        second[0] = 6.0 * s;
        second[1] = 6.0 * (t - 2.0 * s);
        second[2] = 6.0 * (s - 2.0 * t);
        second[3] = 6.0 * t;
    }
};

// One coordinate of the sixteen points at a time: columns, one a lane, blended along v with the weights of the value,
// the first and the second derivative, then along u.
void evaluate_net(const float (*coords)[16], double u, double v, double* out) {
    const NetWeights wu(u), wv(v);
    const SimdDouble4 value_u = SimdDouble4::load4(wu.value), first_u = SimdDouble4::load4(wu.first),
                      second_u = SimdDouble4::load4(wu.second);
    for (unsigned int axis = 0; axis < 3; ++axis) {
        SimdDouble4 value(0.0), first(0.0), second(0.0);
        for (unsigned int r = 0; r < 4; ++r) {
            const SimdDouble4 row(coords[axis] + 4 * r);
            value = value + row * SimdDouble4(wv.value[r]);
            first = first + row * SimdDouble4(wv.first[r]);
            second = second + row * SimdDouble4(wv.second[r]);
        }
        double sums[4];
        sum_of_four(value_u * value, second_u * value, first_u * first, value_u * second).store4(sums);
        for (unsigned int i = 0; i < 4; ++i) out[3 * i + axis] = sums[i];
    }
}

}  // namespace

}  // namespace sds
