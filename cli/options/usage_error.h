#pragma once

#include <stdexcept>
#include <string>

namespace sds_cli {

/// A command line that asks for what cannot be done. The program prints what() and exits with 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Returns ask(). What the libraries refuse, as std::invalid_argument or std::length_error, becomes a UsageError with
/// `option` in front.
template <class Ask>
decltype(auto) asked_by(const char* option, const Ask& ask) {
    try {
        return ask();
    } catch (const std::logic_error& error) {
        throw UsageError(option + std::string(error.what()));
    }
}

}  // namespace sds_cli
