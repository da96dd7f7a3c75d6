#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <variant>
#include <vector>

namespace sds_usda {

/// What a value is made of. Halves are kept as floats, chars as 32-bit integers, tokens as strings, time codes as
/// doubles.
enum class ValueKind : std::uint8_t {
    untyped,  ///< metadata: the first element decides
    boolean,
    int32,
    uint32,
    int64,
    uint64,
    float32,
    float64,
    string,
    asset,
    path,
    dictionary,
    opaque,  ///< has no value
};

/// An element is one scalar, a tuple of `components` of them, or a matrix of `rows` tuples.
struct ValueType {
    ValueKind kind = ValueKind::untyped;
    std::uint8_t components = 1;  ///< scalars of an element, all rows together
    std::uint8_t rows = 1;
    bool is_array = false;
};

/// The type that a layer's text calls `name` ("point3f", "token"), or nothing.
std::optional<ValueType> value_type_of(std::string_view name);

struct DictionaryEntry;

/// A value, or the values of all time samples one after another: the scalars of all elements in one flat array.
/// Strings are views into the layer.
struct Value {
    using Data = std::variant<std::vector<std::int32_t>, std::vector<std::uint32_t>, std::vector<std::int64_t>,
                              std::vector<std::uint64_t>, std::vector<float>, std::vector<double>,
                              std::vector<std::string_view>, std::vector<DictionaryEntry>>;

    ValueType type;
    std::size_t offset = 0;  ///< byte of the text where it begins
    Data data;

    std::size_t get_scalar_count() const;

    // The first element; nothing where the value is of another kind.
    std::optional<std::string_view> string() const;
    std::optional<double> number() const;
    std::optional<bool> boolean() const;
};

struct DictionaryEntry {
    std::string_view key;
    Value value;
};

/// Runs `visitor` with the vector of `data` that holds `kind`, which is not untyped or opaque.
template <class Visitor>
decltype(auto) with_storage(ValueKind kind, Visitor&& visitor) {
    switch (kind) {
        case ValueKind::boolean:
        case ValueKind::int32:
            return visitor(std::int32_t{});
        case ValueKind::uint32:
            return visitor(std::uint32_t{});
        case ValueKind::int64:
            return visitor(std::int64_t{});
        case ValueKind::uint64:
            return visitor(std::uint64_t{});
        case ValueKind::float32:
            return visitor(float{});
        case ValueKind::float64:
            return visitor(double{});
        default:
            return visitor(std::string_view{});
    }
}

}  // namespace sds_usda
