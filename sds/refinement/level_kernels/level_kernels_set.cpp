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
    unsigned int place_of(unsigned int c) const { return c & 3u; }
};

// The quads of a level of polygons. All faces around a regular one are quads. They are mostly the grids that modelers
// make, where every quad finds the same corners known.
struct PolygonCorners {
    static constexpr bool lists_limits = false;
    const unsigned int* offsets;
    const unsigned char* slots;
    explicit PolygonCorners(const LevelFaces& level) : offsets(level.offsets), slots(level.slots) {}
    unsigned int begin_of_face(unsigned int f) const { return offsets[f]; }
    unsigned int place_of(unsigned int c) const { return slots[c]; }
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
            ring.starts[k] = ring.ends[k] = quad[k];
            if (across[k] == no_corner || ((sharp_edges >> k) & 1u) != 0) continue;
            ring.smooth_edges |= 1u << k;
            find_beside(across[k], quad[k], ring, k);
        }
    }
    // At corner k of that face, where all is smooth, the last of the eight vertices around it.
    unsigned int find_opposite(unsigned int c, unsigned int k) const {
        const unsigned int v = m_vertices[c + k];
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
        return m_vertices[begin + (place ^ 2u)];
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
            make_limit(level, ring, k, finder.find_opposite(c, k));
        }
    }
}

template <bool is_smooth, bool makes_limits>
bool compute_patch(const LevelFaces& level, const Ring& ring) {
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
    return store_patch<is_smooth>(level, points, corner, ring.smooth_edges, level.controls + 48 * size_t{ring.patch});
}

// Patches of a level lie here and there among the others.
void prefetch_patch(const float* controls) {
    for (unsigned int i = 0; i < 48; i += 16) __builtin_prefetch(controls + i, 1);
}

// The indices of a few faces before their limit points and patches: loops that do not wait for each other's loads, and
// have no branch that is hard to foretell.
template <class Corners, bool has_handed>
unsigned int compute_controls_of(const LevelFaces& level, unsigned int begin, unsigned int end) {
    constexpr unsigned int batch = 32;
    const Corners corners(level);
    const RingFinder<Corners> finder(level, corners);
    Ring rings[batch];
    unsigned int short_count = 0;
    // Local, since bytes that are stored might be part of `level`. Where all limit points are known, one byte stands
    // for all vertices, since other threads would write to theirs.
    unsigned char all_known = 1;
    unsigned char* const known = level.has_limits ? &all_known : level.is_known;
    const unsigned int vertex_mask = level.has_limits ? 0 : ~0u;
    const unsigned char* const handed = level.is_handed;
    unsigned int faces[batch + 1], fresh_corners[4 * batch + 1], opposites[4 * batch], handed_corners[4 * batch + 1];
    for (unsigned int f = begin; f < end;) {
        unsigned int ring_count = 0, fresh_count = 0, handed_count = 0;
        for (; f < end && ring_count < batch; ++f) {
            faces[ring_count] = f;
            ring_count += level.states[f] == level.emitted ? 1 : 0;
        }
        for (unsigned int i = 0; i < ring_count; ++i) {
            Ring& ring = rings[i];
            ring.patch = level.patches[faces[i]];
            prefetch_patch(level.controls + 48 * size_t{ring.patch});
            finder.find_ring(corners.begin_of_face(faces[i]), level.edge_bits[faces[i]], ring);
            ring.fresh_corners = 0;
            const unsigned int quad[4] = {ring.quad[0], ring.quad[1], ring.quad[2], ring.quad[3]};
#pragma GCC unroll 4
            for (unsigned int k = 0; k < 4; ++k) {
                const unsigned int v = quad[k];
                unsigned char& is_known = known[v & vertex_mask];
                const bool is_fresh = is_known == 0;
                is_known = 1;
                if (Corners::lists_limits) {
                    fresh_corners[fresh_count] = 4 * i + k;
                    fresh_count += is_fresh ? 1 : 0;
                } else if (is_fresh) {
                    ring.fresh_corners |= 1u << k;
                    ring.opposites[k] = finder.find_opposite(corners.begin_of_face(faces[i]), k);
                }
                if (!has_handed) continue;
                handed_corners[handed_count] = 4 * i + k;
                handed_count += handed[v];
            }
        }
        for (unsigned int i = 0; i < fresh_count; ++i) {
            const auto c = static_cast<unsigned int>(rings[fresh_corners[i] >> 2].quad - level.vertices);
            opposites[i] = finder.find_opposite(c, fresh_corners[i] & 3u);
        }
        for (unsigned int i = 0; i < fresh_count; ++i)
            make_limit(level, rings[fresh_corners[i] >> 2], fresh_corners[i] & 3u, opposites[i]);
        for (unsigned int i = 0; i < ring_count; ++i) {
            constexpr bool makes_limits = !Corners::lists_limits;
            const bool is_short = rings[i].smooth_edges == 15 ? compute_patch<true, makes_limits>(level, rings[i])
                                                              : compute_patch<false, makes_limits>(level, rings[i]);
            level.net_offsets[rings[i].patch] = is_short ? 0 : no_corner;
            short_count += is_short ? 1 : 0;
        }
        // What coarser patches have at corners comes in place of the patches' own.
        for (unsigned int i = 0; i < handed_count; ++i) {
            const unsigned int k = handed_corners[i] & 3u;
            const Ring& ring = rings[handed_corners[i] >> 2];
            std::memcpy(level.controls + 48 * size_t{ring.patch} + 12 * k, level.handed + 4 * size_t{ring.quad[k]},
                        3 * sizeof(float));
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
    // The first level has no coarser patches, and only that one has polygons.
    if (level.offsets != nullptr) return compute_controls_of<PolygonCorners, false>(level, begin, end);
    return level.has_handed ? compute_controls_of<QuadCorners, true>(level, begin, end)
                            : compute_controls_of<QuadCorners, false>(level, begin, end);
}

unsigned int compute_siblings(const LevelFaces& level, const LevelStep& step, unsigned int parts) {
    return step.offsets == nullptr ? compute_siblings_of<QuadParents>(level, step, parts)
                                   : compute_siblings_of<PolygonParents>(level, step, parts);
}

}  // namespace

const LevelKernels QN_KERNEL_SET::level_kernels = {&compute_limits,   &compute_controls, &compute_smooth_leaf,
                                                   &compute_siblings, &sum_neighbors,    &refine_points};

}  // namespace sds
