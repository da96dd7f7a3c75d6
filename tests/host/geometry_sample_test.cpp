#include "qn_geometry/geometry_sample.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using Vec = GMathVec3<double>;

void expect_near(const Vec& a, const Vec& b, double tolerance) {
    for (unsigned int i = 0; i < 3; ++i) EXPECT_NEAR(a[i], b[i], tolerance) << i;
}

// On a sphere of radius r the normal is the position over r, and so are its derivatives.
TEST(GeometrySample, NormalDerivativesOfASphere) {
    const double r = 3.0;
    for (const double u : {0.2, 1.3, 2.9})
        for (const double v : {-1.2, 0.0, 0.7}) {
            const double cu = std::cos(u), su = std::sin(u), cv = std::cos(v), sv = std::sin(v);
            const Vec p = Vec(cu * cv, su * cv, sv) * r;
            const Vec pu = Vec(-su * cv, cu * cv, 0) * r, pv = Vec(-cu * sv, -su * sv, cv) * r;
            GeometrySample sample;
            sample.init_surface(p, pu, pv, Vec(-cu * cv, -su * cv, 0) * r, Vec(su * sv, -cu * sv, 0) * r, p * -1.0);
            expect_near(sample.get_geometric_normal(), p * (1.0 / r), 1e-14);
            expect_near(sample.get_geometric_dndu(), pu * (1.0 / r), 1e-14);
            expect_near(sample.get_geometric_dndv(), pv * (1.0 / r), 1e-14);
            expect_near(sample.get_smoothing_dndv(), pv * (1.0 / r), 1e-14);
        }
}

TEST(GeometrySample, DegenerateDerivativesGiveTheFallbackAndNeverNan) {
    const Vec zero(0, 0, 0), x(1, 0, 0), huge(1e200, 0, 0);
    for (const auto& [du, dv] : {std::pair{zero, zero}, {x, zero}, {x, x * -2.0}, {huge, Vec(0, 1e200, 0)}}) {
        GeometrySample sample;
        sample.set_fallback_normal({0, -5, 0});
        sample.init_surface(zero, du, dv, x, x, x);
        EXPECT_EQ(sample.get_geometric_normal(), Vec(0, -1, 0));
        EXPECT_EQ(sample.get_geometric_dndu(), zero);
        EXPECT_EQ(sample.get_smoothing_normal(), Vec(0, -1, 0));
        sample.set_fallback_normal(zero);
        sample.init_surface(zero, du, dv, x, x, x);
        EXPECT_EQ(sample.get_geometric_normal(), Vec(0, 0, 1));
    }
}

TEST(GeometrySample, InitForgetsTheFormerMotion) {
    GeometrySample sample;
    sample.init_surface({0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 0}, {0, 0, 0}, {0, 0, 0});
    EXPECT_FALSE(sample.has_position_dt());
    sample.set_geometric_position_dt({1, 2, 3});
    EXPECT_TRUE(sample.has_position_dt());
    sample.init_surface({0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 0}, {0, 0, 0}, {0, 0, 0});
    EXPECT_FALSE(sample.has_position_dt());
}

}  // namespace
