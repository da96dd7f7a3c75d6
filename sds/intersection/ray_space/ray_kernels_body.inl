// Bodies of the ray-space kernels. Included once per instruction set, inside the namespace of that set: no templates or
// inline functions of other headers are used here, so that the linker cannot hand one set's copy to another's caller.

namespace {

using QN_SIMD_NAMESPACE::SimdFloat8;

// Where a sub-patch lies in its patch. Its rows of lanes run along a, the rows follow each other along b; each split
// halves a and stores the halves transposed, so that a and b change places. `a` and `b` count cells of their own size:
// depth / 2 halvings along a, (depth + 1) / 2 along b.
struct Path {
    unsigned int a, b, depth;
};

// A path's place in patch coordinates.
struct Range {
    float a_min, b_min, a_max, b_max;
    bool swapped;  // a is v
};

constexpr unsigned int stack_capacity = 64;
// Cells of 2^-24 are the finest that single-precision patch coordinates tell apart.
constexpr unsigned int max_cell_level = 24;

// A patch seen exactly edge-on meets the ray along a curve and would be split without end. A ray that grazes a fold
// needs some thousand splits: within rounding of the fold every sub-patch holds the origin.
constexpr unsigned int max_splits = 16384;
// Sub-patches halved this often, to 2^-18 either way, are taken as points on the limit surface.
constexpr unsigned int point_depth = 36;
constexpr unsigned int max_newton_steps = 8;
// A root this far outside its sub-patch, in the sub-patch's own coordinates, still counts as inside.
constexpr float root_slack = 1e-6f;
constexpr float newton_convergence = 1e-5f;
constexpr double barycentric_epsilon = 1e-6;

inline float least(float a, float b) { return a < b ? a : b; }
inline float greatest(float a, float b) { return a > b ? a : b; }
// `bits` is not 0.
inline unsigned int take_lowest_bit(unsigned int& bits) {
    const auto place = static_cast<unsigned int>(__builtin_ctz(bits));
    bits &= bits - 1;
    return place;
}
inline float clamp_unit(float x) { return x < 0.0f ? 0.0f : (x > 1.0f ? 1.0f : x); }

inline void transform_to_plane(const float (*controls)[16], const RaySpace& ray, SimdFloat8* rows) {
    const SimdFloat8 origin_x(ray.origin[0]), origin_y(ray.origin[1]), origin_z(ray.origin[2]);
    const SimdFloat8 across_x(ray.across[0][0], ray.across[1][0]);
    const SimdFloat8 across_y(ray.across[0][1], ray.across[1][1]);
    const SimdFloat8 across_z(ray.across[0][2], ray.across[1][2]);
    for (unsigned int r = 0; r < 4; ++r) {
        const SimdFloat8 x(controls[0] + 4 * r, controls[0] + 4 * r);
        const SimdFloat8 y(controls[1] + 4 * r, controls[1] + 4 * r);
        const SimdFloat8 z(controls[2] + 4 * r, controls[2] + 4 * r);
        rows[r] = (x - origin_x) * across_x + (y - origin_y) * across_y + (z - origin_z) * across_z;
    }
}

// Which of two sub-patches hold the origin, in bits 0 and 1: both groups of lanes have one at or below zero and one at
// or above it. NaN fails.
inline unsigned int find_origin(const SimdFloat8* r, const SimdFloat8* s) {
    const SimdFloat8 zero(0.0f);
    unsigned int lanes = static_cast<unsigned int>(less_equal_mask(min(min(r[0], r[1]), min(r[2], r[3])), zero)) |
                         static_cast<unsigned int>(less_equal_mask(zero, max(max(r[0], r[1]), max(r[2], r[3])))) << 8 |
                         static_cast<unsigned int>(less_equal_mask(min(min(s[0], s[1]), min(s[2], s[3])), zero)) << 16 |
                         static_cast<unsigned int>(less_equal_mask(zero, max(max(s[0], s[1]), max(s[2], s[3])))) << 24;
    // Any lane of each group of four.
    lanes |= lanes >> 1;
    lanes |= lanes >> 2;
    lanes &= 0x11111111u;
    return ((lanes & 0xffffu) == 0x1111u ? 1u : 0u) | (lanes >> 16 == 0x1111u ? 2u : 0u);
}

// Which of four sub-patches come within `slack` of the origin, in bits 0 to 3.
inline unsigned int find_origin(const SimdFloat8 (*nodes)[4], SimdFloat8 slack) {
    SimdFloat8 low[4], high[4];
    for (unsigned int i = 0; i < 4; ++i) {
        const SimdFloat8* r = nodes[i];
        low[i] = min(min(r[0], r[1]), min(r[2], r[3]));
        high[i] = max(max(r[0], r[1]), max(r[2], r[3]));
    }
    const int found = less_equal_mask(min_of_four(low[0], low[1], low[2], low[3]), slack) &
                      less_equal_mask(SimdFloat8(0.0f) - slack, max_of_four(high[0], high[1], high[2], high[3]));
    return static_cast<unsigned int>(found & (found >> 4)) & 15u;
}

// De Casteljau at one half along the rows. Symmetric: a reversed edge halves to the same bits. Sums wait for their
// factor, a power of two, until the end: the same bits sooner.
inline void halve_rows(SimdFloat8 p0, SimdFloat8 p1, SimdFloat8 p2, SimdFloat8 p3, SimdFloat8* first,
                       SimdFloat8* second) {
    const SimdFloat8 m01 = p0 + p1;
    const SimdFloat8 m12 = p1 + p2;
    const SimdFloat8 m23 = p2 + p3;
    const SimdFloat8 a = m01 + m12;
    const SimdFloat8 b = m12 + m23;
    const SimdFloat8 half(0.5f), quarter(0.25f), eighth(0.125f);
    const SimdFloat8 mid = (a + b) * eighth;
    first[0] = p0, first[1] = m01 * half, first[2] = a * quarter, first[3] = mid;
    second[0] = mid, second[1] = b * quarter, second[2] = m23 * half, second[3] = p3;
}

// The same along the lanes, halves stored transposed.
inline void halve(SimdFloat8 p0, SimdFloat8 p1, SimdFloat8 p2, SimdFloat8 p3, SimdFloat8* first, SimdFloat8* second) {
    transpose(p0, p1, p2, p3);
    halve_rows(p0, p1, p2, p3, first, second);
}

// Both ways: four quarters in order (a, b) = (first, first), (first, second), (second, first), (second, second), rows
// along a and lanes along b where the rows of the whole ran along b.
inline void quarter(const SimdFloat8* rows, SimdFloat8 (*quarters)[4]) {
    SimdFloat8 first[4], second[4];
    halve(rows[0], rows[1], rows[2], rows[3], first, second);
    halve(first[0], first[1], first[2], first[3], quarters[0], quarters[1]);
    halve(second[0], second[1], second[2], second[3], quarters[2], quarters[3]);
}

// The path of a node's first half; the second's has b one greater.
inline Path get_first_half(const Path& path) { return {path.b, 2 * path.a, path.depth + 1}; }

inline Range get_range(const Path& path) {
    const float a_size = 1.0f / static_cast<float>(1u << path.depth / 2);
    const float b_size = 1.0f / static_cast<float>(1u << (path.depth + 1) / 2);
    const auto a = static_cast<float>(path.a), b = static_cast<float>(path.b);
    return {a * a_size, b * b_size, (a + 1.0f) * a_size, (b + 1.0f) * b_size, (path.depth & 1) != 0};
}

inline void set_weights(float t, float* w) {
    const float s = 1.0f - t;
    w[0] = s * s * s;
    w[1] = 3.0f * t * s * s;
    w[2] = 3.0f * t * t * s;
    w[3] = t * t * t;
}

// Distances along the ray of the whole patch; made where a hit is found.
class DepthPatch {
public:
    DepthPatch(const float (*controls)[16], const RaySpace& ray) {
        for (unsigned int h = 0; h < 16; h += 8) {
            SimdFloat8 t(0.0f);
            for (unsigned int axis = 0; axis < 3; ++axis) {
                const float* c = controls[axis] + h;
                t = t + (SimdFloat8(c, c + 4) - SimdFloat8(ray.origin[axis])) * SimdFloat8(ray.along[axis]);
            }
            t.store(m_depths + h);
        }
    }

