// Flat cells of a patch in the plane across a ray. For the kernels of one instruction set.
#pragma once

#include "sds/common/cubic_basis.h"
#include "sds/intersection/fast/depth_patch.h"
#include "sds/intersection/fast/hit_list.h"

namespace sds {

namespace {

constexpr double barycentric_epsilon = 1e-6;

// The two triangles (c0, c1, c2) and (c0, c2, c3) of a flat cell against the origin of the plane. Products of two
// floats are exact in double and their difference is rounded once, so the sign of every edge function is exact, and
// equal for the two triangles that share the edge: a ray is inside one of them or on both. The slack widens each
// triangle, as in the reference family, and by `edge_slack` in the plane.
struct FlatCell {
    double p[4], q[4];  // corners in cyclic order

    // The lower triangle, then the upper.
    template <bool is_wide, class Report>
    void intersect(float edge_slack, Report&& report) const {
        // Edge function of corners i, j: twice the area of the triangle that they span with the origin.
        const double e01 = p[0] * q[1] - p[1] * q[0];
        const double e12 = p[1] * q[2] - p[2] * q[1];
        const double e20 = p[2] * q[0] - p[0] * q[2];
        const double e23 = p[2] * q[3] - p[3] * q[2];
        const double e30 = p[3] * q[0] - p[0] * q[3];
        const double reach = static_cast<double>(edge_slack);
        const auto width = [&](unsigned int i, unsigned int j) {
            return is_wide ? reach * (__builtin_fabs(p[i] - p[j]) + __builtin_fabs(q[i] - q[j])) : 0.0;
        };
        const Weights<is_wide> lower{e12, e20, e01, width(1, 2), width(2, 0), width(0, 1)};
        const Weights<is_wide> upper{e23, e30, -e20, width(2, 3), width(3, 0), width(2, 0)};
        const bool in_lower = lower.are_inside(), in_upper = upper.are_inside();
        if (in_lower) lower.report_to(report, false);
        if (in_upper) upper.report_to(report, true);
    }

private:
    // Of c0, the second and the third corner, before the division by their sum, and what each may be below zero.
    template <bool is_wide>
    struct Weights {
        double w0, w1, w2;
        double reach0, reach1, reach2;

        // Without a branch: which triangle holds the ray is as good as random.
        bool are_inside() const {
            const double det = w0 + w1 + w2, sign = det < 0.0 ? -1.0 : 1.0;
            const double slack = barycentric_epsilon * (det * sign);
            if constexpr (!is_wide) {
                const double a = w0 * sign, b = w1 * sign, c = w2 * sign, ab = a < b ? a : b;
                return (static_cast<int>((ab < c ? ab : c) >= -slack) & static_cast<int>(det != 0.0)) != 0;
            }
            return (static_cast<int>(w0 * sign >= -(slack + reach0)) &
                    static_cast<int>(w1 * sign >= -(slack + reach1)) &
                    static_cast<int>(w2 * sign >= -(slack + reach2)) & static_cast<int>(det != 0.0)) != 0;
        }
        template <class Report>
        void report_to(Report&& report, bool upper) const {
            const double det = w0 + w1 + w2;
            report(w1 / det, w2 / det, upper, det);
        }
    };
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
        const auto basis = CubicBasis<float>::make_symmetric(t);
        w[0] = basis.b[0], w[1] = basis.b[1], w[2] = basis.b[3], w[3] = basis.b[2];
    }
};

// Finer levels have their weights made as they are needed.
constexpr unsigned int table_level = 6;
// Cells are looked at in windows of 4 x 4.
constexpr unsigned int window_level = 2;
constexpr unsigned int window_size = 1u << window_level;

struct WeightTable {
    CellWeights at[(1u << table_level) + 1];

    constexpr WeightTable() {
        for (unsigned int i = 0; i <= 1u << table_level; ++i) at[i] = CellWeights(i, table_level);
    }
};

constexpr WeightTable weight_table;

constexpr CellWeights get_cell_weights(unsigned int i, unsigned int level) {
    return level <= table_level ? weight_table.at[i << (table_level - level)] : CellWeights(i, level);
}

// Weights of the points along one side of a window of cells, one array per weight: of points 0 to 3, the same again for
// the other group of lanes, and of point 4.
struct SideWeights {
    float w[4][8];
    float last[4];

    SideWeights() = default;
    // Points `first` to `first` + 4 of 2^level + 1; those beyond the end are the end again.
    constexpr SideWeights(unsigned int first, unsigned int level) : w{}, last{} {
        const unsigned int end = 1u << level;
        for (unsigned int i = 0; i < 8; ++i) set(w, i, first + i % 4, end, level);
        float extra[4][8] = {};
        set(extra, 0, first + 4, end, level);
        for (unsigned int k = 0; k < 4; ++k) last[k] = extra[k][0];
    }

private:
    static constexpr void set(float (&out)[4][8], unsigned int lane, unsigned int i, unsigned int end,
                              unsigned int level) {
        const CellWeights at = get_cell_weights(i < end ? i : end, level);
        for (unsigned int k = 0; k < 4; ++k) out[k][lane] = at.w[k];
    }
};

// The sides of all windows of levels 0 to `table_level`.
struct SideTable {
    static constexpr unsigned int count = window_level + (1u << (table_level - window_level + 1)) - 1;
    SideWeights at[count];

