#pragma once

#include <string>
#include <string_view>

namespace sds_io {

/// Whether `text` is well-formed UTF-8: no overlong forms, surrogates or code points above U+10FFFF.
bool is_utf8(std::string_view text);

/// The UTF-8 of a text in Latin-1, of which any bytes are one.
std::string from_latin1(std::string_view text);

}  // namespace sds_io
