#include "io/usda/value.h"

#include <algorithm>
#include <type_traits>

namespace sds_usda {

namespace {

struct NamedType {
    std::string_view name;
    ValueKind kind;
    std::uint8_t components = 1, rows = 1;
};

using enum ValueKind;

constexpr NamedType named_types[] = {
    {"bool", boolean},
    {"uchar", uint32},
    {"int", int32},
    {"int2", int32, 2},
    {"int3", int32, 3},
    {"int4", int32, 4},
    {"uint", uint32},
    {"int64", int64},
    {"uint64", uint64},
    {"half", float32},
    {"half2", float32, 2},
    {"half3", float32, 3},
    {"half4", float32, 4},
    {"float", float32},
    {"float2", float32, 2},
    {"float3", float32, 3},
    {"float4", float32, 4},
    {"double", float64},
    {"double2", float64, 2},
    {"double3", float64, 3},
    {"double4", float64, 4},
    {"timecode", float64},
    {"quath", float32, 4},
    {"quatf", float32, 4},
    {"quatd", float64, 4},
    {"matrix2d", float64, 4, 2},
    {"matrix3d", float64, 9, 3},
    {"matrix4d", float64, 16, 4},
    {"frame4d", float64, 16, 4},
    {"string", string},
    {"token", string},
    {"pathExpression", string},
    {"asset", asset},
    {"dictionary", dictionary},
    {"opaque", opaque},
    {"group", opaque},
};

// "point3f" and the like: a role, its number of components and the letter of its precision.
struct Role {
    std::string_view name;
    std::uint8_t components;
};
constexpr Role roles[] = {{"point3", 3}, {"normal3", 3},   {"vector3", 3},  {"color3", 3},
                          {"color4", 4}, {"texCoord2", 2}, {"texCoord3", 3}};

}  // namespace

std::optional<ValueType> value_type_of(std::string_view name) {
    for (const NamedType& type : named_types)
        if (type.name == name) return ValueType{type.kind, type.components, type.rows, false};
    if (name.empty() || std::string_view("hfd").find(name.back()) == std::string_view::npos) return std::nullopt;
    for (const Role& role : roles)
        if (role.name == name.substr(0, name.size() - 1))
            return ValueType{name.back() == 'd' ? float64 : float32, role.components, 1, false};
    return std::nullopt;
}

std::size_t Value::get_scalar_count() const {
    return std::visit([](const auto& values) { return values.size(); }, data);
}

std::optional<std::string_view> Value::string() const {
    const auto* values = std::get_if<std::vector<std::string_view>>(&data);
    if (values == nullptr || values->empty()) return std::nullopt;
    return values->front();
}

std::optional<double> Value::number() const {
    return std::visit(
        [](const auto& values) -> std::optional<double> {
            if constexpr (std::is_arithmetic_v<typename std::decay_t<decltype(values)>::value_type>)
                if (!values.empty()) return static_cast<double>(values.front());
            return std::nullopt;
        },
        data);
}

std::optional<bool> Value::boolean() const {
    if (const auto value = number()) return *value != 0.0;
    const auto word = string();
    if (word == "true" || word == "True") return true;
    if (word == "false" || word == "False") return false;
    return std::nullopt;
}

}  // namespace sds_usda
