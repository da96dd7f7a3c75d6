#include <ImfArray.h>
#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfOutputFile.h>
#include <ImfStdIO.h>
#include <half.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <fstream>

#include "render/image.h"
#include "render/whole_file.h"

namespace sds_render {

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

void write_channels(const std::string& path, const Image& image) {
    const unsigned int width = image.get_width();
    Imf::Header header(static_cast<int>(width), static_cast<int>(image.get_height()));
    header.compression() = Imf::ZIP_COMPRESSION;
    Imf::FrameBuffer pixels;
    std::vector<std::vector<half>> halves;
    for (const Channel& channel : image.get_channels()) {
        Imf::Slice slice;
        switch (channel.kind) {
            case ChannelKind::colour:
                halves.push_back(to_halves(channel.values));
                slice = make_slice(Imf::HALF, halves.back(), width);
                break;
            case ChannelKind::data:
                slice = make_slice(Imf::FLOAT, channel.values, width);
                break;
            case ChannelKind::id:
                slice = make_slice(Imf::UINT, channel.ids, width);
                break;
        }
        header.channels().insert(channel.name, Imf::Channel(slice.type));
        pixels.insert(channel.name, slice);
    }
    // Our own stream: closing an output file swallows errors, and the table of offsets is written only then.
    std::ofstream stream(path, std::ios::binary);
    if (!stream) throw std::runtime_error(std::strerror(errno));
    {
        Imf::StdOFStream wrapped(stream, path.c_str());
        Imf::OutputFile file(wrapped, header);
        file.setFrameBuffer(pixels);
        file.writePixels(static_cast<int>(image.get_height()));
    }
    stream.close();
    if (!stream) throw std::runtime_error(std::strerror(errno));
}

}  // namespace

void write_exr(const std::string& path, const Image& image) {
    WholeFile file(path);
    try {
        write_channels(file.get_temporary_path(), image);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        throw ImageError(path, error.what());
    }
    file.publish();
}

}  // namespace sds_render
