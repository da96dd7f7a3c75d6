#include "io/obj/obj_cursor.h"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace sds_io {

namespace {

/// std::from_chars takes no leading plus sign; "+-1" stays an error.
std::string_view without_plus(std::string_view text) {
    const bool plus = text.size() > 1 && text[0] == '+' && text[1] != '-';
    return plus ? text.substr(1) : text;
}

}  // namespace

ObjCursor::ObjCursor(std::string_view text) : m_at(text.data()), m_end(text.data() + text.size()) {
    constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
    if (text.starts_with(byte_order_mark)) m_at += byte_order_mark.size();
}

bool ObjCursor::next_record() {
    while (m_in_record && !next_token().empty()) {
    }
    m_in_record = false;
    for (skip_blanks(); m_at != m_end; skip_blanks()) {
        if (!is_line_end(*m_at)) {
            m_record_line = m_line;
            m_in_record = true;
            return true;
        }
        skip_line_end();
    }
    return false;
}

std::string ObjCursor::rest_of_record() {
    std::string rest;
    for (std::string_view token = next_token(); !token.empty(); token = next_token()) {
        if (!rest.empty()) rest += ' ';
        rest += token;
    }
    return rest;
}

void ObjCursor::skip_blanks() {
    while (m_at != m_end) {
        if (is_blank(*m_at)) {
            ++m_at;
        } else if (at_continuation()) {
            ++m_at;
            if (m_at != m_end) skip_line_end();
        } else if (*m_at == '#') {
            while (m_at != m_end && !is_line_end(*m_at)) ++m_at;
        } else {
            return;
        }
    }
}

void ObjCursor::skip_line_end() {
    const char first = *m_at++;
    if (first == '\r' && m_at != m_end && *m_at == '\n') ++m_at;
    ++m_line;
}

NumberState parse_float(std::string_view token, float& value) {
    token = without_plus(token);
    const char* end = token.data() + token.size();
    const auto [stop, error] = std::from_chars(token.data(), end, value);
    if (error == std::errc::invalid_argument || stop != end) return NumberState::not_a_number;
    if (error == std::errc::result_out_of_range) {
        // from_chars does not tell overflow from underflow, strtod does
        const double wide = std::strtod(std::string(token).c_str(), nullptr);
        value = 0.0f;
        return std::abs(wide) < 1.0 ? NumberState::ok : NumberState::overflow;
    }
    return std::isfinite(value) ? NumberState::ok : NumberState::not_finite;
}

bool take_integer(std::string_view& text, std::int64_t& value) {
    const std::string_view digits = without_plus(text);
    const auto [stop, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (error == std::errc::invalid_argument) return false;
    using Limits = std::numeric_limits<std::int64_t>;
    if (error == std::errc::result_out_of_range) value = digits.front() == '-' ? Limits::min() : Limits::max();
    text.remove_prefix(static_cast<std::size_t>(stop - text.data()));
    return true;
}

}  // namespace sds_io
