// Patches of the children of a quad between smooth edges, all four at once from the points around the quad: their level
// has neither their corners nor what lies across their edges. For the kernels of one instruction set.
#pragma once

#include "sds/refinement/level_kernels/smooth_leaf.h"

namespace sds {

namespace {

// The faces of the coarser level. Children of quads keep their parent's frame, those of other levels begin at their
// own vertex.
struct QuadParents {
    static constexpr bool keeps_frame = true;
    explicit QuadParents(const LevelStep&) {}
    unsigned int begin_of_face(unsigned int f) const { return 4 * f; }
    unsigned int face_of(unsigned int c) const { return c >> 2; }
    unsigned int next(unsigned int c) const { return next_corner(c); }
    unsigned int previous(unsigned int c) const { return previous_corner(c); }
};

struct PolygonParents : PolygonFaces {
    static constexpr bool keeps_frame = false;
    explicit PolygonParents(const LevelStep& step) : PolygonFaces{step.offsets, step.faces} {}
};

//     D3 -- EA2 -- FA2 -- SA2 -- D2        V, E and F come from the vertices, edges and middle of the quad; FA from the
//      |     |      |      |      |        middle of the face across an edge, SA and EA from that face's edges at the
//     SA3 -- V3 --- E2 --- V2 -- EA1       edge's start and end; D from the face opposite at a vertex of four faces,
//      |     | c3   | c2   |      |        and elsewhere it means nothing.
//     FA3 -- E3 --- F ---- E1 -- FA1
//      |     | c0   | c1   |      |
//     EA3 -- V0 --- E0 --- V1 -- SA1
//      |     |      |      |      |
//     D0 -- SA0 -- FA0 -- EA0 --- D1
struct Around {
    static constexpr unsigned int vertex = 0, edge = 4, middle = 8, start = 9, across = 13, end = 17, diagonal = 21;
    static constexpr unsigned int count = 25;
};

// Places among those points, by the corners and edges of a child.
struct ChildRing {
    unsigned char quad[4], starts[4], ends[4], opposites[4];
};

constexpr ChildRing make_child_ring(unsigned int c, bool keeps_frame) {
    const unsigned int next = (c + 1) & 3u, far = (c + 2) & 3u, behind = (c + 3) & 3u;
    using A = Around;
    const unsigned int quad[4] = {A::vertex + c, A::edge + c, A::middle, A::edge + behind};
    const unsigned int starts[4] = {A::start + c, A::vertex + next, A::edge + far, A::across + behind};
    const unsigned int ends[4] = {A::across + c, A::edge + next, A::vertex + behind, A::end + behind};
    const unsigned int opposites[4] = {A::diagonal + c, A::end + c, A::vertex + far, A::start + behind};
    ChildRing ring{};
    for (unsigned int i = 0; i < 4; ++i) {
        const unsigned int k = keeps_frame ? (c + i) & 3u : i;
        ring.quad[k] = static_cast<unsigned char>(quad[i]);
        ring.starts[k] = static_cast<unsigned char>(starts[i]);
        ring.ends[k] = static_cast<unsigned char>(ends[i]);
        ring.opposites[k] = static_cast<unsigned char>(opposites[i]);
    }
    return ring;
}

// Places of the eight points around one of the nine in the middle, in the order in which the child that asks for its
// limit point first sums them: a regular one before leaves.
struct LimitOrder {
    unsigned char edges[4], diagonals[4];
};
struct LimitOrders {
    LimitOrder at[9];
};

constexpr LimitOrders make_limit_orders(unsigned int leaves) {
    LimitOrders orders{};
    bool are_known[9] = {};
    for (unsigned int pass = 0; pass < 2; ++pass)
        for (unsigned int c = 0; c < 4; ++c) {
            if (((leaves >> c) & 1u) != pass) continue;
            const ChildRing ring = make_child_ring(c, true);
            for (unsigned int k = 0; k < 4; ++k) {
                const unsigned int place = ring.quad[k], next = (k + 1) & 3u, far = (k + 2) & 3u, behind = (k + 3) & 3u;
                if (are_known[place]) continue;
                are_known[place] = true;
                orders.at[place] = {{ring.quad[next], ring.quad[behind], ring.starts[k], ring.ends[behind]},
                                    {ring.quad[far], ring.ends[k], ring.starts[behind], ring.opposites[k]}};
            }
        }
    return orders;
}

struct LimitOrderTable {
    LimitOrders of_leaves[16] = {};
    constexpr LimitOrderTable() {
        for (unsigned int leaves = 0; leaves < 16; ++leaves) of_leaves[leaves] = make_limit_orders(leaves);
    }
};
constexpr LimitOrderTable limit_orders;

struct Siblings {
    unsigned int vertices[Around::count];  // of the level, by place
    unsigned int corner;                   // of the parent, its first
    unsigned int patch;                    // of child 0
    unsigned char leaves;                  // bits of children
    unsigned char first_fan;               // of its leaves' fans, in order
    unsigned short fresh, handed;          // bits of the nine points in the middle: the limit point is not known yet,
                                           // or comes from coarser patches
};

// The fan of an irregular vertex from a quad's corner on: the vertices that come from the edges that leave it, the
// first one again at the end, and those that come from the faces.
struct ParentFan {
    unsigned int valence;
    unsigned int edges[max_leaf_valence + 1], faces[max_leaf_valence];
    unsigned int keys[max_leaf_valence];  // in the order of the level's faces

