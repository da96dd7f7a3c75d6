#pragma once

#include "io/quoted.h"

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
    std::uint32_t get_line() const { return m_record_line; }

    /// Next token of the record; empty when there is none left.
    std::string_view next_token() {
        skip_blanks();
        const char* begin = m_at;
        while (m_at != m_end && !is_blank(*m_at) && !is_line_end(*m_at) && !at_continuation()) ++m_at;
        return {begin, static_cast<std::size_t>(m_at - begin)};
    }

    /// The remaining tokens of the record joined by single blanks.
    std::string rest_of_record();

private:
    static bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\v' || c == '\f'; }
    static bool is_line_end(char c) { return c == '\n' || c == '\r'; }
    bool at_continuation() const { return *m_at == '\\' && (m_at + 1 == m_end || is_line_end(m_at[1])); }
    void skip_blanks();
    void skip_line_end();

    const char* m_at;
    const char* m_end;
    std::uint32_t m_line = 1;
    std::uint32_t m_record_line = 1;
    bool m_in_record = false;
};

enum class NumberState : std::uint8_t { ok, not_a_number, not_finite, overflow };

/// Reads the whole of `token` as a single-precision number. A magnitude too small for single precision is `ok` and
/// zero; "nan" and "inf" give their value and `not_finite`; anything behind the number is `not_a_number`.
NumberState parse_float(std::string_view token, float& value);

/// Reads a decimal integer from the front of `text` and removes it; false when there is none. Saturates at 64 bits.
bool take_integer(std::string_view& text, std::int64_t& value);

}  // namespace sds_io
