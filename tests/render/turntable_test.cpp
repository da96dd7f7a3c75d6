#include "render/turntable.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "test_objects.h"

namespace sds_render {
namespace {

using render_test::SceneOf;
using render_test::Sphere;
using render_test::SphereCloud;

const std::vector<Sphere> odd_balls{{{3, 0.5, -1}, 1.0}, {{-0.5, 2, 0}, 0.4}, {{0, -1, 2}, 0.7}};

TEST(Turntable, EveryViewHoldsTheSceneFromOneDistance) {
    const SphereCloud balls(odd_balls);
    const SceneOf scene(balls);
    constexpr unsigned int width = 90, height = 60, count = 6;
    std::mt19937 random(1);
    for (const UpAxis up : {UpAxis::x, UpAxis::y, UpAxis::z}) {
        CameraView view;
        view.up = up;
        const std::vector<Camera> cameras = surround_scene(scene, view, count, width, height);
        ASSERT_EQ(cameras.size(), count);
        const Vec3 middle = scene.get_bbox().get_center();
        const double distance = (cameras[0].get_position() - middle).length();
        double fill = 0.0;
        for (const Camera& camera : cameras) {
            EXPECT_NEAR((camera.get_position() - middle).length(), distance, 1e-9 * distance);
            for (unsigned int i = 0; i < 300; ++i) {
                const Sphere& ball = odd_balls[i % odd_balls.size()];
                const Vec3 point = ball.center + render_test::random_direction(random) * ball.radius;
                const auto [x, y] = render_test::place_in_view(camera, width, point);
                EXPECT_LT(std::max(std::fabs(x), std::fabs(y)), 1.0);
                fill = std::max({fill, std::fabs(x), std::fabs(y)});
            }
        }
        EXPECT_GT(fill, 0.6) << "no more room than turning takes";
        // Half a turn apart: on opposite sides of the axis.
        const Vec3 between = (cameras[0].get_position() + cameras[3].get_position()) * 0.5 - middle;
        for (unsigned int turn = 1; turn < 3; ++turn)
            EXPECT_NEAR(between[(static_cast<unsigned int>(up) + turn) % 3], 0.0, 1e-9 * distance);
    }
}

TEST(Turntable, SheetHoldsTheViewsInOrder) {
    const SphereCloud balls(odd_balls);
    const SceneOf scene(balls);
    constexpr unsigned int width = 80, height = 50, count = 5;
    RenderOptions options;
    options.samples = 2;
    options.layers = {make_layer("id"), make_layer("P")};
    AppProgressBar progress;
    const SheetGrid grid(count, width, height);
    const std::vector<Camera> cameras = surround_scene(scene, {}, count, grid.cell_width, grid.cell_height);
    const Rendering sheet = render_turntable(scene, cameras, width, height, options, &progress);
    EXPECT_FLOAT_EQ(progress.get_position(), 1.0f);
    RenderStatistics together;
    for (unsigned int i = 0; i < count; ++i) {
        const Rendering alone = render(scene, cameras[i], options, nullptr);
        together.rays += alone.statistics.rays;
        for (const Channel& channel : alone.image.get_channels()) {
            const Channel* whole = sheet.image.find_channel(channel.name);
            ASSERT_NE(whole, nullptr) << channel.name;
            EXPECT_EQ(whole->kind, channel.kind);
            for (unsigned int y = 0; y < grid.cell_height; ++y)
                for (unsigned int x = 0; x < grid.cell_width; ++x) {
                    const std::size_t from = std::size_t{y} * grid.cell_width + x;
                    const std::size_t to = std::size_t{y + i / grid.columns * grid.cell_height} * width + x +
                                           i % grid.columns * grid.cell_width;
                    if (channel.kind == ChannelKind::id)
                        ASSERT_EQ(whole->ids[to], channel.ids[from]) << channel.name << " of view " << i;
                    else
                        ASSERT_EQ(whole->values[to], channel.values[from]) << channel.name << " of view " << i;
                }
        }
    }
    EXPECT_EQ(sheet.statistics.rays, together.rays);
}

TEST(SheetGrid, GivesTheLargestCells) {
    const auto expect_grid = [](const SheetGrid& grid, unsigned int columns, unsigned int rows, unsigned int width,
                                unsigned int height) {
        EXPECT_EQ(grid.columns, columns);
        EXPECT_EQ(grid.rows, rows);
        EXPECT_EQ(grid.cell_width, width);
        EXPECT_EQ(grid.cell_height, height);
    };
    expect_grid({1, 640, 360}, 1, 1, 640, 360);
    expect_grid({8, 640, 360}, 4, 2, 160, 180);
    expect_grid({6, 100, 1000}, 1, 6, 100, 166);
    const SheetGrid tight(9, 2, 2);
    EXPECT_EQ(std::min(tight.cell_width, tight.cell_height), 0u);
}

}  // namespace
}  // namespace sds_render
