// Objects in several places of one scene.
#include <gtest/gtest.h>

#include <cmath>

#include "render/renderer.h"
#include "test_objects.h"

namespace sds_render {
namespace {

using render_test::Expected;
using render_test::FlatGrid;
using render_test::SphereCloud;

Matrix4 make_matrix(const Vec3& x, const Vec3& y, const Vec3& z, const Vec3& at) {
    Matrix4 m;
    const Vec3 rows[] = {x, y, z, at};
    for (unsigned int r = 0; r < 4; ++r)
        for (unsigned int c = 0; c < 3; ++c) m[r][c] = rows[r][c];
    return m;
}

// Coordinates of `v` in three axes, by Cramer's rule in extended precision.
Vec3 solve(const Matrix4& axes, const Vec3& v) {
    const auto determinant = [](const Vec3& a, const Vec3& b, const Vec3& c) {
        using Real = long double;
        Real sum = 0;
        for (unsigned int i = 0; i < 3; ++i) {
            const unsigned int j = (i + 1) % 3, k = (i + 2) % 3;
            sum += Real{a[i]} * (Real{b[j]} * Real{c[k]} - Real{b[k]} * Real{c[j]});
        }
        return sum;
    };
    const Vec3 x = axes.get_row(0), y = axes.get_row(1), z = axes.get_row(2);
    const long double all = determinant(x, y, z);
    return {static_cast<double>(determinant(v, y, z) / all), static_cast<double>(determinant(x, v, z) / all),
            static_cast<double>(determinant(x, y, v) / all)};
}

GeometryRay to_local(const Matrix4& matrix, const GeometryRay& ray) {
    GeometryRay local = ray;
    local.origin = solve(matrix, ray.origin - matrix.get_row(3));
    local.direction = solve(matrix, ray.direction);
    return local;
}

struct Placed {
    const SphereCloud* cloud;
    Transform transform;
};

// Turned, stretched, slanted, mirrored, far away and moving, of two objects; one object also stands where it is.
std::vector<Placed> place(const SphereCloud& still, const SphereCloud& moving) {
    const Matrix4 turned = make_matrix({0, 2, 0}, {-2, 0, 0}, {0, 0, 2}, {3, 1, 0});
    const Matrix4 mirrored = make_matrix({-1, 0, 0}, {0.3, 1.5, 0}, {0, 0.2, 0.4}, {-4, 0, 1});
    const Matrix4 tiny = make_matrix({1e-3, 0, 0}, {0, 1e-3, 0}, {0, 0, 1e-3}, {0, 3, 0});
    const Transform path({0.0, 0.3, 1.0}, {turned, make_matrix({0, 1, 0}, {-2, 0, 1}, {0, 0, 2}, {4, 2, 0}), mirrored});
    return {{&still, {}},
            {&moving, Transform(turned)},
            {&still, Transform(mirrored)},
            {&still, Transform(tiny)},
            {&moving, path},
            {&still, path},
            {&moving, Transform(Matrix4::scale(1, 0, 1))}};  // flat: nothing to hit
}

TEST(Instances, HitsAreThoseOfEveryObjectInItsOwnSpace) {
    const SphereCloud still(render_test::make_spheres(60, {0, 0, 0}, 1.0));
    SphereCloud moving(render_test::make_spheres(40, {5, 0, 0}, 1.0));
    moving.set_path({0.0, 0.5, 1.0}, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
    const std::vector<Placed> placed = place(still, moving);
    for (const Shutter& shutter : {Shutter{0.0, 1.0}, Shutter{0.4, 0.4}, Shutter{-0.5, 0.6}}) {
        Scene scene(shutter);
        for (const Placed& each : placed) scene.add(*each.cloud, each.transform);
        scene.commit();
        RenderThread thread(scene.get_shader_ctx());
        std::vector<GeometryRay> rays = render_test::make_rays(6000, {0, 0, 0}, 6.0, 3.0);
        std::vector<unsigned int> hits(placed.size(), 0);
        for (std::size_t i = 0; i + 8 <= rays.size(); i += 8) {
            for (std::size_t r = i; r < i + 8; ++r)
                rays[r].time = shutter.open + static_cast<double>(r / 3 % 41) / 40.0 * (shutter.close - shutter.open);
            GeometryRay packet[8];
            std::copy_n(rays.begin() + static_cast<std::ptrdiff_t>(i), 8, packet);
            unsigned int objects[8];
            scene.intersect_packet(packet, 8, thread, objects);
            for (std::size_t r = i; r < i + 8; ++r) {
                Expected nearest;
                unsigned int object = no_index;
                for (unsigned int p = 0; p + 1 < placed.size(); ++p) {
                    const GeometryRay local = to_local(placed[p].transform.at(rays[r].time), rays[r]);
                    const Expected found = render_test::find_nearest(*placed[p].cloud, local);
                    if (!(found.t < nearest.t)) continue;
                    nearest = found;
                    object = p;
                }
                GeometryRay shadow = rays[r], single = rays[r];
                unsigned int single_object = no_index;
                ASSERT_EQ(scene.occluded(shadow, thread), object != no_index) << r;
                ASSERT_EQ(scene.intersect(single, thread, &single_object), object != no_index) << r;
                ASSERT_EQ(single_object, object) << r;
                ASSERT_EQ(objects[r - i], object) << r;
                if (object == no_index) continue;
                ++hits[object];
                ASSERT_EQ(single.hit.primitive, nearest.primitive) << r;
                ASSERT_EQ(packet[r - i].hit.t, single.hit.t) << r;
                ASSERT_NEAR(single.hit.t, nearest.t, 1e-7 * (1.0 + nearest.t)) << r;
            }
        }
        for (const unsigned int p : {0u, 1u, 2u, 4u, 5u}) EXPECT_GE(hits[p], 5u) << p;
    }
}

TEST(Instances, TiesGoToTheSmallerIndex) {
    const FlatGrid grid(4), other(4);
    const Transform shifted(make_matrix({1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {-0.25, 0, 0}));
    Scene scene;
    scene.add(grid, shifted);
    scene.add(other);
    scene.add(grid, shifted);
    scene.commit();
    RenderThread thread(scene.get_shader_ctx());
    for (const double x : {0.1, 0.25, 0.5, 0.74}) {
        GeometryRay ray;
        ray.origin = {x, 0.5, 2.0};
        ray.direction = {0, 0, -1};
        unsigned int object = no_index;
        ASSERT_TRUE(scene.intersect(ray, thread, &object));
        EXPECT_EQ(object, 0u) << x;
    }
}

// Samples against differences of transformed points of the sphere.
TEST(Instances, SamplesAreThoseOfTheTransformedSurface) {
    SphereCloud cloud({{{1, 2, 3}, 2.0}});
    cloud.set_path({0.0, 1.0}, {{0, 0, 0}, {1, -2, 0.5}});
    const Transform path({0.0, 1.0}, {make_matrix({-1, 0.2, 0}, {0.3, 1.5, 0}, {0, 0.2, 0.4}, {-4, 0, 1}),
                                      make_matrix({-2, 0, 0}, {0.1, 1, 0}, {0.5, 0, 1}, {1, 1, 1})});
    CtxShader shader;
    const CtxEval ctx(shader);
    const auto sample_at = [&](double u, double v, double time) {
        GeometrySample sample;
        cloud.compute_fragment_sample(ctx, {0, u, v, time, 0.0}, sample);
        sample.set_smoothing(sample.get_geometric_position(), sample.get_geometric_normal(),
                             sample.get_geometric_dpdu() * 0.5, sample.get_geometric_dpdv() * 0.5);  // over the radius
        EXPECT_FALSE(place_sample(path, time, sample));                                              // mirrored
        return sample;
    };
    const double step = 1e-5;
    for (const double u : {0.1, 0.6})
        for (const double v : {0.3, 0.8}) {
            const GeometrySample sample = sample_at(u, v, 0.4);
            const auto difference = [&](double du, double dv, auto get) {
                return (get(sample_at(u + du, v + dv, 0.4)) - get(sample_at(u - du, v - dv, 0.4))) * (0.5 / step);
            };
            const auto position = [](const GeometrySample& s) { return s.get_geometric_position(); };
            const auto normal = [](const GeometrySample& s) { return s.get_smoothing_normal(); };
            EXPECT_LT((difference(step, 0, position) - sample.get_geometric_dpdu()).length(), 1e-6);
            EXPECT_LT((difference(0, step, position) - sample.get_geometric_dpdv()).length(), 1e-6);
            EXPECT_LT((difference(step, 0, normal) - sample.get_smoothing_dndu()).length(), 1e-6);
            EXPECT_LT((difference(0, step, normal) - sample.get_smoothing_dndv()).length(), 1e-6);
            // Both stay across the surface, the smoothing normal on the outside.
            EXPECT_NEAR(sample.get_smoothing_normal().dot(normalized(sample.get_geometric_dpdu())), 0.0, 1e-9);
            EXPECT_NEAR(sample.get_smoothing_normal().dot(sample.get_geometric_normal()), -1.0, 1e-9);
        }
}

}  // namespace
}  // namespace sds_render
