// The kernels of a level's faces for one instruction set.
#include <cstddef>

#include "qn_simd/simd_double4.h"
#include "sds/common/kernel_set.h"
#include "sds/refinement/level_kernels/level_kernels.h"
#include "sds/refinement/level_kernels/level_points.h"
#include "sds/refinement/level_kernels/smooth_leaf.h"

namespace sds {

namespace {

constexpr unsigned int no_corner = 0xFFFFFFFF;

// The quads of a level, whose face-corners are numbered by four.
struct QuadCorners {
    explicit QuadCorners(const LevelFaces&) {}
    unsigned int begin_of_face(unsigned int f) const { return 4 * f; }
    unsigned int begin_of(unsigned int c) const { return c & ~3u; }
    unsigned int next(unsigned int c) const { return (c & ~3u) | ((c + 1) & 3u); }
    unsigned int previous(unsigned int c) const { return (c & ~3u) | ((c + 3) & 3u); }
};

// Those of a level of polygons, whose quads are among others.
struct PolygonCorners {
    const unsigned int *offsets, *faces;
    explicit PolygonCorners(const LevelFaces& level) : offsets(level.offsets), faces(level.faces) {}
    unsigned int begin_of_face(unsigned int f) const { return offsets[f]; }
    unsigned int begin_of(unsigned int c) const { return offsets[faces[c]]; }
    unsigned int next(unsigned int c) const { return c + 1 == offsets[faces[c] + 1] ? offsets[faces[c]] : c + 1; }
    unsigned int previous(unsigned int c) const { return c == offsets[faces[c]] ? offsets[faces[c] + 1] - 1 : c - 1; }
};

// What lies around a regular face, by its edge k:
//
//     start[k] +--------+ end[k]    ends of the edges of the face across that leave the edge's two ends
//              |        |
//            k +--------+ k + 1
template <class Corners>
class Ring {
public:
    Ring(const LevelFaces& level, Corners corners) : m_level(level), m_corners(corners) {}

    SimdDouble4 load(unsigned int v) const { return SimdDouble4::load4(m_level.points + 3 * size_t{v}); }

    // The ends of the edges beside face-corner c; false at an edge of one face.
    bool find_beside(unsigned int c, unsigned int& start, unsigned int& end) const {
        const unsigned int o = m_level.opposites[c];
        if (o == no_corner) return false;
        const unsigned int begin = m_corners.begin_of(o);
        start = m_level.vertices[begin + ((o - begin + 2) & 3u)];
        end = m_level.vertices[begin + ((o - begin + 3) & 3u)];
        if (m_level.vertices[o] == m_level.vertices[c]) {  // a neighbor that winds the other way
            const unsigned int former = start;
            start = end;
            end = former;
        }
        return true;
    }

    // The last of a regular vertex's eight neighbors, that of the face opposite to face-corner c.
    unsigned int find_opposite(unsigned int c) const {
        const unsigned int v = m_level.vertices[c];
        unsigned int edge = c, corner = c;
        for (unsigned int i = 0; i < 2; ++i) {
            const unsigned int o = m_level.opposites[edge];
            if (m_level.vertices[o] != v) {
                corner = edge = m_corners.next(o);
            } else {
                corner = o;
                edge = m_corners.previous(o);
            }
        }
        const unsigned int begin = m_corners.begin_of(corner);
        return m_level.vertices[begin + ((corner - begin + 2) & 3u)];
    }