    float evaluate(float u, float v) const {
        float wu[4], wv[4];
        set_weights(u, wu);
        set_weights(v, wv);
        float t = 0.0f;
        for (unsigned int r = 0; r < 4; ++r) {
            const float* d = m_depths + 4 * r;
            t += wv[r] * (wu[0] * d[0] + wu[1] * d[1] + wu[2] * d[2] + wu[3] * d[3]);
        }
        return t;
    }

private:
    float m_depths[16];
};

inline void add_hit(RayHits& hits, float t, float u, float v, float cell, bool facing) {
    unsigned int place = hits.count;
    if (place == RayHits::capacity) {
        // Where a ray runs along the surface the list fills up: the nearest stay.
        ++hits.overflow_count;
        place = 0;
        for (unsigned int i = 1; i < RayHits::capacity; ++i)
            if (hits.hits[i].t > hits.hits[place].t) place = i;
        if (!(t < hits.hits[place].t)) return;
    } else {
        ++hits.count;
    }
    RayHit& hit = hits.hits[place];
    hit.t = t;
    hit.u = u;
    hit.v = v;
    hit.cell = cell;
    hit.side = facing ? 1 : 0;
}

// The two triangles (c0, c1, c2) and (c0, c2, c3) of a flat cell against the origin of the plane. Products of two
// floats are exact in double and their difference is rounded once, so the sign of every edge function is exact, and
// equal for the two triangles that share the edge: a ray is inside one of them or on both. The slack widens each
// triangle, as in the reference family.
struct FlatCell {
    double p[4], q[4];  // corners in cyclic order

