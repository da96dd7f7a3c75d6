#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

namespace sds_cli {

/// The value that a JSON text holds. Throws InputError with `name`, line and column when it is none.
nlohmann::json parse_json(std::string_view text, const std::string& name);

}  // namespace sds_cli
