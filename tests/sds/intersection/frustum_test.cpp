#include <gmock/gmock.h>

#include <limits>

#include "one_patch.h"
#include "qn_geometry/geometry_frustum_ctx.h"
#include "support/recorders.h"

namespace {

using namespace sds_test;

constexpr int touch = 0;
constexpr int inside = 1;

class FrustumTest : public testing::Test {
protected:
    void add_side(Vec3d normal, double offset) { m_frustum.sides[m_frustum.side_count++] = {normal, offset}; }

    // Runs one selection from a counter of 10 and the given flag; leaves the outcome in m_count and m_flag.
    void select(const int& mode, const PatchControls& controls, unsigned int levels, unsigned char flag = 0,
                unsigned char marker = 1) {
        GeometryFrustumCtx ctx(&mode, &m_frustum);
        ctx.selected_count = 10;
        ctx.partial_flag = flag;
        ctx.cull_marker = marker;
        frustum_bezier_intersection(m_ctx, 0, controls.data(), ctx, levels);
        m_count = ctx.selected_count - 10;
        m_flag = ctx.partial_flag;
        EXPECT_EQ(ctx.cull_marker, marker);
    }

    GeometryFrustum m_frustum;
    CtxShader m_shader;
    CtxThread m_thread;
    CtxEval m_ctx{m_shader, &m_thread};
    unsigned int m_count = 0;
    unsigned char m_flag = 0;
};

TEST_F(FrustumTest, CountZeroTestsTheFourCorners) {
    add_side({1, 0, 0}, 0.0);  // x >= 0: the corners are on it
    select(inside, make_flat_patch(), 0);
    EXPECT_EQ(m_count, 1u);
    PatchControls bulging = make_flat_patch();
    bulging[2] = {-5, 0, 0};  // outside, but no corner
    select(inside, bulging, 0);
    EXPECT_EQ(m_count, 1u);
    select(inside, bulging, 3);
    EXPECT_EQ(m_count, 0u);
    EXPECT_EQ(m_flag, 1);
}

// Against the definition, cell by cell, for patches and planes at random.
TEST_F(FrustumTest, InsideMeansEveryCornerOfEveryCell) {
    unsigned int selected = 0;
    for (unsigned int seed = 0; seed < 400; ++seed) {
        std::mt19937 random(seed);
        std::uniform_real_distribution<double> uniform(-1.0, 1.0);
        const PatchControls controls = make_random_patch(seed, 0.4f);
        m_frustum = GeometryFrustum();
        for (unsigned int i = 0; i < seed % 5; ++i)
            add_side({uniform(random), uniform(random), uniform(random)}, 1.0 + 0.4 * uniform(random));
        m_frustum.near_plane = {{0, 0, 1}, 0.5 + 0.4 * uniform(random)};
        m_frustum.far_plane = {{0, 0, -1}, 0.5 + 0.4 * uniform(random)};
        const RayOracle oracle({controls}, RayOracle::limit_surface);
        double least = std::numeric_limits<double>::infinity(), most = -least;
        for (unsigned int i = 0; i <= 8; ++i)
            for (unsigned int j = 0; j <= 8; ++j) {
                const Vec3d p = oracle.limit_point(0, i / 8.0, j / 8.0);
                double worst = std::min(m_frustum.near_plane.get_distance(p), m_frustum.far_plane.get_distance(p));
                for (unsigned int s = 0; s < m_frustum.side_count; ++s)
                    worst = std::min(worst, m_frustum.sides[s].get_distance(p));
                least = std::min(least, worst);
                most = std::max(most, worst);
            }
        if (std::abs(least) < 1e-5 || std::abs(most) < 1e-5) continue;  // single precision decides
        select(inside, controls, 3);
        EXPECT_EQ(m_count, least > 0 ? 1u : 0u) << seed;
        EXPECT_EQ(m_flag, least > 0 ? 0 : 1) << seed;
        selected += m_count;
        select(touch, controls, 3, 2);
        if (most > 0) {
            EXPECT_EQ(m_count, 1u) << seed;
        }
        EXPECT_EQ(m_flag, 2) << seed;
    }
    EXPECT_GT(selected, 20u);
    EXPECT_LT(selected, 380u);
}

TEST_F(FrustumTest, BehindOnePlaneIsNeverTouched) {
    add_side({0, 0, 1}, -0.5);
    for (const unsigned int levels : {0u, 3u}) {
        select(touch, make_flat_patch(), levels, 16, 32);
        EXPECT_EQ(m_count, 0u);
        EXPECT_EQ(m_flag, 16);  // touching keeps the caller's flag
        select(inside, make_flat_patch(), levels, 16, 32);
        EXPECT_EQ(m_count, 0u);
        // Culled parts leave the marker, a corner outside leaves 1.
        EXPECT_EQ(m_flag, levels == 0 ? 17 : 48);
    }
}

// The first cull ends the search as soon as a leaf has been seen, so it alone marks the flag.
TEST_F(FrustumTest, EitherCulledHalfLeavesTheMarker) {
    add_side({-1, 0, 0}, 0.4375);  // the far half of the first split is out
    select(inside, make_flat_patch(), 3, 0, 2);
    EXPECT_EQ(m_count, 0u);
    EXPECT_EQ(m_flag, 2);
    m_frustum.sides[0] = {{1, 0, 0}, -0.5625};  // the near half
    select(inside, make_flat_patch(), 3, 0, 2);
    EXPECT_EQ(m_count, 0u);
    EXPECT_NE(m_flag, 0);
}

// A cell larger than the frustum touches it though none of its corners is in it.
TEST_F(FrustumTest, CellAroundTheFrustumTouches) {
    add_side({1, 0, 0}, -0.45);
    add_side({-1, 0, 0}, 0.55);
    add_side({0, 1, 0}, -0.45);
    add_side({0, -1, 0}, 0.55);
    select(touch, make_flat_patch(), 0);
    EXPECT_EQ(m_count, 1u);
    m_frustum.near_plane = {{0, 0, 1}, -1.0};
    select(touch, make_flat_patch(), 0);
    EXPECT_EQ(m_count, 0u);
}

// The box test forgives a distance below the rounding of single precision, the corner test does not.
TEST_F(FrustumTest, BoxTestForgivesOneEpsilon) {
    const double epsilon = static_cast<double>(std::numeric_limits<float>::epsilon());
    add_side({0, 0, 1}, 0.0);
    // Not culled, the corner of a leaf fails and leaves 1; on the limit counts as outside.
    for (const auto& [epsilons, flag] : {std::pair(0.5, 1), {1.0, 2}, {2.0, 2}}) {
        m_frustum.sides[0].offset = -epsilons * epsilon;
        select(inside, make_flat_patch(), 3, 0, 2);
        EXPECT_EQ(m_flag, flag) << epsilons;
    }
    m_frustum.near_plane = m_frustum.sides[0];
    m_frustum.near_plane.offset = -0.5 * epsilon;
    m_frustum.side_count = 0;
    select(inside, make_flat_patch(), 3, 0, 2);
    EXPECT_EQ(m_flag, 1);
}

TEST_F(FrustumTest, WithoutPlanesEverythingIsInside) {
    for (GeometryPlane& side : m_frustum.sides) side = {{0, 0, 1}, -100.0};  // none of them in use
    for (const unsigned int levels : {0u, 1u, 3u, 5u})
        for (const int mode : {touch, inside}) {
            select(mode, make_flat_patch(), levels, 4);
            EXPECT_EQ(m_count, 1u) << levels;
            EXPECT_EQ(m_flag, 4) << levels;
        }
}

// Each level keeps one more pending node, so the pool of 128 gives out beyond 126 halvings.
TEST_F(FrustumTest, ExhaustedPoolMakesCoarserLeavesAndSaysSo) {
    const LogCapture::Line line{
        2, "sds.ray_bezier_intersection_estimate: 1 intersections skipped because of stack overflows\n"};
    LogCapture log(2);
    select(touch, make_flat_patch(), 62);
    EXPECT_TRUE(log.lines.empty());
    {
        LogCapture silent(1);
        select(touch, make_flat_patch(), 70);
        EXPECT_EQ(m_count, 1u);
        EXPECT_TRUE(silent.lines.empty());
    }
    // The first of the coarse leaves fails a plane that its box passed.
    add_side({0, 0, 1}, -0.5 * static_cast<double>(std::numeric_limits<float>::epsilon()));
    select(inside, make_flat_patch(), 70, 0, 2);
    EXPECT_EQ(m_count, 0u);
    EXPECT_EQ(m_flag, 1);
    EXPECT_THAT(log.lines, testing::ElementsAre(line));
}

TEST_F(FrustumTest, WithoutScratchOrFrustumNothingHappens) {
    const PatchControls controls = make_flat_patch();
    for (const int mode : {touch, inside})
        for (const bool has_scratch : {false, true}) {
            GeometryFrustumCtx ctx(&mode, has_scratch ? nullptr : &m_frustum);
            ctx.selected_count = 5;
            ctx.partial_flag = 3;
            frustum_bezier_intersection(has_scratch ? m_ctx : CtxEval(m_shader), 0, controls.data(), ctx, 3);
            EXPECT_EQ(ctx.selected_count, 5u);
            EXPECT_EQ(ctx.partial_flag, 3);
        }
}

TEST_F(FrustumTest, NanPointsDoNotSelectInside) {
    PatchControls controls = make_flat_patch();
    controls[0][0] = std::numeric_limits<float>::quiet_NaN();
    add_side({1, 0, 0}, 10.0);
    select(inside, controls, 2);
    EXPECT_EQ(m_count, 0u);
    EXPECT_EQ(m_flag, 1);
}

}  // namespace
