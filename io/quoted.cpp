#include "io/quoted.h"

namespace sds_io {

std::string quoted(std::string_view text) {
    constexpr std::size_t longest = 40;
    std::string out = "'";
    for (const char c : text.substr(0, longest)) out += c >= ' ' && c <= '~' ? c : '?';
    return out + (text.size() > longest ? "...'" : "'");
}

}  // namespace sds_io
