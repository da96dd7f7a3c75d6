#include "io/usda/value_parser.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace sds_usda {

namespace {

bool is_text(ValueKind kind) { return kind == ValueKind::asset || kind == ValueKind::path; }

/// Brings the samples into increasing order; of two at one time the later in the file stays. Returns whether there were
/// any.
bool sort_samples(TimeSamples& samples) {
    const std::vector<double>& times = samples.times;
    std::vector<std::size_t> order(times.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return times[a] < times[b]; });

    std::vector<double> sorted_times;
    std::vector<std::size_t> kept, ends;
    for (std::size_t i = 0; i < order.size(); ++i) {
        if (i + 1 < order.size() && times[order[i]] == times[order[i + 1]]) continue;
        kept.push_back(order[i]);
        sorted_times.push_back(times[order[i]]);
    }
    std::visit(
        [&](auto& values) {
            std::decay_t<decltype(values)> sorted;
            const std::size_t stride = values.size() / times.size();
            for (const std::size_t i : kept) {
                const std::size_t end = samples.ends.empty() ? (i + 1) * stride : samples.ends[i];
                std::size_t at = samples.ends.empty() ? i * stride : i == 0 ? 0 : samples.ends[i - 1];
                for (; at < end; ++at) sorted.push_back(std::move(values[at]));
                if (!samples.ends.empty()) ends.push_back(sorted.size());
            }
            values = std::move(sorted);
        },
        samples.values.data);
    const bool any_repeated = kept.size() != times.size();
    samples.times = std::move(sorted_times);
    samples.ends = std::move(ends);
    samples.in_file_order = false;
    return any_repeated;
}

bool is_increasing(const std::vector<double>& times) {
    return std::adjacent_find(times.begin(), times.end(), [](double a, double b) { return !(a < b); }) == times.end();
}

}  // namespace

void ValueParser::append(const ValueType& type, Value& value) {
    if (type.kind != ValueKind::untyped) value.type = type;  // an untyped one has its own from its first sample on
    switch (type.kind) {
        case ValueKind::untyped:
            return append_untyped(value);
        case ValueKind::dictionary:
            if (!std::holds_alternative<std::vector<DictionaryEntry>>(value.data))
                value.data.emplace<std::vector<DictionaryEntry>>();
            return read_dictionary(std::get<std::vector<DictionaryEntry>>(value.data));
        case ValueKind::opaque:
            m_lexer.fail(UsdFindingCode::wrong_value, m_lexer.token().offset, "an opaque attribute has no value");
        default:
            break;
    }
    with_storage(type.kind, [&]<class T>(T) {
        if (!std::holds_alternative<std::vector<T>>(value.data)) value.data.emplace<std::vector<T>>();
        auto& values = std::get<std::vector<T>>(value.data);
        if constexpr (std::is_same_v<T, std::string_view>)
            append_strings(type, values);
        else
            append_numbers(type, values);
    });
}

template <class T>
void ValueParser::append_numbers(const ValueType& type, std::vector<T>& values) {
    m_lexer.rewind();
    if (!type.is_array) {
        read_element(type, values);
    } else {
        m_lexer.expect_char('[', "of an array");
        const std::size_t needed = values.size() + m_lexer.estimate_array_size();
        if (needed > values.capacity()) values.reserve(std::max(needed, values.size() + values.size() / 2));
        while (!m_lexer.take_char(']')) {
            read_element(type, values);
            if (!m_lexer.take_char(',') && m_lexer.next_char() != ']') m_lexer.fail_expected("',' or ']' in an array");
        }
    }
    m_lexer.advance();
}

