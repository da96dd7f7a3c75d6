#include "io/utf8.h"

#include <cstdint>

namespace sds_io {

bool is_utf8(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<std::uint8_t>(text[i++]);
        if (lead < 0x80) continue;
        const unsigned int more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
        if (lead < 0xC2 || lead > 0xF4 || text.size() - i < more) return false;
        for (unsigned int k = 0; k < more; ++k) {
            const auto next = static_cast<std::uint8_t>(text[i++]);
            // The first byte behind the lead tells overlong forms, surrogates and what lies above U+10FFFF.
            const std::uint8_t lowest = k > 0 ? 0x80 : lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
            const std::uint8_t highest = k > 0 ? 0xBF : lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
            if (next < lowest || next > highest) return false;
        }
    }
    return true;
}

std::string from_latin1(std::string_view text) {
    std::string out;
    for (const char c : text) {
        const auto code = static_cast<std::uint8_t>(c);
        if (code >= 0x80) out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(code < 0x80 ? code : 0x80 | (code & 0x3F));
    }
    return out;
}

}  // namespace sds_io
