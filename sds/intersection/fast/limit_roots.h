// Where the limit surface of a sub-patch meets the ray. For the kernels of one instruction set.
#pragma once

#include "sds/common/cubic_basis.h"
#include "sds/intersection/fast/plane_patch.h"

namespace sds {

namespace {

constexpr unsigned int max_newton_steps = 8;
constexpr unsigned int max_graze_steps = 12;
// A root this far outside its sub-patch, in the sub-patch's own coordinates, still counts as inside. Interval tests
// leave room for a few of it.
constexpr float root_slack = 1e-6f;
constexpr float newton_convergence = 1e-5f;

inline float least(float a, float b) { return a < b ? a : b; }
inline float greatest(float a, float b) { return a > b ? a : b; }

// Value and derivatives of a node's plane patch at (s along the lanes, t along the rows), in the node's own
// coordinates.
struct PlaneJet {
    float p, q, p_s, q_s, p_t, q_t;
};

inline PlaneJet evaluate_plane(const SimdFloat8* r, float s, float t) {
    const CubicBasis<float> along_s(s), along_t(t);
    const float *ws = along_s.b, *wt = along_t.b;
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

    // True when the square of an injective node holds no root, `center` being the image of its middle: by Cramer's
    // rule a root lies at -(p * d.q - q * d.p) / (3 det) and -(q * e.p - p * e.q) / (3 det) from the middle for some
    // members of the nets (interval Newton; Moore, Methods and Applications of Interval Analysis, 1979), and 1/2 is the
    // farthest in the square. The reach is taken a little larger for the rounding of all this.
    bool excludes_root(float p, float q) const { return excludes_root(p, q, 0.0f, 0.0f); }
    // The same for roots within `slack` of the origin.
    bool excludes_root_near(float p, float q, float slack) const {
        return excludes_root(p, q, slack * (largest(d_min[4], d_max[4]) + largest(d_min[0], d_max[0])),
                             slack * (largest(e_min[4], e_max[4]) + largest(e_min[0], e_max[0])));
    }

private:
    static float largest(float low, float high) { return greatest(-low, high); }
    bool excludes_root(float p, float q, float more_d, float more_e) const {
        const float reach = 1.5001f * greatest(det_max, -det_min);
        return is_beyond(p, d_min[4], d_max[4], q, d_min[0], d_max[0], reach + more_d) ||
               is_beyond(q, e_min[0], e_max[0], p, e_min[4], e_max[4], reach + more_e);
    }
    // All of x * [a_min, a_max] - y * [b_min, b_max] above `reach` or below -`reach`.
    static bool is_beyond(float x, float a_min, float a_max, float y, float b_min, float b_max, float reach) {
        const float a0 = x * a_min, a1 = x * a_max, b0 = y * b_min, b1 = y * b_max;
        return least(a0, a1) - greatest(b0, b1) > reach || greatest(a0, a1) - least(b0, b1) < -reach;
    }
};

// The place of the node's root by Newton's iteration from its center, where the jet is `jet`; false when it does not
// converge inside the node, or as near to it as `outside` in its coordinates and `slack` in the plane.
template <bool is_wide>
inline bool find_root(const SimdFloat8* rows, PlaneJet jet, float outside, float slack, float& s, float& t,
                      float& det) {
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
        if (step <= newton_convergence) {
            float slack_s = outside, slack_t = outside;
            if constexpr (is_wide) {
                const float share = slack * (inverse < 0.0f ? -inverse : inverse);
                slack_s += share * (greatest(-jet.p_t, jet.p_t) + greatest(-jet.q_t, jet.q_t));
                slack_t += share * (greatest(-jet.p_s, jet.p_s) + greatest(-jet.q_s, jet.q_s));
            }
            return s >= -slack_s && s <= 1.0f + slack_s && t >= -slack_t && t <= 1.0f + slack_t;
        }
    }
    return false;
}

// The place where a part without a root comes nearest to the origin, by the damped Gauss-Newton iteration (Levenberg
// 1944) from the middle; false when that is farther than `reach` away.
inline bool find_graze(const SimdFloat8* rows, float reach, float& s, float& t) {
    constexpr float damping = 1e-6f;
    float place_s = 0.5f, place_t = 0.5f, least_square = reach * reach;
    bool found = false;
    for (unsigned int i = 0; i <= max_graze_steps; ++i) {
        const PlaneJet jet = evaluate_plane(rows, place_s, place_t);
        const float square = jet.p * jet.p + jet.q * jet.q;
        if (square <= least_square) {
            least_square = square;
            s = place_s, t = place_t;
            found = true;
        } else if (found) {
            break;
        }
        const float ss = jet.p_s * jet.p_s + jet.q_s * jet.q_s, tt = jet.p_t * jet.p_t + jet.q_t * jet.q_t;
        const float st = jet.p_s * jet.p_t + jet.q_s * jet.q_t, more = damping * (ss + tt);
        const float gs = jet.p_s * jet.p + jet.q_s * jet.q, gt = jet.p_t * jet.p + jet.q_t * jet.q;
        const float det = (ss + more) * (tt + more) - st * st;
        if (!(det > 0.0f)) break;
        place_s = least(greatest(place_s - (gs * (tt + more) - gt * st) / det, 0.0f), 1.0f);
        place_t = least(greatest(place_t - (gt * (ss + more) - gs * st) / det, 0.0f), 1.0f);
    }
    return found;
}

}  // namespace

}  // namespace sds