    template <class Parents>
    void find(const LevelStep& step, const Parents& parents, unsigned int c) {
        valence = step.valences[step.vertices[c]];
        for (unsigned int i = 0; i < valence; ++i) {
            const unsigned int f = parents.face_of(c);
            edges[i] = step.edge_children[step.edges[c]];
            faces[i] = step.face_children[f];
            keys[i] = c | (step.states[f] == step.refined ? 0u : 1u << 31);
            c = step.opposites[parents.previous(c)];
        }
        edges[valence] = edges[0];
    }
    // As find_fan_limit sums.
    SimdDouble4 sum_limit(const LevelFaces& level, SimdDouble4 vertex) const {
        unsigned char order[max_leaf_valence];
        for (unsigned int i = 0; i < valence; ++i) {
            unsigned int before = 0;
            for (unsigned int j = 0; j < valence; ++j) before += keys[j] < keys[i] ? 1 : 0;
            order[before] = static_cast<unsigned char>(i);
        }
        SimdDouble4 edge_sum(0.0), face_sum(0.0);
        for (unsigned int j = 0; j < valence; ++j) {
            const unsigned int i = order[j];
            const SimdDouble4 ends = load_point(level, edges[i]) + load_point(level, edges[i + 1]);
            edge_sum = edge_sum + ends;
            face_sum = face_sum + ((vertex + load_point(level, faces[i])) + ends) * SimdDouble4(0.25);
        }
        const double n = static_cast<double>(valence);
        return (vertex * SimdDouble4(n * n - n) + edge_sum + face_sum * SimdDouble4(4.0)) *
               SimdDouble4(1.0 / (n * (n + 5.0)));
    }
};

// The same as sum_tangents wants it.
struct ParentFanPoints {
    const LevelFaces& level;
    const ParentFan& fan;

    SimdDouble4 ahead(unsigned int i) const { return load_point(level, fan.edges[i]); }
    SimdDouble4 diagonal(unsigned int i) const { return load_point(level, fan.faces[i]); }
    SimdDouble4 behind(unsigned int i) const { return load_point(level, fan.edges[i + 1]); }
    static void turn() {}
};

template <class Parents>
class SiblingPatches {
public:
    static constexpr unsigned int most = 8;

