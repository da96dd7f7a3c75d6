#pragma once

#include <stdexcept>

namespace sds_cli {

/// A command line that asks for what cannot be done. The program prints what() and exits with 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace sds_cli
