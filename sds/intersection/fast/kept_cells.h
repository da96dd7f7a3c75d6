// Flat cells whose corners are kept in space. For the kernels of one instruction set.
#pragma once

#include "sds/intersection/fast/flat_cells.h"
#include "sds/intersection/fast/patch_parts.h"

namespace sds {

namespace {

// Reports the hits of one ray with the cells of one part of a patch: one cell at level 2, two by two at level 3.
// Patches that share an edge keep the same bits there, and every corner is moved into the plane by itself. `origin` is
// the ray's, from the center that corners are kept by.
template <unsigned int level>
[[gnu::always_inline]] inline void intersect_kept_part(const float* corners, const float* origin, unsigned int part,
                                                       const RaySpace& ray, RayHits& hits) {
    constexpr unsigned int side = get_kept_side(level), count = side * side;
    constexpr unsigned int cells = 1u << (level - 2), row_count = cells + 1;
    constexpr unsigned int inside = cells == 1 ? 0x1u : 0x3u;  // of a nibble, the cells along v
    const unsigned int first_i = get_part_u(part) * cells, first_j = get_part_v(part) * cells;
    const float *x = corners + side * first_i + first_j, *y = x + count, *z = y + count;
    const SimdFloat8 across_x(ray.across[0][0], ray.across[1][0]), across_y(ray.across[0][1], ray.across[1][1]),
        across_z(ray.across[0][2], ray.across[1][2]);
    const SimdFloat8 zero(0.0f), ox(origin[0]), oy(origin[1]), oz(origin[2]);
    float p[row_count][4], q[row_count][4];
    unsigned int found = 0, before = 0;
    for (unsigned int r = 0; r < row_count; ++r) {
        const unsigned int at = side * r;
        const SimdFloat8 row = (SimdFloat8(x + at, x + at) - ox) * across_x +
                               (SimdFloat8(y + at, y + at) - oy) * across_y +
                               (SimdFloat8(z + at, z + at) - oz) * across_z;
        row.store(p[r], q[r]);
        const unsigned int signs = get_signs(row, zero), sides = signs | signs >> 1, both = sides | before;
        const unsigned int p_and_q = both & both >> 8;
        if (r != 0) found |= (p_and_q & p_and_q >> 4 & inside) << (4 * (r - 1));
        before = sides;
    }
    while (found != 0) {
        const unsigned int place = take_lowest_bit(found), r = place / 4, c = place % 4;
        const unsigned int rows[4] = {r, r + 1, r + 1, r}, lanes[4] = {c, c, c + 1, c + 1};
        FlatCell cell;
        for (unsigned int k = 0; k < 4; ++k) {
            cell.p[k] = static_cast<double>(p[rows[k]][lanes[k]]);
            cell.q[k] = static_cast<double>(q[rows[k]][lanes[k]]);
        }
        const auto find_depths = [&](float* t) {
            for (unsigned int k = 0; k < 4; ++k) {
                const unsigned int at = side * rows[k] + lanes[k];
                t[k] = (x[at] - origin[0]) * ray.along[0] + (y[at] - origin[1]) * ray.along[1] +
                       (z[at] - origin[2]) * ray.along[2];
            }
        };
        intersect_cell<false>(cell, first_i + r, first_j + c, level, ray, hits, find_depths, part);
    }
}

}  // namespace

}  // namespace sds
