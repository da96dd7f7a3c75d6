#include <gtest/gtest.h>

#include <cmath>

#include "../surface_checks.h"
#include "oracles/surface_errors.h"
#include "qn_ctx/ctx_eval.h"
#include "sds/common/cubic_basis.h"

namespace {

using namespace sds_test;
using Mode = SdsMeshGeometry::InterpolationMode;

const CtxShader shader;
const CtxEval ctx(shader);

void expect_unit_normals(const GeometrySample& sample) {
    EXPECT_NEAR(sample.get_geometric_normal().length(), 1.0, 1e-9);
    EXPECT_NEAR(sample.get_smoothing_normal().length(), 1.0, 1e-9);
    for (const Vec3d& v : {sample.get_geometric_position(), sample.get_geometric_dpdu(), sample.get_geometric_dpdv(),
                           sample.get_geometric_dndu(), sample.get_geometric_dndv(), sample.get_smoothing_dndu(),
                           sample.get_smoothing_dndv(), sample.get_d2pduu(), sample.get_d2pduv(), sample.get_d2pdvv()})
        EXPECT_TRUE(v.is_finite());
}

constexpr double places[] = {0.0, 0.13, 0.5, 0.77, 1.0};

// The patch point in double precision.
Vec3d point_at(const SdsMeshGeometry& geometry, unsigned int q, double u, double v) {
    Vec3f controls[16];
    geometry.get_bezier_controls(q, controls);
    Vec3d wide[16];
    for (unsigned int i = 0; i < 16; ++i) wide[i] = Vec3d(controls[i]);
    return sds::evaluate_patch(wide, sds::CubicBasis<double>(u), sds::CubicBasis<double>(v));
}

// Where the nets are the differences of the controls, second derivatives are those of the position.
TEST(FragmentSample, RegularSecondDerivativesMatchDifferences) {
    const BuiltSurface surface(zoo_mesh("torus"));
    constexpr double h = 1e-4, scale = 1 / h / h;
    for (unsigned int q = 0; q < surface.get_quad_count(); q += 5)
        for (const double u : {0.2, 0.5, 0.9})
            for (const double v : {0.1, 0.6}) {
                const GeometrySample s = sample_at(surface.geometry, q, u, v);
                const auto p = [&](double i, double j) { return point_at(surface.geometry, q, u + i * h, v + j * h); };
                expect_near(s.get_d2pduu(), (p(1, 0) + p(-1, 0) - p(0, 0) * 2.0) * scale, 1e-5);
                expect_near(s.get_d2pdvv(), (p(0, 1) + p(0, -1) - p(0, 0) * 2.0) * scale, 1e-5);
                expect_near(s.get_d2pduv(), (p(1, 1) - p(1, -1) - p(-1, 1) + p(-1, -1)) * (0.25 * scale), 1e-5);
            }
}

TEST(FragmentSample, PrimitiveBeyondTheLastIsUntouched) {
    const BuiltSurface surface(zoo_mesh("cube"));
    GeometrySample sample;
    sample.init_surface({1, 2, 3}, {1, 0, 0}, {0, 0, 1}, {0, 0, 0}, {0, 0, 0}, {0, 0, 0});
    for (const unsigned int q : {surface.get_quad_count(), 0xFFFFFFFFu}) {
        surface.geometry.compute_fragment_sample(ctx, {q, 0.5, 0.5, 0.0, 1.0}, sample);
        EXPECT_EQ(sample.get_geometric_position(), Vec3d(1, 2, 3));
        EXPECT_EQ(sample.get_geometric_normal(), Vec3d(0, -1, 0));
    }
}

TEST(EdgeSample, LiesOnTheEdgeInBothDirections) {
    const BuiltSurface surface(zoo_mesh("prism5_crease_loop"));
    constexpr double ends[4][4] = {{0, 0, 1, 0}, {1, 0, 1, 1}, {1, 1, 0, 1}, {0, 1, 0, 0}};
    for (unsigned int q = 0; q < surface.get_quad_count(); q += 3)
        for (unsigned int k = 0; k < 4; ++k)
            for (const double t : places) {
                const double* e = ends[k];
                const GeometrySample expected =
                    sample_at(surface.geometry, q, e[0] + (e[2] - e[0]) * t, e[1] + (e[3] - e[1]) * t);
                GeometrySample along, back;
                surface.geometry.compute_edge_sample(q, k, t, false, along);
                surface.geometry.compute_edge_sample(q, k, 1.0 - t, true, back);
                expect_near(along.get_geometric_position(), expected.get_geometric_position(), 1e-6);
                expect_near(back.get_geometric_position(), expected.get_geometric_position(), 1e-6);
                expect_near(along.get_smoothing_normal(), expected.get_smoothing_normal(), 1e-5);
            }
}

Vec3f turned(double x, double y) {
    // A plane that no axis lies in, so that nothing cancels to zero by luck.
    const Vec3d a(0.6123, 0.2871, -0.7366), b(-0.4459, 0.8950, -0.0218);
    return Vec3f(a * x + b * y + Vec3d(0.331, -0.127, 0.943));
}

// Never NaN, and the plane's own where the quad lies in one.
TEST(DegenerateNormals, OfOneQuad) {
    const Vec3d plane = (Vec3d(turned(1, 0)) - Vec3d(turned(0, 0))).cross(Vec3d(turned(0, 1)) - Vec3d(turned(0, 0)));
    const Vec3d normal = plane * (1.0 / plane.length());
    const struct {
        const char* name;
        std::vector<Vec3f> corners;
        bool has_plane;
    } quads[] = {
        {"one point", {{1, 2, 3}, {1, 2, 3}, {1, 2, 3}, {1, 2, 3}}, false},
        {"segment", {{0, 0, 0}, {1, 0, 0}, {1, 0, 0}, {0, 0, 0}}, false},
        {"collinear", {{0, 0, 0}, {1, 1, 1}, {2, 2, 2}, {3, 3, 3}}, false},
        {"bow tie", {turned(0, 0), turned(1, 0), turned(0, 1), turned(1, 1)}, false},
        {"tiny", {{0, 0, 0}, {1e-30f, 0, 0}, {1e-30f, 1e-30f, 0}, {0, 1e-30f, 0}}, false},
        {"thin", {turned(0, 0), turned(1, 0), turned(1, 1e-6), turned(0, 1e-6)}, false},
        {"far away", {{1e6f, 1e6f, 0}, {1e6f + 1, 1e6f, 0}, {1e6f + 1, 1e6f + 1, 0}, {1e6f, 1e6f + 1, 0}}, false},
        {"huge", {{0, 0, 0}, {1e18f, 0, 0}, {1e18f, 1e18f, 0}, {0, 1e18f, 0}}, false},
        {"plain", {turned(0, 0), turned(1, 0), turned(1, 1), turned(0, 1)}, true},
        {"collapsed edge", {turned(0, 0), turned(1, 0), turned(1, 1), turned(0, 0)}, true},
        {"straight corner", {turned(0, 0), turned(0.7, -0.7), turned(1.3, 1.1), turned(-0.9, 0.9)}, true},
        {"another straight corner", {turned(0, 0), turned(1.7, -0.3), turned(1.3, 1.1), turned(-1.7, 0.3)}, true},
    };
    for (const auto& quad : quads)
        for (const Mode mode : {Mode::all_fixed, Mode::corners_fixed, Mode::all_smoothed}) {
            SCOPED_TRACE(testing::Message() << quad.name << " mode " << static_cast<unsigned int>(mode));
            const BuiltSurface surface(make_cage({4}, {0, 1, 2, 3}, quad.corners), {.mode = mode});
            for (const double u : places)
                for (const double v : places) {
                    const GeometrySample sample = sample_at(surface.geometry, 0, u, v);
                    expect_unit_normals(sample);
                    if (!quad.has_plane) continue;
                    EXPECT_GT(sample.get_geometric_normal().dot(normal), 0.999) << "at " << u << ", " << v;
                    EXPECT_GT(sample.get_smoothing_normal().dot(normal), 0.999) << "at " << u << ", " << v;
                }
        }
}

}  // namespace
