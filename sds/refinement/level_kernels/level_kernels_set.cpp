// The kernels of a level's faces for one instruction set.
#include <cstddef>
#include <cstring>

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
    unsigned int place_of(unsigned int c) const { return c & 3u; }
};

// The quads of a level of polygons. All faces around a regular one are quads.
struct PolygonCorners {
    const unsigned int* offsets;
    const unsigned char* slots;
    explicit PolygonCorners(const LevelFaces& level) : offsets(level.offsets), slots(level.slots) {}
    unsigned int begin_of_face(unsigned int f) const { return offsets[f]; }
    unsigned int place_of(unsigned int c) const { return slots[c]; }
};

// The vertices of a face and those around it by its edge k; where that is sharp, its start.
//
//     starts[k] +--------+ ends[k]    ends of the edges of the face across that leave the edge's two ends
//               |        |
//             k +--------+ k + 1
struct Ring {
    const unsigned int* quad;
    unsigned int starts[4], ends[4];
    unsigned int opposites[4];    // beyond corners with a new limit point: the last of the eight around it
    unsigned char smooth_edges;   // bits
    unsigned char fresh_corners;  // bits of those with a limit point that is not known yet
    bool has_handed;              // a corner from coarser patches
    unsigned int patch;
};

template <class Corners>
class RingFinder {
public:
    RingFinder(const LevelFaces& level, Corners corners)
        : m_vertices(level.vertices), m_opposites(level.opposites), m_corners(corners) {}

    // Of the face that begins at face-corner c.
    void find_ring(unsigned int c, unsigned int sharp_edges, Ring& ring) const {
        const unsigned int* quad = m_vertices + c;
        const unsigned int* across = m_opposites + c;
        ring.quad = quad;
        ring.fresh_corners = 0;
        if (sharp_edges == 0 && across[0] != no_corner && across[1] != no_corner && across[2] != no_corner &&
            across[3] != no_corner) {
            ring.smooth_edges = 15;
#pragma GCC unroll 4
            for (unsigned int k = 0; k < 4; ++k) find_beside(across[k], quad[k], ring, k);
            return;
        }
        ring.smooth_edges = 0;
        for (unsigned int k = 0; k < 4; ++k) {
            ring.starts[k] = ring.ends[k] = quad[k];
            if (across[k] == no_corner || ((sharp_edges >> k) & 1u) != 0) continue;
            ring.smooth_edges = static_cast<unsigned char>(ring.smooth_edges | 1u << k);
            find_beside(across[k], quad[k], ring, k);
        }
    }
    // At corner k of that face, where all is smooth, for its limit point.
    void find_opposite(unsigned int c, unsigned int k, Ring& ring) const {
        const unsigned int v = ring.quad[k];
        unsigned int edge = c + k, begin = 0, place = 0;
#pragma GCC unroll 2
        for (unsigned int i = 0; i < 2; ++i) {
            const unsigned int o = m_opposites[edge];
            place = m_corners.place_of(o);
            begin = o - place;
            const bool is_flipped = m_vertices[o] == v;
            edge = begin + ((is_flipped ? place + 3 : place + 1) & 3u);
            place = is_flipped ? place : (place + 1) & 3u;
        }
        ring.opposites[k] = m_vertices[begin + (place ^ 2u)];
        ring.fresh_corners = static_cast<unsigned char>(ring.fresh_corners | 1u << k);
    }

private:
    // Beyond edge k, which starts at v and has face-corner o across.
    void find_beside(unsigned int o, unsigned int v, Ring& ring, unsigned int k) const {
        const unsigned int place = m_corners.place_of(o);
        const unsigned int* quad = m_vertices + (o - place);
        const unsigned int start = quad[place ^ 2u], end = quad[(place + 3) & 3u];
        ring.starts[k] = start;
        ring.ends[k] = end;
        if (quad[place] != v) return;
        ring.starts[k] = end;  // a neighbor that winds the other way
        ring.ends[k] = start;
    }

    const unsigned int* m_vertices;
    const unsigned int* m_opposites;
    Corners m_corners;
};

// The points of a ring.
struct RingPoints {
    SimdDouble4 quad[4], starts[4], ends[4];

    RingPoints(const LevelFaces& level, const Ring& ring) {
#pragma GCC unroll 4
        for (unsigned int k = 0; k < 4; ++k) {
            quad[k] = load(level, ring.quad[k]);
            starts[k] = load(level, ring.starts[k]);
            ends[k] = load(level, ring.ends[k]);
        }
    }
    // That of corner k, between smooth edges; kept for the faces to come.
    SimdDouble4 make_limit(const LevelFaces& level, const Ring& ring, unsigned int k) const {
        const unsigned int behind = (k + 3) & 3u;
        const SimdDouble4 edges = quad[(k + 1) & 3u] + quad[behind] + starts[k] + ends[behind];
        const SimdDouble4 diagonals = quad[(k + 2) & 3u] + ends[k] + starts[behind] + load(level, ring.opposites[k]);
        const SimdDouble4 sum = quad[k] * SimdDouble4(16.0) + edges * SimdDouble4(4.0) + diagonals;
        const SimdDouble4 limit = sum * SimdDouble4(1.0 / 36.0);
        limit.store4(level.limits + 4 * size_t{ring.quad[k]});
        return limit;
    }

private:
    static SimdDouble4 load(const LevelFaces& level, unsigned int v) {
        return SimdDouble4::load4(level.points + 3 * size_t{v});
    }
};