    SiblingPatches(const LevelFaces& level, const LevelStep& step, unsigned int parts)
        : m_level(level), m_step(step), m_parents(step), m_parts(parts) {}

    // The children of refined face f.
    void add(unsigned int f) {
        const unsigned int first = m_step.first_children[f];
        Siblings& family = m_families[m_count++];
        find_points(f, family);
        family.patch = m_level.patches[first];
        family.leaves = 0;
        for (unsigned int c = 0; c < 4; ++c)
            family.leaves =
                static_cast<unsigned char>(family.leaves | (m_level.states[first + c] == m_step.leaf ? 1u : 0u) << c);
        float* controls = m_level.controls + 48 * size_t{family.patch};
        for (unsigned int i = 0; i < 192; i += 16) __builtin_prefetch(controls + i, 1);
    }
    bool is_full() const { return m_count == most; }
    // The patches of all that were added. Returns how many regular ones need nets.
    unsigned int compute() {
        find_fans();
        for (unsigned int i = 0; i < m_count; ++i) mark_limits(m_families[i]);
        unsigned int short_count = 0;
        for (unsigned int i = 0; i < m_count; ++i) short_count += compute_family(m_families[i]);
        m_count = 0;
        return short_count;
    }

private:
    void find_points(unsigned int f, Siblings& family) const {
        const unsigned int begin = m_parents.begin_of_face(f);
        const auto edge_child = [this](unsigned int c) { return m_step.edge_children[m_step.edges[c]]; };
        family.corner = begin;
        family.vertices[Around::middle] = m_step.face_children[f];
#pragma GCC unroll 4
        for (unsigned int k = 0; k < 4; ++k) {
            const unsigned int o = m_step.opposites[begin + k];
            const unsigned int ahead = m_parents.next(o);
            family.vertices[Around::vertex + k] = m_step.vertex_children[m_step.vertices[begin + k]];
            family.vertices[Around::edge + k] = edge_child(begin + k);
            family.vertices[Around::start + k] = edge_child(ahead);
            family.vertices[Around::end + k] = edge_child(m_parents.previous(o));
            family.vertices[Around::across + k] = m_step.face_children[m_parents.face_of(o)];
            family.vertices[Around::diagonal + k] = m_step.face_children[m_parents.face_of(m_step.opposites[ahead])];
        }
    }
    void mark_limits(Siblings& family) const {
        unsigned int fresh = 0, handed = 0;
        for (unsigned int i = 0; i < 9; ++i) {
            const unsigned int v = family.vertices[i];
            fresh |= (m_level.is_known[v] == 0 ? 1u : 0u) << i;
            handed |= (m_level.is_handed[v] != 0 ? 1u : 0u) << i;
            m_level.is_known[v] = 1;
        }
        family.fresh = static_cast<unsigned short>(fresh);
        family.handed = static_cast<unsigned short>(handed);
    }
    // Corners first, so that walks do not wait for each other.
    void find_fans() {
        unsigned int corners[4 * most];
        unsigned int count = 0;
        for (unsigned int i = 0; i < m_count; ++i) {
            Siblings& family = m_families[i];
            family.first_fan = static_cast<unsigned char>(count);
            for (unsigned int c = 0; c < 4; ++c) {
                corners[count] = family.corner + c;
                count += (family.leaves >> c) & 1u;
            }
        }
        for (unsigned int i = 0; i < count; ++i) m_fans[i].find(m_step, m_parents, corners[i]);
    }
    unsigned int compute_family(const Siblings& family) const {
        SimdDouble4 points[Around::count], limits[9];
#pragma GCC unroll 25
        for (unsigned int i = 0; i < Around::count; ++i) points[i] = load_point(m_level, family.vertices[i]);
        make_limits(family, points);
#pragma GCC unroll 9
        for (unsigned int i = 0; i < 9; ++i) limits[i] = load_limit(m_level, family.vertices[i]);
        unsigned int short_count = 0;
        const ParentFan* fan = m_fans + family.first_fan;
        for_each_corner([&](auto c) __attribute__((always_inline)) {
            if (((family.leaves >> c) & 1u) == 0)
                short_count += compute_regular<c>(family, points, limits) ? 1 : 0;
            else if ((m_parts & sibling_leaves) != 0)
                compute_leaf<c>(family, points, limits, *fan++);
        });
        if ((m_parts & regular_siblings) != 0) take_corners(family);
        return short_count;
    }
    // What coarser patches have at corners comes in place of the patches' own. They have nothing in the middle.
    void take_corners(const Siblings& family) const {
        const auto take = [&](unsigned int place, unsigned int c, unsigned int i) {
            const unsigned int k = Parents::keeps_frame ? (c + i) & 3u : i;
            std::memcpy(m_level.controls + 48 * size_t{get_patch(family, c)} + 12 * k,
                        m_level.handed + 4 * size_t{family.vertices[place]}, 3 * sizeof(float));
        };
        for (unsigned int handed = family.handed; handed != 0; handed &= handed - 1) {
            const auto place = static_cast<unsigned int>(__builtin_ctz(handed));
            if (place < Around::edge) {
                take(place, place, 0);
            } else {
                take(place, place - Around::edge, 1);
                take(place, (place - Around::edge + 1) & 3u, 3);
            }
        }
    }
    // Those that are not known yet. They are listed first: which are is hard to foretell.
    void make_limits(const Siblings& family, const SimdDouble4* points) const {
        const LimitOrders& orders = limit_orders.of_leaves[family.leaves];
        const unsigned int fresh = family.fresh & ~static_cast<unsigned int>(family.leaves);
        unsigned int places[9 + 1];
        unsigned int count = 0;
#pragma GCC unroll 9
        for (unsigned int i = 0; i < 9; ++i) {
            places[count] = i;
            count += (fresh >> i) & 1u;
        }
        for (unsigned int j = 0; j < count; ++j) {
            const unsigned int i = places[j];
            const unsigned char *e = orders.at[i].edges, *d = orders.at[i].diagonals;
            sum_limit(points[i], points[e[0]] + points[e[1]] + points[e[2]] + points[e[3]],
                      points[d[0]] + points[d[1]] + points[d[2]] + points[d[3]])
                .store4(m_level.limits + 4 * size_t{family.vertices[i]});
        }
        const ParentFan* fan = m_fans + family.first_fan;
        for (unsigned int leaves = family.leaves; leaves != 0; leaves &= leaves - 1, ++fan) {
            const auto c = static_cast<unsigned int>(__builtin_ctz(leaves));
            if (((family.fresh >> c) & 1u) != 0)
                fan->sum_limit(m_level, points[c]).store4(m_level.limits + 4 * size_t{family.vertices[c]});
        }
    }

