#pragma once

#include "io/usda/finding.h"
#include "model/finding.h"

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace sds_io {

using namespace sds_model;

/// The value that a JSON text holds. Throws InputError with `name`, line and column when it is none.
nlohmann::json parse_json(std::string_view text, const std::string& name);

/// Array of objects {code, severity, count, first, message, detail, action}.
nlohmann::json to_json(const Findings& findings);
/// The same with {line, column} for {first}; both are 0 for the file as a whole.
nlohmann::json to_json(const sds_usda::UsdFindings& findings);

}  // namespace sds_io
