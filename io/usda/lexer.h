#pragma once

#include "io/usda/finding.h"

#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <string>
#include <string_view>
#include <type_traits>

namespace sds_usda {

enum class TokenKind : std::uint8_t { end, identifier, number, string, asset, path, punctuation };

/// One token. `text` is what it says: a name, namespaces included ("primvars:st"); the characters of a number; the
/// contents of a string, asset path or path, escapes resolved; the one character of a punctuation.
struct Token {
    TokenKind kind = TokenKind::end;
    bool after_newline = false;  ///< a line ended between the token before and this one
    std::size_t offset = 0;      ///< of its first byte in the text
    std::string_view text;

    bool is(char symbol) const { return kind == TokenKind::punctuation && text.front() == symbol; }
    bool is(std::string_view word) const { return kind == TokenKind::identifier && text == word; }
};

/// Cuts a layer's text into tokens, or lets the caller read numbers at the cursor, without a token for each.
///
/// The cursor stands behind the current token; rewind() puts it before it. Comments are '#' and '//' to the end of the
/// line and '/* */'. Errors are thrown as UsdSyntaxError. Not thread-safe.
class Lexer {
public:
    /// `text` stays the caller's, and so does `decoded`, which receives the contents of strings with escapes; both must
    /// outlive the tokens. `text` is a std::string for the zero behind its last character.
    Lexer(const std::string& text, std::deque<std::string>& decoded)
        : m_begin(text.data()), m_at(m_begin), m_end(m_begin + text.size()), m_decoded(decoded) {}

    const Token& token() const { return m_token; }
    void advance();
    void rewind() { m_at = m_begin + m_token.offset; }
    void move_to(std::size_t offset) { m_at = m_begin + offset; }
    std::size_t get_offset() const { return static_cast<std::size_t>(m_at - m_begin); }

    /// Next character that is no blank and no comment, the cursor before it; 0 at the end.
    char next_char() {
        if (*m_at <= ' ' || *m_at == '#' || *m_at == '/') skip_blanks();
        return *m_at;
    }
    bool take_char(char c) {
        if (next_char() != c) return false;
        ++m_at;
        return true;
    }
    /// Throws unless the next character is `c`.
    void expect_char(char c, const char* where);

    /// The number at the cursor. `T` is an integer or floating-point type and must hold the number.
    template <class T>
    T take_number();

    /// Upper bound of the number of elements from the cursor to the next ']', whatever that belongs to.
    std::size_t estimate_array_size() const;

    [[noreturn]] void fail(UsdFindingCode code, std::size_t offset, std::string detail) const;
    /// "expected WHAT, found" and the token at the cursor.
    [[noreturn]] void fail_expected(const std::string& what);
    /// The same for the current token.
    [[noreturn]] void fail_at_token(const std::string& what);

private:
    static bool is_word(char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
               static_cast<unsigned char>(c) >= 0x80;
    }
    static bool is_word_start(char c) { return is_word(c) && !(c >= '0' && c <= '9'); }

    void skip_blanks();
    void skip_comment();
    void read_name();
    void read_number_token();
    void read_string();
    void read_asset();
    void read_path();
    void read_long_asset();
    std::string_view take_until(char stop, const char* what);
    std::string_view decode(std::string_view raw);
    char decode_escape(std::string_view raw, std::size_t& at) const;
    [[noreturn]] void fail_number(const char* stop, const std::string& expected);
    template <class T>
    T out_of_range_number(const char* stop);
    double take_named_number();

    const char* m_begin;
    const char* m_at;
    const char* m_end;
    std::deque<std::string>& m_decoded;
    Token m_token;
    bool m_newline = false;
};

template <class T>
T Lexer::take_number() {
    next_char();
    T value{};
    if constexpr (std::is_floating_point_v<T>) {
        const char first = *m_at == '-' ? m_at[1] : *m_at;
        if (first == 'i' || first == 'n') return static_cast<T>(take_named_number());
    }
    const auto [stop, error] = std::from_chars(m_at, m_end, value);
    if (error == std::errc::invalid_argument || is_word(*stop) || *stop == '.')
        fail_number(stop, std::is_floating_point_v<T> ? "a number"
                          : std::is_signed_v<T>       ? "an integer"
                                                      : "an integer from 0 on");
    if (error == std::errc::result_out_of_range) value = out_of_range_number<T>(stop);
    m_at = stop;
    return value;
}

template <class T>
T Lexer::out_of_range_number(const char* stop) {
    const std::string digits(m_at, stop);
    if constexpr (std::is_floating_point_v<T>) {
        // from_chars does not tell overflow from underflow, strtod does
        const double wide = std::strtod(digits.c_str(), nullptr);
        if (std::abs(wide) < 1.0) return static_cast<T>(wide);
    }
    fail(UsdFindingCode::number_out_of_range, get_offset(), quoted(digits));
}

}  // namespace sds_usda
