#include "io/image_files.h"

#include <Iex.h>
#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfOutputFile.h>
#include <ImfStdIO.h>
#include <ImfStringAttribute.h>
#include <half.h>

#include <string>
#include <vector>

namespace sds_io {

namespace {

std::vector<half> to_halves(const std::vector<float>& values) {
    std::vector<half> halves(values.size());
    for (size_t i = 0; i < values.size(); ++i) halves[i] = half(values[i]);
    return halves;
}

template <class T>
Imf::Slice make_slice(Imf::PixelType type, const std::vector<T>& pixels, unsigned int width) {
    // The writer's interface is not const-correct; it only reads.
    char* base = reinterpret_cast<char*>(const_cast<T*>(pixels.data()));
    return Imf::Slice(type, base, sizeof(T), sizeof(T) * width);
}

std::string encode(const sds_render::Image& image, const std::string& note) {
    const unsigned int width = image.get_width();
    Imf::Header header(static_cast<int>(width), static_cast<int>(image.get_height()));
    header.compression() = Imf::ZIP_COMPRESSION;
    if (!note.empty()) header.insert("qn_sds", Imf::StringAttribute(note));
    Imf::FrameBuffer pixels;
    std::vector<std::vector<half>> halves;
    for (const sds_render::Channel& channel : image.get_channels()) {
        Imf::Slice slice;
        switch (channel.kind) {
            case sds_render::ChannelKind::color:
                halves.push_back(to_halves(channel.values));
                slice = make_slice(Imf::HALF, halves.back(), width);
                break;
            case sds_render::ChannelKind::data:
                slice = make_slice(Imf::FLOAT, channel.values, width);
                break;
            case sds_render::ChannelKind::id:
                slice = make_slice(Imf::UINT, channel.ids, width);
                break;
        }
        header.channels().insert(channel.name, Imf::Channel(slice.type));
        pixels.insert(channel.name, slice);
    }
    Imf::StdOSStream stream;
    {
        // Its table of offsets is written by the destructor.
        Imf::OutputFile file(stream, header);
        file.setFrameBuffer(pixels);
        file.writePixels(static_cast<int>(image.get_height()));
    }
    return stream.str();
}

}  // namespace

void write_exr(const std::string& path, const sds_render::Image& image, const std::string& note) {
    AtomicFile file(path);
    try {
        file.write(encode(image, note));
    } catch (const Iex::BaseExc& error) {
        throw OutputError(path, error.what());
    }
    file.commit();
}

}  // namespace sds_io
