#pragma once

#include "io/usda/layer.h"
#include "io/usda/scene.h"

#include <algorithm>
#include <array>
#include <type_traits>
#include <unordered_map>
#include <unordered_set>

namespace sds_usda {

/// Offset of scalar `index` of the value, or of the time samples, that begins at `offset`.
std::size_t place_of_scalar(const std::string& text, std::size_t offset, std::size_t index);

/// The attributes of one prim by name. Arrays are moved out of the layer. Not thread-safe.
class PrimReader {
public:
    /// All three outlive the reader.
    PrimReader(Prim& prim, const std::string& text, UsdFindings& findings);

    Prim& prim() { return m_prim; }
    UsdFindings& findings() { return m_findings; }

    /// A property that somebody asks for by name is not reported as ignored.
    Property* find(std::string_view name);

    /// All samples; empty where there is no value. A property of another type is an error.
    template <class T>
    Timed<T> take(std::string_view name, std::size_t components, bool is_array);

    /// The value of what cannot move: the first sample, with a finding if there are more.
    template <class T>
    std::vector<T> take_array(std::string_view name, std::size_t components = 1);

    /// As unsigned; one outside of [0, limit) is an error.
    std::vector<std::uint32_t> take_indices(std::string_view name, std::size_t limit);

    std::optional<std::string_view> take_string(std::string_view name);
    bool take_bool(std::string_view name, bool otherwise);

    /// The place of a word in `words`; the default with a finding where it is not one of them.
    template <class Enum, std::size_t n>
    Enum take_word(std::string_view name, const std::array<std::string_view, n>& words, Enum otherwise);

    /// A name in UTF-8, with a finding where the text has another encoding.
    std::string take_name(std::string_view name);

    /// Where the value of `name` stands, or its scalar `index`.
    std::size_t place_of(std::string_view name) const;
    std::size_t place_of(std::string_view name, std::size_t index) const;

    /// Records the values that nobody asked for.
    void record_ignored();

private:
    Value* value_of(Property& property);
    bool check_type(const Property& property, const Value& value, ValueType wanted, bool is_right_kind);

    Prim& m_prim;
    const std::string& m_text;
    UsdFindings& m_findings;
    std::unordered_map<std::string_view, std::size_t> m_places;
    std::vector<bool> m_asked;
};

/// "'points' of 'prim'" for the detail of a finding.
std::string name_in(std::string_view attribute, const Prim& prim);

/// Moves or converts all scalars of `value`.
template <class T>
std::vector<T> take_scalars(Value& value) {
    return std::visit(
        [](auto& values) {
            using From = typename std::decay_t<decltype(values)>::value_type;
            std::vector<T> out;
            if constexpr (std::is_same_v<From, T>) {
                out = std::move(values);
            } else if constexpr (std::is_convertible_v<From, T> || std::is_constructible_v<T, From>) {
                out.reserve(values.size());
                for (const From& v : values) out.push_back(static_cast<T>(v));
                values = {};
            }
            return out;
        },
        value.data);
}

/// The samples of a property, or its value as the only one, as scalars of type T.
template <class T>
Timed<T> take_timed(Property& property) {
    Timed<T> out;
    if (property.samples && !property.samples->times.empty()) {
        TimeSamples& samples = *property.samples;
        out.times = std::move(samples.times);
        out.ends = std::move(samples.ends);
        out.values = take_scalars<T>(samples.values);
        const std::size_t stride = out.values.size() / out.times.size();
        for (std::size_t i = out.ends.size(); i < out.times.size(); ++i) out.ends.push_back((i + 1) * stride);
    } else if (property.value) {
        out.values = take_scalars<T>(*property.value);
        out.ends = {out.values.size()};
    }
    return out;
}

template <class T>
Timed<T> PrimReader::take(std::string_view name, std::size_t components, bool is_array) {
    Property* property = find(name);
    const Value* value = property == nullptr ? nullptr : value_of(*property);
    if (value == nullptr) return {};
    const ValueKind kind = value->type.kind;
    bool is_right_kind = kind == ValueKind::int32;
    if constexpr (std::is_floating_point_v<T>) is_right_kind = kind == ValueKind::float32 || kind == ValueKind::float64;
    const ValueType wanted{std::is_floating_point_v<T> ? ValueKind::float32 : ValueKind::int32,
                           static_cast<std::uint8_t>(components), 1, is_array};
    if (!check_type(*property, *value, wanted, is_right_kind)) return {};
    return take_timed<T>(*property);
}

template <class T>
std::vector<T> PrimReader::take_array(std::string_view name, std::size_t components) {
    Timed<T> all = take<T>(name, components, true);
    if (all.get_sample_count() > 1) {
        m_findings.record(UsdFindingCode::changing_topology, place_of(name), [&] { return name_in(name, m_prim); });
        all.values.resize(all.ends.front());
    }
    return std::move(all.values);
}

template <class Enum, std::size_t n>
Enum PrimReader::take_word(std::string_view name, const std::array<std::string_view, n>& words, Enum otherwise) {
    const auto word = take_string(name);
    if (!word) return otherwise;
    const auto known = std::find(words.begin(), words.end(), *word);
    if (known != words.end()) return static_cast<Enum>(known - words.begin());
    m_findings.record(UsdFindingCode::unknown_token, place_of(name),
                      [&] { return std::string(name) + " = " + quoted(*word); });
    return otherwise;
}

}  // namespace sds_usda
