// The decisions about a plane patch's root against intervals from brute force, roots that are put where they lie, and
// aligned patches, of which the answers are closed forms.
#include "sds/intersection/fast/limit_roots.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <vector>

namespace {

using namespace QN_SIMD_NAMESPACE;
using sds::SlopeBounds;

// Control points [row][lane], p and q.
struct PlaneNet {
    std::array<std::array<float, 4>, 4> p, q;

    std::array<SimdFloat8, 4> get_rows() const {
        return {SimdFloat8(p[0].data(), q[0].data()), SimdFloat8(p[1].data(), q[1].data()),
                SimdFloat8(p[2].data(), q[2].data()), SimdFloat8(p[3].data(), q[3].data())};
    }
};

// The map (s, t) -> (p_s s + p_t t, q_s s + q_t t), bent by `noise`, that sends `root` to the origin.
PlaneNet make_net(const std::array<double, 4>& slopes, double s, double t, double noise, std::mt19937& random) {
    std::uniform_real_distribution<double> bend(-noise, noise);
    PlaneNet net;
    double p = 0.0, q = 0.0;
    const auto weight = [](int i, double x) {
        return std::array{1.0, 3.0, 3.0, 1.0}[static_cast<size_t>(i)] * std::pow(x, i) * std::pow(1.0 - x, 3 - i);
    };
    double at[4][4][2];
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            at[i][j][0] = slopes[0] * j / 3.0 + slopes[1] * i / 3.0 + bend(random);
            at[i][j][1] = slopes[2] * j / 3.0 + slopes[3] * i / 3.0 + bend(random);
            p += at[i][j][0] * weight(j, s) * weight(i, t);
            q += at[i][j][1] * weight(j, s) * weight(i, t);
        }
    for (size_t i = 0; i < 4; ++i)
        for (size_t j = 0; j < 4; ++j) {
            net.p[i][j] = static_cast<float>(at[i][j][0] - p);
            net.q[i][j] = static_cast<float>(at[i][j][1] - q);
        }
    return net;
}

struct Interval {
    double low = HUGE_VAL, high = -HUGE_VAL;
    void add(double x) { low = std::min(low, x), high = std::max(high, x); }
};

Interval multiply(const Interval& a, const Interval& b) {
    Interval out;
    for (const double x : {a.low, a.high})
        for (const double y : {b.low, b.high}) out.add(x * y);
    return out;
}

TEST(LimitRoots, SlopesAndTheirDeterminantsAreBoundedTightly) {
    std::mt19937 random(1);
    std::uniform_real_distribution<double> slope(-2.0, 2.0);
    for (unsigned int round = 0; round < 500; ++round) {
        const PlaneNet net =
            make_net({slope(random), slope(random), slope(random), slope(random)}, 0.5, 0.5, 0.3, random);
        Interval dp, dq, ep, eq;
        for (size_t i = 0; i < 4; ++i)
            for (size_t j = 0; j < 3; ++j) {
                dp.add(net.p[j + 1][i] - net.p[j][i]), dq.add(net.q[j + 1][i] - net.q[j][i]);
                ep.add(net.p[i][j + 1] - net.p[i][j]), eq.add(net.q[i][j + 1] - net.q[i][j]);
            }
        const SlopeBounds bounds(net.get_rows().data());
        const std::array expected{dp.low, dp.high, dq.low, dq.high, ep.low, ep.high, eq.low, eq.high};
        const std::array<double, 8> found{bounds.d_min[0], bounds.d_max[0], bounds.d_min[4], bounds.d_max[4],
                                          bounds.e_min[0], bounds.e_max[0], bounds.e_min[4], bounds.e_max[4]};
        for (size_t k = 0; k < 8; ++k) EXPECT_NEAR(found[k], expected[k], 1e-6) << round << " " << k;
        const Interval positive = multiply(ep, dq), negative = multiply(dp, eq);
        EXPECT_NEAR(bounds.det_min, positive.low - negative.high, 1e-6) << round;
        EXPECT_NEAR(bounds.det_max, positive.high - negative.low, 1e-6) << round;
    }
}