    constexpr SideTable() : at{} {
        for (unsigned int level = 0; level <= table_level; ++level)
            for (unsigned int first = 0; first < 1u << level; first += window_size)
                at[find(first, level)] = SideWeights(first, level);
    }
    static constexpr unsigned int find(unsigned int first, unsigned int level) {
        if (level < window_level) return level;
        return window_level + (1u << (level - window_level)) - 1 + first / window_size;
    }
};

constexpr SideTable side_table;

inline const SideWeights& get_side(unsigned int first, unsigned int level, SideWeights& room) {
    if (level <= table_level) return side_table.at[SideTable::find(first, level)];
    room = SideWeights(first, level);
    return room;
}

// Up to 4 x 4 of the 2^level x 2^level flat cells of a patch: those from (i, j) on.
struct CellWindow {
    unsigned int i, j, level;
};

// Weights in order 0 1 3 2. The sum of a reversed curve has the same bits.
inline SimdFloat8 blend(SimdFloat8 c0, SimdFloat8 c1, SimdFloat8 c2, SimdFloat8 c3, const SimdFloat8* w) {
    return (c0 * w[0] + c3 * w[2]) + (c1 * w[1] + c2 * w[3]);
}

inline void spread(SimdFloat8 a, SimdFloat8* lanes) {
    lanes[0] = broadcast_lane<0>(a);
    lanes[1] = broadcast_lane<1>(a);
    lanes[2] = broadcast_lane<2>(a);
    lanes[3] = broadcast_lane<3>(a);
}

// Nibbles from low to high: p <= 0, q <= 0, p >= 0, q >= 0, all within the slack. NaN has none.
inline unsigned int get_signs(SimdFloat8 a, SimdFloat8 slack) {
    return static_cast<unsigned int>(less_equal_mask(a, slack)) |
           static_cast<unsigned int>(less_equal_mask(SimdFloat8(0.0f) - slack, a)) << 8;
}

// The corners of a window's cells in the plane: corner (x, y) belongs to (u, v) = (i + x, j + y) / 2^level. At the
// patch's edges all but the edge's own points have weight 0: patches that share an edge get its corners to the same
// bits.
class CellCorners {
public:
    CellCorners(const CellWindow& window, const SimdFloat8* rows) {
        SideWeights u_room, v_room;
        const SideWeights& u = get_side(window.i, window.level, u_room);
        const SideWeights& v = get_side(window.j, window.level, v_room);
        SimdFloat8 wu[4], wv[4], wu_last[4], wv_last[4];
        for (unsigned int k = 0; k < 4; ++k) {
            wu[k] = SimdFloat8(u.w[k], u.w[k] + 4);
            wv[k] = SimdFloat8(v.w[k], v.w[k] + 4);
            wu_last[k] = SimdFloat8(u.last[k]);
            wv_last[k] = SimdFloat8(v.last[k]);
        }
        // Points 0 to 3 of the four curves along v, and the fourth of all.
        SimdFloat8 net[4][4], curves[4], last_curve[4];
        for (unsigned int r = 0; r < 4; ++r) spread(rows[r], net[r]);
        for (unsigned int k = 0; k < 4; ++k) curves[k] = blend(net[0][k], net[1][k], net[2][k], net[3][k], wv);
        spread(blend(rows[0], rows[1], rows[2], rows[3], wv_last), last_curve);
        SimdFloat8 points[4][4];
        for (unsigned int k = 0; k < 4; ++k) spread(curves[k], points[k]);
        for (unsigned int y = 0; y < 4; ++y)
            m_rows[y] = blend(points[0][y], points[1][y], points[2][y], points[3][y], wu);
        m_rows[4] = blend(last_curve[0], last_curve[1], last_curve[2], last_curve[3], wu);
        m_column = blend(curves[0], curves[1], curves[2], curves[3], wu_last);
        m_corner = blend(last_curve[0], last_curve[1], last_curve[2], last_curve[3], wu_last);
    }

    // The cells whose four corners have the origin in their box, cell (x, y) in bit 4 y + x.
    unsigned int find_origin(SimdFloat8 slack) const {
        const unsigned int column = get_signs(m_column, slack);
        unsigned int found = 0, above = 0;
        for (unsigned int y = 0; y <= window_size; ++y) {
            // Signs that either end of a cell's side has, bit x of each nibble for the side from x to x + 1.
            const unsigned int signs = get_signs(m_rows[y], slack);
            const unsigned int end = (y < 4 ? column >> y : get_signs(m_corner, slack)) & 0x1111u;
            const unsigned int sides = signs | ((signs >> 1) & 0x7777u) | (end << 3);
            const unsigned int both = sides | above;
            const unsigned int p_and_q = both & (both >> 8);
            if (y != 0) found |= (p_and_q & (p_and_q >> 4) & 0xfu) << (4 * (y - 1));
            above = sides;
        }
        return found;
    }