    // The limit point of corner k of the quad at `begin`, with the points beside its edge k and the one before.
    SimdDouble4 make_limit(unsigned int begin, unsigned int k, const SimdDouble4 (&q)[4], SimdDouble4 ahead_start,
                           SimdDouble4 ahead_end, SimdDouble4 behind_start, SimdDouble4 behind_end) const {
        const SimdDouble4 edges = q[(k + 1) & 3u] + q[(k + 3) & 3u] + ahead_start + behind_end;
        const SimdDouble4 diagonals = q[(k + 2) & 3u] + ahead_end + behind_start + load(find_opposite(begin + k));
        const SimdDouble4 sum = q[k] * SimdDouble4(16.0) + edges * SimdDouble4(4.0) + diagonals;
        const unsigned int v = m_level.vertices[begin + k];
        const SimdDouble4 limit = sum * SimdDouble4(1.0 / 36.0);
        limit.store4(m_level.limits + 4 * size_t{v});
        return limit;
    }

private:
    const LevelFaces& m_level;
    Corners m_corners;
};

template <class Corners>
void compute_limits_of(const LevelFaces& level, const unsigned int* first, unsigned int begin, unsigned int end) {
    const Corners corners(level);
    const Ring<Corners> ring(level, corners);
    for (unsigned int f = begin; f < end; ++f) {
        if (level.states[f] != level.emitted) continue;
        const unsigned int c = corners.begin_of_face(f);
        const unsigned int* quad = level.vertices + c;
        for (unsigned int k = 0; k < 4; ++k) {
            if (first[quad[k]] != c + k) continue;
            const bool is_known = level.is_known[quad[k]] != 0;
            level.is_known[quad[k]] = 1;
            if (is_known) continue;
            const SimdDouble4 q[4] = {ring.load(quad[0]), ring.load(quad[1]), ring.load(quad[2]), ring.load(quad[3])};
            unsigned int start = 0, end_ahead = 0, start_behind = 0, end_behind = 0;
            ring.find_beside(c + k, start, end_ahead);
            ring.find_beside(c + ((k + 3) & 3u), start_behind, end_behind);
            ring.make_limit(c, k, q, ring.load(start), ring.load(end_ahead), ring.load(start_behind),
                            ring.load(end_behind));
        }
    }
}

// How many faces ahead a patch's memory is asked for: the patches of a level lie here and there among the others.
constexpr unsigned int faces_ahead = 6;

void prefetch_patch(const float* controls) {
    for (unsigned int i = 0; i < 48; i += 16) __builtin_prefetch(controls + i, 1);
}

// Controls leave in order, four floats at a time: the fourth is overwritten by the next.
template <class Corners>
unsigned int compute_controls_of(const LevelFaces& level, unsigned int begin, unsigned int end) {
    const Corners corners(level);
    const Ring<Corners> ring(level, corners);
    const SimdDouble4 two(2.0), four(4.0), third(1.0 / 3.0), ninth(1.0 / 9.0), eighteenth(1.0 / 18.0);
    unsigned int short_count = 0;
    for (unsigned int f = begin; f < end; ++f) {
        if (level.states[f] != level.emitted) continue;
        if (f + faces_ahead < end && level.states[f + faces_ahead] == level.emitted)
            prefetch_patch(level.controls + 48 * size_t{level.patches[f + faces_ahead]});
        const unsigned int c = corners.begin_of_face(f);
        const unsigned int* quad = level.vertices + c;
        const unsigned int sharp = level.edge_bits[f];
        const SimdDouble4 q[4] = {ring.load(quad[0]), ring.load(quad[1]), ring.load(quad[2]), ring.load(quad[3])};
        SimdDouble4 starts[4], ends[4];
        bool is_smooth[4];
#pragma GCC unroll 4
        for (unsigned int k = 0; k < 4; ++k) {
            unsigned int start = quad[k], end_vertex = quad[k];
            is_smooth[k] = ((sharp >> k) & 1u) == 0 && ring.find_beside(c + k, start, end_vertex);
            starts[k] = ring.load(start);
            ends[k] = ring.load(end_vertex);
        }
        SimdDouble4 corner[4];
#pragma GCC unroll 4
        for (unsigned int k = 0; k < 4; ++k) {
            const unsigned int v = quad[k], behind = (k + 3) & 3u;
            const unsigned char known = level.is_known[v];
            corner[k] = known != 0 ? SimdDouble4::load4(level.limits + 4 * size_t{v})
                                   : ring.make_limit(c, k, q, starts[k], ends[k], starts[behind], ends[behind]);
            if (known != 1) level.is_known[v] = 1;  // on many threads all are 1 from compute_limits
        }

        const SimdDouble4 q4[4] = {q[0] * four, q[1] * four, q[2] * four, q[3] * four};
        const SimdDouble4 across[2] = {(q[1] + q[3]) * two, (q[0] + q[2]) * two};
        const size_t patch = level.patches[f];
        float* out = level.controls + 48 * patch;
#pragma GCC unroll 4
        for (unsigned int k = 0; k < 4; ++k, out += 12) {
            const unsigned int next = (k + 1) & 3u, far = (k + 2) & 3u, behind = (k + 3) & 3u;
            store_corner(level, quad[k], corner[k], out);
            const SimdDouble4 leaving =
                is_smooth[k]
                    ? (q4[k] * two + q4[next] + (starts[k] + q[behind]) * two + (ends[k] + q[far])) * eighteenth
                    : (q[k] * two + q[next]) * third;
            leaving.store_rounded4(out + 3);
            ((across[k & 1u] + q4[k] + q[far]) * ninth).store_rounded4(out + 6);
            const SimdDouble4 arriving =
                is_smooth[behind]
                    ? (q4[k] * two + q4[behind] + (ends[behind] + q[next]) * two + (starts[behind] + q[far])) *
                          eighteenth
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
        level.net_offsets[patch] = is_short ? 0 : no_corner;
        short_count += is_short ? 1 : 0;
    }
    return short_count;
}

void compute_limits(const LevelFaces& level, const unsigned int* first, unsigned int begin, unsigned int end) {
    if (level.offsets == nullptr)
        compute_limits_of<QuadCorners>(level, first, begin, end);
    else
        compute_limits_of<PolygonCorners>(level, first, begin, end);
}

unsigned int compute_controls(const LevelFaces& level, unsigned int begin, unsigned int end) {
    return level.offsets == nullptr ? compute_controls_of<QuadCorners>(level, begin, end)
                                    : compute_controls_of<PolygonCorners>(level, begin, end);
}

}  // namespace

const LevelKernels QN_KERNEL_SET::level_kernels = {&compute_limits, &compute_controls, &compute_smooth_leaf,
                                                   &sum_neighbors, &refine_points};

}  // namespace sds
