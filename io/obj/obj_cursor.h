#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace sds_io {

/// Walks OBJ text record by record and token by token, counting lines.
///
/// A record is one line, or several when a line ends with a backslash; line ends are LF, CRLF or CR. Tokens are
/// separated by blanks; a token that starts with '#' begins a comment up to the end of the line. Views refer to the
/// text, which must outlive the cursor.
class ObjCursor {
public:
    explicit ObjCursor(std::string_view text);

    /// Moves to the next line that has a token, skipping what is left of the current record. False at the end of the
    /// text.
    bool next_record();

    /// 1-based line on which the current record starts.
    std::uint32_t line() const { return record_line_; }

    /// Next token of the record; empty when there is none left.
    std::string_view next_token() {
        skip_blanks();
        const char* begin = at_;
        while (at_ != end_ && !is_blank(*at_) && !is_line_end(*at_) && !at_continuation()) ++at_;
        return {begin, static_cast<std::size_t>(at_ - begin)};
    }

    /// The remaining tokens of the record joined by single blanks.
    std::string rest_of_record();

private:
    static bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\v' || c == '\f'; }
    static bool is_line_end(char c) { return c == '\n' || c == '\r'; }
    bool at_continuation() const { return *at_ == '\\' && (at_ + 1 == end_ || is_line_end(at_[1])); }
    void skip_blanks();
    void skip_line_end();

    const char* at_;
    const char* end_;
    std::uint32_t line_ = 1;
    std::uint32_t record_line_ = 1;
    bool in_record_ = false;
};

enum class NumberState : std::uint8_t { ok, not_a_number, not_finite, overflow };

/// Reads the whole of `token` as a single-precision number. A magnitude too small for single precision is `ok` and
/// zero; "nan" and "inf" give their value and `not_finite`; anything behind the number is `not_a_number`.
NumberState parse_float(std::string_view token, float& value);

/// Reads a decimal integer from the front of `text` and removes it; false when there is none. Saturates at 64 bits.
bool take_integer(std::string_view& text, std::int64_t& value);

/// `token` in quotes for a message: at most 40 characters, what is not printable ASCII as '?'.
std::string quoted(std::string_view token);

}  // namespace sds_io
