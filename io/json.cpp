#include "io/json.h"

#include "io/input_error.h"

#include <nlohmann/json.hpp>

namespace sds_io {

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

nlohmann::json to_json(const Findings& findings) {
    nlohmann::json list = nlohmann::json::array();
    for (const Finding& finding : findings.get_entries())
        list.push_back({{"code", to_name(finding.code)},
                        {"severity", to_name(severity_of(finding.code))},
                        {"count", finding.count},
                        {"first", finding.first.place},
                        {"message", message_of(finding.code)},
                        {"detail", finding.first.detail},
                        {"action", action_of(finding)}});
    return list;
}

nlohmann::json to_json(const sds_usda::UsdFindings& findings) {
    nlohmann::json list = nlohmann::json::array();
    for (const sds_usda::UsdFinding& finding : findings.get_entries())
        list.push_back({{"code", to_name(finding.code)},
                        {"severity", to_name(severity_of(finding.code))},
                        {"count", finding.count},
                        {"line", finding.line},
                        {"column", finding.column},
                        {"message", message_of(finding.code)},
                        {"detail", finding.detail},
                        {"action", action_of(finding.code)}});
    return list;
}

}  // namespace sds_io
