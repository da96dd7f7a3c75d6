// The element types of properties and their conversions.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "qn_gmath/gmath_half.h"
#include "qn_resource/resource_property.h"

namespace sds {

struct Half {
    std::uint16_t bits;
};

// Calls use(T()) with the element of a type; false for a type without one. char8 reads as int8, char16 as uint16.
template <class Use>
bool with_element(ResourceProperty::Type type, Use&& use) {
    using Type = ResourceProperty::Type;
    switch (type) {
        case Type::int8:
        case Type::char8:
            use(std::int8_t());
            return true;
        case Type::uint8:
            use(std::uint8_t());
            return true;
        case Type::int16:
            use(std::int16_t());
            return true;
        case Type::uint16:
        case Type::char16:
            use(std::uint16_t());
            return true;
        case Type::int32:
            use(std::int32_t());
            return true;
        case Type::uint32:
            use(std::uint32_t());
            return true;
        case Type::int64:
            use(std::int64_t());
            return true;
        case Type::uint64:
            use(std::uint64_t());
            return true;
        case Type::float16:
            use(Half());
            return true;
        case Type::float32:
            use(float());
            return true;
        case Type::float64:
            use(double());
            return true;
    }
    return false;
}

template <class T>
double to_real(T value) {
    if constexpr (std::is_same_v<T, Half>)
        return static_cast<double>(GMathHalfFloatConverter::s_conv_htof[value.bits]);
    else
        return static_cast<double>(value);
}

// The nearest integer of type T, ties to even, saturated; 0 for NaN.
template <class T>
T round_to_integer(double value) {
    if (std::isnan(value)) return 0;
    const double rounded = std::nearbyint(value);
    // The upper end of 64-bit types is not a double: at or above its power of two counts as the end.
    if (rounded >= std::ldexp(1.0, std::numeric_limits<T>::digits)) return std::numeric_limits<T>::max();
    if (rounded <= static_cast<double>(std::numeric_limits<T>::min())) return std::numeric_limits<T>::min();
    return static_cast<T>(rounded);
}

// The value of type T that stands for a real.
template <class T>
T from_real(double value) {
    if constexpr (std::is_same_v<T, Half>)
        return {GMathHalfFloatConverter::from_float(static_cast<float>(value))};
    else if constexpr (std::is_floating_point_v<T>)
        return static_cast<T>(value);
    else
        return round_to_integer<T>(value);
}

// What the integer callback gives for a stored value: integers as they are (unsigned 64-bit as bits), reals rounded.
template <class T>
long long to_integer(T value) {
    if constexpr (std::is_same_v<T, Half> || std::is_floating_point_v<T>)
        return round_to_integer<long long>(to_real(value));
    else
        return static_cast<long long>(value);
}

// What the integer callback gives for an evaluated real of an element type.
template <class T>
long long real_to_integer(double value) {
    if constexpr (std::is_same_v<T, std::uint64_t>)
        return static_cast<long long>(round_to_integer<std::uint64_t>(value));
    else
        return round_to_integer<long long>(value);
}

}  // namespace sds
