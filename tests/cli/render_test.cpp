#include <gmock/gmock.h>
#include <png.h>

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "io/texture.h"
#include "sds_process.h"

namespace sds_cli {
namespace {

struct Picture {
    unsigned int width = 0, height = 0;
    std::vector<png_byte> rgb;

    const png_byte* pixel(unsigned int x, unsigned int y) const { return &rgb[3 * (std::size_t{y} * width + x)]; }
};

Picture read_picture(const std::string& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    EXPECT_NE(png_image_begin_read_from_file(&image, path.c_str()), 0) << image.message;
    image.format = PNG_FORMAT_RGB;
    Picture picture{image.width, image.height, std::vector<png_byte>(PNG_IMAGE_SIZE(image))};
    const png_color black{0, 0, 0};
    EXPECT_NE(png_image_finish_read(&image, &black, picture.rgb.data(), 0, nullptr), 0);
    return picture;
}

// In steps of 8 bits.
double mean_difference(const Picture& a, const Picture& b) {
    EXPECT_EQ(a.rgb.size(), b.rgb.size());
    double sum = 0.0;
    for (std::size_t i = 0; i < a.rgb.size(); ++i) sum += std::abs(int{a.rgb[i]} - int{b.rgb[i]});
    return sum / static_cast<double>(a.rgb.size());
}

void write_picture(const std::string& path, unsigned int width, unsigned int height, const std::vector<png_byte>& rgb) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = width;
    image.height = height;
    image.format = PNG_FORMAT_RGB;
    ASSERT_NE(png_image_write_to_file(&image, path.c_str(), 0, rgb.data(), 0, nullptr), 0);
}

// A small picture, without a word of progress.
SdsRun render(const ScratchFolder& folder, const std::vector<std::string>& arguments) {
    return run_sds(folder, {"render", "--quiet", "--width", "48", "--height", "32", "--samples", "2"}, arguments);
}

using Render = InFolder;

TEST_F(Render, WritesPicturesAndTheirLayers) {
    const std::string a = folder.path("a.png"), b = folder.path("b.png");
    EXPECT_EQ(render(folder, {cube, "-o", a, "--aov", "N,id", "--aov", "Z,lines"}).err, "");
    for (const char* name : {"a.png", "a.N.png", "a.id.png", "a.Z.png", "a.lines.png"}) {
        EXPECT_EQ(read_picture(folder.path(name)).width, 48u);
        EXPECT_EQ(read_picture(folder.path(name)).height, 32u);
    }
    EXPECT_SUCCESS(render(folder, {cube, "-o", folder.path("a.exr")}));
    const std::string exr = ScratchFolder::read(folder.path("a.exr"));
    for (const char* channel : {"P.X", "N.Z", "uv.Y", "id", "Z"})
        EXPECT_NE(exr.find(std::string(channel) + '\0'), std::string::npos) << channel;

    // Whatever the number of threads, more than there are cores too; and the statistics do not change the picture.
    const std::string first = ScratchFolder::read(a);
    EXPECT_THAT(render(folder, {cube, "-o", b, "--threads", "1", "--stats"}).err,
                testing::AllOf(testing::HasSubstr("quads/s"), testing::HasSubstr("rays/s")));
    EXPECT_TRUE(ScratchFolder::read(b) == first);
    EXPECT_EQ(render(folder, {cube, "-o", b, "--threads", "64"}).err, "");
    EXPECT_TRUE(ScratchFolder::read(b) == first);
    EXPECT_SUCCESS(render(folder, {cube, "-o", b, "--wire"}));
    EXPECT_FALSE(ScratchFolder::read(b) == first);
}

TEST_F(Render, ViewAndTextureShowTheRightSide) {
    const std::string texture = folder.path("t.png");
    // Red in the lower half of v, green in the upper: the face towards +z has v along y.
    write_picture(texture, 1, 2, {0, 255, 0, 255, 0, 0});
    EXPECT_SUCCESS(render(folder, {cube, "-o", folder.path("a.png"), "--texture", texture, "--view", "0 0",
                                   "--uv-interpolation", "all_fixed"}));
    const Picture picture = read_picture(folder.path("a.png"));
    const png_byte *upper = picture.pixel(24, 8), *lower = picture.pixel(24, 24);
    EXPECT_GT(upper[1], upper[0] + 40);
    EXPECT_GT(lower[0], lower[1] + 40);
}

TEST_F(Render, SeveralMeshesAreOneScene) {
    const std::string out = folder.path("out.png");
    const SdsRun run = render(folder, {cube, sheet, cube, "-o", out, "--aov", "object", "--stats"});
    EXPECT_SUCCESS(run);
    // 6 quads each, and of the sheet 5 + 3 + 3 + 4.
    EXPECT_THAT(run.err, testing::HasSubstr("27 quads"));
    EXPECT_NE(read_picture(out).rgb, read_picture(folder.path("out.object.png")).rgb);
}

TEST_F(Render, SheetAndStandardOutput) {
    const std::string out = folder.path("out.png");
    EXPECT_SUCCESS(render(folder, {cube, "-o", out, "--turntable", "2", "--view", "0 0"}));
    const Picture views = read_picture(out);
    ASSERT_EQ(views.width, 48u);
    // Half a turn shows the same cube again.
    for (unsigned int y = 4; y < 28; y += 4)
        for (unsigned int c = 0; c < 3; ++c)
            EXPECT_NEAR(views.pixel(12, y)[c], views.pixel(36, y)[c], 24) << y << " " << c;

    const SdsRun stream = render(folder, {cube, "-o", "-", "--turntable", "2", "--view", "0 0"});
    EXPECT_SUCCESS(stream);
    EXPECT_EQ(read_picture(folder.write("stream.png", stream.out)).rgb, views.rgb);
}

TEST_F(Render, BlursMotionOnlyWhileTheShutterIsOpen) {
    const std::string next = folder.write("next.obj", moved(cube_obj, 1.0));
    const auto picture_of = [&](const std::vector<std::string>& more) {
        std::vector<std::string> arguments{cube, "-o", folder.path("a.png"), "--view", "20 10"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        EXPECT_SUCCESS(render(folder, arguments));
        return read_picture(folder.path("a.png"));
    };
    // Blending the sources of a motion may round otherwise than a still surface.
    const Picture still = picture_of({}), blurred = picture_of({"--motion", next});
    EXPECT_LT(mean_difference(picture_of({"--motion", next, "--shutter", "0", "0"}), still), 0.2);
    const Picture within =
        picture_of({"--time-samples", next, cube, "--times", "-1", "0.5", "--shutter", "0.5", "0.5"});
    EXPECT_LT(mean_difference(within, still), 0.2);
    EXPECT_GT(mean_difference(blurred, still), 2.0);
    EXPECT_TRUE(blurred.rgb == picture_of({"--motion", next, "--shutter", "0", "1"}).rgb);
}

// The two halves of a strip in the colors of their materials.
TEST_F(Render, MaterialsColorTheirGroups) {
    write_picture(folder.path("wood grain.png"), 1, 1, {0, 255, 0});
    folder.write("a.mtl", "newmtl plain\nKd 1 0 0\nKs 1 1 1\nnewmtl grained\nKd 0 0 1\nmap_Kd wood grain.png\n");
    folder.write("b.mtl", "newmtl plain\nKd 0 0 0\nnewmtl missing\nmap_Kd -s 1 1 1 none.png\nKd 0 0 1\n");
    const auto strip = [&](const char* left, const char* right) {
        return folder.write("strip.obj", std::string("mtllib a.mtl b.mtl\nmtllib none.mtl\n") +
                                             "v -2 -1 0\nv 0 -1 0\nv 2 -1 0\nv -2 1 0\nv 0 1 0\nv 2 1 0\nvt 0 0\n"
                                             "usemtl " +
                                             left + "\nf 1/1 2/1 5/1 4/1\nusemtl " + right + "\nf 2/1 3/1 6/1 5/1\n");
    };
    const auto colors = [&](const char* left, const char* right) {
        const SdsRun run = run_sds(folder, {"render", strip(left, right), "-o", folder.path("a.png"), "--view", "0 0",
                                            "--width", "48", "--height", "32", "--samples", "2"});
        EXPECT_SUCCESS(run);
        EXPECT_THAT(run.err, testing::HasSubstr("none.mtl: No such file or directory: warning: its materials"));
        return read_picture(folder.path("a.png"));
    };
    // Which channel is the strongest, left and right of the middle.
    const auto expect = [&](const Picture& picture, unsigned int left, unsigned int right) {
        for (const auto& [x, channel] : {std::pair(20u, left), std::pair(28u, right)}) {
            const png_byte* rgb = picture.pixel(x, 16);
            EXPECT_EQ(std::max_element(rgb, rgb + 3) - rgb, channel) << int(rgb[0]) << ' ' << int(rgb[1]);
        }
    };
    expect(colors("plain", "grained"), 0, 1);
    expect(colors("missing", "plain"), 2, 0);
    folder.write("a.mtl", "newmtl plain\nKd 1 x 0\n");
    EXPECT_THAT(run_sds(folder, {"render", strip("plain", "plain"), "-o", folder.path("a.png"), "--width", "8"}).err,
                testing::HasSubstr("a.mtl:2: Kd takes numbers, not 'x'"));
}

TEST(Texture, LooksUpBetweenTexelsAndRepeats) {
    const ScratchFolder folder;
    const std::string path = folder.path("t.png");
    write_picture(path, 2, 2, {255, 0, 0, 0, 255, 0, 0, 0, 255, 255, 255, 255});
    const Texture texture = Texture::read_png(path);
    const auto expect = [&](double u, double v, float r, float g, float b) {
        const sds_render::Color c = texture.look_up(u, v);
        EXPECT_NEAR(c[0], r, 1e-6f) << u << ' ' << v;
        EXPECT_NEAR(c[1], g, 1e-6f) << u << ' ' << v;
        EXPECT_NEAR(c[2], b, 1e-6f) << u << ' ' << v;
    };
    expect(0.25, 0.75, 1, 0, 0);  // upper left: v points up
    expect(0.75, 0.75, 0, 1, 0);
    expect(0.25, 0.25, 0, 0, 1);
    expect(-1.75, 3.25, 0, 0, 1);
    expect(0.5, 0.75, 0.5f, 0.5f, 0);
    expect(0.0, 0.75, 0.5f, 0.5f, 0);  // across the seam of the repeat
    expect(0.0, 0.0, 0.5f, 0.5f, 0.5f);
    expect(1e18, 0.25, texture.look_up(0.0, 0.25)[0], texture.look_up(0.0, 0.25)[1], texture.look_up(0.0, 0.25)[2]);
    expect(std::numeric_limits<double>::quiet_NaN(), 0.0, 0, 0, 0);
}

}  // namespace
}  // namespace sds_cli
