// Numbers from text, for standard libraries that read integers only.
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

const char* skip_digits(const char* at, const char* last) {
    while (at != last && is_digit(*at)) ++at;
    return at;
}

// A decimal number as it is written: digits x 10^exponent, unless there are more digits than fit.
struct Decimal {
    const char* end = nullptr;  // null: not a number
    bool is_negative = false;
    bool is_short = true;  // all digits are in `digits`
    std::uint64_t digits = 0;
    int exponent = 0;
};

Decimal scan(const char* first, const char* last) {
    Decimal number;
    const char* at = first;
    if (at != last && *at == '-') {
        number.is_negative = true;
        ++at;
    }
    const char* const whole = at;
    at = skip_digits(at, last);
    auto count = at - whole;
    const char *point = at, *fraction_end = at;
    if (at != last && *at == '.') {
        fraction_end = skip_digits(at + 1, last);
        count += fraction_end - (at + 1);
        at = fraction_end;
    }
    if (count == 0) return number;
    const auto take = [&number](const char* from, const char* to) {
        for (; from != to; ++from) {
            number.is_short = number.is_short && number.digits < 100'000'000'000'000'000u;
            if (number.is_short) number.digits = number.digits * 10 + static_cast<unsigned int>(*from - '0');
        }
    };
    take(whole, point);
    if (fraction_end != point) {
        take(point + 1, fraction_end);
        number.exponent = -static_cast<int>(fraction_end - (point + 1));
    }
    number.end = at;
    if (at != last && (*at == 'e' || *at == 'E')) {
        const char* digits = at + 1;
        if (digits != last && (*digits == '+' || *digits == '-')) ++digits;
        const char* const end = skip_digits(digits, last);
        if (end != digits) {
            number.exponent += std::atoi(std::string(at + 1, end).c_str());
            number.is_short = number.is_short && end - digits <= 4;
            number.end = end;
        }
    }
    return number;
}

double parse_slowly(const char* text, double) { return std::strtod(text, nullptr); }
float parse_slowly(const char* text, float) { return std::strtof(text, nullptr); }

// Digits and power of ten that both are exact give a result that is rounded once (Clinger 1990).
template <class T>
std::from_chars_result parse(const char* first, const char* last, T& value, std::uint64_t exact_digits,
                             int exact_power) {
    constexpr double powers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                 1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    const Decimal number = scan(first, last);
    if (number.end == nullptr) return {first, std::errc::invalid_argument};
    if (number.is_short && number.digits <= exact_digits && std::abs(number.exponent) <= exact_power) {
        const auto digits = static_cast<T>(number.digits);
        const auto power = static_cast<T>(powers[std::abs(number.exponent)]);
        const T size = number.exponent < 0 ? digits / power : digits * power;
        value = number.is_negative ? -size : size;
        return {number.end, std::errc()};
    }
    const T parsed = parse_slowly(std::string(first, number.end).c_str(), T{});
    if (std::isinf(parsed) || (parsed == 0 && (number.digits != 0 || !number.is_short)))
        return {number.end, std::errc::result_out_of_range};
    value = parsed;
    return {number.end, std::errc()};
}

}  // namespace

namespace std {

from_chars_result from_chars(const char* first, const char* last, float& value) {
    return parse(first, last, value, std::uint64_t{1} << 24, 10);
}
from_chars_result from_chars(const char* first, const char* last, double& value) {
    return parse(first, last, value, std::uint64_t{1} << 53, 22);
}

}  // namespace std
