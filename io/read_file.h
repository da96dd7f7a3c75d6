#pragma once

#include <string>

namespace sds_io {

/// Reads a whole file or pipe into `bytes`, at most half as much as the machine has memory, 64 MiB of a device; "-" is
/// standard input. Returns why it fails, an empty string when it is read.
std::string read_file(const std::string& path, std::string& bytes);

}  // namespace sds_io
