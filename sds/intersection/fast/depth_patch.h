// Distances along a ray. For the kernels of one instruction set.
#pragma once

#include "sds/common/cubic_basis.h"
#include "sds/intersection/fast/plane_patch.h"

namespace sds {

namespace {

// Distances along the ray of the whole patch; made where a hit is found.
class DepthPatch {
public:
    DepthPatch(const float (*controls)[16], const RaySpace& ray) {
        for (unsigned int h = 0; h < 16; h += 8) {
            SimdFloat8 t(0.0f);
            for (unsigned int axis = 0; axis < 3; ++axis) {
                const float* c = controls[axis] + h;
                t = t + (SimdFloat8(c, c + 4) - SimdFloat8(ray.origin[axis])) * SimdFloat8(ray.along[axis]);
            }
            t.store(m_depths + h);
        }
    }

    // As rows of the control grid, each in both groups of lanes.
    void store_rows(SimdFloat8* rows) const {
        for (unsigned int r = 0; r < 4; ++r) rows[r] = SimdFloat8(m_depths + 4 * r, m_depths + 4 * r);
    }

    // At the corners c0 to c3 of a cell; weights of its two u and two v in order 0 1 3 2.
    void evaluate_cell(const float* u0, const float* u1, const float* v0, const float* v1, float* t) const {
        // Rows 0 and 1, 2 and 3 in the two groups; the sum of the groups is the curve at one v.
        const SimdFloat8 low(m_depths, m_depths + 4), high(m_depths + 8, m_depths + 12);
        const SimdFloat8 half0 = low * SimdFloat8(v0[0], v0[1]) + high * SimdFloat8(v0[3], v0[2]);
        const SimdFloat8 half1 = low * SimdFloat8(v1[0], v1[1]) + high * SimdFloat8(v1[3], v1[2]);
        const SimdFloat8 curve0 = swap_last(half0 + swap_groups(half0)), curve1 = swap_last(half1 + swap_groups(half1));
        const SimdFloat8 weights0(u0, u0), weights1(u1, u1);
        float sums[8];
        sum_of_four(curve0 * weights0, curve0 * weights1, curve1 * weights1, curve1 * weights0).store(sums);
        for (unsigned int k = 0; k < 4; ++k) t[k] = sums[k];
    }

    float evaluate(float u, float v) const {
        const CubicBasis<float> along_u(u), along_v(v);
        const float *wu = along_u.b, *wv = along_v.b;
        float t = 0.0f;
        for (unsigned int r = 0; r < 4; ++r) {
            const float* d = m_depths + 4 * r;
            t += wv[r] * (wu[0] * d[0] + wu[1] * d[1] + wu[2] * d[2] + wu[3] * d[3]);
        }
        return t;
    }

private:
    float m_depths[16];
};

}  // namespace

}  // namespace sds
