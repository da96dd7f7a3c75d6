#include "io/usda/lexer.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace sds_usda {

namespace {

int hex_digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool is_line_end(char c) { return c == '\n' || c == '\r'; }

bool is_octal(char c) { return c >= '0' && c <= '7'; }

}  // namespace

void Lexer::fail(UsdFindingCode code, std::size_t offset, std::string detail) const {
    throw UsdSyntaxError{code, offset, std::move(detail)};
}

void Lexer::fail_at_token(const std::string& what) {
    const std::string found = m_token.kind == TokenKind::end ? "the end of the file" : quoted(m_token.text);
    fail(UsdFindingCode::syntax, m_token.offset, "expected " + what + ", found " + found);
}

void Lexer::fail_expected(const std::string& what) {
    advance();
    fail_at_token(what);
}

void Lexer::expect_char(char c, const char* where) {
    if (!take_char(c)) fail_expected(std::string("'") + c + "' " + where);
}

std::size_t Lexer::estimate_array_size() const {
    const auto* close = static_cast<const char*>(std::memchr(m_at, ']', static_cast<std::size_t>(m_end - m_at)));
    if (close == nullptr) return 0;
    return static_cast<std::size_t>(std::count(m_at, close, ',')) + 1;
}

void Lexer::skip_blanks() {
    for (;;) {
        if (is_line_end(*m_at)) {
            m_newline = true;
            ++m_at;
        } else if (*m_at == ' ' || *m_at == '\t') {
            ++m_at;
        } else if (*m_at == '#' || (*m_at == '/' && (m_at[1] == '/' || m_at[1] == '*'))) {
            skip_comment();
        } else {
            return;
        }
    }
}

void Lexer::skip_comment() {
    if (*m_at == '/' && m_at[1] == '*') {
        const std::size_t start = get_offset();
        const std::string_view rest(m_at + 2, static_cast<std::size_t>(m_end - m_at - 2));
        const std::size_t close = rest.find("*/");
        if (close == std::string_view::npos) fail(UsdFindingCode::unterminated, start, "comment");
        m_at += close + 4;
        return;
    }
    while (m_at != m_end && !is_line_end(*m_at)) ++m_at;
}

void Lexer::advance() {
    m_newline = false;
    const char c = next_char();
    m_token = {TokenKind::punctuation, m_newline, get_offset(), {}};
    if (m_at == m_end) {
        m_token.kind = TokenKind::end;
    } else if (is_word_start(c)) {
        read_name();
    } else if ((c >= '0' && c <= '9') || c == '-' || (c == '.' && m_at[1] >= '0' && m_at[1] <= '9')) {
        read_number_token();
    } else if (c == '"' || c == '\'') {
        read_string();
    } else if (c == '@') {
        read_asset();
    } else if (c == '<') {
        read_path();
    } else {
        m_token.text = {m_at, 1};
        ++m_at;
    }
}

void Lexer::read_name() {
    const char* start = m_at;
    do {
        if (*m_at == ':') ++m_at;
        while (is_word(*m_at)) ++m_at;
    } while (*m_at == ':' && is_word_start(m_at[1]));
    m_token.kind = TokenKind::identifier;
    m_token.text = {start, static_cast<std::size_t>(m_at - start)};
}

void Lexer::read_number_token() {
    const char* start = m_at;
    m_token.kind = TokenKind::number;
    if (*m_at == '-' && m_at[1] == 'i') {
        take_named_number();
    } else {
        double value = 0.0;  // its end is what counts here
        const auto [stop, error] = std::from_chars(m_at, m_end, value);
        if (error == std::errc::invalid_argument || is_word(*stop)) fail_number(stop, "a number");
        m_at = stop;
    }
    m_token.text = {start, static_cast<std::size_t>(m_at - start)};
}

double Lexer::take_named_number() {
    const bool negative = *m_at == '-';
    const char* name = m_at + (negative ? 1 : 0);
    const std::string_view rest(name, std::min<std::size_t>(3, static_cast<std::size_t>(m_end - name)));
    if (is_word(name[rest.size()])) fail_number(name, "a number");
    using Limits = std::numeric_limits<double>;
    if (rest != "inf" && (negative || rest != "nan")) fail_number(name, "a number");
    m_at = name + rest.size();
    if (rest == "nan") return Limits::quiet_NaN();
    return negative ? -Limits::infinity() : Limits::infinity();
}

