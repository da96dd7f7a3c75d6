// The kernels of a level's faces for one instruction set.
#include <cstddef>
#include <cstring>

#include "sds/common/kernel_set.h"
#include "sds/refinement/level_kernels/level_kernels.h"
#include "sds/refinement/level_kernels/level_points.h"
#include "sds/refinement/level_kernels/siblings.h"

namespace sds {

namespace {

// The quads of a level, whose face-corners are numbered by four. Which of them ask for a limit point first is hard to
// foretell, so that these corners are listed.
struct QuadCorners {
    static constexpr bool lists_limits = true;
    explicit QuadCorners(const LevelFaces&) {}
    unsigned int begin_of_face(unsigned int f) const { return 4 * f; }
    unsigned int next(unsigned int c) const { return next_corner(c); }
    unsigned int far(unsigned int c) const { return far_corner(c); }
    unsigned int previous(unsigned int c) const { return previous_corner(c); }
};

// The quads of a level of polygons. All faces around a regular one are quads. They are mostly the grids that modelers
// make, where every quad finds the same corners known.
struct PolygonCorners {
    static constexpr bool lists_limits = false;
    const unsigned int* offsets;
    const unsigned char* slots;
    explicit PolygonCorners(const LevelFaces& level) : offsets(level.offsets), slots(level.slots) {}
    unsigned int begin_of_face(unsigned int f) const { return offsets[f]; }
    unsigned int next(unsigned int c) const { return turn(c, 1); }
    unsigned int far(unsigned int c) const { return turn(c, 2); }
    unsigned int previous(unsigned int c) const { return turn(c, 3); }

private:
    unsigned int turn(unsigned int c, unsigned int i) const {
        const unsigned int place = slots[c];
        return c - place + ((place + i) & 3u);
    }
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
        if (sharp_edges == 0 && across[0] != no_corner && across[1] != no_corner && across[2] != no_corner &&
            across[3] != no_corner) {
            ring.smooth_edges = 15;
#pragma GCC unroll 4
            for (unsigned int k = 0; k < 4; ++k) find_beside(across[k], quad[k], ring, k);
            return;
        }
        ring.smooth_edges = 0;
        for (unsigned int k = 0; k < 4; ++k) {
            const unsigned int is_sharp = ((sharp_edges >> k) & 1u) | (across[k] == no_corner ? 1u : 0u);
            ring.smooth_edges |= (is_sharp ^ 1u) << k;
            const unsigned int choice[2] = {across[k], m_corners.next(c + k)};
            find_beside(choice[is_sharp], quad[k], ring, k);
        }
    }
    // At face-corner c of that face, where all is smooth, the last of the eight vertices around it.
    unsigned int find_opposite(unsigned int c) const {
        const unsigned int v = m_vertices[c];
        unsigned int edge = c, corner = c;
#pragma GCC unroll 2
        for (unsigned int i = 0; i < 2; ++i) {
            const unsigned int o = m_opposites[edge];
            edge = corner = m_corners.next(o);
            if (m_vertices[o] != v) continue;
            edge = m_corners.previous(o);  // a neighbor that winds the other way
            corner = o;
        }
        return m_vertices[m_corners.far(corner)];
    }

private:
    // Beyond edge k, which starts at v and has face-corner o across.
    void find_beside(unsigned int o, unsigned int v, Ring& ring, unsigned int k) const {
        const unsigned int start = m_vertices[m_corners.far(o)], end = m_vertices[m_corners.previous(o)];
        ring.starts[k] = start;
        ring.ends[k] = end;
        if (m_vertices[o] != v) return;
        ring.starts[k] = end;  // a neighbor that winds the other way
        ring.ends[k] = start;
    }

    const unsigned int* m_vertices;
    const unsigned int* m_opposites;
    Corners m_corners;
};

// Stores the limit point of corner k of a ring, between smooth edges, for all faces around it.
void make_limit(const LevelFaces& level, const Ring& ring, unsigned int k, unsigned int opposite) {
    const auto load = [&level](unsigned int v) { return load_point(level, v); };
    const unsigned int* quad = ring.quad;
    const unsigned int next = (k + 1) & 3u, far = k ^ 2u, behind = (k + 3) & 3u;
    const SimdDouble4 edges = load(quad[next]) + load(quad[behind]) + load(ring.starts[k]) + load(ring.ends[behind]);
    const SimdDouble4 diagonals = load(quad[far]) + load(ring.ends[k]) + load(ring.starts[behind]) + load(opposite);
    sum_limit(load(quad[k]), edges, diagonals).store4(level.limits + 4 * size_t{quad[k]});
}

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
            make_limit(level, ring, k, finder.find_opposite(c + k));
        }
    }
}

