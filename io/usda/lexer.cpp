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
    const std::string found = token_.kind == TokenKind::end ? "the end of the file" : quoted(token_.text);
    fail(UsdFindingCode::syntax, token_.offset, "expected " + what + ", found " + found);
}

void Lexer::fail_expected(const std::string& what) {
    advance();
    fail_at_token(what);
}

void Lexer::expect_char(char c, const char* where) {
    if (!take_char(c)) fail_expected(std::string("'") + c + "' " + where);
}

std::size_t Lexer::estimate_array_size() const {
    const auto* close = static_cast<const char*>(std::memchr(at_, ']', static_cast<std::size_t>(end_ - at_)));
    if (close == nullptr) return 0;
    return static_cast<std::size_t>(std::count(at_, close, ',')) + 1;
}

void Lexer::skip_blanks() {
    for (;;) {
        if (is_line_end(*at_)) {
            newline_ = true;
            ++at_;
        } else if (*at_ == ' ' || *at_ == '\t') {
            ++at_;
        } else if (*at_ == '#' || (*at_ == '/' && (at_[1] == '/' || at_[1] == '*'))) {
            skip_comment();
        } else {
            return;
        }
    }
}

void Lexer::skip_comment() {
    if (*at_ == '/' && at_[1] == '*') {
        const std::size_t start = offset();
        const std::string_view rest(at_ + 2, static_cast<std::size_t>(end_ - at_ - 2));
        const std::size_t close = rest.find("*/");
        if (close == std::string_view::npos) fail(UsdFindingCode::unterminated, start, "comment");
        at_ += close + 4;
        return;
    }
    while (at_ != end_ && !is_line_end(*at_)) ++at_;
}

void Lexer::advance() {
    newline_ = false;
    const char c = next_char();
    token_ = {TokenKind::punctuation, newline_, offset(), {}};
    if (at_ == end_) {
        token_.kind = TokenKind::end;
    } else if (is_word_start(c)) {
        read_name();
    } else if ((c >= '0' && c <= '9') || c == '-' || (c == '.' && at_[1] >= '0' && at_[1] <= '9')) {
        read_number_token();
    } else if (c == '"' || c == '\'') {
        read_string();
    } else if (c == '@') {
        read_asset();
    } else if (c == '<') {
        read_path();
    } else {
        token_.text = {at_, 1};
        ++at_;
    }
}

void Lexer::read_name() {
    const char* start = at_;
    do {
        if (*at_ == ':') ++at_;
        while (is_word(*at_)) ++at_;
    } while (*at_ == ':' && is_word_start(at_[1]));
    token_.kind = TokenKind::identifier;
    token_.text = {start, static_cast<std::size_t>(at_ - start)};
}

void Lexer::read_number_token() {
    const char* start = at_;
    token_.kind = TokenKind::number;
    if (*at_ == '-' && at_[1] == 'i') {
        take_named_number();
    } else {
        double value = 0.0;  // its end is what counts here
        const auto [stop, error] = std::from_chars(at_, end_, value);
        if (error == std::errc::invalid_argument || is_word(*stop)) fail_number(stop, "a number");
        at_ = stop;
    }
    token_.text = {start, static_cast<std::size_t>(at_ - start)};
}

double Lexer::take_named_number() {
    const bool negative = *at_ == '-';
    const char* name = at_ + (negative ? 1 : 0);
    const std::string_view rest(name, std::min<std::size_t>(3, static_cast<std::size_t>(end_ - name)));
    if (is_word(name[rest.size()])) fail_number(name, "a number");
    using Limits = std::numeric_limits<double>;
    if (rest != "inf" && (negative || rest != "nan")) fail_number(name, "a number");
    at_ = name + rest.size();
    if (rest == "nan") return Limits::quiet_NaN();
    return negative ? -Limits::infinity() : Limits::infinity();
}

void Lexer::fail_number(const char* stop, const std::string& expected) {
    while (is_word(*stop) || *stop == '.' || (stop == at_ && *stop == '-')) ++stop;
    const std::string_view word(at_, static_cast<std::size_t>(stop - at_));
    if (word.empty()) fail_expected(expected);
    fail(UsdFindingCode::not_a_number, offset(), quoted(word) + ", expected " + expected);
}

// The rest of the line up to `stop`; the cursor is put behind it.
std::string_view Lexer::take_until(char stop, const char* what) {
    const char* start = at_;
    while (at_ != end_ && *at_ != stop && !is_line_end(*at_)) ++at_;
    if (*at_ != stop) fail(UsdFindingCode::unterminated, token_.offset, what);
    return {start, static_cast<std::size_t>(at_++ - start)};
}

void Lexer::read_string() {
    const char* quotes = *at_ == '"' ? "\"\"\"" : "\'\'\'";
    const std::size_t length = std::strncmp(at_, quotes, 3) == 0 ? 3 : 1;
    at_ += length;
    const char* start = at_;
    while (at_ != end_ && std::strncmp(at_, quotes, length) != 0 && (length == 3 || !is_line_end(*at_)))
        at_ += *at_ == '\\' && at_ + 1 != end_ && (length == 3 || !is_line_end(at_[1])) ? 2 : 1;
    if (at_ == end_ || *at_ != *quotes) fail(UsdFindingCode::unterminated, token_.offset, "string");
    token_.kind = TokenKind::string;
    token_.text = decode({start, static_cast<std::size_t>(at_ - start)});
    at_ += length;
}

void Lexer::read_asset() {
    token_.kind = TokenKind::asset;
    if (std::strncmp(at_, "@@@", 3) == 0) {
        read_long_asset();
    } else {
        ++at_;
        token_.text = take_until('@', "asset path");
    }
}

// Between "@@@", '@' is a character like others, one or two at the very end included; "\@@@" stands for "@@@".
void Lexer::read_long_asset() {
    at_ += 3;
    std::string& text = decoded_.emplace_back();
    for (; std::strncmp(at_, "@@@", 3) != 0; ++at_) {
        if (at_ == end_ || is_line_end(*at_)) fail(UsdFindingCode::unterminated, token_.offset, "asset path");
        if (std::strncmp(at_, "\\@@@", 4) == 0) {
            text += "@@@";
            at_ += 3;
        } else {
            text += *at_;
        }
    }
    for (at_ += 3; *at_ == '@' && !text.ends_with("@@"); ++at_) text += '@';
    token_.text = text;
}

void Lexer::read_path() {
    ++at_;
    token_.kind = TokenKind::path;
    token_.text = take_until('>', "path");
}

std::string_view Lexer::decode(std::string_view raw) {
    if (raw.find('\\') == std::string_view::npos) return raw;
    std::string& text = decoded_.emplace_back();
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
