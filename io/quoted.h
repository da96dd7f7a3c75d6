#pragma once

#include <string>
#include <string_view>

namespace sds_io {

/// `text` in quotes for a message: at most 40 characters, what is not printable ASCII as '?'.
std::string quoted(std::string_view text);

}  // namespace sds_io