    template <class Report>
    void intersect(Report&& report) const {
        // Edge function of corners i, j: twice the area of the triangle that they span with the origin.
        const double e01 = p[0] * q[1] - p[1] * q[0];
        const double e12 = p[1] * q[2] - p[2] * q[1];
        const double e20 = p[2] * q[0] - p[0] * q[2];
        const double e23 = p[2] * q[3] - p[3] * q[2];
        const double e30 = p[3] * q[0] - p[0] * q[3];
        test(e12, e20, e01, false, report);
        test(e23, e30, -e20, true, report);
    }

private:
    // Weights of c0, the second and the third corner, before the division by their sum.
    template <class Report>
    static void test(double w0, double w1, double w2, bool upper, Report&& report) {
        const double det = w0 + w1 + w2;
        if (det == 0.0) return;
        const double slack = barycentric_epsilon * (det < 0.0 ? -det : det);
        const bool inside =
            det > 0.0 ? w0 >= -slack && w1 >= -slack && w2 >= -slack : w0 <= slack && w1 <= slack && w2 <= slack;
        if (inside) report(w1 / det, w2 / det, upper, det);
    }
};

// Cell coordinates from the barycentric ones of the second and third corner.
inline void cell_place(double b1, double b2, bool upper, double& a, double& b) {
    a = upper ? b1 : b1 + b2;
    b = upper ? b1 + b2 : b2;
}

inline float blend_range(double w, float low, float high) {
    const double x = (1.0 - w) * static_cast<double>(low) + w * static_cast<double>(high);
    return static_cast<float>(x < 0.0 ? 0.0 : (x > 1.0 ? 1.0 : x));
}

// Bernstein weights at i / 2^level, in order 0 1 3 2. Reversing the direction exchanges 0 with 3 and 1 with 2, to the
// same bits.
struct CellWeights {
    float w[4];

    constexpr CellWeights() : w{} {}
    constexpr CellWeights(unsigned int i, unsigned int level) : w{} {
        const float t = static_cast<float>(i) / static_cast<float>(1u << level);
        const float s = 1.0f - t;
        w[0] = s * s * s;
        w[1] = 3.0f * (t * (s * s));
        w[2] = t * t * t;
        w[3] = 3.0f * ((t * t) * s);
    }
};

constexpr unsigned int table_level = 6;

struct WeightTable {
    CellWeights at[(1u << table_level) + 1];