void Lexer::fail_number(const char* stop, const std::string& expected) {
    while (is_word(*stop) || *stop == '.' || (stop == m_at && *stop == '-')) ++stop;
    const std::string_view word(m_at, static_cast<std::size_t>(stop - m_at));
    if (word.empty()) fail_expected(expected);
    fail(UsdFindingCode::not_a_number, get_offset(), quoted(word) + ", expected " + expected);
}

// The rest of the line up to `stop`; the cursor is put behind it.
std::string_view Lexer::take_until(char stop, const char* what) {
    const char* start = m_at;
    while (m_at != m_end && *m_at != stop && !is_line_end(*m_at)) ++m_at;
    if (*m_at != stop) fail(UsdFindingCode::unterminated, m_token.offset, what);
    return {start, static_cast<std::size_t>(m_at++ - start)};
}

void Lexer::read_string() {
    const char* quotes = *m_at == '"' ? "\"\"\"" : "\'\'\'";
    const std::size_t length = std::strncmp(m_at, quotes, 3) == 0 ? 3 : 1;
    m_at += length;
    const char* start = m_at;
    while (m_at != m_end && std::strncmp(m_at, quotes, length) != 0 && (length == 3 || !is_line_end(*m_at)))
        m_at += *m_at == '\\' && m_at + 1 != m_end && (length == 3 || !is_line_end(m_at[1])) ? 2 : 1;
    if (m_at == m_end || *m_at != *quotes) fail(UsdFindingCode::unterminated, m_token.offset, "string");
    m_token.kind = TokenKind::string;
    m_token.text = decode({start, static_cast<std::size_t>(m_at - start)});
    m_at += length;
}

void Lexer::read_asset() {
    m_token.kind = TokenKind::asset;
    if (std::strncmp(m_at, "@@@", 3) == 0) {
        read_long_asset();
    } else {
        ++m_at;
        m_token.text = take_until('@', "asset path");
    }
}

// Between "@@@", '@' is a character like others, one or two at the very end included; "\@@@" stands for "@@@".
void Lexer::read_long_asset() {
    m_at += 3;
    std::string& text = m_decoded.emplace_back();
    for (; std::strncmp(m_at, "@@@", 3) != 0; ++m_at) {
        if (m_at == m_end || is_line_end(*m_at)) fail(UsdFindingCode::unterminated, m_token.offset, "asset path");
        if (std::strncmp(m_at, "\\@@@", 4) == 0) {
            text += "@@@";
            m_at += 3;
        } else {
            text += *m_at;
        }
    }
    for (m_at += 3; *m_at == '@' && !text.ends_with("@@"); ++m_at) text += '@';
    m_token.text = text;
}

void Lexer::read_path() {
    ++m_at;
    m_token.kind = TokenKind::path;
    m_token.text = take_until('>', "path");
}

std::string_view Lexer::decode(std::string_view raw) {
    if (raw.find('\\') == std::string_view::npos) return raw;
    std::string& text = m_decoded.emplace_back();
    text.reserve(raw.size());
    for (std::size_t at = 0; at < raw.size();) {
        if (raw[at] != '\\' || at + 1 == raw.size())
            text += raw[at++];
        else
            text += decode_escape(raw, at);
    }
    return text;
}

// The character of the escape at `at`, which moves behind it.
char Lexer::decode_escape(std::string_view raw, std::size_t& at) const {
    const char kind = raw[at + 1];
    at += 2;
    if (kind == 'x' && at < raw.size() && hex_digit(raw[at]) >= 0) {
        int code = 0;
        for (int digits = 0; digits < 2 && at < raw.size() && hex_digit(raw[at]) >= 0; ++digits)
            code = code * 16 + hex_digit(raw[at++]);
        return static_cast<char>(code);
    }
    if (is_octal(kind)) {
        int code = kind - '0';
        for (int digits = 1; digits < 3 && at < raw.size() && is_octal(raw[at]); ++digits)
            code = code * 8 + (raw[at++] - '0');
        return static_cast<char>(code);
    }
    constexpr std::string_view names = "abfnrtv", codes = "\a\b\f\n\r\t\v";
    const std::size_t known = names.find(kind);
    return known == std::string_view::npos ? kind : codes[known];
}

}  // namespace sds_usda