template <class T>
void ValueParser::read_element(const ValueType& type, std::vector<T>& values) {
    if (type.kind == ValueKind::boolean) return values.push_back(static_cast<T>(take_boolean()));
    if (type.components == 1) return values.push_back(m_lexer.take_number<T>());
    if (type.rows == 1) return read_tuple(type.components, values);
    m_lexer.expect_char('(', "of a matrix");
    for (std::size_t row = 0; row < type.rows; ++row) {
        if (row != 0) m_lexer.expect_char(',', "between the rows of a matrix");
        read_tuple(type.components / std::size_t{type.rows}, values);
    }
    m_lexer.take_char(',');
    m_lexer.expect_char(')', "behind the rows of a matrix");
}

template <class T>
void ValueParser::read_tuple(std::size_t components, std::vector<T>& values) {
    if (!m_lexer.take_char('(')) m_lexer.fail_expected("a tuple of " + std::to_string(components));
    for (std::size_t i = 0; i < components; ++i) {
        if (i != 0 && !m_lexer.take_char(','))
            m_lexer.fail_expected("',' and number " + std::to_string(i + 1) + " of " + std::to_string(components));
        values.push_back(m_lexer.take_number<T>());
    }
    m_lexer.take_char(',');
    if (!m_lexer.take_char(')')) m_lexer.fail_expected("')' behind " + std::to_string(components) + " numbers");
}

std::int32_t ValueParser::take_boolean() {
    m_lexer.advance();
    const Token& token = m_lexer.token();
    const bool is_number = token.kind == TokenKind::number;
    if (token.is("true") || token.is("True") || (is_number && token.text == "1")) return 1;
    if (token.is("false") || token.is("False") || (is_number && token.text == "0")) return 0;
    m_lexer.fail(UsdFindingCode::wrong_value, token.offset, quoted(token.text) + ", expected true or false");
}

void ValueParser::append_strings(const ValueType& type, std::vector<std::string_view>& values) {
    const auto read_one = [&] {
        const Token& token = m_lexer.token();
        const TokenKind wanted = type.kind == ValueKind::asset ? TokenKind::asset : TokenKind::string;
        if (token.kind != wanted)
            m_lexer.fail(
                UsdFindingCode::wrong_value, token.offset,
                quoted(token.text) + (type.kind == ValueKind::asset ? ", expected @...@" : ", expected a string"));
        values.push_back(token.text);
        m_lexer.advance();
    };
    if (!type.is_array) return read_one();
    if (!m_lexer.token().is('[')) m_lexer.fail_at_token("'[' of an array");
    for (m_lexer.advance(); !m_lexer.token().is(']');) {
        read_one();
        if (m_lexer.token().is(','))
            m_lexer.advance();
        else if (!m_lexer.token().is(']'))
            m_lexer.fail_at_token("',' or ']' in an array");
    }
    m_lexer.advance();
}

Value ValueParser::read_untyped() {
    Value value;
    value.offset = m_lexer.token().offset;
    append_untyped(value);
    return value;
}

void ValueParser::append_untyped(Value& value) {
    if (m_lexer.token().is('{')) {
        value.type.kind = ValueKind::dictionary;
        if (!std::holds_alternative<std::vector<DictionaryEntry>>(value.data))
            value.data.emplace<std::vector<DictionaryEntry>>();
        return read_dictionary(std::get<std::vector<DictionaryEntry>>(value.data));
    }
    if (!m_lexer.token().is('[')) return append_untyped_element(value);
    value.type.is_array = true;
    for (m_lexer.advance(); !m_lexer.token().is(']');) {
        append_untyped_element(value);
        if (m_lexer.token().is(','))
            m_lexer.advance();
        else if (!m_lexer.token().is(']'))
            m_lexer.fail_at_token("',' or ']' in a list");
    }
    m_lexer.advance();
}

