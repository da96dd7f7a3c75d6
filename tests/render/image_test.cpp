#include "render/image.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "render/tone.h"

namespace sds_render {
namespace {

TEST(ImagePreview, BeautyIsNotPremultipliedAndNeverOutOfRange) {
    Image image(3, 1);
    const float values[3] = {0.25f, std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN()};
    for (const char* name : {"R", "G", "B"}) {
        Channel& channel = image.add_channel(name, ChannelKind::color);
        std::copy_n(values, 3, channel.values.begin());
    }
    Channel& alpha = image.add_channel("A", ChannelKind::color);
    alpha.values = {0.5f, 1.0f, 1.0f};
    const Pixels8 pixels = make_preview(image, "");
    EXPECT_NEAR(pixels[0], 255.0 * encode_srgb(apply_filmic_curve(0.5)), 1.01);
    EXPECT_EQ(pixels[3], 128);
    EXPECT_EQ(pixels[4], 255);
    EXPECT_EQ(pixels[8], 0);
}

TEST(ImagePreview, ShowsLayersByContent) {
    Image image(2, 1);
    const float normals[3][2] = {{0.0f, 1.0f}, {-1.0f, 0.0f}, {1.0f, 0.0f}};
    const char* names[3] = {"N.X", "N.Y", "N.Z"};
    for (unsigned int c = 0; c < 3; ++c)
        image.add_channel(names[c], ChannelKind::data).values = {normals[c][0], normals[c][1]};
    image.add_channel("Near.X", ChannelKind::data);  // a longer name is another layer
    image.add_channel("Z", ChannelKind::data).values = {7.0f, std::numeric_limits<float>::infinity()};
    image.add_channel("id", ChannelKind::id).ids = {4u, 0xFFFFFFFFu};

    const Pixels8 normal = make_preview(image, "N");
    EXPECT_EQ(Pixels8(normal.begin(), normal.begin() + 3), (Pixels8{128, 0, 255}));
    const Pixels8 depth = make_preview(image, "Z");
    EXPECT_EQ(depth[0], 0);
    EXPECT_EQ(depth[7], 255);
    const Pixels8 ids = make_preview(image, "id");
    EXPECT_GT(ids[0], 0);
    EXPECT_EQ(ids[4], 0);
}

TEST(Tone, CurvesRiseFromBlackToWhite) {
    double before_curve = -1.0, before_code = -1.0;
    for (int i = 0; i <= 1000; ++i) {
        const double x = i * 0.001;
        EXPECT_GT(apply_filmic_curve(4.0 * x), before_curve);
        EXPECT_GT(encode_srgb(x), before_code);
        before_curve = apply_filmic_curve(4.0 * x);
        before_code = encode_srgb(x);
    }
    EXPECT_EQ(encode_srgb(0.0), 0.0);
    EXPECT_NEAR(encode_srgb(1.0), 1.0, 1e-12);
    EXPECT_NEAR(encode_srgb(0.18), 0.4613561, 1e-6);
}

}  // namespace
}  // namespace sds_render