    // Cell (x, y) from corners stored by `store`.
    struct Stored {
        float p[5][5], q[5][5];

        FlatCell get_cell(unsigned int x, unsigned int y) const {
            const auto wide = [](float c) { return static_cast<double>(c); };
            return {{wide(p[y][x]), wide(p[y][x + 1]), wide(p[y + 1][x + 1]), wide(p[y + 1][x])},
                    {wide(q[y][x]), wide(q[y][x + 1]), wide(q[y + 1][x + 1]), wide(q[y + 1][x])}};
        }
    };
    void store(Stored& out) const {
        for (unsigned int y = 0; y < 5; ++y) m_rows[y].store(out.p[y], out.q[y]);
        float column[8], corner[8];
        m_column.store(column);
        m_corner.store(corner);
        for (unsigned int y = 0; y < 4; ++y) {
            out.p[y][4] = column[y];
            out.q[y][4] = column[4 + y];
        }
        out.p[4][4] = corner[0];
        out.q[4][4] = corner[4];
    }

private:
    SimdFloat8 m_rows[5];  // points 0 to 3 of each
    SimdFloat8 m_column;   // point 4 of rows 0 to 3
    SimdFloat8 m_corner;   // point 4 of row 4, in every lane
};

// Reports the hits of one ray with a flat cell, number i, j of 2^level each way; find_depths(t) says how far along the
// ray its corners are.
template <bool is_wide, class FindDepths>
inline void intersect_cell(const FlatCell& cell, unsigned int i, unsigned int j, unsigned int level,
                           const RaySpace& ray, RayHits& hits, const FindDepths& find_depths, unsigned int part = 0) {
    cell.intersect<is_wide>(ray.edge_slack, [&](double b1, double b2, bool upper, double det) {
        const float size = 1.0f / static_cast<float>(1u << level);
        const float u[2] = {static_cast<float>(i) * size, static_cast<float>(i + 1) * size};
        const float v[2] = {static_cast<float>(j) * size, static_cast<float>(j + 1) * size};
        double a = 0.0, b = 0.0;
        cell_place(b1, b2, upper, a, b);
        float t_at[4];
        find_depths(t_at);
        // Distances of the triangle's corners: c0, then second and third.
        const double t0 = static_cast<double>(t_at[0]), t1 = static_cast<double>(t_at[upper ? 2 : 1]);
        const double t2 = static_cast<double>(t_at[upper ? 3 : 2]);
        const double t = (1.0 - b1 - b2) * t0 + b1 * t1 + b2 * t2;
        add_hit(ray, hits, static_cast<float>(t), blend_range(a, u[0], u[1]), blend_range(b, v[0], v[1]), size,
                det <= 0.0, part);
    });
}

inline void intersect_window(const CellWindow& window, const SimdFloat8* rows, const float (*controls)[16],
                             const RaySpace& ray, RayHits& hits) {
    const CellCorners corners(window, rows);
    // Windows of coarse patches are smaller.
    constexpr unsigned int inside[] = {0x1, 0x33};
    unsigned int found = corners.find_origin(SimdFloat8(ray.edge_slack)) &
                         (window.level < window_level ? inside[window.level] : 0xffffu);
    if (found == 0) return;
    CellCorners::Stored stored;
    corners.store(stored);
    do {
        const unsigned int place = take_lowest_bit(found), x = place % 4, y = place / 4;
        const unsigned int i = window.i + x, j = window.j + y, level = window.level;
        intersect_cell<true>(stored.get_cell(x, y), i, j, level, ray, hits, [&](float* t) {
            DepthPatch(controls, ray)
                .evaluate_cell(get_cell_weights(i, level).w, get_cell_weights(i + 1, level).w,
                               get_cell_weights(j, level).w, get_cell_weights(j + 1, level).w, t);
        });
    } while (found != 0);
}

inline bool comes_near_origin(const SimdFloat8* rows, SimdFloat8 slack) {
    const SimdFloat8 low = group_min(min(min(rows[0], rows[1]), min(rows[2], rows[3])));
    const SimdFloat8 high = group_max(max(max(rows[0], rows[1]), max(rows[2], rows[3])));
    return (less_equal_mask(low, slack) & less_equal_mask(SimdFloat8(0.0f) - slack, high)) == 255;
}

// The patch in a frame of the plane in which its own directions stand across each other, up to scale: the boxes of its
// sub-patches then hold little but the sub-patches. `slack` is what a coordinate of theirs may be off: products of
// the frame and the points, and four dozen roundings of halves, each below 2^-24 of the largest product. Seen nearly
// edge-on, or not finite, the patch stays as it is.
struct SkewedPatch {
    SimdFloat8 rows[4];
    SimdFloat8 slack;

    SkewedPatch(const SimdFloat8* r, float edge_slack) {
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
        slack = products * SimdFloat8(0x1p-18f) +
                SimdFloat8(edge_slack) * (max(own, zero - own) + max(other, zero - other));
    }

    bool comes_near_origin() const { return sds::comes_near_origin(rows, slack); }
};

}  // namespace

}  // namespace sds
