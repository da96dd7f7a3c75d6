#pragma once

#include <string>
#include <string_view>

namespace sds_io {

/// Whether `bytes` start as a gzip file does.
inline bool is_gzip(std::string_view bytes) { return bytes.starts_with("\x1f\x8b"); }

/// Unpacks a gzip file of one or more members into `bytes`, at most half as much as the machine has memory. Returns why
/// it fails, an empty string when it is unpacked; a build without zlib always fails.
std::string gunzip(std::string_view packed, std::string& bytes);

}  // namespace sds_io
