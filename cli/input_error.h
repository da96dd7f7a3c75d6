#pragma once

#include <stdexcept>
#include <string>

namespace sds_cli {

/// Input that cannot be used. what() reads "file: reason"; the program prints it and exits with 2.
class InputError : public std::runtime_error {
public:
    InputError(const std::string& file, const std::string& reason) : std::runtime_error(file + ": " + reason) {}
};

}  // namespace sds_cli