    template <unsigned int c>
    static void get_ring(const SimdDouble4* points, const SimdDouble4* all_limits, RingPoints& ring,
                         SimdDouble4 (&limits)[4]) {
        constexpr ChildRing places = make_child_ring(c, Parents::keeps_frame);
#pragma GCC unroll 4
        for (unsigned int k = 0; k < 4; ++k) {
            ring.quad[k] = points[places.quad[k]];
            ring.starts[k] = points[places.starts[k]];
            ring.ends[k] = points[places.ends[k]];
            limits[k] = all_limits[places.quad[k]];
        }
    }
    template <unsigned int c>
    static void get_vertices(const Siblings& family, unsigned int (&vertices)[4]) {
        constexpr ChildRing places = make_child_ring(c, Parents::keeps_frame);
        for (unsigned int k = 0; k < 4; ++k) vertices[k] = family.vertices[places.quad[k]];
    }
    // Children 0, 1, 3, 2 follow each other in the order of the quadtree.
    static unsigned int get_patch(const Siblings& family, unsigned int c) { return family.patch + (c ^ c >> 1); }
    float* get_nets(unsigned int patch) const {
        const unsigned int offset = m_level.net_offsets[patch];
        return offset == no_corner ? nullptr : m_level.nets + 3 * size_t{offset};
    }

