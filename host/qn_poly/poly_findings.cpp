#include "qn_poly/poly_findings.h"

#include <algorithm>

namespace {

constexpr const char* array_names[] = {"polygons", "positions", "creases",      "groups",   "uvs",
                                       "colors",   "motion",    "sample times", "property", "property indices"};

void append(std::string& text, const char* what, unsigned int index) {
    if (index != 0xFFFFFFFF) text += ", " + std::string(what) + std::to_string(index);
}

}  // namespace

const PolyFindingText& poly_finding_text(PolyFindingCode code) {
    return poly_finding_texts[static_cast<unsigned int>(code)];
}
const char* poly_array_name(PolyArray array) { return array_names[static_cast<unsigned int>(array)]; }

bool PolyFindings::has_errors() const {
    bool found = false;
    for_each([&found](PolyFindingCode code) { found |= poly_finding_text(code).severity == PolySeverity::error; });
    return found;
}

bool PolyFindings::is_empty() const {
    return std::all_of(m_rows.begin(), m_rows.end(), [](const Row& row) { return row.count == 0; });
}

CoreString PolyFindings::to_text(PolyFindingCode code) const {
    const PolyFindingText& words = poly_finding_text(code);
    const PolyPlace& place = first(code);
    std::string text = std::string(poly_severity_names[static_cast<unsigned int>(words.severity)]) + ": " +
                       words.message + " (" + poly_array_name(place.array);
    append(text, "polygon ", place.polygon);
    append(text, "corner ", place.corner);
    append(text, "", place.item);
    text += std::string("), ") + words.action;
    if (count(code) > 1) text += "; " + std::to_string(count(code)) + " cases, first here";
    return CoreString(text);
}
