#include "qn_poly/poly_findings.h"

#include <algorithm>

namespace {

using enum PolySeverity;

// In the order of the codes.
constexpr PolyFindingText texts[] = {
    {"no_polygons", error, "no polygon", "refused"},
    {"small_polygon", error, "polygon with fewer than three corners", "refused"},
    {"too_many_elements", error, "more elements than 32-bit half-edges can number", "refused"},
    {"wrong_count", error, "array of the wrong length", "refused"},
    {"index_out_of_range", error, "index out of range", "refused"},
    {"non_finite_value", error, "NaN or infinite number", "refused"},
    {"value_too_large", error, "coordinate beyond 1e18", "refused"},
    {"times_not_increasing", error, "time not later than the one before it", "refused"},
    {"void_polygon", error, "polygon that holds the index 0xFFFFFFFF", "refused"},
    {"repeated_vertex", warning, "vertex repeated in one polygon", "kept, the polygon may border on itself"},
    {"nonmanifold_edge", warning, "edge of three or more polygons", "each of them gets a border there"},
    {"nonmanifold_vertex", warning, "polygons that meet at a vertex alone",
     "kept, all take the limit point of one fan"},
    {"opposite_winding", warning, "neighbours of opposite winding", "kept as they are"},
    {"half_mapped_polygon", warning, "polygon with UVs at some corners only", "left unmapped"},
    {"unused_vertex", note, "vertex that no polygon uses", "kept"},
};
static_assert(std::size(texts) == poly_finding_code_count);

constexpr const char* array_names[] = {"polygons", "positions", "creases",      "groups",   "uvs",
                                       "colors",   "motion",    "sample times", "property", "property indices"};

void append(std::string& text, const char* what, unsigned int index) {
    if (index != 0xFFFFFFFF) text += ", " + std::string(what) + std::to_string(index);
}

}  // namespace

const PolyFindingText& poly_finding_text(PolyFindingCode code) { return texts[static_cast<unsigned int>(code)]; }
const char* poly_array_name(PolyArray array) { return array_names[static_cast<unsigned int>(array)]; }

bool PolyFindings::has_errors() const {
    bool found = false;
    for_each([&found](PolyFindingCode code) { found |= poly_finding_text(code).severity == error; });
    return found;
}

bool PolyFindings::is_empty() const {
    return std::all_of(m_rows.begin(), m_rows.end(), [](const Row& row) { return row.count == 0; });
}

CoreString PolyFindings::to_text(PolyFindingCode code) const {
    constexpr const char* severities[] = {"error", "warning", "note"};
    const PolyFindingText& words = poly_finding_text(code);
    const PolyPlace& place = first(code);
    std::string text = std::string(severities[static_cast<unsigned int>(words.severity)]) + ": " + words.message +
                       " (" + poly_array_name(place.array);
    append(text, "polygon ", place.polygon);
    append(text, "corner ", place.corner);
    append(text, "", place.item);
    text += std::string("), ") + words.action;
    if (count(code) > 1) text += "; " + std::to_string(count(code)) + " cases, first here";
    return CoreString(text);
}