void ValueParser::append_untyped_element(Value& value) {
    const Token token = m_lexer.token();
    if (token.is('(') || token.kind == TokenKind::number) {
        set_untyped_kind(value, ValueKind::float64);
        auto& numbers = std::get<std::vector<double>>(value.data);
        const std::size_t before = numbers.size();
        read_untyped_numbers(numbers);
        const std::size_t components = numbers.size() - before;
        if (before == 0 && components <= 255) value.type.components = static_cast<std::uint8_t>(components);
        if (components == 0 || components != value.type.components)
            m_lexer.fail(UsdFindingCode::wrong_value, token.offset, "a tuple of " + std::to_string(components));
        return;
    }
    switch (token.kind) {
        case TokenKind::string:
        case TokenKind::identifier:
            set_untyped_kind(value, ValueKind::string);
            break;
        case TokenKind::asset:
            set_untyped_kind(value, ValueKind::asset);
            break;
        case TokenKind::path:
            set_untyped_kind(value, ValueKind::path);
            break;
        default:
            m_lexer.fail_at_token("a value");
    }
    std::get<std::vector<std::string_view>>(value.data).push_back(token.text);
    m_lexer.advance();
    if (token.kind == TokenKind::asset && m_lexer.token().kind == TokenKind::path) m_lexer.advance();
    if (is_text(value.type.kind) && m_lexer.token().is('(')) skip_block('(', ')');
}

void ValueParser::set_untyped_kind(Value& value, ValueKind kind) {
    if (value.type.kind == kind || (is_text(value.type.kind) && is_text(kind))) return;
    if (value.type.kind != ValueKind::untyped || value.get_scalar_count() != 0)
        m_lexer.fail(UsdFindingCode::wrong_value, m_lexer.token().offset,
                     quoted(m_lexer.token().text) + " among values of another kind");
    value.type.kind = kind;
    if (kind == ValueKind::float64)
        value.data.emplace<std::vector<double>>();
    else
        value.data.emplace<std::vector<std::string_view>>();
}

void ValueParser::read_untyped_numbers(std::vector<double>& numbers) {
    if (!m_lexer.token().is('(')) {
        m_lexer.rewind();
        numbers.push_back(m_lexer.take_number<double>());
        return m_lexer.advance();
    }
    const NestingScope scope(m_depth, m_lexer);
    for (m_lexer.advance(); !m_lexer.token().is(')');) {
        read_untyped_numbers(numbers);
        if (m_lexer.token().is(','))
            m_lexer.advance();
        else if (!m_lexer.token().is(')'))
            m_lexer.fail_at_token("',' or ')' in a tuple");
    }
    m_lexer.advance();
}

void ValueParser::skip_block(char open, char close) {
    const Token start = m_lexer.token();
    std::size_t level = 0;
    do {
        if (m_lexer.token().kind == TokenKind::end)
            m_lexer.fail(UsdFindingCode::unterminated, start.offset, std::string("'") + open + "'");
        if (m_lexer.token().is(open)) ++level;
        if (m_lexer.token().is(close)) --level;
        m_lexer.advance();
    } while (level != 0);
}

void ValueParser::read_dictionary(std::vector<DictionaryEntry>& entries) {
    if (!m_lexer.token().is('{')) m_lexer.fail_at_token("'{' of a dictionary");
    const NestingScope scope(m_depth, m_lexer);
    for (m_lexer.advance(); !m_lexer.token().is('}');) {
        if (m_lexer.token().kind == TokenKind::identifier) {
            entries.push_back(read_typed_entry());
            end_statement('}');
            continue;
        }
        if (m_lexer.token().kind != TokenKind::string && m_lexer.token().kind != TokenKind::path)
            m_lexer.fail_at_token("an entry of a dictionary or '}'");
        DictionaryEntry entry{m_lexer.token().text, {}};
        m_lexer.advance();
        if (!m_lexer.token().is(':')) m_lexer.fail_at_token("':' behind the key");
        m_lexer.advance();
        entry.value = read_untyped();
        entries.push_back(std::move(entry));
        if (m_lexer.token().is(','))
            m_lexer.advance();
        else if (!m_lexer.token().is('}'))
            m_lexer.fail_at_token("',' or '}' in a dictionary");
    }
    m_lexer.advance();
}

