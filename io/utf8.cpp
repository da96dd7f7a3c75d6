#include "io/utf8.h"

namespace sds_io {

std::uint32_t take_character(std::string_view& text) {
    const auto byte = [&text](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    const std::uint32_t lead = byte(0);
    const std::size_t size = lead < 0x80 ? 1 : lead >> 5 == 6 ? 2 : lead >> 4 == 14 ? 3 : lead >> 3 == 30 ? 4 : 0;
    constexpr std::uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};  // below it a shorter form would do
    std::uint32_t character = size == 1 ? lead : lead & (0x7Fu >> size);
    bool is_whole = size != 0 && size <= text.size();
    for (std::size_t i = 1; is_whole && i < size; ++i) {
        is_whole = byte(i) >> 6 == 2;
        character = character << 6 | (byte(i) & 0x3Fu);
    }
    const bool is_surrogate = character >= 0xD800 && character < 0xE000;
    is_whole = is_whole && character >= least[size] && character <= 0x10FFFF && !is_surrogate;
    text.remove_prefix(is_whole ? size : 1);
    return is_whole ? character : no_character;
}

bool is_utf8(std::string_view text) {
    while (!text.empty())
        if (take_character(text) == no_character) return false;
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

std::string printable(std::string_view text) {
    const auto is_shown = [](std::uint32_t c) {
        return c == '\n' || c == '\t' || (c != no_character && c >= 0x20 && (c < 0x7F || c > 0x9F));
    };
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const std::string_view rest = text;
        const std::uint32_t character = take_character(text);
        const std::size_t size = rest.size() - text.size();
        if (is_shown(character))
            out += rest.substr(0, size);
        else
            out.append(size, '?');
    }
    return out;
}

}  // namespace sds_io
