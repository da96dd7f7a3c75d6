#include "cli/parse_json.h"

#include "cli/input_error.h"

#include <nlohmann/json.hpp>

namespace sds_cli {

nlohmann::json parse_json(std::string_view text, const std::string& name) {
    try {
        return nlohmann::json::parse(text);
    } catch (const nlohmann::json::exception& error) {
        // Without the library's own "[json.exception.NAME.NUMBER] ".
        const std::string reason = error.what();
        const std::size_t prefix = reason.find("] ");
        throw InputError(name, prefix == std::string::npos ? reason : reason.substr(prefix + 2));
    }
}

}  // namespace sds_cli
