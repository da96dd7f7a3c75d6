#include "render/renderer.h"

#include <gtest/gtest.h>

#include <bit>
#include <chrono>
#include <cmath>
#include <limits>
#include <random>
#include <set>

#include "oracles/built_surface.h"
#include "qn_sys/sys_thread.h"
#include "render/framing.h"
#include "test_objects.h"

namespace sds_render {
namespace {

using render_test::FlatGrid;
using render_test::SceneOf;
using render_test::SphereCloud;

const std::vector<render_test::Sphere> cluster{{{0, 0, 0}, 1.0}, {{1.2, 0.3, 0.4}, 0.5}, {{-0.8, 0.9, 0.5}, 0.35}};

Rendering render_with_threads(unsigned int threads, const Scene& scene, const Camera& camera,
                              const RenderOptions& options) {
    Rendering out{Image(1, 1), {}};
    AppProgressBar bar;
    SysThreadArena(threads).execute([&] { out = render(scene, camera, options, &bar); });
    EXPECT_NEAR(bar.get_position(), 1.0f, 1e-5f);
    return out;
}

void expect_same(const Image& a, const Image& b) {
    ASSERT_EQ(a.get_channels().size(), b.get_channels().size());
    for (size_t c = 0; c < a.get_channels().size(); ++c) {
        EXPECT_EQ(a.get_channels()[c].values, b.get_channels()[c].values) << a.get_channels()[c].name;
        EXPECT_EQ(a.get_channels()[c].ids, b.get_channels()[c].ids) << a.get_channels()[c].name;
    }
}

CameraView front_view() {
    CameraView view;
    view.azimuth = view.elevation = 0.0;
    return view;
}

RenderOptions unshaded(unsigned int samples) {
    RenderOptions options;
    options.background = false;
    options.shading.key_rays = 0;
    options.shading.ambient_rays = 0;
    options.samples = samples;
    return options;
}

const std::vector<float>& values_of(const Rendering& rendering, const char* channel) {
    return rendering.image.find_channel(channel)->values;
}

// Patches of several sizes, and others that cover four quads: what layers say is on the quads of depth 0.
TEST(Renderer, LayersOfRefinedSurfacesAreOnTheQuads) {
    std::vector<GMathVec3<float>> points;
    std::vector<std::vector<unsigned int>> faces;
    for (unsigned int i = 0; i < 36; ++i)
        points.emplace_back(static_cast<float>(i % 6), static_cast<float>(i / 6), 0.4f * static_cast<float>(i % 5));
    for (unsigned int i = 0; i < 30; ++i) {
        if (i % 6 == 5) continue;
        if (i == 14)
            faces.insert(faces.end(), {{i, i + 1, i + 7}, {i, i + 7, i + 6}});
        else
            faces.push_back({i, i + 1, i + 7, i + 6});
    }
    sds_test::BuiltSurface::Options built;
    built.refinement.depth = 3;
    const sds_test::BuiltSurface surface(sds_test::make_mesh(points, faces), built);
    const SceneOf scene(surface.mesh);
    RenderOptions options = unshaded(1);
    for (const char* name : {"P", "st", "id"}) options.layers.push_back(make_layer(name));
    const Rendering rendering = render(scene, frame_scene(scene, front_view(), 64, 64), options, nullptr);
    const std::vector<unsigned int>& ids = rendering.image.find_channel("id")->ids;
    const CtxShader shader;
    std::set<unsigned int> quads;
    for (size_t i = 0; i < ids.size(); ++i) {
        if (ids[i] == no_index) continue;
        quads.insert(ids[i]);
        const double u = static_cast<double>(values_of(rendering, "st.X")[i]);
        const double v = static_cast<double>(values_of(rendering, "st.Y")[i]);
        const SdsMesh::PrimitivePlace place = surface.mesh.find_primitive(ids[i], u, v);
        GeometrySample sample;
        surface.mesh.compute_fragment_sample(CtxEval(shader), {place.primitive, place.u, place.v, 0.0, 0.0}, sample);
        for (unsigned int c = 0; c < 3; ++c)
            ASSERT_NEAR(values_of(rendering, c == 0   ? "P.X"
                                             : c == 1 ? "P.Y"
                                                      : "P.Z")[i],
                        sample.get_geometric_position()[c], 1e-5)
                << "pixel " << i;
    }
    EXPECT_EQ(quads.size(), surface.get_quad_count());
}

TEST(Renderer, ThreadsAndPacketsDoNotChangeThePicture) {
    SphereCloud cloud(cluster);
    cloud.set_path({0.0, 1.0}, {{0, 0, 0}, {0.2, 0.1, 0}});
    const SceneOf scene(cloud, {0.0, 1.0});
    const Camera camera(scene.get_bbox(), {}, 77, 45);  // tiles and blocks are cut at the border
    RenderOptions options;
    options.shading.wire = true;
    for (const char* name : {"N", "Z", "id", "checker"}) options.layers.push_back(make_layer(name));
    for (const unsigned int samples : {1u, 3u, 8u}) {
        SCOPED_TRACE(samples);
        options.samples = samples;
        options.packets = true;
        const Rendering alone = render_with_threads(1, scene, camera, options);
        expect_same(alone.image, render_with_threads(4, scene, camera, options).image);
        options.packets = false;
        expect_same(alone.image, render_with_threads(3, scene, camera, options).image);
        EXPECT_EQ(alone.statistics.camera_rays, 77u * 45u * samples);
        EXPECT_GT(alone.statistics.rays, alone.statistics.camera_rays);
    }
}

TEST(Renderer, LayersShowWhatTheCameraSees) {
    const FlatGrid grid(4);
    const SceneOf scene(grid);
    const Camera camera(scene.get_bbox(), front_view(), 60, 60);
    RenderOptions options = unshaded(64);
    for (const std::string& name : get_layer_names()) options.layers.push_back(make_layer(name));
    const Image image = render(scene, camera, options, nullptr).image;
    unsigned int covered = 0;
    for (unsigned int y = 0; y < 60; ++y)
        for (unsigned int x = 0; x < 60; ++x) {
            const size_t at = 60 * y + x;
            const auto value = [&](const char* channel) { return image.find_channel(channel)->values[at]; };
            const auto id = [&](const char* channel) { return image.find_channel(channel)->ids[at]; };
            if (value("A") == 0.0f) {
                EXPECT_EQ(value("R"), 0.0f);
                EXPECT_EQ(id("id"), no_index);
                EXPECT_EQ(value("Z"), std::numeric_limits<float>::infinity());
            }
            if (value("A") != 1.0f) continue;
            ++covered;
            // P says where the pixel looks, everything else follows from it: x to the right, y up, camera on +z.
            const float px = value("P.X"), py = value("P.Y");
            EXPECT_NEAR(px, 0.5 + (x - 29.5) * 1.06 / 60.0, 0.35 / 60.0);  // the sample nearest to the middle
            EXPECT_NEAR(py, 0.5 - (y - 29.5) * 1.06 / 60.0, 0.35 / 60.0);
            EXPECT_NEAR(value("P.Z"), 0.0f, 1e-6f);
            EXPECT_EQ(id("id"), static_cast<unsigned int>(py * 4.0f) * 4u + static_cast<unsigned int>(px * 4.0f));
            EXPECT_NEAR(value("st.X"), px * 4.0f - std::floor(px * 4.0f), 1e-5f);
            EXPECT_NEAR(value("uv.Y"), py * 4.0f - std::floor(py * 4.0f), 1e-5f);
            EXPECT_EQ(value("N.Z"), 1.0f);
            EXPECT_EQ(id("object"), 0u);
            EXPECT_NEAR(value("Z"), camera.get_position()[2], 1e-6);
            EXPECT_GT(value("R"), 0.0f);
        }
    EXPECT_GT(covered, 55u * 55u);
}

TEST(Renderer, ReflectionLinesFollowTheNormal) {
    const Layer lines = make_layer("lines");
    // Half a turn of the normal around x is a whole one of the mirrored ray: fourteen dark stripes of equal width.
    constexpr unsigned int steps = 2800;
    std::vector<unsigned int> changes;
    float former = 0.0f, darkest = 1.0f, lightest = 0.0f;
    for (unsigned int i = 0; i <= steps; ++i) {
        const double angle = 0.01 + 3.14159265358979 * i / steps;
        SurfacePoint point;
        point.direction = {0, 0, -1};
        point.sample.set_smoothing({0, 0, 0}, {0, std::cos(angle), std::sin(angle)}, {0, 0, 0}, {0, 0, 0});
        const Layer::Value value = lines.evaluate(point);
        EXPECT_NEAR(value.components[0], value.components[2], 0.021f);
        if (i != 0 && value.components[0] != former) changes.push_back(i);
        former = value.components[0];
        darkest = std::min(darkest, former);
        lightest = std::max(lightest, former);
    }
    EXPECT_LT(darkest, 0.05f);
    EXPECT_GT(lightest, 0.75f);
    ASSERT_EQ(changes.size(), 28u);
    for (size_t i = 1; i < changes.size(); ++i) EXPECT_NEAR(changes[i] - changes[i - 1], 100u, 1u);
}

TEST(Renderer, WireRunsAlongVisibleEdgesAtItsWidthInPixels) {
    // Edge k of the single square is on this side of the picture.
    const struct { unsigned int edge, x, y; } sides[] = {{0, 40, 75}, {1, 75, 40}, {2, 40, 4}, {3, 4, 40}};
    for (const auto& side : sides)
        for (const unsigned int scale : {1u, 2u}) {
            const FlatGrid grid(1, 1u << side.edge);
            const SceneOf scene(grid);
            const unsigned int size = 80 * scale;
            const Camera camera(scene.get_bbox(), front_view(), size, size);
            RenderOptions options = unshaded(16);
            const std::vector<float> plain = values_of(render(scene, camera, options, nullptr), "G");
            options.shading.wire = true;
            options.shading.wire_width = 4.0;
            const std::vector<float> wired = values_of(render(scene, camera, options, nullptr), "G");
            double taken = 0.0;
            for (size_t at = 0; at < plain.size(); ++at) taken += static_cast<double>(plain[at] - wired[at]) / 0.85;
            // Half of the line is on the square, the other half beside it.
            EXPECT_NEAR(taken / (static_cast<double>(plain[size * size / 2 + size / 2]) * size / 1.06), 2.0, 0.4)
                << side.edge;
            for (const auto& other : sides) {
                const size_t at = scale * (size * other.y + other.x);
                if (other.edge != side.edge) {
                    EXPECT_EQ(wired[at], plain[at]) << side.edge << " " << other.edge;
                }
            }
        }
}

TEST(Renderer, ShadowsAndOcclusionOnlyTakeLightAwayFromOthers) {
    const auto shade = [](const SphereCloud& cloud, bool shadow, unsigned int ambient_rays) {
        const SceneOf scene(cloud);
        RenderOptions options;
        options.samples = 4;
        options.shading.key_rays = shadow ? 1 : 0;
        if (ambient_rays == 0) options.shading.ambient_rays = 0;
        return values_of(render(scene, Camera(scene.get_bbox(), {}, 48, 48), options, nullptr), "G");
    };
    const std::vector<float> shadowed = shade(SphereCloud(cluster), true, 1),
                             open = shade(SphereCloud(cluster), false, 0);
    size_t darker = 0;
    for (size_t i = 0; i < open.size(); ++i) {
        EXPECT_LE(shadowed[i], open[i] * 1.0001f);
        darker += shadowed[i] < 0.8f * open[i] ? 1 : 0;
    }
    EXPECT_GT(darker, open.size() / 200);

    // A ball alone does not shade itself.
    for (const Vec3& center : {Vec3{0, 0, 0}, Vec3{148376, 1234, -223423}}) {
        const SphereCloud ball({{center, 2.0}});
        const std::vector<float> without = shade(ball, true, 0), lit = shade(ball, false, 0);
        EXPECT_EQ(shade(ball, true, 1), without);
        // The disc of the key light may set behind the ball where its middle has not: only there is some light lost.
        double lost = 0.0, total = 0.0;
        for (size_t i = 0; i < lit.size(); ++i) {
            total += lit[i];
            lost += lit[i] - without[i];
        }
        EXPECT_LT(lost, 0.01 * total);
    }
}

TEST(Renderer, ABlurredPictureIsTheMeanOfStillOnes) {
    SphereCloud cloud({{{0, 0, 0}, 1.0}});
    cloud.set_path({0.0, 1.0}, {{0, 0, 0}, {1.5, 0, 0}});
    const SceneOf blurred(cloud, {0.0, 1.0});
    CameraView view;
    view.azimuth = 0.0;
    const Camera camera(blurred.get_bbox(), view, 32, 24);
    const std::vector<float> mean = values_of(render(blurred, camera, unshaded(256), nullptr), "A");
    std::vector<double> sum(mean.size(), 0.0);
    constexpr unsigned int still_count = 32;
    for (unsigned int i = 0; i < still_count; ++i) {
        const double time = (i + 0.5) / still_count;
        const SceneOf still(cloud, {time, time});
        const std::vector<float> coverage = values_of(render(still, camera, unshaded(32), nullptr), "A");
        for (size_t p = 0; p < sum.size(); ++p) sum[p] += coverage[p];
    }
    unsigned int partial = 0;
    for (size_t p = 0; p < sum.size(); ++p) {
        ASSERT_NEAR(mean[p], sum[p] / still_count, 0.05) << p;
        partial += mean[p] > 0.2f && mean[p] < 0.8f ? 1 : 0;
    }
    EXPECT_GT(partial, 50u);
}

TEST(Renderer, ACameraThatGoesAlongSeesAStillPicture) {
    const SphereCloud standing({{{0, 0, 0}, 1.0}});
    SphereCloud going = standing;
    going.set_path({0.0, 1.0}, {{0, 0, 0}, {1.5, 0.5, 0}});
    CameraPose pose;
    pose.position = {0, 0, 6};
    pose.width = 0.6;
    pose.lens_radius = 0.2;
    pose.focus = 5.0;
    CameraPose later = pose;
    later.position = {1.5, 0.5, 6};
    RenderOptions options = unshaded(16);
    options.layers = {make_layer("Z")};
    const SceneOf still(standing), moving(going, {0.0, 1.0});
    const Rendering expected = render(still, Camera(pose, 32, 24), options, nullptr);
    const Rendering found = render(moving, Camera({0.0, 1.0}, {pose, later}, 32, 24), options, nullptr);
    unsigned int partial = 0;
    for (const char* channel : {"A", "Z"}) {
        const std::vector<float>&a = values_of(expected, channel), &b = values_of(found, channel);
        unsigned int off = 0;
        for (size_t p = 0; p < a.size(); ++p) {
            off += a[p] == b[p] || std::fabs(a[p] - b[p]) < 1e-4f ? 0 : 1;
            partial += a[p] > 0.2f && a[p] < 0.8f ? 1 : 0;
        }
        EXPECT_LE(off, 3u) << channel;  // a ray at the rim may be rounded to its other side
    }
    EXPECT_GT(partial, 20u);
}

TEST(Renderer, SlowRaysDoNotKeepACancelledPictureGoing) {
    class CancelledBar : public AppProgressBar {
        bool is_cancelled() override { return true; }
    };
    const render_test::CountingCloud cloud({{{0, 0, 0}, 1.0}}, std::chrono::milliseconds(60));
    const SceneOf scene(cloud);
    RenderOptions options;
    options.samples = 1;
    CancelledBar bar;
    EXPECT_THROW(render(scene, Camera(scene.get_bbox(), {}, 32, 32), options, &bar), AppCancelled);
    // One tile, of which the first packet that meets the ball and its shadow rays are traced.
    EXPECT_LT(cloud.offer_count, 40u);
}

TEST(Camera, StandsUprightOnEveryAxis) {
    const Bbox3 box({-1, -1, -1}, {1, 1, 1});
    const struct {
        UpAxis axis;
        Vec3 up, front;
    } cases[] = {
        {UpAxis::x, {1, 0, 0}, {0, 0, 1}}, {UpAxis::y, {0, 1, 0}, {0, 0, 1}}, {UpAxis::z, {0, 0, 1}, {0, -1, 0}}};
    for (const auto& c : cases) {
        CameraView view;
        view.up = c.axis;
        view.azimuth = 0.0;
        view.elevation = 60.0;
        const Camera camera(box, view, 100, 100);
        EXPECT_NEAR(camera.get_up().dot(c.up), 0.5, 1e-12);
        EXPECT_NEAR(camera.get_right().dot(c.up), 0.0, 1e-12);
        EXPECT_NEAR(-camera.get_forward().dot(c.up), std::sqrt(0.75), 1e-12);
        EXPECT_NEAR(-camera.get_forward().dot(c.front), 0.5, 1e-12);
        // Not a mirror.
        EXPECT_NEAR(camera.get_right().cross(camera.get_up()).dot(camera.get_forward()), -1.0, 1e-12);
        view.azimuth = 90.0;
        EXPECT_NEAR(-Camera(box, view, 100, 100).get_forward().dot(c.up.cross(c.front)), 0.5, 1e-12);
    }
}

TEST(Camera, FramesTheOutlineOfAScene) {
    // A row of balls on a diagonal of its box: the box's other corners are empty.
    std::vector<render_test::Sphere> row;
    for (int i = 0; i < 20; ++i) row.push_back({{0.1 * i, 0.1 * i, 0.1 * i}, 0.1});
    SphereCloud cloud(row);
    cloud.set_path({0.0, 1.0}, {{0, 0, 0}, {1, -1, 0}});
    const SceneOf scene(cloud, {0.0, 1.0});
    CameraView view;
    view.azimuth = 120.0;
    constexpr unsigned int width = 90, height = 50;
    const Camera camera = frame_scene(scene, view, width, height);
    std::mt19937 random(1);
    double left = 1.0, right = -1.0, top = -1.0, bottom = 1.0;
    for (unsigned int i = 0; i < 20000; ++i) {
        const render_test::Sphere& ball = row[i % row.size()];
        const Vec3 point =
            ball.center + render_test::random_direction(random) * ball.radius + cloud.get_offset(i % 3 * 0.5);
        const auto [x, y] = render_test::place_in_view(camera, width, point);
        left = std::min(left, x);
        right = std::max(right, x);
        top = std::max(top, y);
        bottom = std::min(bottom, y);
    }
    EXPECT_LT(top, 1.0);
    EXPECT_GT(bottom, -1.0);
    EXPECT_NEAR(top - bottom, 2.0 / 1.06, 0.06);
    EXPECT_NEAR(left + right, 0.0, 0.15);

    Scene nothing;
    nothing.commit();
    EXPECT_TRUE(frame_scene(nothing, view, width, height).get_position().is_finite());
}

TEST(Sampling, EveryElementaryIntervalGetsOneSample) {
    // Samples of all pixels of a block, `columns` by count / columns intervals.
    const auto expect_spread = [](const std::vector<SamplePoint>& points) {
        const auto count = static_cast<unsigned int>(points.size());
        for (unsigned int columns = 1; columns <= count; columns *= 2) {
            std::set<std::pair<int, int>> cells;
            for (const SamplePoint& at : points) {
                ASSERT_TRUE(at.x >= 0.0 && at.x < 1.0 && at.y >= 0.0 && at.y < 1.0);
                cells.insert({static_cast<int>(at.x * columns), static_cast<int>(at.y * (count / columns))});
            }
            ASSERT_EQ(cells.size(), count) << columns;
        }
    };
    for (unsigned int pixel = 0; pixel < 20; ++pixel)
        for (unsigned int pair = 0; pair < 5; ++pair) {
            const unsigned int x = 62 * pixel, y = 2 * pixel;
            std::vector<SamplePoint> points;
            for (unsigned int i = 0; i < 64; ++i) {
                points.push_back(PixelSampler(x, y, 64).get(i, pair));
                if (std::has_single_bit(i + 1)) expect_spread(points);
            }
            points.clear();
            for (unsigned int i = 0; i < 4 * 32; ++i)  // two each for the 16 samples of four neighbors
                points.push_back(PixelSampler(x + i / 32 % 2, y + i / 64, 16).get(i % 32, pair, 2));
            expect_spread(points);
        }
}

}  // namespace
}  // namespace sds_render
