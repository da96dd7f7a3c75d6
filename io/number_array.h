#pragma once

#include "io/npy.h"

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <variant>
#include <vector>

namespace sds_io {

/// A number as its file gives it, no bit lost.
using Number = std::variant<long long, unsigned long long, double>;

std::string to_text(const Number& number);

/// An array of numbers in C order.
struct NumberArray {
    std::vector<std::size_t> shape;  ///< empty for a single number
    std::vector<Number> values;
};

/// What a JSON value says: a number, a list of such values with equal shapes, or the path of an .npy file, seen from
/// `folder`, which `check` may refuse. Throws std::invalid_argument when it is nothing of this kind; InputError when
/// the .npy file is unusable.
NumberArray read_numbers(const nlohmann::json& value, const std::string& folder, const NpyCheck& check = {});

}  // namespace sds_io
