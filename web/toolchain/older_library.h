// What Emscripten's standard library does not have yet; included before every file of the page's build.
#pragma once

#include <version>

#ifndef __cpp_lib_bit_cast
#include <bit>

namespace std {

template <class To, class From>
constexpr To bit_cast(const From& from) noexcept {
    static_assert(sizeof(To) == sizeof(From));
    return __builtin_bit_cast(To, from);
}

}  // namespace std
#endif

#ifndef __cpp_lib_to_chars
#include <charconv>

namespace std {

// Decimal numbers only, correctly rounded.
from_chars_result from_chars(const char* first, const char* last, float& value);
from_chars_result from_chars(const char* first, const char* last, double& value);

}  // namespace std
#endif
