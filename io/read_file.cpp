#include "io/read_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>

namespace sds_io {

std::string read_file(const std::string& path, std::string& bytes) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
        path == "-" ? stdin : std::fopen(path.c_str(), "rb"),
        path == "-" ? [](std::FILE*) { return 0; } : &std::fclose);
    if (!file) return std::strerror(errno);
    constexpr std::size_t block = std::size_t{1} << 20;
    std::error_code unknown_size;
    const auto size = std::filesystem::file_size(path, unknown_size);
    bytes.clear();
    bytes.reserve(unknown_size ? block : static_cast<std::size_t>(size) + block);
    for (;;) {
        const std::size_t have = bytes.size();
        bytes.resize(have + block);
        const std::size_t got = std::fread(bytes.data() + have, 1, block, file.get());
        bytes.resize(have + got);
        if (got < block) break;
    }
    return std::ferror(file.get()) ? std::strerror(errno) : std::string();
}

}  // namespace sds_io