    constexpr WeightTable() {
        for (unsigned int i = 0; i <= 1u << table_level; ++i) at[i] = CellWeights(i, table_level);
    }
};

constexpr WeightTable weight_table;

inline CellWeights get_cell_weights(unsigned int i, unsigned int level) {
    return level <= table_level ? weight_table.at[i << (table_level - level)] : CellWeights(i, level);
}

// One of the 2^level x 2^level flat cells of a patch.
struct Cell {
    unsigned int i, j, level;

    // Its corners in the plane. Weights and sums are symmetric, and at the patch's edges all but the edge's own points
    // have weight 0: patches that share an edge get its corners to the same bits.
    FlatCell get_corners(const SimdFloat8* rows) const {
        const CellWeights u0 = get_cell_weights(i, level), u1 = get_cell_weights(i + 1, level);
        const SimdFloat8 curve0 = get_curve(rows, get_cell_weights(j, level));
        const SimdFloat8 curve1 = get_curve(rows, get_cell_weights(j + 1, level));
        const SimdFloat8 weights0(u0.w, u0.w), weights1(u1.w, u1.w);
        float c[8];
        sum_of_four(curve0 * weights0, curve0 * weights1, curve1 * weights1, curve1 * weights0).store(c);
        const auto corner = [&c](unsigned int k) { return static_cast<double>(c[k]); };
        return {{corner(0), corner(1), corner(2), corner(3)}, {corner(4), corner(5), corner(6), corner(7)}};
    }

private:
    static SimdFloat8 get_curve(const SimdFloat8* rows, const CellWeights& v) {
        return swap_last((rows[0] * SimdFloat8(v.w[0]) + rows[3] * SimdFloat8(v.w[2])) +
                         (rows[1] * SimdFloat8(v.w[1]) + rows[2] * SimdFloat8(v.w[3])));
    }
};

// Reports the hits of one ray with a flat cell; distances come from the patch.
inline void intersect_cell(const Cell& cell, const SimdFloat8* rows, const float (*controls)[16], const RaySpace& ray,
                           RayHits& hits) {
    cell.get_corners(rows).intersect([&](double b1, double b2, bool upper, double det) {
        const DepthPatch depths(controls, ray);
        const float size = 1.0f / static_cast<float>(1u << cell.level);
        const float u[2] = {static_cast<float>(cell.i) * size, static_cast<float>(cell.i + 1) * size};
        const float v[2] = {static_cast<float>(cell.j) * size, static_cast<float>(cell.j + 1) * size};
        double a = 0.0, b = 0.0;
        cell_place(b1, b2, upper, a, b);
        // Distances of the triangle's corners: c0, then second and third.
        const double t0 = static_cast<double>(depths.evaluate(u[0], v[0]));
        const double t1 = static_cast<double>(depths.evaluate(u[1], v[upper ? 1 : 0]));
        const double t2 = static_cast<double>(depths.evaluate(u[upper ? 0 : 1], v[1]));
        const double t = (1.0 - b1 - b2) * t0 + b1 * t1 + b2 * t2;
        add_hit(hits, static_cast<float>(t), blend_range(a, u[0], u[1]), blend_range(b, v[0], v[1]), size, det <= 0.0);
    });
}

// The patch in a frame of the plane in which its own directions stand across each other, up to scale: the boxes of its
// sub-patches then hold little but the sub-patches. `slack` is what a coordinate of theirs may be off: products of
// the frame and the points, and four dozen roundings of halves, each below 2^-24 of the largest product. Seen nearly
// edge-on, or not finite, the patch stays as it is.
struct SkewedPatch {
    SimdFloat8 rows[4];
    SimdFloat8 slack;

