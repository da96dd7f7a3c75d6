#pragma once

#include "model/finding.h"

#include <stdexcept>
#include <string>
#include <utility>

namespace sds_io {

using namespace sds_model;

/// Input that cannot be used. what() reads "file: reason"; the program prints it and exits with 2.
class InputError : public std::runtime_error {
public:
    InputError(const std::string& file, const std::string& reason) : std::runtime_error(file + ": " + reason) {}
};

/// A cage file that gives no cage, with everything found in it.
class CageError : public InputError {
public:
    CageError(const std::string& file, Findings findings)
        : InputError(file, "not usable, nothing was written"), m_findings(std::move(findings)) {}

    const Findings& get_findings() const { return m_findings; }

private:
    Findings m_findings;
};

}  // namespace sds_io
