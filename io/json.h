#pragma once

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

}  // namespace sds_io