    explicit SkewedPatch(const SimdFloat8* r) {
        float first[8], last[8];
        r[0].store(first);
        r[3].store(last);
        const float ep = (first[3] - first[0]) + (last[3] - last[0]), eq = (first[7] - first[4]) + (last[7] - last[4]);
        const float dp = (last[0] - first[0]) + (last[3] - first[3]), dq = (last[4] - first[4]) + (last[7] - first[7]);
        const float det = ep * dq - dp * eq;
        constexpr float edge_on = 0.01f;  // squared sine of the angle
        const bool usable = det * det > edge_on * ((ep * ep + eq * eq) * (dp * dp + dq * dq));
        const SimdFloat8 own = usable ? SimdFloat8(dq, ep) : SimdFloat8(1.0f);
        const SimdFloat8 other = usable ? SimdFloat8(-dp, -eq) : SimdFloat8(0.0f);
        const SimdFloat8 zero(0.0f);
        SimdFloat8 largest(0.0f);
        for (unsigned int i = 0; i < 4; ++i) {
            rows[i] = r[i] * own + swap_groups(r[i]) * other;
            largest = max(largest, max(r[i], zero - r[i]));
        }
        largest = group_max(largest);
        const SimdFloat8 products = largest * max(own, zero - own) + swap_groups(largest) * max(other, zero - other);
        slack = products * SimdFloat8(0x1p-18f);
    }
};

// Two splits at a time: which of two halves a ray enters is as good as random to the processor's branch predictor, so
// the four tests of a quartering share one branch. The quarters of each level wait in their own place; nothing is
// moved.
void estimate(const float (*controls)[16], const RaySpace& ray, unsigned int level_count, RayHits& hits) {
    struct Level {
        SimdFloat8 quarters[4][4];
        unsigned int pending;  // quarters still to be visited, as bits
        unsigned int i, j;     // of the first quarter
    };
    Level levels[max_cell_level];
    SimdFloat8 rows[4];
    transform_to_plane(controls, ray, rows);
    if (find_origin(rows, rows) == 0) return;
    const unsigned int last = level_count < max_cell_level ? level_count : max_cell_level;
    if (last == 0) return intersect_cell({0, 0, 0}, rows, controls, ray, hits);
    const SkewedPatch skewed(rows);
    const SimdFloat8* node = skewed.rows;
    unsigned int depth = 0, i = 0, j = 0;
    for (;;) {
        Level* level = levels + depth;
        quarter(node, level->quarters);
        level->pending = find_origin(level->quarters, skewed.slack);
        level->i = 2 * i;
        level->j = 2 * j;
        ++depth;
        if (depth == last) {
            while (level->pending != 0) {
                const unsigned int k = take_lowest_bit(level->pending);
                intersect_cell({level->i + k / 2, level->j + k % 2, depth}, rows, controls, ray, hits);
            }
        }
        while (level->pending == 0) {
            if (--depth == 0) return;
            level = levels + depth - 1;
        }
        const unsigned int k = take_lowest_bit(level->pending);
        node = level->quarters[k];
        i = level->i + k / 2;
        j = level->j + k % 2;
    }
}

// A sub-patch that waits for its turn.
struct StackedPlane {
    SimdFloat8 rows[4];
    Path path;
};

// Goes through the sub-patches that hold the origin. leaf(rows, path, room) returns true when the sub-patch is done
// with. Rows and path live in registers from split to split: only the second of two halves goes through memory.
template <class Leaf>
inline void traverse_plane(const float (*controls)[16], const RaySpace& ray, Leaf&& leaf) {
    StackedPlane stack[stack_capacity];
    unsigned int stack_count = 0;
    SimdFloat8 rows[4];
    transform_to_plane(controls, ray, rows);
    if (find_origin(rows, rows) == 0) return;
    Path path{0, 0, 0};
    unsigned int splits_left = max_splits;
    for (;;) {
        const bool room = stack_count < stack_capacity && splits_left != 0;
        if (!leaf(rows, path, room)) {
            --splits_left;
            SimdFloat8 first[4], second[4];
            halve(rows[0], rows[1], rows[2], rows[3], first, second);
            const unsigned int found = find_origin(first, second);
            path = get_first_half(path);
            if ((found & 1) != 0) {
                if ((found & 2) != 0) {
                    StackedPlane& top = stack[stack_count++];
                    for (unsigned int r = 0; r < 4; ++r) top.rows[r] = second[r];
                    top.path = {path.a, path.b + 1, path.depth};
                }
                for (unsigned int r = 0; r < 4; ++r) rows[r] = first[r];
                continue;
            }
            if (found != 0) {
                for (unsigned int r = 0; r < 4; ++r) rows[r] = second[r];
                ++path.b;
                continue;
            }
        }
        if (stack_count == 0) return;
        const StackedPlane& top = stack[--stack_count];
        for (unsigned int r = 0; r < 4; ++r) rows[r] = top.rows[r];
        path = top.path;
    }
}

// Value and derivatives of a node's plane patch at (s along the lanes, t along the rows), in the node's own
// coordinates.
struct PlaneJet {
    float p, q, p_s, q_s, p_t, q_t;
};

inline PlaneJet evaluate_plane(const SimdFloat8* r, float s, float t) {
    float ws[4], wt[4];
    set_weights(s, ws);
    set_weights(t, wt);
    const float s1 = 1.0f - s, t1 = 1.0f - t;
    const float slope_s[4] = {3.0f * s1 * s1, 6.0f * s * s1, 3.0f * s * s, 0.0f};
    const float slope_t[3] = {3.0f * t1 * t1, 6.0f * t * t1, 3.0f * t * t};
    const SimdFloat8 curve =
        (r[0] * SimdFloat8(wt[0]) + r[1] * SimdFloat8(wt[1])) + (r[2] * SimdFloat8(wt[2]) + r[3] * SimdFloat8(wt[3]));
    const SimdFloat8 slope = (r[1] - r[0]) * SimdFloat8(slope_t[0]) + (r[2] - r[1]) * SimdFloat8(slope_t[1]) +
                             (r[3] - r[2]) * SimdFloat8(slope_t[2]);
    const SimdFloat8 basis(ws, ws);
    const SimdFloat8 value = curve * basis, across = slope * basis;
    const SimdFloat8 along = (next_lanes(curve) - first_lanes(curve)) * SimdFloat8(slope_s, slope_s);
    float sums[8];
    sum_of_four(value, along, across, across).store(sums);
    return {sums[0], sums[4], sums[1], sums[5], sums[2], sums[6]};
}

// Bounds of a node's difference nets: d along the rows, e along the lanes, p and q of each; and of the determinant
// e.p * d.q - d.p * e.q of any two of their members.
struct SlopeBounds {
    float d_min[8], d_max[8], e_min[8], e_max[8];  // p in place 0, q in place 4
    float det_min, det_max;

