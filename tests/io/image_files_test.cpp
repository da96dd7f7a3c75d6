#include "io/image_files.h"

#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfInputFile.h>
#include <gtest/gtest.h>
#include <half.h>
#include <png.h>

#include <filesystem>
#include <limits>

#include "support/scratch_folder.h"

namespace sds_io {

using namespace sds_render;

namespace {

namespace fs = std::filesystem;

Image make_image() {
    Image image(37, 21);
    const float infinity = std::numeric_limits<float>::infinity();
    for (const char* name : {"R", "G", "B", "A"}) {
        Channel& channel = image.add_channel(name, ChannelKind::color);
        for (size_t i = 0; i < channel.values.size(); ++i)
            channel.values[i] =
                name[0] == 'A' ? 1.0f : static_cast<float>(i % 97) / 48.0f * static_cast<float>(name[0] % 5);
    }
    Channel& depth = image.add_channel("Z", ChannelKind::data);
    Channel& normal = image.add_channel("N.X", ChannelKind::data);
    for (size_t i = 0; i < depth.values.size(); ++i) {
        depth.values[i] = i % 5 == 0 ? infinity : 1.0f + static_cast<float>(i) * 1e-6f;
        normal.values[i] = -1.0f + static_cast<float>(i % 100) * 0.02f;
    }
    Channel& ids = image.add_channel("id", ChannelKind::id);
    for (size_t i = 0; i < ids.ids.size(); ++i) ids.ids[i] = 0xFFFFFFFFu - static_cast<std::uint32_t>(i);
    return image;
}

TEST(ImageFile, ExrKeepsEveryChannel) {
    const ScratchFolder folder;
    const Image image = make_image();
    write_exr(folder.path("a.exr"), image);
    EXPECT_EQ(folder.file_count(), 1u);

    Imf::InputFile file(folder.path("a.exr").c_str());
    const Imath::Box2i window = file.header().dataWindow();
    ASSERT_EQ(window.max.x - window.min.x + 1, 37);
    ASSERT_EQ(window.max.y - window.min.y + 1, 21);
    const size_t count = image.get_pixel_count();
    const auto read = [&](const char* name, Imf::PixelType type, auto zero) {
        std::vector<decltype(zero)> pixels(count, zero);
        const Imf::Channel* channel = file.header().channels().findChannel(name);
        EXPECT_TRUE(channel != nullptr && channel->type == type) << name;
        Imf::FrameBuffer buffer;
        buffer.insert(name, Imf::Slice(type, reinterpret_cast<char*>(pixels.data()), sizeof(zero), sizeof(zero) * 37));
        file.setFrameBuffer(buffer);
        file.readPixels(window.min.y, window.max.y);
        return pixels;
    };
    for (const char* name : {"R", "G", "B", "A"}) {
        const std::vector<half> pixels = read(name, Imf::HALF, half(0.0f));
        for (size_t i = 0; i < count; ++i)
            ASSERT_NEAR(pixels[i], image.find_channel(name)->values[i], 0.002f * 8.0f) << name << " " << i;
    }
    EXPECT_EQ(read("Z", Imf::FLOAT, 0.0f), image.find_channel("Z")->values);
    EXPECT_EQ(read("N.X", Imf::FLOAT, 0.0f), image.find_channel("N.X")->values);
    EXPECT_EQ(read("id", Imf::UINT, 0u), image.find_channel("id")->ids);
}

TEST(ImageFile, PngHoldsThePreview) {
    const ScratchFolder folder;
    const Image image = make_image();
    for (const char* layer : {"", "id", "Z"}) {
        SCOPED_TRACE(layer);
        write_png(folder.path("a.png"), image, layer);
        png_image header{};
        header.version = PNG_IMAGE_VERSION;
        ASSERT_NE(png_image_begin_read_from_file(&header, folder.path("a.png").c_str()), 0);
        EXPECT_EQ(header.width, 37u);
        EXPECT_EQ(header.height, 21u);
        header.format = PNG_FORMAT_RGBA;
        Pixels8 pixels(PNG_IMAGE_SIZE(header));
        ASSERT_NE(png_image_finish_read(&header, nullptr, pixels.data(), 0, nullptr), 0);
        EXPECT_EQ(pixels, make_preview(image, layer));
    }
    EXPECT_EQ(folder.file_count(), 1u);
}

TEST(ImageFile, AFailureLeavesWhatWasThere) {
    const ScratchFolder folder;
    const Image image = make_image();
    const std::string taken = folder.path("taken");
    fs::create_directories(taken + "/inside");
    EXPECT_THROW(write_png(taken, image), OutputError);
    EXPECT_THROW(write_exr(taken, image), OutputError);
    EXPECT_TRUE(fs::is_directory(taken + "/inside"));
    EXPECT_EQ(folder.file_count(), 1u) << "a temporary file stayed behind";

    folder.write("old.png", "old");
    EXPECT_THROW(write_png(folder.path("old.png"), image, "no such layer"), std::invalid_argument);
    EXPECT_EQ(fs::file_size(folder.path("old.png")), 3u);

    try {
        write_exr(folder.path("absent/a.exr"), image);
        FAIL() << "wrote into a folder that is not there";
    } catch (const OutputError& error) {
        EXPECT_EQ(error.what(), folder.path("absent/a.exr") + ": No such file or directory");
    }
    EXPECT_THROW(write_png(folder.path("absent/a.png"), image), OutputError);
}

}  // namespace
}  // namespace sds_io
