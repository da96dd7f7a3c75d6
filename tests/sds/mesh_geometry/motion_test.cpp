// Surfaces that move: one place for rays and samples, its velocity, and the normals that go with it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "../surface_checks.h"
#include "oracles/moving_surface.h"
#include "oracles/surface_errors.h"
#include "qn_ctx/ctx_eval.h"

namespace {

using namespace sds_test;
using LoaderPointer = CoreSharedPointer<SdsMeshGeometry::SampleLoader, CoreSharedCounter>;
using Poses = std::vector<std::vector<Vec3f>>;

CtxShader make_shader(const std::vector<double>& times) {
    CtxShader shader;
    shader.get_motion_blur().set_time_sampling(GMathTimeSampling(to_core_array(times)));
    return shader;
}

struct PoseLoader : SdsMeshGeometry::SampleLoader {
    Poses poses;
    explicit PoseLoader(Poses p) : poses(std::move(p)) {}
    void get_positions(const GMathTimeSampling&, const unsigned int& sample, Vec3f* out) override {
        std::ranges::copy(poses[sample], out);
    }
};

// A path of one cage: poses at times, straight between them, still before and after.
struct Path {
    std::vector<double> times;
    Poses poses;

    void install(BuiltSurface& surface) const {
        surface.geometry.set_positions_sampling(GMathTimeSampling(to_core_array(times)),
                                                LoaderPointer(new PoseLoader(poses)));
    }
    std::vector<Vec3f> at(double time) const {
        size_t i = 0;
        while (i + 2 < times.size() && time > times[i + 1]) ++i;
        const double f = std::clamp((time - times[i]) / (times[i + 1] - times[i]), 0.0, 1.0);
        std::vector<Vec3f> pose;
        for (size_t v = 0; v < poses[i].size(); ++v)
            pose.push_back(Vec3f(Vec3d(poses[i][v]) * (1.0 - f) + Vec3d(poses[i + 1][v]) * f));
        return pose;
    }
};

ZooMesh posed(ZooMesh cage, std::vector<Vec3f> positions) {
    cage.positions = std::move(positions);
    return cage;
}

GeometrySample sample_of(const SdsMesh& mesh, const CtxShader& shader, const GeometryFragment& fragment) {
    GeometrySample sample;
    mesh.compute_fragment_sample(CtxEval(shader), fragment, sample);
    return sample;
}

// Distance from a place to where a ray meets the primitive that was sent along the normal there.
double distance_of_hit(const SdsMesh& mesh, const CtxShader& shader, unsigned int primitive, const Vec3d& place,
                       const Vec3d& normal, double time, unsigned int family) {
    CtxThread thread;
    GeometryRay ray;
    ray.start(place + normal * 0.1, normal * -1.0, time);
    GeometryRaytraceData data;
    data.has_motion_blur = true;
    data.kernel_family = family;
    GeometryRaytraceCtx rays(&ray, 1, data);
    mesh.intersect_primitive(CtxEval(shader, &thread), primitive, rays);
    return std::fabs(ray.tfar - 0.1);
}

// Whatever the shutter's own samples, and where the cage at rest is none of the poses too.
TEST(Motion, SurfaceRaysAndSamplesAgreeOnThePlace) {
    for (const char* name : {"cube", "tetrahedron"})
        for (const bool rests_beside_its_path : {false, true}) {
            const ZooMesh& cage = zoo_mesh(name);
            const Path path{{-0.5, 0.0, 0.5}, {pose_at(cage, -0.4), pose_at(cage, 0.5), pose_at(cage, 0.1)}};
            const ZooMesh rest = posed(cage, rests_beside_its_path ? pose_at(cage, 1.0) : path.at(0.0));
            for (const unsigned int level : {0u, 2u}) {
                BuiltSurface surface(rest, {.level = level});
                path.install(surface);
                for (const std::vector<double>& shutter_times :
                     {std::vector<double>{}, {-0.5, 0.5}, {-0.5, 0.0, 0.5}, {-0.4, 0.3}, {-0.5, -0.1, 0.2, 0.7}})
                    for (const double time : {-0.4, -0.2, 0.0, 1e-8, 2e-8, 0.05, 0.3}) {
                        SCOPED_TRACE(testing::Message() << name << " level " << level << " time " << time << " among "
                                                        << shutter_times.size() << " shutter samples");
                        const bool rests = std::fabs(time) <= 1e-8;
                        const BuiltSurface still(rests ? rest : posed(cage, path.at(time)), {.level = level});
                        const CtxShader shader = make_shader(shutter_times), no_shutter;
                        const double tolerance = 1e-5 * still.get_diagonal();
                        for (unsigned int q = 0; q < surface.get_quad_count(); q += 2)
                            for (const double u : {0.05, 0.6}) {
                                const GeometrySample expected = sample_of(still.mesh, no_shutter, {q, u, 0.3, 0, 0});
                                const Vec3d p = expected.get_geometric_position();
                                const GeometrySample sample = sample_of(surface.mesh, shader, {q, u, 0.3, time, 0});
                                expect_near(sample.get_geometric_position(), p, tolerance);
                                for (const unsigned int family : {0u, 1u})
                                    EXPECT_LT(distance_of_hit(surface.mesh, shader, q, p,
                                                              expected.get_geometric_normal(), time, family),
                                              tolerance);
                            }
                    }
            }
        }
}

// From each end to each end of the shutter, whose samples need not be those of the motion, and however short the
// interval; the second place is never the one beyond the motion's end, or a place that was snapped to a sample.
TEST(Motion, VelocityIsThatOfThePathOnTheWholeShutter) {
    const ZooMesh cage = make_sheet(4);
    const Vec3f straight(4, 0, -8), turn(-2, 6, 1);
    std::vector<Vec3f> middle = cage.positions, last;
    for (Vec3f& p : middle) p += straight * 0.4f;
    last = middle;
    for (Vec3f& p : last) p += turn * 0.6f;
    const Path path{{0.0, 0.4, 1.0}, {cage.positions, middle, last}};
    for (const unsigned int level : {0u, 2u})
        for (const std::vector<double>& shutter_times : {std::vector<double>{}, {0.0, 1.0}, {-1.0, 0.4, 1.0, 2.0}}) {
            const CtxShader shader = make_shader(shutter_times);
            const BuiltSurface vectors(cage, {.level = level, .motion_vectors = {cage.positions.size(), straight}});
            BuiltSurface samples(cage, {.level = level});
            path.install(samples);
            const auto velocity = [&](const BuiltSurface& surface, double time, double interval) {
                const GeometrySample sample = sample_of(surface.mesh, shader, {5, 0.3, 0.6, time, interval});
                EXPECT_TRUE(sample.has_position_dt());
                return sample.get_geometric_position_dt();
            };
            for (const double interval : {0.0, 1e-8, -1e-8})
                EXPECT_FALSE(sample_of(vectors.mesh, shader, {5, 0.3, 0.6, 0.5, interval}).has_position_dt());
            for (const double interval : {0.1, -0.1, 1e-6}) {
                for (const double time : {-1.0, 0.0, 0.5, 0.95, 1.0, 2.0})
                    expect_near(velocity(vectors, time, interval), Vec3d(straight), 1e-4);
                for (const double time : {0.0, 1e-9, 0.02, 0.25})
                    expect_near(velocity(samples, time, interval), Vec3d(straight), 1e-4);
                expect_near(velocity(samples, 0.4, interval), Vec3d(interval > 0 ? turn : straight), 1e-4);
                for (const double time : {0.7, 0.95, 0.999999, 1.0, 1.0 + 1e-15})
                    expect_near(velocity(samples, time, interval), Vec3d(turn), 1e-4);
                for (const double time : {-0.05, 1.05}) expect_near(velocity(samples, time, interval), {0, 0, 0}, 0.0);
            }
            // Over a bend, the mean.
            expect_near(velocity(samples, 0.3, 0.4), Vec3d(straight) * 0.25 + Vec3d(turn) * 0.75, 1e-4);
        }
}

// Where a build on the pose outright has them; and its derivatives are those of the normal itself, by differences.
TEST(Motion, SmoothingPartIsThatOfTheSurfaceAsItStands) {
    for (const char* name : {"torus", "cube", "prism5_crease_loop"})
        for (const bool is_sampled : {false, true}) {
            SCOPED_TRACE(testing::Message() << name << (is_sampled ? " samples" : " vectors"));
            const ZooMesh& cage = zoo_mesh(name);
            const Path path{{0.0, 1.0}, {cage.positions, pose_at(cage, 1.0)}};
            std::vector<Vec3f> way = path.poses[1];
            for (size_t i = 0; i < way.size(); ++i) way[i] -= cage.positions[i];
            BuiltSurface surface(cage, {.motion_vectors = is_sampled ? std::vector<Vec3f>() : way});
            if (is_sampled) path.install(surface);
            const CtxShader shader = make_shader({0.0, 1.0});
            constexpr double time = 0.9, h = 1e-3;
            const BuiltSurface still(posed(cage, path.at(time)));
            double size = 0.0;
            for (unsigned int q = 0; q < surface.get_quad_count(); q += 3)
                for (const double u : {0.0, 0.31, 0.8})
                    for (const double v : {0.25, 0.7}) {
                        const auto normal = [&](double s, double t) {
                            return sample_of(surface.mesh, shader, {q, s, t, time, 0}).get_smoothing_normal();
                        };
                        const GeometrySample sample = sample_of(surface.mesh, shader, {q, u, v, time, 0});
                        const GeometrySample expected = sample_of(still.mesh, shader, {q, u, v, 0, 0});
                        const Vec3d du = sample.get_smoothing_dndu(), dv = sample.get_smoothing_dndv();
                        const double tolerance = 1e-4 * (1.0 + du.length() + dv.length());
                        size = std::max(size, du.length());
                        expect_near(sample.get_smoothing_position(), expected.get_smoothing_position(), 1e-4);
                        expect_near(sample.get_smoothing_normal(), expected.get_smoothing_normal(), 1e-4);
                        expect_near(du, expected.get_smoothing_dndu(), tolerance);
                        expect_near(dv, expected.get_smoothing_dndv(), tolerance);
                        if (u == 0.0 || name != std::string("torus")) continue;
                        expect_near(du, (normal(u + h, v) - normal(u - h, v)) * (0.5 / h), 1e-3 * (1.0 + du.length()));
                        expect_near(dv, (normal(u, v + h) - normal(u, v - h)) * (0.5 / h), 1e-3 * (1.0 + dv.length()));
                    }
            EXPECT_GT(size, 0.1);
        }
}

}  // namespace