    explicit SlopeBounds(const SimdFloat8* r) {
        const SimdFloat8 d0 = r[1] - r[0], d1 = r[2] - r[1], d2 = r[3] - r[2];
        const SimdFloat8 e0 = next_lanes(r[0]) - first_lanes(r[0]), e1 = next_lanes(r[1]) - first_lanes(r[1]);
        const SimdFloat8 e2 = next_lanes(r[2]) - first_lanes(r[2]), e3 = next_lanes(r[3]) - first_lanes(r[3]);
        group_min(min(d0, min(d1, d2))).store(d_min);
        group_max(max(d0, max(d1, d2))).store(d_max);
        group_min(min(min(e0, e1), min(e2, e3))).store(e_min);
        group_max(max(max(e0, e1), max(e2, e3))).store(e_max);
        // Each product's interval from its four ends.
        const float x0 = e_min[0] * d_min[4], x1 = e_min[0] * d_max[4];
        const float x2 = e_max[0] * d_min[4], x3 = e_max[0] * d_max[4];
        const float y0 = d_min[0] * e_min[4], y1 = d_min[0] * e_max[4];
        const float y2 = d_max[0] * e_min[4], y3 = d_max[0] * e_max[4];
        det_min = least(least(x0, x1), least(x2, x3)) - greatest(greatest(y0, y1), greatest(y2, y3));
        det_max = greatest(greatest(x0, x1), greatest(x2, x3)) - least(least(y0, y1), least(y2, y3));
    }

    // True when the map of the node's square to the plane is one to one: every Jacobian whose columns lie in the hulls
    // of the two difference nets is regular, since the interval of its determinant leaves 0 out (the mean value theorem
    // takes the difference of two images through such a matrix). At most one root is in the node then.
    bool is_injective() const { return det_min > 0.0f || det_max < 0.0f; }

