#include "io/image_files.h"

#include <jpeglib.h>
#include <csetjmp>
#include <cstdio>  // before the library's header, which does not include it
#include <cstdlib>
#include <vector>

namespace sds_io {

namespace {

struct ErrorManager {
    jpeg_error_mgr base;  // first: the library gives back its address
    std::jmp_buf back;
    char reason[JMSG_LENGTH_MAX];
};

void leave(j_common_ptr library) {
    auto* error = reinterpret_cast<ErrorManager*>(library->err);
    (*library->err->format_message)(library, error->reason);
    std::longjmp(error->back, 1);
}

/// Nothing with a destructor lives here: the library's errors jump out of it. True when all is written.
bool encode(const unsigned char* rgb, unsigned int width, unsigned int height, const std::string& note,
            ErrorManager& error, unsigned char*& bytes, unsigned long& size) {
    constexpr int quality = 92;
    jpeg_compress_struct library;
    library.err = jpeg_std_error(&error.base);
    error.base.error_exit = &leave;
    if (setjmp(error.back) != 0) {
        jpeg_destroy_compress(&library);
        return false;
    }
    jpeg_create_compress(&library);
    jpeg_mem_dest(&library, &bytes, &size);
    library.image_width = width;
    library.image_height = height;
    library.input_components = 3;
    library.in_color_space = JCS_RGB;
    jpeg_set_defaults(&library);
    jpeg_set_quality(&library, quality, TRUE);
    for (int c = 0; c < library.num_components; ++c)  // full colors
        library.comp_info[c].h_samp_factor = library.comp_info[c].v_samp_factor = 1;
    jpeg_start_compress(&library, TRUE);
    if (!note.empty() && note.size() <= max_jpeg_note)
        jpeg_write_marker(&library, JPEG_COM, reinterpret_cast<const JOCTET*>(note.data()),
                          static_cast<unsigned int>(note.size()));
    while (library.next_scanline < library.image_height) {
        auto* row = const_cast<JSAMPROW>(rgb + std::size_t{3} * width * library.next_scanline);
        jpeg_write_scanlines(&library, &row, 1);
    }
    jpeg_finish_compress(&library);
    jpeg_destroy_compress(&library);
    return true;
}

}  // namespace

void write_jpeg(const std::string& path, const sds_render::Image& image, const std::string& layer,
                const std::string& note) {
    const sds_render::Pixels8 pixels = make_preview(image, layer);
    std::vector<unsigned char> rgb;
    rgb.reserve(pixels.size() / 4 * 3);
    for (std::size_t i = 0; i < pixels.size(); i += 4) rgb.insert(rgb.end(), &pixels[i], &pixels[i] + 3);
    AtomicFile file(path);
    ErrorManager error;
    unsigned char* bytes = nullptr;
    unsigned long size = 0;
    const bool is_written = encode(rgb.data(), image.get_width(), image.get_height(), note, error, bytes, size);
    const std::string encoded(reinterpret_cast<const char*>(bytes), is_written ? size : 0);
    std::free(bytes);
    if (!is_written) throw OutputError(path, error.reason);
    file.write(encoded);
    file.commit();
}

}  // namespace sds_io
