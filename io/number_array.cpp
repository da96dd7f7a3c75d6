#include "io/number_array.h"

#include <charconv>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace sds_io {

namespace {

using Json = nlohmann::json;

template <class T>
Number to_number(T value) {
    if constexpr (std::is_floating_point_v<T>)
        return static_cast<double>(value);
    else if constexpr (std::is_signed_v<T>)
        return static_cast<long long>(value);
    else
        return static_cast<unsigned long long>(value);
}

Number to_number(const Json& value) {
    if (value.is_number_float()) return value.get<double>();
    if (value.is_number_unsigned()) return value.get<unsigned long long>();
    return value.get<long long>();
}

NumberArray read_file_numbers(const std::string& name, const std::string& folder, const NpyCheck& check) {
    NpyArray file = read_npy((std::filesystem::path(folder) / name).string(), check);
    NumberArray array{std::move(file.shape), {}};
    std::visit(
        [&array](const auto& values) {
            array.values.reserve(values.size());
            for (const auto value : values) array.values.push_back(to_number(value));
        },
        file.values);
    return array;
}

constexpr unsigned int most_axes = 8;

NumberArray read_value(const Json& value, const std::string& folder, const NpyCheck& check, unsigned int axes);

NumberArray read_list(const Json& list, const std::string& folder, const NpyCheck& check, unsigned int axes) {
    if (axes == most_axes) throw std::invalid_argument("lists nested too deeply");
    NumberArray array{{list.size()}, {}};
    if (list.empty()) return array;
    if (list.front().is_number()) {
        array.values.reserve(list.size());
        for (const Json& entry : list) {
            if (!entry.is_number())
                throw std::invalid_argument("entry " + std::to_string(array.values.size()) + " is no number");
            array.values.push_back(to_number(entry));
        }
        return array;
    }
    std::vector<std::size_t> shape;  // of every entry
    for (std::size_t i = 0; i < list.size(); ++i) {
        const NumberArray entry = read_value(list[i], folder, check, axes + 1);
        if (i == 0) shape = entry.shape;
        if (entry.shape != shape)
            throw std::invalid_argument("entry " + std::to_string(i) + " has shape " + to_text(entry.shape) +
                                        " where the first has " + to_text(shape));
        array.values.insert(array.values.end(), entry.values.begin(), entry.values.end());
    }
    array.shape.insert(array.shape.end(), shape.begin(), shape.end());
    return array;
}

NumberArray read_value(const Json& value, const std::string& folder, const NpyCheck& check, unsigned int axes) {
    if (value.is_number()) return {{}, {to_number(value)}};
    if (value.is_string()) return read_file_numbers(value.get<std::string>(), folder, check);
    if (value.is_array()) return read_list(value, folder, check, axes);
    throw std::invalid_argument(std::string(value.type_name()) + " is neither a list of numbers nor an .npy file");
}

}  // namespace

std::string to_text(const Number& number) {
    return std::visit(
        [](const auto value) {
            char text[40];
            return std::string(text, std::to_chars(text, text + sizeof text, value).ptr);
        },
        number);
}

NumberArray read_numbers(const Json& value, const std::string& folder, const NpyCheck& check) {
    return read_value(value, folder, check, 0);
}

}  // namespace sds_io