    // True when the square of an injective node holds no root, `centre` being the image of its middle: by Cramer's
    // rule a root lies at -(p * d.q - q * d.p) / (3 det) and -(q * e.p - p * e.q) / (3 det) from the middle for some
    // members of the nets (interval Newton; Moore, Methods and Applications of Interval Analysis, 1979), and 1/2 is the
    // farthest in the square. The reach is taken a little larger for the rounding of all this.
    bool excludes_root(float p, float q) const {
        const float reach = 1.5001f * greatest(det_max, -det_min);
        return is_beyond(p, d_min[4], d_max[4], q, d_min[0], d_max[0], reach) ||
               is_beyond(q, e_min[0], e_max[0], p, e_min[4], e_max[4], reach);
    }

private:
    // All of x * [a_min, a_max] - y * [b_min, b_max] above `reach` or below -`reach`.
    static bool is_beyond(float x, float a_min, float a_max, float y, float b_min, float b_max, float reach) {
        const float a0 = x * a_min, a1 = x * a_max, b0 = y * b_min, b1 = y * b_max;
        return least(a0, a1) - greatest(b0, b1) > reach || greatest(a0, a1) - least(b0, b1) < -reach;
    }
};

// The place of the node's root by Newton's iteration from its centre, where the jet is `jet`; false when it does not
// converge inside the node.
inline bool find_root(const SimdFloat8* rows, PlaneJet jet, float& s, float& t, float& det) {
    s = t = 0.5f;
    for (unsigned int i = 0; i < max_newton_steps; ++i) {
        if (i != 0) jet = evaluate_plane(rows, s, t);
        det = jet.p_s * jet.q_t - jet.p_t * jet.q_s;
        if (det == 0.0f) return false;
        const float inverse = 1.0f / det;
        const float ds = (jet.p * jet.q_t - jet.p_t * jet.q) * inverse;
        const float dt = (jet.p_s * jet.q - jet.p * jet.q_s) * inverse;
        s -= ds;
        t -= dt;
        if (!(s > -1.0f && s < 2.0f && t > -1.0f && t < 2.0f)) return false;
        const float step = (ds < 0.0f ? -ds : ds) + (dt < 0.0f ? -dt : dt);
        if (step <= newton_convergence)
            return s >= -root_slack && s <= 1.0f + root_slack && t >= -root_slack && t <= 1.0f + root_slack;
    }
    return false;
}

void adaptive(const float (*controls)[16], const RaySpace& ray, RayHits& hits) {
    traverse_plane(controls, ray, [&](const SimdFloat8* rows, const Path& path, bool room) {
        float s = 0.5f, t = 0.5f, det = 0.0f;
        if (path.depth < point_depth) {
            if (room) {
                const SlopeBounds slopes(rows);
                if (!slopes.is_injective()) return false;
                const PlaneJet centre = evaluate_plane(rows, 0.5f, 0.5f);
                if (slopes.excludes_root(centre.p, centre.q)) return true;
                if (!find_root(rows, centre, s, t, det)) return false;
            } else {
                // Out of splits: a root that is found anyway, unproven to be the only one, or none.
                ++hits.overflow_count;
                if (!find_root(rows, evaluate_plane(rows, 0.5f, 0.5f), s, t, det)) return true;
            }
        }
        if (det == 0.0f) {
            const PlaneJet jet = evaluate_plane(rows, s, t);
            det = jet.p_s * jet.q_t - jet.p_t * jet.q_s;
        }
        const Range range = get_range(path);
        const float a = clamp_unit(range.a_min + (range.a_max - range.a_min) * s);
        const float b = clamp_unit(range.b_min + (range.b_max - range.b_min) * t);
        const float u = range.swapped ? b : a;
        const float v = range.swapped ? a : b;
        add_hit(hits, DepthPatch(controls, ray).evaluate(u, v), u, v, 0.0f, (det <= 0.0f) != range.swapped);
        return true;
    });
}

}  // namespace
