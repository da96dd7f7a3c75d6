// The part kernels of one instruction set.
#include <limits>

#include "qn_simd/simd_float4.h"
#include "qn_simd/simd_float8.h"
#include "sds/common/kernel_set.h"
#include "sds/mesh/part_kernels/part_kernels.h"

namespace sds {

namespace {

using namespace QN_SIMD_NAMESPACE;

// Thirteen points or rows of points: those of four parts, each sharing its last with the next one's first.
constexpr unsigned int net_size = 13;

// De Casteljau at one half.
template <class Lanes>
QN_SIMD_INLINE void halve_curve(const Lanes* p, Lanes* out) {
    const Lanes half(0.5f);
    const Lanes m01 = (p[0] + p[1]) * half, m12 = (p[1] + p[2]) * half, m23 = (p[2] + p[3]) * half;
    const Lanes a = (m01 + m12) * half, b = (m12 + m23) * half;
    out[0] = p[0], out[1] = m01, out[2] = a, out[3] = (a + b) * half, out[4] = b, out[5] = m23, out[6] = p[3];
}
template <class Lanes>
QN_SIMD_INLINE void quarter_curve(const Lanes* p, Lanes* out) {
    Lanes halves[7];
    halve_curve(p, halves);
    halve_curve(halves, out);
    halve_curve(halves + 3, out + 6);
}

void find_bounds(const float* coords, PartBounds& bounds) {
    const SimdFloat4 curves[4] = {SimdFloat4::load_unaligned(coords), SimdFloat4::load_unaligned(coords + 4),
                                  SimdFloat4::load_unaligned(coords + 8), SimdFloat4::load_unaligned(coords + 12)};
    SimdFloat4 net[net_size];
    quarter_curve(curves, net);
    float rows[net_size][4];
    for (unsigned int i = 0; i < net_size; ++i) net[i].store_unaligned(rows[i]);
    // Two rows of parts in the two groups.
    for (unsigned int v = 0; v < 4; v += 2) {
        SimdFloat8 c[4], columns[net_size], low[4], high[4];
        for (unsigned int k = 0; k < 4; ++k) c[k] = SimdFloat8(rows[3 * v + k], rows[3 * v + 3 + k]);
        transpose(c[0], c[1], c[2], c[3]);
        quarter_curve(c, columns);
        for (unsigned int u = 0; u < 4; ++u) {
            const SimdFloat8* p = columns + 3 * u;
            low[u] = min(min(p[0], p[1]), min(p[2], p[3]));
            high[u] = max(max(p[0], p[1]), max(p[2], p[3]));
        }
        const SimdFloat8 low_a = min(even_lanes(low[0], low[1]), odd_lanes(low[0], low[1]));
        const SimdFloat8 low_b = min(even_lanes(low[2], low[3]), odd_lanes(low[2], low[3]));
        const SimdFloat8 high_a = max(even_lanes(high[0], high[1]), odd_lanes(high[0], high[1]));
        const SimdFloat8 high_b = max(even_lanes(high[2], high[3]), odd_lanes(high[2], high[3]));
        min(even_lanes(low_a, low_b), odd_lanes(low_a, low_b)).store(bounds.low[v], bounds.low[v + 1]);
        max(even_lanes(high_a, high_b), odd_lanes(high_a, high_b)).store(bounds.high[v], bounds.high[v + 1]);
    }
}

// The least number, but NaN when the first is none.
QN_SIMD_INLINE float find_least(float first, SimdFloat8 a, SimdFloat8 b) {
    const SimdFloat8 none(std::numeric_limits<float>::infinity());
    const SimdFloat8 all = group_min(min(a, min(b, none)));
    float least[8];
    min(all, swap_groups(all)).store(least);
    return first == first ? least[0] : first;
}

// Sixteen coordinates [v][u] in the order of the parts.
struct InPartOrder {
    SimdFloat8 first, last;

    QN_SIMD_INLINE explicit InPartOrder(const float (*at)[4]) {
        const SimdFloat8 even(at[0], at[2]), odd(at[1], at[3]);
        first = zip_low(even, odd);
        last = zip_high(even, odd);
    }
};

void set_boxes(const PartBounds& bounds, float margin, unsigned int axis, PartBoxes& boxes) {
    constexpr float outside = 0x1p-17f;
    const SimdFloat8 zero(0.0f), most(255.0f);
    const InPartOrder lows(bounds.low), highs(bounds.high);
    const float low = find_least(bounds.low[0][0], lows.first, lows.last);
    const float high = -find_least(-bounds.high[0][0], zero - highs.first, zero - highs.last);
    const float pad = margin + outside * (high - low), origin = low - pad;
    const float step = (high + pad - origin) * ((1.0f + 0x1p-20f) / 255.0f), inverse = 1.0f / step;
    boxes.origin[axis] = origin;
    boxes.step[axis] = step;
    // Steps from 0 to 255; NaN, as those of a point that is not finite, as 0.
    const auto round_down = [&](SimdFloat8 x) { return select_positive(x, min(x, most), zero); };
    const auto count_up = [&](SimdFloat8 side) {
        return round_down((side - SimdFloat8(pad) - SimdFloat8(origin)) * SimdFloat8(inverse));
    };
    const auto count_down = [&](SimdFloat8 side) {
        return round_down(most - (side + SimdFloat8(pad) - SimdFloat8(origin)) * SimdFloat8(inverse));
    };
    float up[part_count], down[part_count];
    count_up(lows.first).store(up);
    count_up(lows.last).store(up + 8);
    count_down(highs.first).store(down);
    count_down(highs.last).store(down + 8);
    for (unsigned int part = 0; part < part_count; ++part) {
        boxes.sides[axis][0][part] = static_cast<unsigned char>(static_cast<int>(up[part]));
        boxes.sides[axis][1][part] = static_cast<unsigned char>(255 - static_cast<int>(down[part]));
    }
}

}  // namespace

const PartKernels QN_KERNEL_SET::part_kernels = {&find_bounds, &set_boxes};

}  // namespace sds
