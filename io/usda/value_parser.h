#pragma once

#include "io/usda/layer.h"
#include "io/usda/lexer.h"

namespace sds_usda {

/// Counts nesting for as long as it lives; throws where it gets too deep.
class NestingScope {
public:
    NestingScope(unsigned int& depth, const Lexer& lexer) : m_depth(depth) {
        if (m_depth == max_nesting)
            lexer.fail(UsdFindingCode::nested_too_deep, lexer.token().offset, std::to_string(max_nesting) + " levels");
        ++m_depth;
    }
    NestingScope(const NestingScope&) = delete;
    NestingScope& operator=(const NestingScope&) = delete;
    ~NestingScope() { --m_depth; }

private:
    unsigned int& m_depth;
};

/// Reads values from the lexer's current token on; afterwards the current token is the one behind the value. Throws
/// UsdSyntaxError.
class ValueParser {
public:
    ValueParser(Lexer& lexer, unsigned int& depth) : m_lexer(lexer), m_depth(depth) {}

    /// Appends a value of `type` to `value`, whose own type is set; an unknown type is read as untyped.
    void append(const ValueType& type, Value& value);

    /// A value of metadata, which says its type by how it looks.
    Value read_untyped();

    /// Typed entries "float x = 1", or untyped ones "key: value" with commas.
    void read_dictionary(std::vector<DictionaryEntry>& entries);

    /// "1: value, 2: value" in braces. None is left out with a finding.
    std::unique_ptr<TimeSamples> read_time_samples(const ValueType& type, UsdFindings& findings);

    /// One path or a list of them, or None.
    void read_paths(std::vector<std::string_view>& paths);

    /// One string or a list of them.
    void read_strings(std::vector<std::string_view>& strings);

    /// "float3" or "float3[]"; an unknown name is untyped.
    ValueType read_type();

    /// Skips from the current token, which is `open`, to behind the `close` that belongs to it.
    void skip_block(char open, char close);

    /// A ';' or the end of a line or of the block; throws where two statements share a line.
    void end_statement(char closing);

private:
    template <class T>
    void append_numbers(const ValueType& type, std::vector<T>& values);
    template <class T>
    void read_element(const ValueType& type, std::vector<T>& values);
    template <class T>
    void read_tuple(std::size_t components, std::vector<T>& values);
    std::int32_t take_boolean();
    void append_strings(const ValueType& type, std::vector<std::string_view>& values);
    void append_untyped(Value& value);
    void append_untyped_element(Value& value);
    void set_untyped_kind(Value& value, ValueKind kind);
    void read_untyped_numbers(std::vector<double>& numbers);
    double read_time();
    DictionaryEntry read_typed_entry();

    Lexer& m_lexer;
    unsigned int& m_depth;
};

}  // namespace sds_usda