TEST(LimitRoots, AreFoundWhereTheyLie) {
    std::mt19937 random(2);
    std::uniform_real_distribution<double> angle(0.0, 6.3), inside(0.0, 1.0), place(-0.5, 1.5);
    unsigned int inside_count = 0, excluded_count = 0;
    for (unsigned int round = 0; round < 2000; ++round) {
        const bool is_inside = round % 2 == 0;
        auto& along = is_inside ? inside : place;
        const double s = along(random), t = along(random);
        if (!is_inside && std::max(std::fabs(s - 0.5), std::fabs(t - 0.5)) < 0.505) continue;
        const double turn = angle(random), mirror = round % 4 < 2 ? 1.0 : -1.0;
        const PlaneNet net =
            make_net({std::cos(turn), -mirror * std::sin(turn), std::sin(turn), mirror * std::cos(turn)}, s, t,
                     is_inside ? 0.05 : 0.01, random);
        const auto rows = net.get_rows();
        const SlopeBounds bounds(rows.data());
        if (!bounds.is_injective()) continue;
        const sds::PlaneJet center = sds::evaluate_plane(rows.data(), 0.5f, 0.5f);
        const bool is_excluded = bounds.excludes_root(center.p, center.q);
        float found_s = 0, found_t = 0, det = 0;
        const bool is_found = sds::find_root<false>(rows.data(), center, sds::root_slack, 0.0f, found_s, found_t, det);
        if (!is_inside) {
            EXPECT_FALSE(is_found) << s << " " << t;
            excluded_count += is_excluded ? 1 : 0;
            continue;
        }
        ++inside_count;
        EXPECT_FALSE(is_excluded) << s << " " << t;
        ASSERT_TRUE(is_found) << s << " " << t;
        EXPECT_NEAR(found_s, s, 1e-4);
        EXPECT_NEAR(found_t, t, 1e-4);
        EXPECT_TRUE(bounds.det_min <= det / 9 + 1e-5f && det / 9 <= bounds.det_max + 1e-5f) << det;
    }
    EXPECT_GT(inside_count, 200u);
    EXPECT_GT(excluded_count, 200u);
}

// Of an aligned patch the slack is a length beside each of its sides.
TEST(LimitRoots, BesideASideCountAsFarAsTheSlackReaches) {
    constexpr float slack = 0.01f;
    std::mt19937 random(3);
    for (const auto& slopes : {std::array{0.7, 0.0, 0.0, 0.3}, {0.0, 0.3, -0.7, 0.0}, {-2.0, 0.0, 0.0, 0.9}})
        for (const bool crosses_s : {false, true})
            for (const bool is_high : {false, true})
                for (const double share : {0.9, 1.1}) {
                    const double size = crosses_s ? std::hypot(slopes[0], slopes[2]) : std::hypot(slopes[1], slopes[3]);
                    const double beside = share * double{slack} / size;
                    const double across = is_high ? 1.0 + beside : -beside;
                    const PlaneNet net =
                        make_net(slopes, crosses_s ? across : 0.3, crosses_s ? 0.3 : across, 0.0, random);
                    const auto rows = net.get_rows();
                    const SlopeBounds bounds(rows.data());
                    ASSERT_TRUE(bounds.is_injective());
                    const sds::PlaneJet center = sds::evaluate_plane(rows.data(), 0.5f, 0.5f);
                    float s = 0, t = 0, det = 0;
                    EXPECT_EQ(sds::find_root<true>(rows.data(), center, 0.0f, slack, s, t, det), share < 1.0);
                    EXPECT_FALSE(sds::find_root<false>(rows.data(), center, 0.0f, slack, s, t, det));
                    EXPECT_EQ(bounds.excludes_root_near(center.p, center.q, slack), share > 1.0);
                    EXPECT_TRUE(bounds.excludes_root(center.p, center.q));
                }
}

}  // namespace