template <bool is_smooth, bool makes_limits>
bool compute_patch(const LevelFaces& level, const Ring& ring) {
    const CornerRounder rounder(level);
    RingPoints points;
    SimdDouble4 corner[4];
#pragma GCC unroll 4
    for (unsigned int k = 0; k < 4; ++k) {
        points.quad[k] = load_point(level, ring.quad[k]);
        points.starts[k] = load_point(level, ring.starts[k]);
        points.ends[k] = load_point(level, ring.ends[k]);
    }
#pragma GCC unroll 4
    for (unsigned int k = 0; k < 4; ++k) {
        double* const limit = level.limits + 4 * size_t{ring.quad[k]};
        if (makes_limits && ((ring.fresh_corners >> k) & 1u) != 0) {
            const unsigned int next = (k + 1) & 3u, far = k ^ 2u, behind = (k + 3) & 3u;
            const SimdDouble4 *q = points.quad, *starts = points.starts, *ends = points.ends;
            corner[k] = sum_limit(q[k], q[next] + q[behind] + starts[k] + ends[behind],
                                  q[far] + ends[k] + starts[behind] + load_point(level, ring.opposites[k]));
            corner[k].store4(limit);
        } else {
            corner[k] = SimdDouble4::load4(limit);
        }
    }
    // Only the first level may have polygons, and no coarser patches.
    return store_patch<is_smooth>(level, points, corner, ring.smooth_edges, level.controls + 48 * size_t{ring.patch},
                                  [&ring, rounder](unsigned int k, SimdDouble4 limit, float* out) {
                                      if (makes_limits)
                                          limit.store_rounded4(out);
                                      else
                                          rounder.store(ring.quad[k], limit, out);
                                  });
}

// Patches of a level lie here and there among the others.
void prefetch_patch(const float* controls) {
    for (unsigned int i = 0; i < 48; i += 16) __builtin_prefetch(controls + i, 1);
}

// The rings of a few faces before their limit points and patches: loops that do not wait for each other's loads, and
// have no branch that is hard to foretell.
template <class Corners>
unsigned int compute_controls_of(const LevelFaces& level, unsigned int begin, unsigned int end,
                                 unsigned int* short_faces) {
    constexpr unsigned int batch = 32;
    const Corners corners(level);
    const RingFinder<Corners> finder(level, corners);
    Ring rings[batch];
    unsigned int short_count = 0;
    // Local, since bytes that are stored might be part of `level`.
    unsigned char* const known = level.is_known;
    const unsigned char* const states = level.states;
    const unsigned char emitted = level.emitted;
    const bool has_limits = level.has_limits;
    unsigned int faces[batch + 1], fresh_corners[4 * batch + 1];
    for (unsigned int f = begin; f < end;) {
        size_t ring_count = 0;
        for (; f < end && ring_count < batch; ++f) {
            faces[ring_count] = f;
            ring_count += states[f] == emitted ? 1 : 0;
        }
        for (size_t i = 0; i < ring_count; ++i) {
            Ring& ring = rings[i];
            ring.patch = level.patches[faces[i]];
            ring.fresh_corners = 0;
            prefetch_patch(level.controls + 48 * size_t{ring.patch});
            finder.find_ring(corners.begin_of_face(faces[i]), level.edge_bits[faces[i]], ring);
        }
        if (!has_limits) {
            // By ring, four numbers to each: every corner is written over the last until it counts.
            size_t fresh_count = 0;
            for (size_t i = 0; i < ring_count; ++i)
#pragma GCC unroll 4
                for (unsigned int k = 0; k < 4; ++k) {
                    unsigned char& is_known = known[rings[i].quad[k]];
                    const bool is_fresh = is_known == 0;
                    is_known = 1;
                    if (Corners::lists_limits) {
                        fresh_corners[fresh_count] = static_cast<unsigned int>(4 * i + k);
                        fresh_count += is_fresh ? 1 : 0;
                    } else if (is_fresh) {
                        rings[i].fresh_corners |= 1u << k;
                        rings[i].opposites[k] = finder.find_opposite(corners.begin_of_face(faces[i]) + k);
                    }
                }
            for (size_t i = 0; i < fresh_count; ++i) {
                const unsigned int ring = fresh_corners[i] >> 2, k = fresh_corners[i] & 3u;
                make_limit(level, rings[ring], k, finder.find_opposite(corners.begin_of_face(faces[ring]) + k));
            }
        }
        for (size_t i = 0; i < ring_count; ++i) {
            constexpr bool makes_limits = !Corners::lists_limits;
            const bool is_short = rings[i].smooth_edges == 15 ? compute_patch<true, makes_limits>(level, rings[i])
                                                              : compute_patch<false, makes_limits>(level, rings[i]);
            if (is_short) short_faces[short_count++] = faces[i];
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

unsigned int compute_controls(const LevelFaces& level, unsigned int begin, unsigned int end,
                              unsigned int* short_faces) {
    return level.offsets != nullptr ? compute_controls_of<PolygonCorners>(level, begin, end, short_faces)
                                    : compute_controls_of<QuadCorners>(level, begin, end, short_faces);
}

unsigned int compute_siblings(const LevelFaces& level, const LevelStep& step, unsigned int parts) {
    return step.offsets == nullptr ? compute_siblings_of<QuadParents>(level, step, parts)
                                   : compute_siblings_of<PolygonParents>(level, step, parts);
}

}  // namespace

const LevelKernels QN_KERNEL_SET::level_kernels = {&compute_limits,   &compute_controls, &compute_smooth_leaf,
                                                   &compute_siblings, &sum_neighbors,    &refine_points};

}  // namespace sds
