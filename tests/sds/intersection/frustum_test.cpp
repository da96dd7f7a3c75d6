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

// Flat patches but for two: a bump whose corners are inside, and one with a point that is no number.
TEST_F(FrustumTest, KnownCases) {
    using Sides = std::vector<GeometryPlane>;
    constexpr double epsilon = 1.1920928955078125e-7;  // of single precision
    PatchControls flat = make_flat_patch(), bulging = flat, broken = flat;
    bulging[2] = {-5, 0, 0};
    broken[0][0] = std::numeric_limits<float>::quiet_NaN();
    const Sides window{{{1, 0, 0}, -0.45}, {{-1, 0, 0}, 0.55}, {{0, 1, 0}, -0.45}, {{0, -1, 0}, 0.55}};
    const auto above = [](double epsilons) { return Sides{{{0, 0, 1}, -epsilons * epsilon}}; };
    const struct {
        const char* name;
        Sides sides;
        const PatchControls& patch;
        int mode;
        unsigned int levels;
        unsigned char flag, marker;
        unsigned int count, flag_after;
    } cases[] = {
        {"the corners are on the plane", {{{1, 0, 0}, 0}}, flat, inside, 0, 0, 1, 1, 0},
        {"no corner is outside", {{{1, 0, 0}, 0}}, bulging, inside, 0, 0, 1, 1, 0},
        {"a corner of a cell is", {{{1, 0, 0}, 0}}, bulging, inside, 3, 0, 1, 0, 1},
        {"not a number", {{{1, 0, 0}, 10}}, broken, inside, 2, 0, 1, 0, 1},
        // Touching keeps the caller's flag; culled parts leave the marker, a corner outside leaves 1.
        {"behind a plane", {{{0, 0, 1}, -0.5}}, flat, touch, 0, 16, 32, 0, 16},
        {"behind a plane, cells", {{{0, 0, 1}, -0.5}}, flat, touch, 3, 16, 32, 0, 16},
        {"behind a plane, inside", {{{0, 0, 1}, -0.5}}, flat, inside, 0, 16, 32, 0, 17},
        {"behind a plane, cells inside", {{{0, 0, 1}, -0.5}}, flat, inside, 3, 16, 32, 0, 48},
        // The first cull ends the search as soon as a leaf has been seen, so it alone marks the flag.
        {"the far half is out", {{{-1, 0, 0}, 0.4375}}, flat, inside, 3, 0, 2, 0, 2},
        {"the frustum within a cell", window, flat, touch, 0, 0, 1, 1, 0},
        // The box test forgives a distance below the rounding of single precision, the corner test does not.
        {"half an epsilon", above(0.5), flat, inside, 3, 0, 2, 0, 1},
        {"one epsilon", above(1.0), flat, inside, 3, 0, 2, 0, 2},
        {"two epsilons", above(2.0), flat, inside, 3, 0, 2, 0, 2},
        {"everything touches", {}, flat, touch, 0, 4, 1, 1, 4},
        {"everything is inside", {}, flat, inside, 5, 4, 1, 1, 4},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        m_frustum = GeometryFrustum();
        for (GeometryPlane& side : m_frustum.sides) side = {{0, 0, 1}, -100.0};  // those not in use
        for (const GeometryPlane& side : each.sides) add_side(side.normal, side.offset);
        select(each.mode, each.patch, each.levels, each.flag, each.marker);
        EXPECT_EQ(m_count, each.count);
        EXPECT_EQ(m_flag, each.flag_after);
    }
    // The near plane forgives as the sides do, and hides what is behind it.
    m_frustum = GeometryFrustum();
    m_frustum.near_plane = above(0.5)[0];
    select(inside, flat, 3, 0, 2);
    EXPECT_EQ(m_flag, 1);
    m_frustum.near_plane = {{0, 0, 1}, -1.0};
    select(touch, flat, 0);
    EXPECT_EQ(m_count, 0u);
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

}  // namespace
