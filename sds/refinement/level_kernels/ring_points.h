// The points around a quad and the controls of its patch, in lanes. For the kernels of one instruction set.
#pragma once

#include <cstddef>
#include <cstring>

#include "qn_simd/simd_double4.h"
#include "sds/refinement/level_kernels/level_kernels.h"

namespace sds {

namespace {

using QN_SIMD_NAMESPACE::SimdDouble4;

constexpr unsigned int no_corner = 0xFFFFFFFF;

SimdDouble4 load_point(const LevelFaces& level, unsigned int v) {
    return SimdDouble4::load4(level.points + 3 * size_t{v});
}
SimdDouble4 load_limit(const LevelFaces& level, unsigned int v) {
    return SimdDouble4::load4(level.limits + 4 * size_t{v});
}

// The vertices of a face and those around it by its edge k; where that is sharp, any two.
//
//     starts[k] +--------+ ends[k]    ends of the edges of the face across that leave the edge's two ends
//               |        |
//             k +--------+ k + 1
struct Ring {
    const unsigned int* quad;
    unsigned int starts[4], ends[4];
    unsigned int smooth_edges;   // bits
    unsigned int fresh_corners;  // bits of those whose limit points the patch makes
    unsigned int opposites[4];   // at these corners, the last of the eight vertices around them
    unsigned int patch;
};

// The points of a ring.
struct RingPoints {
    SimdDouble4 quad[4], starts[4], ends[4];
};

// The limit point of a vertex between smooth edges that has four, by the sums over the two kinds of its neighbors.
SimdDouble4 sum_limit(SimdDouble4 vertex, SimdDouble4 edges, SimdDouble4 diagonals) {
    const SimdDouble4 sum = vertex * SimdDouble4(16.0) + edges * SimdDouble4(4.0) + diagonals;
    return sum * SimdDouble4(1.0 / 36.0);
}

// The corners of patches: what coarser patches have at a vertex, or its limit rounded. Which of the two is hard to
// foretell.
class CornerRounder {
public:
    explicit CornerRounder(const LevelFaces& level) : m_is_handed(level.is_handed), m_handed(level.handed) {}

    // Four numbers.
    [[gnu::always_inline]] void store(unsigned int v, SimdDouble4 limit, float* out) const {
        alignas(16) float rounded[4];
        limit.store_rounded4(rounded);
        const float* const choice[2] = {rounded, m_handed + 4 * size_t{v}};
        std::memcpy(out, choice[m_is_handed[v]], sizeof rounded);
    }

private:
    const unsigned char* m_is_handed;  // 0 or 1
    const float* m_handed;
};

// Controls leave in order, four floats at a time: the fourth is overwritten by the next. put_corner(k, limit, out)
// writes four for a corner. Returns whether the patch needs nets.
template <bool is_smooth, class PutCorner>
[[gnu::always_inline]] inline bool store_patch(const LevelFaces& level, const RingPoints& points,
                                               const SimdDouble4 (&corner)[4], unsigned int smooth_edges, float* out,
                                               const PutCorner& put_corner) {
    const SimdDouble4 two(2.0), four(4.0), third(1.0 / 3.0), ninth(1.0 / 9.0), eighteenth(1.0 / 18.0);
    const SimdDouble4* q = points.quad;
    SimdDouble4 q4[4], a[4], b[4];
#pragma GCC unroll 4
    for (unsigned int k = 0; k < 4; ++k) {
        q4[k] = q[k] * four;
        a[k] = points.starts[k] + q[(k + 3) & 3u];
        b[k] = points.ends[k] + q[(k + 2) & 3u];
    }
    const SimdDouble4 across[2] = {(q[1] + q[3]) * two, (q[0] + q[2]) * two};
#pragma GCC unroll 4
    for (unsigned int k = 0; k < 4; ++k, out += 12) {
        const unsigned int next = (k + 1) & 3u, far = (k + 2) & 3u, behind = (k + 3) & 3u;
        put_corner(k, corner[k], out);
        const SimdDouble4 leaving = is_smooth || ((smooth_edges >> k) & 1u) != 0
                                        ? (q4[k] * two + q4[next] + a[k] * two + b[k]) * eighteenth
                                        : (q[k] * two + q[next]) * third;
        leaving.store_rounded4(out + 3);
        ((across[k & 1u] + q4[k] + q[far]) * ninth).store_rounded4(out + 6);
        const SimdDouble4 arriving = is_smooth || ((smooth_edges >> behind) & 1u) != 0
                                         ? (q4[k] * two + q4[behind] + b[behind] * two + a[behind]) * eighteenth
                                         : (q[k] * two + q[behind]) * third;
        if (k < 3)
            arriving.store_rounded4(out + 9);
        else
            arriving.store_rounded3(out + 9);
    }
    bool is_short = false;
#pragma GCC unroll 4
    for (unsigned int k = 0; k < 4; ++k) {
        const SimdDouble4 edge = corner[(k + 1) & 3u] - corner[k];
        is_short |= (edge * edge).sum3() < level.shortest_squared;
    }
    return is_short;
}

}  // namespace

}  // namespace sds