    template <unsigned int c>
    [[gnu::always_inline]] bool compute_regular(const Siblings& family, const SimdDouble4* points,
                                                const SimdDouble4* all_limits) const {
        const unsigned int patch = get_patch(family, c);
        if ((m_parts & regular_siblings) != 0) {
            RingPoints ring;
            SimdDouble4 limits[4];
            get_ring<c>(points, all_limits, ring, limits);
            const bool is_short =
                store_patch<true>(m_level, ring, limits, 15, m_level.controls + 48 * size_t{patch},
                                  [](unsigned int, SimdDouble4 limit, float* out) { limit.store_rounded4(out); });
            m_level.net_offsets[patch] = is_short ? 0 : no_corner;
            return is_short;
        }
        if ((m_parts & regular_sibling_nets) != 0 && get_nets(patch) != nullptr)
            store_regular_nets<c>(points, all_limits, patch);
        return false;
    }
    template <unsigned int c>
    [[gnu::noinline]] void store_regular_nets(const SimdDouble4* points, const SimdDouble4* all_limits,
                                              unsigned int patch) const {
        RingPoints ring;
        SimdDouble4 limits[4], controls[16];
        get_ring<c>(points, all_limits, ring, limits);
        make_leaf_controls(ring, limits, LeafCorners{{4, 4, 4, 4}}, controls);
        LeafNets(controls).store(get_nets(patch));
    }

    template <unsigned int c>
    [[gnu::noinline, gnu::flatten]] void compute_leaf(const Siblings& family, const SimdDouble4* points,
                                                      const SimdDouble4* all_limits, const ParentFan& fan) const {
        constexpr unsigned int own = Parents::keeps_frame ? c : 0, behind = (own + 3) & 3u;
        const unsigned int patch = get_patch(family, c);
        RingPoints ring;
        SimdDouble4 limits[4], controls[16];
        unsigned int vertices[4];
        get_ring<c>(points, all_limits, ring, limits);
        get_vertices<c>(family, vertices);
        LeafCorners corners{{4, 4, 4, 4}};
        corners.valences[own] = fan.valence;
        make_leaf_controls(ring, limits, corners, controls);
        store_leaf_controls(m_level, vertices, controls, m_level.controls + 48 * size_t{patch});
        float* const nets_out = get_nets(patch);
        if (nets_out == nullptr) return;
        LeafNets nets(controls);
        const LeafWeights& weights = m_level.leaf_weights[fan.valence];
        replace_corner(weights, fan.valence, own, ring, ParentFanPoints{m_level, fan}, nets);
        const double irregular = weights.turn_cosine, regular = m_level.leaf_weights[4].turn_cosine;
        if constexpr (own < behind) {
            bend_edge(own, irregular, regular, nets);
            bend_edge(behind, regular, irregular, nets);
        } else {
            bend_edge(behind, regular, irregular, nets);
            bend_edge(own, irregular, regular, nets);
        }
        nets.store(nets_out);
    }

    const LevelFaces& m_level;
    const LevelStep& m_step;
    const Parents m_parents;
    const unsigned int m_parts;
    unsigned int m_count = 0;
    Siblings m_families[most];
    ParentFan m_fans[4 * most];  // of the families' leaves
};

template <class Parents>
unsigned int compute_siblings_of(const LevelFaces& level, const LevelStep& step, unsigned int parts) {
    SiblingPatches<Parents> patches(level, step, parts);
    unsigned int short_count = 0;
    for (unsigned int i = 0; i < step.refined_count; ++i) {
        patches.add(step.refined_faces[i]);
        if (patches.is_full()) short_count += patches.compute();
    }
    return short_count + patches.compute();
}

}  // namespace

}  // namespace sds