ValueType ValueParser::read_type() {
    ValueType type = value_type_of(m_lexer.token().text).value_or(ValueType{});
    m_lexer.advance();
    if (m_lexer.token().is('[')) {
        m_lexer.advance();
        if (!m_lexer.token().is(']')) m_lexer.fail_at_token("']' of an array type");
        m_lexer.advance();
        type.is_array = true;
    }
    return type;
}

DictionaryEntry ValueParser::read_typed_entry() {
    const ValueType type = read_type();
    if (m_lexer.token().kind != TokenKind::identifier && m_lexer.token().kind != TokenKind::string)
        m_lexer.fail_at_token("the key of a dictionary's entry");
    DictionaryEntry entry{m_lexer.token().text, {}};
    m_lexer.advance();
    if (!m_lexer.token().is('=')) m_lexer.fail_at_token("'=' behind the key");
    m_lexer.advance();
    entry.value.offset = m_lexer.token().offset;
    append(type, entry.value);
    return entry;
}

double ValueParser::read_time() {
    if (m_lexer.token().kind != TokenKind::number) m_lexer.fail_at_token("a time or '}' of the time samples");
    m_lexer.rewind();
    const double time = m_lexer.take_number<double>();
    if (!std::isfinite(time))
        m_lexer.fail(UsdFindingCode::not_a_number, m_lexer.token().offset, "a time sample at an infinite time");
    m_lexer.advance();
    if (!m_lexer.token().is(':')) m_lexer.fail_at_token("':' behind the time");
    m_lexer.advance();
    return time;
}

std::unique_ptr<TimeSamples> ValueParser::read_time_samples(const ValueType& type, UsdFindings& findings) {
    if (!m_lexer.token().is('{')) m_lexer.fail_at_token("'{' of the time samples");
    auto samples = std::make_unique<TimeSamples>();
    const std::size_t start = m_lexer.token().offset;
    samples->values.offset = start;
    for (m_lexer.advance(); !m_lexer.token().is('}');) {
        const double time = read_time();
        if (m_lexer.token().is("None")) {
            findings.record(UsdFindingCode::blocked_sample, m_lexer.token().offset,
                            [&] { return "time " + std::to_string(time); });
            m_lexer.advance();
        } else {
            append(type, samples->values);
            samples->times.push_back(time);
            if (type.is_array || type.kind == ValueKind::untyped)
                samples->ends.push_back(samples->values.get_scalar_count());
        }
        if (m_lexer.token().is(','))
            m_lexer.advance();
        else if (!m_lexer.token().is('}'))
            m_lexer.fail_at_token("',' or '}' in the time samples");
    }
    m_lexer.advance();
    if (!is_increasing(samples->times) && sort_samples(*samples))
        findings.record(UsdFindingCode::repeated_value, start, [] { return "time samples at one time"; });
    return samples;
}

void ValueParser::read_paths(std::vector<std::string_view>& paths) {
    if (m_lexer.token().is("None")) return m_lexer.advance();
    const bool is_list = m_lexer.token().is('[');
    if (is_list) m_lexer.advance();
    while (!is_list || !m_lexer.token().is(']')) {
        if (m_lexer.token().kind != TokenKind::path) m_lexer.fail_at_token("a path");
        paths.push_back(m_lexer.token().text);
        m_lexer.advance();
        if (!is_list) return;
        if (m_lexer.token().is(','))
            m_lexer.advance();
        else if (!m_lexer.token().is(']'))
            m_lexer.fail_at_token("',' or ']' in a list of paths");
    }
    m_lexer.advance();
}

void ValueParser::read_strings(std::vector<std::string_view>& strings) {
    append_strings({ValueKind::string, 1, 1, m_lexer.token().is('[')}, strings);
}

void ValueParser::end_statement(char closing) {
    const Token& token = m_lexer.token();
    if (token.is(';')) return m_lexer.advance();
    if (!token.after_newline && !token.is(closing) && token.kind != TokenKind::end)
        m_lexer.fail_at_token("';' or the end of the line");
}

}  // namespace sds_usda
