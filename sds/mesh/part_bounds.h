// The boxes of a patch's parts and the corners of its flat cells, from its control points.
#pragma once

#include <algorithm>
#include <limits>

#include "qn_simd/simd_float4.h"
#include "sds/common/cubic_basis.h"
#include "sds/intersection/fast/patch_parts.h"

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

// Thirteen points or rows of points: those of four parts, each sharing its last with the next one's first.
inline constexpr unsigned int net_size = 13;

// De Casteljau at one half, twice.
inline void quarter_curve(SimdFloat4 p0, SimdFloat4 p1, SimdFloat4 p2, SimdFloat4 p3, SimdFloat4* out) {
    const auto halve = [](const SimdFloat4* p, SimdFloat4* q) {
        const SimdFloat4 half(0.5f);
        const SimdFloat4 m01 = (p[0] + p[1]) * half, m12 = (p[1] + p[2]) * half, m23 = (p[2] + p[3]) * half;
        const SimdFloat4 a = (m01 + m12) * half, b = (m12 + m23) * half;
        q[0] = p[0], q[1] = m01, q[2] = a, q[3] = (a + b) * half, q[4] = b, q[5] = m23, q[6] = p[3];
    };
    const SimdFloat4 whole[4] = {p0, p1, p2, p3};
    SimdFloat4 halves[7];
    halve(whole, halves);
    halve(halves, out);
    halve(halves + 3, out + 6);
}

// Least and greatest coordinates of the parts [v][u]; empty to begin with.
struct PartBounds {
    float low[4][4], high[4][4];

    PartBounds() {
        std::fill_n(&low[0][0], part_count, std::numeric_limits<float>::infinity());
        std::fill_n(&high[0][0], part_count, -std::numeric_limits<float>::infinity());
    }
    // Makes all of them the patch's.
    void join() {
        std::fill_n(&low[0][0], part_count, *std::min_element(&low[0][0], &low[0][0] + part_count));
        std::fill_n(&high[0][0], part_count, *std::max_element(&high[0][0], &high[0][0] + part_count));
    }
    // Empties some.
    void clear(unsigned int parts) {
        for (unsigned int part = 0; part < part_count; ++part) {
            if ((parts >> part & 1u) == 0) continue;
            low[get_part_v(part)][get_part_u(part)] = std::numeric_limits<float>::infinity();
            high[get_part_v(part)][get_part_u(part)] = -std::numeric_limits<float>::infinity();
        }
    }
};

// Of their control points.
inline void find_bounds(const float* coords, PartBounds& bounds) {
    SimdFloat4 rows[net_size];
    quarter_curve(SimdFloat4::load_unaligned(coords), SimdFloat4::load_unaligned(coords + 4),
                  SimdFloat4::load_unaligned(coords + 8), SimdFloat4::load_unaligned(coords + 12), rows);
    for (unsigned int v = 0; v < 4; ++v) {
        SimdFloat4 c[4] = {rows[3 * v], rows[3 * v + 1], rows[3 * v + 2], rows[3 * v + 3]};
        transpose(c[0], c[1], c[2], c[3]);
        SimdFloat4 columns[net_size], low[4], high[4];
        quarter_curve(c[0], c[1], c[2], c[3], columns);
        for (unsigned int u = 0; u < 4; ++u) {
            const SimdFloat4* p = columns + 3 * u;
            low[u] = min(min(p[0], p[1]), min(p[2], p[3]));
            high[u] = max(max(p[0], p[1]), max(p[2], p[3]));
        }
        transpose(low[0], low[1], low[2], low[3]);
        transpose(high[0], high[1], high[2], high[3]);
        min(min(low[0], low[1]), min(low[2], low[3])).store_unaligned(bounds.low[v]);
        max(max(high[0], high[1]), max(high[2], high[3])).store_unaligned(bounds.high[v]);
    }
}

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

// The part at each place of PartBounds, v first.
struct PartOrder {
    unsigned char at[part_count];

    constexpr PartOrder() : at{} {
        for (unsigned int part = 0; part < part_count; ++part)
            at[4 * get_part_v(part) + get_part_u(part)] = static_cast<unsigned char>(part);
    }
};
inline constexpr PartOrder part_order;

// Steps from 0 to 255; NaN, as those of a point that is not finite, as 0.
inline int round_down(float x) { return static_cast<int>(x > 0.0f ? std::min(x, 255.0f) : 0.0f); }

// Boxes take in, by `margin`, the rounding of points, of the ray and of the test that they are for, and hits that
// kernels accept beside a part.
inline void set_boxes(const PartBounds& bounds, float margin, unsigned int axis, PartBoxes& boxes) {
    constexpr float outside = 0x1p-17f;
    const float low = *std::min_element(&bounds.low[0][0], &bounds.low[0][0] + part_count);
    const float high = *std::max_element(&bounds.high[0][0], &bounds.high[0][0] + part_count);
    const float pad = margin + outside * (high - low), origin = low - pad;
    const float step = (high + pad - origin) * ((1.0f + 0x1p-20f) / 255.0f), inverse = 1.0f / step;
    boxes.origin[axis] = origin;
    boxes.step[axis] = step;
    const float *lows = &bounds.low[0][0], *highs = &bounds.high[0][0];
    int first[part_count], last[part_count];
    for (unsigned int i = 0; i < part_count; ++i) {
        first[i] = round_down((lows[i] - pad - origin) * inverse);
        last[i] = 255 - round_down(255.0f - (highs[i] + pad - origin) * inverse);
    }
    for (unsigned int i = 0; i < part_count; ++i) {
        boxes.sides[axis][0][part_order.at[i]] = static_cast<unsigned char>(first[i]);
        boxes.sides[axis][1][part_order.at[i]] = static_cast<unsigned char>(last[i]);
    }
}

}  // namespace sds
