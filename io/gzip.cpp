#include "io/gzip.h"

#include "model/array_size.h"

#ifdef QN_HAS_ZLIB
#include <zlib.h>

#include <algorithm>
#include <limits>
#include <memory>
#endif

namespace sds_io {

#ifdef QN_HAS_ZLIB

std::string gunzip(std::string_view packed, std::string& bytes) {
    constexpr std::size_t block = std::size_t{1} << 20;
    const std::size_t longest = sds_model::get_machine_memory() / 2;
    constexpr std::size_t most_input = std::numeric_limits<uInt>::max();
    constexpr int gzip_window = 16 + MAX_WBITS;
    z_stream stream{};
    if (inflateInit2(&stream, gzip_window) != Z_OK) return "no memory to unpack it";
    const std::unique_ptr<z_stream, int (*)(z_stream*)> guard(&stream, &inflateEnd);
    bytes.clear();
    std::size_t taken = 0;
    for (int state = Z_OK;;) {
        if (state == Z_STREAM_END) {
            if (!is_gzip(packed.substr(taken))) return {};  // what pads the last member is no part of it
            inflateReset(&stream);
        }
        const std::size_t have = bytes.size();
        if (have > longest) return "unpacks to more than " + sds_model::to_size_text(longest);
        if (bytes.capacity() < have + block) bytes.reserve(std::max(2 * have, 4 * block));
        bytes.resize(have + block);
        const std::size_t offered = std::min(packed.size() - taken, most_input);
        // zlib reads through a pointer that is not const in older versions.
        stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data() + taken));
        stream.avail_in = static_cast<uInt>(offered);
        stream.next_out = reinterpret_cast<Bytef*>(bytes.data() + have);
        stream.avail_out = block;
        state = inflate(&stream, Z_NO_FLUSH);
        taken += offered - stream.avail_in;
        bytes.resize(have + block - stream.avail_out);
        if (state == Z_BUF_ERROR || (state == Z_OK && taken == packed.size() && stream.avail_out > 0))
            return "gzipped and cut short";
        if (state != Z_OK && state != Z_STREAM_END) return "gzipped and damaged";
    }
}

#else

std::string gunzip(std::string_view, std::string&) { return "gzipped, and this build unpacks nothing"; }

#endif

}  // namespace sds_io
