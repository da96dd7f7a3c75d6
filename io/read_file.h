#pragma once

#include <string>

namespace sds_io {

/// Reads a whole file (or pipe) into `bytes`. Returns the system's reason when it fails, an empty string when it is
/// read.
std::string read_file(const std::string& path, std::string& bytes);

}  // namespace sds_io
