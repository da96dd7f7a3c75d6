// The sixteen control points of a patch (Loop and Schaefer 2008, section 3), for one patch of any value and precision
// or for several in lanes.
//
// A source gives what the patch is made of:
//   Value                    has + with itself and * with its weights
//   quad(k), corner(k)       vertex k of the quad and its limit point
//   neighbour(k, i)          the vertices across edge k: i = 0 beside the edge's start, 1 beside its end
//   is_sharp(k)              whether edge k joins nothing: then it has `sharp_shares`, and nothing across it is asked
//                            for. A source whose lanes differ has neither and leaves it to EdgeShares::join.
//   leaving(k), arriving(k)  the EdgeShares at corner k of the edge that leaves it and of the one that arrives
//   interior_weight(k), interior_reciprocal(k)
// Templates are all there is here, and their arguments have a type of the including source among them: kernel_set.h.
#pragma once

#include "sds/common/control_grid.h"

namespace sds {

// A corner known to the compiler, so that arrays over corners stay in registers.
template <unsigned int k>
struct CornerNumber {
    constexpr operator unsigned int() const { return k; }
};

// use(k) for the corners 0 to 3.
template <class Use>
[[gnu::always_inline]] inline void for_each_corner(const Use& use) {
    use(CornerNumber<0>());
    use(CornerNumber<1>());
    use(CornerNumber<2>());
    use(CornerNumber<3>());
}

// What the points of an edge count in the control point beside one of its ends: that end and the other one.
template <class Weight>
struct EdgeShares {
    Weight own, far;
    Weight reciprocal;  // of the sum of all weights

    template <class Value>
    Value sum_ends(const Value& own_end, const Value& far_end) const {
        return own_end * own + far_end * far;
    }
    // The ends' sum with what lies beside the edge: what is beside the control point counts twice.
    template <class Value>
    static Value add_sides(const Value& ends, const Value& near_side, const Value& far_side) {
        return (ends + (near_side + near_side)) + far_side;
    }
    template <class Value>
    Value join(const Value& ends, const Value& near_side, const Value& far_side) const {
        return add_sides(ends, near_side, far_side);
    }
};

// out(i) is the place of control i, in corner order. Each edge point's sums are formed in an order that does not depend
// on the side from which the edge is seen, so that two patches that share a smooth edge compute its points to the same
// bits.
template <class Source, class Out>
inline void smooth_controls(const Source& source, const Out& out) {
    using Value = typename Source::Value;
    const Value q[4] = {source.quad(0), source.quad(1), source.quad(2), source.quad(3)};

    const Value diagonals[2] = {q[1] + q[3], q[0] + q[2]};
    const Value across[2] = {diagonals[0] + diagonals[0], diagonals[1] + diagonals[1]};
    for_each_corner([&](auto k) __attribute__((always_inline)) {
        out(4 * k + 2) =
            ((across[k & 1u] + q[k] * source.interior_weight(k)) + q[(k + 2) & 3u]) * source.interior_reciprocal(k);
    });
    for_each_corner([&](auto k) __attribute__((always_inline)) {
        constexpr unsigned int next = (k + 1) & 3u;
        Value& start = out(4 * k + 1);
        Value& end = out(4 * next + 3);
        if constexpr (requires { Source::sharp_shares; })
            if (source.is_sharp(k)) {
                constexpr auto shares = Source::sharp_shares;
                start = shares.sum_ends(q[k], q[next]) * shares.reciprocal;
                end = shares.sum_ends(q[next], q[k]) * shares.reciprocal;
                return;
            }
        const auto leaving = source.leaving(k);
        const auto arriving = source.arriving(next);
        const Value beside_start = source.neighbour(k, 0) + q[(k + 3) & 3u];
        const Value beside_end = source.neighbour(k, 1) + q[(k + 2) & 3u];
        start = leaving.join(leaving.sum_ends(q[k], q[next]), beside_start, beside_end) * leaving.reciprocal;
        end = arriving.join(arriving.sum_ends(q[next], q[k]), beside_end, beside_start) * arriving.reciprocal;
    });
    for_each_corner([&](auto k) __attribute__((always_inline)) { out(4 * k) = source.corner(k); });
}

// A bilinear patch as a bicubic one, from the quad's vertices. at(row, column) is a place of the control grid.
template <class Value, class Weight, class At>
inline void fill_linear_grid(const Value (&q)[4], const Weight& one_third, const Weight& two_thirds, const At& at) {
    const auto between = [&](const Value& near_end, const Value& far_end) {
        return near_end * two_thirds + far_end * one_third;
    };
    const Value bottom[4] = {q[0], between(q[0], q[1]), between(q[1], q[0]), q[1]};
    const Value top[4] = {q[3], between(q[3], q[2]), between(q[2], q[3]), q[2]};
    for_each_corner([&](auto column) __attribute__((always_inline)) {
        at(0, column) = bottom[column];
        at(1, column) = between(bottom[column], top[column]);
        at(2, column) = between(top[column], bottom[column]);
        at(3, column) = top[column];
    });
}

}  // namespace sds