template <class Corners>
void compute_limits_of(const LevelFaces& level, const unsigned int* first, unsigned int begin, unsigned int end) {
    const Corners corners(level);
    const RingFinder<Corners> finder(level, corners);
    for (unsigned int f = begin; f < end; ++f) {
        if (level.states[f] != level.emitted) continue;
        const unsigned int c = corners.begin_of_face(f);
        for (unsigned int k = 0; k < 4; ++k) {
            const unsigned int v = level.vertices[c + k];
            if (first[v] != c + k) continue;
            const bool is_known = level.is_known[v] != 0;
            level.is_known[v] = 1;
            if (is_known) continue;
            Ring ring;
            finder.find_ring(c, level.edge_bits[f], ring);
            finder.find_opposite(c, k, ring);
            RingPoints(level, ring).make_limit(level, ring, k);
        }
    }
}

// Controls leave in order, four floats at a time: the fourth is overwritten by the next. Returns whether the patch
// needs nets.
template <bool is_smooth>
bool compute_patch(const LevelFaces& level, const Ring& ring) {
    const SimdDouble4 two(2.0), four(4.0), third(1.0 / 3.0), ninth(1.0 / 9.0), eighteenth(1.0 / 18.0);
    const RingPoints points(level, ring);
    const SimdDouble4* q = points.quad;
    SimdDouble4 corner[4], q4[4], a[4], b[4];
#pragma GCC unroll 4
    for (unsigned int k = 0; k < 4; ++k)
        corner[k] = ((ring.fresh_corners >> k) & 1u) != 0 ? points.make_limit(level, ring, k)
                                                          : SimdDouble4::load4(level.limits + 4 * size_t{ring.quad[k]});
#pragma GCC unroll 4
    for (unsigned int k = 0; k < 4; ++k) {
        q4[k] = q[k] * four;
        a[k] = points.starts[k] + q[(k + 3) & 3u];
        b[k] = points.ends[k] + q[(k + 2) & 3u];
    }
    const SimdDouble4 across[2] = {(q[1] + q[3]) * two, (q[0] + q[2]) * two};
    float* out = level.controls + 48 * size_t{ring.patch};
#pragma GCC unroll 4
    for (unsigned int k = 0; k < 4; ++k, out += 12) {
        const unsigned int next = (k + 1) & 3u, far = (k + 2) & 3u, behind = (k + 3) & 3u;
        corner[k].store_rounded4(out);
        const SimdDouble4 leaving = is_smooth || ((ring.smooth_edges >> k) & 1u) != 0
                                        ? (q4[k] * two + q4[next] + a[k] * two + b[k]) * eighteenth
                                        : (q[k] * two + q[next]) * third;
        leaving.store_rounded4(out + 3);
        ((across[k & 1u] + q4[k] + q[far]) * ninth).store_rounded4(out + 6);
        const SimdDouble4 arriving = is_smooth || ((ring.smooth_edges >> behind) & 1u) != 0
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

// Puts the corners that coarser patches have in place of the patch's own.
void take_corners(const LevelFaces& level, const Ring& ring) {
    for (unsigned int k = 0; k < 4; ++k)
        if (const size_t v = ring.quad[k]; level.is_handed[v] != 0)
            std::memcpy(level.controls + 48 * size_t{ring.patch} + 12 * k, level.handed + 4 * v, 3 * sizeof(float));
}

// Patches of a level lie here and there among the others.
void prefetch_patch(const float* controls) {
    for (unsigned int i = 0; i < 48; i += 16) __builtin_prefetch(controls + i, 1);
}

bool is_any_handed(const LevelFaces& level, const unsigned int* quad) {
    const unsigned char* is_handed = level.is_handed;
    return (is_handed[quad[0]] | is_handed[quad[1]] | is_handed[quad[2]] | is_handed[quad[3]]) != 0;
}

// The indices of a few faces before their patches: two loops that do not wait for each other's loads.
template <class Corners>
unsigned int compute_controls_of(const LevelFaces& level, unsigned int begin, unsigned int end) {
    constexpr unsigned int batch = 32;
    const Corners corners(level);
    const RingFinder<Corners> finder(level, corners);
    Ring rings[batch];
    unsigned int short_count = 0;
    unsigned int faces[batch + 1];
    for (unsigned int f = begin; f < end;) {
        unsigned int ring_count = 0;
        for (; f < end && ring_count < batch; ++f) {
            faces[ring_count] = f;
            ring_count += level.states[f] == level.emitted ? 1 : 0;
        }
        for (unsigned int i = 0; i < ring_count; ++i) {
            Ring& ring = rings[i];
            const unsigned int c = corners.begin_of_face(faces[i]);
            ring.patch = level.patches[faces[i]];
            prefetch_patch(level.controls + 48 * size_t{ring.patch});
            finder.find_ring(c, level.edge_bits[faces[i]], ring);
            ring.has_handed = level.has_handed && is_any_handed(level, ring.quad);
            for (unsigned int k = 0; k < 4; ++k) {
                const unsigned int v = ring.quad[k];
                const unsigned char known = level.is_known[v];
                if (known == 1) continue;  // on many threads all are, from compute_limits
                if (known == 0) finder.find_opposite(c, k, ring);
                level.is_known[v] = 1;
            }
        }
        for (unsigned int i = 0; i < ring_count; ++i) {
            const bool is_short = rings[i].smooth_edges == 15 ? compute_patch<true>(level, rings[i])
                                                              : compute_patch<false>(level, rings[i]);
            if (rings[i].has_handed) take_corners(level, rings[i]);
            level.net_offsets[rings[i].patch] = is_short ? 0 : no_corner;
            short_count += is_short ? 1 : 0;
        }
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
