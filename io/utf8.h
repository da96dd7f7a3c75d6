#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace sds_io {

inline constexpr std::uint32_t no_character = 0xFFFFFFFFu;

/// Takes the first character off `text`, which is not empty: its code point, or `no_character` for a byte with which
/// no well-formed character begins.
std::uint32_t take_character(std::string_view& text);

/// Whether `text` is well-formed UTF-8: no overlong forms, surrogates or code points above U+10FFFF.
bool is_utf8(std::string_view text);

/// The UTF-8 of a text in Latin-1, of which any bytes are one.
std::string from_latin1(std::string_view text);

/// `text` as a terminal may be shown it: well-formed and without control characters but line ends and tabs. Every byte
/// of what is neither becomes '?', so that no name or path can move the cursor or color what follows.
std::string printable(std::string_view text);

}  // namespace sds_io
