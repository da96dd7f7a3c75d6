// The corners of flat cells of patches in space, from control points.
#pragma once

#include <algorithm>

#include "qn_simd/simd_float4.h"
#include "sds/common/cubic_basis.h"
#include "sds/mesh/part_kernels/part_kernels.h"

namespace sds {

// Weights of the points i / 2^level along one side, in every lane.
struct NetWeights {
    static constexpr unsigned int max_size = 9;
    SimdFloat4 at[max_size][4];

    void set(unsigned int level) {
        const unsigned int size = get_kept_side(level);
        for (unsigned int i = 0; i < size; ++i) {
            const auto basis = CubicBasis<float>::make_symmetric(static_cast<float>(i) / static_cast<float>(size - 1));
            for (unsigned int k = 0; k < 4; ++k) at[i][k] = SimdFloat4(basis.b[k]);
        }
    }
};

// Points of a curve at i / size, a power of two, in place i.
inline void halve_curve(float a, float b, float c, float d, float* out, unsigned int size) {
    out[0] = a;
    out[size] = d;
    if (size == 1) return;
    const float ab = (a + b) * 0.5f, bc = (b + c) * 0.5f, cd = (c + d) * 0.5f;
    const float abc = (ab + bc) * 0.5f, bcd = (bc + cd) * 0.5f, middle = (abc + bcd) * 0.5f;
    halve_curve(a, ab, abc, middle, out, size / 2);
    halve_curve(middle, bcd, cd, d, out + size / 2, size / 2);
}

// The corners of flat cells of a patch or a group, one coordinate of (i, j) in row i, place j.
struct CellNet {
    static constexpr unsigned int row_size = 12;
    float at[NetWeights::max_size][row_size];

    // Those of one patch: every point by symmetric sums first along v, then along u, with weights that are exactly 0
    // and 1 at the ends: patches that share an edge get its points to the same bits. What is not a corner may be set
    // too.
    void set(const float* coords, unsigned int level, const NetWeights& weights) {
        const unsigned int size = get_kept_side(level);
        const auto blend = [](const SimdFloat4* c, const SimdFloat4* w) {
            return (c[0] * w[0] + c[3] * w[3]) + (c[1] * w[1] + c[2] * w[2]);
        };
        const SimdFloat4 rows[4] = {SimdFloat4::load_unaligned(coords), SimdFloat4::load_unaligned(coords + 4),
                                    SimdFloat4::load_unaligned(coords + 8), SimdFloat4::load_unaligned(coords + 12)};
        for (unsigned int j = 0; j < size; j += 4) {
            SimdFloat4 curves[4];
            for (unsigned int k = 0; k < 4; ++k) curves[k] = blend(rows, weights.at[std::min(j + k, size - 1)]);
            transpose(curves[0], curves[1], curves[2], curves[3]);
            for (unsigned int i = 0; i < size; ++i) blend(curves, weights.at[i]).store_unaligned(at[i] + j);
        }
    }

    // Sets those along the sides of a patch by halving the curve of each, from coordinates that the center was not
    // taken from. Where patches of a refined surface differ in level, the finer one's side is a half of the coarser
    // one's by the same sums (handed_edges.h): both get the same bits.
    void set_sides(const float* coords, float center, unsigned int level) {
        const unsigned int size = 1u << level;
        float points[NetWeights::max_size];
        for (const unsigned int last : {0u, 3u}) {
            const unsigned int far = last == 0 ? 0 : size;
            const float* row = coords + 4 * last;
            halve_curve(row[0], row[1], row[2], row[3], points, size);
            for (unsigned int i = 0; i <= size; ++i) at[i][far] = points[i] - center;
            const float* column = coords + last;
            halve_curve(column[0], column[4], column[8], column[12], points, size);
            for (unsigned int j = 0; j <= size; ++j) at[far][j] = points[j] - center;
        }
    }

    // Those of a patch of a group.
    void add(const CellNet& patch, unsigned int level, unsigned int x, unsigned int y) {
        for (unsigned int i = 0; i < get_kept_side(level); ++i)
            std::copy_n(patch.at[i], get_kept_side(level), at[(x << level) + i] + (y << level));
    }

    // Cells are flat: their corners bound them.
    void find_bounds(unsigned int level, PartBounds& bounds) const {
        const unsigned int step = 1u << (level - 2);
        for (unsigned int u = 0; u < 4; ++u) {
            float low[row_size], high[row_size];
            std::copy_n(at[step * u], row_size, low);
            std::copy_n(at[step * u], row_size, high);
            for (unsigned int i = step * u + 1; i <= step * (u + 1); ++i)
                for (unsigned int j = 0; j < row_size; ++j) {
                    low[j] = std::min(low[j], at[i][j]);
                    high[j] = std::max(high[j], at[i][j]);
                }
            for (unsigned int v = 0; v < 4; ++v) {
                const float *l = low + step * v, *h = high + step * v;
                bounds.low[v][u] = std::min(l[0], std::min(l[step / 2], l[step]));
                bounds.high[v][u] = std::max(h[0], std::max(h[step / 2], h[step]));
            }
        }
    }

    void store(unsigned int level, float* out) const {
        const unsigned int side = get_kept_side(level);
        for (unsigned int i = 0; i < side; ++i) std::copy_n(at[i], side, out + side * i);
    }
};

}  // namespace sds
